// Collections over view design notes: selection, sorting (ascending,
// descending, case), NIFFindByName (case, partial), NIFReadEntries (masks,
// navigation, more-to-do), and the index following changed notes.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "dxl/view_design.h"
#include "globerr.h"
#include "nif.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "osmem.h"
#include "store/note.h"
#include "testing/temp_data_directory.h"

namespace {

class Collections : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NSFDbCreate("app.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen("app.nsf", &db_), NOERROR);
  }
  void TearDown() override {
    if (collection_ != NULLHANDLE) NIFCloseCollection(collection_);
    NSFDbClose(db_);
  }

  NOTEID add_view(const char* title, const char* selection, const std::vector<std::string>& items,
                  const std::vector<std::string>& sorts, const std::vector<std::string>& flags = {}) {
    NOTEHANDLE view = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db_, &view), NOERROR);
    const WORD view_class = NOTE_CLASS_VIEW;
    NSFNoteSetInfo(view, _NOTE_CLASS, &view_class);
    NSFItemSetText(view, "$TITLE", title, MAXWORD);
    namespace dxl = tarnwick::rt::dxl;
    dxl::ViewDesign design;
    if (selection != nullptr) design.selection_formula = selection;
    for (size_t i = 0; i < items.size(); ++i) {
      dxl::ColumnDesign column;
      column.item_name = items[i];
      column.sort = sorts[i] == "ascending"    ? dxl::ColumnSort::kAscending
                    : sorts[i] == "descending" ? dxl::ColumnSort::kDescending
                                               : dxl::ColumnSort::kNone;
      column.case_sensitive = i < flags.size() && flags[i].find('c') != std::string::npos;
      column.separate_values = i < flags.size() && flags[i].find('s') != std::string::npos;
      design.columns.push_back(column);
    }
    auto note = tarnwick::rt::store::find_note(view);
    {
      std::lock_guard lock(note->mutex);
      dxl::write_view_design(*note, design);
    }
    EXPECT_EQ(NSFNoteUpdate(view, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(view, _NOTE_ID, &id);
    NSFNoteClose(view);
    return id;
  }

  NOTEID add_doc(const char* form, const char* server, double rank = 0) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    NSFItemSetText(note, "Form", form, MAXWORD);
    NSFItemSetText(note, "Server", server, MAXWORD);
    NSFItemSetNumber(note, "Rank", &rank);
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    return id;
  }

  void open(NOTEID view) {
    if (collection_ != NULLHANDLE) NIFCloseCollection(collection_);
    collection_ = NULLHANDLE;
    ASSERT_EQ(NIFOpenCollection(db_, db_, view, 0, NULLHANDLE, &collection_, nullptr, nullptr, nullptr, nullptr),
              NOERROR);
  }

  // Note IDs of `count` entries from a position (0: the start).
  std::vector<NOTEID> read_ids(DWORD from, DWORD count, WORD* signal = nullptr) {
    COLLECTIONPOSITION pos{};
    pos.Tumbler[0] = from;
    DHANDLE buffer = NULLHANDLE;
    DWORD returned = 0;
    WORD signals = 0;
    EXPECT_EQ(NIFReadEntries(collection_, &pos, NAVIGATE_CURRENT, 0, NAVIGATE_NEXT, count, READ_MASK_NOTEID, &buffer,
                             nullptr, nullptr, &returned, &signals),
              NOERROR);
    if (signal != nullptr) *signal = signals;
    std::vector<NOTEID> ids(returned);
    if (buffer != NULLHANDLE) {
      std::memcpy(ids.data(), OSLockObject(buffer), returned * sizeof(NOTEID));
      OSUnlockObject(buffer);
      OSMemFree(buffer);
    }
    return ids;
  }

  // The first entry matching a name and the number of matches; 0 when none.
  std::pair<NOTEID, DWORD> find(const char* name, WORD flags) {
    COLLECTIONPOSITION pos{};
    DWORD matches = 0;
    if (NIFFindByName(collection_, name, flags, &pos, &matches) != NOERROR) return {0, 0};
    const auto ids = read_ids(pos.Tumbler[0], 1);
    return {ids.empty() ? 0 : ids[0], matches};
  }

  tarnwick::testing::TempDataDirectory data_;
  DBHANDLE db_ = NULLHANDLE;
  HCOLLECTION collection_ = NULLHANDLE;
};

TEST_F(Collections, SelectedDocumentsAreSortedAndFoundByTheirFirstSortedColumn) {
  const NOTEID mail1 = add_doc("Setup", "CN=Mail1/O=Acme");
  const NOTEID mail2 = add_doc("Setup", "cn=mail2/o=acme");
  add_doc("Other", "CN=Mail0/O=Acme");
  const NOTEID mail1_again = add_doc("Setup", "CN=MAIL1/O=ACME");
  NOTEID view = add_view("(Setup Doc)|SetupDocs", "SELECT Form = \"Setup\"", {"Server"}, {"ascending"});
  ASSERT_EQ(NIFFindDesignNoteExt(db_, "(Setup Doc)", NOTE_CLASS_VIEW, DFLAGPAT_VIEWS_AND_FOLDERS, &view, 0), NOERROR);
  open(view);

  EXPECT_EQ(read_ids(0, 10).size(), 3u) << "the Other document is not selected";
  // Case-insensitive: both spellings of Mail1, the first in note ID order.
  EXPECT_EQ(find("cn=mail1/o=acme", FIND_CASE_INSENSITIVE), std::make_pair(mail1, DWORD{2}));
  // Case-sensitive: only the exact spelling.
  EXPECT_EQ(find("CN=MAIL1/O=ACME", 0), std::make_pair(mail1_again, DWORD{1}));
  EXPECT_EQ(find("CN=Mail2", FIND_CASE_INSENSITIVE | FIND_PARTIAL), std::make_pair(mail2, DWORD{1}));
  EXPECT_EQ(find("CN=Mail2", FIND_CASE_INSENSITIVE).second, 0u);
  COLLECTIONPOSITION pos{};
  EXPECT_EQ(NIFFindByName(collection_, "CN=Nobody", FIND_CASE_INSENSITIVE, &pos, nullptr), ERR_NOT_FOUND);
}

TEST_F(Collections, ReadsGiveTheAskedPartsAndSignalWhatRemains) {
  for (int i = 0; i < 5; ++i) add_doc("Setup", ("S" + std::to_string(i)).c_str(), 10 - i);
  const NOTEID view = add_view("ByRank", nullptr, {"Rank", "Server"}, {"descending", ""});
  open(view);
  WORD signal = 0;
  EXPECT_EQ(read_ids(0, 2, &signal).size(), 2u);
  EXPECT_EQ(signal, SIGNAL_MORE_TO_DO);
  EXPECT_EQ(read_ids(4, 5, &signal).size(), 2u);
  EXPECT_EQ(signal, 0);

  // Position, note ID and summary values: S0 has the highest rank.
  COLLECTIONPOSITION pos{};
  DHANDLE buffer = NULLHANDLE;
  WORD length = 0;
  DWORD returned = 0;
  ASSERT_EQ(NIFReadEntries(collection_, &pos, NAVIGATE_NEXT, 1, NAVIGATE_NEXT, 1,
                           READ_MASK_NOTEID | READ_MASK_INDEXPOSITION | READ_MASK_SUMMARYVALUES, &buffer, &length,
                           nullptr, &returned, nullptr),
            NOERROR);
  ASSERT_EQ(returned, 1u);
  const char* bytes = static_cast<const char*>(OSLockObject(buffer));
  DWORD tumbler = 0;
  std::memcpy(&tumbler, bytes + sizeof(NOTEID) + 4, sizeof tumbler);
  EXPECT_EQ(tumbler, 1u);
  const char* table = bytes + sizeof(NOTEID) + 8;
  ITEM_VALUE_TABLE header;
  std::memcpy(&header, table, sizeof header);
  ASSERT_EQ(header.Items, 2);
  WORD first_length = 0;
  std::memcpy(&first_length, table + sizeof header, sizeof first_length);
  const char* second = table + sizeof header + 2 * sizeof(USHORT) + first_length;
  EXPECT_EQ(std::string(second + 6, 2), "S0") << "second column: a one-entry text list";
  OSUnlockObject(buffer);
  OSMemFree(buffer);
  EXPECT_EQ(pos.Tumbler[0], 1u);
}

TEST_F(Collections, TheIndexFollowsAddedChangedAndDeletedDocuments) {
  const NOTEID first = add_doc("Setup", "Alpha");
  const NOTEID view = add_view("Servers", "SELECT Form = \"Setup\"", {"Server"}, {"ascending"});
  open(view);
  EXPECT_EQ(find("alpha", FIND_CASE_INSENSITIVE).first, first);

  const NOTEID added = add_doc("Setup", "Beta");
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteOpen(db_, first, 0, &note), NOERROR);
  NSFItemSetText(note, "Server", "Gamma", MAXWORD);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
  NSFNoteClose(note);
  ASSERT_EQ(NIFUpdateCollection(collection_), NOERROR);
  EXPECT_EQ(find("beta", FIND_CASE_INSENSITIVE).first, added);
  EXPECT_EQ(find("gamma", FIND_CASE_INSENSITIVE).first, first);
  EXPECT_EQ(find("alpha", FIND_CASE_INSENSITIVE).first, 0u);

  ASSERT_EQ(NSFNoteDelete(db_, added, 0), NOERROR);
  ASSERT_EQ(NIFUpdateCollection(collection_), NOERROR);
  EXPECT_EQ(find("beta", FIND_CASE_INSENSITIVE).first, 0u);
  EXPECT_EQ(read_ids(0, 10), std::vector<NOTEID>{first});

  EXPECT_EQ(NIFCloseCollection(collection_), NOERROR);
  collection_ = NULLHANDLE;
  EXPECT_EQ(NIFCloseCollection(collection_), ERR_BAD_PARAM);
}

}  // namespace

#include "store/database.h"
#include "views/view_index.h"

namespace {

TEST_F(Collections, OneIndexServesEveryLookupUntilTheViewChanges) {
  add_doc("Setup", "Alpha");
  const NOTEID view = add_view("Servers", nullptr, {"Server"}, {"ascending"});
  auto db = tarnwick::rt::store::find_database(db_);
  std::shared_ptr<tarnwick::rt::views::ViewIndex> first, second;
  ASSERT_EQ(tarnwick::rt::views::index_of(*db, view, first), NOERROR);
  ASSERT_EQ(tarnwick::rt::views::index_of(*db, view, second), NOERROR);
  EXPECT_EQ(first, second);
}

}  // namespace
