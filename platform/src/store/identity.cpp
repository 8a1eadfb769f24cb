// The server's ID file (kfm.h) and note signatures (NSFNoteSign,
// NSFNoteVerifySignature) with Ed25519 through OpenSSL.
//
// A "$Signature" value is: "TWSIG1", WORD signer length, the signer's name,
// the TIMEDATE of signing, the 32-byte public key, the 64-byte signature.
// The signed message is "TWSIG1", the signer's name and the time, then for
// each ITEM_SIGN item in note order (except "$Signature"): WORD name length,
// name, WORD type, DWORD value length, value, all in contracted form.
#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>

#include "env/environment.h"
#include "globerr.h"
#include "kfm.h"
#include "nsfdata.h"
#include "nsfnote.h"
#include "core/api_guard.h"
#include "store/ids.h"
#include "store/item_codec.h"
#include "store/note.h"

using namespace tarnwick::rt;
using namespace tarnwick::rt::store;

namespace {

constexpr std::string_view kIdHeader = "TarnwickServerID 1";
constexpr std::string_view kSignatureMagic = "TWSIG1";
constexpr size_t kKeySize = 32;
constexpr size_t kSignatureSize = 64;
using Key = std::array<unsigned char, kKeySize>;

struct Identity {
  std::string name;
  Key public_key{};
  Key private_key{};
};

struct PkeyDeleter {
  void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};
struct MdDeleter {
  void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};
using Pkey = std::unique_ptr<EVP_PKEY, PkeyDeleter>;
using MdContext = std::unique_ptr<EVP_MD_CTX, MdDeleter>;

std::filesystem::path id_file_path(const char* given) {
  if (given != nullptr && given[0] != '\0') return resolve_data_path(given);
  auto configured = get_environment("KeyFilename");
  return resolve_data_path(configured && !configured->empty() ? *configured : "server.id");
}

std::string to_hex(const Key& key) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned char byte : key) {
    out.push_back(digits[byte >> 4]);
    out.push_back(digits[byte & 15]);
  }
  return out;
}

bool from_hex(std::string_view text, Key* key) {
  if (text.size() != 2 * kKeySize) return false;
  auto nibble = [](char c) -> int {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  for (size_t i = 0; i < kKeySize; ++i) {
    const int high = nibble(text[2 * i]);
    const int low = nibble(text[2 * i + 1]);
    if (high < 0 || low < 0) return false;
    (*key)[i] = static_cast<unsigned char>(high * 16 + low);
  }
  return true;
}

STATUS load_identity(Identity* identity) {
  std::ifstream file(id_file_path(nullptr));
  if (!file) return ERR_NOEXIST;
  std::string line;
  if (!std::getline(file, line) || line != kIdHeader) return ERR_INVALID_ITEMUNK;
  bool has_name = false;
  bool has_public = false;
  bool has_private = false;
  while (std::getline(file, line)) {
    const size_t colon = line.find(": ");
    if (colon == std::string::npos) continue;
    const std::string key = line.substr(0, colon);
    const std::string value = line.substr(colon + 2);
    if (key == "Name") {
      identity->name = value;
      has_name = !value.empty() && value.size() < MAXUSERNAME;
    } else if (key == "PublicKey") {
      has_public = from_hex(value, &identity->public_key);
    } else if (key == "PrivateKey") {
      has_private = from_hex(value, &identity->private_key);
    }
  }
  return has_name && has_public && has_private ? NOERROR : ERR_INVALID_ITEMUNK;
}

bool generate_key_pair(Key* public_key, Key* private_key) {
  EVP_PKEY_CTX* context = EVP_PKEY_CTX_new_id(EVP_PKEY_ED25519, nullptr);
  EVP_PKEY* raw = nullptr;
  const bool made = context != nullptr && EVP_PKEY_keygen_init(context) == 1 && EVP_PKEY_keygen(context, &raw) == 1;
  EVP_PKEY_CTX_free(context);
  if (!made) return false;
  Pkey key(raw);
  size_t public_size = kKeySize;
  size_t private_size = kKeySize;
  return EVP_PKEY_get_raw_public_key(key.get(), public_key->data(), &public_size) == 1 &&
         EVP_PKEY_get_raw_private_key(key.get(), private_key->data(), &private_size) == 1 &&
         public_size == kKeySize && private_size == kKeySize;
}

// The server's identity with its signing key made ready, as read from the
// ID file with the given identity (device, inode, size, change time).
struct Signer {
  std::filesystem::path path;
  struct stat file {};
  bool settled = false;  // the file was older than a moment when it was read
  Identity identity;
  Pkey key;
};

bool same_file(const struct stat& a, const struct stat& b) {
  return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
         a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec &&
         a.st_ctim.tv_sec == b.st_ctim.tv_sec && a.st_ctim.tv_nsec == b.st_ctim.tv_nsec;
}

// The signer for the current ID file. Reading the file and deriving the key
// cost far more than a signature, so the last signer is kept and used again
// while the ID file is unchanged: same inode, size and times. A file written
// within the last seconds when it was read is read again every time, as its
// times could still match those of a quick rewrite. The key is only read
// after it is made, which may be done by many threads at once.
STATUS current_signer(std::shared_ptr<const Signer>* out) {
  static std::mutex mutex;
  static std::shared_ptr<const Signer> last;
  const std::filesystem::path path = id_file_path(nullptr);
  struct stat file {};
  if (::stat(path.c_str(), &file) != 0) return ERR_NOEXIST;
  {
    std::lock_guard lock(mutex);
    if (last && last->settled && last->path == path && same_file(last->file, file)) {
      *out = last;
      return NOERROR;
    }
  }
  auto signer = std::make_shared<Signer>();
  signer->path = path;
  signer->file = file;
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  signer->settled = now.tv_sec - file.st_mtim.tv_sec > 2 && now.tv_sec - file.st_ctim.tv_sec > 2;
  if (STATUS error = load_identity(&signer->identity)) return error;
  signer->key.reset(
      EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, signer->identity.private_key.data(), kKeySize));
  if (!signer->key) return ERR_UNKNOWN;
  std::lock_guard lock(mutex);
  last = signer;
  *out = std::move(signer);
  return NOERROR;
}

std::optional<std::string> sign_message(EVP_PKEY* key, std::string_view message) {
  MdContext context(EVP_MD_CTX_new());
  if (!context || EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key) != 1) return std::nullopt;
  std::string signature(kSignatureSize, '\0');
  size_t length = signature.size();
  if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                     reinterpret_cast<const unsigned char*>(message.data()), message.size()) != 1 ||
      length != kSignatureSize) {
    return std::nullopt;
  }
  return signature;
}

bool verify_message(const Key& public_key, std::string_view message, std::string_view signature) {
  Pkey key(EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, public_key.data(), kKeySize));
  MdContext context(EVP_MD_CTX_new());
  if (!key || !context || EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) != 1) return false;
  return EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char*>(signature.data()), signature.size(),
                          reinterpret_cast<const unsigned char*>(message.data()), message.size()) == 1;
}

// The bytes a signature covers (see the top of this file).
std::string signed_message(const Note& note, std::string_view signer, const TIMEDATE& when) {
  std::string message(kSignatureMagic);
  put_word(message, static_cast<WORD>(signer.size()));
  message += signer;
  put_dword(message, when.Innards[0]);
  put_dword(message, when.Innards[1]);
  for (const auto& item : note.items) {
    if ((item.flags & ITEM_SIGN) == 0 || names_equal(item.name, "$Signature")) continue;
    WORD type = item.type;
    std::string value(note.value_of(item));
    contract_value(&type, &value);
    put_word(message, static_cast<WORD>(item.name.size()));
    message += item.name;
    put_word(message, type);
    put_dword(message, static_cast<DWORD>(value.size()));
    message += value;
  }
  return message;
}

struct ParsedSignature {
  std::string signer;
  TIMEDATE when{};
  Key public_key{};
  std::string signature;
};

bool parse_signature(std::string_view value, ParsedSignature* parsed) {
  size_t pos = 0;
  std::string_view magic;
  WORD signer_length = 0;
  std::string_view signer;
  std::string_view key;
  std::string_view signature;
  if (!get_bytes(value, &pos, kSignatureMagic.size(), &magic) || magic != kSignatureMagic ||
      !get_word(value, &pos, &signer_length) || !get_bytes(value, &pos, signer_length, &signer) ||
      !get_dword(value, &pos, &parsed->when.Innards[0]) || !get_dword(value, &pos, &parsed->when.Innards[1]) ||
      !get_bytes(value, &pos, kKeySize, &key) || !get_bytes(value, &pos, kSignatureSize, &signature) ||
      pos != value.size()) {
    return false;
  }
  parsed->signer.assign(signer);
  std::memcpy(parsed->public_key.data(), key.data(), kKeySize);
  parsed->signature.assign(signature);
  return true;
}

void copy_name(std::string_view name, char* out) {
  if (out == nullptr) return;
  const size_t length = std::min(name.size(), static_cast<size_t>(MAXUSERNAME - 1));
  std::memcpy(out, name.data(), length);
  out[length] = '\0';
}

// "O=Org" of "CN=Jane/OU=Sales/O=Org": the signer's certifier.
std::string certifier_of(std::string_view name) {
  const size_t slash = name.find('/');
  return slash == std::string_view::npos ? std::string() : std::string(name.substr(slash + 1));
}

}  // namespace

extern "C" {

STATUS LNPUBLIC SECKFMGetUserName(char* retUserName) {
  return guarded([&]() -> STATUS {
    if (retUserName == nullptr) return ERR_BAD_PARAM;
    retUserName[0] = '\0';
    Identity identity;
    if (STATUS error = load_identity(&identity)) return error;
    copy_name(identity.name, retUserName);
    return NOERROR;
  });
}

STATUS LNPUBLIC TarnwickCreateServerID(const char* IDFileName, const char* ServerName, BOOL ForceReplace) {
  return guarded([&]() -> STATUS {
    if (ServerName == nullptr || ServerName[0] == '\0' || std::strlen(ServerName) >= MAXUSERNAME ||
        std::strchr(ServerName, '\n') != nullptr) {
      return ERR_BAD_PARAM;
    }
    const std::filesystem::path path = id_file_path(IDFileName);
    if (!ForceReplace && std::filesystem::exists(path)) return ERR_EXISTS;
    Identity identity;
    identity.name = ServerName;
    if (!generate_key_pair(&identity.public_key, &identity.private_key)) return ERR_UNKNOWN;
    std::ostringstream text;
    text << kIdHeader << "\nName: " << identity.name << "\nPublicKey: " << to_hex(identity.public_key)
         << "\nPrivateKey: " << to_hex(identity.private_key) << "\n";
    const std::string bytes = text.str();
    // Written to a private temporary file and renamed, so a reader never sees half a file.
    const std::filesystem::path temporary = path.string() + ".new";
    std::error_code ec;
    std::filesystem::create_directories(path.parent_path(), ec);
    int fd = ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (fd < 0) return ERR_PROTECTED;
    const bool written = ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size()) && ::fsync(fd) == 0;
    ::close(fd);
    if (!written || ::rename(temporary.c_str(), path.c_str()) != 0) {
      ::unlink(temporary.c_str());
      return ERR_PROTECTED;
    }
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFNoteSign(NOTEHANDLE hNote) {
  return guarded([&]() -> STATUS {
    auto note = find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    std::shared_ptr<const Signer> signer;
    if (STATUS error = current_signer(&signer)) return error;
    const Identity& identity = signer->identity;
    std::lock_guard lock(note->mutex);
    const TIMEDATE when = unique_now();
    auto signature = sign_message(signer->key.get(), signed_message(*note, identity.name, when));
    if (!signature) return ERR_UNKNOWN;
    std::string value(kSignatureMagic);
    put_word(value, static_cast<WORD>(identity.name.size()));
    value += identity.name;
    put_dword(value, when.Innards[0]);
    put_dword(value, when.Innards[1]);
    value.append(reinterpret_cast<const char*>(identity.public_key.data()), kKeySize);
    value += *signature;
    note->replace("$Signature", ITEM_SEAL, TYPE_SIGNATURE, std::move(value));
    return NOERROR;
  });
}

STATUS LNPUBLIC NSFNoteVerifySignature(NOTEHANDLE hNote, const char* SignatureItemName, TIMEDATE* retWhenSigned,
                                       char* retSigner, char* retCertifier) {
  return guarded([&]() -> STATUS {
    if (SignatureItemName != nullptr) return ERR_NOT_SUPPORTED;  // section signatures
    auto note = find_note(hNote);
    if (!note) return ERR_BAD_PARAM;
    std::lock_guard lock(note->mutex);
    const Item* item = note->find("$Signature");
    if (item == nullptr) return ERR_NOTE_NOT_SIGNED;
    ParsedSignature parsed;
    if (item->type != TYPE_SIGNATURE || !parse_signature(note->value_of(*item), &parsed)) return ERR_NOTE_INVSIG5;
    if (!verify_message(parsed.public_key, signed_message(*note, parsed.signer, parsed.when), parsed.signature)) {
      return ERR_NOTE_INVSIG2;
    }
    Identity server;
    if (load_identity(&server) == NOERROR && names_equal(server.name, parsed.signer) &&
        server.public_key != parsed.public_key) {
      return ERR_NOTE_INVSIG3;  // someone else's key under the server's name
    }
    if (retWhenSigned != nullptr) *retWhenSigned = parsed.when;
    copy_name(parsed.signer, retSigner);
    copy_name(certifier_of(parsed.signer), retCertifier);
    return NOERROR;
  });
}

}  // extern "C"
