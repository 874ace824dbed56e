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
// Driving: `startSync` mints a sync id and queues one walk per entity to
// publish; the pump starts walks and resumes paused ones one at a time
// (LibraryBridge::resumeWalk), round-robin over the paused walks whose owner
// has room, for at most SLICE per run, posting itself again while such work
// is left. A walk whose owner is full waits, without holding back anyone
// else's, until `roomFreed`. When every walk of a sync has finished the
// owner is told (`onSyncDone`). Entities whose queued work a delete took
// from a paused walk are synced again within the same sync (`restart`, fed by
// LibraryBridge::resumeWalk). `cancel` drops an owner's pending walks
// (cancelPendingSync).
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

class Dispatcher final : public MessageRouter {
 public:
  explicit Dispatcher(EventLoop& loop);
  // The bridge to call; set once, before the first sync.
  void bridgeIs(LibraryBridge* bridge) { bridge_ = bridge; }
  ~Dispatcher() override;

  bool push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) override;

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

  // Syncs not finished yet, and walks the library holds paused.
  size_t activeSyncs() const { return syncs_.size(); }
  size_t pausedWalks() const { return walkToSync_.size(); }
  // Walks resumed so far; entities synced again because a delete took their
  // queued work (LibraryBridge::resumeWalk).
  uint64_t resumes() const { return resumes_; }
  uint64_t lostWalks() const { return lostWalks_; }

  // The time slice of one pump run.
  static constexpr std::chrono::milliseconds SLICE{100};

 private:
  struct Sync {
    SyncOwner* owner;
    SyncKind kind;
    int64_t startedAt;                       // ns since the epoch
    std::deque<PublishedEntity> toStart;     // walks not started yet
    std::unordered_set<uint64_t> running;    // walk ids started and not finished
  };

  void schedulePump();
  void pump();
  // Resumes paused walks whose owner has room, round-robin, until `deadline`.
  void resumePaused(EventLoop::Clock::time_point deadline);
  // Starts the next walk of syncs that have none running, until `deadline`.
  void startQueued(EventLoop::Clock::time_point deadline);
  // Whether a walk can make progress now (its owner has room).
  bool runnable(uint64_t walkId) const;
  bool workLeft() const;
  void walkPaused(uint64_t syncId, uint64_t walkId);
  // Queues `lost` to be synced again within sync `syncId`.
  void restart(uint64_t syncId, std::vector<PublishedEntity> lost);
  void walkFinished(Ostrel::SyncId syncId, Ostrel::WalkId walkId);
  void finishIfDone(Ostrel::SyncId syncId);

  LibraryBridge* bridge_ = nullptr;
  EventLoop& loop_;
  std::unordered_map<uint64_t, Sync> syncs_;
  std::deque<uint64_t> startOrder_;                  // syncs with walks to start, FIFO
  std::unordered_map<uint64_t, uint64_t> walkToSync_;  // paused walks
  std::deque<uint64_t> paused_;  // paused walks in resume order (may name finished ones)
  std::vector<ChangeSink*> changeSinks_;
  uint64_t nextSyncId_ = 1;
  uint64_t nextWalkId_ = 1;
  uint64_t resumes_ = 0;
  uint64_t lostWalks_ = 0;
  bool pumpPosted_ = false;
  std::shared_ptr<bool> alive_;
};

}  // namespace VekGnmi::Server
