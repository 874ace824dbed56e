// `Vek::HashMix`: the runtime's byte-mixing hash accumulator.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "Zolt/Export.h"

namespace Vek {

// Accumulates bytes four at a time into a 64-bit state and reads out as an
// unsigned 32-bit value (the state finalised and folded). Equal byte sequences
// fed in the same order give equal results on every run and platform of the
// same endianness.
class HashMix {
 public:
  explicit HashMix(uint64_t seed = 0x9e3779b97f4a7c15ull) : state_(seed) {}

  // Mixes four bytes.
  void mixBytes4(uint32_t word) {
    uint64_t k = word * 0xcc9e2d51ull;
    k = (k << 15) | (k >> 49);
    state_ ^= k * 0x1b873593ull;
    state_ = ((state_ << 27) | (state_ >> 37)) * 5 + 0x52dce729ull;
    ++count_;
  }
  // Mixes the four bytes at `bytes` (no alignment needed).
  void mixBytes4(const void* bytes) {
    uint32_t word;
    std::memcpy(&word, bytes, 4);
    mixBytes4(word);
  }
  // Mixes `size` bytes: whole words, then the zero-padded tail, then the
  // length (so "a" and "a\0" differ).
  VEK_EXPORT void mixBytes(const void* bytes, size_t size);
  void mixBytes8(uint64_t word) {
    mixBytes4(static_cast<uint32_t>(word));
    mixBytes4(static_cast<uint32_t>(word >> 32));
  }

  // The finalised state folded to 32 bits. Does not change the accumulator.
  uint32_t value() const {
    uint64_t h = state_ ^ count_;
    h ^= h >> 33;
    h *= 0xff51afd7ed558ccdull;
    h ^= h >> 33;
    h *= 0xc4ceb9fe1a85ec53ull;
    h ^= h >> 33;
    return static_cast<uint32_t>(h ^ (h >> 32));
  }
  operator uint32_t() const { return value(); }  // NOLINT

 private:
  uint64_t state_;
  uint64_t count_ = 0;
};

}  // namespace Vek
