// Stored structures: the assistant-info record rewritten the way an agent's
// schedule is upgraded, through a value block and ODSWriteMemory.
#include <cstring>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "ods.h"
#include "osmem.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;

static_assert(sizeof(ODS_ASSISTSTRUCT) == 104, "the record the agent items hold");

TEST(Ods, LengthsAndCopiesMovePastTheStructure) {
  EXPECT_EQ(ODSLength(_ODS_ASSISTSTRUCT), 104);
  EXPECT_EQ(ODSLength(_WORD), 2);
  EXPECT_EQ(ODSLength(_TIMEDATE), 8);
  EXPECT_EQ(ODSLength(_UNID), 16);
  EXPECT_EQ(ODSLength(9999), 0);

  TIMEDATE times[2] = {{{1, 2}}, {{3, 4}}};
  char buffer[32] = {};
  void* cursor = buffer;
  ODSWriteMemory(&cursor, _TIMEDATE, times, 2);
  EXPECT_EQ(static_cast<char*>(cursor) - buffer, 16);
  TIMEDATE back[2] = {};
  const void* reader = buffer;
  ODSReadMemory(&reader, _TIMEDATE, back, 2);
  EXPECT_EQ(static_cast<const char*>(reader) - buffer, 16);
  EXPECT_EQ(back[1].Innards[1], 4u);
  cursor = buffer;
  ODSWriteMemory(&cursor, 9999, times, 1);
  EXPECT_EQ(cursor, static_cast<void*>(buffer)) << "an unknown type copies nothing";
}

class AssistInfoTest : public DataDirTest {};

TEST_F(AssistInfoTest, RecordRewrittenThroughAValueBlockSurvivesStorage) {
  ASSERT_EQ(NSFDbCreate("mail.nsf", 0, FALSE), NOERROR);
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("mail.nsf", &db), NOERROR);
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
  ODS_ASSISTSTRUCT original{};
  original.wVersion = 1;
  original.wTriggerType = ASSISTTRIGGER_TYPE_SCHEDULED;
  original.wIntervalType = ASSISTINTERVAL_TYPE_DAYS;
  original.dwTime1 = 360000;
  original.dwFlags = ASSISTODS_FLAG_NOWEEKENDS;
  ASSERT_EQ(NSFItemAppend(note, ITEM_SIGN, "$AssistInfo", 11, TYPE_ASSISTANT_INFO, &original, sizeof original),
            NOERROR);

  // Read the record, raise its version, write a new value by block.
  BLOCKID value{};
  DWORD length = 0;
  WORD type = 0;
  ASSERT_EQ(NSFItemInfo(note, "$AssistInfo", 11, nullptr, &type, &value, &length), NOERROR);
  ASSERT_EQ(type, TYPE_ASSISTANT_INFO);
  ASSERT_GT(length, 1u);
  ODS_ASSISTSTRUCT record;
  std::memcpy(&record, OSLockBlock(char, value) + sizeof(WORD), sizeof record);
  OSUnlockBlock(value);
  ASSERT_LT(record.wVersion, 2);
  record.wVersion = 2;
  const WORD size = ODSLength(_ODS_ASSISTSTRUCT) + sizeof(WORD);
  DHANDLE fresh = NULLHANDLE;
  ASSERT_EQ(OSMemAlloc(0, size, &fresh), NOERROR);
  void* cursor = OSLockObject(fresh);
  const WORD assistant = TYPE_ASSISTANT_INFO;
  ODSWriteMemory(&cursor, _WORD, &assistant, 1);
  ODSWriteMemory(&cursor, _ODS_ASSISTSTRUCT, &record, 1);
  OSUnlockObject(fresh);
  ASSERT_EQ(NSFItemDelete(note, "$AssistInfo", 11), NOERROR);
  ASSERT_EQ(NSFItemAppendByBLOCKID(note, ITEM_SIGN, "$AssistInfo", 11, BLOCKID{fresh, 0}, size, nullptr), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
  NOTEID id = 0;
  NSFNoteGetInfo(note, _NOTE_ID, &id);
  NSFNoteClose(note);

  ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
  ASSERT_EQ(NSFItemInfo(note, "$AssistInfo", 11, nullptr, &type, &value, &length), NOERROR);
  EXPECT_EQ(length, size);
  const void* reader = OSLockBlock(char, value) + sizeof(WORD);
  ODS_ASSISTSTRUCT stored{};
  ODSReadMemory(&reader, _ODS_ASSISTSTRUCT, &stored, 1);
  OSUnlockBlock(value);
  EXPECT_EQ(stored.wVersion, 2);
  EXPECT_EQ(stored.wTriggerType, ASSISTTRIGGER_TYPE_SCHEDULED);
  EXPECT_EQ(stored.dwTime1, 360000u);
  EXPECT_EQ(stored.dwFlags, static_cast<DWORD>(ASSISTODS_FLAG_NOWEEKENDS));
  NSFNoteClose(note);
  NSFDbClose(db);
}

}  // namespace
