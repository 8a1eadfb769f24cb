// How a view or folder note keeps its selection and columns, for the view
// index (collections, NIFFindByName) and for the DXL importer that writes
// views.
//
// A view is a note of class NOTE_CLASS_VIEW with "$TITLE" (name|aliases)
// and "$Flags" (design flags; "F" marks a folder). Its design:
//
//   "$FORMULA"             TEXT  selection formula source ("SELECT ...");
//                                absent: every document (folders: none)
//   "$ColumnCount"         NUMBER  number of columns n
// and, for each column i = 0 .. n-1 (i in decimal, "$ColumnItem_0", ...):
//   "$ColumnItem_i"        TEXT  programmatic name: the item shown, or the
//                                name the column's value goes by
//   "$ColumnFormula_i"     TEXT  value formula; absent: the item's value
//   "$ColumnTitle_i"       TEXT  heading (absent when none)
//   "$ColumnSort_i"        TEXT  "ascending" | "descending"; absent: unsorted
//   "$ColumnCase_i"        TEXT  "1": sorting and key lookup respect case;
//                                absent: they ignore it (the platform's default)
//   "$ColumnCategory_i"    TEXT  "1" for a categorized column
//   "$ColumnSeparate_i"    TEXT  "1": a list value gives one entry per
//                                value (each sorted and found on its own)
// A collection is sorted by its sorted columns from the first; a key lookup
// (NIFFindByName) compares against the first sorted column. Formulas are
// source text (LMBCS). None of these items is a summary item.
//
// Thread safety: plain functions over a Note the caller has locked.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "store/note.h"

namespace tarnwick::rt::dxl {

enum class ColumnSort { kNone, kAscending, kDescending };

struct ColumnDesign {
  std::string item_name;
  std::string formula;  // empty: the item's value
  std::string title;
  ColumnSort sort = ColumnSort::kNone;
  bool case_sensitive = false;
  bool categorized = false;
  bool separate_values = false;
};

struct ViewDesign {
  std::string selection_formula;  // empty: none
  std::vector<ColumnDesign> columns;
};

inline constexpr std::string_view kSelectionFormulaItem = "$FORMULA";
inline constexpr std::string_view kColumnCountItem = "$ColumnCount";
inline constexpr std::string_view kColumnItemPrefix = "$ColumnItem_";
inline constexpr std::string_view kColumnFormulaPrefix = "$ColumnFormula_";
inline constexpr std::string_view kColumnTitlePrefix = "$ColumnTitle_";
inline constexpr std::string_view kColumnSortPrefix = "$ColumnSort_";
inline constexpr std::string_view kColumnCasePrefix = "$ColumnCase_";
inline constexpr std::string_view kColumnCategoryPrefix = "$ColumnCategory_";
inline constexpr std::string_view kColumnSeparatePrefix = "$ColumnSeparate_";

// Writes the design into a view note (replacing any design items there).
void write_view_design(store::Note& view, const ViewDesign& design);

// The design of a view note. Missing items read as in the table above; a
// column count beyond the items present stops at the first missing column.
ViewDesign read_view_design(const store::Note& view);

}  // namespace tarnwick::rt::dxl
