// NSFSearch (nsfsearch.h) and the summary buffers it hands out.
#include <cstring>

#include "acl.h"
#include "formula.h"
#include "globerr.h"
#include "osmem.h"
#include "nsfnote.h"
#include "nsfsearch.h"
#include "ostime.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/ids.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;


namespace {

void append_raw(std::string& out, const void* data, size_t size) { out.append(static_cast<const char*>(data), size); }

// The summary buffer of a note from its stored items; sets *truncated when
// items had to be left out to stay within 64K.
std::string summary_buffer(std::string_view items_blob, bool with_names, bool* truncated) {
  std::vector<Item> items;
  *truncated = false;
  if (decode_items(items_blob, true, &items) != NOERROR) return {};
  std::string headers;
  std::string names;
  std::string values;
  USHORT count = 0;
  for (const auto& item : items) {
    const size_t value_length = sizeof(WORD) + item.value.size();
    const size_t name_length = with_names ? item.name.size() : 0;
    const size_t grown = sizeof(ITEM_TABLE) + headers.size() + sizeof(ITEM) + names.size() + name_length +
                         values.size() + value_length;
    if (grown > 0xFFFF) {
      *truncated = true;
      break;
    }
    ITEM header{static_cast<USHORT>(name_length), static_cast<USHORT>(value_length)};
    append_raw(headers, &header, sizeof header);
    if (with_names) names += item.name;
    append_raw(values, &item.type, sizeof(WORD));
    values += item.value;
    ++count;
  }
  ITEM_TABLE table{static_cast<USHORT>(sizeof(ITEM_TABLE) + headers.size() + names.size() + values.size()), count};
  std::string buffer;
  buffer.reserve(table.Length);
  append_raw(buffer, &table, sizeof table);
  buffer += headers;
  buffer += names;
  buffer += values;
  return buffer;
}

// A selection formula started for one search (no formula: every note).
class Selection {
 public:
  explicit Selection(FORMULAHANDLE formula) : formula_(formula) {}
  ~Selection() {
    if (compute_ != NULLHANDLE) NSFComputeStop(compute_);
    if (locked_) OSUnlockObject(formula_);
  }
  Selection(const Selection&) = delete;
  Selection& operator=(const Selection&) = delete;

  STATUS start() {
    if (formula_ == NULLHANDLE) return NOERROR;
    void* compiled = OSLockObject(formula_);
    if (compiled == nullptr) return ERR_BAD_PARAM;
    locked_ = true;
    return NSFComputeStart(0, compiled, &compute_);
  }

  // Whether the formula selects the stored note.
  STATUS selects(DBHANDLE hDB, NOTEID id, bool* selected) {
    *selected = true;
    if (formula_ == NULLHANDLE) return NOERROR;
    NOTEHANDLE note = NULLHANDLE;
    if (STATUS error = NSFNoteOpen(hDB, id, 0, &note)) {
      // Deleted since the search read it: not selected.
      *selected = false;
      return error == ERR_INVALID_NOTE || error == ERR_NOTE_DELETED ? NOERROR : error;
    }
    BOOL matches = FALSE;
    STATUS status = NSFComputeEvaluate(compute_, note, nullptr, nullptr, &matches, nullptr, nullptr);
    NSFNoteClose(note);
    *selected = matches != FALSE;
    return status;
  }

 private:
  FORMULAHANDLE formula_;
  HCOMPUTE compute_ = NULLHANDLE;
  bool locked_ = false;
};

}  // namespace

extern "C" {

STATUS LNPUBLIC NSFSearch(DBHANDLE hDB, FORMULAHANDLE hFormula, const char* /*ViewTitle*/, WORD SearchFlags,
                          WORD NoteClassMask, const TIMEDATE* Since, NSFSEARCHPROC EnumRoutine,
                          void* EnumRoutineParameter, TIMEDATE* retUntil) {
  return guarded([&]() -> STATUS {
    if (EnumRoutine == nullptr) return ERR_BAD_PARAM;
    if (SearchFlags & SEARCH_FILETYPE) return ERR_NOT_SUPPORTED;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    if (database->access_level < ACL_LEVEL_READER) return ERR_NOACCESS;
    // Later than every modification this process made so far, so that passing
    // it as Since next time reports exactly the changes made after this call.
    const TIMEDATE until = unique_now();
    // With a Since time every version is reported: stubs and unselected notes too.
    const bool all_versions = Since != nullptr || (SearchFlags & SEARCH_ALL_VERSIONS) != 0;
    const bool with_summary = (SearchFlags & SEARCH_SUMMARY) != 0;
    Selection selection(hFormula);
    if (STATUS error = selection.start()) return error;
    ScanOptions options;
    options.since = Since;
    options.include_deleted = Since != nullptr;
    options.with_items = with_summary;
    STATUS status = database->scan(NoteClassMask, options, [&](const NoteRecord& record, std::string_view items) {
      if (record.flags & NOTE_FLAG_GHOST) return STATUS{NOERROR};  // profiles are not searched
      bool selected = !record.deleted;
      if (selected) {
        if (STATUS error = selection.selects(hDB, record.id, &selected)) return error;
      }
      if (!selected && !all_versions) return STATUS{NOERROR};
      SEARCH_MATCH match{};
      match.ID.File = record.unid.File;
      match.ID.Note = record.unid.Note;
      match.ID.NoteID = record.id | (record.deleted ? RRV_DELETED : 0);
      match.OriginatorID = ORIGINATORID{record.unid.File, record.unid.Note, record.sequence, record.sequence_time};
      match.NoteClass = record.note_class | (record.deleted ? NOTE_CLASS_NOTIFYDELETION : 0);
      match.SERetFlags = selected ? SE_FMATCH : SE_FNOMATCH;
      std::string summary;
      if (with_summary && !record.deleted) {
        bool truncated = false;
        summary = summary_buffer(items, (SearchFlags & SEARCH_NOITEMNAMES) == 0, &truncated);
        if (truncated) match.SERetFlags |= SE_FTRUNCATED;
        match.SummaryLength = static_cast<WORD>(summary.size());
      }
      ITEM_TABLE* table = summary.empty() ? nullptr : reinterpret_cast<ITEM_TABLE*>(summary.data());
      return EnumRoutine(EnumRoutineParameter, &match, table);
    });
    if (status == NOERROR && retUntil != nullptr) *retUntil = until;
    return status;
  });
}

}  // extern "C"
