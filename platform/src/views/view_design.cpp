#include "views/view_design.h"

#include "formula/value.h"

namespace tarnwick::rt::views {

int ViewDesign::first_sorted() const {
  for (size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].sorted) return static_cast<int>(i);
  }
  return -1;
}

ViewDesign read_view_design(const store::Note& view) {
  ViewDesign design;
  design.selection = view.text("$SelectionFormula").value_or(std::string());
  const auto items = view.text_list("$ColumnItems");
  const auto formulas = view.text_list("$ColumnFormulas");
  const auto sorts = view.text_list("$ColumnSorts");
  const auto flags = view.text_list("$ColumnFlags");
  const size_t count = std::max(items.size(), formulas.size());
  auto entry = [](const std::vector<std::string>& list, size_t i) { return i < list.size() ? list[i] : std::string(); };
  for (size_t i = 0; i < count; ++i) {
    ColumnDesign column;
    column.item = entry(items, i);
    column.formula = entry(formulas, i);
    const std::string sort = entry(sorts, i);
    column.sorted = formula::equal_ignoring_case(sort, "ascending") || formula::equal_ignoring_case(sort, "descending");
    column.descending = formula::equal_ignoring_case(sort, "descending");
    const std::string letters = entry(flags, i);
    column.case_sensitive = letters.find_first_of("cC") != std::string::npos;
    column.separate_entries = letters.find_first_of("sS") != std::string::npos;
    design.columns.push_back(std::move(column));
  }
  return design;
}

}  // namespace tarnwick::rt::views
