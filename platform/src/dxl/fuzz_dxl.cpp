// Fuzz entry: any bytes given to the DXL importer are refused or imported,
// never a crash; and a refused input leaves the database as it was.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "dxl/importer.h"
#include "globerr.h"
#include "nsfdb.h"
#include "osenv.h"
#include "store/database.h"

namespace {

using namespace tarnwick::rt;

// One data directory and database for the whole run.
std::shared_ptr<store::Database> database() {
  static std::shared_ptr<store::Database> db = [] {
    const auto dir = std::filesystem::temp_directory_path() / ("tarnwick-fuzz-dxl-" + std::to_string(::getpid()));
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    std::ofstream(dir / "notes.ini") << "ServerName=CN=Srv1/O=Org\n";
    std::string argument = "=" + (dir / "notes.ini").string();
    char program[] = "fuzz_dxl";
    char* argv[] = {program, argument.data()};
    if (NotesInitExtended(2, argv) != NOERROR) std::abort();
    if (NSFDbCreate("fuzz.ntf", 0, TRUE) != NOERROR) std::abort();
    DBHANDLE handle = NULLHANDLE;
    if (NSFDbOpen("fuzz.ntf", &handle) != NOERROR) std::abort();
    std::atexit([] { std::filesystem::remove_all(std::filesystem::temp_directory_path() /
                                                 ("tarnwick-fuzz-dxl-" + std::to_string(::getpid()))); });
    return store::find_database(handle);
  }();
  return db;
}

TIMEDATE last_change(store::Database& db) {
  TIMEDATE data{}, design{};
  db.modified_times(&data, &design);
  return TIMEDATE{{data.Innards[0] ^ design.Innards[0], data.Innards[1] ^ design.Innards[1]}};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  auto db = database();
  dxl::ImportOptions options;
  options.acl = DXLIMPORTOPTION_REPLACE_ELSE_CREATE;
  options.design = DXLIMPORTOPTION_REPLACE_ELSE_CREATE;
  options.documents = DXLIMPORTOPTION_UPDATE_ELSE_CREATE;
  options.replace_db_properties = true;
  options.exit_on_first_fatal_error = (size % 2) == 0;
  dxl::ImportLog log;
  const TIMEDATE before = last_change(*db);
  const STATUS status = dxl::import_dxl(std::string_view(reinterpret_cast<const char*>(data), size), db, options, log);
  if (status == ERR_DXL_IMPORTER_FAILED) {
    if (!log.has_error()) std::abort();  // a refusal always says why
    const TIMEDATE after = last_change(*db);
    if (after.Innards[0] != before.Innards[0] || after.Innards[1] != before.Innards[1]) std::abort();
  }
  log.to_xml("fuzz");
  return 0;
}
