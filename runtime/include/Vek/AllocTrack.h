// `Vek::AllocTrackTypeInfo`: live-object accounting per class or type.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "Zolt/Export.h"

namespace Vek {

// Counts the live objects and bytes of one kind of object. The runtime keeps
// one for each of its classes and for each type descriptor; other libraries
// keep one per class of runtime-visible objects they allocate and call the
// track functions from constructors and destructors. Instances are
// registered for `forEach` and must have static storage duration or outlive
// every user.
//
// Tracking is cheap enough for objects made on every read: each thread
// counts into counters of its own with plain (relaxed, uncontended) loads and
// stores, no read-modify-write, and a thread's counts are folded into the
// instance when it exits. Reading sums the instance and every live thread's
// counters under a lock, so reads cost more than updates. An object may be
// freed on another thread than the one that allocated it. Counts are exact
// whenever no thread is inside a track call: after the threads that allocate
// have joined, or at any point on a single thread. A read racing with
// updates on other threads may miss some of them, as with any running count.
class VEK_EXPORT AllocTrackTypeInfo {
 public:
  explicit AllocTrackTypeInfo(std::string name);
  ~AllocTrackTypeInfo();
  AllocTrackTypeInfo(const AllocTrackTypeInfo&) = delete;
  AllocTrackTypeInfo& operator=(const AllocTrackTypeInfo&) = delete;

  const std::string& name() const { return name_; }

  // One object of `bytes` bytes was allocated / freed.
  void trackAllocation(size_t bytes) { change(1, static_cast<int64_t>(bytes)); }
  void trackDeallocation(size_t bytes) { change(-1, -static_cast<int64_t>(bytes)); }
  // An array of `count` objects taking `bytes` bytes was allocated / freed.
  void trackArrayAllocation(size_t count, size_t bytes) {
    change(static_cast<int64_t>(count), static_cast<int64_t>(bytes));
  }
  void trackArrayDeallocation(size_t count, size_t bytes) {
    change(-static_cast<int64_t>(count), -static_cast<int64_t>(bytes));
  }

  // Objects allocated and not yet freed.
  int64_t liveObjects() const;
  int64_t liveBytes() const;
  // Objects allocated since the start.
  uint64_t totalAllocations() const;

  // Calls `fn` for every registered instance (under the registry lock: `fn`
  // must not create or destroy instances).
  static void forEach(const std::function<void(const AllocTrackTypeInfo&)>& fn);
  // Sum of `liveObjects` over all instances.
  static int64_t totalLiveObjects();

 private:
  struct Sums {
    int64_t live = 0;
    int64_t bytes = 0;
    uint64_t total = 0;
  };
  friend struct AllocTrackThreadAccess;

  void change(int64_t objects, int64_t bytes);
  Sums sums() const;

  std::string name_;
  // Index of this instance's counters in every thread's counter table.
  uint32_t slot_;
  // Counts of threads that have exited, and changes made where a thread has
  // no counters of its own (during its exit, or past the table's capacity).
  std::atomic<int64_t> live_{0};
  std::atomic<int64_t> bytes_{0};
  std::atomic<uint64_t> total_{0};
};

}  // namespace Vek
