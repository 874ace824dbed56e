// Properties of the path functions over many generated paths.
#include <algorithm>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/Path.h>

namespace {

constexpr int PATHS = 3000;

// Generates paths whose names and keys hold none of the characters that the
// text form treats specially ('/', '[', ']', '=', '\').
class PathGenerator {
 public:
  explicit PathGenerator(uint32_t seed) : rng_(seed) {}

  std::string word(size_t minLen) {
    static constexpr char ALPHABET[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_.:@ ";
    std::uniform_int_distribution<size_t> len(minLen, 12);
    std::uniform_int_distribution<size_t> pick(0, sizeof(ALPHABET) - 2);
    std::string out(len(rng_), ' ');
    for (char& c : out) c = ALPHABET[pick(rng_)];
    return out;
  }

  // A list of (key, value) pairs with distinct non-empty key names.
  std::vector<std::pair<std::string, std::string>> keys() {
    std::uniform_int_distribution<int> count(0, 4);
    std::vector<std::pair<std::string, std::string>> out;
    for (int i = count(rng_); i > 0; --i) {
      std::string name = word(1);
      const bool taken = std::any_of(out.begin(), out.end(),
                                     [&](const auto& kv) { return kv.first == name; });
      if (!taken) out.emplace_back(std::move(name), word(0));
    }
    return out;
  }

  // A path of 1..8 elements with non-empty names.
  gnmi::Path path() {
    std::uniform_int_distribution<int> count(1, 8);
    gnmi::Path p;
    for (int i = count(rng_); i > 0; --i) {
      gnmi::PathElem* e = p.add_elem();
      e->set_name(word(1));
      for (auto& [k, v] : keys()) (*e->mutable_key())[k] = v;
    }
    return p;
  }

  std::mt19937& rng() { return rng_; }

 private:
  std::mt19937 rng_;
};

TEST(PathProperty, ParsingPrintedTextGivesThePathBack) {
  PathGenerator gen(20261121);
  for (int i = 0; i < PATHS; ++i) {
    const gnmi::Path p = gen.path();
    const std::string text = Ostrel::pathToStr(p);
    const gnmi::Path parsed = Ostrel::strToPath(text);
    ASSERT_TRUE(parsed == p) << text << " parsed as " << Ostrel::pathToStr(parsed);
    ASSERT_EQ(Ostrel::pathToStr(parsed), text);
  }
}

TEST(PathProperty, ParsingWithoutLeadingSlashGivesTheSamePath) {
  PathGenerator gen(7);
  for (int i = 0; i < PATHS; ++i) {
    const gnmi::Path p = gen.path();
    ASSERT_TRUE(Ostrel::strToPath(Ostrel::pathToStr(p, 0, false)) == p);
  }
}

TEST(PathProperty, KeyOrderPermutationsAreEqualAndHashAlike) {
  PathGenerator gen(99);
  for (int i = 0; i < PATHS; ++i) {
    const std::string name = gen.word(1);
    auto keys = gen.keys();
    gnmi::Path first;
    gnmi::PathElem* a = first.add_elem();
    a->set_name(name);
    for (const auto& [k, v] : keys) (*a->mutable_key())[k] = v;

    std::shuffle(keys.begin(), keys.end(), gen.rng());
    gnmi::Path second;
    gnmi::PathElem* b = second.add_elem();
    b->set_name(name);
    for (const auto& [k, v] : keys) (*b->mutable_key())[k] = v;

    ASSERT_TRUE(first == second);
    ASSERT_EQ(Ostrel::hashPath(first), Ostrel::hashPath(second));
    ASSERT_EQ(Ostrel::pathToStr(first), Ostrel::pathToStr(second));
  }
}

TEST(PathProperty, JoinThenRemovePrefixGivesSecondPathsNames) {
  PathGenerator gen(3);
  for (int i = 0; i < PATHS; ++i) {
    const gnmi::Path prefix = gen.path();
    const gnmi::Path rest = gen.path();
    const gnmi::Path joined = Ostrel::joinPath(prefix, rest);
    ASSERT_TRUE(Ostrel::isPrefix(prefix, joined));
    ASSERT_EQ(joined.elem_size(), prefix.elem_size() + rest.elem_size());
    gnmi::Path namesOnly = rest;
    for (auto& e : *namesOnly.mutable_elem()) e.mutable_key()->clear();
    ASSERT_TRUE(Ostrel::removePrefix(prefix, joined) == namesOnly);
  }
}

TEST(PathProperty, KeylessPathsRoundTripThroughThePlainForm) {
  PathGenerator gen(11);
  for (int i = 0; i < PATHS; ++i) {
    gnmi::Path p = gen.path();
    for (auto& e : *p.mutable_elem()) e.mutable_key()->clear();
    ASSERT_TRUE(Ostrel::pathToGnmiPath(Ostrel::pathToStr(p)) == p);
  }
}

TEST(PathProperty, EqualPathsHashAlikeAcrossCopies) {
  PathGenerator gen(5);
  for (int i = 0; i < PATHS; ++i) {
    const gnmi::Path p = gen.path();
    gnmi::Path copy;
    copy.CopyFrom(p);
    ASSERT_EQ(std::hash<gnmi::Path>{}(p), std::hash<gnmi::Path>{}(copy));
  }
}

}  // namespace
