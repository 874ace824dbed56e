// How entities leave the model and end: replacement, removal, pointers and
// keys that name a leaving entity, silence inside a removed subtree, saved
// iterators, and roots.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "ChangeRecorder.h"
#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::ChangeRecorder;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::name;
using OstrelTest::Sample::types;

using Events = std::vector<std::string>;

TEST(VekLifecycle, ReplacedChildEndsBeforeTheOwnerReportsTheChange) {
  auto tree = buildTree();
  Events log;
  ChangeRecorder device(tree.device, true, &log, "device");
  Ptr<ChangeRecorder> old = new ChangeRecorder(tree.device->entity("chassis"), true, &log, "old");
  tree.device->entityNew("chassis");
  EXPECT_EQ(log, (Events{"old:zero", "device:chassis"}));
}

TEST(VekLifecycle, ReplacedMemberEndsBeforeTheOwnerReportsTheChange) {
  auto tree = buildTree();
  Events log;
  ChangeRecorder device(tree.device, true, &log, "device");
  Ptr<ChangeRecorder> old = new ChangeRecorder(tree.eth1, true, &log, "eth1");
  tree.eth1 = nullptr;
  const int64_t interfaces = types().interface->allocTrack().liveObjects();
  tree.device->entityNew("interfaces", name("eth1"));
  // eth1 was pointed at by eth0.peer, linkCosts and lagMembers: those go
  // (reported to their holders) before eth1 ends and the device reports the
  // new member.
  ASSERT_EQ(log.size(), 4u);
  Events clearings(log.begin(), log.begin() + 2);
  std::sort(clearings.begin(), clearings.end());
  EXPECT_EQ(clearings,
            (Events{"device:lagMembers[2]-", "device:linkCosts[entity('devices.dev1.eth1')]-"}));
  EXPECT_EQ(log[2], "eth1:zero");
  EXPECT_EQ(log[3], "device:interfaces[eth1]+");
  EXPECT_EQ(types().interface->allocTrack().liveObjects(), interfaces);
  EXPECT_FALSE(tree.eth0->entity("peer"));
}

// The case streaming depends on: a registry of notifiees by path, where the
// old member's notifiee must have left before the owner's notifiee
// publishes the new member at the same path.
TEST(VekLifecycle, OwnerPublishingAReplacementFindsThePathFree) {
  auto tree = buildTree();
  std::map<std::string, Ptr<ChangeRecorder>> byPath;
  const auto publish = [&](const Ptr<Entity>& e) {
    Ptr<ChangeRecorder> r = new ChangeRecorder(e);
    const std::string path = e->fullName();
    ChangeRecorder* raw = r.ptr();
    r->onZero = [&byPath, path, raw] {
      if (byPath[path].ptr() == raw) byPath.erase(path);
    };
    return byPath.emplace(path, r).second;
  };
  ASSERT_TRUE(publish(tree.eth0));
  tree.eth0 = nullptr;
  bool published = false;
  ChangeRecorder device(tree.device);
  device.onChange = [&] {
    Ptr<Entity> now = tree.device->entity("interfaces", name("eth0"));
    if (now) published = publish(now);
  };
  tree.device->entityNew("interfaces", name("eth0"));
  EXPECT_TRUE(published);
}

TEST(VekLifecycle, ReplacedChildHeldByACallerIsAnOrphanUntilDropped) {
  auto tree = buildTree();
  Ptr<Entity> old = tree.device->entity("chassis");
  Ptr<ChangeRecorder> r = new ChangeRecorder(old);
  tree.device->entityNew("chassis");
  EXPECT_TRUE(old->isOrphan());
  EXPECT_EQ(r->events, Events{});
  old = nullptr;
  EXPECT_EQ(r->events, Events{"zero"});
}

TEST(VekLifecycle, ErasedEntityPointedAtElsewhereEndsAtOnce) {
  auto tree = buildTree();
  Events log;
  ChangeRecorder device(tree.device, true, &log, "device");
  ChangeRecorder eth1(tree.eth1, true, &log, "eth1");
  ChangeRecorder neighbor(tree.neighbor, true, &log, "neighbor");
  Ptr<ChangeRecorder> eth0 = new ChangeRecorder(tree.eth0, true, &log, "eth0");
  tree.eth0 = nullptr;
  const int64_t interfaces = types().interface->allocTrack().liveObjects();
  EXPECT_TRUE(tree.device->entityDel(types().device->attr("interfaces"), name("eth0")));
  // Every pointer and key naming eth0 is cleared and reported to its holder,
  // then eth0 ends, then the device reports the erase. Holders are visited in
  // no particular order, so the clearings are compared as a set.
  ASSERT_EQ(log.size(), 7u);
  EXPECT_EQ(log[5], "eth0:zero");
  EXPECT_EQ(log[6], "device:interfaces[eth0]-");
  Events clearings(log.begin(), log.begin() + 5);
  std::sort(clearings.begin(), clearings.end());
  EXPECT_EQ(clearings, (Events{"device:lagMembers[1]-", "device:linkCosts[entity('devices.dev1.eth0')]-",
                               "device:uplink", "eth1:peer", "neighbor:via"}));
  EXPECT_EQ(types().interface->allocTrack().liveObjects(), interfaces - 1);
  EXPECT_FALSE(tree.device->entity("uplink"));
  EXPECT_FALSE(tree.neighbor->entity("via"));
  EXPECT_EQ(tree.device->memberCount("linkCosts"), 1u);
  EXPECT_EQ(tree.device->memberCount("lagMembers"), 1u);
}

TEST(VekLifecycle, RecreatedEntityAtTheSamePlaceIsANewOne) {
  auto tree = buildTree();
  const uint64_t oldSerial = tree.eth0->serial();
  tree.eth0 = nullptr;
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  Ptr<Entity> again = tree.device->entityNew("interfaces", name("eth0"));
  EXPECT_NE(again->serial(), oldSerial);
  EXPECT_EQ(again->value<unsigned>("mtu"), 1500u);
  ChangeRecorder r(again);
  again->valueIs("mtu", 9100u);
  EXPECT_EQ(r.events, Events{"mtu"});
}

TEST(VekLifecycle, NothingIsReportedFromAnEntityThatLeft) {
  auto tree = buildTree();
  Ptr<ChangeRecorder> r = new ChangeRecorder(tree.eth0);
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  // Its own pointer (peer) and keyed members went without a word.
  EXPECT_EQ(r->events, Events{});
  // A caller still holding it may change it: nobody hears of that.
  tree.eth0->valueIs("mtu", 1280u);
  types().interface->attr("addresses").genericIfErase(tree.eth0, OstrelTest::Sample::ipv4("10.0.0.1"));
  EXPECT_EQ(r->events, Events{});
  tree.eth0 = nullptr;
  EXPECT_EQ(r->events, Events{"zero"});
}

TEST(VekLifecycle, OwnedEntitiesOfARemovedEntityAreOrphansToo) {
  auto tree = buildTree();
  Ptr<Entity> chassis = tree.device->entity("chassis");
  tree.devices->childDel("dev1");
  EXPECT_TRUE(tree.device->isOrphan());
  EXPECT_TRUE(chassis->isOrphan());
  EXPECT_TRUE(tree.eth0->isOrphan());
  EXPECT_EQ(chassis->parent(), tree.device.ptr());
  EXPECT_EQ(tree.device->parent(), nullptr);
}

TEST(VekLifecycle, PointerToAnEntityThatLeftIsRefused) {
  auto tree = buildTree();
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  try {
    tree.eth1->pointerIs("peer", tree.eth0);
    FAIL() << "no exception";
  } catch (const TypeMismatchException& e) {
    EXPECT_STREQ(e.what(), "peer cannot refer to /eth0: it has left the model");
  }
  EXPECT_THROW(types().device->attr("linkCosts").genericIfSet(tree.device, tree.eth0, genericIfOf(1u)),
               TypeMismatchException);
  EXPECT_FALSE(tree.eth1->entity("peer"));
}

TEST(VekLifecycle, PointersBetweenRootsKeepNothingAlive) {
  const int64_t before = Entity::allocTrackInfo().liveObjects();
  {
    Ptr<Entity> a = Entity::rootNew(types().interface, "a");
    Ptr<Entity> b = Entity::rootNew(types().interface, "b");
    a->pointerIs("peer", b);
    b->pointerIs("peer", a);
  }
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before);
}

TEST(VekLifecycle, DirectoryEntryDoesNotKeepItsTargetAlive) {
  const int64_t before = Entity::allocTrackInfo().liveObjects();
  {
    Ptr<Dir> root = Dir::rootNew("");
    root->entryNew("self", root);
    EXPECT_EQ(root->referenceCount(), 1u);
  }
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before);
}

TEST(VekLifecycle, RootThatEndsClearsPointersFromOtherTrees) {
  auto tree = buildTree();
  ChangeRecorder eth1(tree.eth1);
  {
    Ptr<Entity> other = Entity::rootNew(types().interface, "other");
    tree.eth1->pointerIs("peer", other);
    eth1.events.clear();
  }
  EXPECT_FALSE(tree.eth1->entity("peer"));
  EXPECT_EQ(eth1.events, Events{"peer"});
}

TEST(VekLifecycle, SavedIteratorDoesNotKeepAnErasedMemberAlive) {
  auto tree = buildTree();
  const VekAttr interfaces = types().device->attr("interfaces");
  auto it = interfaces.genericIfIteratorConst(tree.device);
  ASSERT_EQ(it.key()->strRep(), "eth0");
  Ptr<ChangeRecorder> r = new ChangeRecorder(tree.eth0);
  tree.eth0 = nullptr;
  tree.device->entityDel(interfaces, name("eth0"));
  EXPECT_EQ(r->events, Events{"zero"});  // now, not at the next step
  ++it;
  ASSERT_TRUE(it);
  EXPECT_EQ(it.key()->strRep(), "eth1");
  ++it;
  EXPECT_FALSE(it);
}

TEST(VekLifecycle, SavedIteratorDoesNotKeepAnEntityKeyAlive) {
  auto tree = buildTree();
  const VekAttr linkCosts = types().device->attr("linkCosts");
  auto it = linkCosts.genericIfIteratorConst(tree.device);
  ASSERT_EQ(it.key().ptr(), tree.eth0.ptr());
  Ptr<ChangeRecorder> r = new ChangeRecorder(tree.eth0);
  tree.eth0 = nullptr;
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  EXPECT_EQ(r->events, Events{"zero"});
  EXPECT_FALSE(it.key());
  ++it;
  ASSERT_TRUE(it);
  EXPECT_EQ(it.key().ptr(), tree.eth1.ptr());
  EXPECT_EQ(it.ptr()->as<unsigned>(), 20u);
}

TEST(VekLifecycle, IteratorOverEntityKeysSeesKeysInsertedAhead) {
  auto tree = buildTree();
  const VekAttr linkCosts = types().device->attr("linkCosts");
  auto it = linkCosts.genericIfIteratorConst(tree.device);  // at eth0
  Ptr<Entity> eth2 = tree.device->entityNew("interfaces", name("eth2"));
  linkCosts.genericIfSet(tree.device, eth2, genericIfOf(30u));
  ++it;
  EXPECT_EQ(it.key().ptr(), tree.eth1.ptr());
  ++it;
  EXPECT_EQ(it.key().ptr(), eth2.ptr());
  ++it;
  EXPECT_FALSE(it);
}

}  // namespace
