// Character-set translation and name conversion on the request path: plain
// ASCII (the fast path), Western-European and Japanese text through ICU, and
// canonicalizing / abbreviating a hierarchical name.
#include <benchmark/benchmark.h>

#include <string>

#include "dname.h"
#include "osmisc.h"

namespace {

std::string to_lmbcs(const std::string& utf8) {
  std::string out(utf8.size() * 3 + 8, '\0');
  out.resize(OSTranslate(OS_TRANSLATE_UTF8_TO_LMBCS, utf8.data(), static_cast<WORD>(utf8.size()), out.data(),
                         static_cast<WORD>(out.size())));
  return out;
}

const std::string kAscii = "I am out of the office until Monday. Please contact Jane Doe/Sales/Acme.";
const std::string kLatin = "Ich bin bis Montag nicht im Büro. Bitte wenden Sie sich an Jürgen Müller.";
const std::string kJapanese = "月曜日まで不在です。急ぎの用件は山田さんまでご連絡ください。";

void translate(benchmark::State& state, WORD mode, const std::string& in) {
  std::string out(in.size() * 3 + 8, '\0');
  for (auto _ : state) {
    WORD length = OSTranslate(mode, in.data(), static_cast<WORD>(in.size()), out.data(), static_cast<WORD>(out.size()));
    benchmark::DoNotOptimize(length);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.size()));
}

void BM_Utf8ToLmbcsAscii(benchmark::State& state) { translate(state, OS_TRANSLATE_UTF8_TO_LMBCS, kAscii); }
void BM_Utf8ToLmbcsLatin(benchmark::State& state) { translate(state, OS_TRANSLATE_UTF8_TO_LMBCS, kLatin); }
void BM_Utf8ToLmbcsJapanese(benchmark::State& state) { translate(state, OS_TRANSLATE_UTF8_TO_LMBCS, kJapanese); }
void BM_LmbcsToUtf8Latin(benchmark::State& state) { translate(state, OS_TRANSLATE_LMBCS_TO_UTF8, to_lmbcs(kLatin)); }
void BM_LmbcsToUtf8Japanese(benchmark::State& state) {
  translate(state, OS_TRANSLATE_LMBCS_TO_UTF8, to_lmbcs(kJapanese));
}

void BM_CanonicalizeName(benchmark::State& state) {
  char out[MAXUSERNAME];
  for (auto _ : state) {
    WORD length = 0;
    DNCanonicalize(0, nullptr, "Jane Doe/Inside Sales/Sales/Acme/US", out, sizeof out, &length);
    benchmark::DoNotOptimize(length);
  }
}

void BM_AbbreviateName(benchmark::State& state) {
  char out[MAXUSERNAME];
  for (auto _ : state) {
    WORD length = 0;
    DNAbbreviate(0, nullptr, "CN=Jane Doe/OU=Inside Sales/OU=Sales/O=Acme/C=US", out, sizeof out, &length);
    benchmark::DoNotOptimize(length);
  }
}

}  // namespace

BENCHMARK(BM_Utf8ToLmbcsAscii);
BENCHMARK(BM_Utf8ToLmbcsLatin);
BENCHMARK(BM_Utf8ToLmbcsJapanese);
BENCHMARK(BM_LmbcsToUtf8Latin);
BENCHMARK(BM_LmbcsToUtf8Japanese);
BENCHMARK(BM_CanonicalizeName);
BENCHMARK(BM_AbbreviateName);
BENCHMARK(BM_Utf8ToLmbcsAscii)->Threads(2);
BENCHMARK(BM_Utf8ToLmbcsLatin)->Threads(2);

BENCHMARK_MAIN();
