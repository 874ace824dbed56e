#include "ShutdownWatchdog.h"

namespace VekGnmi::Server {

ShutdownWatchdog::ShutdownWatchdog(std::chrono::milliseconds grace, std::function<void()> onExpiry) {
  const auto deadline = std::chrono::steady_clock::now() + grace;
  thread_ = std::thread([this, deadline, onExpiry = std::move(onExpiry)] {
    std::unique_lock lock(mutex_);
    const bool woken = wake_.wait_until(lock, deadline, [this] { return disarmed_ || expireNow_; });
    if (woken && disarmed_) return;
    lock.unlock();
    onExpiry();
  });
}

ShutdownWatchdog::~ShutdownWatchdog() {
  {
    std::lock_guard lock(mutex_);
    disarmed_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void ShutdownWatchdog::expireNow() {
  {
    std::lock_guard lock(mutex_);
    expireNow_ = true;
  }
  wake_.notify_all();
}

}  // namespace VekGnmi::Server
