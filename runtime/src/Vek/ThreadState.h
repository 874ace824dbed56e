// Per-thread state of the runtime: the thread's allocation counters (see
// `AllocTrackTypeInfo`) and its pool of freed value handles. Both live in one
// thread-local object so the hot paths that make and free value handles
// reach them with a single thread-local lookup. Private to the runtime.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

#include "Vek/AllocTrack.h"

namespace Vek {

struct AllocTrackTable;

// The calling thread's state. Constant-initialised and trivially
// destructible, so reaching it costs one thread-local lookup and no guard.
struct AllocTrackThreadState {
  // Null before the thread's first track call and once it has begun to
  // exit (`gone`).
  AllocTrackTable* table = nullptr;
  bool gone = false;
  // Freed value handles kept for reuse (see Value.cpp), linked through
  // their first word; released to the heap when the thread exits.
  void* freeHead = nullptr;
  size_t freeCount = 0;
};

// Access to the private counters of `AllocTrackTypeInfo` for the per-thread
// tables, which are defined in AllocTrack.cpp.
struct AllocTrackThreadAccess {
  static constexpr size_t CHUNK = 256;
  static constexpr size_t CHUNKS = 256;
  // Slots at and above this count go to the instance's shared atomics.
  static constexpr size_t CAPACITY = CHUNK * CHUNKS;

  struct Counter {
    std::atomic<int64_t> live{0};
    std::atomic<int64_t> bytes{0};
    std::atomic<uint64_t> total{0};
  };
  struct Chunk {
    Counter counters[CHUNK];
  };
  using Table = AllocTrackTable;

  using ThreadState = AllocTrackThreadState;
  static inline constinit thread_local ThreadState state{};
  // The calling thread's `state`. The address is laundered through an empty
  // asm so the compiler keeps it in a register: otherwise it recomputes it,
  // with another call to the thread-local resolver, after every call.
  static ThreadState& current() {
    ThreadState* st = &state;
#if defined(__GNUC__)
    asm("" : "+r"(st));
#endif
    return *st;
  }

  // Records a change on the thread whose state is `st`.
  static void change(ThreadState& st, AllocTrackTypeInfo& info, int64_t objects, int64_t bytes);

  // Attaches the thread's table or makes a chunk as needed, then records.
  static void changeSlow(ThreadState& st, AllocTrackTypeInfo& info, int64_t objects, int64_t bytes);
  // At thread exit: folds the thread's counts into the instances and frees
  // its pooled handles.
  static void reap();
};

// One thread's counters, one per instance slot, in chunks made on demand so
// that readers on other threads never see them move. Only the owning thread
// writes them.
struct AllocTrackTable {
  std::atomic<AllocTrackThreadAccess::Chunk*> chunks[AllocTrackThreadAccess::CHUNKS] = {};
  ~AllocTrackTable() {
    for (auto& chunk : chunks) delete chunk.load(std::memory_order_relaxed);
  }
};

inline void AllocTrackThreadAccess::change(ThreadState& st, AllocTrackTypeInfo& info,
                                           int64_t objects, int64_t bytes) {
  Table* table = st.table;
  const uint32_t slot = info.slot_;
  if (table && slot < CAPACITY) [[likely]] {
    Chunk* chunk = table->chunks[slot / CHUNK].load(std::memory_order_relaxed);
    if (chunk) [[likely]] {
      // Only this thread writes these counters: a plain load and store is
      // exact, and atomic so that readers on other threads see whole values.
      Counter& c = chunk->counters[slot % CHUNK];
      c.live.store(c.live.load(std::memory_order_relaxed) + objects, std::memory_order_relaxed);
      c.bytes.store(c.bytes.load(std::memory_order_relaxed) + bytes, std::memory_order_relaxed);
      if (objects > 0) {
        c.total.store(c.total.load(std::memory_order_relaxed) + static_cast<uint64_t>(objects),
                      std::memory_order_relaxed);
      }
      return;
    }
  }
  changeSlow(st, info, objects, bytes);
}

}  // namespace Vek
