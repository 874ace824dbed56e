// The process-wide router of library messages: the one BaseRouter the
// library pushes to (through the bridge), and the registry of who takes what.
//
// Routing (`push`, called by the library on the event loop):
//   - a message with a non-zero sync id goes to the owner of that sync (a
//     subscription's initial sync or poll, or a Get); the owner's answer is
//     the router's answer, so a full subscriber pauses its own sync;
//   - a message with sync id 0 (a change, or the sync of an entity created
//     later) goes to the change sinks (the streaming subscriptions) with
//     something under their paths, told which of its updates and deletes
//     fall under which path; they coalesce it. The paths of every sink are
//     held in one PathIndex, so matching a change costs the depth of its
//     paths, not the number of paths subscribed. The router then always
//     answers true, so changes never block the event loop;
//   - a message for a sync whose owner has gone is dropped (true).
// A notification whose timestamp is 0 ("unknown" to the library) is stamped
// with the start time of the sync that sent it, or with the current time for
// changes. Sync messages may be shared by several syncs (shared walks): the
// first to receive one stamps it; nobody else changes it.
//
// Syncs: `startSync` mints a sync id, hands the sync to the library's
// scheduler (through the bridge) and has the pump (SyncPump) run it. A sync
// whose owner is full waits without holding back anyone else's until
// `roomFreed`. When every entity of a sync has been published the owner is
// told (`onSyncDone`). `cancel` drops an owner's syncs.
//
// A library message that goes out as it is (`outMessageOf`) shares its
// bytes with every stream it goes to: the syncs of one shared walk are
// handed the same message one after the other, and each gets it with the
// same SharedWire, so that it is serialised once, not once per stream.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Clock.h"
#include "LibraryBridge.h"
#include "PathIndex.h"
#include "PathResolver.h"
#include "StreamQueue.h"
#include "SyncPump.h"

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

// Which of a change's updates and deletes fall under which of a sink's
// paths: (index in the notification, index of the sink's path) pairs, by
// notification index; an update under several paths comes once for each.
struct ChangeMatch {
  std::vector<std::pair<int, size_t>> updates;
  std::vector<std::pair<int, size_t>> deletes;  // deletes of the path, or of something that holds it
  bool empty() const { return updates.empty() && deletes.empty(); }
};

class ChangeSink {
 public:
  virtual ~ChangeSink();
  // A change with something under the sink's paths (never an empty match).
  virtual void onChange(const Ostrel::ArenaRespMsgPtr& message, const ChangeMatch& match) = 0;
};

class Router final : public MessageRouter, public SyncEvents {
 public:
  // Stamps notifications with `clock`'s UTC time. `shareWalks`: syncs of the
  // same entities and kind share one walk.
  explicit Router(Clock& clock, bool shareWalks = true);
  // The bridge to start syncs on and the pump that runs them; set once,
  // before the first sync.
  void bridgeIs(LibraryBridge* bridge, SyncPump* pump) {
    bridge_ = bridge;
    pump_ = pump;
  }
  ~Router() override;

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

  // Sends `sink` every change under `paths` (its paths, numbered by their
  // position) until it is removed.
  void addChangeSink(ChangeSink* sink, const std::vector<gnmi::Path>& paths);
  void removeChangeSink(ChangeSink* sink);

  // `message` to queue as it is: with the bytes it shares with the streams
  // that queued it last (the same message, still held by them), else with
  // bytes of its own, serialised when the first writer needs them.
  OutMessage outMessageOf(const Ostrel::ArenaRespMsgPtr& message);

  // A subscriber's queue has room again: resume paused syncs.
  void roomFreed();

  // Syncs not finished yet.
  size_t activeSyncs() const { return syncs_.size(); }

 private:
  struct Sync {
    SyncOwner* owner;
    int64_t startedAt;  // ns since the epoch
  };

  // Hands a change to the sinks with something under their paths.
  void routeChange(const Ostrel::ArenaRespMsgPtr& message, const gnmi::Notification& notification);

  Clock& clock_;
  LibraryBridge* bridge_ = nullptr;
  SyncPump* pump_ = nullptr;
  std::unordered_map<uint64_t, Sync> syncs_;
  // A path of a change sink, as filed in the index.
  struct SinkPath {
    ChangeSink* sink;
    size_t path;
    bool operator==(const SinkPath&) const = default;
  };
  std::unordered_map<ChangeSink*, std::vector<gnmi::Path>> changeSinks_;
  PathIndex<SinkPath> changePaths_;
  // Per change, the sinks it reaches and what it means to each (reused).
  std::vector<std::pair<ChangeSink*, ChangeMatch>> matches_;
  uint64_t nextSyncId_ = 1;
  bool shareWalks_;
  // The message outMessageOf last saw, and its bytes; not held: a message
  // released (and maybe reused by the library) no longer matches.
  std::weak_ptr<Ostrel::ArenaRespMsg> lastOut_;
  std::shared_ptr<SharedWire> lastWire_;
};

}  // namespace VekGnmi::Server
