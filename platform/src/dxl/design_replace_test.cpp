// Templates made by DXL import, databases made from them with
// NSFDbCreateAndCopy, and DesignReplace moving a database to another
// template: what is replaced, added, removed and kept.
#include <string>

#include <gtest/gtest.h>

#include "designreplace.h"
#include "dxl/dxl_test_support.h"
#include "dxl/form_design.h"
#include "nsfprofile.h"
#include "store/database.h"
#include "store/note.h"

namespace {

using namespace tarnwick::rt;
using dxl::testing::ImportTest;

const char* const kExtendedDesign = R"(<database xmlns='http://www.lotus.com/dxl' title='Tarnwick' templatename='OOOEx'>
<form name='Setup' alias='SetupForm'><field name='Server' type='names'/></form>
<view name='(Setup Doc)'><column itemname='Server' sort='ascending'/></view>
<view name='Old View'><column itemname='Subject'/></view>
</database>)";

const char* const kPlainDesign = R"(<database xmlns='http://www.lotus.com/dxl' title='Tarnwick' templatename='OOO'>
<form name='SetupForm'><field name='Server' type='names'/><field name='useSSL'/></form>
<view name='(Setup Doc)'><column itemname='Server' sort='ascending'/></view>
<view name='New View'><column itemname='Subject'/></view>
</database>)";

class DesignReplaceTest : public ImportTest {
 protected:
  const char* database_path() const override { return "OOOEx.ntf"; }

  void SetUp() override {
    ImportTest::SetUp();
    ASSERT_EQ(import(kExtendedDesign), NOERROR) << log_;
    NSFDbClose(db_);
    ASSERT_EQ(NSFDbCreate("OOO.ntf", 0, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen("OOO.ntf", &db_), NOERROR);
    ASSERT_EQ(import(kPlainDesign), NOERROR) << log_;
    ASSERT_EQ(NSFDbCreateAndCopy("OOOEx.ntf", "OOO.nsf", NOTE_CLASS_ALLNONDATA, 0, 0, &app_), NOERROR);
  }
  void TearDown() override {
    NSFDbClose(app_);
    ImportTest::TearDown();
  }

  std::string icon_text(DBHANDLE db, const char* item) {
    NOTEHANDLE icon = NULLHANDLE;
    if (NSFNoteOpen(db, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon) != NOERROR) return "(no icon note)";
    std::string text = text_item(icon, item);
    NSFNoteClose(icon);
    return text;
  }

  NOTEID add_form(const char* title, const char* flags) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(app_, &note), NOERROR);
    WORD note_class = NOTE_CLASS_FORM;
    NSFNoteSetInfo(note, _NOTE_CLASS, &note_class);
    NSFItemSetText(note, "$TITLE", title, MAXWORD);
    NSFItemSetText(note, "$Flags", flags, MAXWORD);
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    return id;
  }

  DBHANDLE app_ = NULLHANDLE;
};

TEST_F(DesignReplaceTest, DatabaseMadeFromATemplateNamesIt) {
  EXPECT_EQ(icon_text(app_, "$TemplateFileName"), "OOOEx.ntf");
  EXPECT_NE(design_id(NOTE_CLASS_VIEW, "Old View", app_), 0u);
  EXPECT_EQ(icon_text(db_, "$TemplateFileName"), "OOO.ntf");
}

TEST_F(DesignReplaceTest, ReplacesMatchingDesignAddsNewRemovesStaleKeepsData) {
  const NOTEID form = design_id(NOTE_CLASS_FORM, "SetupForm", app_);
  const NOTEID preserved = add_form("Mine", "P");
  add_form("Local", "");
  NOTEHANDLE document = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(app_, &document), NOERROR);
  NSFItemSetText(document, "Form", "Setup", MAXWORD);
  ASSERT_EQ(NSFNoteUpdate(document, 0), NOERROR);
  NSFNoteClose(document);
  NOTEHANDLE profile = NULLHANDLE;
  ASSERT_EQ(NSFProfileOpen(app_, "Settings", 8, nullptr, 0, TRUE, &profile), NOERROR);
  NSFNoteClose(profile);
  char info_before[NSF_INFO_SIZE];
  ASSERT_EQ(NSFDbInfoGet(app_, info_before), NOERROR);

  ASSERT_EQ(DesignReplace(db_, app_, 0, 0, nullptr), NOERROR);

  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "SetupForm", app_), form) << "replaced in place";
  auto stored = std::make_unique<store::Note>();
  ASSERT_EQ(store::find_database(app_)->read_note(form, 0, stored.get()), NOERROR);
  EXPECT_EQ(dxl::read_form_fields(*stored).size(), 2u);
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "Setup", app_), 0u) << "the old name went with the old design";
  EXPECT_NE(design_id(NOTE_CLASS_VIEW, "New View", app_), 0u);
  EXPECT_EQ(design_id(NOTE_CLASS_VIEW, "Old View", app_), 0u);
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "Local", app_), 0u);
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "Mine", app_), preserved);
  int data_notes = 0;  // the document and the profile
  store::find_database(app_)->scan(NOTE_CLASS_DOCUMENT, store::ScanOptions{}, [&](const store::NoteRecord&,
                                                                                 std::string_view) {
    ++data_notes;
    return STATUS{NOERROR};
  });
  EXPECT_EQ(data_notes, 2);
  char info_after[NSF_INFO_SIZE];
  ASSERT_EQ(NSFDbInfoGet(app_, info_after), NOERROR);
  EXPECT_STREQ(info_after, info_before);
  EXPECT_EQ(icon_text(app_, "$TemplateFileName"), "OOO.ntf");

  ASSERT_EQ(DesignReplace(db_, app_, DESIGNREPLACE_FORCE, DESIGNREPLACE_INHERIT, nullptr), NOERROR);
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "Mine", app_), 0u);
  ASSERT_EQ(NSFDbInfoGet(app_, info_after), NOERROR);
  char inherited[NSF_INFO_SIZE];
  NSFDbInfoParse(info_after, INFOPARSE_DESIGN_CLASS, inherited, sizeof(inherited) - 1);
  EXPECT_STREQ(inherited, "OOO");
}

STATUS LNCALLBACK refuse() { return ERR_NOT_SUPPORTED; }

TEST_F(DesignReplaceTest, AnAbortedReplacementChangesNothing) {
  EXPECT_EQ(DesignReplace(db_, app_, 1, 1, refuse), ERR_NOT_SUPPORTED);
  EXPECT_NE(design_id(NOTE_CLASS_VIEW, "Old View", app_), 0u);
  EXPECT_EQ(icon_text(app_, "$TemplateFileName"), "OOOEx.ntf");
  EXPECT_EQ(DesignReplace(db_, db_, 1, 1, nullptr), ERR_BAD_PARAM);
  EXPECT_EQ(DesignReplace(db_, NULLHANDLE, 1, 1, nullptr), ERR_DB_NOT_OPEN);
}

}  // namespace
