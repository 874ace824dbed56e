#include "SubscribeRpc.h"

#include <fmt/format.h>
#include <Zolt/Zolt.h>

#include "Subscription.h"

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("Agent");
}  // namespace

SubscribeRpc::SubscribeRpc(AgentContext context) : context_(context) {
  context_.loop.postAfter(SLOW_CHECK_PERIOD, [this] { checkSlowSubscribers(); });
}

SubscribeRpc::~SubscribeRpc() = default;

void SubscribeRpc::opened(const std::shared_ptr<StreamChannel>& channel) {
  if (stopped_) {
    channel->abort(shuttingDown());
    return;
  }
  openStreams_[channel.get()] = channel;
}

void SubscribeRpc::request(const std::shared_ptr<StreamChannel>& channel, const gnmi::SubscribeRequest& request) {
  if (stopped_ || !openStreams_.contains(channel.get())) return;
  if (Subscription* existing = subscriptionOf(channel.get())) {
    if (request.has_poll()) return existing->poll();
    if (request.has_subscribe()) {
      channel->abort({grpc::StatusCode::INVALID_ARGUMENT,
                      "a Subscribe stream takes one SubscriptionList; send Polls after it"});
      existing->end();
    }
    return;
  }
  if (channel->ended()) return;
  SubscribeParams params;
  grpc::Status status = parseSubscribe(request, context_.options.limits, params);
  for (size_t i = 0; status.ok() && i < params.entries.size(); ++i) {
    status = context_.source.normalizePath(params.entries[i].path);
  }
  if (!status.ok()) {
    channel->abort(status);
    return;
  }
  auto sub = std::make_unique<Subscription>(
      Subscription::Context{context_.loop, context_.router, context_.source, context_.schema}, channel,
      std::move(params));
  Subscription* raw = sub.get();
  subscriptions_[channel.get()] = std::move(sub);
  raw->start();
}

void SubscribeRpc::halfClosed(const std::shared_ptr<StreamChannel>& channel) {
  if (stopped_ || !openStreams_.contains(channel.get())) return;
  if (Subscription* sub = subscriptionOf(channel.get())) return sub->clientDone();
  channel->abort({grpc::StatusCode::INVALID_ARGUMENT, "the client closed the stream without sending a SubscriptionList"});
}

void SubscribeRpc::closed(const std::shared_ptr<StreamChannel>& channel) {
  auto it = subscriptions_.find(channel.get());
  if (it != subscriptions_.end()) {
    it->second->end();
    subscriptions_.erase(it);
  }
  openStreams_.erase(channel.get());
}

void SubscribeRpc::stop(const grpc::Status& status) {
  stopped_ = true;
  for (auto& [key, channel] : openStreams_) channel->abort(status);
  for (auto& [key, sub] : subscriptions_) sub->end();
}

size_t SubscribeRpc::liveSubscriptionCount() const {
  size_t n = 0;
  for (const auto& [key, sub] : subscriptions_) n += sub->ended() ? 0 : 1;
  return n;
}

size_t SubscribeRpc::maxChangesQueued() const {
  size_t most = 0;
  for (const auto& [key, channel] : openStreams_) most = std::max(most, channel->queue().changesQueued());
  return most;
}

Subscription* SubscribeRpc::subscriptionOf(const StreamChannel* channel) {
  auto it = subscriptions_.find(channel);
  return it == subscriptions_.end() ? nullptr : it->second.get();
}

void SubscribeRpc::checkSlowSubscribers() {
  if (stopped_) return;
  const auto timeout = context_.options.sendTimeout;
  for (auto& [key, channel] : openStreams_) {
    if (channel->ended() || channel->writeBlockedFor() < timeout) continue;
    const double seconds = std::chrono::duration<double>(timeout).count();
    ZOLT_TRACE(dbg, 1, "Agent", "ending a subscriber that has not read for {:g} s", seconds);
    channel->abort({grpc::StatusCode::RESOURCE_EXHAUSTED,
                    fmt::format("the subscriber has not read for {:g} s; the stream is ended", seconds)});
    if (Subscription* sub = subscriptionOf(channel.get())) sub->end();
    std::weak_ptr<StreamChannel> weak = channel;
    context_.loop.postAfter(CANCEL_GRACE, [weak] {
      if (auto c = weak.lock()) c->cancelIfStillOpen();
    });
  }
  context_.loop.postAfter(SLOW_CHECK_PERIOD, [this] { checkSlowSubscribers(); });
}

}  // namespace VekGnmi::Server
