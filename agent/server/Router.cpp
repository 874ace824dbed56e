#include "Router.h"

#include <algorithm>

#include <Zolt/Zolt.h>

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentRouter");
}  // namespace

SyncOwner::~SyncOwner() = default;
ChangeSink::~ChangeSink() = default;

Router::Router(Clock& clock, bool shareWalks) : clock_(clock), shareWalks_(shareWalks) {}

Router::~Router() = default;

bool Router::push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& message) {
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
  if (notification->timestamp() == 0) notification->set_timestamp(clock_.utcNanos());
  routeChange(message, *notification);
  return true;
}

void Router::routeChange(const Ostrel::ArenaRespMsgPtr& message, const gnmi::Notification& notification) {
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

bool Router::hasRoom(Ostrel::SyncId syncId) const {
  const auto it = syncs_.find(syncId.value());
  return it == syncs_.end() || it->second.owner->hasRoom();
}

void Router::syncDone(Ostrel::SyncId syncId) {
  const auto it = syncs_.find(syncId.value());
  if (it == syncs_.end()) return;
  SyncOwner* owner = it->second.owner;
  syncs_.erase(it);
  ZOLT_TRACE(dbg, 4, "Router", "sync {} done", syncId);
  owner->onSyncDone(syncId);
}

Ostrel::SyncId Router::startSync(SyncOwner& owner, std::vector<PublishedEntity> targets,
                                     SyncKind kind) {
  const uint64_t id = nextSyncId_++;
  syncs_[id] = Sync{&owner, clock_.utcNanos()};
  ZOLT_TRACE(dbg, 4, "Router", "sync {} of {} entities queued", id, targets.size());
  bridge_->startSync(Ostrel::SyncId(id), std::move(targets), kind, shareWalks_);
  pump_->schedule();
  return Ostrel::SyncId(id);
}

void Router::watch(const std::vector<PublishedEntity>& targets) {
  if (!targets.empty()) bridge_->watch(targets);
}

void Router::cancel(SyncOwner& owner) {
  for (auto it = syncs_.begin(); it != syncs_.end();) {
    if (it->second.owner != &owner) {
      ++it;
      continue;
    }
    bridge_->cancelSync(Ostrel::SyncId(it->first));
    ZOLT_TRACE(dbg, 4, "Router", "sync {} cancelled", it->first);
    it = syncs_.erase(it);
  }
}

void Router::addChangeSink(ChangeSink* sink, const std::vector<gnmi::Path>& paths) {
  removeChangeSink(sink);
  for (size_t i = 0; i < paths.size(); ++i) changePaths_.insert(paths[i], SinkPath{sink, i});
  changeSinks_.emplace(sink, paths);
}

void Router::removeChangeSink(ChangeSink* sink) {
  const auto it = changeSinks_.find(sink);
  if (it == changeSinks_.end()) return;
  for (size_t i = 0; i < it->second.size(); ++i) changePaths_.erase(it->second[i], SinkPath{sink, i});
  changeSinks_.erase(it);
}

OutMessage Router::outMessageOf(const Ostrel::ArenaRespMsgPtr& message) {
  const bool same = !lastOut_.expired() && !lastOut_.owner_before(message) && !message.owner_before(lastOut_);
  if (!same) {
    lastOut_ = message;
    lastWire_ = std::make_shared<SharedWire>();
  }
  return OutMessage(message, lastWire_);
}

void Router::roomFreed() {
  bridge_->roomFreed();
  pump_->schedule();
}

}  // namespace VekGnmi::Server
