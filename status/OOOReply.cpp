// The reply of an out-of-office query: the OOOReadObject document with one
// User element whose attributes carry the user's state, written over the
// request file. The attributes are set in a fixed order that front ends
// rely on; the set flow writes the same document, and the user status query
// writes one such element per member (without the profile's own DaysOut and
// AppendSubjectDate values).
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "intl.h"
#include "ostime.h"
#include "request/IPOOO.h"
#include "status/ReplyDocument.h"

using namespace xercesc;

namespace {

// The local date or clock parts of a stored time.
struct LocalParts {
  int first = 0, second = 0, third = 0;
};

LocalParts localDate(const TIMEDATE& time) {
  TIME t{};
  t.GM = time;
  if (TimeGMToLocal(&t)) throw IPException("getOOOInfo", "Convert Time error");
  return {t.year, t.month, t.day};
}

LocalParts localClock(const TIMEDATE& time) {
  TIME t{};
  t.GM = time;
  if (TimeGMToLocal(&t)) throw IPException("getOOOInfo", "Convert Time error");
  return {t.hour, t.minute, t.second};
}

std::string number(long value) {
  char text[32];
  std::snprintf(text, sizeof text, "%ld", value);
  return text;
}

// The local code page form of a toolkit message.
std::string transcoded(const XMLCh* message) {
  char* bytes = XMLString::transcode(message);
  std::string text = bytes == nullptr ? "" : bytes;
  XMLString::release(&bytes);
  return text;
}

// Runs a step of the reply; the XML toolkit's failures become an
// IPException of "getOOOInfo", an IPException passes as it is.
template <typename Step>
void reportingToolkitFailures(Step step) {
  try {
    step();
  } catch (const IPException&) {
    throw;
  } catch (const XMLException& e) {
    throw IPException("getOOOInfo", transcoded(e.getMessage()).c_str());
  } catch (...) {
    throw IPException("getOOOInfo", "Unexpected Exception\n");
  }
}

// A new User element, last in the document, and its attributes, set in the
// order given.
class UserAttributes {
 public:
  explicit UserAttributes(ReplyDocument& reply) : reply_(reply), user_(reply.addUser()) {}

  void text(const char* name, const std::string& value) { reply_.setAttribute(user_, name, value.c_str()); }
  void flag(const char* name, int on) { text(name, on != 0 ? "1" : "0"); }
  void optional(const char* name, const std::string& value) {
    if (!value.empty()) text(name, value);
  }
  void dateParts(const char* prefix, const TIMEDATE& when) {
    const LocalParts date = localDate(when);
    text((std::string(prefix) + "Year").c_str(), number(date.first));
    text((std::string(prefix) + "Month").c_str(), number(date.second));
    text((std::string(prefix) + "Day").c_str(), number(date.third));
  }
  void clockParts(const char* prefix, const TIMEDATE& when) {
    const LocalParts clock = localClock(when);
    text((std::string(prefix) + "Hour").c_str(), number(clock.first));
    text((std::string(prefix) + "Min").c_str(), number(clock.second));
    text((std::string(prefix) + "Sec").c_str(), number(clock.third));
  }
  // The element's text: the name of the user it reports.
  void setUserText(const std::string& value) { reply_.setText(user_, value.c_str()); }

 private:
  ReplyDocument& reply_;
  ReplyDocument::User& user_;
};

// Subject, message, mode, on/off state and the options.
void setStateAttributes(UserAttributes& user, const IPOOO& state) {
  user.optional("Subject", state.oooSubject);
  user.text("Message", state.oooMessage);
  user.text("TaskType", state.agentMode != 0 ? "1" : "2");
  user.flag("OOOEnable", state.oooEnabled);
  if (state.agentMode != 0) {
    user.text("ShowHours", "0");
  } else {
    user.text("ShowHours", state.showHoursText);
  }
  user.flag("ASDEnable", state.appendSubjectPresent);
  user.flag("AppendSubject", state.appendSubjectFlag);
  user.flag("InternetAddress", state.excludeInternet);
}

// Leave and return as local dates and clock times.
void setDateAttributes(UserAttributes& user, const IPOOO& state) {
  user.dateParts("StartTime", state.firstDayOut);
  user.clockParts("StartTime", state.startTime);
  user.dateParts("EndTime", state.firstDayBack);
  user.clockParts("EndTime", state.endTime);
}

// The mail template's texts and, withProfileValues, the profile's own.
void setTemplateAttributes(UserAttributes& user, const IPOOO& state, bool withProfileValues) {
  user.optional("DaysOut", state.templateDaysOut);
  user.optional("DaysOut_S", state.templateDaysOutS);
  user.optional("DaysOut_V", state.templateDaysOutV);
  if (withProfileValues) user.optional("DaysOutValue", state.daysOutValue);
  user.optional("AppendSubjectDate", state.templateAppendSubjectDate);
  if (withProfileValues) user.optional("AppendSubjectDateValue", state.appendSubjectDateValue);
  user.optional("ResetSubject", state.templateResetSubject);
}

// The server's date and time formats.
void setIntlAttributes(UserAttributes& user, const INTLFORMAT& intl) {
  user.text("DateFlag", number(intl.Flags));
  auto intlText = [&](const char* name, const char* value, size_t size) {
    user.text(name, std::string(value, strnlen(value, size)));
  };
  intlText("AMString", intl.AMString, sizeof intl.AMString);
  intlText("PMString", intl.PMString, sizeof intl.PMString);
  intlText("DateString", intl.DateString, sizeof intl.DateString);
  intlText("TimeString", intl.TimeString, sizeof intl.TimeString);
}

// The names separated by ";".
std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (size_t i = 0; i < names.size(); ++i) text += (i == 0 ? "" : ";") + names[i];
  return text;
}

}  // namespace

std::string& IPOOO::getOOO(std::string& replyPath) {
  errorText = "OK";
  getOOOProfile(1);
  getOOOType();
  getOOOContent();
  errorText = getOOOInfo(replyPath);
  return errorText;
}

std::string& IPOOO::getOOOInfo(std::string& replyPath) {
  errorText.clear();
  reportingToolkitFailures([&] {
    ReplyDocument reply(openRequestFile(replyPath));
    appendUserState(reply, true, ownerName.empty() ? std::string("Unknow") : ownerName);
    reply.write();
  });
  errorText = "OK";
  return errorText;
}

void IPOOO::getOOOUserInfo(ReplyDocument& reply) {
  errorText.clear();
  std::string name = Username;
  translator->TranslatorLMBCSToUTF8(name);
  reportingToolkitFailures(
      [&] { appendUserState(reply, false, ownerName.empty() ? std::string("Unknow") : name); });
}

void IPOOO::appendUserState(ReplyDocument& reply, bool withProfileValues, const std::string& userText) {
  INTLFORMAT intl{};
  OSGetIntlSettings(&intl, sizeof intl);
  UserAttributes user(reply);
  setStateAttributes(user, *this);
  setDateAttributes(user, *this);
  setTemplateAttributes(user, *this, withProfileValues);
  setIntlAttributes(user, intl);
  user.text("User_Status", "1");
  user.setUserText(userText);
  user.text("Notified", joined(notifiedList));
  user.text("BuildVersion", "230");
}
