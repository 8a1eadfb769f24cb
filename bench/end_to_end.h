// The harness of the end-to-end benchmarks: a data directory provisioned
// with the real tarnwick-admin, the real task started on it, front ends
// that send requests the way a web front end does and time each whole trip,
// and the latency figures reported.
#pragma once

#include <benchmark/benchmark.h>
#include <sys/types.h>

#include <atomic>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "mq.h"

namespace tarnwick::bench {

inline constexpr char kRequestQueue[] = "MQ$OutOfOffice";

// A data directory under the temporary folder, removed with its shared
// state folder when the program ends. Provisioning steps stop at the first
// failure, which is then kept in failure().
class DataDirectory {
 public:
  // Makes the directory with `tarnwick-admin init` for the server Mail1/Acme.
  explicit DataDirectory(const std::string& program);
  ~DataDirectory();
  DataDirectory(const DataDirectory&) = delete;
  DataDirectory& operator=(const DataDirectory&) = delete;

  // Runs tarnwick-admin with args; false (failure set) when it fails.
  bool admin(std::vector<std::string> args);
  // Initialises this process on the directory's notes.ini.
  bool initialise();
  // Records a failure of a provisioning step of the benchmark's own.
  void fail(std::string text);

  // Empty when the directory is ready, else what went wrong.
  const std::string& failure() const { return failure_; }
  std::filesystem::path root() const { return root_; }
  std::filesystem::path data() const { return root_ / "data"; }
  std::string iniArgument() const;

 private:
  std::string program_;
  std::filesystem::path root_;
  bool initialised_ = false;
  std::string failure_;
};

// The task for one benchmark case, its console in console.txt, its request
// queue held open. It is ended with a quit message and a signal: the quit
// state cuts short the loop's wait on the request queue, which a signal
// alone does not.
class RunningTask {
 public:
  // workers: the OOOWorkers value ("" leaves the paced loop).
  RunningTask(const DataDirectory& directory, const std::string& workers);
  ~RunningTask();
  RunningTask(const RunningTask&) = delete;
  RunningTask& operator=(const RunningTask&) = delete;

  const std::string& failure() const { return failure_; }
  MQHANDLE requests() const { return requests_; }

 private:
  pid_t pid_ = -1;
  MQHANDLE requests_ = NULLHANDLE;
  std::string failure_;
};

// A front end with one request in flight: its own request file, its own
// handle on the request queue, its own reply queue. Records the latency of
// every trip, from the put to the reply document read back.
class FrontEnd {
 public:
  struct Answer {
    std::string reply;     // the text on the reply queue
    std::string document;  // the reply document written over the request file
  };

  FrontEnd(const std::filesystem::path& requestFile, std::string replyQueue, DWORD replyWaitMs = 30000);
  ~FrontEnd();
  FrontEnd(const FrontEnd&) = delete;
  FrontEnd& operator=(const FrontEnd&) = delete;

  // Writes request to the request file, puts its path on the request queue
  // and waits for the reply; false with failure() set when a step fails
  // (whom names the request's user in the message).
  bool roundTrip(const std::string& request, const std::string& whom, Answer& answer);

  const std::string& replyQueue() const { return replyQueue_; }
  const std::string& failure() const { return failure_; }
  std::vector<double>& latenciesUs() { return latenciesUs_; }
  bool fail(std::string text);

 private:
  bool writeRequest(const std::string& request);
  bool readDocument(std::string& document);

  std::string replyQueue_;
  std::string requestPath_;
  DWORD replyWaitMs_;
  MQHANDLE requests_ = NULLHANDLE;
  MQHANDLE replies_ = NULLHANDLE;
  int file_ = -1;           // the request file, kept open
  size_t fileLength_ = 0;   // its length as last written or read
  std::vector<char> buffer_;
  std::vector<double> latenciesUs_;
  std::string failure_;
};

// The value at fraction (0..1) of the sorted values; 0 when there are none.
double percentile(std::vector<double> values, double fraction);

// Runs step(client, index, k) for k below perClient on every client side by
// side; the first false stops every client at its next step. Returns the
// first client's failure, empty when none.
template <class Client, class Step>
std::string runClients(std::vector<std::unique_ptr<Client>>& clients, int perClient, Step step) {
  std::atomic<bool> stop{false};
  std::vector<std::thread> threads;
  for (size_t index = 0; index < clients.size(); ++index) {
    threads.emplace_back([&, index] {
      for (int k = 0; k < perClient && !stop.load(); ++k) {
        if (!step(*clients[index], index, k)) stop = true;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  for (const auto& client : clients) {
    if (!client->failure().empty()) return client->failure();
  }
  return {};
}

// Reports the clients' trips: items processed, p50, p99 and max latency.
template <class Client>
void reportLatencies(benchmark::State& state, std::vector<std::unique_ptr<Client>>& clients) {
  std::vector<double> latencies;
  for (auto& client : clients) {
    latencies.insert(latencies.end(), client->latenciesUs().begin(), client->latenciesUs().end());
  }
  state.SetItemsProcessed(static_cast<int64_t>(latencies.size()));
  state.counters["p50_us"] = percentile(latencies, 0.50);
  state.counters["p99_us"] = percentile(latencies, 0.99);
  state.counters["max_us"] = percentile(latencies, 1.0);
}

}  // namespace tarnwick::bench
