// Every call the agent makes into the library's sync core and Set driver,
// behind one interface, so that the calls live in one place and the rest of
// the agent can also be driven by a scripted double in tests.
//
// The library calls back into the agent through one process-wide router
// (`MessageRouter`, adapted to the library's BaseRouter by the bridge): the
// library keeps, per published entity, the router of that entity's first
// sync and pushes every later change of it there, so there is exactly one
// router, the agent's Dispatcher, living as long as the server.
//
// Resuming. The library's resumeAllSyncsAndNotifs resumes pending walks in
// its own order and stops at the first one that pauses, so one subscriber
// that does not read would hold back everyone else's syncs; it is also fatal
// when it meets a walk whose queued work a delete removed. The agent
// therefore resumes walks one at a time (`resumeWalk`, the library's
// resumeSync), choosing itself which: only those whose subscriber has room,
// round-robin (see Dispatcher).
//
// Bookkeeping the bridge does for the library:
//   - a cancelled walk leaves its id in Ostrel::staticPathWalkIdMap, where a
//     later delete under one of its paths would look for it and fail: after
//     cancelPendingSync the id is removed from every set of that map (and
//     sets that become empty are erased); after flushWalkMap the map is
//     cleared, since no walk is left;
//   - a delete that drops one walk's queued walkers erases their paths from
//     Ostrel::staticPathWalkIdMap whole, including other walks' entries at
//     the same paths: before a walk is resumed, every walker it still has
//     queued is registered under its path again, as popping it requires;
//   - a delete drops the walker queued at the deleted path and every walker
//     queued behind it, whatever their paths. A walk that pauses inside a
//     collection member queues the member's walker ahead of its owner's, so
//     removing that member would drop the rest of the owner's walk (the
//     members after it, the collections after that). After every pause the
//     bridge therefore orders each walk's queue owners first (by prefix
//     length; the library's sort is stable): a delete then drops only what
//     lies under the deleted path, and what else it drops (a sibling member
//     paused behind it) is found when the walk is next resumed: a queued
//     walker that has gone while its entity is still published is reported
//     as lost, and the Dispatcher syncs that entity again within the same
//     sync.
//
// All calls are made on the event-loop thread.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

#include <grpcpp/support/status.h>

#include <Ostrel/ArenaRespMsg.h>
#include <Ostrel/Types.h>
#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

#include "PathResolver.h"

namespace VekGnmi::Server {

using SyncWalkId = std::pair<Ostrel::SyncId, Ostrel::WalkId>;

// Where the library's finished messages go. `push` takes every message; false
// means "taken, and no more now": the sync pauses until resumed. Messages of
// sync id 0 (changes) must always be answered true. Called on the event-loop
// thread, never calls back into the library.
class MessageRouter {
 public:
  virtual ~MessageRouter();
  virtual bool push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) = 0;
};

// What a sync is for; chooses the walker flags (the library's request-kind
// bits, plus the option that makes a delete of a never-published member a
// no-op).
enum class SyncKind : uint32_t {
  Get = 0,        // a Get
  Subscribe = 1,  // the initial sync of a subscription, or a poll
  Watch = 2,      // register change notifiees only: the walk is skipped
};

// One library Set, prepared then committed.
class SetTransaction {
 public:
  virtual ~SetTransaction();
  // Stages and checks every operation; writes nothing.
  virtual grpc::Status prepare() = 0;
  // Writes (after a successful prepare).
  virtual grpc::Status commit() = 0;
};

class LibraryBridge {
 public:
  virtual ~LibraryBridge();

  // FullVekTypeWalker::syncObject of `entity` published at `prefix`, pushing
  // to the router with `ids` (both non-zero); Done, or the reason it paused
  // (then the walk is pending and resumes through resumeWalk).
  virtual Ostrel::WalkResult syncObject(const Vek::Ptr<Vek::Entity>& entity, const gnmi::Path& prefix,
                                        SyncWalkId ids, SyncKind kind) = 0;
  // FullVekTypeWalker::resumeSync of one pending walk, for one slice: Done
  // when it has finished (also when a delete emptied its queue, or it is
  // no longer pending), else the reason it paused again. Appends to `lost`
  // the published entities whose queued work a delete removed since the
  // walk last paused although they are still in the model; they must be
  // synced again for the walk's sync to be complete.
  virtual Ostrel::WalkResult resumeWalk(Ostrel::WalkId walkId, std::vector<PublishedEntity>& lost) = 0;
  // FullVekTypeWalker::cancelPendingSync, with the path-map cleanup above:
  // drops a pending walk; false when there was none.
  virtual bool cancelPendingSync(Ostrel::WalkId walkId) = 0;
  // FullVekTypeWalker::flushWalkMap (and the path map): forgets every walk.
  virtual void flushWalkMap() = 0;
  // Walks pending in the library, and paths at which walkers are queued.
  virtual size_t walkMapSize() const = 0;
  virtual size_t pathWalkMapSize() const = 0;

  // A library VekGnmiSet::Set of `request` against `root` (the model's root
  // directory); its prefix names one entity, its paths values below it.
  virtual std::unique_ptr<SetTransaction> makeSet(Vek::Ptr<Vek::GenericIf> root,
                                                  gnmi::SetRequest request) = 0;
};

// The bridge to the library linked into this program, pushing to `router`
// (which must outlive every published entity of the model).
std::unique_ptr<LibraryBridge> makeLibraryBridge(MessageRouter& router);

// The walker flags of a sync kind (Ostrel::WalkerFlags bits), for the bridge
// that calls syncObject.
uint32_t walkerFlagBits(SyncKind kind);

}  // namespace VekGnmi::Server
