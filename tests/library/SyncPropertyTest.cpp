// Properties of syncs over generated sample devices:
//   - a sync paused anywhere (a router refusing every k-th message, a slice
//     that ends after every n pushes) and resumed until done publishes exactly
//     the updates of an uninterrupted sync, none twice and none missing. Each
//     entity's updates keep their order; the walks of different entities may
//     interleave differently, because paused walks resume first in first out
//     (a parent that was queued behind its paused child runs on while the
//     child waits again);
//   - with members erased and inserted and values changed between
//     resumptions, what is published agrees with the model at each push, no
//     update arrives under a path after its delete, queued work under a
//     deleted path is dropped, and everything a subscriber that applies what
//     it was sent holds in the end is what a fresh sync of the final model
//     publishes. (Not everything that sync publishes: dropping the queued work
//     at a deleted path drops every walker queued behind it too, which may be
//     work of its owner; see `FullVekTypeWalker::delFromWalkQ`.)
#include <map>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "SampleChurn.h"
#include "SampleModel.h"
#include "WalkSupport.h"

namespace {

using namespace Ostrel;
using OstrelTest::ids;
using OstrelTest::Generator;
using OstrelTest::View;
using OstrelTest::Sample::ipv4;
using OstrelTest::Sample::name;
using OstrelTest::Sample::Tree;
using OstrelTest::Sample::types;

const std::string DEV = "/devices/dev1";

// The leaves of each message prefix, in the order they were pushed.
std::map<std::string, std::vector<std::string>> byPrefix(const OstrelTest::TestRouter& router) {
  std::map<std::string, std::vector<std::string>> out;
  for (const auto& msg : router.messages) {
    const gnmi::Notification& n = msg->response->update();
    auto& leaves = out[pathToStr(n.prefix())];
    for (const auto& u : n.update()) leaves.push_back(pathToStr(u.path()) + " = " + OstrelTest::valueText(u.val()));
  }
  return out;
}

class SyncProperty : public OstrelTest::WalkTest {
 protected:
  static constexpr uint32_t SEEDS = 25;

  // Runs a sync of a generated device to completion and returns what it
  // published, by prefix.
  std::map<std::string, std::vector<std::string>> run(uint32_t seed, OstrelTest::TestRouter& router) {
    Tree t = Generator(seed).tree();
    WalkResult r = FullVekTypeWalker::syncObject(t.device.ptr(), strToPath(DEV), router, ids(1, 1),
                                                 WalkerFlags::RequestKindBit1);
    for (int guard = 0; r != WalkResult::Done && guard < 100000; ++guard) {
      std::vector<SyncWalkId> done;
      r = FullVekTypeWalker::resumeAllSyncsAndNotifs(done);
    }
    EXPECT_EQ(r, WalkResult::Done);
    return byPrefix(router);
  }
};

TEST_F(SyncProperty, ARouterRefusingEveryKthMessageChangesNothingPublished) {
  for (uint32_t seed = 1; seed <= SEEDS; ++seed) {
    OstrelTest::TestRouter reference;
    const auto want = run(seed, reference);
    for (uint64_t k = 1; k <= 7; ++k) {
      OstrelTest::TestRouter router;
      router.refuseEvery = k;
      EXPECT_EQ(run(seed, router), want) << "seed " << seed << ", refusing every " << k << "th message";
    }
  }
}

TEST_F(SyncProperty, ASliceEndingAfterEveryNPushesChangesNothingPublished) {
  for (uint32_t seed = 1; seed <= SEEDS; ++seed) {
    OstrelTest::TestRouter reference;
    const auto want = run(seed, reference);
    for (int n = 1; n <= 5; ++n) {
      OstrelTest::TestRouter router;
      router.onPush = [&, n] { clock_.advance(FullVekTypeWalker::SYNCQUANTUM / n); };
      EXPECT_EQ(run(seed, router), want) << "seed " << seed << ", slice of " << n << " pushes";
    }
  }
}

TEST_F(SyncProperty, ChangesBetweenResumptionsAgreeWithTheModel) {
  for (uint32_t seed = 1; seed <= SEEDS; ++seed) {
    SCOPED_TRACE(fmt::format("seed {}", seed));
    Generator gen(seed);
    Tree t = gen.tree();
    OstrelTest::TestRouter router;
    router.refuseEvery = 1 + seed % 4;
    View view;
    std::vector<std::string> deleted;
    // Checked at every push: deletes are remembered; nothing arrives under a
    // deleted path; an interface that is published exists; an MTU published
    // is the model's.
    router.onPush = [&] {
      const gnmi::Notification& n = router.messages.back()->response->update();
      for (const auto& path : n.delete_()) deleted.push_back(pathToStr(joinPath(n.prefix(), path)));
      for (const auto& u : n.update()) {
        const gnmi::Path full = joinPath(n.prefix(), u.path());
        const std::string text = pathToStr(full);
        for (const auto& gone : deleted) {
          EXPECT_FALSE(View::under(text, gone)) << text << " after the delete of " << gone;
        }
        // /devices/dev1/interfaces[name=X]/...
        if (full.elem_size() >= 4 && full.elem(2).name() == "interfaces") {
          const Vek::Ptr<Vek::Entity> intf =
              t.device->entity("interfaces", name(full.elem(2).key().at("name").c_str()));
          ASSERT_TRUE(intf) << text;
          if (full.elem_size() == 4 && full.elem(3).name() == "mtu") {
            EXPECT_EQ(u.val().uint_val(), intf->value<unsigned>("mtu")) << text;
          }
        }
      }
      view.apply(n);
    };
    WalkResult r = FullVekTypeWalker::syncObject(t.device.ptr(), strToPath(DEV), router, ids(1, 1),
                                                 WalkerFlags::RequestKindBit1);
    for (int round = 0; r != WalkResult::Done && round < 100000; ++round) {
      gen.mutate(t);
      // Queued work under a deleted path is gone.
      for (const auto& [walkId, list] : staticWalkMap) {
        for (const auto& walker : list) {
          for (const auto& gone : deleted) {
            EXPECT_FALSE(View::under(pathToStr(walker->prefixPath()), gone));
          }
        }
      }
      // A walk whose queued work all went is ended directly, as an agent
      // does; the others are resumed.
      for (auto it = staticWalkMap.begin(); it != staticWalkMap.end();) {
        const WalkId id = it->first;
        ++it;
        if (staticWalkMap.at(id).empty()) FullVekTypeWalker::resumeSync(id);
      }
      std::vector<SyncWalkId> done;
      r = FullVekTypeWalker::resumeAllSyncsAndNotifs(done);
    }
    ASSERT_EQ(r, WalkResult::Done);
    // What the subscriber holds is what a fresh sync of the final model says.
    ASSERT_FALSE(view.leaves().empty());
    OstrelTest::TestRouter fresh;
    FullVekTypeWalker::syncObject(t.device.ptr(), strToPath(DEV), fresh, ids(2, 2), WalkerFlags::RequestKindBit1);
    View expected;
    for (const auto& msg : fresh.messages) expected.apply(msg->response->update());
    EXPECT_EQ(View::notIn(view, expected), "");
  }
}

}  // namespace
