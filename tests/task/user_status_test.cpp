// The user status query through a real task, asked with `tarnwick-admin
// request status` as a front end would: persons, groups (nested, empty,
// with members that cannot be reported), several directory matches, mixed
// modes, cluster fail-over and names beyond ASCII; and the directory
// lookups behind it, called in process.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "ostime.h"
#include "request/IPOOO.h"
#include "tests/task/mail_database_fixture.h"
#include "tests/support/task_process.h"

#include <nlohmann/json.hpp>

namespace {

namespace fs = std::filesystem;
using tarnwick::testing::kMail1;
using tarnwick::testing::readFile;

// One User element of a reply: attribute names in written order, their
// values (entities resolved) and the element's text.
struct UserElement {
  std::vector<std::string> order;
  std::map<std::string, std::string> values;
  std::string text;
  std::string operator[](const std::string& name) const {
    const auto found = values.find(name);
    return found == values.end() ? "<missing>" : found->second;
  }
  bool isError() const { return (*this)["User_Status"] == "0"; }
};

std::string unescape(std::string text) {
  const std::pair<const char*, const char*> entities[] = {
      {"&#xA;", "\n"}, {"&#x9;", "\t"}, {"&#xD;", "\r"}, {"&quot;", "\""}, {"&lt;", "<"}, {"&gt;", ">"}, {"&amp;", "&"}};
  for (const auto& [entity, plain] : entities) {
    for (size_t at = text.find(entity); at != std::string::npos; at = text.find(entity, at + 1)) {
      text.replace(at, std::strlen(entity), plain);
    }
  }
  return text;
}

// Every User element of a reply document, in document order.
std::vector<UserElement> parseUsers(const std::string& xml) {
  std::vector<UserElement> users;
  for (size_t open = xml.find("<User"); open != std::string::npos; open = xml.find("<User", open + 1)) {
    UserElement user;
    const size_t close = xml.find('>', open);
    if (close == std::string::npos) break;
    const std::string attributes = xml.substr(open + 5, close - open - 5);
    for (size_t at = 0;;) {
      const size_t equals = attributes.find("=\"", at);
      if (equals == std::string::npos) break;
      const size_t nameStart = attributes.rfind(' ', equals) + 1;
      const size_t valueEnd = attributes.find('"', equals + 2);
      const std::string name = attributes.substr(nameStart, equals - nameStart);
      user.order.push_back(name);
      user.values[name] = unescape(attributes.substr(equals + 2, valueEnd - equals - 2));
      at = valueEnd + 1;
    }
    if (xml[close - 1] != '/') {
      const size_t end = xml.find("</User>", close);
      user.text = unescape(xml.substr(close + 1, end - close - 1));
    }
    users.push_back(user);
  }
  return users;
}

std::vector<std::string> texts(const std::vector<UserElement>& users) {
  std::vector<std::string> out;
  for (const auto& user : users) out.push_back(user.text);
  return out;
}

TIMEDATE daysFromNow(int days) {
  TIMEDATE when{};
  OSCurrentTIMEDATE(&when);
  TimeDateAdjust(&when, 0, 0, 0, days, 0, 0);
  return when;
}

class UserStatus : public tarnwick::testing::MailDatabaseTest {
 protected:
  // The reply document of a status request for name, asked of the running
  // task (started on first use) on behalf of Olga Petrova.
  std::vector<UserElement> status(const std::string& name) {
    if (!task_.running()) {
      OSSetEnvironmentVariable("OOOWorkers", "2");
      EXPECT_TRUE(task_.start(data(), root_ / "console.txt")) << task_.console();
    }
    const std::string printed =
        admin({"request", "status", "--user", name, "--query-user", "CN=Olga Petrova/O=Acme", "--json"});
    const auto answer = nlohmann::json::parse(printed, nullptr, false);
    if (answer.is_discarded() || !answer.contains("reply") || !answer["reply"].is_string()) {
      ADD_FAILURE() << "no reply: " << printed;
      return {};
    }
    EXPECT_EQ(answer["reply"], "OK");
    return parseUsers(answer.value("document", ""));
  }

  void addPerson(const std::string& name, const char* mode) {
    admin({"person", "add", name, "--create-mailfile", "--mode", mode});
  }
  void addGroup(const std::string& name, const std::string& members) {
    admin({"group", "add", name, "--members", members});
  }

  // A directory document written directly, for entries the admin tool
  // refuses to make (no mail file, a name used twice, a group without
  // members). Items are (name, value) text pairs; "FullName" is a list.
  void addDirectoryNote(const std::vector<std::pair<std::string, std::string>>& items) {
    DBHANDLE names = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("names.nsf", &names), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(names, &note), NOERROR);
    for (const auto& [name, value] : items) {
      if (name == "FullName") {
        setList(note, "FullName", {value});
      } else {
        setText(note, name.c_str(), value);
      }
    }
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    NSFDbClose(names);
  }
  void addPersonNote(const std::string& fullName, const std::string& mailServer, const std::string& mailFile) {
    addDirectoryNote({{"Form", "Person"}, {"Type", "Person"}, {"FullName", fullName}, {"MailServer", mailServer},
                      {"MailFile", mailFile}});
  }

  // The attribute names a query reply for Jane has, in order.
  std::vector<std::string> janeQueryOrder() {
    IPOOO context;
    context.Username = tarnwick::testing::kJane;
    context.MailServer = kMail1;
    context.MailBox = tarnwick::testing::kJaneMail;
    fs::create_directories(data() / "spool");
    std::string path = (data() / "spool" / "query.xml").string();
    std::ofstream(path) << "<r/>";  // the request file the reply replaces
    EXPECT_EQ(context.getOOO(path), "OK");
    const auto users = parseUsers(readFile(path));
    return users.empty() ? std::vector<std::string>{} : users.front().order;
  }

  tarnwick::testing::TaskProcess task_;
};

// A person, and a nested group whose members are in agent and in service
// mode: one full element per member in member order, each with its own
// state, and the log line naming who asked.
TEST_F(UserStatus, PersonsAndNestedGroupsInMemberOrder) {
  addPerson("Jane Doe/Acme", "agent");
  addPerson("John Smith/Acme", "service");
  addPerson("Maria Garcia/Acme", "agent");
  addGroup("Sales", "Jane Doe/Acme,John Smith/Acme");
  addGroup("Staff", "Sales,Maria Garcia/Acme,Jane Doe/Acme");
  // Jane's profile has values of its own that a query reports and a status
  // query leaves out; John is out of the office with notified names.
  editProfile([&](NOTEHANDLE p) {
    setText(p, "DaysOut", "5");
    setText(p, "AppendSubjectDate", "(back soon)");
  });
  editProfile(
      [&](NOTEHANDLE p) {
        const TIMEDATE out = daysFromNow(-1);
        const TIMEDATE back = daysFromNow(6);
        ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayOut", &out), NOERROR);
        ASSERT_EQ(NSFItemSetTime(p, "StartTime", &out), NOERROR);
        ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayBack", &back), NOERROR);
        ASSERT_EQ(NSFItemSetTime(p, "EndTime", &back), NOERROR);
        setText(p, "TaskState", "1");
        setText(p, "GeneralSubject", "At the trade fair");
        setList(p, "Notified", {"CN=Wei Chen/O=Acme"});
      },
      "OutOfOfficeProfile", "mail/jsmith.nsf");

  std::vector<std::string> expectedOrder = janeQueryOrder();
  ASSERT_NE(std::find(expectedOrder.begin(), expectedOrder.end(), "DaysOutValue"), expectedOrder.end());
  std::erase(expectedOrder, "DaysOutValue");
  std::erase(expectedOrder, "AppendSubjectDateValue");

  const auto person = status("Jane Doe/Acme");
  ASSERT_EQ(person.size(), 1u);
  EXPECT_EQ(person[0].order, expectedOrder);
  EXPECT_EQ(person[0].text, "Jane Doe/Acme");
  EXPECT_EQ(person[0]["User_Status"], "1");
  EXPECT_EQ(person[0]["TaskType"], "1");

  // Nested groups are followed; a member met twice is reported once.
  const auto staff = status("Staff");
  EXPECT_EQ(texts(staff), (std::vector<std::string>{"Jane Doe/Acme", "John Smith/Acme", "Maria Garcia/Acme"}));
  ASSERT_EQ(staff.size(), 3u);
  EXPECT_EQ(staff[0]["TaskType"], "1");
  EXPECT_EQ(staff[0]["OOOEnable"], "0");
  EXPECT_EQ(staff[1]["TaskType"], "2");
  EXPECT_EQ(staff[1]["OOOEnable"], "1");
  EXPECT_EQ(staff[1]["Subject"], "At the trade fair");
  EXPECT_EQ(staff[1]["Notified"], "Wei Chen/Acme");
  // Nothing of John's state carries over to Maria.
  EXPECT_EQ(staff[2]["TaskType"], "1");
  EXPECT_EQ(staff[2]["OOOEnable"], "0");
  EXPECT_EQ(staff[2]["Notified"], "");
  EXPECT_EQ(staff[2]["Subject"], "Maria Garcia is out of the office");
  for (const auto& user : staff) EXPECT_EQ(user.order, expectedOrder) << user.text;

  EXPECT_TRUE(task_.waitForConsole("Tarnwick: [Staff] OutOfOfficeProfile has been queried by [Olga Petrova/Acme]."))
      << task_.console();
  EXPECT_TRUE(
      task_.waitForConsole("Tarnwick: [Jane Doe/Acme] OutOfOfficeProfile has been queried by [Olga Petrova/Acme]."));
}

// Members that cannot be reported get error elements in their place, and
// the query goes on with the next member.
TEST_F(UserStatus, MembersThatCannotBeReportedGetErrorElements) {
  addPerson("Jane Doe/Acme", "agent");
  addPerson("Maria Garcia/Acme", "agent");
  admin({"person", "add", "Bert Broken/Acme", "--mailfile", "mail/missing.nsf"});  // no mail file made
  addPersonNote("CN=Nora Nomail/O=Acme", "", "");
  addDirectoryNote({{"Form", "Group"}, {"Type", "Group"}, {"ListName", "Nobody Here"}});
  addGroup("Trio", "Jane Doe/Acme,Bert Broken/Acme,Maria Garcia/Acme");
  addGroup("Odd", "Nora Nomail/Acme,Nobody Known/Acme");
  addGroup("Late", "Jane Doe/Acme,Nobody Known/Acme");

  // The text of a failing open of the missing mail file, as the platform
  // gives it.
  IPOOO probe;
  probe.MailServer = kMail1;
  probe.MailBox = "mail/missing.nsf";
  const STATUS missing = probe.getOOOProfile(0);
  ASSERT_NE(missing, NOERROR);
  probe.reset(0);

  const auto trio = status("Trio");
  ASSERT_EQ(trio.size(), 3u);
  EXPECT_EQ(texts(trio), (std::vector<std::string>{"Jane Doe/Acme", "Bert Broken/Acme", "Maria Garcia/Acme"}));
  EXPECT_FALSE(trio[0].isError());
  EXPECT_TRUE(trio[1].isError());
  EXPECT_EQ(trio[1].order, (std::vector<std::string>{"User_Status", "ErrorMsg"}));
  EXPECT_EQ(trio[1]["ErrorMsg"], probe.getErrorMsg(missing));
  EXPECT_FALSE(trio[2].isError());
  EXPECT_EQ(trio[2]["User_Status"], "1");

  const auto empty = status("Nobody Here");
  ASSERT_EQ(empty.size(), 1u);
  EXPECT_EQ(empty[0]["ErrorMsg"], "Empty Group");
  EXPECT_EQ(empty[0].text, "Nobody Here");

  // No mail server and no mail file; then a name the directory does not
  // know, before any member was read: the name as the group holds it.
  const auto odd = status("Odd");
  ASSERT_EQ(odd.size(), 2u);
  EXPECT_EQ(odd[0]["User_Status"], "0");
  EXPECT_EQ(odd[0]["ErrorMsg"], "No mail file");
  EXPECT_EQ(odd[0].text, "Nora Nomail/Acme");
  EXPECT_EQ(odd[1]["ErrorMsg"], "User Nobody Known/Acme not listed in Domino Directory");
  EXPECT_EQ(odd[1].text, "CN=Nobody Known/O=Acme");

  // After a member was read the unknown name is given abbreviated.
  const auto late = status("Late");
  ASSERT_EQ(late.size(), 2u);
  EXPECT_EQ(late[1]["ErrorMsg"], "User Nobody Known/Acme not listed in Domino Directory");
  EXPECT_EQ(late[1].text, "Nobody Known/Acme");

  const auto unknown = status("Quentin Nowhere");
  ASSERT_EQ(unknown.size(), 1u);
  EXPECT_EQ(unknown[0]["ErrorMsg"], "User Quentin Nowhere not listed in Domino Directory");
  EXPECT_EQ(unknown[0].text, "Quentin Nowhere");
}

// Two directory entries answer to one name: the first one's mail file is
// reported, and the lookups give what the directory holds.
TEST_F(UserStatus, TwoDirectoryMatchesUseTheFirst) {
  admin({"mailfile", "create", "mail/pkim1.nsf", "--owner", "Pat Kim/Acme", "--mode", "agent"});
  admin({"mailfile", "create", "mail/pkim2.nsf", "--owner", "Pat Kim/Acme", "--mode", "service"});
  addPersonNote("CN=Pat Kim/O=Acme", kMail1, "mail/pkim1.nsf");
  addPersonNote("CN=Pat Kim/O=Acme", kMail1, "mail/pkim2.nsf");

  IPOOO context;
  std::vector<OOOUserInfo> all;
  ASSERT_EQ(context.get_user_info("Pat Kim/Acme", all, 0), NOERROR);
  ASSERT_EQ(all.size(), 2u);
  EXPECT_STREQ(all[0].mailServer, kMail1);
  EXPECT_STREQ(all[0].fullName, "CN=Pat Kim/O=Acme");
  EXPECT_STREQ(all[0].mailFile, "mail/pkim1.nsf");
  EXPECT_STREQ(all[1].mailFile, "mail/pkim2.nsf");
  std::vector<OOOUserInfo> single;
  ASSERT_EQ(context.get_user_info("Pat Kim/Acme", single, 1), NOERROR);
  ASSERT_EQ(single.size(), 1u);
  EXPECT_STREQ(single[0].mailFile, "mail/pkim1.nsf");
  std::vector<OOOUserInfo> none;
  EXPECT_EQ(context.get_user_info("Nobody Known/Acme", none, 0), NOERROR);
  EXPECT_TRUE(none.empty());

  const auto reply = status("Pat Kim/Acme");
  ASSERT_EQ(reply.size(), 1u);
  EXPECT_EQ(reply[0]["User_Status"], "1");
  EXPECT_EQ(reply[0]["TaskType"], "1");  // pkim1.nsf is the agent-mode one
  EXPECT_EQ(reply[0].text, "Pat Kim/Acme");
}

TEST_F(UserStatus, FullNameOfADirectoryNameOrTheNameItself) {
  addPerson("Jane Doe/Acme", "agent");
  IPOOO context;
  std::string fullName;
  EXPECT_EQ(context.getFullName("jdoe", fullName), NOERROR);
  EXPECT_EQ(fullName, "CN=Jane Doe/O=Acme");
  EXPECT_EQ(context.getFullName("Nobody Known", fullName), NOERROR);
  EXPECT_EQ(fullName, "Nobody Known");
}

// A member whose mail server is down is read from the cluster mate that
// holds the mail file, as for a query.
TEST_F(UserStatus, MemberOnAnUnreachableServerIsReadFromItsCluster) {
  const fs::path mail2 = root_ / "mail2";
  admin({"init", mail2.string(), "--server", "Mail2/Acme", "--cluster", "AcmeCluster"});
  admin({"mailfile", "create", "mail/wchen.nsf", "--owner", "Wei Chen/Acme", "--mode", "service"}, mail2);
  admin({"server", "add", "Mail3/Acme", "--cluster", "AcmeCluster", "--down"});
  admin({"server", "add", "Mail2/Acme", "--cluster", "AcmeCluster", "--data", mail2.string()});
  admin({"person", "add", "Wei Chen/Acme", "--mailserver", "Mail3/Acme", "--mailfile", "mail/wchen.nsf"});
  admin({"person", "add", "Lost Soul/Acme", "--mailserver", "Mail3/Acme", "--mailfile", "mail/lost.nsf"});
  addPerson("Jane Doe/Acme", "agent");
  addGroup("Remote", "Wei Chen/Acme,Lost Soul/Acme,Jane Doe/Acme");

  const auto remote = status("Remote");
  ASSERT_EQ(remote.size(), 3u);
  EXPECT_EQ(remote[0]["User_Status"], "1");
  EXPECT_EQ(remote[0]["TaskType"], "2");
  EXPECT_EQ(remote[0].text, "Wei Chen/Acme");
  // No server of the cluster holds Lost Soul's mail file.
  IPOOO probe;
  EXPECT_EQ(remote[1]["ErrorMsg"], probe.getErrorMsg(ERR_SESSION_CLOSED));
  EXPECT_EQ(remote[1].text, "Lost Soul/Acme");
  EXPECT_EQ(remote[2]["User_Status"], "1");
}

TEST_F(UserStatus, NamesBeyondASCII) {
  admin({"person", "add", "Zoë Müller/Acme", "--short", "zmuller", "--create-mailfile", "--mode", "agent"});
  addPerson("Jane Doe/Acme", "service");
  addGroup("Équipe", "Zoë Müller/Acme,Jürgen Groß/Acme,Jane Doe/Acme");

  const auto team = status("Équipe");
  ASSERT_EQ(team.size(), 3u);
  EXPECT_EQ(team[0].text, "Zoë Müller/Acme");
  EXPECT_EQ(team[0]["Subject"], "Zoë Müller is out of the office");
  EXPECT_EQ(team[1]["ErrorMsg"], "User Jürgen Groß/Acme not listed in Domino Directory");
  EXPECT_EQ(team[1].text, "Jürgen Groß/Acme");
  EXPECT_EQ(team[2].text, "Jane Doe/Acme");
  EXPECT_EQ(team[2]["TaskType"], "2");
}

}  // namespace
