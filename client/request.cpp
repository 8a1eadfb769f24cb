#include "request.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

#include <chrono>
#include <fstream>
#include <sstream>

#include "failure.h"
#include "globerr.h"
#include "mq.h"
#include "queue.h"
#include "session.h"

namespace tarnwick::client {
namespace {

constexpr size_t kMaxRequestMessage = protocol::kMaxRequestMessage;  // the task reads no longer path
constexpr const char* kSpoolFolder = protocol::kSpoolFolder;

std::string read_file(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) throw Failure("cannot read " + file.string());
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

// A new file only the server's user may read, never through a link that
// someone planted at the name.
void write_new_file(const std::filesystem::path& file, const std::string& bytes) {
  const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  if (fd < 0) throw Failure("cannot create " + file.string() + ": " + std::strerror(errno));
  size_t written = 0;
  while (written < bytes.size()) {
    const ssize_t n = ::write(fd, bytes.data() + written, bytes.size() - written);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      const std::string reason = std::strerror(errno);
      ::close(fd);
      throw Failure("cannot write " + file.string() + ": " + reason);
    }
    written += static_cast<size_t>(n);
  }
  if (::close(fd) != 0) throw Failure("cannot write " + file.string() + ": " + std::strerror(errno));
}

// A new file name in the spool folder: the kind's marker (if any), then the
// process, a clock reading and a counter, so that concurrent tools and the
// threads of one never collide.
std::filesystem::path new_request_path(RequestKind kind) {
  const std::filesystem::path folder = data_directory() / kSpoolFolder;
  std::error_code error;
  if (std::filesystem::create_directories(folder, error)) ::chmod(folder.c_str(), 0700);
  if (error) throw Failure("cannot create " + folder.string() + ": " + error.message());
  static std::atomic<unsigned long> counter{0};
  const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  const std::string marker(file_marker_of(kind));
  return folder / ((marker.empty() ? std::string("request_") : marker) + std::to_string(::getpid()) + "_" +
                   std::to_string(ticks) + "_" + std::to_string(counter.fetch_add(1)) + ".xml");
}

Queue open_task_queue(const char* name) {
  try {
    return Queue::open(name);
  } catch (const Failure& failure) {
    throw NoReply(std::string(failure.what()) + "; is the tarnwick task running?");
  }
}

// A reply queue name taken from the servlet list, put back at scope end.
// The list is held open only for the get and for the put back: a front end
// that held the task's queues while it waits would keep them alive after
// the task ended, and the task refuses to start while its queues exist.
class BorrowedName {
 public:
  explicit BorrowedName(long long timeout_ms) {
    Queue list = open_task_queue(kServletListQueue);
    const auto name = list.get(timeout_ms);
    if (!name) {
      throw NoReply("no reply queue name free on " + list.name() + " within " + std::to_string(timeout_ms) + " ms");
    }
    name_ = *name;
  }
  BorrowedName(const BorrowedName&) = delete;
  BorrowedName& operator=(const BorrowedName&) = delete;
  ~BorrowedName() {
    if (!give_back_) return;
    try {
      Queue::open(kServletListQueue).put(name_);
    } catch (const Failure&) {
      // The task's list is gone or quitting: the name dies with it.
    }
  }
  const std::string& name() const { return name_; }
  // The name is another copy of one in use (a restarted task filled its
  // list anew while front ends still held names of the old one): this copy
  // is dropped, so the list holds each name once again.
  void drop() { give_back_ = false; }

 private:
  std::string name_;
  bool give_back_ = true;
};

// The reply queue, made for this request (a live queue of that name belongs
// to another request in flight).
struct ReplyQueueInUse : Failure {
  using Failure::Failure;
};

Queue make_reply_queue(const std::string& name) {
  const STATUS status = MQCreate(name.c_str(), 0, 0);
  if (ERR(status) == ERR_DUPLICATE_MQ) throw ReplyQueueInUse("reply queue " + name + " is in use by another request");
  check(status, "cannot create reply queue " + name);
  return Queue::open(name);
}

long long milliseconds_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start).count();
}

// Writes the document, puts its path on the request queue and waits.
RequestOutcome exchange(const RequestOptions& options, const std::string& document,
                        std::optional<Queue> reply_queue) {

  RequestOutcome outcome;
  const std::filesystem::path path = new_request_path(options.kind);
  outcome.path = path.string();
  if (outcome.path.size() > kMaxRequestMessage) {
    throw Failure("the request file's path " + outcome.path + " is longer than " +
                  std::to_string(kMaxRequestMessage) + " bytes");
  }
  write_new_file(path, document);
  struct RemoveUnlessKept {
    const std::filesystem::path& path;
    bool keep;
    ~RemoveUnlessKept() {
      std::error_code ignored;
      if (!keep) std::filesystem::remove(path, ignored);
    }
  } cleanup{path, options.keep_file || !reply_queue};  // without a reply the task may read it any time

  const auto start = std::chrono::steady_clock::now();
  open_task_queue(kRequestQueue).put(outcome.path);  // closed at once, not held while waiting
  if (reply_queue) {
    outcome.reply = reply_queue->get(options.timeout_ms);
    outcome.elapsed_ms = milliseconds_since(start);
    if (!outcome.reply) throw NoReply("no reply within " + std::to_string(options.timeout_ms) + " ms");
  }
  outcome.document = read_file(path);
  return outcome;
}

}  // namespace

RequestOutcome send_request(const RequestOptions& options) {
  if (!options.raw_file.empty()) {
    const std::string document = read_file(options.raw_file);
    const auto reply_queue_name = reply_queue_named_in(document);
    std::optional<Queue> reply_queue;
    if (reply_queue_name) reply_queue.emplace(make_reply_queue(*reply_queue_name));
    return exchange(options, document, std::move(reply_queue));
  }
  // A name in use is a second copy of it; the next name is taken instead.
  constexpr int kAttempts = 8;
  for (int attempt = 1;; ++attempt) {
    BorrowedName reply_name(options.timeout_ms);
    std::optional<Queue> reply_queue;
    try {
      reply_queue.emplace(make_reply_queue(reply_name.name()));
    } catch (const ReplyQueueInUse&) {
      if (attempt == kAttempts) throw;
      reply_name.drop();
      continue;
    }
    RequestValues values = options.values;
    values.reply_queue = reply_name.name();
    values.action = std::string(action_of(options.kind));
    return exchange(options, request_document(values), std::move(reply_queue));
  }
}

}  // namespace tarnwick::client
