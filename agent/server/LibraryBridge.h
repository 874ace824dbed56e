// Every call the agent makes into the library's sync core and Set driver,
// behind one interface, so that the rest of the agent is written and tested
// against it and the calls themselves live in one place.
//
// The library calls back into the agent through one process-wide router
// (`MessageRouter`, adapted to the library's BaseRouter by the bridge): the
// library keeps, per published entity, the router of that entity's first
// sync and pushes every later change of it there, so there is exactly one
// router, the agent's Dispatcher, living as long as the server.
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

namespace VekGnmi::Server {

using SyncWalkId = std::pair<Ostrel::SyncId, Ostrel::WalkId>;

// Where the library's finished messages go. `push` takes every message; false
// means "taken, and no more now": the sync pauses until resumed. Called on
// the event-loop thread, never calls back into the library.
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

  // Whether the library's sync core (syncObject and the walk registry) and
  // its Set driver are linked into this build.
  virtual bool syncAvailable() const = 0;
  virtual bool setAvailable() const = 0;

  // FullVekTypeWalker::syncObject of `entity` published at `prefix`, pushing
  // to the router with `ids`; Done, or the reason it paused (then the walk
  // is pending and resumes through resumeAll).
  virtual Ostrel::WalkResult syncObject(const Vek::Ptr<Vek::Entity>& entity, const gnmi::Path& prefix,
                                        SyncWalkId ids, SyncKind kind) = 0;
  // FullVekTypeWalker::resumeAllSyncsAndNotifs: resumes pending walks one
  // after another; appends the finished (sync, walk) pairs to `completed`
  // (empty on entry); Done when none is pending any more.
  virtual Ostrel::WalkResult resumeAll(std::vector<SyncWalkId>& completed) = 0;
  // FullVekTypeWalker::cancelPendingSync: drops a pending walk.
  virtual bool cancelPendingSync(Ostrel::WalkId walkId) = 0;
  // FullVekTypeWalker::flushWalkMap and walkMapSize.
  virtual void flushWalkMap() = 0;
  virtual size_t walkMapSize() const = 0;

  // A library VekGnmiSet::Set of `request` against `root` (the model's root
  // directory); its prefix names one entity, its paths values below it.
  virtual std::unique_ptr<SetTransaction> makeSet(Vek::Ptr<Vek::GenericIf> root,
                                                  gnmi::SetRequest request) = 0;
};

// The bridge of a build without the library's sync core and Set driver:
// both report unavailable, and the agent answers the requests that need them
// with UNIMPLEMENTED after validating them.
std::unique_ptr<LibraryBridge> makeUnlinkedLibraryBridge();

// The walker flags of a sync kind (Ostrel::WalkerFlags bits), for the bridge
// that calls syncObject.
uint32_t walkerFlagBits(SyncKind kind);

}  // namespace VekGnmi::Server
