// Form fields as items of the form note (see form_design.h).
#include "dxl/form_design.h"

#include <array>

namespace tarnwick::rt::dxl {
namespace {

constexpr std::array<std::string_view, 4> kKindNames = {"editable", "computed", "computedfordisplay",
                                                        "computedwhencomposed"};
constexpr std::array<std::string_view, 8> kTypeNames = {"text",    "number",  "datetime", "names",
                                                        "authors", "readers", "keyword",  "richtext"};

std::string item_name(std::string_view prefix, std::string_view field) {
  std::string name(prefix);
  name += field;
  return name;
}

void set_optional(store::Note& form, std::string_view prefix, std::string_view field, const std::string& text) {
  if (text.empty()) {
    form.remove_all(item_name(prefix, field));
  } else {
    form.set_text(item_name(prefix, field), text, 0);
  }
}

std::string text_or_empty(const store::Note& form, std::string_view prefix, std::string_view field) {
  return form.text(item_name(prefix, field)).value_or(std::string());
}

}  // namespace

std::string_view field_kind_name(FieldKind kind) { return kKindNames[static_cast<size_t>(kind)]; }
std::string_view field_type_name(FieldType type) { return kTypeNames[static_cast<size_t>(type)]; }

bool parse_field_kind(std::string_view word, FieldKind* kind) {
  for (size_t i = 0; i < kKindNames.size(); ++i) {
    if (store::names_equal(word, kKindNames[i])) {
      *kind = static_cast<FieldKind>(i);
      return true;
    }
  }
  return false;
}

bool parse_field_type(std::string_view word, FieldType* type) {
  for (size_t i = 0; i < kTypeNames.size(); ++i) {
    if (store::names_equal(word, kTypeNames[i])) {
      *type = static_cast<FieldType>(i);
      return true;
    }
  }
  return false;
}

void write_form_fields(store::Note& form, const std::vector<FieldDesign>& fields) {
  for (const std::string& old : form.text_list(kFieldsItem)) {
    for (std::string_view prefix : {kFieldKindPrefix, kFieldTypePrefix, kFieldMultiPrefix, kFieldDefaultPrefix,
                                    kFieldFormulaPrefix, kFieldTranslatePrefix, kFieldValidatePrefix}) {
      form.remove_all(item_name(prefix, old));
    }
  }
  std::vector<std::string_view> names;
  names.reserve(fields.size());
  for (const FieldDesign& field : fields) names.push_back(field.name);
  form.set_text_list(kFieldsItem, names, 0);
  for (const FieldDesign& field : fields) {
    form.set_text(item_name(kFieldKindPrefix, field.name), field_kind_name(field.kind), 0);
    form.set_text(item_name(kFieldTypePrefix, field.name), field_type_name(field.type), 0);
    set_optional(form, kFieldMultiPrefix, field.name, field.multiple_values ? "1" : "");
    set_optional(form, kFieldDefaultPrefix, field.name, field.default_formula);
    set_optional(form, kFieldFormulaPrefix, field.name, field.value_formula);
    set_optional(form, kFieldTranslatePrefix, field.name, field.translate_formula);
    set_optional(form, kFieldValidatePrefix, field.name, field.validate_formula);
  }
}

std::vector<FieldDesign> read_form_fields(const store::Note& form) {
  std::vector<FieldDesign> fields;
  for (std::string& name : form.text_list(kFieldsItem)) {
    FieldDesign field;
    if (!parse_field_kind(text_or_empty(form, kFieldKindPrefix, name), &field.kind)) field.kind = FieldKind::kEditable;
    if (!parse_field_type(text_or_empty(form, kFieldTypePrefix, name), &field.type)) field.type = FieldType::kText;
    field.multiple_values = text_or_empty(form, kFieldMultiPrefix, name) == "1";
    field.default_formula = text_or_empty(form, kFieldDefaultPrefix, name);
    field.value_formula = text_or_empty(form, kFieldFormulaPrefix, name);
    field.translate_formula = text_or_empty(form, kFieldTranslatePrefix, name);
    field.validate_formula = text_or_empty(form, kFieldValidatePrefix, name);
    field.name = std::move(name);
    fields.push_back(std::move(field));
  }
  return fields;
}

}  // namespace tarnwick::rt::dxl
