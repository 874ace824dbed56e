// SyncScheduler: runs many syncs at once over the walk registry, fairly and
// in bounded slices, and keeps them correct while the model changes.
//
// An embedding agent hands every sync (a Get, a subscription's initial sync,
// a poll) to one scheduler with the entities that cover it, and calls `run`
// from its event loop while `hasWork()`:
//
//   class Receiver : public Ostrel::SyncReceiver { ... };    // room, completion
//   Ostrel::SyncScheduler scheduler(router, receiver);
//   scheduler.start(SyncId{7}, {{device, Ostrel::strToPath("/devices/dev1")}},
//                   VekGnmiUtils::requestTypeToFlags(RequestType{1}));
//   while (scheduler.hasWork()) scheduler.run(0.05);         // one event-loop task each
//
// Fairness. Syncs take turns, round-robin. A turn runs one sync for at most
// one slice (`slice`, 2 ms by default): it starts the sync's targets one
// after another, or resumes its paused walk, until the slice is spent or the
// router refuses more. A sync whose receiver has no room (`hasRoom`) does not
// get turns until `roomFreed`; it holds back no one else. A small request
// therefore waits for at most one slice of each sync ahead of it, however
// large those are. A sync runs one walk at a time, its targets in the order
// given.
//
// Pauses and deletes. Between turns a paused walk's queued walkers are kept
// by the scheduler, not in the registry (`staticWalkMap`,
// `staticPathWalkIdMap` hold only the walk of the running turn), so a delete
// (`delFromWalkQ`, called by the notifiee of the deleted member's owner)
// never cuts another walk's queue: an owner paused behind a deleted member
// goes on with the members after it. Each queued entity walker remembers
// which entity it walks (its creation number); when its walk resumes, a
// walker whose entity has left the model is dropped, and one whose path now
// holds a new entity (removed and re-created meanwhile) is dropped and the
// new entity is synced whole within the same sync. A target whose entity has
// left the model before its walk starts is looked up again at its path
// (through the notifiee registry, then `resolverIs`); if nothing lives there
// it is skipped. So a sync publishes every entity that lives at its end and
// that it reached, nothing of an entity after that entity left, and each
// entity's leaves once (a re-created entity's anew).
//
// Cost. A pause moves the paused walk's few walkers (one per level of the
// tree being walked) out of the registry, and a resume moves them back;
// nothing is done per walker of any other walk, so the cost of a pause does
// not grow with the number of syncs or with the size of the model.
//
// Identifiers. The agent mints the sync ids (they name the receiver in
// `BaseRouter::push`); the scheduler mints the walk ids of the walks it runs,
// so an agent that uses a scheduler makes no other syncObject calls with walk
// ids of its own (`watch` is offered for notifiee-only syncs).
//
// Single-threaded: every call on the thread that runs the library (the
// agent's event loop). The router's `push` and the receiver's calls are made
// from inside `run` and `watch`; from there the agent may `start` and
// `cancel` syncs (a sync cancelled while it runs stops after its current
// message), but must not call `run`, `flush` or destroy the scheduler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include <Vek/Vek.h>
#include <gnmi/gnmi.pb.h>

#include "Ostrel/BaseRouter.h"
#include "Ostrel/Export.h"
#include "Ostrel/Types.h"

namespace Ostrel {

class FullVekTypeWalker;

// What the scheduler asks of the agent about each sync it runs.
class OSTREL_EXPORT SyncReceiver {
 public:
  virtual ~SyncReceiver();
  // Whether the receiver of `syncId` takes more messages now. A sync without
  // room gets no turns until `SyncScheduler::roomFreed`.
  virtual bool hasRoom(SyncId syncId) const = 0;
  // Every target of `syncId` has been published (or had left the model).
  // Called once, from `run`, after the scheduler has forgotten the sync.
  virtual void syncDone(SyncId syncId) = 0;
};

// An entity to publish and the path at which it is published.
struct SyncTarget {
  Vek::Ptr<Vek::Entity> entity;
  gnmi::Path path;
};

class OSTREL_EXPORT SyncScheduler : private BaseRouter {
 public:
  // The default length of one turn, in seconds of the runtime clock.
  static constexpr double DEFAULT_SLICE = 0.002;

  // Finds the entity published at a path now (or null), for a target whose
  // entity left the model before its walk started and whose path has no
  // published entity in the notifiee registry.
  using Resolver = std::function<Vek::Ptr<Vek::Entity>(const gnmi::Path&)>;

  // Pushes every sync's messages to `router` and asks `receiver` about room
  // and tells it of completion; both must outlive the scheduler. The
  // notifiees of the entities it publishes push their changes through the
  // scheduler to `router`: it must outlive every entity it publishes. `slice` is
  // the length of one turn (at most `FullVekTypeWalker::SYNCQUANTUM` is used).
  SyncScheduler(BaseRouter& router, SyncReceiver& receiver, Vek::Seconds slice = DEFAULT_SLICE);
  // Drops every pending walk (as `flush`).
  ~SyncScheduler();
  SyncScheduler(const SyncScheduler&) = delete;
  SyncScheduler& operator=(const SyncScheduler&) = delete;

  // Queues sync `syncId` of `targets`, published with `flags` (see
  // VekGnmiUtils::requestTypeToFlags). Fatal for sync id 0 or for a sync id
  // that is already queued. A sync of no targets is done at the next `run`.
  void start(SyncId syncId, std::vector<SyncTarget> targets, WalkerFlags flags);
  // Registers the notifiees of `targets` (published with `flags`) at once,
  // publishing nothing: each is synced with SkipWalk, which never pauses. An
  // entity whose notifiee is already in place at the same path is left
  // alone (setting up again would seed every member's timestamps).
  void watch(const std::vector<SyncTarget>& targets, WalkerFlags flags);

  // Gives turns, round-robin, until `budget` seconds of the runtime clock
  // have passed or no sync can go on (each sync that can gets at least one
  // turn when the budget allows one). Returns `hasWork()`.
  bool run(Vek::Seconds budget);
  // Whether some sync can go on now (it has room, or has finished and waits
  // to be reported).
  bool hasWork() const;

  // Drops sync `syncId` and its pending walk; false when it is unknown. Its
  // receiver is not told. Safe from inside `push` and `syncDone`.
  bool cancel(SyncId syncId);
  // Every sync waiting for room gets turns again.
  void roomFreed();
  // Drops every sync and pending walk.
  void flush();

  // Sets the lookup of re-created targets (see Resolver).
  void resolverIs(Resolver resolver) { resolver_ = std::move(resolver); }

  // Syncs queued and not finished.
  size_t syncCount() const { return syncs_.size(); }
  // Syncs with a paused walk.
  size_t pausedWalks() const;
  // Walks resumed so far.
  uint64_t resumes() const { return resumes_; }
  // Queued walkers dropped because their entity had left the model, and
  // entities synced again because they had been re-created at their path.
  uint64_t droppedWalkers() const { return droppedWalkers_; }
  uint64_t resyncs() const { return resyncs_; }

 private:
  // Hands a message to the router; a message of a sync cancelled while it
  // runs is dropped and refused, so that its walk pauses at once.
  bool push(SyncId syncId, const ArenaRespMsgPtr& msg) override;

  // A paused walker and the creation number of the entity it walks (0 for a
  // walker of a value, which holds its object).
  struct Queued {
    std::unique_ptr<FullVekTypeWalker> walker;
    uint64_t serial;
  };
  struct Sync {
    WalkerFlags flags;
    std::deque<SyncTarget> toStart;
    WalkId walk;                  // the walk started and not finished, or 0
    std::vector<Queued> paused;   // its walkers while it is paused, in resume order
    bool waiting = false;         // has no room: not in ready_
    bool cancelled = false;       // cancelled while running
  };

  // One turn of `syncId`; false when it ended the sync.
  void turn(SyncId syncId);
  // Starts `sync`'s next target, or resumes its paused walk, within the slice.
  WalkResult step(Sync& sync, SyncId syncId, Vek::Seconds remaining);
  WalkResult resume(Sync& sync, Vek::Seconds remaining);
  // Moves a paused walk's walkers out of the registry into `sync`.
  void takeOut(Sync& sync);
  // Whether a queued walker's entity still lives at its path; queues a
  // re-created entity as a target of `sync`.
  bool stillLive(Sync& sync, const Queued& queued);
  // The entity to sync for `target` now, or null.
  Vek::Ptr<Vek::Entity> liveTarget(const SyncTarget& target) const;
  void finish(SyncId syncId);

  BaseRouter& router_;
  SyncReceiver& receiver_;
  Vek::Seconds slice_;
  Resolver resolver_;
  std::unordered_map<SyncId, Sync> syncs_;
  std::deque<SyncId> ready_;    // syncs with turns to take, in turn order (may name gone ones)
  SyncId running_;              // the sync of the turn in progress
  uint64_t nextWalkId_ = 1;
  uint64_t resumes_ = 0;
  uint64_t droppedWalkers_ = 0;
  uint64_t resyncs_ = 0;
  bool inRun_ = false;
};

}  // namespace Ostrel
