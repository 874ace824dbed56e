// The per-subscriber queues: coalescing of changes by leaf, deletes, and the
// bounded sync part with its pause and resume signals; the channel that
// empties a queue into its writer.
#include <gtest/gtest.h>

#include <Ostrel/ArenaRespMsg.h>

#include "CoalescingQueue.h"
#include "GnmiPathText.h"
#include "TestPaths.h"
#include "StreamChannel.h"
#include "StreamQueue.h"

namespace {

using namespace VekGnmi::Server;

using VekGnmiTest::P;

gnmi::TypedValue u(uint64_t v) {
  gnmi::TypedValue t;
  t.set_uint_val(v);
  return t;
}

std::string str(const gnmi::Path& p) { return VekGnmi::pathString(p); }

TEST(CoalescingQueue, PathEncodingIsOrderedByPrefixAndDecodes) {
  const std::string parent = encodePath(P("/d/intf[name=eth3]"), gnmi::Path());
  const std::string child = encodePath(P("/d"), P("intf[name=eth3]/mtu"));
  const std::string other = encodePath(P("/d"), P("intf[name=eth30]/mtu"));
  EXPECT_EQ(child.compare(0, parent.size(), parent), 0);
  EXPECT_NE(other.compare(0, parent.size(), parent), 0);
  EXPECT_EQ(str(decodePath(child)), "/d/intf[name=eth3]/mtu");
  gnmi::Path odd = P("/x[b=2][a=\x1c\x1b]");
  odd.mutable_elem(0)->set_name("n\x1e\x1d");
  const gnmi::Path back = decodePath(encodePath(odd, gnmi::Path()));
  ASSERT_EQ(back.elem_size(), 1);
  EXPECT_EQ(back.elem(0).name(), "n\x1e\x1d");
  EXPECT_EQ(back.elem(0).key().at("a"), "\x1c\x1b");
  EXPECT_EQ(back.elem(0).key().at("b"), "2");
}

TEST(CoalescingQueue, NewerValuesReplaceQueuedOnesAndCountDuplicates) {
  CoalescingQueue q;
  for (uint64_t i = 0; i < 1000; ++i) {
    q.update(P("/d/i[name=a]"), P("counters/in"), u(i), 5);
    q.update(P("/d/i[name=b]"), P("counters/in"), u(i * 2), 5);
  }
  EXPECT_EQ(q.size(), 2u);  // bounded by distinct leaves
  EXPECT_EQ(q.coalesced(), 1998u);
  gnmi::Notification n;
  EXPECT_EQ(q.popInto(n, 100), 2u);
  ASSERT_EQ(n.update_size(), 2);
  EXPECT_EQ(str(n.update(0).path()), "/d/i[name=a]/counters/in");
  EXPECT_EQ(n.update(0).val().uint_val(), 999u);
  EXPECT_EQ(n.update(0).duplicates(), 999u);
  EXPECT_EQ(n.update(1).val().uint_val(), 1998u);
  EXPECT_EQ(n.timestamp(), 5);
  EXPECT_TRUE(q.empty());
}

TEST(CoalescingQueue, FirstEntryOrderIsKept) {
  CoalescingQueue q;
  q.update(P("/a"), P("x"), u(1), 1);
  q.update(P("/a"), P("y"), u(1), 1);
  q.update(P("/a"), P("x"), u(2), 1);
  gnmi::Notification n;
  q.popInto(n, 10);
  ASSERT_EQ(n.update_size(), 2);
  EXPECT_EQ(str(n.update(0).path()), "/a/x");
  EXPECT_EQ(n.update(0).val().uint_val(), 2u);
}

TEST(CoalescingQueue, DeleteDropsEverythingBelowItThenQueuesItself) {
  CoalescingQueue q;
  q.update(P("/d/i[name=eth3]"), P("mtu"), u(1), 1);
  q.update(P("/d/i[name=eth30]"), P("mtu"), u(1), 1);
  q.update(P("/d/i[name=eth3]/sub"), P("x"), u(1), 1);
  q.remove(P("/d"), P("i[name=eth3]"), 2);
  EXPECT_EQ(q.size(), 2u);
  EXPECT_EQ(q.superseded(), 2u);
  q.update(P("/d/i[name=eth3]"), P("mtu"), u(9), 3);  // re-created
  gnmi::Notification n;
  EXPECT_EQ(q.popInto(n, 10), 1u);  // one timestamp per notification
  EXPECT_EQ(str(n.update(0).path()), "/d/i[name=eth30]/mtu");
  n.Clear();
  EXPECT_EQ(q.popInto(n, 10), 1u);
  ASSERT_EQ(n.delete__size(), 1);
  EXPECT_EQ(str(n.delete_(0)), "/d/i[name=eth3]");
  n.Clear();
  EXPECT_EQ(q.popInto(n, 10), 1u);
  EXPECT_EQ(n.update(0).val().uint_val(), 9u);
  EXPECT_EQ(n.update(0).duplicates(), 0u);
}

TEST(CoalescingQueue, UpdateAfterDeleteOfTheSamePathReplacesIt) {
  CoalescingQueue q;
  q.remove(P("/d"), P("routes[p=1]"), 1);
  q.update(P("/d"), P("routes[p=1]"), u(4), 2);
  EXPECT_EQ(q.size(), 1u);
  gnmi::Notification n;
  q.popInto(n, 10);
  EXPECT_EQ(n.delete__size(), 0);
  EXPECT_EQ(n.update_size(), 1);
}

TEST(CoalescingQueue, PopIsLimited) {
  CoalescingQueue q;
  for (int i = 0; i < 10; ++i) q.update(P("/a"), P("l" + std::to_string(i)), u(1), 1);
  gnmi::Notification n;
  EXPECT_EQ(q.popInto(n, 4), 4u);
  EXPECT_EQ(q.size(), 6u);
}

std::shared_ptr<gnmi::SubscribeResponse> response(int64_t timestamp) {
  auto r = std::make_shared<gnmi::SubscribeResponse>();
  r->mutable_update()->set_timestamp(timestamp);
  return r;
}

TEST(StreamQueue, SyncPartIsBoundedAndReportsRoomAtHalf) {
  StreamQueue q(4);
  EXPECT_TRUE(q.pushSync(OutMessage(response(1))));
  EXPECT_TRUE(q.pushSync(OutMessage(response(2))));
  EXPECT_TRUE(q.pushSync(OutMessage(response(3))));
  EXPECT_FALSE(q.pushSync(OutMessage(response(4))));  // taken, but full now
  EXPECT_FALSE(q.pushSync(OutMessage(response(5))));  // still taken: nothing lost
  EXPECT_EQ(q.syncQueued(), 5u);
  EXPECT_FALSE(q.hasRoom());
  StreamQueue::Next next = q.pop();
  EXPECT_EQ(next.message.response().update().timestamp(), 1);
  EXPECT_FALSE(next.roomFreed);
  EXPECT_FALSE(q.pop().roomFreed);  // 3 left
  next = q.pop();                   // 2 left: half the limit
  EXPECT_TRUE(next.roomFreed);
  EXPECT_EQ(next.message.response().update().timestamp(), 3);
  EXPECT_FALSE(q.pop().roomFreed);  // reported once
  EXPECT_TRUE(q.hasRoom());
}

TEST(StreamQueue, SyncMessagesGoBeforeChanges) {
  StreamQueue q;
  q.pushUpdate(P("/a"), P("x"), u(1), 7);
  q.pushSync(OutMessage(response(1)));
  q.pushSyncResponse();
  EXPECT_EQ(q.pop().message.response().update().timestamp(), 1);
  EXPECT_TRUE(q.pop().message.response().sync_response());
  const StreamQueue::Next change = q.pop();
  ASSERT_TRUE(change.message);
  EXPECT_EQ(change.message.response().update().timestamp(), 7);
  EXPECT_FALSE(q.pop().message);
}

TEST(StreamQueue, ChangesCarryTheTarget) {
  StreamQueue q;
  q.targetIs("dut");
  q.pushDelete(P("/a"), P("b"), 3);
  const StreamQueue::Next next = q.pop();
  ASSERT_TRUE(next.message);
  EXPECT_EQ(next.message.response().update().prefix().target(), "dut");
  EXPECT_EQ(str(next.message.response().update().delete_(0)), "/a/b");
}

TEST(StreamQueue, LibraryMessagesAreSentAsTheyAre) {
  auto [msg, notification] = Ostrel::ArenaRespMsg::createResponse(P("/d"), 99);
  notification->add_update()->mutable_val()->set_uint_val(1);
  StreamQueue q;
  q.pushSync(OutMessage(msg));
  const StreamQueue::Next next = q.pop();
  EXPECT_TRUE(next.message.isLibraryMessage());
  EXPECT_EQ(&next.message.response(), msg->response);
}

TEST(StreamQueue, ClosedQueueDropsEverythingAndTakesNothing) {
  StreamQueue q(2);
  q.pushSync(OutMessage(response(1)));
  q.pushUpdate(P("/a"), P("x"), u(1), 1);
  q.close();
  EXPECT_TRUE(q.closed());
  EXPECT_EQ(q.syncQueued(), 0u);
  EXPECT_EQ(q.changesQueued(), 0u);
  EXPECT_FALSE(q.pushSync(OutMessage(response(2))));  // the sync waits to be cancelled
  EXPECT_FALSE(q.hasRoom());
  q.pushUpdate(P("/a"), P("x"), u(1), 1);
  EXPECT_FALSE(q.pop().message);
}

// A writer that records what the channel asks of it. Posted turns wait
// until the test runs them, as they wait for one of gRPC's threads in the
// agent.
struct RecordingWriter : StreamWriter {
  void startWrite(const OutMessage& message) override { written.push_back(message.response()); }
  void finish(const grpc::Status& status) override { finished.push_back(status); }
  void cancel(const grpc::Status& status) override { cancelled.push_back(status); }
  void post(std::function<void()> task) override { posted.push_back(std::move(task)); }
  // Runs the turns posted so far.
  void runPosted() {
    std::vector<std::function<void()>> tasks = std::move(posted);
    posted.clear();
    for (auto& task : tasks) task();
  }
  std::vector<gnmi::SubscribeResponse> written;
  std::vector<grpc::Status> finished;
  std::vector<grpc::Status> cancelled;
  std::vector<std::function<void()>> posted;
};

class StreamChannelTest : public ::testing::Test {
 protected:
  ManualClock clock_;
  RecordingWriter writer_;
  std::shared_ptr<StreamChannel> channel_ = std::make_shared<StreamChannel>(&writer_, 8, clock_);
};

const grpc::Status SLOW(grpc::StatusCode::RESOURCE_EXHAUSTED, "slow");

TEST_F(StreamChannelTest, AKickLeavesTheWriteToTheWritersTurn) {
  channel_->queue().pushSync(OutMessage(response(1)));
  channel_->kick();
  EXPECT_TRUE(writer_.written.empty());  // not on the kicking thread (the event loop)
  ASSERT_EQ(writer_.posted.size(), 1u);
  writer_.runPosted();
  ASSERT_EQ(writer_.written.size(), 1u);
  EXPECT_EQ(writer_.written[0].update().timestamp(), 1);
}

TEST_F(StreamChannelTest, KicksPostOneTurnAtATime) {
  channel_->queue().pushSync(OutMessage(response(1)));
  channel_->kick();
  channel_->queue().pushSync(OutMessage(response(2)));
  channel_->kick();
  channel_->kick();
  EXPECT_EQ(writer_.posted.size(), 1u);
  writer_.runPosted();
  EXPECT_EQ(writer_.written.size(), 1u);
  channel_->kick();  // a write is outstanding: its completion goes on
  EXPECT_TRUE(writer_.posted.empty());
}

TEST_F(StreamChannelTest, AKickWithNothingQueuedPostsNothing) {
  channel_->kick();
  EXPECT_TRUE(writer_.posted.empty());
}

TEST_F(StreamChannelTest, AWriteCompletionStartsTheNextWriteItself) {
  channel_->queue().pushSync(OutMessage(response(1)));
  channel_->queue().pushSync(OutMessage(response(2)));
  channel_->kick();
  writer_.runPosted();
  channel_->writeDone(true);
  EXPECT_TRUE(writer_.posted.empty());
  ASSERT_EQ(writer_.written.size(), 2u);
  EXPECT_EQ(writer_.written[1].update().timestamp(), 2);
}

TEST_F(StreamChannelTest, TheSendTimeRunsFromTheWritersTurn) {
  channel_->queue().pushSync(OutMessage(response(1)));
  channel_->kick();
  clock_.advance(std::chrono::seconds(3));
  EXPECT_EQ(channel_->writeBlockedFor(), Clock::Duration::zero());
  writer_.runPosted();
  clock_.advance(std::chrono::seconds(2));
  EXPECT_EQ(channel_->writeBlockedFor(), std::chrono::seconds(2));
}

TEST_F(StreamChannelTest, FinishWhenDrainedFinishesOnTheWritersTurnAfterTheQueue) {
  channel_->queue().pushSync(OutMessage(response(1)));
  channel_->finishWhenDrained(grpc::Status::OK);
  EXPECT_TRUE(writer_.finished.empty());
  writer_.runPosted();
  EXPECT_EQ(writer_.written.size(), 1u);
  EXPECT_TRUE(writer_.finished.empty());
  channel_->writeDone(true);
  ASSERT_EQ(writer_.finished.size(), 1u);
  EXPECT_TRUE(writer_.finished[0].ok());
}

TEST_F(StreamChannelTest, AnAbortEndsTheStreamAtOnceAndFinishesOnTheWritersTurn) {
  channel_->queue().pushSync(OutMessage(response(1)));
  EXPECT_TRUE(channel_->abort(SLOW));
  EXPECT_TRUE(channel_->ended());
  EXPECT_FALSE(channel_->abort(SLOW));
  EXPECT_TRUE(writer_.finished.empty());
  writer_.runPosted();
  EXPECT_TRUE(writer_.written.empty());  // what was queued is dropped
  ASSERT_EQ(writer_.finished.size(), 1u);
  EXPECT_EQ(writer_.finished[0].error_code(), grpc::StatusCode::RESOURCE_EXHAUSTED);
}

TEST_F(StreamChannelTest, AnAbortDuringAWriteCancelsWithItsStatusAndFinishesAfterTheFailedWrite) {
  channel_->queue().pushSync(OutMessage(response(1)));
  channel_->kick();
  writer_.runPosted();
  EXPECT_TRUE(channel_->abort(SLOW));
  ASSERT_EQ(writer_.cancelled.size(), 1u);  // overtakes the blocked write
  EXPECT_EQ(writer_.cancelled[0].error_message(), "slow");
  EXPECT_TRUE(writer_.finished.empty());
  channel_->writeDone(false);
  ASSERT_EQ(writer_.finished.size(), 1u);
  EXPECT_EQ(writer_.finished[0].error_message(), "slow");
}

TEST_F(StreamChannelTest, ATurnThatRunsAfterTheRpcIsDoneDoesNothing) {
  channel_->queue().pushSync(OutMessage(response(1)));
  channel_->kick();
  channel_->detach();
  channel_.reset();  // the posted turn holds the channel
  writer_.runPosted();
  EXPECT_TRUE(writer_.written.empty());
  EXPECT_TRUE(writer_.finished.empty());
}

}  // namespace
