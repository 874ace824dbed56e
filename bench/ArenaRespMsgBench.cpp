// Cost of one response: createResponse + one update + release.
//
//   Pooled            the library's path: messages come from and go back to
//                     arenaPool
//   FreshArena        ARENA_POOL_SIZE = 0: every message builds its arena and
//                     frees it on release
//   HeapNoArena       a gnmi::SubscribeResponse on the heap behind a
//                     std::shared_ptr, no arena
//   PooledCrossThread pooled, but released in batches on another thread, as
//                     when the agent's sending thread drops the last handle
//
// A counting global operator new reports heap allocations per message
// (allocs_per_msg) over the timed loop; after the benchmarks the program
// prints messages per second of each and their ratios.
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "Ostrel/ArenaRespMsg.h"
#include "Ostrel/Path.h"
#include "Ostrel/VekGnmiUtils.h"

#include "CountingNew.h"

namespace {

using Ostrel::ArenaPool;
using Ostrel::ArenaRespMsg;
using Ostrel::ArenaRespMsgPtr;
namespace Utils = Ostrel::VekGnmiUtils;

// Names of 15 characters or fewer stay in std::string's inline buffer, so the
// strings themselves cost no heap allocation on the arena or off it.
const gnmi::Path& prefix() {
  static const gnmi::Path path = Ostrel::strToPath("/interfaces/interface[name=eth0]/state");
  return path;
}
const gnmi::Path& leaf() {
  static const gnmi::Path path = Ostrel::strToPath("/counters/in-octets");
  return path;
}
constexpr Ostrel::Timestamp STAMP = 1700000000123456789;

void fill(gnmi::Notification* notification, uint64_t value) {
  Utils::pushUpdate(leaf(), notification, value, &gnmi::TypedValue::set_uint_val);
}

void setPoolSize(uint32_t size) {
  std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
  ArenaPool::ARENA_POOL_SIZE = size;
}

size_t pooled() {
  std::lock_guard<Zolt::Locking::Lock> guard(ArenaRespMsg::mutex_);
  return Ostrel::arenaPool.size();
}

void reportAllocations(benchmark::State& state, uint64_t before) {
  const uint64_t allocations = OstrelTest::heapAllocationCount() - before;
  state.counters["allocs_per_msg"] =
      static_cast<double>(allocations) / static_cast<double>(state.iterations());
  state.SetItemsProcessed(state.iterations());
}

// The timed loop shared by the pooled and fresh-arena cases: what the pool
// does with the message on release is the only difference between them.
void createFillRelease(benchmark::State& state) {
  uint64_t value = 0;
  const uint64_t before = OstrelTest::heapAllocationCount();
  for (auto _ : state) {
    auto [msg, notification] = ArenaRespMsg::createResponse(prefix(), STAMP);
    fill(notification, ++value);
    benchmark::DoNotOptimize(notification);
  }
  reportAllocations(state, before);
}

void Pooled(benchmark::State& state) {
  {
    auto warm = ArenaRespMsg::createResponse(prefix(), STAMP);
    fill(warm.notification, 1);
  }
  createFillRelease(state);
}

void FreshArena(benchmark::State& state) {
  // Empty the pool for good, then keep it off.
  setPoolSize(0);
  {
    std::vector<ArenaRespMsgPtr> drained;
    while (pooled() > 0) {
      drained.push_back(ArenaRespMsg::createResponse(gnmi::Path(), 0).msg);
    }
  }
  createFillRelease(state);
  setPoolSize(2000);
}

void HeapNoArena(benchmark::State& state) {
  uint64_t value = 0;
  const uint64_t before = OstrelTest::heapAllocationCount();
  for (auto _ : state) {
    auto response = std::make_shared<gnmi::SubscribeResponse>();
    gnmi::Notification* notification = response->mutable_update();
    Utils::populateTimestamp(*notification, STAMP);
    notification->mutable_prefix()->CopyFrom(prefix());
    fill(notification, ++value);
    benchmark::DoNotOptimize(notification);
  }
  reportAllocations(state, before);
}

// Hands batches of messages to a releasing thread. Allocations of the hand-off
// itself are avoided: the two batch vectors are reserved once and swapped.
class Releaser {
 public:
  static constexpr size_t BATCH = 64;
  Releaser() : worker_([this] { loop(); }) {
    full_.reserve(BATCH);
  }
  ~Releaser() {
    {
      std::lock_guard<std::mutex> guard(mutex_);
      stop_ = true;
    }
    ready_.notify_all();
    worker_.join();
  }
  // Waits until the previous batch has been released, then hands `batch` over
  // and gives back an empty vector with the same capacity.
  void handOver(std::vector<ArenaRespMsgPtr>& batch) {
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [this] { return full_.empty(); });
    full_.swap(batch);
    ready_.notify_one();
  }
  void drain() {
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [this] { return full_.empty(); });
  }

 private:
  void loop() {
    std::vector<ArenaRespMsgPtr> releasing;
    releasing.reserve(BATCH);
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
      ready_.wait(lock, [this] { return stop_ || !full_.empty(); });
      if (full_.empty() && stop_) {
        return;
      }
      releasing.swap(full_);
      lock.unlock();
      releasing.clear();  // the last handles drop here, on this thread
      lock.lock();
      done_.notify_all();
    }
  }

  std::mutex mutex_;
  std::condition_variable ready_;
  std::condition_variable done_;
  std::vector<ArenaRespMsgPtr> full_;
  bool stop_ = false;
  std::thread worker_;
};

void PooledCrossThread(benchmark::State& state) {
  Releaser releaser;
  std::vector<ArenaRespMsgPtr> batch;
  batch.reserve(Releaser::BATCH);
  uint64_t value = 0;
  const uint64_t before = OstrelTest::heapAllocationCount();
  for (auto _ : state) {
    auto [msg, notification] = ArenaRespMsg::createResponse(prefix(), STAMP);
    fill(notification, ++value);
    batch.push_back(std::move(msg));
    if (batch.size() == Releaser::BATCH) {
      releaser.handOver(batch);
    }
  }
  if (!batch.empty()) {
    releaser.handOver(batch);
  }
  releaser.drain();
  reportAllocations(state, before);
}

BENCHMARK(Pooled);
BENCHMARK(FreshArena);
BENCHMARK(HeapNoArena);
BENCHMARK(PooledCrossThread);

// Prints as usual and remembers each benchmark's messages per second.
class RateReporter : public benchmark::ConsoleReporter {
 public:
  RateReporter() : ConsoleReporter(OO_Tabular) {}
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      auto rate = run.counters.find("items_per_second");
      auto allocs = run.counters.find("allocs_per_msg");
      if (run.run_type == Run::RT_Iteration && rate != run.counters.end()) {
        rates_[run.benchmark_name()] = {rate->second.value,
                                        allocs != run.counters.end() ? allocs->second.value : 0};
      }
    }
  }
  void printSummary() const {
    auto find = [this](const char* name) {
      auto it = rates_.find(name);
      return it == rates_.end() ? Figures{} : it->second;
    };
    const Figures pooledFigures = find("Pooled");
    fmt::print("\n{:<20} {:>14} {:>20} {:>12}\n", "messages", "per second", "Pooled / this rate",
               "allocs/msg");
    for (const auto& [name, figures] : rates_) {
      fmt::print("{:<20} {:>14.0f} {:>20.2f} {:>12.2f}\n", name, figures.rate,
                 figures.rate > 0 ? pooledFigures.rate / figures.rate : 0.0, figures.allocs);
    }
  }

 private:
  struct Figures {
    double rate = 0;
    double allocs = 0;
  };
  std::map<std::string, Figures> rates_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  RateReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.printSummary();
  benchmark::Shutdown();
  return 0;
}
