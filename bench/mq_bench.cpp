// Message queues between two processes: put-to-get latency with a waiting
// reader, throughput of one producer and one consumer with 512-byte
// messages, and the CPU a reader uses while it waits.
//
// Each benchmark forks a partner process that works on queues in a scratch
// data directory; latencies come from CLOCK_MONOTONIC, which all processes
// of the machine share.
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include "globerr.h"
#include "mq.h"
#include "mqlist.h"
#include "osenv.h"

namespace {

namespace fs = std::filesystem;

int64_t monotonic_ns() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000000000 + now.tv_nsec;
}

// A scratch data directory for one benchmark, removed afterwards.
struct ScratchData {
  ScratchData() {
    path = fs::temp_directory_path() / ("tarnwick-mq-bench-" + std::to_string(::getpid()));
    fs::remove_all(path);
    fs::create_directories(path);
    std::ofstream(path / "notes.ini") << "[Notes]\n";
    {
      std::string argument = "=" + (path / "notes.ini").string();
      char program[] = "bench";
      char* argv[] = {program, argument.data()};
      NotesInitExtended(2, argv);
    }
    char shared[MAXPATH];
    MQGetSharedStateDirectory(shared);
    queues = shared;
  }
  ~ScratchData() {
    fs::remove_all(queues);
    fs::remove_all(path);
  }
  fs::path path, queues;
};

MQHANDLE open_queue(const char* name) {
  MQHANDLE queue = NULLHANDLE;
  if (MQOpen(name, MQ_OPEN_CREATE, &queue) != NOERROR) std::abort();
  return queue;
}

STATUS put(MQHANDLE queue, const void* bytes, size_t length) {
  return MQPut(queue, 0, static_cast<char*>(const_cast<void*>(bytes)), static_cast<WORD>(length), 0);
}

pid_t fork_partner(void (*body)()) {
  pid_t pid = ::fork();
  if (pid == 0) {
    body();
    ::_exit(0);
  }
  return pid;
}

void stop_partner(pid_t pid) {
  ::kill(pid, SIGKILL);
  ::waitpid(pid, nullptr, 0);
}

// Partner of the latency benchmark: waits on "Ping", measures how long each
// message took from its put to here, and sends that back on "Pong".
void echo_latency() {
  MQHANDLE ping = open_queue("MQ$BenchPing");
  MQHANDLE pong = open_queue("MQ$BenchPong");
  int64_t sent = 0;
  WORD length = 0;
  while (MQGet(ping, reinterpret_cast<char*>(&sent), sizeof sent, MQ_WAIT_FOR_MSG, 0, &length) == NOERROR) {
    int64_t took = monotonic_ns() - sent;
    put(pong, &took, sizeof took);
  }
}

void BM_PutToGetLatencyWaitingReader(benchmark::State& state) {
  ScratchData data;
  MQHANDLE ping = open_queue("MQ$BenchPing");
  MQHANDLE pong = open_queue("MQ$BenchPong");
  pid_t partner = fork_partner(echo_latency);
  std::vector<int64_t> samples;
  for (auto _ : state) {
    state.PauseTiming();
    // Give the reader time to block in its wait, so the put has to wake it.
    std::this_thread::sleep_for(std::chrono::microseconds(300));
    state.ResumeTiming();
    int64_t now = monotonic_ns();
    put(ping, &now, sizeof now);
    int64_t took = 0;
    WORD length = 0;
    if (MQGet(pong, reinterpret_cast<char*>(&took), sizeof took, MQ_WAIT_FOR_MSG, 5000, &length) != NOERROR) {
      state.SkipWithError("no answer from the reader");
      break;
    }
    samples.push_back(took);
  }
  stop_partner(partner);
  MQClose(ping, 0);
  MQClose(pong, 0);
  if (samples.empty()) return;
  std::sort(samples.begin(), samples.end());
  auto percentile = [&](double p) {
    return static_cast<double>(samples[std::min(samples.size() - 1, static_cast<size_t>(p * samples.size()))]) / 1000.0;
  };
  state.counters["p50_us"] = percentile(0.50);
  state.counters["p99_us"] = percentile(0.99);
  state.counters["max_us"] = static_cast<double>(samples.back()) / 1000.0;
}
BENCHMARK(BM_PutToGetLatencyWaitingReader)->Iterations(2000)->Unit(benchmark::kMicrosecond);

constexpr int kBatch = 1000;
constexpr size_t kMessageSize = 512;

// Partner of the throughput benchmark: takes messages from "Data" and says
// "done" on "Ack" after every kBatch of them.
void consume_batches() {
  MQHANDLE data = open_queue("MQ$BenchData");
  MQHANDLE ack = open_queue("MQ$BenchAck");
  char buffer[kMessageSize];
  WORD length = 0;
  int taken = 0;
  while (MQGet(data, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, 0, &length) == NOERROR) {
    if (++taken % kBatch == 0) put(ack, "done", 4);
  }
}

void BM_OneProducerOneConsumer512Bytes(benchmark::State& state) {
  ScratchData scratch;
  MQHANDLE data = open_queue("MQ$BenchData");
  MQHANDLE ack = open_queue("MQ$BenchAck");
  pid_t partner = fork_partner(consume_batches);
  char message[kMessageSize];
  std::memset(message, 'm', sizeof message);
  for (auto _ : state) {
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < kBatch; ++i) put(data, message, sizeof message);
    char answer[8];
    WORD length = 0;
    if (MQGet(ack, answer, sizeof answer, MQ_WAIT_FOR_MSG, 10000, &length) != NOERROR) {
      state.SkipWithError("consumer did not finish the batch");
      break;
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.SetBytesProcessed(state.iterations() * kBatch * static_cast<int64_t>(kMessageSize));
  stop_partner(partner);
  MQClose(data, 0);
  MQClose(ack, 0);
}
BENCHMARK(BM_OneProducerOneConsumer512Bytes)->UseManualTime()->Iterations(20)->Unit(benchmark::kMillisecond);

// CPU time (user + system) of a reader waiting on an empty queue. The
// reader waits 0.5 s and then 2.5 s; the difference, per second, is what
// waiting itself costs (cpu_us_per_s), the first figure is the fixed cost of
// one wait (cpu_us_per_wait).
int64_t cpu_microseconds() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  auto us = [](const timeval& t) { return int64_t{t.tv_sec} * 1000000 + t.tv_usec; };
  return us(usage.ru_utime) + us(usage.ru_stime);
}

void BM_IdleCpuOfWaitingReader(benchmark::State& state) {
  ScratchData scratch;
  MQHANDLE queue = open_queue("MQ$BenchIdle");
  constexpr int kShortWaitMs = 500, kLongWaitMs = 2500;
  int64_t used[2] = {0, 0};
  for (auto _ : state) {
    int fds[2];
    if (::pipe(fds) != 0) std::abort();
    pid_t reader = ::fork();
    if (reader == 0) {
      MQHANDLE own = open_queue("MQ$BenchIdle");
      char buffer[16];
      WORD length = 0;
      MQGet(own, buffer, sizeof buffer, 0, 10, &length);  // the thread's first wait sets up its watcher
      int64_t result[2];
      for (int i = 0; i < 2; ++i) {
        int64_t before = cpu_microseconds();
        MQGet(own, buffer, sizeof buffer, MQ_WAIT_FOR_MSG, i == 0 ? kShortWaitMs : kLongWaitMs, &length);
        result[i] = cpu_microseconds() - before;
      }
      (void)!::write(fds[1], result, sizeof result);
      ::_exit(0);
    }
    (void)!::read(fds[0], used, sizeof used);
    ::waitpid(reader, nullptr, 0);
    ::close(fds[0]);
    ::close(fds[1]);
  }
  state.counters["cpu_us_per_wait"] = static_cast<double>(used[0]);
  state.counters["cpu_us_per_s"] =
      std::max(0.0, static_cast<double>(used[1] - used[0]) * 1000.0 / (kLongWaitMs - kShortWaitMs));
  MQClose(queue, 0);
}
BENCHMARK(BM_IdleCpuOfWaitingReader)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
