#include "forms/form_design.h"

#include <string_view>

#include "formula/value.h"
#include "nsfdata.h"

namespace tarnwick::rt::forms {
namespace {

std::string entry(const std::vector<std::string>& list, size_t index) {
  return index < list.size() ? list[index] : std::string();
}

FieldKind kind_from(std::string_view text) {
  using formula::equal_ignoring_case;
  if (equal_ignoring_case(text, "computed")) return FieldKind::kComputed;
  if (equal_ignoring_case(text, "computedfordisplay")) return FieldKind::kComputedForDisplay;
  if (equal_ignoring_case(text, "computedwhencomposed")) return FieldKind::kComputedWhenComposed;
  return FieldKind::kEditable;
}

FieldType type_from(std::string_view text) {
  using formula::equal_ignoring_case;
  if (equal_ignoring_case(text, "number")) return FieldType::kNumber;
  if (equal_ignoring_case(text, "datetime")) return FieldType::kDateTime;
  if (equal_ignoring_case(text, "names")) return FieldType::kNames;
  if (equal_ignoring_case(text, "authors")) return FieldType::kAuthors;
  if (equal_ignoring_case(text, "readers")) return FieldType::kReaders;
  if (equal_ignoring_case(text, "richtext")) return FieldType::kRichText;
  return FieldType::kText;
}

}  // namespace

std::vector<FieldDefinition> read_form_fields(const store::Note& form) {
  const std::vector<std::string> names = form.text_list("$Fields");
  const std::vector<std::string> kinds = form.text_list("$FieldKinds");
  const std::vector<std::string> types = form.text_list("$FieldTypes");
  const std::vector<std::string> defaults = form.text_list("$FieldDefaults");
  const std::vector<std::string> translations = form.text_list("$FieldTranslations");
  const std::vector<std::string> validations = form.text_list("$FieldValidations");
  std::vector<FieldDefinition> fields;
  fields.reserve(names.size());
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i].empty()) continue;
    FieldDefinition field;
    field.name = names[i];
    field.kind = kind_from(entry(kinds, i));
    field.type = type_from(entry(types, i));
    field.default_formula = entry(defaults, i);
    field.translation_formula = entry(translations, i);
    field.validation_formula = entry(validations, i);
    fields.push_back(std::move(field));
  }
  return fields;
}

WORD item_flags_for(FieldType type) {
  switch (type) {
    case FieldType::kNames: return ITEM_SUMMARY | ITEM_NAMES;
    case FieldType::kAuthors: return ITEM_SUMMARY | ITEM_NAMES | ITEM_READWRITERS;
    case FieldType::kReaders: return ITEM_SUMMARY | ITEM_NAMES | ITEM_READERS;
    case FieldType::kRichText: return 0;
    default: return ITEM_SUMMARY;
  }
}

}  // namespace tarnwick::rt::forms
