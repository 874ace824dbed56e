// Who a client is: the `username` and `password` gRPC metadata every RPC
// carries, checked against the users file, or the common name of a client
// certificate that mutual TLS verified.
//
// Without a users table authentication is off: every client is allowed with
// the write role over the whole model, named after its certificate when it
// sent one (for the audit and the stream limits) or anonymous.
//
// With a users table:
//   - username and password present (an empty username counts as absent):
//     the password is verified against the user's hash; an unknown user is
//     verified against a dummy hash of the same cost, so that a wrong name
//     and a wrong password take as long and get the same answer,
//     UNAUTHENTICATED "wrong user name or password";
//   - no username, and a verified client certificate whose common name is a
//     user of the table: that user, without a password;
//   - otherwise UNAUTHENTICATED.
// Each failure also tells how long to hold back the reply (LoginThrottle);
// the caller delays it with a timer, never by blocking a thread.
//
// Hashes cost milliseconds by design, so they are verified on one worker
// thread of the authenticator's own, never on a gRPC thread: password
// guessing occupies at most one core. A password that verified is
// remembered for its user (a keyed SHA-256 digest, never the password) so
// that a client sending it on every RPC pays the hash once; a wrong password
// always pays it in full. Thread-safe.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>

#include <grpcpp/grpcpp.h>

#include "Authorization.h"
#include "LoginThrottle.h"
#include "Users.h"

namespace VekGnmi::Server {

struct Credentials {
  std::string username;         // metadata "username"; empty: absent
  std::string password;         // metadata "password"
  std::string certificateName;  // common name of the verified client certificate; empty: none
  std::string peer;             // gRPC's peer text

  // What the client of `context` presented.
  static Credentials of(grpc::CallbackServerContext& context);
};

struct AuthResult {
  grpc::Status status;                 // OK or UNAUTHENTICATED
  Grant grant;                         // with status OK
  std::chrono::milliseconds delay{0};  // how long to hold back a refusal
};

class Authenticator {
 public:
  using Done = std::function<void(AuthResult)>;

  // `users` null: authentication off. Refusals are held back up to
  // `maxLoginDelay` (LoginThrottle).
  explicit Authenticator(std::shared_ptr<const UserTable> users,
                         std::chrono::milliseconds maxLoginDelay = LoginThrottle::MAX_DELAY);
  // Answers the checks still waiting with UNAVAILABLE and joins the worker.
  ~Authenticator();
  Authenticator(const Authenticator&) = delete;
  Authenticator& operator=(const Authenticator&) = delete;

  bool enabled() const;
  // Replaces the users table (a reload); remembered passwords are forgotten.
  // Ignored when authentication is off.
  void usersAre(std::shared_ptr<const UserTable> users);

  // Calls `done` exactly once: on the calling thread when no hash needs
  // verifying, else on the worker thread.
  void authenticate(Credentials credentials, Done done);

  // For tests: how many hashes the worker has verified (counted before the
  // check's answer is given).
  uint64_t hashesVerified() const;

 private:
  struct Check {
    std::shared_ptr<const UserTable> users;
    Credentials credentials;
    Done done;
  };
  void run();
  void verify(Check& check);
  bool remembered(const std::string& user, const std::string& password) const;
  void remember(const UserTable& verifiedWith, const std::string& user, const std::string& password);
  std::string digest(const std::string& password) const;
  AuthResult refusal(const std::string& peer, const char* message);

  const bool enabled_;
  std::string key_;  // random, for the remembered digests
  LoginThrottle throttle_;
  mutable std::mutex mutex_;
  std::shared_ptr<const UserTable> users_;
  std::unordered_map<std::string, std::string> remembered_;
  std::deque<Check> checks_;
  std::condition_variable wake_;
  bool stopping_ = false;
  uint64_t hashesVerified_ = 0;
  std::thread worker_;
};

}  // namespace VekGnmi::Server
