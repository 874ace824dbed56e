#include "GnmiService.h"

#include <fmt/format.h>

namespace VekGnmi::Server {

namespace {

// A unary call answered from the event loop.
template <typename Request, typename Response>
class UnaryReactor final : public grpc::ServerUnaryReactor {
 public:
  using Call = UnaryCall<Request, Response>;
  using Cancel = void (Agent::*)(const std::shared_ptr<Call>&);

  UnaryReactor(Agent& agent, const Request& request, Response* response, Cancel cancel)
      : agent_(agent), call_(std::make_shared<Call>()), cancel_(cancel) {
    call_->request = request;
    Call* call = call_.get();
    call_->finish = [this, call, response](const grpc::Status& status) {
      if (status.ok()) *response = std::move(call->response);
      Finish(status);
    };
  }

  const std::shared_ptr<Call>& call() const { return call_; }

  void OnCancel() override {
    if (cancel_) (agent_.*cancel_)(call_);
  }
  void OnDone() override { delete this; }

 private:
  Agent& agent_;
  std::shared_ptr<Call> call_;
  Cancel cancel_;
};

class SubscribeReactor final
    : public grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse>,
      public StreamWriter {
 public:
  SubscribeReactor(Agent& agent, grpc::CallbackServerContext* context)
      : agent_(agent),
        context_(context),
        channel_(std::make_shared<StreamChannel>(this, agent.options().syncQueueLimit, agent.clock())) {
    agent_.streamOpened(channel_);
    StartRead(&request_);
  }

  void OnReadDone(bool ok) override {
    // A failed read is the client's half-close (or the end of the RPC):
    // the agent decides whether the stream has more to send.
    if (!ok) {
      agent_.streamHalfClosed(channel_);
      return;
    }
    agent_.streamRequest(channel_, std::move(request_));
    request_.Clear();
    StartRead(&request_);
  }
  void OnWriteDone(bool ok) override { channel_->writeDone(ok); }
  void OnCancel() override {
    channel_->cancelled();
    agent_.streamClosed(channel_);
  }
  void OnDone() override {
    channel_->detach();
    agent_.streamClosed(channel_);
    delete this;
  }

  void startWrite(const gnmi::SubscribeResponse& response) override { StartWrite(&response); }
  void finish(const grpc::Status& status) override { Finish(status); }
  void tryCancel() override { context_->TryCancel(); }

 private:
  Agent& agent_;
  grpc::CallbackServerContext* context_;
  std::shared_ptr<StreamChannel> channel_;
  gnmi::SubscribeRequest request_;
};

}  // namespace

grpc::ServerUnaryReactor* GnmiService::Capabilities(grpc::CallbackServerContext* context,
                                                    const gnmi::CapabilityRequest*,
                                                    gnmi::CapabilityResponse* response) {
  *response = agent_.capabilities();
  grpc::ServerUnaryReactor* reactor = context->DefaultReactor();
  reactor->Finish(grpc::Status::OK);
  return reactor;
}

grpc::ServerUnaryReactor* GnmiService::Get(grpc::CallbackServerContext*, const gnmi::GetRequest* request,
                                           gnmi::GetResponse* response) {
  auto* reactor = new UnaryReactor<gnmi::GetRequest, gnmi::GetResponse>(agent_, *request, response,
                                                                        &Agent::cancelGet);
  agent_.get(reactor->call());
  return reactor;
}

grpc::ServerUnaryReactor* GnmiService::Set(grpc::CallbackServerContext*, const gnmi::SetRequest* request,
                                           gnmi::SetResponse* response) {
  // A Set runs to its end once started: it is not cancelled.
  auto* reactor =
      new UnaryReactor<gnmi::SetRequest, gnmi::SetResponse>(agent_, *request, response, nullptr);
  agent_.set(reactor->call());
  return reactor;
}

grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse>* GnmiService::Subscribe(
    grpc::CallbackServerContext* context) {
  return new SubscribeReactor(agent_, context);
}

AgentServer::AgentServer(AgentOptions options, Agent::BridgeFactory bridgeFactory)
    : agent_(std::move(options), std::move(bridgeFactory)), service_(agent_) {}

AgentServer::~AgentServer() { stop(); }

bool AgentServer::start(const std::string& address, std::string& error) {
  agent_.start();
  grpc::ServerBuilder builder;
  builder.AddListeningPort(address, grpc::InsecureServerCredentials(), &port_);
  builder.RegisterService(&service_);
  builder.SetMaxReceiveMessageSize(64 << 20);
  server_ = builder.BuildAndStart();
  if (!server_ || port_ == 0) {
    error = fmt::format("cannot listen on {}", address);
    server_.reset();
    agent_.stop();
    stopped_ = true;
    return false;
  }
  return true;
}

void AgentServer::stop(std::chrono::milliseconds grace) {
  if (stopped_) return;
  stopped_ = true;
  // First the agent ends its streams with a status; then the server stops
  // taking calls and cancels what has not finished by the deadline.
  agent_.stop();
  if (server_) {
    server_->Shutdown(std::chrono::system_clock::now() + grace);
    server_->Wait();
  }
}

}  // namespace VekGnmi::Server
