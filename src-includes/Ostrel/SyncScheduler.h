// SyncScheduler: runs many syncs at once over the walk registry, fairly and
// in bounded slices, shares one walk among identical syncs, and keeps syncs
// correct while the model changes.
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
// Turns. Walks take turns of at most one slice (`slice`, 2 ms by default):
// a turn starts the walk's targets one after another, or resumes its paused
// walk, until the slice is spent or the router refuses more. The walk that
// has had the least time so far takes the next turn (ties in the order they
// became ready), so a small request that arrives beside many large syncs
// takes its turns first and ends after a few slices, whatever the number and
// size of the syncs in progress, while large syncs share the rest evenly. A
// walk none of whose syncs has room (`SyncReceiver::hasRoom`) gets no turns
// until `roomFreed`; it holds back no one else. A walk starts its targets in
// the order given, one walk of the registry at a time.
//
// Shared walks. Syncs started with `Sharing::Shared` whose targets (paths, in
// order) and flags are equal share one walk: each message is built once and
// pushed to every sync of the walk (the same handle; routers must not change
// a message they did not make). A sync that joins a walk in progress receives
// the rest of it, and then, as the walk starts over for it (a second lap),
// what it missed: the lap ends for it at the first message it received, so
// the part it received is not walked again for it. When a sync's receiver is
// full the walk pauses, as a walk of its own would, and goes on when that
// receiver has room; but a receiver that stays full for `hold` (0.25 s by
// default) while others have room leaves the walk's audience: the walk goes
// on without it, and it joins again, as a sync joining part-way, once it has
// room. So a slow receiver holds back the others for at most `hold` at a
// time, and one that keeps up with the walk costs no second lap.
//
// Pauses and deletes. Between turns a paused walk's queued walkers are kept
// by the scheduler, not in the registry (`staticWalkMap`,
// `staticPathWalkIdMap` hold only the walk of the running turn), so a delete
// (`delFromWalkQ`, called by the notifiee of the deleted member's owner)
// never cuts another walk's queue: an owner paused behind a deleted member
// goes on with the members after it. Each queued walker remembers which
// entity is published at its prefix (its creation number); when its walk
// resumes, a walker whose entity has left the model is dropped (a walker of a
// nested value with it), and one whose path now holds a new entity (removed
// and re-created meanwhile) is dropped and the new entity is synced whole
// within the same walk. A target whose entity has left the model before its
// walk starts is looked up again at its path (through the notifiee registry,
// then `resolverIs`); if nothing lives there it is skipped. Before a walk
// ends, every path it skipped or dropped is looked up once more, and what
// lives there now (re-created meanwhile) is synced. So every sync publishes
// each entity that lives at its end and that its targets reach, nothing of an
// entity after that entity left, and each entity's leaves once (a re-created
// entity's anew; a receiver that left a shared walk for want of room may get
// again what it had before it left).
//
// Cost. A pause moves the paused walk's few walkers (one per level of the
// tree being walked) out of the registry, and a resume moves them back;
// nothing is done per walker of any other walk, so the cost of a pause does
// not grow with the number of syncs or with the size of the model. Picking the
// next walk costs the logarithm of the number of walks ready.
//
// Identifiers. The agent mints the sync ids (they name the receiver in
// `BaseRouter::push`); the scheduler mints the ids of the walks it runs, so
// an agent that uses a scheduler makes no other syncObject calls with walk
// ids of its own (`watch` is offered for notifiee-only syncs).
//
// Single-threaded: every call on the thread that runs the library (the
// agent's event loop). The router's `push` and the receiver's `hasRoom` are
// called from inside `run`; `syncDone` is called from `run` after the turn
// that ended the sync. From `push` and `syncDone` the agent may `start` and
// `cancel` syncs (a sync cancelled while its walk runs receives nothing more),
// but must not call `run`, `flush` or destroy the scheduler.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <tuple>
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
  // Whether the receiver of `syncId` takes more messages now. A walk none of
  // whose syncs has room gets no turns until `SyncScheduler::roomFreed`.
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
  // How long, by default, a full receiver may hold back the others of its
  // shared walk.
  static constexpr double DEFAULT_HOLD = 0.25;

  // Whether a sync may share its walk with identical syncs (see above).
  enum class Sharing { Private, Shared };

  // Finds the entity published at a path now (or null), for a target whose
  // entity left the model and whose path has no published entity in the
  // notifiee registry.
  using Resolver = std::function<Vek::Ptr<Vek::Entity>(const gnmi::Path&)>;

  // Pushes every sync's messages to `router` and asks `receiver` about room
  // and tells it of completion; both must outlive the scheduler. The
  // notifiees of the entities it publishes push their changes through the
  // scheduler to `router`: it must outlive every entity it publishes. `slice`
  // is the length of one turn (at most `FullVekTypeWalker::SYNCQUANTUM` is
  // used); `hold` how long a full receiver may hold back a shared walk.
  SyncScheduler(BaseRouter& router, SyncReceiver& receiver, Vek::Seconds slice = DEFAULT_SLICE,
                Vek::Seconds hold = DEFAULT_HOLD);
  // Drops every pending walk (as `flush`).
  ~SyncScheduler();
  SyncScheduler(const SyncScheduler&) = delete;
  SyncScheduler& operator=(const SyncScheduler&) = delete;

  // Queues sync `syncId` of `targets`, published with `flags` (see
  // VekGnmiUtils::requestTypeToFlags). With `Sharing::Shared` it joins a
  // shared walk of the same target paths and flags in progress, if any.
  // Fatal for sync id 0 ("sync id 0 cannot be scheduled") or for a sync id
  // that is already queued ("sync {} is already scheduled"). A sync of no
  // targets is done at the next `run`.
  void start(SyncId syncId, std::vector<SyncTarget> targets, WalkerFlags flags,
             Sharing sharing = Sharing::Private);
  // Registers the notifiees of `targets` (published with `flags`) at once,
  // publishing nothing: each is synced with SkipWalk, which never pauses. An
  // entity whose notifiee is already in place at the same path is left
  // alone (setting up again would seed every member's timestamps).
  void watch(const std::vector<SyncTarget>& targets, WalkerFlags flags);

  // Gives turns until `budget` seconds of the runtime clock have passed or no
  // walk can go on; at least one turn when some walk can go on. Returns
  // `hasWork()`. Fatal from inside itself ("run called from inside run").
  bool run(Vek::Seconds budget);
  // Whether some walk can go on now (some sync of it has room), or a sync has
  // ended and waits to be reported.
  bool hasWork() const;
  // When a walk held back by a full receiver stops waiting for it (runtime
  // clock), if one is: call `run` then, even if nothing else happened.
  std::optional<Vek::Seconds> nextWake() const;

  // Drops sync `syncId` (and its walk when no other sync shares it); false
  // when it is unknown. Its receiver is not told. Safe from inside `push`
  // and `syncDone`.
  bool cancel(SyncId syncId);
  // Every walk waiting for room gets turns again.
  void roomFreed();
  // Drops every sync and pending walk. Fatal from inside `run` ("flush called
  // from inside run").
  void flush();

  // Sets the lookup of re-created targets (see Resolver).
  void resolverIs(Resolver resolver) { resolver_ = std::move(resolver); }

  // Syncs queued and not finished.
  size_t syncCount() const { return walkOf_.size(); }
  // Walks in progress (a shared walk counts once).
  size_t walkCount() const { return walks_.size(); }
  // Walks with paused walkers.
  size_t pausedWalks() const;
  // Walks resumed so far.
  uint64_t resumes() const { return resumes_; }
  // Queued walkers dropped because their entity had left the model, and
  // entities synced again because they had been re-created at their path.
  uint64_t droppedWalkers() const { return droppedWalkers_; }
  uint64_t resyncs() const { return resyncs_; }
  // Syncs that joined a shared walk in progress, and laps walked again for
  // syncs that had joined part-way.
  uint64_t joins() const { return joins_; }
  uint64_t extraLaps() const { return extraLaps_; }

 private:
  // Hands a message of a walk to the syncs of its audience; changes (sync id
  // 0) go to the router unchanged.
  bool push(SyncId syncId, const ArenaRespMsgPtr& msg) override;

  // A paused walker and the creation number of the entity published at its
  // prefix when it paused (0: none).
  struct Queued {
    std::unique_ptr<FullVekTypeWalker> walker;
    uint64_t serial;
  };
  // Where a sync that joined part-way leaves the next lap: the first
  // messages it received, each by notification prefix and first path.
  struct Mark {
    gnmi::Path prefix;
    gnmi::Path first;
  };
  // One sync of a walk's audience.
  struct Member {
    SyncId syncId;
    enum class State { Receiving, Full, Away } state = State::Receiving;
    bool wraps = false;       // joined after its lap's first message
    uint64_t joinLap = 0;     // the lap in which it joined
    std::vector<Mark> marks;  // the first messages it received since joining
    bool draining = false;    // past its mark: takes only what is published again
    Vek::Seconds fullSince = 0;  // when it filled up (Full)
    bool done = false;
    bool cancelled = false;
  };
  // A target of a lap; `again` when it publishes an entity again, out of
  // the lap's order (re-created, or found again at a vacant path).
  struct Pending {
    SyncTarget target;
    bool again;
  };
  using WalkKey = uint64_t;
  struct Walk {
    WalkerFlags flags;
    bool shared = false;
    std::string shareKey;              // flags and target paths, for shared walks
    std::vector<SyncTarget> targets;   // as given: each lap starts from them
    std::deque<Pending> toStart;       // this lap's targets not started yet
    std::vector<gnmi::Path> vacant;    // skipped or dropped this lap: looked up again at its end
    WalkId walk;                       // the registry walk started and not finished, or 0
    bool again = false;                // it publishes out of the lap's order: no marks are taken
    std::vector<Queued> paused;        // its walkers while it is paused, in resume order
    uint64_t lap = 0;
    uint64_t lapMessages = 0;
    std::vector<Member> members;
    double service = 0;                // seconds its turns have taken
    uint64_t readySeq = 0;             // its place in `ready_` while ready
    bool ready = false;
    bool waiting = false;              // waits for room: not in ready_
    Vek::Seconds holdUntil = 0;        // while waiting for a full member: when to go on without it
  };

  void makeReady(WalkKey key, Walk& walk);
  // One turn of a walk.
  void turn(WalkKey key);
  // Before a turn: brings members whose receiver has room back into the
  // audience, and says whether the walk goes on (Go) or waits (Wait: no
  // member has room, or a full one may still hold it back).
  enum class Audience { Go, Wait };
  Audience refreshAudience(Walk& walk);
  // Makes ready the walks whose hold is over.
  void wakeHeld();
  // Whether some member of the walk takes its messages now.
  static bool hasAudience(const Walk& walk);
  // Whether the lap has entities to publish again (re-created, or to look
  // up again at vacant paths), or is publishing one.
  static bool againPending(const Walk& walk);
  // Starts the walk's next target, or resumes its paused walk, within the
  // slice.
  WalkResult step(WalkKey key, Walk& walk, Vek::Seconds remaining);
  WalkResult resume(Walk& walk, Vek::Seconds remaining);
  // Moves a paused walk's walkers out of the registry into `walk`.
  void takeOut(Walk& walk);
  // Whether a queued walker's entity still lives at its path; queues a
  // re-created entity as a target of `walk`.
  bool stillLive(Walk& walk, const Queued& queued);
  // The entity to sync for `target` now, or null.
  Vek::Ptr<Vek::Entity> liveTarget(const SyncTarget& target) const;
  // The lap has no more targets: syncs what lives again at vacant paths, or
  // ends the lap (ending the syncs it completes). False when the walk is over.
  bool endOfLap(WalkKey key, Walk& walk);
  // Removes ended and cancelled members; false when the audience is empty.
  bool settleMembers(Walk& walk);
  void dropWalk(WalkKey key);
  // Reports the syncs that ended during the last turn.
  void reportDone();

  BaseRouter& router_;
  SyncReceiver& receiver_;
  Vek::Seconds slice_;
  Vek::Seconds hold_;
  Resolver resolver_;
  std::unordered_map<WalkKey, Walk> walks_;
  std::unordered_map<SyncId, WalkKey> walkOf_;
  std::unordered_map<std::string, WalkKey> sharedWalks_;  // by shareKey, while accepting syncs
  std::set<std::tuple<double, uint64_t, WalkKey>> ready_;
  std::vector<SyncId> ended_;     // syncs ended and not yet reported
  WalkKey running_ = 0;           // the walk of the turn in progress
  uint64_t nextWalkKey_ = 1;
  uint64_t nextWalkId_ = 1;
  uint64_t nextReadySeq_ = 1;
  uint64_t resumes_ = 0;
  uint64_t droppedWalkers_ = 0;
  uint64_t resyncs_ = 0;
  uint64_t joins_ = 0;
  uint64_t extraLaps_ = 0;
  bool inRun_ = false;
};

}  // namespace Ostrel
