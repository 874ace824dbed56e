// Test helpers around the process-wide response-message pool: a snapshot of
// its counters and scoped changes to its contents and capacity. Every access
// takes ArenaRespMsg::mutex_, as the library does.
#pragma once

#include <cstdint>
#include <mutex>
#include <vector>

#include "Ostrel/ArenaRespMsg.h"

namespace OstrelTest {

struct PoolCounters {
  uint64_t msgs;      // arenaMsgCount
  uint64_t releases;  // arenaReleaseCount
  uint64_t recycles;  // arenaRecycleCount
  size_t pooled;      // arenaPool.size()
};

inline PoolCounters poolCounters() {
  std::lock_guard<Zolt::Locking::Lock> guard(Ostrel::ArenaRespMsg::mutex_);
  return {Ostrel::arenaMsgCount, Ostrel::arenaReleaseCount, Ostrel::arenaRecycleCount,
          Ostrel::arenaPool.size()};
}

inline void poolSizeIs(uint32_t size) {
  std::lock_guard<Zolt::Locking::Lock> guard(Ostrel::ArenaRespMsg::mutex_);
  Ostrel::ArenaPool::ARENA_POOL_SIZE = size;
}

// Takes every pooled message out of the pool and holds it, so that a test
// starts from an empty pool; gives them back when it goes out of scope.
class PoolEmptier {
 public:
  PoolEmptier() {
    while (poolCounters().pooled > 0) {
      held_.push_back(Ostrel::ArenaRespMsg::createResponse(gnmi::Path(), 0).msg);
    }
  }
  std::vector<Ostrel::ArenaRespMsgPtr> held_;
};

// Sets ARENA_POOL_SIZE for the scope of a test.
class PoolSizeOverride {
 public:
  explicit PoolSizeOverride(uint32_t size) {
    std::lock_guard<Zolt::Locking::Lock> guard(Ostrel::ArenaRespMsg::mutex_);
    previous_ = Ostrel::ArenaPool::ARENA_POOL_SIZE;
    Ostrel::ArenaPool::ARENA_POOL_SIZE = size;
  }
  ~PoolSizeOverride() { poolSizeIs(previous_); }
  PoolSizeOverride(const PoolSizeOverride&) = delete;
  PoolSizeOverride& operator=(const PoolSizeOverride&) = delete;

 private:
  uint32_t previous_;
};

}  // namespace OstrelTest
