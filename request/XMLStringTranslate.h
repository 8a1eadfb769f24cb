// Text conversion between the XML toolkit's UTF-16 text (XMLCh), encoded
// byte strings (UTF-8 throughout this program) and the platform's LMBCS.
//
// XMLStringTranslate is an XMLFormatTarget: its formatter writes the encoded
// form of XMLCh text into the object itself. The XMLCh form of a byte string
// lands in a fixed buffer of kWideChars characters owned by the object and
// stays valid until the next call. A text that does not survive the round
// trip (byte string -> XMLCh -> byte string), because it is not valid in the
// encoding or is longer than the buffer, ends the process on the assertion
// "t1==t2": such a text would otherwise reach a user's mail file mangled.
// The server log gets a line naming the user and the request first. With the
// notes.ini variable OOOTextErrorReply set to 1 the request fails instead
// (IPException from "translate"), and the task goes on.
//
// The in-place LMBCS conversions hand 16-bit lengths to the platform: a text
// that does not fit (65535 bytes in or out) is refused with an IPException
// rather than cut.
//
// The XML toolkit must be initialised while an object exists. One object
// belongs to one thread.
//
// XStr owns the XMLCh form of a byte string made by the toolkit's transcoder
// for the local code page.
#ifndef TARNWICK_REQUEST_XMLSTRINGTRANSLATE_H
#define TARNWICK_REQUEST_XMLSTRINGTRANSLATE_H

#include <xercesc/framework/XMLFormatter.hpp>
#include <xercesc/util/XMLString.hpp>

#include <string>

class XMLStringTranslate : public xercesc::XMLFormatTarget {
 public:
  static constexpr size_t kWideChars = 16384;

  // Callers pass "utf-8" or "UTF-8".
  explicit XMLStringTranslate(const char* encoding);
  ~XMLStringTranslate() override;
  XMLStringTranslate(const XMLStringTranslate&) = delete;
  XMLStringTranslate& operator=(const XMLStringTranslate&) = delete;

  // XMLFormatTarget: receives the encoded bytes from the formatter.
  void writeChars(const XMLByte* toWrite, XMLSize_t count, xercesc::XMLFormatter* formatter) override;

  // Sets every element of the wide buffer to zero.
  void clearbuffer();

  // The encoded form of text (null or empty text gives "").
  std::string translate(const XMLCh* text);
  // The XMLCh form of an encoded byte string; points into this object (or at
  // a static empty string for null or "") and is valid until the next call.
  const XMLCh* translate(const char* text);

  // In-place conversion of a UTF-8 string to LMBCS and back. Both return 1;
  // a failed buffer allocation leaves the string unchanged. A text of more
  // than kMaxConvertedBytes, or whose converted form comes within a
  // character of that limit, raises IPException.
  static constexpr size_t kMaxConvertedBytes = 65535;
  int TranslatorUTF8ToLMBCS(std::string& text);
  int TranslatorLMBCSToUTF8(std::string& text);

 private:
  xercesc::XMLFormatter* formatter_ = nullptr;
  XMLCh* encodingName_ = nullptr;
  XMLCh* wideBuffer_ = nullptr;  // kWideChars + 1, so a full buffer stays terminated
  unsigned char* charSizes_ = nullptr;  // kWideChars, the transcoder's working space
  char* byteResult_ = nullptr;   // last formatted text, zero-terminated
  size_t byteLength_ = 0;
  size_t byteCapacity_ = 0;
};

// The request the calling thread works on, named in the log line of a text
// that fails its round trip. The request context sets it for the span of a
// frame; user and request are read when the line is written.
class TextRequestScope {
 public:
  TextRequestScope(const std::string& user, const std::string& request);
  ~TextRequestScope();
  TextRequestScope(const TextRequestScope&) = delete;
  TextRequestScope& operator=(const TextRequestScope&) = delete;

 private:
  const std::string* outerUser_;
  const std::string* outerRequest_;
};

class XStr {
 public:
  explicit XStr(const char* text) : unicodeForm_(xercesc::XMLString::transcode(text)) {}
  ~XStr() { xercesc::XMLString::release(&unicodeForm_); }
  XStr(const XStr&) = delete;
  XStr& operator=(const XStr&) = delete;

  const XMLCh* unicodeForm() const { return unicodeForm_; }

 private:
  XMLCh* unicodeForm_;
};

#endif  // TARNWICK_REQUEST_XMLSTRINGTRANSLATE_H
