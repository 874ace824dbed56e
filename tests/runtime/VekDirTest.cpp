// Directories: a tree of names reaching entities.
#include <gtest/gtest.h>

#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::types;

TEST(VekDir, ChildrenAreFoundByName) {
  auto tree = buildTree();
  EXPECT_EQ(tree.root->child("devices"), tree.devices);
  EXPECT_EQ(tree.devices->child("dev1"), tree.device);
  EXPECT_FALSE(tree.devices->child("dev2"));
}

TEST(VekDir, EntityPtrIsAnOrdinaryCollection) {
  auto tree = buildTree();
  tree.devices->childNew(types().device, "dev0");
  std::vector<std::string> names;
  for (auto it = Dir::entityPtrAttr().genericIfIteratorConst(tree.devices); it; ++it) {
    names.push_back(it.key()->strRep());
  }
  EXPECT_EQ(names, (std::vector<std::string>{"dev0", "dev1", "primary"}));
  EXPECT_EQ(Dir::entityPtrAttr().genericIfGet(tree.devices, genericIfOf("dev1")).ptr(), tree.device.ptr());
}

TEST(VekDir, DirectoriesNestAndNameTheirEntities) {
  Ptr<Dir> root = Dir::rootNew("");
  Ptr<Dir> a = root->dirNew("a");
  Ptr<Dir> b = a->dirNew("b");
  Ptr<Entity> c = b->childNew(types().chassis, "c");
  EXPECT_EQ(c->fullName(), "/a/b/c");
  EXPECT_EQ(c->dottedName(), "a.b.c");
  EXPECT_EQ(c->strRep(), "entity('a.b.c')");
  EXPECT_EQ(b->type(), Dir::dirType());
  EXPECT_EQ(root->fullName(), "");
}

TEST(VekDir, EntryPointsAtAnotherEntity) {
  auto tree = buildTree();
  Ptr<Dir::Entry> link = tree.root->entryNew("primary", tree.device);
  EXPECT_EQ(link->type(), Dir::Entry::entryType());
  EXPECT_EQ(link->target(), tree.device);
  EXPECT_EQ(tree.root->child("primary").ptr(), link.ptr());
}

TEST(VekDir, RemovedChildIsOrphaned) {
  auto tree = buildTree();
  EXPECT_TRUE(tree.devices->childDel("dev1"));
  EXPECT_FALSE(tree.devices->childDel("dev1"));
  EXPECT_TRUE(tree.device->isOrphan());
  EXPECT_FALSE(tree.devices->child("dev1"));
}

TEST(VekDir, ChildOfAbstractTypeIsRefused) {
  Ptr<Dir> root = Dir::rootNew("r");
  EXPECT_THROW(root->childNew(entityBaseType(), "x"), TypeMismatchException);
  EXPECT_THROW(root->childNew(types().counters, "x"), TypeMismatchException);
}

}  // namespace
