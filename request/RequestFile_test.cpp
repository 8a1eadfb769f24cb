// Request files: which paths are accepted, and that what is read and written
// is the file that was checked.
#include "request/RequestFile.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "osenv.h"

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class RequestFileTest : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = fs::temp_directory_path() / ("tarnwick_requestfile_" + std::to_string(::getpid()) + "_" +
                                        ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(dir_);
    fs::create_directories(spool());
    policy_.folders = {spool().string()};
  }
  void TearDown() override { fs::remove_all(dir_); }

  fs::path spool() const { return dir_ / "data" / "spool"; }

  fs::path write(const fs::path& path, const std::string& text) {
    std::ofstream(path, std::ios::binary) << text;
    return path;
  }

  RequestFile::Refusal refusalOf(const fs::path& path) { return RequestFile::open(path.string(), policy_).refusal(); }

  fs::path dir_;
  RequestFilePolicy policy_;
};

TEST_F(RequestFileTest, OnlyRegularFilesInsideTheRequestFoldersOpen) {
  const fs::path good = write(spool() / "r.xml", "<r/>");
  fs::create_directories(spool() / "deeper");
  write(spool() / "deeper" / "r.xml", "<r/>");
  const fs::path outside = write(dir_ / "outside.xml", "<r/>");

  EXPECT_EQ(refusalOf(good), RequestFile::Refusal::None);
  EXPECT_EQ(refusalOf(spool() / "." / "deeper" / "r.xml"), RequestFile::Refusal::None);
  EXPECT_EQ(refusalOf(outside), RequestFile::Refusal::OutsideFolders);
  EXPECT_EQ(refusalOf(spool() / ".." / ".." / "outside.xml"), RequestFile::Refusal::OutsideFolders);
  EXPECT_EQ(refusalOf(spool()), RequestFile::Refusal::OutsideFolders);  // the folder itself
  EXPECT_EQ(refusalOf("data/spool/r.xml"), RequestFile::Refusal::NotAbsolute);
  EXPECT_EQ(refusalOf(spool() / "missing.xml"), RequestFile::Refusal::Missing);
  EXPECT_EQ(RequestFile::open((spool() / "missing.xml").string(), policy_).refusalText(), "");

  // A folder given through a link is found under its real name too.
  fs::create_directory_symlink(dir_ / "data", dir_ / "alias");
  policy_.folders = {(dir_ / "alias" / "spool").string()};
  EXPECT_EQ(refusalOf(good), RequestFile::Refusal::None);
  EXPECT_EQ(refusalOf(dir_ / "alias" / "spool" / "r.xml"), RequestFile::Refusal::None);
}

TEST_F(RequestFileTest, LinksFifosAndOversizedFilesAreRefused) {
  const fs::path victim = write(dir_ / "victim", "secret");
  fs::create_symlink(victim, spool() / "link.xml");
  fs::create_directory_symlink(dir_, spool() / "linked");
  fs::create_hard_link(victim, spool() / "hard.xml");
  ASSERT_EQ(::mkfifo((spool() / "fifo.xml").c_str(), 0600), 0);
  fs::create_directory(spool() / "folder.xml");

  EXPECT_EQ(refusalOf(spool() / "link.xml"), RequestFile::Refusal::ThroughLink);
  EXPECT_EQ(refusalOf(spool() / "linked" / "victim"), RequestFile::Refusal::ThroughLink);
  EXPECT_EQ(refusalOf(spool() / "hard.xml"), RequestFile::Refusal::SeveralNames);
  EXPECT_EQ(refusalOf(spool() / "fifo.xml"), RequestFile::Refusal::NotRegular);  // and returns at once
  EXPECT_EQ(refusalOf(spool() / "folder.xml"), RequestFile::Refusal::NotRegular);

  policy_.maxBytes = 10;
  EXPECT_EQ(refusalOf(write(spool() / "ten.xml", std::string(10, 'x'))), RequestFile::Refusal::None);
  RequestFile large = RequestFile::open(write(spool() / "eleven.xml", std::string(11, 'x')).string(), policy_);
  EXPECT_EQ(large.refusal(), RequestFile::Refusal::TooLarge);
  EXPECT_EQ(large.refusalText(), "larger than 10 bytes");

  // A file that grows past the limit after it was opened is not read.
  RequestFile growing = RequestFile::open((spool() / "ten.xml").string(), policy_);
  ASSERT_TRUE(growing.isOpen());
  std::ofstream(spool() / "ten.xml", std::ios::app) << "more";
  std::string content;
  EXPECT_FALSE(growing.read(content));
  EXPECT_EQ(growing.refusal(), RequestFile::Refusal::TooLarge);
}

TEST_F(RequestFileTest, ReadAndWriteReachTheFileThatWasChecked) {
  const fs::path path = write(spool() / "r.xml", "<request/>");
  ::chmod(path.c_str(), 0644);
  RequestFile file = RequestFile::open(path.string(), policy_);
  ASSERT_TRUE(file.isOpen());
  struct stat info {};
  ASSERT_EQ(::stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0600u);

  // The name now leads elsewhere: the read and the reply stay with the file.
  const fs::path victim = write(dir_ / "victim", "secret");
  fs::rename(path, spool() / "moved.xml");
  fs::create_symlink(victim, path);
  std::string content;
  ASSERT_TRUE(file.read(content));
  EXPECT_EQ(content, "<request/>");
  ASSERT_TRUE(file.empty());
  ASSERT_TRUE(file.write("<reply/>"));
  EXPECT_EQ(contentOf(victim), "secret");
  EXPECT_EQ(contentOf(spool() / "moved.xml"), "<reply/>");

  // Emptied, then written: a shorter reply leaves nothing of a longer one.
  ASSERT_TRUE(file.empty());
  ASSERT_TRUE(file.write("ok"));
  EXPECT_EQ(contentOf(spool() / "moved.xml"), "ok");
}

// A reply replaces the content in one write: the file ends exactly where
// the new content does, whether the old one was longer or shorter. A file
// that grows after it was opened is read whole (up to the limit).
TEST_F(RequestFileTest, ReplaceLeavesExactlyTheNewContent) {
  const fs::path path = write(spool() / "r.xml", "<request with='a long attribute'/>");
  RequestFile file = RequestFile::open(path.string(), policy_);
  ASSERT_TRUE(file.writable());
  ASSERT_TRUE(file.replace("<reply/>"));
  EXPECT_EQ(contentOf(path), "<reply/>");
  ASSERT_TRUE(file.replace("<a much longer reply than before/>"));
  EXPECT_EQ(contentOf(path), "<a much longer reply than before/>");
  ASSERT_TRUE(file.replace("ok"));
  EXPECT_EQ(contentOf(path), "ok");

  const std::string grown(5000, 'x');
  std::ofstream(path, std::ios::binary | std::ios::app) << grown;
  std::string content;
  ASSERT_TRUE(file.read(content));
  EXPECT_EQ(content, "ok" + grown);

  ::chmod(path.c_str(), 0400);
  if (::geteuid() != 0) {
    RequestFile readOnly = RequestFile::open(path.string(), policy_);
    ASSERT_TRUE(readOnly.isOpen());
    EXPECT_FALSE(readOnly.writable());
    EXPECT_FALSE(readOnly.replace("no"));
  }
}

// Files past the first read buffer come whole; a file that grows beyond the
// limit while it is read in steps is still refused. The thread remembers
// the largest file it read until asked.
TEST_F(RequestFileTest, LargeFilesReadWholeAndTheLargestReadIsReported) {
  (void)takeLargestRequestRead();
  std::string text(300 * 1024 + 7, 'a');
  for (size_t i = 0; i < text.size(); i += 4096) text[i] = static_cast<char>('b' + i / 4096 % 20);
  policy_.maxBytes = 400 * 1024;
  RequestFile file = RequestFile::open(write(spool() / "large.xml", text).string(), policy_);
  ASSERT_TRUE(file.isOpen());
  std::string content;
  ASSERT_TRUE(file.read(content));
  EXPECT_EQ(content, text);
  EXPECT_EQ(takeLargestRequestRead(), text.size());
  EXPECT_EQ(takeLargestRequestRead(), 0u) << "counting starts anew";

  policy_.maxBytes = 200 * 1024;
  RequestFile small = RequestFile::open(write(spool() / "small.xml", std::string(100 * 1024, 'x')).string(), policy_);
  ASSERT_TRUE(small.isOpen());
  std::ofstream(spool() / "small.xml", std::ios::app) << std::string(150 * 1024, 'y');
  EXPECT_FALSE(small.read(content));
  EXPECT_EQ(small.refusal(), RequestFile::Refusal::TooLarge);
  EXPECT_EQ(takeLargestRequestRead(), 0u) << "a refused file is not counted";
}

TEST_F(RequestFileTest, PolicyComesFromTheDataDirectoryAndNotesIni) {
  const fs::path data = dir_ / "data";
  auto load = [&](const std::string& lines) {
    std::ofstream(data / "notes.ini") << "Directory=" << data.string() << "\n" << lines;
    std::string ini = "=" + (data / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    EXPECT_EQ(NotesInitExtended(2, argv), NOERROR);
    return RequestFilePolicy::fromEnvironment();
  };
  RequestFilePolicy policy = load("");
  EXPECT_EQ(policy.folders, std::vector<std::string>{spool().string()});
  EXPECT_EQ(policy.maxBytes, RequestFilePolicy::kDefaultMaxBytes);

  policy = load("OOORequestFolders=/srv/front; relative/ignored ;/srv/other\nOOORequestMaxBytes=5000000\n");
  EXPECT_EQ(policy.folders, (std::vector<std::string>{spool().string(), "/srv/front", "/srv/other"}));
  EXPECT_EQ(policy.maxBytes, 5000000u);

  // The limit can be raised, never lowered below what requests need.
  policy = load("OOORequestMaxBytes=100\n");
  EXPECT_EQ(policy.maxBytes, RequestFilePolicy::kDefaultMaxBytes);
}

}  // namespace
