#include "status/ReplyDocument.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/TransService.hpp>
#include <xercesc/util/XMLChar.hpp>

#include <cstring>

using namespace xercesc;

namespace {

constexpr char kDeclaration[] = "<?xml version=\"1.0\" encoding=\"UTF-8\" standalone=\"no\" ?>";
constexpr char kReplacement[] = "\xEF\xBF\xBD";  // U+FFFD
constexpr char16_t kWideReplacement = 0xFFFD;

// Texts up to this many bytes have no more UTF-16 units than the text
// converter holds, so they convert whole when they are well-formed.
constexpr size_t kDirectLimit = XMLStringTranslate::kWideChars;

bool isContinuation(unsigned char byte) { return (byte & 0xC0) == 0x80; }

// The length of the well-formed UTF-8 sequence at text (shortest form, no
// surrogates, nothing above U+10FFFF); 0 when it is not one.
size_t sequenceLength(const unsigned char* text) {
  const unsigned char lead = text[0];
  if (lead < 0x80) return 1;
  if (lead >= 0xC2 && lead <= 0xDF) return isContinuation(text[1]) ? 2 : 0;
  if (lead >= 0xE0 && lead <= 0xEF) {
    const unsigned char low = lead == 0xE0 ? 0xA0 : 0x80;
    const unsigned char high = lead == 0xED ? 0x9F : 0xBF;
    return text[1] >= low && text[1] <= high && isContinuation(text[2]) ? 3 : 0;
  }
  if (lead >= 0xF0 && lead <= 0xF4) {
    const unsigned char low = lead == 0xF0 ? 0x90 : 0x80;
    const unsigned char high = lead == 0xF4 ? 0x8F : 0xBF;
    return text[1] >= low && text[1] <= high && isContinuation(text[2]) && isContinuation(text[3]) ? 4 : 0;
  }
  return 0;
}

bool isWellFormedUtf8(const char* text, size_t length) {
  const auto* at = reinterpret_cast<const unsigned char*>(text);
  const auto* end = at + length;
  while (at < end) {
    // The text ends with its NUL, so a cut sequence stops at it.
    const size_t step = sequenceLength(at);
    if (step == 0) return false;
    at += step;
  }
  return true;
}

// The reference written for the character c, or null when c is written as
// itself. In attribute values the white-space controls are written as
// references too, because a parser turns them into blanks otherwise.
const char* referenceFor(char32_t c, bool attribute) {
  switch (c) {
    case '&':
      return "&amp;";
    case '<':
      return "&lt;";
    case '>':
      return "&gt;";
    default:
      break;
  }
  if (!attribute) return nullptr;
  switch (c) {
    case '"':
      return "&quot;";
    case '\t':
      return "&#x9;";
    case '\n':
      return "&#xA;";
    case '\r':
      return "&#xD;";
    default:
      return nullptr;
  }
}

// Appends a well-formed UTF-8 text with the characters that would change
// its meaning escaped. Characters XML cannot carry (the other controls,
// U+FFFE and U+FFFF) become U+FFFD.
void appendEscapedUtf8(std::string& out, const char* text, size_t length, bool attribute) {
  const auto* at = reinterpret_cast<const unsigned char*>(text);
  const auto* end = at + length;
  while (at < end) {
    const unsigned char c = *at;
    if (c >= 0x80) {
      const size_t step = sequenceLength(at);
      // U+FFFE and U+FFFF are no characters of XML.
      if (step == 3 && c == 0xEF && at[1] == 0xBF && at[2] >= 0xBE) {
        out += kReplacement;
      } else {
        out.append(reinterpret_cast<const char*>(at), step);
      }
      at += step;
      continue;
    }
    ++at;
    if (const char* reference = referenceFor(c, attribute)) {
      out += reference;
    } else if (c < 0x20 && c != '\t' && c != '\n' && c != '\r') {
      out += kReplacement;
    } else {
      out += static_cast<char>(c);
    }
  }
}

bool isHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }

// The same escapes for a text in the toolkit's UTF-16, as the converter
// gives it; lone surrogates become U+FFFD too.
void appendEscapedWide(std::u16string& out, const XMLCh* text, bool attribute) {
  for (const XMLCh* at = text; *at != 0; ++at) {
    const char16_t c = *at;
    if (isHighSurrogate(c) && XMLChar1_0::isXMLChar(c, at[1])) {
      out += c;
      out += *++at;
    } else if (const char* reference = referenceFor(c, attribute)) {
      out.append(reference, reference + std::strlen(reference));
    } else {
      out += XMLChar1_0::isXMLChar(c) ? c : kWideReplacement;
    }
  }
}

}  // namespace

ReplyDocument::ReplyDocument(RequestFile& file) : file_(file) {
  if (!file_.writable()) ThrowXML1(XMLPlatformUtilsException, XMLExcepts::File_CouldNotOpenFile, file_.path().c_str());
}

// A reply that was never written leaves the file empty, as a front end
// that reads it after a failed reply expects.
ReplyDocument::~ReplyDocument() {
  if (!written_) file_.empty();
}

ReplyDocument::User& ReplyDocument::addUser() { return users_.emplace_back(); }

void ReplyDocument::setAttribute(User& user, const char* name, const char* value) {
  std::string escaped;
  appendEscaped(escaped, value, true);
  for (auto& [setName, setValue] : user.attributes) {
    if (setName == name) {
      setValue = std::move(escaped);
      return;
    }
  }
  user.attributes.emplace_back(name, std::move(escaped));
}

void ReplyDocument::setText(User& user, const char* value) {
  user.text.clear();
  appendEscaped(user.text, value, false);
  user.hasText = true;
}

XMLStringTranslate& ReplyDocument::converter() {
  if (converter_ == nullptr) converter_ = std::make_unique<XMLStringTranslate>("UTF-8");
  return *converter_;
}

void ReplyDocument::appendEscaped(std::string& out, const char* text, bool attribute) {
  const size_t length = text == nullptr ? 0 : std::strlen(text);
  if (length <= kDirectLimit && isWellFormedUtf8(text, length)) {
    appendEscapedUtf8(out, text, length, attribute);
    return;
  }
  // The converter refuses what it cannot carry; what it accepts is escaped
  // in its UTF-16 form.
  std::u16string wide;
  appendEscapedWide(wide, converter().translate(text), attribute);
  TranscodeToStr utf8(wide.c_str(), wide.size(), "UTF-8");
  out.append(reinterpret_cast<const char*>(utf8.str()), utf8.length());
}

std::string ReplyDocument::serialise() const {
  std::string text = kDeclaration;
  if (users_.empty()) return text + "<OOOReadObject/>";
  text += "<OOOReadObject>";
  for (const User& user : users_) {
    text += "<User";
    for (const auto& [name, value] : user.attributes) {
      text += ' ';
      text += name;
      text += "=\"";
      text += value;
      text += '"';
    }
    if (user.hasText) {
      text += '>';
      text += user.text;
      text += "</User>";
    } else {
      text += "/>";
    }
  }
  text += "</OOOReadObject>";
  return text;
}

void ReplyDocument::write() {
  const std::string text = serialise();
  if (!file_.replace(text)) ThrowXML(XMLPlatformUtilsException, XMLExcepts::File_CouldNotWriteToFile);
  written_ = true;
}
