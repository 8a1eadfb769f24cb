// NSFNoteComputeWithForm: the field formulas of a form run on a note.
//
// Two passes over the fields in form order (see nsfnote.h): the load pass
// (computed values, defaults of missing editable fields) and the save pass
// (input translation, input validation, data type check, computed values
// again, computed-for-display items dropped). The note's mutex is held while
// formulas run and items change, and released around the caller's error
// routine, which may use the note through the C API.
#include <algorithm>
#include <cstddef>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "core/memory.h"
#include "dxl/form_design.h"
#include "editods.h"
#include "formula/compiled.h"
#include "formula/evaluator.h"
#include "formula/note_fields.h"
#include "formula/time_support.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfdesign.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/note.h"

namespace tarnwick::rt::forms {
namespace {

using dxl::FieldKind;
using dxl::FieldType;
using formula::Kind;
using formula::Value;
using FieldDefinition = dxl::FieldDesign;

// The item flags a value of a field type carries.
WORD item_flags_for(FieldType type) {
  switch (type) {
    case FieldType::kNames: return ITEM_SUMMARY | ITEM_NAMES;
    case FieldType::kAuthors: return ITEM_SUMMARY | ITEM_NAMES | ITEM_READWRITERS;
    case FieldType::kReaders: return ITEM_SUMMARY | ITEM_NAMES | ITEM_READERS;
    case FieldType::kRichText: return 0;
    default: return ITEM_SUMMARY;
  }
}

// How many times one phase of a field may be repeated on the error
// routine's request before the computation gives up.
constexpr int kMaxRechecks = 4;

// A validation formula that answers @Failure("text").
constexpr STATUS kValidationFailed = ERR_FORMULA_GENERATED;

WORD word_at(const std::string& bytes, size_t at) {
  return static_cast<WORD>(static_cast<unsigned char>(bytes[at]) | (static_cast<unsigned char>(bytes[at + 1]) << 8));
}

// The result of a formula on the note, or the status that stopped it.
STATUS evaluate(store::Note& note, const std::string& text, Value& out) {
  formula::CompileError error;
  auto program = formula::cached_parse(text, error);
  if (!program) return error.status;
  formula::NoteFields fields(note);
  formula::Evaluator evaluator(fields);
  formula::EvalResult result = evaluator.run(*program);
  if (result.status != NOERROR) return result.status;
  if (result.value.kind == Kind::kError) return result.value.error;
  out = std::move(result.value);
  return NOERROR;
}

// Replaces the field's item by a value (@Unavailable deletes it).
STATUS store_value(store::Note& note, const FieldDefinition& field, const Value& value) {
  if (field.type == FieldType::kRichText) return NOERROR;
  if (value.kind == Kind::kUnavailable) {
    note.remove_all(field.name);
    return NOERROR;
  }
  std::string bytes;
  if (STATUS status = formula::encode_value(value, bytes)) return status;
  WORD type = word_at(bytes, 0);
  std::string stored = bytes.substr(sizeof(WORD));
  store::contract_value(&type, &stored);
  note.replace(field.name, item_flags_for(field.type), type, std::move(stored));
  return NOERROR;
}

// The item's value in the field's type: text that reads as a number or a
// time is converted; other mismatches fail with the status of the expected
// type. Missing items and empty texts pass.
STATUS convert_to_field_type(store::Note& note, const FieldDefinition& field) {
  const store::Item* item = note.find(field.name);
  if (item == nullptr || field.type == FieldType::kRichText) return NOERROR;
  const Value value = formula::item_value(item->type, note.value_of(*item));
  const bool wants_number = field.type == FieldType::kNumber;
  const bool wants_time = field.type == FieldType::kDateTime;
  if (!wants_number && !wants_time) return value.kind == Kind::kText ? NOERROR : ERR_TEXT_EXPECTED;
  if (wants_number && value.kind == Kind::kNumber) return NOERROR;
  if (wants_time && value.kind == Kind::kTime) return NOERROR;
  if (value.kind != Kind::kText) return wants_number ? ERR_NUMBER_EXPECTED : ERR_TIME_EXPECTED;
  if (value.is_null()) return NOERROR;
  Value converted = wants_number ? Value::number_list({}) : Value::time_list({});
  for (const auto& text : value.texts) {
    if (wants_number) {
      double n;
      if (!formula::text_to_number(text, n)) return ERR_TONUMBER;
      converted.numbers.push_back(n);
    } else {
      TIMEDATE t;
      if (!formula::time_from_text(text, t)) return ERR_TOTIME;
      converted.times.push_back(t);
    }
  }
  return store_value(note, field, converted);
}

// The CDFIELD record of a field with its formulas and name behind it.
std::string field_record(const FieldDefinition& field) {
  const std::string& value = field.kind == FieldKind::kEditable ? field.default_formula : field.value_formula;
  const std::string dv = value.empty() ? "" : formula::make_compiled(value);
  const std::string it = field.translate_formula.empty() ? "" : formula::make_compiled(field.translate_formula);
  const std::string iv = field.validate_formula.empty() ? "" : formula::make_compiled(field.validate_formula);
  CDFIELD cd{};
  cd.Header.Signature = SIG_CD_FIELD;
  switch (field.kind) {
    case FieldKind::kEditable: cd.Flags = FEDITABLE; break;
    default: cd.Flags = FCOMPUTED; break;
  }
  switch (field.type) {
    case FieldType::kNumber: cd.DataType = TYPE_NUMBER; break;
    case FieldType::kDateTime: cd.DataType = TYPE_TIME; break;
    case FieldType::kRichText: cd.DataType = TYPE_COMPOSITE; break;
    case FieldType::kNames: cd.DataType = TYPE_TEXT, cd.Flags |= FNAMES; break;
    case FieldType::kAuthors: cd.DataType = TYPE_TEXT, cd.Flags |= FNAMES | FREADWRITERS; break;
    case FieldType::kReaders: cd.DataType = TYPE_TEXT, cd.Flags |= FNAMES | FREADERS; break;
    default: cd.DataType = TYPE_TEXT; break;
  }
  cd.DVLength = static_cast<WORD>(dv.size());
  cd.ITLength = static_cast<WORD>(it.size());
  cd.IVLength = static_cast<WORD>(iv.size());
  cd.NameLength = static_cast<WORD>(field.name.size());
  std::string record(reinterpret_cast<const char*>(&cd), sizeof cd);
  record += dv + it + iv + field.name;
  const WORD length = static_cast<WORD>(std::min<size_t>(record.size(), MAXWORD));
  std::memcpy(record.data() + offsetof(CDFIELD, Header) + offsetof(WSIG, Length), &length, sizeof length);
  return record;
}

// [TYPE_TEXT_LIST][1 entry][length][text]: how the error text reaches the
// error routine.
std::string error_text_block(std::string_view text) {
  text = text.substr(0, MAXWORD - 6);
  std::string block;
  for (WORD w : {WORD{TYPE_TEXT_LIST}, WORD{1}, static_cast<WORD>(text.size())}) {
    block.push_back(static_cast<char>(w & 0xFF));
    block.push_back(static_cast<char>(w >> 8));
  }
  block += text;
  return block;
}

enum class Next { kGoOn, kSkipField, kRepeat, kStop };

class Computation {
 public:
  Computation(store::Note& note, DWORD flags, CWF_ERROR_PROC routine, void* context)
      : note_(note), lock_(note.mutex), flags_(flags), routine_(routine), context_(context) {}

  STATUS run(const std::vector<FieldDefinition>& fields) {
    for (const auto& field : fields) {
      if (!load(field)) return failure_;
    }
    for (const auto& field : fields) {
      if (!save(field)) return failure_;
    }
    return NOERROR;
  }

 private:
  // Runs one step of a field; on an error asks what to do next.
  template <class Step>
  Next step(const FieldDefinition& field, WORD phase, Step&& body) {
    std::string message;
    const STATUS status = body(message);
    if (status == NOERROR) return Next::kGoOn;
    last_error_ = status;
    return report(field, phase, status, message);
  }

  // Runs the steps of one field again from the start when the error
  // routine asks for a recheck (a bounded number of times).
  template <class Steps>
  bool field_with_rechecks(Steps&& steps) {
    for (int attempt = 0;; ++attempt) {
      const Next next = steps();
      if (next == Next::kStop) return false;
      if (next != Next::kRepeat) return true;
      if (attempt == kMaxRechecks) {
        failure_ = last_error_;
        return false;
      }
    }
  }

  Next report(const FieldDefinition& field, WORD phase, STATUS status, const std::string& message) {
    if (flags_ & CWF_CONTINUE_ON_ERROR) return Next::kSkipField;
    if (routine_ == nullptr) {
      failure_ = status;
      return Next::kStop;
    }
    const std::string record = field_record(field);
    const std::string text = error_text_block(message.empty() ? field.name : message);
    DHANDLE block = NULLHANDLE;
    if (alloc_block_with(text, &block) != NOERROR) block = NULLHANDLE;
    lock_.unlock();
    const WORD answer = routine_(record.data(), phase, status, block, static_cast<WORD>(text.size()), context_);
    lock_.lock();
    if (block != NULLHANDLE) OSMemFree(block);
    if (answer == CWF_NEXT_FIELD) return Next::kSkipField;
    if (answer == CWF_RECHECK_FIELD) return Next::kRepeat;
    failure_ = status;
    return Next::kStop;
  }

  STATUS compute_into(const FieldDefinition& field, const std::string& text) {
    if (text.empty()) return NOERROR;
    Value value;
    if (STATUS status = evaluate(note_, text, value)) return status;
    return store_value(note_, field, value);
  }

  bool load(const FieldDefinition& field) {
    return field_with_rechecks([&]() -> Next {
      switch (field.kind) {
        case FieldKind::kComputed:
          return step(field, CWF_COMPUTED_FORMULA_LOAD,
                      [&](std::string&) { return compute_into(field, field.value_formula); });
        case FieldKind::kComputedWhenComposed:
          if (note_.has(field.name)) return Next::kGoOn;
          return step(field, CWF_COMPUTED_FORMULA_LOAD,
                      [&](std::string&) { return compute_into(field, field.value_formula); });
        case FieldKind::kEditable:
          if (note_.has(field.name)) return Next::kGoOn;
          return step(field, CWF_DV_FORMULA, [&](std::string&) { return compute_into(field, field.default_formula); });
        case FieldKind::kComputedForDisplay:
          break;
      }
      return Next::kGoOn;
    });
  }

  bool save(const FieldDefinition& field) {
    switch (field.kind) {
      case FieldKind::kComputed:
        return field_with_rechecks([&] {
          return step(field, CWF_COMPUTED_FORMULA_SAVE,
                      [&](std::string&) { return compute_into(field, field.value_formula); });
        });
      case FieldKind::kComputedForDisplay:
        note_.remove_all(field.name);
        return true;
      case FieldKind::kComputedWhenComposed:
        return true;
      case FieldKind::kEditable:
        break;
    }
    // The value in the field's type first, so that translation and
    // validation see numbers and times; again after a translation.
    auto convert = [&](std::string&) { return convert_to_field_type(note_, field); };
    return field_with_rechecks([&]() -> Next {
      Next next = step(field, CWF_DATATYPE_CONVERSION, convert);
      if (next == Next::kGoOn && !field.translate_formula.empty()) {
        next = step(field, CWF_IT_FORMULA,
                    [&](std::string&) { return compute_into(field, field.translate_formula); });
        if (next == Next::kGoOn) next = step(field, CWF_DATATYPE_CONVERSION, convert);
      }
      if (next == Next::kGoOn && !field.validate_formula.empty()) {
        next = step(field, CWF_IV_FORMULA, [&](std::string& message) -> STATUS {
          Value verdict;
          if (STATUS status = evaluate(note_, field.validate_formula, verdict)) return status;
          if (verdict.kind != Kind::kText) return NOERROR;  // @Success
          message = verdict.texts.empty() ? std::string() : verdict.texts.front();
          return kValidationFailed;
        });
      }
      return next;
    });
  }

  store::Note& note_;
  std::unique_lock<std::mutex> lock_;
  DWORD flags_;
  CWF_ERROR_PROC routine_;
  void* context_;
  STATUS failure_ = NOERROR;
  STATUS last_error_ = NOERROR;
};

using Fields = std::shared_ptr<const std::vector<FieldDefinition>>;

// Form designs read from databases, by database file and note ID. A design
// is used again only while its stored note is the same one unchanged: same
// universal ID, sequence, sequence time and modification time (every
// update of a note gives it a later, unique modification time). Bounded:
// a full cache starts again.
class FormDesignCache {
 public:
  static FormDesignCache& instance() {
    static auto* cache = new FormDesignCache;  // never destroyed: any thread may compute late
    return *cache;
  }

  Fields find(const std::string& file, const store::NoteRecord& record) {
    std::lock_guard lock(mutex_);
    const auto found = entries_.find(Key{file, record.id});
    if (found == entries_.end() || !same(found->second.record, record)) return nullptr;
    return found->second.fields;
  }

  void keep(const std::string& file, const store::NoteRecord& record, Fields fields) {
    std::lock_guard lock(mutex_);
    if (entries_.size() >= kMaxEntries) entries_.clear();
    entries_[Key{file, record.id}] = Entry{record, std::move(fields)};
  }

 private:
  static constexpr size_t kMaxEntries = 512;
  using Key = std::pair<std::string, NOTEID>;
  struct Entry {
    store::NoteRecord record;
    Fields fields;
  };

  static bool sameTime(const TIMEDATE& a, const TIMEDATE& b) {
    return a.Innards[0] == b.Innards[0] && a.Innards[1] == b.Innards[1];
  }
  static bool same(const store::NoteRecord& a, const store::NoteRecord& b) {
    return a.note_class == b.note_class && a.sequence == b.sequence && sameTime(a.sequence_time, b.sequence_time) &&
           sameTime(a.modified, b.modified) && sameTime(a.unid.File, b.unid.File) &&
           sameTime(a.unid.Note, b.unid.Note) && !a.deleted && !b.deleted;
  }

  std::mutex mutex_;
  std::map<Key, Entry> entries_;
};

// The fields of the stored form note form_id: from the cache while the note
// is unchanged, else read from the note (and kept).
STATUS stored_form_fields(store::Database& db, NOTEID form_id, Fields& fields) {
  store::NoteRecord record;
  const bool known = db.record_of(form_id, &record) == NOERROR && !record.deleted;
  const std::string file = db.file().string();
  if (known) {
    fields = FormDesignCache::instance().find(file, record);
    if (fields) return NOERROR;
  }
  store::Note form;
  if (STATUS status = db.read_note(form_id, 0, &form)) return status == ERR_INVALID_NOTE ? ERR_NOT_FOUND : status;
  fields = std::make_shared<const std::vector<FieldDefinition>>(dxl::read_form_fields(form));
  // Kept under the record seen before the read: a change in between gives
  // the note a newer record, which the next lookup does not match.
  if (known) FormDesignCache::instance().keep(file, record, fields);
  return NOERROR;
}

// The fields of the form to use: the given form note, else the form the
// note names in "Form", else the database's default form.
STATUS form_fields(store::Note& note, NOTEHANDLE form_handle, Fields& fields) {
  if (form_handle != NULLHANDLE) {
    auto form = store::find_note(form_handle);
    if (!form) return ERR_BAD_PARAM;
    std::lock_guard lock(form->mutex);
    fields = std::make_shared<const std::vector<FieldDefinition>>(dxl::read_form_fields(*form));
    return NOERROR;
  }
  std::string form_name;
  DBHANDLE db_handle = NULLHANDLE;
  std::shared_ptr<store::Database> db;
  {
    std::lock_guard lock(note.mutex);
    form_name = note.text("Form").value_or(std::string());
    db_handle = note.db_handle;
    db = note.db;
  }
  if (!db) return ERR_NOT_FOUND;
  NOTEID form_id = 0;
  if (form_name.empty() || NIFFindDesignNoteExt(db_handle, form_name.c_str(), NOTE_CLASS_FORM, nullptr, &form_id, 0)) {
    if (db->special_note_id(NOTE_CLASS_FORM, &form_id) != NOERROR) return ERR_NOT_FOUND;
  }
  return stored_form_fields(*db, form_id, fields);
}

}  // namespace
}  // namespace tarnwick::rt::forms

extern "C" STATUS LNPUBLIC NSFNoteComputeWithForm(NOTEHANDLE hNote, NOTEHANDLE hFormNote, DWORD dwFlags,
                                                  CWF_ERROR_PROC ErrorRoutine, void* CallersContext) {
  using namespace tarnwick::rt;
  return guarded([&]() -> STATUS {
    auto note = store::find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    forms::Fields fields;
    if (STATUS status = forms::form_fields(*note, hFormNote, fields)) return status;
    forms::Computation computation(*note, dwFlags, ErrorRoutine, CallersContext);
    const formula::SettingsHold settings;
    return computation.run(*fields);
  });
}
