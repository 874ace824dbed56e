// What the agent's request handlers (GetRpc, SetRpc, SubscribeRpc) share:
// the event loop and its clock, the router of library messages, the bridge to
// the library, the model (its source, root and schema), and the agent's
// options. All
// of it lives on the event-loop thread and outlives the handlers.
#pragma once

#include <functional>

#include <grpcpp/support/status.h>

#include <Vek/Vek.h>

#include "Clock.h"
#include "EventLoop.h"
#include "LibraryBridge.h"
#include "ModelSchema.h"
#include "ModelSource.h"
#include "Requests.h"
#include "Router.h"
#include "StreamQueue.h"

namespace VekGnmi::Server {

struct AgentOptions {
  // The model served; null: the demo device of `interfaces` interfaces.
  std::shared_ptr<ModelSource> source;
  size_t interfaces = 16;
  double churnRate = 0;  // changes per second; 0: none
  std::chrono::milliseconds sendTimeout{30000};
  SubscribeLimits limits;
  size_t syncQueueLimit = StreamQueue::DEFAULT_SYNC_LIMIT;
  bool shareWalks = true;  // identical syncs share one walk of the model
  uint64_t churnSeed = 1;
  // The clock of the agent's event loop and timestamps (not owned; null:
  // the system clock). Tests pass a ManualClock.
  Clock* clock = nullptr;
};

// A unary call the loop answers: `finish` is called exactly once, on the
// loop thread.
template <typename Request, typename Response>
struct UnaryCall {
  Request request;
  Response response;
  std::function<void(const grpc::Status&)> finish;
};
using GetCall = UnaryCall<gnmi::GetRequest, gnmi::GetResponse>;
using SetCall = UnaryCall<gnmi::SetRequest, gnmi::SetResponse>;

struct AgentContext {
  const AgentOptions& options;
  EventLoop& loop;
  Router& router;
  LibraryBridge& bridge;
  ModelSource& source;
  ModelSchema& schema;
  Vek::Ptr<Vek::Dir> root;

  Clock& clock() const { return loop.clock(); }
};

// The status every request gets once the agent is stopping.
grpc::Status shuttingDown();

}  // namespace VekGnmi::Server
