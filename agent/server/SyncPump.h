// The driver of syncs on the event loop: it gives the library's sync
// scheduler (through the bridge) one slice of the loop at a time.
//
// `schedule` posts a pump task unless one is already posted. A pump task runs
// the scheduler for at most SLICE and posts itself again while some sync can
// go on, so other work on the loop (requests, changes, timers) runs between
// slices. When nothing can go on but a sync is held back by a full
// subscriber, the pump sets a timer for the moment the scheduler stops
// waiting for it. Work that frees room (a subscriber reading) or adds syncs
// calls `schedule` again.
//
// Event-loop thread only.
#pragma once

#include <chrono>
#include <memory>

#include "EventLoop.h"
#include "LibraryBridge.h"

namespace VekGnmi::Server {

class SyncPump {
 public:
  // The time slice of one pump task.
  static constexpr std::chrono::milliseconds SLICE{20};

  // Both must outlive the pump.
  SyncPump(EventLoop& loop, LibraryBridge& bridge);
  ~SyncPump();
  SyncPump(const SyncPump&) = delete;
  SyncPump& operator=(const SyncPump&) = delete;

  // Makes sure a pump task is posted.
  void schedule();

  // Pump tasks run so far.
  uint64_t runs() const { return runs_; }

 private:
  void pump();

  EventLoop& loop_;
  LibraryBridge& bridge_;
  bool posted_ = false;
  uint64_t runs_ = 0;
  // Tasks and timers still queued when the pump goes check it.
  std::shared_ptr<bool> alive_;
};

}  // namespace VekGnmi::Server
