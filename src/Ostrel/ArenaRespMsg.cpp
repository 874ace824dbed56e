// Arena-backed response messages, their pool and their trace rendering.
#include "Ostrel/ArenaRespMsg.h"

#include <algorithm>
#include <iterator>
#include <mutex>
#include <new>
#include <utility>

#include <fmt/format.h>

#include "Ostrel/Path.h"
#include "Ostrel/VekGnmiUtils.h"

namespace Ostrel {

// Constant-initialised: usable before any constructor of this file has run
// and after every destructor.
Zolt::Locking::Lock ArenaRespMsg::mutex_;
uint32_t ArenaPool::ARENA_POOL_SIZE = 2000;
uint64_t arenaMsgCount = 0;
uint64_t arenaReleaseCount = 0;
uint64_t arenaRecycleCount = 0;

namespace {

// True between the construction and the destruction of `arenaPool`, so that
// responses created or released during static initialisation or destruction
// of other objects never touch a pool that is not there. Changed and read
// under `ArenaRespMsg::mutex_`.
bool poolInService = false;

google::protobuf::ArenaOptions arenaOptions(char* firstBlock) {
  google::protobuf::ArenaOptions options;
  options.start_block_size = ArenaRespMsg::FIRST_BLOCK_SIZE;
  options.max_block_size = ArenaRespMsg::MAX_BLOCK_SIZE;
  // The first block belongs to the message, so a reset keeps it.
  options.initial_block = firstBlock;
  options.initial_block_size = ArenaRespMsg::FIRST_BLOCK_SIZE;
  // block_alloc / block_dealloc stay null: further blocks come from the
  // global operator new and go back through the matching operator delete.
  return options;
}

// Room left in the pool for one more message. ARENA_POOL_SIZE is read first:
// once the pool has been drained it is 0 and the pool is not looked at.
bool poolHasRoom() {
  if (ArenaPool::ARENA_POOL_SIZE == 0 || !poolInService) {
    return false;
  }
  const size_t limit = std::min<size_t>(ArenaPool::ARENA_POOL_SIZE, arenaPool.capacity());
  return arenaPool.size() < limit;
}

}  // namespace

// Built at load time, after the globals above.
ArenaPool arenaPool;

// ---------------------------------------------------------------------------
// Control blocks of the handles

// Places the control block of one handle in storage that the caller claimed
// beforehand (see claimHandleStorage). Allocation therefore never fails, so
// building a handle cannot throw (the standard shared pointer would otherwise
// apply the Deleter to the message, under a lock the Deleter also takes).
// Deallocation frees a slot and drops the slot's hold on the message, which
// frees a retired message once no control block sits in it any more.
template <typename T>
class ArenaRespMsg::HandleAllocator {
 public:
  using value_type = T;

  HandleAllocator(ArenaRespMsg* msg, HandleStorage storage) noexcept
      : msg_(msg), storage_(storage) {}
  template <typename U>
  HandleAllocator(const HandleAllocator<U>& other) noexcept  // rebinding
      : msg_(other.msg_), storage_(other.storage_) {}

  T* allocate(size_t n) noexcept {
    static_assert(sizeof(T) <= HANDLE_SLOT_SIZE, "handle control block outgrew its slot");
    static_assert(alignof(T) <= alignof(HandleSlot), "handle control block over-aligned");
    (void)n;  // always 1: one control block per handle
    return static_cast<T*>(storage_.bytes);
  }

  void deallocate(T*, size_t) noexcept {
    if (storage_.slot == nullptr) {
      ::operator delete(storage_.bytes);
      return;
    }
    ArenaRespMsg* msg = msg_;
    storage_.slot->busy.store(false, std::memory_order_release);
    msg->dropHold();
  }

  template <typename U>
  bool operator==(const HandleAllocator<U>& other) const noexcept {
    return storage_.bytes == other.storage_.bytes;
  }

 private:
  template <typename U>
  friend class HandleAllocator;

  ArenaRespMsg* msg_;
  HandleStorage storage_;
};

ArenaRespMsg::HandleStorage ArenaRespMsg::claimHandleStorage() {
  for (HandleSlot& slot : handleSlots_) {
    if (!slot.busy.exchange(true, std::memory_order_acquire)) {
      holds_.fetch_add(1, std::memory_order_relaxed);
      return {slot.bytes, &slot};
    }
  }
  return {::operator new(HANDLE_SLOT_SIZE, std::nothrow), nullptr};
}

ArenaRespMsgPtr ArenaRespMsg::makeHandle(ArenaRespMsg* msg, HandleStorage storage) {
  return ArenaRespMsgPtr(msg, Deleter{}, HandleAllocator<ArenaRespMsg>(msg, storage));
}

void ArenaRespMsg::dropHold() {
  if (holds_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete this;
  }
}

// ---------------------------------------------------------------------------
// Messages

ArenaRespMsg::ArenaRespMsg() : arena_(arenaOptions(firstBlock_)) {
  response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&arena_);
}

ArenaRespMsg::Created ArenaRespMsg::createResponse(const gnmi::Path& prefix,
                                                   Timestamp timestamp) {
  ArenaRespMsgPtr msg;
  {
    std::lock_guard<Zolt::Locking::Lock> guard(mutex_);
    if (poolInService && !arenaPool.empty()) {
      // Last in, first out: the most recently released message is the one
      // whose memory is most likely still in cache.
      msg = std::move(arenaPool.front());
      arenaPool.pop_front();
      ++arenaRecycleCount;
    } else {
      auto* built = new ArenaRespMsg();
      ++arenaMsgCount;
      // A new message has both slots free: its first handle takes a slot.
      msg = makeHandle(built, built->claimHandleStorage());
    }
  }

  // The message now belongs to this caller alone: fill it without the lock.
  // A pooled message holds a fresh, empty response; mutable_update() selects
  // the update case and allocates the notification on the arena, or returns
  // the notification already there.
  gnmi::Notification* notification = msg->response->mutable_update();
  VekGnmiUtils::populateTimestamp(*notification, timestamp);
  notification->mutable_prefix()->CopyFrom(prefix);
  return {std::move(msg), notification};
}

void ArenaRespMsg::Deleter::operator()(ArenaRespMsg* msg) const noexcept {
  std::lock_guard<Zolt::Locking::Lock> guard(mutex_);
  ++arenaReleaseCount;
  // Only when the heap is exhausted (no storage for the new handle's control
  // block) is a message that would fit in the pool freed instead.
  const HandleStorage storage = poolHasRoom() ? msg->claimHandleStorage() : HandleStorage{};
  if (storage.bytes != nullptr) {
    // Reset runs the arena's cleanups and frees every block but the first,
    // which takes the fresh response.
    msg->arena_.Reset();
    msg->response = google::protobuf::Arena::CreateMessage<gnmi::SubscribeResponse>(&msg->arena_);
    arenaPool.push_front(makeHandle(msg, storage));
    return;
  }
  --arenaMsgCount;
  msg->response = nullptr;
  // The arena's cleanups run and its blocks go back under the lock, as the
  // counter says. Only the shell (the first block and the control-block
  // slots, which the handle being dropped still occupies) outlives this
  // call: it is freed as soon as no control block sits in its slots, on this
  // thread right after this call returns (or when the last weak_ptr goes).
  msg->arena_.Reset();
  msg->dropHold();
}

namespace {

// Appends the value of one update as "<case>:<value> ".
void appendValue(fmt::memory_buffer& out, const gnmi::TypedValue& value) {
  auto it = std::back_inserter(out);
  switch (value.value_case()) {
    case gnmi::TypedValue::kStringVal:
      fmt::format_to(it, "string_val:{} ", value.string_val());
      return;
    case gnmi::TypedValue::kIntVal:
      fmt::format_to(it, "int_val:{} ", value.int_val());
      return;
    case gnmi::TypedValue::kUintVal:
      fmt::format_to(it, "uint_val:{} ", value.uint_val());
      return;
    case gnmi::TypedValue::kBoolVal:
      fmt::format_to(it, "bool_val:{} ", value.bool_val());
      return;
    case gnmi::TypedValue::kBytesVal:
      fmt::format_to(it, "bytes_val:{} ", value.bytes_val());
      return;
    case gnmi::TypedValue::kFloatVal:
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
      fmt::format_to(it, "float_val:{} ", value.float_val());
#pragma GCC diagnostic pop
      return;
    case gnmi::TypedValue::kJsonVal:
      fmt::format_to(it, "json_val:{} ", value.json_val());
      return;
    case gnmi::TypedValue::kJsonIetfVal:
      fmt::format_to(it, "json_ietf_val:{} ", value.json_ietf_val());
      return;
    case gnmi::TypedValue::kAsciiVal:
      fmt::format_to(it, "ascii_val:{} ", value.ascii_val());
      return;
    case gnmi::TypedValue::kProtoBytes:
      fmt::format_to(it, "proto_bytes:{} ", value.proto_bytes());
      return;
    default:
      // Not set, decimal, leaf list, any, double and any later case.
      fmt::format_to(it, "unsupported value type:{} ", static_cast<int>(value.value_case()));
      return;
  }
}

}  // namespace

std::string ArenaRespMsg::toString() const {
  if (response == nullptr) {
    return "nullptr";
  }
  if (response->has_update()) {
    const gnmi::Notification& notification = response->update();
    fmt::memory_buffer out;
    auto it = std::back_inserter(out);
    fmt::format_to(it, "timestamp:{} prefix:{} ", notification.timestamp(), notification.prefix());
    for (int i = 0; i < notification.update_size(); ++i) {
      const gnmi::Update& update = notification.update(i);
      fmt::format_to(it, "update{} ( path:{} ", i, update.path());
      appendValue(out, update.val());
      fmt::format_to(it, ") ");
    }
    for (int i = 0; i < notification.delete__size(); ++i) {
      fmt::format_to(it, "delete{} ( path:{} ) ", i, notification.delete_(i));
    }
    return fmt::to_string(out);
  }
  if (response->has_sync_response() && response->sync_response()) {
    return "sync_response";
  }
  return "unsupported response";
}

// ---------------------------------------------------------------------------
// Pool

ArenaPool::ArenaPool() : boost::circular_buffer<ArenaRespMsgPtr>(ARENA_POOL_SIZE) {
  if (this == &arenaPool) {
    std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
    poolInService = true;
  }
}

ArenaPool::~ArenaPool() {
  {
    std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
    // Deliberately first: every Deleter call made from here on frees its
    // message instead of pushing it back.
    ARENA_POOL_SIZE = 0;
  }
  for (;;) {
    ArenaRespMsgPtr handle;
    {
      std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
      if (empty()) {
        if (this == &arenaPool) {
          poolInService = false;
        }
        break;
      }
      handle = std::move(front());
      pop_front();
    }
    // Dropped outside the lock, which the Deleter takes.
  }
  // The base class frees the buffer.
}

}  // namespace Ostrel
