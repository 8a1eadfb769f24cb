// The design of a view as its design note holds it.
//
// A view note (NOTE_CLASS_VIEW, "$TITLE" = "Name|Alias") has:
//   "$SelectionFormula"  formula text selecting the documents
//                        ("SELECT Form = \"Person\""); missing: every document
// and its columns as parallel text lists, one entry per column:
//   "$ColumnItems"       the item a column shows                [none]
//   "$ColumnFormulas"    a formula computing the column instead [none]
//   "$ColumnSorts"       "ascending" | "descending" | ""         [not sorted]
//   "$ColumnFlags"       letters: "c" case-sensitive sorting, "s" a list
//                        value gives one entry per element     [none]
// Sorted columns order the view in column order, case-insensitive unless
// flagged. The DXL importer writes these items; tests write them directly.
#pragma once

#include <string>
#include <vector>

#include "store/note.h"

namespace tarnwick::rt::views {

struct ColumnDesign {
  std::string item;
  std::string formula;
  bool sorted = false;
  bool descending = false;
  bool case_sensitive = false;
  bool separate_entries = false;
};

struct ViewDesign {
  std::string selection;  // empty: every document
  std::vector<ColumnDesign> columns;
  // Index of the first sorted column, or -1.
  int first_sorted() const;
};

ViewDesign read_view_design(const store::Note& view);

}  // namespace tarnwick::rt::views
