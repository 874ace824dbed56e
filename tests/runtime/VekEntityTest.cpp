// Entities: names, typed and generic access, owned children, checks.
#include <gtest/gtest.h>

#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::name;
using OstrelTest::Sample::types;

TEST(VekEntity, FullNameIsThePathTextFromTheRoot) {
  auto tree = buildTree();
  EXPECT_EQ(tree.device->fullName(), "/devices/dev1");
  EXPECT_EQ(tree.eth0->fullName(), "/devices/dev1/eth0");
  EXPECT_EQ(tree.device->entity("chassis")->fullName(), "/devices/dev1/chassis");
  EXPECT_EQ(tree.root->fullName(), "");
  EXPECT_EQ(tree.device->dottedName(), "devices.dev1");
  EXPECT_EQ(tree.eth0->strRep(), "entity('devices.dev1.eth0')");
  EXPECT_EQ(tree.eth0->name().stdString(), "eth0");
  EXPECT_EQ(tree.eth0->parent(), tree.device.ptr());
}

TEST(VekEntity, RootNameIsKeptWhenNamed) {
  Ptr<Entity> root = Entity::rootNew(types().device, "a");
  Ptr<Entity> intf = root->entityNew("interfaces", name("b"));
  EXPECT_EQ(intf->fullName(), "/a/b");
  EXPECT_EQ(root->fullName(), "/a");
  EXPECT_EQ(intf->strRep(), "entity('a.b')");
  EXPECT_FALSE(root->isOrphan());
}

TEST(VekEntity, EntityIsItsOwnHandle) {
  auto tree = buildTree();
  Ptr<GenericIf const> gif = VekType::genericIf(tree.eth0.ptr());
  EXPECT_EQ(gif.ptr(), tree.eth0.ptr());
  EXPECT_EQ(static_cast<const PtrInterface*>(gif->voidPtr()), tree.eth0.ptr());
  EXPECT_EQ(gif->type(), types().interface);
}

TEST(VekEntity, ScalarsReadThroughTypedAccessors) {
  auto tree = buildTree();
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 9000u);
  EXPECT_EQ(tree.eth1->value<unsigned>("mtu"), 1500u);
  EXPECT_EQ(tree.eth1->value<int>("status"), 2);
  EXPECT_EQ(tree.eth1->value<bool>("enabled"), true);
  EXPECT_EQ(tree.device->entity("chassis")->value<Seconds>("uptime").value(), 3600.5);
}

TEST(VekEntity, GenericGetReturnsCopiesOfScalars) {
  auto tree = buildTree();
  const VekAttr mtu = types().interface->attr("mtu");
  Ptr<GenericIf const> before = mtu.genericIfGet(tree.eth0);
  tree.eth0->valueIs("mtu", 1400u);
  EXPECT_EQ(before->as<unsigned>(), 9000u);
  EXPECT_EQ(mtu.genericIfGet(tree.eth0)->as<unsigned>(), 1400u);
  EXPECT_EQ(types().interface->attr("status").genericIfGet(tree.eth0)->strRep(), "up");
  EXPECT_EQ(types().interface->attr("name").genericIfGet(tree.eth0)->strRep(), "eth0");
}

TEST(VekEntity, GenericSetWritesValues) {
  auto tree = buildTree();
  const VekAttr counters = types().interface->attr("counters");
  counters.genericIfSet(tree.eth1, nullptr,
                        types().counters.genericIf(GenericIfArgs{genericIfOf(5ull), genericIfOf(6ull)}));
  EXPECT_EQ(counters.genericIfGet(tree.eth1)->strRep(), "Counters(inPkts:5, outPkts:6, inErrors:0)");
  types().interface->attr("status").genericIfSet(tree.eth1, nullptr,
                                                 types().operStatus.genericIf("testing", true));
  EXPECT_EQ(tree.eth1->value<int>("status"), 3);
}

TEST(VekEntity, ExistReportsPresence) {
  auto tree = buildTree();
  const VekTypeBase& intf = *types().interface;
  EXPECT_TRUE(intf.attr("mtu").genericIfExist(tree.eth0));
  EXPECT_TRUE(intf.attr("peer").genericIfExist(tree.eth0));
  tree.eth0->pointerIs("peer", nullptr);
  EXPECT_FALSE(intf.attr("peer").genericIfExist(tree.eth0));
  EXPECT_TRUE(intf.attr("addresses").genericIfExist(tree.eth0, OstrelTest::Sample::ipv4("10.0.0.1")));
  EXPECT_FALSE(intf.attr("addresses").genericIfExist(tree.eth0, OstrelTest::Sample::ipv4("10.0.0.9")));
}

TEST(VekEntity, CheckRefusesWriteAndLeavesValue) {
  auto tree = buildTree();
  try {
    tree.eth0->valueIs("mtu", 10u);
    FAIL() << "no exception";
  } catch (const Vek::Exception& e) {
    EXPECT_STREQ(e.what(), "mtu 10 is outside 64..9216");
  }
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 9000u);
  EXPECT_THROW(types().interface->attr("mtu").genericIfSet(tree.eth0, nullptr, genericIfOf(9999u)),
               ValueRejectedException);
  EXPECT_EQ(tree.eth0->value<unsigned>("mtu"), 9000u);
}

TEST(VekEntity, NameIsReadOnly) {
  auto tree = buildTree();
  EXPECT_THROW(types().interface->attr("name").genericIfSet(tree.eth0, nullptr, genericIfOf("x")),
               TypeMismatchException);
  EXPECT_EQ(tree.eth0->name().stdString(), "eth0");
}

TEST(VekEntity, WrongValueTypeIsRefused) {
  auto tree = buildTree();
  try {
    types().interface->attr("mtu").genericIfSet(tree.eth0, nullptr, genericIfOf(5));
    FAIL() << "no exception";
  } catch (const TypeMismatchException& e) {
    EXPECT_STREQ(e.what(), "mtu holds unsigned int, not int");
  }
}

TEST(VekEntity, AttributeOfAnotherTypeIsRefused) {
  auto tree = buildTree();
  EXPECT_THROW(types().chassis->attr("serial").genericIfGet(tree.eth0), TypeMismatchException);
}

TEST(VekEntity, SingletonChildIsReplacedAndOrphaned) {
  auto tree = buildTree();
  Ptr<Entity> first = tree.device->entity("chassis");
  Ptr<Entity> second = tree.device->entityNew("chassis");
  EXPECT_TRUE(first->isOrphan());
  EXPECT_EQ(first->parent(), nullptr);
  EXPECT_FALSE(second->isOrphan());
  EXPECT_EQ(tree.device->entity("chassis"), second);
  EXPECT_TRUE(tree.device->entityDel(types().device->attr("chassis")));
  EXPECT_TRUE(second->isOrphan());
  EXPECT_FALSE(types().device->attr("chassis").genericIfExist(tree.device));
}

TEST(VekEntity, InstantiatingAttributeRefusesGenericSet) {
  auto tree = buildTree();
  Ptr<Entity> other = Entity::rootNew(types().chassis, "x");
  EXPECT_THROW(types().device->attr("chassis").genericIfSet(tree.device, nullptr, other),
               TypeMismatchException);
}

TEST(VekEntity, JsonTextAttributeIsReturnedVerbatim) {
  auto tree = buildTree();
  EXPECT_EQ(types().interface->attr("config").genericIfGnmiJsonStrep(tree.eth0), R"({"speed":"10G"})");
  EXPECT_EQ(types().interface->attr("config").genericIfGnmiJsonStrep(tree.eth1), "{}");
}

TEST(VekEntity, JsonOfPlainTextAttributeIsAQuotedString) {
  auto tree = buildTree();
  const VekAttr description = types().interface->attr("description");
  tree.eth0->valueIs("description", "eth0 uplink");
  EXPECT_EQ(description.genericIfGnmiJsonStrep(tree.eth0), R"("eth0 uplink")");
  tree.eth0->valueIs("description", "say \"hi\"\\\n");
  EXPECT_EQ(description.genericIfGnmiJsonStrep(tree.eth0), R"("say \"hi\"\\\n")");
  EXPECT_EQ(description.genericIfGnmiJsonStrep(tree.eth1), R"("")");
  // Text that happens to look like JSON is still only text.
  tree.eth1->valueIs("description", "{}");
  EXPECT_EQ(description.genericIfGnmiJsonStrep(tree.eth1), R"("{}")");
}

TEST(VekEntity, JsonOfOtherAttributesIsRendered) {
  auto tree = buildTree();
  const VekTypeBase& intf = *types().interface;
  EXPECT_EQ(intf.attr("counters").genericIfGnmiJsonStrep(tree.eth0),
            R"({"inPkts":"100","outPkts":"200","inErrors":1})");
  EXPECT_EQ(intf.attr("vlans").genericIfGnmiJsonStrep(tree.eth0), "[10,20,30]");
  EXPECT_EQ(intf.attr("addresses").genericIfGnmiJsonStrep(tree.eth0),
            R"({"10.0.0.1":{"prefixLength":24,"origin":"static"},)"
            R"("192.168.1.1":{"prefixLength":16,"origin":"dhcp"}})");
  EXPECT_EQ(intf.attr("peer").genericIfGnmiJsonStrep(tree.eth0), R"("/devices/dev1/eth1")");
  EXPECT_EQ(intf.attr("status").genericIfGnmiJsonStrep(tree.eth0), R"("up")");
}

TEST(VekEntity, JsonOfBytesIsPaddedStandardBase64) {
  auto tree = buildTree();
  const VekAttr blob = types().scalars->attr("blob");
  EXPECT_EQ(blob.genericIfGnmiJsonStrep(tree.scalars), R"("AQL/")");
  tree.scalars->valueIs("blob", Bytes(std::string_view("\xfb", 1)));
  EXPECT_EQ(blob.genericIfGnmiJsonStrep(tree.scalars), R"("+w==")");
  tree.scalars->valueIs("blob", Bytes(std::string_view("\xfb\xff", 2)));
  EXPECT_EQ(blob.genericIfGnmiJsonStrep(tree.scalars), R"("+/8=")");
  tree.scalars->valueIs("blob", Bytes(std::string_view("\x00\x01\xfe\xff", 4)));
  EXPECT_EQ(blob.genericIfGnmiJsonStrep(tree.scalars), R"("AAH+/w==")");
  tree.scalars->valueIs("blob", Bytes());
  EXPECT_EQ(blob.genericIfGnmiJsonStrep(tree.scalars), R"("")");
}

TEST(VekEntity, TreeIsFreedWithItsRoot) {
  const int64_t before = Entity::allocTrackInfo().liveObjects();
  const int64_t valuesBefore = types().counters->allocTrack().liveObjects();
  {
    auto tree = buildTree();
    // root, devices, dev1, chassis, scalars, eth0, eth1, neighbor, primary,
    // journals, syslog
    EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before + 11);
    EXPECT_EQ(types().interface->allocTrack().liveObjects(), 2);
  }
  EXPECT_EQ(Entity::allocTrackInfo().liveObjects(), before);
  EXPECT_EQ(types().interface->allocTrack().liveObjects(), 0);
  EXPECT_EQ(types().counters->allocTrack().liveObjects(), valuesBefore);
}

TEST(VekEntity, FullNameEscapesCharactersSpecialToPathText) {
  Ptr<Dir> root = Dir::rootNew("");
  Ptr<Dir> dir = root->dirNew("x");
  Ptr<Entity> e = dir->childNew(types().chassis, "a/b[c]\\d");
  EXPECT_EQ(e->fullName(), "/x/a\\/b\\[c\\]\\\\d");
  EXPECT_EQ(e->dottedName(), "x.a/b[c]\\d");
}

}  // namespace
