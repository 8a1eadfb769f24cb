// Agent handles (agents.h): a snapshot of an agent note's state taken at
// AgentOpen.
#include <memory>
#include <string>

#include "agents.h"
#include "core/handle_table.h"
#include "globerr.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/database.h"
#include "store/note.h"

using namespace tarnwick::rt;

namespace {

struct Agent {
  NOTEID note_id = 0;
  std::string title;
  std::string assist_flags;
};

}  // namespace

extern "C" {

STATUS LNPUBLIC AgentOpen(DBHANDLE hDB, NOTEID AgentNoteID, HAGENT* rethAgent) {
  return guarded([&]() -> STATUS {
    if (rethAgent == nullptr) return ERR_BAD_PARAM;
    *rethAgent = NULLHANDLE;
    auto database = store::find_database(hDB);
    if (!database) return ERR_DB_NOT_OPEN;
    store::Note note;
    if (STATUS error = database->read_note(AgentNoteID, OPEN_SUMMARY, &note)) return error;
    if ((note.note_class & NOTE_CLASS_FILTER) == 0) return ERR_BAD_PARAM;
    auto agent = std::make_shared<Agent>();
    agent->note_id = AgentNoteID;
    agent->title = note.text("$TITLE", '|').value_or(std::string());
    agent->assist_flags = note.text(ASSIST_FLAGS_ITEM).value_or(std::string());
    *rethAgent = handles().add(HandleKind::kAgent, std::move(agent));
    return NOERROR;
  });
}

BOOL LNPUBLIC AgentIsEnabled(HAGENT hAgent) {
  return guarded_value<BOOL>(FALSE, [&]() -> BOOL {
    auto agent = handles().find_as<Agent>(hAgent, HandleKind::kAgent);
    if (!agent) return FALSE;
    return agent->assist_flags.find(ASSIST_FLAG_ENABLED) != std::string::npos ? TRUE : FALSE;
  });
}

void LNPUBLIC AgentClose(HAGENT hAgent) {
  if (hAgent == NULLHANDLE) return;
  handles().remove(hAgent, HandleKind::kAgent);
}

}  // extern "C"
