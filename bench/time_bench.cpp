// Speed of the time functions the add-in and the formula engine call per
// value: local/GMT conversion and the text forms with the current settings
// (read from notes.ini on each call).
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <ctime>

#include "ostime.h"

namespace {

void use_new_york() {
  setenv("TZ", "America/New_York", 1);
  tzset();
}

void BM_LocalToGmAndBack(benchmark::State& state) {
  use_new_york();
  TIME t{};
  t.year = 2026;
  t.month = 3;
  t.day = 8;
  t.hour = 10;
  OSCurrentTimeZone(&t.zone, &t.dst);
  for (auto _ : state) {
    TimeLocalToGM(&t);
    TimeGMToLocal(&t);
    benchmark::DoNotOptimize(t);
  }
}
BENCHMARK(BM_LocalToGmAndBack);

void BM_FormatWithCurrentSettings(benchmark::State& state) {
  use_new_york();
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  char text[MAXALPHATIMEDATE];
  WORD length = 0;
  for (auto _ : state) {
    ConvertTIMEDATEToText(nullptr, nullptr, &now, text, sizeof text, &length);
    benchmark::DoNotOptimize(text);
  }
}
BENCHMARK(BM_FormatWithCurrentSettings);

void BM_ParseWithCurrentSettings(benchmark::State& state) {
  use_new_york();
  char source[] = "03/08/2026 10:37:00 AM";
  TIMEDATE value;
  for (auto _ : state) {
    char* p = source;
    ConvertTextToTIMEDATE(nullptr, nullptr, &p, sizeof source - 1, &value);
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(BM_ParseWithCurrentSettings);

}  // namespace
BENCHMARK_MAIN();
