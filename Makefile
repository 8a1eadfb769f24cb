# The two everyday commands are `make run` and `make test` (see README.md).
# Build folders: build/release (optimised: run, benchmarks), build/asan
# (ASan+UBSan: the test suite), build/tsan (TSan: the concurrency tests).
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: run test tsan bench fuzz fuzz-long deps release asan format tidy clean

deps:
	@scripts/install-deps

release: deps
	@cmake -S . -B build/release -G Ninja -DCMAKE_BUILD_TYPE=Release -DTARNWICK_BENCH=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build build/release -j $(JOBS)

asan: deps
	@cmake -S . -B build/asan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
		-DTARNWICK_SANITIZE=address $(CMAKE_FLAGS) >/dev/null
	@cmake --build build/asan -j $(JOBS)

run: release
	@scripts/run-demo build/release

test: asan
	@cd build/asan && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
		ctest --output-on-failure -j $(JOBS) --timeout 600

tsan: deps
	@cmake -S . -B build/tsan -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
		-DTARNWICK_SANITIZE=thread $(CMAKE_FLAGS) >/dev/null
	@cmake --build build/tsan -j $(JOBS)
	@cd build/tsan && TSAN_OPTIONS=halt_on_error=1 ctest --output-on-failure -j $(JOBS) -R Concurrency

bench: release
	@bench/run build/release

fuzz: deps
	@cmake -S . -B build/fuzz -G Ninja -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-g -O1" \
		-DCMAKE_C_FLAGS_DEBUG="-g -O1" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
		-DTARNWICK_FUZZ=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build build/fuzz -j $(JOBS)
	@echo "fuzz targets are in build/fuzz (run one with its corpus folder, e.g. build/fuzz/platform/fuzz_time_text platform/src/time/corpus/fuzz_time_text)"

# One long campaign of one target, e.g. make fuzz-long TARGET=fuzz_request_xml
# (RUNS, TIME in seconds, MAX_LEN, NICE: see scripts/fuzz-long).
fuzz-long: fuzz
	@test -n "$(TARGET)" || { echo "make fuzz-long TARGET=<fuzz target name>" >&2; exit 2; }
	@scripts/fuzz-long $(TARGET)

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

tidy: asan
	@git ls-files 'platform/src/*.cpp' | grep -v _test.cpp | xargs clang-tidy -p build/asan --quiet

clean:
	rm -rf build
