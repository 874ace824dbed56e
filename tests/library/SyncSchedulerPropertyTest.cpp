// Property of scheduled syncs under churn: over generated sample devices, a
// sync interrupted anywhere by interfaces erased, erased and created again,
// and MTUs changed
//   - publishes every leaf that lives at its end at least once before it is
//     reported done;
//   - publishes no leaf twice unless its interface was created again or its
//     MTU changed in between;
//   - publishes nothing of an interface between its erasure and its
//     re-creation.
#include <map>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ostrel/SyncScheduler.h>

#include "SampleChurn.h"
#include "SampleModel.h"
#include "WalkSupport.h"

namespace {

using namespace Ostrel;
using OstrelTest::Generator;
using OstrelTest::Sample::Tree;
using OstrelTest::Sample::types;

const std::string DEV = "/devices/dev1";

class Done : public SyncReceiver {
 public:
  bool hasRoom(SyncId) const override { return true; }
  void syncDone(SyncId) override { ++count; }
  int count = 0;
};

// The interface name of a published path, or "" when it is not under one.
std::string interfaceOf(const std::string& path) {
  const std::string marker = DEV + "/interfaces[name=";
  if (path.compare(0, marker.size(), marker) != 0) return "";
  return path.substr(marker.size(), path.find(']', marker.size()) - marker.size());
}

class ScheduledSyncProperty : public OstrelTest::WalkTest {
 protected:
  static constexpr uint32_t SEEDS = 25;
  static constexpr double SLICE = 0.003;
};

TEST_F(ScheduledSyncProperty, ChurnDuringASyncLosesNothingRepeatsNothingAndResurrectsNothing) {
  for (uint32_t seed = 1; seed <= SEEDS; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Generator gen(seed);
    Tree t = gen.tree();
    Done done;
    SyncScheduler scheduler(router_, done, SLICE);

    uint64_t epoch = 0;
    std::map<std::string, uint64_t> changedAt;     // interface -> epoch of its last re-creation or MTU change
    std::set<std::string> erased;                  // interfaces erased and not created again
    std::map<std::string, uint64_t> publishedAt;   // leaf -> epoch it was last published
    router_.onPush = [&] {
      clock_.advance(SLICE / 2.9);
      if (router_.syncIds.back() != SyncId(1)) return;
      const gnmi::Notification& n = router_.messages.back()->response->update();
      for (const auto& u : n.update()) {
        const std::string leaf = pathToStr(joinPath(n.prefix(), u.path()));
        const std::string intf = interfaceOf(leaf);
        EXPECT_FALSE(erased.contains(intf)) << leaf << " after its interface was erased";
        const auto before = publishedAt.find(leaf);
        if (before != publishedAt.end()) {
          const auto changed = changedAt.find(intf);
          EXPECT_TRUE(!intf.empty() && changed != changedAt.end() && changed->second > before->second)
              << leaf << " published twice without a change in between";
        }
        publishedAt[leaf] = epoch;
      }
    };

    scheduler.start(SyncId(1), {{t.device, strToPath(DEV)}}, WalkerFlags::RequestKindBit1);
    for (int round = 0; done.count == 0 && round < 100000; ++round) {
      scheduler.run(SLICE * (1 + round % 3));
      ++epoch;
      switch (gen.below(4)) {
        case 0: {
          const std::string n = gen.erase(t);
          if (!n.empty()) erased.insert(n);
          break;
        }
        case 1: {
          const std::string n = gen.recreate(t);
          if (!n.empty()) {
            erased.erase(n);
            changedAt[n] = epoch;
          }
          break;
        }
        case 2: {
          const auto names = Generator::interfaceNames(t);
          if (names.empty()) break;
          const std::string& n = names[static_cast<size_t>(gen.below(static_cast<int>(names.size())))];
          t.device->entity("interfaces", OstrelTest::Sample::name(n.c_str()))->valueIs("mtu", 1000u + static_cast<unsigned>(gen.below(8000)));
          changedAt[n] = epoch;
          break;
        }
        default:
          break;
      }
    }
    ASSERT_EQ(done.count, 1);
    router_.onPush = nullptr;

    // Every leaf a fresh sync of the final model publishes was published.
    OstrelTest::TestRouter fresh;
    FullVekTypeWalker::syncObject(t.device.ptr(), strToPath(DEV), fresh, {SyncId(2), WalkId(2)},
                                  WalkerFlags::RequestKindBit1);
    std::vector<std::string> missing;
    for (const auto& msg : fresh.messages) {
      const gnmi::Notification& n = msg->response->update();
      for (const auto& u : n.update()) {
        const std::string leaf = pathToStr(joinPath(n.prefix(), u.path()));
        if (!publishedAt.contains(leaf)) missing.push_back(leaf);
      }
    }
    EXPECT_THAT(missing, ::testing::IsEmpty());
    router_.clear();
  }
}

}  // namespace
