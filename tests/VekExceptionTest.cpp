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

TEST(VekException, UnknownEnumeratorName) {
  EXPECT_EQ(messageOf([] { types().operStatus->enumerator("sideways"); }),
            "Sample::OperStatus has no enumerator sideways");
}

TEST(VekException, EnumeratorValueOfWrongUnderlyingType) {
  EXPECT_EQ(messageOf([] { types().operStatus->attr<short>(1); }),
            "Sample::OperStatus is over int, not short");
}

TEST(VekException, ThrowersReportAttribute) {
  EXPECT_EQ(messageOf([] { throwEnumAttrWrongTypeException(*types().interface, "mtu"); }),
            "mtu of Sample::Interface is not an enumerator");
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
