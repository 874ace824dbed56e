// The router and the sync pump: routing of library messages by sync id and
// of changes by subscribed paths, timestamps, the pump that runs syncs in
// turns, pauses on full subscribers, and cancellation. Driven by the scripted
// library double on a real event loop; the event loop itself on a manual
// clock.
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Router.h"
#include "SyncPump.h"
#include "Clock.h"
#include "EventLoop.h"
#include "ScriptedLibrary.h"

namespace {

using namespace VekGnmi::Server;
using namespace VekGnmiTest;

// An owner that records what it gets and has room for `room` messages.
struct RecordingOwner : SyncOwner {
  bool onSyncMessage(Ostrel::SyncId id, const Ostrel::ArenaRespMsgPtr& msg) override {
    messages.push_back(msg);
    lastId = id;
    return messages.size() < room;
  }
  void onSyncDone(Ostrel::SyncId id) override { done.push_back(id); }
  bool hasRoom() const override { return messages.size() < room; }
  std::vector<Ostrel::ArenaRespMsgPtr> messages;
  std::vector<Ostrel::SyncId> done;
  Ostrel::SyncId lastId;
  size_t room = 1000000;
};

struct RecordingSink : ChangeSink {
  void onChange(const Ostrel::ArenaRespMsgPtr& msg, const ChangeMatch& match) override {
    changes.push_back(msg);
    matches.push_back(match);
  }
  std::vector<Ostrel::ArenaRespMsgPtr> changes;
  std::vector<ChangeMatch> matches;
};

class RouterTest : public ::testing::Test {
 protected:
  RouterTest() : router_(systemClock()), pump_(loop_, library_) {
    router_.bridgeIs(&library_, &pump_);
    library_.connect(&router_, &router_);
    loop_.start();
  }
  ~RouterTest() override { loop_.stop(); }

  // Runs `fn` on the loop, then lets the loop run what it posted.
  template <typename Fn>
  void onLoop(Fn fn) {
    loop_.call(fn);
    settle();
  }
  void settle() {
    for (int i = 0; i < 50; ++i) loop_.call([] {});
  }

  std::vector<PublishedEntity> targets(std::initializer_list<const char*> paths) {
    std::vector<PublishedEntity> out;
    for (const char* p : paths) out.push_back({nullptr, pathOf(p)});
    return out;
  }

  ScriptedLibrary library_;
  EventLoop loop_;
  Router router_;
  SyncPump pump_;
};

TEST_F(RouterTest, SyncMessagesGoToTheirOwnerAndTheOwnerLearnsTheEnd) {
  library_.script("/d/a", {uintLeaf("x", 1), uintLeaf("y", 2)});
  library_.script("/d/b", {uintLeaf("z", 3)});
  RecordingOwner owner;
  RecordingOwner other;
  Ostrel::SyncId id;
  onLoop([&] { id = router_.startSync(owner, targets({"/d/a", "/d/b"}), SyncKind::Subscribe); });
  ASSERT_EQ(owner.messages.size(), 3u);
  EXPECT_EQ(owner.lastId, id);
  EXPECT_TRUE(other.messages.empty());
  ASSERT_EQ(owner.done.size(), 1u);
  EXPECT_EQ(owner.done[0], id);
  // Timestamps the library left at 0 carry the time the sync started.
  const int64_t stamp = owner.messages[0]->response->update().timestamp();
  EXPECT_GT(stamp, 1600000000000000000);
  EXPECT_EQ(owner.messages[2]->response->update().timestamp(), stamp);
  EXPECT_EQ(router_.activeSyncs(), 0u);
}

TEST_F(RouterTest, AnEmptySyncEndsFromTheLoopNotInsideStart) {
  RecordingOwner owner;
  bool doneInsideStart = true;
  onLoop([&] {
    router_.startSync(owner, {}, SyncKind::Get);
    doneInsideStart = !owner.done.empty();
  });
  EXPECT_FALSE(doneInsideStart);
  EXPECT_EQ(owner.done.size(), 1u);
}

TEST_F(RouterTest, AFullOwnerPausesItsSyncUntilRoomIsFreed) {
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < 10; ++i) leaves.push_back(uintLeaf("l" + std::to_string(i), i));
  library_.script("/d/a", leaves);
  RecordingOwner owner;
  owner.room = 3;
  onLoop([&] { router_.startSync(owner, targets({"/d/a"}), SyncKind::Subscribe); });
  EXPECT_EQ(owner.messages.size(), 3u);  // the third push answered false
  EXPECT_TRUE(owner.done.empty());
  EXPECT_EQ(library_.pausedWalks(), 1u);
  const size_t resumes = library_.resumeCalls;
  settle();
  EXPECT_EQ(library_.resumeCalls, resumes) << "no busy resuming while the owner is full";
  owner.room = 100;
  onLoop([&] { router_.roomFreed(); });
  EXPECT_EQ(owner.messages.size(), 10u);
  EXPECT_EQ(owner.done.size(), 1u);
  EXPECT_EQ(library_.pausedWalks(), 0u);
}

TEST_F(RouterTest, WalksThatRunOutOfTimeAreResumedWithoutHelp) {
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < 20; ++i) leaves.push_back(uintLeaf("l" + std::to_string(i), i));
  library_.script("/d/a", leaves);
  library_.quantum = 4;
  RecordingOwner owner;
  onLoop([&] { router_.startSync(owner, targets({"/d/a"}), SyncKind::Get); });
  EXPECT_EQ(owner.messages.size(), 20u);
  EXPECT_EQ(owner.done.size(), 1u);
  EXPECT_GE(library_.resumeCalls, 4u);
}

TEST_F(RouterTest, CancelDropsPendingWalksAndForgetsTheOwner) {
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < 10; ++i) leaves.push_back(uintLeaf("l" + std::to_string(i), i));
  library_.script("/d/a", leaves);
  RecordingOwner owner;
  owner.room = 2;
  onLoop([&] { router_.startSync(owner, targets({"/d/a", "/d/b"}), SyncKind::Subscribe); });
  EXPECT_EQ(library_.pausedWalks(), 1u);
  onLoop([&] { router_.cancel(owner); });
  EXPECT_EQ(library_.cancelled, 1u);
  EXPECT_EQ(library_.pausedWalks(), 0u);
  EXPECT_EQ(router_.activeSyncs(), 0u);
  EXPECT_EQ(library_.pausedWalks(), 0u);
  EXPECT_TRUE(owner.done.empty());
  // A late message for the cancelled sync is dropped.
  bool answer = false;
  onLoop([&] {
    auto [msg, n] = Ostrel::ArenaRespMsg::createResponse(pathOf("/d/a"), 1);
    answer = router_.push(owner.lastId, msg);
  });
  EXPECT_TRUE(answer);
  EXPECT_EQ(owner.messages.size(), 2u);
}

TEST_F(RouterTest, ChangesGoToEverySinkAndAreStampedNow) {
  RecordingSink a;
  RecordingSink b;
  bool answer = false;
  onLoop([&] {
    router_.addChangeSink(&a, {pathOf("/d")});
    router_.addChangeSink(&b, {pathOf("/")});
    answer = library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 1)});
    router_.removeChangeSink(&b);
    library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 2)}, {}, 77);
  });
  EXPECT_TRUE(answer);
  ASSERT_EQ(a.changes.size(), 2u);
  EXPECT_EQ(b.changes.size(), 1u);
  EXPECT_GT(a.changes[0]->response->update().timestamp(), 1600000000000000000);
  EXPECT_EQ(a.changes[1]->response->update().timestamp(), 77);
}

TEST_F(RouterTest, ChangesGoOnlyToSinksWithSomethingUnderTheirPathsAndSayWhich) {
  RecordingSink a;
  RecordingSink b;
  onLoop([&] {
    router_.addChangeSink(&a, {pathOf("/d/a/x"), pathOf("/d/*/y"), pathOf("/e")});
    router_.addChangeSink(&b, {pathOf("/d/b")});
    library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 1), uintLeaf("z", 2), uintLeaf("y", 3)});
  });
  EXPECT_TRUE(b.changes.empty());
  ASSERT_EQ(a.matches.size(), 1u);
  using Pair = std::pair<int, size_t>;
  EXPECT_THAT(a.matches[0].updates, ::testing::ElementsAre(Pair{0, 0}, Pair{2, 1}));
  EXPECT_TRUE(a.matches[0].deletes.empty());
}

TEST_F(RouterTest, ADeleteReachesSinksOfPathsBelowIt) {
  RecordingSink a;
  onLoop([&] {
    router_.addChangeSink(&a, {pathOf("/d/a/x")});
    library_.pushChange(pathOf("/d"), {}, {pathOf("a")});
  });
  ASSERT_EQ(a.matches.size(), 1u);
  EXPECT_THAT(a.matches[0].deletes, ::testing::ElementsAre(std::pair<int, size_t>{0, 0}));
}

TEST_F(RouterTest, WatchRegistersWithoutPublishing) {
  onLoop([&] { router_.watch(targets({"/d"})); });
  ASSERT_EQ(library_.synced.size(), 1u);
  EXPECT_EQ(library_.synced[0].path, "/d");
  EXPECT_EQ(library_.synced[0].kind, SyncKind::Watch);
}

TEST(WalkerFlags, KindsMapToTheLibrarysRequestBitsPlusTheNotifieeOption) {
  EXPECT_EQ(walkerFlagBits(SyncKind::Get), 2u | 64u);
  EXPECT_EQ(walkerFlagBits(SyncKind::Subscribe), 4u | 64u);
  EXPECT_EQ(walkerFlagBits(SyncKind::Watch), 6u | 64u | 16u);
}

TEST(EventLoopTest, TasksRunInOrderAndTimersWhenDue) {
  EventLoop loop;
  loop.start();
  std::vector<int> order;
  std::promise<void> timerRan;
  loop.postAfter(std::chrono::milliseconds(30), [&] {
    order.push_back(3);
    timerRan.set_value();
  });
  const EventLoop::TimerId dropped = loop.postAfter(std::chrono::milliseconds(10), [&] { order.push_back(99); });
  EXPECT_TRUE(loop.cancel(dropped));
  EXPECT_FALSE(loop.cancel(dropped));
  loop.post([&] { order.push_back(1); });
  loop.post([&] { order.push_back(2); });
  timerRan.get_future().wait();
  EXPECT_EQ(loop.call([&] { return order; }), (std::vector<int>{1, 2, 3}));
  EXPECT_TRUE(loop.call([&] { return loop.inLoopThread(); }));
  EXPECT_FALSE(loop.inLoopThread());
  loop.stop();
  EXPECT_FALSE(loop.post([] {}));
  EXPECT_THROW(loop.call([] { return 1; }), std::runtime_error);
}

}  // namespace

namespace {

using namespace VekGnmi::Server;

// The event loop on a clock a test moves.

TEST(EventLoop, TimersFireOnlyAsTheManualClockAdvancesAndInTheirOrder) {
  ManualClock clock;
  EventLoop loop(clock);
  loop.start();
  std::vector<int> fired;
  loop.call([&] {
    loop.postAfter(std::chrono::milliseconds(30), [&] { fired.push_back(30); });
    loop.postAfter(std::chrono::milliseconds(10), [&] { fired.push_back(10); });
  });
  clock.advance(std::chrono::milliseconds(9));
  loop.call([] {});
  EXPECT_TRUE(loop.call([&] { return fired.empty(); }));
  clock.advance(std::chrono::milliseconds(1));
  ASSERT_TRUE(loop.waitUntil([&] { return fired.size() == 1; }));
  clock.advance(std::chrono::milliseconds(20));
  ASSERT_TRUE(loop.waitUntil([&] { return fired.size() == 2; }));
  EXPECT_EQ(loop.call([&] { return fired; }), (std::vector<int>{10, 30}));
  loop.stop();
}

TEST(EventLoop, ATimerThatKeepsComingDueDoesNotStarveTasks) {
  ManualClock clock;
  EventLoop loop(clock);
  loop.start();
  // A timer that reposts itself already due, forever.
  std::function<void()> again = [&] { loop.postAfter(EventLoop::Duration(0), again); };
  loop.call([&] { loop.postAfter(EventLoop::Duration(0), again); });
  EXPECT_EQ(loop.call([] { return 7; }), 7);
  loop.stop();
}

TEST(EventLoop, WaitUntilReturnsWhenTheConditionHoldsAfterSomeTask) {
  EventLoop loop;
  loop.start();
  int state = 0;
  std::thread later([&] {
    for (int i = 1; i <= 3; ++i) loop.post([&, i] { state = i; });
  });
  EXPECT_TRUE(loop.waitUntil([&] { return state == 3; }));
  later.join();
  loop.stop();
}

TEST(EventLoop, WaitUntilGivesUpWhenTheLoopStops) {
  EventLoop loop;
  loop.start();
  std::thread stopper([&] { loop.post([&] { loop.stop(); }); });
  EXPECT_FALSE(loop.waitUntil([] { return false; }));
  stopper.join();
}

TEST(EventLoop, WaitUntilGivesUpAfterItsTimeoutAndForgetsTheCondition) {
  EventLoop loop;
  loop.start();
  {
    bool never = false;
    EXPECT_FALSE(loop.waitUntil([&] { return never; }, std::chrono::milliseconds(1)));
  }
  // The condition, whose state has gone, is never evaluated again.
  EXPECT_EQ(loop.call([] { return 1; }), 1);
  loop.stop();
}

}  // namespace
