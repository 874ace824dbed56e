// The agent's event loop: one thread that runs posted tasks and timers in
// order. It is the only thread that touches the runtime model and calls the
// library; other threads hand it work with `post`.
//
// Timers run on the loop's Clock: the system clock, or a ManualClock that a
// test advances (timers then fire only as it moves). The loop takes due
// timers and posted tasks in turn, one of each at a time, so that a timer
// that keeps coming due (the change simulator's) cannot starve requests, nor
// a flood of requests the timers.
#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>
#include <vector>

#include "Clock.h"

namespace VekGnmi::Server {

class EventLoop {
 public:
  using Task = std::function<void()>;
  using Duration = Clock::Duration;
  using TimerId = uint64_t;

  // Timers run on `clock`, which must outlive the loop.
  explicit EventLoop(Clock& clock = systemClock());
  // Stops the loop (see `stop`) and joins its thread.
  ~EventLoop();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  // Starts the thread. Tasks posted before run once it starts.
  void start();
  // Runs the tasks already posted, then ends the thread; timers not yet due
  // and tasks posted later are dropped. Safe to call from the loop's own
  // thread (the thread then ends after the current task) or from others
  // (which wait for the end).
  void stop();

  // Queues `task`; false (and the task dropped) once stopping.
  bool post(Task task);
  // Runs `task` once, `delay` from now on the loop's clock; returns an id
  // for `cancel`.
  TimerId postAfter(Duration delay, Task task);
  // Drops a timer that has not run; false when it ran or was dropped.
  bool cancel(TimerId id);

  // Runs `fn` on the loop and waits for its result. Not from the loop's own
  // thread. Throws std::runtime_error when the loop has stopped.
  template <typename Fn>
  auto call(Fn fn) -> decltype(fn()) {
    using R = decltype(fn());
    auto promise = std::make_shared<std::promise<R>>();
    std::future<R> future = promise->get_future();
    const bool posted = post([promise, fn = std::move(fn)]() mutable {
      try {
        if constexpr (std::is_void_v<R>) {
          fn();
          promise->set_value();
        } else {
          promise->set_value(fn());
        }
      } catch (...) {
        promise->set_exception(std::current_exception());
      }
    });
    if (!posted) throw std::runtime_error("the event loop has stopped");
    return future.get();
  }

  // Blocks the calling thread (never the loop's own) until `condition`,
  // evaluated on the loop now and after every task or timer it runs, holds;
  // false when the loop stops or `timeout` (real time, a safety net against a
  // test that would hang) passes first. How a test waits for the agent to
  // reach a state (a stream closed, a sync paused) without sleeping or
  // polling.
  bool waitUntil(std::function<bool()> condition, std::chrono::milliseconds timeout = std::chrono::seconds(30));

  bool inLoopThread() const { return std::this_thread::get_id() == threadId_; }
  Clock& clock() const { return clock_; }

 private:
  void run();
  void wake();
  // Evaluates the waiters' conditions (on the loop) and releases those met.
  void checkWaiters();

  struct Waiter {
    std::function<bool()> condition;
    std::promise<bool> met;
  };

  using Timers = std::multimap<Duration, std::pair<TimerId, Task>>;

  Clock& clock_;
  uint64_t wakeToken_ = 0;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> tasks_;
  Timers timers_;
  std::unordered_map<TimerId, Timers::iterator> timerIndex_;
  TimerId nextTimer_ = 1;
  std::vector<std::shared_ptr<Waiter>> waiters_;  // touched on the loop only
  bool stopping_ = false;
  std::thread thread_;
  std::atomic<std::thread::id> threadId_{};
};

}  // namespace VekGnmi::Server
