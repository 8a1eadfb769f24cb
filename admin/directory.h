// Documents of the directory (names.nsf) that the tool writes and lists:
// Person, Group and Server documents, with the item names the directory's
// views and lookups read ("FullName", "ShortName", "InternetAddress",
// "MailServer", "MailFile", "HTTPPassword"; "ListName", "Members",
// "ListDescription"; "ServerName", "ClusterName"). Names are stored
// canonical.
#pragma once

#include "client.h"

#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace tarnwick::admin {

class Database;

constexpr const char* kDirectoryFile = "names.nsf";

struct Person {
  std::string full_name;  // canonical
  std::string short_name;
  std::string internet_address;
  std::string mail_server;  // canonical
  std::string mail_file;
  bool has_password = false;
};

struct PersonRequest {
  std::string full_name;
  std::string short_name;        // derived from the name when empty
  std::string internet_address;  // optional
  std::string mail_server;       // the local server when empty
  std::string mail_file;         // "mail/<short name>.nsf" when empty
  std::string password;          // none when empty
};

// Adds a Person document; refuses a full or short name already in use.
// Returns the person as stored.
Person add_person(Database& directory, const PersonRequest& request, const std::string& local_server);
std::vector<Person> list_persons(const Database& directory);
std::optional<Person> find_person(const Database& directory, const std::string& name);

struct Group {
  std::string name;
  std::vector<std::string> members;
  std::string description;
};

// Adds a Group document; refuses a name already in use.
Group add_group(Database& directory, const Group& group);
std::vector<Group> list_groups(const Database& directory);

// Adds the Server document of a server (canonical name), or updates its
// cluster when the document exists.
void put_server_document(Database& directory, const std::string& server, const std::string& cluster);

nlohmann::ordered_json person_json(const Person& person);
nlohmann::ordered_json group_json(const Group& group);

}  // namespace tarnwick::admin
