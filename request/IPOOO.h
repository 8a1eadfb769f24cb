// IPOOO: the context of one request.
//
// A worker thread builds one context, runs exactly one processing frame on
// the message it was given (processMsg for a plain request, the three
// processRequest*Msg frames for page requests), resets it with reset(1) and
// destroys it. The context holds the values parsed from the request document
// (named after the document's element and attribute names), the platform
// handles opened while the request runs, the XML parser and text converter,
// and the reply being built.
//
// Ownership: every handle in the context was opened by the context and is
// closed by reset(); the operations that open them may rely on reset to close
// them on every path, also after an exception.
//
// Failures inside a request are IPException; the frames catch them and send
// show() back to the reply queue named by MQName, so a failing request never
// ends the task. getErrorMsg gives the platform's text of a STATUS, which is
// what operations put into the IPException they raise.
//
// Threads: a context belongs to one thread. Constructing one takes a use of
// the XML toolkit (initialising it on the first use in the process) and
// destroying it gives that use back (terminating the toolkit with the last);
// a context built on a worker's RequestTools uses theirs instead.
#ifndef TARNWICK_REQUEST_IPOOO_H
#define TARNWICK_REQUEST_IPOOO_H

#include <xercesc/dom/DOMElement.hpp>
#include <xercesc/dom/DOMNode.hpp>
#include <xercesc/parsers/XercesDOMParser.hpp>

#include <memory>
#include <string>
#include <vector>

#include "agents.h"
#include "global.h"
#include "ostime.h"
#include "request/IPException.h"
#include "request/RequestFile.h"
#include "request/XMLStringTranslate.h"
#include "status/OOOUserInfo.h"

class ReplyDocument;
class RequestTools;

class IPOOO {
 public:
  IPOOO();
  // A context that works with tools lent by its worker thread instead of
  // building its own; it must end before tools does.
  explicit IPOOO(RequestTools& tools);
  virtual ~IPOOO();
  IPOOO(const IPOOO&) = delete;
  IPOOO& operator=(const IPOOO&) = delete;

  // Closes what the request opened (agent, profile note, service profile
  // note, mail database, in that order), each only if open. With clearRequest
  // non-zero, also empties the request's texts, clears OOOEnable and closes
  // the request file.
  void reset(int clearRequest);

  // Whether the request may ask the server's out-of-office service interface
  // for the mail database's mode.
  void useOOOAPI(int useApi) { useAPI = useApi; }

  // The platform's text of a status (the flag bits are ignored).
  std::string getErrorMsg(STATUS status);

  // Processing frames. Each opens the request file (openRequestFile), parses
  // it and answers on the reply queue MQName; a missing or refused file, a
  // document the parser rejects or a request without MQName get no reply.
  void processMsg(std::string& path);
  void processRequestMsg(std::string& path, char* directory, std::string& reservedText, std::string& serverURL,
                         std::string& connectParams);
  void processRequestMobileMsg(std::string& path, char* directory, std::string& reservedText,
                               std::string& serverURL, std::string& connectParams);
  void processRequestInstallIOSMsg(std::string& path, char* directory, std::string& reservedText,
                                   std::string& serverURL, std::string& installIOSText);

  // Puts text on the reply queue MQName as one message (no terminator; the
  // length is the text's length cut to 16 bits). A queue that cannot be
  // opened loses the reply silently.
  void sendMQMessage(std::string& text);

  // The request file at path, opened under the server's request-file policy
  // (RequestFile) once per request: the parser reads it and the reply
  // writers write through it. A refused path is logged once and gives a
  // closed file, which the callers treat as a missing one.
  RequestFile& openRequestFile(const std::string& path);

  // Parses the request document at path into this context. Returns non-zero
  // when the document was parsed and walked; raises IPException from
  // "xmlParser" for an empty document or a toolkit error.
  int xmlParser(std::string& path);
  // Stores the values of every Username element at and below node.
  void receiveElements(xercesc::DOMNode* node);

  // --- Mail database and profile access (engine/) ------------------------
  // Opens the mail database and the "OutOfOfficeProfile" and
  // "OOServiceProfile" profiles; an unreachable mail server is replaced by
  // the first other server of its cluster that serves the mail file (which
  // then becomes MailServer). Raises when raiseOnFailure, else returns the
  // status.
  STATUS getOOOProfile(int raiseOnFailure);
  // getOOOProfile's mail database part: the profiles are opened only
  // withProfiles, or when a server of the cluster stands in for the mail
  // server (it is taken only when they open). Returns the status.
  STATUS openMailDatabase(bool withProfiles);
  // The servers of the cluster that serverName belongs to, in directory order.
  WORD get_server_cluster(const char* serverName, std::vector<std::string>& servers);
  // 1 agent mode, 0 service mode; also stored in agentMode.
  int getOOOType();
  // Option codes of SetOptionField.
  static constexpr WORD kOptionZero = 0;
  static constexpr WORD kOptionOne = 1;
  static constexpr WORD kOptionDelete = 2;
  static constexpr WORD kOptionEmpty = 3;
  int SetOptionField(const char* itemName, WORD option);
  int SaveOOOProfile(int deleteForm);
  int SetSaveOptions(double value);
  DWORD IsServiceEnabled();
  int PostOpen();

  // --- Agent mode (engine/) ----------------------------------------------
  int getAgent(int reopen);
  int isAgentEnable(int reopen);
  int isAgentActivation();
  int setAgentEnable(int enable);
  int EnableAgent();
  int DisableAgent();
  int SetTaskState(WORD value);
  int SetTaskType(WORD value);

  // --- Set flow (engine/SetFlow.cpp) ----------------------------------------
  // Carries out a set request on the user's mail database and writes the new
  // state as the reply document at replyPath. Returns the error text ("OK").
  std::string& setOOO(std::string& replyPath);
  // Writes the request's values into the open profile (in memory); sets
  // alreadyOff when a disable request finds "TaskState" already "0".
  int setOOOContent();
  // Loads the profile's "ShowHours" into ShowHours.
  void getShowHours();
  // The reply of a service-mode switch that did not take.
  static constexpr char kServerNotResponding[] = "The server is not responding. Please try setting Out of Office again.";

  // --- Service mode (engine/ServiceMode.cpp) -------------------------------
  // Marks the mail database for the server's out-of-office service and the
  // profile as on; saves the profile. 0 when the database did not become
  // enabled.
  DWORD EnableService();
  // Marks the profile as off and releases the calendar entry; always 1.
  int DisableService();

  // --- Set flow: date checks and profile times (engine/SettingsTimes.cpp) ---
  // Checks the profile's leave and return dates against each other and the
  // current time; raises IPException from "ValidateSettings" with the message
  // the user sees. Returns 1 when the dates are acceptable. A period of whole
  // days gets a bare 00:00 (no date) in "StartTime" (service mode: also in
  // "EndTime"; agent mode: only while the return day is still ahead).
  int ValidateSettings();
  // Reads "DateFirstDayOut", "DateFirstDayBack", "StartTime" and "EndTime"
  // of the open profile into the profile* times. 0 when no profile is open;
  // a missing item raises from "GetUITimes".
  int GetUITimes();
  // destination = source moved back to 00:00 local time of its day (the
  // hundredths kept). source and destination may be the same.
  void setConstantTime(TIMEDATE* source, TIMEDATE* destination);
  // Rewrites the profile's date items for a reset code: 9 or 10 sets today
  // to tomorrow, 11 ends the absence now. 1 when the code is known, else 0.
  int ResetDateTime(WORD resetCode);
  static constexpr WORD kResetEndNow = 11;

  // --- Calendar busy-time entry (engine/BusyTime.cpp) ----------------------
  // Creates the "Out Of Office" calendar entry and names it in the profile's
  // "CalendarEntryUNID", or moves the entry the profile names already to the
  // profile's dates. 1 when an entry was written, 0 without a mail database.
  // Raises from "BookBusyTime" (a stale identifier too).
  DWORD BookBusyTime();
  // Turns the entry named by the profile into free time and forgets it. 1
  // when an entry was released, 0 when the profile names none. Raises from
  // "RemoveBusyTime".
  DWORD RemoveBusyTime();
  // The identifier text "%.8X%.8X%.8X%.8X" (file high, file low, note high,
  // note low) back to a UNIVERSALNOTEID; digits may be of either case. Words
  // a shorter text does not reach are 0.
  static void ConvertStringToUNID(const char* text, UNIVERSALNOTEID* unid);
  // Hexadecimal text to a 32-bit value; no check for invalid characters.
  static void ConvertStringToHex(const char* text, unsigned int& value);

  // --- State query and reply document (status/) ---------------------------
  STATUS getOOOContent();
  STATUS ProcessFormula(const char* formula, std::string& result);
  std::string& getOOO(std::string& replyPath);
  std::string& getOOOInfo(std::string& replyPath);
  // The template-text part of getOOOContent.
  void evaluateTemplate(const TIMEDATE& now);

  // --- User status query (status/UserStatus.cpp) ---------------------------
  // The state of every user behind Username (a person or a group, nested
  // groups followed) as one User element each, in member order, written to
  // the reply file. Members that cannot be read get an element with
  // User_Status "0" and an ErrorMsg. Returns errorText, "OK".
  std::string& getUserStatus(std::string& replyPath);
  // Appends the full User element of the user whose profile this context
  // holds (after getOOOProfile, getOOOType, getOOOContent) to the reply.
  void getOOOUserInfo(ReplyDocument& reply);
  // Appends a record per directory match of name in "$Users" (only the
  // first when singleMatchFlag is non-zero). A name not found is no error
  // and appends nothing.
  STATUS get_user_info(const char* name, std::vector<OOOUserInfo>& records, int singleMatchFlag);
  // fullName = the "FullName" of name's first match in "$Users", else name.
  STATUS getFullName(const char* name, std::string& fullName);

  // A compute-with-form error callback that lets every field pass.
  static WORD LNCALLBACK CWFCallback(const void* field, WORD phase, STATUS error, HANDLE errorText,
                                     WORD errorTextLength, void* context);

  // --- Request pages (pages/) ---------------------------------------------
  // The web page, the phone page and the iOS installation page, written over
  // the request file at path (recreated, mode 0600). Each returns errorText:
  // "OK", or "Fail Open xml file (<path>)" when the file cannot be made.
  // directory: the application database's folder (links to its files are
  // formed below it); reservedText is not used.
  std::string& getRequestOOO(std::string& path, char* directory, std::string& reservedText, std::string& serverURL,
                             std::string& connectParams);
  std::string& getRequestMobileOOO(std::string& path, char* directory, std::string& reservedText,
                                   std::string& serverURL, std::string& connectParams);
  std::string& getRequestMobileInstallIOS(std::string& path, char* directory, std::string& reservedText,
                                          std::string& serverURL, std::string& installIOSText);

  // The UTF-8 form of a toolkit text (null gives ""), through a converter
  // that is not the context's own.
  std::string utf8Of(const XMLCh* text);

  // --- Tools and handles -------------------------------------------------
  XMLStringTranslate* translator = nullptr;    // made for "utf-8"
  xercesc::XercesDOMParser* parser = nullptr;  // parses the request document
  RequestFile requestFile;                     // the request's file, once opened
  DBHANDLE hMailDb = NULLHANDLE;               // the user's mail database
  NOTEHANDLE hProfile = NULLHANDLE;            // "OutOfOfficeProfile"
  NOTEHANDLE hServiceProfile = NULLHANDLE;     // "OOServiceProfile"
  HAGENT hAgent = NULLHANDLE;                  // the "OutOfOffice" agent

  // --- Request values (names as in the request document) -----------------
  std::string Username;  // LMBCS
  std::string Message;   // LMBCS
  std::string Subject;   // LMBCS
  std::string MQName;    // LMBCS; empty: nowhere to answer
  bool OOOEnable = false;
  std::string MailServer;  // LMBCS
  std::string MailBox;     // LMBCS
  WORD Action = 0;         // kActionQuery, kActionSet, kActionUserStatus, else 0
  std::string LoginName;   // UTF-8
  std::string LoginServer;
  std::string QueryUser;
  std::string AppendSubjectDate;  // LMBCS
  std::string DaysOut;            // LMBCS
  bool AppendSubject = false;
  bool ASDEnable = false;
  bool InternetAddress = false;
  bool IsIphone = false;
  bool IsAndroid = false;
  std::string ShowHours;  // as given
  TIMEDATE leaveTime{};   // GMT, assembled from the StartTime* attributes
  TIMEDATE returnTime{};  // GMT, assembled from the EndTime* attributes

  // --- Working state -------------------------------------------------------
  int useAPI = 0;
  std::string replyText;              // sent back when a request fails
  std::vector<std::string> nameList;  // working list of the queries
  // With a name that has several directory matches, whether a status query
  // takes only the first one (non-zero) or looks at all of them.
  int singleMatch = 0;
  // Date parts of the current Username element, in local time, and whether
  // the element carried any of them.
  TIME leaveParts{};
  TIME returnParts{};
  int hasDates = 0;

  // Out-of-office state read by getOOOType and getOOOContent. Texts are
  // UTF-8 unless noted.
  int agentMode = 1;        // 1 agent mode, 0 service mode
  int alreadyOff = 0;       // the set flow found out-of-office already off
  std::string ownerName;    // the profile's owner (var_User)
  std::string oooSubject;
  std::string oooMessage;
  std::string showHoursText;  // service mode only
  TIMEDATE firstDayOut{};
  TIMEDATE firstDayBack{};
  TIMEDATE startTime{};
  TIMEDATE endTime{};
  // The profile's own dates as GetUITimes last read them (GMT).
  TIMEDATE profileLeaveDate{};
  TIMEDATE profileReturnDate{};
  TIMEDATE profileStartTime{};
  TIMEDATE profileEndTime{};
  int oooEnabled = 0;
  int updateSettings = 0;
  int appendSubjectFlag = 0;
  int appendSubjectPresent = 0;
  int excludeInternet = 0;
  std::string appendSubjectDateValue;
  std::string daysOutValue;
  // Texts of the mail template's automatic reply, with the placeholders
  // var_First, var_Back and var_User.
  std::string templateDaysOut;
  std::string templateDaysOutS;
  std::string templateDaysOutV;
  std::string templateAppendSubjectDate;
  std::string templateResetSubject;
  std::string profileFormName = "Default";
  std::vector<std::string> notifiedList;  // abbreviated names, UTF-8
  std::string errorText;  // "OK" or the reply of the last operation

  static constexpr WORD kActionQuery = 1;
  static constexpr WORD kActionSet = 2;
  static constexpr WORD kActionUserStatus = 3;

 private:
  RequestTools* borrowed_ = nullptr;  // the worker's tools, when lent
  // Runs a page builder and sends its result; see processRequestMsg.
  using PageBuilder = std::string& (IPOOO::*)(std::string& path, char* directory, std::string& reservedText,
                                             std::string& serverURL, std::string& extra);
  void processPageRequest(PageBuilder builder, std::string& path, char* directory, std::string& reservedText,
                          std::string& serverURL, std::string& extra);
  void storeAttribute(const XMLCh* name, const XMLCh* value);
  std::string& writeRequestPage(const std::string& path, const std::string& page);
  // Appends a User element with the state getOOOContent read, its text
  // userText (UTF-8); withProfileValues adds the profile's own DaysOut and
  // AppendSubjectDate. Raises the toolkit's exceptions as they come and
  // IPException from "getOOOInfo" for a time that cannot be converted.
  void appendUserState(ReplyDocument& reply, bool withProfileValues, const std::string& userText);
  // The status query's steps: one member, and the User element of one
  // that cannot be reported.
  void appendMemberStatus(ReplyDocument& reply, const char* member);
  void appendErrorUser(ReplyDocument& reply, const std::string& errorMsg, const std::string& name);
  void assembleDates();
  void storeUsernameOf(xercesc::DOMNode* element);
};

#endif  // TARNWICK_REQUEST_IPOOO_H
