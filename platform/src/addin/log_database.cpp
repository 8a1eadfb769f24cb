#include "addin/log_database.h"

#include <algorithm>
#include <string>

#include "env/environment.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearch.h"
#include "store/database.h"
#include "time/timedate.h"

namespace tarnwick::rt {
namespace {

constexpr const char* kLogDatabase = "log.nsf";

// Closes a database handle when it goes out of scope.
class OpenDatabase {
 public:
  ~OpenDatabase() {
    if (handle_ != NULLHANDLE) NSFDbClose(handle_);
  }
  STATUS open(bool create_if_missing) {
    STATUS status = NSFDbOpen(kLogDatabase, &handle_);
    if (status == ERR_NOEXIST && create_if_missing) {
      status = NSFDbCreate(kLogDatabase, DBCLASS_NOTEFILE, FALSE);
      if (status == NOERROR || status == ERR_EXISTS) status = NSFDbOpen(kLogDatabase, &handle_);
    }
    return status;
  }
  DBHANDLE handle() const { return handle_; }

 private:
  DBHANDLE handle_ = NULLHANDLE;
};

class OpenNote {
 public:
  explicit OpenNote(NOTEHANDLE handle = NULLHANDLE) : handle_(handle) {}
  ~OpenNote() {
    if (handle_ != NULLHANDLE) NSFNoteClose(handle_);
  }
  NOTEHANDLE* out() { return &handle_; }
  NOTEHANDLE handle() const { return handle_; }

 private:
  NOTEHANDLE handle_;
};

std::string item_text(NOTEHANDLE note, const char* name) {
  char buffer[4096];
  WORD length = NSFItemGetText(note, name, buffer, sizeof buffer);
  return std::string(buffer, length);
}

STATUS collect_line(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* /*summary*/) {
  auto* context = static_cast<std::pair<DBHANDLE, std::vector<ServerLogLine>*>*>(parameter);
  SEARCH_MATCH copy;
  std::copy_n(reinterpret_cast<const char*>(match), sizeof copy, reinterpret_cast<char*>(&copy));
  if ((copy.SERetFlags & SE_FMATCH) == 0) return NOERROR;
  OpenNote note;
  if (STATUS status = NSFNoteOpen(context->first, copy.ID.NoteID, 0, note.out())) return status;
  TIMEDATE when{};
  if (!NSFItemGetTime(note.handle(), "Time", &when)) return NOERROR;
  const int64_t days = static_cast<int64_t>(when.Innards[1] & 0x00FFFFFF) - kJulianDayOf1970;
  ServerLogLine line;
  line.unix_seconds = days * 86400 + when.Innards[0] / 100;
  line.hundredths = static_cast<int>(when.Innards[0] % 100);
  line.task_name = item_text(note.handle(), "Task");
  line.text = item_text(note.handle(), "Text");
  context->second->push_back(std::move(line));
  return NOERROR;
}

}  // namespace

STATUS LogDatabaseStore::append(const ServerLogLine& line) { return append_batch({line}); }

STATUS LogDatabaseStore::append_batch(const std::vector<ServerLogLine>& lines) {
  if (lines.empty()) return NOERROR;
  if (ini_path().empty()) return ERR_NOEXIST;  // no server environment: console only
  OpenDatabase db;
  if (STATUS status = db.open(true)) return status;
  // A batch is one commit; flushing each to disk would make logging, which
  // every request does, wait for the disk. A line stays once it is stored,
  // even if its process dies; a power loss may take the last ones.
  if (auto database = store::find_database(db.handle())) {
    if (STATUS status = database->flush_commits_lazily()) return status;
  }
  if (lines.size() == 1) return append_line(db.handle(), lines.front());
  if (STATUS status = NSFTransactionBegin(db.handle(), 0)) return status;
  for (const auto& line : lines) {
    if (STATUS status = append_line(db.handle(), line)) {
      NSFTransactionRollback(db.handle());
      // One bad line must not take the others with it.
      STATUS first_error = status;
      for (const auto& single : lines) {
        if (STATUS again = append_line(db.handle(), single); again != NOERROR && first_error == NOERROR) {
          first_error = again;
        }
      }
      return first_error;
    }
  }
  return NSFTransactionCommit(db.handle(), 0);
}

STATUS LogDatabaseStore::append_line(DBHANDLE db, const ServerLogLine& line) {
  OpenNote note;
  if (STATUS status = NSFNoteCreate(db, note.out())) return status;
  const LocalZone zone = local_zone(static_cast<std::time_t>(line.unix_seconds));
  const TIMEDATE when = timedate_from_unix(line.unix_seconds, line.hundredths,
                                           zone_bits(zone.standard_offset_seconds, zone.observes_dst));
  STATUS status = NSFItemSetText(note.handle(), "Form", "LogLine", MAXWORD);
  if (status == NOERROR) status = NSFItemSetTime(note.handle(), "Time", &when);
  if (status == NOERROR) status = NSFItemSetText(note.handle(), "Task", line.task_name.c_str(), MAXWORD);
  if (status == NOERROR) {
    status = NSFItemSetText(note.handle(), "Text", line.text.data(),
                            static_cast<WORD>(std::min<size_t>(line.text.size(), MAXWORD - 1)));
  }
  if (status == NOERROR) status = NSFNoteUpdate(note.handle(), 0);
  return status;
}

STATUS LogDatabaseStore::read(size_t most, std::vector<ServerLogLine>* lines) {
  lines->clear();
  OpenDatabase db;
  if (STATUS status = db.open(false)) return status;
  std::pair<DBHANDLE, std::vector<ServerLogLine>*> context{db.handle(), lines};
  if (STATUS status = NSFSearch(db.handle(), NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collect_line,
                                &context, nullptr)) {
    return status;
  }
  std::stable_sort(lines->begin(), lines->end(), [](const ServerLogLine& a, const ServerLogLine& b) {
    return a.unix_seconds != b.unix_seconds ? a.unix_seconds < b.unix_seconds : a.hundredths < b.hundredths;
  });
  if (most != 0 && lines->size() > most) lines->erase(lines->begin(), lines->end() - static_cast<long>(most));
  return NOERROR;
}

}  // namespace tarnwick::rt
