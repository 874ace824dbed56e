// Thousands of randomly mutated but well-formed gNMI requests against the
// agent and the library over a real channel: every one gets an answer within
// its deadline (a status, or for a subscription that stays open its
// sync_response), the agent keeps serving, and the model stays consistent:
// members come and go only as Sets make and delete them (never the state
// the device alone writes: the neighbours), every checked attribute within
// its checks, no walk left pending, and what a Get returns is what the
// model holds.
#include <map>
#include <random>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ostrel/VekTypeWalker.h>

#include "AgentFixture.h"
#include "DemoModel.h"
#include "StatusMatchers.h"

namespace {

using namespace VekGnmiTest;

class RequestFuzzer {
 public:
  explicit RequestFuzzer(uint64_t seed) : random_(seed) {}

  gnmi::Path path() {
    static const char* const names[] = {"devices", "dev1",   "interfaces", "system", "mtu",  "counters",
                                        "inPkts",  "routes", "neighbors",  "*",      "...",  "nosuch",
                                        "",        "name",   "interface_ptr", "addresses", "motd", "routesValue"};
    static const char* const keys[] = {"name", "prefix", "addressesKey", "x", ""};
    static const char* const values[] = {"eth0", "eth1", "*", "10.0.0.0/31", "10.0.0.0", "bogus", "", "eth99",
                                         "nbr0", "]", "a/b"};
    gnmi::Path p;
    const int n = pick(7);
    for (int i = 0; i < n; ++i) {
      gnmi::PathElem* e = p.add_elem();
      e->set_name(names[pick(std::size(names))]);
      const int k = pick(4) == 0 ? pick(3) : 0;
      for (int j = 0; j < k; ++j) (*e->mutable_key())[keys[pick(std::size(keys))]] = values[pick(std::size(values))];
    }
    if (pick(20) == 0) p.set_origin(pick(2) ? "openconfig" : "cli");
    if (pick(10) == 0) p.set_target("t");
    return p;
  }

  gnmi::TypedValue value() {
    gnmi::TypedValue v;
    switch (pick(9)) {
      case 0: v.set_json_val(std::to_string(static_cast<int64_t>(random_()))); break;
      case 1: v.set_json_ietf_val("\"" + std::to_string(random_()) + "\""); break;
      case 2: v.set_json_val(pick(2) ? "{\"a\":1}" : "{"); break;
      case 3: v.set_uint_val(random_()); break;
      case 4: v.set_int_val(static_cast<int64_t>(random_())); break;
      case 5: v.set_string_val("s"); break;
      case 6: v.set_bool_val(true); break;
      case 7: v.set_double_val(1.5); break;
      default: break;  // no value
    }
    return v;
  }

  int encoding() { return pick(8) == 0 ? static_cast<int>(pick(7)) : static_cast<int>(gnmi::JSON); }

  gnmi::GetRequest get() {
    gnmi::GetRequest r;
    if (pick(2)) *r.mutable_prefix() = path();
    for (int i = pick(3); i > 0; --i) *r.add_path() = path();
    r.set_type(static_cast<gnmi::GetRequest::DataType>(pick(5)));
    r.set_encoding(static_cast<gnmi::Encoding>(encoding()));
    return r;
  }

  gnmi::SetRequest set() {
    gnmi::SetRequest r;
    if (pick(2)) *r.mutable_prefix() = path();
    for (int i = pick(3); i > 0; --i) {
      gnmi::Update* u = pick(2) ? r.add_update() : r.add_replace();
      *u->mutable_path() = path();
      *u->mutable_val() = value();
    }
    if (pick(6) == 0) *r.add_delete_() = path();
    if (pick(12) == 0) *r.add_union_replace()->mutable_path() = path();
    return r;
  }

  gnmi::SubscribeRequest subscribe() {
    gnmi::SubscribeRequest r;
    if (pick(10) == 0) {
      r.mutable_poll();
      return r;
    }
    gnmi::SubscriptionList* list = r.mutable_subscribe();
    if (pick(2)) *list->mutable_prefix() = path();
    list->set_mode(static_cast<gnmi::SubscriptionList::Mode>(pick(4)));
    list->set_encoding(static_cast<gnmi::Encoding>(encoding()));
    for (int i = pick(3); i > 0; --i) {
      gnmi::Subscription* s = list->add_subscription();
      *s->mutable_path() = path();
      s->set_mode(static_cast<gnmi::SubscriptionMode>(pick(4)));
      s->set_sample_interval(pick(3) == 0 ? random_() % 1000000000 : 0);
      s->set_heartbeat_interval(pick(5) == 0 ? random_() % 1000000000 : 0);
    }
    return r;
  }

 private:
  int pick(size_t n) { return static_cast<int>(random_() % n); }
  std::mt19937_64 random_;
};

// The neighbours of the model: state that only the device writes.
using Members = size_t;

// One run of the fuzzer against one agent, shared by the tests below (each
// checks one property of it): 3000 requests, Get, Set and Subscribe in
// turn, each with a deadline. A request that gets no answer, or an
// UNAVAILABLE one, ends the run: the agent has stopped serving.
class AgentRequestFuzz : public ::testing::Test {
 protected:
  static constexpr int REQUESTS = 3000;

  static void SetUpTestSuite() {
    fixture_ = new AgentFixture(VekGnmi::Server::AgentOptions{}, VekGnmi::Server::makeLibraryBridge);
    before_ = members();
    RequestFuzzer fuzz(20260101);
    for (int i = 0; i < REQUESTS; ++i) {
      const grpc::Status status = send(fuzz, i);
      statuses_.push_back(status);
      if (status.error_code() == grpc::StatusCode::DEADLINE_EXCEEDED ||
          status.error_code() == grpc::StatusCode::UNAVAILABLE) {
        break;
      }
    }
  }
  static void TearDownTestSuite() {
    delete fixture_;
    fixture_ = nullptr;
    statuses_.clear();
  }

  static Members members() {
    return fixture_->onLoop([&] {
      return fixture_->agent().model().device->memberCount("neighbors");
    });
  }

  // Sends request `i` of the run and returns how it was answered: a
  // subscription that stays open (STREAM, POLL) is answered by its
  // sync_response, after which the client cancels it.
  static grpc::Status send(RequestFuzzer& fuzz, int i) {
    grpc::ClientContext context;
    withDeadline(context, 5);
    switch (i % 3) {
      case 0: {
        gnmi::GetResponse response;
        return fixture_->stub().Get(&context, fuzz.get(), &response);
      }
      case 1: {
        gnmi::SetResponse response;
        return fixture_->stub().Set(&context, fuzz.set(), &response);
      }
      default: {
        auto stream = fixture_->stub().Subscribe(&context);
        stream->Write(fuzz.subscribe());
        gnmi::SubscribeResponse response;
        bool synced = false;
        while (stream->Read(&response)) {
          if (response.sync_response() && !synced) {
            synced = true;
            ++syncResponses_;
            context.TryCancel();
          }
        }
        const grpc::Status status = stream->Finish();
        return status.error_code() == grpc::StatusCode::CANCELLED && synced ? grpc::Status::OK : status;
      }
    }
  }

  static AgentFixture* fixture_;
  static Members before_;
  static std::vector<grpc::Status> statuses_;
  static int syncResponses_;
};

AgentFixture* AgentRequestFuzz::fixture_ = nullptr;
Members AgentRequestFuzz::before_;
std::vector<grpc::Status> AgentRequestFuzz::statuses_;
int AgentRequestFuzz::syncResponses_ = 0;

TEST_F(AgentRequestFuzz, EveryRequestIsAnsweredInTimeWithAStatusThatSaysWhy) {
  EXPECT_EQ(statuses_.size(), static_cast<size_t>(REQUESTS)) << "the run stopped at request " << statuses_.size() - 1;
  for (size_t i = 0; i < statuses_.size(); ++i) {
    const grpc::Status& status = statuses_[i];
    ASSERT_THAT(status, ::testing::Not(StatusIs(grpc::StatusCode::DEADLINE_EXCEEDED))) << "request " << i;
    ASSERT_THAT(status, ::testing::Not(StatusIs(grpc::StatusCode::UNAVAILABLE))) << "request " << i;
    ASSERT_THAT(status, ::testing::Not(StatusIs(grpc::StatusCode::INTERNAL))) << "request " << i;
    ASSERT_THAT(status, ::testing::AnyOf(IsOk(), StatusIs(status.error_code(), ::testing::Not(::testing::IsEmpty()))))
        << "request " << i << " has no message";
  }
}

TEST_F(AgentRequestFuzz, TheRequestsReachEveryKindOfAnswerTheValidationGives) {
  std::map<grpc::StatusCode, int> codes;
  for (const grpc::Status& status : statuses_) ++codes[status.error_code()];
  EXPECT_GT(codes[grpc::StatusCode::INVALID_ARGUMENT], 0);
  EXPECT_GT(codes[grpc::StatusCode::NOT_FOUND], 0);
  EXPECT_GT(codes[grpc::StatusCode::UNIMPLEMENTED], 0);
  EXPECT_GT(codes[grpc::StatusCode::OK], 0);
  EXPECT_GT(syncResponses_, 0);
}

TEST_F(AgentRequestFuzz, NoStateMemberIsCreatedOrLost) {
  EXPECT_EQ(members(), before_);
}

TEST_F(AgentRequestFuzz, EveryInterfaceStaysWithinItsChecks) {
  const size_t bad = fixture_->onLoop([&] {
    size_t n = 0;
    VekGnmi::Server::DemoModel& m = fixture_->agent().model();
    const Vek::VekAttr interfaces = m.device->type()->attr("interfaces");
    for (Vek::CollectionIterator it = interfaces.genericIfIteratorConst(m.device.ptr()); it; ++it) {
      const auto* intf = static_cast<const Vek::Entity*>(it.ptr().ptr());
      const unsigned mtu = intf->value<unsigned>("mtu");
      if (mtu < 64 || mtu > 9216 || intf->value<Vek::String>("description").size() > 240) ++n;
    }
    return n;
  });
  EXPECT_EQ(bad, 0u);
}

TEST_F(AgentRequestFuzz, NoWalkIsLeftOnceTheCancelledSubscriptionsHaveEnded) {
  // Subscriptions cancelled by the client end on the loop after their RPC.
  EXPECT_TRUE(fixture_->waitUntil([&] {
    return Ostrel::FullVekTypeWalker::walkMapSize() == 0 && Ostrel::staticPathWalkIdMap.empty();
  })) << fixture_->onLoop([] { return Ostrel::FullVekTypeWalker::dumpPathWalkIdMap(); });
}

TEST_F(AgentRequestFuzz, AGetAfterwardsAnswersWhatTheModelHolds) {
  // eth1 made again if a Set removed it.
  gnmi::SetRequest makeEth1;
  gnmi::Update* u = makeEth1.add_update();
  *u->mutable_path() = P("/devices/dev1/interfaces[name=eth1]/enabled");
  u->mutable_val()->set_bool_val(true);
  gnmi::SetResponse made;
  grpc::ClientContext setContext;
  withDeadline(setContext);
  ASSERT_THAT(fixture_->stub().Set(&setContext, makeEth1, &made), IsOk());
  gnmi::GetRequest get;
  *get.add_path() = P("/devices/dev1/interfaces[name=eth1]/mtu");
  *get.add_path() = P("/devices/dev1/interfaces[name=eth1]/description");
  get.set_encoding(gnmi::PROTO);
  gnmi::GetResponse got;
  grpc::ClientContext context;
  withDeadline(context);
  ASSERT_THAT(fixture_->stub().Get(&context, get, &got), IsOk());
  const auto [mtu, description] = fixture_->onLoop([&] {
    auto eth1 = fixture_->agent().model().device->entity("interfaces", Vek::genericIfOf("eth1"));
    return std::make_pair(eth1->value<unsigned>("mtu"), eth1->value<Vek::String>("description").stdString());
  });
  ASSERT_EQ(got.notification_size(), 2);
  ASSERT_EQ(got.notification(0).update_size(), 1);
  EXPECT_EQ(got.notification(0).update(0).val().uint_val(), mtu);
  ASSERT_EQ(got.notification(1).update_size(), 1);
  EXPECT_EQ(got.notification(1).update(0).val().string_val(), description);
}

TEST_F(AgentRequestFuzz, TheAgentStillServesAfterwards) {
  grpc::ClientContext context;
  withDeadline(context);
  gnmi::CapabilityResponse caps;
  EXPECT_THAT(fixture_->stub().Capabilities(&context, gnmi::CapabilityRequest(), &caps), IsOk());
}

}  // namespace
