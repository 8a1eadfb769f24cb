// OSTranslate: bounded character-set translation between LMBCS and UTF-8 /
// UTF-16, plus case mapping and accent removal of LMBCS text.
//
// Contract: at most OutLength bytes are written and the output never ends in
// part of a character. Text that is plain ASCII (the common case on the
// request path) is copied without touching ICU; everything else goes through
// UTF-16 in per-thread scratch buffers, so a call allocates only when a
// thread meets a longer text than before.
#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

#include "core/api_guard.h"
#include "osmisc.h"
#include "text/lmbcs.h"

namespace tarnwick::rt::text {
namespace {

struct Scratch {
  std::u16string utf16;
  std::u16string mapped;
  std::string bytes;
};

Scratch& scratch() {
  thread_local Scratch buffers;
  return buffers;
}

WORD copy_out(std::string_view bytes, size_t fit, char* out) {
  std::memcpy(out, bytes.data(), fit);
  return static_cast<WORD>(fit);
}

WORD write_lmbcs(std::u16string_view utf16, char* out, WORD out_length) {
  std::string& lmbcs = scratch().bytes;
  utf16_to_lmbcs(utf16, lmbcs);
  return copy_out(lmbcs, lmbcs_fit(lmbcs, out_length), out);
}

WORD write_utf8(std::u16string_view utf16, char* out, WORD out_length) {
  std::string& utf8 = scratch().bytes;
  utf16_to_utf8(utf16, utf8);
  return copy_out(utf8, utf8_fit(utf8, out_length), out);
}

// UTF-16 in host order (little-endian on every platform the runtime builds on).
WORD write_utf16(std::u16string_view utf16, char* out, WORD out_length) {
  const size_t units = utf16_fit(utf16, out_length / 2);
  std::memcpy(out, utf16.data(), units * 2);
  return static_cast<WORD>(units * 2);
}

void read_utf16(std::string_view bytes, std::u16string& utf16) {
  utf16.resize(bytes.size() / 2);  // an odd last byte is not a whole unit
  std::memcpy(utf16.data(), bytes.data(), utf16.size() * 2);
}

bool utf16_is_plain_ascii(std::u16string_view utf16) {
  for (const char16_t unit : utf16) {
    if ((unit < 0x20 || unit > 0x7E) && unit != u'\t' && unit != u'\n' && unit != u'\r') return false;
  }
  return true;
}

WORD translate_plain_ascii(WORD mode, std::string_view in, char* out, WORD out_length) {
  switch (mode) {
    case OS_TRANSLATE_LMBCS_TO_UNICODE: {
      const size_t count = std::min<size_t>(in.size(), out_length / 2);
      for (size_t i = 0; i < count; ++i) {
        out[2 * i] = in[i];
        out[2 * i + 1] = 0;
      }
      return static_cast<WORD>(count * 2);
    }
    case OS_TRANSLATE_LOWER_TO_UPPER:
    case OS_TRANSLATE_UPPER_TO_LOWER: {
      const size_t count = std::min<size_t>(in.size(), out_length);
      const bool upper = mode == OS_TRANSLATE_LOWER_TO_UPPER;
      for (size_t i = 0; i < count; ++i) {
        char c = in[i];
        if (upper && c >= 'a' && c <= 'z') c = static_cast<char>(c - 32);
        if (!upper && c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
        out[i] = c;
      }
      return static_cast<WORD>(count);
    }
    default:
      return copy_out(in, std::min<size_t>(in.size(), out_length), out);
  }
}

WORD translate(WORD mode, std::string_view in, char* out, WORD out_length) {
  Scratch& buffers = scratch();
  switch (mode) {
    case OS_TRANSLATE_NATIVE_TO_LMBCS:
    case OS_TRANSLATE_UTF8_TO_LMBCS:
      utf8_to_utf16(in, buffers.utf16);
      return write_lmbcs(buffers.utf16, out, out_length);
    case OS_TRANSLATE_LMBCS_TO_NATIVE:
    case OS_TRANSLATE_LMBCS_TO_UTF8:
      lmbcs_to_utf16(in, buffers.utf16);
      return write_utf8(buffers.utf16, out, out_length);
    case OS_TRANSLATE_LMBCS_TO_UNICODE:
      lmbcs_to_utf16(in, buffers.utf16);
      return write_utf16(buffers.utf16, out, out_length);
    case OS_TRANSLATE_UNICODE_TO_LMBCS:
      read_utf16(in, buffers.utf16);
      if (utf16_is_plain_ascii(buffers.utf16)) {
        const size_t count = std::min<size_t>(buffers.utf16.size(), out_length);
        for (size_t i = 0; i < count; ++i) out[i] = static_cast<char>(buffers.utf16[i]);
        return static_cast<WORD>(count);
      }
      return write_lmbcs(buffers.utf16, out, out_length);
    case OS_TRANSLATE_LOWER_TO_UPPER:
    case OS_TRANSLATE_UPPER_TO_LOWER:
    case OS_TRANSLATE_UNACCENT: {
      const TextMapping mapping = mode == OS_TRANSLATE_LOWER_TO_UPPER   ? TextMapping::kUpper
                                  : mode == OS_TRANSLATE_UPPER_TO_LOWER ? TextMapping::kLower
                                                                        : TextMapping::kUnaccent;
      lmbcs_to_utf16(in, buffers.utf16);
      map_utf16(mapping, buffers.utf16, buffers.mapped);
      return write_lmbcs(buffers.mapped, out, out_length);
    }
    default:
      return 0;
  }
}

bool is_known_mode(WORD mode) {
  switch (mode) {
    case OS_TRANSLATE_NATIVE_TO_LMBCS:
    case OS_TRANSLATE_LMBCS_TO_NATIVE:
    case OS_TRANSLATE_LOWER_TO_UPPER:
    case OS_TRANSLATE_UPPER_TO_LOWER:
    case OS_TRANSLATE_UNACCENT:
    case OS_TRANSLATE_LMBCS_TO_UNICODE:
    case OS_TRANSLATE_LMBCS_TO_UTF8:
    case OS_TRANSLATE_UNICODE_TO_LMBCS:
    case OS_TRANSLATE_UTF8_TO_LMBCS:
      return true;
    default:
      return false;
  }
}

}  // namespace
}  // namespace tarnwick::rt::text

using namespace tarnwick::rt::text;

extern "C" WORD LNPUBLIC OSTranslate(WORD TranslateMode, const char* In, WORD InLength, char* Out, WORD OutLength) {
  if (Out == nullptr || OutLength == 0 || InLength == 0 || In == nullptr) return 0;
  if (!is_known_mode(TranslateMode)) return 0;
  const std::string_view in(In, InLength);
  // Out of memory: nothing translated.
  return tarnwick::rt::guarded_value<WORD>(0, [&]() -> WORD {
    // UTF-16 input is checked unit by unit inside translate().
    if (TranslateMode != OS_TRANSLATE_UNICODE_TO_LMBCS && TranslateMode != OS_TRANSLATE_UNACCENT &&
        is_plain_ascii(in)) {
      return translate_plain_ascii(TranslateMode, in, Out, OutLength);
    }
    return translate(TranslateMode, in, Out, OutLength);
  });
}
