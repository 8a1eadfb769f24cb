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
#include <memory>
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
  } catch (const DOMException& e) {
    throw IPException("getOOOInfo", transcoded(e.getMessage()).c_str());
  } catch (...) {
    throw IPException("getOOOInfo", "Unexpected Exception\n");
  }
}

// A new User element and its attributes, set in the order given. Texts of
// the context go through the UTF-8 translator; fixed flags and numbers are
// transcoded directly. The first attribute places User under the root as
// its last child (nothing else is added to the root meanwhile, so it stays
// the last), which is where a failure part way leaves it.
class UserAttributes {
 public:
  UserAttributes(ReplyDocument& reply, DOMElement* root, XMLStringTranslate& utf8)
      : reply_(reply), root_(root), user_(reply.createUser()), utf8_(utf8) {}

  void text(const char* name, const std::string& value) {
    reply_.setAttribute(user_, XStr(name).unicodeForm(), utf8_.translate(value.c_str()));
    place();
  }
  void plain(const char* name, const std::string& value) {
    reply_.setAttribute(user_, XStr(name).unicodeForm(), XStr(value.c_str()).unicodeForm());
    place();
  }
  void flag(const char* name, int on) { plain(name, on != 0 ? "1" : "0"); }
  void optional(const char* name, const std::string& value) {
    if (!value.empty()) text(name, value);
  }
  void textOrEmpty(const char* name, const std::string& value) {
    if (value.empty()) {
      plain(name, "");
    } else {
      text(name, value);
    }
  }
  void dateParts(const char* prefix, const TIMEDATE& when) {
    const LocalParts date = localDate(when);
    plain((std::string(prefix) + "Year").c_str(), number(date.first));
    plain((std::string(prefix) + "Month").c_str(), number(date.second));
    plain((std::string(prefix) + "Day").c_str(), number(date.third));
  }
  void clockParts(const char* prefix, const TIMEDATE& when) {
    const LocalParts clock = localClock(when);
    plain((std::string(prefix) + "Hour").c_str(), number(clock.first));
    plain((std::string(prefix) + "Min").c_str(), number(clock.second));
    plain((std::string(prefix) + "Sec").c_str(), number(clock.third));
  }
  // The element's text: the name of the user it reports.
  void setUserText(const std::string& value) {
    user_->appendChild(reply_.document()->createTextNode(utf8_.translate(value.c_str())));
  }

 private:
  void place() {
    if (placed_) return;
    root_->appendChild(user_);
    placed_ = true;
  }

  ReplyDocument& reply_;
  DOMElement* root_;
  DOMElement* user_;
  XMLStringTranslate& utf8_;
  bool placed_ = false;
};

// Subject, message, mode, on/off state and the options.
void setStateAttributes(UserAttributes& user, const IPOOO& state) {
  user.optional("Subject", state.oooSubject);
  user.textOrEmpty("Message", state.oooMessage);
  user.plain("TaskType", state.agentMode != 0 ? "1" : "2");
  user.flag("OOOEnable", state.oooEnabled);
  if (state.agentMode != 0) {
    user.plain("ShowHours", "0");
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
  user.plain("DateFlag", number(intl.Flags));
  auto intlText = [&](const char* name, const char* value, size_t size) {
    user.textOrEmpty(name, std::string(value, strnlen(value, size)));
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
    appendUserState(reply, reply.root(), true, ownerName.empty() ? std::string("Unknow") : ownerName);
    reply.write();
  });
  errorText = "OK";
  return errorText;
}

void IPOOO::getOOOUserInfo(ReplyDocument& reply, DOMElement* root) {
  errorText.clear();
  std::string name = Username;
  translator->TranslatorLMBCSToUTF8(name);
  reportingToolkitFailures(
      [&] { appendUserState(reply, root, false, ownerName.empty() ? std::string("Unknow") : name); });
}

void IPOOO::appendUserState(ReplyDocument& reply, DOMElement* root, bool withProfileValues,
                            const std::string& userText) {
  INTLFORMAT intl{};
  OSGetIntlSettings(&intl, sizeof intl);
  std::unique_ptr<XMLStringTranslate> ownConverter;
  XMLStringTranslate& utf8 = spareUtf8(ownConverter);
  UserAttributes user(reply, root, utf8);
  setStateAttributes(user, *this);
  setDateAttributes(user, *this);
  setTemplateAttributes(user, *this, withProfileValues);
  setIntlAttributes(user, intl);
  user.text("User_Status", "1");
  user.setUserText(userText);
  user.textOrEmpty("Notified", joined(notifiedList));
  user.text("BuildVersion", "230");
}
