// The out-of-office query on mail databases made by tarnwick-admin from our
// mail template: the reply document's attributes and their order, the mode
// rules, the profile content rules, cluster fail-over, the agent switches,
// and the whole request through a real tarnwick process and real queues.
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
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "agents.h"
#include "dxlimport.h"
#include "globerr.h"
#include "intl.h"
#include "mq.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "ods.h"
#include "osenv.h"
#include "osmem.h"
#include "ostime.h"
#include "request/IPOOO.h"
#include "tests/support/reply_attributes.h"
#include "tests/support/reply_document.h"
#include "tests/support/task_process.h"
#include "tests/task/mail_database_fixture.h"

#include <nlohmann/json.hpp>

extern char** environ;

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

using tarnwick::testing::kJane;
using tarnwick::testing::kJaneMail;
using tarnwick::testing::kMail1;
using tarnwick::testing::parseReply;
using tarnwick::testing::Reply;
using tarnwick::testing::readFile;

// Now moved by whole days.
TIMEDATE daysFromNow(int days) {
  TIMEDATE when{};
  OSCurrentTIMEDATE(&when);
  TimeDateAdjust(&when, 0, 0, 0, days, 0, 0);
  return when;
}

// Local date of a time as {year, month, day}.
std::vector<std::string> localDate(TIMEDATE when) {
  TIME t{};
  t.GM = when;
  TimeGMToLocal(&t);
  return {std::to_string(t.year), std::to_string(t.month), std::to_string(t.day)};
}

class OOOQuery : public tarnwick::testing::MailDatabaseTest {
 protected:
  void TearDown() override {
    task_.kill();
    for (MQHANDLE queue : queues_) MQClose(queue, 0);
    MailDatabaseTest::TearDown();
  }

  // Starts the real task on the test's data directory with a worker pool
  // and waits until it takes requests.
  void startTask() {
    OSSetEnvironmentVariable("OOOWorkers", "2");
    ASSERT_TRUE(task_.start(data(), root_ / "console.txt")) << task_.console();
  }

  // Asks the running task (started on first use) for Jane's state with
  // `tarnwick-admin request query`, as a front end would; returns the reply
  // document written over the request file.
  Reply query(std::vector<std::string> extra = {}) {
    if (!task_.running()) startTask();
    std::vector<std::string> args = {"request", "query", "--user", "Jane Doe/Acme", "--json"};
    args.insert(args.end(), extra.begin(), extra.end());
    const auto answer = nlohmann::json::parse(admin(args), nullptr, false);
    if (answer.is_discarded() || !answer.contains("reply") || !answer["reply"].is_string()) {
      ADD_FAILURE() << "no reply: " << readFile(root_ / "admin.log");
      return {};
    }
    EXPECT_EQ(answer["reply"], "OK");
    return parseReply(answer.value("document", ""));
  }

  // Queries in process, as a worker does, for what only the context shows.
  Reply queryInProcess(IPOOO& context, const std::string& server = kMail1) {
    context.Username = kJane;
    context.MailServer = server;
    context.MailBox = kJaneMail;
    std::filesystem::create_directories(data() / "spool");
    std::string path = (data() / "spool" / "reply.xml").string();
    std::ofstream(path) << "<r/>";
    EXPECT_EQ(context.getOOO(path), "OK");
    return parseReply(readFile(path));
  }

  tarnwick::testing::TaskProcess task_;
  std::vector<MQHANDLE> queues_;
};

using tarnwick::testing::kReplyAttributes;

// The attribute names expected, in their written order, when the listed
// optional ones are left out.
std::vector<std::string> without(std::vector<std::string> names, const std::vector<std::string>& left) {
  for (const auto& name : left) std::erase(names, name);
  return names;
}

TEST_F(OOOQuery, AgentModeReplyHasEveryAttribute) {
  addJane("agent");
  const TIMEDATE out = daysFromNow(3);
  const TIMEDATE back = daysFromNow(10);
  editProfile([&](NOTEHANDLE p) {
    setText(p, "GeneralSubject", "Away");
    setText(p, "GeneralMessage", "On leave");
    setText(p, "ShowHours", "1");
    setText(p, "AppendSubject", "1");
    setText(p, "ExcludeInternetEmail", "1");
    setText(p, "DaysOut", "my days");
    setText(p, "AppendSubjectDate", "my date");
    ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayOut", &out), NOERROR);
    ASSERT_EQ(NSFItemSetTime(p, "StartTime", &out), NOERROR);
    ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayBack", &back), NOERROR);
    ASSERT_EQ(NSFItemSetTime(p, "EndTime", &back), NOERROR);
  });
  const Reply reply = query();
  // The template computes AppendSubjectDate from the dates: the date-typed
  // branch leaves it empty, so it is the one optional attribute left out.
  EXPECT_EQ(reply.order, without(kReplyAttributes, {"AppendSubjectDate"}));
  EXPECT_EQ(reply["Subject"], "Away");
  EXPECT_EQ(reply["Message"], "On leave");
  EXPECT_EQ(reply["TaskType"], "1");
  EXPECT_EQ(reply["OOOEnable"], "0");
  EXPECT_EQ(reply["ShowHours"], "0");  // agent mode ignores the profile's value
  EXPECT_EQ(reply["ASDEnable"], "1");
  EXPECT_EQ(reply["AppendSubject"], "1");
  EXPECT_EQ(reply["InternetAddress"], "1");
  const auto outDate = localDate(out);
  const auto backDate = localDate(back);
  EXPECT_EQ(reply["StartTimeYear"], outDate[0]);
  EXPECT_EQ(reply["StartTimeMonth"], outDate[1]);
  EXPECT_EQ(reply["StartTimeDay"], outDate[2]);
  EXPECT_EQ(reply["EndTimeYear"], backDate[0]);
  EXPECT_EQ(reply["EndTimeMonth"], backDate[1]);
  EXPECT_EQ(reply["EndTimeDay"], backDate[2]);
  EXPECT_EQ(reply["DaysOut"], "I am out of the office from var_First until var_Back.");
  EXPECT_EQ(reply["DaysOut_S"], reply["DaysOut"]);
  EXPECT_EQ(reply["DaysOut_V"], "my days");
  EXPECT_EQ(reply["DaysOutValue"], "my days");
  EXPECT_EQ(reply["AppendSubjectDateValue"], "my date");
  EXPECT_EQ(reply["ResetSubject"], "var_User is out of the office");
  INTLFORMAT intl{};
  OSGetIntlSettings(&intl, sizeof intl);
  EXPECT_EQ(reply["DateFlag"], std::to_string(intl.Flags));
  EXPECT_NE(intl.Flags & DATE_MDY, 0);  // the default international settings
  EXPECT_EQ(reply["AMString"], "AM");
  EXPECT_EQ(reply["PMString"], "PM");
  EXPECT_EQ(reply["DateString"], "/");
  EXPECT_EQ(reply["TimeString"], ":");
  EXPECT_EQ(reply["User_Status"], "1");
  EXPECT_EQ(reply["Notified"], "");
  EXPECT_EQ(reply["BuildVersion"], "230");
  EXPECT_EQ(reply.user, "Jane Doe");
}

TEST_F(OOOQuery, ServiceModeReportsShowHoursAndTheOnState) {
  addJane("service");
  const TIMEDATE back = daysFromNow(2);
  editProfile([&](NOTEHANDLE p) {
    setText(p, "TaskState", "1");
    setText(p, "ShowHours", "1");
    ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayBack", &back), NOERROR);
  });
  Reply reply = query();
  EXPECT_EQ(reply["TaskType"], "2");
  EXPECT_EQ(reply["ShowHours"], "1");
  EXPECT_EQ(reply["OOOEnable"], "1");

  // A return date in the past switches the reported state off.
  const TIMEDATE past = daysFromNow(-2);
  editProfile([&](NOTEHANDLE p) { ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayBack", &past), NOERROR); });
  reply = query();
  EXPECT_EQ(reply["OOOEnable"], "0");
}

TEST_F(OOOQuery, ProfileContentDefaultsAndLists) {
  addJane("agent");
  // No GeneralSubject: "<common name> is out of the office"; "(null)"
  // message is empty; owner's common name is the User text.
  editProfile([&](NOTEHANDLE p) {
    setText(p, "$Owner", "CN=John Smith/O=Acme");
    setText(p, "GeneralMessage", "(null)");
    setList(p, "Notified", {"CN=Ann Lee/O=Acme", "CN=Bob Ray/O=Acme", "CN=Ann Lee/O=Acme"});
  });
  editProfile(
      [&](NOTEHANDLE p) {
        setList(p, "Notified_1", {"CN=Bob Ray/O=Acme", "CN=Cy Dee/O=Acme"});
        setList(p, "notified_2", {"CN=Eve Fox/O=Acme"});
        setList(p, "NotifiedX", {"CN=Not Me/O=Acme"});
      },
      "OOServiceProfile");
  Reply reply = query();
  EXPECT_EQ(reply["Subject"], "Jane Doe is out of the office");
  EXPECT_EQ(reply["Message"], "");
  EXPECT_EQ(reply.user, "John Smith");
  EXPECT_EQ(reply["Notified"], "Ann Lee/Acme;Bob Ray/Acme;Ann Lee/Acme;Cy Dee/Acme;Eve Fox/Acme");

  // Multi-value subject and message come out as lines; without an owner the
  // request's user name is the User text.
  editProfile([&](NOTEHANDLE p) {
    NSFItemDelete(p, "$Owner", 6);
    setList(p, "GeneralSubject", {"Away", "back Monday"});
    setList(p, "GeneralMessage", {"Line one", "Line two"});
  });
  reply = query();
  EXPECT_EQ(reply["Subject"], "Away\nback Monday");
  EXPECT_EQ(reply["Message"], "Line one\nLine two");
  EXPECT_EQ(reply.user, "Jane Doe/Acme");  // as the front end sent it

  // An owner without a common name leaves the owner name empty: "Unknow".
  editProfile([&](NOTEHANDLE p) { setText(p, "$Owner", "O=Acme"); });
  EXPECT_EQ(query().user, "Unknow");
}

TEST_F(OOOQuery, AMailDatabaseWithoutItsAgentStillAnswers) {
  addJane("agent");
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kJaneMail, &db), NOERROR);
  NOTEID agent = 0;
  ASSERT_EQ(NIFFindDesignNote(db, "OutOfOffice", NOTE_CLASS_FILTER, &agent), NOERROR);
  ASSERT_EQ(NSFNoteDelete(db, agent, 0), NOERROR);
  NSFDbClose(db);
  // Switched on, and neither AdminP_Status value settles the state: the
  // agent is asked, and a missing one reads as enabled.
  editProfile([&](NOTEHANDLE p) { setText(p, "TaskState", "1"); });
  EXPECT_EQ(query()["OOOEnable"], "1");
  editProfile([&](NOTEHANDLE p) { setText(p, "TaskState", "0"); });
  EXPECT_EQ(query()["OOOEnable"], "1");
  editProfile([&](NOTEHANDLE p) { setText(p, "AdminP_Status", "disable"); });
  EXPECT_EQ(query()["OOOEnable"], "0");
}

TEST_F(OOOQuery, StaleDatesAreReportedAsTodayAndTomorrow) {
  addJane("service");
  const TIMEDATE now = daysFromNow(0);
  const TIMEDATE longAgo = daysFromNow(-20);
  const TIMEDATE future = daysFromNow(20);
  // UpdateSettings "1" keeps the off state's own reset out of the way.
  auto dates = [&](const TIMEDATE& out, const TIMEDATE& back) {
    editProfile([&](NOTEHANDLE p) {
      setText(p, "UpdateSettings", "1");
      ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayOut", &out), NOERROR);
      ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayBack", &back), NOERROR);
    });
  };
  dates(longAgo, longAgo);
  Reply reply = query();
  TIMEDATE tomorrow = now;
  TimeDateAdjust(&tomorrow, 0, 0, 0, 1, 0, 0);
  EXPECT_EQ(reply["StartTimeDay"], localDate(now)[2]);
  EXPECT_EQ(reply["EndTimeDay"], localDate(tomorrow)[2]);
  EXPECT_EQ(reply["EndTimeMonth"], localDate(tomorrow)[1]);

  // Dates still ahead are reported as stored.
  dates(longAgo, future);
  reply = query();
  EXPECT_EQ(reply["StartTimeDay"], localDate(longAgo)[2]);
  EXPECT_EQ(reply["EndTimeDay"], localDate(future)[2]);
}

TEST_F(OOOQuery, DefaultTemplateTextsWhenTheFormCannotCompute) {
  addJane("agent");
  editProfile([&](NOTEHANDLE p) { ASSERT_EQ(NSFItemDelete(p, "Form", 4), NOERROR); });
  const Reply reply = query();
  EXPECT_EQ(reply["DaysOut"], "I am out of the office from var_First until var_Back.");
  EXPECT_EQ(reply["DaysOut_S"], "I am out of the office until var_Back.");
  EXPECT_EQ(reply["DaysOut_V"], "I am out of the office from var_First until var_Back.");
  EXPECT_EQ(reply["AppendSubjectDate"], "(returning var_Back)");
  EXPECT_EQ(reply["ResetSubject"], "var_User is Out Of Office");
  EXPECT_FALSE(reply.has("DaysOutValue"));
  EXPECT_FALSE(reply.has("AppendSubjectDateValue"));
}

TEST_F(OOOQuery, TextTypedTemplateIsComputedWithTextDates) {
  // An older mail template keeps the days as text: the first computation
  // fails on the time values and the texts are computed from date texts.
  const std::string design = std::string(TARNWICK_DESIGN_DIR) + "/mail-legacy.xml";
  ASSERT_EQ(TarnwickTemplateFromDXL(design.c_str(), "mail7.ntf", nullptr, nullptr), NOERROR);
  admin({"person", "add", "Jane Doe/Acme"});
  admin({"mailfile", "create", kJaneMail, "--owner", "Jane Doe/Acme", "--template", "mail7.ntf", "--mode", "agent"});
  const TIMEDATE out = daysFromNow(3);
  const TIMEDATE back = daysFromNow(7);
  editProfile([&](NOTEHANDLE p) {
    ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayOut", &out), NOERROR);
    ASSERT_EQ(NSFItemSetTime(p, "dateFirstDayBack", &back), NOERROR);
  });
  Reply reply = query();
  EXPECT_EQ(reply["DaysOut_S"], "I am out of the office from var_First until var_Back.");
  EXPECT_EQ(reply["DaysOut"], reply["DaysOut_S"]);  // without AppendSubject
  EXPECT_EQ(reply["AppendSubjectDate"], "(back on var_Back)");
  EXPECT_EQ(reply["ResetSubject"], "var_User is out of the office");
  EXPECT_EQ(reply["DaysOut_V"], "I am out of the office from var_First until var_Back.");

  // The date-typed template leaves AppendSubjectDate empty; this one is the
  // only one that fills it.
  editProfile([&](NOTEHANDLE p) { setText(p, "AppendSubject", "1"); });
  reply = query();
  EXPECT_EQ(reply["ASDEnable"], "1");
  EXPECT_EQ(reply["DaysOut"], "I am out of the office from var_First until var_Back.");
  EXPECT_EQ(reply["AppendSubjectDate"], "(back on var_Back)");
}

TEST_F(OOOQuery, OnAndOffStatesInAgentMode) {
  addJane("agent");
  auto state = [&](const char* taskState, const char* adminStatus) {
    editProfile([&](NOTEHANDLE p) {
      setText(p, "TaskState", taskState);
      setText(p, "AdminP_Status", adminStatus);
    });
    return query()["OOOEnable"];
  };
  // The shipped agent is disabled: without an AdminP_Status verdict the
  // agent decides.
  EXPECT_EQ(state("1", ""), "0");
  EXPECT_EQ(state("2", "enable"), "1");  // the verdict is read without case
  EXPECT_EQ(state("0", "Enable"), "0");  // off, and the agent is off
  EXPECT_EQ(state("3", "DISABLE"), "0");
  EXPECT_EQ(state("x", ""), "0");       // unknown first character: stays off
  EXPECT_EQ(state("", "ENABLE"), "0");  // empty TaskState is off
  IPOOO context;
  openJane(context);
  ASSERT_EQ(context.setAgentEnable(1), 1);
  context.reset(0);
  EXPECT_EQ(state("1", ""), "1");        // the enabled agent says on
  EXPECT_EQ(state("0", "ENABLE"), "1");  // off in the profile, but the agent runs
  EXPECT_EQ(state("3", "disable"), "0");
}

TEST_F(OOOQuery, FormulasOnTheProfileGiveTheirLastTextEntry) {
  addJane("agent");
  std::string result = "unchanged";
  IPOOO closed;
  EXPECT_EQ(closed.ProcessFormula("\"a\"", result), NOERROR);  // no profile: nothing to evaluate
  EXPECT_EQ(result, "unchanged");

  IPOOO context;
  openJane(context);
  EXPECT_EQ(context.ProcessFormula("\"first\" : \"last\"", result), NOERROR);
  EXPECT_EQ(result, "last");
  EXPECT_EQ(context.ProcessFormula("1 + 2", result), NOERROR);  // a number leaves the text alone
  EXPECT_EQ(result, "last");
  EXPECT_NE(context.ProcessFormula("@Text(", result), NOERROR);  // does not compile
  EXPECT_EQ(result, "last");
  ASSERT_EQ(NSFItemSetText(context.hProfile, "Owner", "Ann", 3), NOERROR);
  EXPECT_EQ(context.ProcessFormula("Owner + \" Lee\"", result), NOERROR);  // against the profile's items
  EXPECT_EQ(result, "Ann Lee");

  // The content's own status is that of walking the service profile, which
  // ends on a failing call.
  context.getOOOType();
  EXPECT_NE(context.getOOOContent(), NOERROR);
}

TEST_F(OOOQuery, ModeRulesFollowOOOUseOOOAPI) {
  // A database enabled for the service whose profile says agent mode: the
  // service interface and the TaskType rule disagree.
  addJane("service");
  editProfile([&](NOTEHANDLE p) { setText(p, "TaskType", "1"); });
  auto mode = [&](const char* useApi, const char* taskState) {
    if (useApi == nullptr) {
      OSSetEnvironmentVariable("OOOUseOOOAPI", "");
    } else {
      OSSetEnvironmentVariable("OOOUseOOOAPI", useApi);
    }
    editProfile([&](NOTEHANDLE p) { setText(p, "TaskState", taskState); });
    IPOOO context;
    context.Username = kJane;
    context.MailServer = kMail1;
    context.MailBox = kJaneMail;
    context.useOOOAPI(1);
    context.getOOOProfile(1);
    const int agent = context.getOOOType();
    EXPECT_EQ(agent, context.agentMode);
    return std::make_pair(agent, context.useAPI);
  };
  EXPECT_EQ(mode(nullptr, "0"), std::make_pair(1, 0));  // unset: TaskType rule, flag cleared
  EXPECT_EQ(mode("2", "0"), std::make_pair(1, 0));
  EXPECT_EQ(mode("1", "0"), std::make_pair(0, 1));  // the service answers
  EXPECT_EQ(mode("1", "1"), std::make_pair(1, 1));  // on: the service is not asked
  editProfile([&](NOTEHANDLE p) { setText(p, "TaskType", "2"); });
  EXPECT_EQ(mode(nullptr, "1").first, 0);
  editProfile([&](NOTEHANDLE p) { NSFItemDelete(p, "TaskType", 8); });
  EXPECT_EQ(mode("2", "1").first, 1);
  OSSetEnvironmentVariable("OOOUseOOOAPI", "");
}

TEST_F(OOOQuery, ClusterFailOverUsesTheNextServerThatServesTheMailFile) {
  // Mail3 (the user's server) is down; Mail1 (this server) has no copy of
  // the mail file; Mail2 serves it from its own data directory.
  const fs::path mail2 = root_ / "mail2";
  admin({"init", mail2.string(), "--server", "Mail2/Acme", "--cluster", "AcmeCluster"});
  admin({"mailfile", "create", kJaneMail, "--owner", "Jane Doe/Acme", "--mode", "agent"}, mail2);
  admin({"server", "add", "Mail3/Acme", "--cluster", "AcmeCluster", "--down"});
  admin({"server", "add", "Mail2/Acme", "--cluster", "AcmeCluster", "--data", mail2.string()});

  IPOOO context;
  std::vector<std::string> cluster;
  EXPECT_EQ(context.get_server_cluster("CN=Mail3/O=Acme", cluster), 3);
  EXPECT_EQ(cluster, (std::vector<std::string>{kMail1, "CN=Mail3/O=Acme", "CN=Mail2/O=Acme"}));

  // Through the task: only Mail2's copy can answer.
  const Reply reply = query({"--mailserver", "Mail3/Acme", "--mailfile", kJaneMail});
  EXPECT_EQ(reply.user, "Jane Doe");
  // The context carries the fail-over server on for the rest of the request.
  queryInProcess(context, "CN=Mail3/O=Acme");
  EXPECT_EQ(context.MailServer, "CN=Mail2/O=Acme");

  // Without a reachable copy the open's status is raised.
  IPOOO lost;
  lost.Username = kJane;
  lost.MailServer = "CN=Mail3/O=Acme";
  lost.MailBox = "mail/nobody.nsf";
  try {
    lost.getOOOProfile(1);
    ADD_FAILURE() << "no server serves mail/nobody.nsf";
  } catch (const IPException& e) {
    EXPECT_EQ(e.show(), "getOOOProfile:" + lost.getErrorMsg(ERR_SESSION_CLOSED));
  }
  EXPECT_EQ(lost.getOOOProfile(0), ERR_SESSION_CLOSED);
}

TEST_F(OOOQuery, FailOverPassesOverServersNamedLikeTheFirstCharactersOfTheMailServer) {
  // "CN=Mail3" is a server of its own that holds the mail file, but its name
  // is how the unreachable "CN=Mail3/O=Acme" begins, so fail-over passes it
  // by and takes Mail2, listed after it.
  const fs::path mail2 = root_ / "mail2";
  const fs::path flat = root_ / "flat";
  for (const auto& [dir, name] : {std::pair{mail2, "Mail2/Acme"}, std::pair{flat, "Mail3"}}) {
    admin({"init", dir.string(), "--server", name, "--cluster", "AcmeCluster"});
    admin({"mailfile", "create", kJaneMail, "--owner", "Jane Doe/Acme", "--mode", "agent"}, dir);
  }
  admin({"server", "add", "Mail3/Acme", "--cluster", "AcmeCluster", "--down"});
  admin({"server", "add", "CN=Mail3", "--cluster", "AcmeCluster", "--data", flat.string()});
  admin({"server", "add", "Mail2/Acme", "--cluster", "AcmeCluster", "--data", mail2.string()});

  IPOOO context;
  std::vector<std::string> cluster;
  context.get_server_cluster("CN=Mail3/O=Acme", cluster);
  ASSERT_EQ(cluster, (std::vector<std::string>{kMail1, "CN=Mail3/O=Acme", "CN=Mail3", "CN=Mail2/O=Acme"}));
  queryInProcess(context, "CN=Mail3/O=Acme");
  EXPECT_EQ(context.MailServer, "CN=Mail2/O=Acme");
}

// Runs use on the stored "OutOfOffice" agent note of Jane's mail database.
template <typename Use>
void withAgentNote(Use use) {
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kJaneMail, &db), NOERROR);
  NOTEID id = 0;
  NOTEHANDLE note = NULLHANDLE;
  EXPECT_EQ(NIFFindDesignNote(db, "OutOfOffice", NOTE_CLASS_FILTER, &id), NOERROR);
  if (id != 0 && NSFNoteOpen(db, id, 0, &note) == NOERROR) {
    use(note);
    NSFNoteClose(note);
  } else {
    ADD_FAILURE() << "no agent note";
  }
  NSFDbClose(db);
}

// The stored agent note's text item.
std::string agentItem(const char* name) {
  std::string value = "<missing>";
  withAgentNote([&](NOTEHANDLE note) {
    char text[256] = {0};
    if (NSFItemIsPresent(note, name, static_cast<WORD>(std::strlen(name)))) {
      value.assign(text, NSFItemGetText(note, name, text, sizeof text));
    }
  });
  return value;
}

// Replaces the agent note's "$AssistInfo" with a value of the given bytes.
void writeAssistInfo(const std::vector<char>& bytes) {
  withAgentNote([&](NOTEHANDLE note) {
    NSFItemDelete(note, "$AssistInfo", 11);
    ASSERT_EQ(NSFItemAppend(note, ITEM_SIGN, "$AssistInfo", 11, TYPE_ASSISTANT_INFO, bytes.data(), bytes.size()),
              NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
  });
}

// The stored "$AssistInfo" value without its type word.
std::vector<char> readAssistInfo() {
  std::vector<char> bytes;
  withAgentNote([&](NOTEHANDLE note) {
    BLOCKID item{}, value{};
    WORD type = 0;
    DWORD length = 0;
    if (NSFItemInfo(note, "$AssistInfo", 11, &item, &type, &value, &length) == NOERROR && length >= sizeof(WORD)) {
      const char* stored = OSLockBlock(char, value) + sizeof(WORD);
      bytes.assign(stored, stored + length - sizeof(WORD));
      OSUnlockObject(value.pool);
    }
  });
  return bytes;
}

TEST_F(OOOQuery, EnablingUpgradesOldScheduleRecordsShortOnesIncluded) {
  addJane("agent");
  auto enable = [&] {
    IPOOO context;
    openJane(context);
    EXPECT_EQ(context.setAgentEnable(1), 1);
  };
  // A version 1 record comes back as version 2, the rest unchanged.
  std::vector<char> record(ODSLength(_ODS_ASSISTSTRUCT), 0);
  record[0] = 1;  // wVersion, little-endian
  record[2] = 7;  // the next field
  writeAssistInfo(record);
  enable();
  std::vector<char> upgraded = record;
  upgraded[0] = 2;
  EXPECT_EQ(readAssistInfo(), upgraded);
  // A value shorter than the record is read as far as it goes and written
  // back whole, the missing bytes as zero.
  writeAssistInfo({1, 0, 3});
  enable();
  std::vector<char> completed(ODSLength(_ODS_ASSISTSTRUCT), 0);
  completed[0] = 2;
  completed[2] = 3;
  EXPECT_EQ(readAssistInfo(), completed);
  // A version 2 record is left as it is.
  writeAssistInfo(upgraded);
  enable();
  EXPECT_EQ(readAssistInfo(), upgraded);
}

TEST_F(OOOQuery, AgentSwitchesChangeTheAgentNoteAndProfile) {
  addJane("agent");
  IPOOO context;
  openJane(context);
  EXPECT_EQ(context.isAgentEnable(0), 0);
  EXPECT_EQ(context.IsServiceEnabled(), 0u);

  EXPECT_EQ(context.setAgentEnable(1), 1);
  EXPECT_EQ(context.isAgentEnable(0), 0);  // the open handle is a snapshot
  EXPECT_EQ(context.isAgentEnable(1), 1);
  EXPECT_NE(agentItem("$AssistFlags").find('E'), std::string::npos);
  EXPECT_EQ(agentItem("$MachineName"), kMail1);
  EXPECT_EQ(agentItem("$UpdatedBy"), kMail1);
  EXPECT_EQ(agentItem("$OnBehalfOf"), kJane);  // the CalendarProfile's Owner
  EXPECT_EQ(context.isAgentActivation(), 0);   // an agent handle is held

  // Enabling again: flags keep one E.
  EXPECT_EQ(context.setAgentEnable(1), 1);
  const std::string flags = agentItem("$AssistFlags");
  EXPECT_EQ(std::count(flags.begin(), flags.end(), 'E'), 1) << flags;

  // An enabled agent: EnableAgent only writes TaskType 1 and TaskState 0.
  EXPECT_EQ(context.EnableAgent(), 1);
  char text[16] = {0};
  NSFItemGetText(context.hProfile, "TaskState", text, sizeof text);
  EXPECT_STREQ(text, "0");
  NSFItemGetText(context.hProfile, "TaskType", text, sizeof text);
  EXPECT_STREQ(text, "1");

  // Disabling removes the E and marks the profile off.
  EXPECT_EQ(context.setAgentEnable(0), 1);
  EXPECT_EQ(agentItem("$AssistFlags").find('E'), std::string::npos);
  EXPECT_EQ(context.isAgentEnable(1), 0);
  context.reset(0);
  IPOOO fresh;
  fresh.Username = kJane;
  fresh.MailServer = kMail1;
  fresh.MailBox = kJaneMail;
  fresh.getOOOProfile(1);
  EXPECT_EQ(fresh.isAgentActivation(), 1);  // "$FlagsExt" got its "a"
}

TEST_F(OOOQuery, ProfileWritesReplaceItems) {
  addJane("service");
  IPOOO context;
  context.Username = kJane;
  context.MailServer = kMail1;
  context.MailBox = kJaneMail;
  EXPECT_EQ(context.SetOptionField("X", IPOOO::kOptionOne), 0);  // nothing open yet
  ASSERT_EQ(context.getOOOProfile(1), NOERROR);
  EXPECT_EQ(context.IsServiceEnabled(), 1u);

  context.SetOptionField("Opt", IPOOO::kOptionEmpty);
  EXPECT_TRUE(NSFItemIsPresent(context.hProfile, "Opt", 3));
  char text[64] = {0};
  EXPECT_EQ(NSFItemGetText(context.hProfile, "Opt", text, sizeof text), 0);
  context.SetOptionField("Opt", IPOOO::kOptionOne);
  NSFItemGetText(context.hProfile, "Opt", text, sizeof text);
  EXPECT_STREQ(text, "1");
  context.SetOptionField("Opt", IPOOO::kOptionDelete);
  EXPECT_FALSE(NSFItemIsPresent(context.hProfile, "Opt", 3));

  NSFItemSetText(context.hProfile, "DaysOutDisplay", "x", 1);
  NSFItemSetText(context.hProfile, "$MachineName", "M", 1);
  context.DaysOut = "5";
  context.AppendSubjectDate = "d";
  EXPECT_EQ(context.SaveOOOProfile(1), 1);
  EXPECT_EQ(context.SaveOOOProfile(0), 1);
  EXPECT_FALSE(NSFItemIsPresent(context.hProfile, "DaysOutDisplay", 14));
  EXPECT_EQ(NSFItemGetTextListEntries(context.hProfile, "DaysOut"), 1);
  NSFItemGetText(context.hProfile, "Form", text, sizeof text);
  EXPECT_STREQ(text, "OutofOfficeProfile");
  NSFItemGetText(context.hProfile, "OwnerMailFile", text, sizeof text);
  EXPECT_STREQ(text, kMail1);

  context.agentMode = 0;
  context.OOOEnable = false;
  EXPECT_EQ(context.PostOpen(), 0);
  NUMBER saveOptions = -1;
  EXPECT_TRUE(NSFItemGetNumber(context.hProfile, "SaveOptions", &saveOptions));
  EXPECT_EQ(saveOptions, 0);
  NSFItemGetText(context.hProfile, "CurrentStatus", text, sizeof text);
  EXPECT_STREQ(text, "0");
  NSFItemGetText(context.hProfile, "NotificationConfirmation", text, sizeof text);
  EXPECT_STREQ(text, "0");
  EXPECT_TRUE(NSFItemIsPresent(context.hProfile, "AdminP_Status", 13));
}

// The whole request: a real task, the request file, "MQ$OutOfOffice", the
// reply queue and the reply document written over the request file.
TEST_F(OOOQuery, TaskProcessAnswersQueriesConcurrency) {
  addJane("agent");
  startTask();
  const std::string console = (root_ / "console.txt").string();
  MQHANDLE requests = task_.requests();
  MQHANDLE replies = NULLHANDLE;
  ASSERT_EQ(MQCreate("MQ$OOOServletList_7", 0, 0), NOERROR);
  ASSERT_EQ(MQOpen("MQ$OOOServletList_7", 0, &replies), NOERROR);
  queues_.push_back(replies);

  auto ask = [&](const std::string& name, const std::string& mailBox) {
    fs::create_directories(data() / "spool");
    const fs::path path = data() / "spool" / name;
    std::ofstream(path) << "<Username MQName='MQ$OOOServletList_7' Action='1' MailServer='" << kMail1 << "' MailBox='"
                        << mailBox << "'>" << kJane << "</Username>";
    std::string text = path.string();
    EXPECT_EQ(MQPut(requests, 0, text.data(), static_cast<WORD>(text.size()), 0), NOERROR);
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    WORD length = 0;
    const STATUS got = MQGet(replies, buffer.data(), static_cast<WORD>(buffer.size()), 0, 30000, &length);
    EXPECT_EQ(got, NOERROR) << readFile(console);
    return std::make_pair(std::string(buffer.data(), length), readFile(path));
  };

  const auto [ok, document] = ask("q1.xml", kJaneMail);
  EXPECT_EQ(ok, "OK");
  const Reply reply = parseReply(document);
  EXPECT_EQ(reply.order, without(kReplyAttributes, {"DaysOutValue", "AppendSubjectDate", "AppendSubjectDateValue"}));
  EXPECT_EQ(reply["Subject"], "Jane Doe is out of the office");
  EXPECT_EQ(reply["TaskType"], "1");
  EXPECT_EQ(reply.user, "Jane Doe");
  const auto logged = std::chrono::steady_clock::now() + 10s;
  while (readFile(console).find("Tarnwick: [Jane Doe/Acme] OutOfOfficeProfile has been read.") == std::string::npos &&
         std::chrono::steady_clock::now() < logged) {
    std::this_thread::sleep_for(20ms);
  }
  EXPECT_NE(readFile(console).find("Tarnwick: [Jane Doe/Acme] OutOfOfficeProfile has been read."), std::string::npos);

  // A mail file that does not exist: the error text is the reply, the
  // request file stays as it was and nothing is logged for it.
  const auto [error, unchanged] = ask("q2.xml", "mail/nobody.nsf");
  EXPECT_EQ(error.rfind("getOOOProfile:", 0), 0u) << error;
  EXPECT_NE(unchanged.find("<Username"), std::string::npos);
  EXPECT_EQ(readFile(console).find("has been read", readFile(console).find("has been read.") + 1), std::string::npos);
}

}  // namespace
