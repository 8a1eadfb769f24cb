// Parsing request documents of hostile shapes in process: many nested
// Username elements, and deep nesting. The cost must grow in proportion to
// the document (the complexity line should read "N"), so that no small file
// can keep a worker busy for seconds.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "osenv.h"
#include "request/IPOOO.h"

namespace {

namespace fs = std::filesystem;

// A data directory of the benchmark's own, whose spool folder holds the
// request files.
class BenchDataDirectory {
 public:
  BenchDataDirectory() {
    path_ = fs::temp_directory_path() / ("tarnwick_request_bench_" + std::to_string(::getpid()));
    fs::create_directories(path_ / "spool");
    std::ofstream(path_ / "notes.ini") << "Directory=" << path_.string() << "\n";
    std::string ini = "=" + (path_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("request_bench"), ini.data()};
    NotesInitExtended(2, argv);
  }
  ~BenchDataDirectory() { fs::remove_all(path_); }
  fs::path spool() const { return path_ / "spool"; }

 private:
  fs::path path_;
};

BenchDataDirectory& dataDirectory() {
  static BenchDataDirectory directory;
  return directory;
}

std::string nestedUsernames(int count) {
  std::string xml;
  for (int i = 0; i < count; ++i) xml += "<Username MQName='MQ$OOOServletList_1'>user name text ";
  xml += "<Username Action='1'>last</Username>";
  for (int i = 0; i < count; ++i) xml += "</Username>";
  return xml;
}

std::string deepElements(int depth) {
  std::string xml;
  for (int i = 0; i < depth; ++i) xml += "<a>";
  xml += "<Username MQName='MQ$OOOServletList_1' Action='1'>jdoe</Username>";
  for (int i = 0; i < depth; ++i) xml += "</a>";
  return xml;
}

void parseRepeatedly(benchmark::State& state, const std::string& xml) {
  std::string path = (dataDirectory().spool() / "request.xml").string();
  std::ofstream(path) << xml;
  IPOOO context;
  for (auto _ : state) {
    context.reset(1);
    benchmark::DoNotOptimize(context.xmlParser(path));
  }
  state.SetComplexityN(state.range(0));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(xml.size()));
}

void BM_NestedUsernameElements(benchmark::State& state) {
  parseRepeatedly(state, nestedUsernames(static_cast<int>(state.range(0))));
}
BENCHMARK(BM_NestedUsernameElements)->RangeMultiplier(2)->Range(1000, 16000)->Complexity(benchmark::oAuto);

void BM_DeepNesting(benchmark::State& state) { parseRepeatedly(state, deepElements(static_cast<int>(state.range(0)))); }
BENCHMARK(BM_DeepNesting)->RangeMultiplier(4)->Range(1000, 64000)->Complexity(benchmark::oAuto);

}  // namespace

BENCHMARK_MAIN();
