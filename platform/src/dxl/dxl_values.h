// Parsing the value syntaxes of DXL attributes and elements. Every parser
// accepts any input and reports a bad one with false; none throws except
// std::bad_alloc.
#pragma once

#include <string>
#include <string_view>

#include "global.h"

namespace tarnwick::rt::dxl {

// "true" / "false" (nothing else).
bool parse_bool(std::string_view text, bool* value);

// A decimal number as C's strtod reads it in the "C" locale ("12", "-1.5",
// "1e3"), surrounding blanks allowed, nothing else; finite values only.
bool parse_number(std::string_view text, NUMBER* value);

// DXL date-time text: "YYYYMMDDTHHMMSS,hh" followed by an optional zone
// "+HH", "-HH", "+HHMM" or "Z" (no zone: GMT); or a date alone
// "YYYYMMDD" (no time part); or a time alone "THHMMSS,hh" (no date part,
// GMT). Hundredths (",hh") may be left out.
bool parse_datetime(std::string_view text, TIMEDATE* value);

// Base64 (RFC 4648 alphabet, '=' padding); whitespace anywhere is skipped.
bool decode_base64(std::string_view text, std::string* bytes);

// A UNID as 32 hexadecimal digits: File high word, File low word, Note high
// word, Note low word (8 digits each, either case).
bool parse_unid(std::string_view text, UNIVERSALNOTEID* unid);

}  // namespace tarnwick::rt::dxl
