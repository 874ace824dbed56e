// YANG models in vekgnmid: what starting with one costs, and what a sync of
// a YANG-built model costs against the demo device's at the same number of
// leaves (the library's walk in process, as VekTypeWalkerBench measures the
// sample model).
//
//   Compile       YangSchema::load + YangModel::build of ietf-interfaces,
//                 ietf-ip and iana-if-type (Debian's IETF modules)
//   Load          the RFC 7951 data of 10,000 interfaces, each with an IPv4
//                 address, statistics and state (24 leaves each), parsed and
//                 validated by libyang from its file and built into runtime
//                 entities (YangData::loadFile)
//   Startup       makeYangSource: both, as vekgnmid does before it listens
//   YangSync      one sync of /interfaces (the 10,000 interfaces, 240,000
//                 leaves) into a router that drops every message, the
//                 entities' notifiees in place (a second subscriber)
//   DemoSync      the same of the demo device /devices/dev1 with 9,505
//                 interfaces (each with its route and share of a neighbour:
//                 about as many leaves)
//
// Before timing, main prints the heap in use (mallinfo2) and the resident
// set after each start-up step, the leaves and messages of both syncs, and
// runs each sync once more in a function of its own, so that instruction
// counts can be taken for it alone:
//   valgrind --tool=callgrind --toggle-collect='*yangRepeatSync*'
//            ./build/bench/AgentYangBench --benchmark_filter=none
// (likewise demoRepeatSync, and yangFirstSync / demoFirstSync for the first
// syncs, which make every notifiee).
#include <malloc.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <Ostrel/Path.h>
#include <Ostrel/VekTypeWalker.h>
#include <Vek/Vek.h>

#include "DemoModel.h"
#include "YangData.h"
#include "YangModel.h"
#include "YangSchema.h"
#include "YangSource.h"

namespace {

using namespace Ostrel;

constexpr unsigned INTERFACES = 10000;
// Demo interfaces publish 25.25 leaves each (with their routes and shares of
// neighbours): this many publish about as many leaves as the YANG ones.
constexpr unsigned DEMO_INTERFACES = 9505;

const VekGnmi::Yang::YangSchema::Options& ietfModules() {
  static const VekGnmi::Yang::YangSchema::Options options{
      {"/usr/share/yuma/nmda-modules/ietf", "/usr/share/yuma/modules/ietf"},
      {"ietf-interfaces", "ietf-ip", "iana-if-type"},
      {}};
  return options;
}

// The data file: 10,000 interfaces of 24 leaves each.
const std::string& dataFile() {
  static const std::string path = [] {
    std::string json = R"({"ietf-interfaces:interfaces": {"interface": [)";
    for (unsigned i = 0; i < INTERFACES; ++i) {
      json += fmt::format(
          R"({}{{"name": "eth{}", "description": "port {}", "type": "iana-if-type:ethernetCsmacd", "enabled": true,
             "link-up-down-trap-enable": "enabled", "admin-status": "up", "oper-status": "{}",
             "last-change": "2024-03-01T10:00:00Z", "if-index": {}, "phys-address": "02:00:00:00:{:02x}:{:02x}",
             "speed": "10000000000",
             "statistics": {{"discontinuity-time": "2024-01-01T00:00:00Z", "in-octets": "{}", "in-unicast-pkts": "{}",
                             "in-broadcast-pkts": "0", "in-multicast-pkts": "0", "in-discards": 0, "in-errors": 0,
                             "out-octets": "{}", "out-unicast-pkts": "{}"}},
             "ietf-ip:ipv4": {{"mtu": 1500, "address": [{{"ip": "10.{}.{}.1", "prefix-length": 24, "origin": "static"}}]}}}})",
          i == 0 ? "" : ",", i, i, i % 7 == 6 ? "down" : "up", i + 1, (i >> 8) & 0xff, i & 0xff, 1000ull * i, 10ull * i,
          2000ull * i, 20ull * i, (i >> 8) & 0xff, i & 0xff);
    }
    json += "]}}";
    const std::string file = (std::filesystem::temp_directory_path() / fmt::format("yang-bench-{}.json", ::getpid())).string();
    std::ofstream(file) << json;
    return file;
  }();
  return path;
}

size_t residentBytes() {
  long pages = 0;
  long resident = 0;
  if (FILE* f = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(f, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(f);
  }
  return static_cast<size_t>(resident) * static_cast<size_t>(::sysconf(_SC_PAGESIZE));
}

// Heap in use, mapped blocks included (libyang's large tables are).
size_t heapInUse() {
  const struct mallinfo2 m = mallinfo2();
  return m.uordblks + m.hblkhd;
}

// Counts what it is given and drops it.
class CountingRouter : public BaseRouter {
 public:
  bool push(SyncId, const ArenaRespMsgPtr& msg) override {
    ++messages;
    if (msg->response->has_update()) leaves += static_cast<uint64_t>(msg->response->update().update_size());
    return true;
  }
  uint64_t messages = 0;
  uint64_t leaves = 0;
};

struct Synced {
  Vek::Ptr<Vek::Entity> entity;
  gnmi::Path path;
};

// The YANG tree (kept for the process) and its /interfaces container.
const Synced& yangTree() {
  static const Synced synced = [] {
    auto source = VekGnmi::Server::makeYangSource(ietfModules(), dataFile());
    if (!source) {
      fmt::print(stderr, "{}\n", source.error());
      std::exit(1);
    }
    static std::shared_ptr<VekGnmi::Server::ModelSource> keep = source.value();
    keep->build();
    return Synced{keep->root()->child("interfaces"), strToPath("/interfaces")};
  }();
  return synced;
}

const Synced& demoTree() {
  static const Synced synced = [] {
    static VekGnmi::Server::DemoModel model = VekGnmi::Server::buildDemoModel(DEMO_INTERFACES);
    return Synced{model.device, strToPath("/devices/dev1")};
  }();
  return synced;
}

void sync(const Synced& tree, BaseRouter& router) {
  FullVekTypeWalker::syncObject(tree.entity.ptr(), tree.path, router, {SyncId(), WalkId(1)}, WalkerFlags::None);
}

[[gnu::noipa]] void yangFirstSync(BaseRouter& router) { sync(yangTree(), router); }
[[gnu::noipa]] void demoFirstSync(BaseRouter& router) { sync(demoTree(), router); }
[[gnu::noipa]] void yangRepeatSync(BaseRouter& router) { sync(yangTree(), router); }
[[gnu::noipa]] void demoRepeatSync(BaseRouter& router) { sync(demoTree(), router); }

void Compile(benchmark::State& state) {
  for (auto _ : state) {
    auto schema = VekGnmi::Yang::YangSchema::load(ietfModules());
    auto model = VekGnmi::Yang::YangModel::build(schema.value());
    benchmark::DoNotOptimize(model.value().get());
  }
}
BENCHMARK(Compile)->Unit(benchmark::kMillisecond);

void Load(benchmark::State& state) {
  auto schema = VekGnmi::Yang::YangSchema::load(ietfModules());
  auto model = VekGnmi::Yang::YangModel::build(schema.value());
  for (auto _ : state) {
    auto loaded = VekGnmi::Yang::YangData::loadFile(*model.value(), dataFile());
    if (!loaded) state.SkipWithError(loaded.error().c_str());
  }
  state.SetItemsProcessed(state.iterations() * INTERFACES);
}
BENCHMARK(Load)->Unit(benchmark::kMillisecond);

void Startup(benchmark::State& state) {
  for (auto _ : state) {
    auto source = VekGnmi::Server::makeYangSource(ietfModules(), dataFile());
    if (!source) state.SkipWithError(source.error().c_str());
  }
}
BENCHMARK(Startup)->Unit(benchmark::kMillisecond);

void syncBenchmark(benchmark::State& state, const Synced& tree) {
  CountingRouter router;
  sync(tree, router);  // notifiees in place
  const uint64_t leaves = router.leaves;
  for (auto _ : state) sync(tree, router);
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations() * leaves));
  state.counters["leaves"] = static_cast<double>(leaves);
}
void YangSync(benchmark::State& state) { syncBenchmark(state, yangTree()); }
void DemoSync(benchmark::State& state) { syncBenchmark(state, demoTree()); }
BENCHMARK(YangSync)->Unit(benchmark::kMillisecond)->MinTime(2);
BENCHMARK(DemoSync)->Unit(benchmark::kMillisecond)->MinTime(2);

}  // namespace

int main(int argc, char** argv) {
  ::setenv("TZ", "UTC", 1);
  {
    const size_t rss0 = residentBytes();
    const size_t heap0 = heapInUse();
    auto schema = VekGnmi::Yang::YangSchema::load(ietfModules());
    auto model = VekGnmi::Yang::YangModel::build(schema.value());
    const size_t rss1 = residentBytes();
    const size_t heap1 = heapInUse();
    auto loaded = VekGnmi::Yang::YangData::loadFile(*model.value(), dataFile());
    if (!loaded) {
      fmt::print(stderr, "{}\n", loaded.error());
      return 1;
    }
    const size_t rss2 = residentBytes();
    const size_t heap2 = heapInUse();
    Vek::Ptr<Vek::Dir> root = loaded.value().root;
    loaded = Ostrel::Failure{std::string()};  // the libyang tree goes, as vekgnmid drops it after the build
    const size_t heap3 = heapInUse();
    fmt::print("compile: heap +{:.1f} MiB, resident +{:.1f} MiB\n", (heap1 - heap0) / 1048576.0,
               (rss1 - rss0) / 1048576.0);
    fmt::print("load {} interfaces: heap +{:.1f} MiB (libyang tree and runtime tree), resident +{:.1f} MiB; "
               "runtime tree alone {:.1f} MiB ({:.0f} bytes an interface)\n",
               INTERFACES, (heap2 - heap1) / 1048576.0, (rss2 - rss1) / 1048576.0, (heap3 - heap1) / 1048576.0,
               static_cast<double>(heap3 - heap1) / INTERFACES);
  }
  {
    CountingRouter yang;
    CountingRouter demo;
    yangFirstSync(yang);
    demoFirstSync(demo);
    fmt::print("yang sync: {} leaves in {} messages; demo sync: {} leaves in {} messages\n", yang.leaves,
               yang.messages, demo.leaves, demo.messages);
    CountingRouter again;
    yangRepeatSync(again);
    demoRepeatSync(again);
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  std::filesystem::remove(dataFile());
  return 0;
}
