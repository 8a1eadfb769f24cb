#include "request/XMLStringTranslate.h"

#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>

#include <cstdio>
#include <cstdlib>
#include <algorithm>
#include <cstring>
#include <vector>

#include "osenv.h"
#include "osmisc.h"
#include "request/IPException.h"
#include "request/TaskLog.h"

using namespace xercesc;

namespace {

const XMLCh kEmptyText[1] = {0};

constexpr const char* kReplyOnTextError = "OOOTextErrorReply";

thread_local const std::string* t_requestUser = nullptr;
thread_local const std::string* t_request = nullptr;

std::string orUnknown(const std::string* text) { return text != nullptr && !text->empty() ? *text : "unknown"; }

// A text that does not come back unchanged from its XMLCh form must not be
// used. The administrator learns from the server log whose request it was;
// then the process stops, in the form of a failed assertion of the converter,
// unless the server is set to fail only the request.
void roundTripFailed() {
  const bool replyInstead = OSGetEnvironmentLong(kReplyOnTextError) == 1;
  taskLog("Text conversion failed for [" + orUnknown(t_requestUser) + "] in request " + orUnknown(t_request) +
          (replyInstead ? ": the request is refused" : ": the task stops"));
  if (replyInstead) throw IPException("translate", "The text cannot be converted");
  std::fprintf(stderr, "XMLStringTranslate:123: const XMLCh* const XMLStringTranslate::translate(const char*): "
                       "Assertion `t1==t2' failed.\n");
  std::fflush(stderr);
  std::abort();
}

[[noreturn]] void tooLong(const char* function) {
  throw IPException(function, "The text is longer than 65535 bytes and cannot be converted");
}

// Converts text in place with OSTranslate. The call takes 16-bit lengths, so
// a text that does not fit is refused rather than cut.
void translateInPlace(WORD mode, std::string& text, const char* function) {
  if (text.empty()) return;
  constexpr size_t kLimit = XMLStringTranslate::kMaxConvertedBytes;
  const size_t inputLength = text.size();
  if (inputLength > kLimit) tooLong(function);
  const size_t wanted = inputLength * 3 + 1;
  const size_t outputCapacity = std::min(wanted, kLimit);
  char* output = static_cast<char*>(std::malloc(outputCapacity + 1));
  if (output == nullptr) return;
  std::memset(output, 0, outputCapacity);
  WORD written = OSTranslate(mode, text.data(), static_cast<WORD>(inputLength), output,
                             static_cast<WORD>(outputCapacity));
  // The platform cuts an output that does not fit before a character it
  // cannot complete (at most 4 bytes): one that comes that close to a
  // clamped capacity may have been cut.
  constexpr size_t kLongestCharacter = 4;
  if (outputCapacity < wanted && written + kLongestCharacter > outputCapacity) {
    std::free(output);
    tooLong(function);
  }
  output[written] = '\0';
  text.assign(output, written);
  std::free(output);
}

}  // namespace

TextRequestScope::TextRequestScope(const std::string& user, const std::string& request)
    : outerUser_(t_requestUser), outerRequest_(t_request) {
  t_requestUser = &user;
  t_request = &request;
}

TextRequestScope::~TextRequestScope() {
  t_requestUser = outerUser_;
  t_request = outerRequest_;
}

XMLStringTranslate::XMLStringTranslate(const char* encoding) {
  encodingName_ = XMLString::transcode(encoding);
  formatter_ = new XMLFormatter(encodingName_, this, XMLFormatter::NoEscapes, XMLFormatter::UnRep_CharRef);
  wideBuffer_ = new XMLCh[kWideChars + 1];
  charSizes_ = new unsigned char[kWideChars];
  clearbuffer();
  wideBuffer_[kWideChars] = 0;
}

XMLStringTranslate::~XMLStringTranslate() {
  delete formatter_;
  XMLString::release(&encodingName_);
  delete[] byteResult_;
  delete[] wideBuffer_;
  delete[] charSizes_;
}

// The formatter hands over its output in pieces of at most its buffer size;
// translate(const XMLCh*) starts each text afresh, so the pieces of one text
// are collected here in order.
// The array grows by doubling, so that a long text costs time in
// proportion to its length.
void XMLStringTranslate::writeChars(const XMLByte* toWrite, XMLSize_t count, XMLFormatter*) {
  if (byteResult_ == nullptr || byteLength_ + count + 1 > byteCapacity_) {
    const size_t capacity = std::max(byteLength_ + count + 1, byteCapacity_ * 2);
    char* joined = new char[capacity]();
    if (byteResult_ != nullptr) std::memcpy(joined, byteResult_, byteLength_);
    delete[] byteResult_;
    byteResult_ = joined;
    byteCapacity_ = capacity;
  }
  std::memcpy(byteResult_ + byteLength_, toWrite, count);
  byteLength_ += count;
  byteResult_[byteLength_] = '\0';
}

void XMLStringTranslate::clearbuffer() {
  if (wideBuffer_ != nullptr) std::memset(wideBuffer_, 0, kWideChars * sizeof(XMLCh));
}

// The byte array is kept from text to text (only its length starts again),
// so that translating many short texts allocates once; one grown large by a
// long text is given back.
std::string XMLStringTranslate::translate(const XMLCh* text) {
  constexpr size_t kKeptCapacity = 64 * 1024;
  if (byteCapacity_ > kKeptCapacity) {
    delete[] byteResult_;
    byteResult_ = nullptr;
    byteCapacity_ = 0;
  }
  byteLength_ = 0;
  if (text != nullptr && *text != 0) formatter_->formatBuf(text, XMLString::stringLen(text));
  return byteLength_ == 0 ? std::string() : std::string(byteResult_, byteLength_);
}

const XMLCh* XMLStringTranslate::translate(const char* text) {
  if (text == nullptr || *text == '\0') return kEmptyText;
  const size_t length = std::strlen(text);
  // Every character takes at least one byte, so a text of fewer bytes than
  // the buffer has characters needs no more room than its length; the
  // buffer is terminated after what was converted, not cleared first.
  const size_t room = std::min(length, kWideChars);
  XMLSize_t bytesEaten = 0;
  XMLSize_t count = 0;
  try {
    count = formatter_->getTranscoder()->transcodeFrom(reinterpret_cast<const XMLByte*>(text), length, wideBuffer_,
                                                       room, bytesEaten, charSizes_);
  } catch (const XMLException&) {
    roundTripFailed();  // not valid in the encoding
  }
  wideBuffer_[count] = 0;
  const std::string t1(text, length);
  const std::string t2 = translate(static_cast<const XMLCh*>(wideBuffer_));
  if (!(t1 == t2)) roundTripFailed();
  return wideBuffer_;
}

int XMLStringTranslate::TranslatorUTF8ToLMBCS(std::string& text) {
  translateInPlace(OS_TRANSLATE_UTF8_TO_LMBCS, text, "TranslatorUTF8ToLMBCS");
  return 1;
}

int XMLStringTranslate::TranslatorLMBCSToUTF8(std::string& text) {
  translateInPlace(OS_TRANSLATE_LMBCS_TO_UTF8, text, "TranslatorLMBCSToUTF8");
  return 1;
}
