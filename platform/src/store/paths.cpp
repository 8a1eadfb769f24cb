// Database paths to files, and network paths (netpath.h, paths.h).
#include "store/paths.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "dname.h"
#include "env/environment.h"
#include "globerr.h"
#include "netpath.h"
#include "core/api_guard.h"
#include "store/note.h"

namespace tarnwick::rt::store {
namespace {

constexpr std::string_view kSeparator = "!!";

struct NetPath {
  std::string port;
  std::string server;
  std::string file;
};

STATUS split(std::string_view path, NetPath* out) {
  std::vector<std::string_view> parts;
  while (true) {
    const size_t at = path.find(kSeparator);
    parts.push_back(path.substr(0, at));
    if (at == std::string_view::npos) break;
    path.remove_prefix(at + kSeparator.size());
  }
  if (parts.size() > 3) return ERR_INV_SERVER_NAME;
  out->file = parts.back();
  if (parts.size() >= 2) out->server = parts[parts.size() - 2];
  if (parts.size() == 3) out->port = parts[0];
  if (out->file.empty() || out->file.size() >= MAXPATH) return ERR_INV_FILE_NAME;
  return NOERROR;
}

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

// "CN=Mail1/OU=Hub/O=Org" -> "Mail1/Hub/Org"; abbreviated names stay.
std::string abbreviated(std::string_view name) {
  const std::string input(name);
  char out[MAXUSERNAME];
  WORD length = 0;
  if (DNAbbreviate(0, nullptr, input.c_str(), out, sizeof out, &length) != NOERROR) return input;
  return std::string(out, length);
}

// Whether `given` (canonical, abbreviated or common form) names `server`.
bool same_server(std::string_view given, std::string_view server) {
  const std::string a = abbreviated(given);
  const std::string b = abbreviated(server);
  if (names_equal(a, b)) return true;
  // A common name alone matches the first part of a hierarchical name.
  if (a.find('/') == std::string::npos) return names_equal(a, b.substr(0, b.find('/')));
  if (b.find('/') == std::string::npos) return names_equal(b, a.substr(0, a.find('/')));
  return false;
}

bool is_local(std::string_view server) {
  if (server.empty()) return true;
  auto local = get_environment("ServerName");
  return local && !local->empty() && same_server(server, *local);
}

// The data directory of another server from servers.ini: ERR_SESSION_CLOSED
// when it is not listed or is down.
STATUS other_server_directory(std::string_view server, std::filesystem::path* directory) {
  std::ifstream file(data_directory() / "servers.ini");
  if (!file) return ERR_SESSION_CLOSED;
  std::string line;
  bool in_section = false;
  bool found = false;
  bool down = false;
  std::string listed_directory;
  while (std::getline(file, line)) {
    std::string_view text = trim(line);
    if (text.empty() || text.front() == ';' || text.front() == '#') continue;
    if (text.front() == '[' && text.back() == ']') {
      if (found) break;  // the section of our server has ended
      in_section = same_server(text.substr(1, text.size() - 2), server);
      found = in_section;
      continue;
    }
    if (!in_section) continue;
    const size_t equals = text.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view key = trim(text.substr(0, equals));
    const std::string_view value = trim(text.substr(equals + 1));
    if (names_equal(key, "Directory")) listed_directory = value;
    if (names_equal(key, "State")) down = names_equal(value, "down");
  }
  if (!found || down || listed_directory.empty()) return ERR_SESSION_CLOSED;
  std::filesystem::path path(listed_directory);
  *directory = (path.is_absolute() ? path : data_directory() / path).lexically_normal();
  return NOERROR;
}

void copy_out(std::string_view text, char* out) {
  if (out == nullptr) return;
  const size_t length = std::min(text.size(), static_cast<size_t>(MAXPATH - 1));
  std::memcpy(out, text.data(), length);
  out[length] = '\0';
}

bool contains(const std::filesystem::path& outer, const std::filesystem::path& inner) {
  auto o = outer.begin();
  auto i = inner.begin();
  for (; o != outer.end(); ++o, ++i) {
    if (o->empty()) continue;  // a trailing separator
    if (i == inner.end() || *o != *i) return false;
  }
  return true;
}

enum class Links { kNone, kSome };

// Whether any existing part of `inner` below `outer` (which lexically
// contains it) is a link; kSome also when a part cannot be examined.
Links links_below(const std::filesystem::path& outer, const std::filesystem::path& inner) {
  auto o = outer.begin();
  auto i = inner.begin();
  for (; o != outer.end(); ++o) {
    if (!o->empty()) ++i;
  }
  std::string prefix = outer.string();
  for (; i != inner.end(); ++i) {
    if (i->empty()) continue;
    if (prefix.empty() || prefix.back() != '/') prefix += '/';
    prefix += i->native();
    struct stat info {};
    if (::lstat(prefix.c_str(), &info) != 0) return errno == ENOENT ? Links::kNone : Links::kSome;
    if (S_ISLNK(info.st_mode)) return Links::kSome;
  }
  return Links::kNone;
}

// Whether `path` lies inside `folder` (or is the folder itself), by name and,
// for the parts that exist, after links are followed. Without a link below
// the folder the path is inside it wherever the folder itself leads, so
// only paths through a link pay for resolving every part.
bool is_inside(const std::filesystem::path& path, const std::filesystem::path& folder) {
  const std::filesystem::path normal_folder = folder.lexically_normal();
  const std::filesystem::path normal_path = path.lexically_normal();
  if (!contains(normal_folder, normal_path)) return false;
  if (links_below(normal_folder, normal_path) == Links::kNone) return true;
  std::error_code ec;
  const std::filesystem::path real_folder = std::filesystem::weakly_canonical(folder, ec);
  if (ec) return false;
  const std::filesystem::path real_path = std::filesystem::weakly_canonical(path, ec);
  return !ec && contains(real_folder, real_path);
}

// A database of this server must be a file below its data directory: a
// request may name a mail file, but never reach another directory's.
STATUS confined(const std::filesystem::path& file, const std::filesystem::path& folder,
                std::filesystem::path* out) {
  if (!is_inside(file, folder) || file.lexically_normal() == folder.lexically_normal()) return ERR_NOEXIST;
  *out = file;
  return NOERROR;
}

// A database of this server: the data directory is read once, for both
// the path and its confinement.
STATUS local_database(std::string_view path, std::filesystem::path* file) {
  const std::filesystem::path data = data_directory();
  return confined(resolve_data_path(path, data), data, file);
}

}  // namespace

STATUS resolve_database_path(const char* api_path, std::filesystem::path* file) {
  if (api_path == nullptr) return ERR_INV_FILE_NAME;
  const size_t length = std::strlen(api_path);
  if (length == 0 || length >= MAXPATH) return ERR_INV_FILE_NAME;
  const std::string_view path(api_path, length);
  if (path.find(kSeparator) == std::string_view::npos) {
    return local_database(path, file);
  }
  NetPath parts;
  if (STATUS error = split(path, &parts)) return error;
  if (is_local(parts.server)) return local_database(parts.file, file);
  std::string relative = parts.file;
  for (char& c : relative) {
    if (c == '\\') c = '/';
  }
  const std::filesystem::path relative_path = std::filesystem::path(relative).lexically_normal();
  if (relative_path.is_absolute() || (!relative_path.empty() && *relative_path.begin() == "..")) {
    return ERR_INVALID_NAME;
  }
  std::filesystem::path directory;
  if (STATUS error = other_server_directory(parts.server, &directory)) return error;
  return confined(directory / relative_path, directory, file);
}

}  // namespace tarnwick::rt::store

using namespace tarnwick::rt::store;
using tarnwick::rt::guarded;

extern "C" {

STATUS LNPUBLIC OSPathNetConstruct(const char* PortName, const char* ServerName, const char* FileName,
                                   char* retPathName) {
  if (retPathName == nullptr) return NOERROR;
  return guarded([&]() -> STATUS {
    std::string path;
    if (ServerName != nullptr && ServerName[0] != '\0') {
      if (PortName != nullptr && PortName[0] != '\0') {
        path += PortName;
        path += kSeparator;
      }
      path += ServerName;
      path += kSeparator;
    }
    if (FileName != nullptr) path += FileName;
    copy_out(path, retPathName);
    return NOERROR;
  });
}

STATUS LNPUBLIC OSPathNetParse(const char* PathName, char* retPortName, char* retServerName, char* retFileName) {
  return guarded([&]() -> STATUS {
    copy_out("", retPortName);
    copy_out("", retServerName);
    copy_out("", retFileName);
    if (PathName == nullptr) return ERR_INV_FILE_NAME;
    NetPath parts;
    if (STATUS error = split(PathName, &parts)) return error;
    copy_out(parts.port, retPortName);
    copy_out(parts.server, retServerName);
    copy_out(parts.file, retFileName);
    return NOERROR;
  });
}

}  // extern "C"
