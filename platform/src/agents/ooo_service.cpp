// The out-of-office service interface (oooapi.h): contexts that read a
// mail database's out-of-office configuration once, at the start of an
// operation.
#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "agents.h"
#include "core/handle_table.h"
#include "env/environment.h"
#include "globerr.h"
#include "nsfdb.h"
#include "nsfdesign.h"
#include "nsfnote.h"
#include "oooapi.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/note.h"

using namespace tarnwick::rt;

namespace {

std::atomic<int> g_init_count{0};

struct Context {
  OOOCTXPTR slot = nullptr;  // the caller's OOOCTXPTR* points here
  WORD version = OOO_CONFIG_AGENT;
  WORD state = OOO_STATE_DISABLED;
};

// Contexts by the address handed to the caller, so that a pointer that is
// not (or no longer) a live context is refused rather than followed.
std::mutex g_contexts_mutex;
std::map<const void*, std::shared_ptr<Context>>& contexts() {
  static std::map<const void*, std::shared_ptr<Context>> map;
  return map;
}

bool begins_with(const std::optional<std::string>& text, char c) { return text && !text->empty() && (*text)[0] == c; }

// The stored note of a profile (no user), or nullptr when there is none.
std::unique_ptr<store::Note> read_profile(store::Database& mail, std::string_view name) {
  auto note = std::make_unique<store::Note>();
  if (mail.read_profile_note(store::profile_key(name, ""), 0, note.get()) != NOERROR) return nullptr;
  return note;
}

std::optional<std::string> icon_flags(store::Database& mail) {
  NOTEID id = 0;
  if (mail.special_note_id(NOTE_CLASS_ICON, &id) != NOERROR) return std::nullopt;
  store::Note icon;
  if (mail.read_note(id, OPEN_SUMMARY, &icon) != NOERROR) return std::nullopt;
  return icon.text("$Flags");
}

bool agent_enabled(DBHANDLE mail_handle) {
  NOTEID id = 0;
  if (NIFFindDesignNote(mail_handle, "OutOfOffice", NOTE_CLASS_FILTER, &id) != NOERROR) return false;
  HAGENT agent = NULLHANDLE;
  if (AgentOpen(mail_handle, id, &agent) != NOERROR) return false;
  const bool enabled = AgentIsEnabled(agent) != FALSE;
  AgentClose(agent);
  return enabled;
}

void read_configuration(store::Database& mail, DBHANDLE mail_handle, Context& context) {
  const auto profile = read_profile(mail, "OutOfOfficeProfile");
  const auto flags = icon_flags(mail);
  const bool service_marked = flags && flags->find('O') != std::string::npos;
  const bool service_chosen = profile && begins_with(profile->text("TaskType"), '2');
  context.version = service_marked || service_chosen ? OOO_CONFIG_SERVICE : OOO_CONFIG_AGENT;
  if (context.version == OOO_CONFIG_SERVICE) {
    context.state = profile && begins_with(profile->text("TaskState"), '1') ? OOO_STATE_ENABLED : OOO_STATE_DISABLED;
  } else {
    context.state = agent_enabled(mail_handle) ? OOO_STATE_ENABLED : OOO_STATE_DISABLED;
  }
}

// "server!!file", or the bare file for the local server (ServerName).
std::string server_path(const char* server, std::string_view file) {
  std::string path;
  const std::string local = get_environment("ServerName").value_or(std::string());
  if (server != nullptr && server[0] != '\0' && !store::names_equal(server, local)) {
    path = server;
    path += "!!";
  }
  path += file;
  return path;
}

// Opens the owner's mail database as the directory lists it.
STATUS open_mail_from_directory(const std::string& owner, const char* home_server, DBHANDLE* mail) {
  DBHANDLE names = NULLHANDLE;
  if (NSFDbOpen(server_path(home_server, "names.nsf").c_str(), &names) != NOERROR &&
      NSFDbOpen("names.nsf", &names) != NOERROR) {
    return ERR_OOO_NAMELOOKUP;
  }
  auto directory = store::find_database(names);
  std::optional<std::string> mail_server, mail_file;
  bool found = false;
  STATUS status = directory->scan(NOTE_CLASS_DOCUMENT, store::ScanOptions{nullptr, false, true},
                                  [&](const store::NoteRecord&, std::string_view blob) {
    store::Note person;
    if (store::decode_items(blob, true, &person.items) != NOERROR) return STATUS{NOERROR};
    if (!store::names_equal(person.text("Form").value_or(std::string()), "Person")) return STATUS{NOERROR};
    for (const std::string& name : person.text_list("FullName")) {
      if (store::names_equal(name, owner)) {
        found = true;
        mail_server = person.text("MailServer");
        mail_file = person.text("MailFile");
        return STATUS{ERR_NO_MORE_MATCHES};
      }
    }
    return STATUS{NOERROR};
  });
  NSFDbClose(names);
  if (status != NOERROR && status != ERR_NO_MORE_MATCHES) return status;
  if (!found) return ERR_OOO_NAMELOOKUP;
  if (!mail_file || mail_file->empty()) return ERR_OOO_NAMELOOKUPATTR;
  std::string file = *mail_file;
  if (file.find('.') == std::string::npos) file += ".nsf";
  const std::string server = mail_server.value_or(std::string());
  if (NSFDbOpen(server_path(server.c_str(), file).c_str(), mail) != NOERROR) return ERR_OOO_MISSING_MAILFILE;
  return NOERROR;
}

std::shared_ptr<Context> find_context(const OOOCTXPTR* pointer) {
  std::lock_guard lock(g_contexts_mutex);
  auto found = contexts().find(pointer);
  return found == contexts().end() ? nullptr : found->second;
}

}  // namespace

extern "C" {

STATUS LNPUBLIC OOOInit(void) {
  ++g_init_count;
  return NOERROR;
}

STATUS LNPUBLIC OOOTerm(void) {
  int count = g_init_count.load();
  while (count > 0 && !g_init_count.compare_exchange_weak(count, count - 1)) {
  }
  return count > 0 ? NOERROR : ERR_OOO_MISSING_INIT;
}

STATUS LNPUBLIC OOOStartOperation(const char* pMailOwnerName, const char* pHomeMailServer, BOOL /*bHomeMailServer*/,
                                  DHANDLE hMailFile, OOOCTXHANDLE* hOOOContext, OOOCTXPTR** pOOOOContext) {
  return guarded([&]() -> STATUS {
    if (g_init_count.load() <= 0) return ERR_OOO_MISSING_INIT;
    if (pMailOwnerName == nullptr || pMailOwnerName[0] == '\0' || hOOOContext == nullptr || pOOOOContext == nullptr) {
      return ERR_OOO_MISSING_PARAM;
    }
    *hOOOContext = NULLHANDLE;
    *pOOOOContext = nullptr;
    DBHANDLE mail = hMailFile;
    bool opened_here = false;
    if (mail == NULLHANDLE) {
      if (STATUS error = open_mail_from_directory(pMailOwnerName, pHomeMailServer, &mail)) return error;
      opened_here = true;
    }
    auto database = store::find_database(mail);
    if (!database) return ERR_OOO_MISSING_MAILFILE;
    auto context = std::make_shared<Context>();
    read_configuration(*database, mail, *context);
    if (opened_here) NSFDbClose(mail);
    const OOOCTXHANDLE handle = handles().add(HandleKind::kOooContext, context);
    context->slot = reinterpret_cast<OOOCTXPTR>(static_cast<uintptr_t>(handle));
    {
      std::lock_guard lock(g_contexts_mutex);
      contexts()[&context->slot] = context;
    }
    *hOOOContext = handle;
    *pOOOOContext = &context->slot;
    return NOERROR;
  });
}

STATUS LNPUBLIC OOOGetState(OOOCTXPTR* pOOOContext, WORD* retVersion, WORD* retState) {
  return guarded([&]() -> STATUS {
    if (g_init_count.load() <= 0) return ERR_OOO_MISSING_INIT;
    if (pOOOContext == nullptr || retVersion == nullptr) return ERR_OOO_MISSING_PARAM;
    auto context = find_context(pOOOContext);
    if (!context) return ERR_OOO_MISSING_PARAM;
    *retVersion = context->version;
    if (retState != nullptr) *retState = context->state;
    return NOERROR;
  });
}

STATUS LNPUBLIC OOOEndOperation(OOOCTXHANDLE hOOOContext, OOOCTXPTR* pOOOContext) {
  return guarded([&]() -> STATUS {
    auto context = handles().find_as<Context>(hOOOContext, HandleKind::kOooContext);
    // The pointer must be the one handed out with this handle.
    if (!context || (pOOOContext != nullptr && pOOOContext != &context->slot)) return ERR_OOO_MISSING_PARAM;
    if (!handles().remove(hOOOContext, HandleKind::kOooContext)) return ERR_OOO_MISSING_PARAM;
    std::lock_guard lock(g_contexts_mutex);
    contexts().erase(&context->slot);
    return NOERROR;
  });
}

}  // extern "C"
