// DXL import through the C API: each kind of element lands as the design
// headers describe, the import options decide what is written, and a bad
// document is refused whole with its line in the log.
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "acl.h"
#include "agents.h"
#include "dxl/dxl_test_support.h"
#include "dxl/form_design.h"
#include "dxl/view_design.h"
#include "fileresource.h"
#include "nsfdata.h"
#include "nsfsearch.h"
#include "ods.h"
#include "osmisc.h"
#include "store/database.h"
#include "store/note.h"

namespace {

using namespace tarnwick::rt;
using dxl::testing::ImportSettings;
using dxl::testing::ImportTest;

std::string dxl_database(const std::string& body, const std::string& attributes = "") {
  return "<?xml version='1.0' encoding='utf-8'?>\n<database xmlns='http://www.lotus.com/dxl' version='9.0'" +
         attributes + ">\n" + body + "</database>\n";
}

// A copy of a stored note through the store's C++ access.
std::unique_ptr<store::Note> stored_note(DBHANDLE db, NOTEID id) {
  auto note = std::make_unique<store::Note>();
  EXPECT_EQ(store::find_database(db)->read_note(id, 0, note.get()), NOERROR);
  return note;
}

// Number of live notes of a class.
int count_notes(DBHANDLE db, WORD note_class) {
  int count = 0;
  store::find_database(db)->scan(note_class, store::ScanOptions{}, [&](const store::NoteRecord&, std::string_view) {
    ++count;
    return STATUS{NOERROR};
  });
  return count;
}

class DxlImportTest : public ImportTest {};

TEST_F(DxlImportTest, FormFieldsAreStoredForComputeWithForm) {
  const std::string dxl = dxl_database(R"(<form name='(Out Of Office Profile)' alias='OOOProfile|Profile'>
  <body><richtext><par>Leaving:
    <field name='FirstDayOut' kind='editable' type='datetime'/></par>
    <par><field name='DaysOut' kind='computed' type='text'>
      <code event='value'><formula>"Out from " + @Text(FirstDayOut)</formula></code></field></par>
  </richtext></body>
  <field name='Owner' kind='editable' type='names' allowmultivalues='true'>
    <code event='defaultvalue'><formula>@UserName</formula></code>
    <code event='inputtranslation'><formula>@Trim(Owner)</formula></code>
    <code event='inputvalidation'><formula>@If(Owner = ""; @Failure("owner needed"); @Success)</formula></code>
  </field>
</form>
)");
  ASSERT_EQ(import(dxl), NOERROR) << log_;
  const NOTEID id = design_id(NOTE_CLASS_FORM, "Profile");
  ASSERT_NE(id, 0u);
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "(out of office profile)"), id);
  auto form = stored_note(db_, id);
  const auto fields = dxl::read_form_fields(*form);
  ASSERT_EQ(fields.size(), 3u);
  EXPECT_EQ(fields[0].name, "FirstDayOut");
  EXPECT_EQ(fields[0].type, dxl::FieldType::kDateTime);
  EXPECT_EQ(fields[1].name, "DaysOut");
  EXPECT_EQ(fields[1].kind, dxl::FieldKind::kComputed);
  EXPECT_EQ(fields[1].value_formula, "\"Out from \" + @Text(FirstDayOut)");
  EXPECT_EQ(fields[2].type, dxl::FieldType::kNames);
  EXPECT_TRUE(fields[2].multiple_values);
  EXPECT_EQ(fields[2].default_formula, "@UserName");
  EXPECT_EQ(fields[2].translate_formula, "@Trim(Owner)");
  EXPECT_NE(fields[2].validate_formula.find("@Failure"), std::string::npos);
  EXPECT_EQ(form->text("$TITLE"), "(Out Of Office Profile)|OOOProfile|Profile");
}

TEST_F(DxlImportTest, ViewsAndFoldersKeepSelectionAndColumns) {
  const std::string dxl = dxl_database(R"(<view name='(Setup Doc)' alias='SetupDoc'>
  <code event='selection'><formula>SELECT Form = "Setup"</formula></code>
  <column itemname='Server' sort='ascending'><columnheader title='Server'/></column>
  <column itemname='Url' sortnocase='false'><code event='value'><formula>@LowerCase(serverURL)</formula></code></column>
</view>
<folder name='Saved'/>
)");
  ASSERT_EQ(import(dxl), NOERROR) << log_;
  NOTEID view_id = 0;
  ASSERT_EQ(NIFFindDesignNoteExt(db_, "(Setup Doc)", NOTE_CLASS_VIEW, DFLAGPAT_VIEW, &view_id, 0), NOERROR);
  const auto design = dxl::read_view_design(*stored_note(db_, view_id));
  EXPECT_EQ(design.selection_formula, "SELECT Form = \"Setup\"");
  ASSERT_EQ(design.columns.size(), 2u);
  EXPECT_EQ(design.columns[0].item_name, "Server");
  EXPECT_EQ(design.columns[0].sort, dxl::ColumnSort::kAscending);
  EXPECT_FALSE(design.columns[0].case_sensitive);
  EXPECT_EQ(design.columns[0].title, "Server");
  EXPECT_TRUE(design.columns[1].case_sensitive);
  EXPECT_EQ(design.columns[1].formula, "@LowerCase(serverURL)");
  NOTEID folder_id = 0;
  EXPECT_EQ(NIFFindDesignNoteExt(db_, "Saved", NOTE_CLASS_VIEW, DFLAGPAT_FOLDER, &folder_id, 0), NOERROR);
  EXPECT_EQ(NIFFindDesignNoteExt(db_, "Saved", NOTE_CLASS_VIEW, DFLAGPAT_VIEW, &folder_id, 0), ERR_NOT_FOUND);
}

TEST_F(DxlImportTest, AgentCarriesFlagsScheduleAndAssistRecord) {
  const std::string dxl = dxl_database(R"(<agent name='Out Of Office' alias='OutOfOffice' enabled='false'>
  <trigger type='scheduled'><schedule type='daily' runlocation='specific' runserver='Srv1/Org'>
    <starttime><datetime>T013000,00</datetime></starttime></schedule></trigger>
  <documentset type='modified'/>
  <code event='action'><formula>FIELD Checked := "1"; SELECT Form = "Memo"</formula></code>
</agent>
<agent name='Tidy'><trigger type='actionsmenu'/><code event='action'><formula>SELECT @True</formula></code></agent>
)");
  ASSERT_EQ(import(dxl), NOERROR) << log_;
  const NOTEID id = design_id(NOTE_CLASS_FILTER, "OutOfOffice");
  ASSERT_NE(id, 0u);
  auto agent = stored_note(db_, id);
  EXPECT_EQ(agent->text(ASSIST_FLAGS_ITEM), "");
  EXPECT_EQ(agent->text(FILTER_MACHINE_ITEM), "CN=Srv1/O=Org");
  EXPECT_EQ(agent->text(ASSIST_TRIGGER_ITEM), "1");
  const store::Item* info = agent->find(ASSIST_INFO_ITEM);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->type, TYPE_ASSISTANT_INFO);
  ASSERT_EQ(info->value.size(), ODSLength(_ODS_ASSISTSTRUCT));
  ODS_ASSISTSTRUCT record{};
  const void* cursor = info->value.data();
  ODSReadMemory(&cursor, _ODS_ASSISTSTRUCT, &record, 1);
  EXPECT_EQ(record.wTriggerType, ASSISTTRIGGER_TYPE_SCHEDULED);
  EXPECT_EQ(record.wIntervalType, ASSISTINTERVAL_TYPE_DAYS);
  EXPECT_EQ(record.wSearchType, ASSISTSEARCH_TYPE_MODIFIED);
  EXPECT_EQ(record.dwTime1, (1u * 3600 + 30 * 60) * 100);

  HAGENT handle = NULLHANDLE;
  ASSERT_EQ(AgentOpen(db_, id, &handle), NOERROR);
  EXPECT_FALSE(AgentIsEnabled(handle));
  AgentClose(handle);
  ASSERT_EQ(AgentOpen(db_, design_id(NOTE_CLASS_FILTER, "Tidy"), &handle), NOERROR);
  EXPECT_TRUE(AgentIsEnabled(handle));
  AgentClose(handle);
}

TEST_F(DxlImportTest, FileResourcesComeBackByteForByte) {
  // All 256 byte values, so that no byte is lost or changed on the way.
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes.push_back(static_cast<char>(i));
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string encoded;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const unsigned b0 = static_cast<unsigned char>(bytes[i]);
    const unsigned b1 = i + 1 < bytes.size() ? static_cast<unsigned char>(bytes[i + 1]) : 0;
    const unsigned b2 = i + 2 < bytes.size() ? static_cast<unsigned char>(bytes[i + 2]) : 0;
    encoded += kAlphabet[b0 >> 2];
    encoded += kAlphabet[((b0 & 3) << 4) | (b1 >> 4)];
    encoded += i + 1 < bytes.size() ? kAlphabet[((b1 & 15) << 2) | (b2 >> 6)] : '=';
    encoded += i + 2 < bytes.size() ? kAlphabet[b2 & 63] : '=';
    if (i % 57 == 54) encoded += "\n";
  }
  ASSERT_EQ(import(dxl_database("<fileresource name='all.bin' mimetype='application/octet-stream'><filedata>" +
                                encoded + "</filedata></fileresource>")),
            NOERROR)
      << log_;
  DHANDLE data = NULLHANDLE;
  DWORD length = 0;
  char mime[64];
  ASSERT_EQ(TarnwickFileResourceRead(db_, "ALL.BIN", &data, &length, mime, sizeof(mime)), NOERROR);
  ASSERT_EQ(length, bytes.size());
  EXPECT_EQ(std::string(static_cast<const char*>(OSLockObject(data)), length), bytes);
  EXPECT_STREQ(mime, "application/octet-stream");
  OSMemFree(data);
  EXPECT_EQ(TarnwickFileResourceRead(db_, "missing.bin", &data, &length, nullptr, 0), ERR_NOT_FOUND);
}

TEST_F(DxlImportTest, DocumentsHoldEveryValueType) {
  const std::string dxl = dxl_database(R"(<document form='Person'>
  <noteinfo unid='0123456789ABCDEF00112233445566aa'/>
  <item name='FullName'><textlist><text>CN=Ann Lee/O=Org</text><text>Ann Lee</text></textlist></item>
  <item name='Greeting'><text>Schöne Grüße</text></item>
  <item name='Count'><number>42.5</number></item>
  <item name='Scores'><numberlist><number>1</number><number>-2</number></numberlist></item>
  <item name='Since'><datetime>20240315T101500,25+01</datetime></item>
  <item name='Days'><datetimelist><datetime>20240101</datetime><datetime>20240102</datetime></datetimelist></item>
  <item name='Editors' authors='true' summary='false'><text>[Admin]</text></item>
</document>
)");
  ASSERT_EQ(import(dxl), NOERROR) << log_;
  UNIVERSALNOTEID unid{{{0x89ABCDEF, 0x01234567}}, {{0x445566AA, 0x00112233}}};
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpenByUNID(db_, &unid, 0, &note), NOERROR);
  EXPECT_EQ(text_item(note, "Form"), "Person");
  EXPECT_EQ(NSFItemGetTextListEntries(note, "FullName"), 2);
  char name[64];
  NSFItemGetTextListEntry(note, "FullName", 1, name, sizeof(name) - 1);
  EXPECT_STREQ(name, "Ann Lee");
  NUMBER number = 0;
  ASSERT_TRUE(NSFItemGetNumber(note, "Count", &number));
  EXPECT_EQ(number, 42.5);
  EXPECT_TRUE(NSFItemIsPresent(note, "Scores", 6));
  TIMEDATE since{};
  ASSERT_TRUE(NSFItemGetTime(note, "Since", &since));
  // 10:15:00.25 at +01 is 09:15:00.25 GMT.
  EXPECT_EQ(since.Innards[0], (9u * 3600 + 15 * 60) * 100 + 25);
  BLOCKID item{}, value{};
  WORD type = 0;
  DWORD length = 0;
  ASSERT_EQ(NSFItemInfo(note, "Editors", 7, &item, &type, &value, &length), NOERROR);
  WORD flags = 0;
  NSFItemQuery(note, item, nullptr, 0, nullptr, &flags, nullptr, nullptr, nullptr);
  EXPECT_EQ(flags & (ITEM_NAMES | ITEM_READWRITERS | ITEM_SUMMARY), ITEM_NAMES | ITEM_READWRITERS);
  // Non-ASCII text is stored as LMBCS and converts back to the same UTF-8.
  char lmbcs[64] = {};
  const WORD got = NSFItemGetText(note, "Greeting", lmbcs, sizeof(lmbcs));
  char utf8[64] = {};
  const WORD converted = OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, lmbcs, got, utf8, sizeof(utf8));
  EXPECT_EQ(std::string(utf8, converted), "Schöne Grüße");
  NSFNoteClose(note);
}

TEST_F(DxlImportTest, DocumentOptionsReplaceUpdateOrLeaveMatchingDocuments) {
  auto seed = [](const char* value, const char* extra) {
    return dxl_database(std::string("<document form='Setup'><noteinfo unid='00000000000000010000000000000002'/>"
                                    "<item name='Server'><text>") +
                        value + "</text></item>" + extra + "</document>");
  };
  ASSERT_EQ(import(seed("Srv1", "<item name='Keep'><text>yes</text></item>")), NOERROR) << log_;
  const UNIVERSALNOTEID unid{{{1, 0}}, {{2, 0}}};
  auto server_and_keep = [&] {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpenByUNID(db_, &unid, 0, &note), NOERROR);
    std::string result = text_item(note, "Server") + "/" + text_item(note, "Keep");
    NSFNoteClose(note);
    return result;
  };
  ImportSettings settings;
  settings.documents = DXLIMPORTOPTION_UPDATE_ELSE_IGNORE;
  ASSERT_EQ(import(seed("Srv2", ""), settings), NOERROR) << log_;
  EXPECT_EQ(server_and_keep(), "Srv2/yes");
  settings.documents = DXLIMPORTOPTION_REPLACE_ELSE_IGNORE;
  ASSERT_EQ(import(seed("Srv3", ""), settings), NOERROR) << log_;
  EXPECT_EQ(server_and_keep(), "Srv3/");
  settings.documents = DXLIMPORTOPTION_IGNORE_ELSE_CREATE;
  ASSERT_EQ(import(seed("Srv4", ""), settings), NOERROR) << log_;
  EXPECT_EQ(server_and_keep(), "Srv3/");
  EXPECT_EQ(count_notes(db_, NOTE_CLASS_DOCUMENT), 1);
  settings.documents = DXLIMPORTOPTION_IGNORE;
  ASSERT_EQ(import(dxl_database("<document><item name='A'><text>x</text></item></document>"), settings), NOERROR);
  EXPECT_EQ(count_notes(db_, NOTE_CLASS_DOCUMENT), 1);
}

TEST_F(DxlImportTest, DesignOptionsCreateReplaceOrIgnore) {
  const std::string version1 = dxl_database("<form name='Setup' alias='S'><field name='A'/></form>");
  const std::string version2 = dxl_database("<form name='S'><field name='B'/></form><form name='Other'/>");
  ImportSettings settings;
  settings.design = DXLIMPORTOPTION_IGNORE;
  ASSERT_EQ(import(version1, settings), NOERROR);
  EXPECT_EQ(count_notes(db_, NOTE_CLASS_FORM), 0);

  settings.design = DXLIMPORTOPTION_CREATE;
  ASSERT_EQ(import(version1, settings), NOERROR);
  const NOTEID first = design_id(NOTE_CLASS_FORM, "Setup");
  ASSERT_NE(first, 0u);

  // Replace: the form matching by alias keeps its note ID and gets the new fields.
  settings.design = DXLIMPORTOPTION_REPLACE_ELSE_IGNORE;
  ASSERT_EQ(import(version2, settings), NOERROR) << log_;
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "S"), first);
  EXPECT_EQ(dxl::read_form_fields(*stored_note(db_, first)).front().name, "B");
  EXPECT_EQ(design_id(NOTE_CLASS_FORM, "Other"), 0u);

  settings.design = DXLIMPORTOPTION_REPLACE_ELSE_CREATE;
  ASSERT_EQ(import(version2, settings), NOERROR) << log_;
  EXPECT_NE(design_id(NOTE_CLASS_FORM, "Other"), 0u);
  EXPECT_EQ(count_notes(db_, NOTE_CLASS_FORM), 2);
}

TEST_F(DxlImportTest, AclIsReplacedOrUpdatedAsAsked) {
  const std::string dxl = dxl_database(R"(<acl>
  <role>Admin</role><role>[SysAdmin]</role>
  <aclentry name='-Default-' default='true' level='reader' readpublicdocs='true'/>
  <aclentry name='LocalDomainServers' type='servergroup' level='manager' deletedocs='true'><role>SysAdmin</role></aclentry>
  <aclentry name='Ann Lee/Org' type='person' level='editor'><role>Admin</role></aclentry>
</acl>
)");
  ImportSettings settings;  // ACL ignored by default
  ASSERT_EQ(import(dxl, settings), NOERROR);
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
  std::map<std::string, WORD> levels;
  auto collect = [](void* param, char* name, WORD level, ACL_PRIVILEGES*, WORD) {
    (*static_cast<std::map<std::string, WORD>*>(param))[name] = level;
  };
  ACLEnumEntries(acl, collect, &levels);
  OSMemFree(acl);
  EXPECT_EQ(levels.count("CN=Ann Lee/O=Org"), 0u);

  settings.acl = DXLIMPORTOPTION_REPLACE_ELSE_IGNORE;
  ASSERT_EQ(import(dxl, settings), NOERROR) << log_;
  ASSERT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
  levels.clear();
  ACLEnumEntries(acl, collect, &levels);
  EXPECT_EQ(levels.size(), 3u);
  EXPECT_EQ(levels["-Default-"], ACL_LEVEL_READER);
  EXPECT_EQ(levels["CN=Ann Lee/O=Org"], ACL_LEVEL_EDITOR);
  char role[ACL_PRIVSTRINGMAX];
  ASSERT_EQ(ACLGetPrivName(acl, ACL_BITPRIVCOUNT + 1, role), NOERROR);
  EXPECT_STREQ(role, "[SysAdmin]");
  std::map<std::string, bool> sysadmin;
  ACLEnumEntries(
      acl,
      [](void* param, char* name, WORD, ACL_PRIVILEGES* privileges, WORD) {
        (*static_cast<std::map<std::string, bool>*>(param))[name] = ACLIsPrivSet(*privileges, ACL_BITPRIVCOUNT + 1);
      },
      &sysadmin);
  EXPECT_TRUE(sysadmin["LocalDomainServers"]);
  EXPECT_FALSE(sysadmin["CN=Ann Lee/O=Org"]);
  OSMemFree(acl);

  // Update: a matching entry changes, a new one is added, the rest stays.
  settings.acl = DXLIMPORTOPTION_UPDATE_ELSE_CREATE;
  ASSERT_EQ(import(dxl_database("<acl><aclentry name='Ann Lee/Org' level='reader'/>"
                                "<aclentry name='Bob/Org' level='author'/></acl>"),
                   settings),
            NOERROR)
      << log_;
  ASSERT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
  levels.clear();
  ACLEnumEntries(acl, collect, &levels);
  EXPECT_EQ(levels["CN=Ann Lee/O=Org"], ACL_LEVEL_READER);
  EXPECT_EQ(levels["CN=Bob/O=Org"], ACL_LEVEL_AUTHOR);
  EXPECT_EQ(levels["LocalDomainServers"], ACL_LEVEL_MANAGER);
  OSMemFree(acl);
}

TEST_F(DxlImportTest, DatabasePropertiesAndTemplateNameReachTheIconNote) {
  NSFDbClose(db_);
  db_ = NULLHANDLE;
  ASSERT_EQ(NSFDbCreate("apps/OOOEx.ntf", 0, FALSE), NOERROR);
  ASSERT_EQ(NSFDbOpen("apps/OOOEx.ntf", &db_), NOERROR);
  ASSERT_EQ(import(dxl_database("<form name='Setup'/>", " title='Out of Office' templatename='OOOEx'")), NOERROR)
      << log_;
  char info[NSF_INFO_SIZE];
  ASSERT_EQ(NSFDbInfoGet(db_, info), NOERROR);
  char part[NSF_INFO_SIZE];
  NSFDbInfoParse(info, INFOPARSE_TITLE, part, sizeof(part) - 1);
  EXPECT_STREQ(part, "Out of Office");
  NSFDbInfoParse(info, INFOPARSE_CLASS, part, sizeof(part) - 1);
  EXPECT_STREQ(part, "OOOEx");
  NOTEHANDLE icon = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpen(db_, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon), NOERROR);
  EXPECT_EQ(text_item(icon, "$TemplateFileName"), "OOOEx.ntf");
  EXPECT_EQ(text_item(icon, "$TITLE"), info);
  NSFNoteClose(icon);
}

TEST_F(DxlImportTest, BadDocumentsAreRefusedWholeWithTheirLine) {
  struct Case {
    const char* what;
    std::string dxl;
    int line;
  };
  const std::vector<Case> cases = {
      {"not well-formed", "<database>\n<form name='A'>\n</database>\n", 3},
      {"wrong root", "<note/>", 1},
      {"form without name", dxl_database("<form name='Good'/>\n<form/>\n"), 4},
      {"unknown element", dxl_database("<form name='Good'/>\n<page name='P'/>\n"), 4},
      {"formula that does not compile",
       dxl_database("<form name='Good'/>\n<form name='F'><field name='X' kind='computed'><code event='value'>\n"
                    "<formula>@If(1;2</formula></code></field></form>\n"),
       5},
      {"computed field without formula", dxl_database("\n<form name='F'><field name='X' kind='computed'/></form>\n"), 4},
      {"bad number", dxl_database("<document><item name='N'>\n<number>12abc</number></item></document>\n"), 4},
      {"bad date", dxl_database("<document><item name='D'><datetime>20241332</datetime></item></document>\n"), 3},
      {"bad base64", dxl_database("<fileresource name='x'><filedata>@@@@</filedata></fileresource>\n"), 3},
      {"unknown acl level", dxl_database("<acl><aclentry name='A' level='boss'/></acl>\n"), 3},
      {"undefined role", dxl_database("<acl><aclentry name='A' level='reader'><role>Nope</role></aclentry></acl>\n"), 3},
      {"external entity",
       "<?xml version='1.0'?>\n<!DOCTYPE database [<!ENTITY x SYSTEM 'file:///etc/passwd'>]>\n"
       "<database>&x;</database>\n",
       3},
  };
  ImportSettings settings;
  settings.acl = DXLIMPORTOPTION_REPLACE_ELSE_IGNORE;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    EXPECT_EQ(import(c.dxl, settings), ERR_DXL_IMPORTER_FAILED);
    EXPECT_NE(log_.find("<fatalerror line='" + std::to_string(c.line) + "'>"), std::string::npos) << log_;
    EXPECT_EQ(count_notes(db_, NOTE_CLASS_ALL), 0) << "nothing of a refused document is stored";
  }
}

TEST_F(DxlImportTest, UnknownElementsCanBeLoggedInsteadOfRefused) {
  ImportSettings settings;
  settings.unknown_token = DXLLOGOPTION_WARNING;
  ASSERT_EQ(import(dxl_database("<page name='P'/>\n<form name='F'/>\n"), settings), NOERROR);
  EXPECT_NE(log_.find("<warning line='3'>Unknown database element child element: page</warning>"),
            std::string::npos)
      << log_;
  EXPECT_NE(design_id(NOTE_CLASS_FORM, "F"), 0u);
}

TEST_F(DxlImportTest, PropertiesAreCheckedAndReadBack) {
  DXLIMPORTHANDLE importer = NULLHANDLE;
  ASSERT_EQ(DXLCreateImporter(&importer), NOERROR);
  WORD value = 0;
  ASSERT_EQ(DXLGetImporterProperty(importer, iACLImportOption, &value), NOERROR);
  EXPECT_EQ(value, DXLIMPORTOPTION_IGNORE);
  ASSERT_EQ(DXLGetImporterProperty(importer, iDocumentsImportOption, &value), NOERROR);
  EXPECT_EQ(value, DXLIMPORTOPTION_CREATE);
  value = 5;
  ASSERT_EQ(DXLSetImporterProperty(importer, static_cast<DXL_IMPORT_PROPERTY>(1), &value), NOERROR);
  ASSERT_EQ(DXLGetImporterProperty(importer, iACLImportOption, &value), NOERROR);
  EXPECT_EQ(value, DXLIMPORTOPTION_REPLACE_ELSE_IGNORE);
  value = 4;  // reserved
  EXPECT_EQ(DXLSetImporterProperty(importer, iDesignImportOption, &value), ERR_DXL_INVALID_PROPERTY_VALUE);
  MEMHANDLE log = NULLHANDLE;
  EXPECT_EQ(DXLSetImporterProperty(importer, iResultLog, &log), ERR_XML_PROPERTY_IS_READONLY);
  EXPECT_EQ(DXLSetImporterProperty(importer, static_cast<DXL_IMPORT_PROPERTY>(13), &value), ERR_DXL_INVALID_PROPERTY);
  EXPECT_EQ(DXLImport(importer, nullptr, db_, nullptr), ERR_DXL_INVALID_PARAMETER);
  EXPECT_EQ(DXLDeleteImporter(importer), NOERROR);
  EXPECT_EQ(DXLSetImporterProperty(importer, iACLImportOption, &value), ERR_DXL_INVALID_PARAMETER);
  EXPECT_EQ(DXLDeleteImporter(NULLHANDLE), NOERROR);
}

}  // namespace
