// Validation of Subscribe, Get and Set requests, with their exact statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DemoModel.h"
#include "GnmiPathText.h"
#include "ModelSchema.h"
#include "ModelSource.h"
#include "Requests.h"
#include "SetPlan.h"
#include "StatusMatchers.h"
#include "TestPaths.h"

namespace {

using namespace VekGnmi::Server;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using VekGnmiTest::IsOk;
using VekGnmiTest::P;
using VekGnmiTest::StatusIs;

std::string str(const gnmi::Path& p) { return VekGnmi::pathString(p); }

gnmi::SubscribeRequest streamOf(const std::string& path, gnmi::SubscriptionMode mode,
                                uint64_t sample = 0) {
  gnmi::SubscribeRequest r;
  gnmi::Subscription* s = r.mutable_subscribe()->add_subscription();
  *s->mutable_path() = P(path);
  s->set_mode(mode);
  s->set_sample_interval(sample);
  return r;
}

grpc::Status parsed(const gnmi::SubscribeRequest& r) {
  SubscribeParams params;
  return parseSubscribe(r, {}, params);
}

// ---------------------------------------------------------------------------
// Subscribe

TEST(SubscribeRequest, APollFirstIsRefused) {
  gnmi::SubscribeRequest poll;
  poll.mutable_poll();
  EXPECT_THAT(parsed(poll), StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                                     "the first message of a Subscribe must be a SubscriptionList, not a Poll"));
}

TEST(SubscribeRequest, ARequestWithoutASubscriptionListIsRefused) {
  EXPECT_THAT(parsed(gnmi::SubscribeRequest()), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST(SubscribeRequest, AListWithoutASubscriptionIsRefused) {
  gnmi::SubscribeRequest empty;
  empty.mutable_subscribe();
  EXPECT_THAT(parsed(empty), StatusIs(grpc::StatusCode::INVALID_ARGUMENT, "the SubscriptionList has no subscription"));
}

TEST(SubscribeRequest, TargetDefinedIsOnChangeAndPathsJoinThePrefix) {
  gnmi::SubscribeRequest r = streamOf("interfaces[name=eth0]", gnmi::TARGET_DEFINED, 5000000000);
  *r.mutable_subscribe()->mutable_prefix() = P("/devices/dev1");
  r.mutable_subscribe()->mutable_prefix()->set_target("dut");
  r.mutable_subscribe()->set_updates_only(true);
  SubscribeParams params;
  ASSERT_THAT(parseSubscribe(r, {}, params), IsOk());
  EXPECT_EQ(params.mode, gnmi::SubscriptionList::STREAM);
  EXPECT_EQ(params.encoding, gnmi::JSON);
  EXPECT_EQ(params.target, "dut");
  EXPECT_TRUE(params.updatesOnly);
  ASSERT_EQ(params.entries.size(), 1u);
  EXPECT_EQ(params.entries[0].mode, gnmi::ON_CHANGE);
  EXPECT_EQ(str(params.entries[0].path), "/devices/dev1/interfaces[name=eth0]");
}

TEST(SubscribeRequest, ASampleIntervalOfZeroIsTheLowest) {
  SubscribeParams params;
  ASSERT_THAT(parseSubscribe(streamOf("/", gnmi::SAMPLE, 0), {}, params), IsOk());
  EXPECT_EQ(params.entries[0].sampleInterval, 100000000u);
}

TEST(SubscribeRequest, ASampleIntervalIsTakenAsItIs) {
  SubscribeParams params;
  ASSERT_THAT(parseSubscribe(streamOf("/", gnmi::SAMPLE, 2000000000), {}, params), IsOk());
  EXPECT_EQ(params.entries[0].sampleInterval, 2000000000u);
}

TEST(SubscribeRequest, ASampleIntervalBelowTheLowestIsRefused) {
  EXPECT_THAT(parsed(streamOf("/", gnmi::SAMPLE, 1000)),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "subscription 0: sample_interval 1000ns is below the lowest this target supports (100ms)"));
}

TEST(SubscribeRequest, AHeartbeatIntervalBelowTheLowestIsRefused) {
  gnmi::SubscribeRequest hb = streamOf("/", gnmi::ON_CHANGE);
  hb.mutable_subscribe()->mutable_subscription(0)->set_heartbeat_interval(5);
  EXPECT_THAT(parsed(hb), StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("heartbeat_interval 5ns")));
}

TEST(SubscribeRequest, AnUnknownSubscriptionModeIsRefused) {
  EXPECT_THAT(parsed(streamOf("/", static_cast<gnmi::SubscriptionMode>(9))),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, "subscription 0: unknown mode 9"));
}

TEST(SubscribeRequest, AnUnknownListModeIsRefused) {
  gnmi::SubscribeRequest r = streamOf("/", gnmi::ON_CHANGE);
  r.mutable_subscribe()->set_mode(static_cast<gnmi::SubscriptionList::Mode>(7));
  EXPECT_THAT(parsed(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST(SubscribeRequest, AnUnsupportedEncodingIsUnimplemented) {
  gnmi::SubscribeRequest r = streamOf("/", gnmi::ON_CHANGE);
  r.mutable_subscribe()->set_encoding(gnmi::ASCII);
  EXPECT_THAT(parsed(r), StatusIs(grpc::StatusCode::UNIMPLEMENTED));
}

TEST(SubscribeRequest, AnOriginIsRefused) {
  gnmi::SubscribeRequest r = streamOf("/", gnmi::ON_CHANGE);
  r.mutable_subscribe()->mutable_subscription(0)->mutable_path()->set_origin("rfc7951");
  EXPECT_THAT(parsed(r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("origin 'rfc7951'")));
}

TEST(SubscribeRequest, OnceAndPollIgnoreStreamModes) {
  gnmi::SubscribeRequest r = streamOf("/", static_cast<gnmi::SubscriptionMode>(9), 1);
  r.mutable_subscribe()->set_mode(gnmi::SubscriptionList::ONCE);
  SubscribeParams params;
  ASSERT_THAT(parseSubscribe(r, {}, params), IsOk());
  EXPECT_EQ(params.mode, gnmi::SubscriptionList::ONCE);
}

// ---------------------------------------------------------------------------
// Get

TEST(GetRequest, AnEmptyRequestGetsEverythingOfEveryType) {
  GetParams params;
  ASSERT_THAT(parseGet(gnmi::GetRequest(), params), IsOk());
  ASSERT_EQ(params.paths.size(), 1u);
  EXPECT_EQ(params.paths[0].elem_size(), 0);
  EXPECT_EQ(params.type, gnmi::GetRequest::ALL);
}

TEST(GetRequest, AnUnknownDataTypeIsRefused) {
  gnmi::GetRequest r;
  r.set_type(static_cast<gnmi::GetRequest::DataType>(5));
  GetParams params;
  EXPECT_THAT(parseGet(r, params), StatusIs(grpc::StatusCode::INVALID_ARGUMENT, "unknown data type 5"));
}

TEST(GetRequest, AnUnsupportedEncodingIsUnimplemented) {
  gnmi::GetRequest r;
  r.set_type(gnmi::GetRequest::CONFIG);
  r.set_encoding(gnmi::BYTES);
  GetParams params;
  EXPECT_THAT(parseGet(r, params), StatusIs(grpc::StatusCode::UNIMPLEMENTED));
}

TEST(GetRequest, PathsJoinThePrefix) {
  gnmi::GetRequest r;
  r.set_type(gnmi::GetRequest::CONFIG);
  r.set_encoding(gnmi::JSON_IETF);
  *r.mutable_prefix() = P("/devices");
  *r.add_path() = P("dev1/system");
  *r.add_path() = P("dev1/interfaces");
  GetParams params;
  ASSERT_THAT(parseGet(r, params), IsOk());
  ASSERT_EQ(params.paths.size(), 2u);
  EXPECT_EQ(str(params.paths[1]), "/devices/dev1/interfaces");
}

TEST(GetRequest, AllPassesEveryLeaf) {
  LeafInfo state;
  state.state = true;
  EXPECT_TRUE(passesDataType(gnmi::GetRequest::ALL, &state));
  EXPECT_TRUE(passesDataType(gnmi::GetRequest::ALL, nullptr));
}

TEST(GetRequest, ConfigPassesWritableLeavesOnly) {
  LeafInfo config;
  LeafInfo state;
  state.state = true;
  EXPECT_TRUE(passesDataType(gnmi::GetRequest::CONFIG, &config));
  EXPECT_FALSE(passesDataType(gnmi::GetRequest::CONFIG, &state));
}

TEST(GetRequest, StateAndOperationalPassStateLeavesOnly) {
  LeafInfo config;
  LeafInfo state;
  state.state = true;
  EXPECT_TRUE(passesDataType(gnmi::GetRequest::STATE, &state));
  EXPECT_TRUE(passesDataType(gnmi::GetRequest::OPERATIONAL, &state));
  EXPECT_FALSE(passesDataType(gnmi::GetRequest::OPERATIONAL, &config));
}

// ---------------------------------------------------------------------------
// Set

class SetRequest : public ::testing::Test {
 protected:
  SetRequest() : source_(makeDemoSource(4)) { source_->build(); }
  ~SetRequest() override { source_->teardown(); }

  grpc::Status plan(const gnmi::SetRequest& r, SetPlan& out) { return planSet(*source_, r, out); }
  // The status of a Set of one update of `path` to `json`.
  grpc::Status planOf(const std::string& path, const std::string& json) {
    gnmi::SetRequest r;
    *r.add_update() = update(path, json);
    SetPlan p;
    return plan(r, p);
  }

  static gnmi::Update update(const std::string& path, const std::string& json) {
    gnmi::Update u;
    *u.mutable_path() = P(path);
    u.mutable_val()->set_json_val(json);
    return u;
  }

  // The steps as "Kind path", a write with its typed value.
  static std::vector<std::string> steps(const SetPlan& p) {
    std::vector<std::string> out;
    for (const SetStep& s : p.steps) {
      static const char* const KINDS[] = {"Ensure", "Delete", "Clear", "Prune", "Write"};
      std::string line = std::string(KINDS[static_cast<int>(s.kind)]) + " " + str(s.path);
      if (s.kind == SetStep::Kind::Write) line += " " + s.value.typed.ShortDebugString();
      if (s.kind == SetStep::Kind::Write && s.replace) line += " (replace)";
      out.push_back(line);
    }
    return out;
  }

  std::shared_ptr<ModelSource> source_;
};

TEST_F(SetRequest, AUnionReplaceIsUnimplemented) {
  gnmi::SetRequest u;
  *u.add_union_replace() = update("/devices/dev1/system/hostname", "\"x\"");
  SetPlan p;
  EXPECT_THAT(plan(u, p), StatusIs(grpc::StatusCode::UNIMPLEMENTED,
                                   "this target does not apply union_replace; nothing was changed"));
}

TEST_F(SetRequest, OperationsBecomeStepsInGnmiOrderWithTheirValuesConverted) {
  gnmi::SetRequest r;
  *r.mutable_prefix() = P("/devices/dev1");
  *r.add_update() = update("interfaces[name=eth1]/mtu", "9000");
  *r.add_update() = update("system/hostname", "\"core1\"");
  *r.add_replace() = update("interfaces[name=eth1]/description", "\"uplink\"");
  *r.add_update() = update("routes[routesKey=10.0.0.2/31]/metric", "7");
  gnmi::Update ietf;
  *ietf.mutable_path() = P("interfaces[name=eth1]/enabled");
  ietf.mutable_val()->set_json_ietf_val("false");
  *r.add_update() = ietf;
  *r.add_delete_() = P("interfaces[name=eth3]");
  SetPlan p;
  ASSERT_THAT(plan(r, p), IsOk());
  const std::string eth1 = "/devices/dev1/interfaces[name=eth1]";
  EXPECT_THAT(steps(p), ElementsAre("Delete /devices/dev1/interfaces[name=eth3]",
                                    "Ensure " + eth1,
                                    "Write " + eth1 + "/description string_val: \"uplink\" (replace)",
                                    "Ensure " + eth1,
                                    "Write " + eth1 + "/mtu uint_val: 9000",
                                    "Ensure /devices/dev1/system",
                                    "Write /devices/dev1/system/hostname string_val: \"core1\"",
                                    "Ensure /devices/dev1/routes[routesKey=10.0.0.2/31]",
                                    "Write /devices/dev1/routes[routesKey=10.0.0.2/31]/metric uint_val: 7",
                                    "Ensure " + eth1,
                                    "Write " + eth1 + "/enabled bool_val: false"));
  EXPECT_EQ(p.steps[4].entityElems, 3);
  EXPECT_EQ(p.steps[8].entityElems, 2);  // routes[...] is a member of a collection of values
}

TEST_F(SetRequest, AJsonSubtreeBecomesItsEntitiesAndLeaves) {
  gnmi::SetRequest r;
  *r.add_update() = update("/devices/dev1/interfaces[name=eth9]",
                           R"({"name": "eth9", "mtu": 9000, "addresses": [{"addressesKey": "10.9.9.9", "prefixLength": 30}]})");
  SetPlan p;
  ASSERT_THAT(plan(r, p), IsOk());
  const std::string eth9 = "/devices/dev1/interfaces[name=eth9]";
  // Members in the order of their names (the value's own order is not kept).
  EXPECT_THAT(steps(p), ElementsAre("Ensure " + eth9,
                                    "Ensure " + eth9 + "/addresses[addressesKey=10.9.9.9]",
                                    "Write " + eth9 + "/addresses[addressesKey=10.9.9.9]/prefixLength uint_val: 30",
                                    "Ensure " + eth9,
                                    "Write " + eth9 + "/mtu uint_val: 9000"));
}

TEST_F(SetRequest, AReplaceEmptiesTheEntityFirstAndAWholeListKeepsOnlyWhatItLists) {
  gnmi::SetRequest replace;
  *replace.add_replace() = update("/devices/dev1/interfaces[name=eth1]/addresses", R"([{"addressesKey": "10.0.0.2"}])");
  *replace.add_replace() = update("/devices/dev1/interfaces[name=eth2]", R"({"mtu": 1400})");
  SetPlan p;
  ASSERT_THAT(plan(replace, p), IsOk());
  EXPECT_THAT(steps(p), ElementsAre("Prune /devices/dev1/interfaces[name=eth1]/addresses",
                                    "Delete /devices/dev1/interfaces[name=eth1]/addresses[addressesKey=10.0.0.2]",
                                    "Ensure /devices/dev1/interfaces[name=eth1]/addresses[addressesKey=10.0.0.2]",
                                    "Clear /devices/dev1/interfaces[name=eth2]",
                                    "Ensure /devices/dev1/interfaces[name=eth2]",
                                    "Write /devices/dev1/interfaces[name=eth2]/mtu uint_val: 1400 (replace)"));
}

TEST_F(SetRequest, ALaterReplaceOverridesEarlierWritesBelowIt) {
  gnmi::SetRequest r;
  *r.add_replace() = update("/devices/dev1/interfaces[name=eth1]/description", "\"first\"");
  *r.add_replace() = update("/devices/dev1/interfaces[name=eth1]", R"({"mtu": 1400})");
  SetPlan p;
  ASSERT_THAT(plan(r, p), IsOk());
  const std::string eth1 = "/devices/dev1/interfaces[name=eth1]";
  EXPECT_THAT(steps(p), ElementsAre("Clear " + eth1, "Ensure " + eth1, "Write " + eth1 + "/mtu uint_val: 1400 (replace)"));
}

TEST_F(SetRequest, AValueOfTheWrongTypeIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth0]/mtu", "\"big\""),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/interfaces[name=eth0]/mtu: \"big\" is not an integer"));
}

TEST_F(SetRequest, AScalarForAMemberIsRefusedAsNotALeaf) {
  EXPECT_THAT(planOf("/devices/dev1/routes[routesKey=10.0.0.2/31]", "1"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/routes[routesKey=10.0.0.2/31] is not a leaf; its value is a JSON "
                       "object of its members"));
}

TEST_F(SetRequest, AStateSubtreeIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth0]/counters", "{}"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/interfaces[name=eth0]/counters is state; clients cannot set it"));
}

TEST_F(SetRequest, AWildcardIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=*]/mtu", "1"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("wildcards are not allowed")));
}

TEST_F(SetRequest, AnUnknownElementIsNotFound) {
  EXPECT_THAT(planOf("/devices/dev1/nosuch", "1"), StatusIs(grpc::StatusCode::NOT_FOUND));
}

TEST_F(SetRequest, ADirectoryIsRefused) {
  EXPECT_THAT(planOf("/devices", "1"), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(SetRequest, AKeyThatIsNotValidIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/routes[routesKey=nope]/metric", "1"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("'nope' is not a valid key of 'routes'")));
}

TEST_F(SetRequest, AnIntegerOutOfTheLeafsRangeIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth0]/mtu", "70000000000"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("out of range")));
}

TEST_F(SetRequest, AMemberOfTheValueThatTheTypeDoesNotHaveIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth9]", R"({"mtux": 1})"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: the value of /devices/dev1/interfaces[name=eth9] has a member 'mtux', which "
                       "Demo::Interface does not have"));
}

TEST_F(SetRequest, AKeyInTheValueOtherThanThePathsIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth9]", R"({"name": "eth8"})"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("not the path's")));
}

TEST_F(SetRequest, ADeleteOfStateIsRefused) {
  gnmi::SetRequest deleteState;
  *deleteState.add_delete_() = P("/devices/dev1/interfaces[name=eth0]/name");
  SetPlan p;
  EXPECT_THAT(plan(deleteState, p),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "delete 0: /devices/dev1/interfaces[name=eth0]/name is state; clients cannot delete it"));
}

TEST_F(SetRequest, AJsonValueNestedTooDeeplyIsRefusedBeforeItIsParsed) {
  EXPECT_THAT(planOf("/devices/dev1/system/motd", std::string(100000, '[') + std::string(100000, ']')),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/system/motd: the JSON value nests arrays and objects deeper than 64 "
                       "levels"));
}

TEST_F(SetRequest, AJsonValueNested64LevelsIsAccepted) {
  EXPECT_THAT(planOf("/devices/dev1/system/motd", std::string(64, '[') + std::string(64, ']')), IsOk());
}

TEST_F(SetRequest, NothingToDoIsAnEmptyPlan) {
  SetPlan p;
  ASSERT_THAT(plan(gnmi::SetRequest(), p), IsOk());
  EXPECT_TRUE(p.steps.empty());
}

TEST(SetResponse, ListsOperationsWithTheClientsPaths) {
  gnmi::SetRequest r;
  *r.mutable_prefix() = P("/devices/dev1");
  r.mutable_prefix()->set_target("dut");
  gnmi::Update u;
  *u.mutable_path() = P("system/hostname");
  *r.add_update() = u;
  *u.mutable_path() = P("interfaces[name=eth0]/mtu");
  *r.add_replace() = u;
  const gnmi::SetResponse resp = setResponse(r, 123);
  EXPECT_EQ(resp.timestamp(), 123);
  EXPECT_EQ(resp.prefix().target(), "dut");
  ASSERT_EQ(resp.response_size(), 2);
  EXPECT_EQ(resp.response(0).op(), gnmi::UpdateResult::REPLACE);
  EXPECT_EQ(str(resp.response(0).path()), "/interfaces[name=eth0]/mtu");
  EXPECT_EQ(resp.response(1).op(), gnmi::UpdateResult::UPDATE);
}

}  // namespace
