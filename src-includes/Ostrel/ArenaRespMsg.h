// Arena-backed response messages and their process-wide pool.
//
// Every gnmi::SubscribeResponse the library produces lives on the protobuf
// arena of an `ArenaRespMsg`. Messages are handed out through shared handles
// (`ArenaRespMsgPtr`) whose deleter does not free the message: it resets the
// arena and parks the message in `arenaPool`, from which `createResponse` takes
// the most recently released one first. Up to `ArenaPool::ARENA_POOL_SIZE`
// idle messages are kept; releases beyond that free the message.
//
//   auto [msg, notification] = ArenaRespMsg::createResponse(prefix, now);
//   VekGnmiUtils::pushUpdate(path, notification, int64_t{5},
//                            &gnmi::TypedValue::set_int_val);
//   router.push(syncId, msg);   // the last handle dropped recycles it
//
// Threads: `createResponse` and the deleter may run on any thread; the pool
// and the three counters are guarded by `ArenaRespMsg::mutex_` and touched
// only under it. A message itself is not shared: it belongs to whoever holds
// its handles, and the notification pointer is valid while a handle is held.
//
// Heap use in the steady state: the arena's first 256-byte block is part of
// the message object, so it survives every reset; the blocks that the arena
// adds beyond it (512, 1024, ... bytes up to 8192) are freed at reset and
// allocated again on reuse. The control blocks of the shared handles are
// placed in storage inside the message too, so recycling a message costs no
// heap allocation besides those arena blocks. (A block is also added when a
// thread other than the one that last released the message allocates on it:
// a protobuf arena keeps one allocation area per thread.)
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include <boost/circular_buffer.hpp>
#include <fmt/format.h>
#include <google/protobuf/arena.h>

#include <Zolt/Zolt.h>
#include <gnmi/gnmi.pb.h>

#include "Ostrel/Export.h"
#include "Ostrel/Types.h"

namespace Ostrel {

class ArenaRespMsg;

// Shared handle to a response message. Only `createResponse` makes them; the
// deleter of every handle is `ArenaRespMsg::Deleter`.
using ArenaRespMsgPtr = std::shared_ptr<ArenaRespMsg>;

class OSTREL_EXPORT ArenaRespMsg {
 public:
  // Arena block sizes: the first block (held inside the message) and the
  // largest block the arena grows to.
  static constexpr size_t FIRST_BLOCK_SIZE = 256;
  static constexpr size_t MAX_BLOCK_SIZE = 8192;

  // Deleter of every handle: recycles the message into `arenaPool`, or frees
  // it when the pool is full. Callers never delete a message themselves.
  // It runs inside shared_ptr destruction and so never throws: running out of
  // memory while recycling ends the process, as in any destructor.
  struct OSTREL_EXPORT Deleter {
    void operator()(ArenaRespMsg* msg) const noexcept;
  };

  // What `createResponse` returns: the handle and the notification inside
  // it, ready to be filled. A plain aggregate, so structured bindings work.
  struct Created {
    ArenaRespMsgPtr msg;
    gnmi::Notification* notification;
  };

  // Takes a message from the pool (or builds one), makes its response an
  // update, stamps the notification with `timestamp` and copies `prefix` into
  // the notification's prefix. The notification pointer is valid while a
  // handle is held.
  static Created createResponse(const gnmi::Path& prefix, Timestamp timestamp);

  // One-line rendering of the response for traces, e.g.
  //   "timestamp:7 prefix:/a update0 ( path:/b int_val:5 ) delete0 ( path:/c ) "
  // "sync_response" for a true sync flag, "nullptr" without a response and
  // "unsupported response" for anything else.
  std::string toString() const;

  // The arena that owns `response` and everything in it.
  google::protobuf::Arena* arena() { return &arena_; }
  const google::protobuf::Arena* arena() const { return &arena_; }

  // Guards `arenaPool` and the counters arenaMsgCount, arenaReleaseCount and
  // arenaRecycleCount. Constant-initialised, usable during static
  // initialisation and destruction.
  static Zolt::Locking::Lock mutex_;

  ArenaRespMsg(const ArenaRespMsg&) = delete;
  ArenaRespMsg& operator=(const ArenaRespMsg&) = delete;

 private:
  ArenaRespMsg();
  ~ArenaRespMsg() = default;

  // Allocator of the handles' control blocks (defined in the source file):
  // places each control block in storage claimed beforehand.
  template <typename T>
  class HandleAllocator;
  struct HandleSlot;

  // Storage for one handle's control block: a slot of the message, or, when
  // both slots are taken, a heap block; `bytes` is null only when the heap is
  // exhausted.
  struct HandleStorage {
    void* bytes;
    HandleSlot* slot;  // null for a heap block
  };
  // Claims storage for a new handle's control block; a slot adds a hold on
  // the message.
  HandleStorage claimHandleStorage();
  // Wraps `msg` in a new handle whose control block sits in `storage`.
  // Cannot fail: nothing is allocated.
  static ArenaRespMsgPtr makeHandle(ArenaRespMsg* msg, HandleStorage storage);
  // Drops one hold; the last one frees the message.
  void dropHold();

  // A recycled message gets a new handle while the control block of its
  // previous handle is still being torn down, so two slots alternate. Both
  // are taken only while an older control block is still alive: kept by a
  // weak_ptr, or not yet torn down by the thread that released the message
  // before (it is pooled and reused meanwhile by another thread). Such a
  // handle's control block goes to the heap.
  static constexpr size_t HANDLE_SLOT_SIZE = 64;
  struct HandleSlot {
    alignas(std::max_align_t) unsigned char bytes[HANDLE_SLOT_SIZE];
    std::atomic<bool> busy{false};
  };
  HandleSlot handleSlots_[2];
  // Control blocks in the slots, plus one while the message is not retired.
  std::atomic<uint32_t> holds_{1};

  // The arena's first block. Declared before the arena, which writes its
  // bookkeeping into it and must be destroyed before it.
  alignas(8) char firstBlock_[FIRST_BLOCK_SIZE];
  google::protobuf::Arena arena_;

 public:
  // The response on `arena_`; never owned separately, it dies with the arena.
  gnmi::SubscribeResponse* response = nullptr;
};

// The pool of idle messages: shared handles, most recently released at the
// front. Room for `ARENA_POOL_SIZE` entries is allocated once, when the
// library loads.
//
// Only `createResponse` and the deleter change the global pool, always under
// `ArenaRespMsg::mutex_`; an agent reads it (size, capacity) under that lock.
class OSTREL_EXPORT ArenaPool : public boost::circular_buffer<ArenaRespMsgPtr> {
 public:
  // Capacity of the pool (2000). Read under `ArenaRespMsg::mutex_`. Lowering
  // it takes effect at the next release; values above the capacity the pool
  // was built with act as that capacity. Set to 0 when the pool is drained at
  // unload, so that every later release frees its message.
  static uint32_t ARENA_POOL_SIZE;

  ArenaPool();
  // Sets ARENA_POOL_SIZE to 0, then drops the pooled handles one by one from
  // the front (each frees its message) and frees the buffer.
  ~ArenaPool();

  ArenaPool(const ArenaPool&) = delete;
  ArenaPool& operator=(const ArenaPool&) = delete;
};

OSTREL_EXPORT extern ArenaPool arenaPool;
// Messages alive, in use or pooled: +1 when built, -1 when freed.
OSTREL_EXPORT extern uint64_t arenaMsgCount;
// Times the deleter ran.
OSTREL_EXPORT extern uint64_t arenaReleaseCount;
// Times `createResponse` took a message from the pool instead of building one.
OSTREL_EXPORT extern uint64_t arenaRecycleCount;

}  // namespace Ostrel

// "{}" of a message prints `toString()`; of a handle, the same, or "nullptr"
// for an empty handle.
template <>
struct fmt::formatter<Ostrel::ArenaRespMsg> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Ostrel::ArenaRespMsg& msg, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(msg.toString(), ctx);
  }
};

template <>
struct fmt::formatter<Ostrel::ArenaRespMsgPtr> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Ostrel::ArenaRespMsgPtr& msg, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(msg ? msg->toString() : std::string("nullptr"),
                                                    ctx);
  }
};
