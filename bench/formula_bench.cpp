// Formula compile and evaluation speed. Target: compiling and evaluating
// @Text(@Date(x)) at least 200,000 times per second on one core.
#include <benchmark/benchmark.h>

#include <string>

#include "formula.h"
#include "formula/compiled.h"
#include "formula/evaluator.h"
#include "osmem.h"

namespace {

using namespace tarnwick::rt::formula;

// The whole C API round: compile, start, evaluate (no note), free.
void BM_CompileAndEvaluateThroughTheApi(benchmark::State& state) {
  const std::string text = "x := [01/02/2026 10:00]; @Text(@Date(x))";
  for (auto _ : state) {
    FORMULAHANDLE formula = NULLHANDLE;
    WORD length = 0;
    STATUS detail;
    WORD line, column, offset, error_length;
    NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &formula, &length, &detail, &line,
                      &column, &offset, &error_length);
    HCOMPUTE compute = NULLHANDLE;
    NSFComputeStart(0, OSLockObject(formula), &compute);
    DHANDLE result = NULLHANDLE;
    WORD result_length = 0;
    NSFComputeEvaluate(compute, NULLHANDLE, &result, &result_length, nullptr, nullptr, nullptr);
    benchmark::DoNotOptimize(result_length);
    OSMemFree(result);
    NSFComputeStop(compute);
    OSUnlockObject(formula);
    OSMemFree(formula);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CompileAndEvaluateThroughTheApi);

// @Text(@Date(x)) with x an item of the note, compiled (parse cache) and
// evaluated each time.
void BM_CompileAndEvaluateAgainstItems(benchmark::State& state) {
  MemoryFieldSource fields;
  TIMEDATE t{{3600u * 100u * 15u, 2461043u}};
  fields.set("x", Value::time(t));
  const std::string text = "@Text(@Date(x))";
  for (auto _ : state) {
    CompileError error;
    auto program = cached_parse(text, error);
    Evaluator evaluator(fields);
    EvalResult result = evaluator.run(*program);
    std::string bytes;
    encode_value(result.value, bytes);
    benchmark::DoNotOptimize(bytes);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CompileAndEvaluateAgainstItems);

// Parsing alone, without the cache.
void BM_ParseOnly(benchmark::State& state) {
  const std::string text = "@If(@IsAvailable(Subject); @Left(Subject; 20) + \"...\"; @Text(@Date(@Now); \"D0S0\"))";
  for (auto _ : state) {
    CompileError error;
    benchmark::DoNotOptimize(parse_formula(text, error));
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_ParseOnly);

}  // namespace

BENCHMARK_MAIN();
