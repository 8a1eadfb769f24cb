#include "templates.h"

#include "acl.h"
#include "dxlimport.h"
#include "failure.h"
#include "lmbcs_text.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmem.h"
#include "session.h"

#ifndef TARNWICK_DESIGN_DIR
#define TARNWICK_DESIGN_DIR "design"
#endif

namespace tarnwick::admin {
namespace {

struct ShippedTemplate {
  const char* dxl;
  const char* file;
  const char* template_name;  // nullptr: the one the DXL names
  const char* what;
};

constexpr ShippedTemplate kShippedTemplates[] = {
    {"mail.xml", "mail.ntf", nullptr, "the mail template"},
    {"OOO.xml", "OOO.ntf", "OOO", "the out-of-office application template"},
    {"OOO.xml", "OOOEx.ntf", "OOOEx", "the extended out-of-office application template"},
    {"names.xml", "names.ntf", nullptr, "the directory template"},
};

constexpr const char* kApplicationDesign = "OOO.xml";

// The first error the importer logged, as one line ("" when none).
std::string first_logged_error(DHANDLE log) {
  if (log == NULLHANDLE) return "";
  DWORD size = 0;
  OSMemGetSize(log, &size);
  const char* bytes = static_cast<const char*>(OSLockObject(log));
  std::string text(bytes, size);
  OSUnlockObject(log);
  OSMemFree(log);
  for (const char* tag : {"<fatalerror", "<error"}) {
    const size_t start = text.find(tag);
    if (start == std::string::npos) continue;
    const size_t open_end = text.find('>', start);
    const size_t close = text.find("</", open_end);
    if (open_end == std::string::npos || close == std::string::npos) continue;
    std::string message = text.substr(open_end + 1, close - open_end - 1);
    for (char& c : message) {
      if (c == '\n' || c == '\r') c = ' ';
    }
    const size_t line = text.find("line='", start);
    if (line != std::string::npos && line < open_end) {
      message = "line " + text.substr(line + 6, text.find('\'', line + 6) - line - 6) + ": " + message;
    }
    return message;
  }
  return "";
}

void build_template(const std::filesystem::path& design_directory, const ShippedTemplate& shipped, bool replace) {
  const std::filesystem::path dxl = design_directory / shipped.dxl;
  if (std::filesystem::exists(data_directory() / shipped.file)) {
    if (!replace) throw Failure(std::string(shipped.file) + " already exists");
    check(NSFDbDelete(shipped.file), std::string("cannot replace ") + shipped.file);
  }
  DHANDLE log = NULLHANDLE;
  const STATUS status = TarnwickTemplateFromDXL(dxl.c_str(), shipped.file, shipped.template_name, &log);
  const std::string detail = first_logged_error(log);
  check(status, std::string("cannot build ") + shipped.file + " from " + dxl.string() +
                    (detail.empty() ? "" : " (" + detail + ")"));
}

std::string template_name_of(DBHANDLE db) {
  char info[NSF_INFO_SIZE] = {};
  if (NSFDbInfoGet(db, info) != NOERROR) return "";
  char name[NSF_INFO_SIZE] = {};
  NSFDbInfoParse(info, INFOPARSE_CLASS, name, sizeof name - 1);
  return name;
}

void LNCALLBACK collect_entry_name(void* names, char* name, WORD, ACL_PRIVILEGES*, WORD) {
  static_cast<std::vector<std::string>*>(names)->push_back(name);
}

// A database made from a template gets the template's own ACL entries
// ("[Name]", stored as "Name"), not the entries that guard the template
// itself. The default entry stays (no access unless the template says).
STATUS take_template_acl(DBHANDLE template_db, DBHANDLE db) {
  DHANDLE acl = NULLHANDLE;
  if (STATUS error = NSFDbReadACL(db, &acl)) return error;
  std::vector<std::string> names;
  STATUS status = ACLEnumEntries(acl, collect_entry_name, &names);
  for (const std::string& name : names) {
    if (status == NOERROR && name != ACL_DEFAULT_NAME) status = ACLDeleteEntry(acl, name.c_str());
  }
  if (status == NOERROR) status = NSFDbStoreACL(db, acl, 0, ACL_STORE_UPDATE);
  OSMemFree(acl);
  if (status == NOERROR) status = NSFDbCopyTemplateACL(template_db, db, nullptr, ACL_LEVEL_NOACCESS);
  return status;
}

}  // namespace

std::filesystem::path default_design_directory() { return TARNWICK_DESIGN_DIR; }

void check_design_directory(const std::filesystem::path& design_directory) {
  for (const ShippedTemplate& shipped : kShippedTemplates) {
    const std::filesystem::path dxl = design_directory / shipped.dxl;
    if (!std::filesystem::is_regular_file(dxl)) {
      throw Failure("design file " + dxl.string() + " not found (give the source tree's design folder with --design)");
    }
  }
}

std::vector<std::string> install_shipped_templates(const std::filesystem::path& design_directory, bool replace) {
  check_design_directory(design_directory);
  std::vector<std::string> made;
  for (const ShippedTemplate& shipped : kShippedTemplates) {
    build_template(design_directory, shipped, replace);
    made.push_back(std::string(shipped.file) + ": " + shipped.what + ", from " + shipped.dxl);
  }
  std::error_code error;
  std::filesystem::copy_file(design_directory / kApplicationDesign, data_directory() / kApplicationDesign,
                             std::filesystem::copy_options::overwrite_existing, error);
  if (error) throw Failure(std::string("cannot copy ") + kApplicationDesign + ": " + error.message());
  made.push_back(std::string(kApplicationDesign) + ": the application design the task refreshes its templates from");
  return made;
}

void create_from_template(const std::string& template_file, const std::string& path) {
  DBHANDLE db = NULLHANDLE;
  check(NSFDbCreateAndCopy(to_lmbcs(template_file).c_str(), to_lmbcs(path).c_str(), NOTE_CLASS_ALLNONDATA, 0, 0, &db),
        "cannot create " + path + " from " + template_file);
  const std::string template_name = template_name_of(db);
  char info[NSF_INFO_SIZE] = {};
  STATUS status = NSFDbInfoGet(db, info);
  if (status == NOERROR) {
    NSFDbInfoModify(info, INFOPARSE_CLASS, "");
    NSFDbInfoModify(info, INFOPARSE_DESIGN_CLASS, template_name.c_str());
    status = NSFDbInfoSet(db, info);
  }
  std::string failed = status == NOERROR ? "" : "cannot set the design inheritance of " + path;
  if (status == NOERROR) {
    DBHANDLE template_db = NULLHANDLE;
    status = NSFDbOpen(to_lmbcs(template_file).c_str(), &template_db);
    if (status == NOERROR) status = take_template_acl(template_db, db);
    NSFDbClose(template_db);
    if (status != NOERROR) failed = "cannot give " + path + " the ACL of " + template_file;
  }
  NSFDbClose(db);
  check(status, failed);
}

}  // namespace tarnwick::admin
