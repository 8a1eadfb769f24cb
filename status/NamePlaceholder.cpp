#include "status/NamePlaceholder.h"

std::string withNameFilledIn(std::string text, const std::string& name) {
  for (size_t at = text.find("%a"); at != std::string::npos; at = text.find("%a", at + 2)) {
    if (text.size() - 2 + name.size() > kMaxNamedErrorText) break;
    text.replace(at, 2, name);
  }
  return text;
}
