// The gRPC side of vekgnmid: service gnmi.gNMI on gRPC's callback API, and
// the server that listens for it. Every handler only copies the request and
// hands it to the Agent's event loop; answers come back through the
// reactors (see Agent.h for the threading).
#pragma once

#include <memory>
#include <string>

#include <grpcpp/grpcpp.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "Agent.h"

namespace VekGnmi::Server {

class GnmiService final : public gnmi::gNMI::CallbackService {
 public:
  explicit GnmiService(Agent& agent) : agent_(agent) {}

  // The generated service declares each method with a synchronous and a
  // callback signature; the callback ones are overridden below, the others
  // stay as generated.
  using gnmi::gNMI::CallbackService::Capabilities;
  using gnmi::gNMI::CallbackService::Get;
  using gnmi::gNMI::CallbackService::Set;
  using gnmi::gNMI::CallbackService::Subscribe;

  grpc::ServerUnaryReactor* Capabilities(grpc::CallbackServerContext* context,
                                         const gnmi::CapabilityRequest* request,
                                         gnmi::CapabilityResponse* response) override;
  grpc::ServerUnaryReactor* Get(grpc::CallbackServerContext* context, const gnmi::GetRequest* request,
                                gnmi::GetResponse* response) override;
  grpc::ServerUnaryReactor* Set(grpc::CallbackServerContext* context, const gnmi::SetRequest* request,
                                gnmi::SetResponse* response) override;
  grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse>* Subscribe(
      grpc::CallbackServerContext* context) override;

 private:
  Agent& agent_;
};

// The agent and its gRPC server.
class AgentServer {
 public:
  explicit AgentServer(AgentOptions options, Agent::BridgeFactory bridgeFactory);
  ~AgentServer();

  // Starts the agent and listens on `address` ("host:port"; port 0 picks a
  // free one). Returns false with `error` set when it cannot listen.
  bool start(const std::string& address, std::string& error);
  // Ends open streams with a status, stops accepting calls, waits for the
  // calls to finish (cancelling what remains after `grace`), stops the
  // agent. Idempotent.
  void stop(std::chrono::milliseconds grace = std::chrono::milliseconds(2000));

  // The port it listens on (after start).
  int port() const { return port_; }
  Agent& agent() { return agent_; }

 private:
  Agent agent_;
  GnmiService service_;
  std::unique_ptr<grpc::Server> server_;
  int port_ = 0;
  bool stopped_ = false;
};

}  // namespace VekGnmi::Server
