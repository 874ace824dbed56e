// Set: the request driver (execute, prepare, commit), its statuses and
// responses, several Sets applied together, change notifications, Result,
// and every kind of the sample model a Set reaches.
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/Path.h>
#include <Ostrel/Result.h>
#include <Ostrel/VekGnmiSetter.h>
#include <Vek/Vek.h>

#include "ChangeRecorder.h"
#include "FatalCatcher.h"
#include "SampleModel.h"
#include "SetRequests.h"
#include "TreeDump.h"
#include "internal/AttrTree.h"

namespace Ostrel::VekGnmiSet {

// Reaches the steps of `execute`, which are not part of the Set's interface.
struct SetInternals {
  static Result<bool, grpc::Status> processReplace(Set& set) { return set.processReplace(); }
  static Result<bool, grpc::Status> processUpdate(Set& set) { return set.processUpdate(); }
  static Result<bool, grpc::Status> processDelete(Set& set) { return set.processDelete(); }
};

}  // namespace Ostrel::VekGnmiSet

namespace {

namespace Sample = OstrelTest::Sample;
using namespace Ostrel::VekGnmiSet;
using OstrelTest::boolVal;
using OstrelTest::ChangeRecorder;
using OstrelTest::intVal;
using OstrelTest::setRequest;
using OstrelTest::stringVal;
using OstrelTest::uintVal;
using OstrelTest::updateOf;

const char* const DEV1 = "/devices/dev1";
const char* const ETH0 = "/devices/dev1/interfaces[name=eth0]";
const char* const ETH1 = "/devices/dev1/interfaces[name=eth1]";
const char* const SCALARS = "/devices/dev1/scalars";

std::pair<gnmi::SetResponse, grpc::Status> execute(const Sample::Tree& tree,
                                                   gnmi::SetRequest request) {
  Set set(tree.root.ptr(), std::move(request));
  return set.execute();
}

void expectStatus(const grpc::Status& status, grpc::StatusCode code, const std::string& message) {
  EXPECT_EQ(status.error_code(), code);
  EXPECT_EQ(status.error_message(), message);
}

// "OP path" per result, in order.
std::vector<std::string> resultsOf(const gnmi::SetResponse& response) {
  std::vector<std::string> out;
  for (const gnmi::UpdateResult& result : response.response()) {
    out.push_back(gnmi::UpdateResult::Operation_Name(result.op()) + " " +
                  Ostrel::pathToStr(result.path()));
  }
  return out;
}

// inPkts, outPkts, inErrors of a Counters value.
std::vector<unsigned long long> fieldsOf(const Vek::GenericIf& counters) {
  return {counters.value<unsigned long long>("inPkts"), counters.value<unsigned long long>("outPkts"),
          counters.value<unsigned>("inErrors")};
}
using Fields = std::vector<unsigned long long>;

Vek::Ptr<Vek::GenericIf const> attrOf(const Vek::Ptr<Vek::Entity>& entity, const char* name,
                                      const Vek::GenericIf* key = nullptr) {
  return entity->type()->attr(name).genericIfGet(entity, key);
}

// ---------------------------------------------------------------------------
// The driver

TEST(VekGnmiSet, EmptyPrefixFailsBeforeAnyOperationAndTheResponseListsThemAll) {
  const Sample::Tree tree = Sample::buildTree();
  const std::string before = OstrelTest::dumpTree(*tree.root);
  const auto [response, status] =
      execute(tree, setRequest("", {updateOf("nosuch", uintVal(1))}, {updateOf("mtu", uintVal(1000))},
                               {"/a/b"}));
  expectStatus(status, grpc::StatusCode::NOT_FOUND,
               "Error in finding path : Prefix path must have at least one entity element");
  EXPECT_EQ(resultsOf(response),
            (std::vector<std::string>{"DELETE /a/b", "REPLACE /nosuch", "UPDATE /mtu"}));
  EXPECT_EQ(OstrelTest::dumpTree(*tree.root), before);
}

TEST(VekGnmiSet, PrefixElementThatDoesNotResolveIsNotFound) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest("/devices/dev9/interfaces[name=eth0]", {}, {})).second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path devices/dev9/interfaces[name=eth0]: Path element dev9 is not "
               "set");
  expectStatus(execute(tree, setRequest("/devices/dev1/interfaces[name=eth7]", {}, {})).second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path devices/dev1/interfaces[name=eth7]: Path element "
               "interfaces[name=eth7] is not set");
}

TEST(VekGnmiSet, PrefixElementThatIsAValueIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest("/devices/dev1/hostname", {}, {})).second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path devices/dev1/hostname: Prefix path element must refer to an "
               "entity; found value hostname");
}

TEST(VekGnmiSet, NullRootIsNotFound) {
  gnmi::SetRequest request = setRequest(DEV1, {}, {});
  Set set(nullptr, std::move(request));
  expectStatus(set.execute().second, grpc::StatusCode::NOT_FOUND,
               "Error in finding path devices/dev1: VekType is missing for parent object of "
               "devices");
}

TEST(VekGnmiSet, SecondUpdateFailingLeavesTheFirstUnapplied) {
  const Sample::Tree tree = Sample::buildTree();
  const auto [response, status] = execute(
      tree, setRequest(ETH0, {}, {updateOf("mtu", uintVal(1000)), updateOf("enabled", intVal(0))}));
  expectStatus(status, grpc::StatusCode::INVALID_ARGUMENT,
               "Error in argument to path enabled: Expected bool; found int");
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 9000u);
  EXPECT_EQ(response.response_size(), 2);
}

TEST(VekGnmiSet, ReplacesAreStagedAndPreparedBeforeUpdatesWhateverTheWireOrder) {
  const Sample::Tree tree = Sample::buildTree();
  // The update is put on the wire before the replace.
  gnmi::SetRequest updates = setRequest(ETH0, {}, {updateOf("counters/outPkts", uintVal(9))});
  gnmi::SetRequest replaces;
  *replaces.add_replace() = updateOf("counters/inPkts", uintVal(7));
  gnmi::SetRequest request;
  ASSERT_TRUE(request.ParseFromString(updates.SerializeAsString() + replaces.SerializeAsString()));
  const auto [response, status] = execute(tree, std::move(request));
  ASSERT_TRUE(status.ok()) << status.error_message();
  // Replaced first (7, defaults), then updated (outPkts 9).
  EXPECT_EQ(fieldsOf(*attrOf(tree.eth0, "counters")), (Fields{7, 9, 0}));
  EXPECT_EQ(resultsOf(response),
            (std::vector<std::string>{"REPLACE /counters/inPkts", "UPDATE /counters/outPkts"}));
}

TEST(VekGnmiSet, ResponseCopiesThePrefixAndListsDeletesThenReplacesThenUpdates) {
  const Sample::Tree tree = Sample::buildTree();
  const auto [response, status] =
      execute(tree, setRequest(ETH0, {updateOf("mtu", uintVal(1000)), updateOf("enabled", boolVal(false))},
                               {updateOf("description", stringVal("core"))}, {"/x", "/y[k=v]"}));
  ASSERT_TRUE(status.ok()) << status.error_message();
  EXPECT_EQ(Ostrel::pathToStr(response.prefix()), ETH0);
  EXPECT_EQ(resultsOf(response),
            (std::vector<std::string>{"DELETE /x", "DELETE /y[k=v]", "REPLACE /mtu",
                                      "REPLACE /enabled", "UPDATE /description"}));
  // Nothing but the operation and the path: no timestamp, message or status.
  for (const gnmi::UpdateResult& result : response.response()) {
    gnmi::UpdateResult bare;
    bare.set_op(result.op());
    *bare.mutable_path() = result.path();
    EXPECT_EQ(result.SerializeAsString(), bare.SerializeAsString());
  }
  EXPECT_EQ(response.timestamp(), 0);
}

TEST(VekGnmiSet, DeletesOnlyReturnOkWithOneDeleteResultEachAndChangeNothing) {
  const Sample::Tree tree = Sample::buildTree();
  const std::string before = OstrelTest::dumpTree(*tree.root);
  const auto [response, status] = execute(tree, setRequest(ETH0, {}, {}, {"/mtu", "/description"}));
  EXPECT_TRUE(status.ok());
  EXPECT_EQ(resultsOf(response), (std::vector<std::string>{"DELETE /mtu", "DELETE /description"}));
  EXPECT_EQ(OstrelTest::dumpTree(*tree.root), before);
}

TEST(VekGnmiSet, NoOperationsReturnOkWithAnEmptyResultList) {
  const Sample::Tree tree = Sample::buildTree();
  const auto [response, status] = execute(tree, setRequest(ETH0, {}, {}));
  EXPECT_TRUE(status.ok());
  EXPECT_EQ(response.response_size(), 0);
  EXPECT_EQ(Ostrel::pathToStr(response.prefix()), ETH0);
}

TEST(VekGnmiSet, AbsentPrefixIsCopiedAsAnEmptyPathAndRefused) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::SetRequest request;
  *request.add_update() = updateOf("mtu", uintVal(1000));
  const auto [response, status] = execute(tree, std::move(request));
  EXPECT_EQ(status.error_code(), grpc::StatusCode::NOT_FOUND);
  EXPECT_TRUE(response.has_prefix());
  EXPECT_EQ(response.prefix().elem_size(), 0);
}

TEST(VekGnmiSet, RuntimeRefusalInCommitStopsThereAndEarlierWritesStay) {
  const Sample::Tree tree = Sample::buildTree();
  const auto [response, status] =
      execute(tree, setRequest(ETH0, {},
                               {updateOf("description", stringVal("core")), updateOf("mtu", uintVal(10)),
                                updateOf("enabled", boolVal(false))}));
  expectStatus(status, grpc::StatusCode::NOT_FOUND,
               "Error in finding path mtu: mtu 10 is outside 64..9216");
  EXPECT_EQ(tree.eth0->value<Vek::String>("description"), Vek::String("core"));  // written before
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 9000u);                            // refused
  EXPECT_TRUE(tree.eth0->value<bool>("enabled"));                                 // never reached
}

TEST(VekGnmiSet, PrepareWritesNothingAndCommitWritesThePreparedValues) {
  const Sample::Tree tree = Sample::buildTree();
  const std::string before = OstrelTest::dumpTree(*tree.root);
  ChangeRecorder recorder(tree.eth0);
  Set set(tree.root.ptr(), setRequest(ETH0, {updateOf("stats/drops", uintVal(3))},
                                       {updateOf("mtu", uintVal(1000))}));
  ASSERT_TRUE(set.prepare().ok());
  EXPECT_EQ(OstrelTest::dumpTree(*tree.root), before);
  EXPECT_TRUE(recorder.events.empty());
  ASSERT_TRUE(set.commit().ok());
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 1000u);
  EXPECT_EQ(attrOf(tree.eth0, "stats")->value<unsigned>("drops"), 3u);
}

TEST(VekGnmiSet, CallsOutOfOrderAreFatal) {
  const Sample::Tree tree = Sample::buildTree();
  {
    Set set(tree.root.ptr(), setRequest(ETH0, {}, {}));
    EXPECT_FATAL(set.commit(), "commit called without a successful prepare");
  }
  {
    Set set(tree.root.ptr(), setRequest(ETH0, {}, {updateOf("mtu", stringVal("x"))}));
    EXPECT_FALSE(set.prepare().ok());
    EXPECT_FATAL(set.commit(), "commit called without a successful prepare");
  }
  {
    Set set(tree.root.ptr(), setRequest(ETH0, {}, {}));
    ASSERT_TRUE(set.prepare().ok());
    EXPECT_FATAL(set.prepare(), "prepare called on a Set that has run already");
    EXPECT_FATAL(set.execute(), "execute called on a Set that has run already");
    ASSERT_TRUE(set.commit().ok());
    EXPECT_FATAL(set.commit(), "commit called without a successful prepare");
  }
}

TEST(VekGnmiSet, ProcessDeleteIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  Set set(tree.root.ptr(), setRequest(ETH0, {}, {}, {"/mtu"}));
  EXPECT_FATAL((void)SetInternals::processDelete(set), "Delete op is not implemented");
}

TEST(VekGnmiSet, ProcessReplaceWithoutPrefixEntityIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  Set set(tree.root.ptr(), setRequest(ETH0, {}, {}));
  EXPECT_FATAL((void)SetInternals::processReplace(set), "Expecting prefix entity to be set");
}

TEST(VekGnmiSetDeathTest, ProcessUpdateWithoutPrefixEntityFailsAPlainAssertion) {
  const Sample::Tree tree = Sample::buildTree();
  Set set(tree.root.ptr(), setRequest(ETH0, {}, {}));
  EXPECT_DEATH((void)SetInternals::processUpdate(set), "Assertion `prefixEntity_' failed");
}

TEST(VekGnmiSet, TreeErrorsBecomeStatusesNamingTheirPath) {
  AttrTree::Error error;
  error.path.push_back(Ostrel::strToPath("a").elem(0));
  error.path.push_back(Ostrel::strToPath("b[k=v]").elem(0));
  error.message = "why";
  error.code = grpc::StatusCode::NOT_FOUND;
  expectStatus(treeErrorToStatus(error), grpc::StatusCode::NOT_FOUND,
               "Error in finding path a/b[k=v]: why");
  error.code = grpc::StatusCode::INVALID_ARGUMENT;
  expectStatus(treeErrorToStatus(error), grpc::StatusCode::INVALID_ARGUMENT,
               "Error in argument to path a/b[k=v]: why");
  error.code = grpc::StatusCode::INTERNAL;
  expectStatus(treeErrorToStatus(error), grpc::StatusCode::INTERNAL, "why");
  EXPECT_TRUE(treeErrorToStatus(error).error_details().empty());
}

TEST(VekGnmiSet, ErrorStatusesCarryPathAndMessageAndNoDetails) {
  const grpc::Status notFound = pathNotFoundError("a/b", "gone");
  expectStatus(notFound, grpc::StatusCode::NOT_FOUND, "Error in finding path a/b: gone");
  EXPECT_TRUE(notFound.error_details().empty());
  const grpc::Status invalid = invalidArgumentError("a", "bad");
  expectStatus(invalid, grpc::StatusCode::INVALID_ARGUMENT, "Error in argument to path a: bad");
  EXPECT_TRUE(invalid.error_details().empty());
}

// ---------------------------------------------------------------------------
// Several Sets, and notifications

// Records the changes of every entity a Set of the tests can reach.
struct Recorders {
  explicit Recorders(const Sample::Tree& tree)
      : device(tree.device), eth0(tree.eth0), eth1(tree.eth1), scalars(tree.scalars) {}
  bool silent() const {
    return device.events.empty() && eth0.events.empty() && eth1.events.empty() &&
           scalars.events.empty();
  }
  ChangeRecorder device;
  ChangeRecorder eth0;
  ChangeRecorder eth1;
  ChangeRecorder scalars;
};

std::vector<std::unique_ptr<Set>> threeSets(const Sample::Tree& tree, gnmi::Update last) {
  std::vector<std::unique_ptr<Set>> sets;
  sets.push_back(std::make_unique<Set>(tree.root.ptr(),
                                       setRequest(ETH0, {}, {updateOf("mtu", uintVal(1000))})));
  sets.push_back(std::make_unique<Set>(
      tree.root.ptr(), setRequest(ETH1, {updateOf("counters/inPkts", uintVal(1))}, {})));
  sets.push_back(std::make_unique<Set>(tree.root.ptr(), setRequest(DEV1, {}, {std::move(last)})));
  return sets;
}

TEST(VekGnmiSet, SeveralSetsPreparedTogetherLeaveTheModelUntouchedWhenOneFails) {
  const Sample::Tree tree = Sample::buildTree();
  const std::string before = OstrelTest::dumpTree(*tree.root);
  Recorders recorders(tree);
  std::vector<std::unique_ptr<Set>> sets = threeSets(tree, updateOf("hostname", uintVal(7)));
  bool allPrepared = true;
  for (auto& set : sets) allPrepared = set->prepare().ok() && allPrepared;
  EXPECT_FALSE(allPrepared);
  sets.clear();  // discarded without a commit
  EXPECT_EQ(OstrelTest::dumpTree(*tree.root), before);
  EXPECT_TRUE(recorders.silent());
}

TEST(VekGnmiSet, SeveralSetsAllPreparedAreAllCommitted) {
  const Sample::Tree tree = Sample::buildTree();
  std::vector<std::unique_ptr<Set>> sets = threeSets(tree, updateOf("hostname", stringVal("core1")));
  for (auto& set : sets) ASSERT_TRUE(set->prepare().ok());
  for (auto& set : sets) ASSERT_TRUE(set->commit().ok());
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 1000u);
  EXPECT_EQ(fieldsOf(*attrOf(tree.eth1, "counters")), (Fields{1, 0, 0}));
  EXPECT_EQ(tree.device->value<Vek::String>("hostname"), Vek::String("core1"));
}

TEST(VekGnmiSet, EachChangedAttributeNotifiesExactlyOnce) {
  const Sample::Tree tree = Sample::buildTree();
  Recorders recorders(tree);
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {updateOf("stats/drops", uintVal(9)),
                                              updateOf("stats/pkts/inPkts", uintVal(1))},
                                       {updateOf("mtu", uintVal(1000)),
                                        updateOf("counters/inPkts", uintVal(5)),
                                        updateOf("counters/outPkts", uintVal(6)),
                                        updateOf("stats/pkts/outPkts", uintVal(2)),
                                        updateOf("description", stringVal("uplink"))}))
                  .second.ok());
  // In commit order: the replace phase's first level, then the update's. The
  // description is written with its current value, which changes nothing.
  EXPECT_EQ(recorders.eth0.events, (std::vector<std::string>{"stats", "mtu", "counters"}));
  EXPECT_TRUE(recorders.device.events.empty());
  EXPECT_TRUE(recorders.eth1.events.empty());
}

// ---------------------------------------------------------------------------
// Result

TEST(Result, HoldsAValueOrAnError) {
  const Ostrel::Result<int, std::string> value = 5;
  EXPECT_TRUE(value.ok());
  EXPECT_TRUE(static_cast<bool>(value));
  EXPECT_EQ(value.value(), 5);
  const Ostrel::Result<int, std::string> error = Ostrel::Failure{"broken"};
  EXPECT_FALSE(error.ok());
  EXPECT_EQ(error.error(), "broken");
  // The same type on both sides.
  const Ostrel::Result<std::string, std::string> text = std::string("v");
  const Ostrel::Result<std::string, std::string> why = Ostrel::Failure{std::string("e")};
  EXPECT_EQ(text.value(), "v");
  EXPECT_EQ(why.error(), "e");
  Ostrel::Result<std::unique_ptr<int>, std::string> moved = std::make_unique<int>(3);
  const std::unique_ptr<int> taken = std::move(moved).value();
  EXPECT_EQ(*taken, 3);
}

TEST(Result, ReadingTheSideItDoesNotHoldIsFatal) {
  const Ostrel::Result<int, std::string> value = 5;
  const Ostrel::Result<int, std::string> error = Ostrel::Failure{"broken"};
  EXPECT_FATAL((void)value.error(), "Result holds a value; its error was read");
  EXPECT_FATAL((void)error.value(), "Result holds an error; its value was read");
}

// ---------------------------------------------------------------------------
// Every kind of the sample model a Set reaches

TEST(VekGnmiSetKinds, EveryBuiltinTheConverterAcceptsIsWritten) {
  const Sample::Tree tree = Sample::buildTree();
  const auto status =
      execute(tree, setRequest(SCALARS, {},
                               {updateOf("u8", uintVal(9)), updateOf("i8", intVal(-9)),
                                updateOf("u16", uintVal(900)), updateOf("i16", intVal(-900)),
                                updateOf("u32", uintVal(90000)), updateOf("i32", intVal(-90000)),
                                updateOf("u64", uintVal(9000000000)),
                                updateOf("i64", intVal(-9000000000)), updateOf("flag", boolVal(false)),
                                updateOf("label", stringVal("new label"))}))
          .second;
  ASSERT_TRUE(status.ok()) << status.error_message();
  const Vek::Entity& s = *tree.scalars;
  EXPECT_EQ(s.value<unsigned char>("u8"), 9);
  EXPECT_EQ(s.value<signed char>("i8"), -9);
  EXPECT_EQ(s.value<unsigned short>("u16"), 900);
  EXPECT_EQ(s.value<short>("i16"), -900);
  EXPECT_EQ(s.value<unsigned>("u32"), 90000u);
  EXPECT_EQ(s.value<int>("i32"), -90000);
  EXPECT_EQ(s.value<unsigned long long>("u64"), 9000000000ull);
  EXPECT_EQ(s.value<long long>("i64"), -9000000000ll);
  EXPECT_FALSE(s.value<bool>("flag"));
  EXPECT_EQ(s.value<Vek::String>("label"), Vek::String("new label"));
}

TEST(VekGnmiSetKinds, WideIntegersAreTruncatedToTheAttributesWidth) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(SCALARS, {},
                                       {updateOf("i8", intVal(300)), updateOf("u8", uintVal(256 + 7)),
                                        updateOf("i16", intVal(65536 - 1)),
                                        updateOf("u32", uintVal(0x1'0000'0002))}))
                  .second.ok());
  const Vek::Entity& s = *tree.scalars;
  EXPECT_EQ(s.value<signed char>("i8"), 44);
  EXPECT_EQ(s.value<unsigned char>("u8"), 7);
  EXPECT_EQ(s.value<short>("i16"), -1);
  EXPECT_EQ(s.value<unsigned>("u32"), 2u);
}

TEST(VekGnmiSetKinds, BuiltinsAndEnumerationsTheConverterRefusesAreInvalidArguments) {
  const Sample::Tree tree = Sample::buildTree();
  const std::string before = OstrelTest::dumpTree(*tree.root);
  const std::vector<std::pair<gnmi::Update, std::string>> refused = {
      {updateOf("letter", stringVal("B")), "letter: Expected char; found string"},
      {updateOf("ratio", uintVal(1)), "ratio: Expected float; found unsigned int"},
      {updateOf("reading", intVal(1)), "reading: Expected double; found int"},
      {updateOf("blob", stringVal("x")), "blob: Expected Vek::Bytes; found string"},
      {updateOf("elapsed", uintVal(1)), "elapsed: Expected Vek::Seconds; found unsigned int"},
      {updateOf("eU8", uintVal(5)), "eU8: Expected EnumU8; found unsigned int"},
      {updateOf("eI32", stringVal("pos")), "eI32: Expected EnumI32; found string"},
  };
  for (const auto& [update, message] : refused) {
    expectStatus(execute(tree, setRequest(SCALARS, {}, {update})).second,
                 grpc::StatusCode::INVALID_ARGUMENT, "Error in argument to path " + message);
  }
  EXPECT_EQ(OstrelTest::dumpTree(*tree.root), before);
}

TEST(VekGnmiSetKinds, NestedValueIsRebuiltByReplace) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {updateOf("stats/pkts/outPkts", uintVal(8))}, {}))
                  .second.ok());
  const auto stats = attrOf(tree.eth0, "stats");
  EXPECT_EQ(stats->value<unsigned>("drops"), 0u);
  EXPECT_EQ(fieldsOf(*Sample::types().stats->attr("pkts").genericIfGet(stats)), (Fields{0, 8, 0}));
}

TEST(VekGnmiSetKinds, NestedValueIsPatchedByUpdate) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {}, {updateOf("stats/pkts/outPkts", uintVal(8))}))
                  .second.ok());
  const auto stats = attrOf(tree.eth0, "stats");
  EXPECT_EQ(stats->value<unsigned>("drops"), 2u);
  EXPECT_EQ(fieldsOf(*Sample::types().stats->attr("pkts").genericIfGet(stats)), (Fields{5, 8, 0}));
}

TEST(VekGnmiSetKinds, WrapperKeyAddressesItsMember) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(DEV1, {}, {updateOf("vlanRoles[id=10]", stringVal("ops"))}))
                  .second.ok());
  EXPECT_EQ(attrOf(tree.device, "vlanRoles", Sample::vlanId(10))->as<Vek::String>(),
            Vek::String("ops"));
  EXPECT_EQ(tree.device->memberCount("vlanRoles"), 1u);
}

TEST(VekGnmiSetKinds, AliasOfAWrapperKeyAddressesItsMember) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(DEV1, {}, {updateOf("vlanPriorities[id=20]", uintVal(7))}))
                  .second.ok());
  EXPECT_EQ(attrOf(tree.device, "vlanPriorities", Sample::vlanId(20))->as<unsigned char>(), 7);
}

TEST(VekGnmiSetKinds, AliasOfAValueIsStagedAsAComposite) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(DEV1, {}, {updateOf("nativeVlan/id", uintVal(42))})).second.ok());
  EXPECT_EQ(attrOf(tree.device, "nativeVlan")->value<unsigned short>("id"), 42);
  expectStatus(execute(tree, setRequest(DEV1, {}, {updateOf("nativeVlan", uintVal(1))})).second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path nativeVlan: Path must map to a leaf value");
}

TEST(VekGnmiSetKinds, DirectoryPathLeadsToItsEntity) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(DEV1, {}, {updateOf("hostname", stringVal("core1"))}))
                  .second.ok());
  EXPECT_EQ(tree.device->value<Vek::String>("hostname"), Vek::String("core1"));
  ASSERT_TRUE(execute(tree, setRequest("/devices/dev1/chassis", {}, {updateOf("serial", stringVal("SN9"))}))
                  .second.ok());
  EXPECT_EQ(tree.device->entity("chassis")->value<Vek::String>("serial"), Vek::String("SN9"));
}

TEST(VekGnmiSetKinds, CompositeKeyIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest("/devices/dev1/neighbors[ifName=eth0][index=1]", {},
                                        {updateOf("remoteId", stringVal("x"))}))
                   .second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path devices/dev1/neighbors[ifName=eth0][index=1]: Path with "
               "composite key collection not supported");
  EXPECT_EQ(tree.neighbor->value<Vek::String>("remoteId"), Vek::String("spine1"));
}

TEST(VekGnmiSetKinds, InternallyKeyedCollectionIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest(DEV1, {}, {updateOf("routes[destination=10.1.0.0]/metric", uintVal(5))}))
                   .second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path routes[destination=10.1.0.0]: Path with internally-keyed "
               "collection is not supported");
}

TEST(VekGnmiSetKinds, PointerKeyedCollectionIsRefusedByTheKeyParse) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest(DEV1, {}, {updateOf("linkCosts[interface=eth0]", uintVal(5))}))
                   .second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path linkCosts[interface=eth0]: \"eth0\" is not a valid "
               "Sample::Interface");
}

TEST(VekGnmiSetKinds, MemberOfAValueCollectionIsPatched) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {}, {updateOf("addresses[ip=10.0.0.1]/prefixLength", uintVal(20))}))
                  .second.ok());
  const auto info = attrOf(tree.eth0, "addresses", Sample::ipv4("10.0.0.1"));
  EXPECT_EQ(info->value<unsigned char>("prefixLength"), 20);
  EXPECT_EQ(info->value<Vek::String>("origin"), Vek::String("static"));
}

TEST(VekGnmiSetKinds, ValueWithItsOwnTextFormIsStagedAsAComposite) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(DEV1, {}, {updateOf("dnsServers[index=1]/bits", uintVal(0x08080808))}))
                  .second.ok());
  EXPECT_EQ(attrOf(tree.device, "dnsServers", Vek::genericIfOf(1u))->gnmiStrRep(), "8.8.8.8");
}

TEST(VekGnmiSetKinds, ArrayElementIsWrittenAndAnEnumerationElementRefused) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {}, {updateOf("vlans[index=1]", uintVal(25))})).second.ok());
  EXPECT_EQ(attrOf(tree.eth0, "vlans", Vek::genericIfOf(1u))->as<unsigned short>(), 25);
  expectStatus(execute(tree, setRequest(ETH0, {}, {updateOf("statusHistory[index=0]", intVal(1))})).second,
               grpc::StatusCode::INVALID_ARGUMENT,
               "Error in argument to path statusHistory[index=0]: Expected OperStatus; found int");
}

TEST(VekGnmiSetKinds, JsonTextAttributeTakesAString) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest(ETH0, {}, {updateOf("config", stringVal(R"({"speed":"1G"})"))}))
                  .second.ok());
  EXPECT_EQ(tree.eth0->value<Vek::String>("config"), Vek::String(R"({"speed":"1G"})"));
}

TEST(VekGnmiSetKinds, StackCollectionMemberIsWritten) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_TRUE(execute(tree, setRequest("/journals/syslog", {}, {updateOf("entries[id=2]", stringVal("link down"))}))
                  .second.ok());
  EXPECT_EQ(attrOf(tree.journal, "entries", Vek::genericIfOf(2u))->as<Vek::String>(),
            Vek::String("link down"));
}

TEST(VekGnmiSetKinds, UnsetChildAndPointerBelowThePrefixAreRefused) {
  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest(DEV1, {}, {updateOf("fan/rpm", uintVal(1))})).second,
               grpc::StatusCode::NOT_FOUND, "Error in finding path fan: Path element fan is not set");
  expectStatus(execute(tree, setRequest(DEV1, {}, {updateOf("lagMembers[id=1]", uintVal(1))})).second,
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path lagMembers[id=1]: Non-prefix path element must refer to value; "
               "found entity lagMembers[id=1]");
}

}  // namespace
