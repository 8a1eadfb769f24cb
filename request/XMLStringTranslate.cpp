#include "request/XMLStringTranslate.h"

#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLException.hpp>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "osmisc.h"

using namespace xercesc;

namespace {

const XMLCh kEmptyText[1] = {0};

// A text that does not come back unchanged from its XMLCh form must not be
// used: stop here, in the form of a failed assertion of the converter.
[[noreturn]] void roundTripFailed() {
  std::fprintf(stderr, "XMLStringTranslate:123: const XMLCh* const XMLStringTranslate::translate(const char*): "
                       "Assertion `t1==t2' failed.\n");
  std::fflush(stderr);
  std::abort();
}

// Converts text in place with OSTranslate; lengths are 16-bit as the call takes them.
void translateInPlace(WORD mode, std::string& text) {
  if (text.empty()) return;
  const size_t inputLength = text.size();
  const size_t outputCapacity = inputLength * 3 + 1;
  char* output = static_cast<char*>(std::malloc(outputCapacity + 1));
  if (output == nullptr) return;
  std::memset(output, 0, outputCapacity);
  WORD written = OSTranslate(mode, text.data(), static_cast<WORD>(inputLength), output,
                             static_cast<WORD>(outputCapacity));
  output[written] = '\0';
  text.assign(output, written);
  std::free(output);
}

}  // namespace

XMLStringTranslate::XMLStringTranslate(const char* encoding) {
  encodingName_ = XMLString::transcode(encoding);
  formatter_ = new XMLFormatter(encodingName_, this, XMLFormatter::NoEscapes, XMLFormatter::UnRep_CharRef);
  wideBuffer_ = new XMLCh[kWideChars + 1];
  clearbuffer();
  wideBuffer_[kWideChars] = 0;
}

XMLStringTranslate::~XMLStringTranslate() {
  delete formatter_;
  XMLString::release(&encodingName_);
  delete[] byteResult_;
  delete[] wideBuffer_;
}

// The formatter hands over its output in pieces of at most its buffer size;
// translate(const XMLCh*) starts each text afresh, so the pieces of one text
// are collected here in order.
void XMLStringTranslate::writeChars(const XMLByte* toWrite, XMLSize_t count, XMLFormatter*) {
  char* joined = new char[byteLength_ + count + 1]();
  if (byteResult_ != nullptr) std::memcpy(joined, byteResult_, byteLength_);
  std::memcpy(joined + byteLength_, toWrite, count);
  delete[] byteResult_;
  byteResult_ = joined;
  byteLength_ += count;
}

void XMLStringTranslate::clearbuffer() {
  if (wideBuffer_ != nullptr) std::memset(wideBuffer_, 0, kWideChars * sizeof(XMLCh));
}

std::string XMLStringTranslate::translate(const XMLCh* text) {
  delete[] byteResult_;
  byteResult_ = nullptr;
  byteLength_ = 0;
  if (text != nullptr && *text != 0) formatter_->formatBuf(text, XMLString::stringLen(text));
  return byteResult_ == nullptr ? std::string() : std::string(byteResult_, byteLength_);
}

const XMLCh* XMLStringTranslate::translate(const char* text) {
  if (text == nullptr || *text == '\0') return kEmptyText;
  clearbuffer();
  const size_t length = std::strlen(text);
  std::vector<unsigned char> charSizes(kWideChars);
  XMLSize_t bytesEaten = 0;
  XMLSize_t count = 0;
  try {
    count = formatter_->getTranscoder()->transcodeFrom(reinterpret_cast<const XMLByte*>(text), length, wideBuffer_,
                                                       kWideChars, bytesEaten, charSizes.data());
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
  translateInPlace(OS_TRANSLATE_UTF8_TO_LMBCS, text);
  return 1;
}

int XMLStringTranslate::TranslatorLMBCSToUTF8(std::string& text) {
  translateInPlace(OS_TRANSLATE_LMBCS_TO_UTF8, text);
  return 1;
}
