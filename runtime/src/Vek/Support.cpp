// Small runtime services: allocation accounting, the clock, exceptions, the
// byte mixer and the generic hash map.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <mutex>
#include <utility>
#include <vector>

#include "ThreadState.h"
#include "Vek/AllocTrack.h"
#include "Vek/Exception.h"
#include "Vek/GenericIf.h"
#include "Vek/HashMap.h"
#include "Vek/HashMix.h"
#include "Vek/System.h"
#include "Vek/Type.h"
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

}  // namespace

// ---------------------------------------------------------------- per-thread counters

namespace {

// Never destroyed: threads and static instances may use it during exit. Its
// lock guards the list of tables (read by other threads summing counts) and
// the folding of a table into the instances when its thread exits.
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

// ---------------------------------------------------------------- clock

Clock::~Clock() = default;

namespace {

class SystemClock final : public Clock {
 public:
  Seconds currentTime() const override {
    return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
  }
  Seconds currentTimeUtc() const override {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  }
};

const SystemClock systemClock;
std::atomic<const Clock*> installedClock{&systemClock};

}  // namespace

Seconds System::currentTime() { return clock().currentTime(); }
Seconds System::currentTimeUtc() { return clock().currentTimeUtc(); }
const Clock& System::clock() { return *installedClock.load(std::memory_order_acquire); }
const Clock* System::clockIs(const Clock* clock) {
  const Clock* previous = installedClock.exchange(clock ? clock : &systemClock);
  return previous == &systemClock ? nullptr : previous;
}

// ---------------------------------------------------------------- exceptions

Exception::~Exception() = default;
ValueRejectedException::~ValueRejectedException() = default;
TypeMismatchException::~TypeMismatchException() = default;
ParseException::~ParseException() = default;
EnumException::~EnumException() = default;

void throwNotEnumTypeException(const VekTypeBase& type) {
  throw EnumException(fmt::format("{} is not an enumeration", type.qualifiedName()));
}
void throwNotEnumConstantException(const VekTypeBase& type, const std::string& name) {
  throw EnumException(fmt::format("{} has no enumerator {}", type.qualifiedName(), name));
}
void throwEnumAttrWrongTypeException(const VekTypeBase& type, const std::string& attrName) {
  throw EnumException(fmt::format("{} of {} is not an enumerator", attrName, type.qualifiedName()));
}
void throwEnumValueWrongUnderlyingTypeException(const VekTypeBase& type, const char* givenType) {
  throw EnumException(fmt::format("{} is over {}, not {}", type.qualifiedName(),
                                  type.underlyingType() ? type.underlyingType()->name() : "nothing",
                                  givenType));
}

// ---------------------------------------------------------------- hashing

void HashMix::mixBytes(const void* bytes, size_t size) {
  const auto* p = static_cast<const unsigned char*>(bytes);
  size_t i = 0;
  for (; i + 4 <= size; i += 4) mixBytes4(p + i);
  if (i < size) {
    unsigned char tail[4] = {0, 0, 0, 0};
    std::memcpy(tail, p + i, size - i);
    mixBytes4(tail);
  }
  mixBytes4(static_cast<uint32_t>(size));
}

HashMap2018Generic::HashMap2018Generic(const HashMapOps& ops, float maxLoadFactor)
    : ops_(&ops), maxLoadFactor_(maxLoadFactor > 0.0f ? maxLoadFactor : 1.0f) {
  const auto roundUp = [](size_t n, size_t a) { return (n + a - 1) / a * a; };
  nodeAlign_ = std::max({alignof(Node), ops.keyAlign, ops.valueAlign});
  keyOffset_ = roundUp(sizeof(Node), ops.keyAlign);
  valueOffset_ = roundUp(keyOffset_ + ops.keySize, ops.valueAlign);
  nodeSize_ = roundUp(valueOffset_ + ops.valueSize, nodeAlign_);
}

HashMap2018Generic::HashMap2018Generic(HashMap2018Generic&& other) noexcept
    : ops_(other.ops_),
      maxLoadFactor_(other.maxLoadFactor_),
      keyOffset_(other.keyOffset_),
      valueOffset_(other.valueOffset_),
      nodeSize_(other.nodeSize_),
      nodeAlign_(other.nodeAlign_),
      buckets_(std::exchange(other.buckets_, nullptr)),
      bucketCount_(std::exchange(other.bucketCount_, 0)),
      size_(std::exchange(other.size_, 0)),
      chunks_(std::exchange(other.chunks_, nullptr)),
      carve_(std::exchange(other.carve_, nullptr)),
      carveEnd_(std::exchange(other.carveEnd_, nullptr)),
      free_(std::exchange(other.free_, nullptr)),
      nextChunkNodes_(other.nextChunkNodes_) {}

HashMap2018Generic::~HashMap2018Generic() {
  clear();
  delete[] buckets_;
  for (void* chunk = chunks_; chunk;) {
    void* next = *static_cast<void**>(chunk);
    ::operator delete(chunk, std::align_val_t(nodeAlign_));
    chunk = next;
  }
}

namespace {
// Chunks grow to this many nodes: small enough for the allocator to serve
// them from memory it keeps (large blocks are mapped afresh each time and
// page-faulted in).
constexpr size_t MAX_CHUNK_NODES = 1024;
}  // namespace

void HashMap2018Generic::addChunk(size_t nodes) {
  // The link to the previous chunk sits in a header as aligned as a node.
  const size_t header = (sizeof(void*) + nodeAlign_ - 1) / nodeAlign_ * nodeAlign_;
  auto* chunk = static_cast<char*>(::operator new(header + nodes * nodeSize_, std::align_val_t(nodeAlign_)));
  *reinterpret_cast<void**>(chunk) = chunks_;
  chunks_ = chunk;
  // What is left of the previous chunk goes to the free list.
  while (carve_ && carve_ + nodeSize_ <= carveEnd_) {
    releaseNode(carve_);
    carve_ += nodeSize_;
  }
  carve_ = chunk + header;
  carveEnd_ = carve_ + nodes * nodeSize_;
}

void* HashMap2018Generic::allocateNode() {
  if (free_) {
    void* node = free_;
    free_ = *static_cast<void**>(node);
    return node;
  }
  if (static_cast<size_t>(carveEnd_ - carve_) < nodeSize_) {
    addChunk(nextChunkNodes_);
    nextChunkNodes_ = std::min<size_t>(nextChunkNodes_ * 2, MAX_CHUNK_NODES);
  }
  void* node = carve_;
  carve_ += nodeSize_;
  return node;
}

void HashMap2018Generic::releaseNode(void* node) {
  *static_cast<void**>(node) = free_;
  free_ = node;
}

const void* HashMap2018Generic::keyOf(const Node* node) const {
  return reinterpret_cast<const char*>(node) + keyOffset_;
}
void* HashMap2018Generic::valueOf(const Node* node) const {
  return const_cast<char*>(reinterpret_cast<const char*>(node)) + valueOffset_;
}

HashMap2018Generic::Node* HashMap2018Generic::findNode(const void* key, uint32_t hash) const {
  if (bucketCount_ == 0) return nullptr;
  for (Node* n = buckets_[hash & (bucketCount_ - 1)]; n; n = n->next) {
    if (n->hash == hash && ops_->equal(keyOf(n), key)) return n;
  }
  return nullptr;
}

void* HashMap2018Generic::find(const void* key) const {
  Node* n = findNode(key, ops_->hash(key));
  return n ? valueOf(n) : nullptr;
}

void HashMap2018Generic::grow() { rehash(bucketCount_ ? bucketCount_ * 2 : 8); }

void HashMap2018Generic::reserve(size_t count) {
  size_t buckets = bucketCount_ ? bucketCount_ : 8;
  while (static_cast<float>(count) > maxLoadFactor_ * static_cast<float>(buckets)) buckets *= 2;
  if (buckets > bucketCount_) rehash(buckets);
  // Room for the nodes too, in one chunk, unless free nodes and the chunk in
  // hand cover it already.
  if (count > size_) {
    size_t spare = carve_ ? static_cast<size_t>(carveEnd_ - carve_) / nodeSize_ : 0;
    for (void* n = free_; n && spare < count - size_; n = *static_cast<void**>(n)) ++spare;
    if (spare < count - size_) addChunk(count - size_ - spare);
  }
}

void HashMap2018Generic::rehash(size_t count) {
  auto** buckets = new Node*[count]();
  for (size_t b = 0; b < bucketCount_; ++b) {
    for (Node* n = buckets_[b]; n;) {
      Node* next = n->next;
      Node*& head = buckets[n->hash & (count - 1)];
      n->next = head;
      head = n;
      n = next;
    }
  }
  delete[] buckets_;
  buckets_ = buckets;
  bucketCount_ = count;
}

void* HashMap2018Generic::insert(const void* key, const void* value) {
  const uint32_t hash = ops_->hash(key);
  if (Node* n = findNode(key, hash)) {
    ops_->assignValue(valueOf(n), value);
    return valueOf(n);
  }
  if (static_cast<float>(size_ + 1) > maxLoadFactor_ * static_cast<float>(bucketCount_)) grow();
  // A copy that throws leaves the map as it was: the node and whatever part
  // of it was already built go again before the exception passes on.
  void* raw = allocateNode();
  auto* n = new (raw) Node{nullptr, hash};
  try {
    ops_->copyKey(const_cast<void*>(keyOf(n)), key);
  } catch (...) {
    releaseNode(raw);
    throw;
  }
  try {
    ops_->copyValue(valueOf(n), value);
  } catch (...) {
    ops_->destroyKey(const_cast<void*>(keyOf(n)));
    releaseNode(raw);
    throw;
  }
  Node*& head = buckets_[hash & (bucketCount_ - 1)];
  n->next = head;
  head = n;
  ++size_;
  return valueOf(n);
}

void HashMap2018Generic::freeNode(Node* node) {
  ops_->destroyValue(valueOf(node));
  ops_->destroyKey(const_cast<void*>(keyOf(node)));
  releaseNode(node);
}

bool HashMap2018Generic::erase(const void* key) {
  if (bucketCount_ == 0) return false;
  const uint32_t hash = ops_->hash(key);
  for (Node** link = &buckets_[hash & (bucketCount_ - 1)]; *link; link = &(*link)->next) {
    Node* n = *link;
    if (n->hash == hash && ops_->equal(keyOf(n), key)) {
      *link = n->next;
      --size_;
      freeNode(n);
      return true;
    }
  }
  return false;
}

void HashMap2018Generic::clear() {
  for (size_t b = 0; b < bucketCount_; ++b) {
    for (Node* n = std::exchange(buckets_[b], nullptr); n;) {
      Node* next = n->next;
      freeNode(n);
      n = next;
    }
  }
  size_ = 0;
}

HashMap2018Generic::Node* HashMap2018Generic::first() const {
  for (size_t b = 0; b < bucketCount_; ++b) {
    if (buckets_[b]) return buckets_[b];
  }
  return nullptr;
}

HashMap2018Generic::Node* HashMap2018Generic::next(const Node* node) const {
  if (node->next) return node->next;
  for (size_t b = (node->hash & (bucketCount_ - 1)) + 1; b < bucketCount_; ++b) {
    if (buckets_[b]) return buckets_[b];
  }
  return nullptr;
}

}  // namespace Vek
