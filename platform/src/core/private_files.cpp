#include "core/private_files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tarnwick::rt {
namespace {

// The runtime never changes its user, so the answer is asked once.
uid_t effective_user() {
  static const uid_t user = ::geteuid();
  return user;
}

}  // namespace

std::string untrusted_folder_reason(const std::filesystem::path& folder) {
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) return std::string("cannot be examined: ") + std::strerror(errno);
  if (!S_ISDIR(info.st_mode)) return "is not a folder (a link or a file is in its place)";
  if (info.st_uid != effective_user()) {
    return "belongs to user " + std::to_string(info.st_uid) + ", not to the server's user " +
           std::to_string(effective_user());
  }
  if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0) return "can be written by other users";
  return "";
}

std::string make_private_folder(const std::filesystem::path& folder) {
  std::error_code ec;
  if (folder.has_parent_path()) std::filesystem::create_directories(folder.parent_path(), ec);
  if (::mkdir(folder.c_str(), kPrivateFolderMode) == 0) {
    // Made by us just now: the exact mode, whatever the umask took away.
    if (::chmod(folder.c_str(), kPrivateFolderMode) != 0) return std::string("cannot be set to mode 0700");
    return "";
  }
  if (errno != EEXIST) return std::string("cannot be made: ") + std::strerror(errno);
  return untrusted_folder_reason(folder);
}

int open_private_file(const std::filesystem::path& path, int flags) {
  int fd = ::open(path.c_str(), flags | O_CLOEXEC | O_NOFOLLOW, kPrivateFileMode);
  if (fd < 0) return -1;
  struct stat info {};
  if ((flags & O_CREAT) != 0 && ::fstat(fd, &info) == 0 && info.st_uid == effective_user() &&
      (info.st_mode & 07777) != kPrivateFileMode) {
    ::fchmod(fd, kPrivateFileMode);
  }
  return fd;
}

bool write_private_file(const std::filesystem::path& path, std::string_view text) {
  int fd = open_private_file(path, O_WRONLY | O_CREAT | O_TRUNC);
  if (fd < 0) return false;
  const char* bytes = text.data();
  size_t left = text.size();
  bool ok = true;
  while (left > 0) {
    ssize_t n = ::write(fd, bytes, left);
    if (n < 0) {
      if (errno == EINTR) continue;
      ok = false;
      break;
    }
    bytes += n;
    left -= static_cast<size_t>(n);
  }
  return ::close(fd) == 0 && ok;
}

}  // namespace tarnwick::rt
