// People, groups and mail files made with the tool, checked through the
// tool's own JSON dumps.
#include <map>
#include <set>

#include "admin_harness.h"
#include "globerr.h"
#include "lookup.h"
#include "osmem.h"

namespace tarnwick::admin::testing {
namespace {

using AdminDirectory = AdminTest;

TEST_F(AdminDirectory, PersonsAreAddedWithDefaultsAndListed) {
  init();
  ok({"person", "add", "Jane Doe/Acme", "--internet", "jane@acme.example", "--password", "s3cret"});
  ok({"person", "add", "Bob Smith/Sales/Acme", "--short", "bob", "--mailserver", "Mail2/Acme", "--mailfile",
      "mail2/bob.nsf"});
  const auto persons = json({"person", "list", "--json"});
  ASSERT_EQ(persons.size(), 2u) << persons.dump();
  EXPECT_EQ(persons[0], nlohmann::json({{"fullname", "CN=Jane Doe/O=Acme"},
                                        {"shortname", "jdoe"},
                                        {"internet", "jane@acme.example"},
                                        {"mailserver", "CN=Mail1/O=Acme"},
                                        {"mailfile", "mail/jdoe.nsf"},
                                        {"password", true}}));
  EXPECT_EQ(persons[1]["fullname"], "CN=Bob Smith/OU=Sales/O=Acme");
  EXPECT_EQ(persons[1]["mailserver"], "CN=Mail2/O=Acme");
  EXPECT_EQ(persons[1]["mailfile"], "mail2/bob.nsf");
  EXPECT_EQ(persons[1]["password"], false);
  EXPECT_NE(ok({"person", "list"}).out.find("Jane Doe/Acme"), std::string::npos);
}

TEST_F(AdminDirectory, PasswordsAreStoredHashedAndDuplicatesRefused) {
  init();
  ok({"person", "add", "Jane Doe/Acme", "--password", "s3cret"});
  const auto notes = json({"note", "list", "names.nsf", "--class", "data", "--json"});
  std::string stored;
  for (const auto& entry : notes) {
    if (entry["form"] != "Person") continue;
    const auto doc = json({"note", "dump", "names.nsf", "--noteid", std::to_string(entry["noteid"].get<int>()),
                           "--json"});
    stored = item(doc, "HTTPPassword")["value"];
    EXPECT_EQ(item(doc, "FullName")["type"], "textlist");
  }
  EXPECT_EQ(stored.rfind("pbkdf2-sha256$", 0), 0u) << stored;
  EXPECT_EQ(stored.find("s3cret"), std::string::npos);

  Result again = run({"--data", data().string(), "person", "add", "jane doe/acme"});
  EXPECT_EQ(again.code, 1);
  EXPECT_NE(again.err.find("already"), std::string::npos) << again.err;
  again = run({"--data", data().string(), "person", "add", "Jim Doe/Acme"});  // short name jdoe again
  EXPECT_EQ(again.code, 1);
  EXPECT_NE(again.err.find("jdoe"), std::string::npos) << again.err;
}

// The first text entry of an item of the directory entry the view finds
// under `name` ("<not found>" when it finds none).
std::string looked_up(const char* view, const std::string& name, const char* item) {
  const std::string view_name = std::string(view) + '\0';
  const std::string names = name + '\0';
  const std::string items = std::string(item) + '\0';
  DHANDLE buffer = NULLHANDLE;
  if (NAMELookup2(nullptr, 0, 1, view_name.c_str(), 1, names.c_str(), 1, items.c_str(), &buffer) != NOERROR) {
    return "<lookup failed>";
  }
  void* lookup = OSLockObject(buffer);
  DWORD matches = 0;
  void* record = NAMELocateNextName2(lookup, nullptr, &matches);
  std::string value = "<not found>";
  if (record != nullptr && matches > 0) {
    char text[256] = {};
    void* match = NAMELocateNextMatch2(lookup, record, nullptr);
    value = NAMEGetTextItem2(match, 0, 0, text, sizeof text) == NOERROR ? text : "<no item>";
  }
  OSUnlockObject(buffer);
  OSMemFree(buffer);
  return value;
}

TEST_F(AdminDirectory, TheDirectoryViewsFindWhatTheToolWrites) {
  init();
  ok({"person", "add", "Jane Doe/Acme", "--internet", "jane@acme.example"});
  ok({"group", "add", "Sales", "--members", "Jane Doe/Acme"});
  start_runtime_here();
  EXPECT_EQ(looked_up("$Users", "jdoe", "FullName"), "CN=Jane Doe/O=Acme");
  EXPECT_EQ(looked_up("$Users", "Jane Doe/Acme", "MailFile"), "mail/jdoe.nsf");
  EXPECT_EQ(looked_up("$Users", "jane@acme.example", "MailServer"), "CN=Mail1/O=Acme");
  EXPECT_EQ(looked_up("$Groups", "sales", "Members"), "CN=Jane Doe/O=Acme");
  EXPECT_EQ(looked_up("$Servers", "Mail1/Acme", "ClusterName"), "AcmeCluster");
  EXPECT_EQ(looked_up("$Clusters", "AcmeCluster", "ServerName"), "CN=Mail1/O=Acme");
  EXPECT_EQ(looked_up("$Users", "nobody", "FullName"), "<not found>");
}

TEST_F(AdminDirectory, GroupsNestAndListTheirMembers) {
  init();
  ok({"group", "add", "Sales", "--members", "Jane Doe/Acme,Bob Smith/Acme", "--description", "the sales team"});
  ok({"group", "add", "Everyone", "--members", "Sales,Carol King/Acme"});
  const auto groups = json({"group", "list", "--json"});
  ASSERT_EQ(groups.size(), 2u);
  EXPECT_EQ(groups[0], nlohmann::json({{"name", "Sales"},
                                       {"members", {"CN=Jane Doe/O=Acme", "CN=Bob Smith/O=Acme"}},
                                       {"description", "the sales team"}}));
  EXPECT_EQ(groups[1]["members"], nlohmann::json({"Sales", "CN=Carol King/O=Acme"}));
  const Result again = run({"--data", data().string(), "group", "add", "sales", "--members", "X"});
  EXPECT_EQ(again.code, 1);
}

TEST_F(AdminDirectory, MailFilesCarryTheProfilesOfAFreshUser) {
  init();
  ok({"person", "add", "Jane Doe/Acme", "--create-mailfile", "--mode", "service"});
  ok({"mailfile", "create", "mail/bob.nsf", "--owner", "Bob Smith/Acme"});
  ASSERT_TRUE(std::filesystem::exists(data() / "mail" / "jdoe.nsf"));

  const auto calendar = json({"note", "dump", "mail/jdoe.nsf", "--profile", "calendarprofile", "--json"});
  EXPECT_EQ(item(calendar, "Owner")["value"], "CN=Jane Doe/O=Acme");
  const auto service = json({"note", "dump", "mail/jdoe.nsf", "--profile", "OutOfOfficeProfile", "--json"});
  EXPECT_EQ(item(service, "TaskType")["value"], "2");
  EXPECT_EQ(item(service, "TaskState")["value"], "0");
  EXPECT_EQ(item(service, "$Owner")["value"], "CN=Jane Doe/O=Acme");
  const auto agent = json({"note", "dump", "mail/bob.nsf", "--profile", "OutOfOfficeProfile", "--json"});
  EXPECT_EQ(item(agent, "TaskType")["value"], "1");

  // The design comes from mail.ntf: the profile forms and the disabled
  // out-of-office agent.
  std::set<std::string> design;
  for (const auto& entry : json({"design", "list", "mail/jdoe.nsf", "--json"})) {
    design.insert(entry["name"].get<std::string>());
    for (const auto& alias : entry["aliases"]) design.insert(alias.get<std::string>());
  }
  for (const char* name : {"OutofOfficeProfile", "CalendarProfile", "OutOfOffice", "Appointment", "($Calendar)"}) {
    EXPECT_TRUE(design.count(name)) << name;
  }
  const auto ooo_agent = json({"note", "dump", "mail/jdoe.nsf", "--design", "OutOfOffice", "--json"});
  EXPECT_EQ(item(ooo_agent, "$AssistFlags")["value"], "");  // no "E": disabled

  // Service mode marks the icon note.
  bool icon_marked = false;
  for (const auto& entry : json({"note", "list", "mail/jdoe.nsf", "--class", "design", "--json"})) {
    if (entry["class"] != "icon") continue;
    const auto icon = json({"note", "dump", "mail/jdoe.nsf", "--unid", entry["unid"], "--json"});
    icon_marked = item(icon, "$Flags")["value"].get<std::string>().find('O') != std::string::npos;
  }
  EXPECT_TRUE(icon_marked);

  // Owner and servers manage the mail file; nobody else gets in.
  const auto acl = json({"acl", "show", "mail/jdoe.nsf", "--json"});
  std::map<std::string, std::string> levels;
  for (const auto& entry : acl["entries"]) levels[entry["name"]] = entry["level"];
  EXPECT_EQ(levels["CN=Jane Doe/O=Acme"], "manager");
  EXPECT_EQ(levels["CN=Mail1/O=Acme"], "manager");
  EXPECT_EQ(levels["-Default-"], "noaccess");
  // The template's entries guarding the template itself stay behind.
  for (const auto& [name, level] : levels) EXPECT_NE(name.front(), '[') << name;
  EXPECT_EQ(levels.count("OtherDomainServers"), 0u);

  const Result exists = run({"--data", data().string(), "mailfile", "create", "mail/bob.nsf", "--owner", "X"});
  EXPECT_EQ(exists.code, 1);
  EXPECT_NE(exists.err.find("mail/bob.nsf"), std::string::npos);
  const Result no_template =
      run({"--data", data().string(), "mailfile", "create", "mail/c.nsf", "--owner", "C", "--template", "no.ntf"});
  EXPECT_EQ(no_template.code, 1);
  EXPECT_NE(no_template.err.find("no.ntf"), std::string::npos);
}

TEST_F(AdminDirectory, NoteSetWritesTypedItemsThatDumpReadsBack) {
  init();
  ok({"mailfile", "create", "mail/jdoe.nsf", "--owner", "Jane Doe/Acme"});
  const std::string db = "mail/jdoe.nsf";
  ok({"note", "set", db, "--profile", "OutOfOfficeProfile", "GeneralSubject=Away = gone", "Empty="});
  ok({"note", "set", db, "--profile", "OutOfOfficeProfile", "Notified=a,b,,c", "--type", "textlist"});
  ok({"note", "set", db, "--profile", "OutOfOfficeProfile", "SaveOptions=1.5", "--type", "number"});
  ok({"note", "set", db, "--profile", "OutOfOfficeProfile", "StartTime=2026-03-02T09:30:00+01:00", "--type", "time"});
  ok({"note", "set", db, "--profile", "NewProfile", "--user", "Jane", "X=1"});  // created on the way

  const std::vector<std::string> dump = {"note", "dump", db, "--profile", "OutOfOfficeProfile", "--json"};
  const Result result = run({"--data", data().string(), dump[0], dump[1], dump[2], dump[3], dump[4], dump[5]},
                            {"TZ=UTC0"});
  ASSERT_EQ(result.code, 0) << result.err;
  const auto note = nlohmann::json::parse(result.out);
  EXPECT_EQ(note["class"], "document");
  EXPECT_EQ(note["unid"].get<std::string>().size(), 32u);
  EXPECT_GE(note["sequence"].get<int>(), 2);
  EXPECT_EQ(item(note, "GeneralSubject")["value"], "Away = gone");
  EXPECT_EQ(item(note, "GeneralSubject")["type"], "text");
  EXPECT_NE(item(note, "Empty"), nullptr);
  EXPECT_EQ(item(note, "Empty")["value"], "");
  EXPECT_EQ(item(note, "Notified")["value"], nlohmann::json({"a", "b", "", "c"}));
  EXPECT_EQ(item(note, "SaveOptions")["value"], 1.5);
  EXPECT_EQ(item(note, "SaveOptions")["type"], "number");
  const auto start = item(note, "StartTime");
  EXPECT_EQ(start["type"], "time");
  EXPECT_EQ(start["value"]["iso"], "2026-03-02T08:30:00+00:00");
  EXPECT_EQ(start["value"]["raw"][0], 3060000);  // 08:30 GMT in hundredths

  // Setting again replaces: one item of each name.
  ok({"note", "set", db, "--profile", "OutOfOfficeProfile", "GeneralSubject=Back"});
  int subjects = 0;
  const auto replaced = json(dump);
  for (const auto& entry : replaced["items"]) subjects += entry["name"] == "GeneralSubject";
  EXPECT_EQ(subjects, 1);

  const auto profiles = json({"note", "list", db, "--class", "data", "--json"});
  bool found_new = false;
  for (const auto& entry : profiles) {
    // Profile names are kept in lower case, as in the profile's "$Name".
    found_new |= entry.contains("profile") && entry["profile"]["name"] == "newprofile" &&
                 entry["profile"]["user"] == "Jane";
  }
  EXPECT_TRUE(found_new) << profiles.dump();

  // Dumping a missing profile fails and does not create it.
  const Result missing = run({"--data", data().string(), "note", "dump", db, "--profile", "NoSuch"});
  EXPECT_EQ(missing.code, 1);
  EXPECT_EQ(json({"note", "list", db, "--class", "data", "--json"}).size(), profiles.size());
}

}  // namespace
}  // namespace tarnwick::admin::testing
