#include "mail_file.h"

#include <filesystem>

#include "acl.h"
#include "failure.h"
#include "globerr.h"
#include "handles.h"
#include "lmbcs_text.h"
#include "names.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "nsfprofile.h"
#include "osmem.h"
#include "session.h"
#include "templates.h"

namespace tarnwick::admin {
namespace {

constexpr const char* kDefaultTemplate = "mail.ntf";

Database create_database(const MailFileRequest& request, MailFileResult& result) {
  const std::filesystem::path data = data_directory();
  const std::string template_file = request.template_file.empty() ? kDefaultTemplate : request.template_file;
  if (std::filesystem::exists(data / template_file)) {
    create_from_template(template_file, request.path);
    result.template_used = template_file;
    return Database::open(request.path);
  }
  if (!request.template_file.empty()) {
    throw Failure("template " + request.template_file + " not found in " + data.string());
  }
  return Database::create(request.path);
}

void set_access(Database& db, const std::string& owner, const std::string& server) {
  DHANDLE acl = NULLHANDLE;
  check(NSFDbReadACL(db.handle(), &acl), "cannot read the ACL of " + db.path());
  STATUS status = ACLUpdateEntry(acl, nullptr, ACL_UPDATE_LEVEL, nullptr, ACL_LEVEL_NOACCESS, nullptr, 0);
  if (status == NOERROR) {
    status = ACLAddEntry(acl, to_lmbcs(owner).c_str(), ACL_LEVEL_MANAGER, nullptr, ACL_FLAG_PERSON);
  }
  if (status == NOERROR && !server.empty()) {
    status = ACLAddEntry(acl, to_lmbcs(server).c_str(), ACL_LEVEL_MANAGER, nullptr, ACL_FLAG_SERVER);
  }
  if (status == NOERROR) {
    status = ACLAddEntry(acl, "LocalDomainServers", ACL_LEVEL_MANAGER, nullptr, ACL_FLAG_SERVER | ACL_FLAG_GROUP);
  }
  if (status == NOERROR) status = NSFDbStoreACL(db.handle(), acl, 0, ACL_STORE_UPDATE);
  OSMemFree(acl);
  check(status, "cannot set the ACL of " + db.path());
}

Note open_profile(Database& db, const std::string& name) {
  NOTEHANDLE handle = NULLHANDLE;
  check(NSFProfileOpen(db.handle(), name.c_str(), static_cast<WORD>(name.size()), nullptr, 0, TRUE, &handle),
        "cannot create profile " + name + " in " + db.path());
  return Note(handle);
}

void mark_service_mode(Database& db, OooMode mode) {
  NOTEHANDLE handle = NULLHANDLE;
  const STATUS status = NSFNoteOpen(db.handle(), NOTE_ID_SPECIAL | NOTE_CLASS_ICON, 0, &handle);
  if (ERR(status) == ERR_SPECIAL_ID) {
    if (mode == OooMode::agent) return;
    check(NSFNoteCreate(db.handle(), &handle), "cannot create the icon note of " + db.path());
    WORD icon_class = NOTE_CLASS_ICON;
    NSFNoteSetInfo(handle, _NOTE_CLASS, &icon_class);
  } else {
    check(status, "cannot open the icon note of " + db.path());
  }
  Note icon(handle);
  std::string flags = icon.text("$Flags");
  const size_t marker = flags.find('O');
  if (mode == OooMode::service && marker == std::string::npos) {
    flags += 'O';
  } else if (mode == OooMode::agent && marker != std::string::npos) {
    flags.erase(marker, 1);
  } else {
    return;
  }
  icon.set_text("$Flags", flags);
  icon.update();
}

}  // namespace

OooMode parse_mode(const std::string& text) {
  if (text == "agent") return OooMode::agent;
  if (text == "service") return OooMode::service;
  throw UsageError("mode must be agent or service, not \"" + text + "\"");
}

MailFileResult create_mail_file(const MailFileRequest& request, const std::string& local_server) {
  if (std::filesystem::exists(data_directory() / request.path)) throw Failure(request.path + " already exists");
  const std::string owner = canonical_name(request.owner);
  MailFileResult result;
  Database db = create_database(request, result);
  db.set_title(common_name(owner));
  set_access(db, owner, local_server.empty() ? "" : canonical_name(local_server));

  Note calendar = open_profile(db, "CalendarProfile");
  calendar.set_text("Form", "CalendarProfile");
  calendar.set_text("Owner", owner);
  calendar.update();

  Note ooo = open_profile(db, "OutOfOfficeProfile");
  ooo.set_text("Form", "OutofOfficeProfile");
  ooo.set_text("$Owner", owner);
  ooo.set_text("TaskType", request.mode == OooMode::service ? "2" : "1");
  ooo.set_text("TaskState", "0");
  ooo.set_text("CurrentStatus", "0");
  ooo.update();

  open_profile(db, "OOServiceProfile");
  mark_service_mode(db, request.mode);
  return result;
}

}  // namespace tarnwick::admin
