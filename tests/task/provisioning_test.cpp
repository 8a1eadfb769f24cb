// The task provisions its application database at start-up: the real task
// on data directories made by the real tarnwick-admin, with notes.ini's
// OOOSetup set as an installer would, checked through the task's console
// lines, the admin tool's views of the databases (acl show, verify, env
// get) and the runtime's API.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <filesystem>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>
#include <vector>

#include "acl.h"
#include "globerr.h"
#include "mq.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearch.h"
#include "osmem.h"
#include "osmisc.h"
#include "tests/support/task_process.h"
#include "tests/task/mail_database_fixture.h"

extern char** environ;

namespace {

using namespace std::chrono_literals;
using tarnwick::testing::readFile;

constexpr char kSigning[] = "Tarnwick: Signing the Tarnwick Database Template with the server ID";
constexpr char kSigningEx[] = "Tarnwick: Signing the Tarnwick Database Template(EX) with the server ID";
constexpr char kTemplateError[] = "Tarnwick: Error signing the Tarnwick Database Template (OOO.ntf).";
constexpr char kReplacing[] = "Tarnwick: Replacing the Tarnwick Database Design";
constexpr char kSettingUp[] = "Tarnwick: Setting up the Tarnwick Database";
constexpr char kSetupError[] = "Tarnwick: Error setting up the Tarnwick Database.";
constexpr char kFinished[] = "Tarnwick: Finished setting up the Tarnwick Database";
constexpr char kInitializing[] = "Tarnwick: Initializing";
constexpr char kComplete[] = "Tarnwick: Initialization Complete";
constexpr char kVersion[] = "Tarnwick: Program Version 2.3.1 Build 2051";
constexpr char kShutdown[] = "Tarnwick: Shutdown Complete";

using Lines = std::vector<std::string>;

std::string statusLine(STATUS status) {
  char text[256] = {0};
  OSLoadString(NULLHANDLE, status, text, sizeof text);
  return std::string("Tarnwick: ") + text;
}

STATUS LNCALLBACK collectNoteIDs(void* found, SEARCH_MATCH* match, ITEM_TABLE*) {
  SEARCH_MATCH copy;
  std::memcpy(&copy, match, sizeof copy);
  static_cast<std::vector<NOTEID>*>(found)->push_back(copy.ID.NoteID);
  return NOERROR;
}

class Provisioning : public tarnwick::testing::MailDatabaseTest {
 protected:
  void TearDown() override {
    task_.kill();
    MailDatabaseTest::TearDown();
  }

  // Starts the task and waits until it has either opened its request queue
  // or ended by itself; a running task is then stopped. Returns the task's
  // lines ("Tarnwick: ..."), in order.
  Lines runTaskStartUp() {
    startTask();
    const auto until = std::chrono::steady_clock::now() + 60s;
    bool ended = false;
    while (std::chrono::steady_clock::now() < until) {
      const std::string all = console();
      if (all.find(kShutdown) != std::string::npos) {
        const int status = task_.waitForExit();
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << all;
        ended = true;
        break;
      }
      if (all.find(kVersion) != std::string::npos) {
        MQHANDLE requests = NULLHANDLE;
        if (MQOpen("MQ$OutOfOffice", 0, &requests) == NOERROR) {
          MQClose(requests, 0);
          break;
        }
      }
      std::this_thread::sleep_for(20ms);
    }
    if (!ended) stopTask();
    return taskLines();
  }

  void startTask() { ASSERT_TRUE(task_.spawn(data(), root_ / "console.txt")); }

  void stopTask() {
    if (!task_.running()) return;
    const int status = task_.terminate();
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  }

  std::string console() { return readFile(root_ / "console.txt"); }

  Lines taskLines() {
    Lines lines;
    const std::string all = console();
    size_t at = 0;
    while ((at = all.find("Tarnwick: ", at)) != std::string::npos) {
      size_t end = all.find_first_of("\r\n", at);
      if (end == std::string::npos) end = all.size();
      lines.push_back(all.substr(at, end - at));
      at = end;
    }
    return lines;
  }

  std::string setting(const std::string& name) {
    std::string value = admin({"env", "get", name});
    while (!value.empty() && (value.back() == '\n' || value.back() == '\r')) value.pop_back();
    return value;
  }

  // The entries of a database's ACL by name, as `acl show --json` gives them.
  std::map<std::string, nlohmann::json> aclOf(const std::string& db) {
    std::map<std::string, nlohmann::json> entries;
    const auto shown = nlohmann::json::parse(admin({"acl", "show", db, "--json"}), nullptr, false);
    if (shown.is_discarded() || !shown.contains("entries")) {
      ADD_FAILURE() << "acl show " << db << ": " << readFile(root_ / "admin.log");
      return entries;
    }
    for (const auto& entry : shown["entries"]) entries[entry["name"].get<std::string>()] = entry;
    return entries;
  }

  // Expects every note of db signed by the server with a valid signature
  // (`verify` itself fails on an invalid one).
  void expectSignedByServer(const std::string& db) {
    const auto notes = nlohmann::json::parse(admin({"verify", db, "--json"}), nullptr, false);
    ASSERT_FALSE(notes.is_discarded()) << readFile(root_ / "admin.log");
    ASSERT_FALSE(notes.empty()) << db;
    for (const auto& note : notes) {
      EXPECT_TRUE(note["signed"].get<bool>() && note["valid"].get<bool>()) << db << ": " << note.dump();
      EXPECT_EQ(note.value("signer", ""), tarnwick::testing::kMail1) << db;
    }
  }

  std::string infoField(const char* path, WORD field) {
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path, &db), NOERROR) << path;
    char info[NSF_INFO_SIZE] = {0};
    EXPECT_EQ(NSFDbInfoGet(db, info), NOERROR);
    NSFDbClose(db);
    char part[NSF_INFO_SIZE] = {0};
    NSFDbInfoParse(info, field, part, sizeof part - 1);
    return part;
  }

  void setBuildVersion(const char* path, WORD version) {
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(path, &db), NOERROR) << path;
    ASSERT_EQ(TarnwickDbSetBuildVersion(db, version), NOERROR);
    NSFDbClose(db);
  }

  // Writes a text list item of the server's Server document in names.nsf.
  void setServerItem(const char* item, const std::vector<std::string>& names) {
    DBHANDLE directory = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("names.nsf", &directory), NOERROR);
    std::vector<NOTEID> found;
    FORMULAHANDLE none = NULLHANDLE;
    ASSERT_EQ(NSFSearch(directory, none, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collectNoteIDs, &found, nullptr),
              NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    for (NOTEID id : found) {
      ASSERT_EQ(NSFNoteOpen(directory, id, 0, &note), NOERROR);
      char name[MAXUSERNAME + 1] = {0};
      NSFItemGetText(note, "ServerName", name, MAXUSERNAME);
      if (std::string(name) == tarnwick::testing::kMail1) break;
      NSFNoteClose(note);
      note = NULLHANDLE;
    }
    ASSERT_NE(note, NULLHANDLE) << "no Server document";
    setList(note, item, names);
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    NSFDbClose(directory);
  }

  tarnwick::testing::TaskProcess task_;
};

TEST_F(Provisioning, FirstStartCreatesTheDatabaseFromTheTemplateTheServerLogChooses) {
  // log.nsf of a new server carries the runtime's build (above 399): the
  // extended template.
  ASSERT_FALSE(std::filesystem::exists(data() / "OOO.nsf"));
  EXPECT_EQ(runTaskStartUp(), (Lines{kInitializing, kSettingUp, kFinished, kComplete, kVersion, kShutdown}));
  EXPECT_EQ(infoField("OOO.nsf", INFOPARSE_DESIGN_CLASS), "OOOEx");
  EXPECT_EQ(infoField("OOO.nsf", INFOPARSE_CLASS), "");
  EXPECT_EQ(infoField("OOOEx.ntf", INFOPARSE_CLASS), "OOOEx") << "the template keeps its name";
  auto acl = aclOf("OOO.nsf");
  ASSERT_EQ(acl.count("-Default-"), 1u);
  EXPECT_EQ(acl["-Default-"]["level"], "reader") << "the template's [-Default-] entry";

  // Present: nothing to do, nothing logged.
  EXPECT_EQ(runTaskStartUp(), (Lines{kInitializing, kComplete, kVersion, kShutdown}));

  // A server whose log is of build 399 gets the older template.
  ASSERT_EQ(NSFDbDelete("OOO.nsf"), NOERROR);
  setBuildVersion("log.nsf", 399);
  EXPECT_EQ(runTaskStartUp(), (Lines{kInitializing, kSettingUp, kFinished, kComplete, kVersion, kShutdown}));
  EXPECT_EQ(infoField("OOO.nsf", INFOPARSE_DESIGN_CLASS), "OOO");

  ASSERT_EQ(NSFDbDelete("OOO.nsf"), NOERROR);
  setBuildVersion("log.nsf", 400);
  runTaskStartUp();
  EXPECT_EQ(infoField("OOO.nsf", INFOPARSE_DESIGN_CLASS), "OOOEx");
}

TEST_F(Provisioning, SetupWithoutDesignFileGivesBothTemplatesTheDefaultPolicySigned) {
  std::filesystem::remove(data() / "OOO.xml");
  setServerItem("Administrator", {"Ann Admin/Acme"});
  setServerItem("FullAdmin", {"Fay Full/Acme"});
  admin({"env", "set", "OOOSetup", "1"});
  EXPECT_EQ(runTaskStartUp(),
            (Lines{kInitializing, kSigning, kSigningEx, kSettingUp, kFinished, kComplete, kVersion, kShutdown}));
  EXPECT_EQ(setting("OOOSetup"), "0");

  for (const char* file : {"OOO.ntf", "OOOEx.ntf"}) {
    auto acl = aclOf(file);
    struct Row {
      std::string name, level;
      nlohmann::json flags;
    };
    const std::vector<Row> rows = {{"CN=Mail1/O=Acme", "manager", {"server"}},
                                   {"Anonymous", "noaccess", {"public_reader"}},
                                   {"LocalDomainServers", "manager", {"server", "group"}},
                                   {"OtherDomainServers", "noaccess", {"server", "group"}},
                                   {"-Default-", "reader", {"public_writer"}},
                                   {"CN=Ann Admin/O=Acme", "manager", nlohmann::json::array()}};
    EXPECT_EQ(acl.size(), 2 * rows.size()) << file;
    for (const auto& [name, level, flags] : rows) {
      for (const std::string& form : {name, "[" + name + "]"}) {
        ASSERT_EQ(acl.count(form), 1u) << file << " " << form;
        EXPECT_EQ(acl[form]["level"], level) << file << " " << form;
        EXPECT_EQ(acl[form]["flags"], flags) << file << " " << form;
        const bool administrator = name == "CN=Ann Admin/O=Acme";
        EXPECT_EQ(acl[form]["roles"], administrator ? nlohmann::json({"[Admin]", "[SysAdmin]"}) : nlohmann::json::array())
            << file << " " << form;
      }
    }
    expectSignedByServer(file);
  }
  // The database made in the same start takes the policy from its template.
  auto acl = aclOf("OOO.nsf");
  ASSERT_EQ(acl.count("CN=Ann Admin/O=Acme"), 1u);
  EXPECT_EQ(acl["CN=Ann Admin/O=Acme"]["level"], "manager");
}

TEST_F(Provisioning, SetupTwoRefreshesTheDatabaseFromTheTemplateItNames) {
  // No database yet: nothing to refresh, it is created.
  setBuildVersion("log.nsf", 399);
  admin({"env", "set", "OOOSetup", "2"});
  EXPECT_EQ(runTaskStartUp(),
            (Lines{kInitializing, kSigning, kSigningEx, kSettingUp, kFinished, kComplete, kVersion, kShutdown}));
  EXPECT_EQ(setting("OOOSetup"), "0");
  EXPECT_EQ(infoField("OOO.nsf", INFOPARSE_DESIGN_CLASS), "OOO");
  // The templates took the design file's list, upgraded: readers write
  // public documents.
  auto templateAcl = aclOf("OOO.ntf");
  ASSERT_EQ(templateAcl.count("[-Default-]"), 1u);
  EXPECT_NE(templateAcl["[-Default-]"]["flags"].dump().find("public_writer"), std::string::npos)
      << templateAcl["[-Default-]"].dump();
  expectSignedByServer("OOOEx.ntf");

  // The database names the extended template; a user opened it to
  // Anonymous.
  {
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("OOO.nsf", &db), NOERROR);
    NOTEHANDLE icon = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon), NOERROR);
    setText(icon, "$TemplateFileName", "apps/OOOEx.ntf");
    ASSERT_EQ(NSFNoteUpdate(icon, 0), NOERROR);
    NSFNoteClose(icon);
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(db, &acl), NOERROR);
    ASSERT_EQ(ACLAddEntry(acl, "Anonymous", ACL_LEVEL_EDITOR, nullptr, 0), NOERROR);
    ASSERT_EQ(NSFDbStoreACL(db, acl, 0, ACL_STORE_UPDATE), NOERROR);
    OSMemFree(acl);
    NSFDbClose(db);
  }
  admin({"env", "set", "OOOSetup", "2"});
  EXPECT_EQ(runTaskStartUp(),
            (Lines{kInitializing, kSigning, kSigningEx, kReplacing, kComplete, kVersion, kShutdown}));
  EXPECT_EQ(setting("OOOSetup"), "0");
  EXPECT_EQ(infoField("OOO.nsf", INFOPARSE_DESIGN_CLASS), "OOOEx") << "replaced from OOOEx.ntf, inheriting from it";
  auto acl = aclOf("OOO.nsf");
  ASSERT_EQ(acl.count("Anonymous"), 1u);
  EXPECT_EQ(acl["Anonymous"]["level"], "noaccess");
  EXPECT_NE(acl["Anonymous"]["flags"].dump().find("public_reader"), std::string::npos) << acl["Anonymous"].dump();
  expectSignedByServer("OOO.nsf");
}

TEST_F(Provisioning, StartThatCannotProvisionEndsWithTheReason) {
  // The extended template is missing: its error line names OOO.ntf, the
  // start ends and OOOSetup is kept for the next start.
  ASSERT_EQ(NSFDbDelete("OOOEx.ntf"), NOERROR);
  admin({"env", "set", "OOOSetup", "1"});
  EXPECT_EQ(runTaskStartUp(),
            (Lines{kInitializing, kSigning, kSigningEx, kTemplateError, statusLine(ERR_NOEXIST), kShutdown}));
  EXPECT_EQ(setting("OOOSetup"), "1");
  EXPECT_FALSE(std::filesystem::exists(data() / "OOO.nsf"));
  MQHANDLE requests = NULLHANDLE;
  EXPECT_EQ(MQOpen("MQ$OutOfOffice", 0, &requests), ERR_NO_SUCH_MQ);

  // Without the work asked for, the database cannot be made from the
  // missing template.
  admin({"env", "set", "OOOSetup", "0"});
  EXPECT_EQ(runTaskStartUp(), (Lines{kInitializing, kSettingUp, kSetupError, statusLine(ERR_NOEXIST), kShutdown}));
}

TEST_F(Provisioning, DatabaseBuildVersionDecidesWhetherRequestsAskTheService) {
  // Jane's database is enabled for the service, her profile says agent
  // mode; the service is asked only when the build allows it.
  addJane("service");
  editProfile([&](NOTEHANDLE p) {
    setText(p, "TaskType", "1");
    setText(p, "TaskState", "0");
  });
  admin({"env", "set", "OOOUseOOOAPI", "1"});
  auto taskType = [&] {
    startTask();
    MQHANDLE requests = NULLHANDLE;
    const auto until = std::chrono::steady_clock::now() + 60s;
    while (MQOpen("MQ$OutOfOffice", 0, &requests) != NOERROR && std::chrono::steady_clock::now() < until) {
      std::this_thread::sleep_for(20ms);
    }
    MQClose(requests, 0);
    const auto answer =
        nlohmann::json::parse(admin({"request", "query", "--user", "Jane Doe/Acme", "--json"}), nullptr, false);
    stopTask();
    if (answer.is_discarded() || !answer.contains("document")) {
      ADD_FAILURE() << readFile(root_ / "admin.log") << console();
      return std::string();
    }
    const std::string document = answer["document"].get<std::string>();
    const size_t at = document.find("TaskType=\"");
    return at == std::string::npos ? std::string() : document.substr(at + 10, 1);
  };
  EXPECT_EQ(taskType(), "2") << "the service answers";
  setBuildVersion("OOO.nsf", 378);
  EXPECT_EQ(taskType(), "1") << "the profile's TaskType decides";
}

TEST_F(Provisioning, ApplicationDirectoryIsJoinedWithABackslash) {
  // OOODirectory=apps: the databases are apps\OOO.nsf and so on, which the
  // runtime finds in the folder apps; the design file is looked for by the
  // C library under the literal name "apps\OOO.xml".
  for (const char* file : {"OOO.ntf", "OOOEx.ntf"}) {
    const std::string copy = std::string("apps/") + file;
    ASSERT_EQ(NSFDbCreateAndCopy(file, copy.c_str(), NOTE_CLASS_ALLNONDATA, 0, 0, nullptr), NOERROR);
  }
  std::filesystem::copy_file(data() / "OOO.xml", data() / "apps" / "OOO.xml");
  admin({"env", "set", "OOODirectory", "apps"});
  admin({"env", "set", "OOOSetup", "1"});
  EXPECT_EQ(runTaskStartUp(),
            (Lines{kInitializing, kSigning, kSigningEx, kSettingUp, kFinished, kComplete, kVersion, kShutdown}));
  EXPECT_TRUE(std::filesystem::exists(data() / "apps" / "OOO.nsf"));
  EXPECT_FALSE(std::filesystem::exists(data() / "OOO.nsf"));
  // apps/OOO.xml was not seen: the default policy, with the server's entry.
  EXPECT_EQ(aclOf("apps/OOO.ntf").count("[CN=Mail1/O=Acme]"), 1u);

  // Under the literal name the design file is found and its list taken.
  std::filesystem::copy_file(data() / "OOO.xml", data() / "apps\\OOO.xml");
  admin({"env", "set", "OOOSetup", "1"});
  runTaskStartUp();
  auto acl = aclOf("apps/OOO.ntf");
  EXPECT_EQ(acl.count("[CN=Mail1/O=Acme]"), 0u);
  ASSERT_EQ(acl.count("[LocalDomainServers]"), 1u);
  EXPECT_EQ(acl["[LocalDomainServers]"]["roles"], nlohmann::json({"[Admin]", "[SysAdmin]"}));
  expectSignedByServer("apps/OOOEx.ntf");
}

}  // namespace
