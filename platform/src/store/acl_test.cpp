// ACLs: editing, storing, the access rule, and access enforced on handles
// opened with a names list.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "acl.h"
#include "core/memory.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "store/acl_model.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::make_names_list;
using tarnwick::rt::store::testing::DataDirTest;
using tarnwick::rt::store::testing::OneDatabaseTest;

struct Entry {
  std::string name;
  WORD level;
  WORD flags;
  ACL_PRIVILEGES privileges;
};

std::vector<Entry> entries_of(DHANDLE acl) {
  std::vector<Entry> entries;
  auto collect = [](void* param, char* name, WORD level, ACL_PRIVILEGES* privileges, WORD flags) {
    static_cast<std::vector<Entry>*>(param)->push_back(Entry{name, level, flags, *privileges});
  };
  EXPECT_EQ(ACLEnumEntries(acl, collect, &entries), NOERROR);
  return entries;
}

const Entry* find(const std::vector<Entry>& entries, const std::string& name) {
  for (const auto& entry : entries) {
    if (entry.name == name) return &entry;
  }
  return nullptr;
}

DHANDLE names_block(const std::vector<std::string>& names) {
  DHANDLE handle = NULLHANDLE;
  EXPECT_EQ(tarnwick::rt::alloc_block_with(make_names_list(names, 1), &handle), NOERROR);
  return handle;
}

class AclTest : public OneDatabaseTest {
 protected:
  AclTest() : OneDatabaseTest("mail\\jane.nsf") {}

  // Access of a names list by the ACL of the block.
  static WORD level_for(DHANDLE acl, const std::vector<std::string>& names, ACL_PRIVILEGES* privileges = nullptr) {
    std::string list = make_names_list(names, 1);
    WORD level = 99;
    EXPECT_EQ(ACLLookupAccess(acl, reinterpret_cast<const NAMES_LIST*>(list.data()), &level, privileges, nullptr,
                              nullptr),
              NOERROR);
    return level;
  }

};

TEST_F(AclTest, NewDatabaseHasTheDefaultListAndEditsAreStored) {
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
  auto entries = entries_of(acl);
  ASSERT_NE(find(entries, "-Default-"), nullptr);
  EXPECT_EQ(find(entries, "-Default-")->level, ACL_LEVEL_DESIGNER);
  ASSERT_NE(find(entries, "CN=Srv1/O=Org"), nullptr);
  EXPECT_EQ(find(entries, "CN=Srv1/O=Org")->level, ACL_LEVEL_MANAGER);

  ACL_PRIVILEGES roles{};
  ACLSetPriv(roles, 5);
  ASSERT_EQ(ACLSetPrivName(acl, 5, "Admin"), NOERROR);
  ASSERT_EQ(ACLSetPrivName(acl, 6, "SysAdmin"), NOERROR);
  EXPECT_EQ(ACLSetPrivName(acl, 7, "ThisNameIsFarTooLong"), ERR_BAD_PARAM);
  ASSERT_EQ(ACLAddEntry(acl, "CN=Jane Doe/O=Org", ACL_LEVEL_MANAGER, &roles, ACL_FLAG_PERSON), NOERROR);
  ASSERT_EQ(ACLAddEntry(acl, "Anonymous", ACL_LEVEL_NOACCESS, nullptr, ACL_FLAG_PUBLICREADER), NOERROR);
  ASSERT_EQ(ACLDeleteEntry(acl, "localdomainservers"), NOERROR) << "names match without case";
  EXPECT_EQ(ACLDeleteEntry(acl, "LocalDomainServers"), ERR_ACL_NOENTRY);
  ASSERT_EQ(ACLUpdateEntry(acl, nullptr, ACL_UPDATE_LEVEL | ACL_UPDATE_FLAGS, nullptr, ACL_LEVEL_READER, nullptr,
                           ACL_FLAG_PUBLICWRITER),
            NOERROR);
  EXPECT_EQ(ACLUpdateEntry(acl, "Nobody", ACL_UPDATE_LEVEL, nullptr, 1, nullptr, 0), ERR_ACL_NOENTRY);
  ASSERT_EQ(NSFDbStoreACL(db_, acl, 0, ACL_STORE_UPDATE), NOERROR);
  OSMemFree(acl);

  ASSERT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
  entries = entries_of(acl);
  EXPECT_EQ(find(entries, "LocalDomainServers"), nullptr);
  ASSERT_NE(find(entries, "-Default-"), nullptr);
  EXPECT_EQ(find(entries, "-Default-")->level, ACL_LEVEL_READER);
  EXPECT_EQ(find(entries, "-Default-")->flags, ACL_FLAG_PUBLICWRITER);
  ASSERT_NE(find(entries, "CN=Jane Doe/O=Org"), nullptr);
  EXPECT_TRUE(ACLIsPrivSet(find(entries, "CN=Jane Doe/O=Org")->privileges, 5));
  EXPECT_EQ(find(entries, "Anonymous")->flags, ACL_FLAG_PUBLICREADER);
  char name[ACL_PRIVSTRINGMAX];
  ASSERT_EQ(ACLGetPrivName(acl, 5, name), NOERROR);
  EXPECT_STREQ(name, "[Admin]");
  ASSERT_EQ(ACLGetPrivName(acl, 9, name), NOERROR);
  EXPECT_STREQ(name, "");
  EXPECT_EQ(ACLGetPrivName(acl, 80, name), ERR_ACL_NOENTRY);

  // Renaming makes a new entry: the parts not updated with it start cleared.
  ASSERT_EQ(ACLUpdateEntry(acl, "CN=Jane Doe/O=Org", ACL_UPDATE_NAME | ACL_UPDATE_LEVEL, "CN=Jane Roe/O=Org",
                           ACL_LEVEL_EDITOR, nullptr, 0),
            NOERROR);
  entries = entries_of(acl);
  EXPECT_EQ(find(entries, "CN=Jane Doe/O=Org"), nullptr);
  ASSERT_NE(find(entries, "CN=Jane Roe/O=Org"), nullptr);
  EXPECT_EQ(find(entries, "CN=Jane Roe/O=Org")->level, ACL_LEVEL_EDITOR);
  EXPECT_FALSE(ACLIsPrivSet(find(entries, "CN=Jane Roe/O=Org")->privileges, 5));
  OSMemFree(acl);
}

TEST_F(AclTest, LookupPrefersTheUsersOwnEntryThenTheBestGroup) {
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(ACLCreate(&acl), NOERROR);
  ACL_PRIVILEGES admin{};
  ACLSetPriv(admin, 5);
  ACL_PRIVILEGES helpdesk{};
  ACLSetPriv(helpdesk, 6);
  ACLSetPrivName(acl, 5, "Admin");
  ACLSetPrivName(acl, 6, "HelpDesk");
  ACLAddEntry(acl, "CN=Jane Doe/O=Org", ACL_LEVEL_READER, nullptr, ACL_FLAG_PERSON);
  ACLAddEntry(acl, "Admins", ACL_LEVEL_MANAGER, &admin, ACL_FLAG_GROUP);
  ACLAddEntry(acl, "Staff", ACL_LEVEL_EDITOR, &helpdesk, ACL_FLAG_GROUP);
  ACLUpdateEntry(acl, nullptr, ACL_UPDATE_LEVEL, nullptr, ACL_LEVEL_AUTHOR, nullptr, 0);

  EXPECT_EQ(level_for(acl, {"CN=Jane Doe/O=Org", "Admins"}), ACL_LEVEL_READER) << "own entry wins, even if lower";
  ACL_PRIVILEGES joined{};
  EXPECT_EQ(level_for(acl, {"CN=John Doe/O=Org", "staff", "ADMINS"}, &joined), ACL_LEVEL_MANAGER);
  EXPECT_TRUE(ACLIsPrivSet(joined, 5));
  EXPECT_TRUE(ACLIsPrivSet(joined, 6)) << "the roles of all matching groups";
  EXPECT_EQ(level_for(acl, {"CN=Somebody/O=Org", "Elsewhere"}), ACL_LEVEL_AUTHOR) << "the default entry";

  WORD level = 99;
  ASSERT_EQ(ACLLookupAccess(acl, nullptr, &level, nullptr, nullptr, nullptr), NOERROR);
  EXPECT_EQ(level, ACL_LEVEL_READER) << "no names list: the lowest entry";

  std::string list = make_names_list({"CN=John Doe/O=Org", "Admins", "Staff"}, 1);
  DHANDLE roles = NULLHANDLE;
  ASSERT_EQ(ACLLookupAccess(acl, reinterpret_cast<const NAMES_LIST*>(list.data()), &level, nullptr, nullptr, &roles),
            NOERROR);
  ASSERT_NE(roles, NULLHANDLE);
  const std::string_view bytes = tarnwick::rt::block_bytes(roles);
  WORD count = 0;
  std::memcpy(&count, bytes.data(), sizeof count);
  EXPECT_EQ(count, 2) << "a LIST of two role names";
  EXPECT_NE(bytes.find("[Admin]"), std::string_view::npos);
  EXPECT_NE(bytes.find("[HelpDesk]"), std::string_view::npos);
  OSMemFree(roles);
  OSMemFree(acl);

  DHANDLE not_an_acl = NULLHANDLE;
  OSMemAlloc(0, 40, &not_an_acl);
  EXPECT_NE(ACLAddEntry(not_an_acl, "X", 1, nullptr, 0), NOERROR);
  EXPECT_NE(ACLLookupAccess(not_an_acl, nullptr, &level, nullptr, nullptr, nullptr), NOERROR);
  OSMemFree(not_an_acl);
  EXPECT_EQ(ACLAddEntry(NULLHANDLE, "X", 1, nullptr, 0), ERR_BAD_PARAM);
}

TEST_F(AclTest, HandlesOpenedWithANamesListGetTheAccessTheAclGives) {
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(ACLCreate(&acl), NOERROR);
  ACLAddEntry(acl, "CN=Owner/O=Org", ACL_LEVEL_MANAGER, nullptr, 0);
  ACLAddEntry(acl, "CN=Reader/O=Org", ACL_LEVEL_READER, nullptr, 0);
  ACLAddEntry(acl, "CN=Author/O=Org", ACL_LEVEL_AUTHOR, nullptr, 0);
  ASSERT_EQ(NSFDbStoreACL(db_, acl, 0, ACL_STORE_NEW), NOERROR);
  OSMemFree(acl);
  NOTEHANDLE note = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db_, &note), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
  NOTEID plain = 0;
  NSFNoteGetInfo(note, _NOTE_ID, &plain);
  NSFNoteClose(note);

  DBHANDLE db = NULLHANDLE;
  DHANDLE stranger = names_block({"CN=Stranger/O=Org"});
  EXPECT_EQ(NSFDbOpenExtended("mail/jane.nsf", 0, stranger, nullptr, &db, nullptr, nullptr), ERR_NOACCESS);
  EXPECT_EQ(db, NULLHANDLE);

  DHANDLE reader = names_block({"CN=Reader/O=Org"});
  ASSERT_EQ(NSFDbOpenExtended("mail/jane.nsf", 0, reader, nullptr, &db, nullptr, nullptr), NOERROR);
  ASSERT_EQ(NSFNoteOpen(db, plain, 0, &note), NOERROR);
  NSFItemSetText(note, "X", "y", 1);
  EXPECT_EQ(NSFNoteUpdate(note, 0), ERR_NOACCESS);
  NSFNoteClose(note);
  DHANDLE read_back = NULLHANDLE;
  ASSERT_EQ(NSFDbReadACL(db, &read_back), NOERROR);
  EXPECT_EQ(NSFDbStoreACL(db, read_back, 0, 0), ERR_NOACCESS);
  OSMemFree(read_back);
  EXPECT_EQ(NSFNoteDelete(db, plain, 0), ERR_NOACCESS);
  NSFDbClose(db);

  DHANDLE author = names_block({"CN=Author/O=Org", "Writers"});
  ASSERT_EQ(NSFDbOpenExtended("mail/jane.nsf", 0, author, nullptr, &db, nullptr, nullptr), NOERROR);
  ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
  ASSERT_EQ(NSFItemAppend(note, ITEM_SUMMARY | ITEM_NAMES | ITEM_READWRITERS, "DocAuthors", 10, TYPE_TEXT, "Writers",
                          7),
            NOERROR);
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR) << "authors may create documents";
  ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR) << "and change those that list them";
  NSFNoteClose(note);
  ASSERT_EQ(NSFNoteOpen(db, plain, 0, &note), NOERROR);
  EXPECT_EQ(NSFNoteUpdate(note, 0), ERR_NOT_AUTHOR);
  NSFNoteClose(note);
  NSFDbClose(db);

  DHANDLE owner = names_block({"cn=owner/o=org"});
  ASSERT_EQ(NSFDbOpenExtended("mail/jane.nsf", 0, owner, nullptr, &db, nullptr, nullptr), NOERROR);
  ASSERT_EQ(NSFNoteOpen(db, plain, 0, &note), NOERROR);
  EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
  NSFNoteClose(note);
  NSFDbClose(db);
  for (DHANDLE block : {stranger, reader, author, owner}) OSMemFree(block);
}

TEST_F(AclTest, TemplateEntriesAreCopiedWithoutBrackets) {
  ASSERT_EQ(NSFDbCreate("app.ntf", 0, FALSE), NOERROR);
  DBHANDLE source = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("app.ntf", &source), NOERROR);
  DHANDLE acl = NULLHANDLE;
  ASSERT_EQ(ACLCreate(&acl), NOERROR);
  ACLSetPrivName(acl, 5, "Admin");
  ACL_PRIVILEGES admin{};
  ACLSetPriv(admin, 5);
  ACLAddEntry(acl, "[CN=Srv1/O=Org]", ACL_LEVEL_MANAGER, &admin, ACL_FLAG_SERVER);
  ACLAddEntry(acl, "CN=Srv1/O=Org", ACL_LEVEL_MANAGER, nullptr, ACL_FLAG_SERVER);
  ACLAddEntry(acl, "Plain", ACL_LEVEL_EDITOR, nullptr, 0);
  ASSERT_EQ(NSFDbStoreACL(source, acl, 0, 0), NOERROR);
  OSMemFree(acl);

  ASSERT_EQ(NSFDbCopyTemplateACL(source, db_, "CN=Jane Doe/O=Org", ACL_LEVEL_NOACCESS), NOERROR);
  ASSERT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
  auto entries = entries_of(acl);
  ASSERT_NE(find(entries, "CN=Srv1/O=Org"), nullptr);
  EXPECT_TRUE(ACLIsPrivSet(find(entries, "CN=Srv1/O=Org")->privileges, 5));
  EXPECT_EQ(find(entries, "Plain"), nullptr) << "only template entries are copied";
  EXPECT_EQ(find(entries, "[CN=Srv1/O=Org]"), nullptr);
  EXPECT_EQ(find(entries, "-Default-")->level, ACL_LEVEL_NOACCESS);
  ASSERT_NE(find(entries, "CN=Jane Doe/O=Org"), nullptr);
  EXPECT_EQ(find(entries, "CN=Jane Doe/O=Org")->level, ACL_LEVEL_MANAGER);
  char role[ACL_PRIVSTRINGMAX];
  ACLGetPrivName(acl, 5, role);
  EXPECT_STREQ(role, "[Admin]");
  OSMemFree(acl);

  // A template "[-Default-]" entry beats the level argument.
  ASSERT_EQ(NSFDbReadACL(source, &acl), NOERROR);
  ACLAddEntry(acl, "[-Default-]", ACL_LEVEL_READER, nullptr, ACL_FLAG_PUBLICWRITER);
  NSFDbStoreACL(source, acl, 0, 0);
  OSMemFree(acl);
  ASSERT_EQ(NSFDbCopyTemplateACL(source, db_, nullptr, ACL_LEVEL_EDITOR), NOERROR);
  ASSERT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
  entries = entries_of(acl);
  EXPECT_EQ(find(entries, "-Default-")->level, ACL_LEVEL_READER);
  EXPECT_EQ(find(entries, "-Default-")->flags, ACL_FLAG_PUBLICWRITER);
  OSMemFree(acl);
  NSFDbClose(source);
}

}  // namespace
