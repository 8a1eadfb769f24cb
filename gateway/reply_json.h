// The task's reply documents as JSON for the API: the root
// "OOOReadObject" holds one "User" element per reported person; each
// becomes an object with the element's attributes under their own names
// and the element's text under "User".
//
//   <OOOReadObject><User OOOEnable="1" Subject="Away">Jane Doe</User></OOOReadObject>
//   -> [{"User": "Jane Doe", "OOOEnable": "1", "Subject": "Away"}]
#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

namespace tarnwick::gateway {

// The User elements of a reply document, in document order; nullopt when
// the text is no well-formed reply document.
std::optional<nlohmann::ordered_json> reply_users(const std::string& document);

// Starts and ends the XML toolkit for the process (counted; once is enough).
class XmlToolkit {
 public:
  XmlToolkit();
  XmlToolkit(const XmlToolkit&) = delete;
  XmlToolkit& operator=(const XmlToolkit&) = delete;
  ~XmlToolkit();
};

}  // namespace tarnwick::gateway
