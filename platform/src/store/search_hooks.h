// Extension point of NSFSearch for selection formulas.
//
// The store does not evaluate formulas. The formula module installs a
// selector (once, before searches with a formula run); NSFSearch then calls
// it for each candidate note with a note handle open on that note. Without a
// selector, a search with a formula fails with ERR_NOT_SUPPORTED.
#pragma once

#include "global.h"

namespace tarnwick::rt::store {

// Sets *selected; a non-zero status ends the search with that status.
using SearchFormulaSelector = STATUS (*)(FORMULAHANDLE formula, NOTEHANDLE note, bool* selected);

void set_search_formula_selector(SearchFormulaSelector selector);
SearchFormulaSelector search_formula_selector();

}  // namespace tarnwick::rt::store
