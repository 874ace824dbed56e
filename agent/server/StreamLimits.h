// How many Subscribe streams may be open at once, in total and per user, so
// that clients cannot exhaust the device's memory and threads. A stream
// counts from its admission (after authentication) to the end of its RPC;
// beyond a limit the stream is refused with RESOURCE_EXHAUSTED before it
// reaches the agent. Anonymous clients (authentication off, no client
// certificate) count towards the total only. Thread-safe.
#pragma once

#include <mutex>
#include <string>
#include <unordered_map>

#include <grpcpp/support/status.h>

namespace VekGnmi::Server {

class StreamLimits {
 public:
  // 0: no limit.
  StreamLimits(size_t total, size_t perUser) : total_(total), perUser_(perUser) {}

  // OK and the stream counted, or RESOURCE_EXHAUSTED naming the limit.
  grpc::Status admit(const std::string& user);
  // The end of a stream that `admit` counted.
  void release(const std::string& user);

  size_t open() const;
  size_t openFor(const std::string& user) const;

 private:
  const size_t total_;
  const size_t perUser_;
  mutable std::mutex mutex_;
  size_t open_ = 0;
  std::unordered_map<std::string, size_t> perUserOpen_;
};

}  // namespace VekGnmi::Server
