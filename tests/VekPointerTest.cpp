// Pointers between entities, orphans, and reference counts.
#include <gtest/gtest.h>

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
  EXPECT_EQ(tree.eth0->fullName(), "eth0");
  // The device's pointer to it stays: pointers hold their targets.
  EXPECT_EQ(tree.device->entity("uplink"), tree.eth0);
}

TEST(VekPointer, OrphanReleasesItsPointers) {
  auto tree = buildTree();
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  EXPECT_FALSE(tree.eth0->entity("peer"));
  EXPECT_EQ(tree.eth1->entity("peer"), tree.eth0);
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
