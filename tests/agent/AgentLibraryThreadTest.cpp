// vekgnmid with the library itself, end to end over a real gRPC channel on a
// loopback port: what the library publishes for the demo model and where,
// Get, Set and Subscribe in every mode and encoding, large syncs that pause
// many times, many subscribers, a subscriber that never reads, cancellation
// mid-sync, interfaces removed and re-created while syncs run, and shutdown
// with streams open. Changes are made on the agent's event loop by the
// tests (the change simulator's single steps), so that what a client must
// see is known.
//
// Time is the tests': the agent runs on a manual clock (samples and the send
// timeout happen when a test moves it) and the runtime on a test clock that
// only a test moves, on the loop (the model's times, the time of each
// change, and the library's scheduler, whose waits for a full subscriber
// then end only when it has room). After every test no subscription, sync,
// walk or path of a walk is left.
#include <algorithm>
#include <atomic>
#include <map>
#include <random>
#include <set>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ostrel/GifNotifiee.h>
#include <Ostrel/Path.h>
#include <Ostrel/SyncScheduler.h>
#include <Ostrel/VekTypeWalker.h>

#include "AgentFixture.h"
#include "DemoModel.h"
#include "ModelSchema.h"
#include "PathResolver.h"
#include "Router.h"
#include "StatusMatchers.h"
#include "SubscribeClient.h"
#include "SubscribeRpc.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;
using VekGnmi::Server::ChurnSimulator;
using ::testing::AnyOf;
using ::testing::ElementsAre;
using ::testing::Eq;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using namespace std::chrono_literals;

const std::string DEV = "/devices/dev1";
const std::string ETH0 = "/devices/dev1/interfaces[name=eth0]";
const std::string ETH1 = "/devices/dev1/interfaces[name=eth1]";

AgentOptions options(size_t interfaces = 8, size_t syncLimit = 64, std::chrono::milliseconds sendTimeout = 30s) {
  AgentOptions o;
  o.interfaces = interfaces;
  o.syncQueueLimit = syncLimit;
  o.sendTimeout = sendTimeout;
  return o;
}

// Every leaf of `notifications` by its full path, as the library typed it.
std::map<std::string, gnmi::TypedValue> leaves(const std::vector<gnmi::Notification>& notifications) {
  std::map<std::string, gnmi::TypedValue> out;
  for (const gnmi::Notification& n : notifications) {
    for (const gnmi::Update& u : n.update()) out[VekGnmi::joinedPathString(n.prefix(), u.path())] = u.val();
  }
  return out;
}

template <typename Repeated>
std::vector<gnmi::Notification> notificationsOf(const Repeated& repeated) {
  return {repeated.begin(), repeated.end()};
}

size_t updateCount(const std::vector<gnmi::Notification>& notifications) {
  size_t n = 0;
  for (const gnmi::Notification& notification : notifications) n += notification.update_size();
  return n;
}

gnmi::Update jsonUpdate(const std::string& path, const std::string& json) {
  gnmi::Update u;
  *u.mutable_path() = P(path);
  u.mutable_val()->set_json_val(json);
  return u;
}

// Reads notifications until `count` updates (and deletes) have arrived.
std::vector<gnmi::Notification> readUpdates(Stream& stream, size_t count) {
  std::vector<gnmi::Notification> out;
  size_t seen = 0;
  while (seen < count) {
    out.push_back(stream.next());
    seen += out.back().update_size() + out.back().delete__size();
    if (out.back().update_size() + out.back().delete__size() == 0) break;  // the stream ended
  }
  return out;
}

gnmi::SubscribeRequest pollRequest() {
  gnmi::SubscribeRequest poll;
  poll.mutable_poll();
  return poll;
}

// The agent with the library, started by each test with its options.
class AgentLibrary : public ::testing::Test {
 protected:
  // The runtime's UTC time while a test runs (with a fraction of a second,
  // as the model's times have one).
  static constexpr double VEK_UTC = 1800000000.5;
  static int64_t nanos(double seconds) { return static_cast<int64_t>(seconds * 1e9); }

  void start(AgentOptions o = options()) {
    fixture_ = std::make_unique<AgentFixture>(std::move(o), VekGnmi::Server::makeLibraryBridge);
  }
  // Stops the agent and forgets it; TearDown then checks nothing.
  void destroy() { fixture_.reset(); }

  // Once the streams a test opened have closed: no subscription, sync, walk
  // or path of a walk left.
  void TearDown() override {
    if (!fixture_) return;
    EXPECT_TRUE(fixture_->waitUntil([&] { return agent().subscriptionCount() == 0; }));
    EXPECT_TRUE(idle()) << fixture_->onLoop([] { return Ostrel::FullVekTypeWalker::dumpPathWalkIdMap(); });
  }

  AgentFixture& fixture() { return *fixture_; }
  VekGnmi::Server::Agent& agent() { return fixture_->agent(); }
  template <typename Fn>
  auto onLoop(Fn fn) {
    return fixture_->onLoop(std::move(fn));
  }
  bool waitUntil(std::function<bool()> condition) { return fixture_->waitUntil(std::move(condition)); }

  // No sync, walk or path of a walk left anywhere.
  bool idle() {
    return onLoop([&] {
      return agent().router().activeSyncs() == 0 && agent().bridge().pausedWalks() == 0 &&
             Ostrel::FullVekTypeWalker::walkMapSize() == 0 && Ostrel::staticPathWalkIdMap.empty();
    });
  }

  grpc::Status get(const gnmi::GetRequest& request, gnmi::GetResponse& response) {
    grpc::ClientContext context;
    withDeadline(context, 60);
    return fixture_->stub().Get(&context, request, &response);
  }
  grpc::Status set(const gnmi::SetRequest& request, gnmi::SetResponse& response) {
    grpc::ClientContext context;
    withDeadline(context);
    return fixture_->stub().Set(&context, request, &response);
  }

  // The leaves a Get of eth1 of data type `type` answers, by path.
  std::set<std::string> eth1LeavesOf(gnmi::GetRequest::DataType type) {
    gnmi::GetRequest r;
    *r.add_path() = P("/devices/dev1/interfaces[name=eth1]");
    r.set_type(type);
    gnmi::GetResponse response;
    EXPECT_THAT(get(r, response), IsOk());
    std::set<std::string> out;
    for (const gnmi::Notification& n : response.notification()) {
      for (const gnmi::Update& u : n.update()) out.insert(VekGnmi::pathString(u.path()));
    }
    return out;
  }

  // On the loop: the demo model's interface `name`.
  Vek::Ptr<Vek::Entity> interface(const char* name) {
    return agent().model().device->entity("interfaces", Vek::genericIfOf(name));
  }
  unsigned mtuOf(const char* name) {
    return onLoop([&] { return interface(name)->value<unsigned>("mtu"); });
  }
  void mtuIs(const char* name, unsigned mtu) {
    onLoop([&] { interface(name)->valueIs("mtu", mtu); });
  }
  std::string hostname() {
    return onLoop([&] { return agent().model().device->entity("system")->value<Vek::String>("hostname").stdString(); });
  }

  // A STREAM of eth1's mtu in `mode` gets the change of it to `mtu` made
  // `later` seconds (of the runtime's clock) after the model was built,
  // stamped with that time.
  void expectChangeStampedWithItsTime(gnmi::SubscriptionMode mode, unsigned mtu, double later) {
    const std::string path = "/devices/dev1/interfaces[name=eth1]/mtu";
    Stream stream(fixture_->stub(), subscription(gnmi::SubscriptionList::STREAM, {path}, gnmi::PROTO, mode));
    EXPECT_THAT(stream.untilSync(), SizeIs(1));
    onLoop([&] {
      vekClock_.advance(later);
      interface("eth1")->valueIs("mtu", mtu);
    });
    const gnmi::Notification n = stream.next();
    EXPECT_THAT(flat({n}), ElementsAre(path + "=uint_val: " + std::to_string(mtu)));
    EXPECT_EQ(n.timestamp(), nanos(VEK_UTC + later));
    stream.close();
  }

  Vek::TestClock vekClock_{1000.0, VEK_UTC};
  Vek::ScopedClock vekClockInstalled_{vekClock_};
  std::unique_ptr<AgentFixture> fixture_;
};

// ---------------------------------------------------------------------------
// What is published, and where

// The entities of the demo device with 8 interfaces.
std::set<std::string> demoEntities() {
  std::set<std::string> expected{DEV, DEV + "/system", DEV + "/neighbors[name=nbr0]", DEV + "/neighbors[name=nbr1]"};
  for (int i = 0; i < 8; ++i) expected.insert(DEV + "/interfaces[name=eth" + std::to_string(i) + "]");
  return expected;
}

std::vector<gnmi::Notification> syncOfTheRoot(AgentFixture& fixture) {
  Stream all(fixture.stub(), subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::PROTO));
  std::vector<gnmi::Notification> got = all.untilSync();
  EXPECT_THAT(all.finish(), IsOk());
  return got;
}

TEST_F(AgentLibrary, ASyncOfTheRootPublishesEveryEntityOnce) {
  start();
  std::set<std::string> prefixes;
  for (const gnmi::Notification& n : syncOfTheRoot(fixture())) prefixes.insert(VekGnmi::pathString(n.prefix()));
  EXPECT_EQ(prefixes, demoEntities());
}

TEST_F(AgentLibrary, SyncNotificationsCarryTheSyncsStartOrTheTimeTheirMemberWasMade) {
  start();
  const int64_t syncStart = fixture().clock().utcNanos();
  for (const gnmi::Notification& n : syncOfTheRoot(fixture())) {
    EXPECT_THAT(n.timestamp(), AnyOf(Eq(syncStart), Eq(nanos(VEK_UTC)))) << n.ShortDebugString();
  }
}

TEST_F(AgentLibrary, AMemberSyncedFirstKeepsOneNotifieeAtThePathTheAgentResolves) {
  start();
  // A member synced directly first, then everything: the walker must name
  // the member as the agent did, or the entity gets a second notifiee.
  Stream member(fixture().stub(),
                subscription(gnmi::SubscriptionList::STREAM, {"/devices/dev1/interfaces[name=eth3]"}));
  member.untilSync();
  syncOfTheRoot(fixture());
  const std::set<std::string> expected = demoEntities();
  onLoop([&] {
    EXPECT_EQ(Ostrel::gNmiNotifieeMap.size(), expected.size()) << Ostrel::GifGnmiNotifiee::dumpGnmiNotifieeMap();
    VekGnmi::Server::ModelSchema schema(agent().model().root, VekGnmi::Server::isStateAttribute);
    for (const std::string& prefix : expected) {
      VekGnmi::Server::Resolution r;
      ASSERT_THAT(VekGnmi::Server::resolvePath(schema, P(prefix), r), IsOk()) << prefix;
      ASSERT_THAT(r.cover, SizeIs(1)) << prefix;
      EXPECT_EQ(VekGnmi::pathString(r.cover[0].path), prefix);
      const auto it = Ostrel::notifieePathMap.find(r.cover[0].entity.ptr());
      ASSERT_NE(it, Ostrel::notifieePathMap.end()) << prefix;
      EXPECT_EQ(VekGnmi::pathString(it->second), prefix);
    }
  });
  member.close();
}

TEST_F(AgentLibrary, TheAgentKnowsTheTypeOfEveryPublishedLeaf) {
  start();
  const std::vector<gnmi::Notification> got = syncOfTheRoot(fixture());
  onLoop([&] {
    VekGnmi::Server::ModelSchema schema(agent().model().root, VekGnmi::Server::isStateAttribute);
    for (const gnmi::Notification& n : got) {
      for (const gnmi::Update& u : n.update()) {
        EXPECT_NE(schema.leafOf(n.prefix(), u.path()), nullptr) << VekGnmi::joinedPathString(n.prefix(), u.path());
      }
    }
  });
}

TEST_F(AgentLibrary, TheDemoModelsLeavesArePublishedAsTheLibraryTypesThem) {
  start();
  const std::map<std::string, gnmi::TypedValue> all = leaves(syncOfTheRoot(fixture()));
  auto at = [&](const std::string& path) {
    const auto it = all.find(path);
    EXPECT_NE(it, all.end()) << path;
    return it == all.end() ? gnmi::TypedValue() : it->second;
  };
  EXPECT_EQ(at(ETH0 + "/name").string_val(), "eth0");
  EXPECT_EQ(at(ETH0 + "/mtu").uint_val(), 9000u);
  EXPECT_TRUE(at(ETH0 + "/enabled").bool_val());
  // Floating-point leaves go out as double_val (the library sends 8 bytes).
  EXPECT_EQ(at(ETH0 + "/speed").double_val(), 100.0);
  EXPECT_EQ(at(ETH0 + "/operStatus").string_val(), "up");
  EXPECT_EQ(at(ETH0 + "/lastChange").int_val(), nanos(VEK_UTC));
  EXPECT_TRUE(at(ETH0 + "/counters/inPkts").has_uint_val());
  EXPECT_EQ(at(ETH0 + "/addresses[addressesKey=10.0.0.0]/prefixLength").uint_val(), 31u);
  EXPECT_EQ(at(ETH0 + "/addresses[addressesKey=10.0.0.0]/origin").string_val(), "static");
  EXPECT_EQ(at(DEV + "/routes[routesKey=10.0.0.2/31]/nextHop").string_val(), "10.0.0.3");
  EXPECT_EQ(at(DEV + "/routes[routesKey=10.0.0.2/31]/protocol").string_val(), "connected");
  EXPECT_EQ(at(DEV + "/neighbors[name=nbr1]/interface_ptr").string_val(), DEV + "/interfaces[name=eth4]");
  EXPECT_EQ(at(DEV + "/system/motd").json_val(), R"({"banner":"welcome"})");
  EXPECT_EQ(at(DEV + "/system/cpuLoad").double_val(), 0.25);
}

// ---------------------------------------------------------------------------
// Get

// A Get of eth0's speed, inPkts and lastChange in `encoding`.
gnmi::GetRequest eth0Leaves(gnmi::Encoding encoding) {
  gnmi::GetRequest r;
  *r.mutable_prefix() = P(ETH0);
  *r.add_path() = P("speed");
  *r.add_path() = P("counters/inPkts");
  *r.add_path() = P("lastChange");
  r.set_encoding(encoding);
  return r;
}

TEST_F(AgentLibrary, GetAnswersOneNotificationPerPathWithThePrefixAndTheNewestTimeOfItsLeaves) {
  start();
  // The interface's leaves carry the time it was created (the model's
  // build, on the runtime's clock), later than the Get's start.
  ASSERT_GT(nanos(VEK_UTC), fixture().clock().utcNanos());
  gnmi::GetResponse json;
  ASSERT_THAT(get(eth0Leaves(gnmi::JSON), json), IsOk());
  ASSERT_EQ(json.notification_size(), 3);
  for (const gnmi::Notification& n : json.notification()) {
    EXPECT_EQ(n.timestamp(), nanos(VEK_UTC));
    EXPECT_EQ(VekGnmi::pathString(n.prefix()), ETH0);
    EXPECT_EQ(n.update_size(), 1);
  }
}

TEST_F(AgentLibrary, GetInJsonGivesNumbersAndSecondsWithTheirFraction) {
  start();
  gnmi::GetResponse json;
  ASSERT_THAT(get(eth0Leaves(gnmi::JSON), json), IsOk());
  ASSERT_EQ(json.notification_size(), 3);
  EXPECT_EQ(json.notification(0).update(0).val().json_val(), "100");
  const std::string inPkts = json.notification(1).update(0).val().json_val();
  EXPECT_FALSE(inPkts.empty());
  EXPECT_NE(inPkts.front(), '"') << "a number in JSON";
  EXPECT_THAT(json.notification(2).update(0).val().json_val(), HasSubstr("."))
      << "seconds with their fraction";
}

TEST_F(AgentLibrary, GetInJsonIetfGivesSixtyFourBitIntegersAsStrings) {
  start();
  gnmi::GetResponse json;
  ASSERT_THAT(get(eth0Leaves(gnmi::JSON), json), IsOk());
  gnmi::GetResponse ietf;
  ASSERT_THAT(get(eth0Leaves(gnmi::JSON_IETF), ietf), IsOk());
  ASSERT_EQ(ietf.notification_size(), 3);
  EXPECT_EQ(ietf.notification(1).update(0).val().json_ietf_val(), "\"" + json.notification(1).update(0).val().json_val() + "\"");
}

TEST_F(AgentLibrary, GetInProtoGivesTheLibrarysTypedValues) {
  start();
  gnmi::GetResponse json;
  ASSERT_THAT(get(eth0Leaves(gnmi::JSON), json), IsOk());
  gnmi::GetResponse proto;
  ASSERT_THAT(get(eth0Leaves(gnmi::PROTO), proto), IsOk());
  ASSERT_EQ(proto.notification_size(), 3);
  EXPECT_EQ(proto.notification(0).update(0).val().double_val(), 100.0);
  EXPECT_EQ(std::to_string(proto.notification(1).update(0).val().uint_val()),
            json.notification(1).update(0).val().json_val());
}

TEST_F(AgentLibrary, GetOfConfigGivesTheWritableLeavesAndTheMembersOfWritableCollections) {
  start();
  const std::set<std::string> got = eth1LeavesOf(gnmi::GetRequest::CONFIG);
  // A member of a writable collection is configuration, its key with it.
  const std::string address = ETH1 + "/addresses[addressesKey=10.0.0.2]";
  EXPECT_EQ(got, (std::set<std::string>{ETH1 + "/description", ETH1 + "/mtu", ETH1 + "/enabled",
                                        address + "/prefixLength", address + "/origin", address + "/addressesKey"}));
}

TEST_F(AgentLibrary, GetOfStateGivesTheOtherLeaves) {
  start();
  const std::set<std::string> got = eth1LeavesOf(gnmi::GetRequest::STATE);
  EXPECT_TRUE(got.count(ETH1 + "/operStatus"));
  EXPECT_TRUE(got.count(ETH1 + "/counters/outOctets"));
  EXPECT_TRUE(got.count(ETH1 + "/name"));
  EXPECT_FALSE(got.count(ETH1 + "/mtu"));
}

TEST_F(AgentLibrary, GetOfAWildcardPathGivesEveryMembersLeafWithTheTarget) {
  start();
  gnmi::GetRequest wild;
  *wild.add_path() = P("/devices/dev1/interfaces[name=*]/mtu");
  wild.mutable_prefix()->set_target("dut");
  gnmi::GetResponse response;
  ASSERT_THAT(get(wild, response), IsOk());
  ASSERT_EQ(response.notification_size(), 1);
  EXPECT_EQ(response.notification(0).update_size(), 8);
  EXPECT_EQ(response.notification(0).prefix().target(), "dut");
}

// ---------------------------------------------------------------------------
// Set

// Updates and replaces of three entities below the device.
gnmi::SetRequest setOfThreeEntities() {
  gnmi::SetRequest set;
  *set.mutable_prefix() = P(DEV);
  *set.add_update() = jsonUpdate("system/hostname", R"("core1")");
  *set.add_update() = jsonUpdate("interfaces[name=eth1]/mtu", "9100");
  *set.add_replace() = jsonUpdate("interfaces[name=eth2]/description", R"("uplink")");
  *set.add_update() = jsonUpdate("interfaces[name=eth2]/enabled", "false");
  return set;
}

TEST_F(AgentLibrary, SetAnswersEachOperationInOrderWithTheTime) {
  start();
  gnmi::SetResponse response;
  ASSERT_THAT(set(setOfThreeEntities(), response), IsOk());
  EXPECT_EQ(response.timestamp(), fixture().clock().utcNanos());
  ASSERT_EQ(response.response_size(), 4);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::REPLACE);
  EXPECT_EQ(VekGnmi::pathString(response.response(0).path()), "/interfaces[name=eth2]/description");
  EXPECT_EQ(response.response(1).op(), gnmi::UpdateResult::UPDATE);
  EXPECT_EQ(VekGnmi::pathString(response.response(1).path()), "/system/hostname");
}

TEST_F(AgentLibrary, GetAfterASetAcrossEntitiesShowsEveryValueBelowTheRequestsPrefix) {
  start();
  gnmi::SetResponse response;
  ASSERT_THAT(set(setOfThreeEntities(), response), IsOk());
  // The notifications carry the request's prefix, the updates the paths
  // below it.
  gnmi::GetRequest get;
  *get.mutable_prefix() = P(DEV);
  *get.add_path() = P("system/hostname");
  *get.add_path() = P("interfaces[name=eth1]/mtu");
  *get.add_path() = P("interfaces[name=eth2]/description");
  *get.add_path() = P("interfaces[name=eth2]/enabled");
  gnmi::GetResponse got;
  ASSERT_THAT(this->get(get, got), IsOk());
  ASSERT_EQ(got.notification_size(), 4);
  EXPECT_EQ(VekGnmi::pathString(got.notification(0).prefix()), DEV);
  EXPECT_EQ(VekGnmi::pathString(got.notification(0).update(0).path()), "/system/hostname");
  EXPECT_THAT(flat(notificationsOf(got.notification())),
              ElementsAre(DEV + "/system/hostname=\"core1\"", DEV + "/interfaces[name=eth1]/mtu=9100",
                          DEV + "/interfaces[name=eth2]/description=\"uplink\"",
                          DEV + "/interfaces[name=eth2]/enabled=false"));
}

TEST_F(AgentLibrary, ASetWithOneRefusedOperationAppliesNothingOfTheRequest) {
  start();
  const std::string before = hostname();
  gnmi::SetRequest bad;
  *bad.mutable_prefix() = P(DEV);
  *bad.add_update() = jsonUpdate("system/hostname", R"("core2")");
  *bad.add_update() = jsonUpdate("interfaces[name=eth1]/mtu", "10");
  gnmi::SetResponse response;
  // The device's refusal is an invalid argument, not a path that was not
  // found (as the library's Set reports it).
  EXPECT_THAT(set(bad, response),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "the device refused /devices/dev1/interfaces[name=eth1]/mtu: mtu 10 is outside 64..9216; "
                       "nothing was changed"));
  EXPECT_EQ(hostname(), before);
  EXPECT_EQ(mtuOf("eth1"), 1500u);
}

TEST_F(AgentLibrary, ARefusedOperationUndoesTheWritesMadeBeforeItInTheSameEntity) {
  start();
  // The description is written before the refused MTU, then written back.
  gnmi::SetRequest badOne;
  *badOne.mutable_prefix() = P(ETH1);
  *badOne.add_update() = jsonUpdate("description", R"("never")");
  *badOne.add_update() = jsonUpdate("mtu", "10");
  gnmi::SetResponse response;
  EXPECT_THAT(set(badOne, response), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
  EXPECT_EQ(onLoop([&] { return interface("eth1")->value<Vek::String>("description").stdString(); }), "port 1");
}

TEST_F(AgentLibrary, SetTakesProtoTypedValuesAsTheyAre) {
  start();
  gnmi::SetRequest typed;
  gnmi::Update* u = typed.add_update();
  *u->mutable_path() = P(ETH0 + "/mtu");
  u->mutable_val()->set_uint_val(1400);
  gnmi::SetResponse response;
  ASSERT_THAT(set(typed, response), IsOk());
  EXPECT_EQ(mtuOf("eth0"), 1400u);
}

// ---------------------------------------------------------------------------
// Subscribe in every mode

const std::string ETH1_MTU = ETH1 + "/mtu";

TEST_F(AgentLibrary, OnceSendsTheSyncThenSyncResponseThenOk) {
  start();
  Stream once(fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {ETH1_MTU}, gnmi::JSON_IETF));
  EXPECT_THAT(flat(once.untilSync()), ElementsAre(ETH1_MTU + "=ietf:1500"));
  gnmi::SubscribeResponse r;
  EXPECT_FALSE(once.rw->Read(&r));
  EXPECT_THAT(once.finish(), IsOk());
}

TEST_F(AgentLibrary, PollSyncsAgainForEveryPoll) {
  start();
  Stream poll(fixture().stub(), subscription(gnmi::SubscriptionList::POLL, {ETH1_MTU}));
  EXPECT_THAT(flat(poll.untilSync()), ElementsAre(ETH1_MTU + "=1500"));
  mtuIs("eth1", 2000);
  poll.rw->Write(pollRequest());
  EXPECT_THAT(flat(poll.untilSync()), ElementsAre(ETH1_MTU + "=2000"));
  poll.close();
}

TEST_F(AgentLibrary, AHalfClosedPollStreamEndsWithOk) {
  start();
  Stream poll(fixture().stub(), subscription(gnmi::SubscriptionList::POLL, {ETH1_MTU}));
  poll.untilSync();
  poll.rw->WritesDone();
  gnmi::SubscribeResponse r;
  EXPECT_FALSE(poll.rw->Read(&r));
  EXPECT_THAT(poll.finish(), IsOk());
}

TEST_F(AgentLibrary, StreamOnChangeSendsEachChangeStampedWithTheTimeItWasMade) {
  start();
  expectChangeStampedWithItsTime(gnmi::ON_CHANGE, 2101, 5.0);
}

TEST_F(AgentLibrary, StreamTargetDefinedSendsEachChangeAsOnChangeDoes) {
  start();
  expectChangeStampedWithItsTime(gnmi::TARGET_DEFINED, 2100, 7.0);
}

TEST_F(AgentLibrary, StreamNotificationsCarryTheRequestsTarget) {
  start();
  gnmi::SubscribeRequest request = subscription(gnmi::SubscriptionList::STREAM, {ETH1_MTU}, gnmi::PROTO, gnmi::ON_CHANGE);
  request.mutable_subscribe()->mutable_prefix()->set_target("dut");
  Stream stream(fixture().stub(), request);
  const std::vector<gnmi::Notification> initial = stream.untilSync();
  ASSERT_THAT(initial, SizeIs(1));
  EXPECT_EQ(initial[0].prefix().target(), "dut");
  mtuIs("eth1", 2101);
  EXPECT_EQ(stream.next().prefix().target(), "dut");
  stream.close();
}

TEST_F(AgentLibrary, StreamWithUpdatesOnlySendsOnlyTheSyncResponseThenChanges) {
  start();
  gnmi::SubscribeRequest request = subscription(gnmi::SubscriptionList::STREAM, {ETH1_MTU}, gnmi::JSON, gnmi::ON_CHANGE);
  request.mutable_subscribe()->set_updates_only(true);
  Stream stream(fixture().stub(), request);
  EXPECT_THAT(stream.untilSync(), IsEmpty());
  mtuIs("eth1", 1600);
  EXPECT_THAT(flat({stream.next()}), ElementsAre(ETH1_MTU + "=1600"));
  stream.close();
}

TEST_F(AgentLibrary, SampleSendsTheLatestValueEveryInterval) {
  start();
  gnmi::SubscribeRequest request = subscription(gnmi::SubscriptionList::STREAM, {ETH1_MTU}, gnmi::JSON, gnmi::SAMPLE);
  request.mutable_subscribe()->mutable_subscription(0)->set_sample_interval(100000000);
  Stream stream(fixture().stub(), request);
  EXPECT_THAT(flat(stream.untilSync()), ElementsAre(ETH1_MTU + "=1500"));
  fixture().advance(100ms);
  EXPECT_THAT(flat({stream.next()}), ElementsAre(ETH1_MTU + "=1500"));
  mtuIs("eth1", 1600);
  fixture().advance(100ms);
  EXPECT_THAT(flat({stream.next()}), ElementsAre(ETH1_MTU + "=1600"));
  stream.close();
}

TEST_F(AgentLibrary, AStreamSeesAMemberRemovedAndCreatedAgain) {
  start();
  const std::string eth2 = "/devices/dev1/interfaces[name=eth2]";
  Stream stream(fixture().stub(),
                subscription(gnmi::SubscriptionList::STREAM, {eth2 + "/mtu"}, gnmi::JSON, gnmi::ON_CHANGE));
  EXPECT_THAT(flat(stream.untilSync()), ElementsAre(eth2 + "/mtu=1500"));
  onLoop([&] { ChurnSimulator(agent().model(), 0).recreate(2); });
  // The delete of the member, then the new member's mtu.
  std::vector<std::string> seen = flat({stream.next()});
  while (seen.size() < 2) {
    const std::vector<std::string> more = flat({stream.next()});
    seen.insert(seen.end(), more.begin(), more.end());
  }
  EXPECT_THAT(seen, ElementsAre("delete " + eth2, eth2 + "/mtu=1500"));
  stream.close();
}

// ---------------------------------------------------------------------------
// Large syncs, many subscribers, slow and vanished subscribers

// Each interface publishes 19 leaves (its address's key among them), its
// route 5, a neighbour 5 per four interfaces, plus the device's name and its
// system (10 leaves and its name).
constexpr size_t leavesOfDevice(size_t interfaces) { return interfaces * 24 + (interfaces / 4) * 5 + 1 + 11; }

TEST_F(AgentLibrary, ALargeSyncPausesManyTimesAndPublishesEveryLeafOnce) {
  start(options(/*interfaces=*/1500, /*syncLimit=*/8));
  Stream stream(fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::PROTO));
  const std::vector<gnmi::Notification> synced = stream.untilSync();
  EXPECT_THAT(stream.finish(), IsOk());
  EXPECT_GT(onLoop([&] { return agent().bridge().resumes(); }), 100u)
      << "the sync should have paused on its small queue again and again";
  EXPECT_EQ(updateCount(synced), leavesOfDevice(1500));
  EXPECT_EQ(leaves(synced).size(), leavesOfDevice(1500)) << "no leaf twice";
}

TEST_F(AgentLibrary, AGetOfALargeDeviceAnswersEveryLeaf) {
  start(options(/*interfaces=*/1500, /*syncLimit=*/8));
  gnmi::GetRequest request;
  *request.add_path() = P(DEV);
  request.set_encoding(gnmi::PROTO);
  gnmi::GetResponse got;
  ASSERT_THAT(get(request, got), IsOk());
  ASSERT_EQ(got.notification_size(), 1);
  EXPECT_EQ(static_cast<size_t>(got.notification(0).update_size()), leavesOfDevice(1500));
}

TEST_F(AgentLibrary, AHundredSubscribersEachGetTheFullSyncAndTheirChanges) {
  // A small queue: the fifty device syncs pause and are resumed in turns.
  start(options(/*interfaces=*/8, /*syncLimit=*/4));
  constexpr int N = 100;
  std::vector<std::unique_ptr<gnmi::gNMI::Stub>> stubs;
  std::vector<std::unique_ptr<Stream>> streams;
  // Even subscribers watch one interface's mtu, odd ones the whole device.
  auto mtuPath = [](int i) { return DEV + "/interfaces[name=eth" + std::to_string(i % 8) + "]/mtu"; };
  for (int i = 0; i < N; ++i) {
    stubs.push_back(fixture().newStub());
    const std::string path = i % 2 == 0 ? mtuPath(i) : DEV;
    streams.push_back(std::make_unique<Stream>(
        *stubs.back(), subscription(gnmi::SubscriptionList::STREAM, {path}, gnmi::JSON, gnmi::ON_CHANGE)));
  }
  for (int i = 0; i < N; ++i) {
    const std::vector<gnmi::Notification> synced = streams[i]->untilSync();
    EXPECT_EQ(updateCount(synced), i % 2 == 0 ? 1u : leavesOfDevice(8)) << i;
    EXPECT_EQ(leaves(synced).size(), i % 2 == 0 ? 1u : leavesOfDevice(8)) << i;
  }
  onLoop([&] {
    for (int k = 0; k < 8; ++k) interface(("eth" + std::to_string(k)).c_str())->valueIs("mtu", 3000u + k);
  });
  for (int i = 0; i < N; i += 2) {
    EXPECT_THAT(flat({streams[i]->next()}), ElementsAre(mtuPath(i) + "=" + std::to_string(3000 + i % 8))) << i;
  }
  std::vector<std::string> allMtus;
  for (int k = 0; k < 8; ++k) allMtus.push_back(mtuPath(k) + "=" + std::to_string(3000 + k));
  for (int i = 1; i < N; i += 2) {
    EXPECT_THAT(flat(readUpdates(*streams[i], 8)), ::testing::UnorderedElementsAreArray(allMtus)) << i;
  }
  for (auto& stream : streams) stream->close();
}

// A sync of the root whose client reads nothing: its queue fills, and the
// walk of the root, shared by every sync of it, waits for it.
class HeldWalk : public AgentLibrary {
 protected:
  static constexpr size_t INTERFACES = 200;

  void SetUp() override {
    start(options(INTERFACES, /*syncLimit=*/4));
    stalledStub_ = fixture().newSmallWindowStub();
    stalled_ = std::make_unique<Stream>(*stalledStub_, subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::JSON));
    ASSERT_TRUE(waitUntil([&] { return agent().bridge().pausedWalks() > 0; }));
  }
  void TearDown() override {
    if (stalled_) stalled_->close();
    AgentLibrary::TearDown();
  }

  std::unique_ptr<gnmi::gNMI::Stub> stalledStub_;
  std::unique_ptr<Stream> stalled_;
};

// Whenever the walk waits for a full subscriber, the test lets the hold pass
// (on both clocks: the library's hold runs on the runtime's, the pump's
// timer that comes back for it on the agent's). The other sync of the root,
// whose client reads, then gets every leaf and ends, the non-reader
// notwithstanding. (A reader found full when a hold passes falls behind the
// walk and takes again what it missed, so a leaf may come twice.)
TEST_F(HeldWalk, GoesOnForTheOthersEachTimeAFullSubscriberHasHeldItForTheHoldTime) {
  Stream reader(fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::JSON));
  ASSERT_TRUE(waitUntil([&] { return agent().router().activeSyncs() == 2; }));
  std::vector<gnmi::Notification> synced;
  std::thread read([&] { synced = reader.untilSync(); });
  const auto hold = std::chrono::duration_cast<VekGnmi::Server::Clock::Duration>(
      std::chrono::duration<double>(Ostrel::SyncScheduler::DEFAULT_HOLD));
  int holds = 0;
  for (bool held = true; held && holds < 10000;) {
    // Held: the library waits for a time still to come.
    const bool reached = waitUntil([&] {
      const auto in = agent().bridge().wakeIn();
      held = in && in->count() > 0;
      return held || agent().router().activeSyncs() == 1;
    });
    EXPECT_TRUE(reached);
    if (!reached) break;
    if (held) {
      ++holds;
      onLoop([&] {
        vekClock_.advance(Ostrel::SyncScheduler::DEFAULT_HOLD);
        fixture().clock().advance(hold);
      });
    }
  }
  read.join();
  EXPECT_GE(holds, 1) << "the reader's sync shares the held walk";
  EXPECT_EQ(leaves(synced).size(), leavesOfDevice(INTERFACES)) << "every leaf";
  EXPECT_THAT(reader.finish(), IsOk());
}

// A subscriber that never reads, of the system and every interface's
// counters: the system comes first in its sync, with a message of the day
// larger than the subscriber's receive window, so its first write, started
// before any test moves the clock, never completes. Beside it a subscriber
// of eth0's counters that reads.
class StalledSubscriber : public AgentLibrary {
 protected:
  static constexpr size_t INTERFACES = 200;
  static constexpr auto SEND_TIMEOUT = 5s;

  void SetUp() override {
    start(options(INTERFACES, 64, SEND_TIMEOUT));
    onLoop([&] {
      agent().model().device->entity("system")->valueIs("motd", ("\"" + std::string(200000, 'm') + "\"").c_str());
    });
    stalledStub_ = fixture().newSmallWindowStub();
    stalled_ = std::make_unique<Stream>(
        *stalledStub_, subscription(gnmi::SubscriptionList::STREAM,
                                    {DEV + "/system", DEV + "/interfaces[name=*]/counters"}, gnmi::JSON,
                                    gnmi::ON_CHANGE));
    readerStub_ = fixture().newStub();
    reader_ = std::make_unique<Stream>(
        *readerStub_, subscription(gnmi::SubscriptionList::STREAM, {ETH0 + "/counters"}, gnmi::PROTO, gnmi::ON_CHANGE));
    EXPECT_EQ(updateCount(reader_->untilSync()), 8u);
    // The stalled subscriber's sync has started: its first message went out.
    ASSERT_TRUE(waitUntil([&] { return agent().subscriptionCount() == 2 && agent().bridge().pausedWalks() > 0; }));
  }
  void TearDown() override {
    for (auto* stream : {reader_.get(), stalled_.get()}) {
      if (stream) stream->close();
    }
    AgentLibrary::TearDown();
  }

  // eth0's counters advance and the reader sees them.
  void readerSeesACounterChange() {
    onLoop([&] { ChurnSimulator(agent().model(), 0).advanceCounters(0); });
    EXPECT_GE(updateCount(readUpdates(*reader_, 4)), 4u) << "inPkts, outPkts, inOctets and outOctets advance";
  }

  std::unique_ptr<gnmi::gNMI::Stub> stalledStub_;
  std::unique_ptr<gnmi::gNMI::Stub> readerStub_;
  std::unique_ptr<Stream> stalled_;
  std::unique_ptr<Stream> reader_;
};

TEST_F(StalledSubscriber, StaysBoundedToOneQueuedChangePerLeafWhileOthersGetTheirChanges) {
  std::mt19937_64 random(7);
  for (int round = 0; round < 40; ++round) {
    onLoop([&] {
      ChurnSimulator churn(agent().model(), 0, round);
      for (int k = 0; k < 200; ++k) churn.advanceCounters(1 + random() % (INTERFACES - 1));
    });
    readerSeesACounterChange();
  }
  const size_t queued = onLoop([&] { return agent().maxChangesQueued(); });
  EXPECT_GT(queued, 0u);
  EXPECT_LE(queued, INTERFACES * 8) << "bounded by the distinct counters";
}

TEST_F(StalledSubscriber, IsEndedAfterTheSendTimeoutWhileOthersCarryOn) {
  // Up to a check period short of the timeout nobody is ended.
  fixture().advance(SEND_TIMEOUT - VekGnmi::Server::SubscribeRpc::SLOW_CHECK_PERIOD);
  EXPECT_EQ(onLoop([&] { return agent().liveSubscriptionCount(); }), 2u);
  // The reader's writes from now on start at this time, so none of them has
  // been blocked for the timeout at the next check; the stalled write has.
  readerSeesACounterChange();
  fixture().advance(VekGnmi::Server::SubscribeRpc::SLOW_CHECK_PERIOD);
  ASSERT_TRUE(waitUntil([&] { return agent().liveSubscriptionCount() == 1; }));
  readerSeesACounterChange();
  // The stalled client, reading at last, finds the status: it was sent with
  // the cancellation, ahead of the message its flow control held back.
  EXPECT_THAT(stalled_->end(), StatusIs(grpc::StatusCode::RESOURCE_EXHAUSTED,
                                        "the subscriber has not read for 5 s; the stream is ended"));
}

TEST_F(AgentLibrary, CancellingALargeSyncMidwayLeavesNoWalkBehind) {
  start(options(/*interfaces=*/1500, /*syncLimit=*/4));
  auto stub = fixture().newSmallWindowStub();
  {
    Stream stream(*stub, subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::JSON));
    gnmi::SubscribeResponse r;
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(stream.rw->Read(&r));
    ASSERT_TRUE(waitUntil([&] { return agent().bridge().pausedWalks() > 0; }));
    stream.close();
  }
  ASSERT_TRUE(waitUntil([&] { return agent().subscriptionCount() == 0; }));
  EXPECT_TRUE(idle()) << onLoop([] { return Ostrel::FullVekTypeWalker::dumpPathWalkIdMap(); });
  // Deletes under the paths the cancelled walk had queued find nothing stale.
  onLoop([&] {
    ChurnSimulator churn(agent().model(), 0);
    for (size_t i = 0; i < 1500; i += 7) churn.recreate(i);
  });
  gnmi::GetRequest get;
  *get.add_path() = P("/devices/dev1/interfaces[name=eth7]/mtu");
  gnmi::GetResponse got;
  EXPECT_THAT(this->get(get, got), IsOk());
}

// ---------------------------------------------------------------------------
// Syncs under churn

// A client's view of the model: leaves by full path, updated and deleted as
// notifications arrive.
struct View {
  std::map<std::string, gnmi::TypedValue> leaves;
  void apply(const gnmi::Notification& n) {
    for (const gnmi::Path& d : n.delete_()) {
      const std::string gone = VekGnmi::joinedPathString(n.prefix(), d);
      for (auto it = leaves.lower_bound(gone); it != leaves.end() && it->first.rfind(gone, 0) == 0;) {
        const char next = it->first.size() > gone.size() ? it->first[gone.size()] : '/';
        it = next == '/' ? leaves.erase(it) : std::next(it);
      }
    }
    for (const gnmi::Update& u : n.update()) leaves[VekGnmi::joinedPathString(n.prefix(), u.path())] = u.val();
  }
};

// Syncs read slowly (a few messages at a time, on a small queue, so that
// they pause again and again) while, after every few messages read, the test
// removes and re-creates interfaces and changes counters and statuses on the
// loop, for as long as a sync runs. Once the syncs have ended the model no
// longer changes, so what lives at their end is what a Get returns then.
class UnderChurn : public AgentLibrary {
 protected:
  static constexpr size_t INTERFACES = 120;
  static constexpr int EVERY = 3;  // messages read between churn steps

  // One step of churn, only while a sync runs; false when none does.
  bool churnWhileSyncing(uint64_t step) {
    return onLoop([&] {
      if (agent().router().activeSyncs() == 0) return false;
      ChurnSimulator churn(agent().model(), 0, step);
      std::mt19937_64 random(step);
      // eth0 is left alone: its description marks the end (see below).
      const auto any = [&] { return 1 + random() % (INTERFACES - 1); };
      for (int k = 0; k < 2; ++k) churn.recreate(any());
      for (int k = 0; k < 5; ++k) churn.advanceCounters(any());
      churn.flapStatus(any());
      return true;
    });
  }
  // Reads up to the next sync_response, churning every `every` messages (0:
  // never) with the next of `steps`; returns the notifications before it.
  std::vector<gnmi::Notification> readWithChurn(Stream& stream, std::atomic<uint64_t>& steps, int every = EVERY) {
    std::vector<gnmi::Notification> out;
    gnmi::SubscribeResponse r;
    int sinceChurn = 0;
    while (stream.rw->Read(&r)) {
      if (r.sync_response()) return out;
      if (r.has_update()) out.push_back(r.update());
      if (++sinceChurn == every) {
        sinceChurn = 0;
        churnWhileSyncing(++steps);
      }
    }
    ADD_FAILURE() << "the stream ended before its sync_response";
    return out;
  }
  // Marks the end of the changes of the syncs' time (changes go out in the
  // order their leaves were first queued, so the marker is a leaf that churn
  // never queued), then reads `stream` into `view` up to the marker.
  void markTheEnd() {
    onLoop([&] { interface("eth0")->valueIs("description", "marker"); });
  }
  void readUpToTheMarker(Stream& stream, View& view) {
    const std::string marker = ETH0 + "/description";
    while (true) {
      const gnmi::Notification n = stream.next();
      view.apply(n);
      const auto it = view.leaves.find(marker);
      if (it != view.leaves.end() && it->second.string_val() == "marker") break;
      if (n.update_size() + n.delete__size() == 0) break;
    }
  }
  std::map<std::string, gnmi::TypedValue> truth(const std::string& path) {
    gnmi::GetRequest get;
    *get.add_path() = P(path);
    get.set_encoding(gnmi::PROTO);
    gnmi::GetResponse got;
    EXPECT_THAT(this->get(get, got), IsOk());
    return leaves(notificationsOf(got.notification()));
  }
  static void expectSamePaths(const std::map<std::string, gnmi::TypedValue>& received,
                              const std::map<std::string, gnmi::TypedValue>& model) {
    std::vector<std::string> missing, extra;
    for (const auto& [path, value] : model) {
      if (!received.contains(path)) missing.push_back(path);
    }
    for (const auto& [path, value] : received) {
      if (!model.contains(path)) extra.push_back(path);
    }
    EXPECT_THAT(missing, IsEmpty());
    EXPECT_THAT(extra, IsEmpty());
  }
  static void expectSameValues(const std::map<std::string, gnmi::TypedValue>& received,
                               const std::map<std::string, gnmi::TypedValue>& model) {
    std::vector<std::string> stale;
    for (const auto& [path, value] : received) {
      const auto it = model.find(path);
      if (it != model.end() && it->second.SerializeAsString() != value.SerializeAsString()) {
        stale.push_back(path + " = " + value.ShortDebugString() + ", truth " + it->second.ShortDebugString());
      }
    }
    EXPECT_THAT(stale, IsEmpty());
  }
};

// ONCE, POLL and STREAM, of the whole model and of a wildcard list. ONCE and
// POLL must have published every leaf that lives at their end, and nothing
// that does not; a STREAM subscriber's view (updates and deletes applied)
// must equal the model.
struct ChurnCase {
  gnmi::SubscriptionList::Mode mode;
  const char* path;
};
void PrintTo(const ChurnCase& c, std::ostream* os) {
  *os << gnmi::SubscriptionList::Mode_Name(c.mode) << " of " << c.path;
}

class SyncUnderChurn : public UnderChurn, public ::testing::WithParamInterface<ChurnCase> {};

TEST_P(SyncUnderChurn, PublishesEveryLeafLiveAtItsEndAndNothingGone) {
  const ChurnCase c = GetParam();
  start(options(INTERFACES, /*syncLimit=*/4));
  auto stub = fixture().newSmallWindowStub();
  Stream stream(*stub, subscription(c.mode, {c.path}, gnmi::PROTO, gnmi::ON_CHANGE), 60);
  std::atomic<uint64_t> steps{0};
  if (c.mode == gnmi::SubscriptionList::POLL) {
    stream.untilSync();  // the first sync, then a poll under churn
    ASSERT_TRUE(stream.rw->Write(pollRequest()));
  }
  const std::vector<gnmi::Notification> synced = readWithChurn(stream, steps);
  EXPECT_GT(steps.load(), 10u) << "the sync should have been interrupted by churn many times";
  EXPECT_FALSE(churnWhileSyncing(steps + 1)) << "no sync runs after the sync_response";
  if (c.mode != gnmi::SubscriptionList::STREAM) {
    expectSamePaths(leaves(synced), truth(c.path));
  } else {
    View view;
    for (const gnmi::Notification& n : synced) view.apply(n);
    markTheEnd();
    readUpToTheMarker(stream, view);
    const auto model = truth(c.path);
    expectSamePaths(view.leaves, model);
    expectSameValues(view.leaves, model);
  }
  stream.close();
}

INSTANTIATE_TEST_SUITE_P(
    AgentLibrary, SyncUnderChurn,
    ::testing::Values(ChurnCase{gnmi::SubscriptionList::ONCE, "/"},
                      ChurnCase{gnmi::SubscriptionList::ONCE, "/devices/dev1/interfaces[name=*]"},
                      ChurnCase{gnmi::SubscriptionList::POLL, "/"},
                      ChurnCase{gnmi::SubscriptionList::POLL, "/devices/dev1/interfaces[name=*]"},
                      ChurnCase{gnmi::SubscriptionList::STREAM, "/"},
                      ChurnCase{gnmi::SubscriptionList::STREAM, "/devices/dev1/interfaces[name=*]"}),
    [](const ::testing::TestParamInfo<ChurnCase>& param) {
      const std::string mode = param.param.mode == gnmi::SubscriptionList::ONCE   ? "Once"
                               : param.param.mode == gnmi::SubscriptionList::POLL ? "Poll"
                                                                                 : "Stream";
      return mode + (std::string(param.param.path) == "/" ? "OfTheRoot" : "OfAWildcardList");
    });

// Several STREAM subscribers of the root at once, each read on a thread of
// its own: their syncs share walks, which members removed under churn cut
// short (the work queued behind a removed member is synced again); the
// first reader churns after every few messages it reads. Each view must end
// equal to the model: nothing stale, nothing of a removed interface, nothing
// missing.
class SharedSyncUnderChurn : public UnderChurn {};

TEST_F(SharedSyncUnderChurn, EverySubscribersViewEndsEqualToTheModel) {
  constexpr int SUBSCRIBERS = 3;
  start(options(INTERFACES, /*syncLimit=*/4));
  std::vector<std::unique_ptr<gnmi::gNMI::Stub>> stubs;
  std::vector<std::unique_ptr<Stream>> streams;
  for (int i = 0; i < SUBSCRIBERS; ++i) {
    stubs.push_back(fixture().newSmallWindowStub());
    streams.push_back(std::make_unique<Stream>(
        *stubs.back(), subscription(gnmi::SubscriptionList::STREAM, {"/"}, gnmi::PROTO, gnmi::ON_CHANGE), 60));
  }
  std::atomic<uint64_t> steps{0};
  std::vector<View> views(SUBSCRIBERS);
  std::vector<std::thread> readers;
  for (int i = 0; i < SUBSCRIBERS; ++i) {
    readers.emplace_back([&, i] {
      for (const gnmi::Notification& n : readWithChurn(*streams[i], steps, i == 0 ? EVERY : 0)) views[i].apply(n);
    });
  }
  for (std::thread& t : readers) t.join();
  EXPECT_GT(steps.load(), 10u) << "the syncs should have been interrupted by churn many times";
  markTheEnd();
  for (int i = 0; i < SUBSCRIBERS; ++i) readUpToTheMarker(*streams[i], views[i]);
  const auto model = truth("/");
  for (int i = 0; i < SUBSCRIBERS; ++i) {
    SCOPED_TRACE("subscriber " + std::to_string(i));
    expectSamePaths(views[i].leaves, model);
    expectSameValues(views[i].leaves, model);
  }
  for (auto& stream : streams) stream->close();
}

// ---------------------------------------------------------------------------
// Shutdown

// A subscriber whose root sync is paused on a client that does not read,
// and one of eth0 whose sync is done.
class AgentLibraryShutdown : public AgentLibrary {
 protected:
  void SetUp() override {
    start(options(/*interfaces=*/200, /*syncLimit=*/4));
    stalledStub_ = fixture().newSmallWindowStub();
    syncing_ = std::make_unique<Stream>(*stalledStub_, subscription(gnmi::SubscriptionList::STREAM, {"/"}, gnmi::JSON));
    streaming_ = std::make_unique<Stream>(fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
    streaming_->untilSync();
    ASSERT_TRUE(waitUntil([&] { return agent().bridge().pausedWalks() > 0; }));
  }

  std::unique_ptr<gnmi::gNMI::Stub> stalledStub_;
  std::unique_ptr<Stream> syncing_;
  std::unique_ptr<Stream> streaming_;
};

TEST_F(AgentLibraryShutdown, EndsSyncingAndStreamingSubscribersWithUnavailable) {
  fixture().stop();
  for (Stream* stream : {syncing_.get(), streaming_.get()}) {
    EXPECT_THAT(stream->end(), StatusIs(grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"));
  }
  destroy();
}

TEST_F(AgentLibraryShutdown, LeavesNothingRegisteredInTheLibrary) {
  fixture().stop();
  for (Stream* stream : {syncing_.get(), streaming_.get()}) stream->end();
  destroy();
  // The model has ended with the agent: its notifiees with it, no walk left.
  EXPECT_TRUE(Ostrel::gNmiNotifieeMap.empty()) << Ostrel::GifGnmiNotifiee::dumpGnmiNotifieeMap();
  EXPECT_TRUE(Ostrel::notifieePathMap.empty());
  EXPECT_EQ(Ostrel::FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_TRUE(Ostrel::staticPathWalkIdMap.empty());
}

// ---------------------------------------------------------------------------
// vekgnmi against the agent

TEST_F(AgentLibrary, ClientGetPrintsTheLeafAndItsValue) {
  start();
  EXPECT_THAT(clientLines(fixture().address(), {"get", "--path", ETH1_MTU}),
              ElementsAre(HasSubstr(R"({"path":"/devices/dev1/interfaces[name=eth1]/mtu","value":1500})")));
}

TEST_F(AgentLibrary, ClientSetPrintsEachOperation) {
  start();
  EXPECT_THAT(clientLines(fixture().address(), {"set", "--update", ETH1_MTU + "=9000"}),
              ElementsAre(HasSubstr(R"("op":"UPDATE")")));
  EXPECT_EQ(mtuOf("eth1"), 9000u);
}

TEST_F(AgentLibrary, ClientSubscribeOncePrintsTheValueThenTheSyncResponse) {
  start();
  mtuIs("eth1", 9000);
  EXPECT_THAT(clientLines(fixture().address(), {"subscribe", "--mode", "once", "--path", ETH1_MTU}),
              ElementsAre(HasSubstr(R"("value":9000)"), R"({"sync_response":true})"));
}

}  // namespace
