// Commands about the running server: its message queues (mq), its log, its
// tasks (show tasks, tell TASK quit).
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <vector>

#include <nlohmann/json.hpp>

#include "commands.h"
#include "failure.h"
#include "globerr.h"
#include "mq.h"
#include "mqlist.h"
#include "queue.h"
#include "serverlog.h"
#include "tasklist.h"

namespace tarnwick::admin {

namespace {

bool equal_no_case(const std::string& a, const std::string& b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](unsigned char x, unsigned char y) {
    return std::tolower(x) == std::tolower(y);
  });
}

struct QueueRow {
  std::string name;
  size_t messages = 0;
  bool quitting = false;
};

std::vector<QueueRow> live_queues() {
  std::vector<QueueRow> rows;
  check(MQEnumQueues(
            [](void* param, const MQ_LISTING* queue) {
              static_cast<std::vector<QueueRow>*>(param)->push_back(
                  {queue->QueueName, queue->Messages, queue->Quitting != FALSE});
            },
            &rows),
        "cannot list the queues");
  return rows;
}

struct LogRow {
  int64_t unix_seconds = 0;
  int hundredths = 0;
  std::string task_name, text, console_text;
};

std::vector<LogRow> server_log() {
  std::vector<LogRow> rows;
  check(ServerLogEnumLines(
            0,
            [](void* param, const SERVER_LOG_LINE* line) {
              static_cast<std::vector<LogRow>*>(param)->push_back(
                  {line->UnixSeconds, line->Hundredths, line->TaskName, line->Text, line->ConsoleText});
            },
            &rows),
        "cannot read the server log");
  return rows;
}

struct TaskRow {
  long process_id = 0;
  std::string task_name, status_text;
};

std::vector<TaskRow> task_status_lines() {
  std::vector<TaskRow> rows;
  check(TaskEnumStatusLines(
            [](void* param, const TASK_STATUS_LINE* line) {
              static_cast<std::vector<TaskRow>*>(param)->push_back(
                  {static_cast<long>(line->ProcessID), line->TaskName, line->StatusText});
            },
            &rows),
        "cannot list the tasks");
  return rows;
}

// "2026-03-02T09:30:00.25+01:00" in the operating system's zone.
std::string local_iso8601(int64_t unix_seconds, int hundredths) {
  const time_t seconds = static_cast<time_t>(unix_seconds);
  tm local{};
  localtime_r(&seconds, &local);
  char clock[32];
  std::strftime(clock, sizeof clock, "%Y-%m-%dT%H:%M:%S", &local);
  char fraction[8] = "";
  if (hundredths != 0) std::snprintf(fraction, sizeof fraction, ".%02d", hundredths);
  const int offset = static_cast<int>(local.tm_gmtoff / 60);
  char zone[16];
  std::snprintf(zone, sizeof zone, "%c%02d:%02d", offset < 0 ? '-' : '+', std::abs(offset) / 60, std::abs(offset) % 60);
  return std::string(clock) + fraction + zone;
}

void add_mq(Cli& cli) {
  auto* mq = cli.app.add_subcommand("mq", "message queues of the running server (for diagnosis)");
  mq->require_subcommand(1);

  auto* list = mq->add_subcommand("list", "list the live queues with their waiting messages");
  cli.on_data(list, [] {
    const auto queues = live_queues();
    if (queues.empty()) {
      std::cout << "No queues (a queue lives only while a running process holds it).\n";
      return;
    }
    size_t width = 5;
    for (const auto& queue : queues) width = std::max(width, queue.name.size());
    std::printf("%-*s  %8s\n", static_cast<int>(width), "Queue", "Messages");
    for (const auto& queue : queues) {
      std::printf("%-*s  %8zu%s\n", static_cast<int>(width), queue.name.c_str(), queue.messages,
                  queue.quitting ? "  (quitting)" : "");
    }
    std::fflush(stdout);
  });

  struct Options {
    std::string name, text;
    long long timeout_ms = 0;
  };
  auto options = std::make_shared<Options>();
  auto* put = mq->add_subcommand("open-put", "put a message on an existing queue");
  put->add_option("NAME", options->name, "the queue, e.g. MQ$OutOfOffice")->required();
  put->add_option("TEXT", options->text, "the message")->required();
  cli.on_data(put, [options] {
    Queue queue = Queue::open(options->name);
    queue.put(options->text);
    std::cout << "Put " << options->text.size() << " byte" << (options->text.size() == 1 ? "" : "s") << " on "
              << options->name << "\n";
  });

  auto* get = mq->add_subcommand("get", "take one message from a queue and print it");
  get->add_option("NAME", options->name, "the queue")->required();
  get->add_option("--timeout", options->timeout_ms, "milliseconds to wait for a message (default 0: do not wait)")
      ->check(CLI::Range(0LL, 3600LL * 1000));
  cli.on_data(get, [options] {
    Queue queue = Queue::open(options->name);
    const auto message = queue.get(options->timeout_ms);
    if (!message) {
      throw Failure("no message on " + options->name +
                    (options->timeout_ms > 0 ? " within " + std::to_string(options->timeout_ms) + " ms" : ""));
    }
    std::cout << *message << "\n";
  });
}

void add_log(Cli& cli) {
  struct Options {
    std::string task;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  auto* log = cli.app.add_subcommand("log", "print the server log (log.nsf), oldest line first");
  log->add_option("--task", options->task, "only the lines of this task (e.g. Tarnwick)");
  log->add_flag("--json", options->json, "print JSON");
  cli.on_data(log, [options] {
    std::vector<LogRow> lines = server_log();
    std::erase_if(lines, [&](const LogRow& line) {
      return !options->task.empty() && !equal_no_case(line.task_name, options->task);
    });
    if (options->json) {
      nlohmann::ordered_json out = nlohmann::ordered_json::array();
      for (const auto& line : lines) {
        out.push_back({{"time", local_iso8601(line.unix_seconds, line.hundredths)},
                       {"task", line.task_name},
                       {"text", line.text}});
      }
      std::cout << out.dump(2) << "\n";
      return;
    }
    for (const auto& line : lines) std::cout << line.console_text << "\n";
  });
}

void add_tasks(Cli& cli) {
  auto* show = cli.app.add_subcommand("show", "show the state of the running server");
  show->require_subcommand(1);
  auto* tasks = show->add_subcommand("tasks", "the status lines of the running tasks");
  cli.on_data(tasks, [] {
    const auto lines = task_status_lines();
    if (lines.empty()) {
      std::cout << "No tasks are running.\n";
      return;
    }
    size_t width = 4;
    for (const auto& line : lines) width = std::max(width, line.task_name.size());
    std::printf("%-*s  %-8s  %s\n", static_cast<int>(width), "Task", "Process", "Status");
    for (const auto& line : lines) {
      std::printf("%-*s  %-8ld  %s\n", static_cast<int>(width), line.task_name.c_str(), line.process_id,
                  line.status_text.c_str());
    }
    std::fflush(stdout);
  });

  struct Options {
    std::string task, command;
  };
  auto options = std::make_shared<Options>();
  auto* tell = cli.app.add_subcommand("tell", "send a command to a running task");
  tell->add_option("TASK", options->task, "the task's name, as 'show tasks' lists it")->required();
  tell->add_option("COMMAND", options->command, "the command; 'quit' ends the task")
      ->required()
      ->check(CLI::IsMember({"quit"}, CLI::ignore_case));
  cli.on_data(tell, [options] {
    DWORD asked = 0;
    check(TaskRequestQuit(options->task.c_str(), &asked), "cannot ask " + options->task + " to quit");
    if (asked == 0) throw Failure("no task named " + options->task + " is running");
    std::cout << "Asked " << options->task << " to quit" << (asked > 1 ? " (" + std::to_string(asked) + " processes)" : "")
              << "\n";
  });
}

}  // namespace

void add_runtime_commands(Cli& cli) {
  add_mq(cli);
  add_log(cli);
  add_tasks(cli);
}

}  // namespace tarnwick::admin
