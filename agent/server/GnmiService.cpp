#include "GnmiService.h"

#include <grpc/grpc.h>
#include <grpcpp/alarm.h>

#include <fmt/format.h>
#include <Zolt/Zolt.h>

#include "BoundedText.h"
#include "ListenPolicy.h"
#include "MessageCodec.h"

namespace VekGnmi::Server {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentAuth");

const grpc::Status SHUTTING_DOWN(grpc::StatusCode::UNAVAILABLE, "the agent is shutting down");

// Runs `fn` on one of gRPC's threads `delay` from now (zero: as soon as one
// is free); no thread waits meanwhile.
void runAfter(grpc::Alarm& alarm, std::chrono::milliseconds delay, std::function<void()> fn) {
  alarm.Set(std::chrono::system_clock::now() + delay, [fn = std::move(fn)](bool) { fn(); });
}

enum class Method { Capabilities, Get, Set };

// Capabilities, Get and Set: authenticated, decoded, limited, authorized,
// then answered (Capabilities) or handed to the agent (Get, Set). Finishes
// exactly once on every path; deleted when gRPC is done with it.
class UnaryRpc final : public grpc::ServerUnaryReactor {
 public:
  UnaryRpc(const Gate& gate, Method method, grpc::CallbackServerContext* context, const grpc::ByteBuffer* request,
           grpc::ByteBuffer* response)
      : gate_(gate), method_(method), context_(context), request_(request), response_(response) {}

  void start() {
    Credentials credentials = Credentials::of(*context_);
    peer_ = credentials.peer;
    claimedUser_ = credentials.username;
    gate_.authenticator.authenticate(std::move(credentials), [this](AuthResult result) {
      if (!result.status.ok()) return refuse(result.status, result.delay);
      grant_ = std::move(result.grant);
      serve();
    });
  }

  void OnCancel() override {
    std::lock_guard lock(mutex_);
    if (get_) gate_.agent.cancelGet(get_);
  }
  void OnDone() override { delete this; }

 private:
  void serve() {
    switch (method_) {
      case Method::Capabilities: return serveCapabilities();
      case Method::Get: return serveGet();
      case Method::Set: return serveSet();
    }
  }

  void serveCapabilities() {
    gnmi::CapabilityRequest request;
    grpc::Status status = MessageCodec::decode(*request_, request, "CapabilityRequest");
    if (status.ok()) status = authorizeCapabilities(grant_);
    if (!status.ok()) return refuse(status);
    answer(gate_.agent.capabilities());
  }

  void serveGet() {
    auto call = std::make_shared<GetCall>();
    grpc::Status status = MessageCodec::decode(*request_, call->request, "GetRequest");
    if (status.ok()) status = checkPathLimit(pathCount(call->request), gate_.maxPaths);
    if (status.ok()) status = authorizeGet(grant_, call->request);
    if (!status.ok()) return refuse(status);
    GetCall* raw = call.get();
    // Called on the event loop: the response is serialised on one of gRPC's
    // threads instead, so that a large Get does not hold the loop. The
    // response is handed over under mutex_ (the alarm orders the two threads
    // too, but inside gRPC, where ThreadSanitizer does not see it).
    call->finish = [this, raw](const grpc::Status& result) {
      {
        std::lock_guard lock(mutex_);
        getResult_ = result;
      }
      runAfter(alarm_, std::chrono::milliseconds(0), [this, raw] {
        grpc::Status outcome;
        {
          std::lock_guard lock(mutex_);
          outcome = getResult_;
        }
        if (outcome.ok()) return answer(raw->response);
        Finish(boundedStatus(outcome));
      });
    };
    {
      std::lock_guard lock(mutex_);
      get_ = call;
    }
    gate_.agent.get(std::move(call));
  }

  void serveSet() {
    auto call = std::make_shared<SetCall>();
    grpc::Status status = MessageCodec::decode(*request_, call->request, "SetRequest");
    if (!status.ok()) return refuse(status);
    status = checkPathLimit(pathCount(call->request), gate_.maxPaths);
    if (status.ok()) status = authorizeSet(grant_, call->request);
    if (!status.ok()) {
      audit(&call->request, status);
      return Finish(boundedStatus(status));
    }
    SetCall* raw = call.get();
    // Called on the event loop, which holds the call meanwhile; a Set's
    // response is small.
    call->finish = [this, raw](const grpc::Status& result) {
      audit(&raw->request, result);
      if (result.ok()) return answer(raw->response);
      Finish(boundedStatus(result));
    };
    gate_.agent.set(std::move(call));
  }

  void answer(const google::protobuf::MessageLite& response) {
    if (!MessageCodec::encode(response, *response_)) {
      return Finish({grpc::StatusCode::INTERNAL, "the response could not be serialised"});
    }
    Finish(grpc::Status::OK);
  }

  // Answers `status` before the agent saw the request, `delay` from now.
  void refuse(const grpc::Status& status, std::chrono::milliseconds delay = std::chrono::milliseconds(0)) {
    ZOLT_TRACE(dbg, 1, "Gate", "{}: {} refused: {}", peer_,
               method_ == Method::Capabilities ? "Capabilities"
               : method_ == Method::Get        ? "Get"
                                               : "Set",
               status.error_message());
    if (method_ == Method::Set) {
      gnmi::SetRequest request;
      const bool decoded = MessageCodec::decode(*request_, request, "SetRequest").ok();
      audit(decoded ? &request : nullptr, status);
    }
    if (delay.count() == 0) return Finish(boundedStatus(status));
    runAfter(alarm_, delay, [this, status] { Finish(boundedStatus(status)); });
  }

  void audit(const gnmi::SetRequest* request, const grpc::Status& outcome) {
    const bool authenticated = !grant_.user.empty();
    gate_.audit.record(AuditEntry{std::chrono::system_clock::now(), authenticated ? grant_.user : claimedUser_,
                                  authenticated, peer_, request, outcome});
  }

  const Gate& gate_;
  const Method method_;
  grpc::CallbackServerContext* context_;
  const grpc::ByteBuffer* request_;
  grpc::ByteBuffer* response_;
  std::string peer_;
  std::string claimedUser_;
  Grant grant_;
  grpc::Alarm alarm_;
  std::mutex mutex_;
  std::shared_ptr<GetCall> get_;  // guarded by mutex_
  grpc::Status getResult_;        // guarded by mutex_
};

// One Subscribe stream: authenticated and admitted before the agent opens
// it; each request decoded, limited and authorized before the agent sees
// it, so a refused stream sends nothing but its status. Writes go through
// the StreamChannel (see its header), each response serialised once (once
// for every stream it goes to, when it is shared: OutMessage).
class SubscribeReactor final : public grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>, public StreamWriter {
 public:
  SubscribeReactor(const Gate& gate, grpc::CallbackServerContext* context) : gate_(gate), context_(context) {}

  void start() {
    Credentials credentials = Credentials::of(*context_);
    peer_ = credentials.peer;
    gate_.authenticator.authenticate(std::move(credentials), [this](AuthResult result) { authenticated(result); });
  }

  void OnReadDone(bool ok) override {
    // A failed read is the client's half-close (or the end of the RPC):
    // the agent decides whether the stream has more to send.
    if (!ok) {
      gate_.agent.streamHalfClosed(channel_);
      return;
    }
    gnmi::SubscribeRequest request;
    grpc::Status status = MessageCodec::decode(in_, request, "SubscribeRequest");
    in_.Clear();
    if (status.ok()) status = checkPathLimit(pathCount(request), gate_.maxPaths);
    if (status.ok()) status = authorizeSubscribe(grant_, request);
    if (!status.ok()) {
      ZOLT_TRACE(dbg, 1, "Gate", "{}: Subscribe refused: {}", peer_, status.error_message());
      channel_->abort(status);
      return;
    }
    gate_.agent.streamRequest(channel_, std::move(request));
    StartRead(&in_);
  }
  void OnWriteDone(bool ok) override { channel_->writeDone(ok); }
  void OnCancel() override {
    std::shared_ptr<StreamChannel> channel;
    {
      std::lock_guard lock(mutex_);
      cancelled_ = true;
      channel = channel_;
    }
    if (!channel) return;  // the authentication's answer finishes the RPC
    channel->cancelled();
    gate_.agent.streamClosed(channel);
  }
  void OnDone() override {
    if (channel_) {
      channel_->detach();
      gate_.agent.streamClosed(channel_);
    }
    if (admitted_) {
      gate_.streams.release(grant_.user);
      ZOLT_TRACE(dbg, 2, "Gate", "{}: Subscribe stream of '{}' done", peer_, grant_.user);
    }
    delete this;
  }

  // StreamWriter
  void startWrite(const OutMessage& message) override {
    if (!message.serialise(out_)) {
      cancel({grpc::StatusCode::INTERNAL, "a response could not be serialised"});
      return;
    }
    StartWrite(&out_);
  }
  void finish(const grpc::Status& status) override { Finish(boundedStatus(status)); }
  void post(std::function<void()> task) override {
    // An alarm already due runs its callback on one of gRPC's executor
    // threads at once. (One due "now" does not: gRPC rounds a deadline up to
    // the next millisecond and its timer thread fires it, which made the
    // hop cost 0.6 ms at the median.) Each post has an alarm of its own,
    // deleted by its callback, which runs exactly once: the task holds what
    // it needs, never this reactor, which may be gone by then.
    auto* alarm = new grpc::Alarm;
    alarm->Set(gpr_inf_past(GPR_CLOCK_MONOTONIC), [alarm, task = std::move(task)](bool) {
      delete alarm;
      task();
    });
  }
  void cancel(const grpc::Status& given) override {
    const grpc::Status status = boundedStatus(given);
    // Cancelling with a status makes gRPC send that status in trailers that
    // overtake whatever data is still blocked by the client's flow control,
    // so a subscriber that stopped reading learns why it was ended.
    grpc_call_cancel_with_status(context_->c_call(), static_cast<grpc_status_code>(status.error_code()),
                                 status.error_message().c_str(), nullptr);
  }

 private:
  void authenticated(const AuthResult& result) {
    if (!result.status.ok()) {
      ZOLT_TRACE(dbg, 1, "Gate", "{}: Subscribe refused: {}", peer_, result.status.error_message());
      if (result.delay.count() == 0) return Finish(result.status);
      const grpc::Status status = result.status;
      return runAfter(alarm_, result.delay, [this, status] { Finish(status); });
    }
    grant_ = result.grant;
    const grpc::Status admission = gate_.streams.admit(grant_.user);
    if (!admission.ok()) {
      ZOLT_TRACE(dbg, 1, "Gate", "{}: Subscribe refused: {}", peer_, admission.error_message());
      return Finish(admission);
    }
    admitted_ = true;
    auto channel = std::make_shared<StreamChannel>(this, gate_.agent.options().syncQueueLimit, gate_.agent.clock());
    {
      std::lock_guard lock(mutex_);
      if (cancelled_) return Finish({grpc::StatusCode::CANCELLED, "the client cancelled the stream"});
      channel_ = channel;
    }
    gate_.agent.streamOpened(channel_);
    StartRead(&in_);
  }

  const Gate& gate_;
  grpc::CallbackServerContext* context_;
  std::string peer_;
  Grant grant_;
  bool admitted_ = false;
  grpc::Alarm alarm_;
  std::mutex mutex_;
  bool cancelled_ = false;                  // guarded by mutex_
  std::shared_ptr<StreamChannel> channel_;  // set once, under mutex_, before the first read
  grpc::ByteBuffer in_;
  grpc::ByteBuffer out_;
};

}  // namespace

grpc::ServerUnaryReactor* GnmiService::Capabilities(grpc::CallbackServerContext* context,
                                                    const grpc::ByteBuffer* request, grpc::ByteBuffer* response) {
  auto* rpc = new UnaryRpc(gate_, Method::Capabilities, context, request, response);
  rpc->start();
  return rpc;
}

grpc::ServerUnaryReactor* GnmiService::Get(grpc::CallbackServerContext* context, const grpc::ByteBuffer* request,
                                           grpc::ByteBuffer* response) {
  auto* rpc = new UnaryRpc(gate_, Method::Get, context, request, response);
  rpc->start();
  return rpc;
}

grpc::ServerUnaryReactor* GnmiService::Set(grpc::CallbackServerContext* context, const grpc::ByteBuffer* request,
                                           grpc::ByteBuffer* response) {
  // A Set runs to its end once started: it is not cancelled.
  auto* rpc = new UnaryRpc(gate_, Method::Set, context, request, response);
  rpc->start();
  return rpc;
}

grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>* GnmiService::Subscribe(
    grpc::CallbackServerContext* context) {
  auto* rpc = new SubscribeReactor(gate_, context);
  rpc->start();
  return rpc;
}

AgentServer::AgentServer(AgentOptions options, Agent::BridgeFactory bridgeFactory, ServiceOptions service)
    : options_(std::move(service)),
      agent_(std::move(options), std::move(bridgeFactory)),
      audit_(options_.audit),
      streams_(options_.maxStreams, options_.maxStreamsPerUser) {}

AgentServer::~AgentServer() { stop(); }

bool AgentServer::start(const std::string& address, std::string& error) {
  auto fail = [&](std::string why) {
    error = std::move(why);
    stopped_ = true;
    return false;
  };
  error = listenRefusal(address, options_.tls.enabled(), options_.insecure);
  if (!error.empty()) return fail(error);
  if (options_.tls.enabled() != !options_.tls.key.empty()) {
    return fail("--tls-cert and --tls-key go together");
  }
  if (!options_.tls.ca.empty() && !options_.tls.enabled()) return fail("--tls-ca needs --tls-cert and --tls-key");
  std::shared_ptr<const UserTable> users = options_.users;
  if (!users && !options_.usersFile.empty()) {
    auto table = std::make_shared<UserTable>();
    if (!loadUsersFile(options_.usersFile, *table, error)) return fail("--users " + error);
    users = std::move(table);
  }
  std::shared_ptr<grpc::ServerCredentials> credentials = grpc::InsecureServerCredentials();
  if (options_.tls.enabled()) {
    tls_ = std::make_unique<TlsIdentity>();
    if (!tls_->load(options_.tls, error)) return fail(error);
    credentials = tls_->credentials();
  }
  authenticator_ = std::make_unique<Authenticator>(std::move(users), options_.maxLoginDelay);
  service_ = std::make_unique<GnmiService>(Gate{agent_, *authenticator_, streams_, audit_, options_.maxPaths});
  agent_.start();
  grpc::ServerBuilder builder;
  builder.AddListeningPort(address, credentials, &port_);
  builder.RegisterService(service_.get());
  builder.SetMaxReceiveMessageSize(static_cast<int>(std::min<size_t>(options_.maxRequestBytes, INT32_MAX)));
  server_ = builder.BuildAndStart();
  if (!server_ || port_ == 0) {
    server_.reset();
    agent_.stop();
    return fail(fmt::format("cannot listen on {}", address));
  }
  return true;
}

bool AgentServer::reload(std::string& report) {
  report.clear();
  bool ok = true;
  auto line = [&](const std::string& text) {
    if (!report.empty()) report += '\n';
    report += text;
  };
  if (tls_) {
    std::string error;
    if (tls_->reload(error)) {
      line("TLS certificate and key reloaded");
    } else {
      ok = false;
      line("TLS files kept as they were: " + error);
    }
  }
  if (!options_.usersFile.empty() && authenticator_) {
    auto table = std::make_shared<UserTable>();
    std::string error;
    if (loadUsersFile(options_.usersFile, *table, error)) {
      const size_t n = table->users().size();
      line(fmt::format("users reloaded: {} user{}", n, n == 1 ? "" : "s"));
      authenticator_->usersAre(std::move(table));
    } else {
      ok = false;
      line("users kept as they were: " + error);
    }
  }
  if (report.empty()) line("nothing to reload (no TLS, no users file)");
  return ok;
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
  // No call is left: the authenticator's worker, which answered some of
  // them, ends before the server is destroyed.
  authenticator_.reset();
}

}  // namespace VekGnmi::Server
