// verify: signatures made by the server's key through the runtime, checked
// by the tool; a changed signed item is reported and fails the command.
#include <cstring>

#include "admin_harness.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osenv.h"

namespace tarnwick::admin::testing {
namespace {

using AdminVerify = AdminTest;

void append_signed_text(NOTEHANDLE note, const char* name, const char* text) {
  ASSERT_EQ(NSFItemAppend(note, ITEM_SIGN | ITEM_SUMMARY, name, static_cast<WORD>(std::strlen(name)), TYPE_TEXT, text,
                          std::strlen(text)),
            NOERROR);
}

TEST_F(AdminVerify, ReportsSignedUnsignedAndTamperedNotes) {
  init();
  EXPECT_NE(read(data() / "server.id").find("Name: CN=Mail1/O=Acme"), std::string::npos);

  // Prepare a database as the server would: one signed note, one unsigned.
  std::string ini = (data() / "notes.ini").string();
  ini.insert(ini.begin(), '=');
  char program[] = "test";
  char* argv[] = {program, ini.data()};
  ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
  ASSERT_EQ(NSFDbCreate("app.nsf", DBCLASS_BY_EXTENSION, FALSE), NOERROR);
  DBHANDLE db = NULLHANDLE;
  ASSERT_EQ(NSFDbOpen("app.nsf", &db), NOERROR);
  NOTEHANDLE signed_note = NULLHANDLE, plain_note = NULLHANDLE;
  ASSERT_EQ(NSFNoteCreate(db, &signed_note), NOERROR);
  append_signed_text(signed_note, "Setting", "on");
  ASSERT_EQ(NSFNoteSign(signed_note), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(signed_note, 0), NOERROR);
  ASSERT_EQ(NSFNoteCreate(db, &plain_note), NOERROR);
  ASSERT_EQ(NSFItemSetText(plain_note, "Form", "Plain", MAXWORD), NOERROR);
  ASSERT_EQ(NSFNoteUpdate(plain_note, 0), NOERROR);

  auto entries = json({"verify", "app.nsf", "--json"});
  ASSERT_EQ(entries.size(), 2u) << entries.dump();
  EXPECT_TRUE(entries[0]["signed"].get<bool>());
  EXPECT_TRUE(entries[0]["valid"].get<bool>());
  EXPECT_EQ(entries[0]["signer"], "CN=Mail1/O=Acme");
  EXPECT_FALSE(entries[1]["signed"].get<bool>());
  EXPECT_NE(ok({"verify", "app.nsf"}).out.find("2 notes, 1 signed, 0 invalid"), std::string::npos);

  // A signed item changed after signing.
  ASSERT_EQ(NSFItemDelete(signed_note, "Setting", 7), NOERROR);
  append_signed_text(signed_note, "Setting", "off");
  ASSERT_EQ(NSFNoteUpdate(signed_note, 0), NOERROR);
  NSFNoteClose(signed_note);
  NSFNoteClose(plain_note);
  NSFDbClose(db);

  const Result tampered = run({"--data", data().string(), "verify", "app.nsf"});
  EXPECT_EQ(tampered.code, 1);
  EXPECT_NE(tampered.out.find("INVALID"), std::string::npos) << tampered.out;
  EXPECT_NE(tampered.err.find("1 invalid signature"), std::string::npos) << tampered.err;
  EXPECT_EQ(lines(tampered.err), 1u);
}

}  // namespace
}  // namespace tarnwick::admin::testing
