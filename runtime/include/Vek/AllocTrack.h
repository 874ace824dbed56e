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
// track functions from constructors and destructors. Counters are relaxed
// atomics: exact once the threads that allocate have joined. Instances are
// registered for `forEach` and must have static storage duration or outlive
// every user.
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
  int64_t liveObjects() const { return live_.load(std::memory_order_relaxed); }
  int64_t liveBytes() const { return bytes_.load(std::memory_order_relaxed); }
  // Objects allocated since the start.
  uint64_t totalAllocations() const { return total_.load(std::memory_order_relaxed); }

  // Calls `fn` for every registered instance (under the registry lock: `fn`
  // must not create or destroy instances).
  static void forEach(const std::function<void(const AllocTrackTypeInfo&)>& fn);
  // Sum of `liveObjects` over all instances.
  static int64_t totalLiveObjects();

 private:
  void change(int64_t objects, int64_t bytes) {
    live_.fetch_add(objects, std::memory_order_relaxed);
    bytes_.fetch_add(bytes, std::memory_order_relaxed);
    if (objects > 0) total_.fetch_add(static_cast<uint64_t>(objects), std::memory_order_relaxed);
  }

  std::string name_;
  std::atomic<int64_t> live_{0};
  std::atomic<int64_t> bytes_{0};
  std::atomic<uint64_t> total_{0};
};

}  // namespace Vek
