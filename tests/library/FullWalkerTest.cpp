// The full type walker: what a sync publishes, how flags change it, where it
// pauses and how it resumes.
#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FatalCatcher.h"
#include "SampleModel.h"
#include "WalkSupport.h"
#include "internal/WalkPlan.h"

namespace {

using namespace Ostrel;
using OstrelTest::ids;
using OstrelTest::Sample::buildTree;
using OstrelTest::Sample::name;
using OstrelTest::Sample::types;

using Leaves = std::vector<std::string>;

class FullWalker : public OstrelTest::WalkTest {
 protected:
  // Syncs `entity` at the path it is published at with the given ids and
  // flags: a collection member at its keyed path, anything else at its full
  // name.
  WalkResult sync(const Vek::Ptr<Vek::Entity>& entity, SyncWalkId syncIds,
                  WalkerFlags flags = WalkerFlags::RequestKindBit1) {
    return FullVekTypeWalker::syncObject(entity.ptr(), strToPath(publishedPath(entity)), router_,
                                         syncIds, flags);
  }
  static std::string publishedPath(const Vek::Ptr<Vek::Entity>& entity) {
    if (entity->type() == types().interface) {
      return "/devices/dev1/interfaces[name=" + entity->name().stdString() + "]";
    }
    return entity->fullName();
  }
  // Resumes until no sync is pending.
  void resumeAll() {
    for (int guard = 0; guard < 100000 && FullVekTypeWalker::walkMapSize() > 0; ++guard) {
      std::vector<SyncWalkId> done;
      FullVekTypeWalker::resumeAllSyncsAndNotifs(done);
    }
    ASSERT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  }
  // What an uninterrupted sync of a fresh sample device publishes.
  Leaves referenceLeaves() {
    OstrelTest::TestRouter reference;
    auto tree = buildTree();
    FullVekTypeWalker::syncObject(tree.device.ptr(), strToPath("/devices/dev1"), reference, ids(9, 9),
                                  WalkerFlags::RequestKindBit1);
    return reference.leaves();
  }
};

// A root entity whose only attributes are its name and a collection of
// `rows` scalar members: its name goes out first, then one push per member.
Vek::Ptr<Vek::Entity> table(unsigned rows) {
  static const Vek::VekType type = Vek::Module::moduleNew("WalkerTable")
                                       .entityType("Table")
                                       .collection("rows", Vek::builtinType<unsigned>(), Vek::builtinType<unsigned>())
                                       .done();
  Vek::Ptr<Vek::Entity> t = Vek::Entity::rootNew(type, "table");
  for (unsigned i = 0; i < rows; ++i) {
    type->attr("rows").genericIfSet(t, Vek::genericIfOf(i), Vek::genericIfOf(i));
  }
  return t;
}

bool contains(const Leaves& leaves, const std::string& leaf) {
  return std::find(leaves.begin(), leaves.end(), leaf) != leaves.end();
}

// ---------------------------------------------------------------------------
// What a sync publishes

TEST_F(FullWalker, ScalarsOfAnEntityTravelTogetherAtItsPrefix) {
  auto tree = buildTree();
  EXPECT_EQ(sync(tree.device->entity("chassis"), ids(1, 1)), WalkResult::Done);
  ASSERT_EQ(router_.messages.size(), 1u);
  EXPECT_EQ(router_.texts[0],
            "timestamp:0 prefix:/devices/dev1/chassis update0 ( path:/name string_val:chassis ) "
            "update1 ( path:/serial string_val:SN123 ) update2 ( path:/uptime int_val:3600500000000 ) "
            "update3 ( path:/temperature bytes_val:" +
                std::string("\x40\x44\xc0\x00\x00\x00\x00\x00", 8) + " ) ");
  EXPECT_EQ(router_.syncIds[0], SyncId(1));
}

TEST_F(FullWalker, NestedValuesShareTheirEntitysMessage) {
  auto tree = buildTree();
  sync(tree.eth1, ids(1, 1));
  const Leaves leaves = router_.leaves();
  EXPECT_TRUE(contains(leaves, "/devices/dev1/interfaces[name=eth1]/counters/inPkts = uint_val: 0"));
  EXPECT_TRUE(contains(leaves, "/devices/dev1/interfaces[name=eth1]/stats/pkts/outPkts = uint_val: 0"));
  // The leaves up to the peer pointer travel together: name, mtu, status,
  // description, enabled and the three counters.
  const auto it = std::find_if(router_.texts.begin(), router_.texts.end(),
                               [](const std::string& t) { return t.find("/counters/inPkts") != std::string::npos; });
  ASSERT_NE(it, router_.texts.end());
  const auto& n = router_.messages[static_cast<size_t>(it - router_.texts.begin())]->response->update();
  EXPECT_EQ(n.update_size(), 8);
  EXPECT_EQ(pathToStr(n.prefix()), "/devices/dev1/interfaces[name=eth1]");
  EXPECT_EQ(pathToStr(n.update(0).path()), "/name");
}

TEST_F(FullWalker, EachCollectionMemberTravelsAloneWithItsKeyAndTime) {
  auto tree = buildTree();
  sync(tree.device, ids(1, 1));
  const auto it = std::find_if(router_.texts.begin(), router_.texts.end(),
                               [](const std::string& t) { return t.find("vlanNames=10") != std::string::npos; });
  ASSERT_NE(it, router_.texts.end());
  EXPECT_EQ(*it,
            "timestamp:1800000000000000000 prefix:/devices/dev1 update0 ( "
            "path:/vlanNames[vlanNames=10]/vlanNames uint_val:10 ) update1 ( "
            "path:/vlanNames[vlanNames=10]/vlanNamesValue string_val:mgmt ) ");
}

TEST_F(FullWalker, ValueMembersAreWalkedBelowTheirKeyedElement) {
  auto tree = buildTree();
  sync(tree.eth0, ids(1, 1));
  const Leaves leaves = router_.leaves();
  const std::string at = "/devices/dev1/interfaces[name=eth0]/addresses[addressesKey=192.168.1.1]";
  EXPECT_TRUE(contains(leaves, at + "/addressesKey = string_val: \"192.168.1.1\""));
  EXPECT_TRUE(contains(leaves, at + "/prefixLength = uint_val: 16"));
  EXPECT_TRUE(contains(leaves, at + "/origin = string_val: \"dhcp\""));
}

// The members of a collection are walked with one key and one path, keyed
// anew for each member, and by walkers aimed anew at each (an owned member's
// walk borrows that path as its prefix and its owner's spare walker; a value
// member's nested values are walked by its spare child walker). Each member
// must publish what a fresh key, path and walker publish: the change
// walker's, when the member is reported changed.
TEST_F(FullWalker, EveryMemberPublishesWhatAChangeOfItAlonePublishes) {
  auto tree = buildTree();
  sync(tree.device, ids(0, 1));
  std::vector<Leaves> synced;
  for (const auto& msg : router_.messages) {
    OstrelTest::TestRouter one;
    one.push(SyncId(), msg);
    synced.push_back(one.leaves());
  }
  const Leaves all = router_.leaves();
  unsigned members = 0;
  for (const auto& [owner, prefix] : {std::pair{tree.device, std::string("/devices/dev1")},
                                      std::pair{tree.eth0, std::string("/devices/dev1/interfaces[name=eth0]")}}) {
    GifGnmiNotifiee& notifiee = *gNmiNotifieeMap.at(strToPath(prefix));
    for (Vek::VekTypeBase::AttributeQIterator attrIt(owner->type()); attrIt; ++attrIt) {
      const Vek::VekAttr attr = *attrIt;
      if (!attr->isCollection() || attr->isArray() || attr->isStack()) continue;
      for (auto it = attr.genericIfIteratorConst(owner); it; ++it) {
        router_.clear();
        notifiee.onAttribute(attr->id(), it.key().ptr());
        const Leaves changed = router_.leaves();
        ASSERT_FALSE(changed.empty()) << attr->name();
        ++members;
        if (!attr->isInstantiating()) {
          // One message, the same as one of the sync's.
          EXPECT_NE(std::find(synced.begin(), synced.end(), changed), synced.end())
              << attr->name() << ": " << changed.front();
          continue;
        }
        // An owned entity: all that the sync published below its prefix.
        const std::string memberPrefix = changed.front().substr(0, changed.front().find("]/") + 1);
        Leaves below;
        for (const std::string& leaf : all) {
          if (leaf.rfind(memberPrefix + "/", 0) == 0) below.push_back(leaf);
        }
        Leaves sortedChange = changed;
        std::sort(sortedChange.begin(), sortedChange.end());
        std::sort(below.begin(), below.end());
        EXPECT_EQ(sortedChange, below) << memberPrefix;
      }
    }
  }
  // interfaces 2, vlanNames 2, linkCosts 2, vlanRoles 1, vlanPriorities 1,
  // neighbors 1, lagMembers 2, routes 1, addresses 2.
  EXPECT_EQ(members, 14u);
}

TEST_F(FullWalker, OwnedEntitiesAreSyncedAtTheirOwnPrefix) {
  auto tree = buildTree();
  sync(tree.device, ids(1, 1));
  std::set<std::string> prefixes;
  for (const auto& msg : router_.messages) prefixes.insert(pathToStr(msg->response->update().prefix()));
  EXPECT_EQ(prefixes, (std::set<std::string>{"/devices/dev1", "/devices/dev1/chassis",
                                             "/devices/dev1/scalars",
                                             "/devices/dev1/interfaces[name=eth0]",
                                             "/devices/dev1/interfaces[name=eth1]",
                                             "/devices/dev1/neighbors[ifName=eth0][index=1]"}));
  // Each published entity got a notifiee under its prefix.
  for (const auto& p : prefixes) {
    EXPECT_TRUE(gNmiNotifieeMap.contains(strToPath(p))) << p;
  }
}

TEST_F(FullWalker, AnUnsetOwnedChildIsSkipped) {
  auto tree = buildTree();
  ASSERT_FALSE(tree.device->entity("fan"));
  sync(tree.device, ids(1, 1));
  for (const std::string& leaf : router_.leaves()) EXPECT_EQ(leaf.find("/fan"), std::string::npos) << leaf;
}

TEST_F(FullWalker, ANullPointerIsPublishedAsNullptr) {
  auto tree = buildTree();
  tree.eth1->pointerIs("peer", nullptr);
  sync(tree.eth1, ids(1, 1));
  EXPECT_TRUE(contains(router_.leaves(),
                       "/devices/dev1/interfaces[name=eth1]/peer_ptr = string_val: \"nullptr\""));
}

TEST_F(FullWalker, DirectoriesPublishTheirChildrenByName) {
  auto tree = buildTree();
  FullVekTypeWalker::syncObject(tree.devices.ptr(), strToPath("/devices"), router_, ids(1, 1),
                                WalkerFlags::None);
  const Leaves leaves = router_.leaves();
  EXPECT_TRUE(contains(leaves, "/devices/dev1/hostname = string_val: \"dev1.lab\""));
  EXPECT_TRUE(contains(leaves, "/devices/name = string_val: \"devices\""));
}

TEST_F(FullWalker, ADirectoryEntryYieldsNoUpdatesAndDone) {
  auto tree = buildTree();
  EXPECT_EQ(FullVekTypeWalker::syncObject(tree.primary.ptr(), strToPath("/devices/primary"), router_,
                                          ids(1, 1), WalkerFlags::None),
            WalkResult::Done);
  EXPECT_TRUE(router_.messages.empty());
  EXPECT_FALSE(gNmiNotifieeMap.contains(strToPath("/devices/primary")));
}

TEST_F(FullWalker, ArraysTravelAsOneLeafListStampedWithTheirTime) {
  auto tree = buildTree();
  sync(tree.eth0, ids(1, 1));
  const auto it = std::find_if(router_.messages.begin(), router_.messages.end(), [](const auto& m) {
    return m->response->update().update(0).path().elem(0).name() == "vlans";
  });
  ASSERT_NE(it, router_.messages.end());
  const gnmi::Notification& n = (*it)->response->update();
  EXPECT_EQ(n.timestamp(), T0);
  EXPECT_EQ(OstrelTest::valueText(n.update(0).val()), "[uint_val: 10, uint_val: 20, uint_val: 30]");
}

// ---------------------------------------------------------------------------
// Flags

TEST_F(FullWalker, ASyncWithSyncIdZeroIsNeverCutByTheSlice) {
  auto tree = buildTree();
  router_.onPush = [&] { clock_.advance(1.0); };  // every push spends ten slices
  EXPECT_EQ(sync(tree.device, ids(0, 5)), WalkResult::Done);
  EXPECT_EQ(router_.leaves(), referenceLeaves());
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
}

TEST_F(FullWalker, ASyncWithSyncIdZeroPausesOnlyWhenTheRouterRefuses) {
  auto tree = buildTree();
  router_.refuseEvery = 3;
  EXPECT_EQ(sync(tree.device, ids(0, 5)), WalkResult::RouterFull);
  resumeAll();
  EXPECT_EQ(router_.leaves().size(), referenceLeaves().size());
}

TEST_F(FullWalker, IgnoringPushResultsAllOfARefusingRouterGetsEverything) {
  auto tree = buildTree();
  router_.refuseAll = true;
  EXPECT_EQ(sync(tree.device, ids(1, 1), WalkerFlags::RequestKindBit1 | WalkerFlags::IgnorePushResult),
            WalkResult::Done);
  EXPECT_EQ(router_.leaves(), referenceLeaves());
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
}

TEST_F(FullWalker, SuppressedPushesReachNothingAndTheWalkCompletesAtOnce) {
  auto tree = buildTree();
  router_.refuseAll = true;
  EXPECT_EQ(sync(tree.device, ids(1, 1), WalkerFlags::SuppressPush), WalkResult::Done);
  EXPECT_EQ(router_.pushes, 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapStartSize(), 0u);
}

TEST_F(FullWalker, SkippedWalkReturnsDoneWithoutTouchingTheObject) {
  auto tree = buildTree();
  const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(tree.eth0.ptr());
  VekKey key;
  FullVekTypeWalker walker(strToPath("/devices/dev1/interfaces[name=eth0]"), nullptr, gif, gnmi::Path(),
                           gif->type(), router_, ids(1, 1), WalkerFlags::SkipWalk, key, 0);
  EXPECT_EQ(walker.walk(), WalkResult::Done);
  EXPECT_EQ(router_.pushes, 0u);
  // Not even the notifiee a walk looks up is needed.
  EXPECT_TRUE(gNmiNotifieeMap.empty());
}

TEST_F(FullWalker, TheNotifieeOfASyncGetsItsOptionsFromTheWalkFlags) {
  auto tree = buildTree();
  sync(tree.device->entity("chassis"), ids(1, 1), WalkerFlags::RequestKindBit1);
  sync(tree.scalars, ids(2, 2), WalkerFlags::RequestKindBit1 | WalkerFlags::NotifieeOption);
  EXPECT_EQ(toBits(VekGnmiUtils::lookupGnmiNotifieeMap(strToPath("/devices/dev1/chassis"))->walkerFlags()),
            46u);
  EXPECT_EQ(toBits(VekGnmiUtils::lookupGnmiNotifieeMap(strToPath("/devices/dev1/scalars"))->walkerFlags()),
            110u);
}

// ---------------------------------------------------------------------------
// Pausing and resuming

TEST_F(FullWalker, PausingInsideACollectionResumesWithTheNextMember) {
  auto tree = buildTree();
  const Vek::VekAttr vlanNames = types().device->attr("vlanNames");
  for (unsigned short v = 100; v < 110; ++v) {
    vlanNames.genericIfSet(tree.device, Vek::genericIfOf(v), Vek::genericIfOf("v"));
  }
  // Refuse the push of the member vlanNames[102] (the 5th push of this walk:
  // uplink, 10, 20, 100, 101, 102... counting from the device's own pushes).
  router_.onPush = [&] {
    router_.refuseAll = router_.texts.back().find("vlanNames=102]") != std::string::npos;
  };
  ASSERT_EQ(sync(tree.device, ids(1, 1)), WalkResult::RouterFull);
  const size_t before = router_.messages.size();
  EXPECT_NE(router_.texts.back().find("vlanNames=102]"), std::string::npos);
  router_.onPush = nullptr;
  router_.refuseAll = false;
  resumeAll();
  // The member after 102 comes next; none is sent twice, none skipped.
  EXPECT_NE(router_.texts[before].find("vlanNames=103]"), std::string::npos) << router_.texts[before];
  std::vector<std::string> members;
  for (const auto& t : router_.texts) {
    const auto at = t.find("/vlanNames[vlanNames=");
    if (at != std::string::npos) members.push_back(t.substr(at, t.find(']', at) - at));
  }
  std::set<std::string> unique(members.begin(), members.end());
  EXPECT_EQ(members.size(), 12u);
  EXPECT_EQ(unique.size(), 12u);
}

TEST_F(FullWalker, PausedAndResumedSyncPublishesWhatAnUninterruptedOneDoes) {
  const Leaves reference = referenceLeaves();
  for (uint64_t k = 1; k <= 6; ++k) {
    OstrelTest::TestRouter router;
    auto tree = buildTree();
    router.refuseEvery = k;
    WalkResult r = FullVekTypeWalker::syncObject(tree.device.ptr(), strToPath("/devices/dev1"), router,
                                                 ids(1, 1), WalkerFlags::RequestKindBit1);
    for (int guard = 0; r != WalkResult::Done && guard < 1000; ++guard) {
      std::vector<SyncWalkId> done;
      r = FullVekTypeWalker::resumeAllSyncsAndNotifs(done);
    }
    Leaves got = router.leaves();
    Leaves want = reference;
    std::sort(got.begin(), got.end());
    std::sort(want.begin(), want.end());
    EXPECT_EQ(got, want) << "refusing every " << k << "th push";
  }
}

TEST_F(FullWalker, ASpentSliceIsTestedOnlyAfterAPush) {
  const Vek::Ptr<Vek::Entity> t = table(10);
  clock_.advance(5.0);  // long after anything
  router_.onPush = [&] { clock_.advance(0.06); };
  // The slice starts at syncObject: the first push is taken, the second
  // (at 0.12 s) ends the slice although the router accepted it.
  EXPECT_EQ(FullVekTypeWalker::syncObject(t.ptr(), strToPath("/table"), router_, ids(1, 1), WalkerFlags::None),
            WalkResult::QuantaExceeded);
  EXPECT_EQ(router_.pushes, 2u);
  EXPECT_EQ(FullVekTypeWalker::walkMapStartSize(), 1u);
}

TEST_F(FullWalker, TheSliceEndsExactlyWhenTheQuantumIsReached) {
  const Vek::Ptr<Vek::Entity> t = table(10);
  router_.onPush = [&] { clock_.advance(FullVekTypeWalker::SYNCQUANTUM); };
  EXPECT_EQ(FullVekTypeWalker::syncObject(t.ptr(), strToPath("/table"), router_, ids(1, 1), WalkerFlags::None),
            WalkResult::QuantaExceeded);
  EXPECT_EQ(router_.pushes, 1u);
}

TEST_F(FullWalker, AResumedWalksSliceIsMeasuredFromItsLatestResumption) {
  const Vek::Ptr<Vek::Entity> t = table(10);
  router_.onPush = [&] { clock_.advance(0.06); };
  ASSERT_EQ(FullVekTypeWalker::syncObject(t.ptr(), strToPath("/table"), router_, ids(1, 1), WalkerFlags::None),
            WalkResult::QuantaExceeded);
  ASSERT_EQ(router_.pushes, 2u);
  clock_.advance(100.0);  // a long wait before the agent resumes
  std::vector<SyncWalkId> done;
  EXPECT_EQ(FullVekTypeWalker::resumeAllSyncsAndNotifs(done), WalkResult::QuantaExceeded);
  // A fresh slice: two more pushes, not one.
  EXPECT_EQ(router_.pushes, 4u);
}

TEST_F(FullWalker, LeavesGoOutBeforeAnAttributeThatPushesItsOwnMessage) {
  auto tree = buildTree();
  // Refuse the peer pointer of eth0, after its first leaves were read.
  router_.onPush = [&] { router_.refuseAll = router_.texts.back().find("peer_ptr") != std::string::npos; };
  ASSERT_EQ(sync(tree.eth0, ids(1, 1)), WalkResult::RouterFull);
  // They went out just before it, so the pause holds nothing back.
  ASSERT_EQ(router_.texts.size(), 2u);
  EXPECT_NE(router_.texts[1].find("peer_ptr"), std::string::npos);
  EXPECT_EQ(router_.texts[0],
            "timestamp:0 prefix:/devices/dev1/interfaces[name=eth0] update0 ( path:/name string_val:eth0 ) "
            "update1 ( path:/mtu uint_val:9000 ) update2 ( path:/status string_val:up ) update3 ( "
            "path:/description string_val:uplink ) update4 ( path:/enabled bool_val:true ) update5 ( "
            "path:/counters/inPkts uint_val:100 ) update6 ( path:/counters/outPkts uint_val:200 ) update7 ( "
            "path:/counters/inErrors uint_val:1 ) ");
}

TEST_F(FullWalker, AChildsRefusedFinalPushPausesTheParentAfterThatChild) {
  auto tree = buildTree();
  // Refuse the final push of eth0 (its last attribute, an array).
  router_.onPush = [&] {
    router_.refuseAll = router_.texts.back().find("prefix:/devices/dev1/interfaces[name=eth0] update0 ( "
                                                  "path:/statusHistory") != std::string::npos;
  };
  EXPECT_EQ(sync(tree.device, ids(1, 1)), WalkResult::RouterFull);
  // eth0 has nothing left to resume: only the device waits, and it resumes
  // with eth1.
  ASSERT_EQ(FullVekTypeWalker::walkMap().at(WalkId(1)).size(), 1u) << FullVekTypeWalker::dumpWalkMap();
  EXPECT_EQ(pathToStr(FullVekTypeWalker::walkMap().at(WalkId(1)).front()->prefixPath()), "/devices/dev1");
  const size_t before = router_.messages.size();
  router_.onPush = nullptr;
  router_.refuseAll = false;
  resumeAll();
  EXPECT_EQ(pathToStr(router_.messages[before]->response->update().prefix()),
            "/devices/dev1/interfaces[name=eth1]");
}

TEST_F(FullWalker, ARefusedLastPushOfTheTopEntityEndsTheSync) {
  auto tree = buildTree();
  router_.refuseAll = true;
  // The chassis publishes one message; refused, it still holds everything.
  EXPECT_EQ(sync(tree.device->entity("chassis"), ids(1, 1)), WalkResult::Done);
  EXPECT_EQ(FullVekTypeWalker::walkMapSize(), 0u);
  EXPECT_EQ(FullVekTypeWalker::walkMapStartSize(), 0u);
}

TEST_F(FullWalker, AQueuedEntityWalkerHoldsNoReferenceOnItsEntity) {
  auto tree = buildTree();
  router_.refuseEvery = 1;
  ASSERT_NE(sync(tree.device, ids(1, 1)), WalkResult::Done);
  for (const auto& walker : FullVekTypeWalker::walkMap().at(WalkId(1))) {
    if (walker->objType()->isEntity()) {
      EXPECT_FALSE(walker->gif());
    }
  }
}

TEST_F(FullWalker, DeletingTheMemberUnderAQueuedWalkDropsTheWalk) {
  auto tree = buildTree();
  // The device is published, so its notifiee streams the delete.
  ASSERT_EQ(sync(tree.device, ids(9, 9)), WalkResult::Done);
  router_.clear();
  router_.refuseEvery = 1;
  ASSERT_NE(sync(tree.eth0, ids(1, 1)), WalkResult::Done);
  tree.eth0 = nullptr;
  // The device's notifiee publishes the delete and drops the queued work
  // under eth0 first.
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  EXPECT_EQ(router_.leaves().back(), "delete /devices/dev1/interfaces[name=eth0]");
  EXPECT_TRUE(FullVekTypeWalker::walkMap().at(WalkId(1)).empty());
  const uint64_t pushes = router_.pushes;
  EXPECT_EQ(FullVekTypeWalker::resumeSync(WalkId(1)), WalkResult::Done);
  EXPECT_EQ(router_.pushes, pushes);
}

TEST_F(FullWalker, AResumedWalkOfAnEntityThatLeftPublishesNothing) {
  // Crates own boxes; nothing publishes the crate, so no delete of a box is
  // published and its queued walk stays until it resumes.
  static const auto boxType = [] {
    Vek::Module& m = Vek::Module::moduleNew("WalkerLeft");
    const Vek::VekType box = m.entityType("Box")
                                 .collection("items", Vek::builtinType<unsigned>(), Vek::builtinType<unsigned>())
                                 .done();
    const Vek::VekType crate = m.entityType("Crate")
                                   .collection("boxes", Vek::builtinType<unsigned>(), box,
                                               Vek::AttrFlag::INSTANTIATING)
                                   .done();
    return std::make_pair(box, crate);
  }();
  Vek::Ptr<Vek::Entity> crate = Vek::Entity::rootNew(boxType.second, "crate");
  Vek::Ptr<Vek::Entity> box = crate->entityNew("boxes", Vek::genericIfOf(1u));
  for (unsigned i = 0; i < 4; ++i) {
    boxType.first->attr("items").genericIfSet(box, Vek::genericIfOf(i), Vek::genericIfOf(i));
  }
  router_.refuseEvery = 1;
  ASSERT_NE(FullVekTypeWalker::syncObject(box.ptr(), strToPath("/box"), router_, ids(1, 1), WalkerFlags::None),
            WalkResult::Done);
  crate->entityDel(boxType.second->attr("boxes"), Vek::genericIfOf(1u));  // `box` still holds it
  const uint64_t pushes = router_.pushes;
  router_.refuseEvery = 0;
  resumeAll();
  EXPECT_EQ(router_.pushes, pushes);
}

// ---------------------------------------------------------------------------
// Set-up and building blocks

TEST_F(FullWalker, SetUpSeedsMemberTimesWithoutOverwritingThem) {
  auto tree = buildTree();
  sync(tree.device, ids(1, 1));
  const auto* notifiee = gNmiNotifieeMap.at(strToPath("/devices/dev1")).ptr();
  const Vek::Ptr<Vek::GenericIf const> key = Vek::genericIfOf(static_cast<unsigned short>(10));
  EXPECT_EQ(TimeStampUtils::lookupCollectionKeyTs(notifiee, "vlanNames", key), T0);
  EXPECT_EQ(TimeStampUtils::lookupAttrTs(notifiee, "dnsServers"), T0);
  clock_.advance(7.0);
  sync(tree.device, ids(2, 2));
  EXPECT_EQ(TimeStampUtils::lookupCollectionKeyTs(notifiee, "vlanNames", key), T0);
  // A member added since is seeded with the time of the later sync.
  types().device->attr("vlanNames").genericIfSet(tree.device, Vek::genericIfOf(static_cast<unsigned short>(30)),
                                                 Vek::genericIfOf("new"));
  TimeStampUtils::eraseTs(notifiee, TSKey(types().device->attr("vlanNames")->id(),
                                          Vek::genericIfOf(static_cast<unsigned short>(30))));
  sync(tree.device, ids(3, 3));
  EXPECT_EQ(TimeStampUtils::lookupCollectionKeyTs(notifiee, "vlanNames",
                                                  Vek::genericIfOf(static_cast<unsigned short>(30))),
            T0 + 7000000000LL);
}

TEST_F(FullWalker, SetUpReplacesTheNotifieeOfAnEntityThatLeftButIsStillHeld) {
  auto tree = buildTree();
  sync(tree.eth0, ids(1, 1));
  const gnmi::Path path = strToPath("/devices/dev1/interfaces[name=eth0]");
  const auto* old = gNmiNotifieeMap.at(path).ptr();
  Vek::Ptr<Vek::Entity> held = tree.eth0;  // keeps the old eth0 alive
  tree.device->entityDel(types().device->attr("interfaces"), name("eth0"));
  Vek::Ptr<Vek::Entity> again = tree.device->entityNew("interfaces", name("eth0"));
  sync(again, ids(2, 2));
  ASSERT_TRUE(gNmiNotifieeMap.contains(path));
  EXPECT_NE(gNmiNotifieeMap.at(path).ptr(), old);
  EXPECT_EQ(gNmiNotifieeMap.at(path)->entity(), again.ptr());
  // The new entity streams.
  router_.clear();
  again->valueIs("mtu", 1600u);
  EXPECT_EQ(router_.leaves(), Leaves{"/devices/dev1/interfaces[name=eth0]/mtu = uint_val: 1600"});
}

// ---------------------------------------------------------------------------
// The plan of a type: how each attribute is published, decided once

TEST(WalkPlan, EachAttributeOfATypeIsPublishedAsItsFlagsAndStorageSay) {
  using Way = WalkPlan::Way;
  const auto wayOf = [](const Vek::VekType& type, const char* name) {
    const WalkPlan::TypePlan& plan = WalkPlan::of(type);
    for (const WalkPlan::Step& step : plan.steps) {
      if (step.attr->name() == name) return step;
    }
    ADD_FAILURE() << "no step for " << name;
    return WalkPlan::Step();
  };
  const Vek::VekType device = types().device;
  const Vek::VekType interface = types().interface;
  EXPECT_EQ(wayOf(device, "name").way, Way::StoredScalar);
  EXPECT_EQ(wayOf(device, "hostname").way, Way::StoredScalar);
  EXPECT_EQ(wayOf(device, "chassis").way, Way::OwnedChild);
  EXPECT_EQ(wayOf(device, "interfaces").way, Way::Collection);
  EXPECT_EQ(wayOf(device, "interfacesControl").way, Way::Skip);
  EXPECT_EQ(wayOf(device, "uplink").way, Way::Pointer);
  EXPECT_EQ(wayOf(device, "lagMembers").way, Way::Collection);
  EXPECT_EQ(wayOf(device, "dnsServers").way, Way::Array);
  // An alias of a wrapper value: read as a value, through a view of the
  // stored one.
  EXPECT_EQ(wayOf(device, "nativeVlan").way, Way::Value);
  EXPECT_TRUE(wayOf(device, "nativeVlan").storedValue);
  EXPECT_EQ(wayOf(interface, "mtu").way, Way::StoredScalar);
  EXPECT_EQ(wayOf(interface, "status").way, Way::StoredScalar);
  EXPECT_EQ(wayOf(interface, "counters").way, Way::Value);
  EXPECT_TRUE(wayOf(interface, "counters").storedValue);
  EXPECT_EQ(wayOf(interface, "config").way, Way::JsonText);
  EXPECT_EQ(wayOf(interface, "vlans").way, Way::Array);
  EXPECT_EQ(wayOf(interface, "addresses").way, Way::Collection);
  // Attributes that push messages of their own send the held leaves first.
  for (const char* name : {"chassis", "interfaces", "uplink", "lagMembers", "dnsServers"}) {
    EXPECT_TRUE(wayOf(device, name).flushesFirst) << name;
  }
  for (const char* name : {"name", "hostname", "nativeVlan", "interfacesControl"}) {
    EXPECT_FALSE(wayOf(device, name).flushesFirst) << name;
  }
}

TEST(WalkPlan, HasOneStepPerAttributeInTheTypesOrder) {
  const Vek::VekType device = types().device;
  const WalkPlan::TypePlan& plan = WalkPlan::of(device);
  ASSERT_EQ(plan.steps.size(), device->attrCount());
  for (size_t i = 0; i < plan.steps.size(); ++i) EXPECT_EQ(plan.steps[i].attr, device->attrAt(i));
}

TEST(WalkPlan, ListsTheCollectionsAndArraysWhoseTimesAreSeeded) {
  std::vector<std::string> names;
  for (const Vek::VekAttr& attr : WalkPlan::of(types().interface).timestamped) names.push_back(attr->name());
  EXPECT_EQ(names, (std::vector<std::string>{"addresses", "vlans", "statusHistory"}));
}

TEST(WalkPlan, IsMadeOncePerType) {
  EXPECT_EQ(&WalkPlan::of(types().interface), &WalkPlan::of(types().interface));
  EXPECT_NE(&WalkPlan::of(types().interface), &WalkPlan::of(types().device));
}

TEST_F(FullWalker, CreateResponseMakesAMessageWhenGivenNone) {
  auto tree = buildTree();
  const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(tree.eth0.ptr());
  VekKey key;
  FullVekTypeWalker walker(strToPath("/a"), nullptr, gif, gnmi::Path(), gif->type(), router_, ids(1, 1),
                           WalkerFlags::None, key, 0);
  ArenaRespMsgPtr msg;
  auto [first, held] = walker.createResponse(msg, nullptr, 42);
  ASSERT_TRUE(msg);
  EXPECT_EQ(held, msg);
  EXPECT_EQ(first->timestamp(), 42);
  EXPECT_EQ(pathToStr(first->prefix()), "/a");
  // Given a message holding an update, its notification is reused.
  auto [again, same] = walker.createResponse(msg, nullptr, 7);
  EXPECT_EQ(again, first);
  EXPECT_EQ(again->timestamp(), 42);
  // A message holding something else is made an update.
  msg->response->set_sync_response(true);
  auto [fresh, _] = walker.createResponse(msg, nullptr, 9);
  EXPECT_TRUE(msg->response->has_update());
  EXPECT_EQ(fresh->timestamp(), 9);
  EXPECT_EQ(pathToStr(fresh->prefix()), "/a");
}

TEST_F(FullWalker, CreateResponseCopiesTheKeysScalarsIntoANewNotification) {
  auto tree = buildTree();
  const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(tree.eth0.ptr());
  VekKey key;
  gnmi::TypedValue v;
  v.set_uint_val(10);
  key.mapInsert("vlanNames", "10", v);
  gnmi::Path path;
  key.updateTypeAndGenKey(types().device->attr("vlanNames"), Vek::builtinType<unsigned short>());
  key.updateAndStorePrefix(path, true, types().device->attr("vlanNames"));
  FullVekTypeWalker walker(strToPath("/a"), nullptr, gif, gnmi::Path(), gif->type(), router_, ids(1, 1),
                           WalkerFlags::None, key, 0);
  ArenaRespMsgPtr msg;
  auto [notification, held] = walker.createResponse(msg, &key, 0);
  ASSERT_EQ(notification->update_size(), 1);
  EXPECT_EQ(pathToStr(notification->update(0).path()), "/vlanNames[vlanNames=10]/vlanNames");
  // Not again into a notification that exists.
  walker.createResponse(msg, &key, 0);
  EXPECT_EQ(notification->update_size(), 1);
}

TEST_F(FullWalker, DebugStringNamesPrefixLeafIdsAndFlags) {
  VekKey key;
  FullVekTypeWalker walker(strToPath("/a/b"), nullptr, nullptr, strToPath("c"), Vek::VekType(), router_,
                           ids(3, 4), WalkerFlags{6}, key, 0);
  EXPECT_EQ(walker.debugString(),
            "FullVekTypeWalker( prefix:/a/b leaf:/c syncId:3 walkId:4 flags:"
            "00000000000000000000000000000110)");
  EXPECT_EQ(fmt::format("{}", walker), walker.debugString());
}

TEST_F(FullWalker, RouterPushOfANonSyncReportsOnlyTheRoutersAnswer) {
  VekKey key;
  FullVekTypeWalker walker(strToPath("/a"), nullptr, nullptr, gnmi::Path(), Vek::VekType(), router_,
                           ids(0, 0), WalkerFlags::None, key, 0);
  auto [msg, n] = ArenaRespMsg::createResponse(strToPath("/a"), 0);
  clock_.advance(1000.0);
  EXPECT_EQ(walker.routerPush(msg), WalkResult::Done);
  router_.refuseAll = true;
  EXPECT_EQ(walker.routerPush(msg), WalkResult::RouterFull);
  EXPECT_EQ(router_.pushes, 2u);
}

// ---------------------------------------------------------------------------
// Fatal paths

TEST_F(FullWalker, SyncOfNullIsFatal) {
  EXPECT_FATAL(FullVekTypeWalker::syncObject(nullptr, gnmi::Path(), router_, ids(1, 1), WalkerFlags::None),
               "cannot sync a nullptr");
}

TEST_F(FullWalker, WalkWithoutAnObjectIsFatal) {
  VekKey key;
  FullVekTypeWalker walker(strToPath("/a"), nullptr, nullptr, strToPath("b"), types().chassis, router_,
                           ids(1, 1), WalkerFlags{2}, key, 0);
  EXPECT_FATAL(walker.walk(),
               "walk with a gif_ == nullptr! prefixPath_:/a leafPath_:/b objType_:Sample::Chassis "
               "flags_:00000000000000000000000000000010");
}

TEST_F(FullWalker, AStackCollectionIsFatal) {
  auto tree = buildTree();
  EXPECT_FATAL(sync(tree.journal, ids(1, 1)), "stack collection type is not supported");
  tree = {};
  FullVekTypeWalker::flushWalkMap();
}

TEST_F(FullWalker, ANotifieeWithoutTimestampsIsFatal) {
  auto tree = buildTree();
  sync(tree.eth1, ids(1, 1));
  const gnmi::Path path = strToPath("/devices/dev1/interfaces[name=eth1]");
  objTsMap().erase(gNmiNotifieeMap.at(path).ptr());
  EXPECT_FATAL(sync(tree.eth1, ids(2, 2)), "timestamp not found for /devices/dev1/interfaces[name=eth1]");
  // Restore the table, so that the entity's end unregisters cleanly.
  objTsMap()[gNmiNotifieeMap.at(path).ptr()];
}

TEST(FullWalkerDeathTest, APushOfASyncWithoutAStartTimeFailsTheAssertion) {
  OstrelTest::TestRouter router;
  VekKey key;
  FullVekTypeWalker walker(strToPath("/a"), nullptr, nullptr, gnmi::Path(), Vek::VekType(), router,
                           ids(1, 77), WalkerFlags::None, key, 0);
  auto [msg, n] = ArenaRespMsg::createResponse(strToPath("/a"), 0);
  EXPECT_DEATH(walker.routerPush(msg), "Assertion `staticWalkStartMap.count\\( walkId_ \\)' failed");
}

}  // namespace
