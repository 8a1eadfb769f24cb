// The fields of a form design note, as NSFNoteComputeWithForm uses them.
//
// A form note (NOTE_CLASS_FORM, "$TITLE" = "Name|Alias") lists its fields in
// parallel text lists, one entry per field in form order:
//   "$Fields"             field (item) names
//   "$FieldKinds"         "editable" | "computed" | "computedfordisplay" |
//                         "computedwhencomposed"            [editable]
//   "$FieldTypes"         "text" | "number" | "datetime" | "names" |
//                         "authors" | "readers" | "richtext"  [text]
//   "$FieldDefaults"      default value formula; for the computed kinds the
//                         value formula                     [none]
//   "$FieldTranslations"  input translation formula         [none]
//   "$FieldValidations"   input validation formula          [none]
// Formulas are formula text; an empty entry, or a list shorter than
// "$Fields", means the default in brackets. Kinds and types match without
// case. The DXL importer writes these items; tests write them directly.
#pragma once

#include <string>
#include <vector>

#include "global.h"
#include "store/note.h"

namespace tarnwick::rt::forms {

enum class FieldKind { kEditable, kComputed, kComputedForDisplay, kComputedWhenComposed };
enum class FieldType { kText, kNumber, kDateTime, kNames, kAuthors, kReaders, kRichText };

struct FieldDefinition {
  std::string name;
  FieldKind kind = FieldKind::kEditable;
  FieldType type = FieldType::kText;
  std::string default_formula;  // value formula of computed kinds
  std::string translation_formula;
  std::string validation_formula;
};

// The fields of a form note, in form order. Unknown kinds or types read as
// the defaults.
std::vector<FieldDefinition> read_form_fields(const store::Note& form);

// The item flags a value of this field type carries (names, readers,
// authors), ITEM_SUMMARY included.
WORD item_flags_for(FieldType type);

}  // namespace tarnwick::rt::forms
