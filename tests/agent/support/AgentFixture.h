// Starts vekgnmid's server in-process on a loopback port chosen by the
// system, and gives tests a gNMI stub connected to it over a real channel.
//
// The agent runs on a ManualClock the fixture owns: no timer of the agent
// (samples, heartbeats, the send timeout, the slow-subscriber check, the
// cancel grace, the sync pump's wait for a held walk) fires before the test
// moves the clock with `advance`. A test waits for the agent to reach a state
// with `waitUntil`, which evaluates its condition on the event loop after
// every task, without sleeping or polling.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include <grpcpp/grpcpp.h>
#include <gtest/gtest.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "Clock.h"
#include "GnmiPathText.h"
#include "GnmiService.h"
#include "TestPaths.h"

namespace VekGnmiTest {

class AgentFixture {
 public:
  AgentFixture(VekGnmi::Server::AgentOptions options, VekGnmi::Server::Agent::BridgeFactory factory)
      : server_(std::make_unique<VekGnmi::Server::AgentServer>(withClock(std::move(options)), std::move(factory))) {
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

  // The clock the agent runs on.
  VekGnmi::Server::ManualClock& clock() { return clock_; }

  // Runs `fn` on the agent's event loop and returns its result.
  template <typename Fn>
  auto onLoop(Fn fn) {
    return agent().loop().call(std::move(fn));
  }
  // Waits until `condition`, evaluated on the event loop after each task,
  // holds; false when the loop stopped first (or, as a safety net against a
  // hanging test, after 30 s).
  bool waitUntil(std::function<bool()> condition) { return agent().loop().waitUntil(std::move(condition)); }
  // Moves the agent's clock by `delta` once the loop has finished what it was
  // doing (so that a timer armed by the task that sent what the test just
  // read is armed before the time moves); the timers that come due run.
  void advance(VekGnmi::Server::Clock::Duration delta) {
    onLoop([&] { clock_.advance(delta); });
  }

 private:
  VekGnmi::Server::AgentOptions withClock(VekGnmi::Server::AgentOptions options) {
    options.clock = &clock_;
    return options;
  }

  VekGnmi::Server::ManualClock clock_;  // outlives the server
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
