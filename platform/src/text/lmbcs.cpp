// LMBCS structure and conversions over ICU. ICU converters are not
// thread-safe, so each thread opens its own "LMBCS-1" converter on first use
// and keeps it until the thread ends.
#include "text/lmbcs.h"

#include <unicode/uchar.h>
#include <unicode/ucnv.h>
#include <unicode/unorm2.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

#include <algorithm>
#include <cstring>

namespace tarnwick::rt::text {
namespace {

constexpr unsigned char kGroupControl = 0x0F;
constexpr unsigned char kGroupUnicode = 0x14;
constexpr unsigned char kFirstDoubleByteGroup = 0x10;
constexpr unsigned char kLastDoubleByteGroup = 0x13;
constexpr unsigned char kUnicodeZeroLowByte = 0xF6;

// One converter per thread. The locale is pinned so that the group chosen for
// characters several code pages share (Cyrillic, Han) does not depend on the
// environment the process was started in.
class ThreadConverter {
 public:
  ThreadConverter() = default;
  ThreadConverter(const ThreadConverter&) = delete;
  ThreadConverter& operator=(const ThreadConverter&) = delete;
  ~ThreadConverter() {
    if (converter_ != nullptr) ucnv_close(converter_);
  }

  // The converter, reset to its initial state; nullptr if ICU cannot open it.
  UConverter* get() {
    if (converter_ == nullptr) {
      if (open_failed_) return nullptr;
      UErrorCode error = U_ZERO_ERROR;
      converter_ = ucnv_open("LMBCS-1,locale=en", &error);
      if (U_FAILURE(error)) {
        converter_ = nullptr;
        open_failed_ = true;
        return nullptr;
      }
    } else {
      ucnv_reset(converter_);
    }
    return converter_;
  }

 private:
  UConverter* converter_ = nullptr;
  bool open_failed_ = false;
};

UConverter* thread_converter() {
  thread_local ThreadConverter converter;
  return converter.get();
}

char16_t unicode_group_unit(const unsigned char* p) {
  // p points at the two bytes after the 0x14 group byte.
  if (p[0] == kUnicodeZeroLowByte) return static_cast<char16_t>(p[1] << 8);
  return static_cast<char16_t>((p[0] << 8) | p[1]);
}

size_t single_char_length(const unsigned char* p, size_t available) {
  const unsigned char first = p[0];
  size_t length;
  if (first >= 0x20 || first == 0x00 || first == 0x09 || first == 0x0A || first == 0x0D || first == 0x19) {
    length = 1;
  } else if (first == kGroupUnicode || (first >= kFirstDoubleByteGroup && first <= kLastDoubleByteGroup)) {
    length = 3;
  } else if (first == kGroupControl || (first >= 0x01 && first <= 0x08) || first == 0x0B) {
    length = 2;
  } else {
    length = 1;  // a group byte without a code page: the converter skips it alone
  }
  return std::min(length, available);
}

// Runs an ICU "preflighting" conversion into `out`, growing it once when the
// first guess of the size was too small.
template <typename Out, typename Convert>
void convert_into(Out& out, size_t guess, Convert convert) {
  out.resize(std::max<size_t>(guess, 1));
  UErrorCode error = U_ZERO_ERROR;
  int32_t length = convert(out.data(), static_cast<int32_t>(out.size()), error);
  if (error == U_BUFFER_OVERFLOW_ERROR) {
    out.resize(static_cast<size_t>(length) + 1);
    error = U_ZERO_ERROR;
    length = convert(out.data(), static_cast<int32_t>(out.size()), error);
  }
  if (U_FAILURE(error) || length < 0) {
    out.clear();
    return;
  }
  out.resize(static_cast<size_t>(length));
}

void remove_nonspacing_marks(std::u16string& text) {
  size_t write = 0;
  for (size_t read = 0; read < text.size();) {
    UChar32 c;
    const size_t start = read;
    U16_NEXT(text.data(), read, text.size(), c);
    if (u_charType(c) == U_NON_SPACING_MARK) continue;
    for (size_t i = start; i < read; ++i) text[write++] = text[i];
  }
  text.resize(write);
}

void normalize(const UNormalizer2* normalizer, std::u16string_view in, std::u16string& out) {
  convert_into(out, in.size() * 3 + 8, [&](char16_t* dest, int32_t capacity, UErrorCode& error) {
    return unorm2_normalize(normalizer, in.data(), static_cast<int32_t>(in.size()), dest, capacity, &error);
  });
}

unsigned char ascii_fold(unsigned char c) { return (c >= 'A' && c <= 'Z') ? static_cast<unsigned char>(c + 32) : c; }

}  // namespace

size_t lmbcs_char_length(const unsigned char* p, size_t available) {
  if (available == 0) return 0;
  const size_t length = single_char_length(p, available);
  // A high surrogate in the Unicode group and the low surrogate after it are
  // one character: splitting them would leave half a code point.
  if (length == 3 && p[0] == kGroupUnicode && available >= 6 && p[3] == kGroupUnicode &&
      U16_IS_LEAD(unicode_group_unit(p + 1)) && U16_IS_TRAIL(unicode_group_unit(p + 4))) {
    return 6;
  }
  return length;
}

size_t lmbcs_fit(std::string_view lmbcs, size_t limit) {
  const auto* bytes = reinterpret_cast<const unsigned char*>(lmbcs.data());
  size_t position = 0;
  while (position < lmbcs.size()) {
    const size_t next = position + lmbcs_char_length(bytes + position, lmbcs.size() - position);
    if (next > limit) break;
    position = next;
  }
  return position;
}

size_t utf8_fit(std::string_view utf8, size_t limit) {
  if (utf8.size() <= limit) return utf8.size();
  size_t cut = limit;
  // Back up over continuation bytes to the start of the character that does
  // not fit; at most 3 steps for well-formed text.
  for (int steps = 0; cut > 0 && steps < 4 && (static_cast<unsigned char>(utf8[cut]) & 0xC0) == 0x80; ++steps) --cut;
  return cut;
}

size_t utf16_fit(std::u16string_view utf16, size_t limit_units) {
  if (utf16.size() <= limit_units) return utf16.size();
  size_t cut = limit_units;
  if (cut > 0 && U16_IS_LEAD(utf16[cut - 1]) && U16_IS_TRAIL(utf16[cut])) --cut;
  return cut;
}

bool is_plain_ascii(std::string_view bytes) {
  for (const char ch : bytes) {
    const auto c = static_cast<unsigned char>(ch);
    if ((c < 0x20 || c > 0x7E) && c != '\t' && c != '\n' && c != '\r') return false;
  }
  return true;
}

void lmbcs_to_utf16(std::string_view lmbcs, std::u16string& out) {
  UConverter* converter = thread_converter();
  if (converter == nullptr || lmbcs.empty()) {
    out.clear();
    return;
  }
  // Every LMBCS character gives at most one UTF-16 unit.
  convert_into(out, lmbcs.size() + 1, [&](char16_t* dest, int32_t capacity, UErrorCode& error) {
    return ucnv_toUChars(converter, dest, capacity, lmbcs.data(), static_cast<int32_t>(lmbcs.size()), &error);
  });
}

void utf16_to_lmbcs(std::u16string_view utf16, std::string& out) {
  UConverter* converter = thread_converter();
  if (converter == nullptr || utf16.empty()) {
    out.clear();
    return;
  }
  // At most three bytes per UTF-16 unit.
  convert_into(out, utf16.size() * 3 + 1, [&](char* dest, int32_t capacity, UErrorCode& error) {
    return ucnv_fromUChars(converter, dest, capacity, utf16.data(), static_cast<int32_t>(utf16.size()), &error);
  });
}

void utf8_to_utf16(std::string_view utf8, std::u16string& out) {
  convert_into(out, utf8.size() + 1, [&](char16_t* dest, int32_t capacity, UErrorCode& error) {
    int32_t length = 0;
    u_strFromUTF8WithSub(dest, capacity, &length, utf8.data(), static_cast<int32_t>(utf8.size()), 0xFFFD, nullptr,
                         &error);
    return length;
  });
}

void utf16_to_utf8(std::u16string_view utf16, std::string& out) {
  convert_into(out, utf16.size() * 3 + 1, [&](char* dest, int32_t capacity, UErrorCode& error) {
    int32_t length = 0;
    u_strToUTF8WithSub(dest, capacity, &length, utf16.data(), static_cast<int32_t>(utf16.size()), 0xFFFD, nullptr,
                       &error);
    return length;
  });
}

std::u16string lmbcs_to_utf16(std::string_view lmbcs) {
  std::u16string out;
  lmbcs_to_utf16(lmbcs, out);
  return out;
}

std::string utf16_to_lmbcs(std::u16string_view utf16) {
  std::string out;
  utf16_to_lmbcs(utf16, out);
  return out;
}

std::string lmbcs_to_utf8(std::string_view lmbcs) {
  if (is_plain_ascii(lmbcs)) return std::string(lmbcs);
  std::string out;
  utf16_to_utf8(lmbcs_to_utf16(lmbcs), out);
  return out;
}

std::string utf8_to_lmbcs(std::string_view utf8) {
  if (is_plain_ascii(utf8)) return std::string(utf8);
  std::u16string utf16;
  utf8_to_utf16(utf8, utf16);
  return utf16_to_lmbcs(utf16);
}

void map_utf16(TextMapping mapping, std::u16string_view in, std::u16string& out) {
  switch (mapping) {
    case TextMapping::kUpper:
    case TextMapping::kLower:
      // Full case mapping can grow the text (ß -> SS); convert_into retries.
      convert_into(out, in.size() + 8, [&](char16_t* dest, int32_t capacity, UErrorCode& error) {
        const auto length = static_cast<int32_t>(in.size());
        return mapping == TextMapping::kUpper ? u_strToUpper(dest, capacity, in.data(), length, "", &error)
                                              : u_strToLower(dest, capacity, in.data(), length, "", &error);
      });
      return;
    case TextMapping::kUnaccent: {
      UErrorCode error = U_ZERO_ERROR;
      const UNormalizer2* nfd = unorm2_getNFDInstance(&error);
      const UNormalizer2* nfc = U_SUCCESS(error) ? unorm2_getNFCInstance(&error) : nullptr;
      if (U_FAILURE(error) || nfd == nullptr || nfc == nullptr) {
        out.assign(in);
        return;
      }
      std::u16string decomposed;
      normalize(nfd, in, decomposed);
      remove_nonspacing_marks(decomposed);
      normalize(nfc, decomposed, out);
      return;
    }
  }
}

namespace {
std::string map_lmbcs(TextMapping mapping, std::string_view lmbcs) {
  std::u16string mapped;
  map_utf16(mapping, lmbcs_to_utf16(lmbcs), mapped);
  return utf16_to_lmbcs(mapped);
}
}  // namespace

std::string lmbcs_to_upper(std::string_view lmbcs) { return map_lmbcs(TextMapping::kUpper, lmbcs); }
std::string lmbcs_to_lower(std::string_view lmbcs) { return map_lmbcs(TextMapping::kLower, lmbcs); }
std::string lmbcs_unaccent(std::string_view lmbcs) { return map_lmbcs(TextMapping::kUnaccent, lmbcs); }

int lmbcs_compare_ignore_case(std::string_view a, std::string_view b) {
  if (is_plain_ascii(a) && is_plain_ascii(b)) {
    const size_t common = std::min(a.size(), b.size());
    for (size_t i = 0; i < common; ++i) {
      const unsigned char x = ascii_fold(static_cast<unsigned char>(a[i]));
      const unsigned char y = ascii_fold(static_cast<unsigned char>(b[i]));
      if (x != y) return x < y ? -1 : 1;
    }
    return a.size() == b.size() ? 0 : (a.size() < b.size() ? -1 : 1);
  }
  const std::u16string x = lmbcs_to_utf16(a);
  const std::u16string y = lmbcs_to_utf16(b);
  UErrorCode error = U_ZERO_ERROR;
  const int32_t order = u_strCaseCompare(x.data(), static_cast<int32_t>(x.size()), y.data(),
                                         static_cast<int32_t>(y.size()), U_FOLD_CASE_DEFAULT | U_COMPARE_CODE_POINT_ORDER,
                                         &error);
  return order < 0 ? -1 : (order > 0 ? 1 : 0);
}

}  // namespace tarnwick::rt::text
