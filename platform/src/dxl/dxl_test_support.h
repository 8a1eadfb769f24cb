// Test helper: a fresh data directory with an open database, and a way to
// import DXL text into it through the C API (fed to the importer in small
// pieces, as a file reader would).
#pragma once

#include <algorithm>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "dxlimport.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "osmem.h"
#include "store/test_data_dir.h"

namespace tarnwick::rt::dxl::testing {

struct ImportSettings {
  WORD acl = DXLIMPORTOPTION_IGNORE;
  WORD design = DXLIMPORTOPTION_REPLACE_ELSE_CREATE;
  WORD documents = DXLIMPORTOPTION_CREATE;
  BOOL replace_db_properties = TRUE;
  WORD unknown_token = DXLLOGOPTION_FATALERROR;
};

struct StringReader {
  std::string text;
  size_t offset = 0;
  size_t piece = 7;  // small on purpose: elements span several reads

  static DWORD LNCALLBACK read(BYTE* buffer, const DWORD length, void* action) {
    auto* self = static_cast<StringReader*>(action);
    const size_t count = std::min({static_cast<size_t>(length), self->piece, self->text.size() - self->offset});
    std::memcpy(buffer, self->text.data() + self->offset, count);
    self->offset += count;
    return static_cast<DWORD>(count);
  }
};

inline std::string read_text_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

// The repository's root (for the shipped designs).
inline std::string source_dir() {
  const char* dir = std::getenv("TARNWICK_SOURCE_DIR");
  return dir ? dir : ".";
}

class ImportTest : public store::testing::DataDirTest {
 protected:
  void SetUp() override {
    DataDirTest::SetUp();
    open_fresh(database_path());
  }
  void TearDown() override {
    NSFDbClose(db_);
    DataDirTest::TearDown();
  }
  virtual const char* database_path() const { return "design.nsf"; }

  void open_fresh(const char* path) {
    NSFDbClose(db_);
    db_ = NULLHANDLE;
    ASSERT_EQ(NSFDbCreate(path, 0, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen(path, &db_), NOERROR);
  }

  // Imports into db (or `target`), keeping the result log in log_.
  STATUS import(const std::string& dxl, const ImportSettings& settings = {}, DBHANDLE target = NULLHANDLE) {
    DXLIMPORTHANDLE importer = NULLHANDLE;
    EXPECT_EQ(DXLCreateImporter(&importer), NOERROR);
    WORD acl = settings.acl, design = settings.design, documents = settings.documents,
         unknown = settings.unknown_token;
    BOOL properties = settings.replace_db_properties;
    EXPECT_EQ(DXLSetImporterProperty(importer, iACLImportOption, &acl), NOERROR);
    EXPECT_EQ(DXLSetImporterProperty(importer, iDesignImportOption, &design), NOERROR);
    EXPECT_EQ(DXLSetImporterProperty(importer, iDocumentsImportOption, &documents), NOERROR);
    EXPECT_EQ(DXLSetImporterProperty(importer, iReplaceDbProperties, &properties), NOERROR);
    EXPECT_EQ(DXLSetImporterProperty(importer, iUnknownTokenLogOption, &unknown), NOERROR);
    StringReader reader{dxl};
    const STATUS status = DXLImport(importer, StringReader::read, target ? target : db_, &reader);
    log_.clear();
    MEMHANDLE log = NULLHANDLE;
    EXPECT_EQ(DXLGetImporterProperty(importer, iResultLog, &log), NOERROR);
    if (log != NULLHANDLE) {
      DWORD size = 0;
      OSMemGetSize(log, &size);
      log_.assign(static_cast<const char*>(OSLockObject(log)), size);
      OSMemFree(log);
    }
    DXLDeleteImporter(importer);
    return status;
  }

  // The note ID of the design note of that class and name, 0 when none.
  NOTEID design_id(WORD note_class, const char* name, DBHANDLE db = NULLHANDLE) {
    NOTEID id = 0;
    if (NIFFindDesignNote(db ? db : db_, name, note_class, &id) != NOERROR) return 0;
    return id;
  }

  std::string text_item(NOTEHANDLE note, const char* name) {
    char buffer[2048] = {};
    const WORD length = NSFItemGetText(note, name, buffer, sizeof(buffer));
    return std::string(buffer, length);
  }

  DBHANDLE db_ = NULLHANDLE;
  std::string log_;
};

}  // namespace tarnwick::rt::dxl::testing
