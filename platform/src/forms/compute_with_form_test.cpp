// NSFNoteComputeWithForm: the form found by the note's "Form" item (alias,
// default form), field kinds, default / translation / validation formulas,
// type conversion, and the error routine's answers.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dxl/form_design.h"
#include "editods.h"
#include "globerr.h"
#include "nsfdesign.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "store/note.h"
#include "testing/temp_data_directory.h"

namespace {

using tarnwick::rt::dxl::FieldDesign;
using tarnwick::rt::dxl::FieldKind;
using tarnwick::rt::dxl::FieldType;

// Writes the field design items of a form note.
void write_fields(NOTEHANDLE form, const std::vector<FieldDesign>& fields) {
  auto note = tarnwick::rt::store::find_note(form);
  ASSERT_TRUE(note);
  std::lock_guard lock(note->mutex);
  tarnwick::rt::dxl::write_form_fields(*note, fields);
}

FieldDesign field(const char* name, FieldKind kind, FieldType type, const char* value = "",
                  const char* translate = "", const char* validate = "") {
  FieldDesign f;
  f.name = name;
  f.kind = kind;
  f.type = type;
  (kind == FieldKind::kEditable ? f.default_formula : f.value_formula) = value;
  f.translate_formula = translate;
  f.validate_formula = validate;
  return f;
}

std::string text_of(NOTEHANDLE note, const char* item) {
  char buffer[256];
  return std::string(buffer, NSFItemGetText(note, item, buffer, sizeof buffer));
}

WORD type_of(NOTEHANDLE note, const char* item) {
  WORD type = 0;
  NSFItemInfo(note, item, MAXWORD, nullptr, &type, nullptr, nullptr);
  return type;
}

// What the error routine saw, and what it answers.
struct Reports {
  struct Report {
    std::string field;
    WORD phase;
    STATUS error;
    std::string text;
  };
  std::vector<Report> seen;
  WORD answer = CWF_ABORT;
  NOTEHANDLE note = NULLHANDLE;
  bool fix_days = false;  // set Days to a valid value before answering
};

WORD LNCALLBACK record_error(const void* pCDField, WORD phase, STATUS error, DHANDLE ErrorText, WORD wErrorTextSize,
                             void* ctx) {
  auto* reports = static_cast<Reports*>(ctx);
  const auto* cd = static_cast<const CDFIELD*>(pCDField);
  const char* name = static_cast<const char*>(pCDField) + sizeof(CDFIELD) + cd->DVLength + cd->ITLength + cd->IVLength;
  std::string text;
  if (ErrorText != NULLHANDLE && wErrorTextSize >= 6) {
    const char* block = static_cast<const char*>(OSLockObject(ErrorText));
    text.assign(block + 6, wErrorTextSize - 6);
    OSUnlockObject(ErrorText);
  }
  reports->seen.push_back({std::string(name, cd->NameLength), phase, error, text});
  if (reports->fix_days) {
    // The note is usable from the routine: the computation does not hold it.
    NSFItemSetText(reports->note, "Days", "5", MAXWORD);
    reports->fix_days = false;
  }
  return reports->answer;
}

class ComputeWithForm : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NSFDbCreate("forms.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen("forms.nsf", &db_), NOERROR);
    NOTEHANDLE form = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db_, &form), NOERROR);
    const WORD form_class = NOTE_CLASS_FORM;
    NSFNoteSetInfo(form, _NOTE_CLASS, &form_class);
    NSFItemSetText(form, "$TITLE", "Away Profile|Away", MAXWORD);
    write_fields(form, {
        field("Owner", FieldKind::kEditable, FieldType::kNames, "\"Jane Doe\"", "@Trim(Owner)"),
        field("Days", FieldKind::kEditable, FieldType::kNumber, "", "",
              "@If(Days > 0; @Success; @Failure(\"Days must be positive\"))"),
        field("Subject", FieldKind::kComputed, FieldType::kText, "Owner + \" is away for \" + @Text(Days) + \" days\""),
        field("Shown", FieldKind::kComputedForDisplay, FieldType::kText, "\"shown\""),
        field("Start", FieldKind::kEditable, FieldType::kDateTime),
        field("Created", FieldKind::kComputedWhenComposed, FieldType::kText, "\"once\""),
    });
    ASSERT_EQ(NSFNoteUpdate(form, 0), NOERROR);
    NSFNoteClose(form);

    ASSERT_EQ(NSFNoteCreate(db_, &note_), NOERROR);
    NSFItemSetText(note_, "Form", "away", MAXWORD);  // the alias, in another case
    NSFItemSetText(note_, "Days", "3", MAXWORD);
    NSFItemSetText(note_, "Start", "01/02/2026", MAXWORD);
    NSFItemSetText(note_, "Shown", "left over", MAXWORD);
    NSFItemSetText(note_, "Created", "kept", MAXWORD);
    reports_.note = note_;
  }
  void TearDown() override {
    NSFNoteClose(note_);
    NSFDbClose(db_);
  }

  STATUS compute(DWORD flags = 0, bool with_routine = true) {
    return NSFNoteComputeWithForm(note_, NULLHANDLE, flags, with_routine ? record_error : nullptr, &reports_);
  }

  tarnwick::testing::TempDataDirectory data_;
  DBHANDLE db_ = NULLHANDLE;
  NOTEHANDLE note_ = NULLHANDLE;
  Reports reports_;
};

TEST_F(ComputeWithForm, FieldsGetDefaultsTranslationsComputedValuesAndTheirTypes) {
  NSFItemSetText(note_, "Owner", "  Ann   Lee ", MAXWORD);
  ASSERT_EQ(compute(), NOERROR);
  EXPECT_TRUE(reports_.seen.empty());
  EXPECT_EQ(text_of(note_, "Owner"), "Ann Lee");  // translated
  EXPECT_EQ(type_of(note_, "Days"), TYPE_NUMBER);  // "3" converted
  EXPECT_EQ(NSFItemGetLong(note_, "Days", 0), 3);
  EXPECT_EQ(type_of(note_, "Start"), TYPE_TIME);
  EXPECT_EQ(text_of(note_, "Subject"), "Ann Lee is away for 3 days");
  EXPECT_FALSE(NSFItemIsPresent(note_, "Shown", MAXWORD));  // computed for display: not kept
  EXPECT_EQ(text_of(note_, "Created"), "kept");               // computed when composed: only when missing

  // A missing editable field gets its default.
  NSFItemDelete(note_, "Owner", MAXWORD);
  ASSERT_EQ(compute(), NOERROR);
  EXPECT_EQ(text_of(note_, "Subject"), "Jane Doe is away for 3 days");
  WORD flags = 0;
  BLOCKID item{};
  ASSERT_EQ(NSFItemInfo(note_, "Owner", MAXWORD, &item, nullptr, nullptr, nullptr), NOERROR);
  NSFItemQuery(note_, item, nullptr, 0, nullptr, &flags, nullptr, nullptr, nullptr);
  EXPECT_TRUE(flags & ITEM_NAMES);
}

TEST_F(ComputeWithForm, AFailedValidationReachesTheRoutineAndItsAnswerDecides) {
  NSFItemSetText(note_, "Days", "-1", MAXWORD);
  const STATUS stopped = compute();
  EXPECT_NE(stopped, NOERROR);
  ASSERT_EQ(reports_.seen.size(), 1u);
  EXPECT_EQ(reports_.seen[0].field, "Days");
  EXPECT_EQ(reports_.seen[0].phase, CWF_IV_FORMULA);
  EXPECT_EQ(reports_.seen[0].error, stopped);
  EXPECT_EQ(reports_.seen[0].text, "Days must be positive");
  EXPECT_EQ(type_of(note_, "Start"), TYPE_TEXT) << "the fields after the failure are not checked";

  // Next field: the rest of the form still runs.
  reports_ = Reports{{}, CWF_NEXT_FIELD, note_};
  EXPECT_EQ(compute(), NOERROR);
  EXPECT_EQ(reports_.seen.size(), 1u);
  EXPECT_EQ(text_of(note_, "Subject"), "Jane Doe is away for -1 days");

  // Recheck after the routine corrected the value.
  reports_ = Reports{{}, CWF_RECHECK_FIELD, note_, true};
  EXPECT_EQ(compute(), NOERROR);
  EXPECT_EQ(reports_.seen.size(), 1u);
  EXPECT_EQ(NSFItemGetLong(note_, "Days", 0), 5);

  // No routine: the error is returned; continue-on-error: passed over.
  NSFItemSetText(note_, "Days", "-1", MAXWORD);
  EXPECT_EQ(compute(0, false), stopped);
  reports_ = Reports{};
  EXPECT_EQ(compute(CWF_CONTINUE_ON_ERROR), NOERROR);
  EXPECT_TRUE(reports_.seen.empty());
}

TEST_F(ComputeWithForm, ValuesOfTheWrongTypeFailTheConversion) {
  NSFItemSetText(note_, "Start", "not a date", MAXWORD);
  EXPECT_EQ(compute(), ERR_TOTIME);
  ASSERT_EQ(reports_.seen.size(), 1u);
  EXPECT_EQ(reports_.seen[0].field, "Start");
  EXPECT_EQ(reports_.seen[0].phase, CWF_DATATYPE_CONVERSION);

  // A time in a text field is no text.
  reports_ = Reports{{}, CWF_ABORT, note_};
  TIMEDATE now;
  OSCurrentTIMEDATE(&now);
  NSFItemSetText(note_, "Start", "01/02/2026", MAXWORD);
  NSFItemSetTime(note_, "Owner", &now);
  EXPECT_EQ(compute(), ERR_TEXT_EXPECTED);
}

TEST_F(ComputeWithForm, TheFormComesFromTheFormItemOrTheDefaultForm) {
  NSFItemSetText(note_, "Form", "No Such Form", MAXWORD);
  EXPECT_EQ(compute(), ERR_NOT_FOUND);

  // A default form serves notes without a form of their own.
  NOTEHANDLE fallback = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db_, &fallback), NOERROR);
  const WORD default_form = NOTE_CLASS_FORM | NOTE_CLASS_DEFAULT;
  NSFNoteSetInfo(fallback, _NOTE_CLASS, &default_form);
  NSFItemSetText(fallback, "$TITLE", "Plain", MAXWORD);
  write_fields(fallback, {field("Kind", FieldKind::kComputed, FieldType::kText, "\"plain\"")});
  ASSERT_EQ(NSFNoteUpdate(fallback, 0), NOERROR);
  NSFNoteClose(fallback);
  ASSERT_EQ(compute(), NOERROR);
  EXPECT_EQ(text_of(note_, "Kind"), "plain");
  EXPECT_FALSE(NSFItemIsPresent(note_, "Subject", MAXWORD));

  EXPECT_EQ(NSFNoteComputeWithForm(static_cast<NOTEHANDLE>(0x7777), NULLHANDLE, 0, nullptr, nullptr), ERR_BAD_PARAM);
}

// Form designs are kept between computations; a changed form, and a form
// of a database made anew at the same path, must still be seen.
TEST_F(ComputeWithForm, AChangedFormDesignIsSeenByTheNextComputation) {
  auto form_id = [&] {
    NOTEID id = 0;
    EXPECT_EQ(NIFFindDesignNoteExt(db_, "Away", NOTE_CLASS_FORM, nullptr, &id, 0), NOERROR);
    return id;
  };
  auto compute_note = [&](DBHANDLE db) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
    NSFItemSetText(note, "Form", "Away", MAXWORD);
    EXPECT_EQ(NSFNoteComputeWithForm(note, NULLHANDLE, 0, nullptr, nullptr), NOERROR);
    const std::string kind = text_of(note, "Kind");
    NSFNoteClose(note);
    return kind;
  };
  auto rewrite_form = [&](DBHANDLE db, NOTEID id, const char* value) {
    NOTEHANDLE form = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, id, 0, &form), NOERROR);
    write_fields(form, {field("Kind", FieldKind::kComputed, FieldType::kText, value)});
    ASSERT_EQ(NSFNoteUpdate(form, 0), NOERROR);
    NSFNoteClose(form);
  };
  const NOTEID id = form_id();
  rewrite_form(db_, id, "\"first\"");
  EXPECT_EQ(compute_note(db_), "first");
  EXPECT_EQ(compute_note(db_), "first");
  rewrite_form(db_, id, "\"second\"");
  EXPECT_EQ(compute_note(db_), "second");

  // The same path, the same note ID, a different database.
  NSFNoteClose(note_);
  note_ = NULLHANDLE;
  NSFDbClose(db_);
  db_ = NULLHANDLE;
  ASSERT_EQ(NSFDbDelete("forms.nsf"), NOERROR);
  ASSERT_EQ(NSFDbCreate("forms.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  ASSERT_EQ(NSFDbOpen("forms.nsf", &db_), NOERROR);
  NOTEHANDLE form = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db_, &form), NOERROR);
  const WORD form_class = NOTE_CLASS_FORM;
  NSFNoteSetInfo(form, _NOTE_CLASS, &form_class);
  NSFItemSetText(form, "$TITLE", "Away", MAXWORD);
  write_fields(form, {field("Kind", FieldKind::kComputed, FieldType::kText, "\"third\"")});
  ASSERT_EQ(NSFNoteUpdate(form, 0), NOERROR);
  NSFNoteClose(form);
  EXPECT_EQ(compute_note(db_), "third");
  ASSERT_EQ(NSFNoteCreate(db_, &note_), NOERROR);  // for TearDown
}

}  // namespace
