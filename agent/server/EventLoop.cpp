#include "EventLoop.h"

namespace VekGnmi::Server {

EventLoop::EventLoop(Clock& clock) : clock_(clock) {
  wakeToken_ = clock_.onAdvance([this] { wake(); });
}

EventLoop::~EventLoop() {
  stop();
  clock_.removeWake(wakeToken_);
}

void EventLoop::wake() {
  // Taking the lock orders the wake after the loop's check of the time.
  { std::lock_guard lock(mutex_); }
  wake_.notify_all();
}

void EventLoop::start() {
  std::lock_guard lock(mutex_);
  if (thread_.joinable() || stopping_) return;
  thread_ = std::thread([this] { run(); });
}

void EventLoop::stop() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  wake_.notify_all();
  if (inLoopThread()) return;
  if (thread_.joinable()) thread_.join();
}

bool EventLoop::post(Task task) {
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return false;
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
  return true;
}

EventLoop::TimerId EventLoop::postAfter(Duration delay, Task task) {
  TimerId id = 0;
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return 0;
    id = nextTimer_++;
    auto it = timers_.emplace(clock_.now() + delay, std::make_pair(id, std::move(task)));
    timerIndex_.emplace(id, it);
  }
  wake_.notify_one();
  return id;
}

bool EventLoop::cancel(TimerId id) {
  Task dropped;  // destroyed outside the lock
  std::lock_guard lock(mutex_);
  auto it = timerIndex_.find(id);
  if (it == timerIndex_.end()) return false;
  dropped = std::move(it->second->second.second);
  timers_.erase(it->second);
  timerIndex_.erase(it);
  return true;
}

bool EventLoop::waitUntil(std::function<bool()> condition, std::chrono::milliseconds timeout) {
  auto waiter = std::make_shared<Waiter>();
  waiter->condition = std::move(condition);
  std::future<bool> met = waiter->met.get_future();
  if (!post([this, waiter] {
        waiters_.push_back(waiter);
        checkWaiters();
      })) {
    return false;
  }
  if (met.wait_for(timeout) == std::future_status::ready) return met.get();
  // Timed out: the condition may use what the caller is about to destroy, so
  // it is taken off the loop before returning.
  try {
    call([this, waiter] { std::erase(waiters_, waiter); });
  } catch (const std::runtime_error&) {
    // The loop has stopped: nothing evaluates the condition any more.
  }
  return false;
}

void EventLoop::checkWaiters() {
  for (auto it = waiters_.begin(); it != waiters_.end();) {
    if ((*it)->condition()) {
      (*it)->met.set_value(true);
      it = waiters_.erase(it);
    } else {
      ++it;
    }
  }
}

void EventLoop::run() {
  threadId_ = std::this_thread::get_id();
  std::unique_lock lock(mutex_);
  const auto runUnlocked = [&lock, this](Task task) {
    lock.unlock();
    task();
    task = nullptr;  // destroyed before the lock is taken again
    if (!waiters_.empty()) checkWaiters();
    lock.lock();
  };
  while (true) {
    // One due timer, then one task: neither starves the other.
    bool ran = false;
    if (!stopping_ && !timers_.empty() && timers_.begin()->first <= clock_.now()) {
      auto it = timers_.begin();
      Task task = std::move(it->second.second);
      timerIndex_.erase(it->second.first);
      timers_.erase(it);
      runUnlocked(std::move(task));
      ran = true;
    }
    if (!tasks_.empty()) {
      Task task = std::move(tasks_.front());
      tasks_.pop_front();
      runUnlocked(std::move(task));
      ran = true;
    }
    if (ran) continue;
    if (stopping_) break;
    if (timers_.empty() || !clock_.passesByItself()) {
      wake_.wait(lock);  // a post, a new timer, a stop, or the clock moving
    } else {
      const Duration in = timers_.begin()->first - clock_.now();
      wake_.wait_for(lock, in);
    }
  }
  // Dropped timers are destroyed on the loop's thread, like the tasks.
  Timers timers;
  timers.swap(timers_);
  timerIndex_.clear();
  lock.unlock();
  for (const auto& waiter : waiters_) waiter->met.set_value(false);
  waiters_.clear();
}

}  // namespace VekGnmi::Server
