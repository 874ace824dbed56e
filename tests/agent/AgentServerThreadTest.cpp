// vekgnmid over a real gRPC channel on a loopback port, with the library:
// Capabilities, the exact statuses of Get, Set and Subscribe requests (those
// the agent's validation gives and those of the library's Set), the client's
// output and errors, and shutdown with streams that sent nothing yet.
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"
#include "ClientCommands.h"
#include "SubscribeClient.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;

class AgentServerTest : public ::testing::Test {
 protected:
  AgentServerTest()
      : fixture_(AgentOptions{}, VekGnmi::Server::makeLibraryBridge) {}

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

  AgentFixture fixture_;
};

void expectStatus(const grpc::Status& status, grpc::StatusCode code, const std::string& message) {
  EXPECT_EQ(status.error_code(), code) << status.error_message();
  EXPECT_EQ(status.error_message(), message);
}

TEST_F(AgentServerTest, CapabilitiesListVersionModelsAndEncodings) {
  grpc::ClientContext context;
  withDeadline(context);
  gnmi::CapabilityResponse response;
  ASSERT_TRUE(fixture_.stub().Capabilities(&context, gnmi::CapabilityRequest(), &response).ok());
  EXPECT_EQ(response.gnmi_version(), "0.10.0");
  ASSERT_EQ(response.supported_models_size(), 1);
  EXPECT_EQ(response.supported_models(0).name(), "Demo");
  EXPECT_EQ(response.supported_models(0).organization(), "libVekTypeDecoder");
  ASSERT_EQ(response.supported_encodings_size(), 3);
  EXPECT_EQ(response.supported_encodings(0), gnmi::JSON);
  EXPECT_EQ(response.supported_encodings(1), gnmi::JSON_IETF);
  EXPECT_EQ(response.supported_encodings(2), gnmi::PROTO);
}

TEST_F(AgentServerTest, GetStatuses) {
  gnmi::GetRequest r;
  *r.add_path() = P("/devices/dev1/nosuch");
  expectStatus(get(r), grpc::StatusCode::NOT_FOUND,
               "Demo::Device has no element 'nosuch' (below /devices/dev1)");
  r.clear_path();
  *r.add_path() = P("/devices/dev1/interfaces[name=eth99]");
  expectStatus(get(r), grpc::StatusCode::NOT_FOUND,
               "nothing exists at /devices/dev1/interfaces[name=eth99]");
  r.clear_path();
  *r.add_path() = P("/devices/dev1/routes[routesKey=x]");
  EXPECT_EQ(get(r).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  // A key name the list does not have is refused, not read as eth0's.
  gnmi::Path emptyName = P("/devices/dev1/interfaces");  // interfaces[=eth0]
  (*emptyName.mutable_elem(2)->mutable_key())[""] = "eth0";
  for (const gnmi::Path& path : {P("/devices/dev1/interfaces[namex=eth0]"), emptyName}) {
    r.clear_path();
    *r.add_path() = path;
    const grpc::Status status = get(r);
    EXPECT_EQ(status.error_code(), grpc::StatusCode::INVALID_ARGUMENT) << path.ShortDebugString();
    EXPECT_THAT(status.error_message(),
                ::testing::StartsWith("'interfaces' under /devices/dev1 is keyed by [name], not "));
  }
  r.set_encoding(gnmi::ASCII);
  expectStatus(get(r), grpc::StatusCode::UNIMPLEMENTED,
               "encoding ASCII is not supported; use JSON, JSON_IETF or PROTO");
  r.set_encoding(gnmi::JSON);
  r.set_type(static_cast<gnmi::GetRequest::DataType>(9));
  expectStatus(get(r), grpc::StatusCode::INVALID_ARGUMENT, "unknown data type 9");
  gnmi::GetRequest origin;
  *origin.add_path() = P("/devices");
  origin.mutable_path(0)->set_origin("cli");
  EXPECT_EQ(get(origin).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  gnmi::GetRequest valid;
  *valid.add_path() = P("/devices/dev1/interfaces[name=eth0]/mtu");
  gnmi::GetResponse response;
  ASSERT_TRUE(get(valid, &response).ok());
  ASSERT_EQ(response.notification_size(), 1);
  ASSERT_EQ(response.notification(0).update_size(), 1);
  EXPECT_EQ(response.notification(0).update(0).val().json_val(), "9000");
}

TEST_F(AgentServerTest, SetStatuses) {
  gnmi::SetRequest unionReplace;
  gnmi::Update* u = unionReplace.add_union_replace();
  *u->mutable_path() = P("/devices/dev1/system/hostname");
  EXPECT_EQ(set(unionReplace).error_code(), grpc::StatusCode::UNIMPLEMENTED);

  gnmi::SetRequest bad;
  u = bad.add_update();
  *u->mutable_path() = P("/devices/dev1/interfaces[name=eth0]/mtu");
  u->mutable_val()->set_json_val("\"large\"");
  expectStatus(set(bad), grpc::StatusCode::INVALID_ARGUMENT,
               "update 0: /devices/dev1/interfaces[name=eth0]/mtu: \"large\" is not an integer");
  u->mutable_val()->set_json_ietf_val("{");
  EXPECT_EQ(set(bad).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  *u->mutable_path() = P("/devices/dev1/interfaces[name=eth0]/mtux");
  u->mutable_val()->set_json_val("1500");
  expectStatus(set(bad), grpc::StatusCode::NOT_FOUND,
               "update 0: Demo::Interface has no element 'mtux' (below /devices/dev1/interfaces[name=eth0])");

  gnmi::SetRequest empty;
  gnmi::SetResponse response;
  ASSERT_TRUE(set(empty, &response).ok());
  EXPECT_GT(response.timestamp(), 0);
  EXPECT_EQ(response.response_size(), 0);

  // A value the device refuses (its MTU range, checked when the value is
  // written) is an invalid argument, whatever the library's Set says.
  gnmi::SetRequest outOfRange;
  u = outOfRange.add_update();
  *u->mutable_path() = P("/devices/dev1/interfaces[name=eth0]/mtu");
  u->mutable_val()->set_json_val("10000");
  expectStatus(set(outOfRange), grpc::StatusCode::INVALID_ARGUMENT,
               "the device refused /devices/dev1/interfaces[name=eth0]/mtu: mtu 10000 is outside 64..9216; nothing "
               "was changed");
  // State (written by the device only) and read-only leaves.
  gnmi::SetRequest state;
  u = state.add_update();
  *u->mutable_path() = P("/devices/dev1/interfaces[name=eth0]/macAddress");
  u->mutable_val()->set_json_val("\"02:00:00:00:00:99\"");
  expectStatus(set(state), grpc::StatusCode::INVALID_ARGUMENT,
               "update 0: /devices/dev1/interfaces[name=eth0]/macAddress is state; clients cannot set it");
  *u->mutable_path() = P("/devices/dev1/interfaces[name=eth0]/name");
  u->mutable_val()->set_json_val("\"eth9\"");
  EXPECT_EQ(set(state).error_code(), grpc::StatusCode::INVALID_ARGUMENT);

  gnmi::SetRequest valid;
  u = valid.add_update();
  *u->mutable_path() = P("/devices/dev1/interfaces[name=eth0]/mtu");
  u->mutable_val()->set_json_val("1600");
  ASSERT_TRUE(set(valid, &response).ok());
  ASSERT_EQ(response.response_size(), 1);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::UPDATE);
  EXPECT_EQ(fixture_.agent().loop().call([&] {
    return fixture_.agent().model().device->entity("interfaces", Vek::genericIfOf("eth0"))->value<unsigned>("mtu");
  }),
            1600u);
}

// The demo device's Set beyond leaves: members made, removed and replaced.
class AgentSetTest : public AgentServerTest {
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
    gnmi::GetRequest r;
    *r.add_path() = P(path);
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

TEST_F(AgentSetTest, DeletingAMemberRemovesItAndStreamsItsDelete) {
  auto stream = watchInterfaces();
  gnmi::SetRequest r;
  *r.add_delete_() = P(ETH + "eth2]");
  *r.add_delete_() = P(ETH + "eth99]");  // not there: accepted, nothing to do
  gnmi::SetResponse response;
  ASSERT_TRUE(set(r, &response).ok());
  ASSERT_EQ(response.response_size(), 2);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::DELETE);
  EXPECT_EQ(until(*stream, {"delete " + ETH + "eth2]"}), std::vector<std::string>{"delete " + ETH + "eth2]"});
  EXPECT_TRUE(got(ETH + "eth2]").empty());
  EXPECT_FALSE(got(ETH + "eth3]").empty());
  stream->context.TryCancel();
}

TEST_F(AgentSetTest, AnUpdateBelowAMemberThatDoesNotExistMakesIt) {
  auto stream = watchInterfaces();
  gnmi::SetRequest r;
  *r.add_update() = json(ETH + "eth20]/mtu", "9000");
  *r.add_update() = json(ETH + "eth20]/addresses[addressesKey=10.9.9.9]/prefixLength", "30");
  ASSERT_TRUE(set(r).ok());
  // The new member is published, then the values the Set wrote.
  const std::vector<std::string> streamed =
      until(*stream, {ETH + "eth20]/mtu=ietf:9000", ETH + "eth20]/addresses[addressesKey=10.9.9.9]/prefixLength=ietf:30"});
  EXPECT_THAT(streamed, ::testing::Contains(ETH + "eth20]/name=ietf:\"eth20\""));
  EXPECT_EQ(got(ETH + "eth20]", gnmi::GetRequest::CONFIG),
            (std::vector<std::string>{ETH + "eth20]/description=\"\"", ETH + "eth20]/mtu=9000",
                                      ETH + "eth20]/enabled=true",
                                      ETH + "eth20]/addresses[addressesKey=10.9.9.9]/addressesKey=\"10.9.9.9\"",
                                      ETH + "eth20]/addresses[addressesKey=10.9.9.9]/prefixLength=30",
                                      ETH + "eth20]/addresses[addressesKey=10.9.9.9]/origin=\"static\""}));
  stream->context.TryCancel();
}

TEST_F(AgentSetTest, AReplaceMakesASubtreeExactlyItsValue) {
  gnmi::SetRequest r;
  *r.add_replace() = json(ETH + "eth1]", R"({"name": "eth1", "description": "replaced",
                                             "addresses": [{"addressesKey": "10.1.1.1", "prefixLength": 24}]})");
  ASSERT_TRUE(set(r).ok());
  // The MTU the value leaves out is back at its default; the old address is
  // gone; the state stays.
  EXPECT_EQ(got(ETH + "eth1]", gnmi::GetRequest::CONFIG),
            (std::vector<std::string>{ETH + "eth1]/description=\"replaced\"", ETH + "eth1]/mtu=1500",
                                      ETH + "eth1]/enabled=true",
                                      ETH + "eth1]/addresses[addressesKey=10.1.1.1]/addressesKey=\"10.1.1.1\"",
                                      ETH + "eth1]/addresses[addressesKey=10.1.1.1]/prefixLength=24",
                                      ETH + "eth1]/addresses[addressesKey=10.1.1.1]/origin=\"static\""}));
  EXPECT_EQ(got(ETH + "eth1]/operStatus"), std::vector<std::string>{ETH + "eth1]/operStatus=\"up\""});
}

TEST_F(AgentSetTest, ARefusedSetChangesNothingItsStructuralStepsDid) {
  const std::vector<std::string> eth1 = got(ETH + "eth1]");
  const std::vector<std::string> eth3 = got(ETH + "eth3]");
  ASSERT_FALSE(eth1.empty());
  gnmi::SetRequest r;
  *r.add_delete_() = P(ETH + "eth1]");
  *r.add_replace() = json(ETH + "eth3]", R"({"description": "replaced"})");
  *r.add_update() = json(ETH + "eth30]/description", R"("new")");
  *r.add_update() = json(ETH + "eth2]/mtu", "10000");  // the device refuses it
  expectStatus(set(r), grpc::StatusCode::INVALID_ARGUMENT,
               "the device refused /devices/dev1/interfaces[name=eth2]/mtu: mtu 10000 is outside 64..9216; nothing "
               "was changed");
  // eth1 is back with its configuration and state, eth3 as it was, eth30
  // was never made.
  EXPECT_EQ(got(ETH + "eth1]"), eth1);
  EXPECT_EQ(got(ETH + "eth3]"), eth3);
  EXPECT_TRUE(got(ETH + "eth30]").empty());
  // A member the device does not let clients make.
  gnmi::SetRequest neighbor;
  *neighbor.add_update() = json("/devices/dev1/neighbors[name=nbr9]/remoteSystem", R"("x")");
  EXPECT_EQ(set(neighbor).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  EXPECT_TRUE(got("/devices/dev1/neighbors[name=nbr9]").empty());
}

TEST_F(AgentSetTest, AValueNestedTooDeeplyIsRefusedAndTheAgentGoesOn) {
  gnmi::SetRequest r;
  *r.add_update() = json("/devices/dev1/system/motd", std::string(100000, '[') + std::string(100000, ']'));
  expectStatus(set(r), grpc::StatusCode::INVALID_ARGUMENT,
               "update 0: /devices/dev1/system/motd: the JSON value nests arrays and objects deeper than 64 levels");
  EXPECT_EQ(got("/devices/dev1/system/motd"), std::vector<std::string>{"/devices/dev1/system/motd={\"banner\":\"welcome\"}"});
}

TEST_F(AgentServerTest, SubscribeStatuses) {
  gnmi::SubscribeRequest poll;
  poll.mutable_poll();
  expectStatus(subscribeOnce(poll), grpc::StatusCode::INVALID_ARGUMENT,
               "the first message of a Subscribe must be a SubscriptionList, not a Poll");
  gnmi::SubscribeRequest r;
  gnmi::Subscription* s = r.mutable_subscribe()->add_subscription();
  *s->mutable_path() = P("/devices/dev1/interfaces[name=eth0]");
  s->set_mode(gnmi::SAMPLE);
  s->set_sample_interval(10);
  expectStatus(subscribeOnce(r), grpc::StatusCode::INVALID_ARGUMENT,
               "subscription 0: sample_interval 10ns is below the lowest this target supports (100ms)");
  s->set_mode(gnmi::TARGET_DEFINED);
  r.mutable_subscribe()->set_encoding(gnmi::BYTES);
  EXPECT_EQ(subscribeOnce(r).error_code(), grpc::StatusCode::UNIMPLEMENTED);
  r.mutable_subscribe()->set_encoding(gnmi::JSON);
  // A path the model cannot hold is not implemented (it is no absent value),
  // in every mode.
  *s->mutable_path() = P("/devices/dev1/nosuch");
  expectStatus(subscribeOnce(r), grpc::StatusCode::UNIMPLEMENTED,
               "this target does not implement the path /devices/dev1/nosuch: Demo::Device has no element 'nosuch' "
               "(below /devices/dev1)");
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::ONCE);
  EXPECT_EQ(subscribeOnce(r).error_code(), grpc::StatusCode::UNIMPLEMENTED);
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::STREAM);
  *s->mutable_path() = P("/devices/dev1/interfaces[namex=eth0]");
  EXPECT_EQ(subscribeOnce(r).error_code(), grpc::StatusCode::INVALID_ARGUMENT);
  // A valid path with nothing under it now is not an error: ONCE ends with
  // OK after an empty sync.
  *s->mutable_path() = P("/devices/dev1/interfaces[name=eth99]");
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::ONCE);
  EXPECT_TRUE(subscribeOnce(r).ok());
}

TEST_F(AgentServerTest, AStreamClosedWithoutASubscriptionListIsAnInvalidArgument) {
  grpc::ClientContext context;
  withDeadline(context);
  auto stream = fixture_.stub().Subscribe(&context);
  stream->WritesDone();
  gnmi::SubscribeResponse response;
  EXPECT_FALSE(stream->Read(&response));
  expectStatus(stream->Finish(), grpc::StatusCode::INVALID_ARGUMENT,
               "the client closed the stream without sending a SubscriptionList");
}

TEST_F(AgentServerTest, BadRequestsDoNotDisturbOtherClients) {
  std::vector<std::thread> threads;
  std::atomic<int> capabilitiesOk{0};
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([&, t] {
      auto stub = fixture_.newStub();
      for (int i = 0; i < 20; ++i) {
        grpc::ClientContext context;
        withDeadline(context);
        if (t % 2 == 0) {
          gnmi::GetRequest r;
          *r.add_path() = P("/devices/dev1/nosuch" + std::to_string(i));
          gnmi::GetResponse response;
          EXPECT_EQ(stub->Get(&context, r, &response).error_code(), grpc::StatusCode::NOT_FOUND);
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

TEST_F(AgentServerTest, ShutdownEndsOpenStreamsWithAStatus) {
  // Streams that sent nothing yet stay open until the agent stops.
  std::vector<std::unique_ptr<grpc::ClientContext>> contexts;
  std::vector<std::unique_ptr<grpc::ClientReaderWriter<gnmi::SubscribeRequest, gnmi::SubscribeResponse>>>
      streams;
  for (int i = 0; i < 3; ++i) {
    contexts.push_back(std::make_unique<grpc::ClientContext>());
    withDeadline(*contexts.back());
    streams.push_back(fixture_.stub().Subscribe(contexts.back().get()));
  }
  // Let the server see the streams before it stops.
  for (int i = 0; i < 400; ++i) {
    if (fixture_.agent().loop().call([&] { return fixture_.agent().openStreamCount(); }) == 3) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_EQ(fixture_.agent().loop().call([&] { return fixture_.agent().openStreamCount(); }), 3u);
  fixture_.stop();
  for (auto& stream : streams) {
    gnmi::SubscribeResponse response;
    EXPECT_FALSE(stream->Read(&response));
    const grpc::Status status = stream->Finish();
    EXPECT_EQ(status.error_code(), grpc::StatusCode::UNAVAILABLE) << status.error_message();
    EXPECT_EQ(status.error_message(), "the agent is shutting down");
  }
}

TEST_F(AgentServerTest, ClientPrintsCapabilitiesAndErrors) {
  std::ostringstream out;
  std::ostringstream err;
  EXPECT_EQ(VekGnmi::Client::runClient({"--address", fixture_.address(), "capabilities"}, out, err), 0);
  EXPECT_EQ(out.str(),
            R"({"gNMI_version":"0.10.0","supported_encodings":["JSON","JSON_IETF","PROTO"],)"
            R"("supported_models":[{"name":"Demo","organization":"libVekTypeDecoder","version":"1.0.0"}]})"
            "\n");
  std::ostringstream out2;
  std::ostringstream err2;
  EXPECT_EQ(VekGnmi::Client::runClient(
                {"-a", fixture_.address(), "get", "--path", "/devices/dev1/interfaces[name=eth0]/mtux"},
                out2, err2),
            1);
  EXPECT_EQ(err2.str(),
            "error: NOT_FOUND (5): Demo::Interface has no element 'mtux' (below "
            "/devices/dev1/interfaces[name=eth0])\n");
  std::ostringstream out3;
  std::ostringstream err3;
  EXPECT_EQ(VekGnmi::Client::runClient(
                {"-a", fixture_.address(), "set", "--delete", "/devices/dev1/neighbors[name=nbr0]"}, out3, err3),
            1);
  EXPECT_EQ(err3.str(),
            "error: INVALID_ARGUMENT (3): delete 0: /devices/dev1/neighbors[name=nbr0] is state; clients cannot "
            "delete it\n");
  std::ostringstream out4;
  std::ostringstream err4;
  EXPECT_EQ(VekGnmi::Client::runClient({"-a", fixture_.address(), "subscribe", "--mode", "once",
                                        "--encoding", "ascii"},
                                       out4, err4),
            1);
  EXPECT_EQ(err4.str(),
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

}  // namespace
