// Cost of a trace call whose level is off, against an empty loop body, and of
// one that is on with a sink that discards the record.
#include <string>

#include <benchmark/benchmark.h>

#include <Zolt/Zolt.h>

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("BenchTrace");

void BM_EmptyLoop(benchmark::State& state) {
  int i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(++i);
  }
}
BENCHMARK(BM_EmptyLoop);

void BM_DisabledTrace(benchmark::State& state) {
  dbg.levelMaskIs(0);
  const std::string name = "eth0";
  int i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(++i);
    ZOLT_TRACE(dbg, 5, "Bench", "interface {} counter {} of {}", name, i, 3.5);
  }
}
BENCHMARK(BM_DisabledTrace);

void BM_EnabledTraceDiscardingSink(benchmark::State& state) {
  dbg.levelMaskIs(1u << 5);
  Zolt::TraceSink previous = Zolt::traceSinkIs([](const Zolt::TraceRecord& r) {
    benchmark::DoNotOptimize(r.message.data());
  });
  const std::string name = "eth0";
  int i = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(++i);
    ZOLT_TRACE(dbg, 5, "Bench", "interface {} counter {} of {}", name, i, 3.5);
  }
  Zolt::traceSinkIs(std::move(previous));
  dbg.levelMaskIs(0);
}
BENCHMARK(BM_EnabledTraceDiscardingSink);

}  // namespace

BENCHMARK_MAIN();
