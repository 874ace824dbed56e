// The gNMI path-strings convention of the client's command line.
#include <gtest/gtest.h>

#include "GnmiPathText.h"

namespace {

using VekGnmi::parsePathString;
using VekGnmi::pathString;

gnmi::Path parsed(const std::string& text) {
  gnmi::Path path;
  std::string error;
  EXPECT_TRUE(parsePathString(text, path, error)) << text << ": " << error;
  return path;
}

std::string errorOf(const std::string& text) {
  gnmi::Path path;
  path.add_elem()->set_name("untouched");
  std::string error;
  EXPECT_FALSE(parsePathString(text, path, error)) << text;
  EXPECT_EQ(path.elem_size(), 1) << "a failed parse changes nothing";
  EXPECT_EQ(path.elem(0).name(), "untouched");
  return error;
}

TEST(GnmiPathText, RootIsSlashOrEmpty) {
  EXPECT_EQ(parsed("/").elem_size(), 0);
  EXPECT_EQ(parsed("").elem_size(), 0);
  EXPECT_EQ(pathString(gnmi::Path()), "/");
}

TEST(GnmiPathText, ElementsAndKeys) {
  const gnmi::Path p = parsed("/interfaces/interface[name=eth0]/state");
  ASSERT_EQ(p.elem_size(), 3);
  EXPECT_EQ(p.elem(0).name(), "interfaces");
  EXPECT_EQ(p.elem(1).name(), "interface");
  EXPECT_EQ(p.elem(1).key().at("name"), "eth0");
  EXPECT_EQ(p.elem(2).name(), "state");
  EXPECT_EQ(p.elem(2).key_size(), 0);
}

TEST(GnmiPathText, LeadingSlashIsOptionalAndTrailingSlashAddsNothing) {
  EXPECT_EQ(parsed("a/b/").elem_size(), 2);
  EXPECT_EQ(pathString(parsed("a/b/")), "/a/b");
}

TEST(GnmiPathText, SlashInsideKeyValueNeedsNoEscape) {
  const gnmi::Path p = parsed("/routes[prefix=10.0.0.0/24]/metric");
  ASSERT_EQ(p.elem_size(), 2);
  EXPECT_EQ(p.elem(0).key().at("prefix"), "10.0.0.0/24");
}

TEST(GnmiPathText, EscapedSlashInName) {
  const gnmi::Path p = parsed("/a\\/b/c");
  ASSERT_EQ(p.elem_size(), 2);
  EXPECT_EQ(p.elem(0).name(), "a/b");
  EXPECT_EQ(pathString(p), "/a\\/b/c");
}

TEST(GnmiPathText, EscapedBracketInKeyValue) {
  const gnmi::Path p = parsed("/foo[name=x\\]y]");
  EXPECT_EQ(p.elem(0).key().at("name"), "x]y");
  EXPECT_EQ(pathString(p), "/foo[name=x\\]y]");
}

TEST(GnmiPathText, OpenBracketInKeyValueIsLiteral) {
  EXPECT_EQ(parsed("/foo[name=[]").elem(0).key().at("name"), "[");
}

TEST(GnmiPathText, BackslashAndBracketValue) {
  // The published example: the value "[\]" is written [\\\]].
  EXPECT_EQ(parsed("/foo[name=[\\\\\\]]").elem(0).key().at("name"), "[\\]");
}

TEST(GnmiPathText, EscapedEqualsInKeyName) {
  const gnmi::Path p = parsed("/foo[na\\=me=v=w]");
  EXPECT_EQ(p.elem(0).key().at("na=me"), "v=w");
  EXPECT_EQ(pathString(p), "/foo[na\\=me=v=w]");
}

TEST(GnmiPathText, SeveralKeysPrintSortedByName) {
  const gnmi::Path p = parsed("/p[name=65497][identifier=ISIS]");
  EXPECT_EQ(p.elem(0).key_size(), 2);
  EXPECT_EQ(pathString(p), "/p[identifier=ISIS][name=65497]");
}

TEST(GnmiPathText, WildcardsPassThrough) {
  const gnmi::Path p = parsed("/a/*/b[name=*]/...");
  ASSERT_EQ(p.elem_size(), 4);
  EXPECT_EQ(p.elem(1).name(), "*");
  EXPECT_EQ(p.elem(2).key().at("name"), "*");
  EXPECT_EQ(p.elem(3).name(), "...");
}

TEST(GnmiPathText, PrintingRoundTripsAwkwardNames) {
  gnmi::Path p;
  gnmi::PathElem* e = p.add_elem();
  e->set_name("we/ird[na]me=\\");
  (*e->mutable_key())["k]=\\"] = "v]/[\\";
  const std::string text = pathString(p);
  gnmi::Path back = parsed(text);
  ASSERT_EQ(back.elem_size(), 1);
  EXPECT_EQ(back.elem(0).name(), "we/ird[na]me=\\");
  EXPECT_EQ(back.elem(0).key().at("k]=\\"), "v]/[\\");
}

TEST(GnmiPathText, MalformedTextIsAnErrorNamingThePosition) {
  EXPECT_NE(errorOf("/a//b").find("empty element name at position 3"), std::string::npos);
  EXPECT_NE(errorOf("/a[name").find("has no '='"), std::string::npos);
  EXPECT_NE(errorOf("/a[name]").find("has no '='"), std::string::npos);
  EXPECT_NE(errorOf("/a[=x]").find("empty name"), std::string::npos);
  EXPECT_NE(errorOf("/a[k=x").find("no closing ']'"), std::string::npos);
  EXPECT_NE(errorOf("/a[k=1][k=2]").find("repeated"), std::string::npos);
  EXPECT_NE(errorOf("/a[k=1]b").find("unexpected 'b'"), std::string::npos);
  EXPECT_NE(errorOf("/a\\").find("trailing backslash"), std::string::npos);
  EXPECT_NE(errorOf("/a]").find("unexpected ']'"), std::string::npos);
  EXPECT_NE(errorOf("[k=v]").find("empty element name"), std::string::npos);
}

TEST(GnmiPathText, JoinedPathPrintsPrefixThenPath) {
  EXPECT_EQ(VekGnmi::joinedPathString(parsed("/a[k=1]"), parsed("b/c")), "/a[k=1]/b/c");
  EXPECT_EQ(VekGnmi::joinedPathString(gnmi::Path(), gnmi::Path()), "/");
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST(GnmiPathText, LegacyElementsBecomeElems) {
  gnmi::Path p;
  p.add_element("a");
  p.add_element("b");
  VekGnmi::upgradeLegacyElements(p);
  ASSERT_EQ(p.elem_size(), 2);
  EXPECT_EQ(p.elem(1).name(), "b");
  EXPECT_EQ(p.element_size(), 0);
}
#pragma GCC diagnostic pop

}  // namespace
