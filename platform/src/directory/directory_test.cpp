// Directory lookups over names.nsf views: NAMELookup2 and its buffer
// readers, the cluster lookup the task makes, group expansion with nesting,
// cycles and duplicates, and group membership.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "acl.h"
#include "directory/directory.h"
#include "dxl/view_design.h"
#include "globerr.h"
#include "lookup.h"
#include "mail.h"
#include "nameslist.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"
#include "store/note.h"
#include "testing/temp_data_directory.h"
#include "textlist.h"

namespace {

void set_list(NOTEHANDLE note, const char* name, const std::vector<std::string>& entries) {
  NSFItemCreateTextList(note, name, entries.empty() ? "" : entries[0].c_str(), MAXWORD);
  for (size_t i = 1; i < entries.size(); ++i) {
    NSFItemAppendTextList(note, name, entries[i].data(), static_cast<WORD>(entries[i].size()), TRUE);
  }
}

std::string packed(const std::vector<std::string>& strings) {
  std::string out;
  for (const auto& s : strings) out += s + '\0';
  return out;
}

class Directory : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(NSFDbCreate("names.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen("names.nsf", &db_), NOERROR);
    add_view("($Users)|$Users", "SELECT Form = \"Person\" | Form = \"Group\"",
             "FullName : @Name([Abbreviate]; FullName) : ShortName : InternetAddress : ListName");
    add_view("($Groups)", "SELECT Form = \"Group\"", "ListName");
    add_view("($Servers)", "SELECT Form = \"Server\"", "ServerName : @Name([Abbreviate]; ServerName)");
    add_view("($Clusters)", "SELECT Form = \"Server\" & ClusterName != \"\"", "ClusterName");
    ann_ = add_person("CN=Ann Lee/O=Acme", "alee", "CN=Srv1/O=Acme", "mail\\alee.nsf");
    bob_ = add_person("CN=Bob Roe/O=Acme", "broe", "CN=Srv2/O=Acme", "mail\\broe.nsf");
    add_group("Sales", {"CN=Ann Lee/O=Acme", "Inner", "Dan Outside"});
    add_group("Inner", {"CN=Bob Roe/O=Acme", "Sales", "Ann Lee/Acme"});  // a cycle and a duplicate
    add_group("Empty", {});
    add_server("CN=Srv1/O=Acme", "C1");
    add_server("CN=Srv2/O=Acme", "C1");
    add_server("CN=Srv3/O=Acme", "");
  }
  void TearDown() override { NSFDbClose(db_); }

  NOTEID save(NOTEHANDLE note) {
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NOTEID id = 0;
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    return id;
  }
  void add_view(const char* title, const char* selection, const char* key_formula) {
    NOTEHANDLE view = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db_, &view), NOERROR);
    const WORD view_class = NOTE_CLASS_VIEW;
    NSFNoteSetInfo(view, _NOTE_CLASS, &view_class);
    NSFItemSetText(view, "$TITLE", title, MAXWORD);
    namespace dxl = tarnwick::rt::dxl;
    dxl::ViewDesign design;
    design.selection_formula = selection;
    dxl::ColumnDesign key;
    key.item_name = "Key";
    key.formula = key_formula;
    key.sort = dxl::ColumnSort::kAscending;
    key.separate_values = true;
    design.columns.push_back(key);
    auto note = tarnwick::rt::store::find_note(view);
    {
      std::lock_guard lock(note->mutex);
      dxl::write_view_design(*note, design);
    }
    save(view);
  }
  NOTEID add_person(const char* full_name, const char* short_name, const char* server, const char* file) {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    NSFItemSetText(note, "Form", "Person", MAXWORD);
    set_list(note, "FullName", {full_name});
    NSFItemSetText(note, "ShortName", short_name, MAXWORD);
    NSFItemSetText(note, "MailServer", server, MAXWORD);
    NSFItemSetText(note, "MailFile", file, MAXWORD);
    return save(note);
  }
  void add_group(const char* name, const std::vector<std::string>& members) {
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    NSFItemSetText(note, "Form", "Group", MAXWORD);
    NSFItemSetText(note, "ListName", name, MAXWORD);
    if (!members.empty()) set_list(note, "Members", members);
    save(note);
  }
  void add_server(const char* name, const char* cluster) {
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    NSFItemSetText(note, "Form", "Server", MAXWORD);
    NSFItemSetText(note, "ServerName", name, MAXWORD);
    NSFItemSetText(note, "ClusterName", cluster, MAXWORD);
    save(note);
  }

  // Looks names up; per name the texts of item `item` of every match.
  std::vector<std::vector<std::string>> lookup(const char* view, const std::vector<std::string>& names,
                                               const std::vector<std::string>& items, WORD item) {
    const std::string name_list = packed(names), item_list = packed(items);
    DHANDLE buffer = NULLHANDLE;
    EXPECT_EQ(NAMELookup2(nullptr, 0, 1, (std::string(view) + '\0').c_str(), static_cast<WORD>(names.size()),
                          name_list.c_str(), static_cast<WORD>(items.size()), item_list.c_str(), &buffer),
              NOERROR);
    std::vector<std::vector<std::string>> result;
    void* lookup = OSLockObject(buffer);
    DWORD matches = 0;
    for (void* name = NAMELocateNextName2(lookup, nullptr, &matches); name != nullptr;
         name = NAMELocateNextName2(lookup, name, &matches)) {
      std::vector<std::string> texts;
      void* match = nullptr;
      for (DWORD m = 0; m < matches; ++m) {
        match = NAMELocateNextMatch2(lookup, name, match);
        char text[64];
        texts.push_back(NAMEGetTextItem2(match, item, 0, text, sizeof text) == NOERROR ? text : "<none>");
      }
      result.push_back(texts);
    }
    OSUnlockObject(buffer);
    OSMemFree(buffer);
    return result;
  }

  std::vector<std::string> expand(const std::vector<std::string>& names, DHANDLE expanded = NULLHANDLE,
                                  STATUS* status_out = nullptr) {
    DHANDLE list = NULLHANDLE;
    void* locked = nullptr;
    WORD size = 0;
    EXPECT_EQ(ListAllocate(0, 0, TRUE, &list, &locked, &size), NOERROR);
    OSUnlockObject(list);
    for (WORD i = 0; i < names.size(); ++i) {
      ListAddEntry(list, TRUE, &size, i, names[i].data(), static_cast<WORD>(names[i].size()));
    }
    DHANDLE output = NULLHANDLE;
    WORD output_size = 0;
    const STATUS status = MailExpandNames(list, size, &output, &output_size, expanded != NULLHANDLE, expanded);
    if (status_out != nullptr) *status_out = status;
    EXPECT_NE(OSMemFree(list), NOERROR) << "the work list is freed by the call";
    std::vector<std::string> out;
    if (output == NULLHANDLE) return out;
    const void* p = OSLockObject(output);
    for (WORD i = 0; i < ListGetNumEntries(p, TRUE); ++i) {
      char* text = nullptr;
      WORD length = 0;
      ListGetText(p, TRUE, i, &text, &length);
      out.emplace_back(text, length);
    }
    OSUnlockObject(output);
    OSMemFree(output);
    return out;
  }

  tarnwick::testing::TempDataDirectory data_;
  DBHANDLE db_ = NULLHANDLE;
  NOTEID ann_ = 0, bob_ = 0;
};

using Texts = std::vector<std::vector<std::string>>;

TEST_F(Directory, NamesAreFoundByAnyOfTheirFormsAndMissingNamesHaveNoMatches) {
  EXPECT_EQ(lookup("$Users", {"Ann Lee/Acme", "broe", "CN=ANN LEE/O=ACME", "Nobody"}, {"MailServer", "MailFile"}, 1),
            (Texts{{"mail\\alee.nsf"}, {"mail\\broe.nsf"}, {"mail\\alee.nsf"}, {}}));
  // A group is in ($Users) as well; it has no mail file.
  EXPECT_EQ(lookup("($Users)", {"sales"}, {"MailFile", "ListName"}, 0), (Texts{{"<none>"}}));
}

TEST_F(Directory, ItemsComeWithTheirTypeAndTextsAreCutToTheBuffer) {
  const std::string names = packed({"alee"}), items = packed({"FullName", "MailServer", "Missing"});
  DHANDLE buffer = NULLHANDLE;
  ASSERT_EQ(NAMELookup2(nullptr, 0, 1, "$Users\0", 1, names.c_str(), 3, items.c_str(), &buffer), NOERROR);
  void* lookup = OSLockObject(buffer);
  DWORD matches = 0;
  void* name = NAMELocateNextName2(lookup, nullptr, &matches);
  ASSERT_EQ(matches, 1u);
  void* match = NAMELocateNextMatch2(lookup, name, nullptr);
  WORD type = 0, size = 0;
  const char* value = static_cast<const char*>(NAMELocateItem2(match, 1, &type, &size));
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(type, TYPE_TEXT);
  EXPECT_EQ(size, 2 + std::strlen("CN=Srv1/O=Acme"));
  EXPECT_EQ(std::string(value + 2, size - 2), "CN=Srv1/O=Acme");
  EXPECT_EQ(NAMELocateItem2(match, 2, &type, &size), nullptr);
  EXPECT_EQ(type, 0);

  char text[8];
  EXPECT_EQ(NAMEGetTextItem2(match, 0, 0, text, sizeof text), NOERROR);
  EXPECT_STREQ(text, "CN=Ann ");
  EXPECT_EQ(NAMEGetTextItem2(match, 0, 1, text, sizeof text), ERR_NO_MORE_MEMBERS);
  EXPECT_EQ(NAMEGetTextItem2(match, 2, 0, text, sizeof text), ERR_NO_SUCH_ITEM);
  void* item = nullptr;
  EXPECT_EQ(NAMELocateMatchAndItem2(lookup, 0, 1, &type, &match, &item, &size), NOERROR);
  EXPECT_EQ(item, value);
  void* past = nullptr;
  EXPECT_EQ(NAMELocateMatchAndItem2(lookup, 1, 1, &type, &past, &item, &size), ERR_NO_MORE_MATCH);
  EXPECT_EQ(past, nullptr);
  EXPECT_EQ(NAMELocateNextMatch2(lookup, name, match), nullptr);
  EXPECT_EQ(NAMELocateNextName2(lookup, name, &matches), nullptr);
  OSUnlockObject(buffer);
  OSMemFree(buffer);
}

TEST_F(Directory, ClusterMembersAreFoundThroughTheServerDocument) {
  EXPECT_EQ(lookup("($Servers)", {"Srv1/Acme"}, {"ServerName", "ClusterName"}, 1), (Texts{{"C1"}}));
  EXPECT_EQ(lookup("($Clusters)", {"C1"}, {"ServerName"}, 0), (Texts{{"CN=Srv1/O=Acme", "CN=Srv2/O=Acme"}}));
}

TEST_F(Directory, LookupsSeeChangedDocumentsAndMissingViewsOrDirectoriesFail) {
  EXPECT_EQ(lookup("$Users", {"ccox"}, {"MailFile"}, 0), (Texts{{}}));
  add_person("CN=Cy Cox/O=Acme", "ccox", "CN=Srv1/O=Acme", "mail\\ccox.nsf");
  ASSERT_EQ(NSFNoteDelete(db_, bob_, 0), NOERROR);
  EXPECT_EQ(lookup("$Users", {"ccox", "broe"}, {"MailFile"}, 0), (Texts{{"mail\\ccox.nsf"}, {}}));

  DHANDLE buffer = NULLHANDLE;
  EXPECT_EQ(NAMELookup2(nullptr, 0, 1, "($NoView)\0", 1, "x\0", 0, nullptr, &buffer), ERR_NO_SUCH_NAMESPACE);
  OSSetEnvironmentVariable("NAMES", "nowhere.nsf");
  EXPECT_EQ(NAMELookup2(nullptr, 0, 1, "$Users\0", 1, "x\0", 0, nullptr, &buffer), ERR_NO_NAMES_FILE);
  EXPECT_EQ(buffer, NULLHANDLE);
}

TEST_F(Directory, ADirectoryMadeAgainUnderItsNameIsReadAfresh) {
  EXPECT_EQ(lookup("$Users", {"alee"}, {"MailFile"}, 0), (Texts{{"mail\\alee.nsf"}}));
  NSFDbClose(db_);
  ASSERT_EQ(NSFDbDelete("names.nsf"), NOERROR);
  ASSERT_EQ(NSFDbCreate("names.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  ASSERT_EQ(NSFDbOpen("names.nsf", &db_), NOERROR);
  // Other views under the note IDs the old ones had.
  add_view("($Groups)", "SELECT Form = \"Group\"", "ListName");
  add_view("($Users)|$Users", "SELECT Form = \"Person\"", "ShortName");
  add_person("CN=Ann Lee/O=Acme", "alee", "CN=Srv9/O=Acme", "mail\\new.nsf");
  EXPECT_EQ(lookup("$Users", {"alee"}, {"MailFile"}, 0), (Texts{{"mail\\new.nsf"}}));
}

TEST_F(Directory, GroupsExpandIntoTheirMembersOnceEach) {
  EXPECT_EQ(expand({"Sales", "Erin Else"}),
            (std::vector<std::string>{"CN=Ann Lee/O=Acme", "CN=Bob Roe/O=Acme", "Dan Outside", "Erin Else"}));
  EXPECT_TRUE(expand({"Empty"}).empty());

  // Groups expanded by an earlier call are not expanded again; this call's
  // groups are added to the list.
  DHANDLE expanded = NULLHANDLE;
  void* locked = nullptr;
  WORD size = 0;
  ASSERT_EQ(ListAllocate(0, 0, TRUE, &expanded, &locked, &size), NOERROR);
  OSUnlockObject(expanded);
  ListAddEntry(expanded, TRUE, &size, 0, "inner", 5);
  EXPECT_EQ(expand({"Sales"}, expanded), (std::vector<std::string>{"CN=Ann Lee/O=Acme", "Dan Outside"}));
  EXPECT_EQ(ListGetNumEntries(OSLockObject(expanded), TRUE), 2);
  OSUnlockObject(expanded);
  OSMemFree(expanded);
}

TEST_F(Directory, NestingDeeperThanTheRouterAllowsIsALoopError) {
  for (int i = 0; i < 22; ++i) add_group(("Level" + std::to_string(i)).c_str(), {"Level" + std::to_string(i + 1)});
  STATUS status = NOERROR;
  expand({"Level0"}, NULLHANDLE, &status);
  EXPECT_EQ(status, ERR_ROUTER_LIST_LOOP);
}

TEST_F(Directory, GroupMembershipFollowsNesting) {
  using tarnwick::rt::directory::groups_containing;
  EXPECT_EQ(groups_containing({"CN=Bob Roe/O=Acme"}), (std::vector<std::string>{"Inner", "Sales"}));
  EXPECT_EQ(groups_containing({"Dan Outside"}), (std::vector<std::string>{"Sales", "Inner"}));
  EXPECT_TRUE(groups_containing({"CN=Nobody/O=Acme"}).empty());
}

TEST_F(Directory, AccessThroughGroupsOfTheDirectory) {
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(ACLCreate(&acl), NOERROR);
  ASSERT_EQ(ACLAddEntry(acl, "-Default-", ACL_LEVEL_READER, nullptr, 0), NOERROR);
  ASSERT_EQ(ACLAddEntry(acl, "Sales", ACL_LEVEL_EDITOR, nullptr, ACL_FLAG_GROUP), NOERROR);
  auto level_of = [&](const std::string& user) {
    std::string block(sizeof(NAMES_LIST), '\0');
    NAMES_LIST header{};
    header.NumNames = 1;
    std::memcpy(block.data(), &header, sizeof header);
    block += user + '\0';
    WORD level = 0;
    EXPECT_EQ(ACLLookupAccess(acl, reinterpret_cast<const NAMES_LIST*>(block.data()), &level, nullptr, nullptr,
                              nullptr),
              NOERROR);
    return level;
  };
  EXPECT_EQ(level_of("CN=Bob Roe/O=Acme"), ACL_LEVEL_EDITOR) << "member of Inner, which is in Sales";
  EXPECT_EQ(level_of("CN=Cy Cox/O=Acme"), ACL_LEVEL_READER);
  OSMemFree(acl);
}

}  // namespace
