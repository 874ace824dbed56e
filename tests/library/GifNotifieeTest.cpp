// The entity notifiee: its registrations, the walker flags of its options, how
// it turns changes into published updates, its unregistration when the entity
// ends; the registries' lookup and dumps; allocation accounting.
#include <string>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <Ostrel/GifNotifiee.h>
#include <Ostrel/Path.h>
#include <Ostrel/TimeStamps.h>
#include <Ostrel/VekTypeWalker.h>
#include <Vek/Vek.h>

#include "FatalCatcher.h"
#include "SampleModel.h"
#include "TraceCapture.h"
#include "WalkSupport.h"

namespace {

using Ostrel::gNmiNotifieeMap;
using Ostrel::GifGnmiNotifiee;
using Ostrel::notifieePathMap;
using Ostrel::objTsMap;
using Ostrel::strToPath;
using Ostrel::WalkerFlags;
using OstrelTest::ids;
namespace Sample = OstrelTest::Sample;
namespace Utils = Ostrel::VekGnmiUtils;

const void* address(const void* p) { return p; }

// A fan that is a root of its own: the smallest entity that can be watched.
Vek::Ptr<Vek::Entity> fan(const char* name = "fan1") {
  return Vek::Entity::rootNew(Sample::types().fan, name);
}

Vek::AttributeId rpmId() { return Sample::types().fan->attr("rpm")->id(); }

class GifNotifiee : public OstrelTest::WalkTest {
 protected:
  // A notifiee of `entity` at `path`, held here as well as by the registry.
  Vek::Ptr<GifGnmiNotifiee> notifieeOf(const Vek::PtrInterface* entity, const gnmi::Path& path,
                                       bool firstOption = false, bool secondOption = false) {
    return new GifGnmiNotifiee(entity, path, router_, firstOption, secondOption);
  }
};

// ---------------------------------------------------------------------------
// Construction

TEST_F(GifNotifiee, ConstructorRegistersInAllThreeMaps) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const gnmi::Path path = strToPath("/fans/fan1");
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, path);
  ASSERT_EQ(gNmiNotifieeMap.count(path), 1u);
  EXPECT_EQ(gNmiNotifieeMap.at(path).ptr(), n.ptr());
  ASSERT_EQ(notifieePathMap.count(f.ptr()), 1u);
  EXPECT_EQ(notifieePathMap.at(f.ptr()), path);
  ASSERT_EQ(objTsMap().count(n.ptr()), 1u);
  EXPECT_TRUE(objTsMap().at(n.ptr()).empty());
  EXPECT_EQ(n->prefixPath(), path);
  EXPECT_EQ(n->entity(), f.ptr());
}

TEST_F(GifNotifiee, ConstructorHooksOntoTheEntityWeakly) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const uint32_t before = f->references();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fan"));
  EXPECT_EQ(f->references(), before);
  EXPECT_TRUE(n->isWeakReference());
  EXPECT_TRUE(n->isRegisteredNotifiee());
  EXPECT_EQ(n->notifier(), f.ptr());
  ASSERT_EQ(f->notifiees().size(), 1u);
  EXPECT_EQ(f->notifiees()[0], n.ptr());
}

TEST_F(GifNotifiee, RegistryHoldsTheOnlyReferenceItNeeds) {
  const Vek::Ptr<Vek::Entity> f = fan();
  GifGnmiNotifiee* n = new GifGnmiNotifiee(f, strToPath("/fan"), router_, false, false);
  EXPECT_EQ(n->references(), 1u);
  EXPECT_EQ(gNmiNotifieeMap.at(strToPath("/fan")).ptr(), n);
}

TEST_F(GifNotifiee, SecondNotifieeForTheSamePrefixDoesNotReplaceTheFirst) {
  const Vek::Ptr<Vek::Entity> first = fan("first");
  const gnmi::Path path = strToPath("/fan");
  const Vek::Ptr<GifGnmiNotifiee> a = notifieeOf(first, path);
  // The registry does not own the second one: it is held here until its
  // entity has ended.
  Vek::Ptr<GifGnmiNotifiee> b;
  {
    const Vek::Ptr<Vek::Entity> second = fan("second");
    b = notifieeOf(second, path);
    EXPECT_EQ(gNmiNotifieeMap.size(), 1u);
    EXPECT_EQ(gNmiNotifieeMap.at(path).ptr(), a.ptr());
    EXPECT_EQ(Utils::lookupGnmiNotifieeMap(path).ptr(), a.ptr());
  }
  // The second entity ended first: the path stays with the first notifiee.
  EXPECT_EQ(gNmiNotifieeMap.at(path).ptr(), a.ptr());
  EXPECT_EQ(notifieePathMap.size(), 1u);
  EXPECT_EQ(notifieePathMap.count(first.ptr()), 1u);
  EXPECT_EQ(objTsMap().size(), 1u);
  EXPECT_EQ(objTsMap().count(a.ptr()), 1u);
}

TEST_F(GifNotifiee, SecondNotifieeOfAnEntityLeavesItsRegisteredPath) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> a = notifieeOf(f, strToPath("/a"));
  const Vek::Ptr<GifGnmiNotifiee> b = notifieeOf(f, strToPath("/b"));
  EXPECT_EQ(notifieePathMap.at(f.ptr()), strToPath("/a"));
  EXPECT_EQ(gNmiNotifieeMap.at(strToPath("/b")).ptr(), b.ptr());
}

TEST_F(GifNotifiee, EmptyPrefixIsDerivedFromTheEntityText) {
  const Vek::Ptr<Vek::Dir> root = Vek::Dir::rootNew("a");
  const Vek::Ptr<Vek::Entity> b = root->childNew(Sample::types().fan, "b");
  ASSERT_EQ(b->strRep(), "entity('a.b')");
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(b, gnmi::Path());
  EXPECT_EQ(n->prefixPath(), strToPath("/a/b"));
  EXPECT_EQ(gNmiNotifieeMap.count(strToPath("/a/b")), 1u);
  EXPECT_EQ(notifieePathMap.at(b.ptr()), strToPath("/a/b"));
}

TEST_F(GifNotifiee, NonEmptyPrefixIsKeptAsGiven) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::Path path = strToPath("/devices/dev1/interfaces[name=eth0]");
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, path);
  EXPECT_EQ(n->prefixPath(), path);
}

// The extraction failure prints its diagnosis on standard output; the death
// test reads standard error.
void notifieeWithStdoutOnStderr(const Vek::PtrInterface* entity, OstrelTest::TestRouter& router) {
  ::dup2(STDERR_FILENO, STDOUT_FILENO);
  new GifGnmiNotifiee(entity, gnmi::Path(), router, false, false);
}

TEST(GifNotifieeDeathTest, EmptyPrefixForEntityTextOfAnotherShapeAborts) {
  OstrelTest::TestRouter router;
  EXPECT_DEATH(notifieeWithStdoutOnStderr(Vek::Dir::rootNew(""), router),
               "gifPtrStrep: entity\\(''\\) does not match regex");
  EXPECT_DEATH(notifieeWithStdoutOnStderr(fan("fan one"), router),
               "gifPtrStrep: entity\\('fan one'\\) does not match regex");
}

TEST_F(GifNotifiee, ConstructionChangesAndZeroReferencesTraceThePrefix) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const OstrelTest::TraceCapture traces("OstrelGifGnmiNotifiee", 1u << 5);
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fans/fan1"));
  n->onAttribute(rpmId(), nullptr);
  n->onZeroReferences();
  EXPECT_EQ(traces.messages, (std::vector<std::string>(3, "prefixPath_:/fans/fan1")));
}

// ---------------------------------------------------------------------------
// Walker flags and changes

TEST_F(GifNotifiee, WalkerFlagsFollowTheOptions) {
  const Vek::Ptr<Vek::Entity> f = fan();
  EXPECT_EQ(Ostrel::toBits(notifieeOf(f, strToPath("/a"), true, false)->walkerFlags()), 35u);
  EXPECT_EQ(Ostrel::toBits(notifieeOf(f, strToPath("/b"), false, false)->walkerFlags()), 46u);
  EXPECT_EQ(Ostrel::toBits(notifieeOf(f, strToPath("/c"), true, true)->walkerFlags()), 99u);
  EXPECT_EQ(Ostrel::toBits(notifieeOf(f, strToPath("/d"), false, true)->walkerFlags()), 110u);
}

TEST_F(GifNotifiee, ChangeIsPublishedAtOnceAtThePrefixStampedWithTheChangeTime) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fans/fan1"));
  clock_.advance(2.5);
  f->valueIs<unsigned>("rpm", 3000);
  EXPECT_EQ(router_.leaves(), (std::vector<std::string>{"/fans/fan1/rpm = uint_val: 3000"}));
  ASSERT_EQ(router_.messages.size(), 1u);
  EXPECT_EQ(router_.syncIds[0], Ostrel::SyncId());
  EXPECT_EQ(router_.messages[0]->response->update().timestamp(), T0 + 2500000000LL);
  EXPECT_EQ(router_.messages[0]->response->update().prefix(), strToPath("/fans/fan1"));
}

TEST_F(GifNotifiee, FirstOptionSuppressesThePushOfChanges) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fans/fan1"), true, false);
  f->valueIs<unsigned>("rpm", 3000);
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(GifNotifiee, SecondOptionIgnoresADeleteWithoutAPriorUpdate) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, strToPath("/devices/dev1"), false, true);
  Sample::types().device->attr("vlanNames").genericIfErase(
      tree.device, Vek::genericIfOf(static_cast<unsigned short>(10)));
  EXPECT_EQ(router_.pushes, 0u);
}

TEST_F(GifNotifiee, NegativeAttributeIdIsHandledLikeThePositiveOne) {
  const Vek::Ptr<Vek::Entity> f = fan();
  f->valueIs<unsigned>("rpm", 1200);
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fan"));
  n->onAttribute(rpmId(), nullptr);
  n->onAttribute(Vek::AttributeId(-rpmId().value()), nullptr);
  EXPECT_EQ(router_.leaves(),
            (std::vector<std::string>{"/fan/rpm = uint_val: 1200", "/fan/rpm = uint_val: 1200"}));
}

TEST_F(GifNotifiee, NegativeAttributeIdOfAMemberRecordsItsTimeUnderTheAttribute) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, strToPath("/devices/dev1"));
  const Vek::VekAttr vlanNames = Sample::types().device->attr("vlanNames");
  // The runtime names a member by its stored key.
  const Vek::CollectionIterator first = vlanNames.genericIfIteratorConst(tree.device);
  const Vek::Ptr<Vek::GenericIf const> storedKey = first.key();
  ASSERT_EQ(storedKey->strRep(), "10");
  clock_.advance(1.0);
  n->onAttribute(Vek::AttributeId(-vlanNames->id().value()), storedKey.ptr());
  EXPECT_EQ(router_.leaves(),
            (std::vector<std::string>{
                "/devices/dev1/vlanNames[vlanNames=10]/vlanNames = uint_val: 10",
                "/devices/dev1/vlanNames[vlanNames=10]/vlanNamesValue = string_val: \"mgmt\""}));
  EXPECT_EQ(Ostrel::TimeStampUtils::lookupCollectionKeyTs(n.ptr(), "vlanNames", storedKey),
            std::optional<Ostrel::Timestamp>(T0 + 1000000000LL));
}

TEST_F(GifNotifiee, ChangeOfAnAttributeTheTypeDoesNotHaveIsIgnored) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fan"));
  n->onAttribute(Vek::AttributeId(999), nullptr);
  n->onAttribute(Vek::AttributeId(-999), nullptr);
  n->onAttribute(Vek::AttributeId(0), nullptr);
  EXPECT_EQ(router_.pushes, 0u);
  EXPECT_TRUE(objTsMap().at(n.ptr()).empty());
}

// ---------------------------------------------------------------------------
// Zero references

TEST_F(GifNotifiee, ZeroReferencesUnregistersTheNotifieeFromEveryMap) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const gnmi::Path path = strToPath("/fans/fan1");
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, path);
  n->onZeroReferences();
  EXPECT_EQ(gNmiNotifieeMap.count(path), 0u);
  EXPECT_EQ(notifieePathMap.count(f.ptr()), 0u);
  EXPECT_EQ(objTsMap().count(n.ptr()), 0u);
  EXPECT_EQ(GifGnmiNotifiee::dumpGnmiNotifieeMap(), "");
  EXPECT_EQ(GifGnmiNotifiee::dumpNotifieePathMap(), "");
  EXPECT_FATAL(Utils::lookupGnmiNotifieeMap(path),
               "Could not locate gifGnmiNotifiee at prefix /fans/fan1");
}

TEST_F(GifNotifiee, ZeroReferencesReleasesTheRegistryReference) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fan"));
  ASSERT_EQ(n->references(), 2u);
  n->onZeroReferences();
  EXPECT_EQ(n->references(), 1u);
}

TEST_F(GifNotifiee, EntityEndingUnregistersItsNotifiee) {
  const gnmi::Path path = strToPath("/fans/fan1");
  {
    const Vek::Ptr<Vek::Entity> f = fan();
    new GifGnmiNotifiee(f, path, router_, false, false);
    ASSERT_EQ(gNmiNotifieeMap.size(), 1u);
  }
  EXPECT_EQ(gNmiNotifieeMap.size(), 0u);
  EXPECT_EQ(notifieePathMap.size(), 0u);
  EXPECT_EQ(objTsMap().size(), 0u);
  EXPECT_EQ(GifGnmiNotifiee::dumpGnmiNotifieeMap(), "");
  EXPECT_EQ(GifGnmiNotifiee::dumpNotifieePathMap(), "");
  EXPECT_FATAL(Utils::lookupGnmiNotifieeMap(path),
               "Could not locate gifGnmiNotifiee at prefix /fans/fan1");
}

TEST_F(GifNotifiee, ZeroReferencesDropsTheQueuedWalksUnderItsPrefix) {
  const Sample::Tree tree = Sample::buildTree();
  const gnmi::Path path = strToPath("/devices/dev1");
  router_.refuseAll = true;
  ASSERT_NE(Ostrel::FullVekTypeWalker::syncObject(tree.device, path, router_, ids(7, 7),
                                                  WalkerFlags::RequestKindBit1),
            Ostrel::WalkResult::Done);
  ASSERT_EQ(Ostrel::staticPathWalkIdMap.count(path), 1u);
  Utils::lookupGnmiNotifieeMap(path)->onZeroReferences();
  EXPECT_EQ(Ostrel::staticPathWalkIdMap.count(path), 0u);
  ASSERT_EQ(Ostrel::staticWalkMap.count(Ostrel::WalkId(7)), 1u);
  EXPECT_TRUE(Ostrel::staticWalkMap.at(Ostrel::WalkId(7)).empty());
}

TEST_F(GifNotifiee, ZeroReferencesOfAnUnregisteredPrefixIsFatal) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const gnmi::Path path = strToPath("/fans/fan1");
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, path);
  gNmiNotifieeMap.erase(path);
  EXPECT_FATAL(n->onZeroReferences(), "could not find prefixPath /fans/fan1 in gNmiNotifieeMap");
  // Nothing else was touched.
  EXPECT_EQ(notifieePathMap.count(f.ptr()), 1u);
  EXPECT_EQ(objTsMap().count(n.ptr()), 1u);
  notifieePathMap.erase(f.ptr());
  objTsMap().erase(n.ptr());
}

TEST(GifNotifieeDeathTest, ZeroReferencesOfANotifieeWithoutATableAborts) {
  const auto withoutTable = [] {
    OstrelTest::TestRouter router;
    const Vek::Ptr<Vek::Entity> f = fan();
    const Vek::Ptr<GifGnmiNotifiee> n = new GifGnmiNotifiee(f, strToPath("/fan"), router, false, false);
    objTsMap().erase(n.ptr());
    n->onZeroReferences();
  };
  EXPECT_DEATH(withoutTable(),
               "GifNotifiee\\.cpp:[0-9]+: .*onZeroReferences.*: "
               "Assertion `tsIter != objTsMap\\(\\)\\.end\\(\\)' failed\\.");
}

TEST_F(GifNotifiee, DestroyingASyncedSampleTreeUnregistersEveryNotifiee) {
  {
    const Sample::Tree tree = Sample::buildTree();
    ASSERT_EQ(Ostrel::FullVekTypeWalker::syncObject(tree.device, strToPath("/devices/dev1"), router_,
                                                    ids(1, 1), WalkerFlags::RequestKindBit1),
              Ostrel::WalkResult::Done);
    // dev1, chassis, scalars, eth0, eth1 and the neighbor.
    EXPECT_EQ(gNmiNotifieeMap.size(), 6u) << GifGnmiNotifiee::dumpGnmiNotifieeMap();
    EXPECT_EQ(notifieePathMap.size(), 6u);
    EXPECT_EQ(objTsMap().size(), 6u);
  }
  EXPECT_EQ(gNmiNotifieeMap.size(), 0u) << GifGnmiNotifiee::dumpGnmiNotifieeMap();
  EXPECT_EQ(notifieePathMap.size(), 0u);
  EXPECT_EQ(objTsMap().size(), 0u);
}

// ---------------------------------------------------------------------------
// Allocation accounting

TEST_F(GifNotifiee, AllocationsAreAccountedUnderTheClassName) {
  Vek::AllocTrackTypeInfo& track = GifGnmiNotifiee::vekAllocTrackTypeInfo_;
  EXPECT_EQ(track.name(), "Ostrel::GifGnmiNotifiee");
  const int64_t live = track.liveObjects();
  const int64_t bytes = track.liveBytes();
  const uint64_t total = track.totalAllocations();
  {
    const Vek::Ptr<Vek::Entity> f = fan();
    const Vek::Ptr<GifGnmiNotifiee> a = notifieeOf(f, strToPath("/a"));
    const Vek::Ptr<GifGnmiNotifiee> b = notifieeOf(f, strToPath("/b"));
    EXPECT_EQ(track.liveObjects(), live + 2);
    EXPECT_EQ(track.liveBytes(), bytes + 2 * static_cast<int64_t>(sizeof(GifGnmiNotifiee)));
    EXPECT_EQ(track.totalAllocations(), total + 2);
  }
  EXPECT_EQ(track.liveObjects(), live);
  EXPECT_EQ(track.liveBytes(), bytes);
  EXPECT_EQ(track.totalAllocations(), total + 2);
}

// ---------------------------------------------------------------------------
// The registries

class NotifieeRegistry : public GifNotifiee {};

TEST_F(NotifieeRegistry, LookupReturnsTheNotifieeAtExactlyThePrefix) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/a[k=1]/b"));
  const Vek::Ptr<GifGnmiNotifiee> found = Utils::lookupGnmiNotifieeMap(strToPath("/a[k=1]/b"));
  EXPECT_EQ(found.ptr(), n.ptr());
  EXPECT_EQ(n->references(), 3u);
}

TEST_F(NotifieeRegistry, LookupIsNotALongestPrefixSearch) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/a/b"));
  EXPECT_FATAL(Utils::lookupGnmiNotifieeMap(strToPath("/a/b/c")),
               "Could not locate gifGnmiNotifiee at prefix /a/b/c");
  EXPECT_FATAL(Utils::lookupGnmiNotifieeMap(strToPath("/a")),
               "Could not locate gifGnmiNotifiee at prefix /a");
  EXPECT_FATAL(Utils::lookupGnmiNotifieeMap(strToPath("/a[k=1]/b")),
               "Could not locate gifGnmiNotifiee at prefix /a[k=1]/b");
}

TEST_F(NotifieeRegistry, LookupOfANullEntryIsFatal) {
  gNmiNotifieeMap.emplace(strToPath("/n"), nullptr);
  EXPECT_FATAL(Utils::lookupGnmiNotifieeMap(strToPath("/n")), "Notifiee does not exist for prefix /n");
  gNmiNotifieeMap.erase(strToPath("/n"));
}

TEST_F(NotifieeRegistry, DumpsOfEmptyRegistriesAreEmpty) {
  EXPECT_EQ(GifGnmiNotifiee::dumpGnmiNotifieeMap(), "");
  EXPECT_EQ(GifGnmiNotifiee::dumpNotifieePathMap(), "");
}

TEST_F(NotifieeRegistry, DumpGnmiNotifieeMapHasOneLinePerPrefix) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fans/fan[id=1]"));
  EXPECT_EQ(GifGnmiNotifiee::dumpGnmiNotifieeMap(),
            fmt::format("path:/fans/fan[id=1] notifiee:{}\n", address(n.ptr())));
}

TEST_F(NotifieeRegistry, DumpNotifieePathMapHasOneLinePerEntity) {
  const Vek::Ptr<Vek::Entity> f = fan();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(f, strToPath("/fans/fan[id=1]"));
  EXPECT_EQ(GifGnmiNotifiee::dumpNotifieePathMap(),
            fmt::format("ptrInterface:{} path:/fans/fan[id=1]\n", address(f.ptr())));
}

TEST_F(NotifieeRegistry, DumpsListEveryEntryInTheMapsOrder) {
  const Vek::Ptr<Vek::Entity> a = fan("a");
  const Vek::Ptr<Vek::Entity> b = fan("b");
  const Vek::Ptr<GifGnmiNotifiee> na = notifieeOf(a, strToPath("/a"));
  const Vek::Ptr<GifGnmiNotifiee> nb = notifieeOf(b, strToPath("/b"));
  std::string byPath;
  for (const auto& [path, notifiee] : gNmiNotifieeMap) {
    byPath += fmt::format("path:{} notifiee:{}\n", Ostrel::pathToStr(path), address(notifiee.ptr()));
  }
  std::string byEntity;
  for (const auto& [entity, path] : notifieePathMap) {
    byEntity += fmt::format("ptrInterface:{} path:{}\n", address(entity), Ostrel::pathToStr(path));
  }
  EXPECT_EQ(GifGnmiNotifiee::dumpGnmiNotifieeMap(), byPath);
  EXPECT_EQ(GifGnmiNotifiee::dumpNotifieePathMap(), byEntity);
  EXPECT_NE(byPath.find(fmt::format("path:/b notifiee:{}\n", address(nb.ptr()))), std::string::npos);
  EXPECT_NE(byEntity.find(fmt::format("ptrInterface:{} path:/a\n", address(a.ptr()))),
            std::string::npos);
}

}  // namespace
