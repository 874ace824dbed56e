// AgentPrebuiltServer: the baseline that AgentClientBench holds vekgnmid
// against. It runs one ONCE sync of the demo device through the agent in this
// process (the library's walk, the agent's encoding), keeps every response a
// client received from it, stops that agent, and then serves gnmi.gNMI
// Subscribe with those very responses, pre-built: every Subscribe is answered
// with all of them, one write at a time on gRPC's callback API as vekgnmid
// writes, then OK. What remains of the agent's cost is gRPC's: serialising
// each message, HTTP/2 framing, the socket.
//
// Like vekgnmid, the first line on stdout names the port it listens on;
// SIGINT or SIGTERM stop it. A plain program (not Google Benchmark): it is a
// server that AgentClientBench starts and measures from outside.
//
//   AgentPrebuiltServer --interfaces 10000 [--path /] [--grpc-arg NAME=VALUE]...
//                       [--merge N]
#include <algorithm>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <vector>

// g++ 12 sees a null dereference inside CLI11's string splitting, once inlined.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnull-dereference"
#include <CLI/CLI.hpp>
#pragma GCC diagnostic pop
#include <fmt/format.h>
#include <grpcpp/grpcpp.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "AgentBenchClient.h"
#include "GnmiService.h"

namespace {

using Responses = std::vector<gnmi::SubscribeResponse>;

// One ONCE PROTO sync of `path` over a demo device of `interfaces`
// interfaces, through an agent in this process and a client on loopback:
// the responses as the client received them, the sync_response last.
Responses captureSync(size_t interfaces, const std::string& path) {
  using namespace VekGnmi::Server;
  AgentOptions options;
  options.interfaces = interfaces;
  AgentServer server(options, makeLibraryBridge);
  std::string error;
  if (!server.start("127.0.0.1:0", error)) throw std::runtime_error(error);
  Responses responses;
  auto stub = gnmi::gNMI::NewStub(AgentBench::openChannel(server.port()));
  AgentBench::syncOnce(*stub, AgentBench::subscribeRequest({path}, gnmi::SubscriptionList::ONCE),
                       [&](const gnmi::SubscribeResponse& r) { responses.push_back(r); });
  server.stop();
  return responses;
}

// The same leaves in fewer, larger messages: every `k` consecutive update
// responses become one, whose prefix is the longest prefix they share and
// whose updates carry the rest of their own prefix in their paths (what a
// sync that put several entities in one notification would send). Other
// responses (the sync_response) stay as they are.
Responses merged(const Responses& in, size_t k) {
  if (k <= 1) return in;
  Responses out;
  size_t i = 0;
  while (i < in.size()) {
    if (!in[i].has_update()) {
      out.push_back(in[i++]);
      continue;
    }
    size_t end = i;
    while (end < in.size() && end - i < k && in[end].has_update()) ++end;
    // The longest prefix shared by in[i..end).
    const gnmi::Path& first = in[i].update().prefix();
    int shared = first.elem_size();
    for (size_t j = i + 1; j < end; ++j) {
      const gnmi::Path& p = in[j].update().prefix();
      int n = 0;
      while (n < shared && n < p.elem_size() && p.elem(n).SerializeAsString() == first.elem(n).SerializeAsString()) {
        ++n;
      }
      shared = n;
    }
    gnmi::SubscribeResponse r;
    gnmi::Notification* n = r.mutable_update();
    *n->mutable_prefix() = first;
    n->mutable_prefix()->mutable_elem()->DeleteSubrange(shared, first.elem_size() - shared);
    for (size_t j = i; j < end; ++j) {
      const gnmi::Notification& from = in[j].update();
      n->set_timestamp(std::max(n->timestamp(), from.timestamp()));
      for (const gnmi::Update& u : from.update()) {
        gnmi::Update* to = n->add_update();
        *to = u;
        gnmi::Path path;
        for (int e = shared; e < from.prefix().elem_size(); ++e) *path.add_elem() = from.prefix().elem(e);
        for (const gnmi::PathElem& e : u.path().elem()) *path.add_elem() = e;
        *to->mutable_path() = std::move(path);
      }
    }
    out.push_back(std::move(r));
    i = end;
  }
  return out;
}

// Answers every Subscribe with the pre-built responses, one write at a
// time, then OK.
class PrebuiltService final : public gnmi::gNMI::CallbackService {
 public:
  explicit PrebuiltService(const Responses& responses) : responses_(responses) {}

  using gnmi::gNMI::CallbackService::Subscribe;
  grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse>* Subscribe(
      grpc::CallbackServerContext*) override {
    return new Reactor(responses_);
  }

 private:
  class Reactor final : public grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse> {
   public:
    explicit Reactor(const Responses& responses) : responses_(responses) {
      StartRead(&request_);
    }
    void OnReadDone(bool ok) override {
      if (!ok) {
        if (!started_) Finish(grpc::Status::OK);
        return;
      }
      if (started_) return;
      started_ = true;
      next();
    }
    void OnWriteDone(bool ok) override {
      if (!ok) return Finish(grpc::Status::CANCELLED);
      next();
    }
    void OnDone() override { delete this; }

   private:
    void next() {
      if (index_ == responses_.size()) return Finish(grpc::Status::OK);
      StartWrite(&responses_[index_++]);
    }
    const Responses& responses_;
    gnmi::SubscribeRequest request_;
    size_t index_ = 0;
    bool started_ = false;
  };

  const Responses& responses_;
};

}  // namespace

int main(int argc, char** argv) {
  CLI::App app{"Serves the responses of one ONCE sync of the demo device, pre-built, to every Subscribe."};
  size_t interfaces = 1000;
  std::string path = "/";
  std::vector<std::string> grpcArgs;
  size_t merge = 1;
  app.add_option("--interfaces", interfaces, "interfaces of the demo device")->capture_default_str();
  app.add_option("--path", path, "the path synced (ONCE, PROTO)")->capture_default_str();
  app.add_option("--grpc-arg", grpcArgs, "a gRPC server channel argument NAME=VALUE (repeatable)");
  app.add_option("--merge", merge, "serve the same leaves in 1/N as many messages (N entities a notification)")
      ->capture_default_str();
  CLI11_PARSE(app, argc, argv);

  // Taken by sigwait below: blocked before gRPC starts its threads.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  try {
    const Responses responses = merged(captureSync(interfaces, path), merge);
    size_t leaves = 0;
    size_t bytes = 0;
    for (const auto& r : responses) {
      leaves += AgentBench::updatesIn(r);
      bytes += r.ByteSizeLong();
    }
    PrebuiltService service(responses);
    grpc::ServerBuilder builder;
    int port = 0;
    builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port);
    builder.RegisterService(&service);
    // vekgnmid's settings (AgentServer::start); the rest are gRPC's defaults.
    builder.SetMaxReceiveMessageSize(64 << 20);
    grpc::ChannelArguments args;
    for (const std::string& a : grpcArgs) AgentBench::addChannelArgument(a, args);
    grpc_channel_args raw = args.c_channel_args();
    for (size_t i = 0; i < raw.num_args; ++i) {
      const grpc_arg& a = raw.args[i];
      if (a.type == GRPC_ARG_INTEGER) builder.AddChannelArgument(a.key, a.value.integer);
      if (a.type == GRPC_ARG_STRING) builder.AddChannelArgument(a.key, std::string(a.value.string));
    }
    std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
    if (!server || port == 0) throw std::runtime_error("cannot listen on 127.0.0.1");
    std::cout << fmt::format("AgentPrebuiltServer: serving gNMI on 127.0.0.1 (port {}), {} responses, {} leaves, "
                             "{} bytes\n",
                             port, responses.size(), leaves, bytes)
              << std::flush;
    int received = 0;
    sigwait(&signals, &received);
    server->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(2));
    server->Wait();
  } catch (const std::exception& e) {
    std::cerr << "AgentPrebuiltServer: " << e.what() << '\n';
    return 1;
  }
  return 0;
}
