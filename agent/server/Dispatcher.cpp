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
    const uint64_t walkId = nextWalkId_++;
    const Ostrel::WalkResult result = bridge_->syncObject(
        target.entity, target.path, {Ostrel::SyncId(id), Ostrel::WalkId(walkId)}, SyncKind::Watch);
    if (result != Ostrel::WalkResult::Done) {
      walkToSync_[walkId] = id;
      schedulePump();
    }
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
  // The paused walk that blocked the others may have been one of these.
  blocked_ = false;
  schedulePump();
}

void Dispatcher::addChangeSink(ChangeSink* sink) { changeSinks_.push_back(sink); }

void Dispatcher::removeChangeSink(ChangeSink* sink) {
  changeSinks_.erase(std::remove(changeSinks_.begin(), changeSinks_.end(), sink), changeSinks_.end());
}

void Dispatcher::roomFreed() {
  blocked_ = false;
  schedulePump();
}

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

void Dispatcher::pump() {
  pumpPosted_ = false;
  const auto deadline = EventLoop::Clock::now() + SLICE;
  if (!walkToSync_.empty() && !blocked_) {
    std::vector<SyncWalkId> completed;
    const Ostrel::WalkResult result = bridge_->resumeAll(completed);
    for (const SyncWalkId& ids : completed) walkFinished(ids.first, ids.second);
    if (result == Ostrel::WalkResult::RouterFull) {
      blocked_ = true;
    } else if (result == Ostrel::WalkResult::QuantaExceeded) {
      schedulePump();
      return;
    } else {
      // Done: nothing is pending in the library any more.
      for (auto it = walkToSync_.begin(); it != walkToSync_.end();) {
        const uint64_t syncId = it->second;
        const uint64_t walkId = it->first;
        it = walkToSync_.erase(it);
        walkFinished(Ostrel::SyncId(syncId), Ostrel::WalkId(walkId));
      }
    }
  }
  // Start queued walks, one at a time per sync: the next walk of a sync
  // starts once its previous one has finished, so a sync that waits for a
  // full subscriber starts nothing more. Other syncs still get their slices.
  bool sliceSpent = false;
  for (size_t i = 0; i < startOrder_.size() && !sliceSpent;) {
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
    if (!sync.running.empty()) {
      ++i;
      continue;
    }
    if (EventLoop::Clock::now() >= deadline) break;
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
    if (result == Ostrel::WalkResult::Done) {
      walkFinished(Ostrel::SyncId(id), Ostrel::WalkId(walkId));
      continue;  // the same sync's next walk
    }
    walkToSync_[walkId] = id;
    if (result == Ostrel::WalkResult::RouterFull) {
      blocked_ = true;
    } else {
      sliceSpent = true;
    }
    ++i;
  }
  bool startable = false;
  for (const uint64_t id : startOrder_) {
    auto it = syncs_.find(id);
    if (it == syncs_.end() || it->second.running.empty()) {
      startable = true;
      break;
    }
  }
  if (startable || (!walkToSync_.empty() && !blocked_)) schedulePump();
}

void Dispatcher::walkFinished(Ostrel::SyncId syncId, Ostrel::WalkId walkId) {
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
