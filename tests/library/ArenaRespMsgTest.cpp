// Response messages: building, recycling through the pool, counters, reuse
// cleanliness, heap use per message, and the one-line rendering.
#include <atomic>
#include <cstdlib>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Ostrel/ArenaRespMsg.h"
#include "Ostrel/Path.h"
#include "Ostrel/VekGnmiUtils.h"

#include "ArenaPoolState.h"
#include "CountingNew.h"

namespace {

using Ostrel::ArenaPool;
using Ostrel::ArenaRespMsg;
using Ostrel::ArenaRespMsgPtr;
using Ostrel::strToPath;
namespace Utils = Ostrel::VekGnmiUtils;
using OstrelTest::PoolCounters;
using OstrelTest::poolCounters;
using OstrelTest::PoolEmptier;
using OstrelTest::PoolSizeOverride;


// ---------------------------------------------------------------------------
// Pool and counters

TEST(ArenaRespMsg, PoolIsBuiltWithItsCapacityAtLoad) {
  std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
  EXPECT_EQ(ArenaPool::ARENA_POOL_SIZE, 2000u);
  EXPECT_EQ(Ostrel::arenaPool.capacity(), 2000u);
}

TEST(ArenaRespMsg, EmptyPoolBuildsThenReleaseRecyclesAndReuseTakesIt) {
  PoolEmptier emptier;
  const PoolCounters before = poolCounters();
  ASSERT_EQ(before.pooled, 0u);

  auto [msg, notification] = ArenaRespMsg::createResponse(strToPath("/a"), 1);
  ASSERT_NE(msg, nullptr);
  ASSERT_NE(notification, nullptr);
  const ArenaRespMsg* first = msg.get();
  PoolCounters now = poolCounters();
  EXPECT_EQ(now.msgs, before.msgs + 1);
  EXPECT_EQ(now.recycles, before.recycles);
  EXPECT_EQ(now.releases, before.releases);

  msg.reset();
  now = poolCounters();
  EXPECT_EQ(now.releases, before.releases + 1);
  EXPECT_EQ(now.pooled, 1u);
  EXPECT_EQ(now.msgs, before.msgs + 1);

  auto again = ArenaRespMsg::createResponse(strToPath("/b"), 2);
  now = poolCounters();
  EXPECT_EQ(again.msg.get(), first);
  EXPECT_EQ(now.recycles, before.recycles + 1);
  EXPECT_EQ(now.msgs, before.msgs + 1);
  EXPECT_EQ(now.pooled, 0u);
}

TEST(ArenaRespMsg, PoolIsLastInFirstOut) {
  PoolEmptier emptier;
  auto a = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  auto b = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  const ArenaRespMsg* rawA = a.get();
  const ArenaRespMsg* rawB = b.get();
  ASSERT_NE(rawA, rawB);
  a.reset();
  b.reset();
  EXPECT_EQ(ArenaRespMsg::createResponse(gnmi::Path(), 0).msg.get(), rawB);
  // The one just taken went back to the front; take both now.
  auto first = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  auto second = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  EXPECT_EQ(first.get(), rawB);
  EXPECT_EQ(second.get(), rawA);
}

TEST(ArenaRespMsg, ReleaseWhenPoolHoldsTwoThousandDestroysTheMessage) {
  PoolEmptier emptier;
  std::vector<ArenaRespMsgPtr> held;
  for (int i = 0; i < 2001; ++i) {
    held.push_back(ArenaRespMsg::createResponse(gnmi::Path(), i).msg);
  }
  ArenaRespMsgPtr last = std::move(held.back());
  held.pop_back();
  held.clear();  // 2000 releases fill the pool
  const PoolCounters full = poolCounters();
  ASSERT_EQ(full.pooled, 2000u);

  last.reset();
  const PoolCounters after = poolCounters();
  EXPECT_EQ(after.msgs, full.msgs - 1);
  EXPECT_EQ(after.releases, full.releases + 1);
  EXPECT_EQ(after.pooled, 2000u);
}

TEST(ArenaRespMsg, PoolSizeZeroFreesEveryReleasedMessage) {
  PoolEmptier emptier;
  auto msg = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  PoolSizeOverride zero(0);
  const PoolCounters before = poolCounters();
  msg.reset();
  const PoolCounters after = poolCounters();
  EXPECT_EQ(after.msgs, before.msgs - 1);
  EXPECT_EQ(after.releases, before.releases + 1);
  EXPECT_EQ(after.pooled, 0u);
}

TEST(ArenaRespMsg, LoweredPoolSizeKeepsPoolAtThatSize) {
  PoolEmptier emptier;
  std::vector<ArenaRespMsgPtr> held;
  for (int i = 0; i < 5; ++i) {
    held.push_back(ArenaRespMsg::createResponse(gnmi::Path(), 0).msg);
  }
  PoolSizeOverride three(3);
  const PoolCounters before = poolCounters();
  held.clear();
  const PoolCounters after = poolCounters();
  EXPECT_EQ(after.pooled, 3u);
  EXPECT_EQ(after.msgs, before.msgs - 2);
  EXPECT_EQ(after.releases, before.releases + 5);
}

TEST(ArenaRespMsg, DrainingAPoolSetsItsSizeToZeroAndFreesEveryMessage) {
  PoolEmptier emptier;
  std::vector<ArenaRespMsgPtr> handles;
  for (int i = 0; i < 4; ++i) {
    handles.push_back(ArenaRespMsg::createResponse(gnmi::Path(), 0).msg);
  }
  PoolSizeOverride restore(2000);  // the drain below sets it to 0
  const PoolCounters before = poolCounters();
  {
    ArenaPool pool;
    EXPECT_EQ(pool.capacity(), 2000u);
    for (auto& handle : handles) {
      pool.push_back(std::move(handle));
    }
    handles.clear();
    EXPECT_EQ(poolCounters().msgs, before.msgs);
  }
  const PoolCounters after = poolCounters();
  EXPECT_EQ(after.msgs, before.msgs - 4);
  EXPECT_EQ(after.releases, before.releases + 4);
  EXPECT_EQ(after.pooled, 0u);
  std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
  EXPECT_EQ(ArenaPool::ARENA_POOL_SIZE, 0u);
}

TEST(ArenaRespMsg, MessageObservedByAWeakPtrFromAnEarlierUseIsStillPooled) {
  PoolEmptier emptier;
  auto msg = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  const ArenaRespMsg* raw = msg.get();
  std::weak_ptr<ArenaRespMsg> observer = msg;
  msg.reset();  // pooled under a new handle; the weak_ptr keeps the old one
  EXPECT_TRUE(observer.expired());
  EXPECT_EQ(poolCounters().pooled, 1u);

  // Both of the message's own handle slots are now taken (the observed old
  // handle and the pooled one), so the next handle lives on the heap.
  msg = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  ASSERT_EQ(msg.get(), raw);
  const PoolCounters before = poolCounters();
  msg.reset();
  PoolCounters after = poolCounters();
  EXPECT_EQ(after.msgs, before.msgs);
  EXPECT_EQ(after.pooled, 1u);
  observer.reset();

  // And the message keeps cycling normally.
  msg = ArenaRespMsg::createResponse(strToPath("/a"), 3).msg;
  ASSERT_EQ(msg.get(), raw);
  EXPECT_EQ(msg->toString(), "timestamp:3 prefix:/a ");
  msg.reset();
  after = poolCounters();
  EXPECT_EQ(after.msgs, before.msgs);
  EXPECT_EQ(after.pooled, 1u);
}

TEST(ArenaRespMsg, FreedMessageKeepsItsMemoryWhileAnObserverRemains) {
  PoolEmptier emptier;
  auto msg = ArenaRespMsg::createResponse(gnmi::Path(), 0).msg;
  std::weak_ptr<ArenaRespMsg> observer = msg;
  PoolSizeOverride zero(0);
  const PoolCounters before = poolCounters();
  msg.reset();  // freed; the observer keeps only the old handle's bookkeeping
  EXPECT_TRUE(observer.expired());
  EXPECT_EQ(poolCounters().msgs, before.msgs - 1);
  observer.reset();  // the message memory goes now (the sanitizer build checks it)
}

// ---------------------------------------------------------------------------
// The created response

TEST(ArenaRespMsg, CreateResponseStampsAndPrefixesAnUpdateOnTheArena) {
  const gnmi::Path prefix = strToPath("/interfaces/interface[name=eth0]");
  auto [msg, notification] = ArenaRespMsg::createResponse(prefix, 1234567890123);
  ASSERT_NE(msg->response, nullptr);
  EXPECT_TRUE(msg->response->has_update());
  EXPECT_EQ(&msg->response->update(), notification);
  EXPECT_EQ(notification->timestamp(), 1234567890123);
  EXPECT_TRUE(notification->has_prefix());
  EXPECT_EQ(notification->prefix(), prefix);
  EXPECT_EQ(notification->prefix().elem(1).key().at("name"), "eth0");
  EXPECT_EQ(notification->update_size(), 0);
  EXPECT_EQ(notification->delete__size(), 0);
  EXPECT_EQ(msg->response->GetArena(), msg->arena());
  EXPECT_EQ(notification->GetArena(), msg->arena());
  EXPECT_EQ(notification->prefix().GetArena(), msg->arena());
  EXPECT_NE(std::get_deleter<ArenaRespMsg::Deleter>(msg), nullptr);
}

TEST(ArenaRespMsg, ReusedMessageCarriesNothingOfItsPreviousUse) {
  PoolEmptier emptier;
  auto [msg, notification] = ArenaRespMsg::createResponse(strToPath("/p[k=v]/q"), 42);
  Utils::pushUpdate(strToPath("/x"), notification, int64_t{5}, &gnmi::TypedValue::set_int_val);
  Utils::pushUpdate(strToPath("/y"), notification, std::string("text"),
                    &gnmi::TypedValue::set_string_val<std::string>);
  Utils::pushDelete(*notification, strToPath("/z"));
  notification->set_atomic(true);
  const ArenaRespMsg* raw = msg.get();
  msg.reset();

  auto reused = ArenaRespMsg::createResponse(gnmi::Path(), 0);
  ASSERT_EQ(reused.msg.get(), raw);
  const gnmi::Notification& fresh = *reused.notification;
  EXPECT_EQ(fresh.update_size(), 0);
  EXPECT_EQ(fresh.delete__size(), 0);
  EXPECT_EQ(fresh.prefix().elem_size(), 0);
  EXPECT_EQ(fresh.timestamp(), 0);
  EXPECT_FALSE(fresh.atomic());
  EXPECT_EQ(reused.msg->toString(), "timestamp:0 prefix: ");

  // A shorter prefix replaces the old one whole.
  reused.msg.reset();
  auto again = ArenaRespMsg::createResponse(strToPath("/r"), 7);
  ASSERT_EQ(again.msg.get(), raw);
  EXPECT_EQ(again.notification->prefix(), strToPath("/r"));
  EXPECT_EQ(again.msg->toString(), "timestamp:7 prefix:/r ");
}

TEST(ArenaRespMsg, PooledMessageKeepsOnlyItsFirstBlock) {
  PoolEmptier emptier;
  auto [msg, notification] = ArenaRespMsg::createResponse(strToPath("/a/b/c"), 1);
  for (int i = 0; i < 50; ++i) {
    Utils::pushUpdate(strToPath("/counters/c"), notification, uint64_t(i),
                      &gnmi::TypedValue::set_uint_val);
  }
  EXPECT_GT(msg->arena()->SpaceAllocated(), ArenaRespMsg::MAX_BLOCK_SIZE);
  msg.reset();
  std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
  ASSERT_FALSE(Ostrel::arenaPool.empty());
  EXPECT_EQ(Ostrel::arenaPool.front()->arena()->SpaceAllocated(), ArenaRespMsg::FIRST_BLOCK_SIZE);
  EXPECT_TRUE(Ostrel::arenaPool.front()->response != nullptr);
  EXPECT_FALSE(Ostrel::arenaPool.front()->response->has_update());
}

// The blocks an arena added beyond the first, given the space it allocated:
// block sizes double from twice the first block up to the largest block.
uint64_t blocksBeyondFirst(uint64_t spaceAllocated) {
  uint64_t rest = spaceAllocated - ArenaRespMsg::FIRST_BLOCK_SIZE;
  uint64_t size = 2 * ArenaRespMsg::FIRST_BLOCK_SIZE;
  uint64_t blocks = 0;
  while (rest >= size) {
    rest -= size;
    size = std::min<uint64_t>(2 * size, ArenaRespMsg::MAX_BLOCK_SIZE);
    ++blocks;
  }
  EXPECT_EQ(rest, 0u) << "unexpected block sizes, space allocated " << spaceAllocated;
  return blocks;
}

TEST(ArenaRespMsg, RecyclingCostsNoHeapAllocationBeyondTheArenaBlocks) {
  PoolEmptier emptier;
  const gnmi::Path prefix = strToPath("/interfaces/interface[name=eth0]/state");
  const gnmi::Path path = strToPath("/counters/in-octets");
  auto cycle = [&](uint64_t* space) {
    auto [msg, notification] = ArenaRespMsg::createResponse(prefix, 99);
    Utils::pushUpdate(path, notification, uint64_t{12345}, &gnmi::TypedValue::set_uint_val);
    *space = msg->arena()->SpaceAllocated();
  };
  uint64_t space = 0;
  cycle(&space);  // builds the message and puts it in the pool

  uint64_t measured = 0;
  const uint64_t before = OstrelTest::heapAllocationCount();
  cycle(&measured);
  const uint64_t allocations = OstrelTest::heapAllocationCount() - before;

  EXPECT_EQ(measured, space);
  EXPECT_GE(blocksBeyondFirst(measured), 1u);  // the notification outgrows 256 bytes
  EXPECT_EQ(allocations, blocksBeyondFirst(measured));
}

TEST(ArenaRespMsg, BuildingAMessageAllocatesOnlyTheMessageItself) {
  PoolEmptier emptier;
  const uint64_t before = OstrelTest::heapAllocationCount();
  auto created = ArenaRespMsg::createResponse(gnmi::Path(), 0);
  const uint64_t allocations = OstrelTest::heapAllocationCount() - before;
  // The object (with the first block and the handle's control block inside
  // it), plus the blocks the empty notification needed beyond the first.
  EXPECT_EQ(allocations, 1 + blocksBeyondFirst(created.msg->arena()->SpaceAllocated()));
}

// ---------------------------------------------------------------------------
// toString

class ArenaRespMsgToString : public ::testing::Test {
 protected:
  ArenaRespMsgToString() {
    auto created = ArenaRespMsg::createResponse(strToPath("/p"), 11);
    msg_ = created.msg;
    notification_ = created.notification;
  }
  // The text of one update holding `value` at /a, after the header.
  template <typename Value, typename Arg>
  std::string oneUpdate(Value value, void (gnmi::TypedValue::*setter)(Arg)) {
    Utils::pushUpdate(strToPath("/a"), notification_, std::move(value), setter);
    const std::string text = msg_->toString();
    const std::string header = "timestamp:11 prefix:/p ";
    EXPECT_EQ(text.substr(0, header.size()), header);
    return text.substr(header.size());
  }
  ArenaRespMsgPtr msg_;
  gnmi::Notification* notification_;
};

TEST_F(ArenaRespMsgToString, Int64FiveAtA) {
  EXPECT_EQ(oneUpdate(int64_t{5}, &gnmi::TypedValue::set_int_val), "update0 ( path:/a int_val:5 ) ");
}

TEST_F(ArenaRespMsgToString, NegativeInt) {
  EXPECT_EQ(oneUpdate(int64_t{-9}, &gnmi::TypedValue::set_int_val), "update0 ( path:/a int_val:-9 ) ");
}

TEST_F(ArenaRespMsgToString, StringValue) {
  EXPECT_EQ(oneUpdate(std::string("eth0"), &gnmi::TypedValue::set_string_val<std::string>),
            "update0 ( path:/a string_val:eth0 ) ");
}

TEST_F(ArenaRespMsgToString, UintValue) {
  EXPECT_EQ(oneUpdate(uint64_t{18446744073709551615u}, &gnmi::TypedValue::set_uint_val),
            "update0 ( path:/a uint_val:18446744073709551615 ) ");
}

TEST_F(ArenaRespMsgToString, BoolValues) {
  EXPECT_EQ(oneUpdate(true, &gnmi::TypedValue::set_bool_val),
            "update0 ( path:/a bool_val:true ) ");
  Utils::pushUpdate(strToPath("/b"), notification_, false, &gnmi::TypedValue::set_bool_val);
  EXPECT_EQ(msg_->toString(),
            "timestamp:11 prefix:/p update0 ( path:/a bool_val:true ) "
            "update1 ( path:/b bool_val:false ) ");
}

TEST_F(ArenaRespMsgToString, BytesValue) {
  EXPECT_EQ(oneUpdate(std::string("raw"), &gnmi::TypedValue::set_bytes_val<std::string>),
            "update0 ( path:/a bytes_val:raw ) ");
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST_F(ArenaRespMsgToString, FloatValueInShortestForm) {
  EXPECT_EQ(oneUpdate(0.1f, &gnmi::TypedValue::set_float_val),
            "update0 ( path:/a float_val:0.1 ) ");
}
#pragma GCC diagnostic pop

TEST_F(ArenaRespMsgToString, JsonValue) {
  EXPECT_EQ(oneUpdate(std::string("{\"x\":1}"), &gnmi::TypedValue::set_json_val<std::string>),
            "update0 ( path:/a json_val:{\"x\":1} ) ");
}

TEST_F(ArenaRespMsgToString, JsonIetfValue) {
  EXPECT_EQ(oneUpdate(std::string("[1]"), &gnmi::TypedValue::set_json_ietf_val<std::string>),
            "update0 ( path:/a json_ietf_val:[1] ) ");
}

TEST_F(ArenaRespMsgToString, AsciiValue) {
  EXPECT_EQ(oneUpdate(std::string("abc"), &gnmi::TypedValue::set_ascii_val<std::string>),
            "update0 ( path:/a ascii_val:abc ) ");
}

TEST_F(ArenaRespMsgToString, ProtoBytesValue) {
  EXPECT_EQ(oneUpdate(std::string("pb"), &gnmi::TypedValue::set_proto_bytes<std::string>),
            "update0 ( path:/a proto_bytes:pb ) ");
}

TEST_F(ArenaRespMsgToString, DoubleIsUnsupportedWithCase14) {
  EXPECT_EQ(oneUpdate(2.5, &gnmi::TypedValue::set_double_val),
            "update0 ( path:/a unsupported value type:14 ) ");
}

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
TEST_F(ArenaRespMsgToString, DecimalLeafListAndAnyAreUnsupportedWithTheirCases) {
  notification_->add_update()->mutable_val()->mutable_decimal_val();
  notification_->add_update()->mutable_val()->mutable_leaflist_val();
  notification_->add_update()->mutable_val()->mutable_any_val();
  notification_->add_update();  // no value at all: case 0
  EXPECT_EQ(msg_->toString(),
            "timestamp:11 prefix:/p "
            "update0 ( path: unsupported value type:7 ) "
            "update1 ( path: unsupported value type:8 ) "
            "update2 ( path: unsupported value type:9 ) "
            "update3 ( path: unsupported value type:0 ) ");
}
#pragma GCC diagnostic pop

TEST_F(ArenaRespMsgToString, UpdatesThenDeletesInOrder) {
  Utils::pushUpdate(strToPath("/a[k=1]"), notification_, int64_t{1}, &gnmi::TypedValue::set_int_val);
  Utils::pushUpdate(strToPath("/b"), notification_, uint64_t{2}, &gnmi::TypedValue::set_uint_val);
  Utils::pushDelete(*notification_, strToPath("/c"));
  Utils::pushDelete(*notification_, strToPath("/d/e"));
  EXPECT_EQ(msg_->toString(),
            "timestamp:11 prefix:/p update0 ( path:/a[k=1] int_val:1 ) "
            "update1 ( path:/b uint_val:2 ) delete0 ( path:/c ) delete1 ( path:/d/e ) ");
}

TEST_F(ArenaRespMsgToString, HeaderOnlyForAnEmptyNotification) {
  EXPECT_EQ(msg_->toString(), "timestamp:11 prefix:/p ");
}

TEST_F(ArenaRespMsgToString, NoResponseIsNullptr) {
  gnmi::SubscribeResponse* saved = msg_->response;
  msg_->response = nullptr;
  EXPECT_EQ(msg_->toString(), "nullptr");
  msg_->response = saved;
}

TEST_F(ArenaRespMsgToString, TrueSyncResponse) {
  msg_->response->set_sync_response(true);
  EXPECT_EQ(msg_->toString(), "sync_response");
}

TEST_F(ArenaRespMsgToString, FalseSyncResponseIsUnsupported) {
  msg_->response->set_sync_response(false);
  EXPECT_EQ(msg_->toString(), "unsupported response");
}

TEST_F(ArenaRespMsgToString, NoResponseChoiceIsUnsupported) {
  msg_->response->clear_response();
  EXPECT_EQ(msg_->toString(), "unsupported response");
}

TEST_F(ArenaRespMsgToString, FormatterPrintsHandlesAndMessages) {
  Utils::pushUpdate(strToPath("/a"), notification_, int64_t{5}, &gnmi::TypedValue::set_int_val);
  EXPECT_EQ(fmt::format("{}", msg_), msg_->toString());
  EXPECT_EQ(fmt::format("{}", *msg_), msg_->toString());
  EXPECT_EQ(fmt::format("{}", ArenaRespMsgPtr()), "nullptr");
}

}  // namespace
