// Pointer resolution: the published path text of a pointer's target, the
// silent sync of an ancestor for a target not published yet, and the update
// that publishes a pointer attribute.
#include <algorithm>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <Ostrel/GifNotifiee.h>
#include <Ostrel/Path.h>
#include <Ostrel/PtrResolution.h>
#include <Ostrel/VekTypeWalker.h>
#include <Vek/Vek.h>

#include "ChangeRecorder.h"
#include "SampleModel.h"
#include "TraceCapture.h"
#include "WalkSupport.h"

namespace {

using Ostrel::getPtrPathStr;
using Ostrel::GifGnmiNotifiee;
using Ostrel::notifieePathMap;
using Ostrel::objPtrToPath;
using Ostrel::strToPath;
using OstrelTest::ids;
namespace Sample = OstrelTest::Sample;

constexpr const char* ETH0 = "/devices/dev1/interfaces[name=eth0]";
constexpr const char* ETH1 = "/devices/dev1/interfaces[name=eth1]";

// The messages traced under "OstrelPtrResolution" at level 1 while it lives.
class ResolutionTraces : public OstrelTest::TraceCapture {
 public:
  ResolutionTraces() : TraceCapture("OstrelPtrResolution", 1u << 1) {}
};

class PtrResolution : public OstrelTest::WalkTest {
 protected:
  // Registers a notifiee of `entity` at `path`, as a sync would.
  void publish(const Vek::Ptr<Vek::Entity>& entity, const char* path) {
    new GifGnmiNotifiee(entity, strToPath(path), router_, false, true);
  }
  bool registered(const Vek::Ptr<Vek::Entity>& entity) const {
    return notifieePathMap.count(entity.ptr()) != 0;
  }
};

// ---------------------------------------------------------------------------
// getPtrPathStr

TEST_F(PtrResolution, NullPointerGivesNullptr) {
  EXPECT_EQ(getPtrPathStr(nullptr, router_), "nullptr");
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(PtrResolution, ValueThatIsNotAnEntityGivesNullptr) {
  EXPECT_EQ(getPtrPathStr(Vek::genericIfOf(5u), router_), "nullptr");
}

TEST_F(PtrResolution, PublishedTargetGivesItsPathWithoutASync) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.eth0, ETH0);
  const ResolutionTraces traces;
  EXPECT_EQ(getPtrPathStr(tree.eth0, router_), ETH0);
  EXPECT_EQ(router_.pushes, 0u);
  EXPECT_EQ(Ostrel::gNmiNotifieeMap.size(), 1u);
  EXPECT_EQ(notifieePathMap.size(), 1u);
  EXPECT_TRUE(traces.messages.empty());
}

TEST_F(PtrResolution, PathTextIsThatOfTheRegisteredPath) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.eth0, "/x[k=a]/y");
  EXPECT_EQ(getPtrPathStr(tree.eth0, router_), "/x[k=a]/y");
}

TEST_F(PtrResolution, OrphanedTargetStillRegisteredIsAForwardReference) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.eth1, ETH1);
  ASSERT_TRUE(tree.device->entityDel(Sample::types().device->attr("interfaces"), Sample::name("eth1")));
  ASSERT_TRUE(tree.eth1->isOrphan());
  ASSERT_TRUE(registered(tree.eth1));
  const ResolutionTraces traces;
  EXPECT_EQ(getPtrPathStr(tree.eth1, router_), "nullptr");
  EXPECT_EQ(traces.messages,
            (std::vector<std::string>{"Forward reference for /eth1 is not present"}));
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(PtrResolution, UnpublishedTargetUnderAPublishedParentSyncsTheParentSilently) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.device, "/devices/dev1");
  router_.refuseAll = true;
  const ResolutionTraces traces;
  EXPECT_EQ(getPtrPathStr(tree.eth0, router_), ETH0);
  EXPECT_EQ(router_.pushes, 0u);
  EXPECT_TRUE(registered(tree.eth0));
  EXPECT_TRUE(registered(tree.eth1));
  EXPECT_EQ(traces.messages,
            (std::vector<std::string>{"Forward reference for /devices/dev1/eth0 is not present",
                                      "Found a good parent /devices/dev1"}));
  EXPECT_EQ(Ostrel::FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_EQ(Ostrel::FullVekTypeWalker::walkMapStartSize(), 0u);
}

TEST_F(PtrResolution, SyncStartsAtTheNearestPublishedAncestor) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.devices, "/devices");
  publish(tree.device, "/devices/dev1");
  const ResolutionTraces traces;
  EXPECT_EQ(getPtrPathStr(tree.neighbor, router_), "/devices/dev1/neighbors[ifName=eth0][index=1]");
  ASSERT_EQ(traces.messages.size(), 2u);
  EXPECT_EQ(traces.messages[1], "Found a good parent /devices/dev1");
}

TEST_F(PtrResolution, EveryAncestorUnpublishedAndNoneADirectoryGivesNullptr) {
  const Vek::Ptr<Vek::Entity> solo = Vek::Entity::rootNew(Sample::types().device, "solo");
  const Vek::Ptr<Vek::Entity> eth9 = solo->entityNew("interfaces", Sample::name("eth9"));
  EXPECT_EQ(getPtrPathStr(eth9, router_), "nullptr");
  EXPECT_EQ(router_.pushes, 0u);
  EXPECT_TRUE(notifieePathMap.empty());
}

TEST_F(PtrResolution, UnpublishedTargetWithoutAParentGivesNullptr) {
  const Vek::Ptr<Vek::Entity> solo = Vek::Entity::rootNew(Sample::types().fan, "solo");
  EXPECT_EQ(getPtrPathStr(solo, router_), "nullptr");
  EXPECT_TRUE(notifieePathMap.empty());
}

TEST_F(PtrResolution, DirectoryAncestorIsSyncedAtThePathOfItsFullName) {
  const Sample::Tree tree = Sample::buildTree();
  const ResolutionTraces traces;
  EXPECT_EQ(getPtrPathStr(tree.eth0, router_), ETH0);
  ASSERT_TRUE(registered(tree.devices));
  EXPECT_EQ(notifieePathMap.at(tree.devices.ptr()), strToPath("/devices"));
  EXPECT_EQ(notifieePathMap.at(tree.device.ptr()), strToPath("/devices/dev1"));
  EXPECT_EQ(router_.pushes, 0u);
  EXPECT_EQ(traces.messages,
            (std::vector<std::string>{"Forward reference for /devices/dev1/eth0 is not present"}));
}

TEST_F(PtrResolution, TwoUnpublishedEntitiesPointingAtEachOtherResolveWithoutRecursion) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_EQ(tree.eth0->entity("peer").ptr(), tree.eth1.ptr());
  ASSERT_EQ(tree.eth1->entity("peer").ptr(), tree.eth0.ptr());
  publish(tree.device, "/devices/dev1");
  const ResolutionTraces traces;
  EXPECT_EQ(getPtrPathStr(tree.eth0, router_), ETH0);
  EXPECT_EQ(getPtrPathStr(tree.eth1, router_), ETH1);
  // One forward reference, one sync: the pointers met during the sync are
  // not resolved.
  EXPECT_EQ(traces.messages,
            (std::vector<std::string>{"Forward reference for /devices/dev1/eth0 is not present",
                                      "Found a good parent /devices/dev1"}));
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(PtrResolution, TargetDirectlyBelowTheUnnamedRootIsSyncedAtItsFullName) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_EQ(tree.root->fullName(), "");
  EXPECT_EQ(getPtrPathStr(tree.devices, router_), "/devices");
  EXPECT_EQ(getPtrPathStr(tree.device, router_), "/devices/dev1");
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(PtrResolution, TargetWhoseNearestDirectoryIsTheUnnamedRootIsSyncedBelowIt) {
  const Vek::Ptr<Vek::Dir> root = Vek::Dir::rootNew("");
  const Vek::Ptr<Vek::Entity> dev9 = root->childNew(Sample::types().device, "dev9");
  const Vek::Ptr<Vek::Entity> eth9 = dev9->entityNew("interfaces", Sample::name("eth9"));
  EXPECT_EQ(getPtrPathStr(eth9, router_), "/dev9/interfaces[name=eth9]");
  EXPECT_EQ(notifieePathMap.at(dev9.ptr()), strToPath("/dev9"));
  EXPECT_FALSE(registered(root));
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(PtrResolution, UnpublishedTargetLeavingTheModelGivesNullptrWithoutASync) {
  const Sample::Tree tree = Sample::buildTree();
  // Told of every change of dev1 before its own notifiee is: it resolves the
  // entity key of a member while that key is leaving the model.
  OstrelTest::ChangeRecorder recorder(tree.device);
  std::vector<std::string> resolved;
  recorder.onChange = [&] {
    if (recorder.events.back() == "linkCosts[entity('devices.dev1.eth1')]-") {
      resolved.push_back(getPtrPathStr(recorder.lastKey, router_));
    }
  };
  publish(tree.device, "/devices/dev1");
  ResolutionTraces traces;
  ASSERT_TRUE(tree.device->entityDel(Sample::types().device->attr("interfaces"), Sample::name("eth1")));
  EXPECT_EQ(resolved, (std::vector<std::string>{"nullptr"}));
  EXPECT_EQ(std::count(traces.messages.begin(), traces.messages.end(),
                       "Found a good parent /devices/dev1"),
            0);
  EXPECT_FALSE(registered(tree.eth1));
}

TEST_F(PtrResolution, ErasingAnUnpublishedEntityKeyWhileTheOwnerSyncIsPausedEndsNothing) {
  const Sample::Tree tree = Sample::buildTree();
  router_.refuseAll = true;
  ASSERT_NE(Ostrel::FullVekTypeWalker::syncObject(tree.device, strToPath("/devices/dev1"), router_,
                                                  ids(3, 3), Ostrel::WalkerFlags::RequestKindBit1),
            Ostrel::WalkResult::Done);
  ASSERT_FALSE(registered(tree.eth1));
  router_.refuseAll = false;
  router_.clear();
  ASSERT_TRUE(tree.device->entityDel(Sample::types().device->attr("interfaces"), Sample::name("eth1")));
  EXPECT_FALSE(registered(tree.eth1));
  // Nothing was synced to name the key that left.
  EXPECT_FALSE(registered(tree.eth0));
  const std::vector<std::string> leaves = router_.leaves();
  EXPECT_NE(std::find(leaves.begin(), leaves.end(), "delete " + std::string(ETH1)), leaves.end());
  // The paused sync then completes without the erased entity.
  router_.clear();
  std::vector<Ostrel::SyncWalkId> done;
  EXPECT_EQ(Ostrel::FullVekTypeWalker::resumeAllSyncsAndNotifs(done), Ostrel::WalkResult::Done);
  EXPECT_EQ(done, (std::vector<Ostrel::SyncWalkId>{ids(3, 3)}));
  EXPECT_TRUE(registered(tree.eth0));
  EXPECT_FALSE(registered(tree.eth1));
  for (const std::string& leaf : router_.leaves()) {
    EXPECT_EQ(leaf.find("interfaces[name=eth1]"), std::string::npos) << leaf;
  }
}

// A box owns policies keyed by its ports, declared before the ports: a sync
// meets each policy's key before the port that is the key is published.
struct BoxModel {
  Vek::VekType box;
  static const BoxModel& get() {
    static const BoxModel model;
    return model;
  }

 private:
  BoxModel() {
    Vek::Module& m = Vek::Module::moduleNew("PtrResolution");
    const Vek::VekType policy = m.entityType("Policy").scalar("rate", Vek::builtinType<unsigned>()).done();
    const Vek::VekType port = m.entityType("Port").scalar("mtu", Vek::builtinType<unsigned>()).done();
    box = m.entityType("Box")
              .collection("policies", port, policy, Vek::AttrFlag::INSTANTIATING)
              .collection("ports", Vek::builtinType<Vek::String>(), port, Vek::AttrFlag::INSTANTIATING)
              .done();
  }
};

TEST_F(PtrResolution, MemberKeyedByAnEntityPublishedLaterIsRegisteredOnlyAtItsKeyedPath) {
  GTEST_SKIP() << "the walk names a member by an entity key it has not published yet as \"nullptr\"";
  const Vek::Ptr<Vek::Dir> root = Vek::Dir::rootNew("");
  const Vek::Ptr<Vek::Entity> box = root->childNew(BoxModel::get().box, "b1");
  const Vek::Ptr<Vek::Entity> port = box->entityNew("ports", Vek::genericIfOf("p1"));
  const Vek::Ptr<Vek::Entity> policy = box->entityNew("policies", port);
  ASSERT_EQ(Ostrel::FullVekTypeWalker::syncObject(box, strToPath("/b1"), router_, ids(1, 1),
                                                  Ostrel::WalkerFlags::RequestKindBit1),
            Ostrel::WalkResult::Done);
  const gnmi::Path policyPath = strToPath("/b1/policies[policiesKey=/b1/ports[ports=p1]]");
  EXPECT_EQ(notifieePathMap.at(policy.ptr()), policyPath);
  EXPECT_EQ(getPtrPathStr(policy, router_), Ostrel::pathToStr(policyPath));
  // box, port and policy.
  EXPECT_EQ(Ostrel::gNmiNotifieeMap.size(), 3u) << GifGnmiNotifiee::dumpGnmiNotifieeMap();
  router_.clear();
  policy->valueIs<unsigned>("rate", 5);
  EXPECT_EQ(router_.leaves(),
            (std::vector<std::string>{"/b1/policies[policiesKey=/b1/ports[ports=p1]]/rate = uint_val: 5"}));
}

TEST(PtrResolutionDeathTest, TargetThatTheAncestorSyncDoesNotPublishEndsTheProcess) {
  // A directory entry is never published, so syncing its directory does not
  // register it.
  const auto resolveEntry = [] {
    OstrelTest::TestRouter router;
    const Sample::Tree tree = Sample::buildTree();
    getPtrPathStr(tree.primary, router);
  };
  EXPECT_DEATH(resolveEntry(),
               "PtrResolution\\.cpp:[0-9]+: .*getPtrPathStr.*: "
               "Assertion `iter != notifieePathMap\\.end\\(\\)' failed\\.");
}

// ---------------------------------------------------------------------------
// objPtrToPath

TEST_F(PtrResolution, ObjPtrToPathBuildsOneLeafPtrUpdateWithThePathText) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.eth0, ETH0);
  const Ostrel::ArenaRespMsgPtr msg =
      objPtrToPath(tree.eth0, strToPath("/devices/dev1"), strToPath("/uplink"), 42, router_);
  ASSERT_TRUE(msg);
  ASSERT_TRUE(msg->response->has_update());
  const gnmi::Notification& n = msg->response->update();
  EXPECT_EQ(n.prefix(), strToPath("/devices/dev1"));
  EXPECT_EQ(n.timestamp(), 42);
  ASSERT_EQ(n.update_size(), 1);
  EXPECT_EQ(n.update(0).path(), strToPath("/uplink_ptr"));
  EXPECT_EQ(n.update(0).val().value_case(), gnmi::TypedValue::kStringVal);
  EXPECT_EQ(n.update(0).val().string_val(), ETH0);
  EXPECT_EQ(n.delete__size(), 0);
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(PtrResolution, ObjPtrToPathRenamesOnlyTheLastElementAndKeepsKeys) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.eth0, ETH0);
  const Ostrel::ArenaRespMsgPtr msg =
      objPtrToPath(tree.eth0, strToPath("/devices/dev1"),
                   strToPath("/neighbors[ifName=eth0][index=1]/via"), 7, router_);
  const gnmi::Notification& n = msg->response->update();
  ASSERT_EQ(n.update_size(), 1);
  EXPECT_EQ(n.update(0).path(), strToPath("/neighbors[ifName=eth0][index=1]/via_ptr"));
}

TEST_F(PtrResolution, ObjPtrToPathOfANullPointerPublishesNullptr) {
  const Ostrel::ArenaRespMsgPtr msg =
      objPtrToPath(nullptr, strToPath("/devices/dev1"), strToPath("/uplink"), 9, router_);
  const gnmi::Notification& n = msg->response->update();
  ASSERT_EQ(n.update_size(), 1);
  EXPECT_EQ(n.update(0).path(), strToPath("/uplink_ptr"));
  EXPECT_EQ(n.update(0).val().string_val(), "nullptr");
  EXPECT_EQ(n.timestamp(), 9);
}

TEST_F(PtrResolution, ObjPtrToPathOfAnUnpublishedTargetSyncsSilentlyFirst) {
  const Sample::Tree tree = Sample::buildTree();
  publish(tree.device, "/devices/dev1");
  const Ostrel::ArenaRespMsgPtr msg =
      objPtrToPath(tree.eth1, strToPath("/devices/dev1"), strToPath("/uplink"), 1, router_);
  EXPECT_EQ(msg->response->update().update(0).val().string_val(), ETH1);
  EXPECT_EQ(router_.pushes, 0u);
}

}  // namespace
