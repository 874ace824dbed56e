// Properties of scheduled syncs under churn: over generated sample devices, a
// sync interrupted anywhere by interfaces erased, erased and created again,
// and MTUs changed
//   - publishes every leaf that lives at its end at least once before it is
//     reported done;
//   - publishes no leaf twice unless its interface was created again or its
//     MTU changed in between;
//   - publishes nothing of an interface between its erasure and its
//     re-creation.
// The first and the last hold as well for shared walks that syncs join at
// random points and whose receivers fill up and drain at random.
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
  bool hasRoom(SyncId id) const override { return !full.contains(id.value()); }
  void syncDone(SyncId id) override {
    ++count;
    ended.insert(id.value());
  }
  int count = 0;
  std::set<uint64_t> ended;
  std::set<uint64_t> full;
};

// The interface name of a published path, or "" when it is not under one.
std::string interfaceOf(const std::string& path) {
  const std::string marker = DEV + "/interfaces[name=";
  if (path.compare(0, marker.size(), marker) != 0) return "";
  return path.substr(marker.size(), path.find(']', marker.size()) - marker.size());
}

class ScheduledSyncProperty : public OstrelTest::WalkTest {
 protected:
  // The leaves a fresh sync of `t`'s device publishes that `has` does not
  // hold.
  template <typename Holds>
  static std::vector<std::string> missingFrom(const Tree& t, Holds has) {
    OstrelTest::TestRouter fresh;
    FullVekTypeWalker::syncObject(t.device.ptr(), strToPath(DEV), fresh, {SyncId(999), WalkId(999)},
                                  WalkerFlags::RequestKindBit1);
    std::vector<std::string> missing;
    for (const auto& msg : fresh.messages) {
      const gnmi::Notification& n = msg->response->update();
      for (const auto& u : n.update()) {
        const std::string leaf = pathToStr(joinPath(n.prefix(), u.path()));
        if (!has(leaf)) missing.push_back(leaf);
      }
    }
    return missing;
  }
  // Erases or re-creates an interface at random (or neither); returns the
  // interface and whether it now exists.
  static std::pair<std::string, bool> eraseOrRecreate(Generator& gen, Tree& t, int choice) {
    if (choice == 0) return {gen.erase(t), false};
    if (choice == 1) return {gen.recreate(t), true};
    return {"", false};
  }

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
      const int choice = gen.below(4);
      if (const auto [n, exists] = eraseOrRecreate(gen, t, choice); !n.empty()) {
        if (exists) {
          erased.erase(n);
          changedAt[n] = epoch;
        } else {
          erased.insert(n);
        }
      } else if (choice == 2) {
        const auto names = Generator::interfaceNames(t);
        if (!names.empty()) {
          const std::string& m = names[static_cast<size_t>(gen.below(static_cast<int>(names.size())))];
          t.device->entity("interfaces", OstrelTest::Sample::name(m.c_str()))
              ->valueIs("mtu", 1000u + static_cast<unsigned>(gen.below(8000)));
          changedAt[m] = epoch;
        }
      }
    }
    ASSERT_EQ(done.count, 1);
    router_.onPush = nullptr;

    // Every leaf a fresh sync of the final model publishes was published.
    const std::vector<std::string> missing =
        missingFrom(t, [&](const std::string& leaf) { return publishedAt.contains(leaf); });
    EXPECT_THAT(missing, ::testing::IsEmpty());
    router_.clear();
  }
}

TEST_F(ScheduledSyncProperty, SyncsJoiningASharedWalkUnderChurnEachGetEverythingLiveAndNothingErased) {
  constexpr uint64_t SYNCS = 6;
  for (uint32_t seed = 1; seed <= SEEDS; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Generator gen(seed);
    Tree t = gen.tree();
    Done done;
    SyncScheduler scheduler(router_, done, SLICE, /*hold=*/2 * SLICE);

    std::set<std::string> erased;
    std::map<uint64_t, std::set<std::string>> received;  // sync -> leaves
    router_.onPush = [&] {
      clock_.advance(SLICE / 2.9);
      const SyncId id = router_.syncIds.back();
      if (!id) return;
      const gnmi::Notification& n = router_.messages.back()->response->update();
      for (const auto& u : n.update()) {
        const std::string leaf = pathToStr(joinPath(n.prefix(), u.path()));
        EXPECT_FALSE(erased.contains(interfaceOf(leaf))) << leaf << " after its interface was erased";
        received[id.value()].insert(leaf);
      }
    };

    uint64_t started = 0;
    for (int round = 0; done.count < static_cast<int>(SYNCS) && round < 100000; ++round) {
      if (started < SYNCS && (started == 0 || gen.below(3) == 0)) {
        ++started;
        scheduler.start(SyncId(started), {{t.device, strToPath(DEV)}}, WalkerFlags::RequestKindBit1,
                        SyncScheduler::Sharing::Shared);
      }
      // Receivers fill up and drain at random.
      if (gen.below(4) == 0) {
        const uint64_t id = 1 + static_cast<uint64_t>(gen.below(static_cast<int>(SYNCS)));
        if (done.full.contains(id)) {
          done.full.erase(id);
          scheduler.roomFreed();
        } else {
          done.full.insert(id);
        }
      }
      if (!scheduler.hasWork()) {
        if (const auto wake = scheduler.nextWake(); wake && gen.below(2) == 0) {
          clock_.currentTimeIs(*wake);  // a full receiver's hold runs out
        } else if (!done.full.empty()) {
          done.full.clear();
          scheduler.roomFreed();
        }
      }
      scheduler.run(SLICE * (1 + round % 3));
      if (const auto [n, exists] = eraseOrRecreate(gen, t, gen.below(4)); !n.empty()) {
        if (exists) {
          erased.erase(n);
        } else {
          erased.insert(n);
        }
      }
    }
    ASSERT_EQ(done.count, static_cast<int>(SYNCS));
    EXPECT_EQ(scheduler.walkCount(), 0u);
    router_.onPush = nullptr;

    for (uint64_t id = 1; id <= SYNCS; ++id) {
      const std::vector<std::string> missing =
          missingFrom(t, [&](const std::string& leaf) { return received[id].contains(leaf); });
      EXPECT_THAT(missing, ::testing::IsEmpty()) << "sync " << id;
    }
    router_.clear();
  }
}

}  // namespace
