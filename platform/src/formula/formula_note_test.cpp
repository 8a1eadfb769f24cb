// NSFComputeEvaluate against an open note: items read by name without case,
// FIELD assignments written into the note (and stored by NSFNoteUpdate),
// @DeleteField, selection results.
#include <string>

#include <gtest/gtest.h>

#include "formula.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "testing/temp_data_directory.h"

namespace {

struct Outcome {
  STATUS status = NOERROR;
  WORD type = 0;
  std::string value;  // after the type word
  BOOL matches = FALSE, modified = FALSE;
};

Outcome evaluate(NOTEHANDLE note, const std::string& text) {
  Outcome out;
  FORMULAHANDLE formula = NULLHANDLE;
  STATUS detail = NOERROR;
  EXPECT_EQ(NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &formula, nullptr, &detail,
                              nullptr, nullptr, nullptr, nullptr),
            NOERROR)
      << text;
  HCOMPUTE compute = NULLHANDLE;
  EXPECT_EQ(NSFComputeStart(0, OSLockObject(formula), &compute), NOERROR);
  DHANDLE result = NULLHANDLE;
  WORD length = 0;
  out.status = NSFComputeEvaluate(compute, note, &result, &length, &out.matches, nullptr, &out.modified);
  if (result != NULLHANDLE) {
    const auto* bytes = static_cast<const unsigned char*>(OSLockObject(result));
    out.type = static_cast<WORD>(bytes[0] | bytes[1] << 8);
    out.value.assign(reinterpret_cast<const char*>(bytes) + 2, length - 2);
    OSUnlockObject(result);
    OSMemFree(result);
  }
  NSFComputeStop(compute);
  OSUnlockObject(formula);
  OSMemFree(formula);
  return out;
}

// The first entry of a TEXT_LIST result.
std::string first_text(const Outcome& o) {
  if (o.type != TYPE_TEXT_LIST || o.value.size() < 4) return "<not a text list>";
  const WORD entries = static_cast<WORD>(static_cast<unsigned char>(o.value[0]) | static_cast<unsigned char>(o.value[1]) << 8);
  if (entries == 0) return "";
  const WORD length = static_cast<WORD>(static_cast<unsigned char>(o.value[2]) | static_cast<unsigned char>(o.value[3]) << 8);
  return o.value.substr(2 + 2 * entries, length);
}

class FormulaOnNote : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NSFDbCreate("notes.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen("notes.nsf", &db_), NOERROR);
    ASSERT_EQ(NSFNoteCreate(db_, &note_), NOERROR);
    ASSERT_EQ(NSFItemSetText(note_, "Subject", "Hello", MAXWORD), NOERROR);
    const NUMBER days = 3;
    ASSERT_EQ(NSFItemSetNumber(note_, "Days", &days), NOERROR);
    ASSERT_EQ(NSFItemCreateTextList(note_, "Names", "Ann", MAXWORD), NOERROR);
    ASSERT_EQ(NSFItemAppendTextList(note_, "Names", "Bob", MAXWORD, FALSE), NOERROR);
  }
  void TearDown() override {
    NSFNoteClose(note_);
    NSFDbClose(db_);
  }

  tarnwick::testing::TempDataDirectory data_;
  DBHANDLE db_ = NULLHANDLE;
  NOTEHANDLE note_ = NULLHANDLE;
};

TEST_F(FormulaOnNote, ItemsAreReadByNameWithoutCase) {
  EXPECT_EQ(first_text(evaluate(note_, "subject + \" \" + @Text(DAYS * 2)")), "Hello 6");
  EXPECT_EQ(first_text(evaluate(note_, "@Implode(Names; \",\") + \"|\" + @Text(@Elements(Names))")), "Ann,Bob|2");
  // A missing item is "", and no assignment means no change.
  const Outcome missing = evaluate(note_, "Nowhere");
  EXPECT_EQ(first_text(missing), "");
  EXPECT_FALSE(missing.modified);
}

TEST_F(FormulaOnNote, FieldAssignmentsChangeTheNoteAndAreStoredWithIt) {
  const Outcome o = evaluate(note_, "FIELD Greeting := Subject + \" world\"; FIELD Count := Days + 1; "
                                    "FIELD Subject := @DeleteField; Greeting");
  ASSERT_EQ(o.status, NOERROR);
  EXPECT_TRUE(o.modified);
  EXPECT_EQ(first_text(o), "Hello world");
  WORD type = 0;
  ASSERT_EQ(NSFItemInfo(note_, "Greeting", MAXWORD, nullptr, &type, nullptr, nullptr), NOERROR);
  EXPECT_EQ(type, TYPE_TEXT);  // a single value is written in its simple form
  EXPECT_EQ(NSFItemGetLong(note_, "Count", 0), 4);
  EXPECT_FALSE(NSFItemIsPresent(note_, "Subject", MAXWORD));

  ASSERT_EQ(NSFNoteUpdate(note_, 0), NOERROR);
  NOTEID id = 0;
  NSFNoteGetInfo(note_, _NOTE_ID, &id);
  NOTEHANDLE reopened = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpen(db_, id, 0, &reopened), NOERROR);
  char text[64];
  EXPECT_EQ(std::string(text, NSFItemGetText(reopened, "Greeting", text, sizeof text)), "Hello world");
  NSFNoteClose(reopened);
}

TEST_F(FormulaOnNote, SelectionAndBadHandles) {
  EXPECT_TRUE(evaluate(note_, "SELECT Subject = \"Hello\" & Days = 3").matches);
  EXPECT_FALSE(evaluate(note_, "SELECT Days > 5").matches);
  EXPECT_EQ(evaluate(static_cast<NOTEHANDLE>(0x7777), "1").status, ERR_BAD_PARAM);
}

}  // namespace
