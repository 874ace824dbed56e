// The tracing facility used from several threads at once.
#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include <Zolt/Zolt.h>

namespace {

constexpr int THREADS = 4;
constexpr int TRACES_PER_THREAD = 500;

TEST(ZoltThreads, ConcurrentLookupsGiveOneHandlePerName) {
  std::vector<const Zolt::Debuggable*> seen(THREADS * 3);
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([t, &seen] {
      seen[t * 3 + 0] = &Zolt::Platform::getDebugHandler("ThreadShared0");
      seen[t * 3 + 1] = &Zolt::Platform::getDebugHandler("ThreadShared1");
      seen[t * 3 + 2] = &Zolt::Platform::getDebugHandler("ThreadShared2");
    });
  }
  for (auto& th : threads) th.join();
  for (int t = 1; t < THREADS; ++t) {
    EXPECT_EQ(seen[t * 3 + 0], seen[0]);
    EXPECT_EQ(seen[t * 3 + 1], seen[1]);
    EXPECT_EQ(seen[t * 3 + 2], seen[2]);
  }
  EXPECT_EQ(std::set<const Zolt::Debuggable*>(seen.begin(), seen.end()).size(), 3u);
}

TEST(ZoltThreads, EveryTraceReachesTheSinkOnce) {
  Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ThreadTraces");
  h.levelMaskIs(1u << 1);
  int received = 0;  // the sink runs under the facility's lock
  Zolt::TraceSink previous = Zolt::traceSinkIs([&received](const Zolt::TraceRecord&) { ++received; });
  std::vector<std::thread> threads;
  for (int t = 0; t < THREADS; ++t) {
    threads.emplace_back([&h, t] {
      for (int i = 0; i < TRACES_PER_THREAD; ++i) {
        ZOLT_TRACE(h, 1, "Thread", "thread {} trace {}", t, i);
        ZOLT_TRACE(h, 2, "Thread", "disabled {}", i);
      }
    });
  }
  // Masks may change while other threads trace.
  h.levelMaskIs(h.levelMask() | (1u << 3));
  for (auto& th : threads) th.join();
  Zolt::traceSinkIs(std::move(previous));
  EXPECT_EQ(received, THREADS * TRACES_PER_THREAD);
}

}  // namespace
