// Keyed collections and arrays: order, insert, replace, erase, key kinds.
#include <gtest/gtest.h>

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
