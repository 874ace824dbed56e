// The process-wide router of library messages and the driver of syncs.
//
// Routing (`push`, called by the library on the event loop):
//   - a message with a non-zero sync id goes to the owner of that sync (a
//     subscription's initial sync or poll, or a Get); the owner's answer is
//     the router's answer, so a full subscriber pauses its own sync;
//   - a message with sync id 0 (a change, or the sync of an entity created
//     later) goes to every change sink (the streaming subscriptions), which
//     filter it by their paths and coalesce it; the router then always
//     answers true, so changes never block the event loop;
//   - a message for a sync whose owner has gone is dropped (true).
// A notification whose timestamp is 0 ("unknown" to the library) is stamped
// with the start time of the sync that sent it, or with the current time for
// changes.
//
// Driving: `startSync` mints a sync id and hands the sync to the library's
// scheduler (through the bridge); the pump, a task on the event loop, gives
// the scheduler at most SLICE per run and posts itself again while some sync
// can go on. A sync whose owner is full waits without holding back anyone
// else's until `roomFreed`. When every entity of a sync has been published
// the owner is told (`onSyncDone`). `cancel` drops an owner's syncs.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "EventLoop.h"
#include "LibraryBridge.h"
#include "PathResolver.h"

namespace VekGnmi::Server {

class SyncOwner {
 public:
  virtual ~SyncOwner();
  // A message of sync `syncId`; false when no more can be taken now.
  virtual bool onSyncMessage(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) = 0;
  // Every walk of sync `syncId` has finished.
  virtual void onSyncDone(Ostrel::SyncId syncId) = 0;
  // Whether the owner takes more sync messages now; a paused walk of an
  // owner without room is not resumed.
  virtual bool hasRoom() const { return true; }
};

class ChangeSink {
 public:
  virtual ~ChangeSink();
  virtual void onChange(const Ostrel::ArenaRespMsgPtr& message) = 0;
};

// Nanoseconds since the epoch, from the runtime's clock.
int64_t nowNanos();

class Dispatcher final : public MessageRouter, public SyncEvents {
 public:
  explicit Dispatcher(EventLoop& loop);
  // The bridge to call; set once, before the first sync.
  void bridgeIs(LibraryBridge* bridge) { bridge_ = bridge; }
  ~Dispatcher() override;

  bool push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) override;
  bool hasRoom(Ostrel::SyncId syncId) const override;
  void syncDone(Ostrel::SyncId syncId) override;

  // Queues the publication of `targets` for `owner`; returns the sync id.
  // With no targets the sync is done at once (onSyncDone runs from a posted
  // task, never inside this call).
  Ostrel::SyncId startSync(SyncOwner& owner, std::vector<PublishedEntity> targets, SyncKind kind);
  // Registers change notifiees on `targets` without publishing them.
  void watch(const std::vector<PublishedEntity>& targets);
  // Forgets every sync of `owner`, cancelling its pending walks.
  void cancel(SyncOwner& owner);

  void addChangeSink(ChangeSink* sink);
  void removeChangeSink(ChangeSink* sink);

  // A subscriber's queue has room again: resume paused syncs.
  void roomFreed();

  // Syncs not finished yet, and syncs whose walk the library holds paused.
  size_t activeSyncs() const { return syncs_.size(); }
  size_t pausedWalks() const { return bridge_ ? bridge_->pausedWalks() : 0; }
  // Walks resumed so far; entities synced again because they were
  // re-created at their path while their sync was paused.
  uint64_t resumes() const { return bridge_ ? bridge_->resumes() : 0; }
  uint64_t resyncs() const { return bridge_ ? bridge_->resyncs() : 0; }

  // The time slice of one pump run.
  static constexpr std::chrono::milliseconds SLICE{20};

 private:
  struct Sync {
    SyncOwner* owner;
    int64_t startedAt;  // ns since the epoch
  };

  void schedulePump();
  void pump();

  LibraryBridge* bridge_ = nullptr;
  EventLoop& loop_;
  std::unordered_map<uint64_t, Sync> syncs_;
  std::vector<ChangeSink*> changeSinks_;
  uint64_t nextSyncId_ = 1;
  bool pumpPosted_ = false;
  std::shared_ptr<bool> alive_;
};

}  // namespace VekGnmi::Server
