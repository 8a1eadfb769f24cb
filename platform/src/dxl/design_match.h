// When two design notes stand for the same design element: the same kind
// (form, subform, file resource, view, folder, agent, ...) and a name or
// alias in common, compared without regard to case. Used by the importer's
// replace options and by DesignReplace.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "global.h"

namespace tarnwick::rt::dxl {

enum class DesignKind { kForm, kSubform, kFileResource, kView, kFolder, kAgent, kField, kOther };

// The kind of a design note from its class and "$Flags".
DesignKind design_kind(WORD note_class, std::string_view flags);

// The name and aliases of a "$TITLE" text ('|'-separated), trimmed.
std::vector<std::string> title_names(std::string_view title);

// Whether the two name lists share a name.
bool names_overlap(const std::vector<std::string>& a, const std::vector<std::string>& b);

}  // namespace tarnwick::rt::dxl
