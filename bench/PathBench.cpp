// Parse, print and hash of a short and a long path, each beside a baseline
// over the same message: building it by hand with the protobuf API (parse),
// protobuf's own text rendering (print), and hashing its concatenated bytes
// with std::hash (hash).
#include <string>

#include <benchmark/benchmark.h>

#include <Ostrel/Path.h>

namespace {

const std::string SHORT_TEXT = "/interfaces/interface[name=eth0]/state";
const std::string LONG_TEXT =
    "/network-instances/network-instance[name=default]/protocols/"
    "protocol[identifier=BGP][name=bgp]/bgp/neighbors/neighbor[neighbor-address=10.0.0.1]/"
    "afi-safis/afi-safi[afi-safi-name=IPV4_UNICAST]/state/prefixes/received";

const std::string& textOf(const benchmark::State& state) {
  return state.range(0) == 0 ? SHORT_TEXT : LONG_TEXT;
}

void setLabel(benchmark::State& state) {
  state.SetLabel(state.range(0) == 0 ? "short (3 elems, 1 key)" : "long (12 elems, 5 keys)");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * textOf(state).size()));
}

void BM_StrToPath(benchmark::State& state) {
  const std::string& text = textOf(state);
  for (auto _ : state) {
    gnmi::Path path = Ostrel::strToPath(text);
    benchmark::DoNotOptimize(path);
  }
  setLabel(state);
}
BENCHMARK(BM_StrToPath)->Arg(0)->Arg(1);

// Baseline: the same message built element by element from known pieces.
void BM_HandBuiltPath(benchmark::State& state) {
  const gnmi::Path reference = Ostrel::strToPath(textOf(state));
  for (auto _ : state) {
    gnmi::Path path;
    for (const auto& elem : reference.elem()) {
      gnmi::PathElem* e = path.add_elem();
      e->set_name(elem.name());
      for (const auto& [k, v] : elem.key()) (*e->mutable_key())[k] = v;
    }
    benchmark::DoNotOptimize(path);
  }
  setLabel(state);
}
BENCHMARK(BM_HandBuiltPath)->Arg(0)->Arg(1);

void BM_PathToGnmiPath(benchmark::State& state) {
  const std::string text = state.range(0) == 0 ? "/interfaces/interface/state"
                                               : "/a/b/c/d/e/f/g/h/i/j/k/l";
  for (auto _ : state) {
    gnmi::Path path = Ostrel::pathToGnmiPath(text);
    benchmark::DoNotOptimize(path);
  }
}
BENCHMARK(BM_PathToGnmiPath)->Arg(0)->Arg(1);

void BM_PathToStr(benchmark::State& state) {
  const gnmi::Path path = Ostrel::strToPath(textOf(state));
  for (auto _ : state) {
    std::string text = Ostrel::pathToStr(path);
    benchmark::DoNotOptimize(text);
  }
  setLabel(state);
}
BENCHMARK(BM_PathToStr)->Arg(0)->Arg(1);

// Baseline: protobuf's own one-line rendering of the same message.
void BM_ProtobufShortDebugString(benchmark::State& state) {
  const gnmi::Path path = Ostrel::strToPath(textOf(state));
  for (auto _ : state) {
    std::string text = path.ShortDebugString();
    benchmark::DoNotOptimize(text);
  }
  setLabel(state);
}
BENCHMARK(BM_ProtobufShortDebugString)->Arg(0)->Arg(1);

void BM_HashPath(benchmark::State& state) {
  const gnmi::Path path = Ostrel::strToPath(textOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::hash<gnmi::Path>{}(path));
  }
  setLabel(state);
}
BENCHMARK(BM_HashPath)->Arg(0)->Arg(1);

// Baseline: std::hash over the same names and key bytes, concatenated once
// outside the loop (so this measures hashing alone, not gathering).
void BM_StdHashOfSameBytes(benchmark::State& state) {
  const gnmi::Path path = Ostrel::strToPath(textOf(state));
  std::string bytes;
  for (const auto& elem : path.elem()) {
    bytes += elem.name();
    for (const auto& [k, v] : elem.key()) bytes += k + v;
  }
  for (auto _ : state) {
    benchmark::DoNotOptimize(std::hash<std::string>{}(bytes));
  }
  setLabel(state);
}
BENCHMARK(BM_StdHashOfSameBytes)->Arg(0)->Arg(1);

}  // namespace

BENCHMARK_MAIN();
