// A test's own server data directory, made by the real tarnwick-admin from
// our templates (server Mail1/Acme of cluster AcmeCluster), with this process
// initialised on it, and the means to give Jane Doe a mail database and
// change her profile documents the way a mail client would.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "osenv.h"
#include "request/IPOOO.h"
#include "tests/support/processes.h"

namespace tarnwick::testing {

constexpr char kJane[] = "CN=Jane Doe/O=Acme";
constexpr char kMail1[] = "CN=Mail1/O=Acme";
constexpr char kJaneMail[] = "mail/jdoe.nsf";

class MailDatabaseTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    root_ = std::filesystem::temp_directory_path() / ("tarnwick_" + std::string(info->test_suite_name()) + "_" +
                                                      std::to_string(::getpid()) + "_" + info->name());
    std::filesystem::remove_all(root_);
    std::filesystem::create_directories(root_);
    admin({"init", data().string(), "--server", "Mail1/Acme", "--cluster", "AcmeCluster"});
    std::string ini = "=" + (data() / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  }

  void TearDown() override { std::filesystem::remove_all(root_); }

  std::filesystem::path data() const { return root_ / "data"; }

  // Runs tarnwick-admin on the test's data directory (or on dataDir) and
  // returns what it printed; a failing command fails the test.
  std::string admin(std::vector<std::string> args, const std::filesystem::path& dataDir = {}) {
    if (!dataDir.empty()) {
      args.insert(args.begin(), {"--data", dataDir.string()});
    } else if (args[0] != "init") {
      args.insert(args.begin(), {"--data", data().string()});
    }
    args.insert(args.begin(), TARNWICK_ADMIN_BINARY);
    const std::filesystem::path log = root_ / "admin.log";
    std::filesystem::remove(log);
    EXPECT_EQ(runAndWait(args, log), 0) << readFile(log);
    return readFile(log);
  }

  // Jane Doe in the directory, with a mail database in the given mode
  // ("agent" or "service").
  void addJane(const char* mode) { admin({"person", "add", "Jane Doe/Acme", "--create-mailfile", "--mode", mode}); }

  // Opens Jane's mail database and profiles in context.
  static void openJane(IPOOO& context) {
    context.Username = kJane;
    context.MailServer = kMail1;
    context.MailBox = kJaneMail;
    ASSERT_EQ(context.getOOOProfile(1), NOERROR);
  }

  // Runs edit on a stored profile of a mail database and saves it.
  template <typename Edit>
  void editProfile(Edit edit, const char* profile = "OutOfOfficeProfile", const char* path = kJaneMail) {
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(path, &db), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFProfileOpen(db, profile, static_cast<WORD>(std::strlen(profile)), nullptr, 0, TRUE, &note), NOERROR);
    edit(note);
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    NSFDbClose(db);
  }

  static void setText(NOTEHANDLE note, const char* name, const std::string& value) {
    ASSERT_EQ(NSFItemSetText(note, name, value.c_str(), static_cast<WORD>(value.size())), NOERROR);
  }

  static void setList(NOTEHANDLE note, const char* name, const std::vector<std::string>& entries) {
    NSFItemDelete(note, name, static_cast<WORD>(std::strlen(name)));
    ASSERT_EQ(NSFItemCreateTextList(note, name, entries[0].c_str(), static_cast<WORD>(entries[0].size())), NOERROR);
    for (size_t i = 1; i < entries.size(); ++i) {
      ASSERT_EQ(NSFItemAppendTextList(note, name, entries[i].c_str(), static_cast<WORD>(entries[i].size()), TRUE),
                NOERROR);
    }
  }

  std::filesystem::path root_;
};

}  // namespace tarnwick::testing
