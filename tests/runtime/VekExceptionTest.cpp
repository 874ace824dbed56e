// The runtime's exceptions and the enumeration misuse reports.
#include <gtest/gtest.h>

#include "FatalCatcher.h"
#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::types;

template <typename Fn>
std::string messageOf(Fn&& fn) {
  try {
    fn();
  } catch (const Vek::Exception& e) {
    return e.what();
  }
  return "(no exception)";
}

TEST(VekException, EnumeratorLookupOnNonEnumeration) {
  EXPECT_EQ(messageOf([] { types().counters->attr<int>(1); }), "Sample::Counters is not an enumeration");
  EXPECT_THROW(types().counters->enumerator("up"), EnumException);
}

TEST(VekException, EnumeratorLookupByValueOnNonEnumeration) {
  // The name attribute of an entity type stores the value 0, yet it is no
  // enumerator.
  EXPECT_THROW(types().interface->enumerator(int64_t{0}), EnumException);
  EXPECT_EQ(messageOf([] { types().interface->enumerator(int64_t{0}); }),
            "Sample::Interface is not an enumeration");
  EXPECT_EQ(messageOf([] { types().counters->enumerator(int64_t{1}); }),
            "Sample::Counters is not an enumeration");
  EXPECT_EQ(types().operStatus->enumerator(int64_t{3})->name(), "testing");
  EXPECT_FALSE(types().operStatus->enumerator(int64_t{9}));
}

TEST(VekException, UnknownEnumeratorName) {
  EXPECT_EQ(messageOf([] { types().operStatus->enumerator("sideways"); }),
            "Sample::OperStatus has no enumerator sideways");
  EXPECT_THROW(types().operStatus->enumerator("sideways"), EnumException);
}

TEST(VekException, EnumeratorValueOfWrongUnderlyingType) {
  EXPECT_EQ(messageOf([] { types().operStatus->attr<short>(1); }),
            "Sample::OperStatus is over int, not short");
  EXPECT_THROW(types().operStatus->attr<short>(1), EnumException);
}

TEST(VekException, EnumeratorValueOfAnOrdinaryAttribute) {
  const VekAttr mtu = types().interface->attr("mtu");
  EXPECT_THROW(mtu->enumValue(), EnumException);
  EXPECT_EQ(messageOf([&] { mtu->enumValue(); }), "mtu of Sample::Interface is not an enumerator");
  EXPECT_EQ(messageOf([] { types().counters->attr("inPkts")->enumValue(); }),
            "inPkts of Sample::Counters is not an enumerator");
  EXPECT_EQ(types().operStatus->enumerator("down")->enumValue(), 2);
}

TEST(VekException, RefusedWritesAreRuntimeExceptions) {
  auto tree = buildTree();
  EXPECT_EQ(messageOf([&] { tree.eth0->valueIs("mtu", 1u); }), "mtu 1 is outside 64..9216");
  EXPECT_EQ(messageOf([&] { tree.eth0->valueIs("nosuch", 1u); }),
            "Sample::Interface has no such attribute");
  EXPECT_EQ(messageOf([&] { types().operStatus.genericIf("sideways", true); }),
            "\"sideways\" is not a valid Sample::OperStatus");
}

TEST(VekException, DefinitionErrorsAreFatal) {
  Module& m = Module::moduleNew("Broken");
  EXPECT_FATAL(m.enumType("E", builtinType<long long>()),
               "enumeration E cannot be over long long");
  EXPECT_FATAL(Module::moduleNew("Broken"), "module Broken exists already");
  TypeDef def = m.valueType("V");
  def.scalar("a", builtinType<int>());
  EXPECT_FATAL(def.scalar("a", builtinType<int>()), "V has an attribute a already");
  EXPECT_FATAL(def.scalar("b", builtinType<int>(), "x"), "V.b: default \"x\" is not a int");
}

}  // namespace
