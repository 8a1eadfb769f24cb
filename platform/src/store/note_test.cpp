// Notes and items through the C API: storage round trips, item semantics,
// sequences and conflicts, bad input.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;
using tarnwick::rt::store::testing::OneDatabaseTest;

class NoteTest : public OneDatabaseTest {
 protected:
  NoteTest() : OneDatabaseTest("notes.nsf") {}

  NOTEHANDLE create() {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    return note;
  }
  // Stores and closes the note; returns its ID.
  NOTEID save(NOTEHANDLE note) {
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    return id;
  }
  NOTEHANDLE open(NOTEID id, WORD flags = 0) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteOpen(db_, id, flags, &note), NOERROR);
    return note;
  }
  static std::string text(NOTEHANDLE note, const char* name) {
    char buffer[256];
    WORD length = NSFItemGetText(note, name, buffer, sizeof buffer);
    return std::string(buffer, length);
  }
  static std::vector<std::string> item_names(NOTEHANDLE note) {
    std::vector<std::string> names;
    BLOCKID item{};
    for (STATUS s = NSFItemInfo(note, nullptr, 0, &item, nullptr, nullptr, nullptr); s == NOERROR;
         s = NSFItemInfoNext(note, item, nullptr, 0, &item, nullptr, nullptr, nullptr)) {
      char name[MAXITEMNAME + 1];
      WORD length = 0;
      NSFItemQuery(note, item, name, sizeof name, &length, nullptr, nullptr, nullptr, nullptr);
      names.emplace_back(name, length);
    }
    return names;
  }

};

TEST_F(NoteTest, ItemsSurviveStorageInOrderWithDuplicatesAndFlags) {
  NOTEHANDLE note = create();
  ASSERT_EQ(NSFItemSetText(note, "Subject", "Hello", MAXWORD), NOERROR);
  const NUMBER pi = 3.25;
  ASSERT_EQ(NSFItemSetNumber(note, "Count", &pi), NOERROR);
  const char blob[] = {'\x01', '\x00', '\xFF', '\x7F', '\x00', '\x10'};
  ASSERT_EQ(NSFItemAppend(note, ITEM_SIGN, "$Body", 5, TYPE_COMPOSITE, blob, sizeof blob), NOERROR);
  ASSERT_EQ(NSFItemAppend(note, ITEM_SUMMARY | ITEM_NAMES | ITEM_READWRITERS, "Owner", 5, TYPE_TEXT, "A", 1),
            NOERROR);
  ASSERT_EQ(NSFItemAppend(note, ITEM_SUMMARY, "owner", 5, TYPE_TEXT, "B", 1), NOERROR);
  const NOTEID id = save(note);
  ASSERT_NE(id, 0u);

  note = open(id);
  EXPECT_EQ(item_names(note), (std::vector<std::string>{"Subject", "Count", "$Body", "Owner", "owner"}));
  EXPECT_EQ(text(note, "SUBJECT"), "Hello") << "names match without case";
  EXPECT_EQ(text(note, "OWNER"), "A") << "the first of two items of one name";
  NUMBER number = 0;
  EXPECT_TRUE(NSFItemGetNumber(note, "count", &number));
  EXPECT_EQ(number, 3.25);

  BLOCKID item{};
  BLOCKID value{};
  WORD type = 0;
  DWORD length = 0;
  ASSERT_EQ(NSFItemInfo(note, "$body", 5, &item, &type, &value, &length), NOERROR);
  EXPECT_EQ(type, TYPE_COMPOSITE);
  ASSERT_EQ(length, sizeof(WORD) + sizeof blob) << "value length counts the type word";
  const char* bytes = OSLockBlock(char, value);
  WORD stored_type = 0;
  std::memcpy(&stored_type, bytes, sizeof(WORD));
  EXPECT_EQ(stored_type, TYPE_COMPOSITE);
  EXPECT_EQ(std::memcmp(bytes + sizeof(WORD), blob, sizeof blob), 0) << "uninterpreted values are kept byte for byte";
  OSUnlockBlock(value);
  WORD flags = 0;
  NSFItemQuery(note, item, nullptr, 0, nullptr, &flags, nullptr, nullptr, nullptr);
  EXPECT_EQ(flags, ITEM_SIGN);
  ASSERT_EQ(NSFItemInfo(note, "Owner", 5, &item, nullptr, nullptr, nullptr), NOERROR);
  NSFItemQuery(note, item, nullptr, 0, nullptr, &flags, nullptr, nullptr, nullptr);
  EXPECT_EQ(flags, ITEM_SUMMARY | ITEM_NAMES | ITEM_READWRITERS);
  NSFNoteClose(note);
}

TEST_F(NoteTest, TextReadsTruncateTerminateAndJoinListsWithNul) {
  NOTEHANDLE note = create();
  ASSERT_EQ(NSFItemSetText(note, "Long", "abcdefghij", 10), NOERROR);
  ASSERT_EQ(NSFItemSetText(note, "Empty", "", 0), NOERROR);
  ASSERT_EQ(NSFItemCreateTextList(note, "List", "one", 3), NOERROR);
  ASSERT_EQ(NSFItemAppendTextList(note, "List", "two", MAXWORD, FALSE), NOERROR);
  ASSERT_EQ(NSFItemAppendTextList(note, "List", "one", 3, FALSE), NOERROR);  // already there
  ASSERT_EQ(NSFItemAppendTextList(note, "List", "one", 3, TRUE), NOERROR);

  char buffer[8];
  std::memset(buffer, 'X', sizeof buffer);
  EXPECT_EQ(NSFItemGetText(note, "Long", buffer, 5), 4);
  EXPECT_STREQ(buffer, "abcd");
  EXPECT_EQ(buffer[5], 'X') << "nothing written past the buffer";
  EXPECT_EQ(NSFItemGetText(note, "Empty", buffer, sizeof buffer), 0);
  EXPECT_EQ(NSFItemGetText(note, "Missing", buffer, sizeof buffer), 0);
  EXPECT_TRUE(NSFItemIsPresent(note, "Empty", 5));
  EXPECT_FALSE(NSFItemIsPresent(note, "Missing", 7));

  char joined[32];
  WORD length = NSFItemGetText(note, "List", joined, sizeof joined);
  EXPECT_EQ(std::string(joined, length), std::string("one\0two\0one", 11));

  EXPECT_EQ(NSFItemGetTextListEntries(note, "List"), 3);
  EXPECT_EQ(NSFItemGetTextListEntries(note, "Long"), 1);
  char entry[8];
  EXPECT_EQ(NSFItemGetTextListEntry(note, "List", 1, entry, sizeof entry - 1), 3);
  EXPECT_STREQ(entry, "two");
  EXPECT_EQ(NSFItemGetTextListEntry(note, "Long", 0, entry, 3), 3);
  EXPECT_STREQ(entry, "abc");
  EXPECT_EQ(NSFItemGetTextListEntry(note, "List", 3, entry, sizeof entry - 1), 0);

  // A TEXT item becomes a list when an entry is appended.
  ASSERT_EQ(NSFItemAppendTextList(note, "Long", "k", 1, TRUE), NOERROR);
  WORD type = 0;
  NSFItemInfo(note, "Long", 4, nullptr, &type, nullptr, nullptr);
  EXPECT_EQ(type, TYPE_TEXT_LIST);
  EXPECT_EQ(NSFItemGetTextListEntries(note, "Long"), 2);
  NSFNoteClose(note);
}

TEST_F(NoteTest, SetTextReplacesEveryItemOfTheName) {
  NOTEHANDLE note = create();
  NSFItemAppend(note, ITEM_SUMMARY, "Dup", 3, TYPE_TEXT, "1", 1);
  NSFItemAppend(note, 0, "Other", 5, TYPE_TEXT, "x", 1);
  NSFItemAppend(note, ITEM_SUMMARY, "DUP", 3, TYPE_TEXT, "2", 1);
  ASSERT_EQ(NSFItemSetTextSummary(note, "dup", "3", 1, FALSE), NOERROR);
  EXPECT_EQ(item_names(note), (std::vector<std::string>{"Dup", "Other"}));
  EXPECT_EQ(text(note, "Dup"), "3");
  BLOCKID item{};
  WORD flags = 0xFFFF;
  NSFItemInfo(note, "Dup", 3, &item, nullptr, nullptr, nullptr);
  NSFItemQuery(note, item, nullptr, 0, nullptr, &flags, nullptr, nullptr, nullptr);
  EXPECT_EQ(flags, 0) << "not a summary item when asked so";

  NSFItemAppend(note, ITEM_SUMMARY, "dup", 3, TYPE_TEXT, "4", 1);
  EXPECT_EQ(NSFItemDelete(note, "DUP", 3), NOERROR);
  EXPECT_FALSE(NSFItemIsPresent(note, "Dup", 3)) << "delete removes every item of the name";
  EXPECT_EQ(NSFItemDelete(note, "DUP", 3), ERR_ITEM_NOT_FOUND);
  NSFNoteClose(note);
}

TEST_F(NoteTest, WalkDeletingByBlockIdVisitsEveryItem) {
  NOTEHANDLE note = create();
  for (const char* name : {"Notified_a", "Keep1", "notified_b", "NOTIFIED_c", "Keep2", "Notified_d"}) {
    NSFItemSetText(note, name, "x", 1);
  }
  // The pattern of removing items while walking them: find the next, then delete the previous.
  BLOCKID item{};
  STATUS status = NSFItemInfo(note, nullptr, 0, &item, nullptr, nullptr, nullptr);
  int deleted = 0;
  while (status == NOERROR) {
    char name[64];
    WORD length = 0;
    NSFItemQuery(note, item, name, sizeof name, &length, nullptr, nullptr, nullptr, nullptr);
    const BLOCKID current = item;
    status = NSFItemInfoNext(note, current, nullptr, 0, &item, nullptr, nullptr, nullptr);
    if (length >= 9 && strncasecmp(name, "Notified_", 9) == 0) {
      ASSERT_EQ(NSFItemDeleteByBLOCKID(note, current), NOERROR);
      ++deleted;
    }
  }
  EXPECT_EQ(status, ERR_ITEM_NOT_FOUND);
  EXPECT_EQ(deleted, 4);
  EXPECT_EQ(item_names(note), (std::vector<std::string>{"Keep1", "Keep2"}));

  // Deleting first and then asking for the next works too.
  ASSERT_EQ(NSFItemInfo(note, nullptr, 0, &item, nullptr, nullptr, nullptr), NOERROR);
  ASSERT_EQ(NSFItemDeleteByBLOCKID(note, item), NOERROR);
  EXPECT_EQ(NSFItemDeleteByBLOCKID(note, item), ERR_ITEM_NOT_FOUND);
  ASSERT_EQ(NSFItemInfoNext(note, item, nullptr, 0, &item, nullptr, nullptr, nullptr), NOERROR);
  EXPECT_EQ(item_names(note), (std::vector<std::string>{"Keep2"}));
  NSFNoteClose(note);
}

TEST_F(NoteTest, ValueBlocksCanBeRewrittenAndAppended) {
  NOTEHANDLE note = create();
  const WORD record[52] = {1, 4};  // a 104-byte record
  ASSERT_EQ(NSFItemAppend(note, ITEM_SIGN, "$AssistInfo", 11, TYPE_ASSISTANT_INFO, record, sizeof record), NOERROR);

  // Copy the record out of its value block, change it, and put it back by block.
  BLOCKID value{};
  DWORD length = 0;
  WORD type = 0;
  ASSERT_EQ(NSFItemInfo(note, "$AssistInfo", 11, nullptr, &type, &value, &length), NOERROR);
  ASSERT_EQ(length, 2u + sizeof record);
  WORD copy[52];
  std::memcpy(copy, OSLockBlock(char, value) + sizeof(WORD), sizeof copy);
  OSUnlockBlock(value);
  copy[0] = 2;
  DHANDLE fresh = NULLHANDLE;
  ASSERT_EQ(OSMemAlloc(0, sizeof(WORD) + sizeof copy, &fresh), NOERROR);
  char* bytes = static_cast<char*>(OSLockObject(fresh));
  const WORD assistant = TYPE_ASSISTANT_INFO;
  std::memcpy(bytes, &assistant, sizeof(WORD));
  std::memcpy(bytes + sizeof(WORD), copy, sizeof copy);
  OSUnlockObject(fresh);
  ASSERT_EQ(NSFItemDelete(note, "$AssistInfo", 11), NOERROR);
  BLOCKID appended{};
  ASSERT_EQ(NSFItemAppendByBLOCKID(note, ITEM_SIGN, "$AssistInfo", 11, BLOCKID{fresh, 0},
                                   sizeof(WORD) + sizeof copy, &appended),
            NOERROR);
  const NOTEID id = save(note);  // closing the note frees the block it took over
  DWORD size = 0;
  EXPECT_EQ(OSMemGetSize(fresh, &size), ERR_BAD_PARAM);

  note = open(id);
  ASSERT_EQ(NSFItemInfo(note, "$AssistInfo", 11, nullptr, &type, &value, &length), NOERROR);
  EXPECT_EQ(type, TYPE_ASSISTANT_INFO);
  WORD version = 0;
  std::memcpy(&version, OSLockBlock(char, value) + sizeof(WORD), sizeof version);
  EXPECT_EQ(version, 2);

  // A write through a value block changes the item.
  ASSERT_EQ(NSFItemSetText(note, "Flag", "a", 1), NOERROR);
  ASSERT_EQ(NSFItemInfo(note, "Flag", 4, nullptr, nullptr, &value, nullptr), NOERROR);
  OSLockBlock(char, value)[2] = 'b';
  EXPECT_EQ(text(note, "Flag"), "b");
  NSFNoteClose(note);
}

TEST_F(NoteTest, UpdateBumpsSequenceAndRefusesAConflictingUpdate) {
  NOTEHANDLE note = create();
  NSFItemSetText(note, "Body", "v1", 2);
  const NOTEID id = save(note);

  NOTEHANDLE first = open(id);
  NOTEHANDLE second = open(id);
  ORIGINATORID before{};
  NSFNoteGetInfo(first, _NOTE_OID, &before);
  EXPECT_EQ(before.Sequence, 1u);

  NSFItemSetText(first, "Body", "first", MAXWORD);
  ASSERT_EQ(NSFNoteUpdate(first, 0), NOERROR);
  ORIGINATORID after{};
  NSFNoteGetInfo(first, _NOTE_OID, &after);
  EXPECT_EQ(after.Sequence, 2u);
  EXPECT_TRUE(std::memcmp(&after.SequenceTime, &before.SequenceTime, sizeof(TIMEDATE)) != 0);
  EXPECT_EQ(std::memcmp(&after.File, &before.File, sizeof(DBID)), 0) << "the UNID stays";
  TIMEDATE modified{};
  NSFNoteGetInfo(first, _NOTE_MODIFIED, &modified);
  EXPECT_EQ(std::memcmp(&modified, &after.SequenceTime, sizeof(TIMEDATE)), 0);

  NSFItemSetText(second, "Body", "second", MAXWORD);
  EXPECT_EQ(NSFNoteUpdate(second, 0), ERR_CONFLICT) << "the stored note moved since it was opened";
  ASSERT_EQ(NSFNoteUpdate(first, 0), NOERROR) << "the writer's own copy stays current";
  ASSERT_EQ(NSFNoteUpdate(second, UPDATE_FORCE), NOERROR);
  NSFNoteClose(first);
  NSFNoteClose(second);

  note = open(id);
  EXPECT_EQ(text(note, "Body"), "second");
  NSFNoteGetInfo(note, _NOTE_OID, &after);
  EXPECT_EQ(after.Sequence, 4u);
  NSFNoteClose(note);
}

TEST_F(NoteTest, OpenByUnidDeleteAndSpecialNotes) {
  NOTEHANDLE note = create();
  ORIGINATORID oid{};
  NSFNoteGetInfo(note, _NOTE_OID, &oid);
  const NOTEID id = save(note);
  UNIVERSALNOTEID unid{oid.File, oid.Note};
  ASSERT_EQ(NSFNoteOpenByUNID(db_, &unid, 0, &note), NOERROR);
  NOTEID opened = 0;
  NSFNoteGetInfo(note, _NOTE_ID, &opened);
  EXPECT_EQ(opened, id);
  NSFNoteClose(note);
  UNIVERSALNOTEID unknown = unid;
  unknown.Note.Innards[0] ^= 1;
  EXPECT_EQ(NSFNoteOpenByUNID(db_, &unknown, 0, &note), ERR_NOT_FOUND);

  ASSERT_EQ(NSFNoteDelete(db_, id, 0), NOERROR);
  EXPECT_EQ(NSFNoteOpen(db_, id, 0, &note), ERR_NOTE_DELETED);
  EXPECT_EQ(NSFNoteDelete(db_, id, 0), ERR_NOTE_DELETED);
  EXPECT_EQ(NSFNoteOpen(db_, 0x7FFF0, 0, &note), ERR_INVALID_NOTE);
  EXPECT_EQ(note, NULLHANDLE);

  EXPECT_EQ(NSFNoteOpen(db_, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &note), ERR_SPECIAL_ID);
  for (int i = 0; i < 2; ++i) {
    note = create();
    const WORD icon = NOTE_CLASS_ICON;
    NSFNoteSetInfo(note, _NOTE_CLASS, &icon);
    NSFItemSetText(note, "$Flags", i == 0 ? "old" : "new", 3);
    save(note);
  }
  ASSERT_EQ(NSFNoteOpen(db_, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &note), NOERROR);
  EXPECT_EQ(text(note, "$Flags"), "new") << "a database has one icon note; the newer replaces the older";
  NSFNoteClose(note);
}

TEST_F(NoteTest, ACopyIsANewNoteElsewhereButNotBesideItsOriginal) {
  NOTEHANDLE note = create();
  NSFItemSetText(note, "Subject", "original", MAXWORD);
  const NOTEID id = save(note);

  ASSERT_EQ(NSFDbCreate("other.nsf", 0, FALSE), NOERROR);
  DBHANDLE other = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("other.nsf", &other), NOERROR);
  note = open(id);
  NSFNoteSetInfo(note, _NOTE_DB, &other);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR) << "the same UNID in another database";
  ORIGINATORID oid{};
  NSFNoteGetInfo(note, _NOTE_OID, &oid);
  NSFNoteClose(note);
  UNIVERSALNOTEID unid{oid.File, oid.Note};
  ASSERT_EQ(NSFNoteOpenByUNID(other, &unid, 0, &note), NOERROR);
  EXPECT_EQ(text(note, "Subject"), "original");
  NSFNoteClose(note);
  NSFDbClose(other);

  note = open(id);
  const NOTEID none = 0;
  NSFNoteSetInfo(note, _NOTE_ID, &none);
  NSFItemSetText(note, "Subject", "copy", MAXWORD);
  EXPECT_EQ(NSFNoteUpdate(note, 0), ERR_DUPLICATE_UNID);
  ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR) << "forced, it replaces the note of that UNID";
  NOTEID replaced = 0;
  NSFNoteGetInfo(note, _NOTE_ID, &replaced);
  EXPECT_EQ(replaced, id);
  NSFNoteClose(note);
}

TEST_F(NoteTest, ExpandAndContractConvertSimpleTypes) {
  NOTEHANDLE note = create();
  NSFItemSetText(note, "T", "text", 4);
  const NUMBER n = 7;
  NSFItemSetNumber(note, "N", &n);
  TIMEDATE when{{123, 2460000}};
  NSFItemSetTime(note, "D", &when);
  const NOTEID id = save(note);

  note = open(id, OPEN_EXPAND);
  WORD type = 0;
  NSFItemInfo(note, "T", 1, nullptr, &type, nullptr, nullptr);
  EXPECT_EQ(type, TYPE_TEXT_LIST);
  NSFItemInfo(note, "N", 1, nullptr, &type, nullptr, nullptr);
  EXPECT_EQ(type, TYPE_NUMBER_RANGE);
  NSFItemInfo(note, "D", 1, nullptr, &type, nullptr, nullptr);
  EXPECT_EQ(type, TYPE_TIME_RANGE);
  NUMBER number = 0;
  EXPECT_TRUE(NSFItemGetNumber(note, "N", &number));
  EXPECT_EQ(number, 7);
  TIMEDATE read{};
  EXPECT_TRUE(NSFItemGetTime(note, "D", &read));
  EXPECT_EQ(read.Innards[1], when.Innards[1]);
  EXPECT_EQ(text(note, "T"), "text");

  ASSERT_EQ(NSFNoteContract(note), NOERROR);
  NSFItemInfo(note, "T", 1, nullptr, &type, nullptr, nullptr);
  EXPECT_EQ(type, TYPE_TEXT);
  NSFItemInfo(note, "N", 1, nullptr, &type, nullptr, nullptr);
  EXPECT_EQ(type, TYPE_NUMBER);
  NSFItemInfo(note, "D", 1, nullptr, &type, nullptr, nullptr);
  EXPECT_EQ(type, TYPE_TIME);
  NSFNoteClose(note);

  note = open(id, OPEN_SUMMARY);
  EXPECT_EQ(item_names(note).size(), 3u);
  NSFNoteClose(note);
}

TEST_F(NoteTest, BadInputGetsAnErrorStatus) {
  NOTEHANDLE note = create();
  EXPECT_EQ(NSFItemSetText(note, std::string(MAXITEMNAME + 1, 'n').c_str(), "x", 1), ERR_FIELDNAME_TOO_LONG);
  EXPECT_EQ(NSFItemSetText(note, std::string(MAXITEMNAME, 'n').c_str(), "x", 1), NOERROR);
  EXPECT_EQ(NSFItemSetText(note, "", "x", 1), ERR_BAD_PARAM);
  EXPECT_EQ(NSFItemAppend(note, 0, "X", 1, 0x7777, "abc", 3), ERR_INVALID_ITEMUNK) << "no such data type";
  EXPECT_EQ(NSFItemAppend(note, 0, "X", 1, TYPE_NUMBER, "abc", 3), ERR_INVALID_ITEMUNK);
  const char bad_list[] = {2, 0, 5, 0};  // two entries announced, one length, no text
  EXPECT_EQ(NSFItemAppend(note, 0, "X", 1, TYPE_TEXT_LIST, bad_list, sizeof bad_list), ERR_INVALID_ITEMUNK);
  EXPECT_EQ(NSFItemAppend(note, 0, "X", 1, TYPE_TEXT, nullptr, 3), ERR_BAD_PARAM);
  EXPECT_EQ(NSFItemAppendByBLOCKID(note, 0, "X", 1, BLOCKID{999999, 0}, 10, nullptr), ERR_BAD_PARAM);

  std::string big(20000, 'b');
  NSFItemSetText(note, "Big1", big.c_str(), static_cast<WORD>(big.size()));
  NSFItemSetText(note, "Big2", big.c_str(), static_cast<WORD>(big.size()));
  EXPECT_EQ(NSFNoteUpdate(note, 0), ERR_SUMMARY_TOO_BIG);
  NSFItemSetTextSummary(note, "Big2", big.c_str(), static_cast<WORD>(big.size()), FALSE);
  EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR) << "non-summary items do not count";
  NSFNoteClose(note);

  const NOTEHANDLE stale = note;
  EXPECT_EQ(NSFNoteUpdate(stale, 0), ERR_BAD_PARAM);
  EXPECT_EQ(NSFItemSetText(stale, "A", "b", 1), ERR_BAD_PARAM);
  char buffer[4];
  EXPECT_EQ(NSFItemGetText(stale, "A", buffer, sizeof buffer), 0);
  EXPECT_FALSE(NSFItemIsPresent(stale, "A", 1));
  EXPECT_EQ(NSFNoteClose(stale), ERR_BAD_PARAM);
  EXPECT_EQ(NSFNoteClose(NULLHANDLE), NOERROR);
  EXPECT_EQ(NSFNoteCreate(db_ + 1000, &note), ERR_DB_NOT_OPEN);
  EXPECT_EQ(NSFNoteUpdate(db_, 0), ERR_BAD_PARAM) << "a database handle is not a note handle";
}

}  // namespace
