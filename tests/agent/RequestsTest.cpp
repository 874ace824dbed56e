// Validation of Subscribe, Get and Set requests, with their exact statuses.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "DemoModel.h"
#include "GnmiPathText.h"
#include "ModelSchema.h"
#include "Requests.h"
#include "StatusMatchers.h"
#include "TestPaths.h"

namespace {

using namespace VekGnmi::Server;

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
  SetRequest() : model_(buildDemoModel(4)), schema_(model_.root, isStateAttribute) {}

  grpc::Status plan(const gnmi::SetRequest& r, SetPlan& out) { return planSet(schema_, r, out); }
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

  DemoModel model_;
  ModelSchema schema_;
};

TEST_F(SetRequest, ADeleteIsUnimplemented) {
  gnmi::SetRequest r;
  *r.add_delete_() = P("/devices/dev1/interfaces[name=eth0]/description");
  *r.add_update() = update("/devices/dev1/interfaces[name=eth0]/mtu", "9000");
  SetPlan p;
  EXPECT_THAT(plan(r, p), StatusIs(grpc::StatusCode::UNIMPLEMENTED,
                                   "this target does not apply deletes; nothing was changed"));
}

TEST_F(SetRequest, AUnionReplaceIsUnimplemented) {
  gnmi::SetRequest u;
  *u.add_union_replace() = update("/devices/dev1/system/hostname", "\"x\"");
  SetPlan p;
  EXPECT_THAT(plan(u, p), StatusIs(grpc::StatusCode::UNIMPLEMENTED));
}

TEST_F(SetRequest, OperationsSplitIntoOneSetPerEntityReplacesFirst) {
  gnmi::SetRequest r;
  *r.mutable_prefix() = P("/devices/dev1");
  *r.add_update() = update("interfaces[name=eth1]/mtu", "9000");
  *r.add_update() = update("system/hostname", "\"core1\"");
  *r.add_replace() = update("interfaces[name=eth1]/description", "\"uplink\"");
  *r.add_update() = update("routes[prefix=10.0.0.2/31]/metric", "7");
  gnmi::Update ietf;
  *ietf.mutable_path() = P("interfaces[name=eth1]/enabled");
  ietf.mutable_val()->set_json_ietf_val("false");
  *r.add_update() = ietf;
  SetPlan p;
  ASSERT_THAT(plan(r, p), IsOk());
  ASSERT_EQ(p.entities.size(), 3u);
  // Replaces are planned first, as the library applies them.
  EXPECT_EQ(str(p.entities[0].entityPath), "/devices/dev1/interfaces[name=eth1]");
  const gnmi::SetRequest& eth1 = p.entities[0].request;
  EXPECT_EQ(str(eth1.prefix()), "/devices/dev1/interfaces[name=eth1]");
  ASSERT_EQ(eth1.replace_size(), 1);
  EXPECT_EQ(str(eth1.replace(0).path()), "/description");
  EXPECT_EQ(eth1.replace(0).val().string_val(), "uplink");
  ASSERT_EQ(eth1.update_size(), 2);
  EXPECT_EQ(str(eth1.update(0).path()), "/mtu");
  EXPECT_EQ(eth1.update(0).val().uint_val(), 9000u);
  EXPECT_FALSE(eth1.update(1).val().bool_val());
  EXPECT_TRUE(eth1.update(1).val().has_bool_val());
  EXPECT_EQ(str(p.entities[1].entityPath), "/devices/dev1/system");
  EXPECT_EQ(p.entities[1].request.update(0).val().string_val(), "core1");
  EXPECT_EQ(str(p.entities[2].entityPath), "/devices/dev1");
  EXPECT_EQ(str(p.entities[2].request.update(0).path()), "/routes[prefix=10.0.0.2/31]/metric");
  EXPECT_EQ(p.entities[2].request.update(0).val().uint_val(), 7u);
}

TEST_F(SetRequest, AMissingMemberIsNotFoundNamingTheOperation) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth9]/mtu", "1"),
              StatusIs(grpc::StatusCode::NOT_FOUND, "update 0: interfaces[name=eth9] does not exist under /devices/dev1"));
}

TEST_F(SetRequest, AValueOfTheWrongTypeIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth0]/mtu", "\"big\""),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "update 0: /devices/dev1/interfaces[name=eth0]/mtu: \"big\" is not an integer"));
}

TEST_F(SetRequest, APathThatIsNotALeafIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth0]/counters", "1"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("is not a leaf")));
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
  EXPECT_THAT(planOf("/devices/dev1/routes[prefix=nope]/metric", "1"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("'nope' is not a valid key of 'routes'")));
}

TEST_F(SetRequest, AMissingMemberOfAValueKeyedCollectionIsNotFound) {
  EXPECT_THAT(planOf("/devices/dev1/routes[prefix=192.168.0.0/24]/metric", "1"),
              StatusIs(grpc::StatusCode::NOT_FOUND,
                       "update 0: routes[prefix=192.168.0.0/24] does not exist under /devices/dev1"));
}

TEST_F(SetRequest, AnIntegerOutOfTheLeafsRangeIsRefused) {
  EXPECT_THAT(planOf("/devices/dev1/interfaces[name=eth0]/mtu", "70000000000"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("out of range")));
}

TEST_F(SetRequest, NothingToDoIsAnEmptyPlan) {
  SetPlan p;
  ASSERT_THAT(plan(gnmi::SetRequest(), p), IsOk());
  EXPECT_TRUE(p.entities.empty());
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
