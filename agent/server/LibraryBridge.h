// Every call the agent makes into the library's sync core and Set driver,
// behind one interface, so that the calls live in one place and the rest of
// the agent can also be driven by a scripted double in tests.
//
// The library calls back into the agent through one process-wide router
// (`MessageRouter`, adapted to the library's BaseRouter by the bridge): the
// library keeps, per published entity, the router of that entity's first
// sync and pushes every later change of it there, so there is exactly one
// router, the agent's Router, living as long as the server.
//
// Syncing. Every sync runs on the library's sync scheduler
// (Ostrel/SyncScheduler.h), which takes the syncs in turns of a bounded
// slice, lets a sync whose owner has no room wait without holding back the
// others, and keeps syncs correct while members are deleted and re-created.
// Syncs of the same entities and kind share one walk (the scheduler's shared
// walks): each message is built once and handed to every sync of the walk,
// so routers and owners must not change a sync message they did not make.
// The bridge only translates: the agent's entities and sync kinds into
// scheduler targets and walker flags, and the scheduler's questions (room,
// completion) into `SyncEvents`.
//
// All calls are made on the event-loop thread.
#pragma once

#include <chrono>
#include <functional>
#include <cstdint>
#include <memory>
#include <optional>
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

// What the bridge asks the agent about each sync it runs.
class SyncEvents {
 public:
  virtual ~SyncEvents();
  // Whether the owner of sync `syncId` takes more messages now.
  virtual bool hasRoom(Ostrel::SyncId syncId) const = 0;
  // Every entity of sync `syncId` has been published; called from runSyncs.
  virtual void syncDone(Ostrel::SyncId syncId) = 0;
};

class LibraryBridge {
 public:
  virtual ~LibraryBridge();

  // Queues sync `syncId` (non-zero, minted by the agent) of `targets`, in
  // order. It runs in runSyncs; with no targets it is done at the next one.
  // With `shared`, it shares its walk with syncs of the same targets and
  // kind.
  virtual void startSync(Ostrel::SyncId syncId, std::vector<PublishedEntity> targets, SyncKind kind,
                         bool shared) = 0;
  // Registers change notifiees on `targets` at once, publishing nothing.
  virtual void watch(const std::vector<PublishedEntity>& targets) = 0;
  // Runs syncs, in turns, for about `budget`; true while some sync can go on.
  virtual bool runSyncs(std::chrono::nanoseconds budget) = 0;
  // When nothing can go on now: how long until a sync held back by a full
  // subscriber goes on without it (then runSyncs must be called again).
  virtual std::optional<std::chrono::nanoseconds> wakeIn() const { return std::nullopt; }
  // Drops sync `syncId` (its owner is not told); false when unknown. Safe
  // from inside the router's push.
  virtual bool cancelSync(Ostrel::SyncId syncId) = 0;
  // An owner has room again: its waiting syncs get turns.
  virtual void roomFreed() = 0;
  // Drops every sync.
  virtual void flush() = 0;
  // The entity published at a path now (or null): how a sync finds an entity
  // removed and created again at its path before its walk reached it.
  using Resolver = std::function<Vek::Ptr<Vek::Entity>(const gnmi::Path&)>;
  virtual void resolverIs(Resolver) {}

  // Syncs queued and not finished, and syncs with a paused walk.
  virtual size_t activeSyncs() const = 0;
  virtual size_t pausedWalks() const = 0;
  // Paused walks resumed so far; entities synced again because they were
  // re-created at their path during a sync.
  virtual uint64_t resumes() const = 0;
  virtual uint64_t resyncs() const = 0;

  // A library VekGnmiSet::Set of `request` against `root` (the model's root
  // directory); its prefix names one entity, its paths values below it.
  virtual std::unique_ptr<SetTransaction> makeSet(Vek::Ptr<Vek::GenericIf> root,
                                                  gnmi::SetRequest request) = 0;
};

// The bridge to the library linked into this program, pushing to `router`
// and asking `events`; the bridge, the router and `events` must outlive every
// published entity of the model (their notifiees push changes through them).
std::unique_ptr<LibraryBridge> makeLibraryBridge(MessageRouter& router, SyncEvents& events);

// The walker flags of a sync kind (Ostrel::WalkerFlags bits), for the bridge
// that calls syncObject.
uint32_t walkerFlagBits(SyncKind kind);

}  // namespace VekGnmi::Server
