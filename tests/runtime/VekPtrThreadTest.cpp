// Reference counts shared between threads when threadSafePointers_ is set.
#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "SampleModel.h"

namespace {

using namespace Vek;
using OstrelTest::Sample::types;

class ThreadSafePointers : public ::testing::Test {
 protected:
  void SetUp() override { VFPtrInterface::threadSafePointers_ = true; }
  void TearDown() override { VFPtrInterface::threadSafePointers_ = false; }
};

TEST_F(ThreadSafePointers, ConcurrentCopiesKeepTheCountExact) {
  Ptr<Entity> shared = Entity::rootNew(types().chassis, "shared");
  constexpr int THREADS = 4;
  constexpr int ROUNDS = 20000;
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < ROUNDS; ++i) {
        Ptr<Entity> a = shared;
        Ptr<GenericIf const> b = a;
        Ptr<Entity> c = std::move(a);
      }
    });
  }
  for (auto& t : threads) t.join();
  EXPECT_EQ(shared->references(), 1u);
}

TEST_F(ThreadSafePointers, LastReleaseOnAnotherThreadFreesOnce) {
  const int64_t before = types().chassis->allocTrack().liveObjects();
  for (int round = 0; round < 50; ++round) {
    Ptr<Entity> e = Entity::rootNew(types().chassis, "e");
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) {
      threads.emplace_back([copy = e]() mutable {
        for (int i = 0; i < 1000; ++i) {
          Ptr<Entity> again = copy;
        }
        copy = nullptr;
      });
    }
    e = nullptr;
    for (auto& t : threads) t.join();
  }
  EXPECT_EQ(types().chassis->allocTrack().liveObjects(), before);
}

TEST_F(ThreadSafePointers, ValueHandlesMayBeDroppedOnOtherThreads) {
  const int64_t before = types().counters->allocTrack().liveObjects();
  std::vector<Ptr<GenericIf>> values;
  for (int i = 0; i < 1000; ++i) values.push_back(types().counters.genericIfDefault());
  std::thread dropper([moved = std::move(values)]() mutable { moved.clear(); });
  dropper.join();
  EXPECT_EQ(types().counters->allocTrack().liveObjects(), before);
}

}  // namespace
