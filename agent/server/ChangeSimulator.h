// The pacing of a simulated device's changes, shared by every model's change
// simulator (the demo device's ChurnSimulator, a YANG model's YangChurn).
//
// It makes `rate` changes per second of model time. The event loop calls
// `advance` every `period()` (the time between two changes, kept between
// 50 us and 10 ms), so changes go out one by one at their own times, not in
// bursts. It never owes more than `maxLag` seconds of changes: when the loop
// is too busy to call in time, the changes beyond that are dropped (counted
// in `skipped`), so a loaded agent is not asked for ever more changes at once.
//
// Runs on the event loop, like the model it changes.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace VekGnmi::Server {

class ChangeSimulator {
 public:
  static constexpr double DEFAULT_MAX_LAG = 0.05;

  explicit ChangeSimulator(double rate, double maxLag = DEFAULT_MAX_LAG);
  virtual ~ChangeSimulator();
  ChangeSimulator(const ChangeSimulator&) = delete;
  ChangeSimulator& operator=(const ChangeSimulator&) = delete;

  // Makes the changes due after `elapsedSeconds` more seconds (at most
  // `maxLag` seconds' worth, and at least one when one is due); returns how
  // many it made. None while the model has nothing to change.
  size_t advance(double elapsedSeconds);

  // How long to wait between calls of `advance`.
  std::chrono::nanoseconds period() const;

  // Changes dropped because the loop called too late.
  uint64_t skipped() const { return skipped_; }

 protected:
  // Whether the model has something to change now.
  virtual bool canChange() const = 0;
  // Makes one change.
  virtual void change() = 0;

 private:
  double rate_;
  double maxBurst_;
  double owed_ = 0;
  uint64_t skipped_ = 0;
};

}  // namespace VekGnmi::Server
