// The gRPC side of vekgnmid: service gnmi.gNMI on gRPC's callback API, and
// the server that listens for it.
//
// Every RPC goes through the same gate before the agent's event loop sees
// it, on gRPC's threads (and the authenticator's):
//
//   1. authentication (Authenticator): UNAUTHENTICATED, the reply held back
//      by a timer for a peer that keeps failing;
//   2. decoding: requests arrive as raw bytes (gRPC's raw callback methods)
//      and are parsed here, so that one that cannot be decoded is answered
//      INVALID_ARGUMENT with the reason (MessageCodec);
//   3. limits: paths per request, Subscribe streams in total and per user
//      (RESOURCE_EXHAUSTED); the size of a request is gRPC's own limit;
//   4. authorization (Authorization.h): role and path prefixes,
//      PERMISSION_DENIED, decided on the request alone, before any lookup;
//   5. only then the Agent (see Agent.h for the threading).
// Every Set, whatever its outcome, is written to the audit log (AuditLog).
// Responses are serialised here, once each; a Get's on one of gRPC's
// threads, not on the event loop.
#pragma once

#include <memory>
#include <string>

#include <grpcpp/grpcpp.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "Agent.h"
#include "AuditLog.h"
#include "Authenticator.h"
#include "StreamLimits.h"
#include "TlsIdentity.h"

namespace VekGnmi::Server {

// What vekgnmid's gate needs besides the agent: transport, identities,
// audit and limits.
struct ServiceOptions {
  TlsFiles tls;          // empty: plaintext
  bool insecure = false;  // plaintext allowed on a non-loopback address
  std::string usersFile;  // empty: authentication off (unless `users` is set)
  std::shared_ptr<const UserTable> users;  // in place of usersFile (tests)
  AuditLog::Writer audit;  // null: Sets are not audited
  size_t maxStreams = 256;
  size_t maxStreamsPerUser = 32;
  size_t maxPaths = 1000;
  size_t maxRequestBytes = 16u << 20;
  // The longest a failed login's reply is held back (LoginThrottle).
  std::chrono::milliseconds maxLoginDelay = LoginThrottle::MAX_DELAY;
};

using RawGnmiService = gnmi::gNMI::WithRawCallbackMethod_Capabilities<gnmi::gNMI::WithRawCallbackMethod_Get<
    gnmi::gNMI::WithRawCallbackMethod_Set<gnmi::gNMI::WithRawCallbackMethod_Subscribe<gnmi::gNMI::Service>>>>;

// What the service's RPCs share.
struct Gate {
  Agent& agent;
  Authenticator& authenticator;
  StreamLimits& streams;
  AuditLog& audit;
  size_t maxPaths;
};

class GnmiService final : public RawGnmiService {
 public:
  explicit GnmiService(Gate gate) : gate_(gate) {}

  // The generated service declares each method with a synchronous and a raw
  // callback signature; the raw ones are overridden below.
  using RawGnmiService::Capabilities;
  using RawGnmiService::Get;
  using RawGnmiService::Set;
  using RawGnmiService::Subscribe;

  grpc::ServerUnaryReactor* Capabilities(grpc::CallbackServerContext* context, const grpc::ByteBuffer* request,
                                         grpc::ByteBuffer* response) override;
  grpc::ServerUnaryReactor* Get(grpc::CallbackServerContext* context, const grpc::ByteBuffer* request,
                                grpc::ByteBuffer* response) override;
  grpc::ServerUnaryReactor* Set(grpc::CallbackServerContext* context, const grpc::ByteBuffer* request,
                                grpc::ByteBuffer* response) override;
  grpc::ServerBidiReactor<grpc::ByteBuffer, grpc::ByteBuffer>* Subscribe(grpc::CallbackServerContext* context) override;

 private:
  Gate gate_;
};

// The agent and its gRPC server.
class AgentServer {
 public:
  explicit AgentServer(AgentOptions options, Agent::BridgeFactory bridgeFactory, ServiceOptions service = {});
  ~AgentServer();

  // Loads the users file and the TLS files, starts the agent and listens on
  // `address` ("host:port"; port 0 picks a free one). Returns false with
  // `error` set (one line) when it cannot: a malformed users file (with the
  // line at fault), unusable TLS files, plaintext refused on a non-loopback
  // address (ListenPolicy.h), or nothing listening.
  bool start(const std::string& address, std::string& error);
  // Re-reads the TLS files and the users file (SIGHUP). What was good is
  // taken (TLS within TlsIdentity::REFRESH_SECONDS), what was not is kept
  // as it was; `report` says which, one line each. False when anything
  // could not be taken.
  bool reload(std::string& report);
  // Ends open streams with a status, stops accepting calls, waits for the
  // calls to finish (cancelling what remains after `grace`), stops the
  // agent and the authenticator. Idempotent.
  void stop(std::chrono::milliseconds grace = std::chrono::milliseconds(2000));

  // The port it listens on (after start).
  int port() const { return port_; }
  Agent& agent() { return agent_; }
  StreamLimits& streamLimits() { return streams_; }
  // The authenticator (between start and stop).
  Authenticator* authenticator() { return authenticator_.get(); }

 private:
  ServiceOptions options_;
  Agent agent_;
  AuditLog audit_;
  StreamLimits streams_;
  std::unique_ptr<TlsIdentity> tls_;
  std::unique_ptr<Authenticator> authenticator_;
  std::unique_ptr<GnmiService> service_;
  std::unique_ptr<grpc::Server> server_;
  int port_ = 0;
  bool stopped_ = false;
};

}  // namespace VekGnmi::Server
