// The shared-state folder and the files in it: private modes whatever the
// umask, refusal of a folder another user could have prepared, and the
// collection of folders that nobody uses any more.
#include "mq/shared_state.h"

#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "addin/server_log.h"
#include "globerr.h"
#include "mq.h"
#include "mq/process_test_support.h"
#include "nsfdb.h"
#include "testing/temp_data_directory.h"

namespace {

namespace fs = std::filesystem;
using tarnwick::rt::testing::Child;
using tarnwick::rt::testing::Signal;
using tarnwick::testing::TempDataDirectory;

unsigned modeOf(const fs::path& path) {
  struct stat info {};
  if (::lstat(path.c_str(), &info) != 0) return 01000;
  return info.st_mode & 07777;
}

class UmaskScope {
 public:
  explicit UmaskScope(mode_t mask) : previous_(::umask(mask)) {}
  ~UmaskScope() { ::umask(previous_); }

 private:
  mode_t previous_;
};

// Server log lines written while it is installed.
class CapturedLog : public tarnwick::rt::ServerLogStore {
 public:
  STATUS append(const tarnwick::rt::ServerLogLine& line) override {
    std::lock_guard lock(mutex_);
    text_ += line.text + "\n";
    return NOERROR;
  }
  STATUS read(size_t, std::vector<tarnwick::rt::ServerLogLine>*) override { return ERR_NOT_SUPPORTED; }
  std::string text() {
    tarnwick::rt::flush_server_log();
    std::lock_guard lock(mutex_);
    return text_;
  }

 private:
  std::mutex mutex_;
  std::string text_;
};

bool haveSharedMemory() { return ::access("/dev/shm", W_OK) == 0; }

class SharedStateModes : public ::testing::TestWithParam<mode_t> {};

// Under a permissive and a restrictive umask alike: folders 0700, queue
// files and database files 0600.
TEST_P(SharedStateModes, FoldersAndFilesArePrivateWhateverTheUmask) {
  UmaskScope mask(GetParam());
  TempDataDirectory data("ServerName=CN=Srv1/O=Org\n");
  const fs::path root = tarnwick::rt::shared_state_root();
  ASSERT_FALSE(root.empty());
  ASSERT_EQ(MQCreate("MQ$Private", 0, 0), NOERROR);
  MQHANDLE queue = NULLHANDLE;
  ASSERT_EQ(MQOpen("MQ$Private", 0, &queue), NOERROR);
  ASSERT_EQ(MQPut(queue, 0, const_cast<char*>("hello"), 5, 0), NOERROR);

  EXPECT_EQ(modeOf(root), 0700u);
  const fs::path queueFolder = root / "mq" / "MQ$PRIVATE";
  for (const fs::path& folder : {root / "mq", queueFolder, queueFolder / "msgs"}) {
    EXPECT_EQ(modeOf(folder), 0700u) << folder;
  }
  std::vector<fs::path> files = {queueFolder / "name", queueFolder / "quota", queueFolder / "holders"};
  for (const auto& entry : fs::directory_iterator(queueFolder / "msgs")) files.push_back(entry.path());
  ASSERT_EQ(files.size(), 4u);
  for (const fs::path& file : files) EXPECT_EQ(modeOf(file), 0600u) << file;
  MQClose(queue, 0);

  ASSERT_EQ(NSFDbCreate("mail/jdoe.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR);
  EXPECT_EQ(modeOf(data.path() / "mail" / "jdoe.nsf"), 0600u);
  // A database file made before files were private becomes private on use.
  ::chmod((data.path() / "mail" / "jdoe.nsf").c_str(), 0644);
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("mail/jdoe.nsf", &db), NOERROR);
  NSFDbClose(db);
  EXPECT_EQ(modeOf(data.path() / "mail" / "jdoe.nsf"), 0600u);
  fs::remove_all(root);
}

INSTANTIATE_TEST_SUITE_P(Umask, SharedStateModes, ::testing::Values(mode_t{0}, mode_t{077}, mode_t{022}));

// A folder in place before the server starts is used only when it is the
// server user's own and closed to others; else every queue operation fails
// and the log says why, once.
TEST(SharedStateTrust, APreparedFolderIsRefusedAndLogged) {
  if (!haveSharedMemory()) GTEST_SKIP() << "no /dev/shm here";
  auto log = std::make_shared<CapturedLog>();
  auto previous = tarnwick::rt::install_server_log_store(log);
  TempDataDirectory data;
  const fs::path folder = tarnwick::rt::shared_state_folder_of(fs::weakly_canonical(data.path()));
  fs::remove_all(folder);

  // Writable by others.
  ASSERT_EQ(::mkdir(folder.c_str(), 0777), 0);
  ::chmod(folder.c_str(), 0777);
  EXPECT_TRUE(tarnwick::rt::shared_state_root().empty());
  EXPECT_EQ(MQCreate("MQ$Squatted", 0, 0), ERR_PROTECTED);
  MQHANDLE queue = NULLHANDLE;
  EXPECT_NE(MQOpen("MQ$Squatted", 0, &queue), NOERROR);
  const std::string text = log->text();
  EXPECT_NE(text.find("Shared-state folder " + folder.string() + " refused: it can be written by other users"),
            std::string::npos)
      << text;
  EXPECT_EQ(text.find("refused", text.find("refused") + 1), std::string::npos) << "logged once: " << text;

  // A link in its place, to a folder that would pass.
  fs::remove_all(folder);
  const fs::path target = data.path() / "elsewhere";
  ASSERT_EQ(::mkdir(target.c_str(), 0700), 0);
  fs::create_directory_symlink(target, folder);
  EXPECT_TRUE(tarnwick::rt::shared_state_root().empty());
  EXPECT_NE(log->text().find("is not a folder"), std::string::npos) << log->text();

  // Owned by another user (only root can prepare that here).
  fs::remove(folder);
  if (::geteuid() == 0) {
    ASSERT_EQ(::mkdir(folder.c_str(), 0700), 0);
    ASSERT_EQ(::chown(folder.c_str(), 65534, 65534), 0);
    EXPECT_TRUE(tarnwick::rt::shared_state_root().empty());
    EXPECT_NE(log->text().find("belongs to user 65534"), std::string::npos) << log->text();
    fs::remove(folder);
  }

  // Gone again: the server makes its own and works.
  EXPECT_EQ(tarnwick::rt::shared_state_root(), folder);
  EXPECT_EQ(MQCreate("MQ$Squatted", 0, 0), NOERROR);
  fs::remove_all(folder);
  tarnwick::rt::install_server_log_store(previous);
}

// A data directory that is away for a moment (renamed) keeps its queues
// while a process still holds one; once none is left, the folder goes.
TEST(SharedStateCollection, LiveQueuesOfAMissingDataDirectoryStay) {
  if (!haveSharedMemory()) GTEST_SKIP() << "no /dev/shm here";
  const fs::path data = fs::temp_directory_path() / ("tarnwick-moving-" + std::to_string(::getpid()));
  const fs::path moved = data.string() + ".moved";
  fs::remove_all(data);
  fs::remove_all(moved);
  fs::create_directories(data);
  std::ofstream(data / "notes.ini") << "Directory=" << data.string() << "\n";
  std::string ini = "=" + (data / "notes.ini").string();
  char* argv[] = {const_cast<char*>("test"), ini.data()};
  ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  const fs::path root = tarnwick::rt::shared_state_root();
  ASSERT_FALSE(root.empty());

  Signal held;
  Child holder([&] {
    MQHANDLE queue = NULLHANDLE;
    if (MQCreate("MQ$Held", 0, 0) != NOERROR || MQOpen("MQ$Held", 0, &queue) != NOERROR) return 1;
    held.ready();
    ::pause();
    return 0;
  });
  ASSERT_TRUE(held.wait());

  fs::rename(data, moved);
  tarnwick::rt::collect_orphaned_shared_state();
  EXPECT_TRUE(fs::exists(root / "mq" / "MQ$HELD")) << "a live holder keeps the folder";

  holder.kill_hard();
  tarnwick::rt::collect_orphaned_shared_state();
  EXPECT_FALSE(fs::exists(root));
  fs::remove_all(moved);
}

}  // namespace
