// The shipped designs at work: documents computed with their forms, found
// through the directory views and expanded as groups, and the out-of-office
// profile forms of both mail templates, as the task uses them.
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dxlimport.h"
#include "globerr.h"
#include "lookup.h"
#include "mail.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "ostime.h"
#include "testing/temp_data_directory.h"
#include "textlist.h"

namespace {

std::string design_file(const char* name) {
  return (std::filesystem::path(TARNWICK_SOURCE_ROOT) / "design" / name).string();
}

class ShippedDesigns : public ::testing::Test {
 protected:
  void open_template(const char* dxl, const char* path) {
    ASSERT_EQ(TarnwickTemplateFromDXL(design_file(dxl).c_str(), path, nullptr, nullptr), NOERROR) << dxl;
    ASSERT_EQ(NSFDbOpen(path, &db_), NOERROR);
  }
  void TearDown() override { NSFDbClose(db_); }

  // A document made as a form would make it: items set, then computed with
  // the form it names.
  STATUS compose(const char* form, const std::vector<std::pair<const char*, std::vector<std::string>>>& items) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    NSFItemSetText(note, "Form", form, MAXWORD);
    for (const auto& [name, values] : items) {
      for (const auto& v : values) NSFItemAppendTextList(note, name, v.data(), static_cast<WORD>(v.size()), TRUE);
    }
    STATUS status = NSFNoteComputeWithForm(note, NULLHANDLE, 0, nullptr, nullptr);
    if (status == NOERROR) status = NSFNoteUpdate(note, 0);
    NSFNoteClose(note);
    return status;
  }

  std::string text_of(NOTEHANDLE note, const char* item) {
    char buffer[256];
    return std::string(buffer, NSFItemGetText(note, item, buffer, sizeof buffer));
  }

  tarnwick::testing::TempDataDirectory data_;
  DBHANDLE db_ = NULLHANDLE;
};

TEST_F(ShippedDesigns, DirectoryDocumentsAreFoundAndGroupsExpanded) {
  open_template("names.xml", "names.nsf");
  ASSERT_EQ(compose("Person", {{"FullName", {"CN=Ann Lee/O=Acme"}},
                               {"ShortName", {"alee"}},
                               {"InternetAddress", {" Ann.Lee@Acme.com "}},
                               {"MailServer", {"CN=Srv1/O=Acme"}},
                               {"MailFile", {"mail\\alee.nsf"}}}),
            NOERROR);
  ASSERT_EQ(compose("Person", {{"FullName", {"CN=Bob Roe/O=Acme"}}, {"MailFile", {"mail\\broe.nsf"}}}), NOERROR);
  EXPECT_NE(compose("Person", {{"FullName", {"CN=Cy Cox/O=Acme"}}, {"HTTPPassword", {"secret"}}}), NOERROR)
      << "a clear-text password fails the form's validation";
  ASSERT_EQ(compose("Group", {{"ListName", {"Team"}}, {"Members", {"CN=Ann Lee/O=Acme", "Inner"}}}), NOERROR);
  ASSERT_EQ(compose("Group", {{"ListName", {"Inner"}}, {"Members", {"CN=Bob Roe/O=Acme", "Team"}}}), NOERROR);
  ASSERT_EQ(compose("Server", {{"ServerName", {"CN=Srv1/O=Acme"}}, {"ClusterName", {"C1"}}}), NOERROR);

  // By short name, by the translated Internet address, by abbreviated name.
  const char names[] = "alee\0ann.lee@acme.com\0Bob Roe/Acme\0Cy Cox/Acme\0";
  DHANDLE buffer = NULLHANDLE;
  ASSERT_EQ(NAMELookup2(nullptr, 0, 1, "$Users\0", 4, names, 2, "MailFile\0FullName\0", &buffer), NOERROR);
  void* lookup = OSLockObject(buffer);
  std::vector<std::string> files;
  DWORD matches = 0;
  for (void* name = NAMELocateNextName2(lookup, nullptr, &matches); name != nullptr;
       name = NAMELocateNextName2(lookup, name, &matches)) {
    char text[64] = "";
    if (matches > 0) NAMEGetTextItem2(NAMELocateNextMatch2(lookup, name, nullptr), 0, 0, text, sizeof text);
    files.emplace_back(matches > 0 ? text : "-");
  }
  OSUnlockObject(buffer);
  OSMemFree(buffer);
  EXPECT_EQ(files, (std::vector<std::string>{"mail\\alee.nsf", "mail\\alee.nsf", "mail\\broe.nsf", "-"}));

  DHANDLE list = NULLHANDLE;
  void* locked = nullptr;
  WORD size = 0;
  ASSERT_EQ(ListAllocate(0, 0, TRUE, &list, &locked, &size), NOERROR);
  OSUnlockObject(list);
  ListAddEntry(list, TRUE, &size, 0, "team", 4);
  DHANDLE expanded = NULLHANDLE;
  WORD expanded_size = 0;
  ASSERT_EQ(MailExpandNames(list, size, &expanded, &expanded_size, FALSE, NULLHANDLE), NOERROR);
  EXPECT_EQ(ListGetNumEntries(OSLockObject(expanded), TRUE), 2);
  OSUnlockObject(expanded);
  OSMemFree(expanded);
}

// The task's template evaluation: time values in FirstDayOut/FirstDayBack
// compute with the date-typed profile form and fail with the text-typed one,
// which computes once they are texts.
TEST_F(ShippedDesigns, OutOfOfficeProfileFormsTellTheirTemplatesApart) {
  for (const char* dxl : {"mail.xml", "mail-legacy.xml"}) {
    SCOPED_TRACE(dxl);
    const std::string path = std::string(dxl) + ".ntf";
    open_template(dxl, path.c_str());
    NOTEHANDLE profile = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db_, &profile), NOERROR);
    NSFItemSetText(profile, "Form", "(Out Of Office Profile)", MAXWORD);
    NSFItemSetText(profile, "$Owner", "CN=Ann Lee/O=Acme", MAXWORD);
    TIMEDATE out{}, back{};
    OSCurrentTIMEDATE(&out);
    back = out;
    TimeDateAdjust(&back, 0, 0, 0, 7, 0, 0);
    NSFItemSetTime(profile, "FirstDayOut", &out);
    NSFItemSetTime(profile, "FirstDayBack", &back);
    NSFItemSetTime(profile, "dateFirstDayOut", &out);
    NSFItemSetTime(profile, "dateFirstDayBack", &back);
    const STATUS with_times = NSFNoteComputeWithForm(profile, NULLHANDLE, 0, nullptr, nullptr);
    if (std::string(dxl) == "mail.xml") {
      EXPECT_EQ(with_times, NOERROR);
      EXPECT_EQ(text_of(profile, "GeneralSubject"), "Ann Lee is out of the office");
      EXPECT_NE(text_of(profile, "DaysOut").find("I am out of the office from "), std::string::npos);
    } else {
      EXPECT_NE(with_times, NOERROR);
      // Texts compute; with hours shown they are quoted as typed.
      NSFItemSetText(profile, "FirstDayOut", "01/02/2026", MAXWORD);
      NSFItemSetText(profile, "FirstDayBack", "01/09/2026", MAXWORD);
      NSFItemSetText(profile, "ShowHours", "1", MAXWORD);
      EXPECT_EQ(NSFNoteComputeWithForm(profile, NULLHANDLE, 0, nullptr, nullptr), NOERROR);
      EXPECT_NE(text_of(profile, "DaysOut").find("01/09/2026"), std::string::npos) << text_of(profile, "DaysOut");
    }
    NSFNoteClose(profile);
    NSFDbClose(db_);
    db_ = NULLHANDLE;
  }
}

}  // namespace
