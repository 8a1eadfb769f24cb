// Cross-process message queues of one data directory (see mq.h for the
// API contract).
//
// Layout: one folder per queue, <root>/<KEY>/, KEY being the name folded to
// upper case (so names match without case) with bytes outside [A-Z0-9$_.-]
// written as %XX. The root is shared_state_root()/mq (shared_state.h):
//
//   <KEY>/name            the name the queue was made with (for listings)
//   <KEY>/quota           the most messages the queue may hold (text)
//   <KEY>/holders         empty; every holding process keeps a shared lock on it
//   <KEY>/msgs/<name>     one file per message; "." names are being written
//   <KEY>/quit            present once the queue is in the QUIT state
//   <root>/.lock          serialises create, open and close
//
// A short message is carried in its file's name (after "="), so the file
// appears with the whole message at once and stays empty. A longer one is
// written under a "." name and renamed into place, so a reader never sees
// half a message. Its name is <priority><time><origin>, all
// fixed-width hex, so sorting names gives priority order and, within one
// priority, the order the puts happened in (time from the system-wide
// monotonic clock). A getter claims a message by unlinking its file: of
// several getters that read the same file only the one whose unlink succeeds
// delivers it. Waiting getters sleep in inotify on msgs/ and on the queue
// directory (for quit), so a put wakes them at once and an idle wait costs
// nothing.
//
// Queue life:
//
//   (none) --MQCreate / MQOpen+CREATE--> live --last holder closes--> (none)
//                                          |  \--last holder dies--> stale
//                                          v
//                                     live, QUIT --(same exits)
//   stale --MQCreate / MQOpen+CREATE--> removed, then made anew
//   stale --MQOpen--> removed, ERR_NO_SUCH_MQ
//
// A process holds a queue while it has open handles to it, or after
// MQCreate until its first MQOpen turns that into a handle. "Live" means
// some live process has a lock on the holders file (the kernel drops a
// process's locks when it ends, however it ends); create, open and close
// run under <root>/.lock so that two processes never disagree about it.
//
// Thread-safe.
#pragma once

#include <sys/types.h>

#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "global.h"

namespace tarnwick::rt {

// The directory name of a queue name, or nothing for a name that cannot name
// a queue (empty or too long).
std::optional<std::string> queue_key(std::string_view name);

// The folder holding every queue of the current data directory (made if
// missing).
std::filesystem::path queue_root();

// One open handle's view of a queue.
class MessageQueue {
 public:
  // `fork_generation`: the process's fork count when it was opened (a
  // handle inherited through fork() is the parent's).
  MessageQueue(std::filesystem::path directory, DWORD quota, unsigned fork_generation);

  const std::filesystem::path& directory() const { return directory_; }
  unsigned fork_generation() const { return fork_generation_; }

  STATUS put(WORD priority, const char* bytes, size_t length);
  // timeout_ms < 0: wait forever; 0: do not wait.
  STATUS get(char* buffer, WORD buffer_length, long long timeout_ms, WORD* ret_length);
  void put_quit();
  bool quit_pending() const;
  size_t count() const;

 private:
  enum class Take { kTaken, kEmpty, kGone };
  Take take_first(char* buffer, WORD buffer_length, WORD* ret_length, bool* truncated);
  bool refill_names_locked();
  bool over_quota();

  const std::filesystem::path directory_;
  const std::filesystem::path messages_;
  const std::filesystem::path quit_flag_;
  const DWORD quota_;
  const unsigned fork_generation_;

  // Names listed from msgs/ in order and not yet tried. A batch is served
  // before the folder is listed again, so a message put meanwhile (even of a
  // higher priority) waits for the next listing; this keeps a get O(1) when
  // a long queue builds up.
  std::mutex take_mutex_;
  std::deque<std::string> listed_;  // guarded by take_mutex_

  std::mutex put_mutex_;
  size_t counted_ = 0;           // guarded by put_mutex_: messages at the last count
  size_t puts_since_count_ = 0;  // guarded by put_mutex_
  unsigned put_sequence_ = 0;    // guarded by put_mutex_
};

// Creating, opening and closing queues for this process.
STATUS create_queue(std::string_view name, WORD quota);
STATUS open_queue(std::string_view name, bool create_if_missing, std::shared_ptr<MessageQueue>* ret_queue);
STATUS close_queue(const std::shared_ptr<MessageQueue>& queue);

// Puts the QUIT state on a queue by name, if a live queue of that name exists
// (the admin's "tell <task> quit"). Returns whether it did.
bool put_quit_by_name(std::string_view name);

// Installed by the add-in layer: whether this process has been asked to end
// (a termination signal, or a quit request from another process). A get that
// waits looks at it a few times a second and, once it holds, ends the wait
// as a timed-out one, so that an idle task sees the request at once rather
// than after its whole wait. Null (the default) leaves waits uninterrupted.
void set_wait_interrupt(bool (*termination_requested)());

// A live queue as the admin's "mq list" shows it.
struct QueueListing {
  std::string name;  // as it was made (names match without case)
  size_t messages = 0;
  bool quitting = false;
};

// Every live queue of the current data directory, sorted by name. A snapshot:
// queues and counts may change while it is taken.
std::vector<QueueListing> list_queues();

}  // namespace tarnwick::rt
