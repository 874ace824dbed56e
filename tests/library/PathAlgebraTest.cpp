// Printing, prefix algebra, hashing and equality of gNMI paths.
#include <string>
#include <unordered_map>
#include <unordered_set>

#include <gtest/gtest.h>

#include <Ostrel/Path.h>

#include "FatalCatcher.h"
#include "internal/PathText.h"

namespace {

// Builds an element with keys inserted in the order given.
gnmi::PathElem elem(const std::string& name,
                    std::initializer_list<std::pair<std::string, std::string>> keys = {}) {
  gnmi::PathElem e;
  e.set_name(name);
  for (const auto& [k, v] : keys) (*e.mutable_key())[k] = v;
  return e;
}

gnmi::Path path(std::initializer_list<gnmi::PathElem> elems) {
  gnmi::Path p;
  for (const auto& e : elems) *p.add_elem() = e;
  return p;
}

// The path of the elements a (keys y=2 and x=1, inserted in that order) and b.
gnmi::Path twoKeyPath() { return path({elem("a", {{"y", "2"}, {"x", "1"}}), elem("b")}); }

// ---------------------------------------------------------------------------
// Printing

TEST(PathToStr, EmptyPathIsEmptyStringWithLeadingSeparator) {
  EXPECT_EQ(Ostrel::pathToStr(gnmi::Path(), 0, true), "");
}

TEST(PathToStr, EmptyPathIsEmptyStringWithoutLeadingSeparator) {
  EXPECT_EQ(Ostrel::pathToStr(gnmi::Path(), 0, false), "");
}

TEST(PathToStr, StartAtElementCountIsEmptyString) {
  EXPECT_EQ(Ostrel::pathToStr(twoKeyPath(), 2, true), "");
}

TEST(PathToStr, StartPastElementCountIsEmptyString) {
  EXPECT_EQ(Ostrel::pathToStr(twoKeyPath(), 7, false), "");
}

TEST(PathToStr, LeadingSlashAndSortedKeys) {
  EXPECT_EQ(Ostrel::pathToStr(twoKeyPath(), 0, true), "/a[x=1][y=2]/b");
}

TEST(PathToStr, DefaultsPrintFromTheStartWithLeadingSlash) {
  EXPECT_EQ(Ostrel::pathToStr(twoKeyPath()), "/a[x=1][y=2]/b");
}

TEST(PathToStr, FromSecondElementWithoutLeadingSeparator) {
  EXPECT_EQ(Ostrel::pathToStr(twoKeyPath(), 1, false), "b");
}

TEST(PathToStr, FromSecondElementWithLeadingSeparator) {
  EXPECT_EQ(Ostrel::pathToStr(twoKeyPath(), 1, true), "/b");
}

TEST(PathToStr, NegativeStartPrintsFromTheFirstElement) {
  EXPECT_EQ(Ostrel::pathToStr(twoKeyPath(), -3, true), "/a[x=1][y=2]/b");
}

TEST(PathToStr, KeysSortByFormattedTextSoDashComesBeforeEquals) {
  EXPECT_EQ(Ostrel::pathToStr(path({elem("e", {{"a", "1"}, {"a-b", "2"}})})),
            "/e[a-b=2][a=1]");
}

TEST(PathToStr, ShorterKeyNameSortsFirstWhenItIsAPrefix) {
  EXPECT_EQ(Ostrel::pathToStr(path({elem("e", {{"ab", "2"}, {"a", "1"}})})), "/e[a=1][ab=2]");
}

TEST(PathToStr, KeyOrderDoesNotDependOnInsertionOrder) {
  const gnmi::Path forward = path({elem("e", {{"c", "3"}, {"a", "1"}, {"b", "2"}})});
  const gnmi::Path backward = path({elem("e", {{"b", "2"}, {"a", "1"}, {"c", "3"}})});
  EXPECT_EQ(Ostrel::pathToStr(forward), "/e[a=1][b=2][c=3]");
  EXPECT_EQ(Ostrel::pathToStr(backward), "/e[a=1][b=2][c=3]");
}

TEST(PathToStr, SingleKeyPrintsAsIs) {
  EXPECT_EQ(Ostrel::pathToStr(path({elem("x", {{"k", "v"}})})), "/x[k=v]");
}

TEST(PathToStr, NothingIsEscaped) {
  EXPECT_EQ(Ostrel::pathToStr(path({elem("a/b", {{"k]", "x=[y\\"}})})), "/a/b[k]=x=[y\\]");
}

TEST(PathToStr, NamelessElementsPrintAsEmptySegments) {
  EXPECT_EQ(Ostrel::pathToStr(path({elem("a"), elem(""), elem("b")})), "/a//b");
}

TEST(PathToStrImpl, CustomSeparator) {
  EXPECT_EQ(Ostrel::pathToStrImpl(twoKeyPath(), 0, true, "::"), "::a[x=1][y=2]::b");
}

TEST(PathToKeyStr, JoinsWithDoubleUnderscoreWithoutLeadingSeparator) {
  EXPECT_EQ(Ostrel::pathToKeyStr(twoKeyPath()), "a[x=1][y=2]__b");
}

TEST(PathToKeyStr, EmptyPathIsEmptyString) { EXPECT_EQ(Ostrel::pathToKeyStr(gnmi::Path()), ""); }

TEST(PathElemToStr, ElementAloneWithoutSeparator) {
  EXPECT_EQ(Ostrel::pathElemToStr(elem("a", {{"k", "v"}})), "a[k=v]");
}

TEST(PathElemToStr, KeysSorted) {
  EXPECT_EQ(Ostrel::pathElemToStr(elem("n", {{"z", "1"}, {"b", "2"}})), "n[b=2][z=1]");
}

TEST(PathFormatter, PathFormatsWithLeadingSlash) {
  EXPECT_EQ(fmt::format("<{}>", twoKeyPath()), "</a[x=1][y=2]/b>");
}

TEST(PathFormatter, EmptyPathFormatsAsEmptyString) {
  EXPECT_EQ(fmt::format("<{}>", gnmi::Path()), "<>");
}

TEST(PathFormatter, ElementFormatsAlone) {
  EXPECT_EQ(fmt::format("{}", elem("a", {{"k", "v"}})), "a[k=v]");
}

TEST(PathFormatter, FormatSpecsApplyToTheText) {
  EXPECT_EQ(fmt::format("[{:>6}]", path({elem("ab")})), "[   /ab]");
}

// ---------------------------------------------------------------------------
// Prefix algebra

TEST(IsPrefix, EmptyPathIsPrefixOfAnyPath) {
  EXPECT_TRUE(Ostrel::isPrefix(gnmi::Path(), twoKeyPath()));
  EXPECT_TRUE(Ostrel::isPrefix(gnmi::Path(), gnmi::Path()));
}

TEST(IsPrefix, LongerPathIsNotPrefixOfShorter) {
  EXPECT_FALSE(Ostrel::isPrefix(Ostrel::strToPath("/a/b/c"), Ostrel::strToPath("/a/b")));
}

TEST(IsPrefix, KeysNeverAffectIt) {
  EXPECT_TRUE(Ostrel::isPrefix(Ostrel::strToPath("/a[k=1]"), Ostrel::strToPath("/a[k=2]/b")));
  EXPECT_TRUE(Ostrel::isPrefix(Ostrel::strToPath("/a"), Ostrel::strToPath("/a[k=2]/b")));
  EXPECT_TRUE(Ostrel::isPrefix(Ostrel::strToPath("/a[k=1]"), Ostrel::strToPath("/a")));
}

TEST(IsPrefix, DifferentNameIsNotPrefix) {
  EXPECT_FALSE(Ostrel::isPrefix(Ostrel::strToPath("/a/c"), Ostrel::strToPath("/a/b/c")));
}

TEST(IsPrefix, PathIsPrefixOfItself) {
  EXPECT_TRUE(Ostrel::isPrefix(twoKeyPath(), twoKeyPath()));
}

TEST(IsPrefix, NamesCompareByteForByte) {
  EXPECT_FALSE(Ostrel::isPrefix(Ostrel::strToPath("/A"), Ostrel::strToPath("/a/b")));
  EXPECT_FALSE(Ostrel::isPrefix(Ostrel::strToPath("/ab"), Ostrel::strToPath("/a/b")));
}

TEST(JoinPath, AppendsElementsOfSecond) {
  const gnmi::Path joined =
      Ostrel::joinPath(Ostrel::strToPath("/a[k=1]"), Ostrel::strToPath("/b/c[x=y]"));
  EXPECT_EQ(Ostrel::pathToStr(joined), "/a[k=1]/b/c[x=y]");
}

TEST(JoinPath, WithEmptyPaths) {
  EXPECT_EQ(Ostrel::pathToStr(Ostrel::joinPath(gnmi::Path(), Ostrel::strToPath("/a"))), "/a");
  EXPECT_EQ(Ostrel::pathToStr(Ostrel::joinPath(Ostrel::strToPath("/a"), gnmi::Path())), "/a");
}

TEST(JoinPath, OriginAndTargetOfSecondReplaceThoseOfFirst) {
  gnmi::Path first = Ostrel::strToPath("/a");
  first.set_origin("o1");
  first.set_target("t1");
  gnmi::Path second = Ostrel::strToPath("/b");
  second.set_target("t2");
  const gnmi::Path joined = Ostrel::joinPath(first, second);
  EXPECT_EQ(joined.origin(), "o1");
  EXPECT_EQ(joined.target(), "t2");
}

TEST(RemovePrefix, DropsKeysOfRemainingElements) {
  const gnmi::Path rest =
      Ostrel::removePrefix(Ostrel::strToPath("/a"), Ostrel::strToPath("/a[k=v]/b[x=1]"));
  ASSERT_EQ(rest.elem_size(), 1);
  EXPECT_EQ(rest.elem(0).name(), "b");
  EXPECT_TRUE(rest.elem(0).key().empty());
}

TEST(RemovePrefix, SameLengthGivesEmptyPath) {
  EXPECT_EQ(
      Ostrel::removePrefix(Ostrel::strToPath("/a/b"), Ostrel::strToPath("/a[k=1]/b")).elem_size(),
      0);
}

TEST(RemovePrefix, EmptyPrefixKeepsAllNames) {
  EXPECT_EQ(Ostrel::pathToStr(Ostrel::removePrefix(gnmi::Path(), twoKeyPath())), "/a/b");
}

TEST(RemovePrefix, DropsOriginAndTarget) {
  gnmi::Path full = Ostrel::strToPath("/a/b");
  full.set_origin("openconfig");
  full.set_target("dev1");
  const gnmi::Path rest = Ostrel::removePrefix(Ostrel::strToPath("/a"), full);
  EXPECT_EQ(rest.origin(), "");
  EXPECT_EQ(rest.target(), "");
}

TEST(RemovePrefix, NonPrefixIsFatal) {
  EXPECT_FATAL(Ostrel::removePrefix(Ostrel::strToPath("/a/c"), Ostrel::strToPath("/a/b[k=1]")),
               "/a/c is not a prefix of /a/b[k=1]");
}

TEST(RemovePrefix, LongerPrefixIsFatal) {
  EXPECT_FATAL(Ostrel::removePrefix(Ostrel::strToPath("/a/b"), Ostrel::strToPath("/a")),
               "/a/b is not a prefix of /a");
}

TEST(RemovePrefix, FatalAssertionComesFromRemovePrefix) {
  const Zolt::FatalError error = OstrelTest::catchFatal(
      [] { Ostrel::removePrefix(Ostrel::strToPath("/x"), Ostrel::strToPath("/y")); });
  EXPECT_EQ(error.function, "removePrefix");
  EXPECT_EQ(error.component, "Path");
}

// ---------------------------------------------------------------------------
// Hashing. Golden values were computed outside this library, from the
// MurmurHash3 block step applied as the path hash prescribes.

TEST(PathHash, MurmurMixOfZeroesIsTheConstant) { EXPECT_EQ(Ostrel::murmurMix(0, 0), 0xe6546b64u); }

TEST(PathHash, NamelessKeylessElementHashesAsEmptyString) {
  EXPECT_EQ(Ostrel::hashPathElem(elem("")), 0xe6546b64u);
}

TEST(PathHash, KeylessElementHashesAsItsName) {
  EXPECT_EQ(Ostrel::hashPathElem(elem("a")), 0x8027a1b6u);
  EXPECT_EQ(Ostrel::hashPathElem(elem("interfaces")), 0xa8dfd4b2u);
}

TEST(PathHash, HighBytesEnterSignExtended) {
  EXPECT_EQ(Ostrel::hashPathElem(elem("\x80")), 0x7ac7de8fu);
  EXPECT_EQ(Ostrel::hashPathElem(elem("\xff")), 0x8e647348u);
}

TEST(PathHash, KeyedElement) {
  EXPECT_EQ(Ostrel::hashPathElem(elem("a", {{"k", "v"}})), 0xd84d4cb6u);
  EXPECT_EQ(Ostrel::hashPathElem(elem("intf", {{"name", "eth0"}, {"idx", "1"}})), 0x7647c956u);
}

TEST(PathHash, EmptyKeyValueContributesZeroFold) {
  EXPECT_EQ(Ostrel::hashPathElem(elem("a", {{"k", ""}})), 0x322d8fe4u);
}

TEST(PathHash, EmptyPathHashesToZero) { EXPECT_EQ(Ostrel::hashPath(gnmi::Path()), 0u); }

TEST(PathHash, OneElementPathIsMixOfZeroAndElementHash) {
  const gnmi::PathElem e = elem("a");
  EXPECT_EQ(Ostrel::hashPath(path({e})), Ostrel::murmurMix(0, Ostrel::hashPathElem(e)));
  EXPECT_EQ(Ostrel::hashPath(path({e})), 0x039c0f84u);
}

TEST(PathHash, MultiElementPath) {
  EXPECT_EQ(Ostrel::hashPath(Ostrel::strToPath("/interfaces/interface[name=eth0]/state")),
            0xc77b4219u);
}

TEST(PathHash, StdHashAgreesWithHashFunctions) {
  const gnmi::Path p = twoKeyPath();
  EXPECT_EQ(std::hash<gnmi::Path>{}(p), Ostrel::hashPath(p));
  EXPECT_EQ(std::hash<gnmi::PathElem>{}(p.elem(0)), Ostrel::hashPathElem(p.elem(0)));
}

TEST(PathHash, KeyInsertionOrderDoesNotMatter) {
  const gnmi::Path one = path({elem("a", {{"x", "1"}, {"y", "2"}, {"z", "3"}})});
  const gnmi::Path two = path({elem("a", {{"z", "3"}, {"x", "1"}, {"y", "2"}})});
  EXPECT_EQ(Ostrel::hashPath(one), Ostrel::hashPath(two));
  EXPECT_TRUE(one == two);
}

TEST(PathHash, OriginAndTargetAreNotHashed) {
  gnmi::Path withMeta = twoKeyPath();
  withMeta.set_origin("openconfig");
  withMeta.set_target("dev");
  EXPECT_EQ(Ostrel::hashPath(withMeta), Ostrel::hashPath(twoKeyPath()));
}

TEST(PathHash, ElementOrderMatters) {
  EXPECT_NE(Ostrel::hashPath(Ostrel::strToPath("/a/b")), Ostrel::hashPath(Ostrel::strToPath("/b/a")));
}

// ---------------------------------------------------------------------------
// Equality

TEST(PathEquality, OriginAndTargetTakeNoPart) {
  gnmi::Path withMeta = twoKeyPath();
  withMeta.set_origin("openconfig");
  EXPECT_TRUE(withMeta == twoKeyPath());
}

TEST(PathEquality, DifferentKeyValueIsUnequal) {
  EXPECT_FALSE(Ostrel::strToPath("/a[k=1]") == Ostrel::strToPath("/a[k=2]"));
}

TEST(PathEquality, DifferentKeyNameIsUnequal) {
  EXPECT_FALSE(Ostrel::strToPath("/a[k=1]") == Ostrel::strToPath("/a[j=1]"));
}

TEST(PathEquality, ExtraKeyIsUnequal) {
  EXPECT_FALSE(Ostrel::strToPath("/a[k=1]") == Ostrel::strToPath("/a[k=1][j=2]"));
  EXPECT_FALSE(Ostrel::strToPath("/a[k=1][j=2]") == Ostrel::strToPath("/a[k=1]"));
}

TEST(PathEquality, DifferentLengthIsUnequal) {
  EXPECT_FALSE(Ostrel::strToPath("/a/b") == Ostrel::strToPath("/a"));
}

TEST(PathEquality, DifferentNameIsUnequal) {
  EXPECT_FALSE(Ostrel::strToPath("/a/b") == Ostrel::strToPath("/a/c"));
}

TEST(PathEquality, PathsServeAsUnorderedMapKeys) {
  std::unordered_map<gnmi::Path, int> byPath;
  byPath[Ostrel::strToPath("/a[x=1][y=2]/b")] = 7;
  byPath[Ostrel::strToPath("/a/b")] = 8;
  EXPECT_EQ(byPath.size(), 2u);
  EXPECT_EQ(byPath.at(twoKeyPath()), 7);
  EXPECT_EQ(byPath.count(Ostrel::strToPath("/a[x=1]/b")), 0u);
}

TEST(PathEquality, ElementsServeAsUnorderedSetKeys) {
  std::unordered_set<gnmi::PathElem> elems;
  elems.insert(elem("a", {{"x", "1"}, {"y", "2"}}));
  elems.insert(elem("a", {{"y", "2"}, {"x", "1"}}));
  elems.insert(elem("a"));
  EXPECT_EQ(elems.size(), 2u);
}

}  // namespace
