// Attribute timestamps: the key of an entry, the per-notifiee tables and their
// lifecycle, the lookups, and VekGnmiUtils::getTimestamp over them.
#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include <Ostrel/GifNotifiee.h>
#include <Ostrel/Path.h>
#include <Ostrel/TimeStamps.h>
#include <Ostrel/VekGnmiUtils.h>
#include <Vek/Vek.h>

#include "FatalCatcher.h"
#include "SampleModel.h"
#include "TraceCapture.h"
#include "WalkSupport.h"

namespace {

using Ostrel::GifGnmiNotifiee;
using Ostrel::objTsMap;
using Ostrel::strToPath;
using Ostrel::Timestamp;
using Ostrel::TSKey;
namespace Sample = OstrelTest::Sample;
namespace Ts = Ostrel::TimeStampUtils;

Vek::AttributeId idOf(const Vek::VekType& type, const char* attrName) {
  return type->attr(attrName)->id();
}
Vek::AttributeId deviceAttr(const char* attrName) { return idOf(Sample::types().device, attrName); }
Vek::AttributeId interfaceAttr(const char* attrName) {
  return idOf(Sample::types().interface, attrName);
}

Vek::Ptr<Vek::GenericIf const> u16(unsigned short value) { return Vek::genericIfOf(value); }

// ---------------------------------------------------------------------------
// TSKey

TEST(TSKey, PlainEntriesOfOneAttributeAreEqual) {
  EXPECT_TRUE(TSKey(Vek::AttributeId(3), nullptr) == TSKey(Vek::AttributeId(3), nullptr));
  EXPECT_EQ(TSKey(Vek::AttributeId(3), nullptr).hash(), TSKey(Vek::AttributeId(3), nullptr).hash());
}

TEST(TSKey, DifferentAttributesAreDifferentKeys) {
  EXPECT_FALSE(TSKey(Vek::AttributeId(3), nullptr) == TSKey(Vek::AttributeId(4), nullptr));
  EXPECT_FALSE(TSKey(Vek::AttributeId(3), u16(10)) == TSKey(Vek::AttributeId(4), u16(10)));
}

TEST(TSKey, KeyedAndPlainEntriesAreDifferentKeys) {
  EXPECT_FALSE(TSKey(Vek::AttributeId(3), u16(10)) == TSKey(Vek::AttributeId(3), nullptr));
  EXPECT_FALSE(TSKey(Vek::AttributeId(3), nullptr) == TSKey(Vek::AttributeId(3), u16(10)));
}

TEST(TSKey, KeysCompareByValueNotByObject) {
  const Vek::Ptr<Vek::GenericIf const> a = u16(10);
  const Vek::Ptr<Vek::GenericIf const> b = u16(10);
  ASSERT_NE(a.ptr(), b.ptr());
  EXPECT_TRUE(TSKey(Vek::AttributeId(3), a) == TSKey(Vek::AttributeId(3), b));
  EXPECT_EQ(TSKey(Vek::AttributeId(3), a).hash(), TSKey(Vek::AttributeId(3), b).hash());
  EXPECT_FALSE(TSKey(Vek::AttributeId(3), a) == TSKey(Vek::AttributeId(3), u16(11)));
}

TEST(TSKey, WrapperKeyIsStoredAsTheValueItWraps) {
  const TSKey key(Vek::AttributeId(3), Sample::vlanId(10));
  ASSERT_TRUE(key.key);
  EXPECT_EQ(key.key->type(), Vek::builtinType<unsigned short>());
  EXPECT_EQ(key.key->strRep(), "10");
}

TEST(TSKey, WrappedAndBareKeysAreEqualBothWaysAndHashAlike) {
  const TSKey wrapped(Vek::AttributeId(3), Sample::vlanId(10));
  const TSKey bare(Vek::AttributeId(3), u16(10));
  EXPECT_TRUE(wrapped == bare);
  EXPECT_TRUE(bare == wrapped);
  EXPECT_EQ(wrapped.hash(), bare.hash());
  EXPECT_FALSE(wrapped == TSKey(Vek::AttributeId(3), u16(20)));
}

TEST(TSKey, AliasOfAWrapperIsEqualToTheWrapperAndToTheBareValue) {
  const TSKey alias(Vek::AttributeId(3), Sample::types().vlanTag.genericIf("20", true));
  EXPECT_EQ(alias.key->type(), Vek::builtinType<unsigned short>());
  EXPECT_TRUE(alias == TSKey(Vek::AttributeId(3), Sample::vlanId(20)));
  EXPECT_TRUE(alias == TSKey(Vek::AttributeId(3), u16(20)));
  EXPECT_EQ(alias.hash(), TSKey(Vek::AttributeId(3), u16(20)).hash());
}

TEST(TSKey, BareValueOfAnotherTypeIsADifferentKey) {
  EXPECT_FALSE(TSKey(Vek::AttributeId(3), Sample::vlanId(10)) ==
               TSKey(Vek::AttributeId(3), Vek::genericIfOf(10u)));
}

TEST(TSKey, EntityKeysCompareByIdentity) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::AttributeId linkCosts = deviceAttr("linkCosts");
  EXPECT_TRUE(TSKey(linkCosts, tree.eth0) == TSKey(linkCosts, tree.eth0));
  EXPECT_EQ(TSKey(linkCosts, tree.eth0).hash(), TSKey(linkCosts, tree.eth0).hash());
  EXPECT_FALSE(TSKey(linkCosts, tree.eth0) == TSKey(linkCosts, tree.eth1));
}

TEST(TSKey, HashMixesTheAttributeIdThenTheKeyValueHash) {
  Vek::HashMix plain;
  plain.mixBytes4(uint32_t{7});
  EXPECT_EQ(TSKey(Vek::AttributeId(7), nullptr).hash(), plain.value());
  Vek::HashMix keyed;
  keyed.mixBytes4(uint32_t{7});
  keyed.mixBytes4(u16(10)->hash());
  EXPECT_EQ(TSKey(Vek::AttributeId(7), Sample::vlanId(10)).hash(), keyed.value());
}

// ---------------------------------------------------------------------------
// The tables

class TimeStamps : public OstrelTest::WalkTest {
 protected:
  // A notifiee of `entity` at `path`, held here as well as by the registry.
  Vek::Ptr<GifGnmiNotifiee> notifieeOf(const Vek::Ptr<Vek::Entity>& entity, const char* path) {
    return new GifGnmiNotifiee(entity, strToPath(path), router_, false, false);
  }
};

TEST_F(TimeStamps, NotifieeGetsAnEmptyTableWhenItIsBuilt) {
  const Sample::Tree tree = Sample::buildTree();
  ASSERT_EQ(objTsMap().size(), 0u);
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  ASSERT_EQ(objTsMap().count(n.ptr()), 1u);
  EXPECT_TRUE(objTsMap().at(n.ptr()).empty());
}

TEST_F(TimeStamps, ZeroReferenceEventErasesTheTable) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  Ts::recordTs(n.ptr(), TSKey(interfaceAttr("mtu"), nullptr), 5);
  n->onZeroReferences();
  EXPECT_EQ(objTsMap().count(n.ptr()), 0u);
}

TEST_F(TimeStamps, EntityEndingErasesTheTable) {
  const GifGnmiNotifiee* n;
  {
    const Sample::Tree tree = Sample::buildTree();
    n = notifieeOf(tree.eth0, "/eth0").ptr();
    ASSERT_EQ(objTsMap().count(n), 1u);
  }
  EXPECT_EQ(objTsMap().count(n), 0u);
}

TEST_F(TimeStamps, LookupAttrTsFindsTheRecordedTime) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  Ts::recordTs(n.ptr(), TSKey(interfaceAttr("mtu"), nullptr), 1234);
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), "mtu"), std::optional<Timestamp>(1234));
}

TEST_F(TimeStamps, LookupAttrTsOfAnAttributeNeverRecordedIsEmpty) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  Ts::recordTs(n.ptr(), TSKey(interfaceAttr("mtu"), nullptr), 1234);
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), "status"), std::nullopt);
}

TEST_F(TimeStamps, LookupAttrTsOfAnAttributeTheTypeDoesNotHaveIsEmpty) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), "hostname"), std::nullopt);
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), ""), std::nullopt);
}

TEST_F(TimeStamps, LookupAttrTsDoesNotFindAMemberTime) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10)), 77);
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), "vlanNames"), std::nullopt);
}

TEST_F(TimeStamps, LookupAttrTsOfANotifieeWithoutATableIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  objTsMap().erase(n.ptr());
  EXPECT_FATAL(Ts::lookupAttrTs(n.ptr(), "mtu"), "unable to find GifGnmiNotifiee in objTsMap");
  // Given back, so that the end of its entity unregisters it as usual.
  objTsMap()[n.ptr()];
}

TEST_F(TimeStamps, LookupAttrTsAfterTheZeroReferenceEventIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  Ts::recordTs(n.ptr(), TSKey(interfaceAttr("mtu"), nullptr), 5);
  n->onZeroReferences();
  EXPECT_FATAL(Ts::lookupAttrTs(n.ptr(), "mtu"), "unable to find GifGnmiNotifiee in objTsMap");
}

TEST_F(TimeStamps, LookupAttrTsAfterTheEntityEndedIsFatal) {
  Vek::Ptr<GifGnmiNotifiee> n;
  {
    const Sample::Tree tree = Sample::buildTree();
    n = notifieeOf(tree.eth0, "/eth0");
    Ts::recordTs(n.ptr(), TSKey(interfaceAttr("mtu"), nullptr), 5);
  }
  // The notifiee outlives its entity; the entity must not be read any more.
  EXPECT_FATAL(Ts::lookupAttrTs(n.ptr(), "mtu"), "unable to find GifGnmiNotifiee in objTsMap");
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "addresses", Sample::ipv4("10.0.0.1")), std::nullopt);
}

TEST_F(TimeStamps, LookupsTraceTheAttributeAndTheType) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  const OstrelTest::TraceCapture traces("Ostrel", 1u << 5);
  Ts::lookupAttrTs(n.ptr(), "mtu");
  Ts::lookupCollectionKeyTs(n.ptr(), "addresses", Sample::ipv4("10.0.0.1"));
  EXPECT_EQ(traces.messages,
            (std::vector<std::string>{"Looking up attr: mtu in type: Sample::Interface",
                                      "Looking up attr: addresses in type: Sample::Interface"}));
}

TEST_F(TimeStamps, LookupCollectionKeyTsFindsTheTimeOfThatMemberOnly) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10)), 100);
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(20)), 200);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanNames", u16(10)), std::optional<Timestamp>(100));
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanNames", u16(20)), std::optional<Timestamp>(200));
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanNames", u16(30)), std::nullopt);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanRoles", u16(10)), std::nullopt);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "noSuchAttribute", u16(10)), std::nullopt);
}

TEST_F(TimeStamps, TimeRecordedForAWrappedKeyIsFoundByTheBareValue) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), Sample::vlanId(10)), 300);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanRoles", u16(10)), std::optional<Timestamp>(300));
}

TEST_F(TimeStamps, TimeRecordedForABareKeyIsFoundByTheWrappedValue) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), u16(10)), 300);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanRoles", Sample::vlanId(10)),
            std::optional<Timestamp>(300));
}

TEST_F(TimeStamps, TimeRecordedForAnAliasKeyIsFoundByTheWrapperAndTheBareValue) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanPriorities"),
                              Sample::types().vlanTag.genericIf("20", true)),
               400);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanPriorities", Sample::vlanId(20)),
            std::optional<Timestamp>(400));
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanPriorities", u16(20)),
            std::optional<Timestamp>(400));
}

TEST_F(TimeStamps, TimeRecordedForAnEntityKeyIsFoundByThatEntityOnly) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("linkCosts"), tree.eth0), 500);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "linkCosts", tree.eth0), std::optional<Timestamp>(500));
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "linkCosts", tree.eth1), std::nullopt);
}

TEST_F(TimeStamps, LookupCollectionKeyTsOfANotifieeWithoutATableIsEmpty) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10)), 100);
  n->onZeroReferences();
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanNames", u16(10)), std::nullopt);
}

TEST_F(TimeStamps, LookupsByAttributeAnswerAsLookupsByName) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  const Vek::VekAttr vlanNames = Sample::types().device->attr("vlanNames");
  const Vek::VekAttr hostname = Sample::types().device->attr("hostname");
  Ts::recordTs(n.ptr(), TSKey(vlanNames->id(), u16(10)), 100);
  Ts::recordTs(n.ptr(), TSKey(hostname->id(), nullptr), 7);
  for (const auto& key : {u16(10), u16(20)}) {
    EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), vlanNames, key), Ts::lookupCollectionKeyTs(n.ptr(), "vlanNames", key));
  }
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), vlanNames, u16(10)), std::optional<Timestamp>(100));
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), hostname), std::optional<Timestamp>(7));
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), vlanNames), Ts::lookupAttrTs(n.ptr(), "vlanNames"));
}

TEST_F(TimeStamps, LookupsByAttributeTraceAsLookupsByName) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  const OstrelTest::TraceCapture traces("Ostrel", 1u << 5);
  Ts::lookupAttrTs(n.ptr(), Sample::types().interface->attr("mtu"));
  Ts::lookupCollectionKeyTs(n.ptr(), Sample::types().interface->attr("addresses"), Sample::ipv4("10.0.0.1"));
  EXPECT_EQ(traces.messages,
            (std::vector<std::string>{"Looking up attr: mtu in type: Sample::Interface",
                                      "Looking up attr: addresses in type: Sample::Interface"}));
}

TEST_F(TimeStamps, LookupsByAttributeOfANotifieeWithoutATableAreFatalOrEmptyAsByName) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  const Vek::VekAttr vlanNames = Sample::types().device->attr("vlanNames");
  Ts::recordTs(n.ptr(), TSKey(vlanNames->id(), u16(10)), 100);
  n->onZeroReferences();
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), vlanNames, u16(10)), std::nullopt);
  EXPECT_FATAL(Ts::lookupAttrTs(n.ptr(), vlanNames), "unable to find GifGnmiNotifiee in objTsMap");
}

TEST_F(TimeStamps, LookupsByAttributeAfterTheEntityEndedFindNothing) {
  Vek::Ptr<GifGnmiNotifiee> n;
  const Vek::VekAttr addresses = Sample::types().interface->attr("addresses");
  {
    const Sample::Tree tree = Sample::buildTree();
    n = notifieeOf(tree.eth0, "/eth0");
    Ts::recordTs(n.ptr(), TSKey(addresses->id(), Sample::ipv4("10.0.0.1")), 5);
  }
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), addresses, Sample::ipv4("10.0.0.1")), std::nullopt);
}

TEST_F(TimeStamps, GetAttrTsReturnsTheRecordedTime) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  Ts::recordTs(n.ptr(), TSKey(interfaceAttr("vlans"), nullptr), 42);
  EXPECT_EQ(Ts::getAttrTs(n, "vlans"), 42);
}

TEST_F(TimeStamps, GetAttrTsWithoutATimeIsFatal) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  EXPECT_FATAL(Ts::getAttrTs(n, "mtu"), "unable to retrieve timestamp for attr mtu");
}

TEST_F(TimeStamps, GetCollectionKeyTsReturnsTheRecordedTime) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10)), 43);
  EXPECT_EQ(Ts::getCollectionKeyTs(n, "vlanNames", u16(10)), 43);
}

TEST_F(TimeStamps, GetCollectionKeyTsWithoutATimeIsFatalNamingTheKey) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  EXPECT_FATAL(Ts::getCollectionKeyTs(n, "vlanNames", u16(30)),
               "unable to retrieve timestamp for attr vlanNames, key 30");
  EXPECT_FATAL(Ts::getCollectionKeyTs(n, "linkCosts", tree.eth1),
               "unable to retrieve timestamp for attr linkCosts, key entity('devices.dev1.eth1')");
}

TEST_F(TimeStamps, RecordingTwiceKeepsTheLaterTime) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10)), 100);
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10)), 200);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanNames", u16(10)), std::optional<Timestamp>(200));
  EXPECT_EQ(objTsMap().at(n.ptr()).size(), 1u);
}

TEST_F(TimeStamps, RecordingAWrappedKeyAfterTheBareOneReplacesItsTime) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), u16(10)), 100);
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), Sample::vlanId(10)), 200);
  EXPECT_EQ(objTsMap().at(n.ptr()).size(), 1u);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanRoles", u16(10)), std::optional<Timestamp>(200));
}

TEST_F(TimeStamps, SeedingKeepsTheFirstTime) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  Ts::seedTs(n.ptr(), TSKey(interfaceAttr("vlans"), nullptr), 100);
  Ts::seedTs(n.ptr(), TSKey(interfaceAttr("vlans"), nullptr), 200);
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), "vlans"), std::optional<Timestamp>(100));
  Ts::recordTs(n.ptr(), TSKey(interfaceAttr("vlans"), nullptr), 300);
  EXPECT_EQ(Ts::lookupAttrTs(n.ptr(), "vlans"), std::optional<Timestamp>(300));
}

TEST_F(TimeStamps, SeedingATableFoundBeforehandKeepsTheFirstTimeToo) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ostrel::TimestampTable& table = objTsMap().at(n.ptr());
  Ts::seedTs(table, TSKey(deviceAttr("vlanNames"), u16(10)), 100);
  Ts::seedTs(table, TSKey(deviceAttr("vlanNames"), u16(10)), 200);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanNames", u16(10)), std::optional<Timestamp>(100));
}

TEST_F(TimeStamps, EraseTsRemovesTheEntryOnce) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), u16(10)), 100);
  EXPECT_TRUE(Ts::eraseTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), Sample::vlanId(10))));
  EXPECT_FALSE(Ts::eraseTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), u16(10))));
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "vlanRoles", u16(10)), std::nullopt);
}

TEST_F(TimeStamps, NotifieeWithoutATableRecordsNothing) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  n->onZeroReferences();
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10)), 100);
  Ts::seedTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(20)), 100);
  EXPECT_FALSE(Ts::eraseTs(n.ptr(), TSKey(deviceAttr("vlanNames"), u16(10))));
  EXPECT_EQ(objTsMap().count(n.ptr()), 0u);
}

// The lines of `text`, each with its line end.
std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    const size_t end = text.find('\n', start);
    lines.push_back(text.substr(start, end == std::string::npos ? std::string::npos : end - start + 1));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return lines;
}

TEST_F(TimeStamps, DumpTsMapOfNoTablesIsEmpty) { EXPECT_EQ(Ts::dumpTsMap(), ""); }

TEST_F(TimeStamps, DumpTsMapListsEachNotifieeThenItsEntries) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/devices/dev1");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("hostname"), nullptr), 11);
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), Sample::vlanId(10)), 22);
  const std::vector<std::string> lines = linesOf(Ts::dumpTsMap());
  ASSERT_EQ(lines.size(), 3u);
  EXPECT_EQ(lines[0], fmt::format("GifGnmiNotifiee:{} path:/devices/dev1\n",
                                  static_cast<const void*>(n.ptr())));
  std::vector<std::string> entries(lines.begin() + 1, lines.end());
  std::sort(entries.begin(), entries.end());
  EXPECT_EQ(entries,
            (std::vector<std::string>{
                fmt::format("hostname( {}, null ) -> 11\n", deviceAttr("hostname").value()),
                fmt::format("vlanRoles( {}, 10 ) -> 22\n", deviceAttr("vlanRoles").value())}));
}

TEST_F(TimeStamps, DumpTsMapNamesAnEntityKeyByItsCreationNumber) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/devices/dev1");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("linkCosts"), tree.eth1), 33);
  const std::vector<std::string> lines = linesOf(Ts::dumpTsMap());
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[1], fmt::format("linkCosts( {}, entity#{} ) -> 33\n", deviceAttr("linkCosts").value(),
                                  tree.eth1->serial()));
}

TEST_F(TimeStamps, DumpTsMapListsEveryNotifiee) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> a = notifieeOf(tree.eth0, "/a");
  const Vek::Ptr<GifGnmiNotifiee> b = notifieeOf(tree.eth1, "/b");
  Ts::recordTs(b.ptr(), TSKey(interfaceAttr("mtu"), nullptr), 7);
  std::vector<std::string> lines = linesOf(Ts::dumpTsMap());
  ASSERT_EQ(lines.size(), 3u);
  const std::string headerA = fmt::format("GifGnmiNotifiee:{} path:/a\n", static_cast<const void*>(a.ptr()));
  const std::string headerB = fmt::format("GifGnmiNotifiee:{} path:/b\n", static_cast<const void*>(b.ptr()));
  const auto posB = std::find(lines.begin(), lines.end(), headerB);
  ASSERT_NE(posB, lines.end());
  ASSERT_NE(posB + 1, lines.end());
  EXPECT_EQ(*(posB + 1), fmt::format("mtu( {}, null ) -> 7\n", interfaceAttr("mtu").value()));
  EXPECT_NE(std::find(lines.begin(), lines.end(), headerA), lines.end());
}

// Nodes that price their links to other nodes: a collection keyed by
// entities of the node's own type.
Vek::VekType nodeType() {
  static const Vek::VekType type = [] {
    Vek::TypeDef node = Vek::Module::moduleNew("TimeStamps").entityType("Node");
    node.collection("costs", node.type(), Vek::builtinType<unsigned>());
    return node.done();
  }();
  return type;
}

TEST_F(TimeStamps, EntityKeyTakesNoReferenceOnItsEntity) {
  const Vek::Ptr<Vek::Entity> a = Vek::Entity::rootNew(nodeType(), "a");
  const Vek::Ptr<Vek::Entity> b = Vek::Entity::rootNew(nodeType(), "b");
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(a, "/a");
  const uint32_t before = b->references();
  Ts::recordTs(n.ptr(), TSKey(idOf(nodeType(), "costs"), b), 5);
  EXPECT_EQ(b->references(), before);
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "costs", b), std::optional<Timestamp>(5));
  EXPECT_EQ(Ts::lookupCollectionKeyTs(n.ptr(), "costs", a), std::nullopt);
}

TEST_F(TimeStamps, PublishedEntitiesKeyedByEachOtherEndWithTheirOwner) {
  const int64_t liveBefore = Vek::Entity::allocTrackInfo().liveObjects();
  {
    const Vek::Ptr<Vek::Dir> root = Vek::Dir::rootNew("");
    const Vek::Ptr<Vek::Dir> nodes = root->dirNew("nodes");
    const Vek::Ptr<Vek::Entity> a = nodes->childNew(nodeType(), "a");
    const Vek::Ptr<Vek::Entity> b = nodes->childNew(nodeType(), "b");
    const Vek::VekAttr costs = nodeType()->attr("costs");
    costs.genericIfSet(a, b, Vek::genericIfOf(1u));
    costs.genericIfSet(b, a, Vek::genericIfOf(2u));
    ASSERT_EQ(Ostrel::FullVekTypeWalker::syncObject(nodes, strToPath("/nodes"), router_,
                                                    OstrelTest::ids(1, 1),
                                                    Ostrel::WalkerFlags::RequestKindBit1),
              Ostrel::WalkResult::Done);
    // The walk recorded when each link was first seen.
    EXPECT_EQ(Ts::lookupCollectionKeyTs(Ostrel::VekGnmiUtils::lookupGnmiNotifieeMap(strToPath("/nodes/a")).ptr(),
                                        "costs", b),
              std::optional<Timestamp>(T0));
  }
  EXPECT_EQ(Vek::Entity::allocTrackInfo().liveObjects(), liveBefore);
  EXPECT_EQ(Ostrel::gNmiNotifieeMap.size(), 0u) << GifGnmiNotifiee::dumpGnmiNotifieeMap();
}

// ---------------------------------------------------------------------------
// VekGnmiUtils::getTimestamp

class GetTimestamp : public TimeStamps {};

TEST_F(GetTimestamp, IsZeroForAnAttributeNeverRecorded) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.eth0, "/eth0");
  EXPECT_EQ(Ostrel::VekGnmiUtils::getTimestamp("mtu", n.ptr(), nullptr), 0);
}

TEST_F(GetTimestamp, IsZeroForAMemberNeverRecorded) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  const Vek::Ptr<Vek::GenericIf const> key = u16(10);
  EXPECT_EQ(Ostrel::VekGnmiUtils::getTimestamp("vlanNames", n.ptr(), &key), 0);
}

TEST_F(GetTimestamp, IsTheRecordedTimeWithAndWithoutAKey) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("hostname"), nullptr), 11);
  Ts::recordTs(n.ptr(), TSKey(deviceAttr("vlanRoles"), Sample::vlanId(10)), 22);
  const Vek::Ptr<Vek::GenericIf const> key = u16(10);
  EXPECT_EQ(Ostrel::VekGnmiUtils::getTimestamp("hostname", n.ptr(), nullptr), 11);
  EXPECT_EQ(Ostrel::VekGnmiUtils::getTimestamp("vlanRoles", n.ptr(), &key), 22);
  EXPECT_EQ(Ostrel::VekGnmiUtils::getTimestamp("vlanRoles", n.ptr(), nullptr), 0);
}

TEST_F(GetTimestamp, KeyedLookupOfANotifieeWithoutATableIsZero) {
  const Sample::Tree tree = Sample::buildTree();
  const Vek::Ptr<GifGnmiNotifiee> n = notifieeOf(tree.device, "/dev");
  n->onZeroReferences();
  const Vek::Ptr<Vek::GenericIf const> key = u16(10);
  EXPECT_EQ(Ostrel::VekGnmiUtils::getTimestamp("vlanNames", n.ptr(), &key), 0);
  EXPECT_FATAL(Ostrel::VekGnmiUtils::getTimestamp("hostname", n.ptr(), nullptr),
               "unable to find GifGnmiNotifiee in objTsMap");
}

TEST(GetTimestampDeathTest, NullNotifieeEndsTheProcessWithAFailedAssertion) {
  EXPECT_DEATH(Ostrel::VekGnmiUtils::getTimestamp("mtu", nullptr, nullptr),
               "VekGnmiUtils\\.cpp:33: .*getTimestamp.*: Assertion `gifNotifiee' failed\\.");
}

}  // namespace
