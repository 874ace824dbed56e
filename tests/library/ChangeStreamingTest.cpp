// Change streaming: every kind of change of a published sample device
// becomes the right update or delete, at once, stamped with the time of the
// change.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FatalCatcher.h"
#include "SampleModel.h"
#include "TraceCapture.h"
#include "WalkSupport.h"

namespace {

using namespace Ostrel;
using OstrelTest::ids;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::ipv4;
using OstrelTest::Sample::name;
using OstrelTest::Sample::neighborKey;
using OstrelTest::Sample::Tree;
using OstrelTest::Sample::types;
using OstrelTest::Sample::vlanId;

using Leaves = std::vector<std::string>;
const std::string DEV = "/devices/dev1";
const std::string ETH0 = "/devices/dev1/interfaces[name=eth0]";

// A published sample device: synced once, then the router forgets the sync
// and the clock moves on, so that each change is stamped later than it.
class ChangeStreaming : public OstrelTest::WalkTest {
 protected:
  void SetUp() override { publish(WalkerFlags::RequestKindBit1); }
  void publish(WalkerFlags flags) {
    tree_ = buildTree();
    ASSERT_EQ(FullVekTypeWalker::syncObject(tree_.device.ptr(), strToPath(DEV), router_, ids(1, 1), flags),
              WalkResult::Done);
    router_.clear();
    clock_.advance(CHANGE_DELAY);
  }
  void TearDown() override {
    tree_ = {};
    OstrelTest::WalkTest::TearDown();
  }

  // The time the changes of a test carry.
  static constexpr double CHANGE_DELAY = 2.5;
  static constexpr Timestamp CHANGED = T0 + 2500000000LL;

  // Every message since the sync was stamped with the change time and went
  // out with sync id 0.
  void expectStampedAsChanges() const {
    ASSERT_FALSE(router_.messages.empty());
    for (size_t i = 0; i < router_.messages.size(); ++i) {
      EXPECT_EQ(router_.syncIds[i], SyncId());
    }
    for (const auto& msg : router_.messages) {
      const Timestamp t = msg->response->update().timestamp();
      // A new entity's own leaves carry 0 (their time of change is unknown).
      EXPECT_TRUE(t == CHANGED || t == 0) << msg->toString();
    }
  }
  GifGnmiNotifiee& notifieeAt(const std::string& path) {
    return *gNmiNotifieeMap.at(strToPath(path));
  }

  Tree tree_;
};

bool contains(const Leaves& leaves, const std::string& leaf) {
  return std::find(leaves.begin(), leaves.end(), leaf) != leaves.end();
}

// ---------------------------------------------------------------------------
// Singleton attributes

TEST_F(ChangeStreaming, EachBuiltinCodeStreamsAsItsTypedValue) {
  Vek::Entity& s = *tree_.scalars;
  s.valueIs<unsigned char>("u8", 1);
  s.valueIs<signed char>("i8", -1);
  s.valueIs<unsigned short>("u16", 2);
  s.valueIs<short>("i16", -2);
  s.valueIs<unsigned>("u32", 3);
  s.valueIs<int>("i32", -3);
  s.valueIs<unsigned long long>("u64", 4);
  s.valueIs<long long>("i64", -4);
  s.valueIs<bool>("flag", false);
  s.valueIs<char>("letter", 'B');
  s.valueIs<float>("ratio", 1.5f);
  s.valueIs<double>("reading", -2.0);
  s.valueIs("label", "new");
  s.valueIs("blob", Vek::Bytes(std::string_view("\x00\x01", 2)));
  s.valueIs("elapsed", Vek::Seconds(0.25));
  const std::string at = DEV + "/scalars/";
  EXPECT_EQ(router_.leaves(),
            (Leaves{at + "u8 = uint_val: 1", at + "i8 = int_val: -1", at + "u16 = uint_val: 2",
                    at + "i16 = int_val: -2", at + "u32 = uint_val: 3", at + "i32 = int_val: -3",
                    at + "u64 = uint_val: 4", at + "i64 = int_val: -4", at + "flag = bool_val: false",
                    at + "letter = uint_val: 66", at + "ratio = float_val: 1.5",
                    at + "reading = bytes_val: \"\\300\\000\\000\\000\\000\\000\\000\\000\"",
                    at + "label = string_val: \"new\"", at + "blob = bytes_val: \"\\000\\001\"",
                    at + "elapsed = int_val: 250000000"}));
  EXPECT_EQ(router_.messages.size(), 15u);
  expectStampedAsChanges();
}

TEST_F(ChangeStreaming, EnumerationsStreamAsTheirEnumeratorNames) {
  tree_.scalars->valueIs<unsigned char>("eU8", 5);
  tree_.scalars->valueIs<int>("eI32", 0);
  tree_.eth0->valueIs<int>("status", 3);
  EXPECT_EQ(router_.leaves(), (Leaves{DEV + "/scalars/eU8 = string_val: \"low\"",
                                      DEV + "/scalars/eI32 = string_val: \"zero\"",
                                      ETH0 + "/status = string_val: \"testing\""}));
  expectStampedAsChanges();
}

TEST_F(ChangeStreaming, ANestedValueStreamsEveryLeafOfIt) {
  const Vek::Ptr<Vek::GenericIf> counters =
      types().counters.genericIf(Vek::GenericIfArgs{Vek::genericIfOf(7ull), Vek::genericIfOf(8ull)});
  types().interface->attr("counters").genericIfSet(tree_.eth0, nullptr, counters);
  ASSERT_EQ(router_.messages.size(), 1u);
  EXPECT_EQ(router_.leaves(), (Leaves{ETH0 + "/counters/inPkts = uint_val: 7",
                                      ETH0 + "/counters/outPkts = uint_val: 8",
                                      ETH0 + "/counters/inErrors = uint_val: 0"}));
  expectStampedAsChanges();
}

TEST_F(ChangeStreaming, APointerStreamsItsTargetsPathOrNullptr) {
  tree_.eth0->pointerIs("peer", nullptr);
  tree_.eth0->pointerIs("peer", tree_.eth0);
  EXPECT_EQ(router_.leaves(), (Leaves{ETH0 + "/peer_ptr = string_val: \"nullptr\"",
                                      ETH0 + "/peer_ptr = string_val: \"" + ETH0 + "\""}));
  expectStampedAsChanges();
}

TEST_F(ChangeStreaming, JsonTextStreamsAsJson) {
  tree_.eth0->valueIs("config", R"({"speed":"100G"})");
  EXPECT_EQ(router_.leaves(), Leaves{ETH0 + "/config = json_val: \"{\\\"speed\\\":\\\"100G\\\"}\""});
  expectStampedAsChanges();
}

TEST_F(ChangeStreaming, AnArrayElementChangeRepublishesTheWholeLeafList) {
  types().interface->attr("vlans").genericIfSet(tree_.eth0, Vek::genericIfOf(1u),
                                                Vek::genericIfOf(static_cast<unsigned short>(99)));
  EXPECT_EQ(router_.leaves(), Leaves{ETH0 + "/vlans = [uint_val: 10, uint_val: 99, uint_val: 30]"});
  expectStampedAsChanges();
  // The array's time is now the change's.
  EXPECT_EQ(TimeStampUtils::lookupAttrTs(&notifieeAt(ETH0), "vlans"), CHANGED);
}

TEST_F(ChangeStreaming, AnAliasScalarStreamsAsItsWrappedLeaf) {
  types().device->attr("nativeVlan").genericIfSet(tree_.device, nullptr, types().vlanTag.genericIf("7", true));
  EXPECT_EQ(router_.leaves(), Leaves{DEV + "/nativeVlan/id = uint_val: 7"});
}

// ---------------------------------------------------------------------------
// Collections

TEST_F(ChangeStreaming, AMemberInsertedChangedAndErasedStreamsUpdatesThenADelete) {
  const Vek::VekAttr vlanNames = types().device->attr("vlanNames");
  const auto key = Vek::genericIfOf(static_cast<unsigned short>(30));
  vlanNames.genericIfSet(tree_.device, key, Vek::genericIfOf("voice"));
  vlanNames.genericIfSet(tree_.device, key, Vek::genericIfOf("video"));
  vlanNames.genericIfErase(tree_.device, key);
  const std::string at = DEV + "/vlanNames[vlanNames=30]";
  EXPECT_EQ(router_.leaves(), (Leaves{at + "/vlanNames = uint_val: 30",
                                      at + "/vlanNamesValue = string_val: \"voice\"",
                                      at + "/vlanNames = uint_val: 30",
                                      at + "/vlanNamesValue = string_val: \"video\"", "delete " + at}));
  expectStampedAsChanges();
  EXPECT_FALSE(TimeStampUtils::lookupCollectionKeyTs(&notifieeAt(DEV), "vlanNames", key));
}

TEST_F(ChangeStreaming, AMemberRecordsTheTimeOfItsLastChange) {
  const auto key = Vek::genericIfOf(static_cast<unsigned short>(10));
  EXPECT_EQ(TimeStampUtils::lookupCollectionKeyTs(&notifieeAt(DEV), "vlanNames", key), T0);
  types().device->attr("vlanNames").genericIfSet(tree_.device, key, Vek::genericIfOf("oob"));
  EXPECT_EQ(TimeStampUtils::lookupCollectionKeyTs(&notifieeAt(DEV), "vlanNames", key), CHANGED);
}

TEST_F(ChangeStreaming, ValueMembersStreamBelowTheirKeyedElement) {
  const Vek::Ptr<Vek::GenericIf> info = types().addressInfo.genericIfDefault();
  types().interface->attr("addresses").genericIfSet(tree_.eth0, ipv4("172.16.0.1"), info);
  const std::string at = ETH0 + "/addresses[addressesKey=172.16.0.1]";
  EXPECT_EQ(router_.leaves(), (Leaves{at + "/addressesKey = string_val: \"172.16.0.1\"",
                                      at + "/prefixLength = uint_val: 32", at + "/origin = string_val: \"static\""}));
}

TEST_F(ChangeStreaming, KeysOfEveryKindNameTheirMembers) {
  types().device->attr("vlanRoles").genericIfSet(tree_.device, vlanId(20), Vek::genericIfOf("data"));
  types().device->attr("vlanPriorities")
      .genericIfSet(tree_.device, vlanId(30), Vek::genericIfOf(static_cast<unsigned char>(1)));
  types().device->attr("linkCosts").genericIfSet(tree_.device, tree_.eth0, Vek::genericIfOf(99u));
  types().device->attr("lagMembers").genericIfSet(tree_.device, Vek::genericIfOf(3u), tree_.eth1);
  const Leaves leaves = router_.leaves();
  EXPECT_TRUE(contains(leaves, DEV + "/vlanRoles[vlanRolesKey=20]/vlanRolesValue = string_val: \"data\""));
  EXPECT_TRUE(contains(leaves, DEV + "/vlanPriorities[vlanPrioritiesKey=30]/vlanPrioritiesValue = uint_val: 1"));
  EXPECT_TRUE(contains(leaves, DEV + "/linkCosts[linkCostsKey=" + ETH0 + "]/linkCostsValue = uint_val: 99"));
  EXPECT_TRUE(contains(leaves, DEV + "/lagMembers[lagMembers=3]/lagMembersValue_ptr = string_val: "
                                     "\"/devices/dev1/interfaces[name=eth1]\""));
}

TEST_F(ChangeStreaming, AnOwnedMemberCreatedIsPublishedAsAWholeWalk) {
  Vek::Ptr<Vek::Entity> eth2 = tree_.device->entityNew("interfaces", name("eth2"));
  const std::string at = DEV + "/interfaces[name=eth2]";
  EXPECT_TRUE(gNmiNotifieeMap.contains(strToPath(at)));
  const Leaves leaves = router_.leaves();
  EXPECT_TRUE(contains(leaves, at + "/mtu = uint_val: 1500"));
  EXPECT_TRUE(contains(leaves, at + "/counters/inPkts = uint_val: 0"));
  expectStampedAsChanges();
  // It streams from then on.
  router_.clear();
  eth2->valueIs("mtu", 2000u);
  EXPECT_EQ(router_.leaves(), Leaves{at + "/mtu = uint_val: 2000"});
}

TEST_F(ChangeStreaming, AnOwnedMemberWithACompositeKeyPublishesItsKeyParts) {
  tree_.device->entityNew("neighbors", neighborKey("eth1", 2));
  const std::string at = DEV + "/neighbors[ifName=eth1][index=2]";
  const Leaves leaves = router_.leaves();
  EXPECT_TRUE(contains(leaves, at + "/ifName = string_val: \"eth1\""));
  EXPECT_TRUE(contains(leaves, at + "/index = uint_val: 2"));
}

TEST_F(ChangeStreaming, AReplacedMemberIsPublishedAfresh) {
  const auto* old = &notifieeAt(ETH0);
  tree_.eth0 = nullptr;
  Vek::Ptr<Vek::Entity> fresh = tree_.device->entityNew("interfaces", name("eth0"));
  EXPECT_NE(&notifieeAt(ETH0), old);
  EXPECT_EQ(notifieeAt(ETH0).entity(), fresh.ptr());
  EXPECT_TRUE(contains(router_.leaves(), ETH0 + "/mtu = uint_val: 1500"));
}

TEST_F(ChangeStreaming, ARemovedMemberIsDeletedAndItsNotifieeUnregistered) {
  tree_.eth0 = nullptr;
  tree_.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  const Leaves leaves = router_.leaves();
  EXPECT_EQ(leaves.back(), "delete " + ETH0);
  // The pointers that named it were cleared and published on the way.
  EXPECT_TRUE(contains(leaves, DEV + "/uplink_ptr = string_val: \"nullptr\""));
  EXPECT_TRUE(contains(leaves, "delete " + DEV + "/linkCosts[linkCostsKey=" + ETH0 + "]"));
  EXPECT_FALSE(gNmiNotifieeMap.contains(strToPath(ETH0)));
  expectStampedAsChanges();
}

TEST_F(ChangeStreaming, AnEntityErasedWhilePointedAtIsUnregisteredAndARecreatedOneStreams) {
  tree_.eth1 = nullptr;  // eth0.peer, linkCosts and lagMembers still name it
  tree_.device->entityDel(types().device->attr("interfaces"), name("eth1"));
  EXPECT_FALSE(gNmiNotifieeMap.contains(strToPath(DEV + "/interfaces[name=eth1]")));
  Vek::Ptr<Vek::Entity> again = tree_.device->entityNew("interfaces", name("eth1"));
  router_.clear();
  again->valueIs("description", "back");
  EXPECT_EQ(router_.leaves(), Leaves{DEV + "/interfaces[name=eth1]/description = string_val: \"back\""});
}

TEST_F(ChangeStreaming, AnOwnedChildCreatedIsPublishedAndClearedIsDeleted) {
  tree_.device->entityNew("fan");
  EXPECT_TRUE(contains(router_.leaves(), DEV + "/fan/rpm = uint_val: 0"));
  router_.clear();
  tree_.device->entityDel(types().device->attr("fan"));
  EXPECT_EQ(router_.leaves(), Leaves{"delete " + DEV + "/fan"});
  EXPECT_FALSE(gNmiNotifieeMap.contains(strToPath(DEV + "/fan")));
}

TEST_F(ChangeStreaming, NothingIsPublishedUnderAPathAfterItsDelete) {
  Vek::Ptr<Vek::Entity> held = tree_.eth0;
  tree_.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  router_.clear();
  held->valueIs("mtu", 1280u);
  // Not even when its notifiee is called directly.
  notifieeAt(ETH0).onAttribute(types().interface->attr("mtu")->id(), nullptr);
  EXPECT_TRUE(router_.messages.empty());
}

// ---------------------------------------------------------------------------
// Deletes and the walk queue

TEST_F(ChangeStreaming, DeletingAMemberTwiceIsFatal) {
  const Vek::VekAttr vlanNames = types().device->attr("vlanNames");
  const auto key = Vek::genericIfOf(static_cast<unsigned short>(10));
  vlanNames.genericIfErase(tree_.device, key);
  EXPECT_EQ(router_.leaves(), Leaves{"delete " + DEV + "/vlanNames[vlanNames=10]"});
  // The same delete reported again: nothing was published for it since.
  EXPECT_FATAL(notifieeAt(DEV).onAttribute(vlanNames->id(), key.ptr()),
               "Unable to find entry for deletion prefixPath_:/devices/dev1 prefix:/vlanNames[vlanNames=10]");
}

TEST_F(ChangeStreaming, ASecondDeleteIsIgnoredWhenTheFlagsAllowIt) {
  tree_ = {};
  router_.clear();
  publish(WalkerFlags::RequestKindBit1 | WalkerFlags::NotifieeOption);
  const Vek::VekAttr vlanNames = types().device->attr("vlanNames");
  const auto key = Vek::genericIfOf(static_cast<unsigned short>(10));
  vlanNames.genericIfErase(tree_.device, key);
  OstrelTest::TraceCapture traces("OstrelVekTypeNotifWalker", 1u << 1);
  notifieeAt(DEV).onAttribute(vlanNames->id(), key.ptr());
  EXPECT_EQ(router_.messages.size(), 1u);
  EXPECT_EQ(traces.messages, std::vector<std::string>{"Ignoring delete without prior update for "
                                             "prefixPath_:/devices/dev1 prefix:/vlanNames[vlanNames=10]"});
}

TEST_F(ChangeStreaming, ADeletedMembersQueuedSyncWorkGoesBeforeTheDeleteIsPushed) {
  // Two syncs of eth0 paused inside it.
  router_.refuseEvery = 1;
  ASSERT_NE(FullVekTypeWalker::syncObject(tree_.eth0.ptr(), strToPath(ETH0), router_, ids(2, 2),
                                          WalkerFlags::RequestKindBit1),
            WalkResult::Done);
  ASSERT_NE(FullVekTypeWalker::syncObject(tree_.eth0.ptr(), strToPath(ETH0), router_, ids(3, 3),
                                          WalkerFlags::RequestKindBit1),
            WalkResult::Done);
  ASSERT_TRUE(staticPathWalkIdMap.contains(strToPath(ETH0)));
  router_.refuseEvery = 0;
  bool queuedWhenDeleted = true;
  router_.onPush = [&] {
    if (router_.texts.back().find("delete0 ( path:/interfaces[name=eth0] )") != std::string::npos) {
      queuedWhenDeleted = staticPathWalkIdMap.contains(strToPath(ETH0));
    }
  };
  tree_.eth0 = nullptr;
  tree_.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  EXPECT_FALSE(queuedWhenDeleted);
  EXPECT_TRUE(staticWalkMap.at(WalkId(2)).empty());
  EXPECT_TRUE(staticWalkMap.at(WalkId(3)).empty());
}

TEST_F(ChangeStreaming, WithPushesSuppressedTheChangeWalkRunsButPublishesNothing) {
  const Vek::VekAttr vlanNames = types().device->attr("vlanNames");
  const auto key = Vek::genericIfOf(static_cast<unsigned short>(10));
  const Vek::Ptr<Vek::GenericIf const> device = Vek::VekType::genericIf(tree_.device.ptr());
  VekTypeNotifWalker walker(Zolt::Platform::getDebugHandler("OstrelVekTypeNotifWalker"), device, strToPath(DEV),
                            &notifieeAt(DEV), key.ptr(), gnmi::Path(), types().device, vlanNames->id(), router_,
                            WalkerFlags::SuppressPush);
  walker.walk();
  EXPECT_TRUE(router_.messages.empty());
  // It ran: the member's time is the time of this walk.
  EXPECT_EQ(TimeStampUtils::lookupCollectionKeyTs(&notifieeAt(DEV), "vlanNames", key), CHANGED);
}

TEST_F(ChangeStreaming, ANotifieesChangeWalkerPublishesAtTheNotifieesPrefixAsAGivenPrefixDoes) {
  const Vek::Ptr<Vek::GenericIf const> eth0 = Vek::VekType::genericIf(tree_.eth0.ptr());
  const Vek::AttributeId mtu = types().interface->attr("mtu")->id();
  tree_.eth0->valueIs("mtu", 4000u);
  router_.clear();
  VekTypeNotifWalker given(Zolt::Platform::getDebugHandler("OstrelVekTypeNotifWalker"), eth0, strToPath(ETH0),
                           &notifieeAt(ETH0), nullptr, gnmi::Path(), types().interface, mtu, router_,
                           WalkerFlags::RequestKindBit1);
  given.walk();
  VekTypeNotifWalker borrowed(Zolt::Platform::getDebugHandler("OstrelVekTypeNotifWalker"), eth0,
                              notifieeAt(ETH0), nullptr, types().interface, mtu, router_,
                              WalkerFlags::RequestKindBit1);
  borrowed.walk();
  ASSERT_EQ(router_.texts.size(), 2u);
  EXPECT_EQ(router_.texts[1], router_.texts[0]);
  EXPECT_EQ(router_.leaves()[1], ETH0 + "/mtu = uint_val: 4000");
}

TEST_F(ChangeStreaming, ANegativeAttributeIdIsTheSameAttribute) {
  tree_.eth0->valueIs("mtu", 4000u);
  const Leaves positive = router_.leaves();
  router_.clear();
  const Vek::AttributeId mtu = types().interface->attr("mtu")->id();
  notifieeAt(ETH0).onAttribute(Vek::AttributeId(-mtu.value()), nullptr);
  EXPECT_EQ(router_.leaves(), positive);
}

TEST_F(ChangeStreaming, AChangeOfAnUnknownAttributeIsIgnored) {
  notifieeAt(ETH0).onAttribute(Vek::AttributeId(999), nullptr);
  EXPECT_TRUE(router_.messages.empty());
}

TEST_F(ChangeStreaming, AStackCollectionChangePublishesNothing) {
  // Registered (and owned) by the registry it enters.
  new GifGnmiNotifiee(tree_.journal.ptr(), strToPath("/journals/syslog"), router_, false, false);
  types().journal->attr("entries").genericIfSet(tree_.journal, Vek::genericIfOf(3u), Vek::genericIfOf("x"));
  EXPECT_TRUE(router_.messages.empty());
}

// ---------------------------------------------------------------------------
// Optional attributes: published while they hold a value, deleted when unset

// An entity whose name is not data, with an optional leaf and an optional
// leaf list, published at /node.
class OptionalLeafStreaming : public OstrelTest::WalkTest {
 protected:
  static Vek::VekType nodeType() {
    static const Vek::VekType type = [] {
      Vek::AttrDef mtu;
      mtu.name = "mtu";
      mtu.type = Vek::builtinType<unsigned>();
      mtu.flags = Vek::AttrFlag::OPTIONAL;
      return Vek::Module::moduleNew("OptionalLeafStreaming")
          .entityType("Node", Vek::TypeFlag::NAME_NOT_DATA)
          .attr(mtu)
          .array("servers", Vek::builtinType<Vek::String>())
          .attrFlagsIs(Vek::AttrFlag::ARRAY | Vek::AttrFlag::OPTIONAL)
          .done();
    }();
    return type;
  }
  void SetUp() override { node_ = Vek::Entity::rootNew(nodeType(), "node"); }
  void TearDown() override {
    node_ = nullptr;
    OstrelTest::WalkTest::TearDown();
  }
  Leaves sync() {
    router_.clear();
    EXPECT_EQ(FullVekTypeWalker::syncObject(node_.ptr(), strToPath("/node"), router_, ids(1, 1),
                                            WalkerFlags::RequestKindBit1),
              WalkResult::Done);
    Leaves leaves = router_.leaves();
    router_.clear();
    return leaves;
  }
  Vek::VekAttr attr(const char* name) const { return nodeType()->attr(name); }

  Vek::Ptr<Vek::Entity> node_;
};

TEST_F(OptionalLeafStreaming, UnsetLeavesEmptyLeafListsAndANameThatIsNotDataAreNotPublished) {
  EXPECT_EQ(sync(), Leaves{});
}

TEST_F(OptionalLeafStreaming, SetLeavesAndLeafListsArePublished) {
  node_->valueIs<unsigned>("mtu", 1500u);
  attr("servers").genericIfSet(node_, Vek::genericIfOf(0u), Vek::genericIfOf("ns1"));
  EXPECT_EQ(sync(), (Leaves{"/node/mtu = uint_val: 1500", "/node/servers = [string_val: \"ns1\"]"}));
}

TEST_F(OptionalLeafStreaming, UnsettingALeafStreamsADeleteOfItsPath) {
  node_->valueIs<unsigned>("mtu", 1500u);
  sync();
  node_->valueIs<unsigned>("mtu", 9000u);
  attr("mtu").genericIfSet(node_, nullptr, nullptr);
  EXPECT_EQ(router_.leaves(), (Leaves{"/node/mtu = uint_val: 9000", "delete /node/mtu"}));
}

TEST_F(OptionalLeafStreaming, EmptyingALeafListStreamsADeleteOfItsPath) {
  const Vek::VekAttr servers = attr("servers");
  servers.genericIfSet(node_, Vek::genericIfOf(0u), Vek::genericIfOf("ns1"));
  sync();
  servers.genericIfSet(node_, Vek::genericIfOf(1u), Vek::genericIfOf("ns2"));
  servers.genericIfErase(node_, Vek::genericIfOf(0u));
  servers.genericIfErase(node_, Vek::genericIfOf(1u));
  EXPECT_EQ(router_.leaves(), (Leaves{"/node/servers = [string_val: \"ns1\", string_val: \"ns2\"]",
                                      "/node/servers = [string_val: \"ns2\"]", "delete /node/servers"}));
}

}  // namespace
