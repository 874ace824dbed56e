// Notifiees: change callbacks, change keys, weak references, zero references.
#include <gtest/gtest.h>

#include <functional>

#include "ChangeRecorder.h"
#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::ipv4;
using OstrelTest::Sample::name;
using OstrelTest::Sample::types;

using Recorder = OstrelTest::ChangeRecorder;

TEST(VekNotifiee, ScalarChangeReportsAttributeWithoutKey) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.eth0);
  tree.eth0->valueIs("mtu", 1400u);
  tree.eth0->valueIs("mtu", 1400u);  // unchanged: not reported
  tree.eth0->pointerIs("peer", nullptr);
  EXPECT_EQ(r->events, (std::vector<std::string>{"mtu", "peer"}));
}

TEST(VekNotifiee, ValueSeenInCallbackIsTheNewOne) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.eth0);
  unsigned seen = 0;
  r->onChange = [&] { seen = tree.eth0->value<unsigned>("mtu"); };
  tree.eth0->valueIs("mtu", 1234u);
  EXPECT_EQ(seen, 1234u);
}

TEST(VekNotifiee, CollectionChangesReportTheirKeys) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.eth0);
  const VekAttr addresses = types().interface->attr("addresses");
  addresses.genericIfSet(tree.eth0, ipv4("1.1.1.1"), types().addressInfo.genericIfDefault());
  addresses.genericIfErase(tree.eth0, ipv4("10.0.0.1"));
  EXPECT_EQ(r->events, (std::vector<std::string>{"addresses[1.1.1.1]+", "addresses[10.0.0.1]-"}));
}

TEST(VekNotifiee, OwnedEntityCreationAndRemovalAreReported) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.device);
  tree.device->entityNew("interfaces", name("eth2"));
  tree.device->entityDel(types().device->attr("interfaces"), name("eth2"));
  tree.device->entityNew("chassis");
  EXPECT_EQ(r->events,
            (std::vector<std::string>{"interfaces[eth2]+", "interfaces[eth2]-", "chassis"}));
}

TEST(VekNotifiee, ChangeKeyEqualsIteratorKey) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.eth0);
  const VekAttr addresses = types().interface->attr("addresses");
  Ptr<GenericIf> info = types().addressInfo.genericIfDefault();
  addresses.genericIfSet(tree.eth0, ipv4("10.0.0.1"), info);
  ASSERT_TRUE(r->lastKey);
  auto it = addresses.genericIfIteratorConst(tree.eth0);
  EXPECT_TRUE(VekType::genericIfBooleanOp(it.key(), AttrOp::Equal, r->lastKey));
  EXPECT_EQ(it.key()->hash(), r->lastKey->hash());
}

TEST(VekNotifiee, ChangeKeyEqualsAKeyBuiltApart) {
  auto tree = buildTree();
  Ptr<Recorder> intf = new Recorder(tree.eth0);
  Ptr<Recorder> device = new Recorder(tree.device);
  const auto expectKey = [](const Ptr<GenericIf const>& reported, const Ptr<GenericIf const>& built) {
    ASSERT_TRUE(reported);
    EXPECT_NE(reported.ptr(), built.ptr());
    EXPECT_TRUE(VekType::genericIfBooleanOp(reported, AttrOp::Equal, built)) << reported->strRep();
    EXPECT_EQ(reported->hash(), built->hash()) << reported->strRep();
  };
  // A value-typed key, reported for an insertion and for an erase.
  const VekAttr addresses = types().interface->attr("addresses");
  addresses.genericIfSet(tree.eth0, ipv4("10.9.9.9"), types().addressInfo.genericIfDefault());
  expectKey(intf->lastKey, types().ipv4.genericIf("10.9.9.9", true));
  addresses.genericIfErase(tree.eth0, ipv4("10.0.0.1"));
  expectKey(intf->lastKey, types().ipv4.genericIf("10.0.0.1", true));
  // A text key and an integer key.
  tree.device->entityNew("interfaces", name("eth7"));
  expectKey(device->lastKey, builtinType<String>().genericIf("eth7", true));
  types().device->attr("vlanNames").genericIfSet(tree.device, genericIfOf(static_cast<unsigned short>(30)),
                                                 genericIfOf("voice"));
  expectKey(device->lastKey, builtinType<unsigned short>().genericIf("30", true));
  // An entity key is the entity itself, however it is reached.
  types().device->attr("linkCosts").genericIfSet(tree.device, tree.eth1, genericIfOf(25u));
  ASSERT_TRUE(device->lastKey);
  EXPECT_TRUE(VekType::genericIfBooleanOp(
      device->lastKey, AttrOp::Equal,
      types().device->attr("interfaces").genericIfGet(tree.device, name("eth1"))));
  EXPECT_EQ(device->lastKey->hash(), VekType::genericIf(tree.eth1.ptr())->hash());
}

TEST(VekNotifiee, UnregisteredNotifieeHearsNothing) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.eth0);
  r->isRegisteredNotifieeIs(false);
  tree.eth0->valueIs("mtu", 1400u);
  EXPECT_TRUE(r->events.empty());
  EXPECT_TRUE(tree.eth0->notifiees().empty());
}

TEST(VekNotifiee, NotifieeMayUnregisterAnotherDuringCallback) {
  auto tree = buildTree();
  Ptr<Recorder> first = new Recorder(tree.eth0);
  Ptr<Recorder> second = new Recorder(tree.eth0);
  first->onChange = [&] { second = nullptr; };
  tree.eth0->valueIs("mtu", 1400u);
  EXPECT_EQ(first->events.size(), 1u);
  EXPECT_EQ(tree.eth0->notifiees().size(), 1u);
}

// Counts callbacks and records its own destruction; owned by whoever made
// it, never by a `Ptr`.
class PlainNotifiee : public GenericIf::NotifieeConst {
 public:
  PlainNotifiee(const Entity* entity, bool* destroyed = nullptr) : destroyed_(destroyed) {
    notifierIs(entity);
    isWeakReferenceIs(true);
    isRegisteredNotifieeIs(true);
  }
  ~PlainNotifiee() override {
    if (destroyed_) *destroyed_ = true;
  }
  void onAttribute(AttributeId, const void*) override {
    ++calls;
    if (onChange) onChange();
  }

  int calls = 0;
  std::function<void()> onChange;

 private:
  bool* destroyed_;
};

TEST(VekNotifiee, StackNotifieeOutlivesItsNotifications) {
  auto tree = buildTree();
  PlainNotifiee n(tree.eth0);
  tree.eth0->valueIs("mtu", 1400u);
  tree.eth0->valueIs("mtu", 1500u);
  EXPECT_EQ(n.calls, 2);
  EXPECT_EQ(n.references(), 0u);
  EXPECT_EQ(tree.eth0->notifiees(), std::vector<PtrInterface::NotifieeConst*>{&n});
}

TEST(VekNotifiee, NotifieeHeldByPlainPointerIsNotDeletedByNotifying) {
  auto tree = buildTree();
  bool destroyed = false;
  auto* n = new PlainNotifiee(tree.eth0, &destroyed);
  tree.eth0->valueIs("mtu", 1400u);
  EXPECT_FALSE(destroyed);
  if (destroyed) return;  // deleted already: nothing left to check or free
  EXPECT_EQ(n->calls, 1);
  delete n;
  EXPECT_TRUE(destroyed);
  EXPECT_TRUE(tree.eth0->notifiees().empty());
}

TEST(VekNotifiee, StackNotifieeMayUnregisterAnotherDuringCallback) {
  auto tree = buildTree();
  PlainNotifiee first(tree.eth0);
  PlainNotifiee second(tree.eth0);
  first.onChange = [&] { second.isRegisteredNotifieeIs(false); };
  tree.eth0->valueIs("mtu", 1400u);
  EXPECT_EQ(first.calls, 1);
  EXPECT_EQ(second.calls, 0);
  EXPECT_EQ(tree.eth0->notifiees(), std::vector<PtrInterface::NotifieeConst*>{&first});
  tree.eth0->valueIs("mtu", 1500u);
  EXPECT_EQ(first.calls, 2);
  EXPECT_EQ(second.calls, 0);
}

TEST(VekNotifiee, NotifieeMayDeleteAPlainOwnedOneDuringCallback) {
  auto tree = buildTree();
  bool destroyed = false;
  PlainNotifiee first(tree.eth0);
  auto* second = new PlainNotifiee(tree.eth0, &destroyed);
  first.onChange = [&] {
    delete second;
    second = nullptr;
  };
  tree.eth0->valueIs("mtu", 1400u);
  EXPECT_EQ(first.calls, 1);
  EXPECT_TRUE(destroyed);
  EXPECT_EQ(tree.eth0->notifiees(), std::vector<PtrInterface::NotifieeConst*>{&first});
}

TEST(VekNotifiee, PtrOwnedNotifieeMayDropItselfDuringCallback) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.eth0);
  PlainNotifiee after(tree.eth0);
  r->onChange = [&] { r = nullptr; };
  tree.eth0->valueIs("mtu", 1400u);
  EXPECT_FALSE(r);
  EXPECT_EQ(after.calls, 1);
  EXPECT_EQ(tree.eth0->notifiees(), std::vector<PtrInterface::NotifieeConst*>{&after});
}

TEST(VekNotifiee, StackNotifieeHearsZeroReferences) {
  struct ZeroNotifiee : PlainNotifiee {
    using PlainNotifiee::PlainNotifiee;
    void onZeroReferences() override { ++zeros; }
    int zeros = 0;
  };
  Ptr<Entity> e = Entity::rootNew(types().chassis, "c");
  ZeroNotifiee n(e);
  e = nullptr;
  EXPECT_EQ(n.zeros, 1);
  EXPECT_EQ(n.notifier(), nullptr);
  EXPECT_EQ(n.references(), 0u);
}

TEST(VekNotifiee, StrongNotifieeKeepsEntityAlive) {
  Ptr<Entity> e = Entity::rootNew(types().chassis, "c");
  Ptr<Recorder> r = new Recorder(e, false);
  EXPECT_EQ(e->references(), 2u);
  e = nullptr;
  EXPECT_TRUE(r->events.empty());
  EXPECT_EQ(types().chassis->allocTrack().liveObjects(), 1);
  r = nullptr;
  EXPECT_EQ(types().chassis->allocTrack().liveObjects(), 0);
}

TEST(VekNotifiee, WeakNotifieeHearsZeroReferences) {
  Ptr<Entity> e = Entity::rootNew(types().chassis, "c");
  Ptr<Recorder> r = new Recorder(e);
  EXPECT_EQ(e->references(), 1u);
  e = nullptr;
  EXPECT_EQ(r->events, std::vector<std::string>{"zero"});
  EXPECT_EQ(r->notifier(), nullptr);
  EXPECT_EQ(types().chassis->allocTrack().liveObjects(), 0);
}

TEST(VekNotifiee, ZeroReferencesMayDropTheNotifieeAndTouchTheEntity) {
  Ptr<Entity> e = Entity::rootNew(types().chassis, "c");
  Ptr<Recorder> r = new Recorder(e);
  Recorder* raw = r.ptr();
  std::string seenName;
  raw->onZero = [&] {
    // Take and drop a handle of the dying entity, then drop the notifiee.
    Ptr<GenericIf const> gif = VekType::genericIf(raw->notifier());
    seenName = static_cast<const Entity*>(gif.ptr())->fullName();
    r = nullptr;
  };
  const int64_t entitiesBefore = Entity::allocTrackInfo().liveObjects();
  e = nullptr;
  EXPECT_EQ(seenName, "/c");
  EXPECT_FALSE(r);
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), entitiesBefore - 1);
}

TEST(VekNotifiee, NotifieeOutlivingEntityIsDetached) {
  Ptr<Recorder> r;
  {
    Ptr<Entity> e = Entity::rootNew(types().chassis, "c");
    r = new Recorder(e);
    r->zeroReferencesIs(false);
  }
  EXPECT_TRUE(r->events.empty());
  EXPECT_EQ(r->notifier(), nullptr);
  EXPECT_TRUE(r->notifieeList().empty());
}

TEST(VekNotifiee, PausedNotifieeHearsNothing) {
  auto tree = buildTree();
  Ptr<Recorder> r = new Recorder(tree.eth0);
  r->hasNotificationActiveIs(false);
  tree.eth0->valueIs("mtu", 1400u);
  r->hasNotificationActiveIs(true);
  tree.eth0->valueIs("mtu", 1500u);
  EXPECT_EQ(r->events, std::vector<std::string>{"mtu"});
  EXPECT_EQ(r->notifieeList().size(), 1u);
}

}  // namespace
