// The reply of an out-of-office query: the OOOReadObject document with one
// User element whose attributes carry the user's state, written over the
// request file. The attributes are set in a fixed order that front ends
// rely on; the set flow writes the same document, and the user status query
// writes one such element per member (without the profile's own DaysOut and
// AppendSubjectDate values).
#include <xercesc/dom/DOM.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include <cstdio>
#include <cstring>
#include <string>

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
  try {
    ReplyDocument reply(openRequestFile(replyPath));
    appendUserState(reply, reply.root(), true, ownerName.empty() ? std::string("Unknow") : ownerName);
    reply.write();
  } catch (const IPException&) {
    throw;
  } catch (const XMLException& e) {
    throw IPException("getOOOInfo", transcoded(e.getMessage()).c_str());
  } catch (const DOMException& e) {
    throw IPException("getOOOInfo", transcoded(e.getMessage()).c_str());
  } catch (...) {
    throw IPException("getOOOInfo", "Unexpected Exception\n");
  }
  errorText = "OK";
  return errorText;
}

void IPOOO::getOOOUserInfo(ReplyDocument& reply, DOMElement* root) {
  errorText.clear();
  std::string name = Username;
  translator->TranslatorLMBCSToUTF8(name);
  try {
    appendUserState(reply, root, false, ownerName.empty() ? std::string("Unknow") : name);
  } catch (const IPException&) {
    throw;
  } catch (const XMLException& e) {
    throw IPException("getOOOInfo", transcoded(e.getMessage()).c_str());
  } catch (const DOMException& e) {
    throw IPException("getOOOInfo", transcoded(e.getMessage()).c_str());
  } catch (...) {
    throw IPException("getOOOInfo", "Unexpected Exception\n");
  }
}

void IPOOO::appendUserState(ReplyDocument& reply, DOMElement* root, bool withProfileValues,
                            const std::string& userText) {
  INTLFORMAT intl{};
  OSGetIntlSettings(&intl, sizeof intl);
  XMLStringTranslate utf8("utf-8");
  DOMElement* user = reply.createUser();

  // Texts of the context go through the UTF-8 translator; fixed flags and
  // numbers are transcoded directly. Each attribute places User under the
  // root again, which leaves it the root's last child.
  auto text = [&](const char* name, const std::string& value) {
    reply.setAttribute(user, XStr(name).unicodeForm(), utf8.translate(value.c_str()));
    root->appendChild(user);
  };
  auto plain = [&](const char* name, const std::string& value) {
    reply.setAttribute(user, XStr(name).unicodeForm(), XStr(value.c_str()).unicodeForm());
    root->appendChild(user);
  };
  auto flag = [&](const char* name, int on) { plain(name, on != 0 ? "1" : "0"); };
  auto optional = [&](const char* name, const std::string& value) {
    if (!value.empty()) text(name, value);
  };
  auto textOrEmpty = [&](const char* name, const std::string& value) {
    if (value.empty()) {
      plain(name, "");
    } else {
      text(name, value);
    }
  };
  auto dateParts = [&](const char* prefix, const TIMEDATE& when) {
    const LocalParts date = localDate(when);
    plain((std::string(prefix) + "Year").c_str(), number(date.first));
    plain((std::string(prefix) + "Month").c_str(), number(date.second));
    plain((std::string(prefix) + "Day").c_str(), number(date.third));
  };
  auto clockParts = [&](const char* prefix, const TIMEDATE& when) {
    const LocalParts clock = localClock(when);
    plain((std::string(prefix) + "Hour").c_str(), number(clock.first));
    plain((std::string(prefix) + "Min").c_str(), number(clock.second));
    plain((std::string(prefix) + "Sec").c_str(), number(clock.third));
  };

  optional("Subject", oooSubject);
  textOrEmpty("Message", oooMessage);
  plain("TaskType", agentMode != 0 ? "1" : "2");
  flag("OOOEnable", oooEnabled);
  if (agentMode != 0) {
    plain("ShowHours", "0");
  } else {
    text("ShowHours", showHoursText);
  }
  flag("ASDEnable", appendSubjectPresent);
  flag("AppendSubject", appendSubjectFlag);
  flag("InternetAddress", excludeInternet);
  dateParts("StartTime", firstDayOut);
  clockParts("StartTime", startTime);
  dateParts("EndTime", firstDayBack);
  clockParts("EndTime", endTime);

  optional("DaysOut", templateDaysOut);
  optional("DaysOut_S", templateDaysOutS);
  optional("DaysOut_V", templateDaysOutV);
  if (withProfileValues) optional("DaysOutValue", daysOutValue);
  optional("AppendSubjectDate", templateAppendSubjectDate);
  if (withProfileValues) optional("AppendSubjectDateValue", appendSubjectDateValue);
  optional("ResetSubject", templateResetSubject);

  plain("DateFlag", number(intl.Flags));
  auto intlText = [&](const char* name, const char* value, size_t size) {
    textOrEmpty(name, std::string(value, strnlen(value, size)));
  };
  intlText("AMString", intl.AMString, sizeof intl.AMString);
  intlText("PMString", intl.PMString, sizeof intl.PMString);
  intlText("DateString", intl.DateString, sizeof intl.DateString);
  intlText("TimeString", intl.TimeString, sizeof intl.TimeString);
  text("User_Status", "1");

  user->appendChild(reply.document()->createTextNode(utf8.translate(userText.c_str())));

  std::string notified;
  for (size_t i = 0; i < notifiedList.size(); ++i) notified += (i == 0 ? "" : ";") + notifiedList[i];
  textOrEmpty("Notified", notified);
  text("BuildVersion", "230");
}
