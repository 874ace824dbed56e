// Syncs and changes against hand-written builders of the same messages.
//
// Three devices of interfaces of 15 leaves each (name, description, mtu,
// enabled, two enumerations, speed and a nested record of 8 counters): 667,
// 6,667 and 66,667 interfaces, that is 10,006, 100,006 and 1,000,006 leaves
// (`leaves:` in the names below), so that a cost per item that grows with
// the size shows.
//
//   FullSync/notifiees:0  a device synced by the walker, each interface's
//                         notifiee made on the way (removed again, untimed,
//                         between iterations)
//   FullSync/notifiees:1  the same with every notifiee in place (a second
//                         subscriber)
//   HandBuiltSync         the same messages (prefixes, paths, values, one per
//                         interface, on the same arena pool) built straight
//                         from the runtime's typed accessors
//   .../held:1            the router holds every message until the end of the
//                         sync, as one that has not sent them yet does;
//   .../held:0            it drops each at once, so messages recycle through
//                         the pool (a subscriber that keeps up)
//   PausedSync          FullSync of the largest device under a router
//                       refusing every 100th message, resumed until done
//   SetUpSeeding        setUpWalk seeding the largest device's member times
//   Change              one MTU write that a notifiee streams as one message
//   HandBuiltChange     the same write (on an unpublished interface), and the
//                       same message built by hand
//
// Before timing, the program checks at every size that the walker and the
// builder produce byte-identical serialised messages, and that a streamed
// change and its hand-built message are the same bytes but for the time. A counting operator
// new reports heap allocations per interface of a sync (counter
// `allocs_per_interface`) and per change (`allocs_per_change`).
#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <Ostrel/ArenaRespMsg.h>
#include <Ostrel/GifNotifiee.h>
#include <Ostrel/Path.h>
#include <Ostrel/TimeStamps.h>
#include <Ostrel/VekGnmiUtils.h>
#include <Ostrel/VekTypeWalker.h>
#include <Vek/Vek.h>

#include "CountingNew.h"

namespace {

using namespace Ostrel;

// Interfaces per device: 10,006, 100,006 and 1,000,006 leaves.
constexpr unsigned SIZES[] = {667, 6667, 66667};
constexpr unsigned LARGEST = 66667;
constexpr unsigned LEAVES_PER_INTERFACE = 15;
const char* const COUNTERS[] = {"inOctets", "outOctets", "inPkts",     "outPkts",
                                "inErrors", "outErrors", "inDiscards", "outDiscards"};

struct Model {
  Vek::VekType status;
  Vek::VekType counters;
  Vek::VekType interface;
  Vek::VekType device;
};

const Model& model() {
  static const Model m = [] {
    Vek::Module& mod = Vek::Module::moduleNew("BenchNet");
    Model out;
    out.status = mod.enumType("Status", Vek::builtinType<int>()).enumerator("up", 1).enumerator("down", 2).done();
    Vek::TypeDef counters = mod.valueType("Counters");
    for (const char* c : COUNTERS) counters.scalar(c, Vek::builtinType<unsigned long long>());
    out.counters = counters.done();
    out.interface = mod.entityType("Interface")
                        .scalar("description", Vek::builtinType<Vek::String>())
                        .scalar("mtu", Vek::builtinType<unsigned>())
                        .scalar("enabled", Vek::builtinType<bool>())
                        .scalar("operStatus", out.status, "down")
                        .scalar("adminStatus", out.status, "up")
                        .scalar("speed", Vek::builtinType<unsigned long long>())
                        .scalar("counters", out.counters)
                        .done();
    out.device = mod.entityType("Device")
                     .collection("interfaces", Vek::builtinType<Vek::String>(), out.interface,
                                 Vek::AttrFlag::INSTANTIATING)
                     .keyAttr("name")
                     .done();
    return out;
  }();
  return m;
}

// A device of `interfaces` interfaces, published at /dev<interfaces>.
struct Device {
  Vek::Ptr<Vek::Entity> entity;
  gnmi::Path path;
  unsigned interfaces = 0;
  uint64_t leaves() const { return uint64_t{interfaces} * LEAVES_PER_INTERFACE + 1; }
};

Device makeDevice(unsigned interfaces) {
  const Model& m = model();
  const std::string name = fmt::format("dev{}", interfaces);
  Vek::Ptr<Vek::Entity> dev = Vek::Entity::rootNew(m.device, name.c_str());
  for (unsigned i = 0; i < interfaces; ++i) {
    Vek::Ptr<Vek::Entity> e = dev->entityNew("interfaces", Vek::genericIfOf(fmt::format("eth{}", i).c_str()));
    e->valueIs("description", fmt::format("port {}", i).c_str());
    e->valueIs("mtu", 1500u + i % 8000);
    e->valueIs("enabled", i % 3 != 0);
    e->valueIs("operStatus", 1 + static_cast<int>(i % 2));
    e->valueIs("speed", 10000000000ull);
    Vek::Ptr<Vek::GenericIf> c = m.counters.genericIfDefault();
    for (size_t k = 0; k < std::size(COUNTERS); ++k) {
      c->valueIs<unsigned long long>(COUNTERS[k], (static_cast<unsigned long long>(i) << 8) + k);
    }
    m.interface->attr("counters").genericIfSet(e, nullptr, c);
  }
  return Device{dev, strToPath("/" + name), interfaces};
}

// The device of `interfaces` interfaces (one of SIZES), made on first use.
const Device& device(unsigned interfaces) {
  static std::map<unsigned, Device> devices;
  auto it = devices.find(interfaces);
  if (it == devices.end()) it = devices.emplace(interfaces, makeDevice(interfaces)).first;
  return it->second;
}

// Keeps what it is given until cleared, as a router keeps messages until
// they are sent; refuses every `refuseEvery`-th message when set.
class HoldingRouter : public BaseRouter {
 public:
  bool push(SyncId, const ArenaRespMsgPtr& msg) override {
    held.push_back(msg);
    return refuseEvery == 0 || ++count % refuseEvery != 0;
  }
  std::vector<ArenaRespMsgPtr> held;
  uint64_t refuseEvery = 0;
  uint64_t count = 0;
};

// Drops every message at once.
class DroppingRouter : public BaseRouter {
 public:
  bool push(SyncId, const ArenaRespMsgPtr&) override {
    ++pushed;
    return true;
  }
  uint64_t pushed = 0;
};

void walkerSync(BaseRouter& router, const Device& dev) {
  FullVekTypeWalker::syncObject(dev.entity.ptr(), dev.path, router, {SyncId(), WalkId(1)}, WalkerFlags::None);
}

void handBuiltSync(BaseRouter& router, const Device& dev) {
  const Model& m = model();
  const Vek::VekAttr description = m.interface->attr("description");
  const Vek::VekAttr mtu = m.interface->attr("mtu");
  const Vek::VekAttr enabled = m.interface->attr("enabled");
  const Vek::VekAttr operStatus = m.interface->attr("operStatus");
  const Vek::VekAttr adminStatus = m.interface->attr("adminStatus");
  const Vek::VekAttr speed = m.interface->attr("speed");
  const Vek::VekAttr countersAttr = m.interface->attr("counters");
  const auto leaf = [](std::initializer_list<const char*> names) {
    gnmi::Path p;
    for (const char* n : names) p.add_elem()->set_name(n);
    return p;
  };
  static const gnmi::Path name = leaf({"name"}), descr = leaf({"description"}), mtuP = leaf({"mtu"}),
                          enabledP = leaf({"enabled"}), oper = leaf({"operStatus"}), admin = leaf({"adminStatus"}),
                          speedP = leaf({"speed"});
  static const std::vector<gnmi::Path> counterPaths = [&] {
    std::vector<gnmi::Path> out;
    for (const char* c : COUNTERS) out.push_back(leaf({"counters", c}));
    return out;
  }();
  const auto add = [](gnmi::Notification* n, const gnmi::Path& p) {
    gnmi::Update* u = n->add_update();
    u->mutable_path()->CopyFrom(p);
    return u->mutable_val();
  };
  {
    auto [msg, n] = ArenaRespMsg::createResponse(dev.path, 0);
    add(n, name)->set_string_val(dev.entity->name().stdString());
    router.push(SyncId(), msg);
  }
  gnmi::Path prefix = dev.path;
  gnmi::PathElem* keyed = prefix.add_elem();
  keyed->set_name("interfaces");
  for (auto it = m.device->attr("interfaces").genericIfIteratorConst(dev.entity.ptr()); it; ++it) {
    const auto* e = static_cast<const Vek::Entity*>(it.ptr().ptr());
    (*keyed->mutable_key())["name"] = e->name().stdString();
    auto [msg, n] = ArenaRespMsg::createResponse(prefix, 0);
    add(n, name)->set_string_val(e->name().stdString());
    add(n, descr)->set_string_val(e->value<Vek::String>(description).stdString());
    add(n, mtuP)->set_uint_val(e->value<unsigned>(mtu));
    add(n, enabledP)->set_bool_val(e->value<bool>(enabled));
    add(n, oper)->set_string_val(m.status->attr(e->value<int>(operStatus))->name());
    add(n, admin)->set_string_val(m.status->attr(e->value<int>(adminStatus))->name());
    add(n, speedP)->set_uint_val(e->value<unsigned long long>(speed));
    const auto* c = static_cast<const char*>(e->rawAttr(countersAttr, Vek::BuiltinCode::None));
    for (size_t k = 0; k < std::size(COUNTERS); ++k) {
      const Vek::VekAttr field = m.counters->attr(COUNTERS[k]);
      add(n, counterPaths[k])->set_uint_val(*reinterpret_cast<const unsigned long long*>(c + field->offset()));
    }
    router.push(SyncId(), msg);
  }
}

// The syncs `main` runs once per size before the benchmarks, each a
// function of its own so that instruction counts can be taken for it alone:
//   valgrind --tool=callgrind --toggle-collect='*repeatSync<66667u>*'
//            ./build/bench/VekTypeWalkerBench --benchmark_filter=none
// firstSync makes every notifiee; repeatSync finds them in place;
// repeatHandBuilt builds the same messages by hand.
template <unsigned N>
[[gnu::noipa]] void firstSync(BaseRouter& router) {
  walkerSync(router, device(N));
}
template <unsigned N>
[[gnu::noipa]] void repeatSync(BaseRouter& router) {
  walkerSync(router, device(N));
}
template <unsigned N>
[[gnu::noipa]] void repeatHandBuilt(BaseRouter& router) {
  handBuiltSync(router, device(N));
}

std::string serialised(const HoldingRouter& router) {
  std::string out;
  for (const auto& msg : router.held) out += msg->response->SerializeAsString();
  return out;
}

// Removes the notifiees of the device's interfaces (as their ends would),
// so that the next sync makes them again.
void forgetInterfaces(const Device& dev) {
  std::vector<gnmi::Path> paths;
  for (const auto& [path, notifiee] : gNmiNotifieeMap) {
    if (path.elem_size() == 2 && path.elem(0).name() == dev.path.elem(0).name()) paths.push_back(path);
  }
  for (const auto& path : paths) {
    Vek::Ptr<GifGnmiNotifiee> n = gNmiNotifieeMap.at(path);
    n->isRegisteredNotifieeIs(false);
    notifieePathMap.erase(n->entity());
    objTsMap().erase(n.ptr());
    gNmiNotifieeMap.erase(path);
  }
}

// Heap allocations per interface of the syncs timed so far.
void reportAllocations(benchmark::State& state, uint64_t allocations, const Device& dev) {
  state.counters["allocs_per_interface"] =
      static_cast<double>(allocations) / static_cast<double>(state.iterations() * dev.interfaces);
}

void FullSync(benchmark::State& state) {
  const bool notifieesInPlace = state.range(0) == 1;
  const bool held = state.range(1) == 1;
  const Device& dev = device(static_cast<unsigned>(state.range(2)));
  HoldingRouter holding;
  DroppingRouter dropping;
  BaseRouter& router = held ? static_cast<BaseRouter&>(holding) : dropping;
  walkerSync(router, dev);  // warm: notifiees in place
  uint64_t allocations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    holding.held.clear();
    if (!notifieesInPlace) forgetInterfaces(dev);
    const uint64_t before = OstrelTest::heapAllocationCount();
    state.ResumeTiming();
    walkerSync(router, dev);
    allocations += OstrelTest::heapAllocationCount() - before;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * dev.leaves()));
  reportAllocations(state, allocations, dev);
}

// Sizes as leaves, as the names show them.
void sizeArgs(benchmark::internal::Benchmark* b, std::vector<std::vector<int64_t>> leading) {
  std::vector<int64_t> sizes(std::begin(SIZES), std::end(SIZES));
  leading.push_back(sizes);
  b->ArgsProduct(leading);
}

BENCHMARK(FullSync)
    ->ArgNames({"notifiees", "held", "interfaces"})
    ->Apply([](benchmark::internal::Benchmark* b) { sizeArgs(b, {{0, 1}, {0, 1}}); })
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2);

void HandBuiltSync(benchmark::State& state) {
  const bool held = state.range(0) == 1;
  const Device& dev = device(static_cast<unsigned>(state.range(1)));
  HoldingRouter holding;
  DroppingRouter dropping;
  BaseRouter& router = held ? static_cast<BaseRouter&>(holding) : dropping;
  uint64_t allocations = 0;
  for (auto _ : state) {
    state.PauseTiming();
    holding.held.clear();
    const uint64_t before = OstrelTest::heapAllocationCount();
    state.ResumeTiming();
    handBuiltSync(router, dev);
    allocations += OstrelTest::heapAllocationCount() - before;
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * dev.leaves()));
  reportAllocations(state, allocations, dev);
}
BENCHMARK(HandBuiltSync)
    ->ArgNames({"held", "interfaces"})
    ->Apply([](benchmark::internal::Benchmark* b) { sizeArgs(b, {{0, 1}}); })
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2);

void PausedSync(benchmark::State& state) {
  const Device& dev = device(LARGEST);
  HoldingRouter router;
  walkerSync(router, dev);
  uint64_t pauses = 0;
  for (auto _ : state) {
    state.PauseTiming();
    router.held.clear();
    router.refuseEvery = 100;
    state.ResumeTiming();
    WalkResult r = FullVekTypeWalker::syncObject(dev.entity.ptr(), dev.path, router, {SyncId(), WalkId(2)},
                                                 WalkerFlags::None);
    while (r != WalkResult::Done) {
      ++pauses;
      std::vector<SyncWalkId> done;
      r = FullVekTypeWalker::resumeAllSyncsAndNotifs(done);
    }
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * dev.leaves()));
  state.counters["pauses"] = static_cast<double>(pauses) / static_cast<double>(state.iterations());
}
BENCHMARK(PausedSync)->Unit(benchmark::kMillisecond)->MinTime(3);

void SetUpSeeding(benchmark::State& state) {
  const Device& dev = device(LARGEST);
  HoldingRouter router;
  walkerSync(router, dev);
  const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(dev.entity.ptr());
  const GifGnmiNotifiee* notifiee = gNmiNotifieeMap.at(dev.path).ptr();
  for (auto _ : state) {
    state.PauseTiming();
    objTsMap().at(notifiee).clear();
    state.ResumeTiming();
    FullVekTypeWalker::setUpWalk(gif, model().device, dev.entity.ptr(), dev.path, router, WalkerFlags::None, 1);
  }
  state.SetItemsProcessed(state.iterations() * dev.interfaces);
}
BENCHMARK(SetUpSeeding)->Unit(benchmark::kMillisecond);

// Keeps the last message it is given (dropping the one before).
class LastMessageRouter : public BaseRouter {
 public:
  bool push(SyncId, const ArenaRespMsgPtr& msg) override {
    last = msg;
    return true;
  }
  ArenaRespMsgPtr last;
};

// The router of the published interface's changes.
LastMessageRouter& changeRouter() {
  static LastMessageRouter router;
  return router;
}

// One interface, published, whose MTU is written again and again.
Vek::Entity& changed() {
  static Vek::Ptr<Vek::Entity> e = [] {
    Vek::Ptr<Vek::Entity> dev = Vek::Entity::rootNew(model().device, "cdev");
    Vek::Ptr<Vek::Entity> intf = dev->entityNew("interfaces", Vek::genericIfOf("eth0"));
    static Vek::Ptr<Vek::Entity> keep = dev;
    FullVekTypeWalker::syncObject(intf.ptr(), strToPath("/cdev/interfaces[name=eth0]"), changeRouter(),
                                  {SyncId(), WalkId(3)}, WalkerFlags::None);
    return intf;
  }();
  return *e;
}

// The same interface type, unpublished: nobody listens to its changes.
Vek::Entity& quiet() {
  static Vek::Ptr<Vek::Entity> e = Vek::Entity::rootNew(model().interface, "quiet");
  return *e;
}

// One MTU write that the published interface's notifiee streams.
void streamChange(unsigned value) {
  static const Vek::VekAttr mtu = model().interface->attr("mtu");
  changed().valueIs<unsigned>(mtu, value);
}

// The same write on the quiet interface, and the message the change walker
// makes, made by hand.
void handBuiltChange(unsigned value, BaseRouter& router) {
  static const Vek::VekAttr mtu = model().interface->attr("mtu");
  static const gnmi::Path prefix = strToPath("/cdev/interfaces[name=eth0]");
  static const gnmi::Path leaf = strToPath("mtu");
  quiet().valueIs<unsigned>(mtu, value);
  const auto now = static_cast<Timestamp>(Vek::System::currentTimeUtc().value() * 1e9);
  auto [msg, n] = ArenaRespMsg::createResponse(prefix, now);
  VekGnmiUtils::pushUpdate(leaf, n, uint64_t{quiet().value<unsigned>(mtu)}, &gnmi::TypedValue::set_uint_val);
  router.push(SyncId(), msg);
}

// `count` changes of each kind, each in a function of its own for callgrind
// (--toggle-collect='*streamChanges*' and '*handBuiltChanges*'); `main`
// runs them once.
constexpr unsigned CHANGES = 10000;
[[gnu::noipa]] void streamChanges(unsigned first, unsigned count) {
  for (unsigned i = 0; i < count; ++i) streamChange(first + i);
}
[[gnu::noipa]] void handBuiltChanges(unsigned first, unsigned count, BaseRouter& router) {
  for (unsigned i = 0; i < count; ++i) handBuiltChange(first + i, router);
}

void Change(benchmark::State& state) {
  unsigned value = 1000;
  streamChange(value);  // publishes the interface
  const uint64_t before = OstrelTest::heapAllocationCount();
  for (auto _ : state) streamChange(++value);
  state.counters["allocs_per_change"] = static_cast<double>(OstrelTest::heapAllocationCount() - before) /
                                        static_cast<double>(state.iterations());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(Change);

void HandBuiltChange(benchmark::State& state) {
  LastMessageRouter router;
  unsigned value = 1000;
  const uint64_t before = OstrelTest::heapAllocationCount();
  for (auto _ : state) handBuiltChange(++value, router);
  state.counters["allocs_per_change"] = static_cast<double>(OstrelTest::heapAllocationCount() - before) /
                                        static_cast<double>(state.iterations());
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(HandBuiltChange);

// Checks that the walker and the builder make the same bytes for the device
// of N interfaces (or the comparison means nothing) and prints the heap
// allocations per interface of one more sync of each. False when they
// differ.
template <unsigned N>
bool checkAndCount() {
  device(N);  // made outside the measured syncs
  HoldingRouter walker;
  HoldingRouter builder;
  firstSync<N>(walker);
  handBuiltSync(builder, device(N));
  const std::string a = serialised(walker);
  const std::string b = serialised(builder);
  fmt::print("{} interfaces: walker and hand-built sync: {} and {} messages, {} and {} bytes, {}\n", N,
             walker.held.size(), builder.held.size(), a.size(), b.size(),
             a == b ? "byte-identical" : "DIFFERENT");
  if (a != b) return false;
  // Messages dropped at once, as they are in the benchmarks with held:0.
  DroppingRouter dropping;
  uint64_t before = OstrelTest::heapAllocationCount();
  repeatSync<N>(dropping);
  const uint64_t walkerAllocs = OstrelTest::heapAllocationCount() - before;
  before = OstrelTest::heapAllocationCount();
  repeatHandBuilt<N>(dropping);
  const uint64_t handAllocs = OstrelTest::heapAllocationCount() - before;
  fmt::print("{} interfaces: heap allocations per interface: walker {:.2f}, hand-built {:.2f}\n", N,
             static_cast<double>(walkerAllocs) / N, static_cast<double>(handAllocs) / N);
  return true;
}

// `--sizes=667,66667` checks (and counts) only those sizes; the default is
// all of SIZES.
std::vector<unsigned> sizesToCheck(int& argc, char** argv) {
  std::vector<unsigned> sizes(std::begin(SIZES), std::end(SIZES));
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg.rfind("--sizes=", 0) != 0) continue;
    sizes.clear();
    std::string list = arg.substr(8);
    for (size_t start = 0; start < list.size();) {
      const size_t comma = std::min(list.find(',', start), list.size());
      sizes.push_back(static_cast<unsigned>(std::stoul(list.substr(start, comma - start))));
      start = comma + 1;
    }
    std::copy(argv + i + 1, argv + argc, argv + i);
    --argc;
    break;
  }
  return sizes;
}

// The bytes of `msg` with its timestamp left out (a change is stamped with
// the time it is made).
std::string withoutTime(const ArenaRespMsgPtr& msg) {
  gnmi::SubscribeResponse copy = *msg->response;
  copy.mutable_update()->clear_timestamp();
  return copy.SerializeAsString();
}

// Checks that a streamed change and its hand-built message are the same bytes
// (but for the time) and prints the heap allocations of one of each. False
// when they differ.
bool checkAndCountChanges() {
  LastMessageRouter router;
  streamChange(1);  // publishes the interface
  streamChange(2);
  handBuiltChange(2, router);
  const bool same = changeRouter().last && withoutTime(changeRouter().last) == withoutTime(router.last);
  fmt::print("one change: streamed and hand-built message {}\n", same ? "byte-identical but for the time" : "DIFFERENT");
  if (!same) return false;
  uint64_t before = OstrelTest::heapAllocationCount();
  streamChanges(2, CHANGES);
  const uint64_t streamed = OstrelTest::heapAllocationCount() - before;
  before = OstrelTest::heapAllocationCount();
  handBuiltChanges(2, CHANGES, router);
  const uint64_t handBuilt = OstrelTest::heapAllocationCount() - before;
  fmt::print("one change: heap allocations: streamed {:.2f}, hand-built {:.2f}\n",
             static_cast<double>(streamed) / CHANGES, static_cast<double>(handBuilt) / CHANGES);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (!checkAndCountChanges()) return 1;
  for (const unsigned size : sizesToCheck(argc, argv)) {
    const bool same = size == SIZES[0]   ? checkAndCount<SIZES[0]>()
                      : size == SIZES[1] ? checkAndCount<SIZES[1]>()
                      : size == SIZES[2] ? checkAndCount<SIZES[2]>()
                                         : (fmt::print("no device of {} interfaces\n", size), false);
    if (!same) return 1;
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
