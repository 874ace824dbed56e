// Value extraction: how the walker turns one runtime value into a
// gnmi::TypedValue, as an update or as a part of a collection key, and how it
// fills the key of a collection member.
#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/GifNotifiee.h>
#include <Ostrel/Path.h>
#include <Ostrel/VekKey.h>
#include <Ostrel/VekTypeWalker.h>
#include <Vek/Vek.h>

#include <google/protobuf/util/message_differencer.h>

#include "FatalCatcher.h"
#include "SampleModel.h"
#include "WalkSupport.h"
#include "internal/UpdatePaths.h"
#include "internal/WalkPlan.h"
#include "internal/WalkerSupport.h"

namespace {

using Ostrel::FullVekTypeWalker;
using Ostrel::strToPath;
using Ostrel::VekKey;
namespace Sample = OstrelTest::Sample;

// Types this file needs beyond the sample: an array of values (which cannot
// be a leaf list), an array of strings, and collections keyed by a float and
// by a string with a declared key attribute.
struct ExtraTypes {
  Vek::VekType holder;  // entity: counterArray, labels, byRatio
  static const ExtraTypes& get() {
    static const ExtraTypes types;
    return types;
  }

 private:
  ExtraTypes() {
    Vek::Module& m = Vek::Module::moduleNew("ValueExtraction");
    holder = m.entityType("Holder")
                 .array("counterArray", Sample::types().counters)
                 .array("labels", Vek::builtinType<Vek::String>())
                 .collection("byRatio", Vek::builtinType<float>(), Vek::builtinType<unsigned>())
                 .done();
  }
};

Vek::Ptr<Vek::GenericIf const> valueOf(const Vek::Ptr<Vek::Entity>& entity, const char* attrName) {
  return entity->type()->attr(attrName).genericIfGet(entity);
}

// The one update made by extracting `value` of `type` at `path` with a fresh
// key (not collecting).
gnmi::Update extractedUpdate(const Vek::Ptr<Vek::GenericIf const>& value, const Vek::VekType& type,
                             const gnmi::Path& path) {
  gnmi::Notification notification;
  VekKey key;
  FullVekTypeWalker::extractScalar(&notification, value, type, path, key);
  EXPECT_EQ(notification.update_size(), 1);
  return notification.update_size() == 1 ? notification.update(0) : gnmi::Update();
}

// The value of the scalar attribute `attrName` of `entity`, extracted.
gnmi::TypedValue extracted(const Vek::Ptr<Vek::Entity>& entity, const char* attrName) {
  const Vek::Ptr<Vek::GenericIf const> value = valueOf(entity, attrName);
  return extractedUpdate(value, value->type(), strToPath(std::string("/") + attrName)).val();
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
float floatVal(const gnmi::TypedValue& value) { return value.float_val(); }
#pragma GCC diagnostic pop

std::string bytesOf(std::initializer_list<unsigned> bytes) {
  std::string out;
  for (const unsigned b : bytes) out.push_back(static_cast<char>(b));
  return out;
}

// A key that collects, as the walker makes it while extracting a member's key.
VekKey collectingKey(bool escapes = true) {
  VekKey key;
  key.escapesTextIs(escapes);
  key.collectingIs(true);
  return key;
}

std::string keyText(const VekKey& key, const std::string& name) {
  const auto it = key.keyMap().find(name);
  return it == key.keyMap().end() ? std::string("<absent>") : it->second;
}

// ---------------------------------------------------------------------------
// extractBuiltin

TEST(ExtractBuiltin, UnsignedIntegersGoToUintValWidened) {
  const Sample::Tree tree = Sample::buildTree();
  const std::vector<std::pair<const char*, uint64_t>> expected = {
      {"u8", 200}, {"u16", 65000}, {"u32", 4000000000u}, {"u64", 18000000000000000000ull}};
  for (const auto& [name, value] : expected) {
    const gnmi::TypedValue v = extracted(tree.scalars, name);
    EXPECT_EQ(v.value_case(), gnmi::TypedValue::kUintVal) << name;
    EXPECT_EQ(v.uint_val(), value) << name;
  }
}

TEST(ExtractBuiltin, SignedIntegersGoToIntValSignExtended) {
  const Sample::Tree tree = Sample::buildTree();
  const std::vector<std::pair<const char*, int64_t>> expected = {
      {"i8", -7}, {"i16", -1234}, {"i32", -100000}, {"i64", -9000000000000000000ll}};
  for (const auto& [name, value] : expected) {
    const gnmi::TypedValue v = extracted(tree.scalars, name);
    EXPECT_EQ(v.value_case(), gnmi::TypedValue::kIntVal) << name;
    EXPECT_EQ(v.int_val(), value) << name;
  }
}

TEST(ExtractBuiltin, BoolGoesToBoolVal) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::TypedValue v = extracted(tree.scalars, "flag");
  EXPECT_EQ(v.value_case(), gnmi::TypedValue::kBoolVal);
  EXPECT_TRUE(v.bool_val());
}

TEST(ExtractBuiltin, CharGoesToUintValAsItsByte) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::TypedValue v = extracted(tree.scalars, "letter");
  EXPECT_EQ(v.value_case(), gnmi::TypedValue::kUintVal);
  EXPECT_EQ(v.uint_val(), 65u);
}

TEST(ExtractBuiltin, CharAboveSevenBitsIsZeroExtended) {
  const gnmi::TypedValue v = extractedUpdate(Vek::genericIfOf('\xE9'), Vek::builtinType<char>(),
                                             strToPath("/letter"))
                                 .val();
  EXPECT_EQ(v.uint_val(), 0xE9u);
}

TEST(ExtractBuiltin, FloatGoesToFloatVal) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::TypedValue v = extracted(tree.scalars, "ratio");
  EXPECT_EQ(v.value_case(), gnmi::TypedValue::kFloatVal);
  EXPECT_EQ(floatVal(v), 0.5f);
}

TEST(ExtractBuiltin, DoubleGoesToBytesValAsItsEightBigEndianBytes) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::TypedValue one = extracted(tree.scalars, "reading");
  EXPECT_EQ(one.value_case(), gnmi::TypedValue::kBytesVal);
  EXPECT_EQ(one.bytes_val(), bytesOf({0x3F, 0xF0, 0, 0, 0, 0, 0, 0}));
  const gnmi::TypedValue negative =
      extractedUpdate(Vek::genericIfOf(-2.5), Vek::builtinType<double>(), strToPath("/d")).val();
  EXPECT_EQ(negative.bytes_val(), bytesOf({0xC0, 0x04, 0, 0, 0, 0, 0, 0}));
}

TEST(ExtractBuiltin, StringGoesToStringValUnchanged) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::TypedValue v = extracted(tree.scalars, "label");
  EXPECT_EQ(v.value_case(), gnmi::TypedValue::kStringVal);
  EXPECT_EQ(v.string_val(), "a__b");
}

TEST(ExtractBuiltin, BytesGoToBytesValRaw) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::TypedValue v = extracted(tree.scalars, "blob");
  EXPECT_EQ(v.value_case(), gnmi::TypedValue::kBytesVal);
  EXPECT_EQ(v.bytes_val(), bytesOf({0x01, 0x02, 0xFF}));
}

TEST(ExtractBuiltin, SecondsGoToIntValAsNanoseconds) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::TypedValue v = extracted(tree.scalars, "elapsed");
  EXPECT_EQ(v.value_case(), gnmi::TypedValue::kIntVal);
  EXPECT_EQ(v.int_val(), 1500000000);
  Vek::Ptr<Vek::Entity> chassis = tree.device->entity("chassis");
  EXPECT_EQ(extracted(chassis, "uptime").int_val(), 3600500000000);
  const gnmi::TypedValue negative = extractedUpdate(Vek::genericIfOf(Vek::Seconds(-0.25)),
                                                    Vek::builtinType<Vek::Seconds>(), strToPath("/s"))
                                        .val();
  EXPECT_EQ(negative.int_val(), -250000000);
}

TEST(ExtractBuiltin, SecondsGoOutAsTheNearestWholeNanosecond) {
  const std::vector<std::pair<double, int64_t>> expected = {
      {1.001, 1001000000}, {1.003, 1003000000}, {-1.001, -1001000000}};
  for (const auto& [seconds, nanoseconds] : expected) {
    const gnmi::TypedValue v = extractedUpdate(Vek::genericIfOf(Vek::Seconds(seconds)),
                                               Vek::builtinType<Vek::Seconds>(), strToPath("/s"))
                                   .val();
    EXPECT_EQ(v.int_val(), nanoseconds) << seconds;
  }
}

TEST(ExtractBuiltin, SecondsBeyondTheNanosecondRangeSaturate) {
  const std::vector<std::pair<double, int64_t>> expected = {
      {1e10, INT64_MAX}, {-1e10, INT64_MIN}, {HUGE_VAL, INT64_MAX}, {-HUGE_VAL, INT64_MIN}};
  for (const auto& [seconds, nanoseconds] : expected) {
    const gnmi::TypedValue v = extractedUpdate(Vek::genericIfOf(Vek::Seconds(seconds)),
                                               Vek::builtinType<Vek::Seconds>(), strToPath("/s"))
                                   .val();
    EXPECT_EQ(v.int_val(), nanoseconds) << seconds;
  }
}

TEST(ExtractBuiltin, UpdateIsAppendedAtACopyOfTheLeafPath) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key;
  const gnmi::Path path = strToPath("/scalars/u8");
  const Vek::Ptr<Vek::GenericIf const> u8 = valueOf(tree.scalars, "u8");
  const Vek::Ptr<Vek::GenericIf const> u16 = valueOf(tree.scalars, "u16");
  FullVekTypeWalker::extractBuiltin(&notification, u8, u8->type(), path, key);
  FullVekTypeWalker::extractBuiltin(&notification, u16, u16->type(), strToPath("/scalars/u16"), key);
  ASSERT_EQ(notification.update_size(), 2);
  EXPECT_EQ(notification.update(0).path(), path);
  EXPECT_EQ(notification.update(0).val().uint_val(), 200u);
  EXPECT_EQ(notification.update(1).path(), strToPath("/scalars/u16"));
  EXPECT_EQ(notification.update(1).val().uint_val(), 65000u);
}

TEST(ExtractBuiltin, WithATargetFillsItAndAddsNoUpdate) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  gnmi::TypedValue target;
  VekKey key;
  const Vek::Ptr<Vek::GenericIf const> i16 = valueOf(tree.scalars, "i16");
  FullVekTypeWalker::extractBuiltin(&notification, i16, i16->type(), strToPath("/i16"), key, &target);
  EXPECT_EQ(notification.update_size(), 0);
  EXPECT_EQ(target.int_val(), -1234);
}

TEST(ExtractBuiltin, KeyCollectingModeAddsNoUpdateForAnyCode) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::VekType scalars = Sample::types().scalars;
  gnmi::Notification notification;
  VekKey key = collectingKey();
  size_t builtins = 0;
  for (Vek::VekTypeBase::AttributeQIterator it(scalars); it; ++it) {
    const Vek::VekAttr attr = *it;
    if (!attr->type()->isBuiltin() || attr->name() == "name") continue;
    ++builtins;
    FullVekTypeWalker::extractBuiltin(&notification, attr.genericIfGet(tree.scalars), attr->type(),
                                      strToPath("/" + attr->name()), key);
  }
  EXPECT_EQ(builtins, 15u);
  EXPECT_EQ(notification.update_size(), 0);
  EXPECT_EQ(key.keyMap().size(), 15u);
  EXPECT_EQ(key.scalars().size(), 15u);
}

TEST(ExtractBuiltin, KeyCollectingModeRecordsKeyTextOfThePathTheTextAndTheTypedValue) {
  const Sample::Tree tree = Sample::buildTree();
  VekKey key = collectingKey();
  const Vek::Ptr<Vek::GenericIf const> i8 = valueOf(tree.scalars, "i8");
  const Vek::Ptr<Vek::GenericIf const> letter = valueOf(tree.scalars, "letter");
  FullVekTypeWalker::extractBuiltin(nullptr, i8, i8->type(), strToPath("/part/i8"), key);
  FullVekTypeWalker::extractBuiltin(nullptr, letter, letter->type(), strToPath("/letter"), key);
  EXPECT_EQ(keyText(key, "part__i8"), "-7");
  EXPECT_EQ(keyText(key, "letter"), "A");
  ASSERT_EQ(key.scalars().size(), 2u);
  EXPECT_EQ(key.scalars()[0].first, "part__i8");
  EXPECT_EQ(key.scalars()[0].second.int_val(), -7);
  EXPECT_EQ(key.scalars()[1].first, "letter");
  EXPECT_EQ(key.scalars()[1].second.uint_val(), 65u);
}

TEST(ExtractBuiltin, FloatKeyTextIsBase64OfItsFourBigEndianBytes) {
  const std::vector<std::pair<float, std::string>> expected = {
      {0.5f, "PwAAAA=="}, {1.0f, "P4AAAA=="}, {-2.5f, "wCAAAA=="}};
  for (const auto& [value, text] : expected) {
    VekKey key = collectingKey();
    FullVekTypeWalker::extractBuiltin(nullptr, Vek::genericIfOf(value), Vek::builtinType<float>(),
                                      strToPath("/ratio"), key);
    EXPECT_EQ(keyText(key, "ratio"), text) << value;
    ASSERT_EQ(key.scalars().size(), 1u);
    EXPECT_EQ(floatVal(key.scalars()[0].second), value);
  }
}

// The escaped text of `text` as a collecting key that asks for escaping
// records it, and the typed value that goes with it.
std::pair<std::string, std::string> escapedInKey(const char* text, bool escapes = true) {
  VekKey key = collectingKey(escapes);
  FullVekTypeWalker::extractBuiltin(nullptr, Vek::genericIfOf(text), Vek::builtinType<Vek::String>(),
                                    strToPath("/s"), key);
  EXPECT_EQ(key.scalars().size(), 1u);
  return {keyText(key, "s"), key.scalars().empty() ? "" : key.scalars()[0].second.string_val()};
}

TEST(ExtractBuiltin, StringKeyThatAsksForEscapingEscapesDoubleUnderscores) {
  const auto [text, value] = escapedInKey("a__b");
  EXPECT_EQ(text, "a\\__b");
  EXPECT_EQ(value, "a\\__b");
}

TEST(ExtractBuiltin, EscapingReplacesEveryDoubleUnderscoreFromTheStart) {
  EXPECT_EQ(escapedInKey("x__y__z").first, "x\\__y\\__z");
  EXPECT_EQ(escapedInKey("__lead").first, "\\__lead");
  EXPECT_EQ(escapedInKey("___").first, "\\___");
  EXPECT_EQ(escapedInKey("____").first, "\\__\\__");
}

TEST(ExtractBuiltin, StringWithoutDoubleUnderscoreIsNotEscaped) {
  EXPECT_EQ(escapedInKey("a_b_c").first, "a_b_c");
  EXPECT_EQ(escapedInKey("").first, "");
}

TEST(ExtractBuiltin, StringKeyThatDoesNotAskForEscapingKeepsTheText) {
  const auto [text, value] = escapedInKey("a__b", false);
  EXPECT_EQ(text, "a__b");
  EXPECT_EQ(value, "a__b");
}

TEST(ExtractBuiltin, PlainUpdateIsNotEscapedEvenWithAKeyThatAsksForIt) {
  gnmi::Notification notification;
  VekKey key;
  ASSERT_TRUE(key.escapesText());
  FullVekTypeWalker::extractBuiltin(&notification, Vek::genericIfOf("a__b"),
                                    Vek::builtinType<Vek::String>(), strToPath("/s"), key);
  ASSERT_EQ(notification.update_size(), 1);
  EXPECT_EQ(notification.update(0).val().string_val(), "a__b");
}

TEST(ExtractBuiltin, NonBuiltinTypeIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key;
  EXPECT_FATAL(FullVekTypeWalker::extractBuiltin(&notification, valueOf(tree.eth0, "counters"),
                                                 Sample::types().counters, strToPath("/c"), key),
               "Unknown builtin type: Sample::Counters");
  EXPECT_EQ(notification.update_size(), 0);
}

// ---------------------------------------------------------------------------
// extractEnum

TEST(ExtractEnum, EachIntegerUnderlyingTypeGivesTheEnumeratorName) {
  const Sample::Tree tree = Sample::buildTree();
  const std::vector<std::pair<const char*, const char*>> expected = {
      {"eU8", "high"}, {"eI8", "neg"},   {"eU16", "large"},
      {"eI16", "neg"}, {"eU32", "large"}, {"eI32", "neg"}};
  for (const auto& [name, enumerator] : expected) {
    const Vek::Ptr<Vek::GenericIf const> value = valueOf(tree.scalars, name);
    gnmi::Notification notification;
    VekKey key;
    FullVekTypeWalker::extractEnum(&notification, value, value->type(), strToPath("/e"), key);
    ASSERT_EQ(notification.update_size(), 1) << name;
    EXPECT_EQ(notification.update(0).val().value_case(), gnmi::TypedValue::kStringVal) << name;
    EXPECT_EQ(notification.update(0).val().string_val(), enumerator) << name;
  }
}

TEST(ExtractEnum, ValueWithoutAnEnumeratorIsPublishedAsItsNumber) {
  const Sample::Types& t = Sample::types();
  const signed char i8 = -5;
  const unsigned u32 = 1;
  const int i32 = 123;
  const std::vector<std::tuple<Vek::VekType, const void*, const char*>> cases = {
      {t.enumI8, &i8, "-5"}, {t.enumU32, &u32, "1"}, {t.enumI32, &i32, "123"}};
  for (const auto& [type, raw, text] : cases) {
    gnmi::Notification notification;
    VekKey key;
    FullVekTypeWalker::extractEnum(&notification, type.genericIf(raw, true), type, strToPath("/e"), key);
    ASSERT_EQ(notification.update_size(), 1) << text;
    EXPECT_EQ(notification.update(0).val().string_val(), text);
  }
}

TEST(ExtractEnum, InKeyCollectingModeTheNameIsTheKeyText) {
  const Sample::Types& t = Sample::types();
  gnmi::Notification notification;
  VekKey key = collectingKey();
  FullVekTypeWalker::extractEnum(&notification, t.operStatus.genericIf("testing", true), t.operStatus,
                                 strToPath("/status"), key);
  EXPECT_EQ(notification.update_size(), 0);
  EXPECT_EQ(keyText(key, "status"), "testing");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].second.string_val(), "testing");
}

TEST(ExtractEnum, TypeThatIsNotAnEnumerationIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key;
  EXPECT_FATAL(FullVekTypeWalker::extractEnum(&notification, valueOf(tree.eth0, "counters"),
                                              Sample::types().counters, strToPath("/c"), key),
               "Unknown underlying enum type:Sample::Counters");
  EXPECT_FATAL(FullVekTypeWalker::extractEnum(&notification, valueOf(tree.eth0, "mtu"),
                                              Vek::builtinType<unsigned>(), strToPath("/m"), key),
               "Unknown underlying enum type:unsigned int");
  EXPECT_EQ(notification.update_size(), 0);
}

// ---------------------------------------------------------------------------
// extractScalar

TEST(ExtractScalar, OwnTextTypeGoesToStringValAsItsText) {
  const gnmi::Update update =
      extractedUpdate(Sample::ipv4("10.0.0.1"), Sample::types().ipv4, strToPath("/address"));
  EXPECT_EQ(update.path(), strToPath("/address"));
  EXPECT_EQ(update.val().value_case(), gnmi::TypedValue::kStringVal);
  EXPECT_EQ(update.val().string_val(), "10.0.0.1");
}

TEST(ExtractScalar, OwnTextTypeInKeyCollectingModeRecordsItsText) {
  gnmi::Notification notification;
  VekKey key = collectingKey();
  FullVekTypeWalker::extractScalar(&notification, Sample::ipv4("192.168.1.1"), Sample::types().ipv4,
                                   strToPath("/addr"), key);
  EXPECT_EQ(notification.update_size(), 0);
  EXPECT_EQ(keyText(key, "addr"), "192.168.1.1");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].second.string_val(), "192.168.1.1");
}

TEST(ExtractScalar, BuiltinsAndEnumerationsAreDispatchedByType) {
  const Sample::Tree tree = Sample::buildTree();
  EXPECT_EQ(extracted(tree.eth0, "mtu").uint_val(), 9000u);
  EXPECT_EQ(extracted(tree.eth0, "status").string_val(), "up");
  EXPECT_EQ(extracted(tree.eth0, "description").string_val(), "uplink");
}

TEST(ExtractScalar, OtherValuesAreWalkedAttributeByAttribute) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key;
  FullVekTypeWalker::extractScalar(&notification, valueOf(tree.eth0, "counters"),
                                   Sample::types().counters, strToPath("/counters"), key);
  ASSERT_EQ(notification.update_size(), 3);
  EXPECT_EQ(notification.update(0).path(), strToPath("/counters/inPkts"));
}

// ---------------------------------------------------------------------------
// extractValAttr

std::vector<std::string> leavesOf(const gnmi::Notification& notification) {
  std::vector<std::string> out;
  for (const auto& update : notification.update()) {
    out.push_back(Ostrel::pathToStr(update.path()) + " = " + OstrelTest::valueText(update.val()));
  }
  return out;
}

TEST(ExtractValAttr, EachAttributeBecomesALeafBelowThePathInDeclarationOrder) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key;
  FullVekTypeWalker::extractValAttr(&notification, valueOf(tree.eth0, "counters"),
                                    Sample::types().counters, strToPath("/counters"), key);
  EXPECT_EQ(leavesOf(notification),
            (std::vector<std::string>{"/counters/inPkts = uint_val: 100",
                                      "/counters/outPkts = uint_val: 200",
                                      "/counters/inErrors = uint_val: 1"}));
}

TEST(ExtractValAttr, NestedValuesAndOwnTextAttributesAreLeavesToo) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key;
  FullVekTypeWalker::extractValAttr(&notification, valueOf(tree.eth0, "stats"), Sample::types().stats,
                                    strToPath("/stats"), key);
  EXPECT_EQ(leavesOf(notification),
            (std::vector<std::string>{"/stats/pkts/inPkts = uint_val: 5",
                                      "/stats/pkts/outPkts = uint_val: 6",
                                      "/stats/pkts/inErrors = uint_val: 0",
                                      "/stats/drops = uint_val: 2"}));
  const Sample::Types& t = Sample::types();
  const Vek::Ptr<Vek::GenericIf const> route =
      t.device->attr("routes").genericIfGet(tree.device, Sample::ipv4("10.1.0.0"));
  gnmi::Notification routeNotification;
  FullVekTypeWalker::extractValAttr(&routeNotification, route, t.route, strToPath("/r"), key);
  EXPECT_EQ(leavesOf(routeNotification),
            (std::vector<std::string>{"/r/destination = string_val: \"10.1.0.0\"",
                                      "/r/metric = uint_val: 10"}));
}

TEST(ExtractValAttr, InKeyCollectingModeRecordsEachAttributeAndAddsNoUpdate) {
  gnmi::Notification notification;
  VekKey key = collectingKey();
  FullVekTypeWalker::extractValAttr(&notification, Sample::neighborKey("eth0", 1),
                                    Sample::types().neighborKey, gnmi::Path(), key);
  EXPECT_EQ(notification.update_size(), 0);
  EXPECT_EQ(keyText(key, "ifName"), "eth0");
  EXPECT_EQ(keyText(key, "index"), "1");
  ASSERT_EQ(key.scalars().size(), 2u);
  EXPECT_EQ(key.scalars()[1].second.uint_val(), 1u);
}

// ---------------------------------------------------------------------------
// extractScalarArray

// The one leaf list extracted from the array `attrName` of `entity`.
gnmi::Update leafList(const Vek::Ptr<Vek::Entity>& entity, const char* attrName) {
  const Vek::VekAttr attr = entity->type()->attr(attrName);
  gnmi::Notification notification;
  FullVekTypeWalker::extractScalarArray(&notification, entity, attr, attr->type(),
                                        strToPath(std::string("/") + attrName));
  EXPECT_EQ(notification.update_size(), 1);
  return notification.update_size() == 1 ? notification.update(0) : gnmi::Update();
}

TEST(ExtractScalarArray, BuiltinElementsBecomeOneLeafListAtThePath) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::Update update = leafList(tree.eth0, "vlans");
  EXPECT_EQ(update.path(), strToPath("/vlans"));
  ASSERT_TRUE(update.val().has_leaflist_val());
  ASSERT_EQ(update.val().leaflist_val().element_size(), 3);
  EXPECT_EQ(update.val().leaflist_val().element(0).uint_val(), 10u);
  EXPECT_EQ(OstrelTest::valueText(update.val()), "[uint_val: 10, uint_val: 20, uint_val: 30]");
}

TEST(ExtractScalarArray, EnumerationElementsAreTheirEnumeratorNames) {
  const Sample::Tree tree = Sample::buildTree();
  EXPECT_EQ(OstrelTest::valueText(leafList(tree.eth0, "statusHistory").val()),
            "[string_val: \"down\", string_val: \"up\"]");
}

TEST(ExtractScalarArray, OwnTextElementsAreTheirText) {
  const Sample::Tree tree = Sample::buildTree();
  EXPECT_EQ(OstrelTest::valueText(leafList(tree.device, "dnsServers").val()),
            "[string_val: \"10.0.0.53\", string_val: \"10.0.0.54\"]");
}

TEST(ExtractScalarArray, EmptyArrayGivesAnEmptyLeafList) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::Update update = leafList(tree.eth1, "vlans");
  EXPECT_EQ(update.path(), strToPath("/vlans"));
  EXPECT_TRUE(update.val().has_leaflist_val());
  EXPECT_EQ(update.val().leaflist_val().element_size(), 0);
}

TEST(ExtractScalarArray, StringElementsAreNotEscaped) {
  Vek::Ptr<Vek::Entity> holder = Vek::Entity::rootNew(ExtraTypes::get().holder, "h");
  const Vek::VekAttr labels = holder->type()->attr("labels");
  labels.genericIfSet(holder, Vek::genericIfOf(0u), Vek::genericIfOf("a__b"));
  EXPECT_EQ(OstrelTest::valueText(leafList(holder, "labels").val()), "[string_val: \"a__b\"]");
}

TEST(ExtractScalarArray, ValueElementTypeIsFatal) {
  Vek::Ptr<Vek::Entity> holder = Vek::Entity::rootNew(ExtraTypes::get().holder, "h");
  const Vek::VekAttr array = holder->type()->attr("counterArray");
  gnmi::Notification notification;
  EXPECT_FATAL(FullVekTypeWalker::extractScalarArray(&notification, holder, array, array->type(),
                                                     strToPath("/counterArray")),
               "Only builtins, enums, and split inheritance types are supported");
  EXPECT_EQ(notification.update_size(), 0);
}

// ---------------------------------------------------------------------------
// extractGnmiJsonStrepAttr

TEST(ExtractGnmiJsonStrepAttr, TextGoesToJsonValAsIs) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key;
  FullVekTypeWalker::extractGnmiJsonStrepAttr(&notification, tree.eth0,
                                              Sample::types().interface->attr("config"),
                                              strToPath("/config"), key);
  ASSERT_EQ(notification.update_size(), 1);
  EXPECT_EQ(notification.update(0).path(), strToPath("/config"));
  EXPECT_EQ(notification.update(0).val().value_case(), gnmi::TypedValue::kJsonVal);
  EXPECT_EQ(notification.update(0).val().json_val(), R"({"speed":"10G"})");
}

TEST(ExtractGnmiJsonStrepAttr, InKeyCollectingModeRecordsTheText) {
  const Sample::Tree tree = Sample::buildTree();
  gnmi::Notification notification;
  VekKey key = collectingKey();
  FullVekTypeWalker::extractGnmiJsonStrepAttr(&notification, tree.eth0,
                                              Sample::types().interface->attr("config"),
                                              strToPath("/config"), key);
  EXPECT_EQ(notification.update_size(), 0);
  EXPECT_EQ(keyText(key, "config"), R"({"speed":"10G"})");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].second.json_val(), R"({"speed":"10G"})");
}

// ---------------------------------------------------------------------------
// extractKeyInfo

class ExtractKeyInfo : public OstrelTest::WalkTest {
 protected:
  // The key of the member at `keyGif` of the collection `attrName` of the
  // sample device.
  VekKey keyOf(const char* attrName, const Vek::Ptr<Vek::GenericIf const>& keyGif) {
    VekKey key;
    FullVekTypeWalker::extractKeyInfo(keyGif, Sample::types().device->attr(attrName), key, router_);
    return key;
  }
};

TEST_F(ExtractKeyInfo, StringKeyWithADeclaredKeyAttributeIsNamedAfterIt) {
  const VekKey key = keyOf("interfaces", Sample::name("eth0"));
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  EXPECT_EQ(static_cast<std::string>(key), "[name=eth0]");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].first, "name");
  EXPECT_EQ(key.scalars()[0].second.string_val(), "eth0");
}

TEST_F(ExtractKeyInfo, StringKeyTextIsEscaped) {
  const VekKey key = keyOf("interfaces", Sample::name("a__b"));
  EXPECT_EQ(static_cast<std::string>(key), "[name=a\\__b]");
}

TEST_F(ExtractKeyInfo, IntegerKeyIsNamedAfterTheCollection) {
  const VekKey key = keyOf("vlanNames", Vek::genericIfOf(static_cast<unsigned short>(10)));
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  EXPECT_EQ(static_cast<std::string>(key), "[vlanNames=10]");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].second.uint_val(), 10u);
}

TEST_F(ExtractKeyInfo, OwnTextValueKeyIsNamedByTheGeneratedElement) {
  VekKey key;
  FullVekTypeWalker::extractKeyInfo(Sample::ipv4("10.0.0.1"),
                                    Sample::types().interface->attr("addresses"), key, router_);
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
  EXPECT_EQ(static_cast<std::string>(key), "[addressesKey=10.0.0.1]");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].second.string_val(), "10.0.0.1");
}

TEST_F(ExtractKeyInfo, OwnTextValueKeyWithADeclaredKeyAttributeIsNamedAfterIt) {
  const VekKey key = keyOf("routes", Sample::ipv4("10.1.0.0"));
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
  EXPECT_EQ(static_cast<std::string>(key), "[destination=10.1.0.0]");
}

TEST_F(ExtractKeyInfo, WrapperKeyIsNamedByTheValueItWraps) {
  const VekKey key = keyOf("vlanRoles", Sample::vlanId(10));
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
  EXPECT_EQ(static_cast<std::string>(key), "[vlanRolesKey=10]");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].second.value_case(), gnmi::TypedValue::kUintVal);
  EXPECT_EQ(key.scalars()[0].second.uint_val(), 10u);
}

TEST_F(ExtractKeyInfo, AliasOfAWrapperKeyIsNamedByTheValueItWraps) {
  const VekKey key = keyOf("vlanPriorities", Sample::types().vlanTag.genericIf("20", true));
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
  EXPECT_EQ(static_cast<std::string>(key), "[vlanPrioritiesKey=20]");
  ASSERT_EQ(key.scalars().size(), 1u);
  EXPECT_EQ(key.scalars()[0].second.uint_val(), 20u);
}

TEST_F(ExtractKeyInfo, CompositeKeyHasOnePartPerAttribute) {
  const VekKey key = keyOf("neighbors", Sample::neighborKey("eth0", 1));
  EXPECT_EQ(key.keyKind(), VekKey::KIND_GENERATED);
  EXPECT_EQ(static_cast<std::string>(key), "[ifName=eth0][index=1]");
  ASSERT_EQ(key.scalars().size(), 2u);
  EXPECT_EQ(key.scalars()[0].first, "ifName");
  EXPECT_EQ(key.scalars()[0].second.string_val(), "eth0");
  EXPECT_EQ(key.scalars()[1].first, "index");
  EXPECT_EQ(key.scalars()[1].second.uint_val(), 1u);
}

TEST_F(ExtractKeyInfo, CompositeKeyStringPartsAreEscaped) {
  const VekKey key = keyOf("neighbors", Sample::neighborKey("a__b", 2));
  EXPECT_EQ(static_cast<std::string>(key), "[ifName=a\\__b][index=2]");
}

TEST_F(ExtractKeyInfo, FloatKeyTextIsBase64) {
  VekKey key;
  FullVekTypeWalker::extractKeyInfo(Vek::genericIfOf(0.5f), ExtraTypes::get().holder->attr("byRatio"),
                                    key, router_);
  EXPECT_EQ(static_cast<std::string>(key), "[byRatio=PwAAAA==]");
}

TEST_F(ExtractKeyInfo, EntityKeyIsNamedByThePublishedPathWithoutASync) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::Path eth0Path = strToPath("/devices/dev1/interfaces[name=eth0]");
  new Ostrel::GifGnmiNotifiee(tree.eth0, eth0Path, router_, false, false);
  const VekKey key = keyOf("linkCosts", tree.eth0);
  EXPECT_EQ(key.keyKind(), VekKey::KIND_SIMPLE);
  EXPECT_EQ(static_cast<std::string>(key), "[linkCostsKey=/devices/dev1/interfaces[name=eth0]]");
  EXPECT_TRUE(key.scalars().empty());
  EXPECT_EQ(router_.pushes, 0u);
  EXPECT_EQ(Ostrel::gNmiNotifieeMap.size(), 1u);
}

TEST_F(ExtractKeyInfo, EntityKeyOfAnUnpublishedEntityIsResolvedSilently) {
  const Sample::Tree tree = Sample::buildTree();
  new Ostrel::GifGnmiNotifiee(tree.device, strToPath("/devices/dev1"), router_, false, false);
  const VekKey key = keyOf("linkCosts", tree.eth1);
  EXPECT_EQ(static_cast<std::string>(key), "[linkCostsKey=/devices/dev1/interfaces[name=eth1]]");
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(ExtractKeyInfo, LeavesTheKeyNotCollecting) {
  VekKey key;
  key.collectingIs(true);
  FullVekTypeWalker::extractKeyInfo(Sample::name("eth0"), Sample::types().device->attr("interfaces"),
                                    key, router_);
  EXPECT_FALSE(key.collecting());
}

// ---------------------------------------------------------------------------
// isScalarType

TEST(IsScalarType, BuiltinsEnumerationsAndOwnTextTypesAreScalar) {
  const Sample::Types& t = Sample::types();
  EXPECT_TRUE(FullVekTypeWalker::isScalarType(Vek::builtinType<unsigned char>()));
  EXPECT_TRUE(FullVekTypeWalker::isScalarType(Vek::builtinType<Vek::String>()));
  EXPECT_TRUE(FullVekTypeWalker::isScalarType(Vek::builtinType<Vek::Seconds>()));
  EXPECT_TRUE(FullVekTypeWalker::isScalarType(t.operStatus));
  EXPECT_TRUE(FullVekTypeWalker::isScalarType(t.enumU8));
  EXPECT_TRUE(FullVekTypeWalker::isScalarType(t.ipv4));
}

TEST(IsScalarType, ValuesWrappersAndEntitiesAreNot) {
  const Sample::Types& t = Sample::types();
  EXPECT_FALSE(FullVekTypeWalker::isScalarType(t.counters));
  EXPECT_FALSE(FullVekTypeWalker::isScalarType(t.neighborKey));
  EXPECT_FALSE(FullVekTypeWalker::isScalarType(t.vlanId));
  EXPECT_FALSE(FullVekTypeWalker::isScalarType(t.vlanTag));
  EXPECT_FALSE(FullVekTypeWalker::isScalarType(t.interface));
}

// ---------------------------------------------------------------------------
// Update paths and stored scalars: what the walker writes without copying a
// whole path or reading a value handle

// A notification with one update (value still empty) at a copy of `path`, as
// a general message copy makes it.
gnmi::Notification copiedAt(const gnmi::Path& path) {
  gnmi::Notification notification;
  gnmi::Update* update = notification.add_update();
  update->mutable_path()->CopyFrom(path);
  update->mutable_val();
  return notification;
}

TEST(UpdatePaths, AnUpdatesPathIsWhatACopyOfThePathWouldBe) {
  gnmi::Path withOrigin = strToPath("/a/b");
  withOrigin.set_origin("openconfig");
  gnmi::Path withTarget = strToPath("/a");
  withTarget.set_target("dev1");
  for (const gnmi::Path& path : {strToPath("/a"), strToPath("/a/b[k=v]/c"), strToPath("/x[k1=1][k2=2]"),
                                 gnmi::Path(), withOrigin, withTarget}) {
    gnmi::Notification written;
    Ostrel::UpdatePaths::addUpdate(written, path);
    EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(written, copiedAt(path)))
        << path.ShortDebugString();
  }
}

TEST(UpdatePaths, ALeafNameIsAppendedAfterThePath) {
  gnmi::Notification written;
  const std::string leaf = "mtu";
  gnmi::TypedValue* value = Ostrel::UpdatePaths::addUpdate(written, strToPath("/a[k=v]"), &leaf);
  value->set_uint_val(7);
  ASSERT_EQ(written.update_size(), 1);
  EXPECT_TRUE(google::protobuf::util::MessageDifferencer::Equals(written.update(0).path(), strToPath("/a[k=v]/mtu")));
  EXPECT_EQ(written.update(0).val().uint_val(), 7u);
}

TEST(UpdatePaths, AppendAddsTheElementsAfterThoseThere) {
  gnmi::Path to = strToPath("/a");
  Ostrel::UpdatePaths::append(strToPath("/b[k=v]/c"), &to);
  EXPECT_EQ(to, strToPath("/a/b[k=v]/c"));
}

// Every builtin and enumeration of the sample's Scalars entity, and the
// entity's name: read in place, each is written as extracting the value read
// through a handle writes it at that path.
TEST(ExtractStoredScalar, WritesWhatExtractingTheValueReadWrites) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::Path parent = strToPath("/scalars");
  unsigned stored = 0;
  for (Vek::VekTypeBase::AttributeQIterator it(tree.scalars->type()); it; ++it) {
    const Vek::VekAttr attr = *it;
    if (!Ostrel::WalkPlan::isStoredScalar(attr)) continue;
    ++stored;
    gnmi::Notification inPlace;
    Ostrel::WalkerSupport::extractStoredScalar(&inPlace, *tree.scalars, attr, parent);
    gnmi::Path leaf = parent;
    leaf.add_elem()->set_name(attr->name());
    gnmi::Notification read;
    VekKey key;
    key.escapesTextIs(false);
    const Vek::Ptr<Vek::GenericIf const> value = attr.genericIfGet(tree.scalars);
    FullVekTypeWalker::extractScalar(&read, value, value->type(), leaf, key);
    EXPECT_EQ(inPlace.SerializeAsString(), read.SerializeAsString()) << attr->name();
  }
  // name, 15 builtins and 6 enumerations.
  EXPECT_EQ(stored, 22u);
}

}  // namespace
