// Fuzz target: reads arbitrary text as a time-date; whatever is accepted must
// print in full (into buffers of every size, never past their end) and read
// back as the same value.
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string>

#include "globerr.h"
#include "ostime.h"

namespace {

bool same_value(const TIMEDATE& a, const TIMEDATE& b) {
  if (a.Innards[0] != b.Innards[0]) return false;
  if (a.Innards[1] == ANYDAY || b.Innards[1] == ANYDAY) return a.Innards[1] == b.Innards[1];
  return (a.Innards[1] & TIMEDATE_JULIAN_MASK) == (b.Innards[1] & TIMEDATE_JULIAN_MASK);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool zone_set = [] {
    setenv("TZ", "America/New_York", 1);  // a zone with clock changes
    tzset();
    return true;
  }();
  (void)zone_set;
  if (size > 1000) return 0;
  std::string text(reinterpret_cast<const char*>(data), size);
  char* p = text.data();
  TIMEDATE value{};
  const STATUS status = ConvertTextToTIMEDATE(nullptr, nullptr, &p, static_cast<WORD>(size), &value);
  if (status != NOERROR) {
    if (status != ERR_TDO_CONV || p != text.data()) std::abort();
    return 0;
  }
  if (p < text.data() || p > text.data() + size) std::abort();

  const TFMT full{TDFMT_FULL4, TTFMT_FULL_MAX, TZFMT_ALWAYS, TSFMT_DATETIME};
  char printed[MAXALPHATIMEDATE];
  WORD length = 0;
  const STATUS print_status = ConvertTIMEDATEToText(nullptr, &full, &value, printed, sizeof printed, &length);
  if (print_status == ERR_TDO_CONV) return 0;  // e.g. shown in a zone where it falls outside years 1..32767
  if (print_status != NOERROR || length > sizeof printed) std::abort();

  for (WORD n = 0; n <= length; ++n) {
    std::unique_ptr<char[]> exact(new char[n == 0 ? 1 : n]);
    WORD cut = 0;
    if (ConvertTIMEDATEToText(nullptr, &full, &value, exact.get(), n, &cut) != NOERROR || cut != n) std::abort();
  }

  std::string again(printed, length);
  char* q = again.data();
  TIMEDATE back{};
  if (ConvertTextToTIMEDATE(nullptr, nullptr, &q, length, &back) != NOERROR) std::abort();
  if (!same_value(value, back)) std::abort();
  return 0;
}
