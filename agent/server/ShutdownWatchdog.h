// Bounds how long vekgnmid takes to stop. Stopping asks the event loop to
// end every stream, and a loop busy with a large sync may not get to it for
// a long time; the watchdog does not depend on the loop: armed when the
// signal arrives, it calls its expiry action (vekgnmid: print a line and
// exit the process) when the grace period passes before it is disarmed, or
// at once on `expireNow` (a second signal).
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace VekGnmi::Server {

class ShutdownWatchdog {
 public:
  // Arms the watchdog: `onExpiry` runs on the watchdog's thread `grace`
  // from now unless the watchdog is destroyed first.
  ShutdownWatchdog(std::chrono::milliseconds grace, std::function<void()> onExpiry);
  // Disarms it: `onExpiry` has run, or will never run.
  ~ShutdownWatchdog();
  ShutdownWatchdog(const ShutdownWatchdog&) = delete;
  ShutdownWatchdog& operator=(const ShutdownWatchdog&) = delete;

  // Runs `onExpiry` now, without waiting for the grace period.
  void expireNow();

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  bool disarmed_ = false;
  bool expireNow_ = false;
  std::thread thread_;
};

}  // namespace VekGnmi::Server
