// Replays a fuzz target without libFuzzer: every file of the seed folder given
// as argument, then deterministic mutations of each (byte flips,
// truncations, insertions, splices), as many as the second argument says or
// about 20,000 in all. Used by the normal test run so the
// fuzz entry points stay exercised under the sanitizers on any compiler.
#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace {

struct Rng {
  uint64_t state = 0x9E3779B97F4A7C15ull;
  uint64_t next() {
    state ^= state << 13;
    state ^= state >> 7;
    state ^= state << 17;
    return state;
  }
  size_t below(size_t n) { return n == 0 ? 0 : static_cast<size_t>(next() % n); }
};

std::vector<uint8_t> mutate(const std::vector<uint8_t>& seed, const std::vector<uint8_t>& other, Rng& rng) {
  std::vector<uint8_t> out = seed;
  const int steps = 1 + static_cast<int>(rng.below(4));
  for (int i = 0; i < steps; ++i) {
    switch (rng.below(5)) {
      case 0:
        if (!out.empty()) out[rng.below(out.size())] ^= static_cast<uint8_t>(1u << rng.below(8));
        break;
      case 1:
        if (!out.empty()) out.resize(rng.below(out.size()));
        break;
      case 2:
        out.insert(out.begin() + static_cast<long>(rng.below(out.size() + 1)), static_cast<uint8_t>(rng.next()));
        break;
      case 3:
        if (!out.empty()) out[rng.below(out.size())] = static_cast<uint8_t>("\0/:=[]()\"@;!\\\xff"[rng.below(14)]);
        break;
      default:
        if (!other.empty()) {
          size_t from = rng.below(other.size());
          out.insert(out.begin() + static_cast<long>(rng.below(out.size() + 1)), other.begin() + static_cast<long>(from),
                     other.end());
        }
        break;
    }
  }
  return out;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s SEED_DIR [MUTATIONS_PER_SEED]\n", argv[0]);
    return 2;
  }
  std::vector<std::vector<uint8_t>> seeds;
  for (const auto& entry : std::filesystem::directory_iterator(argv[1])) {
    if (!entry.is_regular_file()) continue;
    std::ifstream in(entry.path(), std::ios::binary);
    seeds.emplace_back(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  if (seeds.empty()) {
    std::fprintf(stderr, "no seed inputs in %s\n", argv[1]);
    return 1;
  }
  // By default about 20,000 runs in all, at least 10 mutations per seed and
  // at most 500: a seed folder grown by long campaigns keeps the test short.
  const size_t byBudget = 20000 / seeds.size();
  const int mutations = argc > 2 ? std::stoi(argv[2]) : static_cast<int>(std::clamp<size_t>(byBudget, 10, 500));
  Rng rng;
  size_t runs = 0;
  for (size_t i = 0; i < seeds.size(); ++i) {
    LLVMFuzzerTestOneInput(seeds[i].data(), seeds[i].size());
    ++runs;
    for (int m = 0; m < mutations; ++m) {
      auto input = mutate(seeds[i], seeds[rng.below(seeds.size())], rng);
      LLVMFuzzerTestOneInput(input.data(), input.size());
      ++runs;
    }
  }
  std::printf("%zu inputs replayed\n", runs);
  return 0;
}
