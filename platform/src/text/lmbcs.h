// LMBCS, the platform's character set, and its conversion to and from UTF-8
// and UTF-16 (through ICU's "LMBCS-1" converter, optimisation group 1).
//
// Structure of an LMBCS character, as far as this runtime needs it:
//   0x20-0x7F        ASCII, one byte
//   0x80-0xFF        a character of group 1 (code page 850), one byte
//   0x00 0x09 0x0A 0x0D 0x19   one-byte controls
//   0x0F c           other control characters, two bytes
//   0x01-0x08, 0x0B  group byte + one data byte (single-byte code pages)
//   0x10-0x13        group byte + two data bytes (double-byte code pages)
//   0x14 hi lo       a UTF-16 code unit (big-endian; a zero low byte is
//                    written as 0xF6 hi); a surrogate pair takes two of them
// Any byte below 0x20 therefore starts a character: '/', '=', '@' and '$'
// inside a multi-byte character are not delimiters, and text must be walked
// character by character (lmbcs_char_length).
//
// The conversion functions use one ICU converter per thread and are
// thread-safe. Malformed input is replaced character by character (U+FFFD),
// never rejected.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace tarnwick::rt::text {

// Length in bytes (1..6, never more than `available`, at least 1 when
// available > 0) of the LMBCS character starting at `p`. A surrogate pair
// written as two Unicode-group characters counts as one character.
size_t lmbcs_char_length(const unsigned char* p, size_t available);

// Longest prefix of `lmbcs` that is at most `limit` bytes and does not split
// a character.
size_t lmbcs_fit(std::string_view lmbcs, size_t limit);
// Same for UTF-8 (cuts before a lead byte) and UTF-16 code units (keeps
// surrogate pairs together).
size_t utf8_fit(std::string_view utf8, size_t limit);
size_t utf16_fit(std::u16string_view utf16, size_t limit_units);

// True when every byte is printable ASCII (0x20-0x7E), TAB, LF or CR: such
// text is the same in LMBCS, UTF-8 and the native character set.
bool is_plain_ascii(std::string_view bytes);

// Conversions. Results are unbounded; OSTranslate adds the bounds. The
// forms taking `out` replace its contents and reuse its capacity (the hot
// path keeps one buffer per thread).
void lmbcs_to_utf16(std::string_view lmbcs, std::u16string& out);
void utf16_to_lmbcs(std::u16string_view utf16, std::string& out);
void utf8_to_utf16(std::string_view utf8, std::u16string& out);
void utf16_to_utf8(std::u16string_view utf16, std::string& out);
std::u16string lmbcs_to_utf16(std::string_view lmbcs);
std::string utf16_to_lmbcs(std::u16string_view utf16);
std::string lmbcs_to_utf8(std::string_view lmbcs);
std::string utf8_to_lmbcs(std::string_view utf8);

// Case mapping and accent removal of LMBCS text (root locale rules, so
// "ß" upper-cases to "SS").
enum class TextMapping { kUpper, kLower, kUnaccent };
void map_utf16(TextMapping mapping, std::u16string_view in, std::u16string& out);
std::string lmbcs_to_upper(std::string_view lmbcs);
std::string lmbcs_to_lower(std::string_view lmbcs);
std::string lmbcs_unaccent(std::string_view lmbcs);

// Compares two LMBCS strings without regard to case (full Unicode case
// folding); <0, 0, >0 like strcmp, in code point order of the folded text.
int lmbcs_compare_ignore_case(std::string_view a, std::string_view b);

}  // namespace tarnwick::rt::text
