// Parsing of the three path text forms: full gNMI path text (strToPath and
// its low-level parsers), plain name lists (pathToGnmiPath) and entity
// references (extractGifPath).
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/Path.h>

#include "FatalCatcher.h"
#include "internal/PathText.h"

namespace {

using Keys = std::map<std::string, std::string>;

// The names of a path's elements, in order.
std::vector<std::string> names(const gnmi::Path& path) {
  std::vector<std::string> out;
  for (const auto& elem : path.elem()) out.push_back(elem.name());
  return out;
}

Keys keys(const gnmi::PathElem& elem) { return Keys(elem.key().begin(), elem.key().end()); }

// ---------------------------------------------------------------------------
// strToPath

TEST(StrToPath, EmptyTextGivesEmptyPath) {
  EXPECT_EQ(Ostrel::strToPath("").elem_size(), 0);
}

TEST(StrToPath, LoneSlashGivesEmptyPath) {
  EXPECT_EQ(Ostrel::strToPath("/").elem_size(), 0);
}

TEST(StrToPath, KeyedElementThenPlainElement) {
  const gnmi::Path path = Ostrel::strToPath("/a[k=v]/b");
  ASSERT_EQ(names(path), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "v"}}));
  EXPECT_TRUE(path.elem(1).key().empty());
}

TEST(StrToPath, LeadingSlashIsOptional) {
  EXPECT_EQ(Ostrel::strToPath("a/b"), Ostrel::strToPath("/a/b"));
}

TEST(StrToPath, NestedBracketsInKeyValueAreKept) {
  const gnmi::Path path = Ostrel::strToPath("a[k=[x]]");
  ASSERT_EQ(path.elem_size(), 1);
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "[x]"}}));
}

TEST(StrToPath, EscapedClosingBracketInKeyValue) {
  const gnmi::Path path = Ostrel::strToPath("a[k=x\\]y]");
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "x]y"}}));
}

TEST(StrToPath, EscapedBackslashInKeyValueGivesOneBackslash) {
  const gnmi::Path path = Ostrel::strToPath("a[k=x\\\\y]");
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "x\\y"}}));
}

TEST(StrToPath, EscapedOpeningBracketDoesNotNest) {
  const gnmi::Path path = Ostrel::strToPath("a[k=x\\[y]/b");
  ASSERT_EQ(names(path), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "x[y"}}));
}

TEST(StrToPath, RepeatedKeyKeepsFirstValue) {
  const gnmi::Path path = Ostrel::strToPath("a[k=1][k=2]");
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "1"}}));
}

TEST(StrToPath, SeveralKeysOnOneElement) {
  const gnmi::Path path = Ostrel::strToPath("a[x=1][y=2]");
  ASSERT_EQ(names(path), (std::vector<std::string>{"a"}));
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"x", "1"}, {"y", "2"}}));
}

TEST(StrToPath, EscapedSlashInNameKeepsBackslashAndSplits) {
  const gnmi::Path path = Ostrel::strToPath("a\\/b");
  EXPECT_EQ(names(path), (std::vector<std::string>{"a\\", "b"}));
}

TEST(StrToPath, BackslashInNameIsKept) {
  EXPECT_EQ(names(Ostrel::strToPath("a\\b/c")), (std::vector<std::string>{"a\\b", "c"}));
}

TEST(StrToPath, BackslashInKeyNameIsKeptAndProtectsNothing) {
  // The '=' after the backslash still ends the key name.
  const gnmi::Path path = Ostrel::strToPath("a[k\\=x=1]");
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k\\", "x=1"}}));
}

TEST(StrToPath, KeyOnlyElementHasEmptyName) {
  const gnmi::Path path = Ostrel::strToPath("[k=v]");
  ASSERT_EQ(path.elem_size(), 1);
  EXPECT_EQ(path.elem(0).name(), "");
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "v"}}));
}

TEST(StrToPath, TrailingSlashAddsNoElement) {
  EXPECT_EQ(names(Ostrel::strToPath("a/")), (std::vector<std::string>{"a"}));
}

TEST(StrToPath, EmptySegmentGivesNamelessElement) {
  EXPECT_EQ(names(Ostrel::strToPath("a//b")), (std::vector<std::string>{"a", "", "b"}));
}

TEST(StrToPath, DoubleLeadingSlashGivesNamelessFirstElement) {
  EXPECT_EQ(names(Ostrel::strToPath("//a")), (std::vector<std::string>{"", "a"}));
}

TEST(StrToPath, SlashInsideKeyValueDoesNotSplit) {
  const gnmi::Path path = Ostrel::strToPath("a[k=x/y]/b");
  ASSERT_EQ(names(path), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"k", "x/y"}}));
}

TEST(StrToPath, EqualsSignInsideKeyValueIsKept) {
  EXPECT_EQ(keys(Ostrel::strToPath("a[k=x=y]").elem(0)), (Keys{{"k", "x=y"}}));
}

TEST(StrToPath, TextAfterLastBracketBecomesTheName) {
  const gnmi::Path path = Ostrel::strToPath("a[x=1]b");
  ASSERT_EQ(path.elem_size(), 1);
  EXPECT_EQ(path.elem(0).name(), "b");
  EXPECT_EQ(keys(path.elem(0)), (Keys{{"x", "1"}}));
}

TEST(StrToPath, EmptyKeyValue) {
  EXPECT_EQ(keys(Ostrel::strToPath("a[k=]").elem(0)), (Keys{{"k", ""}}));
}

TEST(StrToPath, NeverSetsOriginOrTarget) {
  const gnmi::Path path = Ostrel::strToPath("/a[k=v]/b");
  EXPECT_EQ(path.origin(), "");
  EXPECT_EQ(path.target(), "");
}

TEST(StrToPath, KeyWithoutEqualsIsFatal) {
  EXPECT_FATAL(Ostrel::strToPath("a[k]"), "reached end of path \"a[k]\" without finding '='");
}

TEST(StrToPath, KeyWithoutClosingBracketIsFatal) {
  EXPECT_FATAL(Ostrel::strToPath("a[k=v"), "reached end of path \"a[k=v\" without finding ']'");
}

TEST(StrToPath, UnbalancedNestedBracketIsFatal) {
  EXPECT_FATAL(Ostrel::strToPath("a[k=[x]"),
               "reached end of path \"a[k=[x]\" without finding ']'");
}

TEST(StrToPath, TrailingBackslashIsFatal) {
  EXPECT_FATAL(Ostrel::strToPath("a\\"), "path \"a\\\" contains a trailing backslash");
}

TEST(StrToPath, TrailingBackslashInKeyValueIsFatal) {
  EXPECT_FATAL(Ostrel::strToPath("a[k=v\\"), "path \"a[k=v\\\" contains a trailing backslash");
}

TEST(StrToPath, TrailingBackslashInKeyNameIsFatal) {
  EXPECT_FATAL(Ostrel::strToPath("a[k\\"), "path \"a[k\\\" contains a trailing backslash");
}

TEST(StrToPath, FatalAssertionNamesHandleComponentAndFunction) {
  const Zolt::FatalError error = OstrelTest::catchFatal([] { Ostrel::strToPath("a[k]"); });
  EXPECT_EQ(error.handle, "OstrelPath");
  EXPECT_EQ(error.component, "Path");
  EXPECT_EQ(error.function, "parseUntil");
  EXPECT_EQ(error.file, "Path.cpp");
}

TEST(StrToPath, MissingBracketIsReportedFromParseValForKey) {
  EXPECT_EQ(OstrelTest::catchFatal([] { Ostrel::strToPath("a[k=v"); }).function,
            "parseValForKey");
}

TEST(StrToPath, TrailingBackslashInNameIsReportedFromParseElem) {
  EXPECT_EQ(OstrelTest::catchFatal([] { Ostrel::strToPath("a\\"); }).function, "parseElem");
}

// ---------------------------------------------------------------------------
// Low-level parsers

TEST(ParseUntil, StopsOnDelimiterAndAppends) {
  std::string out = "pre";
  unsigned cursor = 1;
  Ostrel::parseUntil("xabc=d", out, cursor, '=', false);
  EXPECT_EQ(out, "preabc");
  EXPECT_EQ(cursor, 4u);
}

TEST(ParseUntil, UnescapedDelimiterIsLiteral) {
  std::string out;
  unsigned cursor = 0;
  Ostrel::parseUntil("a\\=b=c", out, cursor, '=', true);
  EXPECT_EQ(out, "a=b");
  EXPECT_EQ(cursor, 4u);
}

TEST(ParseUntil, WithoutUnescapeBackslashIsCopiedAndDelimiterStillEnds) {
  std::string out;
  unsigned cursor = 0;
  Ostrel::parseUntil("a\\=b=c", out, cursor, '=', false);
  EXPECT_EQ(out, "a\\");
  EXPECT_EQ(cursor, 2u);
}

TEST(ParseUntil, MissingDelimiterIsFatal) {
  std::string out;
  unsigned cursor = 0;
  EXPECT_FATAL(Ostrel::parseUntil("abc", out, cursor, ':', false),
               "reached end of path \"abc\" without finding ':'");
}

TEST(ParseValForKey, StopsOnMatchingBracketWithoutAppendingIt) {
  std::string out;
  unsigned cursor = 0;
  Ostrel::parseValForKey("x[y]z]rest", out, cursor, true);
  EXPECT_EQ(out, "x[y]z");
  EXPECT_EQ(cursor, 5u);
}

TEST(ParseValForKey, EscapedBracketNeverChangesDepth) {
  std::string out;
  unsigned cursor = 0;
  Ostrel::parseValForKey("x\\[y]", out, cursor, true);
  EXPECT_EQ(out, "x[y");
  EXPECT_EQ(cursor, 4u);
}

TEST(ParseValForKey, WithoutUnescapeBackslashProtectsNothing) {
  std::string out;
  unsigned cursor = 0;
  Ostrel::parseValForKey("x\\]y]", out, cursor, false);
  EXPECT_EQ(out, "x\\");
  EXPECT_EQ(cursor, 2u);
}

TEST(ParseElem, LeavesBufferEmptyAndCursorOnSlash) {
  std::string buffer;
  unsigned cursor = 0;
  gnmi::PathElem elem;
  Ostrel::parseElem("ab[k=v]/c", buffer, cursor, &elem, false);
  EXPECT_EQ(elem.name(), "ab");
  EXPECT_EQ(keys(elem), (Keys{{"k", "v"}}));
  EXPECT_TRUE(buffer.empty());
  EXPECT_EQ(cursor, 7u);
}

TEST(ParseElem, UnescapeMakesSlashPartOfTheName) {
  std::string buffer;
  unsigned cursor = 0;
  gnmi::PathElem elem;
  Ostrel::parseElem("a\\/b/c", buffer, cursor, &elem, true);
  EXPECT_EQ(elem.name(), "a/b");
  EXPECT_EQ(cursor, 4u);
}

TEST(ParseElem, KeyValueIsUnescapedEvenWithoutUnescape) {
  std::string buffer;
  unsigned cursor = 0;
  gnmi::PathElem elem;
  Ostrel::parseElem("a[k=\\]]", buffer, cursor, &elem, false);
  EXPECT_EQ(keys(elem), (Keys{{"k", "]"}}));
}

// ---------------------------------------------------------------------------
// pathToGnmiPath

TEST(PathToGnmiPath, EmptyTextGivesEmptyPath) {
  EXPECT_EQ(Ostrel::pathToGnmiPath("").elem_size(), 0);
}

TEST(PathToGnmiPath, LoneSlashGivesEmptyPath) {
  EXPECT_EQ(Ostrel::pathToGnmiPath("/").elem_size(), 0);
}

TEST(PathToGnmiPath, EmptySegmentsProduceNoElements) {
  EXPECT_EQ(names(Ostrel::pathToGnmiPath("/a//b/")), (std::vector<std::string>{"a", "b"}));
}

TEST(PathToGnmiPath, KnowsNoEscapes) {
  EXPECT_EQ(names(Ostrel::pathToGnmiPath("a\\/b")), (std::vector<std::string>{"a\\", "b"}));
}

TEST(PathToGnmiPath, BracketsAndEqualsAreOrdinaryCharacters) {
  const gnmi::Path path = Ostrel::pathToGnmiPath("a[k=v]/b");
  EXPECT_EQ(names(path), (std::vector<std::string>{"a[k=v]", "b"}));
  EXPECT_TRUE(path.elem(0).key().empty());
}

TEST(PathToGnmiPath, NoLeadingSlash) {
  EXPECT_EQ(names(Ostrel::pathToGnmiPath("x/y/z")), (std::vector<std::string>{"x", "y", "z"}));
}

// ---------------------------------------------------------------------------
// extractGifPath

TEST(ExtractGifPath, DotsBecomeSlashes) {
  EXPECT_EQ(Ostrel::extractGifPath("entity('x.y')"), "x/y");
  EXPECT_EQ(Ostrel::extractGifPath("entity('a.b.c')"), "a/b/c");
}

TEST(ExtractGifPath, SingleNameHasNoSlash) {
  EXPECT_EQ(Ostrel::extractGifPath("entity('root')"), "root");
}

TEST(ExtractGifPath, GroupIsGreedyOverNonSpace) {
  EXPECT_EQ(Ostrel::extractGifPath("entity('a')b')"), "a')b");
}

// The mismatch message goes to standard output; the death statement sends
// standard output to standard error so the death test can see it.
void extractWithStdoutOnStderr(const std::string& text) {
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
  Ostrel::extractGifPath(text);
}

TEST(ExtractGifPathDeathTest, DoubleQuotesDoNotMatch) {
  EXPECT_DEATH(extractWithStdoutOnStderr("entity(\"x.y\")"),
               "gifPtrStrep: entity\\(\"x\\.y\"\\) does not match regex");
}

TEST(ExtractGifPathDeathTest, EmptyGroupDoesNotMatch) {
  EXPECT_DEATH(extractWithStdoutOnStderr("entity('')"),
               "gifPtrStrep: entity\\(''\\) does not match regex");
}

TEST(ExtractGifPathDeathTest, MismatchAbortsWithFailedAssertionOfFalse) {
  EXPECT_DEATH(Ostrel::extractGifPath("entity('a b')"),
               "Path\\.cpp:248: .*extractGifPath.*: Assertion `false' failed\\.");
}

TEST(ExtractGifPathDeathTest, TextAroundTheReferenceDoesNotMatch) {
  EXPECT_DEATH(extractWithStdoutOnStderr("x entity('a')"),
               "gifPtrStrep: x entity\\('a'\\) does not match regex");
}

}  // namespace
