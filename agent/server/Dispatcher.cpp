#include "Dispatcher.h"

#include <algorithm>

#include <Zolt/Zolt.h>

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentDispatcher");
}  // namespace

SyncOwner::~SyncOwner() = default;
ChangeSink::~ChangeSink() = default;

int64_t nowNanos() {
  return static_cast<int64_t>(static_cast<double>(Vek::System::currentTimeUtc()) * 1000000000.0);
}

Dispatcher::Dispatcher(EventLoop& loop) : loop_(loop), alive_(std::make_shared<bool>(true)) {}

Dispatcher::~Dispatcher() = default;

bool Dispatcher::push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) {
  if (!message || !message->response) return true;
  gnmi::Notification* notification =
      message->response->has_update() ? message->response->mutable_update() : nullptr;
  if (syncId) {
    auto it = syncs_.find(syncId.value());
    if (it == syncs_.end()) return true;  // its owner has gone
    if (notification && notification->timestamp() == 0) notification->set_timestamp(it->second.startedAt);
    return it->second.owner->onSyncMessage(syncId, message);
  }
  if (notification && notification->timestamp() == 0) notification->set_timestamp(nowNanos());
  // A sink may remove itself (or another) while being told: iterate a copy.
  const std::vector<ChangeSink*> sinks = changeSinks_;
  for (ChangeSink* sink : sinks) {
    if (std::find(changeSinks_.begin(), changeSinks_.end(), sink) != changeSinks_.end()) {
      sink->onChange(message);
    }
  }
  return true;
}

Ostrel::SyncId Dispatcher::startSync(SyncOwner& owner, std::vector<PublishedEntity> targets,
                                     SyncKind kind) {
  const uint64_t id = nextSyncId_++;
  Sync& sync = syncs_[id];
  sync.owner = &owner;
  sync.kind = kind;
  sync.startedAt = nowNanos();
  sync.toStart.assign(std::make_move_iterator(targets.begin()), std::make_move_iterator(targets.end()));
  startOrder_.push_back(id);
  ZOLT_TRACE(dbg, 4, "Dispatcher", "sync {} of {} entities queued", id, sync.toStart.size());
  schedulePump();
  return Ostrel::SyncId(id);
}

void Dispatcher::watch(const std::vector<PublishedEntity>& targets) {
  if (targets.empty()) return;
  // A sync id that no owner holds: a watch publishes nothing.
  const uint64_t id = nextSyncId_++;
  for (const PublishedEntity& target : targets) {
    if (target.entity && target.entity->isOrphan()) continue;
    const uint64_t walkId = nextWalkId_++;
    const Ostrel::WalkResult result = bridge_->syncObject(
        target.entity, target.path, {Ostrel::SyncId(id), Ostrel::WalkId(walkId)}, SyncKind::Watch);
    if (result != Ostrel::WalkResult::Done) walkPaused(id, walkId);
  }
}

void Dispatcher::cancel(SyncOwner& owner) {
  for (auto it = syncs_.begin(); it != syncs_.end();) {
    if (it->second.owner != &owner) {
      ++it;
      continue;
    }
    for (const uint64_t walkId : it->second.running) {
      if (walkToSync_.erase(walkId) != 0) bridge_->cancelPendingSync(Ostrel::WalkId(walkId));
    }
    ZOLT_TRACE(dbg, 4, "Dispatcher", "sync {} cancelled", it->first);
    it = syncs_.erase(it);
  }
}

void Dispatcher::addChangeSink(ChangeSink* sink) { changeSinks_.push_back(sink); }

void Dispatcher::removeChangeSink(ChangeSink* sink) {
  changeSinks_.erase(std::remove(changeSinks_.begin(), changeSinks_.end(), sink), changeSinks_.end());
}

void Dispatcher::roomFreed() { schedulePump(); }

void Dispatcher::schedulePump() {
  if (pumpPosted_) return;
  pumpPosted_ = true;
  std::weak_ptr<bool> alive = alive_;
  if (!loop_.post([this, alive] {
        if (alive.lock()) pump();
      })) {
    pumpPosted_ = false;
  }
}

void Dispatcher::walkPaused(uint64_t syncId, uint64_t walkId) {
  walkToSync_[walkId] = syncId;
  paused_.push_back(walkId);
}

bool Dispatcher::runnable(uint64_t walkId) const {
  const auto w = walkToSync_.find(walkId);
  if (w == walkToSync_.end()) return false;
  const auto s = syncs_.find(w->second);
  // A watch has no owner: nothing of it waits for a reader.
  return s == syncs_.end() || s->second.owner->hasRoom();
}

void Dispatcher::pump() {
  pumpPosted_ = false;
  const auto deadline = EventLoop::Clock::now() + SLICE;
  resumePaused(deadline);
  startQueued(deadline);
  if (workLeft()) schedulePump();
}

void Dispatcher::resumePaused(EventLoop::Clock::time_point deadline) {
  // Each paused walk at most once per run, in turn: one that pauses again
  // goes to the back, behind the others.
  for (size_t n = paused_.size(); n > 0 && !paused_.empty(); --n) {
    if (EventLoop::Clock::now() >= deadline) return;
    const uint64_t walkId = paused_.front();
    paused_.pop_front();
    const auto w = walkToSync_.find(walkId);
    if (w == walkToSync_.end()) continue;  // cancelled
    if (!runnable(walkId)) {
      paused_.push_back(walkId);
      continue;
    }
    const uint64_t syncId = w->second;
    ++resumes_;
    std::vector<PublishedEntity> lost;
    const Ostrel::WalkResult result = bridge_->resumeWalk(Ostrel::WalkId(walkId), lost);
    if (!lost.empty()) restart(syncId, std::move(lost));
    if (result == Ostrel::WalkResult::Done) {
      walkFinished(Ostrel::SyncId(syncId), Ostrel::WalkId(walkId));
    } else {
      paused_.push_back(walkId);
    }
  }
}

void Dispatcher::startQueued(EventLoop::Clock::time_point deadline) {
  // One walk at a time per sync: the next walk of a sync starts once its
  // previous one has finished, so a sync that waits for a full subscriber
  // starts nothing more. Other syncs still get their turns.
  for (size_t i = 0; i < startOrder_.size();) {
    const uint64_t id = startOrder_[i];
    auto it = syncs_.find(id);
    if (it == syncs_.end()) {
      startOrder_.erase(startOrder_.begin() + static_cast<std::ptrdiff_t>(i));
      continue;
    }
    Sync& sync = it->second;
    if (sync.toStart.empty()) {
      startOrder_.erase(startOrder_.begin() + static_cast<std::ptrdiff_t>(i));
      finishIfDone(Ostrel::SyncId(id));
      continue;
    }
    if (!sync.running.empty() || !sync.owner->hasRoom()) {
      ++i;
      continue;
    }
    if (EventLoop::Clock::now() >= deadline) return;
    PublishedEntity target = std::move(sync.toStart.front());
    sync.toStart.pop_front();
    // An entity removed since the sync was queued is no longer published
    // there; its owner's notifiee has reported the delete.
    if (target.entity && target.entity->isOrphan()) continue;
    const uint64_t walkId = nextWalkId_++;
    sync.running.insert(walkId);
    const SyncKind kind = sync.kind;
    const Ostrel::WalkResult result = bridge_->syncObject(
        target.entity, target.path, {Ostrel::SyncId(id), Ostrel::WalkId(walkId)}, kind);
    // The owner may have been told the end inside walkFinished: look again.
    if (result == Ostrel::WalkResult::Done) {
      walkFinished(Ostrel::SyncId(id), Ostrel::WalkId(walkId));
      continue;  // the same sync's next walk
    }
    walkPaused(id, walkId);
    ++i;
  }
}

void Dispatcher::restart(uint64_t syncId, std::vector<PublishedEntity> lost) {
  auto it = syncs_.find(syncId);
  if (it == syncs_.end()) return;  // a watch: nothing is published
  lostWalks_ += lost.size();
  for (PublishedEntity& e : lost) it->second.toStart.push_back(std::move(e));
  if (std::find(startOrder_.begin(), startOrder_.end(), syncId) == startOrder_.end()) {
    startOrder_.push_back(syncId);
  }
}

bool Dispatcher::workLeft() const {
  for (const uint64_t walkId : paused_) {
    if (runnable(walkId)) return true;
  }
  for (const uint64_t id : startOrder_) {
    auto it = syncs_.find(id);
    if (it == syncs_.end() || it->second.toStart.empty()) return true;  // to be dropped or finished
    if (it->second.running.empty() && it->second.owner->hasRoom()) return true;
  }
  return false;
}

void Dispatcher::walkFinished(Ostrel::SyncId syncId, Ostrel::WalkId walkId) {
  // Its entry in paused_, if any, is skipped when met.
  walkToSync_.erase(walkId.value());
  auto it = syncs_.find(syncId.value());
  if (it == syncs_.end()) return;
  it->second.running.erase(walkId.value());
  finishIfDone(syncId);
}

void Dispatcher::finishIfDone(Ostrel::SyncId syncId) {
  auto it = syncs_.find(syncId.value());
  if (it == syncs_.end() || !it->second.toStart.empty() || !it->second.running.empty()) return;
  SyncOwner* owner = it->second.owner;
  syncs_.erase(it);
  ZOLT_TRACE(dbg, 4, "Dispatcher", "sync {} done", syncId);
  owner->onSyncDone(syncId);
}

}  // namespace VekGnmi::Server
