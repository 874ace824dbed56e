// Keyed collections and arrays: order, insert, replace, erase, key kinds.
#include <gtest/gtest.h>

#include <limits>

#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::ipv4;
using OstrelTest::Sample::name;
using OstrelTest::Sample::types;

std::vector<std::string> keys(const VekAttr& attr, const GenericIf* gif) {
  std::vector<std::string> out;
  for (auto it = attr.genericIfIteratorConst(gif); it; ++it) out.push_back(it.key()->strRep());
  return out;
}

TEST(VekCollection, IteratesInAscendingKeyOrder) {
  auto tree = buildTree();
  const VekAttr addresses = types().interface->attr("addresses");
  addresses.genericIfSet(tree.eth0, ipv4("9.9.9.9"), types().addressInfo.genericIfDefault());
  EXPECT_EQ(keys(addresses, tree.eth0), (std::vector<std::string>{"9.9.9.9", "10.0.0.1", "192.168.1.1"}));
  tree.device->entityNew("interfaces", name("a0"));
  EXPECT_EQ(keys(types().device->attr("interfaces"), tree.device),
            (std::vector<std::string>{"a0", "eth0", "eth1"}));
}

TEST(VekCollection, IteratorGivesKeyAndValueHandles) {
  auto tree = buildTree();
  auto it = types().interface->attr("addresses").genericIfIteratorConst(tree.eth0);
  ASSERT_TRUE(it);
  EXPECT_EQ(it.key()->type(), types().ipv4);
  EXPECT_EQ(it.ptr()->strRep(), "AddressInfo(prefixLength:24, origin:static)");
  auto members = types().device->attr("interfaces").genericIfIteratorConst(tree.device);
  EXPECT_EQ(members.ptr().ptr(), tree.eth0.ptr());
}

TEST(VekCollection, ReplaceKeepsOneMember) {
  auto tree = buildTree();
  const VekAttr addresses = types().interface->attr("addresses");
  Ptr<GenericIf> info = types().addressInfo.genericIfDefault();
  info->valueIs("prefixLength", static_cast<unsigned char>(8));
  addresses.genericIfSet(tree.eth0, ipv4("10.0.0.1"), info);
  EXPECT_EQ(tree.eth0->memberCount("addresses"), 2u);
  EXPECT_EQ(addresses.genericIfGet(tree.eth0, ipv4("10.0.0.1"))->value<unsigned char>("prefixLength"), 8);
}

TEST(VekCollection, StoredMembersAreCopies) {
  auto tree = buildTree();
  const VekAttr addresses = types().interface->attr("addresses");
  Ptr<GenericIf> info = types().addressInfo.genericIfDefault();
  addresses.genericIfSet(tree.eth1, ipv4("1.2.3.4"), info);
  info->valueIs("origin", "changed");
  EXPECT_EQ(addresses.genericIfGet(tree.eth1, ipv4("1.2.3.4"))->value<String>("origin").stdString(),
            "static");
}

TEST(VekCollection, EraseRemovesMember) {
  auto tree = buildTree();
  const VekAttr addresses = types().interface->attr("addresses");
  EXPECT_TRUE(addresses.genericIfErase(tree.eth0, ipv4("10.0.0.1")));
  EXPECT_FALSE(addresses.genericIfErase(tree.eth0, ipv4("10.0.0.1")));
  EXPECT_EQ(keys(addresses, tree.eth0), std::vector<std::string>{"192.168.1.1"});
  EXPECT_FALSE(addresses.genericIfGet(tree.eth0, ipv4("10.0.0.1")));
}

TEST(VekCollection, KeyOfTheWrongTypeIsRefused) {
  auto tree = buildTree();
  try {
    types().interface->attr("addresses").genericIfGet(tree.eth0, genericIfOf(5u));
    FAIL() << "no exception";
  } catch (const TypeMismatchException& e) {
    EXPECT_STREQ(e.what(), "addresses is keyed by Sample::Ipv4, not by unsigned int");
  }
}

TEST(VekCollection, ArrayIsIndexedFromZero) {
  auto tree = buildTree();
  const VekAttr vlans = types().interface->attr("vlans");
  std::vector<unsigned short> values;
  for (auto it = vlans.genericIfIteratorConst(tree.eth0); it; ++it) {
    values.push_back(it.ptr()->as<unsigned short>());
  }
  EXPECT_EQ(values, (std::vector<unsigned short>{10, 20, 30}));
  EXPECT_EQ(vlans.genericIfGet(tree.eth0, genericIfOf(1u))->as<unsigned short>(), 20);
  EXPECT_FALSE(vlans.genericIfIteratorConst(tree.eth1));
}

TEST(VekCollection, KeyedByEnumerationAndHoldingPointers) {
  Module& m = Module::moduleNew("ByStatus");
  const VekType owner = m.entityType("Board")
                            .collection("byStatus", types().operStatus, types().interface, AttrFlag::POINTER)
                            .collection("byPeer", types().interface, builtinType<int>())
                            .done();
  auto tree = buildTree();
  Ptr<Entity> board = Entity::rootNew(owner, "board");
  const VekAttr byStatus = owner->attr("byStatus");
  byStatus.genericIfSet(board, types().operStatus.genericIf("down", true), tree.eth1);
  byStatus.genericIfSet(board, types().operStatus.genericIf("up", true), tree.eth0);
  EXPECT_EQ(keys(byStatus, board), (std::vector<std::string>{"up", "down"}));
  EXPECT_EQ(byStatus.genericIfGet(board, types().operStatus.genericIf("up", true)).ptr(), tree.eth0.ptr());
  const VekAttr byPeer = owner->attr("byPeer");
  byPeer.genericIfSet(board, tree.eth1, genericIfOf(2));
  byPeer.genericIfSet(board, tree.eth0, genericIfOf(1));
  // Entity keys order by creation: eth0 was made before eth1.
  EXPECT_EQ(keys(byPeer, board),
            (std::vector<std::string>{"entity('devices.dev1.eth0')", "entity('devices.dev1.eth1')"}));
}

TEST(VekCollection, WrappedAndBareKeysFindTheSameMember) {
  Module& m = Module::moduleNew("Wrapped");
  const VekType ifName = m.valueType("IfName").scalar("text", builtinType<String>()).wrapperOf("text").done();
  const VekType owner = m.entityType("Table").collection("rows", ifName, builtinType<int>()).done();
  Ptr<Entity> table = Entity::rootNew(owner, "t");
  const VekAttr rows = owner->attr("rows");
  rows.genericIfSet(table, genericIfOf("eth0"), genericIfOf(7));
  EXPECT_EQ(rows.genericIfGet(table, ifName.genericIf("eth0", true))->as<int>(), 7);
  EXPECT_EQ(rows.genericIfIteratorConst(table).key()->type(), ifName);
}

template <typename T>
void checkFloatingKeys(const VekAttr& attr, Entity* owner) {
  const T nan = std::numeric_limits<T>::quiet_NaN();
  const T negativeNan = -nan;
  const T inf = std::numeric_limits<T>::infinity();
  // NaN first, so a broken order would swallow the later numbers.
  attr.genericIfSet(owner, genericIfOf(nan), genericIfOf(1));
  attr.genericIfSet(owner, genericIfOf(T(2)), genericIfOf(2));
  attr.genericIfSet(owner, genericIfOf(T(-0.0)), genericIfOf(3));
  attr.genericIfSet(owner, genericIfOf(-inf), genericIfOf(4));
  attr.genericIfSet(owner, genericIfOf(inf), genericIfOf(5));
  attr.genericIfSet(owner, genericIfOf(T(0.0)), genericIfOf(6));     // replaces -0.0
  attr.genericIfSet(owner, genericIfOf(negativeNan), genericIfOf(7));  // replaces NaN
  EXPECT_EQ(owner->memberCount(attr), 5u);
  EXPECT_EQ(keys(attr, owner), (std::vector<std::string>{"-inf", "-0", "2", "inf", "nan"}));
  std::vector<int> members;
  for (auto it = attr.genericIfIteratorConst(owner); it; ++it) members.push_back(it.ptr()->as<int>());
  EXPECT_EQ(members, (std::vector<int>{4, 6, 2, 5, 7}));
  EXPECT_EQ(attr.genericIfGet(owner, genericIfOf(nan))->template as<int>(), 7);
  EXPECT_EQ(attr.genericIfGet(owner, genericIfOf(T(0.0)))->template as<int>(), 6);
  EXPECT_EQ(attr.genericIfGet(owner, genericIfOf(T(-0.0)))->template as<int>(), 6);
  EXPECT_EQ(attr.genericIfGet(owner, genericIfOf(T(2)))->template as<int>(), 2);
  EXPECT_FALSE(attr.genericIfExist(owner, genericIfOf(T(1))));
  EXPECT_TRUE(attr.genericIfErase(owner, genericIfOf(negativeNan)));
  EXPECT_FALSE(attr.genericIfExist(owner, genericIfOf(nan)));
  EXPECT_EQ(keys(attr, owner), (std::vector<std::string>{"-inf", "-0", "2", "inf"}));
}

TEST(VekCollection, FloatingKeysHaveATotalOrder) {
  Module& m = Module::moduleNew("FloatKeys");
  const VekType owner = m.entityType("Samples")
                            .collection("byDouble", builtinType<double>(), builtinType<int>())
                            .collection("byFloat", builtinType<float>(), builtinType<int>())
                            .done();
  Ptr<Entity> samples = Entity::rootNew(owner, "s");
  checkFloatingKeys<double>(owner->attr("byDouble"), samples);
  checkFloatingKeys<float>(owner->attr("byFloat"), samples);
}

TEST(VekCollection, EqualFloatingKeysHashAlike) {
  const double nan = std::numeric_limits<double>::quiet_NaN();
  const Ptr<GenericIf> a = genericIfOf(nan);
  const Ptr<GenericIf> b = genericIfOf(-nan);
  const Ptr<GenericIf> c = genericIfOf(std::numeric_limits<double>::signaling_NaN());
  EXPECT_TRUE(VekType::genericIfBooleanOp(a, AttrOp::Equal, b));
  EXPECT_TRUE(VekType::genericIfBooleanOp(a, AttrOp::Equal, c));
  EXPECT_EQ(a->hash(), b->hash());
  EXPECT_EQ(a->hash(), c->hash());
  EXPECT_TRUE(VekType::genericIfBooleanOp(genericIfOf(1e300), AttrOp::Less, a));
  EXPECT_FALSE(VekType::genericIfBooleanOp(a, AttrOp::Equal, genericIfOf(1.0)));
  const Ptr<GenericIf> zero = genericIfOf(0.0);
  const Ptr<GenericIf> negativeZero = genericIfOf(-0.0);
  EXPECT_TRUE(VekType::genericIfBooleanOp(zero, AttrOp::Equal, negativeZero));
  EXPECT_EQ(zero->hash(), negativeZero->hash());
  EXPECT_EQ(genericIfOf(0.0f)->hash(), genericIfOf(-0.0f)->hash());
  EXPECT_EQ(genericIfOf(std::numeric_limits<float>::quiet_NaN())->hash(),
            genericIfOf(-std::numeric_limits<float>::quiet_NaN())->hash());
}

TEST(VekCollection, MembersAreFreedWithTheirOwner) {
  const int64_t before = types().addressInfo->allocTrack().liveObjects();
  const int64_t keysBefore = types().ipv4->allocTrack().liveObjects();
  {
    auto tree = buildTree();
    EXPECT_EQ(types().addressInfo->allocTrack().liveObjects(), before + 2);
  }
  EXPECT_EQ(types().addressInfo->allocTrack().liveObjects(), before);
  EXPECT_EQ(types().ipv4->allocTrack().liveObjects(), keysBefore);
}

}  // namespace
