#include "Authenticator.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/rand.h>

#include <Zolt/Zolt.h>

#include "PasswordHash.h"

namespace VekGnmi::Server {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentAuth");

constexpr const char* WRONG = "wrong user name or password";
constexpr const char* NO_CREDENTIALS =
    "no credentials: send the username and password metadata (or a client certificate naming a user)";

std::string metadataValue(const std::multimap<grpc::string_ref, grpc::string_ref>& metadata, const char* key) {
  auto it = metadata.find(key);
  return it == metadata.end() ? std::string() : std::string(it->second.data(), it->second.size());
}

}  // namespace

Credentials Credentials::of(grpc::CallbackServerContext& context) {
  Credentials c;
  c.username = metadataValue(context.client_metadata(), "username");
  c.password = metadataValue(context.client_metadata(), "password");
  c.peer = context.peer();
  const std::shared_ptr<const grpc::AuthContext> auth = context.auth_context();
  if (auth && auth->IsPeerAuthenticated()) {
    const std::vector<grpc::string_ref> names = auth->FindPropertyValues("x509_common_name");
    if (!names.empty()) c.certificateName.assign(names.front().data(), names.front().size());
  }
  return c;
}

Authenticator::Authenticator(std::shared_ptr<const UserTable> users, std::chrono::milliseconds maxLoginDelay)
    : enabled_(users != nullptr), throttle_(maxLoginDelay), users_(std::move(users)) {
  key_.resize(32);
  RAND_bytes(reinterpret_cast<unsigned char*>(key_.data()), static_cast<int>(key_.size()));
  if (enabled_) worker_ = std::thread([this] { run(); });
}

Authenticator::~Authenticator() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (worker_.joinable()) worker_.join();
}

bool Authenticator::enabled() const { return enabled_; }

void Authenticator::usersAre(std::shared_ptr<const UserTable> users) {
  if (!enabled_ || !users) return;
  std::lock_guard lock(mutex_);
  users_ = std::move(users);
  remembered_.clear();
}

uint64_t Authenticator::hashesVerified() const {
  std::lock_guard lock(mutex_);
  return hashesVerified_;
}

AuthResult Authenticator::refusal(const std::string& peer, const char* message) {
  AuthResult result;
  result.status = grpc::Status(grpc::StatusCode::UNAUTHENTICATED, message);
  result.delay = throttle_.failed(LoginThrottle::peerAddress(peer), LoginThrottle::Clock::now());
  ZOLT_TRACE(dbg, 1, "Auth", "{}: refused ({}), reply held back {} ms", peer, message, result.delay.count());
  return result;
}

void Authenticator::authenticate(Credentials credentials, Done done) {
  if (!enabled_) {
    AuthResult result;
    result.grant.user = credentials.certificateName;
    result.grant.role = Role::Write;
    return done(std::move(result));
  }
  std::shared_ptr<const UserTable> users;
  {
    std::lock_guard lock(mutex_);
    users = users_;
  }
  if (credentials.username.empty()) {
    const User* user = credentials.certificateName.empty() ? nullptr : users->find(credentials.certificateName);
    if (user == nullptr) return done(refusal(credentials.peer, NO_CREDENTIALS));
    throttle_.succeeded(LoginThrottle::peerAddress(credentials.peer));
    return done(AuthResult{grpc::Status::OK, Grant{user->name, user->role, user->prefixes}, {}});
  }
  const User* user = users->find(credentials.username);
  if (user != nullptr && !user->hash.empty() && remembered(user->name, credentials.password)) {
    return done(AuthResult{grpc::Status::OK, Grant{user->name, user->role, user->prefixes}, {}});
  }
  {
    std::lock_guard lock(mutex_);
    if (!stopping_) {
      checks_.push_back(Check{std::move(users), std::move(credentials), std::move(done)});
      wake_.notify_one();
      return;
    }
  }
  done(AuthResult{grpc::Status(grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"), {}, {}});
}

void Authenticator::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return stopping_ || !checks_.empty(); });
    if (checks_.empty()) return;
    Check check = std::move(checks_.front());
    checks_.pop_front();
    if (stopping_) {
      lock.unlock();
      check.done(AuthResult{grpc::Status(grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"), {}, {}});
      lock.lock();
      continue;
    }
    lock.unlock();
    verify(check);
    lock.lock();
  }
}

void Authenticator::verify(Check& check) {
  const Credentials& c = check.credentials;
  const User* user = check.users->find(c.username);
  // Unknown users and users without a password are verified against the
  // dummy hash: the same work, and it never matches.
  const bool hasHash = user != nullptr && !user->hash.empty();
  const bool matched = PasswordHash::verify(c.password, hasHash ? user->hash : check.users->dummyHash());
  {
    std::lock_guard lock(mutex_);
    ++hashesVerified_;
  }
  if (!(hasHash && matched)) return check.done(refusal(c.peer, WRONG));
  remember(*check.users, user->name, c.password);
  throttle_.succeeded(LoginThrottle::peerAddress(c.peer));
  check.done(AuthResult{grpc::Status::OK, Grant{user->name, user->role, user->prefixes}, {}});
}

std::string Authenticator::digest(const std::string& password) const {
  unsigned char out[EVP_MAX_MD_SIZE];
  unsigned int length = 0;
  HMAC(EVP_sha256(), key_.data(), static_cast<int>(key_.size()),
       reinterpret_cast<const unsigned char*>(password.data()), password.size(), out, &length);
  return std::string(reinterpret_cast<const char*>(out), length);
}

bool Authenticator::remembered(const std::string& user, const std::string& password) const {
  const std::string candidate = digest(password);
  std::lock_guard lock(mutex_);
  auto it = remembered_.find(user);
  return it != remembered_.end() && it->second.size() == candidate.size() &&
         CRYPTO_memcmp(it->second.data(), candidate.data(), candidate.size()) == 0;
}

void Authenticator::remember(const UserTable& verifiedWith, const std::string& user, const std::string& password) {
  std::string d = digest(password);
  std::lock_guard lock(mutex_);
  // A table reloaded while the hash was verified may hold another hash.
  if (users_.get() == &verifiedWith) remembered_[user] = std::move(d);
}

}  // namespace VekGnmi::Server
