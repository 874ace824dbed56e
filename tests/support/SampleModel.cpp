#include "SampleModel.h"

#include <charconv>

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
      .jsonText();
  t.interface = intf.done();
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
  return tree;
}

}  // namespace OstrelTest::Sample
