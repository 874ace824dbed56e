// vekgnmid over a real gRPC channel on a loopback port, with the library:
// Capabilities, the exact statuses of Get, Set and Subscribe requests (those
// the agent's validation gives and those of the library's Set), the client's
// output and errors, and shutdown with streams that sent nothing yet. The
// agent runs on a manual clock and the runtime on a test clock: every time
// it answers is fixed.
#include <atomic>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "AgentFixture.h"
#include "ClientCommands.h"
#include "StatusMatchers.h"

namespace {

using namespace VekGnmiTest;
using VekGnmi::Server::AgentOptions;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

using namespace std::chrono_literals;

const std::string ETH0 = "/devices/dev1/interfaces[name=eth0]";

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

TEST_F(AgentGetStatus, AKeyTheListDoesNotHaveIsAnInvalidArgument) {
  EXPECT_THAT(get(getOf("/devices/dev1/routes[prefix=x]")), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentGetStatus, AnEncodingOtherThanJsonJsonIetfAndProtoIsUnimplemented) {
  gnmi::GetRequest r = getOf("/devices/dev1/routes[prefix=x]");
  r.set_encoding(gnmi::ASCII);
  EXPECT_THAT(get(r), StatusIs(grpc::StatusCode::UNIMPLEMENTED,
                               "encoding ASCII is not supported; use JSON, JSON_IETF or PROTO"));
}

TEST_F(AgentGetStatus, AnUnknownDataTypeIsAnInvalidArgument) {
  gnmi::GetRequest r = getOf("/devices/dev1/routes[prefix=x]");
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
// Set

class AgentSetStatus : public LiveAgent {
 protected:
  unsigned eth0Mtu() {
    return fixture_.onLoop([&] {
      return fixture_.agent().model().device->entity("interfaces", Vek::genericIfOf("eth0"))->value<unsigned>("mtu");
    });
  }
};

TEST_F(AgentSetStatus, ADeleteIsUnimplementedAndChangesNothing) {
  gnmi::SetRequest deletes;
  *deletes.add_delete_() = P(ETH0 + "/description");
  EXPECT_THAT(set(deletes), StatusIs(grpc::StatusCode::UNIMPLEMENTED,
                                     "this target does not apply deletes; nothing was changed"));
}

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

TEST_F(AgentSetStatus, AMissingMemberIsNotFound) {
  EXPECT_THAT(set(updateOf("/devices/dev1/interfaces[name=eth77]/mtu", "1500")),
              StatusIs(grpc::StatusCode::NOT_FOUND, "update 0: interfaces[name=eth77] does not exist under /devices/dev1"));
}

TEST_F(AgentSetStatus, AnEmptySetSucceedsWithATimeAndNoResults) {
  gnmi::SetResponse response;
  ASSERT_THAT(set(gnmi::SetRequest(), &response), IsOk());
  EXPECT_EQ(response.timestamp(), fixture_.clock().utcNanos());
  EXPECT_EQ(response.response_size(), 0);
}

TEST_F(AgentSetStatus, AValueTheDeviceRefusesComesBackAsTheLibrarysNotFound) {
  EXPECT_THAT(set(updateOf(ETH0 + "/mtu", "20000")),
              StatusIs(grpc::StatusCode::NOT_FOUND, HasSubstr("mtu 20000 is outside 64..9216")));
  EXPECT_EQ(eth0Mtu(), 9000u);
}

TEST_F(AgentSetStatus, AStateLeafIsNotFound) {
  EXPECT_THAT(set(updateOf(ETH0 + "/macAddress", "\"02:00:00:00:00:99\"")),
              StatusIs(grpc::StatusCode::NOT_FOUND, HasSubstr("macAddress is state, written by the device only")));
}

TEST_F(AgentSetStatus, AKeyLeafIsNotFound) {
  EXPECT_THAT(set(updateOf(ETH0 + "/name", "\"eth9\"")), StatusIs(grpc::StatusCode::NOT_FOUND));
}

TEST_F(AgentSetStatus, AValidUpdateIsAppliedAndAnswered) {
  gnmi::SetResponse response;
  ASSERT_THAT(set(updateOf(ETH0 + "/mtu", "1600"), &response), IsOk());
  ASSERT_EQ(response.response_size(), 1);
  EXPECT_EQ(response.response(0).op(), gnmi::UpdateResult::UPDATE);
  EXPECT_EQ(eth0Mtu(), 1600u);
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

TEST_F(AgentSubscribeStatus, AnUnknownElementIsNotFound) {
  gnmi::SubscribeRequest r = eth0In(gnmi::TARGET_DEFINED);
  *r.mutable_subscribe()->mutable_subscription(0)->mutable_path() = P("/devices/dev1/nosuch");
  EXPECT_THAT(subscribeOnce(r), StatusIs(grpc::StatusCode::NOT_FOUND));
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
  EXPECT_EQ(run({"-a", fixture_.address(), "set", "--delete", "/devices/dev1"}), 1);
  EXPECT_EQ(err_.str(), "error: UNIMPLEMENTED (12): this target does not apply deletes; nothing was changed\n");
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

}  // namespace
