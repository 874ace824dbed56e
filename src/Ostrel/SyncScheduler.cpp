#include "Ostrel/SyncScheduler.h"

#include <algorithm>
#include <utility>

#include <Zolt/Zolt.h>

#include "Ostrel/GifNotifiee.h"
#include "Ostrel/VekTypeWalker.h"
#include "internal/WalkerSupport.h"

namespace Ostrel {

namespace {

Zolt::Debuggable& dbg = WalkerSupport::debug();
constexpr const char* COMPONENT = "SyncScheduler";

// The live entity registered at `path` in the notifiee registry, or null.
const Vek::Entity* publishedEntity(const gnmi::Path& path) {
  const auto it = gNmiNotifieeMap.find(path);
  if (it == gNmiNotifieeMap.end() || !it->second || !it->second->entity()) return nullptr;
  return WalkerSupport::asEntity(it->second->entity()->genericIfPtr());
}

// Runs the walks of one turn with the walker's quantum cut to what is left
// of the turn's slice (the quantum is measured from the start of each call
// into the registry), and restores it afterwards.
class ScopedQuantum {
 public:
  explicit ScopedQuantum(Vek::Seconds remaining) : saved_(FullVekTypeWalker::SYNCQUANTUM) {
    if (remaining < saved_) FullVekTypeWalker::SYNCQUANTUM = remaining;
  }
  ~ScopedQuantum() { FullVekTypeWalker::SYNCQUANTUM = saved_; }
  ScopedQuantum(const ScopedQuantum&) = delete;
  ScopedQuantum& operator=(const ScopedQuantum&) = delete;

 private:
  Vek::Seconds saved_;
};

}  // namespace

SyncReceiver::~SyncReceiver() = default;

SyncScheduler::SyncScheduler(BaseRouter& router, SyncReceiver& receiver, Vek::Seconds slice)
    : router_(router), receiver_(receiver), slice_(slice) {}

SyncScheduler::~SyncScheduler() { flush(); }

void SyncScheduler::start(SyncId syncId, std::vector<SyncTarget> targets, WalkerFlags flags) {
  if (!syncId) ZOLT_FMASSERT(dbg, COMPONENT, "sync id 0 cannot be scheduled");
  const auto [it, inserted] = syncs_.try_emplace(syncId);
  if (!inserted) ZOLT_FMASSERT(dbg, COMPONENT, "sync {} is already scheduled", syncId);
  Sync& sync = it->second;
  sync.flags = flags;
  sync.toStart.assign(std::make_move_iterator(targets.begin()), std::make_move_iterator(targets.end()));
  ready_.push_back(syncId);
  ZOLT_TRACE(dbg, 4, COMPONENT, "sync {} of {} targets queued", syncId, sync.toStart.size());
}

bool SyncScheduler::push(SyncId syncId, const ArenaRespMsgPtr& msg) {
  if (syncId && syncId == running_) {
    const auto it = syncs_.find(syncId);
    if (it != syncs_.end() && it->second.cancelled) return false;
  }
  return router_.push(syncId, msg);
}

void SyncScheduler::watch(const std::vector<SyncTarget>& targets, WalkerFlags flags) {
  for (const SyncTarget& target : targets) {
    if (!target.entity || target.entity->hasLeft()) continue;
    const auto path = notifieePathMap.find(target.entity.ptr());
    if (path != notifieePathMap.end() && path->second == target.path &&
        publishedEntity(target.path) == target.entity.ptr()) {
      continue;  // its notifiee is in place
    }
    // A walk that is skipped never pauses: the walk id is never queued.
    FullVekTypeWalker::syncObject(target.entity.ptr(), target.path, *this,
                                  {SyncId(), WalkId(nextWalkId_++)}, flags | WalkerFlags::SkipWalk);
  }
}

bool SyncScheduler::hasWork() const {
  for (const SyncId id : ready_) {
    if (syncs_.contains(id)) return true;
  }
  return false;
}

size_t SyncScheduler::pausedWalks() const {
  return static_cast<size_t>(std::count_if(syncs_.begin(), syncs_.end(),
                                           [](const auto& s) { return !s.second.paused.empty(); }));
}

bool SyncScheduler::run(Vek::Seconds budget) {
  if (inRun_) ZOLT_FMASSERT(dbg, COMPONENT, "run called from inside run");
  inRun_ = true;
  const Vek::Seconds deadline = Vek::System::currentTime() + budget;
  // Each sync ready at the start gets a turn before any gets a second one.
  for (size_t turns = ready_.size(); !ready_.empty();) {
    if (turns == 0) {
      if (Vek::System::currentTime() >= deadline) break;
      turns = ready_.size();
    }
    --turns;
    const SyncId syncId = ready_.front();
    ready_.pop_front();
    if (syncs_.contains(syncId)) turn(syncId);
  }
  inRun_ = false;
  return hasWork();
}

void SyncScheduler::turn(SyncId syncId) {
  Sync* sync = &syncs_.at(syncId);
  const bool hasTargets = sync->walk || !sync->toStart.empty();
  if (hasTargets && !receiver_.hasRoom(syncId)) {
    sync->waiting = true;
    return;
  }
  const Vek::Seconds end = Vek::System::currentTime() + slice_;
  running_ = syncId;
  for (;;) {
    if (!sync->walk && sync->toStart.empty()) {
      running_ = SyncId();
      finish(syncId);
      return;
    }
    const WalkResult result = step(*sync, syncId, end - Vek::System::currentTime());
    sync = &syncs_.at(syncId);
    if (sync->cancelled) {
      // Cancelled from inside the walk: its queued walkers go with it.
      running_ = SyncId();
      syncs_.erase(syncId);
      return;
    }
    if (result != WalkResult::Done || Vek::System::currentTime() >= end) break;
  }
  running_ = SyncId();
  ready_.push_back(syncId);
}

WalkResult SyncScheduler::step(Sync& sync, SyncId syncId, Vek::Seconds remaining) {
  WalkResult result;
  if (sync.walk) {
    result = resume(sync, remaining);
  } else {
    SyncTarget target = std::move(sync.toStart.front());
    sync.toStart.pop_front();
    const Vek::Ptr<Vek::Entity> entity = liveTarget(target);
    if (!entity) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "sync {}: nothing lives at {} any more", syncId, target.path);
      return WalkResult::Done;
    }
    sync.walk = WalkId(nextWalkId_++);
    const ScopedQuantum quantum(remaining);
    result = FullVekTypeWalker::syncObject(entity.ptr(), std::move(target.path), *this,
                                           {syncId, sync.walk}, sync.flags);
  }
  // syncObject and resumeSync may answer Done for a walk that paused at its
  // last push with nothing left to resume; the registry then has no walk.
  Sync& now = syncs_.at(syncId);
  if (result != WalkResult::Done && staticWalkMap.contains(now.walk)) {
    takeOut(now);
  } else {
    now.walk = WalkId();
  }
  return result;
}

WalkResult SyncScheduler::resume(Sync& sync, Vek::Seconds remaining) {
  ++resumes_;
  std::vector<Queued> paused = std::move(sync.paused);
  sync.paused.clear();
  WalkList& list = staticWalkMap[sync.walk];
  for (Queued& queued : paused) {
    if (stillLive(sync, queued)) FullVekTypeWalker::addToWalkQ(std::move(queued.walker));
  }
  if (list.empty()) {
    staticWalkMap.erase(sync.walk);
    return WalkResult::Done;
  }
  const ScopedQuantum quantum(remaining);
  return FullVekTypeWalker::resumeSync(sync.walk);
}

void SyncScheduler::takeOut(Sync& sync) {
  const auto it = staticWalkMap.find(sync.walk);
  if (it == staticWalkMap.end()) return;
  for (std::unique_ptr<FullVekTypeWalker>& walker : it->second) {
    const gnmi::Path& path = walker->prefixPath();
    const auto paths = staticPathWalkIdMap.find(path);
    if (paths != staticPathWalkIdMap.end()) {
      paths->second.erase(sync.walk);
      if (paths->second.empty()) staticPathWalkIdMap.erase(paths);
    }
    uint64_t serial = 0;
    if (WalkerSupport::isEntityType(walker->objType())) {
      const Vek::Entity* entity = publishedEntity(path);
      serial = entity ? entity->serial() : 0;
    }
    sync.paused.push_back({std::move(walker), serial});
  }
  staticWalkMap.erase(it);
  staticWalkStartMap.erase(sync.walk);
}

bool SyncScheduler::stillLive(Sync& sync, const Queued& queued) {
  if (!WalkerSupport::isEntityType(queued.walker->objType())) return true;
  const gnmi::Path& path = queued.walker->prefixPath();
  const Vek::Entity* entity = publishedEntity(path);
  if (entity && entity->serial() == queued.serial) return true;
  ++droppedWalkers_;
  if (entity && !entity->hasLeft()) {
    // Removed and created again at the same path while the walk was paused:
    // the new entity is published whole, next in this sync.
    ++resyncs_;
    ZOLT_TRACE(dbg, 4, COMPONENT, "walk {}: {} was re-created, synced anew", sync.walk, path);
    sync.toStart.push_front({Vek::Ptr<Vek::Entity>(const_cast<Vek::Entity*>(entity)), path});
  } else {
    ZOLT_TRACE(dbg, 4, COMPONENT, "walk {}: {} has left, its queued walker is dropped", sync.walk, path);
  }
  return false;
}

Vek::Ptr<Vek::Entity> SyncScheduler::liveTarget(const SyncTarget& target) const {
  if (target.entity && !target.entity->hasLeft()) return target.entity;
  if (const Vek::Entity* entity = publishedEntity(target.path); entity && !entity->hasLeft()) {
    return Vek::Ptr<Vek::Entity>(const_cast<Vek::Entity*>(entity));
  }
  if (!resolver_) return nullptr;
  Vek::Ptr<Vek::Entity> found = resolver_(target.path);
  return found && !found->hasLeft() ? found : nullptr;
}

bool SyncScheduler::cancel(SyncId syncId) {
  const auto it = syncs_.find(syncId);
  if (it == syncs_.end() || it->second.cancelled) return false;
  ZOLT_TRACE(dbg, 4, COMPONENT, "sync {} cancelled", syncId);
  if (syncId == running_) {
    // Its walk is in the registry now: it is taken out and dropped when the
    // walk returns.
    it->second.cancelled = true;
    return true;
  }
  syncs_.erase(it);
  return true;
}

void SyncScheduler::roomFreed() {
  for (auto& [id, sync] : syncs_) {
    if (!sync.waiting) continue;
    sync.waiting = false;
    ready_.push_back(id);
  }
}

void SyncScheduler::flush() {
  if (inRun_) ZOLT_FMASSERT(dbg, COMPONENT, "flush called from inside run");
  syncs_.clear();
  ready_.clear();
}

void SyncScheduler::finish(SyncId syncId) {
  syncs_.erase(syncId);
  ZOLT_TRACE(dbg, 4, COMPONENT, "sync {} done", syncId);
  receiver_.syncDone(syncId);
}

}  // namespace Ostrel
