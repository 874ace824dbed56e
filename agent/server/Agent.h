// vekgnmid's core: the model, the library and everything that talks to them.
//
// Threading
// ---------
// One event-loop thread (EventLoop) owns the Vek runtime model and is the
// only thread that calls the library (the library is single-threaded): path
// resolution, syncs and their resumption (SyncPump), the change notifiees'
// callbacks (they run inside runtime writes, which happen on the loop: the
// change simulator, Set commits), the router (Router), the request handlers
// (GetRpc, SetRpc, SubscribeRpc with its Subscriptions) and the timers
// (churn, samples, heartbeats, the slow-subscriber check).
//
// gRPC's callback threads never touch the model or the library. They hand
// work to the loop with `post` (a request arrived, a client went away) and
// take finished messages from each stream's bounded outbound queue
// (StreamChannel / StreamQueue, the only structures both sides share, under
// their own mutex). The loop never writes to a stream itself: it queues and
// wakes the stream's writer, which writes on gRPC's threads. A message's
// last handle may be dropped on a gRPC thread: the library's message pool
// has its own lock.
//
// Slow subscribers
// ----------------
// A subscriber's initial sync pauses when its queue holds 64 messages (the
// router answers false) and resumes when the subscriber has read half of
// them. Changes never wait: they are coalesced per leaf in the subscriber's
// queue (newest value kept, dropped transitions counted in
// Update.duplicates), so memory stays bounded by the number of distinct
// leaves and the loop never blocks on a reader. A stream whose write has
// been blocked longer than the send timeout is ended with RESOURCE_EXHAUSTED
// and its syncs cancelled. Syncs take turns on the library's scheduler, and a
// sync whose subscriber has no room waits without holding back anyone else's
// (a shared walk waits for a full subscriber at most a quarter of a second).
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include "AgentContext.h"
#include "DemoModel.h"
#include "EventLoop.h"
#include "LibraryBridge.h"
#include "ModelSchema.h"
#include "Router.h"
#include "StreamChannel.h"
#include "SyncPump.h"

namespace VekGnmi::Server {

class GetRpc;
class SetRpc;
class SubscribeRpc;
class Subscription;

class Agent {
 public:
  // Makes the library bridge once the agent's router exists.
  using BridgeFactory = std::function<std::unique_ptr<LibraryBridge>(MessageRouter&, SyncEvents&)>;

  Agent(AgentOptions options, BridgeFactory bridgeFactory);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Builds the model (the source's, or the demo device) on the loop and
  // starts the churn and the request handlers.
  void start();
  // Ends every open stream and Get with UNAVAILABLE, cancels pending syncs,
  // stops the loop. Idempotent.
  void stop();

  // Capabilities: needs nothing of the loop.
  gnmi::CapabilityResponse capabilities() const;

  // Called on gRPC threads; the work runs on the loop.
  void get(std::shared_ptr<GetCall> call);
  void cancelGet(const std::shared_ptr<GetCall>& call);
  void set(std::shared_ptr<SetCall> call);
  void streamOpened(const std::shared_ptr<StreamChannel>& channel);
  void streamRequest(const std::shared_ptr<StreamChannel>& channel, gnmi::SubscribeRequest request);
  // The client will send nothing more (it half-closed the stream).
  void streamHalfClosed(const std::shared_ptr<StreamChannel>& channel);
  void streamClosed(const std::shared_ptr<StreamChannel>& channel);

  const AgentOptions& options() const { return options_; }
  EventLoop& loop() { return loop_; }
  Clock& clock() { return clock_; }

  // For tests and the benchmark; on the loop thread only. `model` is the
  // demo model (fatal for another source).
  ModelSource& source() { return *source_; }
  DemoModel& model();
  Router& router() { return *router_; }
  LibraryBridge& bridge() { return *bridge_; }
  SyncPump& pump() { return *pump_; }
  size_t subscriptionCount() const;
  // Subscriptions not ended yet (an ended one stays until its RPC is done).
  size_t liveSubscriptionCount() const;
  size_t openStreamCount() const;
  // The most changes waiting in any open stream's queue.
  size_t maxChangesQueued() const;
  Subscription* subscriptionOf(const StreamChannel* channel);

 private:
  // Runs `task` on the loop, or answers `orElse` when the agent has stopped.
  void onLoop(std::function<void()> task, const std::function<void(const grpc::Status&)>& orElse);
  void runChurn();

  AgentOptions options_;
  Clock& clock_;
  EventLoop loop_;
  std::unique_ptr<Router> router_;
  std::unique_ptr<LibraryBridge> bridge_;
  std::unique_ptr<SyncPump> pump_;
  std::shared_ptr<ModelSource> source_;
  std::unique_ptr<ChangeSimulator> churn_;
  Clock::Duration lastChurn_{};
  std::unique_ptr<GetRpc> gets_;
  std::unique_ptr<SetRpc> sets_;
  std::unique_ptr<SubscribeRpc> subscribes_;
  bool started_ = false;
  bool stopped_ = false;
};

}  // namespace VekGnmi::Server
