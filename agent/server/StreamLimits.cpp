#include "StreamLimits.h"

#include <fmt/format.h>

namespace VekGnmi::Server {

grpc::Status StreamLimits::admit(const std::string& user) {
  std::lock_guard lock(mutex_);
  if (total_ != 0 && open_ >= total_) {
    return {grpc::StatusCode::RESOURCE_EXHAUSTED,
            fmt::format("this target has {} Subscribe streams open, its limit (--max-streams)", open_)};
  }
  if (!user.empty() && perUser_ != 0) {
    auto it = perUserOpen_.find(user);
    if (it != perUserOpen_.end() && it->second >= perUser_) {
      return {grpc::StatusCode::RESOURCE_EXHAUSTED,
              fmt::format("user '{}' has {} Subscribe streams open, the limit per user (--max-streams-per-user)",
                          user, it->second)};
    }
  }
  ++open_;
  if (!user.empty()) ++perUserOpen_[user];
  return grpc::Status::OK;
}

void StreamLimits::release(const std::string& user) {
  std::lock_guard lock(mutex_);
  --open_;
  if (user.empty()) return;
  auto it = perUserOpen_.find(user);
  if (it != perUserOpen_.end() && --it->second == 0) perUserOpen_.erase(it);
}

size_t StreamLimits::open() const {
  std::lock_guard lock(mutex_);
  return open_;
}

size_t StreamLimits::openFor(const std::string& user) const {
  std::lock_guard lock(mutex_);
  auto it = perUserOpen_.find(user);
  return it == perUserOpen_.end() ? 0 : it->second;
}

}  // namespace VekGnmi::Server
