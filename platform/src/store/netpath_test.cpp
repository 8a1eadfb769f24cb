// Network paths: building and splitting them, and opening databases on the
// local server, on other servers of servers.ini, and on unreachable ones.
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "globerr.h"
#include "netpath.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;
namespace fs = std::filesystem;

TEST(NetPath, ConstructAndParseAreInverse) {
  char path[MAXPATH];
  ASSERT_EQ(OSPathNetConstruct(nullptr, "CN=Mail1/O=Org", "mail\\jdoe.nsf", path), NOERROR);
  EXPECT_STREQ(path, "CN=Mail1/O=Org!!mail\\jdoe.nsf");
  ASSERT_EQ(OSPathNetConstruct("TCPIP", "Mail1", "a.nsf", path), NOERROR);
  EXPECT_STREQ(path, "TCPIP!!Mail1!!a.nsf");
  ASSERT_EQ(OSPathNetConstruct(nullptr, "", "names.nsf", path), NOERROR);
  EXPECT_STREQ(path, "names.nsf");
  ASSERT_EQ(OSPathNetConstruct(nullptr, std::string(300, 's').c_str(), "x.nsf", path), NOERROR);
  EXPECT_EQ(std::string(path).size(), MAXPATH - 1u) << "cut, never overflowing";

  char port[MAXPATH];
  char server[MAXPATH];
  char file[MAXPATH];
  ASSERT_EQ(OSPathNetParse("TCPIP!!CN=Mail1/O=Org!!mail\\jdoe.nsf", port, server, file), NOERROR);
  EXPECT_STREQ(port, "TCPIP");
  EXPECT_STREQ(server, "CN=Mail1/O=Org");
  EXPECT_STREQ(file, "mail\\jdoe.nsf");
  ASSERT_EQ(OSPathNetParse("Mail1!!a.nsf", nullptr, server, file), NOERROR);
  EXPECT_STREQ(server, "Mail1");
  ASSERT_EQ(OSPathNetParse("a.nsf", port, server, file), NOERROR);
  EXPECT_STREQ(server, "");
  EXPECT_STREQ(file, "a.nsf");
  EXPECT_EQ(OSPathNetParse("Mail1!!", port, server, file), ERR_INV_FILE_NAME);
  EXPECT_EQ(OSPathNetParse("a!!b!!c!!d", port, server, file), ERR_INV_SERVER_NAME);
  EXPECT_EQ(OSPathNetParse(nullptr, port, server, file), ERR_INV_FILE_NAME);
}

class ServersTest : public DataDirTest {
 protected:
  void SetUp() override {
    DataDirTest::SetUp();
    fs::create_directories(root_ / "mail2");
    std::ofstream(data_ / "servers.ini") << "; other servers of the cluster\n"
                                         << "[CN=Mail2/O=Org]\nDirectory=../" << root_.filename().string() << "/mail2\n\n"
                                         << "[CN=Mail3/O=Org]\nDirectory=../mail3\nState=down\n";
  }

  // Creates a database through `path` and writes a marker item into it.
  void create_with_marker(const char* path, const char* marker) {
    ASSERT_EQ(NSFDbCreate(path, 0, FALSE), NOERROR);
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(path, &db), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    NSFNoteCreate(db, &note);
    NSFItemSetText(note, "Marker", marker, MAXWORD);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    NSFDbClose(db);
  }
};

TEST_F(ServersTest, LocalServerInAnyFormIsTheDataDirectory) {
  create_with_marker("mail\\jdoe.nsf", "local");
  for (const char* path : {"CN=Srv1/O=Org!!mail\\jdoe.nsf", "srv1/org!!mail/jdoe.nsf", "Srv1!!mail\\jdoe.nsf",
                           "TCPIP!!CN=Srv1/O=Org!!mail\\jdoe.nsf"}) {
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path, &db), NOERROR) << path;
    NSFDbClose(db);
  }
}

TEST_F(ServersTest, OtherServersAreTheirDirectoriesAndUnreachableOnesFail) {
  create_with_marker("CN=Mail2/O=Org!!mail\\jdoe.nsf", "mail2");
  EXPECT_TRUE(fs::exists(root_ / "mail2" / "mail" / "jdoe.nsf"));
  EXPECT_FALSE(fs::exists(data_ / "mail" / "jdoe.nsf"));
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("Mail2/Org!!mail/jdoe.nsf", &db), NOERROR);
  NSFDbClose(db);

  EXPECT_EQ(NSFDbOpen("CN=Mail3/O=Org!!mail\\jdoe.nsf", &db), ERR_SESSION_CLOSED) << "down";
  EXPECT_EQ(NSFDbOpen("CN=Mail9/O=Org!!mail\\jdoe.nsf", &db), ERR_SESSION_CLOSED) << "not listed";
  EXPECT_EQ(ERR_SESSION_CLOSED, 0x0A02);
  EXPECT_EQ(NSFDbOpen("CN=Mail2/O=Org!!/etc/passwd", &db), ERR_INVALID_NAME);
  EXPECT_EQ(NSFDbOpen("CN=Mail2/O=Org!!..\\data\\x.nsf", &db), ERR_INVALID_NAME);
  EXPECT_EQ(NSFDbOpen("CN=Mail2/O=Org!!mail\\missing.nsf", &db), ERR_NOEXIST);
}

// Database paths never lead out of the server's directories: not by "..",
// not by an absolute path, not through a link inside the data directory.
TEST_F(ServersTest, PathsOutsideTheServersDirectoriesDoNotExist) {
  create_with_marker("mail\\jdoe.nsf", "local");
  create_with_marker("CN=Mail2/O=Org!!mail\\jdoe.nsf", "mail2");
  fs::create_directories(root_ / "mail");
  fs::copy_file(data_ / "mail" / "jdoe.nsf", root_ / "mail" / "stolen.nsf");
  fs::create_directory_symlink(root_ / "mail", data_ / "linked");

  const std::string outside = (root_ / "mail" / "stolen.nsf").string();
  const std::string escaping = "../" + root_.filename().string() + "/mail/stolen.nsf";
  const std::string through_mail = "mail/../../" + root_.filename().string() + "/mail/stolen.nsf";
  for (const std::string& path : {outside, escaping, through_mail, std::string("linked/stolen.nsf"),
                                  "CN=Srv1/O=Org!!" + escaping, std::string("..")}) {
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path.c_str(), &db), ERR_NOEXIST) << path;
    EXPECT_EQ(NSFDbCreate(path.c_str(), 0, FALSE), ERR_NOEXIST) << path;
  }
  EXPECT_FALSE(fs::exists(root_ / "mail" / ".." / "stolen.nsf"));

  // Inside, every spelling still works, an absolute one too, and a link
  // that stays inside the data directory.
  fs::create_directory_symlink(data_ / "mail", data_ / "alias");
  for (const std::string& path : {std::string("mail/jdoe.nsf"), (data_ / "mail" / "jdoe.nsf").string(),
                                  std::string("alias/jdoe.nsf"),
                                  std::string("mail/./x/../jdoe.nsf"), std::string("Mail2/Org!!mail/jdoe.nsf")}) {
    DBHANDLE db = NULLHANDLE;
    EXPECT_EQ(NSFDbOpen(path.c_str(), &db), NOERROR) << path;
    NSFDbClose(db);
  }
}

}  // namespace
