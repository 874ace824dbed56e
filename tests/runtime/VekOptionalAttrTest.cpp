// Optional attributes (AttrFlag::OPTIONAL), entity types whose name is not
// data (TypeFlag::NAME_NOT_DATA), and schema identifiers as names: what a
// model built from a schema at run time needs of the runtime.
#include <gtest/gtest.h>

#include "ChangeRecorder.h"
#include "FatalCatcher.h"

namespace {

using namespace Vek;

struct OptionalTypes {
  VekType status;
  VekType node;
};

// An entity type whose name is not data, with a data attribute "name", an
// optional counter, an optional enumeration, an optional leaf list and a
// plain scalar; every name spelled as schema identifiers are.
const OptionalTypes& optionalTypes() {
  static const OptionalTypes t = [] {
    Module& m = Module::moduleNew("Optional-Attrs.v1");
    OptionalTypes types;
    types.status = m.enumType("oper-status", builtinType<int>())
                       .enumerator("up", 1)
                       .enumerator("lower-layer-down", 7)
                       .enumerator("10Mb half.duplex", 8)
                       .done();
    AttrDef counter;
    counter.name = "in-octets";
    counter.type = builtinType<unsigned long long>();
    counter.flags = AttrFlag::OPTIONAL;
    AttrDef status;
    status.name = "oper.status";
    status.type = types.status;
    status.flags = AttrFlag::OPTIONAL;
    types.node = m.entityType("/mod:interfaces/interface", TypeFlag::NAME_NOT_DATA)
                     .scalar("name", builtinType<String>())
                     .attr(counter)
                     .attr(status)
                     .array("ietf-ip:address", builtinType<String>())
                     .attrFlagsIs(AttrFlag::ARRAY | AttrFlag::OPTIONAL)
                     .scalar("mtu", builtinType<unsigned short>(), "1500")
                     .done();
    return types;
  }();
  return t;
}

Ptr<Entity> node() { return Entity::rootNew(optionalTypes().node, "eth0"); }
VekAttr attrOf(const char* name) { return optionalTypes().node->attr(name); }

TEST(VekOptionalAttr, AnOptionalScalarStartsUnsetAndReadsAsNoValue) {
  Ptr<Entity> e = node();
  const VekAttr octets = attrOf("in-octets");
  EXPECT_EQ(octets->storage(), AttrStorage::Ref);
  EXPECT_FALSE(octets.genericIfGet(e));
  EXPECT_FALSE(octets.genericIfExist(e));
  EXPECT_THROW(e->value<unsigned long long>(octets), TypeMismatchException);
  EXPECT_EQ(octets.genericIfGnmiJsonStrep(e), "null");
}

TEST(VekOptionalAttr, SettingAnOptionalScalarStoresACopyAndReadsItBack) {
  Ptr<Entity> e = node();
  const VekAttr octets = attrOf("in-octets");
  Ptr<GenericIf> value = genericIfOf<unsigned long long>(12345678901ULL);
  octets.genericIfSet(e, nullptr, value);
  ASSERT_TRUE(octets.genericIfExist(e));
  EXPECT_NE(octets.genericIfGet(e).ptr(), value.ptr());
  EXPECT_EQ(octets.genericIfGet(e)->strRep(), "12345678901");
  EXPECT_EQ(e->value<unsigned long long>(octets), 12345678901ULL);
  e->valueIs<unsigned long long>(octets, 7);
  EXPECT_EQ(octets.genericIfGet(e)->strRep(), "7");
  EXPECT_EQ(octets.genericIfGnmiJsonStrep(e), "\"7\"");  // 64-bit integers are JSON strings
}

TEST(VekOptionalAttr, ATypedWriteOfAnotherRepresentationIsRefused) {
  Ptr<Entity> e = node();
  EXPECT_THROW(e->valueIs<unsigned>(attrOf("in-octets"), 5u), TypeMismatchException);
  EXPECT_THROW(attrOf("in-octets").genericIfSet(e, nullptr, genericIfOf(String("x"))), TypeMismatchException);
  EXPECT_FALSE(attrOf("in-octets").genericIfExist(e));
}

TEST(VekOptionalAttr, SettingANullValueUnsetsAndEachRealChangeIsReported) {
  Ptr<Entity> e = node();
  Ptr<OstrelTest::ChangeRecorder> r = new OstrelTest::ChangeRecorder(e);
  const VekAttr status = attrOf("oper.status");
  status.genericIfSet(e, nullptr, optionalTypes().status.genericIf("lower-layer-down", true));
  status.genericIfSet(e, nullptr, optionalTypes().status.genericIf("lower-layer-down", true));  // unchanged
  status.genericIfSet(e, nullptr, nullptr);
  status.genericIfSet(e, nullptr, nullptr);  // unset already
  EXPECT_EQ(r->events, (std::vector<std::string>{"oper.status", "oper.status"}));
  EXPECT_FALSE(status.genericIfGet(e));
}

TEST(VekOptionalAttr, AnOptionalArrayHoldsNoValueWhileEmpty) {
  Ptr<Entity> e = node();
  const VekAttr addresses = attrOf("ietf-ip:address");
  EXPECT_EQ(addresses->storage(), AttrStorage::Collection);
  EXPECT_FALSE(addresses.genericIfExist(e));
  addresses.genericIfSet(e, genericIfOf(0u), genericIfOf("10.0.0.1"));
  EXPECT_TRUE(addresses.genericIfExist(e));
  addresses.genericIfErase(e, genericIfOf(0u));
  EXPECT_FALSE(addresses.genericIfExist(e));
}

TEST(VekOptionalAttr, APlainScalarBesideOptionalOnesKeepsItsDefault) {
  Ptr<Entity> e = node();
  EXPECT_EQ(e->value<unsigned short>("mtu"), 1500);
  EXPECT_TRUE(attrOf("mtu").genericIfExist(e));
}

TEST(VekOptionalAttr, ANameThatIsNotDataReadsAsNoValueAndFreesTheNameName) {
  Ptr<Entity> e = node();
  const VekAttr nameAttr = optionalTypes().node->attr(AttributeId(1));
  EXPECT_EQ(nameAttr->name(), "@name");
  EXPECT_FALSE(nameAttr.genericIfGet(e));
  EXPECT_FALSE(nameAttr.genericIfExist(e));
  EXPECT_EQ(e->name().stdString(), "eth0");
  EXPECT_EQ(e->fullName(), "/eth0");
  // "name" is an ordinary data attribute of the type.
  ASSERT_EQ(attrOf("name")->id(), AttributeId(2));
  e->valueIs("name", "eth0");
  EXPECT_EQ(attrOf("name").genericIfGet(e)->strRep(), "eth0");
}

TEST(VekOptionalAttr, SchemaIdentifiersAreNamesOfTypesAttributesAndEnumerators) {
  const VekType status = optionalTypes().status;
  EXPECT_EQ(status->qualifiedName(), "Optional-Attrs.v1::oper-status");
  EXPECT_EQ(status.genericIf("10Mb half.duplex", true)->strRep(), "10Mb half.duplex");
  EXPECT_EQ(optionalTypes().node->name(), "/mod:interfaces/interface");
  EXPECT_TRUE(attrOf("ietf-ip:address"));
  EXPECT_TRUE(attrOf("oper.status"));
}

// An optional unsigned "mtu".
AttrDef optionalMtu() {
  AttrDef def;
  def.name = "mtu";
  def.type = builtinType<unsigned>();
  def.flags = AttrFlag::OPTIONAL;
  return def;
}

TEST(VekOptionalAttrDeathTest, AnOptionalScalarWithADefaultIsFatal) {
  AttrDef def = optionalMtu();
  def.defaultText = "1500";
  TypeDef type = Module::moduleNew("OptionalWithDefault").entityType("Node").attr(def);
  EXPECT_FATAL(type.done(), "OptionalWithDefault::Node.mtu: an optional scalar belongs to an entity and starts unset");
}

TEST(VekOptionalAttrDeathTest, AnOptionalScalarOfAValueTypeIsFatal) {
  TypeDef type = Module::moduleNew("OptionalInValue").valueType("Pair").attr(optionalMtu());
  EXPECT_FATAL(type.done(), "OptionalInValue::Pair.mtu: an optional scalar belongs to an entity and starts unset");
}

}  // namespace
