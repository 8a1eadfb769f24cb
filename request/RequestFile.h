// RequestFile: a request file opened so that a queue message cannot turn the
// task against other files, and the reply written back into it.
//
// A queue message names the file that the task reads and then overwrites
// with its answer. So a path is accepted only when
//   - it is absolute, has no ".." part and lies inside one of the request
//     folders (RequestFilePolicy);
//   - every folder on the way down from that request folder is a real
//     folder, not a link;
//   - the file itself is a regular file (not a link, FIFO or device) with a
//     single name (a hard link to some other file is refused);
//   - it is no longer than the size limit.
// The file is opened without following links and without blocking, the
// checks are made on the open descriptor, and the content is read and the
// reply written through that same descriptor: swapping the file between the
// check and the write changes nothing. A file of the server's user is made
// private (0600) when it is opened.
//
// Anything that writes over a request file (replies, pages) goes through
// an open RequestFile: open(), then replace() (or empty() and write()).
//
// A refused path is what a missing file is to the frames: no reply.
// One object belongs to one thread.
#ifndef TARNWICK_REQUEST_REQUESTFILE_H
#define TARNWICK_REQUEST_REQUESTFILE_H

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

// Where request files may live and how large they may be.
struct RequestFilePolicy {
  static constexpr size_t kDefaultMaxBytes = 1024 * 1024;

  std::vector<std::string> folders;  // absolute paths
  size_t maxBytes = kDefaultMaxBytes;

  // The data directory's "spool" folder, the folders that the notes.ini
  // variable OOORequestFolders lists (separated by ";"), and the limit of
  // OOORequestMaxBytes when it is above the default.
  static RequestFilePolicy fromEnvironment();
};

class RequestFile {
 public:
  enum class Refusal {
    None,           // open
    Missing,        // no such file: not logged
    NotAbsolute,
    OutsideFolders,
    ThroughLink,    // a link on the way or in the file's place
    NotRegular,     // FIFO, device, folder, socket
    SeveralNames,   // hard-linked
    TooLarge,
    Unreadable,
  };

  RequestFile() = default;
  ~RequestFile();
  RequestFile(RequestFile&& other) noexcept;
  RequestFile& operator=(RequestFile&& other) noexcept;
  RequestFile(const RequestFile&) = delete;
  RequestFile& operator=(const RequestFile&) = delete;

  // Opens path under policy; a refused path gives a closed object whose
  // refusal() says why.
  static RequestFile open(const std::string& path, const RequestFilePolicy& policy);

  bool isOpen() const { return fd_ >= 0; }
  const std::string& path() const { return path_; }
  Refusal refusal() const { return refusal_; }
  // Why the path was refused, for the log; "" while open or when missing.
  std::string refusalText() const;

  // The whole content; false (and refusal TooLarge) when the file has grown
  // past the limit since it was opened, or when it cannot be read.
  bool read(std::string& content);

  // Empties the file; false when it cannot be written.
  bool empty();
  // Writes text at the start of the file (after empty(): the whole file).
  bool write(std::string_view text);
  // Whether the file was opened for writing (a file the task may only read
  // is answered with a failed reply).
  bool writable() const { return fd_ >= 0 && writable_; }
  // Makes text the whole content of the file: written over the old content,
  // then the file cut at its end where it was longer.
  bool replace(std::string_view text);

  void close();

 private:
  RequestFile(std::string path, Refusal refusal) : path_(std::move(path)), refusal_(refusal) {}

  std::string path_;
  int fd_ = -1;
  size_t maxBytes_ = 0;
  bool writable_ = false;
  Refusal refusal_ = Refusal::Missing;
  std::string detail_;  // system error text of Unreadable
};

// The size of the largest request file this thread has read since the last
// call, and starts counting anew: a worker that read a large one gives the
// memory it took back to the system once the request is done.
size_t takeLargestRequestRead();

#endif  // TARNWICK_REQUEST_REQUESTFILE_H
