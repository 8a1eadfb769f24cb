// A record lock description covering a whole file, for the queues' lock
// files: to take, release or probe for a lock with fcntl.
#pragma once

#include <fcntl.h>

namespace tarnwick::rt {

inline struct flock whole_file_lock(short type) {
  struct flock lock {};
  lock.l_type = type;
  lock.l_whence = SEEK_SET;
  lock.l_start = 0;
  lock.l_len = 0;
  lock.l_pid = 0;
  return lock;
}

}  // namespace tarnwick::rt
