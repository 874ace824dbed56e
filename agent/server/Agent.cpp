#include "Agent.h"

#include <fmt/format.h>
#include <Ostrel/Path.h>
#include <Zolt/Zolt.h>

#include "CoalescingQueue.h"
#include "GnmiPathText.h"
#include "PathResolver.h"
#include "SetUndo.h"
#include "Subscription.h"
#include "ValueEncoding.h"

namespace VekGnmi::Server {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("Agent");

constexpr std::chrono::seconds SLOW_CHECK_PERIOD{1};
constexpr std::chrono::seconds CANCEL_GRACE{2};

}  // namespace

// One Get: one sync per requested path, answered with one notification per
// path when every sync has finished.
class GetOperation final : public SyncOwner {
 public:
  GetOperation(Dispatcher& dispatcher, ModelSchema& schema, std::shared_ptr<GetCall> call,
               GetParams params)
      : dispatcher_(dispatcher), schema_(schema), call_(std::move(call)), params_(std::move(params)) {
    const gnmi::Path& prefix = call_->request.prefix();
    stripPrefix_ = hasWildcard(prefix) ? 0 : prefix.elem_size();
    for (size_t i = 0; i < params_.paths.size(); ++i) {
      gnmi::Notification* n = call_->response.add_notification();
      if (stripPrefix_ > 0) *n->mutable_prefix() = prefix;
      n->mutable_prefix()->clear_origin();
      if (!params_.target.empty()) n->mutable_prefix()->set_target(params_.target);
      filters_.emplace_back(params_.paths[i]);
    }
  }
  ~GetOperation() override { dispatcher_.cancel(*this); }

  void start(std::vector<std::vector<PublishedEntity>> covers, std::function<void()> done) {
    done_ = std::move(done);
    for (size_t i = 0; i < covers.size(); ++i) {
      pathOf_[dispatcher_.startSync(*this, std::move(covers[i]), SyncKind::Get).value()] = i;
    }
  }

  bool onSyncMessage(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) override {
    auto it = pathOf_.find(syncId.value());
    if (it == pathOf_.end() || !message->response->has_update()) return true;
    const size_t index = it->second;
    const gnmi::Notification& in = message->response->update();
    const PathFilter& filter = filters_[index];
    const PathFilter::PrefixMatch match = filter.matchPrefix(in.prefix());
    if (match == PathFilter::PrefixMatch::None) return true;
    gnmi::Notification& out = *call_->response.mutable_notification(static_cast<int>(index));
    for (const gnmi::Update& u : in.update()) {
      if (match == PathFilter::PrefixMatch::Partial && !filter.matchUpdate(in.prefix(), u.path())) continue;
      const LeafInfo* leaf = schema_.leafOf(in.prefix(), u.path());
      if (!passesDataType(params_.type, leaf)) continue;
      gnmi::Update* copy = out.add_update();
      fullPath(in.prefix(), u.path(), *copy->mutable_path());
      encodeValue(leaf, u.val(), params_.encoding, *copy->mutable_val());
    }
    out.set_timestamp(std::max(out.timestamp(), in.timestamp()));
    return true;
  }

  void onSyncDone(Ostrel::SyncId syncId) override {
    if (pathOf_.erase(syncId.value()) == 0 || !pathOf_.empty()) return;
    const int64_t now = nowNanos();
    for (gnmi::Notification& n : *call_->response.mutable_notification()) {
      if (n.timestamp() == 0) n.set_timestamp(now);
    }
    done_();
  }

  const std::shared_ptr<GetCall>& call() const { return call_; }

 private:
  // The update's path relative to the request's prefix (or from the root
  // when the prefix has wildcards).
  void fullPath(const gnmi::Path& prefix, const gnmi::Path& path, gnmi::Path& out) const {
    int skip = stripPrefix_;
    for (const gnmi::PathElem& e : prefix.elem()) {
      if (skip > 0) {
        --skip;
        continue;
      }
      *out.add_elem() = e;
    }
    for (const gnmi::PathElem& e : path.elem()) {
      if (skip > 0) {
        --skip;
        continue;
      }
      *out.add_elem() = e;
    }
  }

  Dispatcher& dispatcher_;
  ModelSchema& schema_;
  std::shared_ptr<GetCall> call_;
  GetParams params_;
  int stripPrefix_ = 0;
  std::vector<PathFilter> filters_;
  std::unordered_map<uint64_t, size_t> pathOf_;
  std::function<void()> done_;
};

Agent::Agent(AgentOptions options, BridgeFactory bridgeFactory)
    : options_(std::move(options)), dispatcher_(std::make_unique<Dispatcher>(loop_, options_.shareWalks)) {
  bridge_ = bridgeFactory(*dispatcher_, *dispatcher_);
  dispatcher_->bridgeIs(bridge_.get());
}

Agent::~Agent() {
  stop();
  // The loop has stopped: what is left is destroyed on this thread, the
  // subscriptions and Gets before the model and the dispatcher they use.
  subscriptions_.clear();
  gets_.clear();
  openStreams_.clear();
  churn_.reset();
  schema_.reset();
  model_ = DemoModel();
}

void Agent::start() {
  started_ = true;
  loop_.start();
  loop_.call([this] {
    model_ = buildDemoModel(options_.interfaces);
    schema_ = std::make_unique<ModelSchema>(model_.root, isStateAttribute);
    bridge_->resolverIs([this](const gnmi::Path& path) -> Vek::Ptr<Vek::Entity> {
      Resolution r;
      if (!resolvePath(*schema_, path, r).ok() || r.absent) return nullptr;
      for (PublishedEntity& e : r.cover) {
        if (e.path == path) return std::move(e.entity);
      }
      return nullptr;
    });
    if (options_.churnRate > 0) {
      churn_ = std::make_unique<ChurnSimulator>(model_, options_.churnRate, options_.churnSeed);
      lastChurn_ = EventLoop::Clock::now();
      loop_.postAfter(churn_->period(), [this] { runChurn(); });
    }
    loop_.postAfter(SLOW_CHECK_PERIOD, [this] { checkSlowSubscribers(); });
  });
}

void Agent::stop() {
  if (!started_) {
    loop_.stop();
    return;
  }
  try {
    loop_.call([this] {
      if (stopped_) return;
      stopped_ = true;
      for (auto& [key, channel] : openStreams_) {
        channel->abort({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
      }
      for (auto& [key, sub] : subscriptions_) sub->end();
      for (auto& [key, get] : gets_) {
        get->call()->finish({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
      }
      gets_.clear();
      bridge_->flush();
    });
  } catch (const std::runtime_error&) {
    // The loop had stopped already.
  }
  loop_.stop();
}

gnmi::CapabilityResponse Agent::capabilities() const {
  gnmi::CapabilityResponse response;
  for (const gnmi::ModelData& model : demoModelData()) *response.add_supported_models() = model;
  response.add_supported_encodings(gnmi::JSON);
  response.add_supported_encodings(gnmi::JSON_IETF);
  response.add_supported_encodings(gnmi::PROTO);
  response.set_gnmi_version("0.10.0");
  return response;
}

size_t Agent::liveSubscriptionCount() const {
  size_t n = 0;
  for (const auto& [key, sub] : subscriptions_) n += sub->ended() ? 0 : 1;
  return n;
}

size_t Agent::maxChangesQueued() const {
  size_t most = 0;
  for (const auto& [key, channel] : openStreams_) most = std::max(most, channel->queue().changesQueued());
  return most;
}

Subscription* Agent::subscriptionOf(const StreamChannel* channel) {
  auto it = subscriptions_.find(channel);
  return it == subscriptions_.end() ? nullptr : it->second.get();
}

void Agent::get(std::shared_ptr<GetCall> call) {
  const bool posted = loop_.post([this, call] {
    if (stopped_) return call->finish({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
    GetParams params;
    grpc::Status status = parseGet(call->request, params);
    if (!status.ok()) return call->finish(status);
    std::vector<std::vector<PublishedEntity>> covers;
    for (const gnmi::Path& path : params.paths) {
      Resolution r;
      status = resolvePath(*schema_, path, r);
      if (!status.ok()) return call->finish(status);
      if (r.absent || r.cover.empty()) {
        return call->finish({grpc::StatusCode::NOT_FOUND,
                             fmt::format("nothing exists at {}", VekGnmi::pathString(path))});
      }
      covers.push_back(std::move(r.cover));
    }
    auto op = std::make_unique<GetOperation>(*dispatcher_, *schema_, call, std::move(params));
    GetOperation* raw = op.get();
    gets_[call.get()] = std::move(op);
    raw->start(std::move(covers), [this, raw] {
      const std::shared_ptr<GetCall> finished = raw->call();
      gets_.erase(finished.get());
      finished->finish(grpc::Status::OK);
    });
  });
  if (!posted) call->finish({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
}

void Agent::cancelGet(const std::shared_ptr<GetCall>& call) {
  loop_.post([this, call] {
    auto it = gets_.find(call.get());
    if (it == gets_.end()) return;
    std::unique_ptr<GetOperation> op = std::move(it->second);
    gets_.erase(it);
    op.reset();  // cancels its pending walks
    call->finish({grpc::StatusCode::CANCELLED, "the Get was cancelled"});
  });
}

void Agent::set(std::shared_ptr<SetCall> call) {
  const bool posted = loop_.post([this, call] { runSet(call); });
  if (!posted) call->finish({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
}

void Agent::runSet(const std::shared_ptr<SetCall>& call) {
  if (stopped_) return call->finish({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
  SetPlan plan;
  grpc::Status status = planSet(*schema_, call->request, plan);
  if (!status.ok()) return call->finish(status);
  if (!plan.entities.empty()) {
    // One library Set per entity; all prepared before any commits, so a
    // request is applied all or nothing across entities. A write that the
    // runtime refuses during a commit is undone with everything committed
    // before it (SetUndo).
    std::vector<std::unique_ptr<SetTransaction>> transactions;
    SetUndo undo;
    for (EntitySet& entity : plan.entities) {
      undo.record(entity);
      transactions.push_back(bridge_->makeSet(model_.root, std::move(entity.request)));
    }
    for (auto& tx : transactions) {
      status = tx->prepare();
      if (!status.ok()) return call->finish(status);
    }
    for (auto& tx : transactions) {
      status = tx->commit();
      if (!status.ok()) {
        const size_t restored = undo.restore();
        ZOLT_TRACE(dbg, 2, "Agent", "Set refused at commit ({}); {} values restored", status.error_message(),
                   restored);
        return call->finish(status);
      }
    }
  }
  call->response = setResponse(call->request, nowNanos());
  call->finish(grpc::Status::OK);
}

void Agent::streamOpened(const std::shared_ptr<StreamChannel>& channel) {
  channel->onRoomFreed([this] { loop_.post([this] { dispatcher_->roomFreed(); }); });
  const bool posted = loop_.post([this, channel] {
    if (stopped_) {
      channel->abort({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
      return;
    }
    openStreams_[channel.get()] = channel;
  });
  if (!posted) channel->abort({grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"});
}

void Agent::streamRequest(const std::shared_ptr<StreamChannel>& channel, gnmi::SubscribeRequest request) {
  loop_.post([this, channel, request = std::move(request)] {
    if (stopped_ || openStreams_.count(channel.get()) == 0) return;
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
    grpc::Status status = parseSubscribe(request, options_.limits, params);
    if (!status.ok()) {
      channel->abort(status);
      return;
    }
    auto sub = std::make_unique<Subscription>(Subscription::Context{loop_, *dispatcher_, *schema_},
                                              channel, std::move(params));
    Subscription* raw = sub.get();
    subscriptions_[channel.get()] = std::move(sub);
    raw->start();
  });
}

void Agent::streamHalfClosed(const std::shared_ptr<StreamChannel>& channel) {
  loop_.post([this, channel] {
    if (stopped_ || openStreams_.count(channel.get()) == 0) return;
    if (Subscription* sub = subscriptionOf(channel.get())) return sub->clientDone();
    channel->abort({grpc::StatusCode::INVALID_ARGUMENT,
                    "the client closed the stream without sending a SubscriptionList"});
  });
}

void Agent::streamClosed(const std::shared_ptr<StreamChannel>& channel) {
  loop_.post([this, channel] {
    auto it = subscriptions_.find(channel.get());
    if (it != subscriptions_.end()) {
      it->second->end();
      subscriptions_.erase(it);
    }
    openStreams_.erase(channel.get());
  });
}

void Agent::checkSlowSubscribers() {
  if (stopped_) return;
  for (auto& [key, channel] : openStreams_) {
    if (channel->ended() || channel->writeBlockedFor() < options_.sendTimeout) continue;
    const double seconds = std::chrono::duration<double>(options_.sendTimeout).count();
    ZOLT_TRACE(dbg, 1, "Agent", "ending a subscriber that has not read for {:g} s", seconds);
    channel->abort({grpc::StatusCode::RESOURCE_EXHAUSTED,
                    fmt::format("the subscriber has not read for {:g} s; the stream is ended", seconds)});
    if (Subscription* sub = subscriptionOf(channel.get())) sub->end();
    std::weak_ptr<StreamChannel> weak = channel;
    loop_.postAfter(CANCEL_GRACE, [weak] {
      if (auto c = weak.lock()) c->cancelIfStillOpen();
    });
  }
  loop_.postAfter(SLOW_CHECK_PERIOD, [this] { checkSlowSubscribers(); });
}

void Agent::runChurn() {
  if (stopped_ || !churn_) return;
  const auto now = EventLoop::Clock::now();
  const double elapsed = std::chrono::duration<double>(now - lastChurn_).count();
  lastChurn_ = now;
  churn_->advance(elapsed);
  loop_.postAfter(churn_->period(), [this] { runChurn(); });
}

}  // namespace VekGnmi::Server
