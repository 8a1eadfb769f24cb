// The pieces of the database setup that the task's own runs cannot show in
// detail: the design file reader's end-of-input rules and the creation of
// a database from a template, on a test data directory.
#include "setup/DatabaseSetup.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "acl.h"
#include "globerr.h"
#include "nameslist.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"

namespace {

class DatabaseSetup : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("tarnwick_setup_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nServerName=CN=Mail1/O=Acme\n";
    std::string ini = "=" + (dir_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  }

  void TearDown() override { std::filesystem::remove_all(dir_); }

  DXLReaderContext readerOf(const std::filesystem::path& file) {
    DXLReaderContext reader;
    std::memset(&reader, 0, sizeof reader);
    std::strncpy(reader.path, file.c_str(), sizeof reader.path - 1);
    return reader;
  }

  // What the reader delivers in reads of chunk bytes, until it returns 0.
  static std::vector<std::string> readAll(DXLReaderContext& reader, DWORD chunk) {
    std::vector<std::string> reads;
    std::vector<BYTE> buffer(chunk);
    for (int guard = 0; guard < 1000; ++guard) {
      const DWORD got = DXLReaderFunc(buffer.data(), chunk, &reader);
      if (got == 0) break;
      EXPECT_LE(got, chunk);
      reads.emplace_back(reinterpret_cast<const char*>(buffer.data()), got);
    }
    return reads;
  }

  static std::string info(DBHANDLE db, WORD field) {
    char all[NSF_INFO_SIZE] = {0};
    EXPECT_EQ(NSFDbInfoGet(db, all), NOERROR);
    char part[NSF_INFO_SIZE] = {0};
    NSFDbInfoParse(all, field, part, sizeof part - 1);
    return part;
  }

  // A template with a title, a template name, an icon note, one form and a
  // template list entry.
  void makeTemplate(const char* path, const char* templateName) {
    ASSERT_EQ(NSFDbCreate(path, DBCLASS_BY_EXTENSION, FALSE), NOERROR);
    DBHANDLE db = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(path, &db), NOERROR);
    char all[NSF_INFO_SIZE] = {0};
    NSFDbInfoModify(all, INFOPARSE_TITLE, "Acme Out of Office");
    NSFDbInfoModify(all, INFOPARSE_CLASS, templateName);
    ASSERT_EQ(NSFDbInfoSet(db, all), NOERROR);
    NOTEHANDLE icon = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db, &icon), NOERROR);
    const WORD iconClass = NOTE_CLASS_ICON;
    NSFNoteSetInfo(icon, _NOTE_CLASS, &iconClass);
    ASSERT_EQ(NSFItemSetText(icon, "$TITLE", all, static_cast<WORD>(std::strlen(all))), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(icon, 0), NOERROR);
    NSFNoteClose(icon);
    NOTEHANDLE form = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db, &form), NOERROR);
    const WORD formClass = NOTE_CLASS_FORM;
    NSFNoteSetInfo(form, _NOTE_CLASS, &formClass);
    ASSERT_EQ(NSFItemSetText(form, "$TITLE", "Settings", 8), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(form, 0), NOERROR);
    NSFNoteClose(form);
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(NSFDbReadACL(db, &acl), NOERROR);
    ASSERT_EQ(ACLAddEntry(acl, "[Staff]", ACL_LEVEL_AUTHOR, nullptr, ACL_FLAG_GROUP), NOERROR);
    ASSERT_EQ(NSFDbStoreACL(db, acl, 0, ACL_STORE_UPDATE), NOERROR);
    OSMemFree(acl);
    NSFDbClose(db);
  }

  std::filesystem::path dir_;
};

TEST_F(DatabaseSetup, ReaderDeliversTheWholeFileThenEndsForGood) {
  std::string content;
  for (int i = 0; i < 500; ++i) content += "<line n='" + std::to_string(i) + "'/>\n";
  std::ofstream(dir_ / "design.xml", std::ios::binary) << content;

  DXLReaderContext reader = readerOf(dir_ / "design.xml");
  const std::vector<std::string> reads = readAll(reader, 1000);
  std::string joined;
  for (const std::string& read : reads) joined += read;
  EXPECT_EQ(joined, content);
  EXPECT_EQ(reads.size(), (content.size() + 999) / 1000);
  EXPECT_EQ(reader.size, static_cast<long>(content.size()));
  EXPECT_EQ(reader.remaining, 0);
  EXPECT_EQ(reader.stream, nullptr) << "the end of the input closes the stream";
  BYTE byte = 0;
  EXPECT_EQ(DXLReaderFunc(&byte, 1, &reader), 0u) << "an ended input is not read again";

  // A buffer larger than the file: one read, then the end.
  DXLReaderContext whole = readerOf(dir_ / "design.xml");
  EXPECT_EQ(readAll(whole, 1 << 20), std::vector<std::string>{content});
}

TEST_F(DatabaseSetup, ReaderEndsAtOnceOnMissingEmptyOrShrunkFiles) {
  DXLReaderContext missing = readerOf(dir_ / "missing.xml");
  EXPECT_TRUE(readAll(missing, 64).empty());

  std::ofstream(dir_ / "empty.xml");
  DXLReaderContext empty = readerOf(dir_ / "empty.xml");
  EXPECT_TRUE(readAll(empty, 64).empty());
  EXPECT_EQ(empty.stream, nullptr);

  // A file cut short while it is read: what is there is delivered, then the
  // input ends instead of waiting for the bytes its size promised.
  constexpr size_t kSize = 4 << 20;
  constexpr size_t kCut = 1 << 20;
  std::ofstream(dir_ / "shrinks.xml", std::ios::binary) << std::string(kSize, 'x');
  DXLReaderContext shrinks = readerOf(dir_ / "shrinks.xml");
  std::vector<BYTE> buffer(4096);
  ASSERT_EQ(DXLReaderFunc(buffer.data(), 4096, &shrinks), 4096u);
  std::filesystem::resize_file(dir_ / "shrinks.xml", kCut);
  size_t delivered = 4096;
  for (const std::string& read : readAll(shrinks, 4096)) delivered += read.size();
  EXPECT_EQ(delivered, kCut);
  EXPECT_EQ(shrinks.remaining, static_cast<long>(kSize - kCut));
  EXPECT_EQ(shrinks.stream, nullptr);
}

TEST_F(DatabaseSetup, DatabaseFromTemplateInheritsItsNameAndTakesItsList) {
  makeTemplate("apps/acme.ntf", "AcmeOOO");
  ASSERT_EQ(CreateFormTemplate("apps\\acme.nsf", "apps\\acme.ntf"), NOERROR);
  ASSERT_TRUE(std::filesystem::exists(dir_ / "apps" / "acme.nsf"));

  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("apps/acme.nsf", &db), NOERROR);
  EXPECT_EQ(info(db, INFOPARSE_TITLE), "Acme Out of Office");
  EXPECT_EQ(info(db, INFOPARSE_CLASS), "") << "the copy is no template";
  EXPECT_EQ(info(db, INFOPARSE_DESIGN_CLASS), "AcmeOOO");
  char all[NSF_INFO_SIZE] = {0};
  ASSERT_EQ(NSFDbInfoGet(db, all), NOERROR);
  NOTEHANDLE icon = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpen(db, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon), NOERROR);
  char title[NSF_INFO_SIZE + 1] = {0};
  NSFItemGetText(icon, "$TITLE", title, NSF_INFO_SIZE);
  EXPECT_STREQ(title, all);
  NSFNoteClose(icon);
  NOTEID form = 0;
  EXPECT_EQ(NIFFindDesignNote(db, "Settings", NOTE_CLASS_FORM, &form), NOERROR) << "the design is copied";
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(NSFDbReadACL(db, &acl), NOERROR);
  WORD level = 0;
  std::vector<char> names(sizeof(NAMES_LIST) + sizeof "Staff", 0);
  NAMES_LIST header{};
  header.NumNames = 1;
  std::memcpy(names.data(), &header, sizeof header);
  std::strcpy(names.data() + sizeof header, "Staff");
  EXPECT_EQ(ACLLookupAccess(acl, reinterpret_cast<NAMES_LIST*>(names.data()), &level, nullptr, nullptr, nullptr),
            NOERROR);
  EXPECT_EQ(level, ACL_LEVEL_AUTHOR) << "the template entry [Staff] becomes Staff";
  OSMemFree(acl);
  NSFDbClose(db);

  DBHANDLE templateDb = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("apps/acme.ntf", &templateDb), NOERROR);
  EXPECT_EQ(info(templateDb, INFOPARSE_CLASS), "AcmeOOO") << "the template keeps its name";
  NSFDbClose(templateDb);
}

TEST_F(DatabaseSetup, FailedCreationReportsAndLeavesTheTemplateNamed) {
  EXPECT_EQ(ERR(CreateFormTemplate("acme.nsf", "missing.ntf")), ERR_NOEXIST);
  EXPECT_FALSE(std::filesystem::exists(dir_ / "acme.nsf"));

  makeTemplate("acme.ntf", "AcmeOOO");
  ASSERT_EQ(NSFDbCreate("taken.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  EXPECT_NE(CreateFormTemplate("taken.nsf", "acme.ntf"), NOERROR);
  DBHANDLE templateDb = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("acme.ntf", &templateDb), NOERROR);
  EXPECT_EQ(info(templateDb, INFOPARSE_CLASS), "AcmeOOO");
  NSFDbClose(templateDb);
}

}  // namespace
