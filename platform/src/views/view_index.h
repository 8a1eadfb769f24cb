// The index of a view: its entries in collation order, kept in memory per
// process and brought up to date from the notes changed since the last
// update, never by reading the whole database again.
//
// The view's design is read from its design note (dxl/view_design.h).
// Categorized columns are sorted like others; the collection stays flat.
// An index belongs to one view note of one database file and is shared
// (index_of) by every collection and directory lookup on that view. It is
// rebuilt from scratch only when the view's design note changes. Each entry
// keeps the summary items of its note, so lookups can answer item values
// without opening notes.
//
// Thread safety: an index is guarded by its mutex; refresh() takes it, and
// readers hold it (lock()) while they look at entries().
#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "formula/syntax.h"
#include "formula/value.h"
#include "dxl/view_design.h"
#include "global.h"
#include "store/database.h"
#include "store/item_codec.h"

namespace tarnwick::rt::views {

struct Entry {
  NOTEID id = 0;
  WORD note_class = 0;
  UNIVERSALNOTEID unid{};
  std::vector<formula::Value> columns;  // one value per column of the view
  std::shared_ptr<const std::vector<store::Item>> summary;  // the note's summary items
};

class ViewIndex {
 public:
  ViewIndex(dxl::ViewDesign design, std::string design_stamp);

  // Applies the notes of `db` changed since the last refresh (all notes the
  // first time).
  STATUS refresh(store::Database& db);

  std::unique_lock<std::mutex> lock() { return std::unique_lock<std::mutex>(mutex_); }
  // REQUIRES: lock() held.
  const std::vector<Entry>& entries() const { return entries_; }
  const dxl::ViewDesign& design() const { return design_; }
  // Index of the first sorted column, or -1.
  int first_sorted() const;
  // Identifies the version of the view note the index was built for.
  const std::string& design_stamp() const { return design_stamp_; }

  // The entries whose first sorted column equals `key` (or begins with it
  // when `partial`), as [first, last) positions (0-based); first == last
  // when none. REQUIRES: lock() held.
  std::pair<size_t, size_t> find(std::string_view key, bool case_insensitive, bool partial) const;

 private:
  // Adds the entries of a document the selection accepts.
  STATUS apply(const store::NoteRecord& record, std::shared_ptr<const std::vector<store::Item>> summary,
               std::vector<Entry>& added);
  bool less(const Entry& a, const Entry& b) const;

  std::mutex mutex_;
  dxl::ViewDesign design_;
  std::string design_stamp_;
  std::shared_ptr<const formula::Program> selection_;
  std::vector<std::shared_ptr<const formula::Program>> column_formulas_;
  std::vector<Entry> entries_;  // sorted by less()
  std::unordered_map<NOTEID, DWORD> sequences_;  // every document read, selected or not
  bool built_ = false;
  TIMEDATE since_{};
};

// The index of the view note `view_id` of the database, created on first
// use and refreshed before it is returned.
STATUS index_of(store::Database& db, NOTEID view_id, std::shared_ptr<ViewIndex>& out);

// Order of two column values: texts by the collation of the formula
// language (case-insensitive unless asked), numbers and times by value;
// an empty value first.
int compare_values(const formula::Value& a, const formula::Value& b, bool case_sensitive);

}  // namespace tarnwick::rt::views
