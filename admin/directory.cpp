#include "directory.h"

#include <algorithm>
#include <cctype>

#include "failure.h"
#include "handles.h"
#include "names.h"
#include "password.h"

namespace tarnwick::admin {
namespace {

std::string lower(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

bool same_name(const std::string& a, const std::string& b) { return lower(canonical_name(a)) == lower(canonical_name(b)); }

// "Jane Q. Doe" -> first "Jane Q.", last "Doe".
std::pair<std::string, std::string> split_common_name(const std::string& common) {
  const size_t space = common.find_last_of(' ');
  if (space == std::string::npos) return {"", common};
  return {common.substr(0, space), common.substr(space + 1)};
}

std::string derived_short_name(const std::string& common) {
  const auto [first, last] = split_common_name(common);
  std::string result;
  if (!first.empty()) result += first[0];
  result += last;
  std::string cleaned;
  for (unsigned char c : result) {
    if (std::isalnum(c)) cleaned += static_cast<char>(std::tolower(c));
  }
  return cleaned;
}

Person read_person(const Note& note) {
  Person person;
  const auto names = note.text_list("FullName");
  person.full_name = names.empty() ? "" : names.front();
  person.short_name = note.text("ShortName");
  person.internet_address = note.text("InternetAddress");
  person.mail_server = note.text("MailServer");
  person.mail_file = note.text("MailFile");
  person.has_password = !note.text("HTTPPassword").empty();
  return person;
}

Group read_group(const Note& note) {
  return Group{note.text("ListName"), note.text_list("Members"), note.text("ListDescription")};
}

}  // namespace

Person add_person(Database& directory, const PersonRequest& request, const std::string& local_server) {
  Person person;
  person.full_name = canonical_name(request.full_name);
  const std::string common = common_name(person.full_name);
  person.short_name = request.short_name.empty() ? derived_short_name(common) : request.short_name;
  if (person.short_name.empty()) throw UsageError("cannot derive a short name from \"" + common + "\": give --short");
  person.internet_address = request.internet_address;
  person.mail_server = canonical_name(request.mail_server.empty() ? local_server : request.mail_server);
  person.mail_file = request.mail_file.empty() ? "mail/" + person.short_name + ".nsf" : request.mail_file;
  person.has_password = !request.password.empty();

  directory.for_each_document("Person", [&](Note& note) {
    const Person existing = read_person(note);
    if (lower(existing.full_name) == lower(person.full_name)) {
      throw Failure("a person named " + abbreviated_name(person.full_name) + " is already in " + directory.path());
    }
    if (lower(existing.short_name) == lower(person.short_name)) {
      throw Failure("the short name " + person.short_name + " is already used by " +
                    abbreviated_name(existing.full_name));
    }
    return true;
  });

  const auto [first, last] = split_common_name(common);
  Note note = Note::create(directory);
  note.set_text("Form", "Person");
  note.set_text("Type", "Person");
  note.set_text_list("FullName", {person.full_name, common});
  note.set_text("FirstName", first);
  note.set_text("LastName", last);
  note.set_text("ShortName", person.short_name);
  if (!person.internet_address.empty()) note.set_text("InternetAddress", person.internet_address);
  note.set_text("MailSystem", "1");
  note.set_text("MailServer", person.mail_server);
  note.set_text("MailFile", person.mail_file);
  if (person.has_password) note.set_text("HTTPPassword", hash_password(request.password));
  note.update();
  return person;
}

std::vector<Person> list_persons(const Database& directory) {
  std::vector<Person> persons;
  directory.for_each_document("Person", [&](Note& note) {
    persons.push_back(read_person(note));
    return true;
  });
  return persons;
}

std::optional<Person> find_person(const Database& directory, const std::string& name) {
  std::optional<Person> found;
  directory.for_each_document("Person", [&](Note& note) {
    Person person = read_person(note);
    if (same_name(person.full_name, name) || lower(person.short_name) == lower(name)) {
      found = person;
      return false;
    }
    return true;
  });
  return found;
}

Group add_group(Database& directory, const Group& request) {
  Group group;
  group.name = request.name;
  group.description = request.description;
  for (const std::string& member : request.members) group.members.push_back(canonical_name(member));
  directory.for_each_document("Group", [&](Note& note) {
    if (lower(note.text("ListName")) == lower(group.name)) {
      throw Failure("a group named " + group.name + " is already in " + directory.path());
    }
    return true;
  });
  Note note = Note::create(directory);
  note.set_text("Form", "Group");
  note.set_text("Type", "Group");
  note.set_text("ListName", group.name);
  note.set_text("GroupType", "0");
  note.set_text_list("Members", group.members);
  if (!group.description.empty()) note.set_text("ListDescription", group.description);
  note.update();
  return group;
}

std::vector<Group> list_groups(const Database& directory) {
  std::vector<Group> groups;
  directory.for_each_document("Group", [&](Note& note) {
    groups.push_back(read_group(note));
    return true;
  });
  return groups;
}

void put_server_document(Database& directory, const std::string& server, const std::string& cluster) {
  const std::string canonical = canonical_name(server);
  bool updated = false;
  directory.for_each_document("Server", [&](Note& note) {
    if (lower(note.text("ServerName")) != lower(canonical)) return true;
    if (cluster.empty()) {
      note.remove("ClusterName");
    } else {
      note.set_text("ClusterName", cluster);
    }
    note.update();
    updated = true;
    return false;
  });
  if (updated) return;
  Note note = Note::create(directory);
  note.set_text("Form", "Server");
  note.set_text("Type", "Server");
  note.set_text("ServerName", canonical);
  if (!cluster.empty()) note.set_text("ClusterName", cluster);
  note.update();
}

nlohmann::ordered_json person_json(const Person& person) {
  return {{"fullname", person.full_name},       {"shortname", person.short_name},
          {"internet", person.internet_address}, {"mailserver", person.mail_server},
          {"mailfile", person.mail_file},         {"password", person.has_password}};
}

nlohmann::ordered_json group_json(const Group& group) {
  return {{"name", group.name}, {"members", group.members}, {"description", group.description}};
}

}  // namespace tarnwick::admin
