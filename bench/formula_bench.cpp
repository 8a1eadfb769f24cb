// Formula compile and evaluation speed. Target: compiling and evaluating
// @Text(@Date(x)) at least 200,000 times per second on one core.
#include <benchmark/benchmark.h>

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "formula.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"

namespace {

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

// A note in a scratch data directory, for formulas that read items.
class ScratchNote {
 public:
  ScratchNote() {
    root_ = std::filesystem::temp_directory_path() / ("tarnwick-formula-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(root_);
    std::ofstream(root_ / "notes.ini") << "ServerName=CN=Srv1/O=Acme\n";
    std::string argument = "=" + (root_ / "notes.ini").string();
    char program[] = "bench";
    char* argv[] = {program, argument.data()};
    if (NotesInitExtended(2, argv) != NOERROR || NSFDbCreate("formula.nsf", DBCLASS_BY_EXTENSION, TRUE) != NOERROR ||
        NSFDbOpen("formula.nsf", &db_) != NOERROR || NSFNoteCreate(db_, &note_) != NOERROR) {
      std::abort();
    }
  }
  ~ScratchNote() {
    NSFNoteClose(note_);
    NSFDbClose(db_);
    std::error_code ignored;
    std::filesystem::remove_all(root_, ignored);
  }
  NOTEHANDLE note() const { return note_; }

 private:
  std::filesystem::path root_;
  DBHANDLE db_ = NULLHANDLE;
  NOTEHANDLE note_ = NULLHANDLE;
};

// Compiles (a cached parse after the first round), starts, evaluates against
// `note` and frees, as a caller of the API does for each note.
void compile_and_evaluate(const std::string& text, NOTEHANDLE note) {
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
  NSFComputeEvaluate(compute, note, &result, &result_length, nullptr, nullptr, nullptr);
  benchmark::DoNotOptimize(result_length);
  OSMemFree(result);
  NSFComputeStop(compute);
  OSUnlockObject(formula);
  OSMemFree(formula);
}

// @Text(@Date(x)) with x a time item of the note, compiled and evaluated
// each time.
void BM_CompileAndEvaluateAgainstItems(benchmark::State& state) {
  ScratchNote scratch;
  TIMEDATE t{{3600u * 100u * 15u, 2461043u}};
  NSFItemSetTime(scratch.note(), "x", &t);
  const std::string text = "@Text(@Date(x))";
  for (auto _ : state) compile_and_evaluate(text, scratch.note());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CompileAndEvaluateAgainstItems);

// Compiling a formula not seen before: more distinct texts than the parse
// cache keeps, taken in turn, so every compile parses.
void BM_CompileUncached(benchmark::State& state) {
  std::vector<std::string> texts;
  for (int i = 0; i < 2048; ++i) {
    texts.push_back("@If(@IsAvailable(Subject); @Left(Subject; " + std::to_string(i) +
                    ") + \"...\"; @Text(@Date(@Now); \"D0S0\"))");
  }
  size_t next = 0;
  for (auto _ : state) {
    const std::string& text = texts[next++ % texts.size()];
    FORMULAHANDLE formula = NULLHANDLE;
    WORD length = 0;
    STATUS detail;
    WORD line, column, offset, error_length;
    NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &formula, &length, &detail, &line,
                      &column, &offset, &error_length);
    benchmark::DoNotOptimize(length);
    OSMemFree(formula);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_CompileUncached);

}  // namespace

BENCHMARK_MAIN();
