// Starts vekgnmid's server in-process on a loopback port chosen by the
// system, and gives tests a gNMI stub connected to it over a real channel.
#pragma once

#include <memory>
#include <string>

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "GnmiPathText.h"
#include "GnmiService.h"
#include "TestPaths.h"

namespace VekGnmiTest {

class AgentFixture {
 public:
  AgentFixture(VekGnmi::Server::AgentOptions options, VekGnmi::Server::Agent::BridgeFactory factory)
      : server_(std::make_unique<VekGnmi::Server::AgentServer>(std::move(options), std::move(factory))) {
    std::string error;
    started_ = server_->start("127.0.0.1:0", error);
    EXPECT_TRUE(started_) << error;
    address_ = "127.0.0.1:" + std::to_string(server_->port());
    grpc::ChannelArguments args;
    args.SetMaxReceiveMessageSize(-1);
    channel_ = grpc::CreateCustomChannel(address_, grpc::InsecureChannelCredentials(), args);
    stub_ = gnmi::gNMI::NewStub(channel_);
  }

  VekGnmi::Server::AgentServer& server() { return *server_; }
  VekGnmi::Server::Agent& agent() { return server_->agent(); }
  gnmi::gNMI::Stub& stub() { return *stub_; }
  const std::string& address() const { return address_; }
  std::unique_ptr<gnmi::gNMI::Stub> newStub() {
    return gnmi::gNMI::NewStub(grpc::CreateChannel(address_, grpc::InsecureChannelCredentials()));
  }
  // A stub on a channel of its own whose receive window never grows, so that
  // a client that stops reading soon blocks the server's writes.
  std::unique_ptr<gnmi::gNMI::Stub> newSmallWindowStub() {
    grpc::ChannelArguments args;
    args.SetInt("grpc.http2.bdp_probe", 0);
    return gnmi::gNMI::NewStub(grpc::CreateCustomChannel(address_, grpc::InsecureChannelCredentials(), args));
  }
  void stop() { server_->stop(); }

 private:
  std::unique_ptr<VekGnmi::Server::AgentServer> server_;
  bool started_ = false;
  std::string address_;
  std::shared_ptr<grpc::Channel> channel_;
  std::unique_ptr<gnmi::gNMI::Stub> stub_;
};

inline void withDeadline(grpc::ClientContext& context, int seconds = 10) {
  context.set_deadline(std::chrono::system_clock::now() + std::chrono::seconds(seconds));
}

}  // namespace VekGnmiTest
