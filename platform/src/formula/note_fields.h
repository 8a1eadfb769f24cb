// The items of a stored or open note as the evaluator's FieldSource.
//
// NoteFields reads and writes the items of an open note (store::Note): a
// FIELD assignment replaces every item of that name by one summary item
// (one-element values in their simple form: TYPE_TEXT, TYPE_NUMBER,
// TYPE_TIME), keeping the flags of the item it replaces. The caller holds
// the note's mutex for the evaluation.
//
// ItemFields reads a list of items (a note's summary items as a search or a
// view index sees them); assignments stay in memory and deletions are not
// supported (they do nothing).
//
// Items of types the language cannot use (rich text, binary data) read as
// an empty text.
#pragma once

#include <string_view>
#include <vector>

#include "formula/evaluator.h"
#include "store/item_codec.h"
#include "store/note.h"

namespace tarnwick::rt::formula {

class NoteFields : public FieldSource {
 public:
  explicit NoteFields(store::Note& note) : note_(note) {}
  bool get(std::string_view name, Value& out) override;
  bool has(std::string_view name) override;
  STATUS set(std::string_view name, const Value& value) override;
  void remove(std::string_view name) override;

 private:
  store::Note& note_;
};

class ItemFields : public FieldSource {
 public:
  explicit ItemFields(const std::vector<store::Item>& items) : items_(items) {}
  bool get(std::string_view name, Value& out) override;
  bool has(std::string_view name) override;
  STATUS set(std::string_view name, const Value& value) override;
  void remove(std::string_view name) override;

 private:
  const store::Item* find(std::string_view name) const;
  const std::vector<store::Item>& items_;
  MemoryFieldSource assigned_;
};

// The value of an item, for readers outside the evaluator (views).
Value item_value(WORD type, std::string_view bytes);

}  // namespace tarnwick::rt::formula
