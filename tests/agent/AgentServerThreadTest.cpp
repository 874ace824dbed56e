// vekgnmid over a real gRPC channel on a loopback port, with the library:
// Capabilities, the exact statuses of Get, Set and Subscribe requests (those
// the agent's validation gives and those of the library's Set), the client's
// output and errors, shutdown with streams that sent nothing yet, and golden
// files of what the agent answers (tests/golden/README.md). The agent runs
// on a manual clock and the runtime on a test clock: every time it answers
// is fixed.
#include <atomic>
#include <thread>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <grpc/grpc.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"
#include "ClientCommands.h"
#include "Golden.h"
#include "StatusMatchers.h"
#include "SubscribeClient.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using namespace std::chrono_literals;

const std::string ETH0 = "/devices/dev1/interfaces[name=eth0]";

AgentOptions withInterfaces(size_t interfaces) {
  AgentOptions o;
  o.interfaces = interfaces;
  return o;
}

// The agent with the library, on the tests' clocks.
class LiveAgent : public ::testing::Test {
 protected:
  explicit LiveAgent(AgentOptions options = {}) : fixture_(std::move(options), VekGnmi::Server::makeLibraryBridge) {}

  grpc::Status get(const gnmi::GetRequest& request, gnmi::GetResponse* response = nullptr) {
    grpc::ClientContext context;
    withDeadline(context);
    gnmi::GetResponse ignored;
    return fixture_.stub().Get(&context, request, response ? response : &ignored);
  }
  grpc::Status set(const gnmi::SetRequest& request, gnmi::SetResponse* response = nullptr) {
    grpc::ClientContext context;
    withDeadline(context);
    gnmi::SetResponse ignored;
    return fixture_.stub().Set(&context, request, response ? response : &ignored);
  }
  // Sends one request on a new Subscribe stream and returns how it ended.
  grpc::Status subscribeOnce(const gnmi::SubscribeRequest& request) {
    grpc::ClientContext context;
    withDeadline(context);
    auto stream = fixture_.stub().Subscribe(&context);
    stream->Write(request);
    gnmi::SubscribeResponse response;
    while (stream->Read(&response)) {
    }
    return stream->Finish();
  }

  Vek::TestClock vekClock_;
  Vek::ScopedClock vekClockInstalled_{vekClock_};
  AgentFixture fixture_;
};

gnmi::GetRequest getOf(const std::string& path) {
  gnmi::GetRequest r;
  *r.add_path() = P(path);
  return r;
}

// A Set of one update of `path` to `json` (JSON).
gnmi::SetRequest updateOf(const std::string& path, const std::string& json) {
  gnmi::SetRequest r;
  gnmi::Update* u = r.add_update();
  *u->mutable_path() = P(path);
  u->mutable_val()->set_json_val(json);
  return r;
}

// ---------------------------------------------------------------------------
// Capabilities

class AgentCapabilities : public LiveAgent {};

TEST_F(AgentCapabilities, ListTheVersionTheModelAndTheEncodings) {
  grpc::ClientContext context;
  withDeadline(context);
  gnmi::CapabilityResponse response;
  ASSERT_THAT(fixture_.stub().Capabilities(&context, gnmi::CapabilityRequest(), &response), IsOk());
  EXPECT_EQ(response.gnmi_version(), "0.10.0");
  ASSERT_EQ(response.supported_models_size(), 1);
  EXPECT_EQ(response.supported_models(0).name(), "Demo");
  EXPECT_EQ(response.supported_models(0).organization(), "libVekTypeDecoder");
  EXPECT_THAT(response.supported_encodings(), ElementsAre(gnmi::JSON, gnmi::JSON_IETF, gnmi::PROTO));
}

// ---------------------------------------------------------------------------
// Get

class AgentGetStatus : public LiveAgent {};

TEST_F(AgentGetStatus, AnUnknownElementIsNotFound) {
  EXPECT_THAT(get(getOf("/devices/dev1/nosuch")),
              StatusIs(grpc::StatusCode::NOT_FOUND, "Demo::Device has no element 'nosuch' (below /devices/dev1)"));
}

TEST_F(AgentGetStatus, AMissingMemberIsNotFound) {
  EXPECT_THAT(get(getOf("/devices/dev1/interfaces[name=eth99]")),
              StatusIs(grpc::StatusCode::NOT_FOUND, "nothing exists at /devices/dev1/interfaces[name=eth99]"));
}

TEST_F(AgentGetStatus, AKeyValueOfTheWrongFormIsAnInvalidArgument) {
  EXPECT_THAT(get(getOf("/devices/dev1/routes[routesKey=x]")), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentGetStatus, AKeyNameTheListDoesNotHaveIsAnInvalidArgumentNotAnotherMembersData) {
  EXPECT_THAT(get(getOf("/devices/dev1/interfaces[namex=eth0]")),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "'interfaces' under /devices/dev1 is keyed by [name], not [namex=eth0]"));
}

TEST_F(AgentGetStatus, AnEmptyKeyNameIsAnInvalidArgument) {
  gnmi::GetRequest r = getOf("/devices/dev1/interfaces");  // interfaces[=eth0], which path text cannot say
  (*r.mutable_path(0)->mutable_elem(2)->mutable_key())[""] = "eth0";
  EXPECT_THAT(get(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                               ::testing::StartsWith("'interfaces' under /devices/dev1 is keyed by [name], not ")));
}

TEST_F(AgentGetStatus, AnEncodingOtherThanJsonJsonIetfAndProtoIsUnimplemented) {
  gnmi::GetRequest r = getOf("/devices/dev1/routes[routesKey=x]");
  r.set_encoding(gnmi::ASCII);
  EXPECT_THAT(get(r), StatusIs(grpc::StatusCode::UNIMPLEMENTED,
                               "encoding ASCII is not supported; use JSON, JSON_IETF or PROTO"));
}

TEST_F(AgentGetStatus, AnUnknownDataTypeIsAnInvalidArgument) {
  gnmi::GetRequest r = getOf("/devices/dev1/routes[routesKey=x]");
  r.set_type(static_cast<gnmi::GetRequest::DataType>(9));
  EXPECT_THAT(get(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT, "unknown data type 9"));
}

TEST_F(AgentGetStatus, APathWithAnOriginIsAnInvalidArgument) {
  gnmi::GetRequest origin = getOf("/devices");
  origin.mutable_path(0)->set_origin("cli");
  EXPECT_THAT(get(origin), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentGetStatus, ALeafIsAnsweredWithItsValue) {
  gnmi::GetResponse response;
  ASSERT_THAT(get(getOf(ETH0 + "/mtu"), &response), IsOk());
  ASSERT_EQ(response.notification_size(), 1);
  ASSERT_EQ(response.notification(0).update_size(), 1);
  EXPECT_EQ(response.notification(0).update(0).val().json_val(), "9000");
}

// ---------------------------------------------------------------------------
// Client text in statuses: a status travels in the answer's trailers, which
// gRPC caps; a huge path or value echoed whole would never reach the client
// (the call would end DEADLINE_EXCEEDED and stall the connection).

// A message short enough for any peer's trailers that says how long the
// echoed text was.
::testing::Matcher<const std::string&> BoundedEcho(size_t length) {
  return ::testing::AllOf(::testing::SizeIs(::testing::Le(1024u)), HasSubstr(fmt::format("… ({} bytes)", length)));
}

class AgentClientText : public LiveAgent {
 protected:
  // gRPC stays initialised for the whole suite: after a 4 MB request its
  // executor thread may sit in a 10 s poll, which a per-test shutdown of the
  // library (when the fixture's last gRPC object goes) would wait out.
  static void SetUpTestSuite() { grpc_init(); }
  static void TearDownTestSuite() { grpc_shutdown(); }

  static constexpr size_t HUGE_TEXT = 4 * 1024 * 1024;
  // The same channel still answers a Get at once.
  void expectGetStillServed() {
    gnmi::GetResponse response;
    ASSERT_THAT(get(getOf(ETH0 + "/mtu"), &response), IsOk());
    EXPECT_EQ(response.notification(0).update(0).val().json_val(), "9000");
  }
};

TEST_F(AgentClientText, AHugeElementNameInAGetIsNotFoundWithABoundedMessage) {
  gnmi::GetRequest r = getOf("/devices/dev1");
  r.mutable_path(0)->add_elem()->set_name(std::string(HUGE_TEXT, 'a'));
  EXPECT_THAT(get(r), StatusIs(grpc::StatusCode::NOT_FOUND, BoundedEcho(HUGE_TEXT)));
  expectGetStillServed();
}

TEST_F(AgentClientText, AHugeKeyValueInAGetIsAnInvalidArgumentWithABoundedMessage) {
  gnmi::GetRequest r = getOf("/devices/dev1/routes");
  (*r.mutable_path(0)->mutable_elem(2)->mutable_key())["routesKey"] = std::string(HUGE_TEXT, 'k');
  EXPECT_THAT(get(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT, BoundedEcho(HUGE_TEXT)));
  expectGetStillServed();
}

TEST_F(AgentClientText, AHugeElementNameInASetIsNotFoundWithABoundedMessage) {
  EXPECT_THAT(set(updateOf(ETH0 + "/" + std::string(HUGE_TEXT, 'm'), "1500")),
              StatusIs(grpc::StatusCode::NOT_FOUND, BoundedEcho(HUGE_TEXT)));
  expectGetStillServed();
}

TEST_F(AgentClientText, ALargeJsonValueOfTheWrongTypeIsAnInvalidArgumentWithABoundedMessage) {
  const std::string value = "\"" + std::string(100000, 'v') + "\"";
  EXPECT_THAT(set(updateOf(ETH0 + "/mtu", value)),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, BoundedEcho(value.size())));
  expectGetStillServed();
}

TEST_F(AgentClientText, ALargeJsonIetfTextThatIsNoJsonIsAnInvalidArgumentWithABoundedMessage) {
  gnmi::SetRequest r = updateOf(ETH0 + "/mtu", "");
  r.mutable_update(0)->mutable_val()->set_json_ietf_val("{" + std::string(100000, 'b'));
  EXPECT_THAT(set(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT, BoundedEcho(100001)));
  expectGetStillServed();
}

TEST_F(AgentClientText, ALargeBytesValueForAnIntegerLeafIsRefusedWithABoundedMessage) {
  gnmi::SetRequest r = updateOf(ETH0 + "/mtu", "");
  r.mutable_update(0)->mutable_val()->set_bytes_val(std::string(100000, 'z'));
  // The library's refusal quotes the value; the agent bounds it.
  EXPECT_THAT(set(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                               ::testing::AllOf(::testing::SizeIs(::testing::Le(1024u)), HasSubstr(" bytes)"))));
  expectGetStillServed();
}

// ---------------------------------------------------------------------------
// Set

class AgentSetStatus : public LiveAgent {
 protected:
  unsigned eth0Mtu() {
    return fixture_.onLoop([&] {
      return fixture_.agent().model().device->entity("interfaces", Vek::genericIfOf("eth0"))->value<unsigned>("mtu");
    });
  }
};

TEST_F(AgentSetStatus, AUnionReplaceIsUnimplemented) {
  gnmi::SetRequest unionReplace;
  *unionReplace.add_union_replace()->mutable_path() = P("/devices/dev1/system/hostname");
  EXPECT_THAT(set(unionReplace), StatusIs(grpc::StatusCode::UNIMPLEMENTED));
}

TEST_F(AgentSetStatus, AValueOfTheWrongTypeIsAnInvalidArgument) {
  EXPECT_THAT(set(updateOf(ETH0 + "/mtu", "\"large\"")),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/interfaces[name=eth0]/mtu: \"large\" is not an integer"));
}

TEST_F(AgentSetStatus, MalformedJsonIetfIsAnInvalidArgument) {
  gnmi::SetRequest bad = updateOf(ETH0 + "/mtu", "");
  bad.mutable_update(0)->mutable_val()->set_json_ietf_val("{");
  EXPECT_THAT(set(bad), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentSetStatus, AnElementTheModelDoesNotHaveIsNotFound) {
  EXPECT_THAT(set(updateOf(ETH0 + "/mtux", "1500")),
              StatusIs(grpc::StatusCode::NOT_FOUND,
                       "update 0: Demo::Interface has no element 'mtux' (below /devices/dev1/interfaces[name=eth0])"));
}

TEST_F(AgentSetStatus, AnEmptySetSucceedsWithATimeAndNoResults) {
  gnmi::SetResponse response;
  ASSERT_THAT(set(gnmi::SetRequest(), &response), IsOk());
  EXPECT_EQ(response.timestamp(), fixture_.clock().utcNanos());
  EXPECT_EQ(response.response_size(), 0);
}

// The device checks its MTU range when the value is written: its refusal is
// an invalid argument, whatever the library's Set says.
TEST_F(AgentSetStatus, AValueTheDeviceRefusesIsAnInvalidArgumentAndChangesNothing) {
  EXPECT_THAT(set(updateOf(ETH0 + "/mtu", "10000")),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "the device refused /devices/dev1/interfaces[name=eth0]/mtu: mtu 10000 is outside 64..9216; "
                       "nothing was changed"));
  EXPECT_EQ(eth0Mtu(), 9000u);
}

TEST_F(AgentSetStatus, AStateLeafIsAnInvalidArgument) {
  EXPECT_THAT(set(updateOf(ETH0 + "/macAddress", "\"02:00:00:00:00:99\"")),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/interfaces[name=eth0]/macAddress is state; clients cannot set it"));
}

TEST_F(AgentSetStatus, AKeyLeafIsAnInvalidArgument) {
  EXPECT_THAT(set(updateOf(ETH0 + "/name", "\"eth9\"")), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentSetStatus, AValueNestedTooDeeplyIsRefusedAndTheAgentGoesOn) {
  EXPECT_THAT(set(updateOf("/devices/dev1/system/motd", std::string(100000, '[') + std::string(100000, ']'))),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/system/motd: the JSON value nests arrays and objects deeper than 64 "
                       "levels"));
  gnmi::GetResponse response;
  ASSERT_THAT(get(getOf("/devices/dev1/system/motd"), &response), IsOk());
  EXPECT_EQ(response.notification(0).update(0).val().json_val(), R"({"banner":"welcome"})");
}

TEST_F(AgentSetStatus, AValidUpdateIsAppliedAndAnswered) {
  gnmi::SetResponse response;
  ASSERT_THAT(set(updateOf(ETH0 + "/mtu", "1600"), &response), IsOk());
  ASSERT_EQ(response.response_size(), 1);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::UPDATE);
  EXPECT_EQ(eth0Mtu(), 1600u);
}

// ---------------------------------------------------------------------------
// Set beyond leaves: members made, removed and replaced

class AgentSet : public LiveAgent {
 protected:
  static gnmi::Update json(const std::string& path, const std::string& value) {
    gnmi::Update u;
    *u.mutable_path() = P(path);
    u.mutable_val()->set_json_ietf_val(value);
    return u;
  }
  // What Get answers for `path` as "path=value" lines; empty when nothing
  // exists there.
  std::vector<std::string> got(const std::string& path, gnmi::GetRequest::DataType type = gnmi::GetRequest::ALL) {
    gnmi::GetRequest r = getOf(path);
    r.set_type(type);
    gnmi::GetResponse response;
    if (!get(r, &response).ok()) return {};
    return flat({response.notification().begin(), response.notification().end()});
  }
  // A stream of every change under the interfaces, after its sync.
  std::unique_ptr<Stream> watchInterfaces() {
    auto stream = std::make_unique<Stream>(fixture_.stub(), subscription(gnmi::SubscriptionList::STREAM,
                                                                         {"/devices/dev1/interfaces"},
                                                                         gnmi::JSON_IETF, gnmi::ON_CHANGE));
    stream->untilSync();
    return stream;
  }
  // The stream's notifications as lines, until they hold every one of
  // `expected` (changes of a leaf may be coalesced to its newest value).
  static std::vector<std::string> until(Stream& stream, const std::vector<std::string>& expected) {
    std::vector<std::string> lines;
    const auto seen = [&] {
      return std::all_of(expected.begin(), expected.end(), [&](const std::string& line) {
        return std::find(lines.begin(), lines.end(), line) != lines.end();
      });
    };
    for (int i = 0; i < 100 && !seen(); ++i) {
      for (const std::string& line : flat({stream.next()})) lines.push_back(line);
    }
    return lines;
  }
};

const std::string ETH = "/devices/dev1/interfaces[name=";

TEST_F(AgentSet, DeletingAMemberRemovesItAndStreamsItsDelete) {
  auto stream = watchInterfaces();
  gnmi::SetRequest r;
  *r.add_delete_() = P(ETH + "eth2]");
  *r.add_delete_() = P(ETH + "eth99]");  // not there: accepted, nothing to do
  gnmi::SetResponse response;
  ASSERT_THAT(set(r, &response), IsOk());
  ASSERT_EQ(response.response_size(), 2);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::DELETE);
  EXPECT_THAT(until(*stream, {"delete " + ETH + "eth2]"}), ElementsAre("delete " + ETH + "eth2]"));
  EXPECT_TRUE(got(ETH + "eth2]").empty());
  EXPECT_FALSE(got(ETH + "eth3]").empty());
  stream->close();
}

TEST_F(AgentSet, AnUpdateBelowAMemberThatDoesNotExistMakesIt) {
  auto stream = watchInterfaces();
  gnmi::SetRequest r;
  *r.add_update() = json(ETH + "eth20]/mtu", "9000");
  *r.add_update() = json(ETH + "eth20]/addresses[addressesKey=10.9.9.9]/prefixLength", "30");
  ASSERT_THAT(set(r), IsOk());
  // The new member is published, then the values the Set wrote.
  const std::vector<std::string> streamed = until(
      *stream, {ETH + "eth20]/mtu=ietf:9000", ETH + "eth20]/addresses[addressesKey=10.9.9.9]/prefixLength=ietf:30"});
  EXPECT_THAT(streamed, ::testing::Contains(ETH + "eth20]/name=ietf:\"eth20\""));
  EXPECT_THAT(got(ETH + "eth20]", gnmi::GetRequest::CONFIG),
              ElementsAre(ETH + "eth20]/description=\"\"", ETH + "eth20]/mtu=9000", ETH + "eth20]/enabled=true",
                          ETH + "eth20]/addresses[addressesKey=10.9.9.9]/addressesKey=\"10.9.9.9\"",
                          ETH + "eth20]/addresses[addressesKey=10.9.9.9]/prefixLength=30",
                          ETH + "eth20]/addresses[addressesKey=10.9.9.9]/origin=\"static\""));
  stream->close();
}

TEST_F(AgentSet, AReplaceMakesASubtreeExactlyItsValue) {
  gnmi::SetRequest r;
  *r.add_replace() = json(ETH + "eth1]", R"({"name": "eth1", "description": "replaced",
                                             "addresses": [{"addressesKey": "10.1.1.1", "prefixLength": 24}]})");
  ASSERT_THAT(set(r), IsOk());
  // The MTU the value leaves out is back at its default; the old address is
  // gone; the state stays.
  EXPECT_THAT(got(ETH + "eth1]", gnmi::GetRequest::CONFIG),
              ElementsAre(ETH + "eth1]/description=\"replaced\"", ETH + "eth1]/mtu=1500", ETH + "eth1]/enabled=true",
                          ETH + "eth1]/addresses[addressesKey=10.1.1.1]/addressesKey=\"10.1.1.1\"",
                          ETH + "eth1]/addresses[addressesKey=10.1.1.1]/prefixLength=24",
                          ETH + "eth1]/addresses[addressesKey=10.1.1.1]/origin=\"static\""));
  EXPECT_THAT(got(ETH + "eth1]/operStatus"), ElementsAre(ETH + "eth1]/operStatus=\"up\""));
}

TEST_F(AgentSet, ARefusedSetChangesNothingItsStructuralStepsDid) {
  const std::vector<std::string> eth1 = got(ETH + "eth1]");
  const std::vector<std::string> eth3 = got(ETH + "eth3]");
  ASSERT_FALSE(eth1.empty());
  gnmi::SetRequest r;
  *r.add_delete_() = P(ETH + "eth1]");
  *r.add_replace() = json(ETH + "eth3]", R"({"description": "replaced"})");
  *r.add_update() = json(ETH + "eth30]/description", R"("new")");
  *r.add_update() = json(ETH + "eth2]/mtu", "10000");  // the device refuses it
  EXPECT_THAT(set(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                               "the device refused /devices/dev1/interfaces[name=eth2]/mtu: mtu 10000 is outside "
                               "64..9216; nothing was changed"));
  // eth1 is back with its configuration and state, eth3 as it was, eth30
  // was never made.
  EXPECT_EQ(got(ETH + "eth1]"), eth1);
  EXPECT_EQ(got(ETH + "eth3]"), eth3);
  EXPECT_TRUE(got(ETH + "eth30]").empty());
}

TEST_F(AgentSet, AMemberTheDeviceDoesNotLetClientsMakeIsRefused) {
  gnmi::SetRequest neighbor;
  *neighbor.add_update() = json("/devices/dev1/neighbors[name=nbr9]/remoteSystem", R"("x")");
  EXPECT_THAT(set(neighbor), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
  EXPECT_TRUE(got("/devices/dev1/neighbors[name=nbr9]").empty());
}

// ---------------------------------------------------------------------------
// Subscribe

class AgentSubscribeStatus : public LiveAgent {
 protected:
  gnmi::SubscribeRequest eth0In(gnmi::SubscriptionMode mode) {
    gnmi::SubscribeRequest r;
    gnmi::Subscription* s = r.mutable_subscribe()->add_subscription();
    *s->mutable_path() = P(ETH0);
    s->set_mode(mode);
    return r;
  }
};

TEST_F(AgentSubscribeStatus, APollFirstIsAnInvalidArgument) {
  gnmi::SubscribeRequest poll;
  poll.mutable_poll();
  EXPECT_THAT(subscribeOnce(poll), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                                            "the first message of a Subscribe must be a SubscriptionList, not a Poll"));
}

TEST_F(AgentSubscribeStatus, ASampleIntervalBelowTheLowestIsAnInvalidArgument) {
  gnmi::SubscribeRequest r = eth0In(gnmi::SAMPLE);
  r.mutable_subscribe()->mutable_subscription(0)->set_sample_interval(10);
  EXPECT_THAT(subscribeOnce(r),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "subscription 0: sample_interval 10ns is below the lowest this target supports (100ms)"));
}

TEST_F(AgentSubscribeStatus, AnUnsupportedEncodingIsUnimplemented) {
  gnmi::SubscribeRequest r = eth0In(gnmi::TARGET_DEFINED);
  r.mutable_subscribe()->set_encoding(gnmi::BYTES);
  EXPECT_THAT(subscribeOnce(r), StatusIs(grpc::StatusCode::UNIMPLEMENTED));
}

TEST_F(AgentSubscribeStatus, APathTheModelCannotHoldIsUnimplemented) {
  gnmi::SubscribeRequest r = eth0In(gnmi::TARGET_DEFINED);
  *r.mutable_subscribe()->mutable_subscription(0)->mutable_path() = P("/devices/dev1/nosuch");
  EXPECT_THAT(subscribeOnce(r), StatusIs(grpc::StatusCode::UNIMPLEMENTED,
                                         "this target does not implement the path /devices/dev1/nosuch: "
                                         "Demo::Device has no element 'nosuch' (below /devices/dev1)"));
}

TEST_F(AgentSubscribeStatus, APathTheModelCannotHoldIsUnimplementedInOnceToo) {
  gnmi::SubscribeRequest r = eth0In(gnmi::TARGET_DEFINED);
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::ONCE);
  *r.mutable_subscribe()->mutable_subscription(0)->mutable_path() = P("/devices/dev1/nosuch");
  EXPECT_THAT(subscribeOnce(r), StatusIs(grpc::StatusCode::UNIMPLEMENTED));
}

TEST_F(AgentSubscribeStatus, AKeyNameTheListDoesNotHaveIsAnInvalidArgument) {
  gnmi::SubscribeRequest r = eth0In(gnmi::ON_CHANGE);
  *r.mutable_subscribe()->mutable_subscription(0)->mutable_path() = P("/devices/dev1/interfaces[namex=eth0]");
  EXPECT_THAT(subscribeOnce(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentSubscribeStatus, OnceOfAPathWithNothingUnderItEndsWithOkAfterAnEmptySync) {
  // A valid path with nothing under it now is not an error.
  gnmi::SubscribeRequest r = eth0In(gnmi::TARGET_DEFINED);
  *r.mutable_subscribe()->mutable_subscription(0)->mutable_path() = P("/devices/dev1/interfaces[name=eth99]");
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::ONCE);
  EXPECT_THAT(subscribeOnce(r), IsOk());
}

TEST_F(AgentSubscribeStatus, AStreamClosedWithoutASubscriptionListIsAnInvalidArgument) {
  grpc::ClientContext context;
  withDeadline(context);
  auto stream = fixture_.stub().Subscribe(&context);
  stream->WritesDone();
  gnmi::SubscribeResponse response;
  EXPECT_FALSE(stream->Read(&response));
  EXPECT_THAT(stream->Finish(), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                                         "the client closed the stream without sending a SubscriptionList"));
}

// ---------------------------------------------------------------------------
// The server

class AgentServer : public LiveAgent {};

TEST_F(AgentServer, BadRequestsDoNotDisturbOtherClients) {
  std::vector<std::thread> threads;
  std::atomic<int> capabilitiesOk{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      auto stub = fixture_.newStub();
      for (int i = 0; i < 20; ++i) {
        grpc::ClientContext context;
        withDeadline(context);
        if (t % 2 == 0) {
          gnmi::GetResponse response;
          EXPECT_THAT(stub->Get(&context, getOf("/devices/dev1/nosuch" + std::to_string(i)), &response),
                      StatusIs(grpc::StatusCode::NOT_FOUND));
        } else {
          gnmi::CapabilityResponse response;
          if (stub->Capabilities(&context, gnmi::CapabilityRequest(), &response).ok()) ++capabilitiesOk;
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(capabilitiesOk.load(), 80);
}

TEST_F(AgentServer, ShutdownEndsOpenStreamsWithAStatus) {
  // Streams that sent nothing yet stay open until the agent stops.
  std::vector<std::unique_ptr<grpc::ClientContext>> contexts;
  std::vector<std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>>>
      streams;
  for (int i = 0; i < 3; ++i) {
    contexts.push_back(std::make_unique<grpc::ClientContext>());
    withDeadline(*contexts.back());
    streams.push_back(fixture_.stub().Subscribe(contexts.back().get()));
  }
  // The server has seen the streams before it stops.
  ASSERT_TRUE(fixture_.waitUntil([&] { return fixture_.agent().openStreamCount() == 3; }));
  fixture_.stop();
  for (auto& stream : streams) {
    gnmi::SubscribeResponse response;
    EXPECT_FALSE(stream->Read(&response));
    EXPECT_THAT(stream->Finish(), StatusIs(grpc::StatusCode::UNAVAILABLE, "the agent is shutting down"));
  }
}

// ---------------------------------------------------------------------------
// vekgnmi's output against the agent

class AgentClientOutput : public LiveAgent {
 protected:
  // vekgnmi's exit code, with what it printed to `out` and `err`.
  int run(std::vector<std::string> args) {
    return VekGnmi::Client::runClient(std::move(args), out_, err_);
  }
  std::ostringstream out_;
  std::ostringstream err_;
};

TEST_F(AgentClientOutput, CapabilitiesArePrintedAsOneJsonObject) {
  EXPECT_EQ(run({"--address", fixture_.address(), "capabilities"}), 0);
  EXPECT_EQ(out_.str(),
            R"({"gNMI_version":"0.10.0","supported_encodings":["JSON","JSON_IETF","PROTO"],)"
            R"("supported_models":[{"name":"Demo","organization":"libVekTypeDecoder","version":"1.0.0"}]})"
            "\n");
}

TEST_F(AgentClientOutput, AGetErrorIsPrintedWithItsCodeAndExitsWithOne) {
  EXPECT_EQ(run({"-a", fixture_.address(), "get", "--path", ETH0 + "/mtux"}), 1);
  EXPECT_EQ(err_.str(),
            "error: NOT_FOUND (5): Demo::Interface has no element 'mtux' (below "
            "/devices/dev1/interfaces[name=eth0])\n");
}

TEST_F(AgentClientOutput, ASetErrorIsPrintedWithItsCodeAndExitsWithOne) {
  EXPECT_EQ(run({"-a", fixture_.address(), "set", "--delete", "/devices/dev1/neighbors[name=nbr0]"}), 1);
  EXPECT_EQ(err_.str(),
            "error: INVALID_ARGUMENT (3): delete 0: /devices/dev1/neighbors[name=nbr0] is state; clients cannot "
            "delete it\n");
}

TEST_F(AgentClientOutput, ASubscribeErrorIsPrintedWithItsCodeAndExitsWithOne) {
  EXPECT_EQ(run({"-a", fixture_.address(), "subscribe", "--mode", "once", "--encoding", "ascii"}), 1);
  EXPECT_EQ(err_.str(),
            "error: UNIMPLEMENTED (12): encoding ASCII is not supported; use JSON, JSON_IETF or PROTO\n");
}

TEST(ClientUsage, UsageErrorsExitWithTwo) {
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(VekGnmi::Client::runClient({}, out, err), 2);
  EXPECT_EQ(err.str(), "vekgnmi: a command is needed (see --help)\n");
  std::ostringstream err2;
  EXPECT_EQ(VekGnmi::Client::runClient({"get", "--path", "/a//b"}, out, err2), 2);
  EXPECT_EQ(err2.str(), "vekgnmi: --path '/a//b': empty element name at position 3\n");
  std::ostringstream err3;
  EXPECT_EQ(VekGnmi::Client::runClient({"subscribe", "--mode", "sometimes"}, out, err3), 2);
  std::ostringstream err4;
  EXPECT_EQ(VekGnmi::Client::runClient({"set"}, out, err4), 2);
  EXPECT_EQ(err4.str(), "vekgnmi: set needs at least one --update, --replace or --delete\n");
  std::ostringstream help;
  EXPECT_EQ(VekGnmi::Client::runClient({"--help"}, help, err), 0);
  EXPECT_NE(help.str().find("differs from the library's own path text"), std::string::npos);
}

TEST(ClientUsage, UnreachableTargetIsUnavailable) {
  std::ostringstream out;
  std::ostringstream err;
  // Port 1 on loopback: nothing listens there.
  EXPECT_EQ(VekGnmi::Client::runClient({"-a", "127.0.0.1:1", "--timeout", "2s", "capabilities"}, out, err), 1);
  EXPECT_EQ(err.str().rfind("error: UNAVAILABLE (14): ", 0), 0u) << err.str();
}

// ---------------------------------------------------------------------------
// Golden files of the agent's answers

// A Set request of the golden file: what it is, and the request.
struct SetCase {
  std::string what;
  gnmi::SetRequest request;
};

gnmi::Update update(const std::string& path, const std::function<void(gnmi::TypedValue&)>& value) {
  gnmi::Update u;
  *u.mutable_path() = P(path);
  value(*u.mutable_val());
  return u;
}
auto json(const std::string& text) {
  return [text](gnmi::TypedValue& v) { v.set_json_val(text); };
}
auto jsonIetf(const std::string& text) {
  return [text](gnmi::TypedValue& v) { v.set_json_ietf_val(text); };
}

std::vector<SetCase> setCases() {
  std::vector<SetCase> cases;
  auto add = [&](std::string what, const std::function<void(gnmi::SetRequest&)>& build) {
    SetCase c{std::move(what), {}};
    build(c.request);
    cases.push_back(std::move(c));
  };
  add("an update of one leaf", [](gnmi::SetRequest& r) { *r.add_update() = update(ETH0 + "/mtu", json("9100")); });
  add("a replace in JSON_IETF", [](gnmi::SetRequest& r) {
    *r.add_replace() = update("/devices/dev1/interfaces[name=eth1]/description", jsonIetf("\"uplink\""));
  });
  add("updates and replaces across entities, below a prefix with a target", [](gnmi::SetRequest& r) {
    *r.mutable_prefix() = P("/devices/dev1");
    r.mutable_prefix()->set_target("dut");
    *r.add_update() = update("system/hostname", json("\"core1\""));
    *r.add_update() = update("interfaces[name=eth2]/mtu", json("1400"));
    *r.add_replace() = update("interfaces[name=eth1]/enabled", json("false"));
  });
  add("a PROTO typed value", [](gnmi::SetRequest& r) {
    *r.add_update() = update(ETH0 + "/mtu", [](gnmi::TypedValue& v) { v.set_uint_val(1500); });
  });
  add("a field of a member of a collection of values", [](gnmi::SetRequest& r) {
    *r.add_update() = update(ETH0 + "/addresses[addressesKey=10.0.0.0]/prefixLength", json("30"));
  });
  add("an empty Set", [](gnmi::SetRequest&) {});
  add("a value the device refuses", [](gnmi::SetRequest& r) { *r.add_update() = update(ETH0 + "/mtu", json("20000")); });
  add("a refused value after an accepted one of another entity", [](gnmi::SetRequest& r) {
    *r.mutable_prefix() = P("/devices/dev1");
    *r.add_update() = update("system/hostname", json("\"core2\""));
    *r.add_update() = update("interfaces[name=eth1]/mtu", json("10"));
  });
  add("a value of the wrong type", [](gnmi::SetRequest& r) { *r.add_update() = update(ETH0 + "/mtu", json("\"large\"")); });
  add("malformed JSON_IETF", [](gnmi::SetRequest& r) { *r.add_update() = update(ETH0 + "/mtu", jsonIetf("{")); });
  add("a state leaf", [](gnmi::SetRequest& r) {
    *r.add_update() = update(ETH0 + "/macAddress", json("\"02:00:00:00:00:99\""));
  });
  add("a key leaf", [](gnmi::SetRequest& r) { *r.add_update() = update(ETH0 + "/name", json("\"eth9\"")); });
  add("an update below a member that does not exist makes it", [](gnmi::SetRequest& r) {
    *r.add_update() = update("/devices/dev1/interfaces[name=eth77]/mtu", json("1500"));
  });
  add("an element the model does not have", [](gnmi::SetRequest& r) {
    *r.add_update() = update(ETH0 + "/mtux", json("1500"));
  });
  add("a wildcard", [](gnmi::SetRequest& r) {
    *r.add_update() = update("/devices/dev1/interfaces[name=*]/mtu", json("1500"));
  });
  add("a delete of a leaf (back to its default)", [](gnmi::SetRequest& r) { *r.add_delete_() = P(ETH0 + "/description"); });
  add("a union_replace", [](gnmi::SetRequest& r) {
    *r.add_union_replace() = update("/devices/dev1/system/hostname", json("\"core3\""));
  });
  return cases;
}

std::string valueText(const gnmi::TypedValue& v) {
  if (v.has_json_val()) return "json " + v.json_val();
  if (v.has_json_ietf_val()) return "json_ietf " + v.json_ietf_val();
  return v.ShortDebugString();
}

std::string prefixText(const gnmi::Path& prefix) {
  std::string out = "prefix " + VekGnmi::pathString(prefix);
  if (!prefix.target().empty()) out += " target " + prefix.target();
  return out;
}

// A Set request, a line for its prefix and each operation.
std::string requestText(const gnmi::SetRequest& r) {
  std::string out;
  if (r.has_prefix()) out += prefixText(r.prefix()) + "\n";
  for (const gnmi::Path& d : r.delete_()) out += "delete " + VekGnmi::pathString(d) + "\n";
  const std::pair<const char*, const google::protobuf::RepeatedPtrField<gnmi::Update>*> kinds[] = {
      {"replace", &r.replace()}, {"update", &r.update()}, {"union_replace", &r.union_replace()}};
  for (const auto& [kind, updates] : kinds) {
    for (const gnmi::Update& u : *updates) {
      out += std::string(kind) + " " + VekGnmi::pathString(u.path()) + " = " + valueText(u.val()) + "\n";
    }
  }
  return out;
}

// The answer: the response's time, prefix and results, or the status.
std::string answerText(const grpc::Status& status, const gnmi::SetResponse& response) {
  if (!status.ok()) {
    return "-> " + statusCodeName(status.error_code()) + " (" + std::to_string(static_cast<int>(status.error_code())) +
           "): " + status.error_message() + "\n";
  }
  std::string out = "-> timestamp " + std::to_string(response.timestamp());
  if (response.has_prefix()) out += " " + prefixText(response.prefix());
  out += "\n";
  for (const gnmi::UpdateResult& result : response.response()) {
    out += "   " + gnmi::UpdateResult::Operation_Name(result.op()) + " " + VekGnmi::pathString(result.path()) + "\n";
  }
  return out;
}

// A demo device of three interfaces.
class AgentSetGolden : public LiveAgent {
 protected:
  AgentSetGolden() : LiveAgent(withInterfaces(3)) {}
};

// Each Set of the list, one after the other, one second apart on the agent's
// clock: a "# what" line, the request (a line for its prefix and each
// operation), then "->" and the response (its time and prefix, a line per
// result) or the status; at the end the values the Sets touched, as a Get
// in JSON answers them (the refused Sets changed nothing).
TEST_F(AgentSetGolden, SetAnswersAsTheGoldenFileSays) {
  std::string rendered;
  for (const SetCase& c : setCases()) {
    fixture_.advance(1s);
    gnmi::SetResponse response;
    const grpc::Status status = set(c.request, &response);
    rendered += "# " + c.what + "\n" + requestText(c.request) + answerText(status, response);
  }
  gnmi::GetRequest touched;
  *touched.mutable_prefix() = P("/devices/dev1");
  for (const char* path : {"system/hostname", "interfaces[name=eth0]/mtu", "interfaces[name=eth0]/addresses",
                           "interfaces[name=eth1]/mtu", "interfaces[name=eth1]/description",
                           "interfaces[name=eth1]/enabled", "interfaces[name=eth2]/mtu"}) {
    *touched.add_path() = P(path);
  }
  gnmi::GetResponse values;
  ASSERT_THAT(get(touched, &values), IsOk());
  rendered += "# the values after the Sets\n";
  for (const gnmi::Notification& n : values.notification()) {
    for (const gnmi::Update& u : n.update()) {
      rendered += VekGnmi::joinedPathString(n.prefix(), u.path()) + " = " + valueText(u.val()) + "\n";
    }
  }
  std::string escaped;
  std::istringstream lines(rendered);
  for (std::string line; std::getline(lines, line);) escaped += OstrelTest::escapedLine(line) + "\n";
  OstrelTest::expectGolden("AgentSetAnswers.txt", escaped);
}

// A demo device of two interfaces, all of it got in one encoding.
class AgentGetGolden : public LiveAgent {
 protected:
  AgentGetGolden() : LiveAgent(withInterfaces(2)) {}

  // A Get of the root: per notification its timestamp and prefix, then one
  // line per update with the value's JSON text.
  std::string rootIn(gnmi::Encoding encoding) {
    gnmi::GetRequest request = getOf("/");
    request.set_encoding(encoding);
    gnmi::GetResponse response;
    EXPECT_THAT(get(request, &response), IsOk());
    std::string out;
    for (const gnmi::Notification& n : response.notification()) {
      out += "timestamp " + std::to_string(n.timestamp()) + " prefix " + VekGnmi::pathString(n.prefix()) + "\n";
      for (const gnmi::Update& u : n.update()) {
        const gnmi::TypedValue& v = u.val();
        const std::string value = v.has_json_val() ? v.json_val() : v.has_json_ietf_val() ? v.json_ietf_val()
                                                                                           : v.ShortDebugString();
        out += OstrelTest::escapedLine("  " + VekGnmi::pathString(u.path()) + " = " + value) + "\n";
      }
    }
    return out;
  }
};

TEST_F(AgentGetGolden, TheRootInJsonIsAsTheGoldenFileSays) {
  OstrelTest::expectGolden("AgentGetRootJson.txt", rootIn(gnmi::JSON));
}

TEST_F(AgentGetGolden, TheRootInJsonIetfIsAsTheGoldenFileSays) {
  OstrelTest::expectGolden("AgentGetRootJsonIetf.txt", rootIn(gnmi::JSON_IETF));
}

}  // namespace
