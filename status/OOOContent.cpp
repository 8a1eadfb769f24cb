// Reading one user's out-of-office state from the open profiles into the
// request context, and the texts the user's mail template would put into the
// automatic reply. The template texts are computed by the mail database's own
// "(Out Of Office Profile)" form on the profile note with sample dates, then
// the sample dates and the owner's name are replaced by the placeholders
// var_First, var_Back and var_User so that a front end can fill in its own.
// The profile note is changed in memory only and never saved here.
#include <cstring>
#include <string>

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

// The common name of a distinguished name (empty when it has none); the
// whole name when it does not parse.
std::string commonName(const std::string& name) {
  DN_COMPONENTS parts{};
  if (DNParse(0, nullptr, name.c_str(), &parts, sizeof parts) != NOERROR) return name;
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
  STATUS result = NOERROR;

  // Owner, subject, message.
  const std::string owner = itemText(hProfile, "$Owner");
  if (owner.empty()) {
    ownerName = Username;
  } else {
    DN_COMPONENTS parts{};
    if (DNParse(0, nullptr, owner.c_str(), &parts, sizeof parts) != NOERROR) {
      ownerName = Username;
    } else {
      ownerName = parts.CN == nullptr ? std::string() : std::string(parts.CN, parts.CNLength);
    }
  }
  translator->TranslatorLMBCSToUTF8(ownerName);

  const std::string subject = itemText(hProfile, "GeneralSubject");
  oooSubject = hasItem(hProfile, "GeneralSubject") && !subject.empty() ? asLines(subject)
                                                                       : commonName(Username) + " is out of the office";
  translator->TranslatorLMBCSToUTF8(oooSubject);

  oooMessage.clear();
  if (hasItem(hProfile, "GeneralMessage")) {
    oooMessage = asLines(itemText(hProfile, "GeneralMessage"));
    if (oooMessage == "(null)") {
      oooMessage.clear();
    } else {
      translator->TranslatorLMBCSToUTF8(oooMessage);
    }
  }
  showHoursText = agentMode == 0 ? itemText(hProfile, "ShowHours") : std::string();
  translator->TranslatorLMBCSToUTF8(showHoursText);

  // Dates; whatever cannot be read is now.
  TIMEDATE now{};
  OSCurrentTIMEDATE(&now);
  if (!NSFItemGetTime(hProfile, "dateFirstDayOut", &firstDayOut)) firstDayOut = now;
  if (!NSFItemGetTime(hProfile, "StartTime", &startTime)) startTime = now;
  if (!NSFItemGetTime(hProfile, "dateFirstDayBack", &firstDayBack)) firstDayBack = now;
  if (!NSFItemGetTime(hProfile, "EndTime", &endTime)) endTime = now;
  auto resetDates = [&] {
    firstDayOut = now;
    startTime = now;
    firstDayBack = now;
    TimeDateAdjust(&firstDayBack, 0, 0, 0, 1, 0, 0);
    endTime = firstDayBack;
  };
  updateSettings = itemText(hProfile, "UpdateSettings").rfind('1', 0) == 0 ? 1 : 0;

  // On or off. The content is read also from mail databases whose agent
  // cannot be had; they read as isAgentEnable does without an agent handle.
  auto agentEnabled = [this] {
    try {
      return isAgentEnable(1);
    } catch (const IPException&) {
      return 1;
    }
  };
  const std::string taskState = itemText(hProfile, "TaskState");
  const char state = taskState.empty() ? '\0' : taskState[0];
  if (taskState.empty()) {
    oooEnabled = 0;
  } else if (state == '1' || state == '2') {
    if (agentMode != 0) {
      const std::string adminStatus = itemText(hProfile, "AdminP_Status");
      if (strcasecmp(adminStatus.c_str(), "ENABLE") == 0 || agentEnabled() != 0) {
        oooEnabled = 1;
      } else {
        oooEnabled = 0;
        // The AdminP_Status text, not TaskState, decides the reset here.
        if (adminStatus.rfind('1', 0) == 0 && updateSettings == 0) resetDates();
      }
    } else if (TimeDateCompare(&firstDayBack, &now) < 0) {
      oooEnabled = 0;
      if (state == '1' && updateSettings == 0) resetDates();
    } else {
      oooEnabled = 1;
    }
  } else if (state == '0' || state == '3') {
    if (agentMode != 0) {
      const std::string adminStatus = itemText(hProfile, "AdminP_Status");
      if (strcasecmp(adminStatus.c_str(), "DISABLE") == 0 || agentEnabled() == 0) {
        oooEnabled = 0;
        if (adminStatus.rfind('0', 0) == 0) resetDates();
      } else {
        oooEnabled = 1;
      }
    } else {
      oooEnabled = 0;
      if (state == '0' && updateSettings == 0) resetDates();
    }
  }
  // An off state whose dates are both past reports today and tomorrow.
  if (oooEnabled == 0 && TimeDateDifference(&firstDayBack, &now) < 0 && TimeDateDifference(&firstDayOut, &now) < 0) {
    resetDates();
  }

  // Options.
  appendSubjectPresent = hasItem(hProfile, "AppendSubject") ? 1 : 0;
  appendSubjectFlag = appendSubjectPresent != 0 && itemText(hProfile, "AppendSubject").rfind('1', 0) == 0 ? 1 : 0;
  excludeInternet = itemText(hProfile, "ExcludeInternetEmail").rfind('1', 0) == 0 ? 1 : 0;
  appendSubjectDateValue = itemText(hProfile, "AppendSubjectDate");
  if (!appendSubjectDateValue.empty()) translator->TranslatorLMBCSToUTF8(appendSubjectDateValue);
  daysOutValue = itemText(hProfile, "DaysOut");
  if (!daysOutValue.empty()) translator->TranslatorLMBCSToUTF8(daysOutValue);

  // Template texts: defaults, then what the mail template's form computes.
  profileFormName = "Default";
  templateDaysOut = kDefaultDaysOut;
  templateDaysOutS = kDefaultDaysOutS;
  templateDaysOutV = kDefaultDaysOut;
  templateAppendSubjectDate = kDefaultAppendSubjectDate;
  templateResetSubject = kDefaultResetSubject;
  evaluateTemplate(now);

  // Correspondents already notified: the profile's list as it is, then the
  // service's lists without repeating a name.
  notifiedList.clear();
  if (hasItem(hProfile, "Notified")) {
    const WORD entries = NSFItemGetTextListEntries(hProfile, "Notified");
    for (WORD i = 0; i < entries; ++i) {
      char entry[1024] = {0};
      const WORD length = NSFItemGetTextListEntry(hProfile, "Notified", i, entry, sizeof entry - 1);
      if (length == 0) continue;
      char abbreviated[MAXUSERNAME] = {0};
      result = DNAbbreviate(0, nullptr, entry, abbreviated, sizeof abbreviated, nullptr);
      std::string name = abbreviated;
      translator->TranslatorLMBCSToUTF8(name);
      notifiedList.push_back(name);
    }
  }
  if (hServiceProfile != NULLHANDLE) {
    BLOCKID item{};
    WORD type = 0;
    BLOCKID value{};
    DWORD valueLength = 0;
    result = NSFItemInfo(hServiceProfile, nullptr, 0, &item, &type, &value, &valueLength);
    while (result == NOERROR && !ISNULLBLOCKID(item)) {
      char name[256] = {0};
      WORD nameLength = 0;
      NSFItemQuery(hServiceProfile, item, name, sizeof name, &nameLength, nullptr, nullptr, nullptr, nullptr);
      if (isNotifiedItem(name) && (type == TYPE_TEXT_LIST || type == TYPE_TEXT)) {
        std::vector<std::string> entries;
        const char* bytes = OSLockBlock(const char, value);
        if (type == TYPE_TEXT) {
          entries.emplace_back(bytes + sizeof(WORD), valueLength - sizeof(WORD));
        } else {
          const WORD count = ListGetNumEntries(bytes, TRUE);
          for (WORD i = 0; i < count; ++i) {
            char* entry = nullptr;
            WORD entryLength = 0;
            if (ListGetText(bytes, TRUE, i, &entry, &entryLength) == NOERROR) entries.emplace_back(entry, entryLength);
          }
        }
        OSUnlockObject(value.pool);
        for (const std::string& entry : entries) {
          if (entry.empty()) continue;
          char abbreviated[MAXUSERNAME] = {0};
          // The walk's next call, not this one, gives the result here.
          DNAbbreviate(0, nullptr, entry.c_str(), abbreviated, sizeof abbreviated, nullptr);
          std::string text = abbreviated;
          translator->TranslatorLMBCSToUTF8(text);
          bool known = false;
          for (const std::string& listed : notifiedList) known = known || listed == text;
          if (!known) notifiedList.push_back(text);
        }
      }
      result = NSFItemInfoNext(hServiceProfile, item, nullptr, 0, &item, &type, &value, &valueLength);
    }
  }

  translator->TranslatorLMBCSToUTF8(templateDaysOut);
  translator->TranslatorLMBCSToUTF8(templateDaysOutS);
  translator->TranslatorLMBCSToUTF8(templateAppendSubjectDate);
  translator->TranslatorLMBCSToUTF8(templateResetSubject);
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
  const std::string ownerCommon = commonName(ownerName);
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
