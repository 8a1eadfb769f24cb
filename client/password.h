// Passwords of Person documents ("HTTPPassword"): never stored as given, but
// as a salted PBKDF2-HMAC-SHA256 hash in the text form
//   "pbkdf2-sha256$<iterations>$<salt, hex>$<hash, hex>"
// which the front end checks a login against with password_matches.
#pragma once

#include <string>

namespace tarnwick::client {

std::string hash_password(const std::string& password);
// False also for a stored text that is not of the form above.
bool password_matches(const std::string& stored, const std::string& password);

}  // namespace tarnwick::client
