#include "DemoModel.h"

#include <algorithm>

#include <charconv>
#include <unordered_set>
#include <vector>

#include <fmt/format.h>

namespace VekGnmi::Server {

namespace {

using Vek::builtinType;

constexpr uint32_t FIRST_ADDRESS = 0x0A000000;  // 10.0.0.0

std::string dotted(uint32_t bits) {
  return fmt::format("{}.{}.{}.{}", bits >> 24, (bits >> 16) & 0xff, (bits >> 8) & 0xff, bits & 0xff);
}

// Four decimal octets separated by dots, nothing else.
bool parseDotted(std::string_view text, uint32_t& bits) {
  bits = 0;
  const char* p = text.data();
  const char* end = p + text.size();
  for (int i = 0; i < 4; ++i) {
    unsigned octet = 0;
    const auto [next, ec] = std::from_chars(p, end, octet);
    if (ec != std::errc() || octet > 255 || next == p) return false;
    bits = (bits << 8) | octet;
    p = next;
    if (i < 3) {
      if (p == end || *p != '.') return false;
      ++p;
    }
  }
  return p == end;
}

bool parsePrefix(std::string_view text, uint32_t& bits, unsigned char& length) {
  const size_t slash = text.find('/');
  if (slash == std::string_view::npos || !parseDotted(text.substr(0, slash), bits)) return false;
  unsigned len = 0;
  const std::string_view rest = text.substr(slash + 1);
  const auto [next, ec] = std::from_chars(rest.data(), rest.data() + rest.size(), len);
  if (ec != std::errc() || next != rest.data() + rest.size() || len > 32 || rest.empty()) return false;
  length = static_cast<unsigned char>(len);
  return true;
}

std::string textCheck(const Vek::GenericIf* value, size_t maxLength, const char* what) {
  const Vek::String* s = value ? value->attrValPtr<Vek::String>() : nullptr;
  if (!s) return fmt::format("{} needs a string", what);
  return s->size() > maxLength ? fmt::format("{} is longer than {} characters", what, maxLength)
                               : std::string();
}

thread_local bool deviceWriting = false;

// Names of the state attributes declared since the last `finish`.
std::vector<std::string>& pendingState() {
  static std::vector<std::string> names;
  return names;
}

std::unordered_set<const Vek::VekAttrBase*>& stateAttributes() {
  static std::unordered_set<const Vek::VekAttrBase*> attrs;
  return attrs;
}

// Lays out an entity type and records which of its attributes are state.
Vek::VekType finish(Vek::TypeDef& def) {
  const Vek::VekType type = def.done();
  for (const std::string& name : pendingState()) stateAttributes().insert(type->attr(name).base());
  pendingState().clear();
  return type;
}

// The check of a state attribute: only the device itself (code holding a
// DeviceWrite) changes it; a client's Set is refused with this message.
Vek::AttrCheck deviceOnly(std::string name) {
  pendingState().push_back(name);
  return [name](const Vek::GenericIf&, const Vek::GenericIf*, const Vek::GenericIf*) {
    return deviceWriting ? std::string()
                         : fmt::format("{} is state, written by the device only", name);
  };
}

DemoTypes makeTypes() {
  Vek::Module& m = Vek::Module::moduleNew("Demo");
  DemoTypes t;
  t.operStatus = m.enumType("OperStatus", builtinType<int>())
                     .enumerator("up", 1)
                     .enumerator("down", 2)
                     .enumerator("testing", 3)
                     .enumerator("dormant", 4)
                     .done();
  t.routeProtocol = m.enumType("RouteProtocol", builtinType<unsigned char>())
                        .enumerator("connected", 1)
                        .enumerator("static", 2)
                        .enumerator("ospf", 3)
                        .enumerator("bgp", 4)
                        .done();
  const Vek::VekType u64 = builtinType<unsigned long long>();
  t.counters = m.valueType("Counters")
                   .scalar("inOctets", u64)
                   .scalar("outOctets", u64)
                   .scalar("inPkts", u64)
                   .scalar("outPkts", u64)
                   .scalar("inErrors", u64)
                   .scalar("outErrors", u64)
                   .scalar("inDiscards", u64)
                   .scalar("outDiscards", u64)
                   .done();
  t.ipv4 = m.valueType("Ipv4")
               .scalar("bits", builtinType<unsigned>())
               .gnmiText([](const Vek::GenericIf& v) { return dotted(v.value<unsigned>("bits")); },
                         [](std::string_view text, Vek::GenericIf& v) {
                           uint32_t bits = 0;
                           if (!parseDotted(text, bits)) return false;
                           v.valueIs<unsigned>("bits", bits);
                           return true;
                         })
               .done();
  t.ipv4Prefix =
      m.valueType("Ipv4Prefix")
          .scalar("bits", builtinType<unsigned>())
          .scalar("length", builtinType<unsigned char>())
          .gnmiText(
              [](const Vek::GenericIf& v) {
                return fmt::format("{}/{}", dotted(v.value<unsigned>("bits")),
                                   static_cast<unsigned>(v.value<unsigned char>("length")));
              },
              [](std::string_view text, Vek::GenericIf& v) {
                uint32_t bits = 0;
                unsigned char length = 0;
                if (!parsePrefix(text, bits, length)) return false;
                v.valueIs<unsigned>("bits", bits);
                v.valueIs<unsigned char>("length", length);
                return true;
              })
          .done();
  t.addressInfo = m.valueType("AddressInfo")
                      .scalar("prefixLength", builtinType<unsigned char>(), "24")
                      .scalar("origin", builtinType<Vek::String>(), "static")
                      .done();
  t.routeInfo = m.valueType("RouteInfo")
                    .scalar("nextHop", builtinType<Vek::String>())
                    .scalar("metric", builtinType<unsigned>(), "1")
                    .scalar("preference", builtinType<unsigned char>(), "1")
                    .scalar("protocol", t.routeProtocol, "static")
                    .done();
  Vek::TypeDef intf = m.entityType("Interface");
  intf.scalar("description", builtinType<Vek::String>())
      .check([](const Vek::GenericIf&, const Vek::GenericIf*, const Vek::GenericIf* v) {
        return textCheck(v, 240, "description");
      })
      .scalar("mtu", builtinType<unsigned>(), "1500")
      .check([](const Vek::GenericIf&, const Vek::GenericIf*, const Vek::GenericIf* v) {
        const unsigned* mtu = v ? v->attrValPtr<unsigned>() : nullptr;
        if (!mtu) return std::string("mtu needs an unsigned int");
        return *mtu < 64 || *mtu > 9216 ? fmt::format("mtu {} is outside 64..9216", *mtu)
                                        : std::string();
      })
      .scalar("enabled", builtinType<bool>(), "true")
      .scalar("operStatus", t.operStatus, "down")
      .check(deviceOnly("operStatus"))
      .scalar("lastChange", builtinType<Vek::Seconds>())
      .check(deviceOnly("lastChange"))
      .scalar("speed", builtinType<double>(), "10")
      .check(deviceOnly("speed"))
      .scalar("macAddress", builtinType<Vek::String>())
      .check(deviceOnly("macAddress"))
      .scalar("counters", t.counters)
      .check(deviceOnly("counters"))
      .collection("addresses", t.ipv4, t.addressInfo);
  t.interface = finish(intf);
  t.neighbor = finish(m.entityType("Neighbor")
                   .pointer("interface", t.interface)
                   .check(deviceOnly("interface"))
                   .scalar("remoteSystem", builtinType<Vek::String>())
                   .check(deviceOnly("remoteSystem"))
                   .scalar("remotePort", builtinType<Vek::String>())
                   .check(deviceOnly("remotePort"))
                   .scalar("holdTime", builtinType<Vek::Seconds>(), "120")
                   .check(deviceOnly("holdTime")));
  t.system = finish(m.entityType("System")
                 .scalar("hostname", builtinType<Vek::String>())
                 .check([](const Vek::GenericIf&, const Vek::GenericIf*, const Vek::GenericIf* v) {
                   return textCheck(v, 63, "hostname");
                 })
                 .scalar("domainName", builtinType<Vek::String>())
                 .scalar("contact", builtinType<Vek::String>())
                 .scalar("location", builtinType<Vek::String>())
                 .scalar("motd", builtinType<Vek::String>(), R"({"banner":"welcome"})")
                 .jsonText()
                 .scalar("softwareVersion", builtinType<Vek::String>())
                 .check(deviceOnly("softwareVersion"))
                 .scalar("bootTime", builtinType<Vek::Seconds>())
                 .check(deviceOnly("bootTime"))
                 .scalar("cpuLoad", builtinType<double>())
                 .check(deviceOnly("cpuLoad"))
                 .scalar("memoryUsed", builtinType<unsigned long long>())
                 .check(deviceOnly("memoryUsed"))
                 .scalar("memoryTotal", builtinType<unsigned long long>())
                 .check(deviceOnly("memoryTotal")));
  t.device = finish(m.entityType("Device")
                 .child("system", t.system)
                 .collection("interfaces", builtinType<Vek::String>(), t.interface,
                             Vek::AttrFlag::INSTANTIATING)
                 .keyAttr("name")
                 .collection("neighbors", builtinType<Vek::String>(), t.neighbor,
                             Vek::AttrFlag::INSTANTIATING)
                 .keyAttr("name")
                 .check(deviceOnly("neighbors"))
                 .collection("routes", t.ipv4Prefix, t.routeInfo));
  return t;
}

Vek::Ptr<Vek::GenericIf> ipv4(uint32_t bits) {
  Vek::Ptr<Vek::GenericIf> v = demoTypes().ipv4.genericIfDefault();
  v->valueIs<unsigned>("bits", bits);
  return v;
}

Vek::Ptr<Vek::GenericIf> ipv4Prefix(uint32_t bits, unsigned char length) {
  Vek::Ptr<Vek::GenericIf> v = demoTypes().ipv4Prefix.genericIfDefault();
  v->valueIs<unsigned>("bits", bits);
  v->valueIs<unsigned char>("length", length);
  return v;
}

uint32_t interfaceAddress(size_t index) { return FIRST_ADDRESS + 2 * static_cast<uint32_t>(index); }

}  // namespace

const DemoTypes& demoTypes() {
  static const DemoTypes types = makeTypes();
  return types;
}

bool isStateAttribute(const Vek::VekAttrBase& attr) {
  demoTypes();
  return attr.isReadOnly() || stateAttributes().count(&attr) != 0;
}

DeviceWrite::DeviceWrite() : previous_(deviceWriting) { deviceWriting = true; }
DeviceWrite::~DeviceWrite() { deviceWriting = previous_; }

std::vector<gnmi::ModelData> demoModelData() {
  gnmi::ModelData demo;
  demo.set_name("Demo");
  demo.set_organization("libVekTypeDecoder");
  demo.set_version("1.0.0");
  return {demo};
}

std::string interfaceName(size_t index) { return fmt::format("eth{}", index); }

Vek::Ptr<Vek::Entity> createInterface(const Vek::Ptr<Vek::Entity>& device, size_t index) {
  const DeviceWrite write;
  const DemoTypes& t = demoTypes();
  const std::string name = interfaceName(index);
  Vek::Ptr<Vek::Entity> intf = device->entityNew("interfaces", Vek::genericIfOf(name.c_str()));
  intf->valueIs("description", fmt::format("port {}", index).c_str());
  intf->valueIs("mtu", index % 3 == 0 ? 9000u : 1500u);
  intf->valueIs("operStatus", index % 7 == 6 ? 2 : 1);
  intf->valueIs("lastChange", Vek::System::currentTimeUtc());
  intf->valueIs("speed", index % 2 == 0 ? 100.0 : 25.0);
  intf->valueIs("macAddress",
                fmt::format("02:00:{:02x}:{:02x}:{:02x}:{:02x}", (index >> 24) & 0xff,
                            (index >> 16) & 0xff, (index >> 8) & 0xff, index & 0xff)
                    .c_str());
  Vek::Ptr<Vek::GenericIf> info = t.addressInfo.genericIfDefault();
  info->valueIs("prefixLength", static_cast<unsigned char>(31));
  t.interface->attr("addresses").genericIfSet(intf, ipv4(interfaceAddress(index)), info);
  if (index % 4 == 0) {
    const std::string nbrName = fmt::format("nbr{}", index / 4);
    Vek::Ptr<Vek::Entity> nbr = device->entity("neighbors", Vek::genericIfOf(nbrName.c_str()));
    if (nbr) nbr->pointerIs("interface", intf);
  }
  return intf;
}

DemoModel buildDemoModel(size_t interfaces) {
  const DeviceWrite write;
  const DemoTypes& t = demoTypes();
  DemoModel model;
  model.root = Vek::Dir::rootNew("");
  model.devices = model.root->dirNew("devices");
  model.device = model.devices->childNew(t.device, "dev1");
  model.interfaceCount = interfaces;

  Vek::Ptr<Vek::Entity> system = model.device->entityNew("system");
  system->valueIs("hostname", "dev1");
  system->valueIs("domainName", "lab.example");
  system->valueIs("contact", "noc@lab.example");
  system->valueIs("location", "rack 4");
  system->valueIs("softwareVersion", "vekgnmid 0.1.0");
  system->valueIs("bootTime", Vek::System::currentTimeUtc());
  system->valueIs("cpuLoad", 0.25);
  system->valueIs("memoryTotal", 16ull << 30);
  system->valueIs("memoryUsed", 3ull << 30);

  const Vek::VekAttr routes = t.device->attr("routes");
  for (size_t i = 0; i < interfaces; ++i) {
    if (i % 4 == 0) {
      const std::string nbrName = fmt::format("nbr{}", i / 4);
      Vek::Ptr<Vek::Entity> nbr = model.device->entityNew("neighbors", Vek::genericIfOf(nbrName.c_str()));
      nbr->valueIs("remoteSystem", fmt::format("peer{}.lab.example", i / 4).c_str());
      nbr->valueIs("remotePort", fmt::format("Ethernet{}", i / 4).c_str());
    }
    createInterface(model.device, i);
    Vek::Ptr<Vek::GenericIf> route = t.routeInfo.genericIfDefault();
    route->valueIs("nextHop", dotted(interfaceAddress(i) + 1).c_str());
    route->valueIs("metric", static_cast<unsigned>(10 + i % 90));
    route->valueIs("protocol", static_cast<unsigned char>(1));
    routes.genericIfSet(model.device, ipv4Prefix(interfaceAddress(i), 31), route);
  }
  return model;
}

ChurnSimulator::ChurnSimulator(DemoModel& model, double rate, uint64_t seed, double maxLag)
    : ChangeSimulator(rate, maxLag), model_(model), random_(seed) {}

void ChurnSimulator::change() {
  std::uniform_int_distribution<size_t> pick(0, model_.interfaceCount - 1);
  std::uniform_int_distribution<int> kind(0, 499);
  const size_t index = pick(random_);
  const int k = kind(random_);
  if (k == 0) {
    recreate(index);
  } else if (k <= 25) {
    flapStatus(index);
  } else {
    advanceCounters(index);
  }
}

void ChurnSimulator::advanceCounters(size_t index) {
  const DeviceWrite write;
  const DemoTypes& t = demoTypes();
  Vek::Ptr<Vek::Entity> intf =
      model_.device->entity("interfaces", Vek::genericIfOf(interfaceName(index).c_str()));
  if (!intf) return;
  const Vek::VekAttr countersAttr = t.interface->attr("counters");
  Vek::Ptr<Vek::GenericIf const> current = countersAttr.genericIfGet(intf);
  Vek::Ptr<Vek::GenericIf> next = t.counters.genericIf(current->voidPtr(), /*copy=*/true);
  const uint64_t packets = 1 + random_() % 1000;
  auto bump = [&](const char* field, uint64_t by) {
    next->valueIs<unsigned long long>(field, next->value<unsigned long long>(field) + by);
  };
  bump("inPkts", packets);
  bump("outPkts", packets / 2 + 1);
  bump("inOctets", packets * 512);
  bump("outOctets", (packets / 2 + 1) * 512);
  if (random_() % 50 == 0) bump("inErrors", 1);
  if (random_() % 80 == 0) bump("outDiscards", 1);
  countersAttr.genericIfSet(intf, nullptr, next);
  ++counterChanges_;
}

void ChurnSimulator::flapStatus(size_t index) {
  const DeviceWrite write;
  Vek::Ptr<Vek::Entity> intf =
      model_.device->entity("interfaces", Vek::genericIfOf(interfaceName(index).c_str()));
  if (!intf) return;
  const int status = intf->value<int>("operStatus");
  intf->valueIs("operStatus", status == 1 ? 2 : 1);
  intf->valueIs("lastChange", Vek::System::currentTimeUtc());
  ++statusFlaps_;
}

void ChurnSimulator::recreate(size_t index) {
  const DeviceWrite write;
  model_.device->entityDel(model_.device->type()->attr("interfaces"),
                           Vek::genericIfOf(interfaceName(index).c_str()));
  createInterface(model_.device, index);
  ++recreations_;
}

}  // namespace VekGnmi::Server
