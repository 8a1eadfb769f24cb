// Reading one user's out-of-office state from the open profiles into the
// request context, and the texts the user's mail template would put into the
// automatic reply. The template texts are computed by the mail database's own
// "(Out Of Office Profile)" form on the profile note with sample dates, then
// the sample dates and the owner's name are replaced by the placeholders
// var_First, var_Back and var_User so that a front end can fill in its own.
// The profile note is changed in memory only and never saved here.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "dname.h"
#include "engine/ProfileItems.h"
#include "formula.h"
#include "globerr.h"
#include "nsfdata.h"
#include "nsfnote.h"
#include "osmem.h"
#include "ostime.h"
#include "request/IPOOO.h"
#include "textlist.h"

using tarnwick::engine::deleteIfPresent;
using tarnwick::engine::hasItem;
using tarnwick::engine::isNotifiedItem;
using tarnwick::engine::itemText;
using tarnwick::engine::setText;

namespace {

constexpr char kDefaultDaysOut[] = "I am out of the office from var_First until var_Back.";
constexpr char kDefaultDaysOutS[] = "I am out of the office until var_Back.";
constexpr char kDefaultAppendSubjectDate[] = "(returning var_Back)";
constexpr char kDefaultResetSubject[] = "var_User is Out Of Office";

// The common name of a distinguished name (empty when it has none);
// unparsed when the name does not parse.
std::string commonName(const std::string& name, const std::string& unparsed) {
  DN_COMPONENTS parts{};
  if (DNParse(0, nullptr, name.c_str(), &parts, sizeof parts) != NOERROR) return unparsed;
  return parts.CN == nullptr ? std::string() : std::string(parts.CN, parts.CNLength);
}

// A text item's entries as lines.
std::string asLines(std::string text) {
  for (char& c : text) {
    if (c == '\0') c = '\n';
  }
  return text;
}

void replaceFirst(std::string& text, const std::string& what, const char* with) {
  if (what.empty()) return;
  const size_t at = text.find(what);
  if (at != std::string::npos) text.replace(at, what.size(), with);
}

STATUS deleteAll(NOTEHANDLE note, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (STATUS status = deleteIfPresent(note, name)) return status;
  }
  return NOERROR;
}

// The owner: the common name of the profile's "$Owner", else the request's
// user name.
void readOwnerName(IPOOO& context) {
  const std::string owner = itemText(context.hProfile, "$Owner");
  context.ownerName = owner.empty() ? context.Username : commonName(owner, context.Username);
  context.translator->TranslatorLMBCSToUTF8(context.ownerName);
}

// The subject as lines, else "<user> is out of the office".
void readSubject(IPOOO& context) {
  const std::string subject = itemText(context.hProfile, "GeneralSubject");
  context.oooSubject = hasItem(context.hProfile, "GeneralSubject") && !subject.empty()
                           ? asLines(subject)
                           : commonName(context.Username, context.Username) + " is out of the office";
  context.translator->TranslatorLMBCSToUTF8(context.oooSubject);
}

// The message as lines; a stored "(null)" is no message.
void readMessage(IPOOO& context) {
  context.oooMessage.clear();
  if (!hasItem(context.hProfile, "GeneralMessage")) return;
  context.oooMessage = asLines(itemText(context.hProfile, "GeneralMessage"));
  if (context.oooMessage == "(null)") {
    context.oooMessage.clear();
  } else {
    context.translator->TranslatorLMBCSToUTF8(context.oooMessage);
  }
}

void readShowHours(IPOOO& context) {
  context.showHoursText = context.agentMode == 0 ? itemText(context.hProfile, "ShowHours") : std::string();
  context.translator->TranslatorLMBCSToUTF8(context.showHoursText);
}

// The leave and return dates; whatever cannot be read is now.
void readDates(IPOOO& context, const TIMEDATE& now) {
  if (!NSFItemGetTime(context.hProfile, "dateFirstDayOut", &context.firstDayOut)) context.firstDayOut = now;
  if (!NSFItemGetTime(context.hProfile, "StartTime", &context.startTime)) context.startTime = now;
  if (!NSFItemGetTime(context.hProfile, "dateFirstDayBack", &context.firstDayBack)) context.firstDayBack = now;
  if (!NSFItemGetTime(context.hProfile, "EndTime", &context.endTime)) context.endTime = now;
}

// Out from now until the same time tomorrow.
void resetDates(IPOOO& context, const TIMEDATE& now) {
  context.firstDayOut = now;
  context.startTime = now;
  context.firstDayBack = now;
  TimeDateAdjust(&context.firstDayBack, 0, 0, 0, 1, 0, 0);
  context.endTime = context.firstDayBack;
}

// The content is read also from mail databases whose agent cannot be had;
// they read as isAgentEnable does without an agent handle.
int agentEnabled(IPOOO& context) {
  try {
    return context.isAgentEnable(1);
  } catch (const IPException&) {
    return 1;
  }
}

// Switched on in agent mode: on when the administration process enabled the
// agent or the agent is enabled.
void readAgentSwitchedOn(IPOOO& context, const TIMEDATE& now) {
  const std::string adminStatus = itemText(context.hProfile, "AdminP_Status");
  if (strcasecmp(adminStatus.c_str(), "ENABLE") == 0 || agentEnabled(context) != 0) {
    context.oooEnabled = 1;
    return;
  }
  context.oooEnabled = 0;
  // The AdminP_Status text, not TaskState, decides the reset here.
  if (adminStatus.rfind('1', 0) == 0 && context.updateSettings == 0) resetDates(context, now);
}

// Switched on in service mode: on until the return day has passed.
void readServiceSwitchedOn(IPOOO& context, char state, const TIMEDATE& now) {
  if (TimeDateCompare(&context.firstDayBack, &now) < 0) {
    context.oooEnabled = 0;
    if (state == '1' && context.updateSettings == 0) resetDates(context, now);
  } else {
    context.oooEnabled = 1;
  }
}

// Switched off in agent mode: off when the administration process disabled
// the agent or the agent is disabled.
void readAgentSwitchedOff(IPOOO& context, const TIMEDATE& now) {
  const std::string adminStatus = itemText(context.hProfile, "AdminP_Status");
  if (strcasecmp(adminStatus.c_str(), "DISABLE") == 0 || agentEnabled(context) == 0) {
    context.oooEnabled = 0;
    if (adminStatus.rfind('0', 0) == 0) resetDates(context, now);
  } else {
    context.oooEnabled = 1;
  }
}

void readServiceSwitchedOff(IPOOO& context, char state, const TIMEDATE& now) {
  context.oooEnabled = 0;
  if (state == '0' && context.updateSettings == 0) resetDates(context, now);
}

// On or off, from "TaskState"; an unknown state leaves the flag as it was.
void readOnOffState(IPOOO& context, const TIMEDATE& now) {
  const std::string taskState = itemText(context.hProfile, "TaskState");
  const char state = taskState.empty() ? '\0' : taskState[0];
  const bool agentMode = context.agentMode != 0;
  if (taskState.empty()) {
    context.oooEnabled = 0;
  } else if (state == '1' || state == '2') {
    if (agentMode) {
      readAgentSwitchedOn(context, now);
    } else {
      readServiceSwitchedOn(context, state, now);
    }
  } else if (state == '0' || state == '3') {
    if (agentMode) {
      readAgentSwitchedOff(context, now);
    } else {
      readServiceSwitchedOff(context, state, now);
    }
  }
}

// An off state whose dates are both past reports today and tomorrow.
void resetStaleDates(IPOOO& context, const TIMEDATE& now) {
  if (context.oooEnabled == 0 && TimeDateDifference(&context.firstDayBack, &now) < 0 &&
      TimeDateDifference(&context.firstDayOut, &now) < 0) {
    resetDates(context, now);
  }
}

void readOptions(IPOOO& context) {
  const NOTEHANDLE profile = context.hProfile;
  context.appendSubjectPresent = hasItem(profile, "AppendSubject") ? 1 : 0;
  context.appendSubjectFlag =
      context.appendSubjectPresent != 0 && itemText(profile, "AppendSubject").rfind('1', 0) == 0 ? 1 : 0;
  context.excludeInternet = itemText(profile, "ExcludeInternetEmail").rfind('1', 0) == 0 ? 1 : 0;
  context.appendSubjectDateValue = itemText(profile, "AppendSubjectDate");
  if (!context.appendSubjectDateValue.empty())
    context.translator->TranslatorLMBCSToUTF8(context.appendSubjectDateValue);
  context.daysOutValue = itemText(profile, "DaysOut");
  if (!context.daysOutValue.empty()) context.translator->TranslatorLMBCSToUTF8(context.daysOutValue);
}

// The template texts used when the mail template's form cannot compute them.
void setTemplateDefaults(IPOOO& context) {
  context.profileFormName = "Default";
  context.templateDaysOut = kDefaultDaysOut;
  context.templateDaysOutS = kDefaultDaysOutS;
  context.templateDaysOutV = kDefaultDaysOut;
  context.templateAppendSubjectDate = kDefaultAppendSubjectDate;
  context.templateResetSubject = kDefaultResetSubject;
}

// Adds correspondents, abbreviated and as UTF-8, skipping empty entries;
// with once, a name already listed is not added again. Returns the status
// of the last abbreviation, NOERROR when none ran.
STATUS addNotified(IPOOO& context, const std::vector<std::string>& entries, bool once) {
  STATUS status = NOERROR;
  for (const std::string& entry : entries) {
    if (entry.empty()) continue;
    char abbreviated[MAXUSERNAME] = {0};
    status = DNAbbreviate(0, nullptr, entry.c_str(), abbreviated, sizeof abbreviated, nullptr);
    std::string name = abbreviated;
    context.translator->TranslatorLMBCSToUTF8(name);
    std::vector<std::string>& list = context.notifiedList;
    if (once && std::find(list.begin(), list.end(), name) != list.end()) continue;
    list.push_back(name);
  }
  return status;
}

// The entries of the profile's "Notified" list.
std::vector<std::string> profileNotifiedEntries(NOTEHANDLE profile) {
  std::vector<std::string> entries;
  const WORD count = NSFItemGetTextListEntries(profile, "Notified");
  for (WORD i = 0; i < count; ++i) {
    char entry[1024] = {0};
    const WORD length = NSFItemGetTextListEntry(profile, "Notified", i, entry, sizeof entry - 1);
    entries.emplace_back(entry, length < sizeof entry ? length : sizeof entry - 1);
  }
  return entries;
}

// The entries of a locked text or text-list value.
std::vector<std::string> textEntries(const char* bytes, WORD type, DWORD valueLength) {
  std::vector<std::string> entries;
  if (type == TYPE_TEXT) {
    entries.emplace_back(bytes + sizeof(WORD), valueLength - sizeof(WORD));
    return entries;
  }
  const WORD count = ListGetNumEntries(bytes, TRUE);
  for (WORD i = 0; i < count; ++i) {
    char* entry = nullptr;
    WORD entryLength = 0;
    if (ListGetText(bytes, TRUE, i, &entry, &entryLength) == NOERROR) entries.emplace_back(entry, entryLength);
  }
  return entries;
}

// Adds the names of the service profile's "Notified_..." items not listed
// yet. Returns the status that ended the walk over the items.
STATUS addServiceNotified(IPOOO& context) {
  const NOTEHANDLE service = context.hServiceProfile;
  BLOCKID item{};
  WORD type = 0;
  BLOCKID value{};
  DWORD valueLength = 0;
  STATUS walk = NSFItemInfo(service, nullptr, 0, &item, &type, &value, &valueLength);
  while (walk == NOERROR && !ISNULLBLOCKID(item)) {
    char name[256] = {0};
    WORD nameLength = 0;
    NSFItemQuery(service, item, name, sizeof name, &nameLength, nullptr, nullptr, nullptr, nullptr);
    if (isNotifiedItem(name) && (type == TYPE_TEXT_LIST || type == TYPE_TEXT)) {
      const std::vector<std::string> entries = textEntries(OSLockBlock(const char, value), type, valueLength);
      OSUnlockObject(value.pool);
      addNotified(context, entries, true);  // the walk's next call gives the result
    }
    walk = NSFItemInfoNext(service, item, nullptr, 0, &item, &type, &value, &valueLength);
  }
  return walk;
}

// Correspondents already notified: the profile's list as it is, then the
// service's lists without repeating a name. Returns the status of the last
// abbreviation or item-walk call, NOERROR when neither ran.
STATUS readNotifiedList(IPOOO& context) {
  context.notifiedList.clear();
  STATUS result = NOERROR;
  if (hasItem(context.hProfile, "Notified"))
    result = addNotified(context, profileNotifiedEntries(context.hProfile), false);
  if (context.hServiceProfile != NULLHANDLE) result = addServiceNotified(context);
  return result;
}

void convertTemplateTexts(IPOOO& context) {
  context.translator->TranslatorLMBCSToUTF8(context.templateDaysOut);
  context.translator->TranslatorLMBCSToUTF8(context.templateDaysOutS);
  context.translator->TranslatorLMBCSToUTF8(context.templateAppendSubjectDate);
  context.translator->TranslatorLMBCSToUTF8(context.templateResetSubject);
}

}  // namespace

STATUS IPOOO::ProcessFormula(const char* formula, std::string& result) {
  if (hProfile == NULLHANDLE) return NOERROR;
  char text[1024] = {0};
  std::strncpy(text, formula, sizeof text - 1);
  FORMULAHANDLE compiled = NULLHANDLE;
  WORD compiledLength = 0;
  STATUS compileError = NOERROR;
  WORD line = 0, column = 0, offset = 0, length = 0;
  STATUS status = NSFFormulaCompile(nullptr, 0, text, static_cast<WORD>(std::strlen(text)), &compiled, &compiledLength,
                                    &compileError, &line, &column, &offset, &length);
  if (status != NOERROR) return status;

  HCOMPUTE compute = NULLHANDLE;
  status = NSFComputeStart(0, OSLockObject(compiled), &compute);
  if (status == NOERROR) {
    DHANDLE value = NULLHANDLE;
    WORD valueLength = 0;
    status = NSFComputeEvaluate(compute, hProfile, &value, &valueLength, nullptr, nullptr, nullptr);
    if (status == NOERROR) {
      const char* bytes = static_cast<const char*>(OSLockObject(value));
      WORD type = 0;
      std::memcpy(&type, bytes, sizeof type);
      switch (type) {
        case TYPE_TEXT_LIST: {
          // Every entry is assigned in turn: the last one wins.
          const WORD entries = ListGetNumEntries(bytes, TRUE);
          for (WORD i = 0; i < entries; ++i) {
            char* entry = nullptr;
            WORD entryLength = 0;
            if (ListGetText(bytes, TRUE, i, &entry, &entryLength) != NOERROR) continue;
            result.assign(entry, entryLength);
          }
          break;
        }
        case TYPE_NUMBER:
        case TYPE_NUMBER_RANGE:
        case TYPE_TEXT:
        default:
          break;  // only a text list fills the result
      }
      OSUnlockObject(value);
      OSMemFree(value);
    }
    NSFComputeStop(compute);
  }
  OSUnlockObject(compiled);
  OSMemFree(compiled);
  return status;
}

STATUS IPOOO::getOOOContent() {
  readOwnerName(*this);
  readSubject(*this);
  readMessage(*this);
  readShowHours(*this);
  TIMEDATE now{};
  OSCurrentTIMEDATE(&now);
  readDates(*this, now);
  updateSettings = itemText(hProfile, "UpdateSettings").rfind('1', 0) == 0 ? 1 : 0;
  readOnOffState(*this, now);
  resetStaleDates(*this, now);
  readOptions(*this);
  setTemplateDefaults(*this);
  evaluateTemplate(now);
  const STATUS result = readNotifiedList(*this);
  convertTemplateTexts(*this);
  return result;
}

void IPOOO::evaluateTemplate(const TIMEDATE& now) {
  // A profile without "Form" keeps the default texts (the delete fails).
  STATUS status = NSFItemDelete(hProfile, "Form", 4);
  if (status == NOERROR) status = setText(hProfile, "Form", "(Out Of Office Profile)");
  if (status != NOERROR) return;

  if (hasItem(hProfile, "DaysOut")) {
    templateDaysOutV = itemText(hProfile, "DaysOut");
    if (!templateDaysOutV.empty()) translator->TranslatorLMBCSToUTF8(templateDaysOutV);
    if (deleteIfPresent(hProfile, "DaysOut") != NOERROR) return;
  }
  if (deleteAll(hProfile, {"FirstDayOut", "FirstDayBack", "GeneralSubject"}) != NOERROR) return;

  TIMEDATE tomorrow = now;
  TimeDateAdjust(&tomorrow, 0, 0, 0, 1, 0, 0);
  std::string first;
  std::string back;
  if (NSFItemSetTime(hProfile, "FirstDayOut", &now) != NOERROR ||
      NSFItemSetTime(hProfile, "FirstDayBack", &tomorrow) != NOERROR ||
      ProcessFormula("@Text(FirstDayOut;\"T1\")", first) != NOERROR ||
      ProcessFormula("@Text(FirstDayBack;\"T1\")", back) != NOERROR) {
    return;
  }
  const std::string ownerCommon = commonName(ownerName, ownerName);
  auto compute = [this] { return NSFNoteComputeWithForm(hProfile, NULLHANDLE, 0, &IPOOO::CWFCallback, this); };

  if (compute() == NOERROR) {
    // The template computes from the profile's date items.
    if (ProcessFormula("@Text(@Date(dateFirstDayOut))", first) != NOERROR ||
        ProcessFormula("@Text(@Date(dateFirstDayBack))", back) != NOERROR) {
      return;
    }
    templateDaysOut = itemText(hProfile, "DaysOut");
    replaceFirst(templateDaysOut, first, "var_First");
    replaceFirst(templateDaysOut, back, "var_Back");
    templateResetSubject = itemText(hProfile, "GeneralSubject");
    replaceFirst(templateResetSubject, ownerCommon, "var_User");
    templateDaysOutS = templateDaysOut;
    templateAppendSubjectDate.clear();
    return;
  }

  // The template computes from texts: give it the sample dates as text.
  if (deleteAll(hProfile, {"DaysOut", "FirstDayOut", "FirstDayBack", "StartTime", "EndTime", "ShowHours"}) != NOERROR ||
      setText(hProfile, "FirstDayOut", first) != NOERROR || setText(hProfile, "StartTime", first) != NOERROR ||
      setText(hProfile, "FirstDayBack", back) != NOERROR || setText(hProfile, "EndTime", back) != NOERROR ||
      setText(hProfile, "ShowHours", "1") != NOERROR || compute() != NOERROR) {
    return;
  }
  templateDaysOut = itemText(hProfile, "DaysOut");
  replaceFirst(templateDaysOut, first, "var_First");
  replaceFirst(templateDaysOut, back, "var_Back");

  if (deleteAll(hProfile, {"DaysOut", "FirstDayOut", "FirstDayBack", "ShowHours"}) != NOERROR ||
      setText(hProfile, "FirstDayOut", first) != NOERROR || setText(hProfile, "FirstDayBack", back) != NOERROR ||
      ProcessFormula("@Text(dateFirstDayOut;\"S0\")", first) != NOERROR ||
      ProcessFormula("@Text(dateFirstDayBack;\"S0\")", back) != NOERROR || compute() != NOERROR) {
    return;
  }
  templateDaysOutS = itemText(hProfile, "DaysOut");
  replaceFirst(templateDaysOutS, first, "var_First");
  replaceFirst(templateDaysOutS, back, "var_Back");
  templateAppendSubjectDate = itemText(hProfile, "AppendSubjectDate");
  replaceFirst(templateAppendSubjectDate, back, "var_Back");
  templateResetSubject = itemText(hProfile, "GeneralSubject");
  replaceFirst(templateResetSubject, ownerCommon, "var_User");
  if (appendSubjectPresent == 0) templateDaysOut = templateDaysOutS;
}
