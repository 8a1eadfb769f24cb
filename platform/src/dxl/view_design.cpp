// View selection and columns as items of the view note (see view_design.h).
#include "dxl/view_design.h"

namespace tarnwick::rt::dxl {
namespace {

constexpr std::string_view kColumnPrefixes[] = {kColumnItemPrefix, kColumnFormulaPrefix, kColumnTitlePrefix,
                                                kColumnSortPrefix, kColumnCasePrefix,    kColumnCategoryPrefix, kColumnSeparatePrefix};

std::string column_item(std::string_view prefix, size_t index) {
  std::string name(prefix);
  name += std::to_string(index);
  return name;
}

void set_or_remove(store::Note& view, const std::string& name, std::string_view text) {
  if (text.empty()) {
    view.remove_all(name);
  } else {
    view.set_text(name, text, 0);
  }
}

}  // namespace

void write_view_design(store::Note& view, const ViewDesign& design) {
  const auto old_count = view.number(kColumnCountItem);
  const size_t old_columns = old_count && *old_count > 0 && *old_count < 10000 ? static_cast<size_t>(*old_count) : 0;
  for (size_t i = 0; i < old_columns; ++i) {
    for (std::string_view prefix : kColumnPrefixes) view.remove_all(column_item(prefix, i));
  }
  set_or_remove(view, std::string(kSelectionFormulaItem), design.selection_formula);
  view.set_number(kColumnCountItem, static_cast<NUMBER>(design.columns.size()), 0);
  for (size_t i = 0; i < design.columns.size(); ++i) {
    const ColumnDesign& column = design.columns[i];
    view.set_text(column_item(kColumnItemPrefix, i), column.item_name, 0);
    set_or_remove(view, column_item(kColumnFormulaPrefix, i), column.formula);
    set_or_remove(view, column_item(kColumnTitlePrefix, i), column.title);
    set_or_remove(view, column_item(kColumnSortPrefix, i),
                  column.sort == ColumnSort::kAscending    ? "ascending"
                  : column.sort == ColumnSort::kDescending ? "descending"
                                                           : "");
    set_or_remove(view, column_item(kColumnCasePrefix, i), column.case_sensitive ? "1" : "");
    set_or_remove(view, column_item(kColumnCategoryPrefix, i), column.categorized ? "1" : "");
    set_or_remove(view, column_item(kColumnSeparatePrefix, i), column.separate_values ? "1" : "");
  }
}

ViewDesign read_view_design(const store::Note& view) {
  ViewDesign design;
  design.selection_formula = view.text(kSelectionFormulaItem).value_or(std::string());
  const auto count = view.number(kColumnCountItem);
  const size_t columns = count && *count > 0 && *count < 10000 ? static_cast<size_t>(*count) : 0;
  for (size_t i = 0; i < columns; ++i) {
    auto item = view.text(column_item(kColumnItemPrefix, i));
    if (!item) break;
    ColumnDesign column;
    column.item_name = std::move(*item);
    column.formula = view.text(column_item(kColumnFormulaPrefix, i)).value_or(std::string());
    column.title = view.text(column_item(kColumnTitlePrefix, i)).value_or(std::string());
    const std::string sort = view.text(column_item(kColumnSortPrefix, i)).value_or(std::string());
    column.sort = store::names_equal(sort, "ascending")    ? ColumnSort::kAscending
                  : store::names_equal(sort, "descending") ? ColumnSort::kDescending
                                                           : ColumnSort::kNone;
    column.case_sensitive = view.text(column_item(kColumnCasePrefix, i)).value_or(std::string()) == "1";
    column.categorized = view.text(column_item(kColumnCategoryPrefix, i)).value_or(std::string()) == "1";
    column.separate_values = view.text(column_item(kColumnSeparatePrefix, i)).value_or(std::string()) == "1";
    design.columns.push_back(std::move(column));
  }
  return design;
}

}  // namespace tarnwick::rt::dxl
