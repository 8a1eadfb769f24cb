#include "views/view_index.h"

#include <algorithm>
#include <map>

#include "formula/compiled.h"
#include "formula/evaluator.h"
#include "formula/note_fields.h"
#include "globerr.h"
#include "nsfnote.h"
#include "ostime.h"

namespace tarnwick::rt::views {
namespace {

using formula::Kind;
using formula::Value;


std::shared_ptr<const formula::Program> parse_or_null(const std::string& text) {
  if (text.empty()) return nullptr;
  formula::CompileError error;
  return formula::cached_parse(text, error);
}

int kind_rank(const Value& v) {
  if (v.size() == 0) return 0;
  switch (v.kind) {
    case Kind::kNumber: return 1;
    case Kind::kTime: return 2;
    case Kind::kText: return 3;
    default: return 0;
  }
}

}  // namespace

int compare_values(const Value& a, const Value& b, bool case_sensitive) {
  const int ra = kind_rank(a), rb = kind_rank(b);
  if (ra != rb) return ra < rb ? -1 : 1;
  switch (ra) {
    case 1: return a.numbers[0] < b.numbers[0] ? -1 : (a.numbers[0] > b.numbers[0] ? 1 : 0);
    case 2: return formula::compare_times(a.times[0], b.times[0]);
    case 3: return formula::collate(a.texts[0], b.texts[0], case_sensitive);
    default: return 0;
  }
}

ViewIndex::ViewIndex(dxl::ViewDesign design, std::string design_stamp)
    : design_(std::move(design)), design_stamp_(std::move(design_stamp)) {
  selection_ = parse_or_null(design_.selection_formula);
  for (const auto& column : design_.columns) column_formulas_.push_back(parse_or_null(column.formula));
}

int ViewIndex::first_sorted() const {
  for (size_t i = 0; i < design_.columns.size(); ++i) {
    if (design_.columns[i].sort != dxl::ColumnSort::kNone) return static_cast<int>(i);
  }
  return -1;
}

bool ViewIndex::less(const Entry& a, const Entry& b) const {
  for (size_t i = 0; i < design_.columns.size(); ++i) {
    const dxl::ColumnDesign& column = design_.columns[i];
    if (column.sort == dxl::ColumnSort::kNone) continue;
    int c = compare_values(a.columns[i], b.columns[i], column.case_sensitive);
    if (column.sort == dxl::ColumnSort::kDescending) c = -c;
    if (c != 0) return c < 0;
  }
  return a.id < b.id;
}

STATUS ViewIndex::apply(const store::NoteRecord& record, std::shared_ptr<const std::vector<store::Item>> summary,
                        std::vector<Entry>& added) {
  if (!design_.selection_formula.empty()) {
    if (!selection_) return NOERROR;  // a selection that does not compile selects nothing
    formula::ItemFields fields(*summary);
    formula::Evaluator evaluator(fields);
    const formula::EvalResult result = evaluator.run(*selection_);
    if (result.status != NOERROR || !result.matches) return NOERROR;
  }
  Entry entry;
  entry.id = record.id;
  entry.note_class = record.note_class;
  entry.unid = record.unid;
  entry.summary = summary;
  int split_column = -1;
  for (size_t i = 0; i < design_.columns.size(); ++i) {
    const dxl::ColumnDesign& column = design_.columns[i];
    formula::ItemFields fields(*summary);
    Value value = Value::text("");
    if (column_formulas_[i]) {
      formula::Evaluator evaluator(fields);
      formula::EvalResult result = evaluator.run(*column_formulas_[i]);
      if (result.status == NOERROR && !result.value.is_error()) value = std::move(result.value);
    } else if (!column.item_name.empty()) {
      fields.get(column.item_name, value);
    }
    if (split_column < 0 && column.sort != dxl::ColumnSort::kNone && column.separate_values && value.size() > 1) {
      split_column = static_cast<int>(i);
    }
    entry.columns.push_back(std::move(value));
  }
  if (split_column < 0) {
    added.push_back(std::move(entry));
    return NOERROR;
  }
  const Value& list = entry.columns[static_cast<size_t>(split_column)];
  for (size_t element = 0; element < list.size(); ++element) {
    Entry one = entry;
    Value single = list;
    switch (list.kind) {
      case Kind::kText: single.texts = {list.texts[element]}; break;
      case Kind::kNumber: single.numbers = {list.numbers[element]}; break;
      case Kind::kTime: single.times = {list.times[element]}; break;
      default: break;
    }
    one.columns[static_cast<size_t>(split_column)] = std::move(single);
    added.push_back(std::move(one));
  }
  return NOERROR;
}

STATUS ViewIndex::refresh(store::Database& db) {
  std::lock_guard guard(mutex_);
  std::vector<Entry> added;
  std::unordered_set<NOTEID> removed;
  TIMEDATE latest = since_;
  bool any = false;
  const auto is_document = [](const store::NoteRecord& record) {
    return !record.deleted && !(record.flags & NOTE_FLAG_GHOST) && record.note_class == NOTE_CLASS_DOCUMENT;
  };
  const auto note_seen = [&](const store::NoteRecord& record) {
    if (!any || TimeDateCompare(&record.modified, &latest) > 0) latest = record.modified;
    any = true;
  };
  STATUS status = NOERROR;
  if (!built_) {
    // The first time: every document with its items in one pass.
    store::ScanOptions options;
    options.with_items = true;
    status = db.scan(NOTE_CLASS_DOCUMENT, options, [&](const store::NoteRecord& record, std::string_view items) {
      note_seen(record);
      if (!is_document(record)) return STATUS{NOERROR};
      auto summary = std::make_shared<std::vector<store::Item>>();
      if (store::decode_items(items, true, summary.get()) != NOERROR) return STATUS{NOERROR};
      sequences_[record.id] = record.sequence;
      return apply(record, std::move(summary), added);
    });
  } else {
    // Afterwards: the notes changed since, read again only when their
    // sequence moved.
    store::ScanOptions options;
    options.include_deleted = true;
    options.since = &since_;
    std::vector<store::NoteRecord> changed;
    status = db.scan(NOTE_CLASS_DOCUMENT, options, [&](const store::NoteRecord& record, std::string_view) {
      note_seen(record);
      const auto known = sequences_.find(record.id);
      if (!is_document(record)) {
        if (known != sequences_.end()) {
          removed.insert(record.id);
          sequences_.erase(known);
        }
      } else if (known == sequences_.end() || known->second != record.sequence) {
        changed.push_back(record);
      }
      return STATUS{NOERROR};
    });
    for (const auto& record : changed) {
      if (status != NOERROR) break;
      store::Note note;
      const STATUS read = db.read_note(record.id, OPEN_SUMMARY, &note);
      removed.insert(record.id);
      if (read == ERR_INVALID_NOTE || read == ERR_NOTE_DELETED) {
        sequences_.erase(record.id);
        continue;
      }
      if (read != NOERROR) {
        status = read;
        break;
      }
      sequences_[record.id] = record.sequence;
      status = apply(record, std::make_shared<std::vector<store::Item>>(std::move(note.items)), added);
    }
  }
  if (status != NOERROR) return status;
  if (!removed.empty()) {
    std::erase_if(entries_, [&](const Entry& e) { return removed.count(e.id) != 0; });
  }
  if (!added.empty()) {
    const auto order = [this](const Entry& a, const Entry& b) { return less(a, b); };
    std::sort(added.begin(), added.end(), order);
    if (entries_.empty()) {
      entries_ = std::move(added);
    } else {
      std::vector<Entry> merged;
      merged.reserve(entries_.size() + added.size());
      std::merge(std::make_move_iterator(entries_.begin()), std::make_move_iterator(entries_.end()),
                 std::make_move_iterator(added.begin()), std::make_move_iterator(added.end()),
                 std::back_inserter(merged), order);
      entries_ = std::move(merged);
    }
  }
  // The store stamps changes in the order of their commits, later than
  // every stamp stored before: the next refresh starts after the latest
  // change seen here and misses none.
  if (any) since_ = latest;
  built_ = true;
  return NOERROR;
}

std::pair<size_t, size_t> ViewIndex::find(std::string_view key, bool case_insensitive, bool partial) const {
  const int sorted = first_sorted();
  if (sorted < 0) return {0, 0};
  const auto column = static_cast<size_t>(sorted);
  const int direction = design_.columns[column].sort == dxl::ColumnSort::kDescending ? -1 : 1;
  // Where an entry lies relative to the key in the index's order.
  const auto place = [&](const Entry& e) {
    const Value& v = e.columns[column];
    if (v.kind != Kind::kText || v.size() == 0) return -direction;  // non-text values sort before texts
    std::string_view text = v.texts[0];
    if (partial) text = text.substr(0, key.size());
    return direction * formula::collate(text, key, false);
  };
  const auto first = std::partition_point(entries_.begin(), entries_.end(), [&](const Entry& e) { return place(e) < 0; });
  const auto last = std::partition_point(first, entries_.end(), [&](const Entry& e) { return place(e) == 0; });
  size_t begin = static_cast<size_t>(first - entries_.begin());
  size_t end = static_cast<size_t>(last - entries_.begin());
  if (!case_insensitive) {
    const auto exact = [&](size_t i) {
      std::string_view text = entries_[i].columns[column].texts[0];
      if (partial) text = text.substr(0, key.size());
      return text == key;
    };
    while (begin < end && !exact(begin)) ++begin;
    while (end > begin && !exact(end - 1)) --end;
  }
  return {begin, end};
}

STATUS index_of(store::Database& db, NOTEID view_id, std::shared_ptr<ViewIndex>& out) {
  static std::mutex registry_mutex;
  static auto* registry = new std::map<std::string, std::shared_ptr<ViewIndex>>;  // lives as long as the process
  store::NoteRecord record;
  if (STATUS status = db.record_of(view_id, &record)) return status;
  if (record.deleted) return ERR_NOTE_DELETED;
  if ((record.note_class & NOTE_CLASS_VIEW) == 0) return ERR_NOT_FOUND;
  int64_t database_id = 0;
  if (STATUS status = db.meta_int("database_id", &database_id)) return status;
  const std::string key = db.file().string() + "#" + std::to_string(database_id) + "#" + std::to_string(view_id);
  // A database made again under the same name has view notes of other times.
  const std::string stamp = std::to_string(record.sequence) + ":" + std::to_string(record.modified.Innards[0]) + ":" +
                            std::to_string(record.modified.Innards[1]);
  std::shared_ptr<ViewIndex> index;
  {
    std::lock_guard lock(registry_mutex);
    auto it = registry->find(key);
    if (it != registry->end() && it->second->design_stamp() == stamp) index = it->second;
  }
  if (!index) {
    store::Note view;
    if (STATUS status = db.read_note(view_id, 0, &view)) return status;
    index = std::make_shared<ViewIndex>(dxl::read_view_design(view), stamp);
    std::lock_guard lock(registry_mutex);
    (*registry)[key] = index;
  }
  if (STATUS status = index->refresh(db)) return status;
  out = std::move(index);
  return NOERROR;
}

}  // namespace tarnwick::rt::views
