// The router and the sync pump: routing of library messages by sync id and
// of changes by subscribed paths, timestamps, the pump that runs syncs in
// turns, pauses on full subscribers, and cancellation. Driven by the scripted
// library double on a real event loop; everything on a manual clock, and
// every wait a wait for a state of the loop (EventLoop::waitUntil).
#include <future>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Clock.h"
#include "EventLoop.h"
#include "Router.h"
#include "ScriptedLibrary.h"
#include "SyncPump.h"

namespace {

namespace srv = VekGnmi::Server;
using namespace VekGnmiTest;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

using namespace std::chrono_literals;

// An owner that records what it gets and has room for `room` messages.
struct RecordingOwner : srv::SyncOwner {
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

struct RecordingSink : srv::ChangeSink {
  void onChange(const Ostrel::ArenaRespMsgPtr& msg, const srv::ChangeMatch& match) override {
    changes.push_back(msg);
    matches.push_back(match);
  }
  std::vector<Ostrel::ArenaRespMsgPtr> changes;
  std::vector<srv::ChangeMatch> matches;
};

std::vector<ScriptedLeaf> numberedLeaves(int count) {
  std::vector<ScriptedLeaf> leaves;
  for (int i = 0; i < count; ++i) leaves.push_back(uintLeaf("l" + std::to_string(i), i));
  return leaves;
}

// The router and the pump over the scripted library, on a loop of their
// own. The test's owners and sinks are touched on the loop only: `at`
// reads them there.
class Router : public ::testing::Test {
 protected:
  Router() : loop_(clock_), router_(clock_), pump_(loop_, library_) {
    router_.bridgeIs(&library_, &pump_);
    library_.connect(&router_, &router_);
    loop_.start();
  }
  ~Router() override { loop_.stop(); }

  // Runs `fn` on the loop and returns its result.
  template <typename Fn>
  auto at(Fn fn) {
    return loop_.call(fn);
  }
  // Waits until `condition` holds on the loop.
  void waitUntil(std::function<bool()> condition) { ASSERT_TRUE(loop_.waitUntil(std::move(condition))); }

  std::vector<srv::PublishedEntity> targets(std::initializer_list<const char*> paths) {
    std::vector<srv::PublishedEntity> out;
    for (const char* p : paths) out.push_back({nullptr, pathOf(p)});
    return out;
  }
  Ostrel::SyncId startSync(RecordingOwner& owner, std::initializer_list<const char*> paths,
                           srv::SyncKind kind = srv::SyncKind::Subscribe) {
    return at([&] { return router_.startSync(owner, targets(paths), kind); });
  }

  ScriptedLibrary library_;
  srv::ManualClock clock_;
  srv::EventLoop loop_;
  srv::Router router_;
  srv::SyncPump pump_;
};

// The slices of `message`'s bytes as its writer would send them.
std::vector<grpc::Slice> bytesOf(const srv::OutMessage& message) {
  grpc::ByteBuffer bytes;
  EXPECT_TRUE(message.serialise(bytes));
  std::vector<grpc::Slice> slices;
  EXPECT_TRUE(bytes.Dump(&slices).ok());
  return slices;
}

std::string textOf(const std::vector<grpc::Slice>& slices) {
  std::string text;
  for (const grpc::Slice& s : slices) text.append(reinterpret_cast<const char*>(s.begin()), s.size());
  return text;
}

Ostrel::ArenaRespMsgPtr leafMessage(uint64_t value) {
  auto [msg, notification] = Ostrel::ArenaRespMsg::createResponse(pathOf("/d/a"), 7);
  gnmi::Update* update = notification->add_update();
  *update->mutable_path() = pathOf("/x");
  update->mutable_val()->set_uint_val(value);
  return msg;
}

TEST_F(Router, AMessageQueuedForSeveralStreamsIsSerialisedOnceForAll) {
  const Ostrel::ArenaRespMsgPtr msg = leafMessage(1);
  const auto [first, second] = at([&] { return std::pair(router_.outMessageOf(msg), router_.outMessageOf(msg)); });
  const std::vector<grpc::Slice> a = bytesOf(first);
  const std::vector<grpc::Slice> b = bytesOf(second);
  EXPECT_EQ(textOf(a), msg->response->SerializeAsString());
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) EXPECT_EQ(a[i].begin(), b[i].begin()) << "slice " << i << " was copied";
}

TEST_F(Router, AnotherMessageHasBytesOfItsOwn) {
  const Ostrel::ArenaRespMsgPtr one = leafMessage(1);
  const Ostrel::ArenaRespMsgPtr two = leafMessage(2);
  const srv::OutMessage first = at([&] { return router_.outMessageOf(one); });
  const srv::OutMessage second = at([&] { return router_.outMessageOf(two); });
  EXPECT_EQ(textOf(bytesOf(first)), one->response->SerializeAsString());
  EXPECT_EQ(textOf(bytesOf(second)), two->response->SerializeAsString());
}

TEST_F(Router, AMessageTheLibraryReusesIsNotTakenForTheOneBefore) {
  Ostrel::ArenaRespMsgPtr old = leafMessage(1);
  const Ostrel::ArenaRespMsg* where = old.get();
  {
    const srv::OutMessage first = at([&] { return router_.outMessageOf(old); });
    bytesOf(first);
  }
  old.reset();  // back to the pool, which hands it out again first
  const Ostrel::ArenaRespMsgPtr reused = leafMessage(2);
  ASSERT_EQ(reused.get(), where);
  const srv::OutMessage second = at([&] { return router_.outMessageOf(reused); });
  EXPECT_EQ(textOf(bytesOf(second)), reused->response->SerializeAsString());
}

TEST_F(Router, SyncMessagesGoToTheirOwnerOnly) {
  library_.script("/d/a", {uintLeaf("x", 1), uintLeaf("y", 2)});
  library_.script("/d/b", {uintLeaf("z", 3)});
  RecordingOwner owner;
  RecordingOwner other;
  const Ostrel::SyncId id = startSync(owner, {"/d/a", "/d/b"});
  waitUntil([&] { return !owner.done.empty(); });
  EXPECT_EQ(at([&] { return owner.messages.size(); }), 3u);
  EXPECT_EQ(at([&] { return owner.lastId; }), id);
  EXPECT_TRUE(at([&] { return other.messages.empty(); }));
}

TEST_F(Router, TheOwnerLearnsTheEndOfItsSync) {
  library_.script("/d/a", {uintLeaf("x", 1), uintLeaf("y", 2)});
  RecordingOwner owner;
  const Ostrel::SyncId id = startSync(owner, {"/d/a"});
  waitUntil([&] { return !owner.done.empty(); });
  EXPECT_THAT(at([&] { return owner.done; }), ElementsAre(id));
  EXPECT_EQ(at([&] { return router_.activeSyncs(); }), 0u);
}

TEST_F(Router, SyncMessagesTheLibraryLeftUnstampedCarryTheTimeTheSyncStarted) {
  library_.script("/d/a", {uintLeaf("x", 1), uintLeaf("y", 2)});
  library_.script("/d/b", {uintLeaf("z", 3)});
  RecordingOwner owner;
  const int64_t start = clock_.utcNanos();
  startSync(owner, {"/d/a", "/d/b"});
  clock_.advance(5s);  // the sync's start is what counts, not when a message goes out
  waitUntil([&] { return !owner.done.empty(); });
  at([&] {
    ASSERT_THAT(owner.messages, SizeIs(3));
    for (const auto& msg : owner.messages) EXPECT_EQ(msg->response->update().timestamp(), start);
  });
}

TEST_F(Router, AnEmptySyncEndsFromTheLoopNotInsideStart) {
  RecordingOwner owner;
  const bool doneInsideStart = at([&] {
    router_.startSync(owner, {}, srv::SyncKind::Get);
    return !owner.done.empty();
  });
  EXPECT_FALSE(doneInsideStart);
  waitUntil([&] { return owner.done.size() == 1; });
}

TEST_F(Router, CancelDropsTheOwnersPendingWalksAndForgetsIt) {
  library_.script("/d/a", numberedLeaves(10));
  RecordingOwner owner;
  owner.room = 2;
  startSync(owner, {"/d/a", "/d/b"});
  waitUntil([&] { return library_.pausedWalks() == 1; });
  at([&] { router_.cancel(owner); });
  EXPECT_EQ(at([&] { return library_.cancelled; }), 1u);
  EXPECT_EQ(at([&] { return library_.pausedWalks(); }), 0u);
  EXPECT_EQ(at([&] { return router_.activeSyncs(); }), 0u);
  EXPECT_TRUE(at([&] { return owner.done.empty(); }));
}

TEST_F(Router, AMessageForACancelledSyncIsDroppedAndAccepted) {
  library_.script("/d/a", numberedLeaves(10));
  RecordingOwner owner;
  owner.room = 2;
  startSync(owner, {"/d/a"});
  waitUntil([&] { return library_.pausedWalks() == 1; });
  at([&] { router_.cancel(owner); });
  const bool answer = at([&] {
    auto [msg, n] = Ostrel::ArenaRespMsg::createResponse(pathOf("/d/a"), 1);
    return router_.push(owner.lastId, msg);
  });
  EXPECT_TRUE(answer);
  EXPECT_EQ(at([&] { return owner.messages.size(); }), 2u);
}

TEST_F(Router, ChangesGoToEverySinkUntilItIsRemoved) {
  RecordingSink a;
  RecordingSink b;
  const bool answer = at([&] {
    router_.addChangeSink(&a, {pathOf("/d")});
    router_.addChangeSink(&b, {pathOf("/")});
    const bool accepted = library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 1)});
    router_.removeChangeSink(&b);
    library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 2)});
    return accepted;
  });
  EXPECT_TRUE(answer);
  EXPECT_EQ(at([&] { return a.changes.size(); }), 2u);
  EXPECT_EQ(at([&] { return b.changes.size(); }), 1u);
}

TEST_F(Router, ChangesTheLibraryLeftUnstampedAreStampedNowOthersKeepTheirTime) {
  RecordingSink a;
  at([&] {
    router_.addChangeSink(&a, {pathOf("/d")});
    library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 1)});
  });
  clock_.advance(3s);
  at([&] {
    library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 2)});
    library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 3)}, {}, 77);
  });
  at([&] {
    ASSERT_THAT(a.changes, SizeIs(3));
    EXPECT_EQ(a.changes[0]->response->update().timestamp(), clock_.utcNanos() - 3000000000);
    EXPECT_EQ(a.changes[1]->response->update().timestamp(), clock_.utcNanos());
    EXPECT_EQ(a.changes[2]->response->update().timestamp(), 77);
  });
}

TEST_F(Router, ChangesGoOnlyToSinksWithSomethingUnderTheirPathsAndSayWhich) {
  RecordingSink a;
  RecordingSink b;
  at([&] {
    router_.addChangeSink(&a, {pathOf("/d/a/x"), pathOf("/d/*/y"), pathOf("/e")});
    router_.addChangeSink(&b, {pathOf("/d/b")});
    library_.pushChange(pathOf("/d/a"), {uintLeaf("x", 1), uintLeaf("z", 2), uintLeaf("y", 3)});
  });
  at([&] {
    EXPECT_THAT(b.changes, IsEmpty());
    ASSERT_THAT(a.matches, SizeIs(1));
    using Pair = std::pair<int, size_t>;
    EXPECT_THAT(a.matches[0].updates, ElementsAre(Pair{0, 0}, Pair{2, 1}));
    EXPECT_THAT(a.matches[0].deletes, IsEmpty());
  });
}

TEST_F(Router, ADeleteReachesSinksOfPathsBelowIt) {
  RecordingSink a;
  at([&] {
    router_.addChangeSink(&a, {pathOf("/d/a/x")});
    library_.pushChange(pathOf("/d"), {}, {pathOf("a")});
  });
  at([&] {
    ASSERT_THAT(a.matches, SizeIs(1));
    EXPECT_THAT(a.matches[0].deletes, ElementsAre(std::pair<int, size_t>{0, 0}));
  });
}

TEST_F(Router, WatchRegistersWithoutPublishing) {
  at([&] { router_.watch(targets({"/d"})); });
  at([&] {
    ASSERT_THAT(library_.synced, SizeIs(1));
    EXPECT_EQ(library_.synced[0].path, "/d");
    EXPECT_EQ(library_.synced[0].kind, srv::SyncKind::Watch);
  });
}

// ---------------------------------------------------------------------------
// The pump

class SyncPump : public Router {};

TEST_F(SyncPump, AFullOwnerPausesItsSync) {
  library_.script("/d/a", numberedLeaves(10));
  RecordingOwner owner;
  owner.room = 3;
  startSync(owner, {"/d/a"});
  waitUntil([&] { return library_.pausedWalks() == 1; });
  EXPECT_EQ(at([&] { return owner.messages.size(); }), 3u);  // the third push answered false
  EXPECT_TRUE(at([&] { return owner.done.empty(); }));
}

TEST_F(SyncPump, APausedSyncIsNotResumedWhileItsOwnerIsFull) {
  library_.script("/d/a", numberedLeaves(10));
  RecordingOwner owner;
  owner.room = 3;
  startSync(owner, {"/d/a"});
  waitUntil([&] { return library_.pausedWalks() == 1; });
  const auto [runs, resumes] = at([&] { return std::make_pair(pump_.runs(), library_.resumeCalls); });
  // A pump that kept trying would have posted itself again: it would run
  // before this task.
  at([] {});
  EXPECT_EQ(at([&] { return pump_.runs(); }), runs) << "no busy resuming while the owner is full";
  EXPECT_EQ(at([&] { return library_.resumeCalls; }), resumes);
}

TEST_F(SyncPump, RoomFreedResumesAPausedSyncToItsEnd) {
  library_.script("/d/a", numberedLeaves(10));
  RecordingOwner owner;
  owner.room = 3;
  startSync(owner, {"/d/a"});
  waitUntil([&] { return library_.pausedWalks() == 1; });
  at([&] {
    owner.room = 100;
    router_.roomFreed();
  });
  waitUntil([&] { return owner.done.size() == 1; });
  EXPECT_EQ(at([&] { return owner.messages.size(); }), 10u);
  EXPECT_EQ(at([&] { return library_.pausedWalks(); }), 0u);
}

TEST_F(SyncPump, WalksThatYieldTheirTurnAreResumedWithoutHelp) {
  library_.script("/d/a", numberedLeaves(20));
  library_.quantum = 4;
  RecordingOwner owner;
  startSync(owner, {"/d/a"}, srv::SyncKind::Get);
  waitUntil([&] { return owner.done.size() == 1; });
  EXPECT_EQ(at([&] { return owner.messages.size(); }), 20u);
  EXPECT_GE(at([&] { return library_.resumeCalls; }), 4u);
}

TEST(WalkerFlags, KindsMapToTheLibrarysRequestBitsPlusTheNotifieeOption) {
  EXPECT_EQ(srv::walkerFlagBits(srv::SyncKind::Get), 2u | 64u);
  EXPECT_EQ(srv::walkerFlagBits(srv::SyncKind::Subscribe), 4u | 64u);
  EXPECT_EQ(srv::walkerFlagBits(srv::SyncKind::Watch), 6u | 64u | 16u);
}

// ---------------------------------------------------------------------------
// The event loop on a clock a test moves

TEST(EventLoop, TasksRunInTheOrderPostedAndATimerWhenTheClockReachesIt) {
  srv::ManualClock clock;
  srv::EventLoop loop(clock);
  loop.start();
  std::vector<int> order;
  loop.postAfter(30ms, [&] { order.push_back(3); });
  loop.post([&] { order.push_back(1); });
  loop.post([&] { order.push_back(2); });
  EXPECT_THAT(loop.call([&] { return order; }), ElementsAre(1, 2));
  clock.advance(30ms);
  ASSERT_TRUE(loop.waitUntil([&] { return order.size() == 3; }));
  EXPECT_THAT(loop.call([&] { return order; }), ElementsAre(1, 2, 3));
  loop.stop();
}

TEST(EventLoop, ACancelledTimerNeverRuns) {
  srv::ManualClock clock;
  srv::EventLoop loop(clock);
  loop.start();
  bool ran = false;
  const srv::EventLoop::TimerId dropped = loop.postAfter(10ms, [&] { ran = true; });
  EXPECT_TRUE(loop.cancel(dropped));
  EXPECT_FALSE(loop.cancel(dropped)) << "a timer is dropped once";
  bool later = false;
  loop.postAfter(10ms, [&] { later = true; });
  clock.advance(10ms);
  // The timer due at the same time has run: the dropped one would have too.
  ASSERT_TRUE(loop.waitUntil([&] { return later; }));
  EXPECT_FALSE(loop.call([&] { return ran; }));
  loop.stop();
}

TEST(EventLoop, CallRunsItsFunctionOnTheLoopsThread) {
  srv::ManualClock clock;
  srv::EventLoop loop(clock);
  loop.start();
  EXPECT_TRUE(loop.call([&] { return loop.inLoopThread(); }));
  EXPECT_FALSE(loop.inLoopThread());
  loop.stop();
}

TEST(EventLoop, AStoppedLoopTakesNoMoreTasks) {
  srv::ManualClock clock;
  srv::EventLoop loop(clock);
  loop.start();
  loop.stop();
  EXPECT_FALSE(loop.post([] {}));
  EXPECT_THROW(loop.call([] { return 1; }), std::runtime_error);
}

TEST(EventLoop, TimersFireOnlyAsTheManualClockAdvancesAndInTheirOrder) {
  srv::ManualClock clock;
  srv::EventLoop loop(clock);
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
  srv::ManualClock clock;
  srv::EventLoop loop(clock);
  loop.start();
  // A timer that reposts itself already due, forever.
  std::function<void()> again = [&] { loop.postAfter(srv::EventLoop::Duration(0), again); };
  loop.call([&] { loop.postAfter(srv::EventLoop::Duration(0), again); });
  EXPECT_EQ(loop.call([] { return 7; }), 7);
  loop.stop();
}

TEST(EventLoop, WaitUntilReturnsWhenTheConditionHoldsAfterSomeTask) {
  srv::EventLoop loop;
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
  srv::EventLoop loop;
  loop.start();
  std::thread stopper([&] { loop.post([&] { loop.stop(); }); });
  EXPECT_FALSE(loop.waitUntil([] { return false; }));
  stopper.join();
}

TEST(EventLoop, WaitUntilGivesUpAfterItsTimeoutAndForgetsTheCondition) {
  srv::EventLoop loop;
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
