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

Dispatcher::Dispatcher(EventLoop& loop, bool shareWalks)
    : loop_(loop), shareWalks_(shareWalks), alive_(std::make_shared<bool>(true)) {}

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
  if (!notification) return true;
  if (notification->timestamp() == 0) notification->set_timestamp(nowNanos());
  routeChange(message, *notification);
  return true;
}

void Dispatcher::routeChange(const Ostrel::ArenaRespMsgPtr& message, const gnmi::Notification& notification) {
  matches_.clear();
  const auto matchOf = [this](ChangeSink* sink) -> ChangeMatch& {
    for (auto& [s, m] : matches_) {
      if (s == sink) return m;
    }
    return matches_.emplace_back(sink, ChangeMatch()).second;
  };
  for (int i = 0; i < notification.update_size(); ++i) {
    changePaths_.forUnder(PathElems{notification.prefix(), &notification.update(i).path()},
                          [&](const SinkPath& p) { matchOf(p.sink).updates.emplace_back(i, p.path); });
  }
  for (int i = 0; i < notification.delete__size(); ++i) {
    changePaths_.forUnderOrAbove(PathElems{notification.prefix(), &notification.delete_(i)},
                                 [&](const SinkPath& p) { matchOf(p.sink).deletes.emplace_back(i, p.path); });
  }
  // A sink may remove itself (or another) while being told: look it up
  // again before each.
  std::vector<std::pair<ChangeSink*, ChangeMatch>> matches = std::move(matches_);
  for (auto& [sink, match] : matches) {
    std::sort(match.updates.begin(), match.updates.end());
    std::sort(match.deletes.begin(), match.deletes.end());
    if (changeSinks_.contains(sink)) sink->onChange(message, match);
  }
  matches_ = std::move(matches);
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
  bridge_->startSync(Ostrel::SyncId(id), std::move(targets), kind, shareWalks_);
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

void Dispatcher::addChangeSink(ChangeSink* sink, const std::vector<gnmi::Path>& paths) {
  removeChangeSink(sink);
  for (size_t i = 0; i < paths.size(); ++i) changePaths_.insert(paths[i], SinkPath{sink, i});
  changeSinks_.emplace(sink, paths);
}

void Dispatcher::removeChangeSink(ChangeSink* sink) {
  const auto it = changeSinks_.find(sink);
  if (it == changeSinks_.end()) return;
  for (size_t i = 0; i < it->second.size(); ++i) changePaths_.erase(it->second[i], SinkPath{sink, i});
  changeSinks_.erase(it);
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
  if (bridge_->runSyncs(SLICE)) return schedulePump();
  // Nothing can go on now; a sync held back by a full subscriber goes on
  // without it after a while, if no room comes first.
  if (const auto in = bridge_->wakeIn()) {
    std::weak_ptr<bool> alive = alive_;
    loop_.postAfter(*in, [this, alive] {
      if (alive.lock()) schedulePump();
    });
  }
}

}  // namespace VekGnmi::Server
