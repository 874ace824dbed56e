// Subscribe, Get and Set end to end over a real gRPC channel, with the
// library's sync core and Set driver replaced by the scripted double
// (ScriptedLibrary): these tests drive the agent's own parts (routing,
// filtering, encodings, sync_response, queues and back-pressure,
// slow-subscriber handling, cancellation, all-or-nothing Set across
// entities) with messages shaped as the library publishes them.
#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "AgentFixture.h"
#include "Router.h"
#include "ScriptedLibrary.h"
#include "SubscribeClient.h"
#include "Subscription.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;

const char* const ETH0 = "/devices/dev1/interfaces[name=eth0]";
const char* const ETH1 = "/devices/dev1/interfaces[name=eth1]";

gnmi::TypedValue doubleBytes(double d) {
  const uint64_t bits = std::bit_cast<uint64_t>(d);
  std::string b;
  for (int k = 7; k >= 0; --k) b.push_back(static_cast<char>((bits >> (8 * k)) & 0xff));
  gnmi::TypedValue v;
  v.set_bytes_val(b);
  return v;
}

std::vector<ScriptedLeaf> eth0Leaves() {
  return {uintLeaf("mtu", 9000), {pathOf("speed"), doubleBytes(100.0)}, stringLeaf("operStatus", "up"),
          uintLeaf("counters/inOctets", 5), stringLeaf("description", "port 0")};
}

AgentOptions options(size_t syncLimit = 64, std::chrono::milliseconds sendTimeout = std::chrono::seconds(30)) {
  AgentOptions o;
  o.interfaces = 4;
  o.syncQueueLimit = syncLimit;
  o.sendTimeout = sendTimeout;
  return o;
}

class Scripted {
 public:
  explicit Scripted(AgentOptions o = options())
      : fixture_(std::move(o), [this](VekGnmi::Server::MessageRouter& router, VekGnmi::Server::SyncEvents& events) {
          auto library = std::make_unique<ScriptedLibrary>();
          library->connect(&router, &events);
          library_ = library.get();
          return library;
        }) {}

  template <typename Fn>
  auto onLoop(Fn fn) {
    return fixture_.agent().loop().call(fn);
  }
  ScriptedLibrary& library() { return *library_; }
  AgentFixture& fixture() { return fixture_; }

 private:
  ScriptedLibrary* library_ = nullptr;
  AgentFixture fixture_;
};

TEST(AgentStream, OnceSendsTheSyncConvertedToJsonThenSyncResponseThenOk) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves(), 2); });
  gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::ONCE, {ETH0});
  r.mutable_subscribe()->mutable_prefix()->set_target("dut");
  Stream stream(s.fixture().stub(), r);
  const std::vector<gnmi::Notification> got = stream.untilSync();
  EXPECT_EQ(flat(got), (std::vector<std::string>{
                           std::string(ETH0) + "/mtu=9000", std::string(ETH0) + "/speed=100",
                           std::string(ETH0) + "/operStatus=\"up\"", std::string(ETH0) + "/counters/inOctets=5",
                           std::string(ETH0) + "/description=\"port 0\""}));
  for (const gnmi::Notification& n : got) {
    EXPECT_EQ(n.prefix().target(), "dut");
    EXPECT_GT(n.timestamp(), 1600000000000000000);
  }
  gnmi::SubscribeResponse extra;
  EXPECT_FALSE(stream.rw->Read(&extra));
  EXPECT_TRUE(stream.rw->Finish().ok());
}

TEST(AgentStream, PathsBelowTheEntityFilterItsUpdates) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  Stream stream(s.fixture().stub(),
                subscription(gnmi::SubscriptionList::ONCE, {std::string(ETH0) + "/counters"}, gnmi::JSON_IETF));
  EXPECT_EQ(flat(stream.untilSync()),
            std::vector<std::string>{std::string(ETH0) + "/counters/inOctets=ietf:\"5\""});
  EXPECT_TRUE(stream.rw->Finish().ok());
}

TEST(AgentStream, ProtoSendsTheLibrarysValuesButDoublesAsDoubles) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves(), 5); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {ETH0}, gnmi::PROTO));
  const std::vector<gnmi::Notification> got = stream.untilSync();
  ASSERT_EQ(got.size(), 1u);
  ASSERT_EQ(got[0].update_size(), 5);
  EXPECT_EQ(got[0].update(0).val().uint_val(), 9000u);
  // The library sends a double as 8 bytes; clients read double_val.
  EXPECT_EQ(got[0].update(1).val().double_val(), 100.0);
  EXPECT_EQ(got[0].update(2).val().string_val(), "up");
  EXPECT_TRUE(stream.rw->Finish().ok());
}

TEST(AgentStream, StreamSyncsOnceThenSendsChangesUnderItsPath) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  EXPECT_EQ(stream.untilSync().size(), 5u);
  // The owner of the interfaces collection is watched, so that the member's
  // removal and re-creation reach the subscriber.
  const bool watched = s.onLoop([&] {
    for (const auto& synced : s.library().synced) {
      if (synced.path == "/devices/dev1" && synced.kind == VekGnmi::Server::SyncKind::Watch) return true;
    }
    return false;
  });
  EXPECT_TRUE(watched);
  s.onLoop([&] {
    s.library().pushChange(pathOf(ETH1), {uintLeaf("mtu", 1)});  // another interface
    s.library().pushChange(pathOf(ETH0), {uintLeaf("mtu", 1500)});
  });
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{std::string(ETH0) + "/mtu=1500"});
  // (A delete queued before that update was written would have superseded it.)
  s.onLoop([&] { s.library().pushChange(pathOf("/devices/dev1"), {}, {pathOf("interfaces[name=eth0]")}); });
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{"delete " + std::string(ETH0)});
  stream.context.TryCancel();
  stream.rw->Finish();
}

TEST(AgentStream, UpdatesOnlySendsNoInitialValues) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::STREAM, {ETH0}, gnmi::JSON, gnmi::ON_CHANGE);
  r.mutable_subscribe()->set_updates_only(true);
  Stream stream(s.fixture().stub(), r);
  EXPECT_TRUE(stream.untilSync().empty());
  s.onLoop([&] { s.library().pushChange(pathOf(ETH0), {stringLeaf("operStatus", "down")}); });
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{std::string(ETH0) + "/operStatus=\"down\""});
  stream.context.TryCancel();
  stream.rw->Finish();
}

TEST(AgentStream, PollSyncsForTheListAndForEveryPoll) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000)}); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::POLL, {ETH0}));
  EXPECT_EQ(stream.untilSync().size(), 1u);
  for (int i = 0; i < 2; ++i) {
    gnmi::SubscribeRequest poll;
    poll.mutable_poll();
    stream.rw->Write(poll);
    EXPECT_EQ(flat(stream.untilSync()), std::vector<std::string>{std::string(ETH0) + "/mtu=9000"});
  }
  // A second SubscriptionList on the stream is refused (a half-closed POLL
  // stream ending with OK is checked with the client below).
  stream.rw->Write(subscription(gnmi::SubscriptionList::POLL, {ETH0}));
  gnmi::SubscribeResponse r;
  while (stream.rw->Read(&r)) {
  }
  const grpc::Status status = stream.rw->Finish();
  EXPECT_EQ(status.error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(status.error_message(), "a Subscribe stream takes one SubscriptionList; send Polls after it");
}

TEST(AgentStream, PollOnAStreamSubscriptionIsRefused) {
  Scripted s;
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  stream.untilSync();
  gnmi::SubscribeRequest poll;
  poll.mutable_poll();
  stream.rw->Write(poll);
  gnmi::SubscribeResponse r;
  while (stream.rw->Read(&r)) {
  }
  const grpc::Status status = stream.rw->Finish();
  EXPECT_EQ(status.error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(status.error_message(), "a Poll was sent on a subscription whose mode is not POLL");
}

TEST(AgentStream, SampleResendsTheLatestValues) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000)}); });
  gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::STREAM, {ETH0}, gnmi::JSON, gnmi::SAMPLE);
  r.mutable_subscribe()->mutable_subscription(0)->set_sample_interval(100000000);
  Stream stream(s.fixture().stub(), r);
  EXPECT_EQ(stream.untilSync().size(), 1u);
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{std::string(ETH0) + "/mtu=9000"});
  s.onLoop([&] { s.library().pushChange(pathOf(ETH0), {uintLeaf("mtu", 1500)}); });
  // Changes are not sent on their own in SAMPLE mode: the next samples carry them.
  std::string last;
  for (int i = 0; i < 5 && last != std::string(ETH0) + "/mtu=1500"; ++i) last = flat({stream.next()})[0];
  EXPECT_EQ(last, std::string(ETH0) + "/mtu=1500");
  stream.context.TryCancel();
  stream.rw->Finish();
}

TEST(AgentStream, SuppressRedundantSamplesSendOnlyChanges) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000), uintLeaf("counters/inPkts", 1)}); });
  gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::STREAM, {ETH0}, gnmi::JSON, gnmi::SAMPLE);
  r.mutable_subscribe()->mutable_subscription(0)->set_suppress_redundant(true);
  Stream stream(s.fixture().stub(), r);
  EXPECT_EQ(stream.untilSync().size(), 2u);
  s.onLoop([&] { s.library().pushChange(pathOf(ETH0), {uintLeaf("counters/inPkts", 2)}); });
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{std::string(ETH0) + "/counters/inPkts=2"});
  stream.context.TryCancel();
  stream.rw->Finish();
}

TEST(AgentStream, OnChangeHeartbeatsResendUnchangedValues) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000)}); });
  gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::STREAM, {ETH0}, gnmi::JSON, gnmi::ON_CHANGE);
  r.mutable_subscribe()->mutable_subscription(0)->set_heartbeat_interval(100000000);
  Stream stream(s.fixture().stub(), r);
  EXPECT_EQ(stream.untilSync().size(), 1u);
  // No change was made: the value comes again because of the heartbeat.
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{std::string(ETH0) + "/mtu=9000"});
  EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{std::string(ETH0) + "/mtu=9000"});
  stream.context.TryCancel();
  stream.rw->Finish();
}

TEST(AgentStream, AFullQueuePausesTheSyncWithoutLosingOrRepeatingMessages) {
  Scripted s(options(/*syncLimit=*/4));
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < 300; ++i) leaves.push_back(uintLeaf("l" + std::to_string(i), i));
  s.onLoop([&] { s.library().script("/devices/dev1/system", leaves); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {"/devices/dev1/system"}));
  std::this_thread::sleep_for(std::chrono::milliseconds(100));  // let the sync fill the queue
  const std::vector<gnmi::Notification> got = stream.untilSync();
  ASSERT_EQ(got.size(), 300u);
  for (int i = 0; i < 300; ++i) EXPECT_EQ(got[i].update(0).path().elem(0).name(), "l" + std::to_string(i));
  EXPECT_TRUE(stream.rw->Finish().ok());
  EXPECT_GT(s.onLoop([&] { return s.library().resumeCalls; }), 0u) << "the sync never paused";
  EXPECT_EQ(s.onLoop([&] { return s.library().walkMapSize(); }), 0u);
}

TEST(AgentStream, AClientLeavingMidSyncGetsItsWalkCancelled) {
  Scripted s(options(/*syncLimit=*/2));
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < 200; ++i) leaves.push_back(stringLeaf("l" + std::to_string(i), std::string(20000, 'x')));
  s.onLoop([&] { s.library().script("/devices/dev1/system", leaves); });
  auto stub = s.fixture().newSmallWindowStub();
  {
    Stream stream(*stub, subscription(gnmi::SubscriptionList::ONCE, {"/devices/dev1/system"}));
    gnmi::SubscribeResponse r;
    ASSERT_TRUE(stream.rw->Read(&r));
    // The sync is under way, paused on the small queue the client does not drain.
    for (int i = 0; i < 200 && s.onLoop([&] { return s.library().walkMapSize(); }) == 0; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_EQ(s.onLoop([&] { return s.library().walkMapSize(); }), 1u);
    stream.context.TryCancel();
    stream.rw->Finish();
  }
  for (int i = 0; i < 200 && s.onLoop([&] { return s.library().cancelled; }) == 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(s.onLoop([&] { return s.library().cancelled; }), 1u);
  EXPECT_EQ(s.onLoop([&] { return s.library().walkMapSize(); }), 0u);
  EXPECT_EQ(s.onLoop([&] { return s.fixture().agent().router().activeSyncs(); }), 0u);
  for (int i = 0; i < 200 && s.onLoop([&] { return s.fixture().agent().subscriptionCount(); }) != 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_EQ(s.onLoop([&] { return s.fixture().agent().subscriptionCount(); }), 0u);
}

TEST(AgentStream, ASubscriberThatDoesNotReadIsBoundedThenEndedWhileOthersCarryOn) {
  Scripted s(options(64, std::chrono::milliseconds(500)));
  // Large values fill the transport's buffers, so the non-reader's writes block.
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < 200; ++i) leaves.push_back(stringLeaf("big" + std::to_string(i), std::string(20000, 'y')));
  s.onLoop([&] { s.library().script(ETH0, leaves); });
  auto stalledStub = s.fixture().newSmallWindowStub();
  Stream stalled(*stalledStub, subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  auto otherStub = s.fixture().newStub();
  Stream reader(*otherStub, subscription(gnmi::SubscriptionList::STREAM, {ETH1}));
  reader.untilSync();
  // Changes flow while the stalled subscriber reads nothing: its queue keeps
  // one entry per leaf however many changes there are.
  for (int round = 0; round < 20; ++round) {
    s.onLoop([&] {
      for (int leaf = 0; leaf < 50; ++leaf) {
        s.library().pushChange(pathOf(ETH0), {uintLeaf("counter" + std::to_string(leaf), round)});
      }
      s.library().pushChange(pathOf(ETH1), {uintLeaf("mtu", static_cast<uint64_t>(round))});
    });
    EXPECT_EQ(flat({reader.next()}),
              std::vector<std::string>{std::string(ETH1) + "/mtu=" + std::to_string(round)});
  }
  const size_t queued = s.onLoop([&] { return s.fixture().agent().maxChangesQueued(); });
  EXPECT_GT(queued, 0u);
  EXPECT_LE(queued, 50u) << "one entry per leaf, not per change";
  // The stalled stream is ended by the send timeout; the reader goes on.
  bool ended = false;
  for (int i = 0; i < 300 && !ended; ++i) {
    ended = s.onLoop([&] { return s.fixture().agent().liveSubscriptionCount() == 1; });
    if (!ended) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  EXPECT_TRUE(ended);
  s.onLoop([&] { s.library().pushChange(pathOf(ETH1), {uintLeaf("mtu", 99)}); });
  EXPECT_EQ(flat({reader.next()}), std::vector<std::string>{std::string(ETH1) + "/mtu=99"});
  // The stalled client, reading at last (within the grace before the agent
  // cancels the RPC), finds what was in flight and then the status.
  gnmi::SubscribeResponse r;
  while (stalled.rw->Read(&r)) {
  }
  const grpc::Status status = stalled.rw->Finish();
  EXPECT_EQ(status.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED) << status.error_message();
  EXPECT_EQ(status.error_message(), "the subscriber has not read for 0.5 s; the stream is ended");
  reader.context.TryCancel();
  reader.rw->Finish();
}

TEST(AgentStream, AHundredSubscribersEachGetTheirChanges) {
  Scripted s;
  constexpr int N = 100;
  std::vector<std::unique_ptr<gnmi::gNMI::Stub>> stubs;
  std::vector<std::unique_ptr<Stream>> streams;
  for (int i = 0; i < N; ++i) {
    stubs.push_back(s.fixture().newStub());
    streams.push_back(std::make_unique<Stream>(
        *stubs.back(), subscription(gnmi::SubscriptionList::STREAM, {i % 2 == 0 ? ETH0 : ETH1})));
  }
  for (auto& stream : streams) stream->untilSync();
  s.onLoop([&] {
    s.library().pushChange(pathOf(ETH0), {uintLeaf("mtu", 1000)});
    s.library().pushChange(pathOf(ETH1), {uintLeaf("mtu", 1001)});
  });
  for (int i = 0; i < N; ++i) {
    const std::string expected = std::string(i % 2 == 0 ? ETH0 : ETH1) + "/mtu=" + (i % 2 == 0 ? "1000" : "1001");
    EXPECT_EQ(flat({streams[i]->next()}), std::vector<std::string>{expected}) << i;
  }
  for (auto& stream : streams) {
    stream->context.TryCancel();
    stream->rw->Finish();
  }
}

TEST(AgentClient, SubscribeOncePollAndGetPrintOneJsonObjectPerNotification) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000), stringLeaf("operStatus", "up")}, 2); });
  std::vector<std::string> lines = clientLines(s.fixture().address(), {"subscribe", "--mode", "once", "--path", ETH0});
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find(R"("updates":[{"path":"/devices/dev1/interfaces[name=eth0]/mtu","value":9000},)"
                          R"({"path":"/devices/dev1/interfaces[name=eth0]/operStatus","value":"up"}])"),
            std::string::npos)
      << lines[0];
  EXPECT_EQ(lines[1], R"({"sync_response":true})");

  lines = clientLines(s.fixture().address(), {"subscribe", "--mode", "poll", "--polls", "2", "--path", std::string(ETH0) + "/mtu"});
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[5], R"({"sync_response":true})");
  EXPECT_NE(lines[4].find(R"("value":9000)"), std::string::npos);

  lines = clientLines(s.fixture().address(), {"--encoding", "json_ietf", "--target", "dut", "get", "--path", ETH0});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(R"("target":"dut")"), std::string::npos) << lines[0];
  EXPECT_NE(lines[0].find(R"("value":9000)"), std::string::npos) << lines[0];

  lines = clientLines(s.fixture().address(), {"subscribe", "--path", ETH0, "--count", "1"});
  EXPECT_EQ(lines.size(), 1u);  // stopped after the first notification, exit 0
}

TEST(AgentClient, StreamRunsForItsDuration) {
  Scripted s;
  const auto start = std::chrono::steady_clock::now();
  const std::vector<std::string> lines = clientLines(s.fixture().address(), {"subscribe", "--path", ETH0, "--duration", "2s"});
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(lines, std::vector<std::string>{R"({"sync_response":true})"});
}

grpc::Status get(Scripted& s, const gnmi::GetRequest& request, gnmi::GetResponse& response) {
  grpc::ClientContext context;
  withDeadline(context);
  return s.fixture().stub().Get(&context, request, &response);
}

TEST(AgentGet, OneNotificationPerPathFilteredByDataType) {
  Scripted s;
  s.onLoop([&] {
    s.library().script(ETH0, eth0Leaves(), 3);
    s.library().script(ETH1, {uintLeaf("mtu", 1500), uintLeaf("counters/inOctets", 7)});
  });
  gnmi::GetRequest r;
  *r.mutable_prefix() = P("/devices/dev1");
  r.mutable_prefix()->set_target("dut");
  *r.add_path() = P("interfaces[name=eth0]");
  *r.add_path() = P("interfaces[name=eth1]");
  gnmi::GetResponse response;
  ASSERT_TRUE(get(s, r, response).ok());
  ASSERT_EQ(response.notification_size(), 2);
  EXPECT_EQ(response.notification(0).prefix().target(), "dut");
  EXPECT_EQ(VekGnmi::pathString(response.notification(0).prefix()), "/devices/dev1");
  EXPECT_GT(response.notification(0).timestamp(), 0);
  EXPECT_EQ(flat({response.notification(1)}),
            (std::vector<std::string>{"/devices/dev1/interfaces[name=eth1]/mtu=1500",
                                      "/devices/dev1/interfaces[name=eth1]/counters/inOctets=7"}));
  r.set_type(gnmi::GetRequest::CONFIG);
  ASSERT_TRUE(get(s, r, response).ok());
  EXPECT_EQ(flat({response.notification(0)}),
            (std::vector<std::string>{"/devices/dev1/interfaces[name=eth0]/mtu=9000",
                                      "/devices/dev1/interfaces[name=eth0]/description=\"port 0\""}));
  r.set_type(gnmi::GetRequest::STATE);
  ASSERT_TRUE(get(s, r, response).ok());
  EXPECT_EQ(flat({response.notification(1)}),
            std::vector<std::string>{"/devices/dev1/interfaces[name=eth1]/counters/inOctets=7"});
}

// A Set transaction that records what happens to it.
struct Journal {
  std::vector<std::string> events;
  std::string failPrepareOf;
};

class RecordingSet : public VekGnmi::Server::SetTransaction {
 public:
  RecordingSet(Journal& journal, gnmi::SetRequest request)
      : journal_(journal), request_(std::move(request)) {}
  grpc::Status prepare() override {
    const std::string prefix = VekGnmi::pathString(request_.prefix());
    journal_.events.push_back("prepare " + prefix);
    if (prefix == journal_.failPrepareOf) {
      return {grpc::StatusCode::NOT_FOUND, "Error in finding path mtu: refused"};
    }
    return grpc::Status::OK;
  }
  grpc::Status commit() override {
    journal_.events.push_back("commit " + VekGnmi::pathString(request_.prefix()) + " " +
                              std::to_string(request_.update_size() + request_.replace_size()));
    return grpc::Status::OK;
  }

 private:
  Journal& journal_;
  gnmi::SetRequest request_;
};

TEST(AgentSet, AllEntitiesPrepareBeforeAnyCommits) {
  Scripted s;
  Journal journal;
  s.onLoop([&] {
    s.library().setFactory = [&](gnmi::SetRequest request) {
      return std::make_unique<RecordingSet>(journal, std::move(request));
    };
  });
  gnmi::SetRequest r;
  *r.mutable_prefix() = P("/devices/dev1");
  r.mutable_prefix()->set_target("dut");
  gnmi::Update* u = r.add_update();
  *u->mutable_path() = P("interfaces[name=eth0]/mtu");
  u->mutable_val()->set_json_val("9000");
  u = r.add_update();
  *u->mutable_path() = P("system/hostname");
  u->mutable_val()->set_json_val("\"core\"");
  u = r.add_replace();
  *u->mutable_path() = P("interfaces[name=eth0]/description");
  u->mutable_val()->set_json_val("\"uplink\"");
  gnmi::SetResponse response;
  {
    grpc::ClientContext context;
    withDeadline(context);
    ASSERT_TRUE(s.fixture().stub().Set(&context, r, &response).ok());
  }
  EXPECT_EQ(s.onLoop([&] { return journal.events; }),
            (std::vector<std::string>{"prepare /devices/dev1/interfaces[name=eth0]",
                                      "prepare /devices/dev1/system",
                                      "commit /devices/dev1/interfaces[name=eth0] 2",
                                      "commit /devices/dev1/system 1"}));
  EXPECT_GT(response.timestamp(), 0);
  EXPECT_EQ(response.prefix().target(), "dut");
  ASSERT_EQ(response.response_size(), 3);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::REPLACE);
  EXPECT_EQ(VekGnmi::pathString(response.response(0).path()), "/interfaces[name=eth0]/description");
  EXPECT_EQ(VekGnmi::pathString(response.response(2).path()), "/system/hostname");

  // One entity refusing to prepare: nothing is committed, its status returned as it is.
  s.onLoop([&] {
    journal.events.clear();
    journal.failPrepareOf = "/devices/dev1/system";
  });
  grpc::ClientContext context;
  withDeadline(context);
  const grpc::Status status = s.fixture().stub().Set(&context, r, &response);
  EXPECT_EQ(status.error_code(), grpc::StatusCode::NOT_FOUND);
  EXPECT_EQ(status.error_message(), "Error in finding path mtu: refused");
  EXPECT_EQ(s.onLoop([&] { return journal.events; }),
            (std::vector<std::string>{"prepare /devices/dev1/interfaces[name=eth0]",
                                      "prepare /devices/dev1/system"}));
}

}  // namespace
