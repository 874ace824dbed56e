// BaseRouter: where the library hands every response message it builds.
//
// The embedding agent implements it. The library calls it synchronously from
// inside its own calls (a sync, a resumption, a change callback), so on the
// thread that runs the library: the agent's event loop.
//
//   class Dispatcher : public Ostrel::BaseRouter {
//    public:
//     bool push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& msg) override {
//       queueFor(syncId).push_back(msg);          // keep a handle until sent
//       return syncId.value() == 0 || !queueFor(syncId).full();
//     }
//   };
#pragma once

#include "Ostrel/ArenaRespMsg.h"
#include "Ostrel/Export.h"
#include "Ostrel/Types.h"

namespace Ostrel {

class OSTREL_EXPORT BaseRouter {
 public:
  virtual ~BaseRouter();

  // Takes one finished message. `syncId` is the sync the message belongs to,
  // or 0 for a change (an update or delete streamed from a notifiee, or the
  // publication of an entity created after its owner was synced).
  //
  // push always takes the message: the router keeps its own handle until the
  // message is sent and never drops it (dropping the last handle recycles the
  // message, on any thread). The return value only says whether more may
  // follow now:
  //   - true: keep going;
  //   - false: "I have taken this one and can take no more now". The sync
  //     pauses right after this message and is resumed later through
  //     `FullVekTypeWalker::resumeAllSyncsAndNotifs`, so nothing is lost and
  //     nothing is sent twice.
  // Messages of sync id 0 cannot wait: a router must accept every one of them
  // (return true); coalesce or drop per subscriber on its own side instead.
  // Refusing one is a broken contract, which ends the process when the walk
  // that pushed it tries to pause.
  //
  // Called on the thread that called into the library. It must not call back
  // into the library (no sync, resumption, cancellation or model change from
  // inside push).
  virtual bool push(SyncId syncId, const ArenaRespMsgPtr& msg) = 0;
};

}  // namespace Ostrel
