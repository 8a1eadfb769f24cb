// Agent handles, the canonical agent record, and the out-of-office service
// answering from a mail database's agent, profile and icon note.
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "agents.h"
#include "dxl/dxl_test_support.h"
#include "nsfdata.h"
#include "nsfprofile.h"
#include "ods.h"
#include "oooapi.h"

namespace {

using tarnwick::rt::dxl::testing::ImportTest;

const char* const kMailDesign = R"(<database xmlns='http://www.lotus.com/dxl'>
<agent name='Out Of Office' alias='OutOfOffice' enabled='false'>
  <trigger type='scheduled'><schedule type='daily'/></trigger>
  <code event='action'><formula>SELECT @True</formula></code>
</agent>
</database>)";

class OooServiceTest : public ImportTest {
 protected:
  const char* database_path() const override { return "mail/jdoe.nsf"; }
  void SetUp() override {
    ImportTest::SetUp();
    ASSERT_EQ(import(kMailDesign), NOERROR) << log_;
    ASSERT_EQ(OOOInit(), NOERROR);
  }
  void TearDown() override {
    OOOTerm();
    ImportTest::TearDown();
  }

  // Version and state as a new operation sees them ("1/0").
  std::string state_of(DBHANDLE mail, const char* owner = "CN=John Doe/O=Org") {
    OOOCTXHANDLE handle = NULLHANDLE;
    OOOCTXPTR* context = nullptr;
    const STATUS status = OOOStartOperation(owner, "CN=Srv1/O=Org", TRUE, mail, &handle, &context);
    if (status != NOERROR) return "error " + std::to_string(status);
    WORD version = 0, state = 9;
    EXPECT_EQ(OOOGetState(context, &version, &state), NOERROR);
    EXPECT_EQ(OOOEndOperation(handle, context), NOERROR);
    return std::to_string(version) + "/" + std::to_string(state);
  }

  void set_agent_flags(const char* flags) {
    NOTEID id = design_id(NOTE_CLASS_FILTER, "OutOfOffice");
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db_, id, 0, &note), NOERROR);
    NSFItemSetText(note, ASSIST_FLAGS_ITEM, flags, MAXWORD);
    ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
    NSFNoteClose(note);
  }

  void set_profile(const char* item, const char* value) {
    ASSERT_EQ(NSFProfileSetField(db_, "OutOfOfficeProfile", 18, nullptr, 0, item, static_cast<WORD>(strlen(item)),
                                 TYPE_TEXT, value, static_cast<DWORD>(strlen(value))),
              NOERROR);
  }

  void set_icon_flags(const char* flags) {
    NOTEHANDLE icon = NULLHANDLE;
    if (NSFNoteOpen(db_, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon) != NOERROR) {
      ASSERT_EQ(NSFNoteCreate(db_, &icon), NOERROR);
      WORD note_class = NOTE_CLASS_ICON;
      NSFNoteSetInfo(icon, _NOTE_CLASS, &note_class);
    }
    NSFItemSetText(icon, "$Flags", flags, MAXWORD);
    ASSERT_EQ(NSFNoteUpdate(icon, 0), NOERROR);
    NSFNoteClose(icon);
  }
};

TEST_F(OooServiceTest, AgentModeFollowsTheAgentsEnabledFlag) {
  EXPECT_EQ(state_of(db_), "1/0");
  // An operation keeps what it read at its start.
  OOOCTXHANDLE handle = NULLHANDLE;
  OOOCTXPTR* context = nullptr;
  ASSERT_EQ(OOOStartOperation("CN=John Doe/O=Org", nullptr, FALSE, db_, &handle, &context), NOERROR);
  set_agent_flags("SE");
  WORD version = 0, state = 9;
  ASSERT_EQ(OOOGetState(context, &version, nullptr), NOERROR);
  ASSERT_EQ(OOOGetState(context, &version, &state), NOERROR);
  EXPECT_EQ(state, OOO_STATE_DISABLED);
  ASSERT_EQ(OOOEndOperation(handle, context), NOERROR);
  EXPECT_EQ(state_of(db_), "1/1");
  set_agent_flags("S");
  EXPECT_EQ(state_of(db_), "1/0");
}

TEST_F(OooServiceTest, ServiceModeFromIconFlagOrTaskType) {
  set_profile("TaskState", "1");
  EXPECT_EQ(state_of(db_), "1/0") << "agent mode still asks the agent";
  set_icon_flags("bO");
  EXPECT_EQ(state_of(db_), "2/1");
  set_profile("TaskState", "0");
  EXPECT_EQ(state_of(db_), "2/0");
  set_icon_flags("b");
  set_profile("TaskType", "2");
  set_profile("TaskState", "1");
  EXPECT_EQ(state_of(db_), "2/1");
}

TEST_F(OooServiceTest, FindsTheMailFileThroughTheDirectory) {
  DBHANDLE names = NULLHANDLE;
  open_fresh("names.nsf");
  names = db_;
  ASSERT_EQ(import(R"(<database xmlns='http://www.lotus.com/dxl'>
<document form='Person'><item name='FullName'><textlist><text>CN=John Doe/O=Org</text><text>John Doe</text></textlist></item>
  <item name='MailServer'><text>CN=Srv1/O=Org</text></item><item name='MailFile'><text>mail\jdoe</text></item></document>
<document form='Person'><item name='FullName'><text>CN=No Mail/O=Org</text></item></document>
</database>)"),
            NOERROR)
      << log_;
  NSFDbClose(names);
  ASSERT_EQ(NSFDbOpen("mail/jdoe.nsf", &db_), NOERROR);
  set_agent_flags("E");
  EXPECT_EQ(state_of(NULLHANDLE), "1/1");
  EXPECT_EQ(state_of(NULLHANDLE, "cn=john doe/o=org"), "1/1");
  EXPECT_EQ(state_of(NULLHANDLE, "CN=Nobody/O=Org"), "error " + std::to_string(ERR_OOO_NAMELOOKUP));
  EXPECT_EQ(state_of(NULLHANDLE, "CN=No Mail/O=Org"), "error " + std::to_string(ERR_OOO_NAMELOOKUPATTR));
}

TEST_F(OooServiceTest, MisuseIsReportedNotFollowed) {
  OOOCTXHANDLE handle = NULLHANDLE;
  OOOCTXPTR* context = nullptr;
  EXPECT_EQ(OOOStartOperation(nullptr, nullptr, FALSE, db_, &handle, &context), ERR_OOO_MISSING_PARAM);
  EXPECT_EQ(OOOStartOperation("CN=A/O=Org", nullptr, FALSE, 123456, &handle, &context), ERR_OOO_MISSING_MAILFILE);
  ASSERT_EQ(OOOStartOperation("CN=A/O=Org", nullptr, FALSE, db_, &handle, &context), NOERROR);
  WORD version = 0;
  OOOCTXPTR stranger = nullptr;
  EXPECT_EQ(OOOGetState(&stranger, &version, nullptr), ERR_OOO_MISSING_PARAM);
  EXPECT_EQ(OOOGetState(context, nullptr, nullptr), ERR_OOO_MISSING_PARAM);
  EXPECT_EQ(OOOEndOperation(handle, &stranger), ERR_OOO_MISSING_PARAM);
  ASSERT_EQ(OOOEndOperation(handle, context), NOERROR);
  EXPECT_EQ(OOOEndOperation(handle, context), ERR_OOO_MISSING_PARAM);
  OOOTerm();
  EXPECT_EQ(OOOStartOperation("CN=A/O=Org", nullptr, FALSE, db_, &handle, &context), ERR_OOO_MISSING_INIT);
  OOOInit();
}

TEST_F(OooServiceTest, AgentHandlesRefuseOtherNotes) {
  HAGENT agent = NULLHANDLE;
  EXPECT_EQ(AgentOpen(db_, 0x7FFFFFF0, &agent), ERR_INVALID_NOTE);
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db_, &note), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
  NOTEID id = 0;
  NSFNoteGetInfo(note, _NOTE_ID, &id);
  NSFNoteClose(note);
  EXPECT_EQ(AgentOpen(db_, id, &agent), ERR_BAD_PARAM);
  EXPECT_FALSE(AgentIsEnabled(NULLHANDLE));
  AgentClose(NULLHANDLE);
}

}  // namespace
