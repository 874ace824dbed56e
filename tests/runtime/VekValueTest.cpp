// Value handles: construction, text forms, comparison, hashing, JSON.
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "CountingNew.h"
#include "SampleModel.h"

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif
#else
constexpr bool SANITIZED = false;
#endif

using namespace Vek;
using OstrelTest::Sample::ipv4;
using OstrelTest::Sample::types;

TEST(VekValue, BuiltinHandleExposesTypedPointer) {
  Ptr<GenericIf> v = genericIfOf(42u);
  EXPECT_EQ(v->type(), builtinType<unsigned int>());
  ASSERT_NE(v->attrValPtr<unsigned int>(), nullptr);
  EXPECT_EQ(v->as<unsigned int>(), 42u);
  EXPECT_EQ(v->attrValPtr<int>(), nullptr);
  EXPECT_EQ(genericIfOf(Seconds(1.5))->as<Seconds>(), 1.5);
  EXPECT_EQ(genericIfOf(Seconds(1.5))->attrValPtr<double>(), nullptr);
}

TEST(VekValue, EnumerationValueReadsAsUnderlyingType) {
  Ptr<GenericIf> up = types().operStatus.genericIf("up", true);
  ASSERT_NE(up->attrValPtr<int>(), nullptr);
  EXPECT_EQ(up->as<int>(), 1);
  EXPECT_EQ(up->strRep(), "up");
}

TEST(VekValue, TextFormsOfBuiltins) {
  EXPECT_EQ(genericIfOf(static_cast<signed char>(-5))->strRep(), "-5");
  EXPECT_EQ(genericIfOf(static_cast<unsigned char>(200))->strRep(), "200");
  EXPECT_EQ(genericIfOf(18446744073709551615ull)->strRep(), "18446744073709551615");
  EXPECT_EQ(genericIfOf(-9223372036854775807ll)->strRep(), "-9223372036854775807");
  EXPECT_EQ(genericIfOf(true)->strRep(), "true");
  EXPECT_EQ(genericIfOf('A')->strRep(), "A");
  EXPECT_EQ(genericIfOf(0.25f)->strRep(), "0.25");
  EXPECT_EQ(genericIfOf(1.5)->strRep(), "1.5");
  EXPECT_EQ(genericIfOf("eth0")->strRep(), "eth0");
  EXPECT_EQ(genericIfOf(Seconds(2.5))->strRep(), "2.5");
}

TEST(VekValue, ParsesTextOfEachBuiltin) {
  EXPECT_EQ(builtinType<short>().genericIf("-123", true)->as<short>(), -123);
  EXPECT_EQ(builtinType<bool>().genericIf("false", true)->as<bool>(), false);
  EXPECT_EQ(builtinType<char>().genericIf("x", true)->as<char>(), 'x');
  EXPECT_EQ(builtinType<double>().genericIf("0.5", true)->as<double>(), 0.5);
  EXPECT_EQ(builtinType<String>().genericIf("a b", true)->as<String>().stdString(), "a b");
  EXPECT_EQ(builtinType<Bytes>().genericIf("xyz", true)->as<Bytes>().size(), 3u);
}

TEST(VekValue, UnparsableTextThrowsOrGivesNull) {
  EXPECT_FALSE(builtinType<unsigned char>().genericIf("256", false));
  EXPECT_FALSE(builtinType<int>().genericIf("12x", false));
  EXPECT_FALSE(builtinType<bool>().genericIf("yes", false));
  try {
    builtinType<unsigned char>().genericIf("256", true);
    FAIL() << "no exception";
  } catch (const ParseException& e) {
    EXPECT_STREQ(e.what(), "\"256\" is not a valid unsigned char");
  }
}

TEST(VekValue, OwnTextFormIsUsedForTextAndParsing) {
  Ptr<GenericIf> a = ipv4("10.1.2.3");
  EXPECT_EQ(a->value<unsigned>("bits"), 0x0a010203u);
  EXPECT_EQ(a->gnmiStrRep(), "10.1.2.3");
  EXPECT_EQ(a->strRep(), "10.1.2.3");
  EXPECT_FALSE(types().ipv4.genericIf("10.1.2", false));
  EXPECT_FALSE(types().ipv4.genericIf("10.1.2.256", false));
}

TEST(VekValue, ValueTypeTextListsAttributes) {
  Ptr<GenericIf> c = types().counters.genericIf(GenericIfArgs{genericIfOf(1ull), genericIfOf(2ull)});
  EXPECT_EQ(c->strRep(), "Counters(inPkts:1, outPkts:2, inErrors:0)");
}

TEST(VekValue, ConstructorArgumentsFillParametersInOrder) {
  Ptr<GenericIf> c = types().counters.genericIf(GenericIfArgs{genericIfOf(7ull)});
  EXPECT_EQ(c->value<unsigned long long>("inPkts"), 7u);
  EXPECT_EQ(c->value<unsigned long long>("outPkts"), 0u);
  EXPECT_THROW(types().counters.genericIf(GenericIfArgs{genericIfOf(7u)}), TypeMismatchException);
  EXPECT_THROW(types().counters.genericIf(
                   GenericIfArgs{genericIfOf(1ull), genericIfOf(2ull), genericIfOf(3u)}),
               TypeMismatchException);
}

TEST(VekValue, DefaultsComeFromAttributeDefinitions) {
  Ptr<GenericIf> info = types().addressInfo.genericIfDefault();
  EXPECT_EQ(info->value<unsigned char>("prefixLength"), 32);
  EXPECT_EQ(info->value<String>("origin").stdString(), "static");
}

TEST(VekValue, CopyFromRawIsIndependent) {
  Ptr<GenericIf> info = types().addressInfo.genericIfDefault();
  Ptr<GenericIf> copy = types().addressInfo.genericIf(info->voidPtr(), true);
  copy->valueIs("origin", "dhcp");
  EXPECT_EQ(info->value<String>("origin").stdString(), "static");
  Ptr<GenericIf> view = types().addressInfo.genericIf(info->voidPtr(), false);
  info->valueIs("origin", "manual");
  EXPECT_EQ(view->value<String>("origin").stdString(), "manual");
}

TEST(VekValue, BooleanOpComparesByValue) {
  Ptr<GenericIf> a = ipv4("10.0.0.1");
  Ptr<GenericIf> b = ipv4("10.0.0.1");
  Ptr<GenericIf> c = ipv4("10.0.0.2");
  EXPECT_TRUE(VekType::genericIfBooleanOp(a, AttrOp::Equal, b));
  EXPECT_TRUE(VekType::genericIfBooleanOp(a, AttrOp::Less, c));
  EXPECT_TRUE(VekType::genericIfBooleanOp(c, AttrOp::GreaterEqual, a));
  EXPECT_FALSE(VekType::genericIfBooleanOp(a, AttrOp::NotEqual, b));
  EXPECT_TRUE(VekType::genericIfBooleanOp(genericIfOf(1), AttrOp::NotEqual, genericIfOf(1u)));
  EXPECT_FALSE(VekType::genericIfBooleanOp(genericIfOf(1), AttrOp::Equal, genericIfOf(1u)));
}

TEST(VekValue, EqualValuesHashAlike) {
  EXPECT_EQ(ipv4("10.0.0.1")->hash(), ipv4("10.0.0.1")->hash());
  EXPECT_NE(ipv4("10.0.0.1")->hash(), ipv4("10.0.0.2")->hash());
  EXPECT_EQ(genericIfOf("eth0")->hash(), builtinType<String>().genericIf("eth0", true)->hash());
  EXPECT_EQ(genericIfOf(0.0)->hash(), genericIfOf(-0.0)->hash());
}

// Two key handles made apart for one key: equal both ways, not unequal,
// and hashed alike.
void expectSameKey(const GenericIf* a, const GenericIf* b) {
  ASSERT_TRUE(a);
  ASSERT_TRUE(b);
  EXPECT_TRUE(VekType::genericIfBooleanOp(a, AttrOp::Equal, b)) << a->strRep() << " vs " << b->strRep();
  EXPECT_TRUE(VekType::genericIfBooleanOp(b, AttrOp::Equal, a));
  EXPECT_FALSE(VekType::genericIfBooleanOp(a, AttrOp::NotEqual, b));
  EXPECT_EQ(a->hash(), b->hash()) << a->strRep();
}

TEST(VekValue, KeyHandlesBuiltApartForEqualKeysAreEqual) {
  // Text: built from a C string and parsed from text.
  Ptr<GenericIf> text1 = genericIfOf("eth0");
  Ptr<GenericIf> text2 = builtinType<String>().genericIf(String(std::string("eth") + "0"), true);
  EXPECT_NE(text1.ptr(), text2.ptr());
  expectSameKey(text1, text2);

  // Integer: from a value and from text.
  Ptr<GenericIf> int1 = genericIfOf(static_cast<unsigned short>(10));
  Ptr<GenericIf> int2 = builtinType<unsigned short>().genericIf("10", true);
  expectSameKey(int1, int2);
  EXPECT_NE(int1->hash(), genericIfOf(static_cast<unsigned short>(11))->hash());

  // A value type with its own text form, parsed twice.
  Ptr<GenericIf> ip1 = ipv4("10.0.0.1");
  Ptr<GenericIf> ip2 = types().ipv4.genericIf("10.0.0.1", true);
  EXPECT_NE(ip1.ptr(), ip2.ptr());
  expectSameKey(ip1, ip2);

  // An entity, reached once through its handle and once through its owner.
  auto tree = OstrelTest::Sample::buildTree();
  Ptr<GenericIf const> entity1 = VekType::genericIf(tree.eth0.ptr());
  Ptr<GenericIf const> entity2 =
      types().device->attr("interfaces").genericIfGet(tree.device, genericIfOf("eth0"));
  expectSameKey(entity1, entity2);
  Ptr<GenericIf const> entity3 = types().device->attr("uplink").genericIfGet(tree.device);
  expectSameKey(entity1, entity3);
  EXPECT_FALSE(VekType::genericIfBooleanOp(entity1, AttrOp::Equal, tree.eth1.ptr()));

  // A wrapper, built from its bare value and parsed from text.
  Module& m = Module::moduleNew("KeyHandles");
  const VekType ifName = m.valueType("IfName").scalar("text", builtinType<String>()).wrapperOf("text").done();
  Ptr<GenericIf> wrapped1 = ifName.genericIf(GenericIfArgs{genericIfOf("eth0")});
  Ptr<GenericIf> wrapped2 = ifName.genericIf("eth0", true);
  Ptr<GenericIf> wrapped3 = ifName.genericIf(wrapped1->voidPtr(), true);
  EXPECT_EQ(wrapped1->type(), ifName);
  expectSameKey(wrapped1, wrapped2);
  expectSameKey(wrapped1, wrapped3);
  EXPECT_FALSE(
      VekType::genericIfBooleanOp(wrapped1, AttrOp::Equal, ifName.genericIf("eth1", true)));
}

TEST(VekValue, ValueOfTheWrongRepresentationIsRefused) {
  Ptr<GenericIf> info = types().addressInfo.genericIfDefault();
  try {
    (void)info->value<int>("prefixLength");
    FAIL() << "no exception";
  } catch (const TypeMismatchException& e) {
    EXPECT_STREQ(e.what(), "prefixLength holds unsigned char, not int");
  }
}

TEST(VekValue, HandlesAreCountedAndFreed) {
  const int64_t before = types().counters->allocTrack().liveObjects();
  {
    Ptr<GenericIf> c = types().counters.genericIfDefault();
    Ptr<GenericIf> d = c;
    EXPECT_EQ(c->references(), 2u);
    EXPECT_EQ(types().counters->allocTrack().liveObjects(), before + 1);
  }
  EXPECT_EQ(types().counters->allocTrack().liveObjects(), before);
}

TEST(VekValue, GenericScalarReadAllocatesNothingOnceWarm) {
  if (SANITIZED) GTEST_SKIP() << "sanitizer builds keep no handle pool";
  auto tree = OstrelTest::Sample::buildTree();
  const VekAttr mtu = types().interface->attr("mtu");
  const VekAttr status = types().interface->attr("status");
  (void)mtu.genericIfGet(tree.eth0);  // warms this thread's handle pool
  const uint64_t before = OstrelTest::heapAllocationCount();
  unsigned long long sum = 0;
  for (int i = 0; i < 1000; ++i) {
    sum += mtu.genericIfGet(tree.eth0)->as<unsigned>();
    sum += static_cast<unsigned long long>(status.genericIfGet(tree.eth0)->as<int>());
  }
  EXPECT_EQ(OstrelTest::heapAllocationCount(), before);
  EXPECT_EQ(sum, 9001000u);
}

TEST(VekValue, ConstructorTakesAnySubsetOfParametersByPosition) {
  const VekType counters = types().counters;  // params inPkts, outPkts; inErrors is not one
  // Only the second parameter: the first keeps its default.
  Ptr<GenericIf> c = counters.genericIf(GenericIfArgs{nullptr, genericIfOf(7ull)});
  EXPECT_EQ(c->value<unsigned long long>("inPkts"), 0u);
  EXPECT_EQ(c->value<unsigned long long>("outPkts"), 7u);
  // None at all: the default value.
  EXPECT_EQ(counters.genericIf(GenericIfArgs{})->strRep(), "Counters(inPkts:0, outPkts:0, inErrors:0)");
  // A prefix of the parameters.
  EXPECT_EQ(counters.genericIf(GenericIfArgs{genericIfOf(3ull)})->value<unsigned long long>("inPkts"),
            3u);
  EXPECT_THROW(counters.genericIf(GenericIfArgs{genericIfOf(1ull), genericIfOf(2ull), genericIfOf(3u)}),
               TypeMismatchException);
  EXPECT_THROW(counters.genericIf(GenericIfArgs{nullptr, genericIfOf(2u)}), TypeMismatchException);
}

}  // namespace
