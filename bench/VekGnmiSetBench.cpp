// Set against a hand-written apply of the same values through the runtime's
// typed writes.
//
// The request: 10,000 leaves of 1,000 interfaces of the sample model (10 a
// piece: 3 replaces of the counters record, 7 updates of mtu, description,
// enabled, config and of the nested stats record). Below its prefix a Set
// names values only, so the request is 1,000 Sets, one per interface; as an
// agent applies it all or nothing, every Set is prepared and then every Set
// committed. Two value sets alternate, so that every write changes its
// attribute (an unchanged write costs the runtime almost nothing).
//
// The hand-written apply reads the same values out of the same messages,
// finds each interface by the key in its prefix and writes the new values
// with typed writes (`valueIs`), building the counters from their
// constructor and patching a copy of stats, with every attribute handle
// looked up once beforehand. It checks nothing first and builds no response.
// Both sides are handed copies of the requests outside the timed region and
// drop them inside it (a Set owns its request).
#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

#include <Ostrel/VekGnmiSetter.h>
#include <Vek/Vek.h>

#include "SampleModel.h"
#include "SetRequests.h"

namespace {

namespace Sample = OstrelTest::Sample;
using OstrelTest::boolVal;
using OstrelTest::stringVal;
using OstrelTest::uintVal;
using OstrelTest::updateOf;

constexpr unsigned INTERFACES = 1000;
constexpr unsigned LEAVES_PER_INTERFACE = 10;
constexpr unsigned UPDATES = INTERFACES * LEAVES_PER_INTERFACE;

struct Model {
  Sample::Tree tree;
  // Two requests per interface; `round` picks the set of values.
  std::vector<gnmi::SetRequest> requests[2];
};

std::string interfaceName(unsigned i) { return "eth" + std::to_string(i); }

// The request of interface `i` for value set `round` (0 or 1).
gnmi::SetRequest requestFor(unsigned i, unsigned round) {
  const uint64_t base = 1000 * (round + 1) + i;
  return OstrelTest::setRequest(
      "/devices/dev1/interfaces[name=" + interfaceName(i) + "]",
      {updateOf("counters/inPkts", uintVal(base)), updateOf("counters/outPkts", uintVal(base + 1)),
       updateOf("counters/inErrors", uintVal(base + 2))},
      {updateOf("mtu", uintVal(round == 0 ? 1500 : 9000)),
       updateOf("description", stringVal(round == 0 ? "access port" : "uplink to spine")),
       updateOf("enabled", boolVal(round == 0)),
       updateOf("config", stringVal(round == 0 ? R"({"speed":"1G"})" : R"({"speed":"10G"})")),
       updateOf("stats/drops", uintVal(base + 3)), updateOf("stats/pkts/inPkts", uintVal(base + 4)),
       updateOf("stats/pkts/outPkts", uintVal(base + 5))});
}

Model& model() {
  static Model m = [] {
    Model out;
    out.tree = Sample::buildTree();
    for (unsigned i = 0; i < INTERFACES; ++i) {
      if (i > 1) out.tree.device->entityNew("interfaces", Sample::name(interfaceName(i).c_str()));
      for (unsigned round = 0; round < 2; ++round) out.requests[round].push_back(requestFor(i, round));
    }
    return out;
  }();
  return m;
}

// One iteration applies the whole request: 1 request, UPDATES updates.
void reportRates(benchmark::State& state) {
  state.counters["requests/s"] = benchmark::Counter(1, benchmark::Counter::kIsIterationInvariantRate);
  state.counters["updates/s"] =
      benchmark::Counter(UPDATES, benchmark::Counter::kIsIterationInvariantRate);
}

// The three ways of applying one whole request, each a function of its own
// so that instruction counts can be taken for it alone; `main` runs each once
// on each value set before the benchmarks:
//   valgrind --tool=callgrind --toggle-collect='*executeEach*'
//            ./build/bench/VekGnmiSetBench --benchmark_filter=none
// Each takes over the requests (copies made beforehand), drops them before it
// returns, and returns whether every Set succeeded.

// Every Set prepared, then every Set committed, as an agent applies a request
// all or nothing.
[[gnu::noipa]] bool prepareAllThenCommitAll(Model& m, std::vector<gnmi::SetRequest>&& given) {
  std::vector<gnmi::SetRequest> requests = std::move(given);
  std::vector<std::unique_ptr<Ostrel::VekGnmiSet::Set>> sets;
  sets.reserve(requests.size());
  bool ok = true;
  for (gnmi::SetRequest& request : requests) {
    sets.push_back(std::make_unique<Ostrel::VekGnmiSet::Set>(m.tree.root.ptr(), std::move(request)));
    ok = sets.back()->prepare().ok() && ok;
  }
  for (auto& set : sets) ok = set->commit().ok() && ok;
  return ok;
}

// Each Set executed in turn.
[[gnu::noipa]] bool executeEach(Model& m, std::vector<gnmi::SetRequest>&& given) {
  std::vector<gnmi::SetRequest> requests = std::move(given);
  bool ok = true;
  for (gnmi::SetRequest& request : requests) {
    Ostrel::VekGnmiSet::Set set(m.tree.root.ptr(), std::move(request));
    auto result = set.execute();
    ok = result.second.ok() && ok;
    benchmark::DoNotOptimize(result);
  }
  return ok;
}

// Runs `apply` on a copy of the requests of alternating value sets, the copy
// made outside the timed region.
template <typename Apply>
void runRounds(benchmark::State& state, Apply&& apply) {
  Model& m = model();
  unsigned round = 0;
  for (auto _ : state) {
    state.PauseTiming();
    std::vector<gnmi::SetRequest> requests = m.requests[round];
    round ^= 1;
    state.ResumeTiming();
    if (!apply(m, std::move(requests))) state.SkipWithError("a Set failed");
  }
  reportRates(state);
}

void BM_SetPrepareAllThenCommitAll(benchmark::State& state) { runRounds(state, prepareAllThenCommitAll); }
BENCHMARK(BM_SetPrepareAllThenCommitAll)->Unit(benchmark::kMillisecond);

void BM_SetExecuteEach(benchmark::State& state) { runRounds(state, executeEach); }
BENCHMARK(BM_SetExecuteEach)->Unit(benchmark::kMillisecond);

// The hand-written apply: the same values, typed writes.
struct Handles {
  Vek::VekAttr interfaces = Sample::types().device->attr("interfaces");
  Vek::VekAttr mtu = Sample::types().interface->attr("mtu");
  Vek::VekAttr description = Sample::types().interface->attr("description");
  Vek::VekAttr enabled = Sample::types().interface->attr("enabled");
  Vek::VekAttr config = Sample::types().interface->attr("config");
  Vek::VekAttr counters = Sample::types().interface->attr("counters");
  Vek::VekAttr stats = Sample::types().interface->attr("stats");
  Vek::VekAttr inErrors = Sample::types().counters->attr("inErrors");
  Vek::VekAttr inPkts = Sample::types().counters->attr("inPkts");
  Vek::VekAttr outPkts = Sample::types().counters->attr("outPkts");
  Vek::VekAttr drops = Sample::types().stats->attr("drops");
  Vek::VekAttr pkts = Sample::types().stats->attr("pkts");
};

void handApply(const Handles& h, Vek::Entity& device, const gnmi::SetRequest& request) {
  const std::string& name = request.prefix().elem(2).key().at("name");
  Vek::Ptr<Vek::Entity> intf = device.entity(h.interfaces, Vek::genericIfOf(Vek::String(name)));
  const auto& r = request.replace();
  const auto& u = request.update();
  Vek::Ptr<Vek::GenericIf> counters = Sample::types().counters.genericIf(Vek::GenericIfArgs{
      Vek::genericIfOf<unsigned long long>(r[0].val().uint_val()),
      Vek::genericIfOf<unsigned long long>(r[1].val().uint_val())});
  counters->valueIs<unsigned>(h.inErrors, static_cast<unsigned>(r[2].val().uint_val()));
  intf->valueIs<unsigned>(h.mtu, static_cast<unsigned>(u[0].val().uint_val()));
  intf->valueIs<Vek::String>(h.description, Vek::String(u[1].val().string_val()));
  intf->valueIs<bool>(h.enabled, u[2].val().bool_val());
  intf->valueIs<Vek::String>(h.config, Vek::String(u[3].val().string_val()));
  h.counters.genericIfSet(intf, nullptr, counters);
  Vek::Ptr<Vek::GenericIf const> current = h.stats.genericIfGet(intf);
  Vek::Ptr<Vek::GenericIf> stats = current->type().genericIf(current->voidPtr(), true);
  stats->valueIs<unsigned>(h.drops, static_cast<unsigned>(u[4].val().uint_val()));
  Vek::Ptr<Vek::GenericIf const> currentPkts = h.pkts.genericIfGet(stats);
  Vek::Ptr<Vek::GenericIf> pkts = currentPkts->type().genericIf(currentPkts->voidPtr(), true);
  pkts->valueIs<unsigned long long>(h.inPkts, u[5].val().uint_val());
  pkts->valueIs<unsigned long long>(h.outPkts, u[6].val().uint_val());
  h.pkts.genericIfSet(stats, nullptr, pkts);
  h.stats.genericIfSet(intf, nullptr, stats);
}

// The hand-written apply of every request.
[[gnu::noipa]] bool handWritten(Model& m, std::vector<gnmi::SetRequest>&& given) {
  const std::vector<gnmi::SetRequest> requests = std::move(given);
  static const Handles handles;
  for (const gnmi::SetRequest& request : requests) handApply(handles, *m.tree.device, request);
  return true;
}

void BM_HandWrittenApply(benchmark::State& state) { runRounds(state, handWritten); }
BENCHMARK(BM_HandWrittenApply)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
  Model& m = model();
  for (unsigned round = 0; round < 2; ++round) {
    using Requests = std::vector<gnmi::SetRequest>;
    if (!prepareAllThenCommitAll(m, Requests(m.requests[round])) ||
        !executeEach(m, Requests(m.requests[round ^ 1])) || !handWritten(m, Requests(m.requests[round]))) {
      fmt::print("a Set failed\n");
      return 1;
    }
  }
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
