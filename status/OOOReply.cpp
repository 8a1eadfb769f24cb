// The reply of an out-of-office query: the OOOReadObject document with one
// User element whose attributes carry the user's state, written over the
// request file. The attributes are set in a fixed order that front ends
// rely on; the set flow and the user status query write the same document.
#include <xercesc/dom/DOM.hpp>
#include <xercesc/framework/LocalFileFormatTarget.hpp>
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include <cstdio>
#include <memory>
#include <string>

#include "intl.h"
#include "ostime.h"
#include "request/IPOOO.h"

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
  INTLFORMAT intl{};
  OSGetIntlSettings(&intl, sizeof intl);
  XMLStringTranslate utf8("utf-8");
  DOMDocument* document = nullptr;
  DOMLSSerializer* writer = nullptr;
  DOMLSOutput* output = nullptr;
  std::unique_ptr<LocalFileFormatTarget> target;
  auto release = [&] {
    if (document != nullptr) document->release();
    if (writer != nullptr) writer->release();
    if (output != nullptr) output->release();
    document = nullptr;
    writer = nullptr;
    output = nullptr;
  };
  try {
    DOMImplementation* implementation = DOMImplementationRegistry::getDOMImplementation(XStr("LS").unicodeForm());
    writer = static_cast<DOMImplementationLS*>(implementation)->createLSSerializer();
    output = static_cast<DOMImplementationLS*>(implementation)->createLSOutput();
    target = std::make_unique<LocalFileFormatTarget>(replyPath.c_str());
    document = implementation->createDocument(nullptr, XStr("OOOReadObject").unicodeForm(), nullptr);
    output->setEncoding(XStr("UTF-8").unicodeForm());
    DOMElement* root = document->getDocumentElement();
    DOMElement* user = document->createElement(XStr("User").unicodeForm());

    // Texts of the context go through the UTF-8 translator; fixed flags and
    // numbers are transcoded directly.
    auto text = [&](const char* name, const std::string& value) {
      user->setAttribute(XStr(name).unicodeForm(), utf8.translate(value.c_str()));
      root->appendChild(user);
    };
    auto plain = [&](const char* name, const std::string& value) {
      user->setAttribute(XStr(name).unicodeForm(), XStr(value.c_str()).unicodeForm());
      root->appendChild(user);
    };
    auto flag = [&](const char* name, int on) { plain(name, on != 0 ? "1" : "0"); };
    auto optional = [&](const char* name, const std::string& value) {
      if (!value.empty()) text(name, value);
    };

    optional("Subject", oooSubject);
    if (oooMessage.empty()) {
      plain("Message", "");
    } else {
      text("Message", oooMessage);
    }
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

    const LocalParts startDate = localDate(firstDayOut);
    plain("StartTimeYear", number(startDate.first));
    plain("StartTimeMonth", number(startDate.second));
    plain("StartTimeDay", number(startDate.third));
    const LocalParts startClock = localClock(startTime);
    plain("StartTimeHour", number(startClock.first));
    plain("StartTimeMin", number(startClock.second));
    plain("StartTimeSec", number(startClock.third));
    const LocalParts endDate = localDate(firstDayBack);
    plain("EndTimeYear", number(endDate.first));
    plain("EndTimeMonth", number(endDate.second));
    plain("EndTimeDay", number(endDate.third));
    const LocalParts endClock = localClock(endTime);
    plain("EndTimeHour", number(endClock.first));
    plain("EndTimeMin", number(endClock.second));
    plain("EndTimeSec", number(endClock.third));

    optional("DaysOut", templateDaysOut);
    optional("DaysOut_S", templateDaysOutS);
    optional("DaysOut_V", templateDaysOutV);
    optional("DaysOutValue", daysOutValue);
    optional("AppendSubjectDate", templateAppendSubjectDate);
    optional("AppendSubjectDateValue", appendSubjectDateValue);
    optional("ResetSubject", templateResetSubject);

    char flags[16];
    std::snprintf(flags, sizeof flags, "%u", static_cast<unsigned>(intl.Flags));
    plain("DateFlag", flags);
    auto intlText = [&](const char* name, const char* value, size_t size) {
      const std::string bounded(value, strnlen(value, size));
      if (bounded.empty()) {
        plain(name, "");
      } else {
        text(name, bounded);
      }
    };
    intlText("AMString", intl.AMString, sizeof intl.AMString);
    intlText("PMString", intl.PMString, sizeof intl.PMString);
    intlText("DateString", intl.DateString, sizeof intl.DateString);
    intlText("TimeString", intl.TimeString, sizeof intl.TimeString);
    text("User_Status", "1");

    user->appendChild(document->createTextNode(
        ownerName.empty() ? XStr("Unknow").unicodeForm() : utf8.translate(ownerName.c_str())));

    std::string notified;
    for (size_t i = 0; i < notifiedList.size(); ++i) notified += (i == 0 ? "" : ";") + notifiedList[i];
    if (notified.empty()) {
      plain("Notified", "");
    } else {
      text("Notified", notified);
    }
    text("BuildVersion", "230");

    output->setByteStream(target.get());
    writer->write(document, output);
    release();
    target->flush();
    target.reset();
  } catch (const IPException&) {
    release();
    throw;
  } catch (const XMLException& e) {
    release();
    char* message = XMLString::transcode(e.getMessage());
    IPException error("getOOOInfo", message);
    XMLString::release(&message);
    throw error;
  } catch (const DOMException& e) {
    release();
    char* message = XMLString::transcode(e.getMessage());
    IPException error("getOOOInfo", message);
    XMLString::release(&message);
    throw error;
  } catch (...) {
    release();
    throw IPException("getOOOInfo", "Unexpected Exception\n");
  }
  errorText = "OK";
  return errorText;
}
