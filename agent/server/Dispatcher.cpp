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

bool Dispatcher::hasRoom(Ostrel::SyncId syncId) const {
  const auto it = syncs_.find(syncId.value());
  return it == syncs_.end() || it->second.owner->hasRoom();
}

void Dispatcher::syncDone(Ostrel::SyncId syncId) {
  const auto it = syncs_.find(syncId.value());
  if (it == syncs_.end()) return;
  SyncOwner* owner = it->second.owner;
  syncs_.erase(it);
  ZOLT_TRACE(dbg, 4, "Dispatcher", "sync {} done", syncId);
  owner->onSyncDone(syncId);
}

Ostrel::SyncId Dispatcher::startSync(SyncOwner& owner, std::vector<PublishedEntity> targets,
                                     SyncKind kind) {
  const uint64_t id = nextSyncId_++;
  syncs_[id] = Sync{&owner, nowNanos()};
  ZOLT_TRACE(dbg, 4, "Dispatcher", "sync {} of {} entities queued", id, targets.size());
  bridge_->startSync(Ostrel::SyncId(id), std::move(targets), kind);
  schedulePump();
  return Ostrel::SyncId(id);
}

void Dispatcher::watch(const std::vector<PublishedEntity>& targets) {
  if (!targets.empty()) bridge_->watch(targets);
}

void Dispatcher::cancel(SyncOwner& owner) {
  for (auto it = syncs_.begin(); it != syncs_.end();) {
    if (it->second.owner != &owner) {
      ++it;
      continue;
    }
    bridge_->cancelSync(Ostrel::SyncId(it->first));
    ZOLT_TRACE(dbg, 4, "Dispatcher", "sync {} cancelled", it->first);
    it = syncs_.erase(it);
  }
}

void Dispatcher::addChangeSink(ChangeSink* sink) { changeSinks_.push_back(sink); }

void Dispatcher::removeChangeSink(ChangeSink* sink) {
  changeSinks_.erase(std::remove(changeSinks_.begin(), changeSinks_.end(), sink), changeSinks_.end());
}

void Dispatcher::roomFreed() {
  bridge_->roomFreed();
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
  if (bridge_->runSyncs(SLICE)) schedulePump();
}

}  // namespace VekGnmi::Server
