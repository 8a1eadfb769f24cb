// The templates a server gets from the designs we ship (the DXL files of the
// source tree's design/ folder): mail.ntf from mail.xml, OOO.ntf and
// OOOEx.ntf from OOO.xml (told apart by their template names), names.ntf
// from names.xml; and OOO.xml itself, which the task's design refresh reads
// from the data directory.
#pragma once

#include "client.h"

#include <filesystem>
#include <string>
#include <vector>

namespace tarnwick::admin {

// The design folder this build was made from (where a fresh clone keeps it).
std::filesystem::path default_design_directory();

// Fails, naming the file, unless the folder holds every shipped design.
void check_design_directory(const std::filesystem::path& design_directory);

// Builds the templates into the running data directory and copies OOO.xml
// there. With `replace`, templates that exist are rebuilt; otherwise an
// existing one is a Failure. Returns one line per file made.
std::vector<std::string> install_shipped_templates(const std::filesystem::path& design_directory, bool replace);

// Makes `path` from the template: its design and ACL, the template's
// information string with the template name turned into the name the new
// database inherits its design from.
void create_from_template(const std::string& template_file, const std::string& path);

}  // namespace tarnwick::admin
