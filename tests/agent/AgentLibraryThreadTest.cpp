// vekgnmid with the library itself, end to end over a real gRPC channel on a
// loopback port: what the library publishes for the demo model and where,
// Get, Set and Subscribe in every mode and encoding, large syncs that pause
// many times, many subscribers, a subscriber that never reads, cancellation
// mid-sync, interfaces removed and re-created while syncs run, and shutdown
// with streams open. Changes are made on the agent's event loop by the
// tests (the change simulator's single steps), so that what a client must
// see is known.
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
#include <Ostrel/VekTypeWalker.h>

#include "AgentFixture.h"
#include "DemoModel.h"
#include "Router.h"
#include "ModelSchema.h"
#include "PathResolver.h"
#include "SubscribeClient.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;
using VekGnmi::Server::ChurnSimulator;

const char* const DEV = "/devices/dev1";
const char* const ETH0 = "/devices/dev1/interfaces[name=eth0]";
const char* const ETH1 = "/devices/dev1/interfaces[name=eth1]";

AgentOptions options(size_t interfaces = 8, size_t syncLimit = 64,
                     std::chrono::milliseconds sendTimeout = std::chrono::seconds(30)) {
  AgentOptions o;
  o.interfaces = interfaces;
  o.syncQueueLimit = syncLimit;
  o.sendTimeout = sendTimeout;
  return o;
}

class Live {
 public:
  explicit Live(AgentOptions o = options()) : fixture_(std::move(o), VekGnmi::Server::makeLibraryBridge) {}

  template <typename Fn>
  auto onLoop(Fn fn) {
    return fixture_.agent().loop().call(fn);
  }
  AgentFixture& fixture() { return fixture_; }
  VekGnmi::Server::Agent& agent() { return fixture_.agent(); }

  // Polls `pred` on the loop until it holds or `seconds` pass.
  template <typename Pred>
  bool waitFor(Pred pred, int seconds = 20) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) {
      if (onLoop(pred)) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return onLoop(pred);
  }

  // No sync, walk or path of a walk left anywhere.
  bool idle() {
    return onLoop([&] {
      return agent().router().activeSyncs() == 0 && agent().bridge().pausedWalks() == 0 &&
             agent().bridge().walkMapSize() == 0 && agent().bridge().pathWalkMapSize() == 0;
    });
  }

  grpc::Status get(const gnmi::GetRequest& request, gnmi::GetResponse& response) {
    grpc::ClientContext context;
    withDeadline(context, 60);
    return fixture_.stub().Get(&context, request, &response);
  }
  grpc::Status set(const gnmi::SetRequest& request, gnmi::SetResponse& response) {
    grpc::ClientContext context;
    withDeadline(context);
    return fixture_.stub().Set(&context, request, &response);
  }

 private:
  AgentFixture fixture_;
};

// Every leaf of `notifications` by its full path, as the library typed it.
std::map<std::string, gnmi::TypedValue> leaves(const std::vector<gnmi::Notification>& notifications) {
  std::map<std::string, gnmi::TypedValue> out;
  for (const gnmi::Notification& n : notifications) {
    for (const gnmi::Update& u : n.update()) out[VekGnmi::joinedPathString(n.prefix(), u.path())] = u.val();
  }
  return out;
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

void closeStream(Stream& stream) {
  stream.context.TryCancel();
  stream.rw->Finish();
}

TEST(AgentLibrary, EveryEntityIsPublishedOnceAtThePathTheAgentResolves) {
  Live live;
  // A member synced directly first, then everything: the walker must name
  // the member as the agent did, or the entity gets a second notifiee.
  {
    Stream member(live.fixture().stub(),
                  subscription(gnmi::SubscriptionList::STREAM, {"/devices/dev1/interfaces[name=eth3]"}));
    member.untilSync();
    Stream all(live.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::PROTO));
    const std::vector<gnmi::Notification> got = all.untilSync();
    EXPECT_TRUE(all.rw->Finish().ok());

    std::set<std::string> prefixes;
    for (const gnmi::Notification& n : got) {
      prefixes.insert(VekGnmi::pathString(n.prefix()));
      EXPECT_GT(n.timestamp(), 0) << n.ShortDebugString();
    }
    std::set<std::string> expected{DEV, "/devices/dev1/system", "/devices/dev1/neighbors[name=nbr0]",
                                   "/devices/dev1/neighbors[name=nbr1]"};
    for (int i = 0; i < 8; ++i) expected.insert("/devices/dev1/interfaces[name=eth" + std::to_string(i) + "]");
    EXPECT_EQ(prefixes, expected);

    live.onLoop([&] {
      // One notifiee per entity, each at the path the agent resolves for it.
      EXPECT_EQ(Ostrel::gNmiNotifieeMap.size(), expected.size()) << Ostrel::GifGnmiNotifiee::dumpGnmiNotifieeMap();
      VekGnmi::Server::ModelSchema schema(live.agent().model().root, VekGnmi::Server::isStateAttribute);
      for (const std::string& prefix : expected) {
        VekGnmi::Server::Resolution r;
        ASSERT_TRUE(VekGnmi::Server::resolvePath(schema, P(prefix), r).ok()) << prefix;
        ASSERT_EQ(r.cover.size(), 1u) << prefix;
        EXPECT_EQ(VekGnmi::pathString(r.cover[0].path), prefix);
        const auto it = Ostrel::notifieePathMap.find(r.cover[0].entity.ptr());
        ASSERT_NE(it, Ostrel::notifieePathMap.end()) << prefix;
        EXPECT_EQ(VekGnmi::pathString(it->second), prefix);
      }
      // The agent knows the runtime type of every published leaf.
      for (const gnmi::Notification& n : got) {
        for (const gnmi::Update& u : n.update()) {
          EXPECT_NE(schema.leafOf(n.prefix(), u.path()), nullptr) << VekGnmi::joinedPathString(n.prefix(), u.path());
        }
      }
    });

    const std::map<std::string, gnmi::TypedValue> all_ = leaves(got);
    auto at = [&](const std::string& path) {
      const auto it = all_.find(path);
      EXPECT_NE(it, all_.end()) << path;
      return it == all_.end() ? gnmi::TypedValue() : it->second;
    };
    const std::string eth0 = ETH0;
    EXPECT_EQ(at(eth0 + "/name").string_val(), "eth0");
    EXPECT_EQ(at(eth0 + "/mtu").uint_val(), 9000u);
    EXPECT_TRUE(at(eth0 + "/enabled").bool_val());
    // Floating-point leaves go out as double_val (the library sends 8 bytes).
    EXPECT_EQ(at(eth0 + "/speed").double_val(), 100.0);
    EXPECT_EQ(at(eth0 + "/operStatus").string_val(), "up");
    EXPECT_GT(at(eth0 + "/lastChange").int_val(), 1600000000000000000);
    EXPECT_TRUE(at(eth0 + "/counters/inPkts").has_uint_val());
    EXPECT_EQ(at(eth0 + "/addresses[addressesKey=10.0.0.0]/prefixLength").uint_val(), 31u);
    EXPECT_EQ(at(eth0 + "/addresses[addressesKey=10.0.0.0]/origin").string_val(), "static");
    EXPECT_EQ(at("/devices/dev1/routes[routesKey=10.0.0.2/31]/nextHop").string_val(), "10.0.0.3");
    EXPECT_EQ(at("/devices/dev1/routes[routesKey=10.0.0.2/31]/protocol").string_val(), "connected");
    EXPECT_EQ(at("/devices/dev1/neighbors[name=nbr1]/interface_ptr").string_val(),
              "/devices/dev1/interfaces[name=eth4]");
    EXPECT_EQ(at("/devices/dev1/system/motd").json_val(), R"({"banner":"welcome"})");
    EXPECT_EQ(at("/devices/dev1/system/cpuLoad").double_val(), 0.25);
    closeStream(member);
  }
  EXPECT_TRUE(live.waitFor([&] { return live.agent().subscriptionCount() == 0; }));
  EXPECT_TRUE(live.idle());
}

TEST(AgentLibrary, GetInEveryEncodingAndDataType) {
  Live live;
  gnmi::GetRequest r;
  *r.mutable_prefix() = P(ETH0);
  *r.add_path() = P("speed");
  *r.add_path() = P("counters/inPkts");
  *r.add_path() = P("lastChange");
  gnmi::GetResponse json;
  ASSERT_TRUE(live.get(r, json).ok());
  ASSERT_EQ(json.notification_size(), 3);
  for (const gnmi::Notification& n : json.notification()) {
    EXPECT_GT(n.timestamp(), 0);
    EXPECT_EQ(VekGnmi::pathString(n.prefix()), ETH0);
    ASSERT_EQ(n.update_size(), 1);
  }
  EXPECT_EQ(json.notification(0).update(0).val().json_val(), "100");
  const std::string inPkts = json.notification(1).update(0).val().json_val();
  EXPECT_FALSE(inPkts.empty());
  EXPECT_NE(inPkts.front(), '"') << "a number in JSON";
  EXPECT_NE(json.notification(2).update(0).val().json_val().find('.'), std::string::npos)
      << "seconds with their fraction: " << json.notification(2).update(0).val().json_val();

  r.set_encoding(gnmi::JSON_IETF);
  gnmi::GetResponse ietf;
  ASSERT_TRUE(live.get(r, ietf).ok());
  EXPECT_EQ(ietf.notification(1).update(0).val().json_ietf_val(), "\"" + inPkts + "\"")
      << "64-bit integers are strings in JSON_IETF";

  r.set_encoding(gnmi::PROTO);
  gnmi::GetResponse proto;
  ASSERT_TRUE(live.get(r, proto).ok());
  EXPECT_EQ(proto.notification(0).update(0).val().double_val(), 100.0);
  EXPECT_EQ(std::to_string(proto.notification(1).update(0).val().uint_val()), inPkts);

  // Data types: CONFIG the writable leaves, STATE the others.
  gnmi::GetRequest config;
  *config.add_path() = P(ETH1);
  config.set_type(gnmi::GetRequest::CONFIG);
  gnmi::GetResponse configResponse;
  ASSERT_TRUE(live.get(config, configResponse).ok());
  std::set<std::string> configLeaves;
  for (const gnmi::Update& u : configResponse.notification(0).update()) {
    configLeaves.insert(VekGnmi::pathString(u.path()));
  }
  const std::string eth1 = ETH1;
  // A member of a writable collection is configuration, its key with it.
  const std::string address = eth1 + "/addresses[addressesKey=10.0.0.2]";
  EXPECT_EQ(configLeaves, (std::set<std::string>{eth1 + "/description", eth1 + "/mtu", eth1 + "/enabled",
                                                 address + "/prefixLength", address + "/origin",
                                                 address + "/addressesKey"}));
  config.set_type(gnmi::GetRequest::STATE);
  gnmi::GetResponse stateResponse;
  ASSERT_TRUE(live.get(config, stateResponse).ok());
  std::set<std::string> stateLeaves;
  for (const gnmi::Update& u : stateResponse.notification(0).update()) {
    stateLeaves.insert(VekGnmi::pathString(u.path()));
  }
  EXPECT_TRUE(stateLeaves.count(eth1 + "/operStatus"));
  EXPECT_TRUE(stateLeaves.count(eth1 + "/counters/outOctets"));
  EXPECT_TRUE(stateLeaves.count(eth1 + "/name"));
  EXPECT_FALSE(stateLeaves.count(eth1 + "/mtu"));

  // Wildcards: every member's leaf, from the root.
  gnmi::GetRequest wild;
  *wild.add_path() = P("/devices/dev1/interfaces[name=*]/mtu");
  wild.mutable_prefix()->set_target("dut");
  gnmi::GetResponse wildResponse;
  ASSERT_TRUE(live.get(wild, wildResponse).ok());
  EXPECT_EQ(wildResponse.notification(0).update_size(), 8);
  EXPECT_EQ(wildResponse.notification(0).prefix().target(), "dut");
  EXPECT_TRUE(live.idle());
}

TEST(AgentLibrary, SetAppliesAllOrNothingAcrossEntitiesAndGetShowsIt) {
  Live live;
  gnmi::SetRequest set;
  *set.mutable_prefix() = P(DEV);
  *set.add_update() = jsonUpdate("system/hostname", R"("core1")");
  *set.add_update() = jsonUpdate("interfaces[name=eth1]/mtu", "9100");
  *set.add_replace() = jsonUpdate("interfaces[name=eth2]/description", R"("uplink")");
  *set.add_update() = jsonUpdate("interfaces[name=eth2]/enabled", "false");
  gnmi::SetResponse response;
  ASSERT_TRUE(live.set(set, response).ok());
  EXPECT_GT(response.timestamp(), 0);
  ASSERT_EQ(response.response_size(), 4);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::REPLACE);
  EXPECT_EQ(VekGnmi::pathString(response.response(0).path()), "/interfaces[name=eth2]/description");
  EXPECT_EQ(response.response(1).op(), gnmi::UpdateResult::UPDATE);
  EXPECT_EQ(VekGnmi::pathString(response.response(1).path()), "/system/hostname");

  // The notifications carry the request's prefix, the updates the paths
  // below it.
  const std::string dev = DEV;
  gnmi::GetRequest get;
  *get.mutable_prefix() = P(DEV);
  *get.add_path() = P("system/hostname");
  *get.add_path() = P("interfaces[name=eth1]/mtu");
  *get.add_path() = P("interfaces[name=eth2]/description");
  *get.add_path() = P("interfaces[name=eth2]/enabled");
  gnmi::GetResponse got;
  ASSERT_TRUE(live.get(get, got).ok());
  ASSERT_EQ(got.notification_size(), 4);
  EXPECT_EQ(VekGnmi::pathString(got.notification(0).prefix()), dev);
  EXPECT_EQ(VekGnmi::pathString(got.notification(0).update(0).path()), "/system/hostname");
  EXPECT_EQ(flat({got.notification().begin(), got.notification().end()}),
            (std::vector<std::string>{dev + "/system/hostname=\"core1\"", dev + "/interfaces[name=eth1]/mtu=9100",
                                      dev + "/interfaces[name=eth2]/description=\"uplink\"",
                                      dev + "/interfaces[name=eth2]/enabled=false"}));

  // One refused operation, and nothing of the request is applied.
  gnmi::SetRequest bad;
  *bad.mutable_prefix() = P(DEV);
  *bad.add_update() = jsonUpdate("system/hostname", R"("core2")");
  *bad.add_update() = jsonUpdate("interfaces[name=eth1]/mtu", "10");
  // The device's refusal is an invalid argument, not a path that was not
  // found (as the library's Set reports it).
  const grpc::Status refused = live.set(bad, response);
  EXPECT_EQ(refused.error_code(), grpc::StatusCode::INVALID_ARGUMENT) << refused.error_message();
  EXPECT_EQ(refused.error_message(),
            "the device refused /devices/dev1/interfaces[name=eth1]/mtu: mtu 10 is outside 64..9216; nothing was "
            "changed");
  // The same within one entity: the description written before the refused
  // MTU is written back.
  gnmi::SetRequest badOne;
  *badOne.mutable_prefix() = P(ETH1);
  *badOne.add_update() = jsonUpdate("description", R"("never")");
  *badOne.add_update() = jsonUpdate("mtu", "10");
  EXPECT_EQ(live.set(badOne, response).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  EXPECT_EQ(live.onLoop([&] {
    return live.agent().model().device->entity("interfaces", Vek::genericIfOf("eth1"))->value<Vek::String>("description")
        .stdString();
  }),
            "port 1");
  // PROTO-typed values are taken as they are.
  gnmi::SetRequest typed;
  gnmi::Update* u = typed.add_update();
  *u->mutable_path() = P(std::string(ETH0) + "/mtu");
  u->mutable_val()->set_uint_val(1400);
  ASSERT_TRUE(live.set(typed, response).ok());
  EXPECT_EQ(live.onLoop([&] {
    const auto& m = live.agent().model();
    return std::make_pair(m.device->entity("system")->value<Vek::String>("hostname").stdString(),
                          m.device->entity("interfaces", Vek::genericIfOf("eth0"))->value<unsigned>("mtu"));
  }),
            std::make_pair(std::string("core1"), 1400u));
}

TEST(AgentLibrary, OncePollAndStreamInEveryMode) {
  Live live;
  const std::string mtu = std::string(ETH1) + "/mtu";
  // ONCE: the sync, one sync_response, then OK.
  {
    Stream once(live.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {mtu}, gnmi::JSON_IETF));
    EXPECT_EQ(flat(once.untilSync()), std::vector<std::string>{mtu + "=ietf:1500"});
    gnmi::SubscribeResponse r;
    EXPECT_FALSE(once.rw->Read(&r));
    EXPECT_TRUE(once.rw->Finish().ok());
  }
  // POLL: the same for the list and for every Poll; half-closing ends it.
  {
    Stream poll(live.fixture().stub(), subscription(gnmi::SubscriptionList::POLL, {mtu}));
    EXPECT_EQ(flat(poll.untilSync()), std::vector<std::string>{mtu + "=1500"});
    live.onLoop([&] {
      VekGnmi::Server::DemoModel& m = live.agent().model();
      m.device->entity("interfaces", Vek::genericIfOf("eth1"))->valueIs("mtu", 2000u);
    });
    gnmi::SubscribeRequest p;
    p.mutable_poll();
    poll.rw->Write(p);
    EXPECT_EQ(flat(poll.untilSync()), std::vector<std::string>{mtu + "=2000"});
    poll.rw->WritesDone();
    gnmi::SubscribeResponse r;
    EXPECT_FALSE(poll.rw->Read(&r));
    EXPECT_TRUE(poll.rw->Finish().ok());
  }
  // STREAM, ON_CHANGE and TARGET_DEFINED: the sync, one sync_response, then
  // each change with the time it was made; the target echoed.
  for (const gnmi::SubscriptionMode mode : {gnmi::ON_CHANGE, gnmi::TARGET_DEFINED}) {
    gnmi::SubscribeRequest request = subscription(gnmi::SubscriptionList::STREAM, {mtu}, gnmi::PROTO, mode);
    request.mutable_subscribe()->mutable_prefix()->set_target("dut");
    Stream stream(live.fixture().stub(), request);
    const std::vector<gnmi::Notification> initial = stream.untilSync();
    ASSERT_EQ(initial.size(), 1u);
    EXPECT_EQ(initial[0].prefix().target(), "dut");
    const int64_t before = VekGnmi::Server::systemClock().utcNanos();
    live.onLoop([&] {
      live.agent().model().device->entity("interfaces", Vek::genericIfOf("eth1"))->valueIs("mtu", 2100u + mode);
    });
    const gnmi::Notification change = stream.next();
    EXPECT_EQ(flat({change}), std::vector<std::string>{mtu + "=uint_val: " + std::to_string(2100 + mode)});
    EXPECT_GE(change.timestamp(), before);
    EXPECT_EQ(change.prefix().target(), "dut");
    closeStream(stream);
  }
  // STREAM with updates_only: only the sync_response, then changes.
  {
    gnmi::SubscribeRequest request = subscription(gnmi::SubscriptionList::STREAM, {mtu}, gnmi::JSON, gnmi::ON_CHANGE);
    request.mutable_subscribe()->set_updates_only(true);
    Stream stream(live.fixture().stub(), request);
    EXPECT_TRUE(stream.untilSync().empty());
    live.onLoop([&] {
      live.agent().model().device->entity("interfaces", Vek::genericIfOf("eth1"))->valueIs("mtu", 1600u);
    });
    EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{mtu + "=1600"});
    closeStream(stream);
  }
  // SAMPLE: the latest value every interval, changed or not; with
  // suppress_redundant only changed ones.
  {
    gnmi::SubscribeRequest request = subscription(gnmi::SubscriptionList::STREAM, {mtu}, gnmi::JSON, gnmi::SAMPLE);
    request.mutable_subscribe()->mutable_subscription(0)->set_sample_interval(100000000);
    Stream stream(live.fixture().stub(), request);
    EXPECT_EQ(flat(stream.untilSync()), std::vector<std::string>{mtu + "=1600"});
    EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{mtu + "=1600"});
    EXPECT_EQ(flat({stream.next()}), std::vector<std::string>{mtu + "=1600"});
    closeStream(stream);
  }
  EXPECT_TRUE(live.waitFor([&] { return live.agent().subscriptionCount() == 0; }));
}

TEST(AgentLibrary, AStreamSeesAMemberRemovedAndCreatedAgain) {
  Live live;
  const std::string eth2 = "/devices/dev1/interfaces[name=eth2]";
  Stream stream(live.fixture().stub(),
                subscription(gnmi::SubscriptionList::STREAM, {eth2 + "/mtu"}, gnmi::JSON, gnmi::ON_CHANGE));
  EXPECT_EQ(flat(stream.untilSync()), std::vector<std::string>{eth2 + "/mtu=1500"});
  live.onLoop([&] {
    ChurnSimulator churn(live.agent().model(), 0);
    churn.recreate(2);
  });
  // The delete of the member, then the new member's mtu.
  std::vector<std::string> seen = flat({stream.next()});
  while (seen.size() < 2) {
    const std::vector<std::string> more = flat({stream.next()});
    seen.insert(seen.end(), more.begin(), more.end());
  }
  EXPECT_EQ(seen, (std::vector<std::string>{"delete " + eth2, eth2 + "/mtu=1500"}));
  closeStream(stream);
}

TEST(AgentLibrary, LargeSyncsPauseManyTimesAndPublishEverything) {
  Live live(options(/*interfaces=*/1500, /*syncLimit=*/8));
  Stream stream(live.fixture().stub(), subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::PROTO));
  const std::vector<gnmi::Notification> synced = stream.untilSync();
  EXPECT_TRUE(stream.rw->Finish().ok());
  const uint64_t resumes = live.onLoop([&] { return live.agent().bridge().resumes(); });
  EXPECT_GT(resumes, 100u) << "the sync should have paused on its small queue again and again";
  // Each interface publishes 19 leaves (its address's key among them), its
  // route 5, a neighbour 5 per four interfaces, plus the device's name and
  // its system (10 leaves and its name).
  const size_t expected = 1500 * 24 + (1500 / 4) * 5 + 1 + 11;
  EXPECT_EQ(updateCount(synced), expected);
  EXPECT_EQ(leaves(synced).size(), expected) << "no leaf twice";
  gnmi::GetRequest get;
  *get.add_path() = P(DEV);
  get.set_encoding(gnmi::PROTO);
  gnmi::GetResponse got;
  ASSERT_TRUE(live.get(get, got).ok());
  ASSERT_EQ(got.notification_size(), 1);
  EXPECT_EQ(static_cast<size_t>(got.notification(0).update_size()), expected);
  EXPECT_TRUE(live.idle());
}

TEST(AgentLibrary, AHundredSubscribersEachGetTheFullSyncAndTheirChanges) {
  // A small queue: the fifty device syncs pause and are resumed in turns.
  Live live(options(/*interfaces=*/8, /*syncLimit=*/4));
  constexpr int N = 100;
  std::vector<std::unique_ptr<gnmi::gNMI::Stub>> stubs;
  std::vector<std::unique_ptr<Stream>> streams;
  // Even subscribers watch one interface's mtu, odd ones the whole device.
  auto mtuOf = [](int i) { return "/devices/dev1/interfaces[name=eth" + std::to_string(i % 8) + "]/mtu"; };
  for (int i = 0; i < N; ++i) {
    stubs.push_back(live.fixture().newStub());
    const std::string path = i % 2 == 0 ? mtuOf(i) : DEV;
    streams.push_back(std::make_unique<Stream>(
        *stubs.back(), subscription(gnmi::SubscriptionList::STREAM, {path}, gnmi::JSON, gnmi::ON_CHANGE)));
  }
  // 8 interfaces of 24 leaves, two neighbours, the device's name and system.
  const size_t deviceLeaves = 8 * 24 + 2 * 5 + 1 + 11;
  for (int i = 0; i < N; ++i) {
    const std::vector<gnmi::Notification> synced = streams[i]->untilSync();
    EXPECT_EQ(updateCount(synced), i % 2 == 0 ? 1u : deviceLeaves) << i;
    EXPECT_EQ(leaves(synced).size(), i % 2 == 0 ? 1u : deviceLeaves) << i;
  }
  live.onLoop([&] {
    for (int k = 0; k < 8; ++k) {
      live.agent()
          .model()
          .device->entity("interfaces", Vek::genericIfOf(("eth" + std::to_string(k)).c_str()))
          ->valueIs("mtu", 3000u + k);
    }
  });
  for (int i = 0; i < N; i += 2) {
    EXPECT_EQ(flat({streams[i]->next()}), std::vector<std::string>{mtuOf(i) + "=" + std::to_string(3000 + i % 8)})
        << i;
  }
  std::vector<std::string> allMtus;
  for (int k = 0; k < 8; ++k) allMtus.push_back(mtuOf(k) + "=" + std::to_string(3000 + k));
  for (int i = 1; i < N; i += 2) {
    std::vector<std::string> seen = flat(readUpdates(*streams[i], 8));
    std::sort(seen.begin(), seen.end());
    EXPECT_EQ(seen, allMtus) << i;
  }
  for (auto& stream : streams) closeStream(*stream);
  EXPECT_TRUE(live.waitFor([&] { return live.agent().subscriptionCount() == 0; }));
  EXPECT_TRUE(live.idle());
}

TEST(AgentLibrary, ASubscriberThatNeverReadsStaysBoundedAndOthersCarryOn) {
  Live live(options(/*interfaces=*/200, 64, std::chrono::milliseconds(1500)));
  auto stalledStub = live.fixture().newSmallWindowStub();
  Stream stalled(*stalledStub, subscription(gnmi::SubscriptionList::STREAM, {"/"}, gnmi::JSON, gnmi::ON_CHANGE));
  auto readerStub = live.fixture().newStub();
  Stream reader(*readerStub, subscription(gnmi::SubscriptionList::STREAM, {std::string(ETH0) + "/counters"},
                                          gnmi::PROTO, gnmi::ON_CHANGE));
  EXPECT_EQ(updateCount(reader.untilSync()), 8u);
  // Changes flow to every interface while the stalled subscriber reads
  // nothing; the reader sees each change of its interface.
  std::mt19937_64 random(7);
  for (int round = 0; round < 40; ++round) {
    live.onLoop([&] {
      ChurnSimulator churn(live.agent().model(), 0, round);
      for (int k = 0; k < 200; ++k) churn.advanceCounters(1 + random() % 199);
      churn.advanceCounters(0);
    });
    const std::vector<gnmi::Notification> got = readUpdates(reader, 4);
    EXPECT_GE(updateCount(got), 4u) << "inPkts, outPkts, inOctets and outOctets advance";
  }
  // One queued entry per leaf at most, however many changes were made.
  const size_t queued = live.onLoop([&] { return live.agent().maxChangesQueued(); });
  EXPECT_LE(queued, 200u * 8u) << "bounded by the distinct counters";
  // The send timeout ends the stalled stream; the reader goes on.
  EXPECT_TRUE(live.waitFor([&] { return live.agent().liveSubscriptionCount() == 1; }));
  live.onLoop([&] { ChurnSimulator(live.agent().model(), 0).advanceCounters(0); });
  EXPECT_GE(updateCount(readUpdates(reader, 4)), 4u);
  gnmi::SubscribeResponse r;
  while (stalled.rw->Read(&r)) {
  }
  const grpc::Status status = stalled.rw->Finish();
  EXPECT_EQ(status.error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED) << status.error_message();
  closeStream(reader);
  EXPECT_TRUE(live.waitFor([&] { return live.agent().subscriptionCount() == 0; }));
  EXPECT_TRUE(live.idle());
}

TEST(AgentLibrary, CancellingALargeSyncMidwayLeavesNoWalkBehind) {
  Live live(options(/*interfaces=*/1500, /*syncLimit=*/4));
  auto stub = live.fixture().newSmallWindowStub();
  {
    Stream stream(*stub, subscription(gnmi::SubscriptionList::ONCE, {"/"}, gnmi::JSON));
    gnmi::SubscribeResponse r;
    for (int i = 0; i < 20; ++i) ASSERT_TRUE(stream.rw->Read(&r));
    ASSERT_TRUE(live.waitFor([&] { return live.agent().bridge().pausedWalks() > 0; }));
    closeStream(stream);
  }
  EXPECT_TRUE(live.waitFor([&] { return live.agent().subscriptionCount() == 0; }));
  EXPECT_TRUE(live.idle()) << live.onLoop([] { return Ostrel::FullVekTypeWalker::dumpPathWalkIdMap(); });
  // Deletes under the paths the cancelled walk had queued find nothing stale.
  live.onLoop([&] {
    ChurnSimulator churn(live.agent().model(), 0);
    for (size_t i = 0; i < 1500; i += 7) churn.recreate(i);
  });
  gnmi::GetRequest get;
  *get.add_path() = P("/devices/dev1/interfaces[name=eth7]/mtu");
  gnmi::GetResponse got;
  EXPECT_TRUE(live.get(get, got).ok());
}

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

TEST(AgentLibrary, InterfacesRemovedAndCreatedDuringSyncsLeaveNothingStale) {
  constexpr size_t INTERFACES = 300;
  Live live(options(INTERFACES, /*syncLimit=*/4));
  constexpr int SUBSCRIBERS = 3;
  std::vector<std::unique_ptr<gnmi::gNMI::Stub>> stubs;
  std::vector<std::unique_ptr<Stream>> streams;
  for (int i = 0; i < SUBSCRIBERS; ++i) {
    stubs.push_back(live.fixture().newStub());
    streams.push_back(std::make_unique<Stream>(
        *stubs.back(), subscription(gnmi::SubscriptionList::STREAM, {"/"}, gnmi::PROTO, gnmi::ON_CHANGE), 120));
  }
  // Churn on the loop while the three syncs run: interfaces removed and
  // created again ahead of the walks and behind them, counters and statuses
  // changing.
  std::atomic<bool> churning{true};
  std::atomic<uint64_t> recreations{0};
  std::thread churner([&] {
    uint64_t seed = 1;
    while (churning) {
      live.onLoop([&] {
        ChurnSimulator churn(live.agent().model(), 0, seed++);
        std::mt19937_64 random(seed);
        for (int k = 0; k < 5; ++k) churn.recreate(random() % INTERFACES);
        for (int k = 0; k < 20; ++k) churn.advanceCounters(random() % INTERFACES);
        churn.flapStatus(random() % INTERFACES);
      });
      recreations += 5;
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  });
  // The last change the test makes: once a reader has seen it, it has seen
  // every change before it (one stream, in order).
  const std::string location = "/devices/dev1/system/location";
  const std::string marker = "end of churn";
  std::vector<View> views(SUBSCRIBERS);
  std::vector<std::thread> readers;
  std::atomic<int> synced{0};
  std::atomic<int> sawMarker{0};
  for (int i = 0; i < SUBSCRIBERS; ++i) {
    readers.emplace_back([&, i] {
      gnmi::SubscribeResponse r;
      while (streams[i]->rw->Read(&r)) {
        if (r.sync_response()) ++synced;
        if (r.has_update()) views[i].apply(r.update());
        const auto it = views[i].leaves.find(location);
        if (it != views[i].leaves.end() && it->second.string_val() == marker) {
          ++sawMarker;
          break;
        }
        // A slow reader: the syncs pause on their queues again and again.
        if (i == 0) std::this_thread::sleep_for(std::chrono::microseconds(50));
      }
    });
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(90);
  while (synced < SUBSCRIBERS && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  churning = false;
  churner.join();
  EXPECT_EQ(synced.load(), SUBSCRIBERS);
  EXPECT_GT(recreations.load(), 10u);
  live.onLoop([&] { live.agent().model().device->entity("system")->valueIs("location", marker.c_str()); });
  for (std::thread& t : readers) t.join();
  EXPECT_EQ(sawMarker.load(), SUBSCRIBERS);
  for (auto& stream : streams) closeStream(*stream);

  // What each client holds is what the model holds: nothing stale, nothing
  // of a removed interface left behind, nothing missing.
  gnmi::GetRequest get;
  *get.add_path() = P("/");
  get.set_encoding(gnmi::PROTO);
  gnmi::GetResponse truth;
  ASSERT_TRUE(live.get(get, truth).ok());
  const std::map<std::string, gnmi::TypedValue> model = leaves({truth.notification().begin(), truth.notification().end()});
  for (int i = 0; i < SUBSCRIBERS; ++i) {
    size_t wrong = 0;
    for (const auto& [path, value] : views[i].leaves) {
      const auto it = model.find(path);
      if (it == model.end() || it->second.SerializeAsString() != value.SerializeAsString()) {
        if (++wrong <= 5) ADD_FAILURE() << "subscriber " << i << ": " << path << " = " << value.ShortDebugString() << " truth " << (it == model.end() ? std::string("absent") : it->second.ShortDebugString());
      }
    }
    EXPECT_EQ(wrong, 0u);
    // Nothing missing either: work a delete took from a paused walk was
    // synced again.
    size_t missing = 0;
    for (const auto& [path, value] : model) {
      if (views[i].leaves.count(path) == 0 && ++missing <= 5) ADD_FAILURE() << "subscriber " << i << " lacks " << path;
    }
    EXPECT_EQ(missing, 0u) << "entities synced again: " << live.onLoop([&] { return live.agent().bridge().resyncs(); });
  }
  EXPECT_TRUE(live.waitFor([&] { return live.agent().subscriptionCount() == 0; }));
  EXPECT_TRUE(live.idle());
}

// Syncs under churn, for every list mode, of the whole model and of a
// wildcard list: the client reads slowly (a few messages at a time, on a
// small queue, so the sync pauses again and again) and after every few
// messages the test removes and re-creates interfaces and changes counters
// and statuses on the loop, for as long as the sync runs. Once it has ended
// the model no longer changes, so what lives at the sync's end is what a
// Get returns then. ONCE and POLL must have published every leaf that lives
// at their end, and nothing that does not; a STREAM subscriber's view
// (updates and deletes applied) must equal the model.
struct ChurnCase {
  gnmi::SubscriptionList::Mode mode;
  const char* path;
};
void PrintTo(const ChurnCase& c, std::ostream* os) {
  *os << gnmi::SubscriptionList::Mode_Name(c.mode) << " of " << c.path;
}

class SyncUnderChurn : public ::testing::TestWithParam<ChurnCase> {
 protected:
  static constexpr size_t INTERFACES = 120;
  static constexpr int EVERY = 3;  // messages read between churn steps

  // One step of churn, only while a sync runs; false when none does.
  bool churnWhileSyncing(Live& live, uint64_t step) {
    return live.onLoop([&] {
      if (live.agent().router().activeSyncs() == 0) return false;
      ChurnSimulator churn(live.agent().model(), 0, step);
      std::mt19937_64 random(step);
      // eth0 is left alone: its description marks the end (see below).
      const auto any = [&] { return 1 + random() % (INTERFACES - 1); };
      for (int k = 0; k < 2; ++k) churn.recreate(any());
      for (int k = 0; k < 5; ++k) churn.advanceCounters(any());
      churn.flapStatus(any());
      return true;
    });
  }
  // Reads up to the next sync_response, churning as it goes; returns the
  // notifications before it.
  std::vector<gnmi::Notification> readWithChurn(Live& live, Stream& stream, uint64_t& step) {
    std::vector<gnmi::Notification> out;
    gnmi::SubscribeResponse r;
    int sinceChurn = 0;
    while (stream.rw->Read(&r)) {
      if (r.sync_response()) return out;
      if (r.has_update()) out.push_back(r.update());
      if (++sinceChurn == EVERY) {
        sinceChurn = 0;
        churnWhileSyncing(live, ++step);
      }
    }
    ADD_FAILURE() << "the stream ended before its sync_response";
    return out;
  }
  std::map<std::string, gnmi::TypedValue> truth(Live& live, const char* path) {
    gnmi::GetRequest get;
    *get.add_path() = P(path);
    get.set_encoding(gnmi::PROTO);
    gnmi::GetResponse got;
    EXPECT_TRUE(live.get(get, got).ok());
    return leaves({got.notification().begin(), got.notification().end()});
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
    EXPECT_THAT(missing, ::testing::IsEmpty());
    EXPECT_THAT(extra, ::testing::IsEmpty());
  }
};

TEST_P(SyncUnderChurn, PublishesEveryLeafLiveAtItsEndAndNothingGone) {
  const ChurnCase c = GetParam();
  Live live(options(INTERFACES, /*syncLimit=*/4));
  auto stub = live.fixture().newSmallWindowStub();
  Stream stream(*stub, subscription(c.mode, {c.path}, gnmi::PROTO, gnmi::ON_CHANGE), 60);
  uint64_t step = 0;
  if (c.mode == gnmi::SubscriptionList::POLL) {
    stream.untilSync();  // the first sync, then a poll under churn
    gnmi::SubscribeRequest poll;
    poll.mutable_poll();
    ASSERT_TRUE(stream.rw->Write(poll));
  }
  const std::vector<gnmi::Notification> synced = readWithChurn(live, stream, step);
  EXPECT_GT(step, 10u) << "the sync should have been interrupted by churn many times";
  EXPECT_FALSE(churnWhileSyncing(live, ++step)) << "no sync runs after the sync_response";
  if (c.mode != gnmi::SubscriptionList::STREAM) {
    expectSamePaths(leaves(synced), truth(live, c.path));
  } else {
    // Changes of the sync's time may still be on their way: a last change
    // marks the end of them (changes go out in the order their leaves were
    // first queued, so the marker is a leaf that churn never queued).
    View view;
    for (const gnmi::Notification& n : synced) view.apply(n);
    live.onLoop([&] { live.agent().model().device->entity("interfaces", Vek::genericIfOf("eth0"))->valueIs("description", "marker"); });
    const std::string marker = std::string(ETH0) + "/description";
    while (true) {
      const gnmi::Notification n = stream.next();
      view.apply(n);
      const auto it = view.leaves.find(marker);
      if (it != view.leaves.end() && it->second.string_val() == "marker") break;
      if (n.update_size() + n.delete__size() == 0) break;
    }
    const auto model = truth(live, c.path);
    expectSamePaths(view.leaves, model);
    size_t stale = 0;
    for (const auto& [path, value] : view.leaves) {
      const auto it = model.find(path);
      if (it != model.end() && it->second.SerializeAsString() != value.SerializeAsString() && ++stale <= 5) {
        ADD_FAILURE() << path << " = " << value.ShortDebugString() << ", truth " << it->second.ShortDebugString();
      }
    }
    EXPECT_EQ(stale, 0u);
  }
  closeStream(stream);
  EXPECT_TRUE(live.waitFor([&] { return live.agent().subscriptionCount() == 0; }));
  EXPECT_TRUE(live.idle());
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

TEST(AgentLibrary, ShutdownEndsSyncingAndStreamingSubscribersAndLeavesNothingRegistered) {
  auto live = std::make_unique<Live>(options(/*interfaces=*/1500, /*syncLimit=*/4));
  auto stalledStub = live->fixture().newSmallWindowStub();
  Stream syncing(*stalledStub, subscription(gnmi::SubscriptionList::STREAM, {"/"}, gnmi::JSON));
  Stream streaming(live->fixture().stub(), subscription(gnmi::SubscriptionList::STREAM, {ETH0}));
  streaming.untilSync();
  ASSERT_TRUE(live->waitFor([&] { return live->agent().bridge().pausedWalks() > 0; }));
  live->fixture().stop();
  for (Stream* stream : {&syncing, &streaming}) {
    gnmi::SubscribeResponse r;
    while (stream->rw->Read(&r)) {
    }
    const grpc::Status status = stream->rw->Finish();
    EXPECT_EQ(status.error_code(), grpc::StatusCode::UNAVAILABLE) << status.error_message();
    EXPECT_EQ(status.error_message(), "the agent is shutting down");
  }
  live.reset();
  // The model has ended with the agent: its notifiees with it, no walk left.
  EXPECT_TRUE(Ostrel::gNmiNotifieeMap.empty()) << Ostrel::GifGnmiNotifiee::dumpGnmiNotifieeMap();
  EXPECT_TRUE(Ostrel::notifieePathMap.empty());
  EXPECT_EQ(Ostrel::FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_TRUE(Ostrel::staticPathWalkIdMap.empty());
}

TEST(AgentLibrary, ClientGetSetAndSubscribe) {
  Live live;
  const std::string mtu = std::string(ETH1) + "/mtu";
  std::vector<std::string> lines = clientLines(live.fixture().address(), {"get", "--path", mtu});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(R"({"path":"/devices/dev1/interfaces[name=eth1]/mtu","value":1500})"), std::string::npos)
      << lines[0];
  lines = clientLines(live.fixture().address(), {"set", "--update", mtu + "=9000"});
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find(R"("op":"UPDATE")"), std::string::npos) << lines[0];
  lines = clientLines(live.fixture().address(), {"subscribe", "--mode", "once", "--path", mtu});
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_NE(lines[0].find(R"("value":9000)"), std::string::npos) << lines[0];
  EXPECT_EQ(lines[1], R"({"sync_response":true})");
}

}  // namespace
