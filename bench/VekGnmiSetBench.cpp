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

void BM_SetPrepareAllThenCommitAll(benchmark::State& state) {
  Model& m = model();
  unsigned round = 0;
  std::vector<gnmi::SetRequest> requests;
  std::vector<std::unique_ptr<Ostrel::VekGnmiSet::Set>> sets;
  sets.reserve(INTERFACES);
  for (auto _ : state) {
    state.PauseTiming();
    requests = m.requests[round];  // the Sets take their requests by value
    round ^= 1;
    sets.clear();
    state.ResumeTiming();
    bool prepared = true;
    for (gnmi::SetRequest& request : requests) {
      sets.push_back(std::make_unique<Ostrel::VekGnmiSet::Set>(m.tree.root.ptr(), std::move(request)));
      prepared = sets.back()->prepare().ok() && prepared;
    }
    if (!prepared) state.SkipWithError("a Set did not prepare");
    for (auto& set : sets) {
      if (!set->commit().ok()) state.SkipWithError("a Set did not commit");
    }
    sets.clear();
  }
  reportRates(state);
}
BENCHMARK(BM_SetPrepareAllThenCommitAll)->Unit(benchmark::kMillisecond);

void BM_SetExecuteEach(benchmark::State& state) {
  Model& m = model();
  unsigned round = 0;
  std::vector<gnmi::SetRequest> requests;
  for (auto _ : state) {
    state.PauseTiming();
    requests = m.requests[round];
    round ^= 1;
    state.ResumeTiming();
    for (gnmi::SetRequest& request : requests) {
      Ostrel::VekGnmiSet::Set set(m.tree.root.ptr(), std::move(request));
      auto result = set.execute();
      if (!result.second.ok()) state.SkipWithError("a Set failed");
      benchmark::DoNotOptimize(result);
    }
  }
  reportRates(state);
}
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

void BM_HandWrittenApply(benchmark::State& state) {
  Model& m = model();
  const Handles handles;
  unsigned round = 0;
  std::vector<gnmi::SetRequest> requests;
  for (auto _ : state) {
    state.PauseTiming();
    requests = m.requests[round];  // as the Sets do, it owns and drops the requests
    round ^= 1;
    state.ResumeTiming();
    for (const gnmi::SetRequest& request : requests) handApply(handles, *m.tree.device, request);
    requests.clear();
  }
  reportRates(state);
}
BENCHMARK(BM_HandWrittenApply)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
