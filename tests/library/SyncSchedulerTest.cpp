// The sync scheduler: turns, room, completion, deletes and re-creates of
// queued and not yet queued members, cancels, many syncs, watches, and its
// fatal checks.
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <Ostrel/SyncScheduler.h>

#include "FatalCatcher.h"
#include "SampleChurn.h"
#include "SampleModel.h"
#include "WalkSupport.h"

namespace {

using namespace Ostrel;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::name;
using OstrelTest::Sample::Tree;
using OstrelTest::Sample::types;
using ::testing::ElementsAre;

const std::string DEV = "/devices/dev1";
const WalkerFlags SUBSCRIBE = WalkerFlags::RequestKindBit1;

// Says whether each sync has room (all have unless told) and records the
// order in which syncs were reported done.
class Receiver : public SyncReceiver {
 public:
  bool hasRoom(SyncId syncId) const override { return !full.contains(syncId.value()); }
  void syncDone(SyncId syncId) override {
    done.push_back(syncId.value());
    if (onDone) onDone(syncId);
  }
  std::set<uint64_t> full;
  std::vector<uint64_t> done;
  std::function<void(SyncId)> onDone;
};

class Scheduling : public OstrelTest::WalkTest {
 protected:
  // The slice of one turn; each push below advances the clock by a little
  // more than a third of it, so a turn ends after three pushes.
  static constexpr double SLICE = 0.003;

  void SetUp() override {
    router_.onPush = [this] { clock_.advance(SLICE / 2.9); };
  }
  void TearDown() override {
    scheduler_.flush();
    OstrelTest::WalkTest::TearDown();
  }
  // Runs turns until no sync can go on (bounded).
  void runAll() {
    for (int guard = 0; guard < 100000 && scheduler_.run(1.0); ++guard) {
    }
  }
  // The leaves the router was given by sync `sync` (all syncs when 0).
  std::vector<std::string> leavesOf(uint64_t sync) const {
    std::vector<std::string> out;
    for (size_t i = 0; i < router_.messages.size(); ++i) {
      if (sync && router_.syncIds[i] != SyncId(sync)) continue;
      const gnmi::Notification& n = router_.messages[i]->response->update();
      for (const auto& u : n.update()) out.push_back(pathToStr(joinPath(n.prefix(), u.path())));
    }
    return out;
  }
  // What an uninterrupted sync of `tree`'s device publishes, sorted. (The
  // notifiees it registers keep pushing changes to its router, which
  // therefore lives as long as the test.)
  std::vector<std::string> reference(const Tree& tree) {
    OstrelTest::TestRouter& router = referenceRouter_;
    router.clear();
    FullVekTypeWalker::syncObject(tree.device.ptr(), strToPath(DEV), router, {SyncId(99), WalkId(99)}, SUBSCRIBE);
    std::vector<std::string> out;
    for (const auto& msg : router.messages) {
      const gnmi::Notification& n = msg->response->update();
      for (const auto& u : n.update()) out.push_back(pathToStr(joinPath(n.prefix(), u.path())));
    }
    std::sort(out.begin(), out.end());
    return out;
  }
  static std::vector<std::string> sorted(std::vector<std::string> v) {
    std::sort(v.begin(), v.end());
    return v;
  }
  // Starts sync 1 of the device and runs it until it pauses inside eth0
  // (the turn ends at eth0's first message).
  void pauseInsideEth0(const Tree& t) {
    router_.onPush = [&] {
      const auto& prefix = router_.messages.back()->response->update().prefix();
      if (pathToStr(prefix) == DEV + "/interfaces[name=eth0]") clock_.advance(1.0);
    };
    scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
    scheduler_.run(SLICE);
  }
  std::vector<SyncTarget> device(const Tree& t) const { return {{t.device, strToPath(DEV)}}; }
  // Starts sync `id` of the device, sharing its walk.
  void startShared(uint64_t id, const Tree& t) {
    scheduler_.start(SyncId(id), device(t), SUBSCRIBE, SyncScheduler::Sharing::Shared);
  }
  Vek::Ptr<Vek::Entity> interface(const Tree& t, const char* n) const {
    return t.device->entity("interfaces", name(n));
  }

  OstrelTest::TestRouter referenceRouter_;
  Receiver receiver_;
  SyncScheduler scheduler_{router_, receiver_, SLICE};
};

TEST_F(Scheduling, ASyncPausedEveryFewPushesPublishesWhatAnUninterruptedSyncPublishes) {
  Tree t = buildTree();
  const auto want = reference(t);
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  runAll();
  EXPECT_EQ(sorted(leavesOf(1)), want);
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
  EXPECT_GT(scheduler_.resumes(), 0u);
}

TEST_F(Scheduling, EachSyncTakesATurnBeforeAnyTakesASecond) {
  Tree t = buildTree();
  for (uint64_t id = 1; id <= 3; ++id) scheduler_.start(SyncId(id), device(t), SUBSCRIBE);
  scheduler_.run(1.0);
  // Three pushes a turn: 1 1 1 2 2 2 3 3 3 1 ...
  ASSERT_GE(router_.syncIds.size(), 10u);
  std::vector<uint64_t> firstTurns;
  for (size_t i = 0; i < 10; ++i) firstTurns.push_back(router_.syncIds[i].value());
  EXPECT_THAT(firstTurns, ElementsAre(1u, 1u, 1u, 2u, 2u, 2u, 3u, 3u, 3u, 1u));
}

TEST_F(Scheduling, ASmallSyncEndsInItsFirstTurnBesideLargeOnes) {
  Tree t = buildTree();
  for (uint64_t id = 1; id <= 20; ++id) scheduler_.start(SyncId(id), device(t), SUBSCRIBE);
  const auto chassis = t.device->entity("chassis");
  scheduler_.start(SyncId(100), {{chassis, strToPath(DEV + "/chassis")}}, SUBSCRIBE);
  scheduler_.run(1.0);
  // It waited for one turn of each large sync (three pushes each), not for
  // any of them to end.
  ASSERT_FALSE(receiver_.done.empty());
  EXPECT_EQ(receiver_.done.front(), 100u);
  const auto first = std::find(router_.syncIds.begin(), router_.syncIds.end(), SyncId(100));
  EXPECT_EQ(first - router_.syncIds.begin(), 60);
}

TEST_F(Scheduling, ASyncWithoutRoomGetsNoTurnsUntilRoomIsFreed) {
  Tree t = buildTree();
  receiver_.full.insert(1);
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  scheduler_.start(SyncId(2), device(t), SUBSCRIBE);
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(2u));
  EXPECT_TRUE(leavesOf(1).empty());
  EXPECT_FALSE(scheduler_.hasWork());
  receiver_.full.clear();
  scheduler_.roomFreed();
  EXPECT_TRUE(scheduler_.hasWork());
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(2u, 1u));
  EXPECT_EQ(sorted(leavesOf(1)), reference(t));
}

TEST_F(Scheduling, ARouterThatRefusesEveryMessagePausesTheSyncWithoutLosingAny) {
  Tree t = buildTree();
  const auto want = reference(t);
  router_.onPush = nullptr;
  router_.refuseAll = true;
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  runAll();
  EXPECT_EQ(sorted(leavesOf(1)), want);
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
}

TEST_F(Scheduling, BetweenTurnsTheRegistryHoldsNoWalk) {
  Tree t = buildTree();
  for (uint64_t id = 1; id <= 5; ++id) scheduler_.start(SyncId(id), device(t), SUBSCRIBE);
  scheduler_.run(4.5 * SLICE);  // a turn each
  EXPECT_EQ(scheduler_.pausedWalks(), 5u);
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapStartSize(), 0u);
  EXPECT_TRUE(staticPathWalkIdMap.empty());
}

TEST_F(Scheduling, DeletingAMemberPausedInsideGoesOnWithItsOwnersOtherMembers) {
  Tree t = buildTree();
  pauseInsideEth0(t);
  ASSERT_EQ(scheduler_.pausedWalks(), 1u);
  const size_t before = router_.messages.size();
  t.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  t.eth0 = nullptr;  // gone for good
  const auto want = reference(t);
  router_.onPush = nullptr;
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
  // Everything the model still holds came (eth1 included, after eth0), and
  // nothing of eth0 after its delete.
  std::vector<std::string> published;
  for (const auto& leaf : sorted(leavesOf(1))) {
    if (leaf.find("[name=eth0]") == std::string::npos) published.push_back(leaf);
  }
  std::vector<std::string> missing;
  std::set_difference(want.begin(), want.end(), published.begin(), published.end(), std::back_inserter(missing));
  EXPECT_THAT(missing, ::testing::IsEmpty());
  for (size_t i = before; i < router_.messages.size(); ++i) {
    if (router_.syncIds[i] != SyncId(1)) continue;
    EXPECT_EQ(pathToStr(router_.messages[i]->response->update().prefix()).find("[name=eth0]"),
              std::string::npos);
  }
  EXPECT_EQ(scheduler_.droppedWalkers(), 1u);
}

TEST_F(Scheduling, DeletingAMemberNotYetReachedPublishesNothingOfIt) {
  Tree t = buildTree();
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  router_.onPush = [&] { clock_.advance(1.0); };  // one push a turn
  scheduler_.run(SLICE);
  ASSERT_EQ(scheduler_.pausedWalks(), 1u);
  t.device->entityDel(types().device->attr("interfaces"), name("eth1"));
  router_.onPush = nullptr;
  runAll();
  for (const auto& leaf : leavesOf(1)) EXPECT_EQ(leaf.find("[name=eth1]"), std::string::npos) << leaf;
  EXPECT_FALSE(leavesOf(1).empty());
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
}

TEST_F(Scheduling, AMemberRecreatedWhilePausedInsideIsPublishedAnew) {
  Tree t = buildTree();
  pauseInsideEth0(t);
  t.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  t.device->entityNew("interfaces", name("eth0"))->valueIs("mtu", 1234u);
  router_.onPush = nullptr;
  const size_t before = router_.messages.size();
  runAll();
  bool newMtu = false;
  for (size_t i = before; i < router_.messages.size(); ++i) {
    if (router_.syncIds[i] != SyncId(1)) continue;
    const gnmi::Notification& n = router_.messages[i]->response->update();
    for (const auto& u : n.update()) {
      if (pathToStr(joinPath(n.prefix(), u.path())) == DEV + "/interfaces[name=eth0]/mtu") {
        newMtu = newMtu || u.val().uint_val() == 1234u;
      }
    }
  }
  EXPECT_TRUE(newMtu);
  EXPECT_EQ(scheduler_.resyncs(), 1u);
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
}

TEST_F(Scheduling, ATargetThatLeftBeforeItsWalkStartedIsSkipped) {
  Tree t = buildTree();
  Vek::Ptr<Vek::Entity> eth1 = interface(t, "eth1");
  scheduler_.start(SyncId(1), {{eth1, strToPath(DEV + "/interfaces[name=eth1]")}}, SUBSCRIBE);
  t.device->entityDel(types().device->attr("interfaces"), name("eth1"));
  eth1 = nullptr;
  runAll();
  EXPECT_TRUE(router_.messages.empty());
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
}

TEST_F(Scheduling, ATargetRecreatedBeforeItsWalkStartedIsFoundThroughTheResolver) {
  Tree t = buildTree();
  const gnmi::Path path = strToPath(DEV + "/interfaces[name=eth1]");
  scheduler_.start(SyncId(1), {{interface(t, "eth1"), path}}, SUBSCRIBE);
  t.device->entityDel(types().device->attr("interfaces"), name("eth1"));
  t.device->entityNew("interfaces", name("eth1"))->valueIs("mtu", 4321u);
  std::vector<std::string> asked;
  scheduler_.resolverIs([&](const gnmi::Path& p) {
    asked.push_back(pathToStr(p));
    return interface(t, "eth1");
  });
  runAll();
  EXPECT_THAT(asked, ElementsAre(DEV + "/interfaces[name=eth1]"));
  EXPECT_THAT(leavesOf(1), ::testing::Contains(DEV + "/interfaces[name=eth1]/mtu"));
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
}

TEST_F(Scheduling, CancellingAPausedSyncDropsItWithoutTellingItsReceiver) {
  Tree t = buildTree();
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  scheduler_.run(SLICE);
  ASSERT_EQ(scheduler_.pausedWalks(), 1u);
  EXPECT_TRUE(scheduler_.cancel(SyncId(1)));
  EXPECT_FALSE(scheduler_.cancel(SyncId(1)));
  EXPECT_EQ(scheduler_.syncCount(), 0u);
  EXPECT_FALSE(scheduler_.hasWork());
  const size_t pushed = router_.messages.size();
  runAll();
  EXPECT_EQ(router_.messages.size(), pushed);
  EXPECT_TRUE(receiver_.done.empty());
}

TEST_F(Scheduling, CancellingASyncFromInsideItsPushStopsItAfterThatMessage) {
  Tree t = buildTree();
  router_.onPush = [&] {
    if (router_.messages.size() == 2) scheduler_.cancel(SyncId(1));
  };
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  runAll();
  EXPECT_EQ(router_.messages.size(), 2u);
  EXPECT_EQ(scheduler_.syncCount(), 0u);
  EXPECT_TRUE(receiver_.done.empty());
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_TRUE(staticPathWalkIdMap.empty());
}

TEST_F(Scheduling, AReceiverMayStartTheNextSyncWhenToldOfTheEnd) {
  Tree t = buildTree();
  receiver_.onDone = [&](SyncId id) {
    if (id == SyncId(1)) scheduler_.start(SyncId(2), device(t), SUBSCRIBE);
  };
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u));
}

TEST_F(Scheduling, ASyncOfNoTargetsIsDoneAtTheNextRun) {
  scheduler_.start(SyncId(7), {}, SUBSCRIBE);
  EXPECT_TRUE(receiver_.done.empty());
  scheduler_.run(SLICE);
  EXPECT_THAT(receiver_.done, ElementsAre(7u));
}

TEST_F(Scheduling, TwoThousandPausingSyncsAllEndOnce) {
  Tree t = buildTree();
  const auto chassis = t.device->entity("chassis");
  router_.onPush = [&] { clock_.advance(1.0); };  // every push ends its turn
  for (uint64_t id = 1; id <= 2000; ++id) {
    scheduler_.start(SyncId(id), {{chassis, strToPath(DEV + "/chassis")}, {interface(t, "eth1"), strToPath(DEV + "/interfaces[name=eth1]")}}, SUBSCRIBE);
  }
  runAll();
  ASSERT_EQ(receiver_.done.size(), 2000u);
  EXPECT_EQ(std::set<uint64_t>(receiver_.done.begin(), receiver_.done.end()).size(), 2000u);
  EXPECT_EQ(scheduler_.syncCount(), 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_TRUE(staticPathWalkIdMap.empty());
}

TEST_F(Scheduling, AWatchRegistersNotifieesAndPublishesNothing) {
  Tree t = buildTree();
  scheduler_.watch(device(t), SUBSCRIBE | WalkerFlags::NotifieeOption);
  EXPECT_TRUE(router_.messages.empty());
  EXPECT_TRUE(gNmiNotifieeMap.contains(strToPath(DEV)));
  // A change of the watched entity streams.
  t.device->valueIs("hostname", Vek::String("changed"));
  EXPECT_THAT(router_.leaves(), ElementsAre(DEV + "/hostname = string_val: \"changed\""));
}

TEST_F(Scheduling, ASyncStartedBesideSyncsThatHadTurnsTakesTheNextTurn) {
  Tree t = buildTree();
  for (uint64_t id = 1; id <= 20; ++id) scheduler_.start(SyncId(id), device(t), SUBSCRIBE);
  scheduler_.run(40 * SLICE);  // two turns each
  const size_t before = router_.messages.size();
  const auto chassis = t.device->entity("chassis");
  scheduler_.start(SyncId(100), {{chassis, strToPath(DEV + "/chassis")}}, SUBSCRIBE);
  scheduler_.run(SLICE);
  ASSERT_GT(router_.messages.size(), before);
  EXPECT_EQ(router_.syncIds[before], SyncId(100));
  EXPECT_THAT(receiver_.done, ElementsAre(100u));
}

TEST_F(Scheduling, ASyncStartedLaterTakesTurnsUntilItHasHadAsMuchTimeAsTheOthers) {
  Tree t = buildTree();
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  scheduler_.run(2.5 * SLICE);  // three turns of sync 1
  scheduler_.start(SyncId(2), device(t), SUBSCRIBE);
  const size_t before = router_.messages.size();
  scheduler_.run(2.5 * SLICE);
  std::vector<uint64_t> order;
  for (size_t i = before; i < router_.syncIds.size(); ++i) order.push_back(router_.syncIds[i].value());
  // Three turns of three pushes for sync 2 before sync 1 goes on.
  EXPECT_THAT(order, ElementsAre(2u, 2u, 2u, 2u, 2u, 2u, 2u, 2u, 2u));
}

TEST_F(Scheduling, ATargetVacantAtItsTurnAndCreatedAgainBeforeTheEndIsPublished) {
  Tree t = buildTree();
  const gnmi::Path eth1Path = strToPath(DEV + "/interfaces[name=eth1]");
  const auto chassis = t.device->entity("chassis");
  scheduler_.start(SyncId(1), {{interface(t, "eth1"), eth1Path}, {chassis, strToPath(DEV + "/chassis")}}, SUBSCRIBE);
  t.device->entityDel(types().device->attr("interfaces"), name("eth1"));
  Vek::Ptr<Vek::Entity> again;
  scheduler_.resolverIs([&](const gnmi::Path&) { return again; });
  // The chassis's first message is pushed after eth1's turn found nothing:
  // eth1 comes back then.
  router_.onPush = [&] {
    if (!again) again = t.device->entityNew("interfaces", name("eth1"));
  };
  runAll();
  EXPECT_THAT(leavesOf(1), ::testing::Contains(DEV + "/interfaces[name=eth1]/mtu"));
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
}

TEST_F(Scheduling, AMemberThatLeftWhilePausedAndCameBackBeforeTheEndIsPublished) {
  Tree t = buildTree();
  pauseInsideEth0(t);
  t.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  router_.onPush = nullptr;
  scheduler_.run(SLICE);  // eth0's walker is dropped; the device goes on
  ASSERT_EQ(scheduler_.droppedWalkers(), 1u);
  t.device->entityNew("interfaces", name("eth0"))->valueIs("mtu", 4242u);
  runAll();
  bool published = false;
  for (size_t i = 0; i < router_.messages.size(); ++i) {
    const gnmi::Notification& n = router_.messages[i]->response->update();
    for (const auto& u : n.update()) {
      published = published || (pathToStr(joinPath(n.prefix(), u.path())) == DEV + "/interfaces[name=eth0]/mtu" &&
                                u.val().uint_val() == 4242u);
    }
  }
  EXPECT_TRUE(published);
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
}

// Shared walks.

TEST_F(Scheduling, SharedSyncsOfTheSameTargetsAndFlagsShareOneWalkAndTheSameMessages) {
  Tree t = buildTree();
  const auto want = reference(t);
  for (uint64_t id = 1; id <= 3; ++id) startShared(id, t);
  EXPECT_EQ(scheduler_.walkCount(), 1u);
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u, 3u));
  for (uint64_t id = 1; id <= 3; ++id) EXPECT_EQ(sorted(leavesOf(id)), want) << "sync " << id;
  // Every message went to each sync as the same handle, one after another.
  ASSERT_EQ(router_.messages.size() % 3, 0u);
  for (size_t i = 0; i < router_.messages.size(); i += 3) {
    EXPECT_EQ(router_.messages[i], router_.messages[i + 1]);
    EXPECT_EQ(router_.messages[i], router_.messages[i + 2]);
  }
  EXPECT_EQ(scheduler_.extraLaps(), 0u);
}

TEST_F(Scheduling, PrivateSyncsOrDifferentFlagsDoNotShare) {
  Tree t = buildTree();
  scheduler_.start(SyncId(1), device(t), SUBSCRIBE);
  scheduler_.start(SyncId(2), device(t), SUBSCRIBE);
  startShared(3, t);
  scheduler_.start(SyncId(4), device(t), WalkerFlags::RequestKindBit2, SyncScheduler::Sharing::Shared);
  EXPECT_EQ(scheduler_.walkCount(), 4u);
  runAll();
  EXPECT_EQ(receiver_.done.size(), 4u);
}

TEST_F(Scheduling, ASyncThatJoinsPartWayGetsTheRestThenWhatItMissedEachLeafOnce) {
  Tree t = buildTree();
  const auto want = reference(t);
  startShared(1, t);
  scheduler_.run(2.5 * SLICE);  // three turns of the walk
  ASSERT_TRUE(receiver_.done.empty());
  const size_t lapOneSoFar = router_.messages.size();
  startShared(2, t);
  EXPECT_EQ(scheduler_.joins(), 1u);
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u));
  EXPECT_EQ(sorted(leavesOf(2)), want);
  // The second lap stopped where sync 2 had joined: only the messages it
  // missed were built again.
  const size_t lapMessages = leavesOf(1).size();
  EXPECT_EQ(sorted(leavesOf(1)), want);
  EXPECT_EQ(scheduler_.extraLaps(), 1u);
  size_t secondLap = 0;
  for (size_t i = 0; i < router_.messages.size(); ++i) {
    if (router_.syncIds[i] != SyncId(2)) continue;
    bool alsoToOne = i > 0 && router_.messages[i - 1] == router_.messages[i] && router_.syncIds[i - 1] == SyncId(1);
    if (!alsoToOne) ++secondLap;
  }
  EXPECT_EQ(secondLap, lapOneSoFar);
  EXPECT_GT(lapMessages, lapOneSoFar);
}

TEST_F(Scheduling, ASyncThatJoinsAfterTheLastMessageTakesAWholeLap) {
  Tree t = buildTree();
  const auto want = reference(t);
  const size_t lapMessages = referenceRouter_.messages.size();
  startShared(1, t);
  size_t toOne = 0;
  router_.onPush = [&] {
    if (router_.syncIds.back() == SyncId(1) && ++toOne == lapMessages) {
      startShared(2, t);
    }
  };
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u));
  EXPECT_EQ(leavesOf(2).size(), want.size());
  EXPECT_EQ(sorted(leavesOf(2)), want);
  EXPECT_EQ(scheduler_.extraLaps(), 1u);
}

TEST_F(Scheduling, AFullSyncHoldsBackItsSharedWalkForAtMostTheHold) {
  Tree t = buildTree();
  const auto want = reference(t);
  startShared(1, t);
  startShared(2, t);
  receiver_.full.insert(2);
  runAll();
  EXPECT_TRUE(router_.messages.empty());
  ASSERT_TRUE(scheduler_.nextWake().has_value());
  EXPECT_DOUBLE_EQ(*scheduler_.nextWake(), clock_.currentTime() + SyncScheduler::DEFAULT_HOLD);
  clock_.advance(SyncScheduler::DEFAULT_HOLD);
  runAll();
  // The walk went on for sync 1 alone.
  EXPECT_THAT(receiver_.done, ElementsAre(1u));
  EXPECT_EQ(sorted(leavesOf(1)), want);
  EXPECT_TRUE(leavesOf(2).empty());
  EXPECT_FALSE(scheduler_.hasWork());
  receiver_.full.clear();
  scheduler_.roomFreed();
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u));
  EXPECT_EQ(sorted(leavesOf(2)), want);
}

TEST_F(Scheduling, ASyncThatFillsUpAndDrainsWithinTheHoldCostsNoSecondLap) {
  Tree t = buildTree();
  const auto want = reference(t);
  startShared(1, t);
  startShared(2, t);
  // Sync 2 fills up at its fifth message and has room again at the next run.
  size_t toTwo = 0;
  router_.onPush = [&] {
    clock_.advance(SLICE / 2.9);
    if (router_.syncIds.back() == SyncId(2) && ++toTwo == 5) receiver_.full.insert(2);
  };
  scheduler_.run(1.0);
  EXPECT_FALSE(scheduler_.hasWork());
  receiver_.full.clear();
  scheduler_.roomFreed();
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u));
  EXPECT_EQ(leavesOf(1).size(), want.size());
  EXPECT_EQ(leavesOf(2).size(), want.size());
  EXPECT_EQ(sorted(leavesOf(2)), want);
  EXPECT_EQ(scheduler_.extraLaps(), 0u);
}

TEST_F(Scheduling, ASyncThatStaysFullMidWalkLeavesItsAudienceAndGetsEverythingLater) {
  Tree t = buildTree();
  const auto want = reference(t);
  startShared(1, t);
  startShared(2, t);
  size_t toTwo = 0;
  router_.onPush = [&] {
    clock_.advance(SLICE / 2.9);
    if (router_.syncIds.back() == SyncId(2) && ++toTwo == 5) receiver_.full.insert(2);
  };
  receiver_.onDone = [&](SyncId id) {
    if (id == SyncId(1)) {
      receiver_.full.clear();
      scheduler_.roomFreed();
    }
  };
  runAll();
  ASSERT_TRUE(scheduler_.nextWake().has_value());
  clock_.advance(SyncScheduler::DEFAULT_HOLD);
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u));
  EXPECT_EQ(sorted(leavesOf(1)), want);
  std::vector<std::string> two = leavesOf(2);
  std::set<std::string> distinct(two.begin(), two.end());
  EXPECT_EQ(std::vector<std::string>(distinct.begin(), distinct.end()), want);
  EXPECT_EQ(scheduler_.extraLaps(), 1u);
}

TEST_F(Scheduling, WhenEverySyncOfASharedWalkIsFullTheWalkWaits) {
  Tree t = buildTree();
  startShared(1, t);
  startShared(2, t);
  receiver_.full = {1, 2};
  runAll();
  EXPECT_TRUE(router_.messages.empty());
  EXPECT_FALSE(scheduler_.hasWork());
  receiver_.full.clear();
  scheduler_.roomFreed();
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(1u, 2u));
  EXPECT_EQ(scheduler_.extraLaps(), 0u);
}

TEST_F(Scheduling, CancellingOneSyncOfASharedWalkKeepsTheWalkForTheOthers) {
  Tree t = buildTree();
  const auto want = reference(t);
  startShared(1, t);
  startShared(2, t);
  scheduler_.run(SLICE);
  EXPECT_TRUE(scheduler_.cancel(SyncId(1)));
  EXPECT_EQ(scheduler_.walkCount(), 1u);
  runAll();
  EXPECT_THAT(receiver_.done, ElementsAre(2u));
  EXPECT_EQ(sorted(leavesOf(2)), want);
  EXPECT_TRUE(scheduler_.cancel(SyncId(2)) == false);
  EXPECT_EQ(scheduler_.walkCount(), 0u);
}

TEST_F(Scheduling, CancellingEverySyncOfASharedWalkDropsIt) {
  Tree t = buildTree();
  startShared(1, t);
  startShared(2, t);
  scheduler_.run(SLICE);
  ASSERT_EQ(scheduler_.pausedWalks(), 1u);
  scheduler_.cancel(SyncId(1));
  scheduler_.cancel(SyncId(2));
  EXPECT_EQ(scheduler_.walkCount(), 0u);
  EXPECT_EQ(scheduler_.pausedWalks(), 0u);
  EXPECT_FALSE(scheduler_.hasWork());
  EXPECT_TRUE(receiver_.done.empty());
}

TEST_F(Scheduling, AJoinedSyncWhoseFirstMessagesLeftTheModelTakesTheWholeNextLap) {
  Tree t = buildTree();
  startShared(1, t);
  // Sync 2 joins as the walk enters eth0, so its first messages are eth0's.
  router_.onPush = [&] {
    const auto& prefix = router_.messages.back()->response->update().prefix();
    if (router_.syncIds.back() == SyncId(1) && pathToStr(prefix) == DEV + "/interfaces[name=eth0]" &&
        scheduler_.syncCount() == 1) {
      startShared(2, t);
    }
  };
  receiver_.onDone = [&](SyncId id) {
    if (id == SyncId(1)) {
      t.device->entityDel(types().device->attr("interfaces"), name("eth0"));
      t.device->entityDel(types().device->attr("interfaces"), name("eth1"));
    }
  };
  runAll();
  ASSERT_THAT(receiver_.done, ElementsAre(1u, 2u));
  const auto want = reference(t);
  std::vector<std::string> two = leavesOf(2);
  std::set<std::string> distinct(two.begin(), two.end());
  for (const auto& leaf : want) EXPECT_TRUE(distinct.contains(leaf)) << leaf;
}

TEST_F(Scheduling, StartingSyncIdZeroIsFatal) {
  EXPECT_FATAL(scheduler_.start(SyncId(), {}, SUBSCRIBE), "sync id 0 cannot be scheduled");
}

TEST_F(Scheduling, StartingASyncIdThatIsQueuedIsFatal) {
  scheduler_.start(SyncId(3), {}, SUBSCRIBE);
  EXPECT_FATAL(scheduler_.start(SyncId(3), {}, SUBSCRIBE), "sync 3 is already scheduled");
}

}  // namespace
