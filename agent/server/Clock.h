// The agent's time: monotonic time for its event loop's timers (heartbeats,
// samples, the change simulator, slow-subscriber checks) and UTC time for the
// timestamps it gives notifications.
//
//   SystemClock   the machine's steady clock for timers; UTC from the
//                 runtime's clock (Vek::System), the same source the library
//                 stamps changes with
//   ManualClock   a clock a test moves by hand: timers fire only as it
//                 advances, so heartbeats, samples and timeouts are tested
//                 without waiting or sleeping
//
// Both are safe to read from any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <utility>
#include <vector>

namespace VekGnmi::Server {

class Clock {
 public:
  using Duration = std::chrono::nanoseconds;

  virtual ~Clock();
  // Monotonic time from an arbitrary origin.
  virtual Duration now() const = 0;
  // Nanoseconds since the Unix epoch.
  virtual int64_t utcNanos() const = 0;
  // Whether time passes by itself. An event loop waits for its next timer
  // with a timeout only on such a clock; on a clock that moves only when told,
  // it waits until woken (see ManualClock::onAdvance).
  virtual bool passesByItself() const = 0;
  // Registers `wake`, called after every move of a clock that does not pass
  // by itself (never for one that does); returns a token for `removeWake`,
  // which must be called before whatever `wake` uses goes away.
  virtual uint64_t onAdvance(std::function<void()> wake) = 0;
  virtual void removeWake(uint64_t token) = 0;
};

// The process's clock: steady_clock for timers, the runtime's UTC.
class SystemClock final : public Clock {
 public:
  Duration now() const override;
  int64_t utcNanos() const override;
  bool passesByItself() const override { return true; }
  uint64_t onAdvance(std::function<void()>) override { return 0; }
  void removeWake(uint64_t) override {}
};
// The one SystemClock of the process.
Clock& systemClock();

// Time that moves only when a test says so. Starts at monotonic 0 and at
// `utc` (nanoseconds since the epoch).
class ManualClock final : public Clock {
 public:
  explicit ManualClock(int64_t utcNanos = 1800000000LL * 1000000000LL) : utc_(utcNanos) {}

  Duration now() const override;
  int64_t utcNanos() const override;
  bool passesByItself() const override { return false; }
  uint64_t onAdvance(std::function<void()> wake) override;
  void removeWake(uint64_t token) override;

  // Moves both readings forward by `delta` and wakes every registered loop,
  // which then runs the timers that have come due.
  void advance(Duration delta);

 private:
  mutable std::mutex mutex_;  // the time
  Duration now_{0};
  int64_t utc_;
  std::mutex wakesMutex_;  // the wakes; taken before a loop's lock, never under mutex_
  std::vector<std::pair<uint64_t, std::function<void()>>> wakes_;
  uint64_t nextToken_ = 1;
};

}  // namespace VekGnmi::Server
