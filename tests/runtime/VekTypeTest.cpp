// Type and attribute descriptors: kinds, codes, flags and lookups.
#include <gtest/gtest.h>

#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::types;

TEST(VekType, BuiltinTypesCarryTheirCodes) {
  EXPECT_EQ(static_cast<int>(builtinType<unsigned char>()->builtinCode()), 1);
  EXPECT_EQ(static_cast<int>(builtinType<signed char>()->builtinCode()), 2);
  EXPECT_EQ(static_cast<int>(builtinType<unsigned short>()->builtinCode()), 3);
  EXPECT_EQ(static_cast<int>(builtinType<short>()->builtinCode()), 4);
  EXPECT_EQ(static_cast<int>(builtinType<unsigned int>()->builtinCode()), 5);
  EXPECT_EQ(static_cast<int>(builtinType<int>()->builtinCode()), 6);
  EXPECT_EQ(static_cast<int>(builtinType<unsigned long long>()->builtinCode()), 7);
  EXPECT_EQ(static_cast<int>(builtinType<long long>()->builtinCode()), 8);
  EXPECT_EQ(static_cast<int>(builtinType<bool>()->builtinCode()), 9);
  EXPECT_EQ(static_cast<int>(builtinType<char>()->builtinCode()), 10);
  EXPECT_EQ(static_cast<int>(builtinType<float>()->builtinCode()), 12);
  EXPECT_EQ(static_cast<int>(builtinType<double>()->builtinCode()), 13);
  EXPECT_EQ(static_cast<int>(builtinType<String>()->builtinCode()), 14);
  EXPECT_EQ(static_cast<int>(builtinType<Bytes>()->builtinCode()), 15);
  EXPECT_EQ(static_cast<int>(builtinType<Seconds>()->builtinCode()), 22);
  EXPECT_FALSE(builtinType(static_cast<BuiltinCode>(11)));
}

TEST(VekType, BuiltinsBelongToTheVekModule) {
  EXPECT_EQ(builtinType<String>()->module().name(), "Vek");
  EXPECT_EQ(builtinType<String>()->qualifiedName(), "Vek::String");
  EXPECT_EQ(builtinType<unsigned int>()->qualifiedName(), "unsigned int");
  EXPECT_EQ(types().interface->qualifiedName(), "Sample::Interface");
}

TEST(VekType, KindCodesTellEntitiesFromValues) {
  EXPECT_EQ(types().interface->kindCode(), 0);
  EXPECT_TRUE(types().interface->isEntity());
  EXPECT_EQ(builtinType<int>()->kindCode(), 1);
  EXPECT_EQ(types().counters->kindCode(), 2);
  EXPECT_EQ(types().operStatus->kindCode(), 3);
  EXPECT_EQ(collectionControlType()->kindCode(), 4);
  EXPECT_TRUE(Dir::dirType()->isEntity());
  EXPECT_TRUE(Dir::Entry::entryType()->isEntity());
}

TEST(VekType, TypesAreEqualByModuleAndIndex) {
  const VekType interface = types().interface;
  const VekType a = Module::module("Sample")->type("Interface");
  EXPECT_EQ(a, interface);
  EXPECT_EQ(a->index(), interface->index());
  EXPECT_FALSE(a == types().chassis);
}

TEST(VekType, EnumerationHasUnderlyingTypeAndEnumerators) {
  const VekType status = types().operStatus;
  EXPECT_EQ(status->underlyingType(), builtinType<int>());
  EXPECT_EQ(status->attr<int>(1)->name(), "up");
  EXPECT_EQ(status->attr<int>(3)->name(), "testing");
  EXPECT_FALSE(status->attr<int>(7));
  EXPECT_EQ(status->enumerator("down")->enumValue(), 2);
}

TEST(VekType, EnumerationsOverEachIntegerBuiltin) {
  Module& m = Module::moduleNew("EnumWidths");
  const VekType u8 = m.enumType("U8", builtinType<unsigned char>()).enumerator("a", 200).done();
  const VekType s16 = m.enumType("S16", builtinType<short>()).enumerator("b", -300).done();
  const VekType u32 = m.enumType("U32", builtinType<unsigned int>()).enumerator("c", 70000).done();
  EXPECT_EQ(u8->attr<unsigned char>(200)->name(), "a");
  EXPECT_EQ(s16->attr<short>(-300)->name(), "b");
  EXPECT_EQ(u32->attr<unsigned int>(70000)->name(), "c");
  EXPECT_EQ(u8->valueSize(), 1u);
  EXPECT_EQ(s16->valueSize(), 2u);
}

TEST(VekType, AttributesComeInDeclarationOrder) {
  std::vector<std::string> names;
  for (VekTypeBase::AttributeQIterator it(types().interface); it; ++it) names.push_back((*it)->name());
  EXPECT_EQ(names, (std::vector<std::string>{"name", "mtu", "status", "description", "enabled",
                                             "counters", "peer", "addresses", "vlans", "config",
                                             "stats", "statusHistory"}));
  EXPECT_EQ(types().interface->attr("mtu")->id(), AttributeId(2));
  EXPECT_EQ(types().interface->attr(AttributeId(2))->name(), "mtu");
  EXPECT_FALSE(types().interface->attr("nope"));
  EXPECT_FALSE(types().interface->attr(AttributeId(99)));
}

TEST(VekType, AttributeCursorResumesFromSavedPosition) {
  VekTypeBase::AttributeQIterator it(types().device);
  ++it;
  ++it;
  VekTypeBase::AttributeQIterator saved = it;
  ++it;
  EXPECT_EQ(saved->name(), "chassis");
  EXPECT_EQ(it->name(), "interfaces");
}

TEST(VekType, AttributePropertiesOfTheSample) {
  const VekTypeBase& intf = *types().interface;
  const VekTypeBase& dev = *types().device;
  EXPECT_TRUE(intf.attr("peer")->isPointer());
  EXPECT_FALSE(intf.attr("peer")->isInstantiating());
  EXPECT_TRUE(dev.attr("chassis")->isInstantiating());
  EXPECT_FALSE(dev.attr("chassis")->isCollection());
  EXPECT_TRUE(dev.attr("interfaces")->isCollection());
  EXPECT_TRUE(dev.attr("interfaces")->isInstantiating());
  EXPECT_FALSE(dev.attr("interfaces")->isStack());
  EXPECT_EQ(dev.attr("interfaces")->indexType(), builtinType<String>());
  EXPECT_EQ(dev.attr("interfaces")->keyAttrName(), "name");
  EXPECT_EQ(dev.attr("interfaces")->indexAttr(), intf.attr("name"));
  EXPECT_TRUE(intf.attr("vlans")->isArray());
  EXPECT_FALSE(intf.attr("vlans")->isCollection());
  EXPECT_EQ(intf.attr("vlans")->indexType(), builtinType<unsigned int>());
  EXPECT_TRUE(intf.attr("config")->hasGnmiJsonStrep());
  EXPECT_EQ(intf.attr("addresses")->indexType(), types().ipv4);
  EXPECT_EQ(intf.attr("addresses")->type(), types().addressInfo);
  EXPECT_FALSE(intf.attr("addresses")->indexAttr());
  EXPECT_EQ(dev.attr("interfacesControl")->type()->baseType(), collectionControlType());
}

TEST(VekType, IndexAttributeFlagsAreSettable) {
  Module& m = Module::moduleNew("KeyFlags");
  TypeDef member = m.entityType("Member");
  member.scalar("id", builtinType<int>()).attrFlagsIs(AttrFlag::KEY_NAME);
  const VekType memberType = member.done();
  const VekType owner = m.entityType("Owner")
                            .collection("members", builtinType<int>(), memberType, AttrFlag::INSTANTIATING)
                            .keyAttr("id")
                            .done();
  EXPECT_EQ(owner->attr("members")->indexAttr()->flags() & 1u, 1u);
  EXPECT_EQ(types().device->attr("interfaces")->indexAttr()->flags() & 1u, 0u);
}

TEST(VekType, ValueTypeConstructorParameters) {
  const auto& params = types().counters->ctorParams();
  ASSERT_EQ(params.size(), 2u);
  EXPECT_EQ(params[0]->name(), "inPkts");
  EXPECT_EQ(params[1]->name(), "outPkts");
  EXPECT_EQ(types().addressInfo->ctorParams().size(), 2u);
}

TEST(VekType, OwnTextFormIsATypeProperty) {
  EXPECT_TRUE(types().ipv4->hasGnmiStrRep());
  EXPECT_FALSE(types().counters->hasGnmiStrRep());
  EXPECT_FALSE(builtinType<String>()->hasGnmiStrRep());
}

TEST(VekType, WrapperFlagFollowsAliasChain) {
  Module& m = Module::moduleNew("Wrappers");
  const VekType name = m.valueType("IfName").scalar("text", builtinType<String>()).wrapperOf("text").done();
  const VekType alias = m.aliasType("IfNameAlias", name);
  const VekType alias2 = m.aliasType("IfNameAlias2", alias);
  EXPECT_EQ(name->flags() & TypeFlag::WRAPPER, 0x1000u);
  EXPECT_EQ(name->valAttr()->name(), "text");
  EXPECT_TRUE(alias2->isWrapper());
  EXPECT_EQ(alias2->flags(), 0u);
  EXPECT_EQ(alias2->baseType(), name);
  EXPECT_EQ(alias2->aliasOf(), alias);
  EXPECT_EQ(name->baseType(), name);
  EXPECT_FALSE(types().counters->isWrapper());
  EXPECT_FALSE(types().counters->valAttr());
}

TEST(VekType, DirectoryTypeHasEntityPtrCollection) {
  const VekAttr entityPtr = Dir::dirType()->attr("entityPtr");
  ASSERT_TRUE(entityPtr);
  EXPECT_EQ(entityPtr, Dir::entityPtrAttr());
  EXPECT_TRUE(entityPtr->isCollection());
  EXPECT_TRUE(entityPtr->isInstantiating());
  EXPECT_EQ(entityPtr->indexType(), builtinType<String>());
  EXPECT_EQ(entityPtr->type(), entityBaseType());
  EXPECT_EQ(Dir::dirType()->qualifiedName(), "Vek::Dir");
  EXPECT_EQ(Dir::Entry::entryType()->qualifiedName(), "Vek::Dir::Entry");
}

TEST(VekType, LoaderCanBuildTypesFromAttrDefs) {
  Module& m = Module::moduleNew("Loaded");
  AttrDef port;
  port.name = "port";
  port.type = builtinType<unsigned short>();
  port.defaultText = "830";
  AttrDef peers;
  peers.name = "peers";
  peers.type = entityBaseType();
  peers.flags = AttrFlag::COLLECTION | AttrFlag::POINTER | AttrFlag::STACK;
  peers.indexType = builtinType<int>();
  const VekType server = m.entityType("Server").attr(port).attr(peers).done();
  EXPECT_EQ(server->attr("port")->defaultValue()->strRep(), "830");
  EXPECT_TRUE(server->attr("peers")->isStack());
  EXPECT_TRUE(server->attr("peers")->isPointer());
  EXPECT_EQ(m.type("Server"), server);
}

// An alias is its base type under another name.
TEST(VekType, AliasAnswersEveryPropertyOfItsBase) {
  const VekType tag = types().vlanTag;
  const VekType id = types().vlanId;
  EXPECT_EQ(tag->name(), "VlanTag");
  EXPECT_EQ(tag->flags(), 0u);  // its own flags
  EXPECT_EQ(tag->aliasOf(), id);
  EXPECT_EQ(tag->baseType(), id);
  EXPECT_TRUE(tag->isWrapper());  // through the chain
  EXPECT_EQ(tag->attrCount(), id->attrCount());
  EXPECT_EQ(tag->attr("id"), id->attr("id"));
  EXPECT_EQ(tag->attr(AttributeId(1)), id->attr("id"));
  EXPECT_EQ(tag->valAttr(), id->attr("id"));
  EXPECT_EQ(tag->ctorParams(), id->ctorParams());
  std::vector<std::string> names;
  for (VekTypeBase::AttributeQIterator it(tag); it; ++it) names.push_back((*it)->name());
  EXPECT_EQ(names, std::vector<std::string>{"id"});
}

TEST(VekType, AliasOfATypeWithOwnTextFormUsesThatForm) {
  const VekType address = Module::moduleNew("AliasText").aliasType("Address", types().ipv4, 0x40);
  EXPECT_TRUE(address->hasGnmiStrRep());
  EXPECT_EQ(address->flags(), 0x40u);
  Ptr<GenericIf> a = address.genericIf("10.2.3.4", true);
  EXPECT_EQ(a->type(), address);
  EXPECT_EQ(a->gnmiStrRep(), "10.2.3.4");
  EXPECT_EQ(a->value<unsigned>("bits"), 0x0a020304u);
}

TEST(VekType, AliasOfAValueTypeConstructsFromArguments) {
  const VekType stats = Module::moduleNew("AliasCtor").aliasType("PortCounters", types().counters);
  Ptr<GenericIf> c = stats.genericIf(GenericIfArgs{genericIfOf(1ull), genericIfOf(2ull)});
  EXPECT_EQ(c->value<unsigned long long>("inPkts"), 1u);
  EXPECT_EQ(c->value<unsigned long long>("outPkts"), 2u);
  EXPECT_EQ(c->type(), stats);
}

TEST(VekType, KeysConvertThroughAnAliasedWrapper) {
  auto tree = OstrelTest::Sample::buildTree();
  const VekAttr priorities = types().device->attr("vlanPriorities");  // keyed by VlanTag
  // The alias key, its base wrapper and the bare wrapped value find one member.
  EXPECT_TRUE(priorities.genericIfExist(tree.device, types().vlanTag.genericIf("20", true)));
  EXPECT_TRUE(priorities.genericIfExist(tree.device, OstrelTest::Sample::vlanId(20)));
  EXPECT_TRUE(priorities.genericIfExist(tree.device, genericIfOf(static_cast<unsigned short>(20))));
  EXPECT_FALSE(priorities.genericIfExist(tree.device, genericIfOf(static_cast<unsigned short>(21))));
}

TEST(VekType, IntegerArgumentMeansAnEnumeratorValueNeverAnAttributeId) {
  // Enumerations whose values are not their positions, over each integer type.
  EXPECT_EQ(types().enumU8->attr(static_cast<unsigned char>(250))->name(), "high");
  EXPECT_EQ(types().enumI8->attr(static_cast<signed char>(-100))->name(), "neg");
  EXPECT_EQ(types().enumU16->attr(static_cast<unsigned short>(60000))->name(), "large");
  EXPECT_EQ(types().enumI16->attr(static_cast<short>(-30000))->name(), "neg");
  EXPECT_EQ(types().enumU32->attr(4000000000u)->name(), "large");
  EXPECT_EQ(types().enumI32->attr(2000000000)->name(), "pos");
  EXPECT_EQ(types().enumI32->attr(0)->name(), "zero");
  // Value 1 is no enumerator of EnumI32, though its first attribute has id 1.
  EXPECT_FALSE(types().enumI32->attr(1));
  EXPECT_EQ(types().enumI32->attr(AttributeId(1))->name(), "neg");
  EXPECT_FALSE(types().enumU8->attr(static_cast<unsigned char>(1)));
  // On a type that is no enumeration an integer is refused, not taken as an id.
  EXPECT_THROW(types().interface->attr(2), EnumException);
  // The wrong underlying type is refused too.
  EXPECT_THROW(types().enumU8->attr(250), EnumException);
}

TEST(VekType, EveryAttributeIsFoundByItsName) {
  for (const VekType t : {types().interface, types().device, types().scalars, types().vlanTag,
                          types().enumI32, Dir::dirType()}) {
    for (size_t i = 0; i < t->attrCount(); ++i) {
      const VekAttr a = t->attrAt(i);
      EXPECT_EQ(t->attr(a->name()), a) << t->name() << "." << a->name();
      EXPECT_EQ(t->attr(a->id()), a);
    }
  }
}

}  // namespace
