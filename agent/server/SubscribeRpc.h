// Subscribe: the streams of the agent and their subscriptions.
//
// A stream opens (its channel is known), sends one SubscriptionList (which
// makes its Subscription), then Polls for a POLL subscription; it may
// half-close (the client sends nothing more) and closes when the RPC ends.
// A second SubscriptionList, or a half-close before any, ends the stream with
// INVALID_ARGUMENT. Every second the streams whose writes have been blocked
// longer than the send timeout are ended (their subscriber does not read)
// with RESOURCE_EXHAUSTED and, should the RPC not end, cancelled after a
// grace period.
//
// Event-loop thread only.
#pragma once

#include <memory>
#include <unordered_map>

#include <gnmi/gnmi.pb.h>

#include "AgentContext.h"
#include "StreamChannel.h"

namespace VekGnmi::Server {

class Subscription;

class SubscribeRpc {
 public:
  // How often slow subscribers are looked for, and how long an ended
  // stream's RPC may take to end before it is cancelled.
  static constexpr std::chrono::seconds SLOW_CHECK_PERIOD{1};
  static constexpr std::chrono::seconds CANCEL_GRACE{2};

  explicit SubscribeRpc(AgentContext context);
  ~SubscribeRpc();
  SubscribeRpc(const SubscribeRpc&) = delete;
  SubscribeRpc& operator=(const SubscribeRpc&) = delete;

  void opened(const std::shared_ptr<StreamChannel>& channel);
  void request(const std::shared_ptr<StreamChannel>& channel, const gnmi::SubscribeRequest& request);
  void halfClosed(const std::shared_ptr<StreamChannel>& channel);
  void closed(const std::shared_ptr<StreamChannel>& channel);

  // Ends every open stream with `status` and every subscription.
  void stop(const grpc::Status& status);

  size_t subscriptionCount() const { return subscriptions_.size(); }
  // Subscriptions not ended yet (an ended one stays until its RPC is done).
  size_t liveSubscriptionCount() const;
  size_t openStreamCount() const { return openStreams_.size(); }
  // The most changes waiting in any open stream's queue.
  size_t maxChangesQueued() const;
  Subscription* subscriptionOf(const StreamChannel* channel);

 private:
  void checkSlowSubscribers();

  AgentContext context_;
  std::unordered_map<const StreamChannel*, std::unique_ptr<Subscription>> subscriptions_;
  std::unordered_map<const StreamChannel*, std::shared_ptr<StreamChannel>> openStreams_;
  bool stopped_ = false;
};

}  // namespace VekGnmi::Server
