// vekgnmid's Subscribe path in process: the agent (event loop, router,
// library walk, subscription, bounded stream queue and its writer) against
// a stand-in for gRPC that serialises each response, as gRPC does before it
// sends, on a thread of its own, and then completes the write.
//
//   FirstSync      the first sync of the agent's life, which also makes
//                  every entity's notifiee and timestamp table (the others
//                  run after it, with the notifiees in place)
//   StreamSync/N   a STREAM subscription in PROTO at the root of a demo
//                  device of 42,000 interfaces (1,060,512 leaves in 157,503
//                  messages): from the request to its sync_response on the
//                  wire, with a sync queue of N messages (64 is the agent's)
//   LibraryWalk    the library's part alone: the same walk on the event
//                  loop into a router that drops every message
//   PrebuiltSync   the same responses, built beforehand (captured from the
//                  agent's sync), pushed through the same stream queue and
//                  writer by one thread: what is left when the agent's work
//                  is taken away
//   GrpcSync       StreamSync over a real gRPC channel on loopback: a client
//                  reads up to the sync_response
//   GrpcPrebuilt   the captured responses written by a minimal gRPC server
//                  (callback API, one write at a time) to the same client
//   ChangeLatency  10,000 changes a second (one inPkts write each, ten a
//                  millisecond, over distinct interfaces), subscribed ON_CHANGE
//                  at interfaces[name=*]/counters/inPkts: from the moment the
//                  change is posted to the event loop to its serialisation on
//                  the wire; p50 and p99 over 3 s
//   IdleSubscriber heap in use per STREAM subscriber that has synced one leaf
//                  and waits (the agent's side only: channel, queue,
//                  subscription; no gRPC call)
#include <malloc.h>
#include <time.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <Ostrel/VekTypeWalker.h>

#include <grpcpp/grpcpp.h>

#include <gnmi/gnmi.grpc.pb.h>

#include "Agent.h"
#include "AgentChangeLatency.h"
#include "DemoModel.h"
#include "GnmiService.h"
#include "GnmiPathText.h"
#include "StreamChannel.h"

namespace {

using namespace VekGnmi::Server;
using Clock = std::chrono::steady_clock;

constexpr size_t INTERFACES = 42000;

// The stand-in for gRPC: one thread that takes each write, serialises it
// into a reused buffer, lets the bench look at it, and completes the write.
class Wire {
 public:
  using Inspect = std::function<void(const gnmi::SubscribeResponse&)>;

  Wire() : thread_([this] { run(); }) {}
  ~Wire() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    wake_.notify_one();
    thread_.join();
  }

  // What the bench looks at in each response (on the wire's thread).
  void inspectIs(Inspect inspect) {
    auto shared = inspect ? std::make_shared<Inspect>(std::move(inspect)) : nullptr;
    std::lock_guard lock(mutex_);
    inspect_ = std::move(shared);
  }
  void write(StreamChannel* channel, const gnmi::SubscribeResponse* response) {
    push({channel, response, nullptr});
  }
  // Runs `task` on the wire's thread (a writer's posted turn).
  void post(std::function<void()> task) { push({nullptr, nullptr, std::move(task)}); }

 private:
  struct Write {
    StreamChannel* channel;
    const gnmi::SubscribeResponse* response;
    std::function<void()> task;  // set: a posted turn, not a write
  };
  void push(Write w) {
    {
      std::lock_guard lock(mutex_);
      writes_.push_back(std::move(w));
    }
    // A write started from a completion runs on the wire's own thread.
    if (std::this_thread::get_id() != thread_.get_id()) wake_.notify_one();
  }
  void run() {
    std::string buffer;
    for (;;) {
      Write w{};
      std::shared_ptr<Inspect> inspect;
      {
        std::unique_lock lock(mutex_);
        wake_.wait(lock, [&] { return stop_ || !writes_.empty(); });
        if (writes_.empty()) return;
        w = std::move(writes_.front());
        writes_.pop_front();
        inspect = inspect_;
      }
      if (w.task) {
        w.task();
        continue;
      }
      buffer.clear();
      w.response->SerializeToString(&buffer);
      if (inspect) (*inspect)(*w.response);
      w.channel->writeDone(true);
    }
  }

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Write> writes_;
  std::shared_ptr<Inspect> inspect_;
  bool stop_ = false;
  std::thread thread_;
};

// One stream's writer: hands its writes to the wire.
class WireWriter final : public StreamWriter {
 public:
  explicit WireWriter(Wire& wire) : wire_(wire) {}
  void channelIs(StreamChannel* channel) { channel_ = channel; }
  void startWrite(const OutMessage& message) override { wire_.write(channel_, &message.response()); }
  void finish(const grpc::Status&) override {}
  void cancel(const grpc::Status&) override {}
  void post(std::function<void()> task) override { wire_.post(std::move(task)); }

 private:
  Wire& wire_;
  StreamChannel* channel_ = nullptr;
};

struct Stream {
  std::unique_ptr<WireWriter> writer;
  std::shared_ptr<StreamChannel> channel;
};

Stream openStream(Wire& wire, size_t syncLimit) {
  Stream s;
  s.writer = std::make_unique<WireWriter>(wire);
  s.channel = std::make_shared<StreamChannel>(s.writer.get(), syncLimit);
  s.writer->channelIs(s.channel.get());
  return s;
}

gnmi::SubscribeRequest streamRequest(const std::vector<std::string>& paths, gnmi::SubscriptionMode mode,
                                     bool updatesOnly) {
  gnmi::SubscribeRequest r;
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::STREAM);
  r.mutable_subscribe()->set_encoding(gnmi::PROTO);
  r.mutable_subscribe()->set_updates_only(updatesOnly);
  for (const std::string& p : paths) {
    gnmi::Subscription* s = r.mutable_subscribe()->add_subscription();
    std::string error;
    if (!VekGnmi::parsePathString(p, *s->mutable_path(), error)) throw std::runtime_error(error);
    s->set_mode(mode);
  }
  return r;
}

// The agent over the big demo device, made once for the whole program.
struct Bench {
  Bench() : server(makeOptions(), makeLibraryBridge), agent(server.agent()) {
    std::string error;
    if (!server.start("127.0.0.1:0", error)) throw std::runtime_error(error);
    firstSync = sync(StreamQueue::DEFAULT_SYNC_LIMIT, [](const gnmi::SubscribeResponse&) {});
  }
  static AgentOptions makeOptions() {
    AgentOptions o;
    o.interfaces = INTERFACES;
    return o;
  }
  // Waits until `done` holds (polled; the wire sets it).
  static void await(const std::atomic<bool>& done) {
    while (!done.load()) std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  void close(Stream& s) {
    agent.streamClosed(s.channel);
    agent.loop().call([] {});  // the close has run
    s.channel->detach();
  }

  // One STREAM PROTO sync of the root through the agent, on a stream whose
  // sync queue holds `syncLimit` messages; `inspect` sees every response on
  // the wire. Returns how long it took from the request to the
  // sync_response's serialisation.
  double sync(size_t syncLimit, const std::function<void(const gnmi::SubscribeResponse&)>& inspect) {
    std::atomic<bool> synced{false};
    wire.inspectIs([&](const gnmi::SubscribeResponse& r) {
      inspect(r);
      if (r.sync_response()) synced = true;
    });
    Stream s = openStream(wire, syncLimit);
    const auto start = Clock::now();
    agent.streamOpened(s.channel);
    agent.streamRequest(s.channel, streamRequest({"/"}, gnmi::TARGET_DEFINED, false));
    await(synced);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    wire.inspectIs(nullptr);
    close(s);
    return seconds;
  }

  Wire wire;
  AgentServer server;
  Agent& agent;
  double firstSync = 0;  // seconds
};

Bench& bench() {
  static Bench b;
  return b;
}

size_t updatesIn(const gnmi::SubscribeResponse& r) { return r.has_update() ? r.update().update_size() : 0; }

// CPU seconds the event-loop thread has used so far.
double loopCpu(Agent& agent) {
  return agent.loop().call([] {
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
  });
}

void FirstSync(benchmark::State& state) {
  Bench& b = bench();
  for (auto _ : state) state.SetIterationTime(b.firstSync);
}
BENCHMARK(FirstSync)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1);

void StreamSync(benchmark::State& state) {
  Bench& b = bench();
  size_t leaves = 0;
  size_t messages = 0;
  double loopSeconds = 0;
  double wallSeconds = 0;
  for (auto _ : state) {
    leaves = 0;
    messages = 0;
    const double cpuBefore = loopCpu(b.agent);
    const double seconds = b.sync(static_cast<size_t>(state.range(0)), [&](const gnmi::SubscribeResponse& r) {
      leaves += updatesIn(r);
      ++messages;
    });
    loopSeconds += loopCpu(b.agent) - cpuBefore;
    wallSeconds += seconds;
    state.SetIterationTime(seconds);
  }
  // How much of the time the event loop was running (not waiting).
  state.counters["loop_busy"] = loopSeconds / wallSeconds;
  state.counters["leaves"] = static_cast<double>(leaves);
  state.counters["messages"] = static_cast<double>(messages);
  state.counters["leaves_per_s"] =
      benchmark::Counter(static_cast<double>(leaves) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}
BENCHMARK(StreamSync)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3)
    ->Arg(StreamQueue::DEFAULT_SYNC_LIMIT)
    ->Arg(256)
    ->Arg(1024)
    ->Arg(1 << 20);

// The library's part alone: the same walk of the device on the event loop
// (notifiees in place from the syncs before), into a router that counts and
// drops every message.
void LibraryWalk(benchmark::State& state) {
  Bench& b = bench();
  struct Counting final : Ostrel::BaseRouter {
    bool push(Ostrel::SyncId, const Ostrel::ArenaRespMsgPtr& msg) override {
      leaves += static_cast<size_t>(msg->response->update().update_size());
      return true;
    }
    size_t leaves = 0;
  } router;
  uint64_t walkId = 1ull << 60;
  for (auto _ : state) {
    router.leaves = 0;
    const double seconds = b.agent.loop().call([&] {
      const auto start = Clock::now();
      gnmi::Path prefix;
      std::string error;
      VekGnmi::parsePathString("/devices/dev1", prefix, error);
      const Ostrel::WalkerFlags flags{walkerFlagBits(SyncKind::Subscribe)};
      // Never cut by the clock: the whole walk in one go.
      const double quantum = Ostrel::FullVekTypeWalker::SYNCQUANTUM;
      Ostrel::FullVekTypeWalker::SYNCQUANTUM = 1e9;
      const Ostrel::WalkResult r = Ostrel::FullVekTypeWalker::syncObject(
          b.agent.model().device.ptr(), prefix, router, {Ostrel::SyncId(walkId), Ostrel::WalkId(walkId)}, flags);
      Ostrel::FullVekTypeWalker::SYNCQUANTUM = quantum;
      ++walkId;
      if (r != Ostrel::WalkResult::Done) throw std::runtime_error("the walk paused");
      return std::chrono::duration<double>(Clock::now() - start).count();
    });
    state.SetIterationTime(seconds);
  }
  state.counters["leaves"] = static_cast<double>(router.leaves);
  state.counters["leaves_per_s"] =
      benchmark::Counter(static_cast<double>(router.leaves) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}
BENCHMARK(LibraryWalk)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void PrebuiltSync(benchmark::State& state) {
  Bench& b = bench();
  // The responses of one agent sync, copied as they reached the wire.
  std::vector<std::shared_ptr<gnmi::SubscribeResponse>> captured;
  b.sync(StreamQueue::DEFAULT_SYNC_LIMIT, [&](const gnmi::SubscribeResponse& r) {
    captured.push_back(std::make_shared<gnmi::SubscribeResponse>(r));
  });
  size_t leaves = 0;
  for (const auto& r : captured) leaves += updatesIn(*r);
  for (auto _ : state) {
    std::atomic<bool> synced{false};
    b.wire.inspectIs([&](const gnmi::SubscribeResponse& r) {
      if (r.sync_response()) synced = true;
    });
    Stream s = openStream(b.wire, StreamQueue::DEFAULT_SYNC_LIMIT);
    std::mutex mutex;
    std::condition_variable room;
    bool roomFreed = false;
    s.channel->onRoomFreed([&] {
      {
        std::lock_guard lock(mutex);
        roomFreed = true;
      }
      room.notify_one();
    });
    const auto start = Clock::now();
    for (const auto& r : captured) {
      const bool more = s.channel->queue().pushSync(OutMessage(r));
      s.channel->kick();
      if (!more) {
        std::unique_lock lock(mutex);
        room.wait(lock, [&] { return roomFreed; });
        roomFreed = false;
      }
    }
    Bench::await(synced);
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    b.wire.inspectIs(nullptr);
    s.channel->detach();
  }
  state.counters["leaves"] = static_cast<double>(leaves);
  state.counters["leaves_per_s"] =
      benchmark::Counter(static_cast<double>(leaves) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}
BENCHMARK(PrebuiltSync)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

// A client that subscribes (STREAM, PROTO, the root) on a channel of its own
// and reads up to the sync_response; returns the seconds and the leaves.
std::pair<double, size_t> grpcSync(int port) {
  grpc::ChannelArguments args;
  args.SetMaxReceiveMessageSize(-1);
  auto stub = gnmi::gNMI::NewStub(grpc::CreateCustomChannel(fmt::format("127.0.0.1:{}", port),
                                                             grpc::InsecureChannelCredentials(), args));
  grpc::ClientContext context;
  const auto start = Clock::now();
  auto stream = stub->Subscribe(&context);
  stream->Write(streamRequest({"/"}, gnmi::TARGET_DEFINED, false));
  gnmi::SubscribeResponse r;
  size_t leaves = 0;
  while (stream->Read(&r)) {
    leaves += updatesIn(r);
    if (r.sync_response()) break;
  }
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
  context.TryCancel();
  stream->Finish();
  return {seconds, leaves};
}

void GrpcSync(benchmark::State& state) {
  Bench& b = bench();
  size_t leaves = 0;
  for (auto _ : state) {
    const auto [seconds, n] = grpcSync(b.server.port());
    state.SetIterationTime(seconds);
    leaves = n;
  }
  state.counters["leaves"] = static_cast<double>(leaves);
  state.counters["leaves_per_s"] =
      benchmark::Counter(static_cast<double>(leaves) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}
BENCHMARK(GrpcSync)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

// Streams fixed responses to every Subscribe, one write at a time.
class PrebuiltService final : public gnmi::gNMI::CallbackService {
 public:
  explicit PrebuiltService(const std::vector<std::shared_ptr<gnmi::SubscribeResponse>>& responses)
      : responses_(responses) {}
  using gnmi::gNMI::CallbackService::Subscribe;
  grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse>* Subscribe(
      grpc::CallbackServerContext*) override {
    class Reactor final : public grpc::ServerBidiReactor<gnmi::SubscribeRequest, gnmi::SubscribeResponse> {
     public:
      explicit Reactor(const std::vector<std::shared_ptr<gnmi::SubscribeResponse>>& responses)
          : responses_(responses) {
        StartRead(&request_);
      }
      void OnReadDone(bool ok) override {
        if (ok && !started_) {
          started_ = true;
          next();
        }
      }
      void OnWriteDone(bool ok) override {
        if (!ok) return Finish(grpc::Status::CANCELLED);
        next();
      }
      void OnCancel() override {}
      void OnDone() override { delete this; }

     private:
      void next() {
        if (index_ == responses_.size()) return Finish(grpc::Status::OK);
        StartWrite(responses_[index_++].get());
      }
      const std::vector<std::shared_ptr<gnmi::SubscribeResponse>>& responses_;
      gnmi::SubscribeRequest request_;
      size_t index_ = 0;
      bool started_ = false;
    };
    return new Reactor(responses_);
  }

 private:
  const std::vector<std::shared_ptr<gnmi::SubscribeResponse>>& responses_;
};

void GrpcPrebuilt(benchmark::State& state) {
  Bench& b = bench();
  std::vector<std::shared_ptr<gnmi::SubscribeResponse>> captured;
  b.sync(StreamQueue::DEFAULT_SYNC_LIMIT, [&](const gnmi::SubscribeResponse& r) {
    captured.push_back(std::make_shared<gnmi::SubscribeResponse>(r));
  });
  PrebuiltService service(captured);
  grpc::ServerBuilder builder;
  int port = 0;
  builder.AddListeningPort("127.0.0.1:0", grpc::InsecureServerCredentials(), &port);
  builder.RegisterService(&service);
  std::unique_ptr<grpc::Server> server = builder.BuildAndStart();
  size_t leaves = 0;
  for (auto _ : state) {
    const auto [seconds, n] = grpcSync(port);
    state.SetIterationTime(seconds);
    leaves = n;
  }
  server->Shutdown(std::chrono::system_clock::now() + std::chrono::seconds(1));
  server->Wait();
  state.counters["leaves"] = static_cast<double>(leaves);
  state.counters["leaves_per_s"] =
      benchmark::Counter(static_cast<double>(leaves) * static_cast<double>(state.iterations()),
                         benchmark::Counter::kIsRate);
}
BENCHMARK(GrpcPrebuilt)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(3);

void ChangeLatency(benchmark::State& state) {
  Bench& b = bench();
  for (auto _ : state) {
    VekGnmiBench::ChangeLatency changes(b.agent, INTERFACES);
    std::atomic<bool> synced{false};
    b.wire.inspectIs([&](const gnmi::SubscribeResponse& r) {
      if (r.sync_response()) synced = true;
      if (r.has_update()) changes.seen(r.update(), Clock::now());
    });
    Stream s = openStream(b.wire, StreamQueue::DEFAULT_SYNC_LIMIT);
    b.agent.streamOpened(s.channel);
    b.agent.streamRequest(s.channel, streamRequest({"/devices/dev1/interfaces[name=*]/counters/inPkts"},
                                                   gnmi::ON_CHANGE, true));
    Bench::await(synced);
    changes.run();
    // Every change has reached the wire.
    while (!changes.allSeen()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    b.wire.inspectIs(nullptr);
    b.close(s);
    changes.report(state);
  }
}
BENCHMARK(ChangeLatency)->Unit(benchmark::kMillisecond)->Iterations(1);

size_t heapInUse() {
  const struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
}

void IdleSubscriber(benchmark::State& state) {
  Bench& b = bench();
  constexpr int N = 1000;
  // N subscribers that each sync one interface's mtu and wait; returns the
  // heap they hold once synced.
  auto round = [&b] {
    std::atomic<int> synced{0};
    b.wire.inspectIs([&](const gnmi::SubscribeResponse& r) {
      if (r.sync_response()) ++synced;
    });
    b.agent.loop().call([] { malloc_trim(0); });
    const size_t before = heapInUse();
    std::vector<Stream> streams;
    streams.reserve(N);
    for (int i = 0; i < N; ++i) {
      streams.push_back(openStream(b.wire, StreamQueue::DEFAULT_SYNC_LIMIT));
      b.agent.streamOpened(streams.back().channel);
      b.agent.streamRequest(streams.back().channel,
                            streamRequest({"/devices/dev1/interfaces[name=eth" + std::to_string(i) + "]/mtu"},
                                          gnmi::ON_CHANGE, false));
    }
    while (synced.load() < N) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    b.agent.loop().call([] {});
    const size_t after = heapInUse();
    b.wire.inspectIs(nullptr);
    for (Stream& s : streams) b.close(s);
    return after > before ? after - before : 0;
  };
  for (auto _ : state) {
    // The first round also fills the message pool and the library's
    // notifiee and timestamp tables of the interfaces; the second is what a
    // subscriber itself holds.
    round();
    state.counters["bytes_per_subscriber"] = static_cast<double>(round()) / static_cast<double>(N);
  }
}
BENCHMARK(IdleSubscriber)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
