// Subscribe, Get and Set end to end over a real gRPC channel, with the
// library's sync core and Set driver replaced by the scripted double
// (ScriptedLibrary): these tests drive the agent's own parts (routing,
// filtering, encodings, sync_response, queues and back-pressure,
// slow-subscriber handling, cancellation, all-or-nothing Set across
// entities) with messages shaped as the library publishes them. The agent
// runs on a manual clock: samples, heartbeats and the send timeout happen
// when a test moves it.
#include <bit>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"
#include "Router.h"
#include "ScriptedLibrary.h"
#include "StatusMatchers.h"
#include "SubscribeClient.h"
#include "SubscribeRpc.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::UnorderedElementsAre;

using namespace std::chrono_literals;

const std::string ETH0 = "/devices/dev1/interfaces[name=eth0]";
const std::string ETH1 = "/devices/dev1/interfaces[name=eth1]";
const std::string SYSTEM = "/devices/dev1/system";

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

// `count` leaves "<prefix>0", "<prefix>1", ... each of a string of `size` bytes.
std::vector<ScriptedLeaf> bigLeaves(const std::string& prefix, int count, size_t size) {
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < count; ++i) leaves.push_back(stringLeaf(prefix + std::to_string(i), std::string(size, 'x')));
  return leaves;
}

AgentOptions options(size_t syncLimit = 64, std::chrono::milliseconds sendTimeout = 30s) {
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
    return fixture_.onLoop(std::move(fn));
  }
  ScriptedLibrary& library() { return *library_; }
  AgentFixture& fixture() { return fixture_; }
  VekGnmi::Server::Agent& agent() { return fixture_.agent(); }

 private:
  ScriptedLibrary* library_ = nullptr;
  AgentFixture fixture_;
};

gnmi::SubscribeRequest pollRequest() {
  gnmi::SubscribeRequest poll;
  poll.mutable_poll();
  return poll;
}

// ---------------------------------------------------------------------------
// ONCE, POLL and STREAM

TEST(AgentStream, OnceSendsTheSyncInJsonThenSyncResponseThenOk) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves(), 2); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {ETH0}));
  EXPECT_THAT(flat(stream.untilSync()),
              ElementsAre(ETH0 + "/mtu=9000", ETH0 + "/speed=100", ETH0 + "/operStatus=\"up\"",
                          ETH0 + "/counters/inOctets=5", ETH0 + "/description=\"port 0\""));
  gnmi::SubscribeResponse extra;
  EXPECT_FALSE(stream.rw->Read(&extra));
  EXPECT_THAT(stream.finish(), IsOk());
}

TEST(AgentStream, SyncNotificationsCarryTheRequestsTarget) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves(), 2); });
  gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::ONCE, {ETH0});
  r.mutable_subscribe()->mutable_prefix()->set_target("dut");
  Stream stream(s.fixture().stub(), r);
  const std::vector<gnmi::Notification> got = stream.untilSync();
  ASSERT_THAT(got, SizeIs(3));
  for (const gnmi::Notification& n : got) EXPECT_EQ(n.prefix().target(), "dut");
  EXPECT_THAT(stream.finish(), IsOk());
}

TEST(AgentStream, SyncNotificationsAreStampedWithTheTimeTheSyncStarted) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves(), 2); });
  const int64_t start = s.fixture().clock().utcNanos();
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {ETH0}));
  const std::vector<gnmi::Notification> got = stream.untilSync();
  ASSERT_THAT(got, SizeIs(3));
  for (const gnmi::Notification& n : got) EXPECT_EQ(n.timestamp(), start);
  EXPECT_GT(start, 1600000000000000000);
  EXPECT_THAT(stream.finish(), IsOk());
}

TEST(AgentStream, PathsBelowTheEntityFilterItsUpdates) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {ETH0 + "/counters"}, gnmi::JSON_IETF));
  EXPECT_THAT(flat(stream.untilSync()), ElementsAre(ETH0 + "/counters/inOctets=ietf:\"5\""));
  EXPECT_THAT(stream.finish(), IsOk());
}

TEST(AgentStream, ProtoSendsTheLibrarysValuesButDoublesAsDoubles) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves(), 5); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {ETH0}, gnmi::PROTO));
  const std::vector<gnmi::Notification> got = stream.untilSync();
  ASSERT_THAT(got, SizeIs(1));
  ASSERT_EQ(got[0].update_size(), 5);
  EXPECT_EQ(got[0].update(0).val().uint_val(), 9000u);
  // The library sends a double as 8 bytes; clients read double_val.
  EXPECT_EQ(got[0].update(1).val().double_val(), 100.0);
  EXPECT_EQ(got[0].update(2).val().string_val(), "up");
  EXPECT_THAT(stream.finish(), IsOk());
}

TEST(AgentStream, StreamSendsTheSyncThenTheChangesUnderItsPathOnly) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  EXPECT_THAT(stream.untilSync(), SizeIs(5));
  s.onLoop([&] {
    s.library().pushChange(pathOf(ETH1), {uintLeaf("mtu", 1)});  // another interface
    s.library().pushChange(pathOf(ETH0), {uintLeaf("mtu", 1500)});
  });
  EXPECT_THAT(flat({stream.next()}), ElementsAre(ETH0 + "/mtu=1500"));
  stream.close();
}

TEST(AgentStream, StreamWatchesTheOwnerOfItsMemberSoThatItsRemovalReachesIt) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  stream.untilSync();
  const bool watched = s.onLoop([&] {
    for (const auto& synced : s.library().synced) {
      if (synced.path == "/devices/dev1" && synced.kind == VekGnmi::Server::SyncKind::Watch) return true;
    }
    return false;
  });
  EXPECT_TRUE(watched);
  stream.close();
}

TEST(AgentStream, StreamSendsTheDeleteOfItsMember) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  stream.untilSync();
  s.onLoop([&] { s.library().pushChange(pathOf("/devices/dev1"), {}, {pathOf("interfaces[name=eth0]")}); });
  EXPECT_THAT(flat({stream.next()}), ElementsAre("delete " + ETH0));
  stream.close();
}

TEST(AgentStream, UpdatesOnlySendsNoInitialValuesThenTheChanges) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, eth0Leaves()); });
  gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::STREAM, {ETH0}, gnmi::JSON, gnmi::ON_CHANGE);
  r.mutable_subscribe()->set_updates_only(true);
  Stream stream(s.fixture().stub(), r);
  EXPECT_THAT(stream.untilSync(), IsEmpty());
  s.onLoop([&] { s.library().pushChange(pathOf(ETH0), {stringLeaf("operStatus", "down")}); });
  EXPECT_THAT(flat({stream.next()}), ElementsAre(ETH0 + "/operStatus=\"down\""));
  stream.close();
}

TEST(AgentStream, PollSyncsForTheListAndForEveryPoll) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000)}); });
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::POLL, {ETH0}));
  EXPECT_THAT(flat(stream.untilSync()), ElementsAre(ETH0 + "/mtu=9000"));
  for (int i = 0; i < 2; ++i) {
    stream.rw->Write(pollRequest());
    EXPECT_THAT(flat(stream.untilSync()), ElementsAre(ETH0 + "/mtu=9000")) << "poll " << i;
  }
  stream.close();
}

TEST(AgentStream, ASecondSubscriptionListIsRefused) {
  Scripted s;
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::POLL, {ETH0}));
  stream.untilSync();
  stream.rw->Write(subscription(gnmi::SubscriptionList::POLL, {ETH0}));
  EXPECT_THAT(stream.end(), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                                      "a Subscribe stream takes one SubscriptionList; send Polls after it"));
}

TEST(AgentStream, PollOnAStreamSubscriptionIsRefused) {
  Scripted s;
  Stream stream(s.fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  stream.untilSync();
  stream.rw->Write(pollRequest());
  EXPECT_THAT(stream.end(), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                                      "a Poll was sent on a subscription whose mode is not POLL"));
}

// ---------------------------------------------------------------------------
// SAMPLE and heartbeats, on the agent's clock

// A STREAM subscription of eth0 (mtu 9000, inPkts 1), its sync read.
class AgentStreamTimers : public ::testing::Test {
 protected:
  AgentStreamTimers() {
    s_.onLoop([&] { s_.library().script(ETH0, {uintLeaf("mtu", 9000), uintLeaf("counters/inPkts", 1)}); });
  }
  ~AgentStreamTimers() override {
    if (stream_) stream_->close();
  }

  // Subscribes in `mode`, `set` giving the subscription its intervals.
  Stream& subscribe(gnmi::SubscriptionMode mode, const std::function<void(gnmi::Subscription&)>& set) {
    gnmi::SubscribeRequest r = subscription(gnmi::SubscriptionList::STREAM, {ETH0}, gnmi::JSON, mode);
    set(*r.mutable_subscribe()->mutable_subscription(0));
    stream_ = std::make_unique<Stream>(s_.fixture().stub(), r);
    EXPECT_THAT(stream_->untilSync(), SizeIs(2));
    return *stream_;
  }
  void change(uint64_t inPkts) {
    s_.onLoop([&] { s_.library().pushChange(pathOf(ETH0), {uintLeaf("counters/inPkts", inPkts)}); });
  }

  Scripted s_;
  std::unique_ptr<Stream> stream_;
};

TEST_F(AgentStreamTimers, SampleSendsEveryValueAgainAtEachInterval) {
  Stream& stream = subscribe(gnmi::SAMPLE, [](gnmi::Subscription& sub) { sub.set_sample_interval(100000000); });
  for (int i = 0; i < 2; ++i) {
    s_.fixture().advance(100ms);
    EXPECT_THAT(flat({stream.next()}), UnorderedElementsAre(ETH0 + "/mtu=9000", ETH0 + "/counters/inPkts=1"))
        << "sample " << i;
  }
}

TEST_F(AgentStreamTimers, SampleSendsAChangedValueAtTheNextInterval) {
  Stream& stream = subscribe(gnmi::SAMPLE, [](gnmi::Subscription& sub) { sub.set_sample_interval(100000000); });
  change(2);
  s_.fixture().advance(100ms);
  EXPECT_THAT(flat({stream.next()}), UnorderedElementsAre(ETH0 + "/mtu=9000", ETH0 + "/counters/inPkts=2"));
}

TEST_F(AgentStreamTimers, SuppressRedundantSamplesSendOnlyChangedValues) {
  Stream& stream = subscribe(gnmi::SAMPLE, [](gnmi::Subscription& sub) { sub.set_suppress_redundant(true); });
  change(2);
  // A sample_interval of 0 is the lowest the agent supports.
  s_.fixture().advance(s_.agent().options().limits.minSampleInterval);
  EXPECT_THAT(flat({stream.next()}), ElementsAre(ETH0 + "/counters/inPkts=2"));
}

TEST_F(AgentStreamTimers, OnChangeHeartbeatsSendUnchangedValuesAgain) {
  Stream& stream =
      subscribe(gnmi::ON_CHANGE, [](gnmi::Subscription& sub) { sub.set_heartbeat_interval(100000000); });
  // No change was made: the values come again because of the heartbeat.
  for (int i = 0; i < 2; ++i) {
    s_.fixture().advance(100ms);
    EXPECT_THAT(flat({stream.next()}), UnorderedElementsAre(ETH0 + "/mtu=9000", ETH0 + "/counters/inPkts=1"))
        << "heartbeat " << i;
  }
}

// ---------------------------------------------------------------------------
// Queues, slow subscribers, cancellation

TEST(AgentStream, AFullQueuePausesTheSyncWithoutLosingOrRepeatingMessages) {
  Scripted s(options(/*syncLimit=*/4));
  // Values larger than the small window's share: the writes block until the
  // client reads, so the queue fills and the sync pauses.
  s.onLoop([&] { s.library().script(SYSTEM, bigLeaves("l", 300, 2000)); });
  auto stub = s.fixture().newSmallWindowStub();
  Stream stream(*stub, subscription(gnmi::SubscriptionList::ONCE, {SYSTEM}));
  ASSERT_TRUE(s.fixture().waitUntil([&] { return s.library().pausedWalks() == 1; }));
  const std::vector<gnmi::Notification> got = stream.untilSync();
  ASSERT_THAT(got, SizeIs(300));
  for (int i = 0; i < 300; ++i) EXPECT_EQ(got[i].update(0).path().elem(0).name(), "l" + std::to_string(i));
  EXPECT_THAT(stream.finish(), IsOk());
  EXPECT_GT(s.onLoop([&] { return s.library().resumeCalls; }), 0u) << "the sync never paused";
  EXPECT_EQ(s.onLoop([&] { return s.library().pausedWalks(); }), 0u);
}

TEST(AgentStream, AClientLeavingMidSyncGetsItsWalkCancelled) {
  Scripted s(options(/*syncLimit=*/2));
  s.onLoop([&] { s.library().script(SYSTEM, bigLeaves("l", 200, 20000)); });
  auto stub = s.fixture().newSmallWindowStub();
  {
    Stream stream(*stub, subscription(gnmi::SubscriptionList::ONCE, {SYSTEM}));
    gnmi::SubscribeResponse r;
    ASSERT_TRUE(stream.rw->Read(&r));
    // The sync is under way, paused on the small queue the client does not drain.
    ASSERT_TRUE(s.fixture().waitUntil([&] { return s.library().pausedWalks() == 1; }));
    stream.close();
  }
  ASSERT_TRUE(s.fixture().waitUntil([&] { return s.agent().subscriptionCount() == 0; }));
  EXPECT_EQ(s.onLoop([&] { return s.library().cancelled; }), 1u);
  EXPECT_EQ(s.onLoop([&] { return s.library().pausedWalks(); }), 0u);
  EXPECT_EQ(s.onLoop([&] { return s.agent().router().activeSyncs(); }), 0u);
}

// A subscriber that reads nothing: its sync is one message larger than its
// receive window, so its first write, started before the clock moves, never
// completes. Beside it a subscriber that reads.
class StalledAndReader {
 public:
  static constexpr auto SEND_TIMEOUT = 5s;

  StalledAndReader() : s_(options(64, SEND_TIMEOUT)) {
    s_.onLoop([&] { s_.library().script(ETH0, bigLeaves("big", 10, 20000), /*perMessage=*/10); });
    stalledStub_ = s_.fixture().newSmallWindowStub();
    stalled = std::make_unique<Stream>(*stalledStub_, subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
    readerStub_ = s_.fixture().newStub();
    reader = std::make_unique<Stream>(*readerStub_, subscription(gnmi::SubscriptionList::STREAM, {ETH1}));
    reader->untilSync();
    // Both syncs are done: the stalled subscriber's write has started.
    EXPECT_TRUE(s_.fixture().waitUntil([&] {
      return s_.agent().liveSubscriptionCount() == 2 && s_.agent().router().activeSyncs() == 0;
    }));
  }
  ~StalledAndReader() {
    reader->close();
    stalled->close();
  }

  // A change of the reader's mtu, read by it.
  void readerSees(uint64_t mtu) {
    s_.onLoop([&] { s_.library().pushChange(pathOf(ETH1), {uintLeaf("mtu", mtu)}); });
    EXPECT_THAT(flat({reader->next()}), ElementsAre(ETH1 + "/mtu=" + std::to_string(mtu)));
  }

  Scripted& scripted() { return s_; }
  std::unique_ptr<Stream> stalled;
  std::unique_ptr<Stream> reader;

 private:
  Scripted s_;
  std::unique_ptr<gnmi::gNMI::Stub> stalledStub_;
  std::unique_ptr<gnmi::gNMI::Stub> readerStub_;
};

TEST(AgentStream, AStalledSubscribersChangesAreCoalescedPerLeafWhileOthersGetTheirs) {
  StalledAndReader t;
  Scripted& s = t.scripted();
  for (int round = 0; round < 20; ++round) {
    s.onLoop([&] {
      for (int leaf = 0; leaf < 50; ++leaf) {
        s.library().pushChange(pathOf(ETH0), {uintLeaf("counter" + std::to_string(leaf), round)});
      }
    });
    t.readerSees(static_cast<uint64_t>(round));
  }
  const size_t queued = s.onLoop([&] { return s.agent().maxChangesQueued(); });
  EXPECT_GT(queued, 0u);
  EXPECT_LE(queued, 50u) << "one entry per leaf, not per change";
}

TEST(AgentStream, AStalledSubscriberIsEndedAfterTheSendTimeoutWhileOthersCarryOn) {
  StalledAndReader t;
  Scripted& s = t.scripted();
  // Up to a check period short of the timeout nobody is ended.
  s.fixture().advance(StalledAndReader::SEND_TIMEOUT - VekGnmi::Server::SubscribeRpc::SLOW_CHECK_PERIOD);
  EXPECT_EQ(s.onLoop([&] { return s.agent().liveSubscriptionCount(); }), 2u);
  // The reader's writes from now on start at this time, so none of them has
  // been blocked for the timeout at the next check; the stalled write has.
  t.readerSees(1);
  s.fixture().advance(VekGnmi::Server::SubscribeRpc::SLOW_CHECK_PERIOD);
  ASSERT_TRUE(s.fixture().waitUntil([&] { return s.agent().liveSubscriptionCount() == 1; }));
  t.readerSees(99);
  // The stalled client, reading at last (the agent cancels the RPC only a
  // grace period later on its clock), finds what was in flight and then the
  // status.
  EXPECT_THAT(t.stalled->end(), StatusIs(grpc::StatusCode::RESOURCE_EXHAUSTED,
                                          "the subscriber has not read for 5 s; the stream is ended"));
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
    const std::string expected = i % 2 == 0 ? ETH0 + "/mtu=1000" : ETH1 + "/mtu=1001";
    EXPECT_THAT(flat({streams[i]->next()}), ElementsAre(expected)) << i;
  }
  for (auto& stream : streams) stream->close();
}

// ---------------------------------------------------------------------------
// vekgnmi against the agent

TEST(AgentClient, SubscribeOncePrintsOneJsonObjectPerNotificationThenTheSyncResponse) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000), stringLeaf("operStatus", "up")}, 2); });
  EXPECT_THAT(clientLines(s.fixture().address(), {"subscribe", "--mode", "once", "--path", ETH0}),
              ElementsAre(HasSubstr(R"("updates":[{"path":"/devices/dev1/interfaces[name=eth0]/mtu","value":9000},)"
                                    R"({"path":"/devices/dev1/interfaces[name=eth0]/operStatus","value":"up"}])"),
                          R"({"sync_response":true})"));
}

TEST(AgentClient, SubscribePollPrintsTheSyncOfTheListAndOfEachPoll) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000), stringLeaf("operStatus", "up")}, 2); });
  const std::vector<std::string> lines =
      clientLines(s.fixture().address(), {"subscribe", "--mode", "poll", "--polls", "2", "--path", ETH0 + "/mtu"});
  ASSERT_THAT(lines, SizeIs(6));
  EXPECT_THAT(lines[4], HasSubstr(R"("value":9000)"));
  EXPECT_EQ(lines[5], R"({"sync_response":true})");
}

TEST(AgentClient, GetPrintsOneJsonObjectWithTheTarget) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000), stringLeaf("operStatus", "up")}, 2); });
  EXPECT_THAT(
      clientLines(s.fixture().address(), {"--encoding", "json_ietf", "--target", "dut", "get", "--path", ETH0}),
      ElementsAre(::testing::AllOf(HasSubstr(R"("target":"dut")"), HasSubstr(R"("value":9000)"))));
}

TEST(AgentClient, SubscribeWithACountStopsAfterThatManyNotifications) {
  Scripted s;
  s.onLoop([&] { s.library().script(ETH0, {uintLeaf("mtu", 9000), stringLeaf("operStatus", "up")}, 2); });
  // Stopped after the first notification, exit 0.
  EXPECT_THAT(clientLines(s.fixture().address(), {"subscribe", "--path", ETH0, "--count", "1"}), SizeIs(1));
}

TEST(AgentClient, StreamRunsForItsDuration) {
  Scripted s;
  const auto start = std::chrono::steady_clock::now();
  const std::vector<std::string> lines = clientLines(s.fixture().address(), {"subscribe", "--path", ETH0, "--duration", "2s"});
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_EQ(lines, std::vector<std::string>{R"({"sync_response":true})"});
}

// ---------------------------------------------------------------------------
// Get

grpc::Status get(Scripted& s, const gnmi::GetRequest& request, gnmi::GetResponse& response) {
  grpc::ClientContext context;
  withDeadline(context);
  return s.fixture().stub().Get(&context, request, &response);
}

// A Get of eth0 and eth1 below a prefix with a target.
class AgentGet : public ::testing::Test {
 protected:
  AgentGet() {
    s_.onLoop([&] {
      s_.library().script(ETH0, eth0Leaves(), 3);
      s_.library().script(ETH1, {uintLeaf("mtu", 1500), uintLeaf("counters/inOctets", 7)});
    });
    *request_.mutable_prefix() = P("/devices/dev1");
    request_.mutable_prefix()->set_target("dut");
    *request_.add_path() = P("interfaces[name=eth0]");
    *request_.add_path() = P("interfaces[name=eth1]");
  }

  Scripted s_;
  gnmi::GetRequest request_;
};

TEST_F(AgentGet, AnswersOneNotificationPerPathWithThePrefixTargetAndTime) {
  gnmi::GetResponse response;
  ASSERT_THAT(get(s_, request_, response), IsOk());
  ASSERT_EQ(response.notification_size(), 2);
  EXPECT_EQ(response.notification(0).prefix().target(), "dut");
  EXPECT_EQ(VekGnmi::pathString(response.notification(0).prefix()), "/devices/dev1");
  EXPECT_EQ(response.notification(0).timestamp(), s_.fixture().clock().utcNanos());
  EXPECT_THAT(flat({response.notification(1)}),
              ElementsAre("/devices/dev1/interfaces[name=eth1]/mtu=1500",
                          "/devices/dev1/interfaces[name=eth1]/counters/inOctets=7"));
}

TEST_F(AgentGet, ConfigAnswersTheWritableLeavesOnly) {
  request_.set_type(gnmi::GetRequest::CONFIG);
  gnmi::GetResponse response;
  ASSERT_THAT(get(s_, request_, response), IsOk());
  ASSERT_EQ(response.notification_size(), 2);
  EXPECT_THAT(flat({response.notification(0)}),
              ElementsAre("/devices/dev1/interfaces[name=eth0]/mtu=9000",
                          "/devices/dev1/interfaces[name=eth0]/description=\"port 0\""));
}

TEST_F(AgentGet, StateAnswersTheOtherLeavesOnly) {
  request_.set_type(gnmi::GetRequest::STATE);
  gnmi::GetResponse response;
  ASSERT_THAT(get(s_, request_, response), IsOk());
  ASSERT_EQ(response.notification_size(), 2);
  EXPECT_THAT(flat({response.notification(1)}),
              ElementsAre("/devices/dev1/interfaces[name=eth1]/counters/inOctets=7"));
}

// ---------------------------------------------------------------------------
// Set

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

// A Set of two entities (eth0's mtu and description, the system's hostname)
// through recording transactions.
class AgentSet : public ::testing::Test {
 protected:
  AgentSet() {
    s_.onLoop([&] {
      s_.library().setFactory = [&](gnmi::SetRequest request) {
        return std::make_unique<RecordingSet>(journal_, std::move(request));
      };
    });
    *request_.mutable_prefix() = P("/devices/dev1");
    request_.mutable_prefix()->set_target("dut");
    gnmi::Update* u = request_.add_update();
    *u->mutable_path() = P("interfaces[name=eth0]/mtu");
    u->mutable_val()->set_json_val("9000");
    u = request_.add_update();
    *u->mutable_path() = P("system/hostname");
    u->mutable_val()->set_json_val("\"core\"");
    u = request_.add_replace();
    *u->mutable_path() = P("interfaces[name=eth0]/description");
    u->mutable_val()->set_json_val("\"uplink\"");
  }

  grpc::Status set(gnmi::SetResponse& response) {
    grpc::ClientContext context;
    withDeadline(context);
    return s_.fixture().stub().Set(&context, request_, &response);
  }
  std::vector<std::string> events() {
    return s_.onLoop([&] { return journal_.events; });
  }

  Scripted s_;
  Journal journal_;
  gnmi::SetRequest request_;
};

TEST_F(AgentSet, AllEntitiesPrepareBeforeAnyCommits) {
  gnmi::SetResponse response;
  ASSERT_THAT(set(response), IsOk());
  EXPECT_THAT(events(), ElementsAre("prepare /devices/dev1/interfaces[name=eth0]", "prepare /devices/dev1/system",
                                    "commit /devices/dev1/interfaces[name=eth0] 2", "commit /devices/dev1/system 1"));
}

TEST_F(AgentSet, TheResponseListsEachOperationWithTheClientsPathTargetAndTime) {
  gnmi::SetResponse response;
  ASSERT_THAT(set(response), IsOk());
  EXPECT_EQ(response.timestamp(), s_.fixture().clock().utcNanos());
  EXPECT_EQ(response.prefix().target(), "dut");
  ASSERT_EQ(response.response_size(), 3);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::REPLACE);
  EXPECT_EQ(VekGnmi::pathString(response.response(0).path()), "/interfaces[name=eth0]/description");
  EXPECT_EQ(VekGnmi::pathString(response.response(2).path()), "/system/hostname");
}

TEST_F(AgentSet, AnEntityRefusingToPrepareCommitsNothingAndItsStatusIsReturned) {
  s_.onLoop([&] { journal_.failPrepareOf = "/devices/dev1/system"; });
  gnmi::SetResponse response;
  EXPECT_THAT(set(response), StatusIs(grpc::StatusCode::NOT_FOUND, "Error in finding path mtu: refused"));
  EXPECT_THAT(events(), ElementsAre("prepare /devices/dev1/interfaces[name=eth0]", "prepare /devices/dev1/system"));
}

}  // namespace
