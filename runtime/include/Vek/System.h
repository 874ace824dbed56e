// `Vek::System`: the runtime's clock, replaceable for tests.
#pragma once

#include "Vek/Basics.h"

namespace Vek {

// A source of time. The default clock reads the system's steady and real-time
// clocks; tests install a `TestClock`.
class VEK_EXPORT Clock {
 public:
  virtual ~Clock();
  // Monotonic seconds from an arbitrary origin.
  virtual Seconds currentTime() const = 0;
  // Seconds since the Unix epoch (UTC), with sub-second precision.
  virtual Seconds currentTimeUtc() const = 0;
};

// A clock that moves only when told: both readings start at the given values
// and advance together. Not synchronised: set it while no other thread reads.
class VEK_EXPORT TestClock : public Clock {
 public:
  explicit TestClock(Seconds monotonic = 1000.0, Seconds utc = 1800000000.0)
      : now_(monotonic), utc_(utc) {}
  Seconds currentTime() const override { return now_; }
  Seconds currentTimeUtc() const override { return utc_; }
  // Sets the monotonic reading and moves the UTC reading by the same amount.
  void currentTimeIs(Seconds now) {
    utc_ = utc_ + (now - now_);
    now_ = now;
  }
  void currentTimeUtcIs(Seconds utc) { utc_ = utc; }
  // Moves both readings forward by `delta`.
  void advance(Seconds delta) {
    now_ = now_ + delta;
    utc_ = utc_ + delta;
  }

 private:
  Seconds now_;
  Seconds utc_;
};

// Time as the runtime and its users see it.
class VEK_EXPORT System {
 public:
  // Monotonic seconds (the installed clock's `currentTime`).
  static Seconds currentTime();
  // Seconds since the Unix epoch (the installed clock's `currentTimeUtc`).
  static Seconds currentTimeUtc();
  // Installs `clock` (not owned; null restores the system clock) and returns
  // the previous one.
  static const Clock* clockIs(const Clock* clock);
  static const Clock& clock();
};

// Installs a clock for the lifetime of the scope, then restores the previous.
class ScopedClock {
 public:
  explicit ScopedClock(const Clock& clock) : previous_(System::clockIs(&clock)) {}
  ~ScopedClock() { System::clockIs(previous_); }
  ScopedClock(const ScopedClock&) = delete;
  ScopedClock& operator=(const ScopedClock&) = delete;

 private:
  const Clock* previous_;
};

}  // namespace Vek
