#include "request/RequestFile.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "global.h"
#include "osenv.h"
#include "protocol/ProtocolNames.h"

namespace fs = std::filesystem;

namespace {

using tarnwick::protocol::kSpoolFolder;
constexpr const char* kFoldersVariable = "OOORequestFolders";
constexpr const char* kMaxBytesVariable = "OOORequestMaxBytes";
constexpr WORD kVariableLimit = 4096;

// The path's parts below the root, "." left out; false for a ".." part.
bool partsOf(const fs::path& path, std::vector<std::string>& parts) {
  parts.clear();
  for (const fs::path& part : path.relative_path()) {
    if (part == "..") return false;
    if (part.empty() || part == ".") continue;
    parts.push_back(part.string());
  }
  return true;
}

// The parts of `path` below `folder`, when path lies inside it.
bool partsBelow(const std::vector<std::string>& path, const std::vector<std::string>& folder,
                std::vector<std::string>& below) {
  if (path.size() <= folder.size()) return false;
  for (size_t i = 0; i < folder.size(); ++i) {
    if (path[i] != folder[i]) return false;
  }
  below.assign(path.begin() + static_cast<std::ptrdiff_t>(folder.size()), path.end());
  return true;
}

class Descriptor {
 public:
  explicit Descriptor(int fd = -1) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }
  int release() { return std::exchange(fd_, -1); }
  void reset(int fd) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = fd;
  }

 private:
  int fd_;
};

RequestFile::Refusal refusalOfErrno(int error) {
  switch (error) {
    case ENOENT:
      return RequestFile::Refusal::Missing;
    case ELOOP:
    case ENOTDIR:
      return RequestFile::Refusal::ThroughLink;
    case EISDIR:
    case ENXIO:
      return RequestFile::Refusal::NotRegular;
    default:
      return RequestFile::Refusal::Unreadable;
  }
}

}  // namespace

RequestFilePolicy RequestFilePolicy::fromEnvironment() {
  RequestFilePolicy policy;
  char data[MAXPATH + 1] = {0};
  if (OSGetDataDirectory(data) > 0) policy.folders.push_back((fs::path(data) / kSpoolFolder).string());
  std::string listed(kVariableLimit + 1, '\0');
  if (OSGetEnvironmentString(kFoldersVariable, listed.data(), kVariableLimit)) {
    listed.resize(std::strlen(listed.c_str()));
    size_t start = 0;
    while (start <= listed.size()) {
      size_t end = listed.find(';', start);
      if (end == std::string::npos) end = listed.size();
      std::string folder = listed.substr(start, end - start);
      while (!folder.empty() && folder.back() == ' ') folder.pop_back();
      while (!folder.empty() && folder.front() == ' ') folder.erase(folder.begin());
      if (fs::path(folder).is_absolute()) policy.folders.push_back(folder);
      start = end + 1;
    }
  }
  const long configured = OSGetEnvironmentLong(kMaxBytesVariable);
  if (configured > 0 && static_cast<size_t>(configured) > policy.maxBytes) {
    policy.maxBytes = static_cast<size_t>(configured);
  }
  return policy;
}

RequestFile::~RequestFile() { close(); }

RequestFile::RequestFile(RequestFile&& other) noexcept { *this = std::move(other); }

RequestFile& RequestFile::operator=(RequestFile&& other) noexcept {
  if (this != &other) {
    close();
    path_ = std::move(other.path_);
    fd_ = std::exchange(other.fd_, -1);
    maxBytes_ = other.maxBytes_;
    writable_ = other.writable_;
    refusal_ = other.refusal_;
    detail_ = std::move(other.detail_);
  }
  return *this;
}

void RequestFile::close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
}

RequestFile RequestFile::open(const std::string& path, const RequestFilePolicy& policy) {
  const fs::path given(path);
  if (!given.is_absolute()) return RequestFile(path, Refusal::NotAbsolute);
  std::vector<std::string> parts;
  if (!partsOf(given, parts)) return RequestFile(path, Refusal::OutsideFolders);

  // The folder the path lies in, as configured or as the system names it
  // with its links resolved (a front end may use either form).
  std::vector<std::string> below;
  std::string folder;
  // The resolved form is looked up only when the configured one does not
  // hold the path.
  auto holds = [&](const std::string& form) {
    std::vector<std::string> folderParts;
    if (form.empty() || !partsOf(fs::path(form), folderParts) || !partsBelow(parts, folderParts, below)) return false;
    folder = form;
    return true;
  };
  for (const std::string& allowed : policy.folders) {
    if (holds(allowed)) break;
    char real[PATH_MAX];
    if (::realpath(allowed.c_str(), real) != nullptr && holds(real)) break;
  }
  if (folder.empty()) return RequestFile(path, Refusal::OutsideFolders);

  RequestFile file(path, Refusal::None);
  Descriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.get() < 0) {
    file.refusal_ = refusalOfErrno(errno) == Refusal::Missing ? Refusal::Missing : Refusal::Unreadable;
    file.detail_ = std::strerror(errno);
    return file;
  }
  for (size_t i = 0; i + 1 < below.size(); ++i) {
    int next = ::openat(directory.get(), below[i].c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      file.refusal_ = refusalOfErrno(errno);
      file.detail_ = std::strerror(errno);
      return file;
    }
    directory.reset(next);
  }
  const char* name = below.back().c_str();
  // Looked at before it is opened: opening a FIFO or a device is already an
  // action of its own.
  struct stat seen {};
  if (::fstatat(directory.get(), name, &seen, AT_SYMLINK_NOFOLLOW) != 0) {
    file.refusal_ = refusalOfErrno(errno);
    file.detail_ = std::strerror(errno);
    return file;
  }
  if (S_ISLNK(seen.st_mode)) {
    file.refusal_ = Refusal::ThroughLink;
    return file;
  }
  if (!S_ISREG(seen.st_mode)) {
    file.refusal_ = Refusal::NotRegular;
    return file;
  }
  constexpr int kFlags = O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
  Descriptor opened(::openat(directory.get(), name, O_RDWR | kFlags));
  file.writable_ = opened.get() >= 0;
  if (opened.get() < 0 && (errno == EACCES || errno == EROFS || errno == EPERM)) {
    opened.reset(::openat(directory.get(), name, O_RDONLY | kFlags));  // readable: the reply will fail
  }
  if (opened.get() < 0) {
    file.refusal_ = refusalOfErrno(errno);
    file.detail_ = std::strerror(errno);
    return file;
  }
  struct stat info {};
  if (::fstat(opened.get(), &info) != 0) {
    file.refusal_ = Refusal::Unreadable;
    file.detail_ = std::strerror(errno);
    return file;
  }
  if (!S_ISREG(info.st_mode)) {
    file.refusal_ = Refusal::NotRegular;
    return file;
  }
  if (info.st_nlink > 1) {
    file.refusal_ = Refusal::SeveralNames;
    return file;
  }
  if (static_cast<unsigned long long>(info.st_size) > policy.maxBytes) {
    file.refusal_ = Refusal::TooLarge;
    file.maxBytes_ = policy.maxBytes;
    return file;
  }
  if (info.st_uid == ::geteuid() && (info.st_mode & 077) != 0) ::fchmod(opened.get(), 0600);
  file.fd_ = opened.release();
  file.maxBytes_ = policy.maxBytes;
  return file;
}

std::string RequestFile::refusalText() const {
  switch (refusal_) {
    case Refusal::None:
    case Refusal::Missing:
      return "";
    case Refusal::NotAbsolute:
      return "not an absolute path";
    case Refusal::OutsideFolders:
      return "not inside a request folder";
    case Refusal::ThroughLink:
      return "a link in the path or in the file's place";
    case Refusal::NotRegular:
      return "not a regular file";
    case Refusal::SeveralNames:
      return "a file with more than one name (hard link)";
    case Refusal::TooLarge:
      return "larger than " + std::to_string(maxBytes_) + " bytes";
    case Refusal::Unreadable:
      return "cannot be opened: " + detail_;
  }
  return "";
}

namespace {
thread_local size_t t_largestRead = 0;
}  // namespace

size_t takeLargestRequestRead() { return std::exchange(t_largestRead, 0); }

bool RequestFile::read(std::string& content) {
  content.clear();
  if (fd_ < 0) return false;
  // One byte beyond the limit tells a file that has grown since it was
  // opened. The buffer starts at the file's present size (and one byte for
  // the end) and grows only for a file that is being written meanwhile.
  const size_t limit = maxBytes_ + 1;
  struct stat info {};
  const size_t expected = ::fstat(fd_, &info) == 0 && info.st_size >= 0 ? static_cast<size_t>(info.st_size) : 0;
  content.resize(std::min(limit, expected + 1));
  size_t total = 0;
  while (total < limit) {
    if (total == content.size()) content.resize(std::min(limit, content.size() * 2));
    ssize_t n = ::pread(fd_, content.data() + total, content.size() - total, static_cast<off_t>(total));
    if (n < 0) {
      if (errno == EINTR) continue;
      refusal_ = Refusal::Unreadable;
      detail_ = std::strerror(errno);
      content.clear();
      return false;
    }
    if (n == 0) break;
    total += static_cast<size_t>(n);
  }
  if (total > maxBytes_) {
    refusal_ = Refusal::TooLarge;
    content.clear();
    return false;
  }
  content.resize(total);
  t_largestRead = std::max(t_largestRead, total);
  return true;
}

bool RequestFile::empty() { return fd_ >= 0 && ::ftruncate(fd_, 0) == 0; }

// One write over the old content; the file is cut only where the old
// content was longer. Written at once, the reply never leaves the file
// empty in between, and the file system need not give back and take again
// the blocks of a file that keeps its size.
bool RequestFile::replace(std::string_view text) {
  if (!write(text)) return false;
  struct stat info {};
  if (::fstat(fd_, &info) != 0) return false;
  if (static_cast<unsigned long long>(info.st_size) <= text.size()) return true;
  return ::ftruncate(fd_, static_cast<off_t>(text.size())) == 0;
}

bool RequestFile::write(std::string_view text) {
  if (fd_ < 0) return false;
  size_t done = 0;
  while (done < text.size()) {
    ssize_t n = ::pwrite(fd_, text.data() + done, text.size() - done, static_cast<off_t>(done));
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    done += static_cast<size_t>(n);
  }
  return true;
}
