// Generated sample devices and what a subscriber holds of them, for property
// tests of syncs: `Generator` grows the sample device at random and changes
// it, deterministically for a seed; `View` applies published updates and
// deletes in order.
#pragma once

#include <map>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>

#include <Ostrel/Path.h>
#include <Ostrel/VekTypeWalker.h>

#include "SampleModel.h"
#include "WalkSupport.h"

namespace OstrelTest {

// Grows the sample device at random, deterministically for a seed: new
// interfaces (fresh names) with addresses, VLANs, MTUs and peers that may
// point forward, VLAN names, link costs and LAG members.
class Generator {
  using Tree = Sample::Tree;

 public:
  explicit Generator(uint32_t seed) : rng_(seed) {}

  Tree tree() {
    Tree t = Sample::buildTree();
    const int interfaces = 2 + below(12);
    for (int i = 0; i < interfaces; ++i) addInterface(t);
    for (int i = 0; i < below(8); ++i) addVlanName(t);
    for (const auto& intf : interfaceNames(t)) {
      if (below(3) == 0) pointPeer(t, intf);
      if (below(3) == 0) {
        Sample::types().device->attr("linkCosts").genericIfSet(t.device, t.device->entity("interfaces", Sample::name(intf.c_str())),
                                                       Vek::genericIfOf(static_cast<unsigned>(below(100))));
      }
    }
    return t;
  }

  void addInterface(Tree& t) {
    const std::string n = fmt::format("if{:03}", nextInterface_++);
    Vek::Ptr<Vek::Entity> e = t.device->entityNew("interfaces", Sample::name(n.c_str()));
    e->valueIs("mtu", 1000u + static_cast<unsigned>(below(8000)));
    for (int a = below(4); a > 0; --a) {
      Vek::Ptr<Vek::GenericIf> info = Sample::types().addressInfo.genericIfDefault();
      info->valueIs("prefixLength", static_cast<unsigned char>(below(33)));
      const std::string ip = fmt::format("10.{}.{}.{}", below(256), below(256), below(256));
      Sample::types().interface->attr("addresses").genericIfSet(e, Sample::ipv4(ip.c_str()), info);
    }
    for (int v = below(5), i = 0; i < v; ++i) {
      Sample::types().interface->attr("vlans").genericIfSet(e, Vek::genericIfOf(static_cast<unsigned>(i)),
                                                    Vek::genericIfOf(static_cast<unsigned short>(below(4095))));
    }
  }
  void addVlanName(Tree& t) {
    const auto key = static_cast<unsigned short>(1000 + nextVlan_++);
    Sample::types().device->attr("vlanNames").genericIfSet(t.device, Vek::genericIfOf(key),
                                                   Vek::genericIfOf(fmt::format("vlan{}", key).c_str()));
  }
  void pointPeer(Tree& t, const std::string& intf) {
    const auto names = interfaceNames(t);
    Vek::Ptr<Vek::Entity> from = t.device->entity("interfaces", Sample::name(intf.c_str()));
    from->pointerIs("peer", t.device->entity("interfaces", Sample::name(names[pick(names.size())].c_str())));
  }

  // One random change of the model: erase an interface or a VLAN name (never
  // to come back: names are fresh), add one, or change an MTU.
  void mutate(Tree& t) {
    const auto names = interfaceNames(t);
    switch (below(5)) {
      case 0:
        if (!names.empty()) {
          t.device->entityDel(Sample::types().device->attr("interfaces"), Sample::name(names[pick(names.size())].c_str()));
        }
        break;
      case 1:
        addInterface(t);
        break;
      case 2:
        if (!names.empty()) {
          t.device->entity("interfaces", Sample::name(names[pick(names.size())].c_str()))
              ->valueIs("mtu", 1000u + static_cast<unsigned>(below(8000)));
        }
        break;
      case 3: {
        std::vector<Vek::Ptr<Vek::GenericIf const>> keys;
        const Vek::VekAttr vlanNames = Sample::types().device->attr("vlanNames");
        for (auto it = vlanNames.genericIfIteratorConst(t.device); it; ++it) keys.push_back(it.key());
        if (!keys.empty()) vlanNames.genericIfErase(t.device, keys[pick(keys.size())]);
        break;
      }
      default:
        addVlanName(t);
        break;
    }
  }

  // Erases an interface and creates one of the same name again, with a
  // fresh MTU and no addresses; returns its name ("" when there is none).
  std::string recreate(Tree& t) {
    const auto names = interfaceNames(t);
    if (names.empty()) return "";
    const std::string n = names[pick(names.size())];
    t.device->entityDel(Sample::types().device->attr("interfaces"), Sample::name(n.c_str()));
    Vek::Ptr<Vek::Entity> e = t.device->entityNew("interfaces", Sample::name(n.c_str()));
    e->valueIs("mtu", 1000u + static_cast<unsigned>(below(8000)));
    return n;
  }
  // Erases an interface; returns its name ("" when there is none).
  std::string erase(Tree& t) {
    const auto names = interfaceNames(t);
    if (names.empty()) return "";
    const std::string n = names[pick(names.size())];
    t.device->entityDel(Sample::types().device->attr("interfaces"), Sample::name(n.c_str()));
    return n;
  }
  int below(int n) { return static_cast<int>(rng_() % static_cast<uint32_t>(n)); }

  static std::vector<std::string> interfaceNames(const Tree& t) {
    std::vector<std::string> out;
    for (auto it = Sample::types().device->attr("interfaces").genericIfIteratorConst(t.device); it; ++it) {
      out.push_back(it.key()->strRep());
    }
    return out;
  }

 private:
  size_t pick(size_t n) { return rng_() % n; }

  std::mt19937 rng_;
  int nextInterface_ = 0;
  int nextVlan_ = 0;
};

// What a subscriber holds after applying updates and deletes in order.
class View {
 public:
  void apply(const gnmi::Notification& n) {
    for (const auto& path : n.delete_()) {
      const std::string gone = Ostrel::pathToStr(Ostrel::joinPath(n.prefix(), path));
      for (auto it = leaves_.lower_bound(gone); it != leaves_.end() && under(it->first, gone);) {
        it = leaves_.erase(it);
      }
    }
    for (const auto& u : n.update()) {
      leaves_[Ostrel::pathToStr(Ostrel::joinPath(n.prefix(), u.path()))] = valueText(u.val());
    }
  }
  static bool under(const std::string& path, const std::string& prefix) {
    return path.compare(0, prefix.size(), prefix) == 0 &&
           (path.size() == prefix.size() || path[prefix.size()] == '/');
  }
  const std::map<std::string, std::string>& leaves() const { return leaves_; }
  // The leaves `a` holds that `b` does not hold with the same value, one per
  // line.
  static std::string notIn(const View& a, const View& b) {
    std::string out;
    for (const auto& [path, value] : a.leaves_) {
      const auto it = b.leaves_.find(path);
      if (it == b.leaves_.end() || it->second != value) out += path + " = " + value + "\n";
    }
    return out;
  }

 private:
  std::map<std::string, std::string> leaves_;
};

}  // namespace OstrelTest
