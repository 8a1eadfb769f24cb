// Commands that look inside databases: note, design, acl.
#include <cstdio>
#include <cstring>
#include <iostream>
#include <optional>

#include "acl.h"
#include "assignment.h"
#include "commands.h"
#include "failure.h"
#include "globerr.h"
#include "handles.h"
#include "iso8601.h"
#include "lmbcs_text.h"
#include "note_json.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "osmem.h"

namespace tarnwick::admin {

namespace {

std::string hex_id(NOTEID id) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", static_cast<unsigned>(id));
  return text;
}

std::string lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

struct ProfileEntry {
  std::string name;
  std::string user;
  NOTEID id = 0;
};

STATUS LNCALLBACK collect_profile(DBHANDLE, void* context, char* name, WORD name_length, char* user, WORD user_length,
                                  NOTEID id) {
  static_cast<std::vector<ProfileEntry>*>(context)->push_back(
      {to_utf8(std::string_view(name, name_length)), to_utf8(std::string_view(user, user_length)), id});
  return NOERROR;
}

// Every profile of the database, or those of one name (for every user).
std::vector<ProfileEntry> profiles(const Database& db, const std::string& name = "") {
  std::vector<ProfileEntry> found;
  const std::string lmbcs = to_lmbcs(name);
  check(NSFProfileEnum(db.handle(), name.empty() ? nullptr : lmbcs.c_str(), static_cast<WORD>(lmbcs.size()),
                       collect_profile, &found, 0),
        "cannot list the profiles of " + db.path());
  return found;
}

// The profile's note, without creating a missing one.
Note open_existing_profile(const Database& db, const std::string& name, const std::string& user) {
  for (const ProfileEntry& entry : profiles(db, name)) {
    if (lower(entry.name) == lower(name) && lower(entry.user) == lower(user)) return Note::open(db, entry.id);
  }
  throw Failure("no profile " + name + (user.empty() ? "" : " of " + user) + " in " + db.path());
}

NOTEID parse_note_id(const std::string& text) {
  try {
    size_t used = 0;
    const unsigned long id = std::stoul(text, &used, 0);
    if (used == text.size() && id <= 0xFFFFFFFFul) return static_cast<NOTEID>(id);
  } catch (const std::exception&) {
  }
  throw UsageError("\"" + text + "\" is not a note ID (decimal, or hex with 0x)");
}

UNID parse_unid_option(const std::string& text) {
  const auto unid = parse_unid(text);
  if (!unid) throw UsageError("\"" + text + "\" is not a UNID (32 hex digits)");
  return *unid;
}

struct Selector {
  std::string profile, user, unid, noteid, design;
};

Note select_note(const Database& db, const Selector& selector) {
  if (!selector.profile.empty()) return open_existing_profile(db, selector.profile, selector.user);
  if (!selector.unid.empty()) return Note::open_by_unid(db, parse_unid_option(selector.unid));
  if (!selector.noteid.empty()) return Note::open(db, parse_note_id(selector.noteid));
  NOTEID id = 0;
  const STATUS status = NIFFindDesignNote(db.handle(), to_lmbcs(selector.design).c_str(), NOTE_CLASS_ALL, &id);
  if (ERR(status) == ERR_NOT_FOUND) throw Failure("no design element " + selector.design + " in " + db.path());
  check(status, "cannot look up design element " + selector.design + " in " + db.path());
  return Note::open(db, id);
}

void add_note_dump(Cli& cli, CLI::App* note) {
  struct Options {
    std::string db;
    Selector selector;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  auto* dump = note->add_subcommand("dump", "print one note with all its items");
  dump->add_option("DB", options->db, "database path in the data directory")->required();
  auto* profile = dump->add_option("--profile", options->selector.profile, "the profile of that name");
  dump->add_option("--user", options->selector.user, "with --profile: the user of the profile")->needs(profile);
  auto* unid = dump->add_option("--unid", options->selector.unid, "the note of that UNID");
  auto* noteid = dump->add_option("--noteid", options->selector.noteid, "the note of that ID (decimal or 0x hex)");
  auto* design = dump->add_option("--design", options->selector.design, "the design element of that name or alias");
  profile->excludes(unid, noteid, design);
  unid->excludes(noteid, design);
  noteid->excludes(design);
  dump->add_flag("--json", options->json, "print JSON");
  cli.on_data(dump, [options] {
    const Selector& s = options->selector;
    if (s.profile.empty() && s.unid.empty() && s.noteid.empty() && s.design.empty()) {
      throw UsageError("say which note: --profile NAME, --unid UNID, --noteid ID or --design NAME");
    }
    const Database db = Database::open(options->db);
    const nlohmann::ordered_json json = note_json(select_note(db, s));
    std::cout << (options->json ? json.dump(2) + "\n" : note_text(json));
  });
}

void add_note_set(Cli& cli, CLI::App* note) {
  struct Options {
    std::string db, profile, user, unid, type = "text";
    std::vector<std::string> assignments;
  };
  auto options = std::make_shared<Options>();
  auto* set = note->add_subcommand("set", "set items of a profile (created when missing) or of a note");
  set->add_option("DB", options->db, "database path in the data directory")->required();
  set->add_option("ITEM=VALUE", options->assignments, "items to replace; an empty value is allowed")->required();
  auto* profile = set->add_option("--profile", options->profile, "the profile of that name");
  set->add_option("--user", options->user, "with --profile: the user of the profile")->needs(profile);
  auto* unid = set->add_option("--unid", options->unid, "the note of that UNID");
  profile->excludes(unid);
  set->add_option("--type", options->type, "value type: text, textlist (comma-separated), number, time (ISO 8601)")
      ->check(CLI::IsMember({"text", "textlist", "number", "time"}));
  cli.on_data(set, [options] {
    if (options->profile.empty() && options->unid.empty()) throw UsageError("say which note: --profile NAME or --unid UNID");
    const ValueType type = parse_value_type(options->type);
    std::vector<Assignment> assignments;
    for (const std::string& argument : options->assignments) assignments.push_back(parse_assignment(argument, type));
    const Database db = Database::open(options->db);
    std::optional<Note> target;
    if (!options->profile.empty()) {
      const std::string name = to_lmbcs(options->profile);
      const std::string user = to_lmbcs(options->user);
      NOTEHANDLE handle = NULLHANDLE;
      check(NSFProfileOpen(db.handle(), name.c_str(), static_cast<WORD>(name.size()), user.c_str(),
                           static_cast<WORD>(user.size()), TRUE, &handle),
            "cannot open profile " + options->profile + " in " + db.path());
      target.emplace(handle);
    } else {
      target.emplace(Note::open_by_unid(db, parse_unid_option(options->unid)));
    }
    for (const Assignment& assignment : assignments) apply(*target, assignment);
    target->update();
    std::cout << "Set " << assignments.size() << " item" << (assignments.size() == 1 ? "" : "s") << " of "
              << (options->profile.empty() ? "note " + options->unid : "profile " + options->profile) << " in "
              << options->db << "\n";
  });
}

nlohmann::ordered_json list_entry(const Note& note) {
  return {{"noteid", note.id()},
          {"unid", unid_text(UNID{note.oid().File, note.oid().Note})},
          {"class", class_name(note.note_class())},
          {"form", note.text("Form")},
          {"title", note.text("$TITLE")}};
}

void add_note_list(Cli& cli, CLI::App* note) {
  struct Options {
    std::string db, note_class;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  auto* list = note->add_subcommand("list", "list the notes of a database (profiles included)");
  list->add_option("DB", options->db, "database path in the data directory")->required();
  list->add_option("--class", options->note_class, "only data notes or only design notes")
      ->check(CLI::IsMember({"data", "design"}));
  list->add_flag("--json", options->json, "print JSON");
  cli.on_data(list, [options] {
    const Database db = Database::open(options->db);
    const WORD mask = options->note_class == "data"     ? NOTE_CLASS_DOCUMENT
                      : options->note_class == "design" ? NOTE_CLASS_ALLNONDATA
                                                        : NOTE_CLASS_ALL;
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    for (NOTEID id : db.note_ids(mask)) entries.push_back(list_entry(Note::open(db, id)));
    if (mask & NOTE_CLASS_DOCUMENT) {
      for (const ProfileEntry& profile : profiles(db)) {
        nlohmann::ordered_json entry = list_entry(Note::open(db, profile.id));
        entry["profile"] = {{"name", profile.name}, {"user", profile.user}};
        entries.push_back(entry);
      }
    }
    if (options->json) {
      std::cout << entries.dump(2) << "\n";
      return;
    }
    for (const auto& entry : entries) {
      std::cout << hex_id(entry["noteid"].get<NOTEID>()) << "  " << entry["class"].get<std::string>() << "  "
                << entry["unid"].get<std::string>();
      if (entry.contains("profile")) {
        std::cout << "  profile " << entry["profile"]["name"].get<std::string>();
        if (!entry["profile"]["user"].get<std::string>().empty()) {
          std::cout << " of " << entry["profile"]["user"].get<std::string>();
        }
      } else if (!entry["title"].get<std::string>().empty()) {
        std::cout << "  " << entry["title"].get<std::string>();
      } else if (!entry["form"].get<std::string>().empty()) {
        std::cout << "  Form " << entry["form"].get<std::string>();
      }
      std::cout << "\n";
    }
  });
}

void add_design_list(Cli& cli) {
  auto* design = cli.app.add_subcommand("design", "design elements of a database");
  design->require_subcommand(1);
  struct Options {
    std::string db;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  auto* list = design->add_subcommand("list", "list forms, views, agents and other design notes");
  list->add_option("DB", options->db, "database path in the data directory")->required();
  list->add_flag("--json", options->json, "print JSON");
  cli.on_data(list, [options] {
    const Database db = Database::open(options->db);
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    for (NOTEID id : db.note_ids(NOTE_CLASS_ALLNONDATA)) {
      const Note note = Note::open(db, id);
      const std::string title = note.text("$TITLE");
      nlohmann::ordered_json aliases = nlohmann::ordered_json::array();
      std::string name;
      size_t start = 0;
      while (true) {
        const size_t bar = title.find('|', start);
        const std::string part = title.substr(start, bar == std::string::npos ? std::string::npos : bar - start);
        if (start == 0) {
          name = part;
        } else {
          aliases.push_back(part);
        }
        if (bar == std::string::npos) break;
        start = bar + 1;
      }
      entries.push_back({{"noteid", id},
                         {"class", class_name(note.note_class())},
                         {"name", name},
                         {"aliases", aliases},
                         {"flags", note.text("$Flags")}});
    }
    if (options->json) {
      std::cout << entries.dump(2) << "\n";
      return;
    }
    for (const auto& entry : entries) {
      std::cout << hex_id(entry["noteid"].get<NOTEID>()) << "  " << entry["class"].get<std::string>() << "  "
                << entry["name"].get<std::string>();
      for (const auto& alias : entry["aliases"]) std::cout << " | " << alias.get<std::string>();
      if (!entry["flags"].get<std::string>().empty()) std::cout << "  flags " << entry["flags"].get<std::string>();
      std::cout << "\n";
    }
  });
}

const char* level_name(WORD level) {
  static const char* names[] = {"noaccess", "depositor", "reader", "author", "editor", "designer", "manager"};
  return level < ACL_LEVEL_COUNT ? names[level] : "unknown";
}

nlohmann::ordered_json acl_flags(WORD flags) {
  static const std::pair<WORD, const char*> names[] = {
      {ACL_FLAG_AUTHOR_NOCREATE, "author_nocreate"}, {ACL_FLAG_SERVER, "server"},
      {ACL_FLAG_NODELETE, "nodelete"},                {ACL_FLAG_CREATE_PRAGENT, "create_personal_agents"},
      {ACL_FLAG_CREATE_PRFOLDER, "create_personal_folders"}, {ACL_FLAG_PERSON, "person"},
      {ACL_FLAG_GROUP, "group"},                      {ACL_FLAG_CREATE_FOLDER, "create_shared_folders"},
      {ACL_FLAG_CREATE_LOTUSSCRIPT, "create_lotusscript"}, {ACL_FLAG_PUBLICREADER, "public_reader"},
      {ACL_FLAG_PUBLICWRITER, "public_writer"},       {ACL_FLAG_MONITORS_DISALLOWED, "monitors_disallowed"},
      {ACL_FLAG_NOREPLICATE, "noreplicate"},          {ACL_FLAG_ADMIN_READERAUTHOR, "admin_readerauthor"},
      {ACL_FLAG_ADMIN_SERVER, "admin_server"}};
  nlohmann::ordered_json list = nlohmann::ordered_json::array();
  for (const auto& [bit, name] : names) {
    if (flags & bit) list.push_back(name);
  }
  return list;
}

struct AclReading {
  DHANDLE acl = NULLHANDLE;
  nlohmann::ordered_json entries = nlohmann::ordered_json::array();
};

void LNCALLBACK collect_acl_entry(void* param, char* name, WORD level, ACL_PRIVILEGES* privileges, WORD flags) {
  auto* reading = static_cast<AclReading*>(param);
  nlohmann::ordered_json roles = nlohmann::ordered_json::array();
  for (WORD priv = ACL_BITPRIVCOUNT; priv < ACL_PRIVCOUNT; ++priv) {
    if (!ACLIsPrivSet(*privileges, priv)) continue;
    char role[ACL_PRIVSTRINGMAX + 1] = {};
    if (ACLGetPrivName(reading->acl, priv, role) == NOERROR && role[0] != '\0') roles.push_back(to_utf8(role));
  }
  reading->entries.push_back(
      {{"name", to_utf8(name)}, {"level", level_name(level)}, {"flags", acl_flags(flags)}, {"roles", roles}});
}

void add_acl_show(Cli& cli) {
  auto* acl = cli.app.add_subcommand("acl", "access control lists");
  acl->require_subcommand(1);
  struct Options {
    std::string db;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  auto* show = acl->add_subcommand("show", "print a database's ACL");
  show->add_option("DB", options->db, "database path in the data directory")->required();
  show->add_flag("--json", options->json, "print JSON");
  cli.on_data(show, [options] {
    const Database db = Database::open(options->db);
    AclReading reading;
    check(NSFDbReadACL(db.handle(), &reading.acl), "cannot read the ACL of " + db.path());
    nlohmann::ordered_json roles = nlohmann::ordered_json::array();
    STATUS status = ACLEnumEntries(reading.acl, collect_acl_entry, &reading);
    for (WORD priv = ACL_BITPRIVCOUNT; status == NOERROR && priv < ACL_PRIVCOUNT; ++priv) {
      char role[ACL_PRIVSTRINGMAX + 1] = {};
      if (ACLGetPrivName(reading.acl, priv, role) == NOERROR && role[0] != '\0') roles.push_back(to_utf8(role));
    }
    DWORD flags = 0;
    if (status == NOERROR) status = ACLGetFlags(reading.acl, &flags);
    OSMemFree(reading.acl);
    check(status, "cannot read the ACL of " + db.path());
    const nlohmann::ordered_json out = {
        {"entries", reading.entries}, {"roles", roles}, {"uniform_access", (flags & ACL_UNIFORM_ACCESS) != 0}};
    if (options->json) {
      std::cout << out.dump(2) << "\n";
      return;
    }
    for (const auto& entry : reading.entries) {
      std::cout << entry["name"].get<std::string>() << ": " << entry["level"].get<std::string>();
      for (const auto& flag : entry["flags"]) std::cout << ", " << flag.get<std::string>();
      for (const auto& role : entry["roles"]) std::cout << " " << role.get<std::string>();
      std::cout << "\n";
    }
    if (!roles.empty()) {
      std::cout << "roles:";
      for (const auto& role : roles) std::cout << " " << role.get<std::string>();
      std::cout << "\n";
    }
  });
}

// One note's signature: {"noteid", "class", "title", "signed", "valid",
// "signer", "signed_at", "error"}.
nlohmann::ordered_json signature_json(const Note& note) {
  TIMEDATE when{};
  char signer[MAXUSERNAME + 1] = {};
  const STATUS status = NSFNoteVerifySignature(note.handle(), nullptr, &when, signer, nullptr);
  const bool is_signed = ERR(status) != ERR_NOTE_NOT_SIGNED;
  nlohmann::ordered_json entry = {{"noteid", note.id()},
                          {"class", class_name(note.note_class())},
                          {"title", note.text("$TITLE")},
                          {"signed", is_signed},
                          {"valid", is_signed && status == NOERROR}};
  if (is_signed && status == NOERROR) {
    entry["signer"] = to_utf8(signer);
    entry["signed_at"] = iso8601(when);
  }
  if (is_signed && status != NOERROR) entry["error"] = status_text(status);
  return entry;
}

void add_verify(Cli& cli) {
  struct Options {
    std::string db;
    bool json = false;
  };
  auto options = std::make_shared<Options>();
  auto* verify = cli.app.add_subcommand(
      "verify", "check the signatures of a database's notes (exits 1 when one is invalid)");
  verify->add_option("DB", options->db, "database path in the data directory")->required();
  verify->add_flag("--json", options->json, "print JSON");
  cli.on_data(verify, [options] {
    const Database db = Database::open(options->db);
    nlohmann::ordered_json entries = nlohmann::ordered_json::array();
    size_t signed_count = 0, invalid = 0;
    std::vector<NOTEID> ids = db.note_ids(NOTE_CLASS_ALL);
    for (const ProfileEntry& profile : profiles(db)) ids.push_back(profile.id);
    for (NOTEID id : ids) {
      nlohmann::ordered_json entry = signature_json(Note::open(db, id));
      signed_count += entry["signed"].get<bool>();
      invalid += entry["signed"].get<bool>() && !entry["valid"].get<bool>();
      entries.push_back(entry);
    }
    if (options->json) {
      std::cout << entries.dump(2) << "\n";
    } else {
      for (const auto& entry : entries) {
        std::cout << hex_id(entry["noteid"].get<NOTEID>()) << "  " << entry["class"].get<std::string>();
        if (!entry["title"].get<std::string>().empty()) std::cout << "  " << entry["title"].get<std::string>();
        if (!entry["signed"].get<bool>()) {
          std::cout << ": not signed\n";
        } else if (entry["valid"].get<bool>()) {
          std::cout << ": signed by " << entry["signer"].get<std::string>() << " at "
                    << entry["signed_at"].get<std::string>() << ", valid\n";
        } else {
          std::cout << ": INVALID signature: " << entry["error"].get<std::string>() << "\n";
        }
      }
      std::cout << entries.size() << " notes, " << signed_count << " signed, " << invalid << " invalid\n";
    }
    if (invalid > 0) {
      throw Failure(std::to_string(invalid) + " invalid signature" + (invalid == 1 ? "" : "s") + " in " +
                    options->db);
    }
  });
}

}  // namespace

void add_inspect_commands(Cli& cli) {
  auto* note = cli.app.add_subcommand("note", "notes of a database: dump, set items, list");
  note->require_subcommand(1);
  add_note_dump(cli, note);
  add_note_set(cli, note);
  add_note_list(cli, note);
  add_design_list(cli);
  add_acl_show(cli);
  add_verify(cli);
}

}  // namespace tarnwick::admin
