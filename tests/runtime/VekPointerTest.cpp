// Pointers between entities, orphans, and reference counts.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ChangeRecorder.h"
#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::name;
using OstrelTest::Sample::types;

TEST(VekPointer, PtrCountsReferences) {
  Ptr<Entity> e = Entity::rootNew(types().chassis, "c");
  EXPECT_EQ(e->references(), 1u);
  {
    Ptr<Entity> f = e;
    Ptr<GenericIf const> g = e;
    EXPECT_EQ(e->references(), 3u);
  }
  EXPECT_EQ(e->references(), 1u);
  Ptr<Entity> moved = std::move(e);
  EXPECT_EQ(moved->references(), 1u);
  EXPECT_FALSE(e);
}

TEST(VekPointer, PointerIsSetReadAndCleared) {
  auto tree = buildTree();
  EXPECT_EQ(tree.eth0->entity("peer"), tree.eth1);
  EXPECT_EQ(types().interface->attr("peer").genericIfGet(tree.eth1).ptr(), tree.eth0.ptr());
  tree.eth0->pointerIs("peer", nullptr);
  EXPECT_FALSE(tree.eth0->entity("peer"));
  EXPECT_FALSE(types().interface->attr("peer").genericIfGet(tree.eth0));
}

TEST(VekPointer, PointerToAnotherTypeIsRefused) {
  auto tree = buildTree();
  Ptr<Entity> chassis = tree.device->entity("chassis");
  try {
    tree.eth0->pointerIs("peer", chassis);
    FAIL() << "no exception";
  } catch (const TypeMismatchException& e) {
    EXPECT_STREQ(e.what(), "peer holds Sample::Interface, not Sample::Chassis");
  }
  EXPECT_EQ(tree.eth0->entity("peer"), tree.eth1);
}

TEST(VekPointer, RemovedMemberBecomesOrphan) {
  auto tree = buildTree();
  EXPECT_FALSE(tree.eth0->isOrphan());
  EXPECT_TRUE(tree.device->entityDel(types().device->attr("interfaces"), name("eth0")));
  EXPECT_TRUE(tree.eth0->isOrphan());
  EXPECT_EQ(tree.eth0->parent(), nullptr);
  EXPECT_EQ(tree.eth0->fullName(), "/eth0");
  // Pointers do not hold their targets: the device's pointer to it went.
  EXPECT_FALSE(tree.device->entity("uplink"));
}

TEST(VekPointer, OrphanReleasesItsPointersAndPointersToItAreCleared) {
  auto tree = buildTree();
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  EXPECT_FALSE(tree.eth0->entity("peer"));
  EXPECT_FALSE(tree.eth1->entity("peer"));
  EXPECT_EQ(tree.eth0->referenceCount(), 0u);
  EXPECT_EQ(tree.eth1->referenceCount(), 2u);  // linkCosts[eth1], lagMembers[2]
}

TEST(VekPointer, PointerCycleIsFreedWithTheTree) {
  const int64_t before = types().interface->allocTrack().liveObjects();
  {
    auto tree = buildTree();
    tree.eth0 = nullptr;
    tree.eth1 = nullptr;
    tree.device = nullptr;
    tree.devices = nullptr;
    EXPECT_EQ(types().interface->allocTrack().liveObjects(), before + 2);
  }
  EXPECT_EQ(types().interface->allocTrack().liveObjects(), before);
}

// Root owns Mid, Mid owns Leaf, and Leaf points back up at Mid.
struct Upward {
  VekType root;
  VekType mid;
  VekType leaf;
};
const Upward& upward() {
  static const Upward types = [] {
    Module& m = Module::moduleNew("Upward");
    TypeDef mid = m.entityType("Mid");
    const VekType leaf = m.entityType("Leaf").pointer("up", mid.type()).done();
    mid.child("leaf", leaf);
    Upward t;
    t.mid = mid.done();
    t.leaf = leaf;
    t.root = m.entityType("Root").child("mid", t.mid).done();
    return t;
  }();
  return types;
}

TEST(VekPointer, PointerBackToOwnerDoesNotKeepARemovedSubtree) {
  const int64_t before = Entity::allocTrackInfo().liveObjects();
  Ptr<Entity> root = Entity::rootNew(upward().root, "r");
  {
    Ptr<Entity> mid = root->entityNew("mid");
    mid->entityNew("leaf")->pointerIs("up", mid);
  }
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before + 3);
  EXPECT_TRUE(root->entityDel(upward().root->attr("mid")));
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before + 1);
  EXPECT_EQ(upward().mid->allocTrack().liveObjects(), 0);
  EXPECT_EQ(upward().leaf->allocTrack().liveObjects(), 0);
  root = nullptr;
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before);
}

TEST(VekPointer, PointerBackToOwnerDoesNotKeepATreeWhoseRootWent) {
  const int64_t before = Entity::allocTrackInfo().liveObjects();
  {
    Ptr<Entity> root = Entity::rootNew(upward().root, "r");
    Ptr<Entity> mid = root->entityNew("mid");
    mid->entityNew("leaf")->pointerIs("up", mid);
  }
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before);
  EXPECT_EQ(upward().mid->allocTrack().liveObjects(), 0);
  EXPECT_EQ(upward().leaf->allocTrack().liveObjects(), 0);
}

TEST(VekPointer, RemovedSubtreeReleasesPointersAtEveryDepth) {
  Ptr<Entity> root = Entity::rootNew(upward().root, "r");
  Ptr<Entity> mid = root->entityNew("mid");
  Ptr<Entity> leaf = mid->entityNew("leaf");
  leaf->pointerIs("up", mid);
  root->entityDel(upward().root->attr("mid"));
  EXPECT_TRUE(mid->isOrphan());
  EXPECT_FALSE(leaf->entity("up"));
  // The subtree keeps its shape; only pointers went.
  EXPECT_EQ(mid->entity("leaf"), leaf);
  EXPECT_EQ(leaf->parent(), mid.ptr());
}

TEST(VekPointer, DirEntryPointingAtAnAncestorDoesNotKeepIt) {
  const int64_t before = Entity::allocTrackInfo().liveObjects();
  {
    Ptr<Dir> root = Dir::rootNew("");
    Ptr<Dir> a = root->dirNew("a");
    a->dirNew("b")->entryNew("top", a);
    EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before + 4);
    a = nullptr;
    EXPECT_TRUE(root->childDel("a"));
    EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before + 1);
  }
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before);
  {
    Ptr<Dir> root = Dir::rootNew("");
    Ptr<Dir> a = root->dirNew("a");
    a->dirNew("b")->entryNew("top", a);
  }
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before);
}

TEST(VekPointer, CleanUpInsideARemovedSubtreeIsNotReported) {
  auto tree = buildTree();
  OstrelTest::ChangeRecorder device(tree.device);
  OstrelTest::ChangeRecorder eth1(tree.eth1);
  EXPECT_TRUE(tree.devices->childDel("dev1"));
  // The device and eth1 left with dev1: their pointers and entity keys are
  // released, and nothing of that reaches their notifiees.
  EXPECT_EQ(device.events, std::vector<std::string>{});
  EXPECT_EQ(eth1.events, std::vector<std::string>{});
  EXPECT_FALSE(tree.device->entity("uplink"));
  EXPECT_FALSE(tree.eth1->entity("peer"));
  EXPECT_EQ(tree.device->memberCount("linkCosts"), 0u);
  EXPECT_EQ(tree.device->memberCount("vlanNames"), 2u);
}

TEST(VekPointer, OrphanLivesWhileHeld) {
  Ptr<Entity> kept;
  {
    auto tree = buildTree();
    kept = tree.device->entity("chassis");
  }
  EXPECT_TRUE(kept->isOrphan());
  EXPECT_EQ(kept->value<String>("serial").stdString(), "SN123");
  EXPECT_EQ(types().chassis->allocTrack().liveObjects(), 1);
  kept = nullptr;
  EXPECT_EQ(types().chassis->allocTrack().liveObjects(), 0);
}

TEST(VekPointer, HandleOfMutableObjectChecksType) {
  auto tree = buildTree();
  Ptr<GenericIf> gif = types().interface.genericIf(tree.eth0.ptr(), true);
  EXPECT_EQ(gif.ptr(), tree.eth0.ptr());
  EXPECT_THROW(types().chassis.genericIf(tree.eth0.ptr(), true), TypeMismatchException);
  EXPECT_TRUE(entityBaseType().genericIf(tree.eth0.ptr(), true));
}

}  // namespace
