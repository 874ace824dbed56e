// The runtime's generic access against direct C++ access to the same data:
// scalar reads, collection iteration and key handle creation.
#include <benchmark/benchmark.h>

#include <map>
#include <string>

#include <Vek/Vek.h>

namespace {

using namespace Vek;

struct Model {
  VekType entry;
  VekType table;
  VekAttr mtu;
  VekAttr rows;
  VekAttr names;
};

const Model& model() {
  static const Model m = [] {
    Module& mod = Module::moduleNew("Bench");
    Model out;
    out.entry = mod.valueType("Entry")
                    .scalar("inPkts", builtinType<unsigned long long>())
                    .scalar("outPkts", builtinType<unsigned long long>())
                    .done();
    out.table = mod.entityType("Table")
                    .scalar("mtu", builtinType<unsigned>(), "1500")
                    .collection("rows", builtinType<unsigned>(), out.entry)
                    .collection("names", builtinType<String>(), builtinType<unsigned>())
                    .done();
    out.mtu = out.table->attr("mtu");
    out.rows = out.table->attr("rows");
    out.names = out.table->attr("names");
    return out;
  }();
  return m;
}

// The same data as plain C++.
struct DirectEntry {
  unsigned long long inPkts;
  unsigned long long outPkts;
};
struct DirectTable {
  unsigned mtu = 1500;
  std::map<unsigned, DirectEntry> rows;
};

constexpr unsigned ROWS = 1000;

Ptr<Entity> makeTable() {
  Ptr<Entity> t = Entity::rootNew(model().table, "t");
  Ptr<GenericIf> e = model().entry.genericIfDefault();
  for (unsigned i = 0; i < ROWS; ++i) {
    e->valueIs<unsigned long long>("inPkts", i);
    model().rows.genericIfSet(t, genericIfOf(i), e);
  }
  return t;
}

void DirectScalarRead(benchmark::State& state) {
  DirectTable table;
  for (auto _ : state) {
    benchmark::DoNotOptimize(&table);
    unsigned v = table.mtu;
    benchmark::DoNotOptimize(v);
  }
}
BENCHMARK(DirectScalarRead);

void TypedScalarRead(benchmark::State& state) {
  Ptr<Entity> t = makeTable();
  for (auto _ : state) {
    unsigned v = t->value<unsigned>(model().mtu);
    benchmark::DoNotOptimize(v);
  }
}
BENCHMARK(TypedScalarRead);

void GenericScalarRead(benchmark::State& state) {
  Ptr<Entity> t = makeTable();
  for (auto _ : state) {
    Ptr<GenericIf const> v = model().mtu.genericIfGet(t);
    benchmark::DoNotOptimize(v->as<unsigned>());
  }
}
BENCHMARK(GenericScalarRead);

void DirectIterate(benchmark::State& state) {
  DirectTable table;
  for (unsigned i = 0; i < ROWS; ++i) table.rows[i] = {i, 0};
  for (auto _ : state) {
    unsigned long long sum = 0;
    for (const auto& [k, e] : table.rows) sum += k + e.inPkts;
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * ROWS);
}
BENCHMARK(DirectIterate);

void GenericIterate(benchmark::State& state) {
  Ptr<Entity> t = makeTable();
  const VekAttr inPkts = model().entry->attr("inPkts");
  for (auto _ : state) {
    unsigned long long sum = 0;
    for (auto it = model().rows.genericIfIteratorConst(t); it; ++it) {
      sum += it.key()->as<unsigned>() + it.ptr()->value<unsigned long long>(inPkts);
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * ROWS);
}
BENCHMARK(GenericIterate);

void DirectKey(benchmark::State& state) {
  for (auto _ : state) {
    std::string key("eth0");
    benchmark::DoNotOptimize(key);
  }
}
BENCHMARK(DirectKey);

void KeyHandleFromValue(benchmark::State& state) {
  for (auto _ : state) {
    Ptr<GenericIf> key = genericIfOf(String("eth0"));
    benchmark::DoNotOptimize(key.ptr());
  }
}
BENCHMARK(KeyHandleFromValue);

void KeyHandleFromText(benchmark::State& state) {
  const VekType u32 = builtinType<unsigned>();
  for (auto _ : state) {
    Ptr<GenericIf> key = u32.genericIf("4094", true);
    benchmark::DoNotOptimize(key.ptr());
  }
}
BENCHMARK(KeyHandleFromText);

void DirectLookup(benchmark::State& state) {
  std::map<std::string, unsigned> names;
  for (unsigned i = 0; i < ROWS; ++i) names["eth" + std::to_string(i)] = i;
  for (auto _ : state) {
    benchmark::DoNotOptimize(names.find("eth500")->second);
  }
}
BENCHMARK(DirectLookup);

void GenericLookup(benchmark::State& state) {
  Ptr<Entity> t = Entity::rootNew(model().table, "t");
  for (unsigned i = 0; i < ROWS; ++i) {
    model().names.genericIfSet(t, genericIfOf(String("eth" + std::to_string(i))), genericIfOf(i));
  }
  for (auto _ : state) {
    Ptr<GenericIf const> v = model().names.genericIfGet(t, genericIfOf(String("eth500")));
    benchmark::DoNotOptimize(v->as<unsigned>());
  }
}
BENCHMARK(GenericLookup);

}  // namespace

// Attribute lookup by name on a type of 64 attributes, for the first and the
// last one: an index, so both cost the same.
VekType wideType() {
  static const VekType t = [] {
    TypeDef def = Module::moduleNew("BenchWide").entityType("Wide");
    for (int i = 1; i < 64; ++i) def.scalar("attribute" + std::to_string(i), builtinType<unsigned>());
    return def.done();
  }();
  return t;
}

void AttrLookupByName(benchmark::State& state) {
  const VekType t = wideType();
  const std::string name = state.range(0) == 0 ? "name" : "attribute63";
  for (auto _ : state) benchmark::DoNotOptimize(t->attr(name.c_str()));
}
BENCHMARK(AttrLookupByName)->Arg(0)->Arg(63);

// Seeding a table of one million entries (a timestamp table of a large
// notifiee has this shape: a small key to a 64-bit time), reserved first
// or grown as it fills. Reports ns per entry.
void HashMapSeed(benchmark::State& state) {
  constexpr int64_t ENTRIES = 1000000;
  for (auto _ : state) {
    HMap<uint64_t, int64_t> map;
    if (state.range(0)) map.reserve(ENTRIES);
    for (int64_t i = 0; i < ENTRIES; ++i) map.insert(static_cast<uint64_t>(i) * 2654435761u, i);
    benchmark::DoNotOptimize(map.size());
    state.PauseTiming();
    {
      HMap<uint64_t, int64_t> gone(std::move(map));
    }
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * ENTRIES);
  state.counters["ns_per_entry"] = benchmark::Counter(
      static_cast<double>(state.iterations() * ENTRIES), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}
BENCHMARK(HashMapSeed)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

BENCHMARK_MAIN();
