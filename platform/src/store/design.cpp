// Design lookup (nsfdesign.h) and special notes (NSFDbGetSpecialNoteID).
#include <cstring>
#include <string_view>

#include "globerr.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/database.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

std::string_view trim(std::string_view text) {
  while (!text.empty() && text.front() == ' ') text.remove_prefix(1);
  while (!text.empty() && text.back() == ' ') text.remove_suffix(1);
  return text;
}

// The name or one of the '|'-separated aliases of the title equals `name`.
bool title_matches(std::string_view title, std::string_view name) {
  if (names_equal(trim(title), name)) return true;
  while (!title.empty()) {
    const size_t bar = title.find('|');
    if (names_equal(trim(title.substr(0, bar)), name)) return true;
    if (bar == std::string_view::npos) break;
    title.remove_prefix(bar + 1);
  }
  return false;
}

bool has_flag(std::string_view flags, char flag) { return flags.find(flag) != std::string_view::npos; }

// One test of a pattern: kind '+', '-' or '*' over the letters.
bool test_holds(char kind, std::string_view letters, std::string_view flags) {
  if (letters.empty()) return true;
  switch (kind) {
    case '-':
      for (char letter : letters) {
        if (has_flag(flags, letter)) return false;
      }
      return true;
    case '*':
      for (char letter : letters) {
        if (!has_flag(flags, letter)) return false;
      }
      return true;
    default:  // '+'
      for (char letter : letters) {
        if (has_flag(flags, letter)) return true;
      }
      return false;
  }
}

bool flags_match(std::string_view flags, std::string_view pattern) {
  if (pattern.empty()) return true;
  if (pattern.front() != '(') {
    const char kind = pattern.front();
    if (kind == '+' || kind == '-' || kind == '*') return test_holds(kind, pattern.substr(1), flags);
    return test_holds('+', pattern, flags);
  }
  // "(+ab-cd*ef": each part runs from its sign to the next sign.
  pattern.remove_prefix(1);
  while (!pattern.empty()) {
    const char kind = pattern.front();
    pattern.remove_prefix(1);
    size_t end = 0;
    while (end < pattern.size() && pattern[end] != '+' && pattern[end] != '-' && pattern[end] != '*') ++end;
    if (!test_holds(kind, pattern.substr(0, end), flags)) return false;
    pattern.remove_prefix(end);
  }
  return true;
}

}  // namespace

extern "C" {

BOOL LNPUBLIC DesignFlagsMatch(const char* Flags, const char* Pattern) {
  return flags_match(Flags ? Flags : "", Pattern ? Pattern : "") ? TRUE : FALSE;
}

STATUS LNPUBLIC NIFFindDesignNoteExt(DBHANDLE hFile, const char* Name, WORD Class, const char* pszFlagsPattern,
                                     NOTEID* retNoteID, DWORD /*Options*/) {
  return guarded([&]() -> STATUS {
    if (Name == nullptr || retNoteID == nullptr) return ERR_BAD_PARAM;
    *retNoteID = 0;
    auto database = find_database(hFile);
    if (!database) return ERR_DB_NOT_OPEN;
    const std::string_view name = trim(Name);
    const std::string_view pattern = pszFlagsPattern ? pszFlagsPattern : "";
    const WORD mask = (Class & NOTE_CLASS_ALL) == 0 ? NOTE_CLASS_ALLNONDATA : (Class & NOTE_CLASS_ALL);
    NOTEID found = 0;
    STATUS status = database->design_notes(mask, [&](NOTEID id, WORD, std::string_view title, std::string_view flags) {
      if (!title_matches(title, name) || !flags_match(flags, pattern)) return STATUS{NOERROR};
      found = id;
      return STATUS{ERR_NO_MORE_MATCHES};  // the first (lowest ID) match ends the walk
    });
    if (status != NOERROR && status != ERR_NO_MORE_MATCHES) return status;
    if (found == 0) return ERR_NOT_FOUND;
    *retNoteID = found;
    return NOERROR;
  });
}

STATUS LNPUBLIC NIFFindDesignNote(DBHANDLE hFile, const char* Name, WORD Class, NOTEID* retNoteID) {
  return NIFFindDesignNoteExt(hFile, Name, Class, nullptr, retNoteID, 0);
}

STATUS LNPUBLIC NSFDbGetSpecialNoteID(DBHANDLE hDB, WORD Index, NOTEID* retNoteID) {
  return guarded([&]() -> STATUS {
    if (retNoteID == nullptr) return ERR_BAD_PARAM;
    *retNoteID = 0;
    auto database = find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    if ((Index & SPECIAL_ID_NOTE) == 0) return ERR_SPECIAL_ID;
    return database->special_note_id(static_cast<WORD>(Index & ~SPECIAL_ID_NOTE), retNoteID);
  });
}

}  // extern "C"
