#include "LoginThrottle.h"

#include <algorithm>

namespace VekGnmi::Server {

std::chrono::milliseconds LoginThrottle::failed(std::string_view peer, Clock::time_point now) {
  std::lock_guard lock(mutex_);
  auto it = peers_.find(std::string(peer));
  if (it == peers_.end()) {
    makeRoom(now);
    it = peers_.emplace(std::string(peer), Entry{}).first;
  }
  Entry& entry = it->second;
  if (entry.failures > 0 && now - entry.last >= FORGET_AFTER) entry.failures = 0;
  entry.failures = std::min(entry.failures + 1, 64u);
  entry.last = now;
  if (entry.failures < 2) return std::chrono::milliseconds(0);
  const unsigned doublings = std::min(entry.failures - 2, 10u);
  return std::min(std::chrono::milliseconds(100) * (1u << doublings), maxDelay_);
}

void LoginThrottle::succeeded(std::string_view peer) {
  std::lock_guard lock(mutex_);
  peers_.erase(std::string(peer));
}

size_t LoginThrottle::peers() const {
  std::lock_guard lock(mutex_);
  return peers_.size();
}

void LoginThrottle::makeRoom(Clock::time_point now) {
  if (peers_.size() < MAX_PEERS) return;
  std::erase_if(peers_, [now](const auto& peer) { return now - peer.second.last >= FORGET_AFTER; });
  if (peers_.size() < MAX_PEERS) return;
  auto quietest = std::min_element(peers_.begin(), peers_.end(),
                                   [](const auto& a, const auto& b) { return a.second.last < b.second.last; });
  if (quietest == peers_.end()) return;
  const std::string key = quietest->first;
  peers_.erase(key);
}

std::string LoginThrottle::peerAddress(std::string_view grpcPeer) {
  if (grpcPeer.rfind("unix:", 0) == 0) return std::string(grpcPeer);
  const size_t colon = grpcPeer.rfind(':');
  const size_t bracket = grpcPeer.rfind(']');
  if (colon == std::string_view::npos || (bracket != std::string_view::npos && colon < bracket)) {
    return std::string(grpcPeer);
  }
  return std::string(grpcPeer.substr(0, colon));
}

}  // namespace VekGnmi::Server
