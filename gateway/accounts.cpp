#include "accounts.h"

#include <string_view>
#include <vector>

#include "failure.h"
#include "lmbcs_text.h"
#include "lookup.h"
#include "names.h"
#include "osmem.h"
#include "password.h"

namespace tarnwick::gateway {
namespace {

using client::check;

constexpr const char kUsersView[] = "$Users";
// Items asked for, in this order.
enum Item : WORD { kFullName, kMailServer, kMailFile, kPassword };
constexpr const char kItems[] = "FullName\0MailServer\0MailFile\0HTTPPassword";
constexpr WORD kItemCount = 4;

// A hash of a password nobody has, checked when the person is unknown so
// that an unknown name costs as much time as a wrong password.
const std::string& decoy_hash() {
  static const std::string hash = client::hash_password("decoy password of no one");
  return hash;
}

// Owns a lookup buffer and keeps it locked while it is read.
class LookupBuffer {
 public:
  explicit LookupBuffer(DHANDLE handle) : handle_(handle), data_(OSLockObject(handle)) {}
  LookupBuffer(const LookupBuffer&) = delete;
  LookupBuffer& operator=(const LookupBuffer&) = delete;
  ~LookupBuffer() {
    OSUnlockObject(handle_);
    OSMemFree(handle_);
  }
  void* data() const { return data_; }

 private:
  DHANDLE handle_;
  void* data_;
};

std::string item_text(void* match, WORD item) {
  char buffer[1024] = {};
  if (NAMEGetTextItem2(match, item, 0, buffer, sizeof buffer) != NOERROR) return {};
  return client::to_utf8(buffer);
}

}  // namespace

std::optional<Account> find_account(const std::string& name) {
  if (name.empty()) return std::nullopt;
  const std::string lmbcs_name = client::to_lmbcs(name);
  DHANDLE handle = NULLHANDLE;
  check(NAMELookup2(nullptr, 0, 1, kUsersView, 1, lmbcs_name.c_str(), kItemCount,
                    std::string_view(kItems, sizeof kItems).data(), &handle),
        "cannot look up " + name + " in the directory");
  LookupBuffer buffer(handle);
  DWORD matches = 0;
  void* record = NAMELocateNextName2(buffer.data(), nullptr, &matches);
  if (record == nullptr || matches == 0) return std::nullopt;
  void* match = NAMELocateNextMatch2(buffer.data(), record, nullptr);
  if (match == nullptr) return std::nullopt;
  Account account;
  account.full_name = client::canonical_name(item_text(match, kFullName));
  account.mail_server = item_text(match, kMailServer);
  if (!account.mail_server.empty()) account.mail_server = client::canonical_name(account.mail_server);
  account.mail_file = item_text(match, kMailFile);
  account.password_hash = item_text(match, kPassword);
  if (account.full_name.empty()) return std::nullopt;
  return account;
}

bool password_is_right(const std::optional<Account>& account, const std::string& password) {
  if (!account || account->password_hash.empty()) {
    (void)client::password_matches(decoy_hash(), password);
    return false;
  }
  return client::password_matches(account->password_hash, password);
}

std::string display_name(const std::string& canonical) {
  try {
    return client::abbreviated_name(canonical);
  } catch (const client::Failure&) {
    return canonical;
  }
}

}  // namespace tarnwick::gateway
