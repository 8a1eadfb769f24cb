// The server ID file and note signatures.
#include <sys/stat.h>

#include <cstring>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "globerr.h"
#include "kfm.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "store/test_data_dir.h"

namespace {

using tarnwick::rt::store::testing::DataDirTest;
using tarnwick::rt::store::testing::OneDatabaseTest;

class IdentityTest : public OneDatabaseTest {
 protected:
  IdentityTest() : OneDatabaseTest("app.ntf") {}

  // A stored agent-like note with signed and unsigned items; returns its ID.
  NOTEID make_agent() {
    NOTEHANDLE note = NULLHANDLE;
    EXPECT_EQ(NSFNoteCreate(db_, &note), NOERROR);
    const WORD filter = NOTE_CLASS_FILTER;
    NSFNoteSetInfo(note, _NOTE_CLASS, &filter);
    NSFItemAppend(note, ITEM_SUMMARY | ITEM_SIGN, "$AssistFlags", 12, TYPE_TEXT, "SE", 2);
    NSFItemAppend(note, ITEM_SUMMARY | ITEM_SIGN, "$MachineName", 12, TYPE_TEXT, "CN=Srv1/O=Org", 13);
    const NUMBER restricted = 0;
    NSFItemAppend(note, ITEM_SUMMARY | ITEM_SIGN, "$Restricted", 11, TYPE_NUMBER, &restricted, sizeof restricted);
    NSFItemAppend(note, ITEM_SUMMARY, "$UpdatedBy", 10, TYPE_TEXT, "CN=Srv1/O=Org", 13);
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

};

TEST_F(IdentityTest, IdFileGivesTheServerName) {
  char name[MAXUSERNAME];
  EXPECT_EQ(SECKFMGetUserName(name), ERR_NOEXIST);
  ASSERT_EQ(TarnwickCreateServerID(nullptr, "CN=Srv1/O=Org", FALSE), NOERROR);
  ASSERT_EQ(SECKFMGetUserName(name), NOERROR);
  EXPECT_STREQ(name, "CN=Srv1/O=Org");
  struct stat st {};
  ASSERT_EQ(::stat((data_ / "server.id").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0600u) << "the private key is for the owner only";
  EXPECT_EQ(TarnwickCreateServerID(nullptr, "CN=Other/O=Org", FALSE), ERR_EXISTS);
  EXPECT_EQ(TarnwickCreateServerID(nullptr, "", TRUE), ERR_BAD_PARAM);

  std::ofstream(data_ / "server.id") << "TarnwickServerID 1\nName: CN=Srv1/O=Org\nPublicKey: 12\n";
  EXPECT_EQ(SECKFMGetUserName(name), ERR_INVALID_ITEMUNK);
}

TEST_F(IdentityTest, SignedNotesVerifyUntilASignedItemChanges) {
  const NOTEID id = make_agent();
  NOTEHANDLE note = open(id);
  EXPECT_EQ(NSFNoteSign(note), ERR_NOEXIST) << "no ID, no signature";
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), ERR_NOTE_NOT_SIGNED);
  ASSERT_EQ(TarnwickCreateServerID(nullptr, "CN=Srv1/OU=Hub/O=Org", FALSE), NOERROR);
  ASSERT_EQ(NSFNoteSign(note), NOERROR);
  ASSERT_EQ(NSFNoteSign(note), NOERROR) << "signing again replaces the signature";
  WORD type = 0;
  BLOCKID item{};
  ASSERT_EQ(NSFItemInfo(note, "$Signature", 10, &item, &type, nullptr, nullptr), NOERROR);
  EXPECT_EQ(type, TYPE_SIGNATURE);
  WORD flags = 0;
  NSFItemQuery(note, item, nullptr, 0, nullptr, &flags, nullptr, nullptr, nullptr);
  EXPECT_EQ(flags, ITEM_SEAL);
  ASSERT_EQ(NSFItemInfoNext(note, item, "$Signature", 10, &item, nullptr, nullptr, nullptr), ERR_ITEM_NOT_FOUND);
  ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
  NSFNoteClose(note);

  note = open(id);
  TIMEDATE when{};
  char signer[MAXUSERNAME];
  char certifier[MAXUSERNAME];
  ASSERT_EQ(NSFNoteVerifySignature(note, nullptr, &when, signer, certifier), NOERROR);
  EXPECT_STREQ(signer, "CN=Srv1/OU=Hub/O=Org");
  EXPECT_STREQ(certifier, "OU=Hub/O=Org");
  EXPECT_NE(when.Innards[1], 0u);

  NSFItemSetText(note, "$UpdatedBy", "CN=Someone/O=Else", MAXWORD);
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), NOERROR) << "an unsigned item";
  NSFItemDelete(note, "$AssistFlags", 12);
  NSFItemAppend(note, ITEM_SUMMARY | ITEM_SIGN, "$AssistFlags", 12, TYPE_TEXT, "S", 1);
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), ERR_NOTE_INVSIG2);
  NSFNoteClose(note);

  // A damaged signature item, and a bit flipped in the signature.
  note = open(id);
  BLOCKID value{};
  DWORD length = 0;
  ASSERT_EQ(NSFItemInfo(note, "$Signature", 10, nullptr, nullptr, &value, &length), NOERROR);
  OSLockBlock(char, value)[length - 1] ^= 0x01;
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), ERR_NOTE_INVSIG2);
  NSFItemDelete(note, "$Signature", 10);
  NSFItemAppend(note, ITEM_SEAL, "$Signature", 10, TYPE_SIGNATURE, "TWSIG1\x05", 7);
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), ERR_NOTE_INVSIG5);
  NSFNoteClose(note);
}

TEST_F(IdentityTest, ASignatureMadeExpandedHoldsAfterContracting) {
  ASSERT_EQ(TarnwickCreateServerID(nullptr, "CN=Srv1/O=Org", FALSE), NOERROR);
  const NOTEID id = make_agent();
  NOTEHANDLE note = open(id, OPEN_EXPAND);
  ASSERT_EQ(NSFNoteSign(note), NOERROR);
  ASSERT_EQ(NSFNoteContract(note), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(note, UPDATE_FORCE), NOERROR);
  NSFNoteClose(note);
  note = open(id);
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), NOERROR);
  NSFNoteClose(note);
  note = open(id, OPEN_EXPAND);
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), NOERROR);

  // A new key under the same server name does not vouch for the old signature.
  ASSERT_EQ(TarnwickCreateServerID(nullptr, "CN=Srv1/O=Org", TRUE), NOERROR);
  EXPECT_EQ(NSFNoteVerifySignature(note, nullptr, nullptr, nullptr, nullptr), ERR_NOTE_INVSIG3);
  NSFNoteClose(note);
}

class ConfiguredIdTest : public IdentityTest {
 protected:
  std::string extra_ini() const override { return "KeyFilename=ids/hub.id\n"; }
};

TEST_F(ConfiguredIdTest, KeyFilenameNamesTheIdFile) {
  ASSERT_EQ(TarnwickCreateServerID(nullptr, "CN=Hub/O=Org", FALSE), NOERROR);
  EXPECT_TRUE(std::filesystem::exists(data_ / "ids" / "hub.id"));
  char name[MAXUSERNAME];
  ASSERT_EQ(SECKFMGetUserName(name), NOERROR);
  EXPECT_STREQ(name, "CN=Hub/O=Org");
}

}  // namespace
