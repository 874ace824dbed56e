// The demo model, the schema lookup of published leaves, request path
// resolution, the filter of published updates and the index of requested
// paths.
#include <map>
#include <random>
#include <set>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ostrel/Path.h>

#include "DemoModel.h"
#include "GnmiPathText.h"
#include "ModelSchema.h"
#include "PathIndex.h"
#include "PathResolver.h"
#include "StatusMatchers.h"
#include "TestPaths.h"

namespace {

using namespace VekGnmi::Server;

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::SizeIs;
using ::testing::StartsWith;
using VekGnmiTest::IsOk;
using VekGnmiTest::P;
using VekGnmiTest::StatusIs;

std::vector<std::string> paths(const std::vector<PublishedEntity>& entities) {
  std::vector<std::string> out;
  for (const PublishedEntity& e : entities) out.push_back(VekGnmi::pathString(e.path));
  return out;
}

class AgentModel : public ::testing::Test {
 protected:
  AgentModel() : model_(buildDemoModel(8)), schema_(model_.root, isStateAttribute) {}

  grpc::Status resolve(const std::string& text, Resolution& out) {
    return resolvePath(schema_, P(text), out);
  }

  DemoModel model_;
  ModelSchema schema_;
};

TEST_F(AgentModel, ModelHasTheDeclaredShape) {
  EXPECT_EQ(model_.device->memberCount("interfaces"), 8u);
  EXPECT_EQ(model_.device->memberCount("neighbors"), 2u);
  EXPECT_EQ(model_.device->memberCount("routes"), 8u);
  Vek::Ptr<Vek::Entity> eth3 = model_.device->entity("interfaces", Vek::genericIfOf("eth3"));
  ASSERT_TRUE(eth3);
  EXPECT_EQ(eth3->value<unsigned>("mtu"), 9000u);
  EXPECT_EQ(eth3->memberCount("addresses"), 1u);
  Vek::Ptr<Vek::Entity> nbr1 = model_.device->entity("neighbors", Vek::genericIfOf("nbr1"));
  ASSERT_TRUE(nbr1);
  EXPECT_EQ(nbr1->entity("interface")->name().stdString(), "eth4");
  EXPECT_EQ(model_.devices->child("dev1").ptr(), model_.device.ptr());
}

TEST_F(AgentModel, StateAttributesRefuseWritesFromOutsideTheDevice) {
  Vek::Ptr<Vek::Entity> eth0 = model_.device->entity("interfaces", Vek::genericIfOf("eth0"));
  try {
    eth0->valueIs("operStatus", 2);
    FAIL() << "a state attribute accepted a write from outside the device";
  } catch (const Vek::Exception& e) {
    EXPECT_STREQ(e.what(), "operStatus is state, written by the device only");
  }
  EXPECT_EQ(eth0->value<int>("operStatus"), 1);
}

TEST_F(AgentModel, TheDeviceWritesItsStateAttributes) {
  Vek::Ptr<Vek::Entity> eth0 = model_.device->entity("interfaces", Vek::genericIfOf("eth0"));
  {
    const DeviceWrite write;
    eth0->valueIs("operStatus", 2);
  }
  EXPECT_EQ(eth0->value<int>("operStatus"), 2);
}

TEST_F(AgentModel, ConfigAttributesTakeWritesFromOutsideTheDevice) {
  Vek::Ptr<Vek::Entity> eth0 = model_.device->entity("interfaces", Vek::genericIfOf("eth0"));
  eth0->valueIs("mtu", 4000u);
  EXPECT_EQ(eth0->value<unsigned>("mtu"), 4000u);
}

TEST_F(AgentModel, StateIsTheModelsStateAttributesAndTheRuntimesReadOnlyOnes) {
  const DemoTypes& t = demoTypes();
  EXPECT_TRUE(isStateAttribute(*t.interface->attr("counters")));
  EXPECT_TRUE(isStateAttribute(*t.interface->attr("name")));
  EXPECT_TRUE(isStateAttribute(*t.device->attr("neighbors")));
  EXPECT_FALSE(isStateAttribute(*t.interface->attr("description")));
  EXPECT_FALSE(isStateAttribute(*t.device->attr("routes")));
}

TEST_F(AgentModel, ChurnMakesTheRequestedNumberOfChangesOfEveryKind) {
  ChurnSimulator churn(model_, 1000.0, 7);
  EXPECT_EQ(churn.advance(0.0005), 0u);
  size_t made = 0;
  for (int i = 0; i < 40; ++i) made += churn.advance(0.05);
  EXPECT_EQ(made, 2000u);
  EXPECT_EQ(churn.skipped(), 0u);
  EXPECT_EQ(churn.counterChanges() + churn.statusFlaps() + churn.recreations(), 2000u);
  EXPECT_GT(churn.statusFlaps(), 0u);
  EXPECT_GT(churn.recreations(), 0u);
  EXPECT_EQ(model_.device->memberCount("interfaces"), 8u);
}

TEST_F(AgentModel, ALateCallMakesAtMostTheChangesOfTheLagAndDropsTheRest) {
  ChurnSimulator churn(model_, 1000.0, 7, /*maxLag=*/0.05);
  EXPECT_EQ(churn.advance(3.0), 50u);
  EXPECT_EQ(churn.skipped(), 2950u);
  EXPECT_EQ(churn.advance(0.01), 10u);
}

TEST_F(AgentModel, ChurnIsCalledOncePerChangeWithinLimits) {
  EXPECT_EQ(ChurnSimulator(model_, 10000.0).period(), std::chrono::microseconds(100));
  EXPECT_EQ(ChurnSimulator(model_, 1e6).period(), std::chrono::microseconds(50));
  EXPECT_EQ(ChurnSimulator(model_, 10.0).period(), std::chrono::milliseconds(10));
}

TEST_F(AgentModel, RecreatedInterfaceIsANewEntityAndItsNeighbourFollows) {
  ChurnSimulator churn(model_, 1.0);
  Vek::Ptr<Vek::Entity> before = model_.device->entity("interfaces", Vek::genericIfOf("eth4"));
  churn.recreate(4);
  Vek::Ptr<Vek::Entity> after = model_.device->entity("interfaces", Vek::genericIfOf("eth4"));
  ASSERT_TRUE(after);
  EXPECT_NE(before.ptr(), after.ptr());
  EXPECT_TRUE(before->isOrphan());
  Vek::Ptr<Vek::Entity> nbr1 = model_.device->entity("neighbors", Vek::genericIfOf("nbr1"));
  EXPECT_EQ(nbr1->entity("interface").ptr(), after.ptr());
}

TEST_F(AgentModel, CountersAdvance) {
  ChurnSimulator churn(model_, 1.0);
  Vek::Ptr<Vek::Entity> eth2 = model_.device->entity("interfaces", Vek::genericIfOf("eth2"));
  const Vek::VekAttr counters = demoTypes().interface->attr("counters");
  const uint64_t before = counters.genericIfGet(eth2)->value<unsigned long long>("inPkts");
  churn.advanceCounters(2);
  EXPECT_GT(counters.genericIfGet(eth2)->value<unsigned long long>("inPkts"), before);
}

const gnmi::Path ETH0 = P("/devices/dev1/interfaces[name=eth0]");

TEST_F(AgentModel, EntityTypeLookupFindsTheTypeOfEachPublishedEntity) {
  const DemoTypes& t = demoTypes();
  EXPECT_EQ(schema_.entityTypeAt(ETH0), t.interface);
  EXPECT_EQ(schema_.entityTypeAt(P("/devices/dev1")), t.device);
  EXPECT_EQ(schema_.entityTypeAt(P("/devices/dev1/system")), t.system);
  EXPECT_FALSE(schema_.entityTypeAt(P("/devices")));
  EXPECT_FALSE(schema_.entityTypeAt(P("/devices/dev9")));
  EXPECT_FALSE(schema_.entityTypeAt(P("/devices/dev1/routes[routesKey=10.0.0.0/31]")));
}

TEST_F(AgentModel, LeafLookupFindsAScalarsTypeAndThatItIsConfig) {
  const LeafInfo* mtu = schema_.leafOf(ETH0, P("mtu"));
  ASSERT_TRUE(mtu);
  EXPECT_EQ(mtu->kind, LeafKind::Value);
  EXPECT_EQ(mtu->type->builtinCode(), Vek::BuiltinCode::UnsignedInt);
  EXPECT_FALSE(mtu->state);
}

TEST_F(AgentModel, LeafLookupFindsAFieldOfAValueAndThatItIsState) {
  const LeafInfo* inPkts = schema_.leafOf(ETH0, P("counters/inPkts"));
  ASSERT_TRUE(inPkts);
  EXPECT_EQ(inPkts->type->builtinCode(), Vek::BuiltinCode::UnsignedLongLong);
  EXPECT_TRUE(inPkts->state);
}

TEST_F(AgentModel, LeafLookupFindsAnEnumerationAndTheReadOnlyName) {
  const LeafInfo* status = schema_.leafOf(ETH0, P("operStatus"));
  ASSERT_TRUE(status);
  EXPECT_EQ(status->type, demoTypes().operStatus);
  const LeafInfo* name = schema_.leafOf(ETH0, P("name"));
  ASSERT_TRUE(name);
  EXPECT_TRUE(name->state);
}

TEST_F(AgentModel, LeafLookupFindsTheFieldsAndTheKeyOfAMemberOfAValueCollection) {
  const LeafInfo* prefixLength = schema_.leafOf(ETH0, P("addresses[addressesKey=10.0.0.0]/prefixLength"));
  ASSERT_TRUE(prefixLength);
  EXPECT_EQ(prefixLength->type->builtinCode(), Vek::BuiltinCode::UnsignedChar);
  const LeafInfo* addressKey = schema_.leafOf(ETH0, P("addresses[addressesKey=10.0.0.0]/addressesKey"));
  ASSERT_TRUE(addressKey);
  EXPECT_EQ(addressKey->kind, LeafKind::Key);
  EXPECT_EQ(addressKey->type, demoTypes().ipv4);
}

TEST_F(AgentModel, LeafLookupFindsAnInternallyKeyedMembersFieldsAndItsKeyByTheKeysName) {
  const DemoTypes& t = demoTypes();
  const gnmi::Path dev = P("/devices/dev1");
  const LeafInfo* protocol = schema_.leafOf(dev, P("routes[routesKey=10.0.0.0/31]/protocol"));
  ASSERT_TRUE(protocol);
  EXPECT_EQ(protocol->type, t.routeProtocol);
  const LeafInfo* routeKey = schema_.leafOf(dev, P("routes[prefix=10.0.0.0/31]/prefix"));
  ASSERT_TRUE(routeKey);
  EXPECT_EQ(routeKey->kind, LeafKind::Key);
  EXPECT_EQ(routeKey->type, t.ipv4Prefix);
}

TEST_F(AgentModel, LeafLookupFindsPointersJsonTextAndDoubles) {
  const LeafInfo* ptr = schema_.leafOf(P("/devices/dev1/neighbors[name=nbr0]"), P("interface_ptr"));
  ASSERT_TRUE(ptr);
  EXPECT_EQ(ptr->kind, LeafKind::Pointer);
  EXPECT_TRUE(ptr->state);

  const LeafInfo* motd = schema_.leafOf(P("/devices/dev1/system"), P("motd"));
  ASSERT_TRUE(motd);
  EXPECT_EQ(motd->kind, LeafKind::JsonText);
  const LeafInfo* cpu = schema_.leafOf(P("/devices/dev1/system"), P("cpuLoad"));
  ASSERT_TRUE(cpu);
  EXPECT_EQ(cpu->type->builtinCode(), Vek::BuiltinCode::Double);
}

TEST_F(AgentModel, LeafLookupFindsNothingWhereThereIsNoLeaf) {
  EXPECT_FALSE(schema_.leafOf(ETH0, P("counters")));        // a value with fields
  EXPECT_FALSE(schema_.leafOf(ETH0, P("mtu/x")));           // below a leaf
  EXPECT_FALSE(schema_.leafOf(ETH0, P("nosuch")));
  EXPECT_FALSE(schema_.leafOf(P("/nowhere"), P("mtu")));
}

TEST_F(AgentModel, LeafLookupIgnoresKeyValues) {
  const LeafInfo* a = schema_.leafOf(P("/devices/dev1/interfaces[name=eth0]"), P("speed"));
  const LeafInfo* b = schema_.leafOf(P("/devices/dev1/interfaces[name=eth7]"), P("speed"));
  ASSERT_TRUE(a);
  EXPECT_EQ(a, b);  // one cached entry
  EXPECT_EQ(a->type->builtinCode(), Vek::BuiltinCode::Double);
}

TEST_F(AgentModel, MemberElementsFollowTheWalkersNaming) {
  const DemoTypes& t = demoTypes();
  EXPECT_EQ(Ostrel::pathElemToStr(*memberElement(t.device->attr("interfaces"), Vek::genericIfOf("eth0"))),
            "interfaces[name=eth0]");
  // Strings are written with "__" escaped, as the walker writes key texts.
  EXPECT_EQ(Ostrel::pathElemToStr(*memberElement(t.device->attr("interfaces"), Vek::genericIfOf("a__b"))),
            "interfaces[name=a\\__b]");
  Vek::Ptr<Vek::GenericIf> prefix = t.ipv4Prefix.genericIf("10.0.0.0/31", true);
  EXPECT_EQ(Ostrel::pathElemToStr(*memberElement(t.device->attr("routes"), prefix)),
            "routes[routesKey=10.0.0.0/31]");
}

TEST_F(AgentModel, RootCoversEveryEntityUnderTheDirectories) {
  Resolution r;
  for (const char* root : {"/", "/devices", "/...", "/*/*"}) {
    ASSERT_THAT(resolve(root, r), IsOk()) << root;
    EXPECT_THAT(paths(r.cover), ElementsAre("/devices/dev1")) << root;
    EXPECT_FALSE(r.absent) << root;
  }
}

TEST_F(AgentModel, MemberPathCoversTheMemberAndWatchesItsOwner) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/interfaces[name=eth2]/mtu", r), IsOk());
  EXPECT_THAT(paths(r.cover), ElementsAre("/devices/dev1/interfaces[name=eth2]"));
  EXPECT_THAT(paths(r.watch), ElementsAre("/devices/dev1"));
  EXPECT_FALSE(r.absent);
}

TEST_F(AgentModel, WildcardKeyCoversEveryMember) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/interfaces[name=*]/counters", r), IsOk());
  EXPECT_THAT(r.cover, SizeIs(8));
  EXPECT_EQ(VekGnmi::pathString(r.cover[0].path), "/devices/dev1/interfaces[name=eth0]");
  EXPECT_THAT(paths(r.watch), ElementsAre("/devices/dev1"));
}

TEST_F(AgentModel, ACollectionCoversEveryMember) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/interfaces", r), IsOk());
  EXPECT_THAT(r.cover, SizeIs(8));
}

TEST_F(AgentModel, AValueMembersPathCoversTheEntityThatHoldsIt) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/routes[routesKey=10.0.0.2/31]/metric", r), IsOk());
  EXPECT_THAT(paths(r.cover), ElementsAre("/devices/dev1"));
  EXPECT_FALSE(r.absent);
}

TEST_F(AgentModel, ALeafPathCoversItsEntity) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/system/cpuLoad", r), IsOk());
  EXPECT_THAT(paths(r.cover), ElementsAre("/devices/dev1/system"));
  ASSERT_THAT(resolve("/devices/dev1/neighbors[name=nbr1]/interface_ptr", r), IsOk());
  EXPECT_THAT(paths(r.cover), ElementsAre("/devices/dev1/neighbors[name=nbr1]"));
}

TEST_F(AgentModel, AWildcardOfEveryChildCoversTheEntityItself) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/*", r), IsOk());
  EXPECT_THAT(paths(r.cover), ElementsAre("/devices/dev1"));
}

TEST_F(AgentModel, AnAbsentMemberIsNotAnErrorAndItsOwnerIsWatched) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/interfaces[name=eth99]/mtu", r), IsOk());
  EXPECT_TRUE(r.absent);
  EXPECT_THAT(r.cover, IsEmpty());
  EXPECT_THAT(paths(r.watch), ElementsAre("/devices/dev1"));
}

TEST_F(AgentModel, AnAbsentMemberOfAValueCollectionIsNotAnError) {
  Resolution r;
  ASSERT_THAT(resolve("/devices/dev1/routes[routesKey=192.168.0.0/24]", r), IsOk());
  EXPECT_TRUE(r.absent);
}

TEST_F(AgentModel, AnUnknownChildOfADirectoryIsNotFound) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev2", r), StatusIs(grpc::StatusCode::NOT_FOUND, "no element 'dev2' under /devices"));
}

TEST_F(AgentModel, AnUnknownElementOfAnEntityIsNotFound) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev1/interfaces[name=eth0]/mtux", r),
              StatusIs(grpc::StatusCode::NOT_FOUND,
                       "Demo::Interface has no element 'mtux' (below /devices/dev1/interfaces[name=eth0])"));
}

TEST_F(AgentModel, AnUnknownElementOfAnAbsentMemberIsNotFound) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev1/interfaces[name=eth99]/mtux", r), StatusIs(grpc::StatusCode::NOT_FOUND));
}

TEST_F(AgentModel, AnElementBelowALeafIsNotFound) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev1/interfaces[name=eth0]/mtu/deeper", r),
              StatusIs(grpc::StatusCode::NOT_FOUND, HasSubstr("'mtu' is a leaf")));
}

TEST_F(AgentModel, AKeyOnADirectoryIsAnInvalidArgument) {
  Resolution r;
  EXPECT_THAT(resolve("/devices[x=1]/dev1", r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentModel, AKeyValueOfTheWrongFormIsAnInvalidArgument) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev1/routes[routesKey=bogus]", r),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT, HasSubstr("'bogus' is not a valid key")));
}

TEST_F(AgentModel, AKeyNameTheListDoesNotHaveIsRefusedNamingItsKey) {
  Resolution r;
  gnmi::Path emptyName = P("/devices/dev1/interfaces/mtu");  // interfaces[=eth0], which path text cannot say
  (*emptyName.mutable_elem(2)->mutable_key())[""] = "eth0";
  for (const gnmi::Path& path : {P("/devices/dev1/interfaces[namex=eth0]"), emptyName,
                                 P("/devices/dev1/interfaces[namex=*]/mtu"),
                                 P("/devices/dev1/interfaces[name=eth0][id=1]")}) {
    EXPECT_THAT(resolvePath(schema_, path, r),
                StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                         StartsWith("'interfaces' under /devices/dev1 is keyed by [name], not ")))
        << path.ShortDebugString();
  }
}

TEST_F(AgentModel, AKeyNameOfAValueKeyedListIsTheOneItPublishes) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev1/routes[prefix=10.0.0.0/31]", r),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "'routes' under /devices/dev1 is keyed by [routesKey], not [prefix=10.0.0.0/31]"));
  EXPECT_THAT(resolve("/devices/dev1/interfaces[name=eth0]/addresses[ip=10.0.0.0]", r),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
  EXPECT_THAT(resolve("/devices/dev1/interfaces[name=eth0]/addresses[addressesKey=10.0.0.0]", r), IsOk());
}

TEST_F(AgentModel, MoreKeysThanTheCollectionHasIsAnInvalidArgument) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev1/interfaces[name=eth0][mtu=1]", r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentModel, AKeyOnAChildThatIsNotACollectionIsAnInvalidArgument) {
  Resolution r;
  EXPECT_THAT(resolve("/devices/dev1/system[k=v]/hostname", r), StatusIs(grpc::StatusCode::INVALID_ARGUMENT));
}

TEST_F(AgentModel, NoOriginAndOpenconfigAreServed) {
  gnmi::Path p = P("/a");
  EXPECT_THAT(checkOrigin(p, "path"), IsOk());
  p.set_origin("openconfig");
  EXPECT_THAT(checkOrigin(p, "path"), IsOk());
}

TEST_F(AgentModel, AnotherOriginIsAnInvalidArgumentNamingWhereItWas) {
  gnmi::Path p = P("/a");
  p.set_origin("cli");
  EXPECT_THAT(checkOrigin(p, "the prefix"),
              StatusIs(grpc::StatusCode::INVALID_ARGUMENT,
                       "the prefix has origin 'cli'; this target serves origin \"\" and \"openconfig\" only"));
}

TEST_F(AgentModel, ARequestPathJoinsThePrefixAndKeepsItsTarget) {
  gnmi::Path prefix = P("/devices/dev1");
  prefix.set_target("t");
  const gnmi::Path joined = joinRequestPath(prefix, P("system/hostname"));
  EXPECT_EQ(VekGnmi::pathString(joined), "/devices/dev1/system/hostname");
  EXPECT_EQ(joined.target(), "t");
}

TEST(PathFilter, APrefixAboveOrAtThePathMatchesPartlyAnotherNotAtAll) {
  const PathFilter f(P("/devices/dev1/interfaces[name=eth0]/counters"));
  EXPECT_EQ(f.matchPrefix(P("/devices/dev1")), PathFilter::PrefixMatch::Partial);
  EXPECT_EQ(f.matchPrefix(P("/devices/dev1/interfaces[name=eth0]")), PathFilter::PrefixMatch::Partial);
  EXPECT_EQ(f.matchPrefix(P("/devices/dev1/interfaces[name=eth1]")), PathFilter::PrefixMatch::None);
  EXPECT_EQ(f.matchPrefix(P("/devices/dev1/system")), PathFilter::PrefixMatch::None);
}

TEST(PathFilter, UpdatesUnderThePathMatchByWholeElements) {
  const PathFilter f(P("/devices/dev1/interfaces[name=eth0]/counters"));
  const gnmi::Path eth0 = P("/devices/dev1/interfaces[name=eth0]");
  EXPECT_TRUE(f.matchUpdate(eth0, P("counters/inPkts")));
  EXPECT_FALSE(f.matchUpdate(eth0, P("mtu")));
  EXPECT_FALSE(f.matchUpdate(eth0, P("countersX/inPkts")));
}

TEST(PathFilter, APrefixBelowThePathMatchesWhole) {
  const gnmi::Path eth0 = P("/devices/dev1/interfaces[name=eth0]");
  EXPECT_EQ(PathFilter(P("/devices")).matchPrefix(eth0), PathFilter::PrefixMatch::All);
  EXPECT_EQ(PathFilter(gnmi::Path()).matchPrefix(eth0), PathFilter::PrefixMatch::All);
}

TEST(PathFilter, WildcardNamesAndKeysMatchAny) {
  const PathFilter f(P("/devices/*/interfaces[name=*]/mtu"));
  EXPECT_TRUE(f.matchUpdate(P("/devices/dev1/interfaces[name=eth5]"), P("mtu")));
  EXPECT_FALSE(f.matchUpdate(P("/devices/dev1/interfaces[name=eth5]"), P("enabled")));
}

TEST(PathFilter, ASingleRequestedKeyMatchesAPublishedKeyOfAnotherNameByValue) {
  const PathFilter byValue(P("/devices/dev1/routes[prefix=10.0.0.0/31]"));
  EXPECT_TRUE(byValue.matchUpdate(P("/devices/dev1"), P("routes[routesKey=10.0.0.0/31]/metric")));
  EXPECT_FALSE(byValue.matchUpdate(P("/devices/dev1"), P("routes[routesKey=10.0.0.2/31]/metric")));
}

TEST(PathFilter, ThreeDotsMatchAnyNumberOfElements) {
  const PathFilter deep(P("/.../counters/inPkts"));
  EXPECT_TRUE(deep.matchUpdate(P("/devices/dev1/interfaces[name=eth5]"), P("counters/inPkts")));
  EXPECT_FALSE(deep.matchUpdate(P("/devices/dev1/interfaces[name=eth5]"), P("counters/outPkts")));
  EXPECT_EQ(deep.matchPrefix(P("/devices/dev1")), PathFilter::PrefixMatch::Partial);
  EXPECT_TRUE(PathFilter(P("/devices/...")).matchUpdate(P("/devices/dev1"), P("x")));
}

TEST(PathFilter, DeletesOfWhatHoldsThePathPass) {
  const PathFilter f(P("/devices/dev1/interfaces[name=eth3]/mtu"));
  EXPECT_TRUE(f.matchDelete(P("/devices/dev1"), P("interfaces[name=eth3]")));
  EXPECT_FALSE(f.matchDelete(P("/devices/dev1"), P("interfaces[name=eth4]")));
  EXPECT_FALSE(f.matchUpdate(P("/devices/dev1"), P("interfaces[name=eth3]")));
}

TEST(PathFilter, ElementsMatchByNameAndTheKeysTheyShare) {
  EXPECT_TRUE(elemMatches(P("a[k=1]").elem(0), P("a[k=1][j=2]").elem(0)));
  EXPECT_FALSE(elemMatches(P("a[k=1]").elem(0), P("a").elem(0)));
  EXPECT_TRUE(elemMatches(P("a[k=*]").elem(0), P("a").elem(0)));
  EXPECT_TRUE(elemMatches(P("a").elem(0), P("a[k=1]").elem(0)));
  EXPECT_FALSE(elemMatches(P("a[k=1][j=2]").elem(0), P("a[x=1][y=2]").elem(0)));
}

// The path index answers exactly as a PathFilter per requested path would.

std::vector<int> under(const PathIndex<int>& index, const gnmi::Path& prefix, const gnmi::Path& path) {
  std::vector<int> out;
  index.forUnder(PathElems{prefix, &path}, [&](int v) { out.push_back(v); });
  std::sort(out.begin(), out.end());
  return out;
}

TEST(PathIndex, FindsThePathsThatHoldAPublishedPath) {
  PathIndex<int> index;
  index.insert(P("/devices/dev1/interfaces[name=eth0]/counters"), 1);
  index.insert(P("/devices/dev1/interfaces[name=*]"), 2);
  index.insert(P("/devices"), 3);
  index.insert(P("/devices/dev1/system"), 4);
  index.insert(P("/.../counters"), 5);
  EXPECT_THAT(under(index, P("/devices/dev1/interfaces[name=eth0]"), P("counters/inPkts")),
              ::testing::ElementsAre(1, 2, 3, 5));
  EXPECT_THAT(under(index, P("/devices/dev1/interfaces[name=eth1]"), P("mtu")), ::testing::ElementsAre(2, 3));
  EXPECT_THAT(under(index, P("/devices/dev1/system"), P("hostname")), ::testing::ElementsAre(3, 4));
  EXPECT_THAT(under(index, P("/other"), P("x")), ::testing::IsEmpty());
}

TEST(PathIndex, ASingleRequestedKeyMatchesASinglePublishedKeyOfAnotherName) {
  PathIndex<int> index;
  index.insert(P("/devices/dev1/interfaces[ifname=eth0]"), 1);
  EXPECT_THAT(under(index, P("/devices/dev1/interfaces[name=eth0]"), P("mtu")), ::testing::ElementsAre(1));
  EXPECT_THAT(under(index, P("/devices/dev1/interfaces[name=eth1]"), P("mtu")), ::testing::IsEmpty());
}

TEST(PathIndex, DeletesReachThePathsBelowThem) {
  PathIndex<int> index;
  index.insert(P("/devices/dev1/interfaces[name=eth0]/counters"), 1);
  index.insert(P("/devices/dev1/interfaces[name=eth1]/counters"), 2);
  std::vector<int> found;
  const gnmi::Path prefix = P("/devices/dev1");
  const gnmi::Path deleted = P("interfaces[name=eth0]");
  index.forUnderOrAbove(PathElems{prefix, &deleted}, [&](int v) { found.push_back(v); });
  EXPECT_THAT(found, ::testing::ElementsAre(1));
}

TEST(PathIndex, ErasingOneFilingKeepsTheOthersAndPrunesEmptyBranches) {
  PathIndex<int> index;
  index.insert(P("/a/b[k=1]/c"), 1);
  index.insert(P("/a/b[k=1]/c"), 2);
  index.insert(P("/a/*/..."), 3);
  EXPECT_TRUE(index.erase(P("/a/b[k=1]/c"), 1));
  EXPECT_FALSE(index.erase(P("/a/b[k=1]/c"), 1));
  EXPECT_FALSE(index.erase(P("/a/b[k=2]/c"), 2));
  EXPECT_EQ(index.size(), 2u);
  EXPECT_THAT(under(index, P("/a/b[k=1]"), P("c")), ::testing::ElementsAre(2, 3));
  EXPECT_TRUE(index.erase(P("/a/b[k=1]/c"), 2));
  EXPECT_TRUE(index.erase(P("/a/*/..."), 3));
  EXPECT_TRUE(index.empty());
  EXPECT_THAT(under(index, P("/a/b[k=1]"), P("c")), ::testing::IsEmpty());
}

// Generated requested and published paths over a small alphabet, with keys,
// "*" and "...": the index and one PathFilter per path agree on every
// question.
TEST(PathIndex, AgreesWithPathFilterOnGeneratedPaths) {
  std::mt19937 rng(7);
  const auto pick = [&](int n) { return static_cast<int>(rng() % static_cast<uint32_t>(n)); };
  const char* names[] = {"a", "b", "c"};
  const char* values[] = {"1", "2"};
  const auto elem = [&](bool requested) {
    gnmi::PathElem e;
    const int kind = requested ? pick(10) : 9;
    if (kind == 0) {
      e.set_name("...");
      return e;
    }
    e.set_name(kind == 1 ? "*" : names[pick(3)]);
    const int keys = pick(3);
    for (int k = 0; k < keys; ++k) {
      (*e.mutable_key())[k == 0 ? "k" : "j"] = requested && pick(4) == 0 ? "*" : values[pick(2)];
    }
    return e;
  };
  const auto path = [&](bool requested, int most) {
    gnmi::Path p;
    for (int n = pick(most + 1); n > 0; --n) *p.add_elem() = elem(requested);
    return p;
  };
  std::vector<gnmi::Path> requested;
  PathIndex<int> index;
  for (int i = 0; i < 60; ++i) {
    requested.push_back(path(true, 4));
    index.insert(requested.back(), i);
  }
  size_t matches = 0;
  for (int round = 0; round < 3000; ++round) {
    const gnmi::Path prefix = path(false, 3);
    const gnmi::Path rest = path(false, 2);
    std::set<int> wantUnder, wantDelete, gotUnder, gotDelete;
    std::map<int, bool> wantPrefix, gotPrefix;
    for (int i = 0; i < static_cast<int>(requested.size()); ++i) {
      const PathFilter f(requested[static_cast<size_t>(i)]);
      if (f.matchUpdate(prefix, rest)) wantUnder.insert(i);
      if (f.matchDelete(prefix, rest)) wantDelete.insert(i);
      switch (f.matchPrefix(prefix)) {
        case PathFilter::PrefixMatch::All: wantPrefix[i] = true; break;
        case PathFilter::PrefixMatch::Partial: wantPrefix[i] = false; break;
        case PathFilter::PrefixMatch::None: break;
      }
    }
    index.forUnder(PathElems{prefix, &rest}, [&](int v) { EXPECT_TRUE(gotUnder.insert(v).second); });
    index.forUnderOrAbove(PathElems{prefix, &rest}, [&](int v) { EXPECT_TRUE(gotDelete.insert(v).second); });
    index.forPrefix(prefix, [&](int v, bool whole) { gotPrefix[v] = whole; });
    ASSERT_EQ(gotUnder, wantUnder) << VekGnmi::pathString(prefix) << " + " << VekGnmi::pathString(rest);
    ASSERT_EQ(gotDelete, wantDelete) << VekGnmi::pathString(prefix) << " + " << VekGnmi::pathString(rest);
    ASSERT_EQ(gotPrefix, wantPrefix) << VekGnmi::pathString(prefix);
    matches += wantUnder.size() + wantDelete.size();
  }
  EXPECT_GT(matches, 10000u);  // the generated paths do meet
}

}  // namespace
