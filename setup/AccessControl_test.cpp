// The access control policy on real databases of a test data directory: a
// server identity, a directory with the server's Server document, and an
// application database whose list the operations rewrite.
#include "setup/AccessControl.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "dxlimport.h"
#include "kfm.h"
#include "nameslist.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"
#include "osmem.h"

namespace {

constexpr char kServer[] = "CN=Mail1/O=Acme";

struct Entry {
  WORD level = 0;
  WORD flags = 0;
  ACL_PRIVILEGES privileges{};
};

void LNCALLBACK collectEntry(void* entries, char* name, WORD level, ACL_PRIVILEGES* privileges, WORD flags) {
  (*static_cast<std::map<std::string, Entry>*>(entries))[name] = Entry{level, flags, *privileges};
}

class AccessControl : public ::testing::Test {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("tarnwick_acl_" + std::to_string(::getpid()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    std::ofstream(dir_ / "notes.ini") << "Directory=" << dir_.string() << "\nServerName=" << kServer
                                      << "\nKeyFilename=server.id\n";
    std::string ini = "=" + (dir_ / "notes.ini").string();
    char* argv[] = {const_cast<char*>("test"), ini.data()};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    ASSERT_EQ(TarnwickCreateServerID("server.id", kServer, TRUE), NOERROR);
    const std::string names = std::string(TARNWICK_SOURCE_ROOT) + "/design/names.xml";
    ASSERT_EQ(TarnwickTemplateFromDXL(names.c_str(), "names.ntf", nullptr, nullptr), NOERROR);
    ASSERT_EQ(NSFDbCreateAndCopy("names.ntf", "names.nsf", NOTE_CLASS_ALLNONDATA, 0, 0, nullptr), NOERROR);
    ASSERT_EQ(NSFDbCreate("app.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen("app.nsf", &db_), NOERROR);
  }

  void TearDown() override {
    NSFDbClose(db_);
    std::filesystem::remove_all(dir_);
  }

  // The server's Server document with the two administrator items (an
  // empty list leaves the item out).
  void addServerDocument(const std::vector<std::string>& administrators, const std::vector<std::string>& fullAdmins) {
    DBHANDLE names = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("names.nsf", &names), NOERROR);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(names, &note), NOERROR);
    setText(note, "Form", "Server");
    setText(note, "Type", "Server");
    setText(note, "ServerName", kServer);
    setList(note, "Administrator", administrators);
    setList(note, "FullAdmin", fullAdmins);
    EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    NSFDbClose(names);
  }

  static void setText(NOTEHANDLE note, const char* item, const std::string& value) {
    ASSERT_EQ(NSFItemSetText(note, item, value.c_str(), static_cast<WORD>(value.size())), NOERROR);
  }

  static void setList(NOTEHANDLE note, const char* item, const std::vector<std::string>& entries) {
    if (entries.empty()) return;
    ASSERT_EQ(NSFItemCreateTextList(note, item, entries[0].c_str(), static_cast<WORD>(entries[0].size())), NOERROR);
    for (size_t i = 1; i < entries.size(); ++i) {
      ASSERT_EQ(NSFItemAppendTextList(note, item, entries[i].c_str(), static_cast<WORD>(entries[i].size()), TRUE),
                NOERROR);
    }
  }

  // Rewrites the database's list: the roles (numbered from 5 on) and the
  // entries.
  void storeAcl(const std::vector<std::string>& roles, const std::map<std::string, Entry>& entries) {
    DHANDLE acl = NULLHANDLE;
    ASSERT_EQ(ACLCreate(&acl), NOERROR);
    for (size_t i = 0; i < roles.size(); ++i) {
      ASSERT_EQ(ACLSetPrivName(acl, static_cast<WORD>(ACL_BITPRIVCOUNT + i), roles[i].c_str()), NOERROR);
    }
    for (const auto& [name, entry] : entries) {
      ASSERT_EQ(ACLAddEntry(acl, name.c_str(), entry.level, &entry.privileges, entry.flags), NOERROR);
    }
    ASSERT_EQ(NSFDbStoreACL(db_, acl, 0, ACL_STORE_UPDATE), NOERROR);
    OSMemFree(acl);
  }

  std::map<std::string, Entry> storedAcl() {
    std::map<std::string, Entry> entries;
    DHANDLE acl = NULLHANDLE;
    EXPECT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
    EXPECT_EQ(ACLEnumEntries(acl, collectEntry, &entries), NOERROR);
    OSMemFree(acl);
    return entries;
  }

  // The role names (without brackets) an entry holds.
  std::vector<std::string> rolesOf(const Entry& entry) {
    std::vector<std::string> roles;
    DHANDLE acl = NULLHANDLE;
    EXPECT_EQ(NSFDbReadACL(db_, &acl), NOERROR);
    for (WORD i = ACL_BITPRIVCOUNT; i < ACL_PRIVCOUNT; ++i) {
      char name[ACL_PRIVSTRINGMAX + 1] = {0};
      if (ACLIsPrivSet(entry.privileges, i) && ACLGetPrivName(acl, i, name) == NOERROR) roles.push_back(name);
    }
    OSMemFree(acl);
    return roles;
  }

  static Entry entry(WORD level, WORD flags) { return Entry{level, flags, {}}; }

  std::filesystem::path dir_;
  DBHANDLE db_ = NULLHANDLE;
};

TEST_F(AccessControl, DefaultPolicyReplacesTheListWithEveryRowDoubled) {
  addServerDocument({"Ann Admin/Acme", "Sam Sys/Ops/Acme"}, {"Fay Full/Acme"});
  storeAcl({"Admin", "SysAdmin", "Editors", "AdminHelpers"},
           {{"-Default-", entry(ACL_LEVEL_EDITOR, 0)},
            {"CN=Old Owner/O=Acme", entry(ACL_LEVEL_MANAGER, 0)},
            {"Staff", entry(ACL_LEVEL_AUTHOR, ACL_FLAG_GROUP)}});
  ASSERT_EQ(Set_Default_ACL(db_), NOERROR);
  const auto acl = storedAcl();

  std::map<std::string, std::pair<WORD, WORD>> expected = {
      {kServer, {ACL_LEVEL_MANAGER, ACL_FLAG_SERVER}},
      {"Anonymous", {ACL_LEVEL_NOACCESS, ACL_FLAG_PUBLICREADER}},
      {"LocalDomainServers", {ACL_LEVEL_MANAGER, ACL_FLAG_SERVER | ACL_FLAG_GROUP}},
      {"OtherDomainServers", {ACL_LEVEL_NOACCESS, ACL_FLAG_SERVER | ACL_FLAG_GROUP}},
      {"-Default-", {ACL_LEVEL_READER, ACL_FLAG_PUBLICWRITER}},
      {"CN=Ann Admin/O=Acme", {ACL_LEVEL_MANAGER, 0}},
      {"CN=Sam Sys/OU=Ops/O=Acme", {ACL_LEVEL_MANAGER, 0}}};
  ASSERT_EQ(acl.size(), 2 * expected.size()) << "former entries must be gone";
  for (const auto& [name, levelAndFlags] : expected) {
    for (const std::string& form : {name, "[" + name + "]"}) {
      const auto found = acl.find(form);
      ASSERT_NE(found, acl.end()) << form;
      EXPECT_EQ(found->second.level, levelAndFlags.first) << form;
      EXPECT_EQ(found->second.flags, levelAndFlags.second) << form;
      const bool administrator = name.find("Admin/") != std::string::npos || name.find("Sys/") != std::string::npos;
      const std::vector<std::string> roles = rolesOf(found->second);
      if (administrator) {
        EXPECT_EQ(roles, (std::vector<std::string>{"[Admin]", "[SysAdmin]"})) << form;
      } else {
        EXPECT_TRUE(roles.empty()) << form;
      }
    }
  }
  // "Administrator" had names, so "FullAdmin" was not used.
  EXPECT_EQ(acl.count("CN=Fay Full/O=Acme"), 0u);
}

TEST_F(AccessControl, FullAdminIsTheFallbackAndNoRolesMeansManagerWithout) {
  addServerDocument({}, {"Fay Full/Acme", "Gil Full/Acme"});
  std::deque<std::string> admins;
  _get_server_admin(kServer, admins);
  EXPECT_EQ(admins, (std::deque<std::string>{"CN=Fay Full/O=Acme", "CN=Gil Full/O=Acme"}));
  _get_server_admin("CN=Nowhere/O=Acme", admins);
  EXPECT_EQ(admins.size(), 2u) << "an unknown server adds nobody";

  storeAcl({}, {{"-Default-", entry(ACL_LEVEL_NOACCESS, 0)}});
  ASSERT_EQ(Set_Default_ACL(db_), NOERROR);
  const auto acl = storedAcl();
  for (const char* name : {"CN=Fay Full/O=Acme", "[CN=Fay Full/O=Acme]", "CN=Gil Full/O=Acme", "[CN=Gil Full/O=Acme]"}) {
    ASSERT_EQ(acl.count(name), 1u) << name;
    EXPECT_EQ(acl.at(name).level, ACL_LEVEL_MANAGER) << name;
    EXPECT_TRUE(rolesOf(acl.at(name)).empty()) << name;
  }
}

TEST_F(AccessControl, DefaultPolicyNeedsTheServerIdentity) {
  std::filesystem::remove(dir_ / "server.id");
  storeAcl({}, {{"-Default-", entry(ACL_LEVEL_EDITOR, 0)}, {"Staff", entry(ACL_LEVEL_AUTHOR, 0)}});
  EXPECT_NE(Set_Default_ACL(db_), NOERROR);
  EXPECT_EQ(storedAcl().count("Staff"), 1u) << "the list is left alone";
  EXPECT_EQ(Set_Default_ACL(NULLHANDLE), NOERROR);
}

TEST_F(AccessControl, UpgradeGivesReadersAndAuthorsPublicWriting) {
  Entry roleHolder = entry(ACL_LEVEL_AUTHOR, ACL_FLAG_GROUP);
  ACLSetPriv(roleHolder.privileges, ACL_BITPRIVCOUNT);
  storeAcl({"Admin"}, {{"-Default-", entry(ACL_LEVEL_READER, 0)},
                       {"Staff", roleHolder},
                       {"CN=Ed Itor/O=Acme", entry(ACL_LEVEL_EDITOR, 0)},
                       {"CN=Max Manager/O=Acme", entry(ACL_LEVEL_MANAGER, ACL_FLAG_PUBLICREADER)},
                       {"Anonymous", entry(ACL_LEVEL_NOACCESS, 0)}});
  ASSERT_EQ(Upgrade_ACL(db_), NOERROR);
  const auto acl = storedAcl();
  EXPECT_EQ(acl.at("-Default-").level, ACL_LEVEL_READER);
  EXPECT_EQ(acl.at("-Default-").flags, ACL_FLAG_PUBLICWRITER);
  EXPECT_EQ(acl.at("Staff").level, ACL_LEVEL_AUTHOR);
  EXPECT_EQ(acl.at("Staff").flags, ACL_FLAG_GROUP | ACL_FLAG_PUBLICWRITER);
  EXPECT_EQ(rolesOf(acl.at("Staff")), std::vector<std::string>{"[Admin]"}) << "roles stay";
  EXPECT_EQ(acl.at("CN=Ed Itor/O=Acme").flags, 0) << "editors are never changed";
  EXPECT_EQ(acl.at("CN=Max Manager/O=Acme").flags, ACL_FLAG_PUBLICREADER) << "managers are never changed";
  EXPECT_EQ(acl.at("Anonymous").flags, 0);
}

TEST_F(AccessControl, UpgradeStoresOnlyWhenAnEntryChanged) {
  storeAcl({}, {{"-Default-", entry(ACL_LEVEL_READER, ACL_FLAG_PUBLICWRITER)},
                {"Staff", entry(ACL_LEVEL_AUTHOR, ACL_FLAG_PUBLICWRITER)},
                {"CN=Rita Reader/O=Acme", entry(ACL_LEVEL_READER, 0)},
                {kServer, entry(ACL_LEVEL_MANAGER, ACL_FLAG_SERVER)}});
  // Opened as a reader, the database refuses to store a list: the status
  // tells whether the upgrade tried.
  std::vector<char> namesList(sizeof(NAMES_LIST) + sizeof "CN=Rita Reader/O=Acme", 0);
  NAMES_LIST header{};
  header.NumNames = 1;
  std::memcpy(namesList.data(), &header, sizeof header);
  std::strcpy(namesList.data() + sizeof header, "CN=Rita Reader/O=Acme");
  DHANDLE names = NULLHANDLE;
  ASSERT_EQ(OSMemAlloc(0, static_cast<DWORD>(namesList.size()), &names), NOERROR);
  std::memcpy(OSLockObject(names), namesList.data(), namesList.size());
  OSUnlockObject(names);
  DBHANDLE asReader = NULLHANDLE;
  ASSERT_EQ(NSFDbOpenExtended("app.nsf", 0, names, nullptr, &asReader, nullptr, nullptr), NOERROR);
  EXPECT_NE(Upgrade_ACL(asReader), NOERROR) << "Rita's entry needs the upgrade";
  NSFDbClose(asReader);

  storeAcl({}, {{"-Default-", entry(ACL_LEVEL_READER, ACL_FLAG_PUBLICWRITER)},
                {"CN=Rita Reader/O=Acme", entry(ACL_LEVEL_READER, ACL_FLAG_PUBLICWRITER)},
                {kServer, entry(ACL_LEVEL_MANAGER, ACL_FLAG_SERVER)}});
  ASSERT_EQ(NSFDbOpenExtended("app.nsf", 0, names, nullptr, &asReader, nullptr, nullptr), NOERROR);
  EXPECT_EQ(Upgrade_ACL(asReader), NOERROR) << "nothing to upgrade, nothing stored";
  NSFDbClose(asReader);
  OSMemFree(names);
}

TEST_F(AccessControl, AnonymousResetAndSingleEntryWrites) {
  storeAcl({"Admin"}, {{"-Default-", entry(ACL_LEVEL_EDITOR, 0)},
                       {"Anonymous", entry(ACL_LEVEL_AUTHOR, ACL_FLAG_PUBLICWRITER)},
                       {"Staff", entry(ACL_LEVEL_AUTHOR, 0)}});
  ASSERT_EQ(Set_Default_ACL_ANONYMOUS(db_), NOERROR);
  auto acl = storedAcl();
  EXPECT_EQ(acl.at("Anonymous").level, ACL_LEVEL_NOACCESS);
  EXPECT_EQ(acl.at("Anonymous").flags, ACL_FLAG_PUBLICREADER);
  EXPECT_EQ(acl.count("[Anonymous]"), 0u) << "only the plain name";
  EXPECT_EQ(acl.at("-Default-").level, ACL_LEVEL_EDITOR) << "other entries stay";
  EXPECT_EQ(acl.at("Staff").level, ACL_LEVEL_AUTHOR);

  DHANDLE list = NULLHANDLE;
  ASSERT_EQ(NSFDbReadACL(db_, &list), NOERROR);
  EXPECT_EQ(_set_acl(list, nullptr, ACL_LEVEL_READER, ACL_FLAG_PUBLICWRITER, FALSE), NOERROR);
  EXPECT_EQ(_set_acl(list, "Staff", ACL_LEVEL_MANAGER, 0, TRUE), NOERROR);
  ASSERT_EQ(NSFDbStoreACL(db_, list, 0, ACL_STORE_UPDATE), NOERROR);
  OSMemFree(list);
  acl = storedAcl();
  EXPECT_EQ(acl.at("-Default-").level, ACL_LEVEL_READER);
  EXPECT_EQ(acl.at("-Default-").flags, ACL_FLAG_PUBLICWRITER);
  EXPECT_EQ(acl.at("Staff").level, ACL_LEVEL_MANAGER);
  EXPECT_EQ(rolesOf(acl.at("Staff")), std::vector<std::string>{"[Admin]"});
  EXPECT_EQ(Set_Default_ACL_ANONYMOUS(NULLHANDLE), NOERROR);
  EXPECT_EQ(Upgrade_ACL(NULLHANDLE), NOERROR);
}

}  // namespace
