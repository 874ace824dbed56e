#include "Clock.h"

#include <Vek/Vek.h>

namespace VekGnmi::Server {

Clock::~Clock() = default;

Clock::Duration SystemClock::now() const {
  return std::chrono::duration_cast<Duration>(std::chrono::steady_clock::now().time_since_epoch());
}

int64_t SystemClock::utcNanos() const {
  return static_cast<int64_t>(static_cast<double>(Vek::System::currentTimeUtc()) * 1000000000.0);
}

Clock& systemClock() {
  static SystemClock clock;
  return clock;
}

Clock::Duration ManualClock::now() const {
  std::lock_guard lock(mutex_);
  return now_;
}

int64_t ManualClock::utcNanos() const {
  std::lock_guard lock(mutex_);
  return utc_;
}

uint64_t ManualClock::onAdvance(std::function<void()> wake) {
  std::lock_guard lock(wakesMutex_);
  wakes_.emplace_back(nextToken_, std::move(wake));
  return nextToken_++;
}

void ManualClock::removeWake(uint64_t token) {
  std::lock_guard lock(wakesMutex_);
  std::erase_if(wakes_, [token](const auto& w) { return w.first == token; });
}

void ManualClock::advance(Duration delta) {
  {
    std::lock_guard lock(mutex_);
    now_ += delta;
    utc_ += delta.count();
  }
  // Woken under the wakes' lock, so that a loop removing its wake waits for
  // a wake in progress (a wake only notifies a condition variable), but not
  // under the time's: a loop reads the time while holding its own lock,
  // which a wake takes.
  std::lock_guard lock(wakesMutex_);
  for (const auto& [token, wake] : wakes_) wake();
}

}  // namespace VekGnmi::Server
