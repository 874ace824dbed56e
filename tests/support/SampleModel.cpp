#include "SampleModel.h"

#include <charconv>
#include <string_view>

namespace OstrelTest::Sample {

namespace {

std::string dotted(uint32_t bits) {
  return fmt::format("{}.{}.{}.{}", bits >> 24, (bits >> 16) & 0xff, (bits >> 8) & 0xff, bits & 0xff);
}

// Parses four decimal octets separated by dots.
bool parseDotted(std::string_view text, uint32_t& bits) {
  bits = 0;
  const char* p = text.data();
  const char* end = p + text.size();
  for (int i = 0; i < 4; ++i) {
    unsigned octet = 0;
    auto [next, ec] = std::from_chars(p, end, octet);
    if (ec != std::errc() || octet > 255) return false;
    bits = (bits << 8) | octet;
    p = next;
    if (i < 3) {
      if (p == end || *p != '.') return false;
      ++p;
    }
  }
  return p == end;
}

Types makeTypes() {
  using Vek::builtinType;
  Vek::Module& m = Vek::Module::moduleNew("Sample");
  Types t;
  t.operStatus = m.enumType("OperStatus", builtinType<int>())
                     .enumerator("up", 1)
                     .enumerator("down", 2)
                     .enumerator("testing", 3)
                     .done();
  t.counters = m.valueType("Counters")
                   .scalar("inPkts", builtinType<unsigned long long>())
                   .scalar("outPkts", builtinType<unsigned long long>())
                   .scalar("inErrors", builtinType<unsigned int>())
                   .constructorParams({"inPkts", "outPkts"})
                   .done();
  t.ipv4 = m.valueType("Ipv4")
               .scalar("bits", builtinType<unsigned int>())
               .gnmiText(
                   [](const Vek::GenericIf& v) { return dotted(v.value<unsigned>("bits")); },
                   [](std::string_view text, Vek::GenericIf& v) {
                     uint32_t bits;
                     if (!parseDotted(text, bits)) return false;
                     v.valueIs<unsigned>("bits", bits);
                     return true;
                   })
               .done();
  t.enumU8 = m.enumType("EnumU8", builtinType<unsigned char>())
                 .enumerator("low", 5).enumerator("high", 250).done();
  t.enumI8 = m.enumType("EnumI8", builtinType<signed char>())
                 .enumerator("neg", -100).enumerator("pos", 100).done();
  t.enumU16 = m.enumType("EnumU16", builtinType<unsigned short>())
                  .enumerator("small", 1000).enumerator("large", 60000).done();
  t.enumI16 = m.enumType("EnumI16", builtinType<short>())
                  .enumerator("neg", -30000).enumerator("pos", 30000).done();
  t.enumU32 = m.enumType("EnumU32", builtinType<unsigned int>())
                  .enumerator("small", 7).enumerator("large", 4000000000).done();
  t.enumI32 = m.enumType("EnumI32", builtinType<int>())
                  .enumerator("neg", -2000000000).enumerator("zero", 0).enumerator("pos", 2000000000)
                  .done();
  t.stats = m.valueType("Stats").scalar("pkts", t.counters).scalar("drops", builtinType<unsigned>()).done();
  t.vlanId = m.valueType("VlanId").scalar("id", builtinType<unsigned short>()).wrapperOf("id").done();
  t.vlanTag = m.aliasType("VlanTag", t.vlanId);
  t.neighborKey = m.valueType("NeighborKey")
                      .scalar("ifName", builtinType<Vek::String>())
                      .scalar("index", builtinType<unsigned>())
                      .done();
  t.addressInfo = m.valueType("AddressInfo")
                      .scalar("prefixLength", builtinType<unsigned char>(), "32")
                      .scalar("origin", builtinType<Vek::String>(), "static")
                      .done();
  Vek::TypeDef intf = m.entityType("Interface");
  intf.scalar("mtu", builtinType<unsigned>(), "1500")
      .check([](const Vek::GenericIf&, const Vek::GenericIf*, const Vek::GenericIf* v) {
        const unsigned* mtu = v ? v->attrValPtr<unsigned>() : nullptr;
        if (!mtu) return std::string("mtu needs an unsigned int");
        return *mtu < 64 || *mtu > 9216 ? fmt::format("mtu {} is outside 64..9216", *mtu) : std::string();
      })
      .scalar("status", t.operStatus, "down")
      .scalar("description", builtinType<Vek::String>())
      .scalar("enabled", builtinType<bool>(), "true")
      .scalar("counters", t.counters)
      .pointer("peer", intf.type())
      .collection("addresses", t.ipv4, t.addressInfo)
      .array("vlans", builtinType<unsigned short>())
      .scalar("config", builtinType<Vek::String>(), "{}")
      .jsonText()
      .scalar("stats", t.stats)
      .array("statusHistory", t.operStatus);
  t.interface = intf.done();
  t.route = m.valueType("Route")
                .scalar("destination", t.ipv4)
                .scalar("metric", builtinType<unsigned>())
                .done();
  t.neighbor = m.entityType("Neighbor")
                   .scalar("remoteId", builtinType<Vek::String>())
                   .pointer("via", t.interface)
                   .done();
  t.fan = m.entityType("Fan").scalar("rpm", builtinType<unsigned>()).done();
  t.scalars = m.entityType("Scalars")
                  .scalar("u8", builtinType<unsigned char>())
                  .scalar("i8", builtinType<signed char>())
                  .scalar("u16", builtinType<unsigned short>())
                  .scalar("i16", builtinType<short>())
                  .scalar("u32", builtinType<unsigned int>())
                  .scalar("i32", builtinType<int>())
                  .scalar("u64", builtinType<unsigned long long>())
                  .scalar("i64", builtinType<long long>())
                  .scalar("flag", builtinType<bool>())
                  .scalar("letter", builtinType<char>())
                  .scalar("ratio", builtinType<float>())
                  .scalar("reading", builtinType<double>())
                  .scalar("label", builtinType<Vek::String>())
                  .scalar("blob", builtinType<Vek::Bytes>())
                  .scalar("elapsed", builtinType<Vek::Seconds>())
                  .scalar("eU8", t.enumU8)
                  .scalar("eI8", t.enumI8)
                  .scalar("eU16", t.enumU16)
                  .scalar("eI16", t.enumI16)
                  .scalar("eU32", t.enumU32)
                  .scalar("eI32", t.enumI32)
                  .done();
  t.journal = m.entityType("Journal")
                  .collection("entries", builtinType<unsigned>(), builtinType<Vek::String>(),
                              Vek::AttrFlag::STACK)
                  .done();
  t.chassis = m.entityType("Chassis")
                  .scalar("serial", builtinType<Vek::String>())
                  .scalar("uptime", builtinType<Vek::Seconds>())
                  .scalar("temperature", builtinType<double>())
                  .done();
  t.device = m.entityType("Device")
                 .scalar("hostname", builtinType<Vek::String>())
                 .child("chassis", t.chassis)
                 .collection("interfaces", builtinType<Vek::String>(), t.interface,
                             Vek::AttrFlag::INSTANTIATING)
                 .keyAttr("name")
                 .collectionControl("interfacesControl")
                 .pointer("uplink", t.interface)
                 .collection("vlanNames", builtinType<unsigned short>(),
                             builtinType<Vek::String>())
                 .collection("linkCosts", t.interface, builtinType<unsigned>())
                 .child("fan", t.fan)
                 .child("scalars", t.scalars)
                 .collection("vlanRoles", t.vlanId, builtinType<Vek::String>())
                 .collection("vlanPriorities", t.vlanTag, builtinType<unsigned char>())
                 .scalar("nativeVlan", t.vlanTag, "1")
                 .collection("neighbors", t.neighborKey, t.neighbor, Vek::AttrFlag::INSTANTIATING)
                 .collection("lagMembers", builtinType<unsigned>(), t.interface, Vek::AttrFlag::POINTER)
                 .collection("routes", t.ipv4, t.route, Vek::AttrFlag::INTERNALLY_KEYED)
                 .keyAttr("destination")
                 .array("dnsServers", t.ipv4)
                 .done();
  return t;
}

}  // namespace

const Types& types() {
  static const Types t = makeTypes();
  return t;
}

Vek::Ptr<Vek::GenericIf> ipv4(const char* text) { return types().ipv4.genericIf(text, true); }

Vek::Ptr<Vek::GenericIf> name(const char* text) { return Vek::genericIfOf(text); }

Vek::Ptr<Vek::GenericIf> vlanId(unsigned short id) {
  Vek::Ptr<Vek::GenericIf> v = types().vlanId.genericIfDefault();
  v->valueIs<unsigned short>("id", id);
  return v;
}

Vek::Ptr<Vek::GenericIf> neighborKey(const char* ifName, unsigned index) {
  Vek::Ptr<Vek::GenericIf> k = types().neighborKey.genericIfDefault();
  k->valueIs("ifName", ifName);
  k->valueIs("index", index);
  return k;
}

Tree buildTree() {
  const Types& t = types();
  Tree tree;
  tree.root = Vek::Dir::rootNew("");
  tree.devices = tree.root->dirNew("devices");
  tree.device = tree.devices->childNew(t.device, "dev1");
  tree.device->valueIs("hostname", "dev1.lab");

  Vek::Ptr<Vek::Entity> chassis = tree.device->entityNew("chassis");
  chassis->valueIs("serial", "SN123");
  chassis->valueIs("uptime", Vek::Seconds(3600.5));
  chassis->valueIs("temperature", 41.5);

  tree.eth0 = tree.device->entityNew("interfaces", name("eth0"));
  tree.eth1 = tree.device->entityNew("interfaces", name("eth1"));
  tree.eth0->valueIs("mtu", 9000u);
  tree.eth0->valueIs("status", 1);
  tree.eth0->valueIs("description", "uplink");
  Vek::Ptr<Vek::GenericIf> counters = t.counters.genericIf(
      Vek::GenericIfArgs{Vek::genericIfOf(100ull), Vek::genericIfOf(200ull)});
  counters->valueIs("inErrors", 1u);
  tree.eth0->type()->attr("counters").genericIfSet(tree.eth0, nullptr, counters);

  const Vek::VekAttr vlans = t.interface->attr("vlans");
  for (unsigned i = 0; i < 3; ++i) {
    vlans.genericIfSet(tree.eth0, Vek::genericIfOf(i),
                       Vek::genericIfOf(static_cast<unsigned short>(10 * (i + 1))));
  }
  const Vek::VekAttr addresses = t.interface->attr("addresses");
  Vek::Ptr<Vek::GenericIf> info = t.addressInfo.genericIfDefault();
  info->valueIs("prefixLength", static_cast<unsigned char>(24));
  addresses.genericIfSet(tree.eth0, ipv4("10.0.0.1"), info);
  info->valueIs("prefixLength", static_cast<unsigned char>(16));
  info->valueIs("origin", "dhcp");
  addresses.genericIfSet(tree.eth0, ipv4("192.168.1.1"), info);
  tree.eth0->valueIs("config", R"({"speed":"10G"})");

  tree.eth0->pointerIs("peer", tree.eth1);
  tree.eth1->pointerIs("peer", tree.eth0);
  tree.device->pointerIs("uplink", tree.eth0);

  const Vek::VekAttr vlanNames = t.device->attr("vlanNames");
  vlanNames.genericIfSet(tree.device, Vek::genericIfOf(static_cast<unsigned short>(10)),
                         Vek::genericIfOf("mgmt"));
  vlanNames.genericIfSet(tree.device, Vek::genericIfOf(static_cast<unsigned short>(20)),
                         Vek::genericIfOf("data"));
  const Vek::VekAttr linkCosts = t.device->attr("linkCosts");
  linkCosts.genericIfSet(tree.device, tree.eth0, Vek::genericIfOf(10u));
  linkCosts.genericIfSet(tree.device, tree.eth1, Vek::genericIfOf(20u));

  // Every builtin and enumeration, each away from its default.
  tree.scalars = tree.device->entityNew("scalars");
  Vek::Entity& s = *tree.scalars;
  s.valueIs<unsigned char>("u8", 200);
  s.valueIs<signed char>("i8", -7);
  s.valueIs<unsigned short>("u16", 65000);
  s.valueIs<short>("i16", -1234);
  s.valueIs<unsigned>("u32", 4000000000u);
  s.valueIs<int>("i32", -100000);
  s.valueIs<unsigned long long>("u64", 18000000000000000000ull);
  s.valueIs<long long>("i64", -9000000000000000000ll);
  s.valueIs<bool>("flag", true);
  s.valueIs<char>("letter", 'A');
  s.valueIs<float>("ratio", 0.5f);
  s.valueIs<double>("reading", 1.0);
  s.valueIs("label", "a__b");
  s.valueIs("blob", Vek::Bytes(std::string_view("\x01\x02\xff", 3)));
  s.valueIs("elapsed", Vek::Seconds(1.5));
  s.valueIs<unsigned char>("eU8", 250);
  s.valueIs<signed char>("eI8", -100);
  s.valueIs<unsigned short>("eU16", 60000);
  s.valueIs<short>("eI16", -30000);
  s.valueIs<unsigned>("eU32", 4000000000u);
  s.valueIs<int>("eI32", -2000000000);

  Vek::Ptr<Vek::GenericIf> stats = t.stats.genericIfDefault();
  t.stats->attr("pkts").genericIfSet(
      stats, nullptr,
      t.counters.genericIf(Vek::GenericIfArgs{Vek::genericIfOf(5ull), Vek::genericIfOf(6ull)}));
  stats->valueIs("drops", 2u);
  t.interface->attr("stats").genericIfSet(tree.eth0, nullptr, stats);
  const Vek::VekAttr history = t.interface->attr("statusHistory");
  history.genericIfSet(tree.eth0, Vek::genericIfOf(0u), t.operStatus.genericIf("down", true));
  history.genericIfSet(tree.eth0, Vek::genericIfOf(1u), t.operStatus.genericIf("up", true));

  t.device->attr("vlanRoles").genericIfSet(tree.device, vlanId(10), Vek::genericIfOf("management"));
  t.device->attr("vlanPriorities")
      .genericIfSet(tree.device, t.vlanTag.genericIf("20", true),
                    Vek::genericIfOf(static_cast<unsigned char>(5)));
  tree.neighbor = tree.device->entityNew("neighbors", neighborKey("eth0", 1));
  tree.neighbor->valueIs("remoteId", "spine1");
  tree.neighbor->pointerIs("via", tree.eth0);
  const Vek::VekAttr lag = t.device->attr("lagMembers");
  lag.genericIfSet(tree.device, Vek::genericIfOf(1u), tree.eth0);
  lag.genericIfSet(tree.device, Vek::genericIfOf(2u), tree.eth1);
  Vek::Ptr<Vek::GenericIf> route = t.route.genericIfDefault();
  t.route->attr("destination").genericIfSet(route, nullptr, ipv4("10.1.0.0"));
  route->valueIs("metric", 10u);
  t.device->attr("routes").genericIfSet(tree.device, ipv4("10.1.0.0"), route);
  const Vek::VekAttr dns = t.device->attr("dnsServers");
  dns.genericIfSet(tree.device, Vek::genericIfOf(0u), ipv4("10.0.0.53"));
  dns.genericIfSet(tree.device, Vek::genericIfOf(1u), ipv4("10.0.0.54"));

  tree.primary = tree.devices->entryNew("primary", tree.device);
  tree.journals = tree.root->dirNew("journals");
  tree.journal = tree.journals->childNew(t.journal, "syslog");
  const Vek::VekAttr entries = t.journal->attr("entries");
  entries.genericIfSet(tree.journal, Vek::genericIfOf(1u), Vek::genericIfOf("boot"));
  entries.genericIfSet(tree.journal, Vek::genericIfOf(2u), Vek::genericIfOf("link up"));
  return tree;
}

}  // namespace OstrelTest::Sample
