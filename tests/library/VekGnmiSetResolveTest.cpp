// Set: resolution of path elements to attributes, members and directory
// children, and conversion of gNMI values to runtime values.
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <google/protobuf/text_format.h>
#include <gtest/gtest.h>

#include <Ostrel/Path.h>
#include <Ostrel/VekGnmiSetter.h>
#include <Vek/Vek.h>

#include "FatalCatcher.h"
#include "SampleModel.h"
#include "SetRequests.h"
#include "internal/AttrTree.h"

namespace {

namespace Sample = OstrelTest::Sample;
using namespace Ostrel::VekGnmiSet;
using OstrelTest::boolVal;
using OstrelTest::intVal;
using OstrelTest::setRequest;
using OstrelTest::stringVal;
using OstrelTest::uintVal;
using OstrelTest::updateOf;

gnmi::PathElem elemOf(const std::string& text) { return Ostrel::strToPath(text).elem(0); }

// A handle of `entity` as the resolver takes its parents.
Vek::Ptr<Vek::GenericIf> parentOf(const Vek::Ptr<Vek::Entity>& entity) { return entity.ptr(); }

grpc::Status execute(const Sample::Tree& tree, gnmi::SetRequest request) {
  Set set(tree.root.ptr(), std::move(request));
  return set.execute().second;
}

void expectStatus(const grpc::Status& status, grpc::StatusCode code, const std::string& message) {
  EXPECT_EQ(status.error_code(), code);
  EXPECT_EQ(status.error_message(), message);
}

const char* const ETH0 = "/devices/dev1/interfaces[name=eth0]";

// ---------------------------------------------------------------------------
// Directories

TEST(VekGnmiSetResolve, KeyedElementUnderDirectoryIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getElemInDir(tree.devices.ptr(), elemOf("dev1[id=1]"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path element dev1[id=1] under Vek::Dir cannot have a key");

  expectStatus(execute(tree, setRequest("/devices[k=v]/dev1", {}, {})), grpc::StatusCode::NOT_FOUND,
               "Error in finding path devices[k=v]/dev1: Path element devices[k=v] under Vek::Dir "
               "cannot have a key");
}

TEST(VekGnmiSetResolve, UnkeyedElementUnderDirectoryFindsChildByName) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getElemInDir(tree.devices.ptr(), elemOf("dev1"));
  ASSERT_TRUE(found.ok());
  EXPECT_EQ(found.value().value.ptr(), tree.device.ptr());
  ASSERT_TRUE(found.value().keyObj);
  EXPECT_EQ(found.value().keyObj->as<Vek::String>(), Vek::String("dev1"));
  EXPECT_EQ(found.value().attr, Vek::Dir::entityPtrAttr());

  // getDataElem hands a directory parent to getElemInDir.
  const auto viaResolver = AttrTree::getDataElem(tree.devices.ptr(), elemOf("dev1"));
  ASSERT_TRUE(viaResolver.ok());
  EXPECT_EQ(viaResolver.value().value.ptr(), tree.device.ptr());
}

TEST(VekGnmiSetResolve, MissingDirectoryChildIsNotSet) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getElemInDir(tree.devices.ptr(), elemOf("dev9"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path element dev9 is not set");
}

TEST(VekGnmiSetResolve, ElementInDirOfNonDirectoryIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  EXPECT_FATAL((void)AttrTree::getElemInDir(parentOf(tree.device), elemOf("x")),
               "Expecting dirObj to be of type Vek::Dir");
}

TEST(VekGnmiSetResolve, DirectoryEntryResolvesToTheEntryNotItsTarget) {
  const Sample::Tree tree = Sample::buildTree();
  const auto entry = AttrTree::getDataElem(tree.devices.ptr(), elemOf("primary"));
  ASSERT_TRUE(entry.ok());
  EXPECT_EQ(entry.value().value.ptr(), tree.primary.ptr());
  expectStatus(
      execute(tree, setRequest("/devices/primary", {}, {updateOf("hostname", stringVal("x"))})),
      grpc::StatusCode::NOT_FOUND,
      "Error in finding path hostname: Attribute hostname not found on Type Vek::Dir::Entry");
  // The entry's pointer leads on to its target, as any pointer in a prefix.
  EXPECT_TRUE(execute(tree, setRequest("/devices/primary/entity", {},
                                       {updateOf("hostname", stringVal("via-entry"))}))
                  .ok());
  EXPECT_EQ(tree.device->value<Vek::String>("hostname"), Vek::String("via-entry"));
}

// ---------------------------------------------------------------------------
// Attributes and collection members

TEST(VekGnmiSetResolve, ParentWithoutTypeIsRefused) {
  const auto found = AttrTree::getDataElem(nullptr, elemOf("mtu"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "VekType is missing for parent object of mtu");
}

TEST(VekGnmiSetResolve, UnknownAttributeIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("speed"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Attribute speed not found on Type Interface");
}

TEST(VekGnmiSetResolve, PlainAttributeResolvesToItsCurrentValue) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("mtu"));
  ASSERT_TRUE(found.ok());
  EXPECT_EQ(found.value().value->as<unsigned>(), 9000u);
  EXPECT_FALSE(found.value().keyObj);
  EXPECT_EQ(found.value().attr, Sample::types().interface->attr("mtu"));
}

TEST(VekGnmiSetResolve, APlainValueCheckedOnlyIsNotRead) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("mtu"), AttrTree::PlainValue::CheckOnly);
  ASSERT_TRUE(found.ok());
  EXPECT_FALSE(found.value().value);
  EXPECT_EQ(found.value().attr, Sample::types().interface->attr("mtu"));
  // A member: its key is made, and only whether it is there is checked.
  const auto member =
      AttrTree::getDataElem(parentOf(tree.device), elemOf("vlanNames[id=10]"), AttrTree::PlainValue::CheckOnly);
  ASSERT_TRUE(member.ok());
  EXPECT_FALSE(member.value().value);
  ASSERT_TRUE(member.value().keyObj);
  EXPECT_EQ(member.value().keyObj->as<unsigned short>(), 10u);
}

TEST(VekGnmiSetResolve, AMissingMemberCheckedOnlyIsRefusedAsWhenRead) {
  const Sample::Tree tree = Sample::buildTree();
  for (const auto plain : {AttrTree::PlainValue::Read, AttrTree::PlainValue::CheckOnly}) {
    const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("vlanNames[id=99]"), plain);
    ASSERT_FALSE(found.ok());
    EXPECT_EQ(found.error(), "Path element vlanNames[id=99] is not set");
  }
}

TEST(VekGnmiSetResolve, ValuesWithAttributesAndEntitiesAreReadWhateverIsAskedOfPlainValues) {
  const Sample::Tree tree = Sample::buildTree();
  const auto counters =
      AttrTree::getDataElem(parentOf(tree.eth0), elemOf("counters"), AttrTree::PlainValue::CheckOnly);
  ASSERT_TRUE(counters.ok());
  ASSERT_TRUE(counters.value().value);
  EXPECT_EQ(counters.value().value->type(), Sample::types().counters);
  const auto chassis =
      AttrTree::getDataElem(parentOf(tree.device), elemOf("chassis"), AttrTree::PlainValue::CheckOnly);
  ASSERT_TRUE(chassis.ok());
  EXPECT_TRUE(chassis.value().value);
}

TEST(VekGnmiSetResolve, KeyOnPlainAttributeIsRefusedNamingTheElement) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("mtu[x=1]"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path element mtu[x=1] cannot have a key: mtu is not a collection");
}

TEST(VekGnmiSetResolve, MemberAddressedWithTwoKeysIsRefusedWhateverTheKeyType) {
  const Sample::Tree tree = Sample::buildTree();
  for (const char* text : {"interfaces[name=eth0][x=1]", "neighbors[ifName=eth0][index=1]",
                           "vlanNames[id=10][x=1]", "vlanRoles[id=10][x=1]"}) {
    const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf(text));
    ASSERT_FALSE(found.ok()) << text;
    EXPECT_EQ(found.error(), "Path with composite key collection not supported") << text;
  }
}

TEST(VekGnmiSetResolve, MemberAddressedWithoutKeyIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("vlanNames"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path with composite key collection not supported");
  const auto array = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("vlans"));
  ASSERT_FALSE(array.ok());
  EXPECT_EQ(array.error(), "Path with composite key collection not supported");
}

TEST(VekGnmiSetResolve, ArrayElementIsAddressedByItsIndex) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("vlans[index=2]"));
  ASSERT_TRUE(found.ok());
  EXPECT_EQ(found.value().value->as<unsigned short>(), 30);
  EXPECT_EQ(found.value().keyObj->as<unsigned>(), 2u);
}

TEST(VekGnmiSetResolve, CompositeKeyGivenAsOneKeyIsRefusedByTheRuntime) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("neighbors[key=eth0]"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "\"eth0\" is not a valid Sample::NeighborKey");
}

TEST(VekGnmiSetResolve, InternallyKeyedCollectionIsRefused) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found =
      AttrTree::getDataElem(parentOf(tree.device), elemOf("routes[destination=10.1.0.0]"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path with internally-keyed collection is not supported");
}

TEST(VekGnmiSetResolve, CollectionDeclaringAKeyAttributeIsAddressedByItsKey) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("interfaces[name=eth0]"));
  ASSERT_TRUE(found.ok());
  EXPECT_EQ(found.value().value.ptr(), tree.eth0.ptr());
  EXPECT_EQ(found.value().keyObj->as<Vek::String>(), Vek::String("eth0"));
}

TEST(VekGnmiSetResolve, KeyTextTheRuntimeRefusesGivesItsMessage) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("vlanNames[id=ten]"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "\"ten\" is not a valid unsigned short");
}

TEST(VekGnmiSetResolve, MissingMemberIsNotCreated) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("vlanNames[id=99]"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path element vlanNames[id=99] is not set");

  const auto status =
      execute(tree, setRequest(ETH0, {}, {updateOf("addresses[ip=1.2.3.4]/prefixLength", uintVal(8))}));
  expectStatus(status, grpc::StatusCode::NOT_FOUND,
               "Error in finding path addresses[ip=1.2.3.4]: Path element addresses[ip=1.2.3.4] "
               "is not set");
  EXPECT_EQ(tree.eth0->memberCount("addresses"), 2u);
  expectStatus(execute(tree, setRequest("/devices/dev1", {}, {updateOf("vlanNames[id=99]", stringVal("x"))})),
               grpc::StatusCode::NOT_FOUND,
               "Error in finding path vlanNames[id=99]: Path element vlanNames[id=99] is not set");
  EXPECT_EQ(tree.device->memberCount("vlanNames"), 2u);
}

TEST(VekGnmiSetResolve, UnsetChildEntityIsNotSet) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("fan"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path element fan is not set");
}

TEST(VekGnmiSetResolve, CollectionControlAttributeIsNotSet) {
  const Sample::Tree tree = Sample::buildTree();
  const auto found = AttrTree::getDataElem(parentOf(tree.device), elemOf("interfacesControl"));
  ASSERT_FALSE(found.ok());
  EXPECT_EQ(found.error(), "Path element interfacesControl is not set");
}

TEST(VekGnmiSetResolve, ValueTypeResolvesToAPrivateCopyLeavingTheLiveObjectUntilCommit) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::VekAttr counters = Sample::types().interface->attr("counters");
  const auto found = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("counters"));
  ASSERT_TRUE(found.ok());
  Vek::Ptr<Vek::GenericIf> copy = found.value().value;
  copy->valueIs<unsigned long long>("inPkts", 1);
  EXPECT_EQ(counters.genericIfGet(tree.eth0)->value<unsigned long long>("inPkts"), 100u);

  // Through a Set: prepared, the live value is untouched; committed, it is
  // the new one.
  Set set(tree.root.ptr(), setRequest(ETH0, {}, {updateOf("counters/inPkts", uintVal(5))}));
  ASSERT_TRUE(set.prepare().ok());
  EXPECT_EQ(counters.genericIfGet(tree.eth0)->value<unsigned long long>("inPkts"), 100u);
  ASSERT_TRUE(set.commit().ok());
  EXPECT_EQ(counters.genericIfGet(tree.eth0)->value<unsigned long long>("inPkts"), 5u);
}

TEST(VekGnmiSetResolve, EntityAndPlainValueAreKeptAsRead) {
  const Sample::Tree tree = Sample::buildTree();
  const auto chassis = AttrTree::getDataElem(parentOf(tree.device), elemOf("chassis"));
  ASSERT_TRUE(chassis.ok());
  EXPECT_EQ(chassis.value().value.ptr(), tree.device->entity("chassis").ptr());
  const auto peer = AttrTree::getDataElem(parentOf(tree.eth0), elemOf("peer"));
  ASSERT_TRUE(peer.ok());
  EXPECT_EQ(peer.value().value.ptr(), tree.eth1.ptr());
}

TEST(VekGnmiSetResolve, IsConstructorParamAnswersForTheNodesValueType) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::PathElem elem = elemOf("counters");
  auto found = AttrTree::getDataElem(parentOf(tree.eth0), elem);
  ASSERT_TRUE(found.ok());
  const AttrTree::CompositeNode node(elem, std::move(found).value());
  const Vek::VekType counters = Sample::types().counters;
  EXPECT_TRUE(node.isConstructorParam(counters->attr("inPkts")));
  EXPECT_TRUE(node.isConstructorParam(counters->attr("outPkts")));
  EXPECT_FALSE(node.isConstructorParam(counters->attr("inErrors")));
  EXPECT_FALSE(node.isConstructorParam(Sample::types().interface->attr("mtu")));
}

// ---------------------------------------------------------------------------
// Conversion

Vek::VekType builtin(Vek::BuiltinCode code) { return Vek::builtinType(code); }

TEST(VekGnmiSetConvert, StringConvertsOnlyIntoString) {
  const auto text = AttrTree::gnmiToVekValue(stringVal("a b"), builtin(Vek::BuiltinCode::String));
  ASSERT_TRUE(text.ok());
  EXPECT_EQ(text.value()->as<Vek::String>(), Vek::String("a b"));
  const auto wrong = AttrTree::gnmiToVekValue(stringVal("1"), builtin(Vek::BuiltinCode::Int));
  ASSERT_FALSE(wrong.ok());
  EXPECT_EQ(wrong.error(), "Expected int; found string");
}

TEST(VekGnmiSetConvert, IntConvertsIntoSignedIntegersKeepingTheLowBits) {
  const auto i8 = AttrTree::gnmiToVekValue(intVal(300), builtin(Vek::BuiltinCode::SignedChar));
  ASSERT_TRUE(i8.ok());
  EXPECT_EQ(i8.value()->as<signed char>(), 44);
  const auto i16 = AttrTree::gnmiToVekValue(intVal(-70000), builtin(Vek::BuiltinCode::Short));
  ASSERT_TRUE(i16.ok());
  EXPECT_EQ(i16.value()->as<short>(), static_cast<short>(-70000));
  const auto i32 = AttrTree::gnmiToVekValue(intVal(0x1'0000'0005), builtin(Vek::BuiltinCode::Int));
  ASSERT_TRUE(i32.ok());
  EXPECT_EQ(i32.value()->as<int>(), 5);
  const auto i64 =
      AttrTree::gnmiToVekValue(intVal(INT64_MIN), builtin(Vek::BuiltinCode::LongLong));
  ASSERT_TRUE(i64.ok());
  EXPECT_EQ(i64.value()->as<long long>(), INT64_MIN);
  for (Vek::BuiltinCode code : {Vek::BuiltinCode::UnsignedChar, Vek::BuiltinCode::UnsignedInt,
                                Vek::BuiltinCode::UnsignedLongLong, Vek::BuiltinCode::Bool}) {
    const auto wrong = AttrTree::gnmiToVekValue(intVal(1), builtin(code));
    ASSERT_FALSE(wrong.ok());
    EXPECT_EQ(wrong.error(), "Expected " + builtin(code)->name() + "; found int");
  }
}

TEST(VekGnmiSetConvert, UintConvertsIntoUnsignedIntegersKeepingTheLowBits) {
  const auto u8 = AttrTree::gnmiToVekValue(uintVal(256 + 7), builtin(Vek::BuiltinCode::UnsignedChar));
  ASSERT_TRUE(u8.ok());
  EXPECT_EQ(u8.value()->as<unsigned char>(), 7);
  const auto u16 = AttrTree::gnmiToVekValue(uintVal(65536 + 9), builtin(Vek::BuiltinCode::UnsignedShort));
  ASSERT_TRUE(u16.ok());
  EXPECT_EQ(u16.value()->as<unsigned short>(), 9);
  const auto u32 = AttrTree::gnmiToVekValue(uintVal(0x1'0000'0001), builtin(Vek::BuiltinCode::UnsignedInt));
  ASSERT_TRUE(u32.ok());
  EXPECT_EQ(u32.value()->as<unsigned>(), 1u);
  const auto u64 = AttrTree::gnmiToVekValue(uintVal(UINT64_MAX), builtin(Vek::BuiltinCode::UnsignedLongLong));
  ASSERT_TRUE(u64.ok());
  EXPECT_EQ(u64.value()->as<unsigned long long>(), UINT64_MAX);
  for (Vek::BuiltinCode code : {Vek::BuiltinCode::SignedChar, Vek::BuiltinCode::Int,
                                Vek::BuiltinCode::LongLong, Vek::BuiltinCode::String}) {
    const auto wrong = AttrTree::gnmiToVekValue(uintVal(1), builtin(code));
    ASSERT_FALSE(wrong.ok());
    EXPECT_EQ(wrong.error(), "Expected " + builtin(code)->name() + "; found unsigned int");
  }
}

TEST(VekGnmiSetConvert, BoolConvertsOnlyIntoBool) {
  const auto flag = AttrTree::gnmiToVekValue(boolVal(true), builtin(Vek::BuiltinCode::Bool));
  ASSERT_TRUE(flag.ok());
  EXPECT_TRUE(flag.value()->as<bool>());
  const auto wrong = AttrTree::gnmiToVekValue(boolVal(true), builtin(Vek::BuiltinCode::UnsignedChar));
  ASSERT_FALSE(wrong.ok());
  EXPECT_EQ(wrong.error(), "Expected unsigned char; found bool");
}

TEST(VekGnmiSetConvert, CharFloatDoubleBytesAndSecondsTakeNoScalar) {
  for (Vek::BuiltinCode code : {Vek::BuiltinCode::Char, Vek::BuiltinCode::Float,
                                Vek::BuiltinCode::Double, Vek::BuiltinCode::Bytes,
                                Vek::BuiltinCode::Seconds}) {
    for (const auto& [value, kind] : {std::pair{stringVal("1"), "string"}, std::pair{intVal(1), "int"},
                                      std::pair{uintVal(1), "unsigned int"},
                                      std::pair{boolVal(true), "bool"}}) {
      const auto wrong = AttrTree::gnmiToVekValue(value, builtin(code));
      ASSERT_FALSE(wrong.ok());
      EXPECT_EQ(wrong.error(), "Expected " + builtin(code)->name() + "; found " + kind);
    }
  }
}

TEST(VekGnmiSetConvert, EnumerationsAndValueTypesTakeNoScalar) {
  const auto status = AttrTree::gnmiToVekValue(intVal(1), Sample::types().operStatus);
  ASSERT_FALSE(status.ok());
  EXPECT_EQ(status.error(), "Expected OperStatus; found int");
  const auto address = AttrTree::gnmiToVekValue(stringVal("10.0.0.1"), Sample::types().ipv4);
  ASSERT_FALSE(address.ok());
  EXPECT_EQ(address.error(), "Expected Ipv4; found string");
}

TEST(VekGnmiSetConvert, AliasOfABuiltinConvertsAsItsBaseAndKeepsItsType) {
  static const Vek::VekType port =
      Vek::Module::moduleNew("SetConvertAlias").aliasType("Port", Vek::builtinType<unsigned short>());
  const auto converted = AttrTree::gnmiToVekValue(uintVal(8080), port);
  ASSERT_TRUE(converted.ok());
  EXPECT_EQ(converted.value()->type(), port);
  EXPECT_EQ(converted.value()->as<unsigned short>(), 8080);
  const auto wrong = AttrTree::gnmiToVekValue(intVal(1), port);
  ASSERT_FALSE(wrong.ok());
  EXPECT_EQ(wrong.error(), "Expected Port; found int");
}

TEST(VekGnmiSetConvert, FloatDecimalBytesJsonAndOtherKindsAreNotSupported) {
  // Written as text: the deprecated kinds have deprecated setters.
  std::vector<gnmi::TypedValue> values;
  for (const char* text :
       {"float_val: 1.5", "decimal_val { digits: 15 precision: 1 }", "bytes_val: \"\\001\\002\"",
        "json_val: \"{\\\"a\\\":1}\"", "json_ietf_val: \"{}\"", "double_val: 2.5",
        "leaflist_val { element { uint_val: 1 } }", "ascii_val: \"text\"",
        "proto_bytes: \"x\"", "any_val { type_url: \"t\" }"}) {
    gnmi::TypedValue value;
    ASSERT_TRUE(google::protobuf::TextFormat::ParseFromString(text, &value)) << text;
    values.push_back(value);
  }
  for (const gnmi::TypedValue& value : values) {
    const auto refused = AttrTree::gnmiToVekValue(value, builtin(Vek::BuiltinCode::String));
    ASSERT_FALSE(refused.ok());
    EXPECT_EQ(refused.error(), value.DebugString() + " is not supported");
  }
  const auto empty = AttrTree::gnmiToVekValue(gnmi::TypedValue(), builtin(Vek::BuiltinCode::String));
  ASSERT_FALSE(empty.ok());
  EXPECT_EQ(empty.error(), " is not supported");

  const Sample::Tree tree = Sample::buildTree();
  expectStatus(execute(tree, setRequest(ETH0, {}, {updateOf("mtu", values[0])})),
               grpc::StatusCode::INVALID_ARGUMENT,
               "Error in argument to path mtu: " + values[0].DebugString() + " is not supported");
}

}  // namespace
