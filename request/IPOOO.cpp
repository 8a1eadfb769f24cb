// The request context: construction, reset, the processing frames and the
// reply hand-off. The request document parser is in RequestParser.cpp.
#include "request/IPOOO.h"

#include <xercesc/util/PlatformUtils.hpp>
#include <xercesc/util/XMLException.hpp>


#include "dname.h"
#include "mq.h"
#include "nsfdb.h"
#include "nsfnote.h"
#include "osmisc.h"
#include "request/RequestTools.h"
#include "request/TaskLog.h"

using namespace xercesc;

namespace {

// The request actions of plain requests, by Action. An entry without an
// operation is an action this task cannot carry out yet (the query, the set
// flow and the user status are added here as they are built): such a request
// is answered like one with an unknown Action, with no reply and no log line.
struct RequestAction {
  WORD action;
  std::string& (IPOOO::*run)(std::string& path);
  const char* logFormat;  // the abbreviated Username, then (status) QueryUser
};

const RequestAction kRequestActions[] = {
    {IPOOO::kActionSet, &IPOOO::setOOO, "[%s] OutOfOfficeProfile has been updated."},
    {IPOOO::kActionUserStatus, &IPOOO::getUserStatus, "[%s] OutOfOfficeProfile has been queried by [%s]."},
    {IPOOO::kActionQuery, &IPOOO::getOOO, "[%s] OutOfOfficeProfile has been read."},
};

const RequestAction* actionFor(WORD action) {
  for (const RequestAction& entry : kRequestActions) {
    if (entry.action == action) return entry.run != nullptr ? &entry : nullptr;
  }
  return nullptr;
}

std::string formatLine(const char* format, const char* first, const char* second) {
  char line[1024];
  std::snprintf(line, sizeof line, format, first, second);
  return line;
}

}  // namespace

IPOOO::IPOOO() {
  takeToolkitUse();
  translator = new XMLStringTranslate("utf-8");
  parser = new XercesDOMParser();
  reset(1);
}

IPOOO::IPOOO(RequestTools& tools) : borrowed_(&tools) {
  translator = &tools.translator();
  parser = &tools.parser();
  reset(1);
}

IPOOO::~IPOOO() {
  if (borrowed_ != nullptr) {
    // The parsed request goes with the request, as with a parser of its own.
    parser->resetDocumentPool();
    return;
  }
  delete parser;
  parser = nullptr;
  delete translator;
  translator = nullptr;
  giveBackToolkitUse();
}

std::string IPOOO::utf8Of(const XMLCh* text) {
  if (borrowed_ != nullptr) return borrowed_->utf8().translate(text);
  XMLStringTranslate own("UTF-8");
  return own.translate(text);
}

void IPOOO::reset(int clearRequest) {
  if (hAgent != NULLHANDLE) {
    AgentClose(hAgent);
    hAgent = NULLHANDLE;
  }
  if (hProfile != NULLHANDLE) {
    NSFNoteClose(hProfile);
    hProfile = NULLHANDLE;
  }
  if (hServiceProfile != NULLHANDLE) {
    NSFNoteClose(hServiceProfile);
    hServiceProfile = NULLHANDLE;
  }
  if (hMailDb != NULLHANDLE) {
    NSFDbClose(hMailDb);
    hMailDb = NULLHANDLE;
  }
  if (clearRequest == 0) return;
  requestFile.close();
  OOOEnable = false;
  AppendSubjectDate.clear();
  DaysOut.clear();
  MailBox.clear();
  MailServer.clear();
  MQName.clear();
  Message.clear();
  Username.clear();
  QueryUser.clear();
  LoginServer.clear();
  LoginName.clear();
}

std::string IPOOO::getErrorMsg(STATUS status) {
  char text[256] = {0};
  OSLoadString(NULLHANDLE, static_cast<STATUS>(status & ERR_MASK), text, sizeof text);
  return text;
}

WORD LNCALLBACK IPOOO::CWFCallback(const void*, WORD, STATUS, HANDLE, WORD, void*) { return 0; }

void IPOOO::sendMQMessage(std::string& text) {
  MQHANDLE queue = NULLHANDLE;
  if (MQOpen(MQName.c_str(), 0, &queue) != NOERROR) return;
  MQPut(queue, 0, text.data(), static_cast<WORD>(text.size()), 0);
  MQClose(queue, 0);
}

RequestFile& IPOOO::openRequestFile(const std::string& path) {
  if (requestFile.isOpen() && requestFile.path() == path) return requestFile;
  requestFile = RequestFile::open(path, RequestFilePolicy::fromEnvironment());
  const std::string why = requestFile.refusalText();
  if (!why.empty()) {
    std::string shown = path;  // a message cannot add lines of its own to the log
    for (char& c : shown) {
      if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) c = '?';
    }
    taskLog("Request file refused: " + shown + ": " + why);
  }
  return requestFile;
}

void IPOOO::processMsg(std::string& path) {
  TextRequestScope textScope(Username, path);
  try {
    if (!openRequestFile(path).isOpen()) return;
    if (xmlParser(path) == 0) return;
    if (MQName.empty()) return;

    // The abbreviated names are what the log lines show; a name the
    // platform cannot abbreviate is answered with the platform's text.
    auto abbreviate = [this](const std::string& name, char* out) {
      STATUS status = DNAbbreviate(0, nullptr, name.c_str(), out, MAXUSERNAME, nullptr);
      if (status == NOERROR) return true;
      std::string text = getErrorMsg(status);
      taskLog(text);
      replyText = text;
      sendMQMessage(replyText);
      return false;
    };
    char user[MAXUSERNAME] = {0};
    char queryUser[MAXUSERNAME] = {0};
    if (!abbreviate(Username, user)) return;

    const RequestAction* action = actionFor(Action);
    if (action == nullptr) return;
    if (Action == kActionUserStatus && !abbreviate(QueryUser, queryUser)) return;
    std::string reply = (this->*(action->run))(path);
    sendMQMessage(reply);
    taskLog(formatLine(action->logFormat, user, queryUser));
  } catch (const IPException& e) {
    if (!MQName.empty()) {
      replyText = e.show();
      sendMQMessage(replyText);
    }
  }
}

// The page builders (the web page, the phone page, the iOS installation
// page) write their page over the request file and return the text to send.
void IPOOO::processPageRequest(PageBuilder builder, std::string& path, char* directory, std::string& reservedText,
                               std::string& serverURL, std::string& extra) {
  TextRequestScope textScope(Username, path);
  try {
    if (!openRequestFile(path).isOpen()) return;
    if (xmlParser(path) == 0) return;
    if (MQName.empty()) return;
    std::string reply = (this->*builder)(path, directory, reservedText, serverURL, extra);
    sendMQMessage(reply);
  } catch (const IPException& e) {
    if (!MQName.empty()) {
      replyText = e.show();
      sendMQMessage(replyText);
    }
  }
}

void IPOOO::processRequestMsg(std::string& path, char* directory, std::string& reservedText, std::string& serverURL,
                              std::string& connectParams) {
  processPageRequest(&IPOOO::getRequestOOO, path, directory, reservedText, serverURL, connectParams);
}

void IPOOO::processRequestMobileMsg(std::string& path, char* directory, std::string& reservedText,
                                    std::string& serverURL, std::string& connectParams) {
  processPageRequest(&IPOOO::getRequestMobileOOO, path, directory, reservedText, serverURL, connectParams);
}

void IPOOO::processRequestInstallIOSMsg(std::string& path, char* directory, std::string& reservedText,
                                        std::string& serverURL, std::string& installIOSText) {
  processPageRequest(&IPOOO::getRequestMobileInstallIOS, path, directory, reservedText, serverURL, installIOSText);
}
