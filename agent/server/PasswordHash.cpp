#include "PasswordHash.h"

#include <crypt.h>

#include <memory>

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <fmt/format.h>

namespace VekGnmi::Server::PasswordHash {

namespace {

constexpr std::string_view METHODS[] = {"$6$", "$5$", "$y$", "$2b$"};

bool acceptedMethod(std::string_view hash) {
  for (std::string_view method : METHODS) {
    if (hash.substr(0, method.size()) == method) return true;
  }
  return false;
}

// crypt_r of `password` with `setting`; empty when libcrypt refuses (it
// answers a string starting with '*' for a setting it cannot use).
std::string cryptWith(const std::string& password, const std::string& setting) {
  auto data = std::make_unique<crypt_data>();
  const char* out = crypt_r(password.c_str(), setting.c_str(), data.get());
  if (out == nullptr || out[0] == '*') return {};
  return out;
}

std::string randomPassword() {
  unsigned char bytes[24];
  if (RAND_bytes(bytes, sizeof bytes) != 1) return "unguessable-only-when-random";
  std::string out;
  for (unsigned char b : bytes) out += fmt::format("{:02x}", b);
  return out;
}

}  // namespace

bool make(std::string_view password, std::string& out, std::string& error) {
  if (password.find('\0') != std::string_view::npos) {
    error = "a password cannot hold a NUL character";
    return false;
  }
  char setting[CRYPT_GENSALT_OUTPUT_SIZE];
  if (crypt_gensalt_rn("$6$", SHA512_ROUNDS, nullptr, 0, setting, sizeof setting) == nullptr) {
    error = "libcrypt could not make a salt";
    return false;
  }
  out = cryptWith(std::string(password), setting);
  if (out.empty()) {
    error = "libcrypt could not hash the password";
    return false;
  }
  return true;
}

bool valid(const std::string& hash, std::string& error) {
  if (!acceptedMethod(hash)) {
    error = "not a salted hash of an accepted method (SHA-512-crypt \"$6$...\" as `openssl passwd -6` or "
            "`vekgnmid --hash-password` print it, SHA-256-crypt \"$5$\", yescrypt \"$y$\" or bcrypt \"$2b$\")";
    return false;
  }
  const std::string probe = crypt_checksalt(hash.c_str()) == CRYPT_SALT_OK ? cryptWith("", hash) : "";
  if (probe.empty()) {
    error = "a malformed hash (libcrypt cannot read its setting)";
    return false;
  }
  // A hash of the right method whose checksum part is missing or mangled
  // would never match: crypt gives back the setting with a checksum of the
  // same length.
  if (probe.size() != hash.size()) {
    error = "a malformed hash (its checksum has the wrong length)";
    return false;
  }
  return true;
}

bool verify(std::string_view password, const std::string& hash) {
  if (password.find('\0') != std::string_view::npos) {
    // Still pay the hash's cost, so that the answer takes as long.
    cryptWith("", hash);
    return false;
  }
  const std::string computed = cryptWith(std::string(password), hash);
  if (computed.empty() || computed.size() != hash.size()) return false;
  return CRYPTO_memcmp(computed.data(), hash.data(), hash.size()) == 0;
}

std::string dummyLike(const std::string& like) {
  std::string error;
  if (!like.empty() && valid(like, error)) {
    // crypt reads only the setting (method, cost, salt) of a whole hash.
    const std::string dummy = cryptWith(randomPassword(), like);
    if (!dummy.empty()) return dummy;
  }
  std::string out;
  if (make(randomPassword(), out, error)) return out;
  return "$6$rounds=65536$unusable$";  // libcrypt is broken: nothing will match
}

}  // namespace VekGnmi::Server::PasswordHash
