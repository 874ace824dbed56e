#include "EventLoop.h"

namespace VekGnmi::Server {

EventLoop::EventLoop() = default;

EventLoop::~EventLoop() { stop(); }

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

EventLoop::TimerId EventLoop::postAfter(Clock::duration delay, Task task) {
  TimerId id = 0;
  {
    std::lock_guard lock(mutex_);
    if (stopping_) return 0;
    id = nextTimer_++;
    auto it = timers_.emplace(Clock::now() + delay, std::make_pair(id, std::move(task)));
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

void EventLoop::run() {
  threadId_ = std::this_thread::get_id();
  std::unique_lock lock(mutex_);
  while (true) {
    // Due timers first, then one task, so that neither starves the other.
    const Clock::time_point now = Clock::now();
    if (!stopping_ && !timers_.empty() && timers_.begin()->first <= now) {
      auto it = timers_.begin();
      Task task = std::move(it->second.second);
      timerIndex_.erase(it->second.first);
      timers_.erase(it);
      lock.unlock();
      task();
      task = nullptr;
      lock.lock();
      continue;
    }
    if (!tasks_.empty()) {
      Task task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      task();
      task = nullptr;
      lock.lock();
      continue;
    }
    if (stopping_) break;
    if (timers_.empty()) {
      wake_.wait(lock);
    } else {
      wake_.wait_until(lock, timers_.begin()->first);
    }
  }
  // Dropped timers are destroyed on the loop's thread, like the tasks.
  std::multimap<Clock::time_point, std::pair<TimerId, Task>> timers;
  timers.swap(timers_);
  timerIndex_.clear();
  lock.unlock();
}

}  // namespace VekGnmi::Server
