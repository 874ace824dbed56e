// Salted password hashes in the crypt(3) formats, through libcrypt
// (libxcrypt): what the users file holds and how a password is checked
// against it. Plain text is never accepted as a hash.
//
// Accepted methods: SHA-512-crypt ("$6$", what `openssl passwd -6` prints),
// SHA-256-crypt ("$5$"), yescrypt ("$y$", Debian's default for system
// passwords) and bcrypt ("$2b$").
#pragma once

#include <string>
#include <string_view>

namespace VekGnmi::Server::PasswordHash {

// The rounds of the SHA-512-crypt hashes `make` prints: about 10 ms to check
// on one core of a current machine.
constexpr unsigned long SHA512_ROUNDS = 65536;

// A new SHA-512-crypt hash of `password` with a fresh random salt; false
// (with `error` set) when libcrypt cannot make one.
bool make(std::string_view password, std::string& out, std::string& error);

// Whether `hash` is a well-formed hash of an accepted method; false with
// `error` naming what is wrong.
bool valid(const std::string& hash, std::string& error);

// Whether `password` hashes to `hash` (compared in constant time). Costs
// what the hash's method and rounds cost, whether or not it matches; false
// for a malformed hash. Thread-safe.
bool verify(std::string_view password, const std::string& hash);

// A hash of a random password made with the setting (method, cost and salt)
// of `like`, so that verifying against it costs what verifying against
// `like` costs and no password matches it. For `like` empty or malformed, a
// SHA-512-crypt hash of SHA512_ROUNDS rounds.
std::string dummyLike(const std::string& like);

}  // namespace VekGnmi::Server::PasswordHash
