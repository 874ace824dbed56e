// Slows down a peer that keeps failing to authenticate: the reply to each
// failure waits longer than the one before, up to a second, and the count is
// forgotten after a quiet minute or the peer's next success.
//
//   failures in a row  1   2      3      4      5      6 and more
//   reply delayed by   0   100ms  200ms  400ms  800ms  1s
//
// A peer is the client's address without its port (each new connection has
// a new port). The longest delay can be lowered (0: never delay) where
// something in front of the agent limits logins already. The table holds at most MAX_PEERS peers; when it is full the
// quietest are forgotten. Time is given by the caller (tests control it).
// Thread-safe.
#pragma once

#include <chrono>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace VekGnmi::Server {

class LoginThrottle {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr size_t MAX_PEERS = 4096;
  static constexpr std::chrono::milliseconds MAX_DELAY{1000};
  static constexpr std::chrono::seconds FORGET_AFTER{60};

  explicit LoginThrottle(std::chrono::milliseconds maxDelay = MAX_DELAY) : maxDelay_(maxDelay) {}

  // Records a failure of `peer` at `now`; returns how long its reply waits.
  std::chrono::milliseconds failed(std::string_view peer, Clock::time_point now);
  // Forgets the failures of `peer`.
  void succeeded(std::string_view peer);
  size_t peers() const;

  // gRPC's peer text ("ipv4:10.1.2.3:5555", "ipv6:[::1]:5555",
  // "unix:/path") without the port.
  static std::string peerAddress(std::string_view grpcPeer);

 private:
  struct Entry {
    unsigned failures = 0;
    Clock::time_point last;
  };
  void makeRoom(Clock::time_point now);

  const std::chrono::milliseconds maxDelay_;
  mutable std::mutex mutex_;
  std::unordered_map<std::string, Entry> peers_;
};

}  // namespace VekGnmi::Server
