// The DXL importer behind DXLImport: turns a parsed DXL document into the
// notes, ACL and database properties it describes, then stores them in one
// transaction (store::Database::write_batch), or nothing when any problem
// was found.
//
// Every problem is logged with the line of the element it concerns; the
// log renders as the platform's importer log XML:
//   <?xml version='1.0'?><DXLImporterLog><comment>...</comment>
//   <fatalerror line='12'>form element must have name attribute</fatalerror>
//   <warning line='3'>...</warning></DXLImporterLog>
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "dxlimport.h"
#include "global.h"
#include "store/database.h"

namespace tarnwick::rt::dxl {

struct ImportOptions {
  WORD acl = DXLIMPORTOPTION_IGNORE;
  WORD design = DXLIMPORTOPTION_IGNORE;
  WORD documents = DXLIMPORTOPTION_CREATE;
  bool create_full_text_index = false;
  bool replace_db_properties = false;
  WORD validation = Xml_Validate_Auto;
  bool replica_required = true;
  bool exit_on_first_fatal_error = true;
  WORD unknown_token = DXLLOGOPTION_FATALERROR;
};

class ImportLog {
 public:
  enum class Severity { kWarning, kError, kFatalError };
  struct Entry {
    Severity severity;
    int line;
    std::string text;
  };

  void add(Severity severity, int line, std::string text) { entries_.push_back({severity, line, std::move(text)}); }
  void clear() { entries_.clear(); }
  bool has_error() const;
  const std::vector<Entry>& entries() const { return entries_; }
  // The log as XML (UTF-8), with the comment first when there is one.
  std::string to_xml(std::string_view comment) const;

 private:
  std::vector<Entry> entries_;
};

// Imports `dxl` (the whole input) into the database. Returns NOERROR, or
// ERR_DXL_IMPORTER_FAILED with the reasons in `log` (the database is then
// unchanged), or the store's status when the final write fails.
STATUS import_dxl(std::string_view dxl, const std::shared_ptr<store::Database>& database,
                  const ImportOptions& options, ImportLog& log);

}  // namespace tarnwick::rt::dxl
