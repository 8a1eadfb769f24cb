// TarnwickTemplateFromDXL (dxlimport.h): a template built from a DXL file.
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "core/memory.h"
#include "dxl/importer.h"
#include "dxl/xml_tree.h"
#include "dxlimport.h"
#include "env/environment.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/database.h"

using namespace tarnwick::rt;

namespace {

STATUS read_file(const char* path, std::string* bytes) {
  std::ifstream in(resolve_data_path(path), std::ios::binary);
  if (!in) return ERR_NOEXIST;
  std::ostringstream out;
  out << in.rdbuf();
  if (in.bad()) return ERR_UNKNOWN;
  *bytes = out.str();
  if (bytes->size() > dxl::kMaxXmlBytes) return ERR_DXL_IMPORTER_FAILED;
  return NOERROR;
}

// Sets the template name in the information string and the icon note's $TITLE.
STATUS name_template(DBHANDLE db, const char* name) {
  char info[NSF_INFO_SIZE] = {};
  if (STATUS error = NSFDbInfoGet(db, info)) return error;
  NSFDbInfoModify(info, INFOPARSE_CLASS, name);
  if (STATUS error = NSFDbInfoSet(db, info)) return error;
  NOTEHANDLE icon = NULLHANDLE;
  if (STATUS error = NSFNoteOpen(db, NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &icon)) return error;
  STATUS status = NSFItemSetText(icon, "$TITLE", info, MAXWORD);
  if (!status) status = NSFNoteUpdate(icon, 0);
  NSFNoteClose(icon);
  return status;
}

STATUS build(const char* dxl_path, const char* template_path, const char* template_name, DHANDLE* log_out) {
  std::string dxl;
  if (STATUS error = read_file(dxl_path, &dxl)) return error;
  if (STATUS error = NSFDbCreate(template_path, DBCLASS_TEMPLATEFILE, FALSE)) return error;
  DBHANDLE db = NULLHANDLE;
  STATUS status = NSFDbOpen(template_path, &db);
  if (!status) {
    dxl::ImportOptions options;
    options.acl = DXLIMPORTOPTION_REPLACE_ELSE_CREATE;
    options.design = DXLIMPORTOPTION_REPLACE_ELSE_CREATE;
    options.documents = DXLIMPORTOPTION_CREATE;
    options.replace_db_properties = true;
    dxl::ImportLog log;
    status = dxl::import_dxl(dxl, store::find_database(db), options, log);
    if (log_out != nullptr && !log.entries().empty()) alloc_block_with(log.to_xml(dxl_path), log_out);
    if (!status && template_name != nullptr && template_name[0] != '\0') status = name_template(db, template_name);
  }
  NSFDbClose(db);
  if (status) NSFDbDelete(template_path);
  return status;
}

}  // namespace

extern "C" STATUS LNPUBLIC TarnwickTemplateFromDXL(const char* DxlFilePath, const char* TemplatePath,
                                                   const char* TemplateName, DHANDLE* rethLog) {
  return guarded([&]() -> STATUS {
    if (rethLog != nullptr) *rethLog = NULLHANDLE;
    if (DxlFilePath == nullptr || TemplatePath == nullptr) return ERR_DXL_INVALID_PARAMETER;
    return build(DxlFilePath, TemplatePath, TemplateName, rethLog);
  });
}
