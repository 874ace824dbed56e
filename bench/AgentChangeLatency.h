// On-change latency of the agent, shared by its benchmarks: 10,000 changes
// a second for 3 s, one inPkts write each over distinct interfaces, posted
// to the event loop at a steady pace; whoever sees the updates (a stand-in
// writer, a gRPC client) reports them, and the latencies from each change's
// posting to its sighting become the benchmark's p50, p99 and max counters.
#pragma once

#include <algorithm>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include <benchmark/benchmark.h>

#include <gnmi/gnmi.pb.h>

#include "Agent.h"
#include "DemoModel.h"

namespace VekGnmiBench {

class ChangeLatency {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr int PER_MS = 10;
  static constexpr int MILLISECONDS = 3000;
  static constexpr size_t CHANGES = PER_MS * MILLISECONDS;
  static constexpr uint64_t BASE = 1ull << 40;  // inPkts values the churn never reaches

  // Changes interfaces 0 .. CHANGES-1 (modulo `interfaces`) of `agent`.
  ChangeLatency(VekGnmi::Server::Agent& agent, size_t interfaces)
      : agent_(agent), interfaces_(interfaces), posted_(CHANGES) {
    latency_.reserve(CHANGES);
  }

  // Posts every change, PER_MS each millisecond; returns once all are
  // posted (not yet seen).
  void run() {
    const Vek::VekAttr counters = VekGnmi::Server::demoTypes().interface->attr("counters");
    auto next = Clock::now();
    size_t change = 0;
    for (int ms = 0; ms < MILLISECONDS; ++ms) {
      next += std::chrono::milliseconds(1);
      std::this_thread::sleep_until(next);
      for (int k = 0; k < PER_MS; ++k, ++change) {
        {
          std::lock_guard lock(mutex_);
          posted_[change] = Clock::now();
        }
        VekGnmi::Server::Agent& agent = agent_;
        agent_.loop().post([&agent, counters, change, n = interfaces_] {
          using namespace VekGnmi::Server;
          const DeviceWrite write;
          Vek::Ptr<Vek::Entity> intf =
              agent.model().device->entity("interfaces", Vek::genericIfOf(interfaceName(change % n).c_str()));
          Vek::Ptr<Vek::GenericIf> value =
              demoTypes().counters.genericIf(counters.genericIfGet(intf)->voidPtr(), /*copy=*/true);
          value->valueIs<unsigned long long>("inPkts", BASE + change);
          counters.genericIfSet(intf, nullptr, value);
        });
      }
    }
  }

  // The changes in `notification`, seen at `now`. Thread-safe.
  void seen(const gnmi::Notification& notification, Clock::time_point now) {
    std::lock_guard lock(mutex_);
    for (const gnmi::Update& u : notification.update()) {
      const uint64_t v = u.val().uint_val();
      if (v < BASE || v - BASE >= CHANGES) continue;
      latency_.push_back(std::chrono::duration<double, std::micro>(now - posted_[v - BASE]).count());
    }
  }
  bool allSeen() {
    std::lock_guard lock(mutex_);
    return latency_.size() >= CHANGES;
  }

  // p50_us, p99_us, max_us and changes.
  void report(benchmark::State& state) {
    std::lock_guard lock(mutex_);
    std::sort(latency_.begin(), latency_.end());
    state.counters["p50_us"] = latency_[latency_.size() / 2];
    state.counters["p99_us"] = latency_[latency_.size() * 99 / 100];
    state.counters["max_us"] = latency_.back();
    state.counters["changes"] = static_cast<double>(latency_.size());
  }

 private:
  VekGnmi::Server::Agent& agent_;
  const size_t interfaces_;
  std::mutex mutex_;
  std::vector<Clock::time_point> posted_;
  std::vector<double> latency_;
};

}  // namespace VekGnmiBench
