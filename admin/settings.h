// The per-server settings documents of the application database OOO.nsf, as
// an administrator reads and edits them: one document per server, found
// through the view "(Setup Doc)" by the server's name without regard to
// case. The task reads its own server's document at every request and fills
// in the defaults of settings that are missing or empty, so an edit here
// takes effect with the next request.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "handles.h"

namespace tarnwick::admin {

// The settings an administrator may set, in the order `settings show`
// prints them.
extern const std::vector<std::string> kSettingItems;

// "OOO.nsf" below the folder that notes.ini's OOODirectory names.
std::string application_database_path();

// The settings document of server (any name form), if there is one. Failure
// when the database has no "(Setup Doc)" view.
std::optional<Note> find_settings(const Database& db, const std::string& server);

// A new, unsaved settings document for server with its form, its server
// name and its editors ("LocalDomainServers", "[SysAdmin]").
Note create_settings(const Database& db, const std::string& server);

// "useSSL" of "usessl": the item's spelling in kSettingItems; UsageError for
// a name that is no setting.
std::string setting_item(const std::string& name);

// Sets each item to its value (UTF-8); an empty value removes the item, so
// the task fills in its default. Saves the document.
void set_settings(Note& settings, const std::vector<std::pair<std::string, std::string>>& values);

}  // namespace tarnwick::admin
