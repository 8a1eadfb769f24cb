// The per-server settings and the request pages through a real tarnwick
// process: the settings document the task makes and completes in OOO.nsf,
// the app parameters it hands to every request, and the three pages written
// over the request files, each compared byte for byte with the page put
// together here from the pages' published pieces.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/fs.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "globerr.h"
#include "mq.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfsearch.h"
#include "osenv.h"
#include "osmem.h"
#include "request/IPOOO.h"
#include "setup/ServerSettings.h"
#include "tests/support/task_process.h"
#include "tests/task/mail_database_fixture.h"

#include <nlohmann/json.hpp>

extern char** environ;

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;
using tarnwick::testing::readFile;

// Not one of the names the task lends to front ends (tarnwick-admin borrows
// those).
constexpr char kReplyQueue[] = "MQ$RequestPagesTest";
constexpr char kStoreLink[] = "https://apps.apple.com/app/corvane-tarnwick/id1480000051";
constexpr char kServerName[] = "CN=Mail1/O=Acme";

// --- The pages as published, piece by piece ---------------------------------

std::string expectedWebPage(const std::string& d, const std::string& link) {
  return std::string("<html><head><span style=\"font-family: arial,helvetica,sans-serif;\"><title>Corvane "
                     "Tarnwick</title><link href=\"") +
         d +
         "/OOO.nsf/favicon.ico\" rel=\"SHORTCUT ICON\"><style type=\"text/css\"> h3 {font-size:20px;} body "
         "{font-size:16px;}</style></span></head>" +
         "<body><span style=\"font-family: arial,helvetica,sans-serif;\"><H3><img src=\"" + d +
         "/OOO.nsf/oooicon.png\"> Corvane Tarnwick</H3><H3>Program Version 2.3.1 Build 2051</H3></span>" +
         "<br><br><HR>" + "<BR><span style=\"font-family: arial,helvetica,sans-serif;\"><A href=\"" + kStoreLink +
         "\">Download iPhone Tarnwick App</A></span>" +
         "<BR><BR><span style=\"font-family: arial,helvetica,sans-serif;\"><A href=\"" + d +
         "/OOO.nsf/OOO.apk\">Download Android Tarnwick App Installer</A></span>" + "<br><br><HR>" +
         "<BR><span style=\"font-family: arial,helvetica,sans-serif;\"><A target=\"_blank\" href=\"" + link +
         "\">Configure Tarnwick App</A></span>" + "<br><br><HR>" + "</body></html>";
}

std::string expectedPhonePage(const std::string& d, const std::string& link) {
  return std::string("<html><span style=\"font-size:52px;\"><img style=\"wisth: 100px;height: 100px\" src=\"") + d +
         "/OOO.nsf/oooicon.png\">&nbsp<strong><span style=\"font-family: arial,helvetica,sans-serif;\">Corvane "
         "Tarnwick<br />Program Version 2.3.1 Build 2051</span></strong></span></p>" +
         "<br><br><HR>" + "<BR><BR><span style=\"font-size:40px;font-family: arial,helvetica,sans-serif;\"><A href=\"" +
         kStoreLink + "\">Download iPhone Tarnwick App</A></span>" + "<br><br>" +
         "<BR><BR><span style=\"font-size:40px;font-family: arial,helvetica,sans-serif;\"><A href=\"" + d +
         "/OOO.nsf/OOO.apk\">Download Android Tarnwick App Installer</A></span>" + "<br><br><HR>" +
         "<BR><span style=\"font-size:40px;font-family: arial,helvetica,sans-serif;\"><A target=\"_blank\" href=\"" +
         link + "\">Configure Tarnwick App</A></span>" + "<br><br><HR>" + "</body></html>";
}

std::string expectedInstallPage(const std::string& d, const std::string& instructions) {
  return std::string(
             "<html><head><meta name = \"viewport\" content = \"width = device-width\"><title>Installation and Setup "
             "Instructions for iOS devices</title></head><body>") +
         "<img src=\"" + d +
         "/OOO.nsf/oooicon.png\">&nbsp<strong><span style=\"font-family: arial,helvetica,sans-serif;\"><span "
         "style=\"font-size:20px;\">Corvane Tarnwick</span><br /><span style=\"font-size:18px;\">Program Version "
         "2.3.1 Build 2051</span></span></strong></span></p><hr><br>" +
         instructions + "<br><hr>" + "</body></html>";
}

// The default installation text with its two links filled in.
std::string expectedDefaultInstructions(const std::string& configureLink) {
  return std::string(
             "<span style=\"font-family: arial,helvetica,sans-serif;\"><span style=\"color:#0000ff;font-size: 18px;\">"
             "<strong>Installation and Setup Instructions for iOS devices</strong></span><br /><br />Step 1: Download "
             "the Tarnwick App to your iOS device directly from the Apple App Store by clicking the link below:<br "
             "/><br /><a href=\"") +
         kStoreLink +
         "\">Download Tarnwick App</a><br /><br />Step 2: To launch and automatically configure the Tarnwick App, "
         "click the link below:<br /><br /><a href=\"" +
         configureLink +
         "\">Configure Tarnwick App</a><br /><br />Step 3: Type your Domino http password and click Connect.<br /><br "
         "/>The Tarnwick App will connect to your mail server. If it is successful, your active OOO profile from your "
         "mail database will be loaded automatically.</span></p>";
}

constexpr char kDefaultInstallText[] =
    "<span style=\"font-family: arial,helvetica,sans-serif;\"><span style=\"color:#0000ff;font-size: 18px;\"><strong>"
    "Installation and Setup Instructions for iOS devices</strong></span><br /><br />Step 1: Download the Tarnwick App "
    "to your iOS device directly from the Apple App Store by clicking the link below:<br /><br /><a href=\"%Download "
    "Tarnwick App%\">Download Tarnwick App</a><br /><br />Step 2: To launch and automatically configure the Tarnwick "
    "App, click the link below:<br /><br /><a href=\"%Configure Tarnwick App%\">Configure Tarnwick App</a><br /><br "
    "/>Step 3: Type your Domino http password and click Connect.<br /><br />The Tarnwick App will connect to your "
    "mail server. If it is successful, your active OOO profile from your mail database will be loaded "
    "automatically.</span></p>";

// The href of the page's configure entry.
std::string configureLinkOf(const std::string& page) {
  const std::string marker = "<A target=\"_blank\" href=\"";
  const size_t start = page.find(marker);
  if (start == std::string::npos) return "<no configure link>";
  const size_t from = start + marker.size();
  return page.substr(from, page.find('"', from) - from);
}

// --- Reading the application database as it is stored ------------------------

STATUS LNCALLBACK collectId(void* ids, SEARCH_MATCH* match, ITEM_TABLE*) {
  SEARCH_MATCH copy;
  std::memcpy(&copy, match, sizeof copy);
  if (copy.SERetFlags & SE_FMATCH) static_cast<std::vector<NOTEID>*>(ids)->push_back(copy.ID.NoteID);
  return NOERROR;
}

// Entries of every item of that name, one vector per item, in note order.
std::vector<std::vector<std::string>> listItems(NOTEHANDLE note, const char* name, WORD* flagsOfFirst = nullptr) {
  std::vector<std::vector<std::string>> items;
  BLOCKID item{};
  BLOCKID value{};
  WORD type = 0;
  DWORD length = 0;
  const WORD nameLength = static_cast<WORD>(std::strlen(name));
  STATUS status = NSFItemInfo(note, name, nameLength, &item, &type, &value, &length);
  while (status == NOERROR) {
    if (flagsOfFirst != nullptr && items.empty()) {
      NSFItemQuery(note, item, nullptr, 0, nullptr, flagsOfFirst, nullptr, nullptr, nullptr);
    }
    std::vector<std::string> entries;
    const char* data = OSLockBlock(char, value) + sizeof(WORD);
    if (type == TYPE_TEXT_LIST) {
      LIST header;
      std::memcpy(&header, data, sizeof header);
      const char* text = data + sizeof(LIST) + header.ListEntries * sizeof(USHORT);
      for (USHORT i = 0; i < header.ListEntries; ++i) {
        USHORT entryLength = 0;
        std::memcpy(&entryLength, data + sizeof(LIST) + i * sizeof(USHORT), sizeof entryLength);
        entries.emplace_back(text, entryLength);
        text += entryLength;
      }
    } else if (type == TYPE_TEXT) {
      entries.emplace_back(data, length - sizeof(WORD));
    }
    OSUnlockObject(value.pool);
    items.push_back(entries);
    status = NSFItemInfoNext(note, item, name, nameLength, &item, &type, &value, &length);
  }
  return items;
}

std::string itemText(NOTEHANDLE note, const char* name) {
  std::vector<char> buffer(20000);
  const WORD length = NSFItemGetText(note, name, buffer.data(), static_cast<WORD>(buffer.size()));
  return std::string(buffer.data(), length);
}

class RequestPages : public tarnwick::testing::MailDatabaseTest {
 protected:
  void SetUp() override {
    MailDatabaseTest::SetUp();
    if (HasFatalFailure()) return;
    makeApplicationDatabase("OOO.nsf");
  }

  void TearDown() override {
    stopTask();
    for (MQHANDLE queue : queues_) MQClose(queue, 0);
    MailDatabaseTest::TearDown();
  }

  // OOO.nsf made from its template as an administrator would.
  void makeApplicationDatabase(const std::string& path) {
    ASSERT_EQ(NSFDbCreateAndCopy("OOO.ntf", path.c_str(), NOTE_CLASS_ALLNONDATA, 0, 0, nullptr), NOERROR);
  }

  // The real task on the test's data directory, with OOODirectory set to
  // directory (unset when empty) and the fast dispatch unless paced.
  void startTask(const std::string& directory = "", bool paced = false) {
    stopTask();
    OSSetEnvironmentVariable("OOODirectory", directory.c_str());
    OSSetEnvironmentVariable("OOOWorkers", paced ? "0" : "2");
    ASSERT_TRUE(task_.start(data(), root_ / "console.txt")) << task_.console();
    if (replies_ == NULLHANDLE) {
      ASSERT_EQ(MQCreate(kReplyQueue, 0, 0), NOERROR);
      ASSERT_EQ(MQOpen(kReplyQueue, 0, &replies_), NOERROR);
      queues_.push_back(replies_);
    }
  }

  void stopTask() { task_.kill(); }

  // Writes a page request for loginName at loginServer into a file whose
  // name carries marker, puts it on the request queue and waits for the
  // reply. Returns the reply; the page is then in the file at *path.
  std::string ask(const std::string& marker, const std::string& loginName, const std::string& loginServer,
                  fs::path* path = nullptr, const std::string& padding = "") {
    fs::create_directories(data() / "spool");
    const fs::path file = data() / "spool" / (marker + std::to_string(++requestCount_) + ".xml");
    std::ofstream(file) << "<Username MQName='" << kReplyQueue << "' LoginName='" << loginName << "' LoginServer='"
                        << loginServer << "'>" << loginName << "</Username>" << padding;
    if (path != nullptr) *path = file;
    std::string text = file.string();
    EXPECT_EQ(MQPut(task_.requests(), 0, text.data(), static_cast<WORD>(text.size()), 0), NOERROR);
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    WORD length = 0;
    const STATUS got = MQGet(replies_, buffer.data(), static_cast<WORD>(buffer.size()), 0, 30000, &length);
    EXPECT_EQ(got, NOERROR) << readFile(root_ / "console.txt");
    return got == NOERROR ? std::string(buffer.data(), length) : "<no reply>";
  }

  // The page a request for marker produced, after an "OK" reply.
  std::string page(const std::string& marker, const std::string& loginName = "Jane Doe/Acme",
                   const std::string& loginServer = "Mail1/Acme") {
    fs::path file;
    EXPECT_EQ(ask(marker, loginName, loginServer, &file), "OK");
    return readFile(file);
  }

  std::string webLink() { return configureLinkOf(page("ND_REQUEST_OOO_")); }

  // The data documents of an application database, in note-ID order.
  static std::vector<NOTEID> documents(const std::string& path = "OOO.nsf") {
    DBHANDLE db = NULLHANDLE;
    std::vector<NOTEID> ids;
    if (NSFDbOpen(path.c_str(), &db) != NOERROR) {
      ADD_FAILURE() << "cannot open " << path;
      return ids;
    }
    EXPECT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collectId, &ids, nullptr), NOERROR);
    NSFDbClose(db);
    return ids;
  }

  // Runs fn on the one settings document of OOO.nsf (open), saving it when
  // save is set.
  template <typename Fn>
  void withSettings(Fn fn, bool save = false) {
    const auto ids = documents();
    ASSERT_EQ(ids.size(), 1u);
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("OOO.nsf", &db), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, ids[0], 0, &note), NOERROR);
    fn(note);
    if (save) {
      EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    }
    NSFNoteClose(note);
    NSFDbClose(db);
  }

  // Sets (or with an empty value: removes) settings items and saves.
  void setSettings(const std::vector<std::pair<const char*, std::string>>& values) {
    withSettings(
        [&](NOTEHANDLE note) {
          for (const auto& [item, value] : values) {
            NSFItemDelete(note, item, static_cast<WORD>(std::strlen(item)));
            if (value != "<missing>") setText(note, item, value);
          }
        },
        true);
  }

  DWORD settingsSequence() {
    OID oid{};
    withSettings([&](NOTEHANDLE note) { NSFNoteGetInfo(note, _NOTE_OID, &oid); });
    return oid.Sequence;
  }

  tarnwick::testing::TaskProcess task_;
  MQHANDLE replies_ = NULLHANDLE;
  std::vector<MQHANDLE> queues_;
  int requestCount_ = 0;
};

const std::string kDefaultParameters = "&ssl=1&connect=1&dateformat=Full";

TEST_F(RequestPages, AFreshServerGetsOneSettingsDocumentWithItsDefaultsSavedOnce) {
  startTask("", true);  // the one-message-a-second loop reads the settings too
  ASSERT_TRUE(documents().empty());
  EXPECT_EQ(webLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme" + kDefaultParameters);

  withSettings([](NOTEHANDLE note) {
    EXPECT_EQ(itemText(note, "Form"), "Setup");
    EXPECT_EQ(itemText(note, "Server"), kServerName);
    WORD flags = 0;
    const auto authors = listItems(note, "DocAuthor", &flags);
    ASSERT_EQ(authors.size(), 1u);
    EXPECT_EQ(authors[0], (std::vector<std::string>{"LocalDomainServers", "[SysAdmin]"}));
    EXPECT_EQ(flags & (ITEM_READWRITERS | ITEM_NAMES | ITEM_SUMMARY), ITEM_READWRITERS | ITEM_NAMES | ITEM_SUMMARY);
    EXPECT_EQ(itemText(note, "useSSL"), "1");
    EXPECT_EQ(itemText(note, "connectOnStartup"), "1");
    EXPECT_EQ(itemText(note, "language"), "-No preference-");
    EXPECT_EQ(itemText(note, "AuthMethod"), "-No preference-");
    EXPECT_EQ(itemText(note, "InstallIOS"), kDefaultInstallText);
    EXPECT_FALSE(NSFItemIsPresent(note, "serverURL", 9));
    EXPECT_FALSE(NSFItemIsPresent(note, "dateformat", 10));
  });
  // Complete documents are read, not written again.
  const DWORD sequence = settingsSequence();
  page("ND_REQUEST_MOBILE_OOO_");
  page("ND_REQUEST_INSTALL_IOS_OOO_");
  EXPECT_EQ(documents().size(), 1u);
  EXPECT_EQ(settingsSequence(), sequence);

  // A value that differs from the default stays; an emptied one gets its
  // default again, in a single save.
  setSettings({{"useSSL", "0"}, {"connectOnStartup", ""}, {"language", ""}});
  const DWORD edited = settingsSequence();
  EXPECT_EQ(webLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme&ssl=0&connect=1&dateformat=Full");
  withSettings([](NOTEHANDLE note) {
    EXPECT_EQ(itemText(note, "useSSL"), "0");
    EXPECT_EQ(itemText(note, "connectOnStartup"), "1");
    EXPECT_EQ(itemText(note, "language"), "-No preference-");
  });
  EXPECT_EQ(settingsSequence(), edited + 1);
}

// Each setting reaches the next request's configure link without a restart.
TEST_F(RequestPages, SettingsShapeTheAppParametersOfTheNextRequest) {
  startTask();
  ASSERT_EQ(webLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme" + kDefaultParameters);
  struct Case {
    std::vector<std::pair<const char*, std::string>> settings;
    std::string parameters;
  };
  const Case cases[] = {
      {{{"useSSL", "0"}}, "&ssl=0&connect=1&dateformat=Full"},
      {{{"useSSL", "00"}}, "&ssl=0&connect=1&dateformat=Full"},
      {{{"useSSL", "0x"}}, "&ssl=0&connect=1&dateformat=Full"},
      {{{"useSSL", "no"}, {"connectOnStartup", "0"}}, "&ssl=1&connect=0&dateformat=Full"},
      {{{"useSSL", ""}, {"connectOnStartup", "1"}}, kDefaultParameters},
      {{{"language", "-NO PREFERENCE-"}, {"AuthMethod", "-no pref"}}, kDefaultParameters},
      {{{"language", "-No"}}, kDefaultParameters},
      {{{"language", "de"}, {"AuthMethod", "form/basic"}}, "&ssl=1&connect=1&lang=de&dateformat=Full&method=form%2Fbasic"},
      {{{"language", "<missing>"}, {"AuthMethod", "<missing>"}, {"dateformat", "dd/MM/yyyy"}},
       "&ssl=1&connect=1&dateformat=dd%2FMM%2Fyyyy"},
      {{{"dateformat", "<missing>"}}, kDefaultParameters},
  };
  for (const Case& c : cases) {
    setSettings(c.settings);
    EXPECT_EQ(webLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme" + c.parameters)
        << c.settings.front().first << "=" << c.settings.front().second;
  }
  EXPECT_EQ(documents().size(), 1u);
}

TEST_F(RequestPages, PagesAreTheirPiecesByteForByte) {
  for (const std::string directory : {"", "ooo"}) {
    const std::string database = directory.empty() ? "OOO.nsf" : directory + "/OOO.nsf";
    if (!directory.empty()) {
      fs::create_directories(data() / directory);
      makeApplicationDatabase(database);
    }
    startTask(directory);
    page("ND_REQUEST_OOO_");  // makes the settings document
    ASSERT_EQ(documents(database).size(), 1u);
    for (const std::string serverURL : {"", "https://mail.acme.example/"}) {
      SCOPED_TRACE("directory '" + directory + "', server URL '" + serverURL + "'");
      if (!serverURL.empty()) {
        DBHANDLE db = NULLHANDLE;
        ASSERT_EQ(NSFDbOpen(database.c_str(), &db), NOERROR);
        NOTEHANDLE note = NULLHANDLE;
        ASSERT_EQ(NSFNoteOpen(db, documents(database)[0], 0, &note), NOERROR);
        setText(note, "serverURL", serverURL);
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NSFNoteClose(note);
        NSFDbClose(db);
      }
      const std::string link = "tarnwickapp://username=Jane Doe/Acme&server=" +
                               (serverURL.empty() ? std::string("Mail1/Acme") : serverURL) + kDefaultParameters;
      EXPECT_EQ(page("ND_REQUEST_OOO_"), expectedWebPage(directory, link));
      EXPECT_EQ(page("ND_REQUEST_MOBILE_OOO_"), expectedPhonePage(directory, link));
      EXPECT_EQ(page("ND_REQUEST_INSTALL_IOS_OOO_"),
                expectedInstallPage(directory, expectedDefaultInstructions(link)));
    }
  }
}

TEST_F(RequestPages, InstallationTextOfSeveralLinesWithTwoConfigurePlaceholders) {
  startTask();
  page("ND_REQUEST_OOO_");
  withSettings(
      [](NOTEHANDLE note) {
        setList(note, "InstallIOS",
                {"Get it: <a href=\"%Download Tarnwick App%\">store</a>",
                 "<a href=\"%Configure Tarnwick App%\">here</a> or <a href=\"%Configure Tarnwick App%\">there</a>"});
        setText(note, "language", "fr");
      },
      true);
  const std::string link = "tarnwickapp://username=&server=" + std::string("&ssl=1&connect=1&lang=fr&dateformat=Full");
  EXPECT_EQ(page("ND_REQUEST_INSTALL_IOS_OOO_", "", ""),
            expectedInstallPage("", std::string("Get it: <a href=\"") + kStoreLink + "\">store</a>\n<a href=\"" + link +
                                        "\">here</a> or <a href=\"" + link + "\">there</a>"));

  // Instructions without any placeholder are put on the page as they stand.
  withSettings([](NOTEHANDLE note) { setText(note, "InstallIOS", "Ask the help desk."); }, true);
  EXPECT_EQ(page("ND_REQUEST_INSTALL_IOS_OOO_"), expectedInstallPage("", "Ask the help desk."));
}

TEST_F(RequestPages, OlderDocumentsMoveTheirEditorsFromDocReader) {
  // An older settings document: editors in DocReader, the middle one empty.
  {
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("OOO.nsf", &db), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
    setText(note, "Form", "Setup");
    setText(note, "Server", "cn=mail1/o=acme");  // found without regard to case
    setText(note, "useSSL", "0");
    setList(note, "DocReader", {"CN=Ada Admin/O=Acme", "", "CN=Bo Admin/O=Acme"});
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    NSFDbClose(db);
  }
  startTask();
  EXPECT_EQ(webLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme&ssl=0&connect=1&dateformat=Full");
  ASSERT_EQ(documents().size(), 1u);
  withSettings([](NOTEHANDLE note) {
    WORD flags = 0;
    const auto authors = listItems(note, "DocAuthor", &flags);
    ASSERT_EQ(authors.size(), 1u);
    EXPECT_EQ(authors[0], (std::vector<std::string>{"CN=Ada Admin/O=Acme", "CN=Bo Admin/O=Acme"}));
    EXPECT_EQ(flags & (ITEM_READWRITERS | ITEM_NAMES), ITEM_READWRITERS | ITEM_NAMES);
    EXPECT_FALSE(NSFItemIsPresent(note, "DocReader", 9));
    EXPECT_EQ(itemText(note, "useSSL"), "0");
    EXPECT_EQ(itemText(note, "connectOnStartup"), "1");
  });
}

// The administrator's view: tarnwick-admin reads and edits the settings,
// and the page the tool asks for next carries the change.
TEST_F(RequestPages, AdminEditsTheSettingsAndTheNextPageFollows) {
  startTask();
  auto pageLink = [&] {
    const std::string out = admin({"request", "page", "--user", "Jane Doe/Acme"});
    EXPECT_NE(out.find("Reply ("), std::string::npos) << out;
    EXPECT_NE(out.find("): OK\n"), std::string::npos) << out;
    return configureLinkOf(out);
  };
  EXPECT_EQ(pageLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme" + kDefaultParameters);

  const std::string shown = admin({"settings", "show"});
  for (const char* line : {"Server: CN=Mail1/O=Acme\n", "\nuseSSL=1\n", "\nserverURL=\n", "\nlanguage=-No preference-\n",
                           "\nDocAuthor=LocalDomainServers, [SysAdmin]\n", "\nInstallIOS=<span"}) {
    EXPECT_NE(shown.find(line), std::string::npos) << line << " in " << shown;
  }
  const std::string set = admin({"settings", "set", "--server", "mail1/acme", "usessl=0", "serverURL=https://mail.acme.example",
                                 "language=de"});
  EXPECT_NE(set.find("\nuseSSL=0\n"), std::string::npos) << set;
  EXPECT_EQ(pageLink(), "tarnwickapp://username=Jane Doe/Acme&server=https://mail.acme.example&ssl=0&connect=1&lang=de"
                        "&dateformat=Full");
  // An emptied setting is removed; the task puts its default back.
  admin({"settings", "set", "useSSL=", "serverURL="});
  EXPECT_EQ(pageLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme&ssl=1&connect=1&lang=de&dateformat=Full");
  EXPECT_NE(admin({"settings", "show"}).find("\nuseSSL=1\n"), std::string::npos);
  EXPECT_EQ(documents().size(), 1u);

  // Another server's settings are made by the tool and read by no one here.
  admin({"settings", "set", "--server", "Mail2/Acme", "dateformat=dd/MM/yyyy"});
  EXPECT_EQ(documents().size(), 2u);
  EXPECT_NE(admin({"settings", "show", "--server", "CN=Mail2/O=Acme"}).find("\ndateformat=dd/MM/yyyy\n"), std::string::npos);
  EXPECT_EQ(pageLink(), "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme&ssl=1&connect=1&lang=de&dateformat=Full");

  // Mistakes: an unknown setting is a usage error, a server without
  // settings a failure.
  const fs::path log = root_ / "refused.log";
  EXPECT_EQ(tarnwick::testing::runAndWait({TARNWICK_ADMIN_BINARY, "--data", data().string(), "settings", "set", "colour=red"}, log), 2);
  EXPECT_NE(readFile(log).find("\"colour\" is not a setting"), std::string::npos) << readFile(log);
  EXPECT_EQ(tarnwick::testing::runAndWait({TARNWICK_ADMIN_BINARY, "--data", data().string(), "settings", "show", "--server", "Mail9/Acme"}, log), 1);
  EXPECT_NE(readFile(log).find("no settings document for CN=Mail9/O=Acme"), std::string::npos) << readFile(log);
}

// The request file is replaced by the page, for the owner only; a file that
// cannot be made again is reported in the reply.
TEST_F(RequestPages, PageFilesAreMadeAnewOrTheFailureIsTheReply) {
  startTask();
  fs::path file;
  // A long request file, readable by all as the front end writes it:
  // nothing of it may remain behind the page.
  const mode_t mask = ::umask(022);
  EXPECT_EQ(ask("ND_REQUEST_MOBILE_OOO_", "Jane", "Mail1", &file, "<!--" + std::string(20000, 'x') + "-->"), "OK");
  ::umask(mask);
  EXPECT_EQ(readFile(file), expectedPhonePage("", "tarnwickapp://username=Jane&server=Mail1" + kDefaultParameters));
  struct stat info {};
  ASSERT_EQ(::stat(file.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0600u);

  // A request file that can be read but not written: an immutable file
  // (the task runs as root here) or a read-only one.
  const fs::path locked = data() / "spool" / "locked";
  fs::create_directories(locked);
  const fs::path request = locked / "ND_REQUEST_OOO_locked.xml";
  std::ofstream(request) << "<Username MQName='" << kReplyQueue << "' LoginName='Jane'>Jane</Username>";
  bool immutable = false;
  if (::geteuid() == 0) {
    const int fd = ::open(request.c_str(), O_RDONLY);
    int flags = 0;
    if (fd >= 0 && ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0) {
      flags |= FS_IMMUTABLE_FL;
      immutable = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    if (fd >= 0) ::close(fd);
  } else {
    fs::permissions(request, fs::perms::owner_read);
  }
  if (::geteuid() != 0 || immutable) {
    std::string text = request.string();
    ASSERT_EQ(MQPut(task_.requests(), 0, text.data(), static_cast<WORD>(text.size()), 0), NOERROR);
    std::vector<char> buffer(MQ_MAX_MSGSIZE);
    WORD length = 0;
    ASSERT_EQ(MQGet(replies_, buffer.data(), static_cast<WORD>(buffer.size()), 0, 30000, &length), NOERROR);
    EXPECT_EQ(std::string(buffer.data(), length), "Fail Open xml file (" + text + ")");
    EXPECT_NE(readFile(request).find("<Username"), std::string::npos);
  }
  if (immutable) {
    const int fd = ::open(request.c_str(), O_RDONLY);
    int flags = 0;
    ::ioctl(fd, FS_IOC_GETFLAGS, &flags);
    flags &= ~FS_IMMUTABLE_FL;
    ::ioctl(fd, FS_IOC_SETFLAGS, &flags);
    ::close(fd);
  }

  // In process, where no folder can hold the file: the same text, no file.
  IPOOO context;
  std::string missing = (root_ / "no-such-folder" / "page.html").string();
  char directory[] = "";
  std::string reserved, url, parameters = kDefaultParameters;
  EXPECT_EQ(context.getRequestOOO(missing, directory, reserved, url, parameters), "Fail Open xml file (" + missing + ")");
  EXPECT_FALSE(fs::exists(missing));
}

// Without its "(Setup Doc)" view the database yields no settings: nothing is
// made and the strings the caller holds stay as they were.
TEST_F(RequestPages, ADatabaseWithoutTheSettingsViewLeavesTheSettingsAlone) {
  fs::create_directories(data() / "bare");
  ASSERT_EQ(NSFDbCreate("bare/OOO.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  std::string url = "kept-url", install = "kept-install", parameters = "kept-parameters";
  _get_server_setting(kServerName, "bare", url, install, parameters);
  EXPECT_EQ(url, "kept-url");
  EXPECT_EQ(install, "kept-install");
  EXPECT_EQ(parameters, "kept-parameters");
  EXPECT_TRUE(documents("bare/OOO.nsf").empty());
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("bare/OOO.nsf", &db), NOERROR);
  EXPECT_EQ(_get_setup_document(db, kServerName), NULLHANDLE);
  NSFDbClose(db);

  // No database at all: the same.
  _get_server_setting(kServerName, "nowhere", url, install, parameters);
  EXPECT_EQ(parameters, "kept-parameters");

  // The directory is joined with a backslash; the settings are read.
  _get_server_setting(kServerName, "", url, install, parameters);
  EXPECT_EQ(url, "");
  EXPECT_EQ(parameters, kDefaultParameters);
  // The configure placeholder stays, the parameters behind it.
  EXPECT_EQ(install, expectedDefaultInstructions("%Configure Tarnwick App%" + kDefaultParameters));
}

// The cache of the main loop gives what a fresh read gives: after an edit,
// after the document is deleted (made again with its defaults) and for
// another server's name; unchanged, the document is not written again.
TEST_F(RequestPages, CachedSettingsFollowEveryChangeOfTheDatabase) {
  ServerSettingsCache cache;
  std::string url, install, parameters;
  auto read = [&] { cache.read(kServerName, "", url, install, parameters); };
  read();
  EXPECT_EQ(parameters, kDefaultParameters);
  const DWORD sequence = settingsSequence();
  url = install = parameters = "";
  read();
  EXPECT_EQ(parameters, kDefaultParameters) << "an unchanged database gives the values read before";
  EXPECT_EQ(url, "");
  EXPECT_EQ(install, expectedDefaultInstructions("%Configure Tarnwick App%" + kDefaultParameters));
  EXPECT_EQ(settingsSequence(), sequence);

  setSettings({{"useSSL", "0"}, {"serverURL", "https://mail.acme.example"}});
  read();
  EXPECT_EQ(parameters, "&ssl=0&connect=1&dateformat=Full");
  EXPECT_EQ(url, "https://mail.acme.example");

  // Deleted: the next read makes it again, as a fresh read does.
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("OOO.nsf", &db), NOERROR);
  ASSERT_EQ(NSFNoteDelete(db, documents().front(), 0), NOERROR);
  NSFDbClose(db);
  EXPECT_TRUE(documents().empty());
  read();
  EXPECT_EQ(parameters, kDefaultParameters);
  EXPECT_EQ(url, "");
  EXPECT_EQ(documents().size(), 1u) << "the deleted document is made again";

  std::string otherParameters;
  cache.read("CN=Mail2/O=Acme", "", url, install, otherParameters);
  EXPECT_EQ(otherParameters, kDefaultParameters);
  EXPECT_EQ(documents().size(), 2u) << "another server's name is not answered from the cache";
}

// update_field writes only what differs, and marks it.
TEST_F(RequestPages, UpdateFieldWritesOnlyChangesAndMarksThem) {
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("OOO.nsf", &db), NOERROR);
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
  int changed = 0;
  EXPECT_EQ(update_field(note, "useSSL", "1", &changed), NOERROR);
  EXPECT_EQ(changed, 1);
  changed = 0;
  EXPECT_EQ(update_field(note, "USESSL", "1", &changed), NOERROR);
  EXPECT_EQ(changed, 0) << "the same text is not written again";
  EXPECT_EQ(update_field(note, "useSSL", "1 ", &changed), NOERROR);
  EXPECT_EQ(changed, 1) << "a longer value differs";
  EXPECT_EQ(itemText(note, "useSSL"), "1 ");
  EXPECT_EQ(update_field(note, "useSSL", "1", &changed), NOERROR);
  EXPECT_EQ(itemText(note, "useSSL"), "1");
  EXPECT_EQ(listItems(note, "useSSL").size(), 1u) << "replaced, not added";

  setText(note, "language", "");
  changed = 0;
  EXPECT_EQ(update_field(note, "language", "", &changed), NOERROR);
  EXPECT_EQ(changed, 0) << "empty over empty writes nothing";
  EXPECT_EQ(update_field(note, "language", "de", &changed), NOERROR);
  EXPECT_EQ(changed, 1);
  EXPECT_EQ(itemText(note, "language"), "de");
  changed = 0;
  EXPECT_EQ(update_field(note, "language", "", &changed), NOERROR);
  EXPECT_EQ(changed, 1);
  EXPECT_EQ(itemText(note, "language"), "");
  NSFNoteClose(note);
  NSFDbClose(db);
}

}  // namespace

namespace {

// The pages in the system's headless chromium: every link to a file of the
// application database resolves to that file where the pages say it is (at
// the server's root for an empty directory, below the page's folder for
// "ooo"), and the configure link stays as the page wrote it.
TEST_F(RequestPages, PageLinksResolveInAHeadlessBrowser) {
  const fs::path sources = fs::path(TARNWICK_DESIGN_DIR).parent_path();
  const fs::path script = sources / "tests" / "browser" / "page_links.mjs";
  const char* chromium = std::getenv("TARNWICK_CHROMIUM");
  if (!fs::exists(chromium != nullptr ? chromium : "/usr/bin/chromium")) {
    GTEST_SKIP() << "chromium is not installed (Debian package chromium; scripts/install-deps installs it)";
  }
  if (!fs::exists(sources / "tests" / "browser" / "node_modules" / "puppeteer-core")) {
    GTEST_SKIP() << "puppeteer-core is not installed in tests/browser (scripts/install-deps installs it with npm)";
  }

  // The site: the database's files at /OOO.nsf/ and below /pages/ooo/, and
  // the pages the task wrote for either directory in /pages/.
  const fs::path site = root_ / "site";
  for (const fs::path& folder : {site / "OOO.nsf", site / "pages" / "ooo" / "OOO.nsf"}) {
    fs::create_directories(folder);
    for (const char* file : {"oooicon.png", "favicon.ico", "OOO.apk"}) {
      fs::copy_file(fs::path(TARNWICK_DESIGN_DIR) / "resources" / file, folder / file);
    }
  }
  std::vector<std::string> pages;
  for (const std::string directory : {"", "ooo"}) {
    if (!directory.empty()) {
      fs::create_directories(data() / directory);
      makeApplicationDatabase(directory + "/OOO.nsf");
    }
    startTask(directory);
    const std::string suffix = directory.empty() ? "" : "-" + directory;
    for (const auto& [marker, name] : {std::pair{"ND_REQUEST_OOO_", "web"}, std::pair{"ND_REQUEST_MOBILE_OOO_", "phone"},
                                       std::pair{"ND_REQUEST_INSTALL_IOS_OOO_", "install"}}) {
      const std::string file = "pages/" + std::string(name) + suffix + ".html";
      std::ofstream(site / file, std::ios::binary) << page(marker);
      pages.push_back(file);
    }
  }

  std::vector<std::string> args = {"/usr/bin/env", "node", script.string(), site.string()};
  args.insert(args.end(), pages.begin(), pages.end());
  const fs::path out = root_ / "browser.json";
  ASSERT_EQ(tarnwick::testing::runAndWait(args, out), 0) << readFile(out);
  const std::string text = readFile(out);
  const auto report = nlohmann::json::parse(text.substr(text.find('{')), nullptr, false);
  ASSERT_FALSE(report.is_discarded()) << text;
  const std::string base = report["base"];

  const std::string configure = "tarnwickapp://username=Jane Doe/Acme&server=Mail1/Acme" + kDefaultParameters;
  for (const std::string& name : pages) {
    SCOPED_TRACE(name);
    const auto& found = report["pages"][name];
    const std::string folder = base + (name.find("-ooo") != std::string::npos ? "/pages/ooo" : "") + "/OOO.nsf/";
    std::vector<std::string> anchors;
    for (const auto& anchor : found["anchors"]) {
      const std::string written = anchor["written"];
      anchors.push_back(written);
      if (written.rfind("tarnwickapp:", 0) == 0) continue;
      if (written.rfind("https:", 0) == 0) {
        EXPECT_EQ(anchor["resolved"], written);
        continue;
      }
      EXPECT_EQ(anchor["resolved"], folder + "OOO.apk") << written;
      EXPECT_EQ(anchor["status"], 200) << written;
    }
    if (name.find("install") == std::string::npos) {
      EXPECT_EQ(anchors, (std::vector<std::string>{kStoreLink, found["anchors"][1]["written"].get<std::string>(), configure}));
    } else {
      EXPECT_EQ(anchors, (std::vector<std::string>{kStoreLink, configure}));
    }
    ASSERT_EQ(found["images"].size(), 1u);
    EXPECT_EQ(found["images"][0]["resolved"], folder + "oooicon.png");
    EXPECT_EQ(found["images"][0]["loaded"], true);
    for (const auto& icon : found["icons"]) {
      EXPECT_EQ(icon["resolved"], folder + "favicon.ico");
      EXPECT_EQ(icon["status"], 200);
    }
    EXPECT_EQ(found["icons"].size(), name.find("web") != std::string::npos ? 1u : 0u);
  }
}

}  // namespace
