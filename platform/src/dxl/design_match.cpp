// Matching design notes (see design_match.h).
#include "dxl/design_match.h"

#include "dxl/file_resource.h"
#include "nsfnote.h"
#include "store/note.h"

namespace tarnwick::rt::dxl {
namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) text.remove_suffix(1);
  return text;
}

bool has(std::string_view flags, char flag) { return flags.find(flag) != std::string_view::npos; }

}  // namespace

DesignKind design_kind(WORD note_class, std::string_view flags) {
  switch (note_class & NOTE_CLASS_ALLNONDATA & ~NOTE_CLASS_PRIVATE) {
    case NOTE_CLASS_FORM:
      if (has(flags, kFileResourceFlag)) return DesignKind::kFileResource;
      return has(flags, 'U') ? DesignKind::kSubform : DesignKind::kForm;
    case NOTE_CLASS_VIEW:
      return has(flags, 'F') ? DesignKind::kFolder : DesignKind::kView;
    case NOTE_CLASS_FILTER:
      return DesignKind::kAgent;
    case NOTE_CLASS_FIELD:
      return DesignKind::kField;
    default:
      return DesignKind::kOther;
  }
}

std::vector<std::string> title_names(std::string_view title) {
  std::vector<std::string> names;
  while (true) {
    const size_t bar = title.find('|');
    const std::string_view part = trim(title.substr(0, bar));
    if (!part.empty()) names.emplace_back(part);
    if (bar == std::string_view::npos) break;
    title.remove_prefix(bar + 1);
  }
  return names;
}

bool names_overlap(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  for (const auto& x : a) {
    for (const auto& y : b) {
      if (store::names_equal(x, y)) return true;
    }
  }
  return false;
}

}  // namespace tarnwick::rt::dxl
