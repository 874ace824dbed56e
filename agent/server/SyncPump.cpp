#include "SyncPump.h"

namespace VekGnmi::Server {

SyncPump::SyncPump(EventLoop& loop, LibraryBridge& bridge)
    : loop_(loop), bridge_(bridge), alive_(std::make_shared<bool>(true)) {}

SyncPump::~SyncPump() = default;

void SyncPump::schedule() {
  if (posted_) return;
  posted_ = true;
  std::weak_ptr<bool> alive = alive_;
  if (!loop_.post([this, alive] {
        if (alive.lock()) pump();
      })) {
    posted_ = false;
  }
}

void SyncPump::pump() {
  posted_ = false;
  ++runs_;
  if (bridge_.runSyncs(SLICE)) return schedule();
  // Nothing can go on now; a sync held back by a full subscriber goes on
  // without it after a while, if no room comes first.
  if (const auto in = bridge_.wakeIn()) {
    std::weak_ptr<bool> alive = alive_;
    loop_.postAfter(*in, [this, alive] {
      if (alive.lock()) schedule();
    });
  }
}

}  // namespace VekGnmi::Server
