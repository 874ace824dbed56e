// Allocation accounting (`AllocTrackTypeInfo`): the registry of instances and
// the per-thread counter tables that tracking writes and reading sums.
#include <algorithm>
#include <mutex>
#include <utility>
#include <vector>

#include "ThreadState.h"
#include "Vek/AllocTrack.h"
#include "Zolt/Zolt.h"

namespace Vek {

namespace {

// Instances register here so `forEach` can list them. The registry is never
// destroyed: instances with static storage may unregister during exit.
struct AllocRegistry {
  Zolt::Locking::Lock lock;
  std::vector<const AllocTrackTypeInfo*> infos;
};
AllocRegistry& allocRegistry() {
  static AllocRegistry* registry = new AllocRegistry;
  return *registry;
}

// The per-thread counter tables and the instance of each slot. Never
// destroyed: threads and static instances may use it during exit. Its lock
// guards the list of tables (read by other threads summing counts) and the
// folding of a table into the instances when its thread exits.
struct CounterRegistry {
  std::mutex lock;
  // The instance of each slot; null once it is destroyed. Slots are not
  // reused, so a destroyed instance's leftover counts reach no other.
  std::vector<AllocTrackTypeInfo*> bySlot;
  std::vector<AllocTrackThreadAccess::Table*> tables;
};
CounterRegistry& counterRegistry() {
  static CounterRegistry* reg = new CounterRegistry;
  return *reg;
}

// Runs `AllocTrackThreadAccess::reap` when its thread exits; armed when the
// thread attaches its table.
struct Reaper {
  ~Reaper() { AllocTrackThreadAccess::reap(); }
  void arm() {}
};
thread_local Reaper reaper;

}  // namespace

void AllocTrackThreadAccess::changeSlow(ThreadState& st, AllocTrackTypeInfo& info, int64_t objects,
                                        int64_t bytes) {
  const uint32_t slot = info.slot_;
  if (!st.table && !st.gone) {
    auto* table = new Table;
    auto& reg = counterRegistry();
    {
      std::lock_guard guard(reg.lock);
      // Chunks for every instance that exists now, so that a warm thread
      // makes no allocation for them later.
      const size_t slots = std::min(reg.bySlot.size(), CAPACITY);
      for (size_t i = 0; i * CHUNK < slots; ++i) {
        table->chunks[i].store(new Chunk, std::memory_order_relaxed);
      }
      reg.tables.push_back(table);
    }
    st.table = table;
    reaper.arm();
  }
  if (st.table && slot < CAPACITY) {
    if (!st.table->chunks[slot / CHUNK].load(std::memory_order_relaxed)) {
      st.table->chunks[slot / CHUNK].store(new Chunk, std::memory_order_release);
    }
    change(st, info, objects, bytes);
    return;
  }
  info.live_.fetch_add(objects, std::memory_order_relaxed);
  info.bytes_.fetch_add(bytes, std::memory_order_relaxed);
  if (objects > 0) info.total_.fetch_add(static_cast<uint64_t>(objects), std::memory_order_relaxed);
}

void AllocTrackThreadAccess::reap() {
  ThreadState& st = current();
  st.gone = true;
  while (st.freeHead) {
    void* next = *static_cast<void**>(st.freeHead);
    ::operator delete(st.freeHead);
    st.freeHead = next;
  }
  st.freeCount = 0;
  Table* table = std::exchange(st.table, nullptr);
  if (!table) return;
  auto& reg = counterRegistry();
  {
    std::lock_guard guard(reg.lock);
    std::erase(reg.tables, table);
    for (size_t slot = 0; slot < reg.bySlot.size() && slot < CAPACITY; ++slot) {
      AllocTrackTypeInfo* info = reg.bySlot[slot];
      const Chunk* chunk = table->chunks[slot / CHUNK].load(std::memory_order_relaxed);
      if (!info || !chunk) continue;
      const Counter& c = chunk->counters[slot % CHUNK];
      info->live_.fetch_add(c.live.load(std::memory_order_relaxed), std::memory_order_relaxed);
      info->bytes_.fetch_add(c.bytes.load(std::memory_order_relaxed), std::memory_order_relaxed);
      info->total_.fetch_add(c.total.load(std::memory_order_relaxed), std::memory_order_relaxed);
    }
  }
  delete table;
}

AllocTrackTypeInfo::AllocTrackTypeInfo(std::string name) : name_(std::move(name)) {
  {
    auto& counters = counterRegistry();
    std::lock_guard guard(counters.lock);
    slot_ = static_cast<uint32_t>(counters.bySlot.size());
    counters.bySlot.push_back(this);
  }
  auto& reg = allocRegistry();
  std::lock_guard guard(reg.lock);
  reg.infos.push_back(this);
}

AllocTrackTypeInfo::~AllocTrackTypeInfo() {
  {
    auto& reg = allocRegistry();
    std::lock_guard guard(reg.lock);
    std::erase(reg.infos, this);
  }
  auto& counters = counterRegistry();
  std::lock_guard guard(counters.lock);
  counters.bySlot[slot_] = nullptr;
}

void AllocTrackTypeInfo::change(int64_t objects, int64_t bytes) {
  AllocTrackThreadAccess::change(AllocTrackThreadAccess::current(), *this, objects, bytes);
}

AllocTrackTypeInfo::Sums AllocTrackTypeInfo::sums() const {
  using A = AllocTrackThreadAccess;
  auto& counters = counterRegistry();
  std::lock_guard guard(counters.lock);
  Sums out;
  out.live = live_.load(std::memory_order_relaxed);
  out.bytes = bytes_.load(std::memory_order_relaxed);
  out.total = total_.load(std::memory_order_relaxed);
  if (slot_ >= A::CAPACITY) return out;
  for (const A::Table* table : counters.tables) {
    const A::Chunk* chunk = table->chunks[slot_ / A::CHUNK].load(std::memory_order_acquire);
    if (!chunk) continue;
    const A::Counter& c = chunk->counters[slot_ % A::CHUNK];
    out.live += c.live.load(std::memory_order_relaxed);
    out.bytes += c.bytes.load(std::memory_order_relaxed);
    out.total += c.total.load(std::memory_order_relaxed);
  }
  return out;
}

int64_t AllocTrackTypeInfo::liveObjects() const { return sums().live; }
int64_t AllocTrackTypeInfo::liveBytes() const { return sums().bytes; }
uint64_t AllocTrackTypeInfo::totalAllocations() const { return sums().total; }

void AllocTrackTypeInfo::forEach(const std::function<void(const AllocTrackTypeInfo&)>& fn) {
  auto& reg = allocRegistry();
  std::lock_guard guard(reg.lock);
  for (const auto* info : reg.infos) fn(*info);
}

int64_t AllocTrackTypeInfo::totalLiveObjects() {
  int64_t total = 0;
  forEach([&](const AllocTrackTypeInfo& info) { total += info.liveObjects(); });
  return total;
}

}  // namespace Vek
