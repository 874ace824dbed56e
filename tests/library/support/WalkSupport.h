// Support for tests of syncs and streaming: a router that records what it is
// given and refuses on demand, and a fixture that runs each test on the
// runtime's test clock and leaves the library's process-wide maps empty.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/ArenaRespMsg.h>
#include <Ostrel/BaseRouter.h>
#include <Ostrel/GifNotifiee.h>
#include <Ostrel/TimeStamps.h>
#include <Ostrel/VekTypeWalker.h>
#include <Vek/Vek.h>

namespace OstrelTest {

// Records every message it is given (the handle, its sync id and its
// rendering at the time of the push). Accepts everything unless told to
// refuse: every push while `refuseAll`, or every `refuseEvery`-th push.
class TestRouter : public Ostrel::BaseRouter {
 public:
  bool push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& msg) override {
    messages.push_back(msg);
    syncIds.push_back(syncId);
    texts.push_back(msg->toString());
    ++pushes;
    if (onPush) onPush();
    if (refuseAll) return false;
    return refuseEvery == 0 || pushes % refuseEvery != 0;
  }

  // The updates of every message as "prefix/path = value" and deletes as
  // "delete prefix/path", one string each, in push order.
  std::vector<std::string> leaves() const;
  void clear() {
    messages.clear();
    syncIds.clear();
    texts.clear();
  }

  std::vector<Ostrel::ArenaRespMsgPtr> messages;
  std::vector<Ostrel::SyncId> syncIds;
  std::vector<std::string> texts;
  uint64_t pushes = 0;
  bool refuseAll = false;
  uint64_t refuseEvery = 0;
  std::function<void()> onPush;
};

// The text of one typed value, readable for every case (leaf lists
// included): what `leaves()` prints after " = ".
std::string valueText(const gnmi::TypedValue& value);

// Runs each test on a test clock (monotonic 1000 s, UTC 1800000000 s) and,
// after it, checks that nothing the test made is left registered and clears
// the walk maps.
class WalkTest : public ::testing::Test {
 protected:
  // The UTC time of the test clock as a timestamp.
  static constexpr Ostrel::Timestamp T0 = 1800000000LL * 1000000000LL;

  void TearDown() override;

  Vek::TestClock clock_;
  Vek::ScopedClock scopedClock_{clock_};
  TestRouter router_;
};

// Ids for a sync.
inline Ostrel::SyncWalkId ids(uint64_t sync, uint64_t walk) {
  return {Ostrel::SyncId(sync), Ostrel::WalkId(walk)};
}

}  // namespace OstrelTest
