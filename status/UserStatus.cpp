// The user status query: the out-of-office state of everyone behind one
// name. The name is expanded through the directory's groups into member
// names; each member's directory entry gives its mail server, mail file and
// full name, and each member's profile is read as for a query and reported
// as one User element of a single reply document. A member that cannot be
// reported gets a User element with User_Status "0" and the reason in
// ErrorMsg, and the query goes on with the next member.
//
// The context is reused for every member: it is reset before each member
// that has a directory entry, and Username, MailServer and MailBox take that
// member's values, so afterwards it holds the last member's.
#include <xercesc/util/XMLException.hpp>
#include <xercesc/util/XMLString.hpp>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "dname.h"
#include "globerr.h"
#include "lookup.h"
#include "mail.h"
#include "nsfdata.h"
#include "osmem.h"
#include "request/IPOOO.h"
#include "status/NamePlaceholder.h"
#include "status/ReplyDocument.h"
#include "textlist.h"

using namespace xercesc;

namespace {

constexpr char kUsersView[] = "$Users";
// The items a status query needs of a user, in the order of OOOUserInfo.
constexpr char kUserItems[] = "MailServer\0MailFile\0FullName";
constexpr WORD kUserItemCount = 3;
constexpr WORD kItemMailServer = 0;
constexpr WORD kItemMailFile = 1;
constexpr WORD kItemFullName = 2;
// The longest entry of a text list taken from the directory.
constexpr WORD kListEntryMax = 256;

// Copies a text item of a directory match into a record field: a text whole
// (as far as the field holds), a text list's first entry. Other types and
// missing items leave the field as it is.
void copyItemText(void* match, WORD item, char (&field)[OOOUserInfo::kFieldSize]) {
  WORD type = 0;
  WORD size = 0;
  const char* value = static_cast<const char*>(NAMELocateItem2(match, item, &type, &size));
  if (value == nullptr || size < sizeof(WORD)) return;
  if (type == TYPE_TEXT) {
    const size_t length = std::min<size_t>(size - sizeof(WORD), OOOUserInfo::kFieldSize - 1);
    std::memcpy(field, value + sizeof(WORD), length);
    field[length] = '\0';
  } else if (type == TYPE_TEXT_LIST) {
    NAMEGetTextItem2(match, item, 0, field, kListEntryMax + 1);
  }
}

// The directory lookup of one name in "$Users"; the buffer is freed when
// the object goes.
class UserLookup {
 public:
  UserLookup(const char* name, WORD itemCount, const char* items) {
    status_ = NAMELookup2(nullptr, 0, 1, kUsersView, 1, name, itemCount, items, &buffer_);
    if (status_ == NOERROR) lookup_ = OSLockObject(buffer_);
  }
  ~UserLookup() {
    if (buffer_ == NULLHANDLE) return;
    OSUnlockObject(buffer_);
    OSMemFree(buffer_);
  }
  UserLookup(const UserLookup&) = delete;
  UserLookup& operator=(const UserLookup&) = delete;

  STATUS status() const { return status_; }
  // The matches of the name, each handed to visit (nullptr for a match that
  // is counted but cannot be located); at most limit of them.
  template <typename Visit>
  void forEachMatch(DWORD limit, Visit visit) {
    if (lookup_ == nullptr) return;
    DWORD matches = 0;
    void* record = NAMELocateNextName2(lookup_, nullptr, &matches);
    if (record == nullptr) return;
    void* match = nullptr;
    bool located = true;
    for (DWORD i = 0; i < std::min(matches, limit); ++i) {
      if (located) match = NAMELocateNextMatch2(lookup_, record, match);
      located = match != nullptr;
      visit(located ? match : nullptr);
    }
  }

 private:
  STATUS status_ = NOERROR;
  DHANDLE buffer_ = NULLHANDLE;
  void* lookup_ = nullptr;
};

// The names behind name: groups replaced by their members (nested groups
// too), in the directory's order. False when the list cannot be made or
// expanded; an entry that cannot be read is left out.
bool expandName(const std::string& name, std::vector<std::string>& members) {
  DHANDLE list = NULLHANDLE;
  void* locked = nullptr;
  WORD size = 0;
  if (ListAllocate(0, 0, TRUE, &list, &locked, &size) != NOERROR) return false;
  OSUnlockObject(list);
  if (ListAddEntry(list, TRUE, &size, 0, name.c_str(), static_cast<WORD>(name.size())) != NOERROR) {
    OSMemFree(list);
    return false;
  }
  DHANDLE expanded = NULLHANDLE;
  WORD expandedSize = 0;
  // The work list is freed by the expansion, also when it fails.
  if (MailExpandNames(list, size, &expanded, &expandedSize, FALSE, NULLHANDLE) != NOERROR) return false;
  const void* names = OSLockObject(expanded);
  const WORD count = ListGetNumEntries(names, TRUE);
  for (WORD i = 0; i < count; ++i) {
    char* text = nullptr;
    WORD length = 0;
    if (ListGetText(names, TRUE, i, &text, &length) != NOERROR) continue;
    // A member name is read into a buffer of a user name's length.
    char member[MAXUSERNAME + 1] = {0};
    std::memcpy(member, text, std::min<size_t>(length, MAXUSERNAME));
    members.emplace_back(member);
  }
  OSUnlockObject(expanded);
  OSMemFree(expanded);
  return true;
}

// The abbreviated form of a name; the name as it stands when it cannot be
// abbreviated.
std::string abbreviated(const std::string& name) {
  char text[MAXUSERNAME] = {0};
  if (DNAbbreviate(0, nullptr, name.c_str(), text, sizeof text, nullptr) != NOERROR) return name;
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

STATUS IPOOO::get_user_info(const char* name, std::vector<OOOUserInfo>& records, int singleMatchFlag) {
  UserLookup lookup(name, kUserItemCount, kUserItems);
  if (lookup.status() != NOERROR) return lookup.status();
  lookup.forEachMatch(singleMatchFlag != 0 ? 1 : ~DWORD{0}, [&](void* match) {
    OOOUserInfo info{};
    if (match != nullptr) {
      copyItemText(match, kItemMailServer, info.mailServer);
      copyItemText(match, kItemMailFile, info.mailFile);
      copyItemText(match, kItemFullName, info.fullName);
    }
    records.push_back(info);
  });
  return NOERROR;
}

STATUS IPOOO::getFullName(const char* name, std::string& fullName) {
  fullName = name;
  UserLookup lookup(name, 1, "FullName");
  if (lookup.status() != NOERROR) return lookup.status();
  lookup.forEachMatch(1, [&](void* match) {
    WORD type = 0;
    WORD size = 0;
    if (match == nullptr || NAMELocateItem2(match, 0, &type, &size) == nullptr) return;
    if (type != TYPE_TEXT && type != TYPE_TEXT_LIST) return;
    char text[kListEntryMax + 1] = {0};
    if (NAMEGetTextItem2(match, 0, 0, text, sizeof text) == NOERROR) fullName = text;
  });
  return NOERROR;
}

std::string& IPOOO::getUserStatus(std::string& replyPath) {
  errorText = "OK";
  std::vector<std::string> members;
  if (!expandName(Username, members)) return errorText;

  errorText.clear();
  try {
    ReplyDocument reply(openRequestFile(replyPath));
    if (members.empty()) appendErrorUser(reply, "Empty Group", Username);
    for (const std::string& member : members) appendMemberStatus(reply, member.c_str());
    reply.write();
  } catch (const IPException&) {
    throw;
  } catch (const XMLException& e) {
    throw IPException("getUserStatus", transcoded(e.getMessage()).c_str());
  } catch (...) {
    throw IPException("getUserStatus", "Unexpected Exception\n");
  }
  errorText = "OK";
  return errorText;
}

void IPOOO::appendMemberStatus(ReplyDocument& reply, const char* member) {
  std::vector<OOOUserInfo> records;
  STATUS status = get_user_info(member, records, singleMatch);
  if (status == NOERROR && !records.empty()) {
    if (singleMatch != 0 && records.size() >= 2) {
      appendErrorUser(reply, getErrorMsg(ERR_AUTH_NAME_AMBIGUOUS_MATCH), member);
      return;
    }
    const OOOUserInfo& user = records.front();
    reset(0);
    Username = abbreviated(user.fullName);
    MailServer = user.mailServer;
    MailBox = user.mailFile;
    if (MailServer.empty() && MailBox.empty()) {
      appendErrorUser(reply, "No mail file", Username);
      return;
    }
    status = getOOOProfile(0);
    if (status == NOERROR) {
      getOOOType();
      getOOOContent();
      getOOOUserInfo(reply);
      return;
    }
    // The name in the error is the member's own until some member's
    // profile has been read; from then on it is the directory's full name.
    const std::string name = ownerName.empty() ? abbreviated(member) : abbreviated(Username);
    appendErrorUser(reply, withNameFilledIn(getErrorMsg(status), name), name);
    return;
  }

  // Not in the directory, or the directory could not be read.
  if (status == NOERROR) status = ERR_ROUTER_NOSUCHUSER;
  if (ownerName.empty()) {
    appendErrorUser(reply, withNameFilledIn(getErrorMsg(status), abbreviated(member)), member);
  } else {
    const std::string name = abbreviated(records.empty() ? std::string(member) : records.front().fullName);
    appendErrorUser(reply, withNameFilledIn(getErrorMsg(status), name), name);
  }
}

void IPOOO::appendErrorUser(ReplyDocument& reply, const std::string& errorMsg, const std::string& name) {
  // Both texts are LMBCS here; the document takes UTF-8.
  std::string message = errorMsg;
  std::string text = name;
  translator->TranslatorLMBCSToUTF8(message);
  translator->TranslatorLMBCSToUTF8(text);
  ReplyDocument::User& user = reply.addUser();
  reply.setAttribute(user, "User_Status", "0");
  reply.setAttribute(user, "ErrorMsg", message.c_str());
  reply.setText(user, text.c_str());
}
