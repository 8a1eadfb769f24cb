#include "password.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

#include <cstdlib>
#include <vector>

#include "failure.h"

namespace tarnwick::client {
namespace {

constexpr int kIterations = 100000;
constexpr size_t kSaltBytes = 16;
constexpr size_t kHashBytes = 32;
constexpr const char* kScheme = "pbkdf2-sha256";

std::string to_hex(const std::vector<unsigned char>& bytes) {
  static const char digits[] = "0123456789abcdef";
  std::string hex;
  for (unsigned char byte : bytes) {
    hex += digits[byte >> 4];
    hex += digits[byte & 15];
  }
  return hex;
}

bool from_hex(const std::string& hex, std::vector<unsigned char>& bytes) {
  if (hex.size() % 2 != 0 || hex.empty()) return false;
  bytes.clear();
  for (size_t i = 0; i < hex.size(); i += 2) {
    char pair[3] = {hex[i], hex[i + 1], 0};
    char* end = nullptr;
    const long value = std::strtol(pair, &end, 16);
    if (end != pair + 2) return false;
    bytes.push_back(static_cast<unsigned char>(value));
  }
  return true;
}

std::vector<unsigned char> derive(const std::string& password, const std::vector<unsigned char>& salt, int iterations,
                                  size_t length) {
  std::vector<unsigned char> hash(length);
  if (PKCS5_PBKDF2_HMAC(password.data(), static_cast<int>(password.size()), salt.data(), static_cast<int>(salt.size()),
                        iterations, EVP_sha256(), static_cast<int>(length), hash.data()) != 1) {
    throw Failure("cannot hash the password (OpenSSL)");
  }
  return hash;
}

}  // namespace

std::string hash_password(const std::string& password) {
  std::vector<unsigned char> salt(kSaltBytes);
  if (RAND_bytes(salt.data(), static_cast<int>(salt.size())) != 1) throw Failure("no random bytes for a salt (OpenSSL)");
  return std::string(kScheme) + "$" + std::to_string(kIterations) + "$" + to_hex(salt) + "$" +
         to_hex(derive(password, salt, kIterations, kHashBytes));
}

bool password_matches(const std::string& stored, const std::string& password) {
  const std::string prefix = std::string(kScheme) + "$";
  if (stored.compare(0, prefix.size(), prefix) != 0) return false;
  const size_t iterations_end = stored.find('$', prefix.size());
  if (iterations_end == std::string::npos) return false;
  const size_t salt_end = stored.find('$', iterations_end + 1);
  if (salt_end == std::string::npos) return false;
  const int iterations = std::atoi(stored.substr(prefix.size(), iterations_end - prefix.size()).c_str());
  std::vector<unsigned char> salt, expected;
  if (iterations <= 0 || !from_hex(stored.substr(iterations_end + 1, salt_end - iterations_end - 1), salt) ||
      !from_hex(stored.substr(salt_end + 1), expected)) {
    return false;
  }
  const std::vector<unsigned char> actual = derive(password, salt, iterations, expected.size());
  return CRYPTO_memcmp(actual.data(), expected.data(), expected.size()) == 0;
}

}  // namespace tarnwick::client
