// The pool under threads: several threads create messages, fill them, hand
// some to other threads and release them there, while the counters must
// balance exactly at every quiescent point: messages alive == messages held by
// the threads + messages pooled.
#include <atomic>
#include <barrier>
#include <cstdint>
#include <deque>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Ostrel/ArenaRespMsg.h"
#include "Ostrel/Path.h"
#include "Ostrel/VekGnmiUtils.h"

#include "ArenaPoolState.h"

namespace {

using Ostrel::ArenaPool;
using Ostrel::ArenaRespMsg;
using Ostrel::ArenaRespMsgPtr;
namespace Utils = Ostrel::VekGnmiUtils;
using OstrelTest::PoolCounters;
using OstrelTest::poolCounters;


// A message with what its creator wrote into it, to check when releasing that
// nobody else wrote into it meanwhile.
struct Held {
  ArenaRespMsgPtr msg;
  gnmi::Notification* notification;
  int64_t stamp;
};

gnmi::Path prefixFor(int thread) { return Ostrel::strToPath(fmt::format("/t[id={}]", thread)); }

// True when the message still holds exactly what `fill` wrote.
bool intact(const Held& held, int thread) {
  const gnmi::Notification& n = *held.notification;
  return &held.msg->response->update() == held.notification && n.timestamp() == held.stamp &&
         n.prefix() == prefixFor(thread) && n.update_size() == 1 &&
         n.update(0).val().int_val() == held.stamp && n.delete__size() == 0;
}

struct Workload {
  int threads = 6;
  int rounds = 8;
  int opsPerRound = 3000;
  size_t maxHeldPerThread = 24;
};

// Runs the workload; at the end of every round all threads stop with the
// messages they hold and the barrier's completion step checks the balance.
// Returns the number of createResponse calls and of releases.
struct Totals {
  uint64_t creates = 0;
  uint64_t releases = 0;
};

Totals run(const Workload& work) {
  std::mutex handoffMutex;
  std::deque<std::pair<Held, int>> handoff;  // message and the thread that filled it
  std::atomic<uint64_t> creates{0};
  std::atomic<uint64_t> releases{0};
  std::atomic<int64_t> heldNow{0};
  std::atomic<int> brokenMessages{0};
  std::atomic<int> imbalances{0};

  auto checkBalance = [&]() noexcept {
    std::lock_guard<std::mutex> guard(handoffMutex);
    const PoolCounters c = poolCounters();
    const uint64_t inUse = static_cast<uint64_t>(heldNow.load()) + handoff.size();
    if (c.msgs != inUse + c.pooled) {
      imbalances.fetch_add(1);
    }
  };
  std::barrier sync(work.threads, checkBalance);

  auto body = [&](int id) {
    std::mt19937 rng(static_cast<unsigned>(id) * 7919u + 1u);
    std::vector<Held> mine;
    int64_t next = int64_t{id} << 40;
    auto release = [&](Held& held, int filler) {
      if (!intact(held, filler)) {
        brokenMessages.fetch_add(1);
      }
      held.msg.reset();
      releases.fetch_add(1);
    };
    for (int round = 0; round < work.rounds; ++round) {
      for (int op = 0; op < work.opsPerRound; ++op) {
        const unsigned choice = rng() % 8;
        if (choice < 4 && mine.size() < work.maxHeldPerThread) {
          auto [msg, notification] = ArenaRespMsg::createResponse(prefixFor(id), ++next);
          creates.fetch_add(1);
          Utils::pushUpdate(Ostrel::strToPath("/v"), notification, next,
                            &gnmi::TypedValue::set_int_val);
          mine.push_back({std::move(msg), notification, next});
          heldNow.fetch_add(1);
        } else if (choice < 6 && !mine.empty()) {
          // Release here, in any order.
          const size_t at = rng() % mine.size();
          Held held = std::move(mine[at]);
          mine.erase(mine.begin() + static_cast<std::ptrdiff_t>(at));
          heldNow.fetch_sub(1);
          release(held, id);
        } else if (choice == 6 && !mine.empty()) {
          // Hand the message to whichever thread picks it up next.
          Held held = std::move(mine.back());
          mine.pop_back();
          std::lock_guard<std::mutex> guard(handoffMutex);
          handoff.emplace_back(std::move(held), id);
          heldNow.fetch_sub(1);
        } else {
          std::pair<Held, int> taken;
          {
            std::lock_guard<std::mutex> guard(handoffMutex);
            if (handoff.empty()) {
              continue;
            }
            taken = std::move(handoff.front());
            handoff.pop_front();
          }
          release(taken.first, taken.second);
        }
      }
      sync.arrive_and_wait();
    }
    for (Held& held : mine) {
      heldNow.fetch_sub(1);
      release(held, id);
    }
  };

  std::vector<std::thread> threads;
  for (int id = 0; id < work.threads; ++id) {
    threads.emplace_back(body, id);
  }
  for (std::thread& t : threads) {
    t.join();
  }
  for (auto& [held, filler] : handoff) {
    if (!intact(held, filler)) {
      brokenMessages.fetch_add(1);
    }
    held.msg.reset();
    releases.fetch_add(1);
  }
  handoff.clear();

  EXPECT_EQ(brokenMessages.load(), 0) << "a message was changed by someone other than its holder";
  EXPECT_EQ(imbalances.load(), 0) << "arenaMsgCount != held + pooled at a quiescent point";
  return {creates.load(), releases.load()};
}

TEST(ArenaPoolThread, CountersBalanceWhileThreadsCreateAndRelease) {
  const PoolCounters before = poolCounters();
  ASSERT_EQ(before.msgs, before.pooled);  // nothing is held between tests

  const Totals totals = run(Workload{});
  const PoolCounters after = poolCounters();

  EXPECT_GT(totals.creates, 10000u);
  EXPECT_EQ(totals.releases, totals.creates);
  EXPECT_EQ(after.msgs, after.pooled);
  EXPECT_EQ(after.releases - before.releases, totals.releases);
  // The pool never overflows here (at most 6 * 24 messages plus the handoff
  // queue are out at once), so every create either recycled or built one.
  EXPECT_EQ((after.recycles - before.recycles) + (after.msgs - before.msgs), totals.creates);
  EXPECT_GT(after.recycles - before.recycles, 0u);
  EXPECT_LE(after.msgs, 2000u);
}

TEST(ArenaPoolThread, CountersBalanceWhenASmallPoolOverflows) {
  // Start from an empty pool so that the small limit is what bounds it.
  {
    std::vector<ArenaRespMsgPtr> all;
    while (poolCounters().pooled > 0) {
      all.push_back(ArenaRespMsg::createResponse(gnmi::Path(), 0).msg);
    }
    OstrelTest::poolSizeIs(0);  // release them all for good
  }
  OstrelTest::poolSizeIs(4);
  const PoolCounters before = poolCounters();
  ASSERT_EQ(before.msgs, 0u);

  const Totals totals = run(Workload{});
  const PoolCounters after = poolCounters();
  OstrelTest::poolSizeIs(2000);

  EXPECT_EQ(totals.releases, totals.creates);
  EXPECT_EQ(after.msgs, after.pooled);
  EXPECT_LE(after.pooled, 4u);
  EXPECT_EQ(after.releases - before.releases, totals.releases);
  EXPECT_GT(after.recycles - before.recycles, 0u);
  // More were built than are alive now: the overflowing releases freed them.
  EXPECT_LT(after.recycles - before.recycles, totals.creates);
}

}  // namespace
