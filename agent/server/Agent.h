// vekgnmid's core: the model, the library and everything that talks to them.
//
// Threading
// ---------
// One event-loop thread (EventLoop) owns the Vek runtime model and is the
// only thread that calls the library (the library is single-threaded): path
// resolution, syncs and their resumption, the change notifiees' callbacks
// (they run inside runtime writes, which happen on the loop: the change
// simulator, Set commits), the router (Dispatcher), every Subscription and
// Get, and the timers (churn, samples, heartbeats, the slow-subscriber
// check).
//
// gRPC's callback threads never touch the model or the library. They hand
// work to the loop with `post` (a request arrived, a client went away) and
// take finished messages from each stream's bounded outbound queue
// (StreamChannel / StreamQueue, the only structures both sides share, under
// their own mutex). A message's last handle may be dropped on a gRPC thread:
// the library's message pool has its own lock.
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
// and its syncs cancelled. Paused syncs are resumed one walk at a time, only
// those whose subscriber has room (Dispatcher), so a stalled subscriber holds
// back nobody else's sync.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <unordered_map>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include "DemoModel.h"
#include "Dispatcher.h"
#include "EventLoop.h"
#include "LibraryBridge.h"
#include "ModelSchema.h"
#include "Requests.h"
#include "StreamChannel.h"

namespace VekGnmi::Server {

struct AgentOptions {
  size_t interfaces = 16;
  double churnRate = 0;  // changes per second; 0: none
  std::chrono::milliseconds sendTimeout{30000};
  SubscribeLimits limits;
  size_t syncQueueLimit = StreamQueue::DEFAULT_SYNC_LIMIT;
  bool shareWalks = true;  // identical syncs share one walk of the model
  uint64_t churnSeed = 1;
};

class Subscription;
class GetOperation;

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

class Agent {
 public:
  // Makes the library bridge once the agent's router exists.
  using BridgeFactory = std::function<std::unique_ptr<LibraryBridge>(MessageRouter&, SyncEvents&)>;

  Agent(AgentOptions options, BridgeFactory bridgeFactory);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  // Builds the model on the loop and starts the churn and the
  // slow-subscriber check.
  void start();
  // Ends every open stream with UNAVAILABLE, cancels pending syncs, flushes
  // the library's walk map, stops the loop. Idempotent.
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

  // For tests and the benchmark; on the loop thread only.
  DemoModel& model() { return model_; }
  Dispatcher& dispatcher() { return *dispatcher_; }
  LibraryBridge& bridge() { return *bridge_; }
  size_t subscriptionCount() const { return subscriptions_.size(); }
  // Subscriptions not ended yet (an ended one stays until its RPC is done).
  size_t liveSubscriptionCount() const;
  size_t openStreamCount() const { return openStreams_.size(); }
  // The most changes waiting in any open stream's queue.
  size_t maxChangesQueued() const;
  Subscription* subscriptionOf(const StreamChannel* channel);

 private:
  void checkSlowSubscribers();
  void runChurn();
  void runSet(const std::shared_ptr<SetCall>& call);

  AgentOptions options_;
  EventLoop loop_;
  std::unique_ptr<Dispatcher> dispatcher_;
  std::unique_ptr<LibraryBridge> bridge_;
  DemoModel model_;
  std::unique_ptr<ModelSchema> schema_;
  std::unique_ptr<ChurnSimulator> churn_;
  EventLoop::Clock::time_point lastChurn_;
  std::unordered_map<const StreamChannel*, std::unique_ptr<Subscription>> subscriptions_;
  std::unordered_map<const StreamChannel*, std::shared_ptr<StreamChannel>> openStreams_;
  std::unordered_map<const GetCall*, std::unique_ptr<GetOperation>> gets_;
  bool started_ = false;
  bool stopped_ = false;
};

}  // namespace VekGnmi::Server
