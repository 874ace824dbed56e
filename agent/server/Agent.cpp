#include "Agent.h"

#include <Ostrel/Path.h>

#include "GetRpc.h"
#include "PathResolver.h"
#include "SetRpc.h"
#include "SubscribeRpc.h"
#include "Subscription.h"

namespace VekGnmi::Server {

grpc::Status shuttingDown() { return {grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"}; }

Agent::Agent(AgentOptions options, BridgeFactory bridgeFactory)
    : options_(std::move(options)),
      clock_(options_.clock ? *options_.clock : systemClock()),
      loop_(clock_),
      router_(std::make_unique<Router>(clock_, options_.shareWalks)),
      source_(options_.source ? options_.source : makeDemoSource(options_.interfaces)) {
  bridge_ = bridgeFactory(*router_, *router_);
  pump_ = std::make_unique<SyncPump>(loop_, *bridge_);
  router_->bridgeIs(bridge_.get(), pump_.get());
}

Agent::~Agent() {
  stop();
  // The loop has stopped: what is left is destroyed on this thread, the
  // request handlers before the model and the router they use.
  subscribes_.reset();
  gets_.reset();
  sets_.reset();
  churn_.reset();
  source_->teardown();
}

DemoModel& Agent::model() {
  DemoModel* demo = source_->demoModel();
  if (demo == nullptr) throw std::logic_error("the agent serves another model than the demo device");
  return *demo;
}

void Agent::start() {
  started_ = true;
  loop_.start();
  loop_.call([this] {
    source_->build();
    bridge_->resolverIs([this](const gnmi::Path& path) -> Vek::Ptr<Vek::Entity> {
      Resolution r;
      if (!resolvePath(source_->schema(), path, r).ok() || r.absent) return nullptr;
      for (PublishedEntity& e : r.cover) {
        if (e.path == path) return std::move(e.entity);
      }
      return nullptr;
    });
    const AgentContext context{options_, loop_, *router_, *bridge_, *source_, source_->schema(), source_->root()};
    gets_ = std::make_unique<GetRpc>(context);
    sets_ = std::make_unique<SetRpc>(context);
    subscribes_ = std::make_unique<SubscribeRpc>(context);
    if (options_.churnRate > 0) churn_ = source_->changeSimulator(options_.churnRate, options_.churnSeed);
    if (churn_) {
      lastChurn_ = clock_.now();
      loop_.postAfter(churn_->period(), [this] { runChurn(); });
    }
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
      subscribes_->stop(shuttingDown());
      gets_->stop(shuttingDown());
      bridge_->flush();
    });
  } catch (const std::runtime_error&) {
    // The loop had stopped already.
  }
  loop_.stop();
}

gnmi::CapabilityResponse Agent::capabilities() const {
  gnmi::CapabilityResponse response;
  for (const gnmi::ModelData& model : source_->models()) *response.add_supported_models() = model;
  response.add_supported_encodings(gnmi::JSON);
  response.add_supported_encodings(gnmi::JSON_IETF);
  response.add_supported_encodings(gnmi::PROTO);
  response.set_gnmi_version("0.10.0");
  return response;
}

size_t Agent::subscriptionCount() const { return subscribes_ ? subscribes_->subscriptionCount() : 0; }
size_t Agent::liveSubscriptionCount() const { return subscribes_ ? subscribes_->liveSubscriptionCount() : 0; }
size_t Agent::openStreamCount() const { return subscribes_ ? subscribes_->openStreamCount() : 0; }
size_t Agent::maxChangesQueued() const { return subscribes_ ? subscribes_->maxChangesQueued() : 0; }
Subscription* Agent::subscriptionOf(const StreamChannel* channel) {
  return subscribes_ ? subscribes_->subscriptionOf(channel) : nullptr;
}

void Agent::onLoop(std::function<void()> task, const std::function<void(const grpc::Status&)>& orElse) {
  if (!loop_.post([this, task = std::move(task), orElse] {
        if (stopped_) return orElse(shuttingDown());
        task();
      })) {
    orElse(shuttingDown());
  }
}

void Agent::get(std::shared_ptr<GetCall> call) {
  onLoop([this, call] { gets_->handle(call); }, call->finish);
}

void Agent::cancelGet(const std::shared_ptr<GetCall>& call) {
  loop_.post([this, call] {
    if (gets_) gets_->cancel(call);
  });
}

void Agent::set(std::shared_ptr<SetCall> call) {
  onLoop([this, call] { sets_->handle(call); }, call->finish);
}

void Agent::streamOpened(const std::shared_ptr<StreamChannel>& channel) {
  channel->onRoomFreed([this] { loop_.post([this] { router_->roomFreed(); }); });
  onLoop([this, channel] { subscribes_->opened(channel); },
         [channel](const grpc::Status& status) { channel->abort(status); });
}

void Agent::streamRequest(const std::shared_ptr<StreamChannel>& channel, gnmi::SubscribeRequest request) {
  loop_.post([this, channel, request = std::move(request)] {
    if (!stopped_) subscribes_->request(channel, request);
  });
}

void Agent::streamHalfClosed(const std::shared_ptr<StreamChannel>& channel) {
  loop_.post([this, channel] {
    if (!stopped_) subscribes_->halfClosed(channel);
  });
}

void Agent::streamClosed(const std::shared_ptr<StreamChannel>& channel) {
  loop_.post([this, channel] { subscribes_->closed(channel); });
}

void Agent::runChurn() {
  if (stopped_ || !churn_) return;
  const Clock::Duration now = clock_.now();
  const double elapsed = std::chrono::duration<double>(now - lastChurn_).count();
  lastChurn_ = now;
  churn_->advance(elapsed);
  loop_.postAfter(churn_->period(), [this] { runChurn(); });
}

}  // namespace VekGnmi::Server
