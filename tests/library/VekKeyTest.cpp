// VekKey: the key of one collection member.
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include <Ostrel/Path.h>
#include <Ostrel/VekKey.h>
#include <Vek/Vek.h>

#include "SampleModel.h"
#include "internal/CollectionKeys.h"

namespace {

using Ostrel::VekKey;

gnmi::TypedValue stringVal(const std::string& s) {
  gnmi::TypedValue v;
  v.set_string_val(s);
  return v;
}

gnmi::TypedValue uintVal(uint64_t u) {
  gnmi::TypedValue v;
  v.set_uint_val(u);
  return v;
}

// A small model with one collection per kind of key.
struct KeyModel {
  Vek::VekType status;     // enumeration
  Vek::VekType addr;       // value type with two fields (composite key)
  Vek::VekType wrapped;    // value type flagged as a wrapper
  Vek::VekType port;       // entity with a declared key attribute "id"
  Vek::VekType device;     // entity holding the collections
  Vek::VekAttr byName;     // String -> unsigned
  Vek::VekAttr byStatus;   // Status -> unsigned
  Vek::VekAttr neighbor;   // Addr -> unsigned
  Vek::VekAttr byWrapped;  // Wrapped -> unsigned
  Vek::VekAttr ports;      // unsigned -> owned Port, key attribute "id" (published)
  Vek::VekAttr hidden;     // unsigned -> owned Port, key attribute "id" (not published)
  Vek::VekAttr byPeer;     // pointer to Port -> unsigned

  static const KeyModel& get() {
    static const KeyModel model;
    return model;
  }

 private:
  KeyModel() {
    Vek::Module& m = Vek::Module::moduleNew("VekKeyTest");
    const Vek::VekType u32 = Vek::builtinType<unsigned>();
    status = m.enumType("Status", Vek::builtinType<int>())
                 .enumerator("up", 1)
                 .enumerator("down", 2)
                 .done();
    addr = m.valueType("Addr")
               .scalar("vrf", Vek::builtinType<Vek::String>())
               .scalar("ip", u32)
               .done();
    wrapped = m.valueType("Wrapped").scalar("value", u32).wrapperOf("value").done();
    port = m.entityType("Port").scalar("id", u32).attrFlagsIs(Vek::AttrFlag::KEY_NAME).done();
    Vek::VekType hiddenPort = m.entityType("HiddenPort").scalar("id", u32).done();
    Vek::TypeDef dev = m.entityType("Device");
    dev.collection("byName", Vek::builtinType<Vek::String>(), u32)
        .collection("byStatus", status, u32)
        .collection("neighbor", addr, u32)
        .collection("byWrapped", wrapped, u32)
        .collection("ports", u32, port, Vek::AttrFlag::INSTANTIATING)
        .keyAttr("id")
        .collection("hidden", u32, hiddenPort, Vek::AttrFlag::INSTANTIATING)
        .keyAttr("id")
        .collection("byPeer", port, u32);
    device = dev.done();
    byName = device->attr("byName");
    byStatus = device->attr("byStatus");
    neighbor = device->attr("neighbor");
    byWrapped = device->attr("byWrapped");
    ports = device->attr("ports");
    hidden = device->attr("hidden");
    byPeer = device->attr("byPeer");
  }
};

TEST(VekKey, FreshKeyIsEmpty) {
  const VekKey key;
  EXPECT_EQ(key.keyKind(), VekKey::KIND_UNSET);
  EXPECT_TRUE(key.keyMap().empty());
  EXPECT_TRUE(key.scalars().empty());
  EXPECT_EQ(key.flags(), 256u);
  EXPECT_EQ(key.prefix().elem_size(), 0);
  EXPECT_FALSE(key.collecting());
  EXPECT_TRUE(key.escapesText());
}

TEST(VekKey, EmptyKeyHasEmptyKeyString) {
  const VekKey key;
  EXPECT_EQ(static_cast<std::string>(key), "");
  EXPECT_EQ(VekKey::toString(key), "");
}

TEST(VekKey, EmptyKeyLeavesGnmiKeyNameUnchanged) {
  const VekKey key;
  const gnmi::Path path = Ostrel::strToPath("/neighborKey");
  EXPECT_TRUE(key.gnmiKeyName(path) == path);
  EXPECT_EQ(key.gnmiKeyName(gnmi::Path()).elem_size(), 0);
}

TEST(VekKey, EmptyKeyGnmiKeyNameGoesThroughTheKeyText) {
  // The key text of /a[k=1]/b is a[k=1]__b, which parses back as one element:
  // the text after the bracket names it and the key stays.
  const VekKey key;
  const gnmi::Path path = Ostrel::strToPath("/a[k=1]/b");
  const gnmi::Path name = key.gnmiKeyName(path);
  EXPECT_TRUE(name == Ostrel::strToPath(Ostrel::pathToKeyStr(path)));
  EXPECT_EQ(Ostrel::pathToStr(name), "/__b[k=1]");
}

TEST(VekKey, KeyStringSortsNamesWhateverTheInsertionOrder) {
  VekKey key;
  key.mapInsert("b", "2", uintVal(2));
  key.mapInsert("a", "1", uintVal(1));
  EXPECT_EQ(static_cast<std::string>(key), "[a=1][b=2]");
}

TEST(VekKey, KeyNamesSortByBytesSoUpperCaseComesFirst) {
  VekKey key;
  key.mapInsert("a", "1", uintVal(1));
  key.mapInsert("B", "2", uintVal(2));
  EXPECT_EQ(static_cast<std::string>(key), "[B=2][a=1]");
}

TEST(VekKey, RepeatedNameKeepsFirstTextButQueuesBothValues) {
  VekKey key;
  key.mapInsert("name", "eth0", stringVal("eth0"));
  key.mapInsert("name", "eth1", stringVal("eth1"));
  ASSERT_EQ(key.keyMap().size(), 1u);
  EXPECT_EQ(key.keyMap().at("name"), "eth0");
  ASSERT_EQ(key.scalars().size(), 2u);
  EXPECT_EQ(key.scalars()[0].second.string_val(), "eth0");
  EXPECT_EQ(key.scalars()[1].second.string_val(), "eth1");
}

TEST(VekKey, FormatterPrintsKeyString) {
  VekKey key;
  key.mapInsert("k", "v", stringVal("v"));
  EXPECT_EQ(fmt::format("<{}>", key), "<[k=v]>");
}

TEST(VekKey, DumpKeyWritesKeyStringAndValues) {
  VekKey key;
  key.mapInsert("name", "eth0", stringVal("eth0"));
  key.mapInsert("idx", "3", uintVal(3));
  std::ostringstream out;
  key.dumpKey(out);
  EXPECT_EQ(out.str(),
            "{KeyStr[idx=3][name=eth0]Values[ name=string_val: \"eth0\" idx=uint_val: 3 ]}\n");
}

TEST(VekKey, CollectingAndEscapeFlags) {
  VekKey key;
  key.collectingIs(true);
  EXPECT_TRUE(key.collecting());
  EXPECT_EQ(key.flags(), 257u);
  key.escapesTextIs(false);
  EXPECT_FALSE(key.escapesText());
  EXPECT_EQ(key.flags(), 1u);
}

TEST(VekKey, BuiltinKeyIsSimpleWithoutGeneratedElement) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  const gnmi::Path generated = key.updateTypeAndGenKey(m.byName, Vek::builtinType<Vek::String>());
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  EXPECT_EQ(generated.elem_size(), 0);
}

TEST(VekKey, CompositeKeyGeneratesCollectionNameWithKeySuffix) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  const gnmi::Path generated = key.updateTypeAndGenKey(m.neighbor, m.addr);
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
  EXPECT_EQ(Ostrel::pathToStr(generated), "/neighborKey");
}

TEST(VekKey, EnumerationKeyIsGenerated) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  EXPECT_EQ(Ostrel::pathToStr(key.updateTypeAndGenKey(m.byStatus, m.status)), "/byStatusKey");
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
}

TEST(VekKey, WrapperKeyIsGenerated) {
  const KeyModel& m = KeyModel::get();
  ASSERT_NE(m.wrapped->flags() & 0x1000u, 0u);
  VekKey key;
  EXPECT_EQ(Ostrel::pathToStr(key.updateTypeAndGenKey(m.byWrapped, m.wrapped)), "/byWrappedKey");
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
}

TEST(VekKey, DeclaredKeyAttributeWithNameFlagGivesIndexAttributeElement) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  const gnmi::Path generated = key.updateTypeAndGenKey(m.ports, Vek::builtinType<unsigned>());
  EXPECT_EQ(Ostrel::pathToStr(generated), "/id");
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
}

TEST(VekKey, DeclaredKeyAttributeWithoutNameFlagGivesNoElement) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  EXPECT_EQ(key.updateTypeAndGenKey(m.hidden, Vek::builtinType<unsigned>()).elem_size(), 0);
}

TEST(VekKey, PointerKeyRecordsPathTextUnderCollectionKeyName) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  const gnmi::Path generated = key.updateTypeAndGenKeyForPtr(m.byPeer, m.port, "/dev/ports[id=3]");
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  EXPECT_EQ(generated.elem_size(), 0);
  ASSERT_EQ(key.keyMap().size(), 1u);
  EXPECT_EQ(key.keyMap().at("byPeerKey"), "/dev/ports[id=3]");
  EXPECT_TRUE(key.scalars().empty());
}

TEST(VekKey, PointerKeyKeepsAnEarlierEntry) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKeyForPtr(m.byPeer, m.port, "/first");
  key.updateTypeAndGenKeyForPtr(m.byPeer, m.port, "/second");
  EXPECT_EQ(key.keyMap().at("byPeerKey"), "/first");
}

TEST(VekKey, GnmiKeyNameJoinsEntriesWithDoubleUnderscore) {
  VekKey key;
  key.mapInsert("b", "2", uintVal(2));
  key.mapInsert("a", "1", uintVal(1));
  const gnmi::Path name = key.gnmiKeyName(Ostrel::strToPath("x"));
  ASSERT_EQ(name.elem_size(), 1);
  EXPECT_EQ(name.elem(0).name(), "x__a__1__b__2");
}

TEST(VekKey, GnmiKeyNameOfEmptyPathStartsWithFirstEntry) {
  VekKey key;
  key.mapInsert("ip", "10.0.0.1", stringVal("10.0.0.1"));
  EXPECT_EQ(Ostrel::pathToStr(key.gnmiKeyName(gnmi::Path())), "/ip__10.0.0.1");
}

TEST(VekKey, SimpleKeyFoldsIntoCollectionElement) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.byName, Vek::builtinType<Vek::String>());
  key.mapInsert("byName", "eth0", stringVal("eth0"));
  gnmi::Path path = Ostrel::strToPath("/dev/byName");
  key.updateAndStorePrefix(path, false, m.byName);
  EXPECT_EQ(Ostrel::pathToStr(path), "/dev/byName[byName=eth0]");
  EXPECT_EQ(Ostrel::pathToStr(key.prefix()), "/dev/byName[byName=eth0]");
  EXPECT_NE(key.flags() & VekKey::PREFIX_STORED, 0u);
}

TEST(VekKey, CollectionElementIsAddedWhenPathEndsElsewhere) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.byName, Vek::builtinType<Vek::String>());
  key.mapInsert("name", "eth0", stringVal("eth0"));
  gnmi::Path path = Ostrel::strToPath("/dev");
  key.updateAndStorePrefix(path, false, m.byName);
  EXPECT_EQ(Ostrel::pathToStr(path), "/dev/byName[name=eth0]");
}

TEST(VekKey, ScalarMemberIsPublishedUnderValueLeaf) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.byName, Vek::builtinType<Vek::String>());
  key.mapInsert("name", "eth0", stringVal("eth0"));
  gnmi::Path path = Ostrel::strToPath("/dev/byName");
  key.updateAndStorePrefix(path, true, m.byName);
  EXPECT_EQ(Ostrel::pathToStr(path), "/dev/byName[name=eth0]/byNameValue");
  EXPECT_EQ(Ostrel::pathToStr(key.prefix()), "/dev/byName[name=eth0]");
}

TEST(VekKey, CompositeKeyFoldsEveryEntry) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.neighbor, m.addr);
  key.mapInsert("vrf", "red", stringVal("red"));
  key.mapInsert("ip", "167772161", uintVal(167772161));
  gnmi::Path path = Ostrel::strToPath("/dev/neighbor");
  key.updateAndStorePrefix(path, false, m.neighbor);
  EXPECT_EQ(Ostrel::pathToStr(path), "/dev/neighbor[ip=167772161][vrf=red]");
}

TEST(VekKey, ElementKeyedAlreadyGetsANewElement) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.byName, Vek::builtinType<Vek::String>());
  key.mapInsert("name", "eth1", stringVal("eth1"));
  gnmi::Path path = Ostrel::strToPath("/dev/byName[name=eth0]");
  key.updateAndStorePrefix(path, false, m.byName);
  EXPECT_EQ(Ostrel::pathToStr(path), "/dev/byName[name=eth0]/byName[name=eth1]");
}

TEST(VekKey, PointerKeyWithUnpublishedKeyAttributeUsesCollectionKeyName) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  // "hidden" declares the key attribute "id" without the publish flag.
  key.updateTypeAndGenKeyForPtr(m.hidden, m.port, "/dev/ports[id=1]");
  ASSERT_EQ(key.keyMap().size(), 1u);
  EXPECT_EQ(key.keyMap().at("hiddenKey"), "/dev/ports[id=1]");
}

TEST(VekKey, PointerKeyWithPublishedKeyAttributeUsesItsName) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  const gnmi::Path generated = key.updateTypeAndGenKeyForPtr(m.ports, m.port, "/dev/ports[id=1]");
  EXPECT_EQ(Ostrel::pathToStr(generated), "/id");
  EXPECT_EQ(key.keyMap().at("id"), "/dev/ports[id=1]");
}

TEST(VekKey, KeyValuesWithPathCharactersSurviveFolding) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKeyForPtr(m.byPeer, m.port, "/dev/ports[id=3]");
  gnmi::Path path = Ostrel::strToPath("/dev/byPeer");
  key.updateAndStorePrefix(path, true, m.byPeer);
  ASSERT_EQ(path.elem_size(), 3);
  EXPECT_EQ(path.elem(1).key().at("byPeerKey"), "/dev/ports[id=3]");
}

TEST(VekKeyDeathTest, SimpleKeyWithoutExactlyOneEntryEndsTheProcess) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.byName, Vek::builtinType<Vek::String>());
  gnmi::Path path = Ostrel::strToPath("/dev/byName");
  EXPECT_DEATH(key.updateAndStorePrefix(path, false, m.byName),
               "Assertion `keyMap\\(\\)\\.size\\(\\) == 1 && \"Expected map size of 1\"' failed");
}

TEST(VekKey, CopyScalarsAddsOneUpdatePerQueuedValueUnderPrefix) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.neighbor, m.addr);
  key.mapInsert("vrf", "red", stringVal("red"));
  key.mapInsert("ip", "7", uintVal(7));
  gnmi::Path path = Ostrel::strToPath("/dev/neighbor");
  key.updateAndStorePrefix(path, false, m.neighbor);
  gnmi::Notification notification;
  key.copyScalars(notification);
  ASSERT_EQ(notification.update_size(), 2);
  EXPECT_EQ(Ostrel::pathToStr(notification.update(0).path()), "/dev/neighbor[ip=7][vrf=red]/vrf");
  EXPECT_EQ(notification.update(0).val().string_val(), "red");
  EXPECT_EQ(Ostrel::pathToStr(notification.update(1).path()), "/dev/neighbor[ip=7][vrf=red]/ip");
  EXPECT_EQ(notification.update(1).val().uint_val(), 7u);
}

TEST(VekKey, CopyScalarsOfEmptyKeyAddsNothing) {
  gnmi::Notification notification;
  VekKey().copyScalars(notification);
  EXPECT_EQ(notification.update_size(), 0);
}

// A simple key of the collection byName whose one part is name = `text`.
VekKey nameKey(const std::string& text) {
  VekKey key;
  key.updateTypeAndGenKey(KeyModel::get().byName, Vek::builtinType<Vek::String>());
  key.mapInsert("name", text).set_string_val(text);
  return key;
}

TEST(VekKey, CollectionElementIsTheLastElementWhenKeylessAndOfTheCollectionsName) {
  const KeyModel& m = KeyModel::get();
  gnmi::Path path = Ostrel::strToPath("/dev/byName");
  EXPECT_EQ(VekKey::collectionElem(path, m.byName), path.mutable_elem(1));
  EXPECT_EQ(path.elem_size(), 2);
}

TEST(VekKey, CollectionElementIsAppendedAfterAnyOtherLastElement) {
  const KeyModel& m = KeyModel::get();
  for (const char* text : {"/dev", "/dev/byName[name=eth0]", ""}) {
    gnmi::Path path = Ostrel::strToPath(text);
    const int before = path.elem_size();
    gnmi::PathElem* elem = VekKey::collectionElem(path, m.byName);
    ASSERT_EQ(path.elem_size(), before + 1) << text;
    EXPECT_EQ(elem, path.mutable_elem(before)) << text;
    EXPECT_EQ(elem->name(), "byName") << text;
    EXPECT_TRUE(elem->key().empty()) << text;
  }
}

// A composite key of the collection neighbor: vrf = `vrf`, ip = `ip`.
VekKey neighborKey(const std::string& vrf, uint64_t ip) {
  VekKey key;
  key.updateTypeAndGenKey(KeyModel::get().neighbor, KeyModel::get().addr);
  key.mapInsert("vrf", vrf).set_string_val(vrf);
  key.mapInsert("ip", std::to_string(ip)).set_uint_val(ip);
  return key;
}

TEST(VekKey, KeyIntoGivesTheElementExactlyThisKeysEntries) {
  const VekKey first = neighborKey("red", 1);
  const VekKey second = neighborKey("blue", 2);
  const VekKey other = nameKey("eth0");
  gnmi::PathElem elem;
  elem.set_name("neighbor");
  first.keyInto(elem);
  EXPECT_EQ(Ostrel::pathElemToStr(elem), "neighbor[ip=1][vrf=red]");
  // Entries of the same names are overwritten, others go.
  second.keyInto(elem);
  EXPECT_EQ(elem.key_size(), 2);
  EXPECT_EQ(elem.key().at("vrf"), "blue");
  EXPECT_EQ(elem.key().at("ip"), "2");
  other.keyInto(elem);
  EXPECT_EQ(elem.key_size(), 1);
  EXPECT_EQ(elem.key().at("name"), "eth0");
}

TEST(VekKey, KeyIntoAnElementOfTheSameNamesFoldsAsUpdateAndStorePrefixDoes) {
  VekKey key = nameKey("eth1");
  gnmi::Path folded = Ostrel::strToPath("/dev/byName");
  key.updateAndStorePrefix(folded, false, KeyModel::get().byName);
  // The same path keyed for another member first, then for this one.
  gnmi::Path reused = Ostrel::strToPath("/dev/byName[name=eth0]");
  key.keyInto(*reused.mutable_elem(1));
  EXPECT_EQ(reused, folded);
}

TEST(VekKeyDeathTest, KeyIntoWithASimpleKeyWithoutExactlyOneEntryEndsTheProcess) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.byName, Vek::builtinType<Vek::String>());
  gnmi::PathElem elem;
  EXPECT_DEATH(key.keyInto(elem), "Assertion `keyMap\\(\\)\\.size\\(\\) == 1 && \"Expected map size of 1\"' failed");
}

TEST(VekKey, CopyScalarsUnderAGivenPrefixIgnoresTheStoredOne) {
  VekKey key = nameKey("eth0");
  gnmi::Path stored = Ostrel::strToPath("/dev/byName");
  key.updateAndStorePrefix(stored, false, KeyModel::get().byName);
  gnmi::Notification notification;
  key.copyScalars(notification, Ostrel::strToPath("/other[k=v]"), Vek::VekType());
  ASSERT_EQ(notification.update_size(), 1);
  EXPECT_EQ(Ostrel::pathToStr(notification.update(0).path()), "/other[k=v]/name");
  EXPECT_EQ(notification.update(0).val().string_val(), "eth0");
}

TEST(VekKey, CopyScalarsUnderAGivenPrefixLeavesOutWhatTheMemberPublishes) {
  VekKey key;
  key.mapInsert("id", "1", uintVal(1));
  key.mapInsert("other", "2", uintVal(2));
  gnmi::Notification notification;
  // Port has an attribute "id".
  key.copyScalars(notification, Ostrel::strToPath("/p"), KeyModel::get().port);
  ASSERT_EQ(notification.update_size(), 1);
  EXPECT_EQ(Ostrel::pathToStr(notification.update(0).path()), "/p/other");
}

TEST(VekKey, AClearedKeyIsAFreshKey) {
  const KeyModel& m = KeyModel::get();
  VekKey key;
  key.updateTypeAndGenKey(m.neighbor, m.addr);
  key.collectingIs(true);
  key.escapesTextIs(false);
  key.mapInsert("vrf", "red", stringVal("red"));
  gnmi::Path path = Ostrel::strToPath("/dev/neighbor");
  key.updateAndStorePrefix(path, false, m.neighbor);
  key.clear();
  const VekKey fresh;
  EXPECT_EQ(key.keyKind(), fresh.keyKind());
  EXPECT_TRUE(key.keyMap().empty());
  EXPECT_TRUE(key.scalars().empty());
  EXPECT_EQ(key.flags(), fresh.flags());
  EXPECT_EQ(key.prefix().elem_size(), 0);
}

TEST(VekKey, AKeyRefilledAfterClearEqualsOneFilledFresh) {
  VekKey reused = neighborKey("a-long-routing-instance-name", 1);
  reused.clear();
  reused.updateTypeAndGenKey(KeyModel::get().neighbor, KeyModel::get().addr);
  reused.mapInsert("vrf", "red").set_string_val("red");
  reused.mapInsert("ip", "7").set_uint_val(7);
  const VekKey fresh = neighborKey("red", 7);
  EXPECT_EQ(static_cast<std::string>(reused), static_cast<std::string>(fresh));
  ASSERT_EQ(reused.scalars().size(), fresh.scalars().size());
  for (size_t i = 0; i < fresh.scalars().size(); ++i) {
    EXPECT_EQ(reused.scalars()[i].first, fresh.scalars()[i].first);
    EXPECT_EQ(reused.scalars()[i].second.SerializeAsString(), fresh.scalars()[i].second.SerializeAsString());
  }
}

TEST(VekKey, MapInsertReturnsTheQueuedValueToFill) {
  VekKey key;
  key.mapInsert("a", "1").set_uint_val(1);
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].first, "a");
  EXPECT_EQ(key.scalars()[0].second.uint_val(), 1u);
  EXPECT_EQ(key.keyMap().at("a"), "1");
}

TEST(CollectionKeys, AKeyTheMembersDoNotDeclareIsNamedAfterTheCollection) {
  const Ostrel::CollectionKeys::Naming& naming = Ostrel::CollectionKeys::of(KeyModel::get().byName);
  EXPECT_FALSE(naming.declared);
  EXPECT_EQ(naming.indexName, "");
  EXPECT_EQ(naming.generatedName, "byNameKey");
  EXPECT_EQ(Ostrel::pathToStr(naming.partName), "/byName");
}

TEST(CollectionKeys, ADeclaredKeyIsNamedAfterItsAttributeAndPublishedWhenItAsks) {
  const Ostrel::CollectionKeys::Naming& published = Ostrel::CollectionKeys::of(KeyModel::get().ports);
  EXPECT_TRUE(published.declared);
  EXPECT_EQ(published.indexName, "id");
  EXPECT_EQ(Ostrel::pathToStr(published.partName), "/id");
  const Ostrel::CollectionKeys::Naming& hidden = Ostrel::CollectionKeys::of(KeyModel::get().hidden);
  EXPECT_TRUE(hidden.declared);
  EXPECT_EQ(hidden.indexName, "");
  EXPECT_EQ(Ostrel::pathToStr(hidden.partName), "/id");
}

TEST(CollectionKeys, AreWorkedOutOncePerAttribute) {
  EXPECT_EQ(&Ostrel::CollectionKeys::of(KeyModel::get().ports), &Ostrel::CollectionKeys::of(KeyModel::get().ports));
}

TEST(VekKey, CopiesAreIndependent) {
  VekKey key;
  key.mapInsert("a", "1", uintVal(1));
  VekKey copy = key;
  copy.mapInsert("b", "2", uintVal(2));
  EXPECT_EQ(static_cast<std::string>(key), "[a=1]");
  EXPECT_EQ(static_cast<std::string>(copy), "[a=1][b=2]");
}

// ---------------------------------------------------------------------------
// Keys of the sample model's collections, taken from their first member and
// folded under the device's path.

namespace Sample = OstrelTest::Sample;

const gnmi::Path& devicePath() {
  static const gnmi::Path path = Ostrel::strToPath("/devices/dev1");
  return path;
}

// The key handle of the first member of collection `attr` of `owner`.
Vek::Ptr<Vek::GenericIf const> firstKey(Vek::VekAttr attr, const Vek::GenericIf* owner) {
  Vek::CollectionIterator it = attr.genericIfIteratorConst(owner);
  EXPECT_TRUE(static_cast<bool>(it)) << attr->name() << " is empty";
  return it ? it.key() : Vek::Ptr<Vek::GenericIf const>();
}

TEST(VekKeySample, StringKeyWithDeclaredKeyAttributeIsSimpleAndPublishedByName) {
  const Sample::Types& t = Sample::types();
  const Sample::Tree tree = Sample::buildTree();
  const Vek::VekAttr interfaces = t.device->attr("interfaces");
  const auto keyGif = firstKey(interfaces, tree.device);
  ASSERT_TRUE(keyGif);
  VekKey key;
  EXPECT_EQ(key.updateTypeAndGenKey(interfaces, keyGif->type()).elem_size(), 0);
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  key.mapInsert(interfaces->keyAttrName(), keyGif->strRep(),
                stringVal(keyGif->attrValPtr<Vek::String>()->stdString()));
  gnmi::Path path = devicePath();
  key.updateAndStorePrefix(path, false, interfaces);
  EXPECT_EQ(Ostrel::pathToStr(path), "/devices/dev1/interfaces[name=eth0]");
  gnmi::Notification notification;
  key.copyScalars(notification);
  ASSERT_EQ(notification.update_size(), 1);
  EXPECT_EQ(Ostrel::pathToStr(notification.update(0).path()),
            "/devices/dev1/interfaces[name=eth0]/name");
  EXPECT_EQ(notification.update(0).val().string_val(), "eth0");
}

TEST(VekKeySample, IntegerKeyOfScalarCollectionPublishesValueLeaf) {
  const Sample::Types& t = Sample::types();
  const Sample::Tree tree = Sample::buildTree();
  const Vek::VekAttr vlanNames = t.device->attr("vlanNames");
  const auto keyGif = firstKey(vlanNames, tree.device);
  ASSERT_TRUE(keyGif);
  VekKey key;
  EXPECT_EQ(key.updateTypeAndGenKey(vlanNames, keyGif->type()).elem_size(), 0);
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  key.mapInsert("vlanNames", keyGif->strRep(), uintVal(*keyGif->attrValPtr<unsigned short>()));
  gnmi::Path path = devicePath();
  key.updateAndStorePrefix(path, true, vlanNames);
  EXPECT_EQ(Ostrel::pathToStr(path), "/devices/dev1/vlanNames[vlanNames=10]/vlanNamesValue");
  EXPECT_EQ(Ostrel::pathToStr(key.prefix()), "/devices/dev1/vlanNames[vlanNames=10]");
  gnmi::Notification notification;
  key.copyScalars(notification);
  ASSERT_EQ(notification.update_size(), 1);
  EXPECT_EQ(notification.update(0).val().uint_val(), 10u);
}

TEST(VekKeySample, ArrayIndexIsASimpleIntegerKey) {
  const Sample::Types& t = Sample::types();
  const Sample::Tree tree = Sample::buildTree();
  const Vek::VekAttr vlans = t.interface->attr("vlans");
  const auto keyGif = firstKey(vlans, tree.eth0);
  ASSERT_TRUE(keyGif);
  EXPECT_EQ(keyGif->strRep(), "0");
  VekKey key;
  EXPECT_EQ(key.updateTypeAndGenKey(vlans, keyGif->type()).elem_size(), 0);
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
}

TEST(VekKeySample, ValueTypeKeyGetsGeneratedElementAndKeyName) {
  const Sample::Types& t = Sample::types();
  const Sample::Tree tree = Sample::buildTree();
  const Vek::VekAttr addresses = t.interface->attr("addresses");
  const auto keyGif = firstKey(addresses, tree.eth0);
  ASSERT_TRUE(keyGif);
  ASSERT_TRUE(keyGif->type()->hasGnmiStrRep());
  VekKey key;
  const gnmi::Path generated = key.updateTypeAndGenKey(addresses, keyGif->type());
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
  EXPECT_EQ(Ostrel::pathToStr(generated), "/addressesKey");
  key.mapInsert("addressesKey", keyGif->gnmiStrRep(), stringVal(keyGif->gnmiStrRep()));
  EXPECT_EQ(Ostrel::pathToStr(key.gnmiKeyName(generated)), "/addressesKey__addressesKey__10.0.0.1");
  gnmi::Path path = Ostrel::strToPath("/devices/dev1/interfaces[name=eth0]");
  key.updateAndStorePrefix(path, false, addresses);
  EXPECT_EQ(Ostrel::pathToStr(path),
            "/devices/dev1/interfaces[name=eth0]/addresses[addressesKey=10.0.0.1]");
}

TEST(VekKeySample, PointerKeyRecordsTargetPath) {
  const Sample::Types& t = Sample::types();
  const Sample::Tree tree = Sample::buildTree();
  const Vek::VekAttr linkCosts = t.device->attr("linkCosts");
  const auto keyGif = firstKey(linkCosts, tree.device);
  ASSERT_TRUE(keyGif);
  ASSERT_TRUE(keyGif->type()->isEntity());
  // The pointer's path text, from the entity reference's own text form.
  const std::string target = "/" + Ostrel::extractGifPath(keyGif->strRep());
  EXPECT_EQ(target, "/devices/dev1/eth0");
  VekKey key;
  const gnmi::Path generated = key.updateTypeAndGenKeyForPtr(linkCosts, keyGif->type(), target);
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  EXPECT_EQ(generated.elem_size(), 0);
  gnmi::Path path = devicePath();
  key.updateAndStorePrefix(path, true, linkCosts);
  EXPECT_EQ(Ostrel::pathToStr(path),
            "/devices/dev1/linkCosts[linkCostsKey=/devices/dev1/eth0]/linkCostsValue");
  ASSERT_EQ(path.elem_size(), 4);
  EXPECT_EQ(path.elem(2).key().at("linkCostsKey"), "/devices/dev1/eth0");
}

}  // namespace
