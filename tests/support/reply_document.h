// The reply document of a query or set as a test reads it: the User
// element's attribute names in written order, their values (entities
// resolved) and the element's text.
#pragma once

#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace tarnwick::testing {

// The reply document as attribute names in written order, their values
// (entities resolved) and the User element's text.
struct Reply {
  std::vector<std::string> order;  // as written in the file
  std::map<std::string, std::string> values;
  std::string user;
  bool has(const std::string& name) const { return values.count(name) != 0; }
  std::string operator[](const std::string& name) const {
    auto found = values.find(name);
    return found == values.end() ? "<missing>" : found->second;
  }
};

inline std::string unescape(std::string text) {
  const std::pair<const char*, const char*> entities[] = {{"&#10;", "\n"}, {"&#xA;", "\n"}, {"&quot;", "\""},
                                                          {"&lt;", "<"},   {"&gt;", ">"},   {"&amp;", "&"}};
  for (const auto& [entity, plain] : entities) {
    for (size_t at = text.find(entity); at != std::string::npos; at = text.find(entity, at + 1)) {
      text.replace(at, std::strlen(entity), plain);
    }
  }
  return text;
}

inline Reply parseReply(const std::string& xml) {
  Reply reply;
  const size_t open = xml.find("<User ");
  const size_t close = xml.find('>', open);
  if (open == std::string::npos || close == std::string::npos) return reply;
  const std::string attributes = xml.substr(open + 6, close - open - 6);
  // name="value" pairs separated by blanks.
  for (size_t at = 0;;) {
    const size_t equals = attributes.find("=\"", at);
    if (equals == std::string::npos) break;
    const size_t nameStart = attributes.find_last_of(' ', equals);
    const std::string name = attributes.substr(nameStart == std::string::npos ? 0 : nameStart + 1,
                                               equals - (nameStart == std::string::npos ? 0 : nameStart + 1));
    const size_t valueEnd = attributes.find('"', equals + 2);
    reply.order.push_back(name);
    reply.values[name] = unescape(attributes.substr(equals + 2, valueEnd - equals - 2));
    at = valueEnd + 1;
  }
  const size_t userEnd = xml.find("</User>", close);
  if (userEnd != std::string::npos) reply.user = unescape(xml.substr(close + 1, userEnd - close - 1));
  return reply;
}

}  // namespace tarnwick::testing
