// The persons who sign in and whose out-of-office state is read or set, as
// the directory knows them: a name (full, short or internet address) is
// looked up in the directory's "$Users" view, and the front end takes the
// person's full name, mail server and mail file from there, never from the
// client.
#pragma once

#include <optional>
#include <string>

namespace tarnwick::gateway {

struct Account {
  std::string full_name;    // canonical, UTF-8 ("CN=Jane Doe/O=Acme")
  std::string mail_server;  // canonical
  std::string mail_file;    // path on the mail server
  std::string password_hash;  // "HTTPPassword"; empty when the person has none
};

// The person a name stands for; nullopt when the directory knows none (or
// the name matches a group only). Throws client::Failure when the directory
// cannot be read.
std::optional<Account> find_account(const std::string& name);

// Checks a password against the person's stored hash. Takes the same time
// whether or not the person exists or has a password, so that sign-in
// timing tells nothing.
bool password_is_right(const std::optional<Account>& account, const std::string& password);

// "Jane Doe/Acme" of a canonical name.
std::string display_name(const std::string& canonical);

}  // namespace tarnwick::gateway
