// Collection iterators saved across changes of their collection.
#include <gtest/gtest.h>

#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::types;

// A root with an int-keyed collection of ints holding the given keys.
class VekIterator : public ::testing::Test {
 protected:
  static VekType tableType() {
    static const VekType t = Module::moduleNew("Iter")
                                 .entityType("Table")
                                 .collection("rows", builtinType<int>(), builtinType<int>())
                                 .done();
    return t;
  }
  void SetUp() override {
    table_ = Entity::rootNew(tableType(), "t");
    for (int k : {10, 20, 30, 40}) put(k);
  }
  void put(int k) { rows().genericIfSet(table_, genericIfOf(k), genericIfOf(k * 100)); }
  void erase(int k) { rows().genericIfErase(table_, genericIfOf(k)); }
  VekAttr rows() const { return tableType()->attr("rows"); }
  static int keyOf(const CollectionIterator& it) { return it.key()->as<int>(); }
  // The keys from `it` (inclusive) to the end.
  static std::vector<int> rest(CollectionIterator it) {
    std::vector<int> out;
    for (; it; ++it) out.push_back(keyOf(it));
    return out;
  }

  Ptr<Entity> table_;
};

TEST_F(VekIterator, ContinuesAfterCurrentMemberIsErased) {
  auto it = rows().genericIfIteratorConst(table_);
  ++it;  // at 20
  erase(20);
  // It keeps the position, not the member: nothing is current until ++.
  EXPECT_TRUE(it);
  EXPECT_FALSE(it.key());
  EXPECT_FALSE(it.ptr());
  ++it;
  EXPECT_EQ(rest(it), (std::vector<int>{30, 40}));
}

TEST_F(VekIterator, SkipsErasedNextMember) {
  auto it = rows().genericIfIteratorConst(table_);
  erase(20);
  ++it;
  EXPECT_EQ(rest(it), (std::vector<int>{30, 40}));
}

TEST_F(VekIterator, SeesMembersInsertedAhead) {
  auto it = rows().genericIfIteratorConst(table_);
  ++it;  // at 20
  put(25);
  put(5);  // behind: not visited
  ++it;
  EXPECT_EQ(rest(it), (std::vector<int>{25, 30, 40}));
}

TEST_F(VekIterator, SavedByMoveAcrossAPause) {
  CollectionIterator saved;
  {
    auto it = rows().genericIfIteratorConst(table_);
    ++it;
    saved = std::move(it);
  }
  erase(10);
  erase(30);
  put(35);
  ++saved;
  EXPECT_EQ(rest(saved), (std::vector<int>{35, 40}));
}

TEST_F(VekIterator, EndsWhenCollectionIsCleared) {
  auto it = rows().genericIfIteratorConst(table_);
  for (int k : {10, 20, 30, 40}) erase(k);
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(VekIterator, SurvivesItsOwner) {
  auto it = rows().genericIfIteratorConst(table_);
  table_ = nullptr;  // the entity goes and empties its collection
  EXPECT_FALSE(it.key());
  ++it;
  EXPECT_FALSE(it);
}

TEST_F(VekIterator, ReplacingAMemberDoesNotRepeatIt) {
  auto it = rows().genericIfIteratorConst(table_);
  ++it;  // at 20
  rows().genericIfSet(table_, genericIfOf(20), genericIfOf(1));
  rows().genericIfSet(table_, genericIfOf(30), genericIfOf(2));
  ++it;
  EXPECT_EQ(keyOf(it), 30);
  EXPECT_EQ(it.ptr()->as<int>(), 2);
}

TEST_F(VekIterator, EveryMemberPresentThroughoutIsVisitedOnce) {
  std::vector<int> seen;
  int step = 0;
  for (auto it = rows().genericIfIteratorConst(table_); it; ++it) {
    const int k = keyOf(it);
    seen.push_back(k);
    // Churn around the cursor: erase what was seen, insert behind and ahead.
    erase(k);
    put(step++);
    put(k + 5);
    erase(k + 5);
  }
  EXPECT_EQ(seen, (std::vector<int>{10, 20, 30, 40}));
}

}  // namespace
