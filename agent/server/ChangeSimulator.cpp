#include "ChangeSimulator.h"

#include <algorithm>

namespace VekGnmi::Server {

ChangeSimulator::ChangeSimulator(double rate, double maxLag)
    : rate_(rate), maxBurst_(std::max(1.0, rate * maxLag)) {}

ChangeSimulator::~ChangeSimulator() = default;

std::chrono::nanoseconds ChangeSimulator::period() const {
  constexpr double LOWEST = 50e-6;
  constexpr double HIGHEST = 10e-3;
  const double seconds = rate_ > 0 ? std::clamp(1.0 / rate_, LOWEST, HIGHEST) : HIGHEST;
  return std::chrono::nanoseconds(static_cast<int64_t>(seconds * 1e9));
}

size_t ChangeSimulator::advance(double elapsedSeconds) {
  if (rate_ <= 0 || !canChange()) return 0;
  owed_ += elapsedSeconds * rate_;
  if (owed_ > maxBurst_) {
    skipped_ += static_cast<uint64_t>(owed_ - maxBurst_);
    owed_ = maxBurst_;
  }
  size_t made = 0;
  while (owed_ >= 1.0) {
    owed_ -= 1.0;
    change();
    ++made;
  }
  return made;
}

}  // namespace VekGnmi::Server
