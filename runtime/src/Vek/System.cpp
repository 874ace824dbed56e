// The runtime's clock: the system clock and the installed replacement.
#include <atomic>
#include <chrono>

#include "Vek/System.h"

namespace Vek {

Clock::~Clock() = default;

namespace {

class SystemClock final : public Clock {
 public:
  Seconds currentTime() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  Seconds currentTimeUtc() const override {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  }
};

const SystemClock systemClock;
std::atomic<const Clock*> installedClock{&systemClock};

}  // namespace

Seconds System::currentTime() { return clock().currentTime(); }
Seconds System::currentTimeUtc() { return clock().currentTimeUtc(); }
const Clock& System::clock() { return *installedClock.load(std::memory_order_acquire); }
const Clock* System::clockIs(const Clock* clock) {
  const Clock* previous = installedClock.exchange(clock ? clock : &systemClock);
  return previous == &systemClock ? nullptr : previous;
}

}  // namespace Vek
