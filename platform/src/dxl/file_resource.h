// How a file resource (an image, an icon, an installer the pages link to)
// is kept in a database: a note of class NOTE_CLASS_FORM whose "$Flags"
// holds kFileResourceFlag, with
//   "$TITLE"     the file name (and aliases, '|'-separated)
//   "$MimeType"  TEXT, the content type ("" when unknown)
//   "$FileSize"  NUMBER, the size in bytes
//   "$FileData"  TYPE_USERDATA: BYTE length of the format name, the format
//                name "binary", then the file's bytes
// None of these but "$TITLE" and "$Flags" is a summary item.
#pragma once

#include <string>
#include <string_view>

#include "global.h"
#include "store/database.h"
#include "store/note.h"

namespace tarnwick::rt::dxl {

inline constexpr char kFileResourceFlag = 'g';
inline constexpr std::string_view kFileDataFormat = "binary";

// Sets the content items of a file resource note ($TITLE and $Flags are the
// caller's).
void write_file_resource(store::Note& note, std::string_view mime_type, std::string_view bytes);

// The bytes and content type of a file resource note; false when the note
// holds no well-formed "$FileData".
bool read_file_resource(const store::Note& note, std::string* bytes, std::string* mime_type);

// Finds the file resource of that name (or alias, without regard to case)
// and reads it: ERR_NOT_FOUND when there is none.
STATUS find_file_resource(store::Database& database, std::string_view name, std::string* bytes,
                          std::string* mime_type);

}  // namespace tarnwick::rt::dxl
