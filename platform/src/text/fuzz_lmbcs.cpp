// Fuzz target for OSTranslate: every mode, both directions, with small output
// buffers. Checks that nothing is written outside the buffer, that a bounded
// translation is a prefix of the unbounded one, and that it ends on a
// character boundary.
#include <unicode/utf16.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

#include "osmisc.h"
#include "text/lmbcs.h"

namespace {

void check(bool condition) {
  if (!condition) std::abort();
}

constexpr WORD kModes[] = {
    OS_TRANSLATE_NATIVE_TO_LMBCS, OS_TRANSLATE_LMBCS_TO_NATIVE,  OS_TRANSLATE_LOWER_TO_UPPER,
    OS_TRANSLATE_UPPER_TO_LOWER,  OS_TRANSLATE_UNACCENT,         OS_TRANSLATE_LMBCS_TO_UNICODE,
    OS_TRANSLATE_LMBCS_TO_UTF8,   OS_TRANSLATE_UNICODE_TO_LMBCS, OS_TRANSLATE_UTF8_TO_LMBCS,
};

bool produces_lmbcs(WORD mode) {
  return mode != OS_TRANSLATE_LMBCS_TO_NATIVE && mode != OS_TRANSLATE_LMBCS_TO_UNICODE &&
         mode != OS_TRANSLATE_LMBCS_TO_UTF8;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 2 || size > 4096) return 0;
  const WORD mode = kModes[data[0] % std::size(kModes)];
  const WORD out_size = static_cast<WORD>(data[1] % 48);
  const char* in = reinterpret_cast<const char*>(data + 2);
  const WORD in_length = static_cast<WORD>(size - 2);

  std::string full(in_length * 6u + 16u, '\0');
  full.resize(OSTranslate(mode, in, in_length, full.data(), static_cast<WORD>(full.size())));

  std::string buffer(out_size + 8u, '\x5A');
  const WORD length = OSTranslate(mode, in, in_length, buffer.data() + 4, out_size);
  check(length <= out_size);
  for (int i = 0; i < 4; ++i) check(buffer[i] == '\x5A' && buffer[out_size + 4u + i] == '\x5A');
  const std::string written = buffer.substr(4, length);
  check(full.compare(0, length, written) == 0);
  // The cut is on a character boundary of the full output.
  using namespace tarnwick::rt::text;
  if (produces_lmbcs(mode)) check(lmbcs_fit(full, length) == length);
  if ((mode == OS_TRANSLATE_LMBCS_TO_UTF8 || mode == OS_TRANSLATE_LMBCS_TO_NATIVE) && length < full.size()) {
    check((static_cast<unsigned char>(full[length]) & 0xC0) != 0x80);  // not inside a UTF-8 sequence
  }
  if (mode == OS_TRANSLATE_LMBCS_TO_UNICODE) {
    check(length % 2 == 0);
    std::u16string units(full.size() / 2, u'\0');
    std::memcpy(units.data(), full.data(), units.size() * 2);
    const size_t cut = length / 2u;
    check(cut == 0 || cut >= units.size() || !(U16_IS_LEAD(units[cut - 1]) && U16_IS_TRAIL(units[cut])));
  }

  // What came out converts back without loss of characters.
  if (mode == OS_TRANSLATE_UTF8_TO_LMBCS) {
    std::string back(full.size() * 4u + 16u, '\0');
    back.resize(OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, full.data(), static_cast<WORD>(full.size()), back.data(),
                            static_cast<WORD>(back.size())));
    check(!back.empty() || full.empty());
  }
  return 0;
}
