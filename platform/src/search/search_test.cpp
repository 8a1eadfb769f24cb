// NSFSearch, design lookup, special notes, database information and
// copying a database.
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "nsfsearch.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;
using tarnwick::rt::store::testing::OneDatabaseTest;

class SearchTest : public OneDatabaseTest {
 protected:
  SearchTest() : OneDatabaseTest("app.ntf") {}

  NOTEID add(WORD note_class, const char* title, const char* flags, const char* subject = nullptr) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    NSFNoteSetInfo(note, _NOTE_CLASS, &note_class);
    if (title) NSFItemSetText(note, "$TITLE", title, MAXWORD);
    if (flags) NSFItemSetText(note, "$Flags", flags, MAXWORD);
    if (subject) NSFItemSetText(note, "Subject", subject, MAXWORD);
    NSFItemSetTextSummary(note, "Body", "not in the summary", MAXWORD, FALSE);
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    return id;
  }

  struct Seen {
    NOTEID id;
    WORD note_class;
    BYTE flags;
    std::map<std::string, std::string> summary;  // name -> value without type word
  };
  static STATUS LNCALLBACK collect(void* param, SEARCH_MATCH* match, ITEM_TABLE* table) {
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    Seen seen{copy.ID.NoteID, copy.NoteClass, copy.SERetFlags, {}};
    if (table != nullptr) {
      ITEM_TABLE header;
      std::memcpy(&header, table, sizeof header);
      EXPECT_EQ(header.Length, copy.SummaryLength);
      const char* items = reinterpret_cast<const char*>(table) + sizeof(ITEM_TABLE);
      const char* names = items + header.Items * sizeof(ITEM);
      size_t name_offset = 0;
      size_t value_offset = 0;
      std::vector<ITEM> entries(header.Items);
      std::memcpy(entries.data(), items, header.Items * sizeof(ITEM));
      for (const ITEM& item : entries) value_offset += item.NameLength;
      const char* values = names + value_offset;
      value_offset = 0;
      for (const ITEM& item : entries) {
        std::string name(names + name_offset, item.NameLength);
        seen.summary[name] = std::string(values + value_offset + sizeof(WORD), item.ValueLength - sizeof(WORD));
        name_offset += item.NameLength;
        value_offset += item.ValueLength;
      }
    }
    static_cast<std::vector<Seen>*>(param)->push_back(seen);
    return NOERROR;
  }

};

TEST_F(SearchTest, VisitsNotesOfTheClassMaskWithSummaries) {
  const NOTEID form = add(NOTE_CLASS_FORM, "Memo", "");
  const NOTEID doc = add(NOTE_CLASS_DOCUMENT, nullptr, nullptr, "Hello");
  const NOTEID agent = add(NOTE_CLASS_FILTER, "OutOfOffice", "f3");
  NOTEHANDLE profile = NULLHANDLE;
  ASSERT_EQ(NSFProfileOpen(db_, "P", 1, nullptr, 0, TRUE, &profile), NOERROR);
  NSFNoteClose(profile);

  std::vector<Seen> seen;
  ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_ALLNONDATA, nullptr, collect, &seen,
                      nullptr),
            NOERROR);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].id, form);
  EXPECT_EQ(seen[1].id, agent);
  EXPECT_EQ(seen[1].note_class, NOTE_CLASS_FILTER);
  EXPECT_EQ(seen[1].flags & SE_FMATCH, SE_FMATCH);
  EXPECT_EQ(seen[1].summary["$TITLE"], "OutOfOffice");
  EXPECT_EQ(seen[1].summary.count("Body"), 0u) << "only summary items";

  seen.clear();
  ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_DOCUMENT, nullptr, collect, &seen, nullptr),
            NOERROR);
  ASSERT_EQ(seen.size(), 1u) << "profile documents are not searched";
  EXPECT_EQ(seen[0].id, doc);
  EXPECT_EQ(seen[0].summary["Subject"], "Hello");

  seen.clear();
  ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, collect, &seen, nullptr), NOERROR);
  EXPECT_EQ(seen.size(), 3u);
  EXPECT_TRUE(seen[0].summary.empty()) << "no summary without SEARCH_SUMMARY";
}

TEST_F(SearchTest, SinceReportsChangesAndDeletionsOnly) {
  const NOTEID kept = add(NOTE_CLASS_DOCUMENT, nullptr, nullptr, "one");
  const NOTEID removed = add(NOTE_CLASS_DOCUMENT, nullptr, nullptr, "two");
  add(NOTE_CLASS_DOCUMENT, nullptr, nullptr, "three");
  TIMEDATE until{};
  std::vector<Seen> seen;
  ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, nullptr, collect, &seen, &until), NOERROR);
  EXPECT_EQ(seen.size(), 3u);

  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpen(db_, kept, 0, &note), NOERROR);
  NSFItemSetText(note, "Subject", "changed", MAXWORD);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
  NSFNoteClose(note);
  ASSERT_EQ(NSFNoteDelete(db_, removed, 0), NOERROR);

  seen.clear();
  TIMEDATE next{};
  ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, &until, collect, &seen, &next), NOERROR);
  ASSERT_EQ(seen.size(), 2u);
  EXPECT_EQ(seen[0].id, kept);
  EXPECT_EQ(seen[0].flags & SE_FMATCH, SE_FMATCH);
  EXPECT_EQ(seen[1].id, removed | RRV_DELETED);
  EXPECT_EQ(seen[1].flags & SE_FMATCH, 0);
  EXPECT_TRUE(seen[1].note_class & NOTE_CLASS_NOTIFYDELETION);

  seen.clear();
  ASSERT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, 0, NOTE_CLASS_DOCUMENT, &next, collect, &seen, nullptr), NOERROR);
  EXPECT_TRUE(seen.empty());
}

TEST_F(SearchTest, CallbackMayUpdateNotesAndItsErrorStopsTheSearch) {
  for (int i = 0; i < 4; ++i) add(NOTE_CLASS_FORM, ("F" + std::to_string(i)).c_str(), "");
  struct Context {
    DBHANDLE db;
    int visited = 0;
  } context{db_};
  auto sign_like = [](void* param, SEARCH_MATCH* match, ITEM_TABLE*) -> STATUS {
    auto* ctx = static_cast<Context*>(param);
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    NOTEHANDLE note = NULLHANDLE;
    if (STATUS error = NSFNoteOpen(ctx->db, copy.ID.NoteID, OPEN_EXPAND, &note)) return error;
    NSFItemSetText(note, "$Touched", "yes", 3);
    STATUS status = NSFNoteUpdate(note, UPDATE_FORCE);
    NSFNoteClose(note);
    return ++ctx->visited == 3 ? ERR_NOT_FOUND : status;
  };
  EXPECT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, SEARCH_SUMMARY, NOTE_CLASS_ALLNONDATA, nullptr, sign_like, &context,
                      nullptr),
            ERR_NOT_FOUND);
  EXPECT_EQ(context.visited, 3);
  EXPECT_EQ(NSFSearch(db_, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, nullptr, nullptr, nullptr), ERR_BAD_PARAM);
  EXPECT_EQ(NSFSearch(db_ + 50, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, collect, nullptr, nullptr),
            ERR_DB_NOT_OPEN);
  EXPECT_EQ(NSFSearch(db_, 1234, nullptr, 0, NOTE_CLASS_ALL, nullptr, collect, nullptr, nullptr), ERR_BAD_PARAM)
      << "not a compiled formula";
}

TEST_F(SearchTest, DesignLookupByNameAliasClassAndFlags) {
  const NOTEID view = add(NOTE_CLASS_VIEW, "($Servers)|Servers", "");
  const NOTEID folder = add(NOTE_CLASS_VIEW, "Inbox|($Inbox)", "F");
  const NOTEID navigator = add(NOTE_CLASS_VIEW, "Map", "G");
  const NOTEID agent = add(NOTE_CLASS_FILTER, "Out of Office|OutOfOffice", "fQ");
  const NOTEID form = add(NOTE_CLASS_FORM, "OutOfOffice", "");
  NOTEID id = 0;
  ASSERT_EQ(NIFFindDesignNoteExt(db_, "($servers)", NOTE_CLASS_VIEW, DFLAGPAT_VIEWS_AND_FOLDERS, &id, 0), NOERROR);
  EXPECT_EQ(id, view);
  ASSERT_EQ(NIFFindDesignNoteExt(db_, "SERVERS", NOTE_CLASS_VIEW, nullptr, &id, 0), NOERROR);
  EXPECT_EQ(id, view) << "an alias finds the note";
  ASSERT_EQ(NIFFindDesignNoteExt(db_, "($Inbox)", NOTE_CLASS_VIEW, DFLAGPAT_FOLDER, &id, 0), NOERROR);
  EXPECT_EQ(id, folder);
  EXPECT_EQ(NIFFindDesignNoteExt(db_, "Inbox", NOTE_CLASS_VIEW, DFLAGPAT_VIEW, &id, 0), ERR_NOT_FOUND)
      << "a folder is not a view";
  EXPECT_EQ(NIFFindDesignNoteExt(db_, "Map", NOTE_CLASS_VIEW, DFLAGPAT_VIEWS_AND_FOLDERS, &id, 0), ERR_NOT_FOUND);
  ASSERT_EQ(NIFFindDesignNote(db_, "map", NOTE_CLASS_VIEW, &id), NOERROR);
  EXPECT_EQ(id, navigator);
  ASSERT_EQ(NIFFindDesignNote(db_, "OutOfOffice", NOTE_CLASS_FILTER, &id), NOERROR);
  EXPECT_EQ(id, agent) << "the class filter separates the agent from the form of one name";
  ASSERT_EQ(NIFFindDesignNote(db_, "OutOfOffice", NOTE_CLASS_FORM, &id), NOERROR);
  EXPECT_EQ(id, form);
  EXPECT_EQ(NIFFindDesignNote(db_, "Nothing", NOTE_CLASS_ALL, &id), ERR_NOT_FOUND);

  EXPECT_TRUE(DesignFlagsMatch("3Qf", "+Qz"));
  EXPECT_FALSE(DesignFlagsMatch("3f", "+Qz"));
  EXPECT_TRUE(DesignFlagsMatch("PF", "*FP"));
  EXPECT_FALSE(DesignFlagsMatch("F", "*FP"));
  EXPECT_TRUE(DesignFlagsMatch("F", "(+-04n*F"));
  EXPECT_FALSE(DesignFlagsMatch("F4", "(+-04n*F"));
  EXPECT_TRUE(DesignFlagsMatch("Fa", "(+ab-cd*F"));
  EXPECT_FALSE(DesignFlagsMatch("F", "(+ab-cd*F"));
}

TEST_F(SearchTest, SpecialNotesAndDatabaseInformation) {
  NOTEID id = 0;
  EXPECT_EQ(NSFDbGetSpecialNoteID(db_, SPECIAL_ID_NOTE | NOTE_CLASS_ICON, &id), ERR_SPECIAL_ID);
  const NOTEID icon = add(NOTE_CLASS_ICON, nullptr, "O");
  const NOTEID about = add(NOTE_CLASS_INFO, nullptr, nullptr);
  add(NOTE_CLASS_VIEW, "Plain", "");
  const NOTEID default_view = add(NOTE_CLASS_VIEW | NOTE_CLASS_DEFAULT, "All", "");
  ASSERT_EQ(NSFDbGetSpecialNoteID(db_, 0x8010, &id), NOERROR);
  EXPECT_EQ(id, icon);
  ASSERT_EQ(NSFDbGetSpecialNoteID(db_, SPECIAL_ID_NOTE | NOTE_CLASS_INFO, &id), NOERROR);
  EXPECT_EQ(id, about);
  ASSERT_EQ(NSFDbGetSpecialNoteID(db_, SPECIAL_ID_NOTE | NOTE_CLASS_VIEW, &id), NOERROR);
  EXPECT_EQ(id, default_view);

  char info[NSF_INFO_SIZE] = "";
  ASSERT_EQ(NSFDbInfoGet(db_, info), NOERROR);
  EXPECT_STREQ(info, "");
  NSFDbInfoModify(info, INFOPARSE_TITLE, "Out of Office");
  NSFDbInfoModify(info, INFOPARSE_CLASS, "OOOEx");
  EXPECT_STREQ(info, "Out of Office\n\n#1OOOEx");
  NSFDbInfoModify(info, INFOPARSE_DESIGN_CLASS, "StdOOO");
  NSFDbInfoModify(info, INFOPARSE_CATEGORIES, "Tools");
  ASSERT_EQ(NSFDbInfoSet(db_, info), NOERROR);
  char again[NSF_INFO_SIZE];
  ASSERT_EQ(NSFDbInfoGet(db_, again), NOERROR);
  EXPECT_STREQ(again, "Out of Office\nTools\n#1OOOEx\n#2StdOOO");
  char field[NSF_INFO_SIZE];
  NSFDbInfoParse(again, INFOPARSE_CLASS, field, sizeof field - 1);
  EXPECT_STREQ(field, "OOOEx");
  NSFDbInfoParse(again, INFOPARSE_TITLE, field, 3);
  EXPECT_STREQ(field, "Out");
  NSFDbInfoModify(again, INFOPARSE_CLASS, nullptr);
  NSFDbInfoParse(again, INFOPARSE_CLASS, field, sizeof field - 1);
  EXPECT_STREQ(field, "");
  NSFDbInfoParse(again, INFOPARSE_DESIGN_CLASS, field, sizeof field - 1);
  EXPECT_STREQ(field, "StdOOO");

  char huge[200];
  std::memset(huge, 'x', sizeof huge - 1);
  huge[sizeof huge - 1] = '\0';
  EXPECT_EQ(NSFDbInfoSet(db_, huge), ERR_NSF_INFO_SIZE);
  NSFDbInfoModify(info, INFOPARSE_TITLE, huge);
  EXPECT_EQ(std::strlen(info), NSF_INFO_SIZE - 1u) << "a modified buffer never overflows";
}

TEST_F(SearchTest, CreateAndCopyTakesTheDesignAndTheInformation) {
  add(NOTE_CLASS_FORM, "Setup", "");
  add(NOTE_CLASS_VIEW, "(Setup Doc)", "");
  add(NOTE_CLASS_DOCUMENT, nullptr, nullptr, "data stays behind");
  ASSERT_EQ(NSFDbInfoSet(db_, "Application\n\n#1OOO"), NOERROR);
  DBHANDLE copy = NULLHANDLE;
  ASSERT_EQ(NSFDbCreateAndCopy("app.ntf", "dir\\app.nsf", NOTE_CLASS_ALLNONDATA, 0, 0, &copy), NOERROR);
  std::vector<Seen> seen;
  ASSERT_EQ(NSFSearch(copy, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, collect, &seen, nullptr), NOERROR);
  EXPECT_EQ(seen.size(), 2u);
  NOTEID id = 0;
  EXPECT_EQ(NIFFindDesignNote(copy, "(setup doc)", NOTE_CLASS_VIEW, &id), NOERROR);
  char info[NSF_INFO_SIZE];
  ASSERT_EQ(NSFDbInfoGet(copy, info), NOERROR);
  EXPECT_STREQ(info, "Application\n\n#1OOO");
  DBREPLICAINFO source_replica{};
  DBREPLICAINFO copy_replica{};
  NSFDbReplicaInfoGet(db_, &source_replica);
  NSFDbReplicaInfoGet(copy, &copy_replica);
  EXPECT_NE(std::memcmp(&source_replica.ID, &copy_replica.ID, sizeof(DBID)), 0) << "a copy is not a replica";
  NSFDbClose(copy);

  EXPECT_EQ(NSFDbCreateAndCopy("app.ntf", "dir\\app.nsf", NOTE_CLASS_ALLNONDATA, 0, 0, nullptr), ERR_EXISTS);
  ASSERT_EQ(NSFDbCreateAndCopy("app.ntf", "replica.nsf", NOTE_CLASS_ALL, 0, DBCOPY_REPLICA, &copy), NOERROR);
  NSFDbReplicaInfoGet(copy, &copy_replica);
  EXPECT_EQ(std::memcmp(&source_replica.ID, &copy_replica.ID, sizeof(DBID)), 0);
  seen.clear();
  NSFSearch(copy, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr, collect, &seen, nullptr);
  EXPECT_EQ(seen.size(), 3u);
  NSFDbClose(copy);
  EXPECT_EQ(NSFDbCreateAndCopy("missing.ntf", "x.nsf", NOTE_CLASS_ALL, 0, 0, nullptr), ERR_NOEXIST);
}

}  // namespace
