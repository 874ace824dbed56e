// The walk registry: queueing paused walkers, resuming, cancelling, dropping
// queued work under deleted paths, and its invariants' fatal checks.
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FatalCatcher.h"
#include "SampleModel.h"
#include "WalkSupport.h"

namespace {

using namespace Ostrel;
using OstrelTest::ids;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::types;

class WalkRegistry : public OstrelTest::WalkTest {
 protected:
  // A walker of a small value (one message of three leaves when it runs),
  // queued at `prefix` under the given ids, as a paused walk leaves it.
  void queue(const char* prefix, uint64_t sync, uint64_t walk) {
    FullVekTypeWalker::addToWalkQ(valueWalker(prefix, sync, walk));
    staticWalkStartMap.try_emplace(WalkId(walk), Vek::System::currentTime());
  }
  std::unique_ptr<FullVekTypeWalker> valueWalker(const char* prefix, uint64_t sync, uint64_t walk) {
    const Vek::Ptr<Vek::GenericIf const> value = types().counters.genericIfDefault();
    return std::make_unique<FullVekTypeWalker>(strToPath(prefix), nullptr, value, gnmi::Path(),
                                               types().counters, router_, ids(sync, walk),
                                               WalkerFlags::None, key_, 0);
  }
  // The prefixes queued under `walk`, in order.
  static std::vector<std::string> queued(uint64_t walk) {
    std::vector<std::string> out;
    for (const auto& w : staticWalkMap.at(WalkId(walk))) out.push_back(pathToStr(w->prefixPath()));
    return out;
  }

  VekKey key_;
};

// Collects the traces of the walker's handle at level 4 while alive.
class TraceCapture {
 public:
  TraceCapture() : handle_(Zolt::Platform::getDebugHandler("OstrelWalker")), mask_(handle_.levelMask()) {
    handle_.levelMaskIs(1u << 4);
    previous_ = Zolt::traceSinkIs([this](const Zolt::TraceRecord& r) { lines.emplace_back(r.message); });
  }
  ~TraceCapture() {
    handle_.levelMaskIs(mask_);
    Zolt::traceSinkIs(std::move(previous_));
  }
  std::vector<std::string> lines;

 private:
  Zolt::Debuggable& handle_;
  uint32_t mask_;
  Zolt::TraceSink previous_;
};

TEST_F(WalkRegistry, ResumingAnEmptyRegistryIsDoneAndReportsNothing) {
  std::vector<SyncWalkId> done;
  EXPECT_EQ(FullVekTypeWalker::resumeAllSyncsAndNotifs(done), WalkResult::Done);
  EXPECT_TRUE(done.empty());
}

TEST_F(WalkRegistry, PendingWalksThatFinishAreReportedInTheOrderTheyResumed) {
  queue("/a", 11, 1);
  queue("/b", 12, 2);
  std::vector<SyncWalkId> done;
  EXPECT_EQ(FullVekTypeWalker::resumeAllSyncsAndNotifs(done), WalkResult::Done);
  ASSERT_EQ(router_.syncIds.size(), 2u);
  // The map's order decides which goes first; the report follows it.
  const std::vector<SyncWalkId> expected = router_.syncIds[0] == SyncId(11)
                                               ? std::vector<SyncWalkId>{ids(11, 1), ids(12, 2)}
                                               : std::vector<SyncWalkId>{ids(12, 2), ids(11, 1)};
  EXPECT_EQ(done, expected);
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapStartSize(), 0u);
  EXPECT_TRUE(staticPathWalkIdMap.empty());
}

TEST_F(WalkRegistry, AWalkThatPausesStopsTheRoundAndIsNotReported) {
  queue("/a", 11, 1);
  queue("/b", 12, 2);
  queue("/c", 12, 2);
  // Walk 2 is refused at its first message, with /c still waiting.
  router_.onPush = [&] { router_.refuseAll = router_.syncIds.back() == SyncId(12); };
  std::vector<SyncWalkId> done;
  const WalkResult result = FullVekTypeWalker::resumeAllSyncsAndNotifs(done);
  EXPECT_EQ(result, WalkResult::RouterFull);
  // Walk 1 is reported only if it ran before walk 2.
  if (router_.syncIds.front() == SyncId(11)) {
    EXPECT_EQ(done, std::vector<SyncWalkId>{ids(11, 1)});
  } else {
    EXPECT_TRUE(done.empty());
  }
  EXPECT_EQ(queued(2), std::vector<std::string>{"/c"});
  EXPECT_TRUE(staticWalkStartMap.contains(WalkId(2)));
}

TEST_F(WalkRegistry, ResumedWalkersGoFirstInFirstOut) {
  queue("/a", 1, 1);
  queue("/b", 1, 1);
  queue("/c", 1, 1);
  router_.refuseEvery = 2;  // /b's message is refused: the walk pauses with /c waiting
  EXPECT_EQ(FullVekTypeWalker::resumeSync(WalkId(1)), WalkResult::RouterFull);
  EXPECT_EQ(queued(1), std::vector<std::string>{"/c"});
  router_.refuseEvery = 0;
  EXPECT_EQ(FullVekTypeWalker::resumeSync(WalkId(1)), WalkResult::Done);
  std::vector<std::string> order;
  for (const auto& m : router_.messages) order.push_back(pathToStr(m->response->update().prefix()));
  EXPECT_EQ(order, (std::vector<std::string>{"/a", "/b", "/c"}));
}

TEST_F(WalkRegistry, CancellingAnUnknownWalkIsFalse) {
  EXPECT_FALSE(FullVekTypeWalker::cancelPendingSync(WalkId(5)));
}

TEST_F(WalkRegistry, CancellingAPendingWalkEmptiesBothMapsButKeepsItsPaths) {
  queue("/a", 1, 5);
  queue("/b", 1, 5);
  EXPECT_TRUE(FullVekTypeWalker::cancelPendingSync(WalkId(5)));
  EXPECT_FALSE(staticWalkMap.contains(WalkId(5)));
  EXPECT_FALSE(staticWalkStartMap.contains(WalkId(5)));
  EXPECT_TRUE(staticPathWalkIdMap.at(strToPath("/a")).contains(WalkId(5)));
  EXPECT_TRUE(staticPathWalkIdMap.at(strToPath("/b")).contains(WalkId(5)));
}

TEST_F(WalkRegistry, DeletingAPathWhereNothingIsQueuedDoesNothingAndTracesNothing) {
  queue("/a", 1, 1);
  TraceCapture traces;
  FullVekTypeWalker::delFromWalkQ(strToPath("/x"));
  EXPECT_TRUE(traces.lines.empty());
  EXPECT_EQ(queued(1), std::vector<std::string>{"/a"});
}

TEST_F(WalkRegistry, DeletingTheSecondOfThreeQueuedWalkersKeepsOnlyTheFirst) {
  queue("/a", 1, 1);
  queue("/b", 1, 1);
  queue("/c", 1, 1);
  TraceCapture traces;
  FullVekTypeWalker::delFromWalkQ(strToPath("/b"));
  EXPECT_EQ(queued(1), std::vector<std::string>{"/a"});
  EXPECT_TRUE(staticPathWalkIdMap.contains(strToPath("/a")));
  EXPECT_FALSE(staticPathWalkIdMap.contains(strToPath("/b")));
  EXPECT_FALSE(staticPathWalkIdMap.contains(strToPath("/c")));
  EXPECT_EQ(traces.lines, (std::vector<std::string>{"Found path:/b in the walkQ", "Delete path:/b for walkId:1",
                                                    "Deleting child path:/b for walkId:1",
                                                    "Deleting child path:/c for walkId:1"}));
}

TEST_F(WalkRegistry, DeletingAPathCutsEveryWalkQueuedThere) {
  queue("/a", 1, 1);
  queue("/b", 1, 1);
  queue("/x", 2, 2);
  queue("/b", 2, 2);
  FullVekTypeWalker::delFromWalkQ(strToPath("/b"));
  EXPECT_EQ(queued(1), std::vector<std::string>{"/a"});
  EXPECT_EQ(queued(2), std::vector<std::string>{"/x"});
}

TEST_F(WalkRegistry, AWalkWhoseWalkersWereAllDeletedEndsOnlyWhenResumedDirectly) {
  queue("/a", 1, 1);
  FullVekTypeWalker::delFromWalkQ(strToPath("/a"));
  EXPECT_TRUE(staticWalkMap.at(WalkId(1)).empty());
  EXPECT_TRUE(staticWalkStartMap.contains(WalkId(1)));
  std::vector<SyncWalkId> done;
  EXPECT_FATAL(FullVekTypeWalker::resumeAllSyncsAndNotifs(done), "WalkList is empty for walkId:1");
  EXPECT_EQ(FullVekTypeWalker::resumeSync(WalkId(1)), WalkResult::Done);
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapStartSize(), 0u);
}

TEST_F(WalkRegistry, DeletingAPathThatStillListsACancelledWalkIsFatal) {
  queue("/a", 1, 3);
  FullVekTypeWalker::cancelPendingSync(WalkId(3));
  EXPECT_FATAL(FullVekTypeWalker::delFromWalkQ(strToPath("/a")), "walkId:3 not found");
}

TEST_F(WalkRegistry, FlushForgetsEveryWalkButNotThePaths) {
  queue("/a", 1, 1);
  queue("/b", 2, 2);
  FullVekTypeWalker::flushWalkMap();
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapStartSize(), 0u);
  EXPECT_EQ(FullVekTypeWalker::pathWalkIdMap().size(), 2u);
}

TEST_F(WalkRegistry, AQueuedEntityWalkerFindsItsEntityThroughItsNotifiee) {
  auto tree = buildTree();
  const gnmi::Path path = strToPath("/devices/dev1/chassis");
  const Vek::Ptr<Vek::Entity> chassis = tree.device->entity("chassis");
  FullVekTypeWalker::setUpWalk(Vek::VekType::genericIf(chassis.ptr()), types().chassis, chassis.ptr(), path,
                               router_, WalkerFlags::None, 0);
  FullVekTypeWalker::addToWalkQ(std::make_unique<FullVekTypeWalker>(
      path, nullptr, Vek::VekType::genericIf(chassis.ptr()), gnmi::Path(), types().chassis, router_,
      ids(1, 1), WalkerFlags::None, key_, 0));
  EXPECT_FALSE(staticWalkMap.at(WalkId(1)).front()->gif());
  const std::unique_ptr<FullVekTypeWalker> walker = FullVekTypeWalker::popWalkQ(staticWalkMap.at(WalkId(1)));
  EXPECT_EQ(walker->gif().ptr(), static_cast<const Vek::GenericIf*>(chassis.ptr()));
  EXPECT_FALSE(staticPathWalkIdMap.contains(path));
}

TEST_F(WalkRegistry, DumpsListWalksAndPaths) {
  queue("/a", 7, 4);
  EXPECT_EQ(FullVekTypeWalker::dumpWalkMap(),
            "walkId:4 walkList:[ \nFullVekTypeWalker( prefix:/a leaf: syncId:7 walkId:4 flags:"
            "00000000000000000000000000000000) ]\n");
  EXPECT_EQ(FullVekTypeWalker::dumpPathWalkIdMap(), "path:/a requestSet:[ 4 ]\n");
}

// ---------------------------------------------------------------------------
// Broken invariants are fatal

TEST_F(WalkRegistry, QueueingWalkIdZeroIsFatal) {
  EXPECT_FATAL(FullVekTypeWalker::addToWalkQ(valueWalker("/a", 1, 0)), "walkId 0 cannot be added to walkQ");
}

TEST_F(WalkRegistry, PoppingAWalkerWhosePathIsNotListedIsFatal) {
  queue("/a", 1, 1);
  staticPathWalkIdMap.clear();
  EXPECT_FATAL(FullVekTypeWalker::popWalkQ(staticWalkMap.at(WalkId(1))),
               "path /a is not found in the staticPathWalkIdMap");
}

TEST_F(WalkRegistry, PoppingAnEntityWalkerWithoutANotifieeIsFatal) {
  auto tree = buildTree();
  FullVekTypeWalker::addToWalkQ(std::make_unique<FullVekTypeWalker>(
      strToPath("/gone"), nullptr, Vek::VekType::genericIf(tree.eth0.ptr()), gnmi::Path(), types().interface,
      router_, ids(1, 1), WalkerFlags::None, key_, 0));
  EXPECT_FATAL(FullVekTypeWalker::popWalkQ(staticWalkMap.at(WalkId(1))),
               "Failed to find a gNmiNotif for prefix:/gone");
}

TEST_F(WalkRegistry, PoppingAnEntityWalkerThatHoldsItsEntityIsFatal) {
  auto tree = buildTree();
  const gnmi::Path path = strToPath("/devices/dev1/chassis");
  const Vek::Ptr<Vek::Entity> chassis = tree.device->entity("chassis");
  FullVekTypeWalker::setUpWalk(Vek::VekType::genericIf(chassis.ptr()), types().chassis, chassis.ptr(), path,
                               router_, WalkerFlags::None, 0);
  // Queued behind addToWalkQ's back, so it kept its reference.
  staticWalkMap[WalkId(1)].push_back(std::make_unique<FullVekTypeWalker>(
      path, nullptr, Vek::VekType::genericIf(chassis.ptr()), gnmi::Path(), types().chassis, router_,
      ids(1, 1), WalkerFlags::None, key_, 0));
  staticPathWalkIdMap[path].insert(WalkId(1));
  EXPECT_FATAL(FullVekTypeWalker::popWalkQ(staticWalkMap.at(WalkId(1))), "Expected walker->gif_ to be null!");
}

TEST_F(WalkRegistry, ResumingAnUnknownWalkIsFatal) {
  EXPECT_FATAL(FullVekTypeWalker::resumeSync(WalkId(9)), "walkId:9 was not found in the walk map");
}

TEST_F(WalkRegistry, ResumingIntoANonEmptyReportIsFatal) {
  std::vector<SyncWalkId> done{ids(1, 1)};
  EXPECT_FATAL(FullVekTypeWalker::resumeAllSyncsAndNotifs(done), "idsComplete must be empty");
}

TEST_F(WalkRegistry, CancellingAWalkThatHasOnlyAStartIsFatal) {
  staticWalkStartMap[WalkId(6)] = 0.0;
  EXPECT_FATAL(FullVekTypeWalker::cancelPendingSync(WalkId(6)),
               "walkId:6 is in staticWalkStartMap but not staticWalkMap");
}

TEST_F(WalkRegistry, CancellingAWalkThatHasNoStartIsFatal) {
  FullVekTypeWalker::addToWalkQ(valueWalker("/a", 1, 6));
  EXPECT_FATAL(FullVekTypeWalker::cancelPendingSync(WalkId(6)),
               "walkId:6 is in staticWalkMap but not staticWalkStartMap");
}

}  // namespace
