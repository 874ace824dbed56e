// What TLS costs vekgnmid's Subscribe path over a real gRPC channel on
// loopback: two agents in this process serve the same demo device, one in
// plaintext, one with TLS (certificates made when the program starts), and
// a client on a channel of its own talks to each.
//
//   GrpcSync/tls:0|1       a STREAM PROTO subscription at the root, read up
//                          to the sync_response (1,060,512 leaves at 42,000
//                          interfaces): wall time, and the CPU time of the
//                          whole process (agent and client) over the sync
//   ChangeLatency/tls:0|1  10,000 changes a second for 3 s (one inPkts write
//                          each, AgentChangeLatency.h), subscribed ON_CHANGE
//                          at interfaces[name=*]/counters/inPkts: from the
//                          change posted to the event loop to its update
//                          read by the client
//
// AGENT_TLS_BENCH_INTERFACES sets the device's size (default 42000). Under
// callgrind (--collect-atstart=no) instructions are collected over each
// measured sync only, for ratios that do not depend on the machine's load.
#include <time.h>
#include <valgrind/callgrind.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <grpcpp/grpcpp.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "AgentChangeLatency.h"
#include "DemoModel.h"
#include "GnmiPathText.h"
#include "GnmiService.h"
#include "TestCertificates.h"

namespace {

using namespace VekGnmi::Server;
using Clock = std::chrono::steady_clock;

size_t interfaces() {
  const char* env = std::getenv("AGENT_TLS_BENCH_INTERFACES");
  return env ? std::strtoul(env, nullptr, 10) : 42000;
}

double processCpu() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

gnmi::SubscribeRequest streamRequest(const std::string& path, gnmi::SubscriptionMode mode, bool updatesOnly) {
  gnmi::SubscribeRequest r;
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::STREAM);
  r.mutable_subscribe()->set_encoding(gnmi::PROTO);
  r.mutable_subscribe()->set_updates_only(updatesOnly);
  gnmi::Subscription* s = r.mutable_subscribe()->add_subscription();
  std::string error;
  if (!VekGnmi::parsePathString(path, *s->mutable_path(), error)) throw std::runtime_error(error);
  s->set_mode(mode);
  return r;
}

// One agent over the demo device, plaintext or TLS, and how to reach it.
struct Target {
  Target(bool tls, const VekGnmiTest::TestCa& ca, const VekGnmiTest::TempDir& dir) {
    AgentOptions agent;
    agent.interfaces = interfaces();
    ServiceOptions service;
    if (tls) {
      const VekGnmiTest::PemPair cert = ca.issue("localhost", VekGnmiTest::TestCa::Kind::Server);
      service.tls = {dir.write("server.pem", cert.cert), dir.write("server.key", cert.key), ""};
    }
    server = std::make_unique<AgentServer>(agent, makeLibraryBridge, service);
    std::string error;
    if (!server->start("127.0.0.1:0", error)) throw std::runtime_error(error);
    grpc::ChannelArguments args;
    args.SetMaxReceiveMessageSize(-1);
    std::shared_ptr<grpc::ChannelCredentials> credentials = grpc::InsecureChannelCredentials();
    if (tls) {
      grpc::SslCredentialsOptions o;
      o.pem_root_certs = ca.certPem();
      credentials = grpc::SslCredentials(o);
    }
    address = fmt::format("127.0.0.1:{}", server->port());
    makeStub = [this, credentials, args] {
      return gnmi::gNMI::NewStub(grpc::CreateCustomChannel(address, credentials, args));
    };
  }

  // Reads one sync of the root; returns seconds, process CPU seconds and
  // leaves. `measured`: collected by callgrind.
  std::tuple<double, double, size_t> sync(bool measured = true) {
    auto stub = makeStub();
    grpc::ClientContext context;
    const double cpu = processCpu();
    const auto start = Clock::now();
    if (measured) CALLGRIND_TOGGLE_COLLECT;
    auto stream = stub->Subscribe(&context);
    stream->Write(streamRequest("/", gnmi::TARGET_DEFINED, false));
    gnmi::SubscribeResponse r;
    size_t leaves = 0;
    while (stream->Read(&r)) {
      if (r.has_update()) leaves += static_cast<size_t>(r.update().update_size());
      if (r.sync_response()) break;
    }
    if (measured) CALLGRIND_TOGGLE_COLLECT;
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const double cpuSeconds = processCpu() - cpu;
    context.TryCancel();
    while (stream->Read(&r)) {
    }
    stream->Finish();
    return {seconds, cpuSeconds, leaves};
  }

  std::unique_ptr<AgentServer> server;
  std::string address;
  std::function<std::unique_ptr<gnmi::gNMI::Stub>()> makeStub;
};

struct Bench {
  Bench() : ca("bench CA"), plain(false, ca, dir), tls(true, ca, dir) {
    // The first sync of each agent makes every notifiee: not measured.
    plain.sync(false);
    tls.sync(false);
  }
  Target& target(bool withTls) { return withTls ? tls : plain; }

  VekGnmiTest::TestCa ca;
  VekGnmiTest::TempDir dir;
  Target plain;
  Target tls;
};

Bench& bench() {
  static Bench b;
  return b;
}

void GrpcSync(benchmark::State& state) {
  Target& target = bench().target(state.range(0) != 0);
  size_t leaves = 0;
  double cpu = 0;
  for (auto _ : state) {
    const auto [seconds, cpuSeconds, n] = target.sync();
    state.SetIterationTime(seconds);
    cpu += cpuSeconds;
    leaves = n;
  }
  state.counters["cpu_s"] = cpu / static_cast<double>(state.iterations());
  state.counters["leaves"] = static_cast<double>(leaves);
  state.counters["leaves_per_s"] =
      benchmark::Counter(static_cast<double>(leaves) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}
BENCHMARK(GrpcSync)->ArgName("tls")->Arg(0)->Arg(1)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void ChangeLatency(benchmark::State& state) {
  Target& target = bench().target(state.range(0) != 0);
  if (interfaces() < VekGnmiBench::ChangeLatency::CHANGES) {
    // Two changes of one leaf could be coalesced into one update.
    state.SkipWithError("needs at least 30000 interfaces, one changed leaf each");
    return;
  }
  for (auto _ : state) {
    VekGnmiBench::ChangeLatency changes(target.server->agent(), interfaces());
    auto stub = target.makeStub();
    grpc::ClientContext context;
    auto stream = stub->Subscribe(&context);
    stream->Write(streamRequest("/devices/dev1/interfaces[name=*]/counters/inPkts", gnmi::ON_CHANGE, true));
    gnmi::SubscribeResponse first;
    while (stream->Read(&first) && !first.sync_response()) {
    }
    std::thread reader([&] {
      gnmi::SubscribeResponse r;
      while (!changes.allSeen() && stream->Read(&r)) changes.seen(r.update(), Clock::now());
    });
    changes.run();
    reader.join();
    context.TryCancel();
    stream->Finish();
    changes.report(state);
  }
}
BENCHMARK(ChangeLatency)->ArgName("tls")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
