// How a form note keeps its fields, for everything that computes documents
// with a form (NSFNoteComputeWithForm) and for the DXL importer that writes
// forms.
//
// A form is a note of class NOTE_CLASS_FORM with "$TITLE" (name|aliases)
// and "$Flags" (design flags; "U" marks a subform). Its fields:
//
//   "$Fields"                  TEXT_LIST  the field names in form order
// and, for each field NAME (the name exactly as in "$Fields"):
//   "$FieldKind_NAME"          TEXT  "editable" | "computed" |
//                                    "computedfordisplay" | "computedwhencomposed"
//   "$FieldType_NAME"          TEXT  "text" | "number" | "datetime" | "names" |
//                                    "authors" | "readers" | "keyword" | "richtext"
//   "$FieldMulti_NAME"         TEXT  "1" when the field allows several values
//   "$FieldDefault_NAME"       TEXT  default-value formula
//   "$FieldFormula_NAME"       TEXT  value formula (computed kinds)
//   "$FieldTranslate_NAME"     TEXT  input-translation formula
//   "$FieldValidate_NAME"      TEXT  input-validation formula
// A formula item is absent when the field has no such formula. Formulas
// are kept as formula source text (LMBCS) and compile with NSFFormulaCompile.
// None of these items is a summary item.
//
// Thread safety: plain functions over a Note the caller has locked.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "store/note.h"

namespace tarnwick::rt::dxl {

enum class FieldKind { kEditable, kComputed, kComputedForDisplay, kComputedWhenComposed };
enum class FieldType { kText, kNumber, kDateTime, kNames, kAuthors, kReaders, kKeyword, kRichText };

struct FieldDesign {
  std::string name;
  FieldKind kind = FieldKind::kEditable;
  FieldType type = FieldType::kText;
  bool multiple_values = false;
  std::string default_formula;    // empty: none
  std::string value_formula;      // empty: none
  std::string translate_formula;  // empty: none
  std::string validate_formula;   // empty: none
};

// Item names used above.
inline constexpr std::string_view kFieldsItem = "$Fields";
inline constexpr std::string_view kFieldKindPrefix = "$FieldKind_";
inline constexpr std::string_view kFieldTypePrefix = "$FieldType_";
inline constexpr std::string_view kFieldMultiPrefix = "$FieldMulti_";
inline constexpr std::string_view kFieldDefaultPrefix = "$FieldDefault_";
inline constexpr std::string_view kFieldFormulaPrefix = "$FieldFormula_";
inline constexpr std::string_view kFieldTranslatePrefix = "$FieldTranslate_";
inline constexpr std::string_view kFieldValidatePrefix = "$FieldValidate_";

// Text forms of kinds and types, and back (false for an unknown word; the
// words compare without regard to case).
std::string_view field_kind_name(FieldKind kind);
std::string_view field_type_name(FieldType type);
bool parse_field_kind(std::string_view word, FieldKind* kind);
bool parse_field_type(std::string_view word, FieldType* type);

// Writes the fields into a form note (replacing any field items there).
void write_form_fields(store::Note& form, const std::vector<FieldDesign>& fields);

// The fields of a form note in form order. A field whose kind or type item
// is missing or unknown reads as editable text.
std::vector<FieldDesign> read_form_fields(const store::Note& form);

}  // namespace tarnwick::rt::dxl
