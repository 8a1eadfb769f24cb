// Text at the tool's edges: the command line and the output are UTF-8, the
// runtime's items and names are LMBCS.
#pragma once

#include <string>
#include <string_view>

namespace tarnwick::client {

std::string to_lmbcs(std::string_view utf8);
std::string to_utf8(std::string_view lmbcs);

}  // namespace tarnwick::client
