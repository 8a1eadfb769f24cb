// The designs we ship (design/*.xml), imported as the server gets them:
// templates built from the DXL files, databases made from the templates,
// and what later requests need from them.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "acl.h"
#include "agents.h"
#include "dxl/dxl_test_support.h"
#include "dxl/form_design.h"
#include "dxl/view_design.h"
#include "fileresource.h"
#include "formula.h"
#include "globerr.h"
#include "nif.h"
#include "nsfdata.h"
#include "nsfnote.h"
#include "oooapi.h"
#include "ostime.h"
#include "store/database.h"
#include "store/note.h"

namespace {

using namespace tarnwick::rt;
using dxl::testing::ImportTest;
using dxl::testing::read_text_file;
using dxl::testing::source_dir;

std::string design_file(const std::string& name) { return source_dir() + "/design/" + name; }

// Item values a formula sees, as formula expressions ("FirstDayOut" ->
// "@Date(2024; 7; 1)"). They are bound as temporary variables, which a
// formula reads exactly as it reads the items of a note.
using Items = std::vector<std::pair<std::string, std::string>>;

// The result of a formula evaluated with those items, as text: a text
// result's first entry, "#number N" for a number, "#error ..." when the
// formula fails.
std::string evaluate(const Items& items, const std::string& field_formula) {
  std::string formula;
  for (const auto& [name, value] : items) formula += name + " := " + value + ";\n";
  formula += field_formula;
  const NOTEHANDLE note = NULLHANDLE;  // the items are the variables above
  FORMULAHANDLE compiled = NULLHANDLE;
  STATUS detail = NOERROR;
  if (NSFFormulaCompile(nullptr, 0, formula.data(), static_cast<WORD>(formula.size()), &compiled, nullptr, &detail,
                        nullptr, nullptr, nullptr, nullptr) != NOERROR) {
    return "#compile error " + std::to_string(detail);
  }
  HCOMPUTE compute = NULLHANDLE;
  std::string result = "#error";
  if (NSFComputeStart(0, OSLockObject(compiled), &compute) == NOERROR) {
    DHANDLE value = NULLHANDLE;
    WORD length = 0;
    const STATUS status = NSFComputeEvaluate(compute, note, &value, &length, nullptr, nullptr, nullptr);
    if (status != NOERROR) result = "#error " + std::to_string(status);
    if (status == NOERROR && value) {
      const char* bytes = static_cast<const char*>(OSLockObject(value));
      WORD type = 0;
      std::memcpy(&type, bytes, 2);
      if (type == TYPE_TEXT_LIST && length >= 6) {
        WORD entries = 0, first = 0;
        std::memcpy(&entries, bytes + 2, 2);
        std::memcpy(&first, bytes + 4, 2);
        if (entries > 0) result.assign(bytes + 4 + 2 * entries, first);
      } else if (type == TYPE_TEXT) {
        result.assign(bytes + 2, length - 2);
      } else if (type == TYPE_NUMBER_RANGE || type == TYPE_NUMBER) {
        NUMBER number = 0;
        std::memcpy(&number, bytes + (type == TYPE_NUMBER ? 2 : 6), sizeof number);
        result = "#number " + std::to_string(static_cast<long>(number));
      }
      OSMemFree(value);
    }
    NSFComputeStop(compute);
  }
  OSMemFree(compiled);
  return result;
}

// Whether a view's selection formula selects a document with those items.
std::string selects(const Items& items, std::string selection) {
  const std::string keyword = "SELECT ";
  if (selection.compare(0, keyword.size(), keyword) == 0) selection.erase(0, keyword.size());
  return evaluate(items, "@If(" + selection + "; \"yes\"; \"no\")");
}

class ShippedDesignTest : public ImportTest {
 protected:
  // Builds a template from a shipped DXL file and opens it in db_.
  void build_template(const char* dxl, const char* path, const char* name) {
    NSFDbClose(db_);
    db_ = NULLHANDLE;
    DHANDLE log = NULLHANDLE;
    const STATUS status = TarnwickTemplateFromDXL(design_file(dxl).c_str(), path, name, &log);
    std::string log_text;
    if (log != NULLHANDLE) {
      DWORD size = 0;
      OSMemGetSize(log, &size);
      log_text.assign(static_cast<const char*>(OSLockObject(log)), size);
      OSMemFree(log);
    }
    ASSERT_EQ(status, NOERROR) << log_text;
    ASSERT_EQ(NSFDbOpen(path, &db_), NOERROR);
  }

  std::unique_ptr<store::Note> design_note(WORD note_class, const char* name) {
    const NOTEID id = design_id(note_class, name);
    EXPECT_NE(id, 0u) << name;
    auto note = std::make_unique<store::Note>();
    if (id != 0) {
      EXPECT_EQ(store::find_database(db_)->read_note(id, 0, note.get()), NOERROR);
    }
    return note;
  }

  std::string field_formula(const store::Note& form, const std::string& field, bool default_value = false) {
    for (const auto& design : dxl::read_form_fields(form)) {
      if (design.name == field) return default_value ? design.default_formula : design.value_formula;
    }
    ADD_FAILURE() << "no field " << field;
    return "\"\"";
  }
};

TEST_F(ShippedDesignTest, ApplicationTemplatesCarryTheSettingsDesignAndFiles) {
  build_template("OOO.xml", "OOO.ntf", "OOO");
  NSFDbClose(db_);
  db_ = NULLHANDLE;
  build_template("OOO.xml", "OOOEx.ntf", "OOOEx");

  // The view the task looks the settings up in, sorted by server without regard to case.
  NOTEID view_id = 0;
  ASSERT_EQ(NIFFindDesignNoteExt(db_, "(Setup Doc)", NOTE_CLASS_VIEW, "-G40n^", &view_id, 0), NOERROR);
  auto view = std::make_unique<store::Note>();
  ASSERT_EQ(store::find_database(db_)->read_note(view_id, 0, view.get()), NOERROR);
  const auto design = dxl::read_view_design(*view);
  ASSERT_FALSE(design.columns.empty());
  EXPECT_EQ(design.columns[0].item_name, "Server");
  EXPECT_EQ(design.columns[0].sort, dxl::ColumnSort::kAscending);
  EXPECT_FALSE(design.columns[0].case_sensitive);

  // The settings form gives the defaults the settings documents start with.
  auto form = design_note(NOTE_CLASS_FORM, "Setup");
  EXPECT_EQ(evaluate({}, field_formula(*form, "useSSL", true)), "1");
  EXPECT_EQ(evaluate({}, field_formula(*form, "language", true)), "-No preference-");
  EXPECT_EQ(evaluate({}, field_formula(*form, "AuthMethod", true)), "-No preference-");
  EXPECT_EQ(evaluate({}, field_formula(*form, "DocAuthor", true)), "LocalDomainServers");
  EXPECT_EQ(selects({{"Form", "\"Setup\""}}, design.selection_formula), "yes");
  EXPECT_EQ(selects({{"Form", "\"Memo\""}}, design.selection_formula), "no");

  // A settings document is found through the view by its server name, whatever the case.
  NOTEHANDLE settings = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db_, &settings), NOERROR);
  NSFItemSetText(settings, "Form", "Setup", MAXWORD);
  NSFItemSetText(settings, "Server", "CN=Mail1/O=Acme", MAXWORD);
  ASSERT_EQ(NSFNoteUpdate(settings, 0), NOERROR);
  NSFNoteClose(settings);
  HCOLLECTION collection = NULLHANDLE;
  ASSERT_EQ(NIFOpenCollection(db_, db_, view_id, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr),
            NOERROR);
  COLLECTIONPOSITION position{};
  DWORD matches = 0;
  EXPECT_EQ(NIFFindByName(collection, "cn=mail1/o=ACME", FIND_CASE_INSENSITIVE, &position, &matches), NOERROR);
  EXPECT_EQ(matches, 1u);
  EXPECT_EQ(NIFFindByName(collection, "CN=Mail2/O=Acme", FIND_CASE_INSENSITIVE, &position, &matches), ERR_NOT_FOUND);
  NIFCloseCollection(collection);

  // The files the pages link to, byte for byte.
  for (const char* file : {"favicon.ico", "oooicon.png", "OOO.apk"}) {
    SCOPED_TRACE(file);
    DHANDLE data = NULLHANDLE;
    DWORD length = 0;
    ASSERT_EQ(TarnwickFileResourceRead(db_, file, &data, &length, nullptr, 0), NOERROR);
    const std::string expected = read_text_file(design_file(std::string("resources/") + file));
    ASSERT_FALSE(expected.empty());
    ASSERT_EQ(length, expected.size());
    EXPECT_EQ(std::memcmp(OSLockObject(data), expected.data(), length), 0);
    OSMemFree(data);
  }

  // Each template names itself, and a database made from one names it too.
  NOTEHANDLE icon = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpen(db_, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon), NOERROR);
  EXPECT_EQ(text_item(icon, "$TemplateFileName"), "OOOEx.ntf");
  NSFNoteClose(icon);
  DBHANDLE app = NULLHANDLE;
  ASSERT_EQ(NSFDbCreateAndCopy("OOOEx.ntf", "OOO.nsf", NOTE_CLASS_ALLNONDATA, 0, 0, &app), NOERROR);
  ASSERT_EQ(NSFNoteOpen(app, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon), NOERROR);
  EXPECT_NE(text_item(icon, "$TemplateFileName").find("OOOEx"), std::string::npos);
  NSFNoteClose(icon);
  char info[NSF_INFO_SIZE], part[NSF_INFO_SIZE];
  ASSERT_EQ(NSFDbInfoGet(app, info), NOERROR);
  NSFDbInfoParse(info, INFOPARSE_TITLE, part, sizeof(part) - 1);
  EXPECT_STREQ(part, "Tarnwick Out of Office");
  NSFDbInfoParse(info, INFOPARSE_CLASS, part, sizeof(part) - 1);
  EXPECT_STREQ(part, "OOOEx");
  // The template's ACL carries the roles the access policy hands out.
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(NSFDbReadACL(app, &acl), NOERROR);
  char role[ACL_PRIVSTRINGMAX];
  ASSERT_EQ(ACLGetPrivName(acl, ACL_BITPRIVCOUNT, role), NOERROR);
  EXPECT_STREQ(role, "[Admin]");
  ASSERT_EQ(ACLGetPrivName(acl, ACL_BITPRIVCOUNT + 1, role), NOERROR);
  EXPECT_STREQ(role, "[SysAdmin]");
  OSMemFree(acl);
  NSFDbClose(app);

  // The checked-in DXL and the resource files agree (design/embed-resources).
  EXPECT_EQ(TarnwickTemplateFromDXL(design_file("OOO.xml").c_str(), "OOO.ntf", "OOO", nullptr), ERR_EXISTS);
}

TEST_F(ShippedDesignTest, MailTemplateComputesTheReplyTextsFromDates) {
  build_template("mail.xml", "mail.ntf", nullptr);
  auto form = design_note(NOTE_CLASS_FORM, "(Out Of Office Profile)");
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "OutofOfficeProfile"), design_id(NOTE_CLASS_FORM, "(Out Of Office Profile)"));
  Items items = {{"dateFirstDayOut", "@Date(2024; 7; 1)"},
                 {"dateFirstDayBack", "@Date(2024; 7; 15)"},
                 {"$Owner", "\"CN=John Doe/O=Org\""}};
  const std::string first = evaluate(items, "@Text(@Date(dateFirstDayOut))");
  const std::string last = evaluate(items, "@Text(@Date(dateFirstDayBack))");
  ASSERT_NE(first.find("2024"), std::string::npos) << first;
  EXPECT_EQ(evaluate(items, field_formula(*form, "DaysOut")),
            "I am out of the office from " + first + " until " + last + ".");
  EXPECT_EQ(evaluate(items, field_formula(*form, "AppendSubjectDate")), "(back on " + last + ")");
  EXPECT_EQ(evaluate(items, field_formula(*form, "GeneralSubject", true)), "John Doe is out of the office");
  // Times in FirstDayOut/FirstDayBack (what the task sets first) pass this design's checks.
  items.emplace_back("FirstDayOut", "@Date(2024; 7; 1)");
  items.emplace_back("FirstDayBack", "@Date(2024; 7; 15)");
  for (const auto& field : dxl::read_form_fields(*form)) {
    if (!field.validate_formula.empty()) {
      EXPECT_EQ(evaluate(items, field.validate_formula).rfind("#error", 0), std::string::npos) << field.name;
    }
  }
  EXPECT_EQ(evaluate({{"$Owner", "\"Ann Lee/Org\""}}, field_formula(*form, "GeneralSubject", true)),
            "Ann Lee is out of the office");
  EXPECT_EQ(evaluate({}, field_formula(*form, "DaysOut")), "I am out of the office.");

  // What the out-of-office flows need besides the profile form.
  EXPECT_NE(design_id(NOTE_CLASS_FORM, "Appointment"), 0u);
  auto calendar = design_note(NOTE_CLASS_FORM, "CalendarProfile");
  EXPECT_EQ(dxl::read_form_fields(*calendar).front().name, "Owner");
  const NOTEID agent_id = design_id(NOTE_CLASS_FILTER, "OutOfOffice");
  ASSERT_NE(agent_id, 0u);
  HAGENT agent = NULLHANDLE;
  ASSERT_EQ(AgentOpen(db_, agent_id, &agent), NOERROR);
  EXPECT_FALSE(AgentIsEnabled(agent));
  AgentClose(agent);

  // A mail database made from the template answers the service interface.
  DBHANDLE mail = NULLHANDLE;
  ASSERT_EQ(NSFDbCreateAndCopy("mail.ntf", "mail/jdoe.nsf", NOTE_CLASS_ALLNONDATA, 0, 0, &mail), NOERROR);
  ASSERT_EQ(OOOInit(), NOERROR);
  OOOCTXHANDLE handle = NULLHANDLE;
  OOOCTXPTR* context = nullptr;
  ASSERT_EQ(OOOStartOperation("CN=John Doe/O=Org", nullptr, TRUE, mail, &handle, &context), NOERROR);
  WORD version = 0, state = 9;
  ASSERT_EQ(OOOGetState(context, &version, &state), NOERROR);
  EXPECT_EQ(version, OOO_CONFIG_AGENT);
  EXPECT_EQ(state, OOO_STATE_DISABLED);
  OOOEndOperation(handle, context);
  OOOTerm();
  NSFDbClose(mail);
}

TEST_F(ShippedDesignTest, LegacyMailTemplateQuotesTextDates) {
  build_template("mail-legacy.xml", "mail7.ntf", nullptr);
  auto form = design_note(NOTE_CLASS_FORM, "(Out Of Office Profile)");
  const Items text_dates = {{"FirstDayOut", "\"07/01/2024\""}, {"FirstDayBack", "\"07/15/2024\""}};
  EXPECT_EQ(evaluate(text_dates, field_formula(*form, "DaysOut")),
            "I am out of the office from 07/01/2024 until 07/15/2024.");
  EXPECT_EQ(evaluate(text_dates, field_formula(*form, "AppendSubjectDate")), "(back on 07/15/2024)");
  // Without hours shown, stored dates give the days.
  const Items stored = {{"FirstDayOut", "\"07/01/2024 09:00 AM\""},
                        {"FirstDayBack", "\"07/15/2024 05:00 PM\""},
                        {"dateFirstDayOut", "@Date(2024; 7; 2)"},
                        {"dateFirstDayBack", "@Date(2024; 7; 16)"}};
  EXPECT_EQ(evaluate(stored, field_formula(*form, "DaysOut")),
            "I am out of the office from 07/02/2024 until 07/16/2024.");
  EXPECT_EQ(evaluate(stored, field_formula(*form, "AppendSubjectDate")), "(back on 07/16/2024)");
  Items shown = stored;
  shown.emplace_back("ShowHours", "\"1\"");
  EXPECT_EQ(evaluate(shown, field_formula(*form, "DaysOut")),
            "I am out of the office from 07/01/2024 09:00 AM until 07/15/2024 05:00 PM.");
  // A time value where this design keeps text fails, which is how the
  // date-typed design is told apart.
  const Items time_dates = {{"FirstDayOut", "@Date(2024; 7; 1)"}, {"FirstDayBack", "@Date(2024; 7; 15)"}};
  EXPECT_EQ(evaluate(time_dates, field_formula(*form, "DaysOut")).rfind("#error", 0), 0u);
  std::string validation;
  for (const auto& field : dxl::read_form_fields(*form)) {
    if (field.name == "FirstDayOut") validation = field.validate_formula;
  }
  EXPECT_NE(evaluate(time_dates, validation), "#number 1");
  EXPECT_EQ(evaluate(text_dates, validation), "#number 1");
}

TEST_F(ShippedDesignTest, DirectoryDesignHasTheLookupViewsAndKeepsPasswordsHashed) {
  build_template("names.xml", "names.ntf", nullptr);
  NOTEID id = 0;
  ASSERT_EQ(NIFFindDesignNoteExt(db_, "$Users", NOTE_CLASS_VIEW, "-G40n^", &id, 0), NOERROR);
  EXPECT_EQ(design_id(NOTE_CLASS_VIEW, "($Users)"), id);
  for (const char* view : {"($Servers)", "($Clusters)", "($Groups)"}) {
    EXPECT_NE(design_id(NOTE_CLASS_VIEW, view), 0u) << view;
  }
  auto users = std::make_unique<store::Note>();
  ASSERT_EQ(store::find_database(db_)->read_note(id, 0, users.get()), NOERROR);
  const auto design = dxl::read_view_design(*users);
  ASSERT_FALSE(design.columns.empty());
  EXPECT_TRUE(design.columns[0].separate_values);

  const Items person = {{"Type", "\"Person\""},
                        {"FullName", "\"CN=Ann Lee/O=Org\" : \"Ann Lee\""},
                        {"ShortName", "\"alee\""},
                        {"InternetAddress", "\"\""}};
  EXPECT_EQ(evaluate(person, "@Implode(" + design.columns[0].formula + "; \",\")"), "CN=Ann Lee/O=Org,Ann Lee,alee");
  EXPECT_EQ(selects(person, design.selection_formula), "yes");
  auto form = design_note(NOTE_CLASS_FORM, "Person");
  std::string check;
  for (const auto& field : dxl::read_form_fields(*form)) {
    if (field.name == "HTTPPassword") check = field.validate_formula;
  }
  ASSERT_FALSE(check.empty());
  EXPECT_EQ(evaluate({{"HTTPPassword", "\"pbkdf2-sha256$100000$00ff$abcd\""}}, check), "#number 1");
  EXPECT_NE(evaluate({{"HTTPPassword", "\"secret\""}}, check), "#number 1");
  for (const char* form : {"Group", "Server", "Cluster"}) EXPECT_NE(design_id(NOTE_CLASS_FORM, form), 0u) << form;
}

}  // namespace
