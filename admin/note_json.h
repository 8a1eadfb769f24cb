// A note as the tool shows it: JSON of a stable shape, or plain lines.
//
//   {"noteid": 8414, "unid": "<32 hex digits>", "class": "document",
//    "sequence": 3, "modified": "<ISO 8601>",
//    "items": [{"name": "Form", "type": "text", "flags": ["summary"],
//               "value": "Person"}, ...]}
//
// Item types: "text", "textlist", "number", "numberrange", "time",
// "timerange", else the type word in hex ("0x0008"). Values: text a string,
// text list a list of strings, number a number, time an object
// {"iso": "<ISO 8601>", "raw": [Innards0, Innards1]}; ranges are lists whose
// pairs are two-element lists; other types give their bytes in hex. Items
// come in stored order.
#pragma once

#include "client.h"

#include <string>

#include <nlohmann/json.hpp>

#include "global.h"

namespace tarnwick::admin {

class Note;

nlohmann::ordered_json note_json(const Note& note);
// The same content as lines for people to read.
std::string note_text(const nlohmann::ordered_json& note);

// "document", "form", "view", "icon", ... or the class word in hex.
std::string class_name(WORD note_class);
// "text", "textlist", ... or the type word in hex.
std::string type_name(WORD type);
// A value in its in-memory form (without the type word) as JSON.
nlohmann::ordered_json value_json(WORD type, const char* bytes, size_t size);
nlohmann::ordered_json time_json(const TIMEDATE& value);

}  // namespace tarnwick::admin
