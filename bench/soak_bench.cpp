// Soak: many mixed requests through one task process, then one large
// request, watching what a long-running task must keep flat.
//
//   soak_bench [--requests M] [--clients C] [--workers W] [--users U] [--large-mb N]
//              [--large-shape elements|attribute|text] [--max-request-mb N]
//
// A data directory with U mail files (half agent, half service mode) is
// provisioned with tarnwick-admin and the real task is started with W
// workers. C front-end threads send M requests in all (one set in ten,
// switching a user on or off, the rest queries), each checked for an "OK"
// reply. Reported: the task's resident memory and open file descriptors at
// the start (after a warm-up of 1% of the requests) and at the end, the
// request rate and the task's CPU time per request in the first and the
// last 10% of the run. Then one request of N MB (default 10) is sent and
// the task's resident memory is shown before it, right after its answer
// and a second later: memory taken for one large request must be given
// back. The task accepts requests up to --max-request-mb (default N + 4).
// Exits 1 when a request fails or the task dies.
#include <dirent.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "bench/end_to_end.h"
#include "osenv.h"
#include "tests/support/request_dates.h"
#include "tests/support/running_task.h"

namespace {

namespace fs = std::filesystem;
using namespace tarnwick::bench;
using tarnwick::testing::requestDateAttributes;
using tarnwick::testing::runningTaskPid;
using Clock = std::chrono::steady_clock;

struct Options {
  long requests = 1000000;
  int clients = 4;
  int workers = 4;
  int users = 50;
  int largeMb = 10;
  std::string largeShape = "elements";  // elements, attribute or text
  int maxRequestMb = 0;                  // OOORequestMaxBytes; 0: large-mb + 4
};

std::string mailFile(int user) { return "mail/user" + std::to_string(user) + ".nsf"; }
std::string userName(int user) { return "CN=User " + std::to_string(user) + "/O=Acme"; }

// What /proc shows of the task: resident memory (kB), open descriptors and
// CPU time (user + system, seconds).
struct TaskSample {
  long rssKb = 0;
  long fds = 0;
  double cpuSeconds = 0;
};

TaskSample sample(pid_t pid) {
  TaskSample out;
  std::ifstream status("/proc/" + std::to_string(pid) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmRSS:", 0) == 0) out.rssKb = std::stol(line.substr(6));
  }
  if (DIR* fds = ::opendir(("/proc/" + std::to_string(pid) + "/fd").c_str())) {
    while (dirent* entry = ::readdir(fds)) out.fds += entry->d_name[0] != '.' ? 1 : 0;
    ::closedir(fds);
  }
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
  const size_t close = text.rfind(')');
  if (close != std::string::npos) {
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    unsigned long long utime = 0, stime = 0;
    for (int index = 3; fields >> field; ++index) {
      if (index == 14) utime = std::stoull(field);
      if (index == 15) {
        stime = std::stoull(field);
        break;
      }
    }
    out.cpuSeconds = static_cast<double>(utime + stime) / static_cast<double>(::sysconf(_SC_CLK_TCK));
  }
  return out;
}

std::string request(const std::string& replyQueue, int user, std::optional<bool> setOn, const std::string& extra = "") {
  std::string text = "<OOORequest><Username MQName='" + replyQueue + "' Action='" + (setOn ? "2" : "1") +
                     "' MailServer='CN=Mail1/O=Acme' MailBox='" + mailFile(user) + "'";
  if (setOn) {
    text += std::string(" OOOEnable='") + (*setOn ? "1" : "0") + "' Subject='Away'" + requestDateAttributes("StartTime", 1) +
            requestDateAttributes("EndTime", 5);
  }
  return text + ">" + userName(user) + "</Username>" + extra + "</OOORequest>";
}

// The phases of the run, by the count of requests answered.
struct Marks {
  std::atomic<long> done{0};
  long warmUp = 0, firstTenth = 0, lastTenthStart = 0, total = 0;
  Clock::time_point at[4];
  TaskSample samples[4];
};

class Soak {
 public:
  explicit Soak(Options options) : options_(options), directory_("soak_bench") {}
  int run();

 private:
  bool provision();
  bool runClients(pid_t pid);
  void markIfDue(long done, pid_t pid);
  bool largeRequest(pid_t pid);

  Options options_;
  DataDirectory directory_;
  Marks marks_;
  std::string failure_;
  std::atomic<bool> failed_{false};
};

bool Soak::provision() {
  for (int user = 0; user < options_.users && directory_.failure().empty(); ++user) {
    directory_.admin({"--data", directory_.data().string(), "mailfile", "create", mailFile(user), "--owner",
                      "User " + std::to_string(user) + "/Acme", "--mode", user % 2 == 0 ? "agent" : "service"});
  }
  if (!directory_.initialise()) return false;
  // The large request must not be refused for its size.
  const long maxMb = options_.maxRequestMb > 0 ? options_.maxRequestMb : options_.largeMb + 4;
  OSSetEnvironmentVariable("OOORequestMaxBytes", std::to_string(maxMb << 20).c_str());
  return directory_.failure().empty();
}

void Soak::markIfDue(long done, pid_t pid) {
  for (int index = 0; index < 4; ++index) {
    const long due[] = {marks_.warmUp, marks_.firstTenth, marks_.lastTenthStart, marks_.total};
    if (done == due[index]) {
      marks_.at[index] = Clock::now();
      marks_.samples[index] = sample(pid);
    }
  }
}

bool Soak::runClients(pid_t pid) {
  const fs::path folder = directory_.data() / "spool";
  fs::create_directories(folder);
  marks_.total = options_.requests;
  marks_.warmUp = std::max(1L, options_.requests / 100);
  marks_.firstTenth = marks_.warmUp + (options_.requests - marks_.warmUp) / 10;
  marks_.lastTenthStart = options_.requests - (options_.requests - marks_.warmUp) / 10;
  std::vector<std::thread> threads;
  std::atomic<long> next{0};
  for (int index = 0; index < options_.clients; ++index) {
    threads.emplace_back([&, index] {
      FrontEnd front(folder / ("soak_" + std::to_string(index) + ".xml"),
                     "MQ$OOOServletList_soak" + std::to_string(index));
      std::vector<bool> on(static_cast<size_t>(options_.users), false);
      for (long k; !failed_ && (k = next.fetch_add(1)) < options_.requests;) {
        const int user = static_cast<int>(k % options_.users);
        std::optional<bool> setOn;
        if (k % 10 == 0) setOn = !on[static_cast<size_t>(user)];
        FrontEnd::Answer answer;
        const bool ok = front.failure().empty() &&
                        front.roundTrip(request(front.replyQueue(), user, setOn), userName(user), answer) &&
                        (answer.reply == "OK" || front.fail(userName(user) + " answered \"" + answer.reply + "\""));
        if (!ok) {
          if (!failed_.exchange(true)) failure_ = front.failure();
          return;
        }
        if (setOn) on[static_cast<size_t>(user)] = *setOn;  // users are spread over clients; good enough
        front.latenciesUs().clear();
        markIfDue(marks_.done.fetch_add(1) + 1, pid);
      }
    });
  }
  for (auto& thread : threads) thread.join();
  return !failed_;
}

bool Soak::largeRequest(pid_t pid) {
  const fs::path file = directory_.data() / "spool" / "soak_large.xml";
  FrontEnd front(file, "MQ$OOOServletList_soaklarge", 120000);
  // Three shapes of bulk: many small elements, one long attribute value on
  // the request's element, one long element text.
  const size_t bytes = static_cast<size_t>(options_.largeMb) << 20;
  std::string padding;
  if (options_.largeShape == "attribute") {
    padding = "<Note Text='" + std::string(bytes, 'x') + "'/>";
  } else if (options_.largeShape == "text") {
    padding = "<Note>" + std::string(bytes, 'y') + "</Note>";
  } else {
    const std::string element = "<Note Text='" + std::string(80, 'x') + "'>" + std::string(100, 'y') + "</Note>";
    while (padding.size() < bytes) padding += element;
  }
  const TaskSample before = sample(pid);
  FrontEnd::Answer answer;
  if (!front.roundTrip(request(front.replyQueue(), 0, std::nullopt, padding), userName(0), answer)) {
    std::printf("large request: %s\n", front.failure().c_str());
    return false;
  }
  const TaskSample after = sample(pid);
  std::this_thread::sleep_for(std::chrono::seconds(1));
  const TaskSample later = sample(pid);
  std::printf("large request (%s, %.1f MB, reply \"%s\"): task RSS %.1f MB before, %.1f MB after its answer, "
              "%.1f MB a second later\n",
              options_.largeShape.c_str(), static_cast<double>(padding.size()) / (1 << 20), answer.reply.c_str(), before.rssKb / 1024.0,
              after.rssKb / 1024.0, later.rssKb / 1024.0);
  return true;
}

int Soak::run() {
  if (!provision()) {
    std::fprintf(stderr, "soak: %s\n", directory_.failure().c_str());
    return 1;
  }
  RunningTask task(directory_, std::to_string(options_.workers));
  const std::optional<pid_t> pid = task.failure().empty() ? runningTaskPid("Tarnwick") : std::nullopt;
  if (!pid) {
    std::fprintf(stderr, "soak: the task did not start: %s\n", task.failure().c_str());
    return 1;
  }
  const TaskSample idle = sample(*pid);
  const auto started = Clock::now();
  const bool ok = runClients(*pid);
  const double seconds = std::chrono::duration<double>(Clock::now() - started).count();
  std::printf("soak: %ld requests (one set in ten), %d clients, %d workers, %d users: %s in %.1f s\n",
              marks_.done.load(), options_.clients, options_.workers, options_.users, ok ? "all OK" : "FAILED",
              seconds);
  if (!ok) {
    std::printf("  failure: %s\n", failure_.c_str());
    return 1;
  }
  const auto& s = marks_.samples;
  const long tenth = marks_.firstTenth - marks_.warmUp;
  auto rate = [&](int from, int to) {
    return static_cast<double>(tenth) / std::chrono::duration<double>(marks_.at[to] - marks_.at[from]).count();
  };
  auto cpuUs = [&](int from, int to) { return (s[to].cpuSeconds - s[from].cpuSeconds) * 1e6 / tenth; };
  std::printf("  task RSS: %.1f MB idle, %.1f MB after warm-up, %.1f MB at the end\n", idle.rssKb / 1024.0,
              s[0].rssKb / 1024.0, s[3].rssKb / 1024.0);
  std::printf("  task open fds: %ld idle, %ld after warm-up, %ld at the end\n", idle.fds, s[0].fds, s[3].fds);
  std::printf("  rate: first 10%% %.0f/s, last 10%% %.0f/s (%+.1f%%)\n", rate(0, 1), rate(2, 3),
              100.0 * (rate(2, 3) / rate(0, 1) - 1));
  std::printf("  task CPU per request: first 10%% %.0f us, last 10%% %.0f us\n", cpuUs(0, 1), cpuUs(2, 3));
  return options_.largeMb > 0 && !largeRequest(*pid) ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string arg = argv[i];
    if (arg == "--large-shape") {
      options.largeShape = argv[i + 1];
      continue;
    }
    const long value = std::stol(argv[i + 1]);
    if (arg == "--requests") options.requests = value;
    else if (arg == "--clients") options.clients = static_cast<int>(value);
    else if (arg == "--workers") options.workers = static_cast<int>(value);
    else if (arg == "--users") options.users = static_cast<int>(value);
    else if (arg == "--large-mb") options.largeMb = static_cast<int>(value);
    else if (arg == "--max-request-mb") options.maxRequestMb = static_cast<int>(value);
    else {
      std::fprintf(stderr, "usage: soak_bench [--requests M] [--clients C] [--workers W] [--users U] [--large-mb N]\n"
                           "                  [--large-shape elements|attribute|text] [--max-request-mb N]\n");
      return 2;
    }
  }
  if (options.requests < 100 || options.clients < 1 || options.users < 1) {
    std::fprintf(stderr, "soak: at least 100 requests, one client and one user\n");
    return 2;
  }
  return Soak(options).run();
}
