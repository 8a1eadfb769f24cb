// Set requests end to end: the real tarnwick task driven with
// `tarnwick-admin request set`/`query` (or straight through its queues) on
// mail databases made from our mail template, and the stored notes read back
// with `tarnwick-admin note dump --json`: switching on and off in agent and
// service mode, the date checks, the profile content rules, the calendar
// entry, and what survives concurrent sets and a task killed mid-burst.
#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <utility>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "nsfsearch.h"
#include "formula.h"
#include "osmem.h"
#include "request/IPOOO.h"
#include "osenv.h"
#include "tests/support/reply_document.h"
#include "tests/support/task_process.h"
#include "tests/task/mail_database_fixture.h"

#include <nlohmann/json.hpp>

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using json = nlohmann::json;

using tarnwick::testing::kJane;
using tarnwick::testing::kJaneMail;
using tarnwick::testing::kMail1;
using tarnwick::testing::parseReply;
using tarnwick::testing::readFile;
using tarnwick::testing::Reply;

// A local time some days from today at a clock time, as the request
// options take it ("2026-03-02T09:30:00").
std::string localTime(int days, int hour, int minute = 0, int second = 0) {
  std::time_t now = std::time(nullptr);
  std::tm day{};
  localtime_r(&now, &day);
  day.tm_mday += days;
  day.tm_hour = hour;
  day.tm_min = minute;
  day.tm_sec = second;
  day.tm_isdst = -1;
  std::mktime(&day);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &day);
  return text;
}

// The same moment as the reply document's date attributes show it.
std::map<std::string, std::string> replyDate(const std::string& prefix, const std::string& local) {
  std::tm t{};
  strptime(local.c_str(), "%Y-%m-%dT%H:%M:%S", &t);
  return {{prefix + "Year", std::to_string(t.tm_year + 1900)},
          {prefix + "Month", std::to_string(t.tm_mon + 1)},
          {prefix + "Day", std::to_string(t.tm_mday)}};
}

// The items of a dumped note by name (the first of each name) and how many
// items of each name there are.
struct Dump {
  json note;
  std::map<std::string, json> items;
  std::map<std::string, int> counts;
  bool has(const std::string& name) const { return items.count(name) != 0; }
  std::string text(const std::string& name) const {
    auto found = items.find(name);
    if (found == items.end()) return "<missing>";
    const json& value = found->second["value"];
    return value.is_string() ? value.get<std::string>() : value.dump();
  }
  int sequence() const { return note.value("sequence", -1); }
};

// The date attributes of a request document for a local time.
std::string dateAttributes(const std::string& prefix, const std::string& local) {
  std::tm t{};
  strptime(local.c_str(), "%Y-%m-%dT%H:%M:%S", &t);
  const std::pair<const char*, int> parts[] = {{"Year", t.tm_year + 1900}, {"Month", t.tm_mon + 1},
                                               {"Day", t.tm_mday},         {"Hour", t.tm_hour},
                                               {"Min", t.tm_min},          {"Sec", t.tm_sec}};
  std::string out;
  for (const auto& [name, value] : parts) out += " " + prefix + name + "='" + std::to_string(value) + "'";
  return out;
}

// A set request document as a front end writes it.
std::string setDocument(const std::string& replyQueue, const std::string& user, const std::string& mailFile,
                        bool enable, const std::string& subject) {
  return "<Request><Username MQName='" + replyQueue + "' Action='2' MailServer='" + kMail1 + "' MailBox='" +
         mailFile + "' OOOEnable='" + (enable ? "1" : "0") + "' Subject='" + subject + "'" +
         dateAttributes("StartTime", localTime(1, 9)) + dateAttributes("EndTime", localTime(4, 9)) + ">" + user +
         "</Username></Request>";
}

// A user's stored state, read in this process straight from the mail file.
struct StoredState {
  std::string taskState, subject, entryId;
  bool entryBusy = false;  // the entry the profile names opens and is busy
  int busyEntries = -1;    // "Out Of Office" entries booked as busy
};

std::string textOf(NOTEHANDLE note, const char* name) {
  char text[256] = {0};
  return std::string(text, NSFItemGetText(note, name, text, sizeof text));
}

STATUS LNCALLBACK countMatch(void* count, SEARCH_MATCH*, ITEM_TABLE*) {
  ++*static_cast<int*>(count);
  return NOERROR;
}

StoredState readState(const std::string& mailFile) {
  StoredState state;
  DBHANDLE db = NULLHANDLE;
  if (NSFDbOpen(mailFile.c_str(), &db) != NOERROR) return state;
  NOTEHANDLE profile = NULLHANDLE;
  if (NSFProfileOpen(db, "OutOfOfficeProfile", 18, nullptr, 0, FALSE, &profile) == NOERROR) {
    state.taskState = textOf(profile, "TaskState");
    state.subject = textOf(profile, "GeneralSubject");
    state.entryId = textOf(profile, "CalendarEntryUNID");
    NSFNoteClose(profile);
  }
  if (state.entryId.size() == 32) {
    UNIVERSALNOTEID unid{};
    IPOOO::ConvertStringToUNID(state.entryId.c_str(), &unid);
    NOTEHANDLE entry = NULLHANDLE;
    if (NSFNoteOpenByUNID(db, &unid, 0, &entry) == NOERROR) {
      state.entryBusy = textOf(entry, "$BusyPriority") == "1" && textOf(entry, "Subject") == "Out Of Office";
      NSFNoteClose(entry);
    }
  }
  const char formula[] = "SELECT Form = \"Appointment\" & $BusyPriority = \"1\"";
  FORMULAHANDLE compiled = NULLHANDLE;
  if (NSFFormulaCompile(nullptr, 0, formula, sizeof formula - 1, &compiled, nullptr, nullptr, nullptr, nullptr,
                        nullptr, nullptr) == NOERROR) {
    int count = 0;
    if (NSFSearch(db, compiled, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, countMatch, &count, nullptr) == NOERROR) {
      state.busyEntries = count;
    }
    OSMemFree(compiled);
  }
  NSFDbClose(db);
  return state;
}

// Request files put straight on the task's queue, each with a reply queue
// of its own, as many front ends at once do.
class Burst {
 public:
  explicit Burst(fs::path folder) : folder_(std::move(folder)) { fs::create_directories(folder_); }
  Burst(const Burst&) = delete;
  Burst& operator=(const Burst&) = delete;
  ~Burst() {
    for (Sent& sent : sent_) MQClose(sent.queue, 0);
  }

  // The reply queue name for the next request.
  std::string nextQueue() const { return "TWSetReply_" + std::to_string(::getpid()) + "_" + std::to_string(sent_.size()); }

  // Writes the document and puts its path on the request queue.
  void send(const std::string& document) {
    Sent sent;
    const std::string name = nextQueue();
    EXPECT_EQ(MQCreate(name.c_str(), 0, 0), NOERROR);
    EXPECT_EQ(MQOpen(name.c_str(), 0, &sent.queue), NOERROR);
    const fs::path file = folder_ / (name + ".xml");
    std::ofstream(file) << document;
    MQHANDLE requests = NULLHANDLE;
    ASSERT_EQ(MQOpen("MQ$OutOfOffice", 0, &requests), NOERROR);
    std::string text = file.string();
    EXPECT_EQ(MQPut(requests, 0, text.data(), static_cast<WORD>(text.size()), 0), NOERROR);
    MQClose(requests, 0);
    sent_.push_back(sent);
  }

  // Collects replies until at least `count` have come or the time is up;
  // returns how many have come.
  size_t collect(size_t count, std::chrono::milliseconds within) {
    const auto until = std::chrono::steady_clock::now() + within;
    size_t answered = 0;
    do {
      answered = 0;
      for (Sent& sent : sent_) {
        if (!sent.answered) {
          char buffer[4096];
          WORD length = 0;
          if (MQGet(sent.queue, buffer, sizeof buffer, 0, 0, &length) == NOERROR) {
            sent.reply.assign(buffer, length);
            sent.answered = true;
          }
        }
        answered += sent.answered ? 1 : 0;
      }
      if (answered >= count) break;
      std::this_thread::sleep_for(5ms);
    } while (std::chrono::steady_clock::now() < until);
    return answered;
  }

  struct Sent {
    MQHANDLE queue = NULLHANDLE;
    bool answered = false;
    std::string reply;
  };
  const std::vector<Sent>& sent() const { return sent_; }

 private:
  fs::path folder_;
  std::vector<Sent> sent_;
};

class OOOSet : public tarnwick::testing::MailDatabaseTest {
 protected:
  void SetUp() override {
    MailDatabaseTest::SetUp();
    OSSetEnvironmentVariable("OOOWorkers", "4");
  }

  void TearDown() override {
    task_.kill();
    MailDatabaseTest::TearDown();
  }

  fs::path console() const { return root_ / "console.txt"; }

  void startTask() { ASSERT_TRUE(task_.start(data(), console(), tarnwick::testing::ConsoleFile::kAppend)) << readFile(console()); }

  // Sends a request of the kind ("set", "query") for a user through
  // tarnwick-admin; returns the reply text and the reply document.
  std::pair<std::string, Reply> request(const char* kind, std::vector<std::string> options,
                                        const std::string& user = "Jane Doe/Acme") {
    if (!task_.running()) startTask();
    std::vector<std::string> args = {"request", kind, "--user", user, "--json"};
    args.insert(args.end(), options.begin(), options.end());
    const json answer = json::parse(admin(args), nullptr, false);
    if (answer.is_discarded() || !answer["reply"].is_string()) {
      ADD_FAILURE() << "no reply: " << readFile(root_ / "admin.log");
      return {};
    }
    return {answer["reply"].get<std::string>(), parseReply(answer.value("document", ""))};
  }
  std::pair<std::string, Reply> set(std::vector<std::string> options) { return request("set", std::move(options)); }
  Reply query() {
    auto [text, reply] = request("query", {});
    EXPECT_EQ(text, "OK");
    return reply;
  }

  // A stored note of Jane's mail database: selector is the dump option
  // ("--profile", "--design", "--unid", "--noteid") with its value.
  Dump dump(const std::string& option, const std::string& value) {
    Dump result;
    result.note = json::parse(admin({"note", "dump", kJaneMail, option, value, "--json"}), nullptr, false);
    if (result.note.is_discarded()) {
      ADD_FAILURE() << "no dump of " << option << " " << value;
      return result;
    }
    for (const json& item : result.note["items"]) {
      const std::string name = item["name"];
      if (result.counts[name]++ == 0) result.items[name] = item;
    }
    return result;
  }
  Dump profile() { return dump("--profile", "OutOfOfficeProfile"); }
  Dump agent() { return dump("--design", "OutOfOffice"); }
  Dump icon() { return dump("--noteid", "0xFFFF0010"); }

  // Writes the icon note's "$Flags" (making the note when the mail file has
  // none) as a mail client would.
  void editIcon(const std::string& flags) {
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(kJaneMail, &db), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    if (NSFNoteOpen(db, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &note) != NOERROR) {
      ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
      WORD iconClass = NOTE_CLASS_ICON;
      NSFNoteSetInfo(note, _NOTE_CLASS, &iconClass);
    }
    NSFItemDelete(note, "$Flags", 6);
    ASSERT_EQ(NSFItemSetText(note, "$Flags", flags.c_str(), static_cast<WORD>(flags.size())), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    NSFDbClose(db);
  }

  bool logged(const std::string& line) {
    const auto until = std::chrono::steady_clock::now() + 10s;
    while (readFile(console()).find(line) == std::string::npos) {
      if (std::chrono::steady_clock::now() > until) return false;
      std::this_thread::sleep_for(20ms);
    }
    return true;
  }

  tarnwick::testing::TaskProcess task_;
};

TEST_F(OOOSet, AgentModeSwitchesOnAndOff) {
  addJane("agent");
  editProfile([](NOTEHANDLE p) {
    setText(p, "BookBusyTime", "1");
    setText(p, "AppendSubject", "1");
  });
  const std::string leave = localTime(2, 9);
  const std::string back = localTime(5, 17);
  auto [text, reply] = set({"--enable", "--leave", leave, "--return", back, "--subject", "Away", "--message",
                            "Line one\r\nLine two", "--days-out", "4", "--exclude-internet"});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(reply["OOOEnable"], "1");
  EXPECT_EQ(reply["TaskType"], "1");
  EXPECT_EQ(reply["Subject"], "Away");
  EXPECT_EQ(reply["Message"], "Line one\nLine two");
  for (const auto& [name, value] : replyDate("StartTime", leave)) EXPECT_EQ(reply[name], value) << name;
  for (const auto& [name, value] : replyDate("EndTime", back)) EXPECT_EQ(reply[name], value) << name;
  EXPECT_TRUE(logged("Tarnwick: [Jane Doe/Acme] OutOfOfficeProfile has been updated."));

  Dump stored = profile();
  EXPECT_EQ(stored.text("TaskState"), "1");
  EXPECT_EQ(stored.text("TaskType"), "1");
  EXPECT_EQ(stored.text("CurrentStatus"), "1");
  EXPECT_EQ(stored.text("UpdateSettings"), "");
  EXPECT_EQ(stored.text("UserDefineProhibitDesignUpdate"), "1");
  EXPECT_EQ(stored.text("GeneralMessage"), "Line one\nLine two");  // CR LF stored as LF
  EXPECT_EQ(stored.text("DaysOut"), "4");
  EXPECT_EQ(stored.text("ExcludeInternetEmail"), "1");
  EXPECT_EQ(stored.text("AppendSubject"), "1");  // ASDEnable not given: left alone
  EXPECT_EQ(stored.text("SaveOptions"), "0.0");
  EXPECT_EQ(stored.counts["TaskState"], 1);
  EXPECT_NE(agent().text("$AssistFlags").find('E'), std::string::npos);

  // The calendar entry is booked as busy over the period.
  const std::string entryId = stored.text("CalendarEntryUNID");
  ASSERT_EQ(entryId.size(), 32u) << entryId;
  Dump entry = dump("--unid", entryId);
  EXPECT_EQ(entry.text("Subject"), "Out Of Office");
  EXPECT_EQ(entry.text("$BusyPriority"), "1");
  EXPECT_EQ(entry.text("ApptUNID"), entryId);
  EXPECT_EQ(entry.items["StartDateTime"]["value"]["iso"].get<std::string>().substr(0, 19), leave);

  // A set followed by a query agrees with what was set.
  Reply read = query();
  EXPECT_EQ(read["OOOEnable"], "1");
  EXPECT_EQ(read["Subject"], "Away");
  EXPECT_EQ(read["StartTimeDay"], reply["StartTimeDay"]);
  EXPECT_EQ(read["EndTimeDay"], reply["EndTimeDay"]);

  // Off: the agent stops, the entry is released (kept as free time) and
  // forgotten, and "SaveOptions" -1 is stored.
  std::tie(text, reply) = set({"--enable=0", "--leave", leave, "--return", back});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(reply["OOOEnable"], "0");
  stored = profile();
  EXPECT_EQ(stored.text("TaskState"), "0");
  EXPECT_EQ(stored.text("CurrentStatus"), "0");
  EXPECT_EQ(stored.text("UpdateSettings"), "");
  EXPECT_EQ(stored.text("SaveOptions"), "-1.0");
  EXPECT_FALSE(stored.has("CalendarEntryUNID"));
  EXPECT_EQ(agent().text("$AssistFlags").find('E'), std::string::npos);
  entry = dump("--unid", entryId);
  EXPECT_EQ(entry.text("$BusyPriority"), "2");
  EXPECT_EQ(entry.text("BookFreeTime"), "1");
  EXPECT_EQ(query()["OOOEnable"], "0");

  // Off again for a user already off: "UpdateSettings" "1".
  std::tie(text, reply) = set({"--enable=0", "--leave", leave, "--return", back});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(profile().text("UpdateSettings"), "1");
  EXPECT_EQ(query()["OOOEnable"], "0");

  // Enabling an agent that is on already stores "TaskState" "0" and books
  // nothing new; the query still reports the user as out of the office.
  std::tie(text, reply) = set({"--enable", "--leave", leave, "--return", back});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(profile().text("TaskState"), "1");
  const std::string secondEntry = profile().text("CalendarEntryUNID");
  EXPECT_NE(secondEntry, entryId);  // the released entry is not booked again
  std::tie(text, reply) = set({"--enable", "--leave", localTime(3, 9), "--return", localTime(6, 9)});
  ASSERT_EQ(text, "OK");
  stored = profile();
  EXPECT_EQ(stored.text("TaskState"), "0");
  EXPECT_EQ(stored.text("CalendarEntryUNID"), secondEntry);
  EXPECT_EQ(query()["OOOEnable"], "1");
}

TEST_F(OOOSet, ServiceModeMarksTheDatabaseAndBooksTheEntry) {
  addJane("service");
  editProfile([](NOTEHANDLE p) {
    setText(p, "BookBusyTime", "1");
    setText(p, "Notified", "CN=Ann Lee/O=Acme");
  });
  editProfile([](NOTEHANDLE p) { setList(p, "Notified_1", {"CN=Bob Ray/O=Acme"}); }, "OOServiceProfile");
  editIcon("b");  // not yet enabled for the service

  const std::string leave = localTime(1, 10);
  const std::string back = localTime(3, 10);
  // The mail file is named without ".nsf".
  auto [text, reply] = set({"--enable", "--leave", leave, "--return", back, "--subject", "Off", "--mailserver",
                            kMail1, "--mailfile", "mail/jdoe", "--asd-enable", "--append-subject=0",
                            "--append-subject-date", "(back soon)", "--show-hours", "1"});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(reply["TaskType"], "2");
  EXPECT_EQ(reply["OOOEnable"], "1");
  EXPECT_EQ(reply["ShowHours"], "1");

  Dump stored = profile();
  EXPECT_EQ(stored.text("TaskType"), "2");
  EXPECT_EQ(stored.text("TaskState"), "1");
  EXPECT_EQ(stored.text("AppendSubject"), "0");
  EXPECT_EQ(stored.text("AppendSubjectDate"), "(back soon)");
  EXPECT_FALSE(stored.has("Notified"));
  Dump marked = icon();
  EXPECT_EQ(marked.text("$Flags"), "bO");
  // The profile was saved three times in the request: once before the icon
  // note took its sequence, twice after.
  EXPECT_EQ(marked.text("$OOOProfSeqNum"), std::to_string(stored.sequence() - 3) + ".0");
  EXPECT_TRUE(marked.has("$OOOProfSeqTime"));
  EXPECT_FALSE(dump("--profile", "OOServiceProfile").has("Notified_1"));
  const std::string entryId = stored.text("CalendarEntryUNID");
  ASSERT_EQ(entryId.size(), 32u);

  // On again with new dates: the same entry moves, the icon note is left.
  const std::string laterLeave = localTime(4, 8);
  std::tie(text, reply) = set({"--enable", "--leave", laterLeave, "--return", localTime(9, 8)});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(profile().text("CalendarEntryUNID"), entryId);
  EXPECT_EQ(dump("--unid", entryId).items["StartDateTime"]["value"]["iso"].get<std::string>().substr(0, 19),
            laterLeave);
  EXPECT_EQ(icon().sequence(), marked.sequence());

  // Off: "TaskType" stays 2, "$Flags" keeps its "O", the entry is released;
  // "SaveOptions" -1 is set after the save and so not stored.
  std::tie(text, reply) = set({"--enable=0", "--leave", leave, "--return", back});
  ASSERT_EQ(text, "OK");
  stored = profile();
  EXPECT_EQ(stored.text("TaskType"), "2");
  EXPECT_EQ(stored.text("TaskState"), "0");
  EXPECT_EQ(stored.text("UpdateSettings"), "");
  EXPECT_EQ(stored.text("SaveOptions"), "0.0");
  EXPECT_FALSE(stored.has("CalendarEntryUNID"));
  EXPECT_EQ(icon().text("$Flags"), "bO");
  EXPECT_EQ(dump("--unid", entryId).text("BookFreeTime"), "1");
  EXPECT_EQ(query()["OOOEnable"], "0");

  std::tie(text, reply) = set({"--enable=0", "--leave", leave, "--return", back});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(profile().text("UpdateSettings"), "1");

  // An entry the user deleted: the profile's stale identifier is reported.
  admin({"note", "set", kJaneMail, "--profile", "OutOfOfficeProfile", "CalendarEntryUNID=" + std::string(32, 'A')});
  std::tie(text, reply) = set({"--enable", "--leave", leave, "--return", back});
  EXPECT_EQ(text.rfind("BookBusyTime:", 0), 0u) << text;
  EXPECT_EQ(profile().text("CalendarEntryUNID"), std::string(32, 'A'));
}

// The set opens the profiles inside its own transaction: a mail file that
// cannot be opened is answered as for a query, and a mail file without the
// profiles gets them with the set.
TEST_F(OOOSet, ProfilesAreOpenedWithinTheSet) {
  addJane("agent");
  const std::string leave = localTime(2, 9);
  const std::string back = localTime(5, 17);
  const std::string missing =
      set({"--mailfile", "mail/nobody.nsf", "--enable", "--leave", leave, "--return", back}).first;
  EXPECT_EQ(missing.rfind("getOOOProfile:", 0), 0u) << missing;

  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen(kJaneMail, &db), NOERROR);
  EXPECT_EQ(NSFProfileDelete(db, "OutOfOfficeProfile", 18, nullptr, 0), NOERROR);
  NSFProfileDelete(db, "OOServiceProfile", 16, nullptr, 0);  // a mail file may have none
  NSFDbClose(db);
  auto [text, reply] = set({"--enable", "--leave", leave, "--return", back, "--subject", "Away"});
  ASSERT_EQ(text, "OK");
  EXPECT_EQ(reply["OOOEnable"], "1");
  EXPECT_EQ(reply["Subject"], "Away");
  const Dump stored = profile();
  EXPECT_EQ(stored.text("GeneralSubject"), "Away");
  EXPECT_EQ(stored.text("TaskState"), "1");
  EXPECT_NE(agent().text("$AssistFlags").find('E'), std::string::npos);
}

TEST_F(OOOSet, DatesAreCheckedBeforeAnythingIsStored) {
  addJane("agent");
  const int before = profile().sequence();
  const std::string validate = "ValidateSettings:";
  const std::string notAfter = validate + "Your return date must be later than the date on which you leave.";
  struct Case {
    std::string leave, back, expected;
  };
  const Case agentCases[] = {
      {localTime(-3, 9), localTime(-1, 9), validate + "The return date must be in the future."},
      {localTime(5, 9), localTime(3, 9), notAfter},
      {localTime(2, 9), localTime(2, 17), notAfter},  // one day, different hours
  };
  for (const Case& c : agentCases) {
    EXPECT_EQ(set({"--enable", "--leave", c.leave, "--return", c.back}).first, c.expected) << c.leave;
  }
  EXPECT_EQ(profile().sequence(), before);
  EXPECT_EQ(agent().text("$AssistFlags").find('E'), std::string::npos);

  // Service mode with hours shown: at least one hour, to the second.
  admin({"note", "set", kJaneMail, "--profile", "OutOfOfficeProfile", "TaskType=2"});
  editIcon("O");
  const std::string leave = localTime(2, 9);
  EXPECT_EQ(set({"--enable", "--show-hours", "1", "--leave", leave, "--return", localTime(2, 9, 59, 59)}).first,
            validate + "Your Out of Office duration must be at least one hour.  Please check your start and end times.");
  EXPECT_EQ(set({"--enable", "--show-hours", "1", "--leave", leave, "--return", localTime(2, 10)}).first, "OK");
  // Without hours shown the period is whole days.
  EXPECT_EQ(set({"--enable", "--leave", leave, "--return", localTime(2, 18)}).first, notAfter);
}

// Sets for one user that race each other: both are answered, and the stored
// notes show one of the two states whole: an "on" profile names a busy entry
// with its own subject, an "off" one names none, and at most one entry is
// ever left booked.
TEST_F(OOOSet, RacingSetsForOneUserEndWholeConcurrency) {
  addJane("service");
  editProfile([](NOTEHANDLE p) { setText(p, "BookBusyTime", "1"); });
  startTask();
  Burst burst(data() / "spool");
  for (int round = 0; round < 6; ++round) {
    const std::string subject = "Round " + std::to_string(round);
    burst.send(setDocument(burst.nextQueue(), kJane, kJaneMail, true, subject));
    burst.send(setDocument(burst.nextQueue(), kJane, kJaneMail, false, subject));
    ASSERT_EQ(burst.collect(2 * (round + 1), 60s), 2u * (round + 1)) << readFile(console());
    for (const auto& sent : burst.sent()) EXPECT_EQ(sent.reply, "OK");
    const StoredState state = readState(kJaneMail);
    if (state.taskState == "1") {
      EXPECT_EQ(state.subject, subject);
      EXPECT_TRUE(state.entryBusy) << state.entryId;
    } else {
      EXPECT_EQ(state.taskState, "0");
      EXPECT_EQ(state.entryId, "");
    }
    EXPECT_LE(state.busyEntries, 1);
    EXPECT_GE(state.busyEntries, 0);
  }
}

// The task killed (SIGKILL) in the middle of a burst of sets over many
// users: every set that was answered "OK" is on disk in every note it
// changed, and every other user's notes read whole, as before or as after.
TEST_F(OOOSet, KilledTaskKeepsEveryAnsweredSet) {
  constexpr int kUsers = 12;
  std::vector<std::string> users, files;
  for (int i = 0; i < kUsers; ++i) {
    users.push_back("CN=User " + std::to_string(i) + "/O=Acme");
    files.push_back("mail/user" + std::to_string(i) + ".nsf");
    admin({"mailfile", "create", files[i], "--owner", "User " + std::to_string(i) + "/Acme", "--mode", "service"});
    editProfile([](NOTEHANDLE p) { setText(p, "BookBusyTime", "1"); }, "OutOfOfficeProfile", files[i].c_str());
  }
  startTask();
  std::vector<std::string> subjects;
  {
    Burst burst(data() / "spool");
    for (int i = 0; i < kUsers; ++i) {
      subjects.push_back("Crash " + std::to_string(i));
      burst.send(setDocument(burst.nextQueue(), users[i], files[i], true, subjects[i]));
    }
    burst.collect(kUsers / 3, 60s);
    task_.kill();
    burst.collect(kUsers, 0ms);  // answers that were sent before the kill
    size_t acknowledged = 0;
    for (int i = 0; i < kUsers; ++i) {
      const auto& sent = burst.sent()[i];
      const StoredState state = readState(files[i]);
      ASSERT_GE(state.busyEntries, 0) << files[i] << " does not read whole";
      if (sent.answered) {
        ++acknowledged;
        EXPECT_EQ(sent.reply, "OK");
        EXPECT_EQ(state.taskState, "1") << files[i];
        EXPECT_EQ(state.subject, subjects[i]) << files[i];
        EXPECT_TRUE(state.entryBusy) << files[i];
      } else if (state.taskState == "1") {  // done whole, not yet answered
        EXPECT_EQ(state.subject, subjects[i]) << files[i];
        EXPECT_TRUE(state.entryBusy) << files[i];
      } else {  // not begun
        EXPECT_EQ(state.taskState, "0") << files[i];
        EXPECT_EQ(state.subject, "") << files[i];
      }
      EXPECT_LE(state.busyEntries, 1) << files[i];
    }
    EXPECT_GE(acknowledged, static_cast<size_t>(kUsers / 3));
  }
  // The task starts again on the same data and reports what was stored.
  startTask();
  const auto [text, reply] = request("query", {"--mailserver", kMail1, "--mailfile", files[0]}, "User 0/Acme");
  EXPECT_EQ(text, "OK");
  EXPECT_EQ(reply["OOOEnable"], readState(files[0]).taskState == "1" ? "1" : "0");
}

}  // namespace
