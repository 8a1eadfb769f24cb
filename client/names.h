// Distinguished names as the tool writes them into documents: canonical
// ("CN=Jane Doe/O=Acme") for hierarchical names, flat names unchanged.
#pragma once

#include <string>

namespace tarnwick::client {

std::string canonical_name(const std::string& utf8_name);
std::string abbreviated_name(const std::string& utf8_name);
// "Jane Doe" of "CN=Jane Doe/O=Acme" (and of "Jane Doe/Acme").
std::string common_name(const std::string& utf8_name);

}  // namespace tarnwick::client
