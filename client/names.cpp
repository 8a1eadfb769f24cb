#include "names.h"

#include "dname.h"
#include "failure.h"
#include "lmbcs_text.h"

namespace tarnwick::client {

std::string canonical_name(const std::string& utf8_name) {
  char out[MAXUSERNAME] = {};
  WORD length = 0;
  check(DNCanonicalize(0, nullptr, to_lmbcs(utf8_name).c_str(), out, sizeof out, &length),
        "not a valid name: \"" + utf8_name + "\"");
  return to_utf8(std::string_view(out, length));
}

std::string abbreviated_name(const std::string& utf8_name) {
  char out[MAXUSERNAME] = {};
  WORD length = 0;
  check(DNAbbreviate(0, nullptr, to_lmbcs(utf8_name).c_str(), out, sizeof out, &length),
        "not a valid name: \"" + utf8_name + "\"");
  return to_utf8(std::string_view(out, length));
}

std::string common_name(const std::string& utf8_name) {
  const std::string lmbcs = to_lmbcs(canonical_name(utf8_name));
  DN_COMPONENTS parts{};
  if (DNParse(0, nullptr, lmbcs.c_str(), &parts, sizeof parts) != NOERROR || parts.CNLength == 0) return utf8_name;
  return to_utf8(std::string_view(parts.CN, parts.CNLength));
}

}  // namespace tarnwick::client
