#include "Ostrel/SyncScheduler.h"

#include <algorithm>
#include <utility>

#include <Zolt/Zolt.h>

#include "Ostrel/GifNotifiee.h"
#include "Ostrel/Path.h"
#include "Ostrel/VekTypeWalker.h"
#include "internal/WalkerSupport.h"

namespace Ostrel {

namespace {

Zolt::Debuggable& dbg = WalkerSupport::debug();
constexpr const char* COMPONENT = "SyncScheduler";

// How many first messages a sync that joined part-way remembers; the next
// lap ends for it at whichever comes first. They are taken from different
// prefixes, so that one entity leaving the model does not take them all.
constexpr size_t MARKS = 3;

// A turn that took no measurable time still counts, so that a walk that
// publishes nothing does not keep the front of the queue.
constexpr double MIN_SERVICE = 1e-9;

// The entity registered at `path` in the notifiee registry, or null; null
// too for an entity that has left the model (someone may still hold it, and
// then its notifiee stays registered).
const Vek::Entity* publishedEntity(const gnmi::Path& path) {
  const auto it = gNmiNotifieeMap.find(path);
  if (it == gNmiNotifieeMap.end() || !it->second || !it->second->entity()) return nullptr;
  const Vek::Entity* entity = WalkerSupport::asEntity(it->second->entity()->genericIfPtr());
  return entity && !entity->hasLeft() ? entity : nullptr;
}

uint64_t serialAt(const gnmi::Path& path) {
  const Vek::Entity* entity = publishedEntity(path);
  return entity ? entity->serial() : 0;
}

// The path of a notification's first update (or delete): with its prefix,
// where a message stands in a walk.
const gnmi::Path& firstPath(const gnmi::Notification& n) {
  static const gnmi::Path none;
  if (n.update_size() > 0) return n.update(0).path();
  if (n.delete__size() > 0) return n.delete_(0);
  return none;
}

const gnmi::Notification* notificationOf(const ArenaRespMsgPtr& msg) {
  if (!msg || !msg->response || !msg->response->has_update()) return nullptr;
  return &msg->response->update();
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

// What makes two syncs' walks the same: their flags and target paths.
std::string shareKeyOf(WalkerFlags flags, const std::vector<SyncTarget>& targets) {
  std::string key = fmt::format("{:x}", toBits(flags));
  for (const SyncTarget& target : targets) {
    key += '\n';
    key += pathToStr(target.path);
  }
  return key;
}

}  // namespace

SyncReceiver::~SyncReceiver() = default;

SyncScheduler::SyncScheduler(BaseRouter& router, SyncReceiver& receiver, Vek::Seconds slice, Vek::Seconds hold)
    : router_(router), receiver_(receiver), slice_(slice), hold_(hold) {}

SyncScheduler::~SyncScheduler() {
  inRun_ = false;
  flush();
}

void SyncScheduler::start(SyncId syncId, std::vector<SyncTarget> targets, WalkerFlags flags,
                          Sharing sharing) {
  if (!syncId) ZOLT_FMASSERT(dbg, COMPONENT, "sync id 0 cannot be scheduled");
  if (walkOf_.contains(syncId)) ZOLT_FMASSERT(dbg, COMPONENT, "sync {} is already scheduled", syncId);
  std::string shareKey;
  if (sharing == Sharing::Shared) {
    shareKey = shareKeyOf(flags, targets);
    const auto found = sharedWalks_.find(shareKey);
    if (found != sharedWalks_.end()) {
      Walk& walk = walks_.at(found->second);
      Member member;
      member.syncId = syncId;
      member.wraps = walk.lapMessages > 0;
      member.joinLap = walk.lap;
      walk.members.push_back(std::move(member));
      walkOf_.emplace(syncId, found->second);
      ++joins_;
      ZOLT_TRACE(dbg, 4, COMPONENT, "sync {} joins walk {} after {} messages of lap {}", syncId, found->second,
                 walk.lapMessages, walk.lap);
      if (walk.waiting) makeReady(found->second, walk);
      return;
    }
  }
  const WalkKey key = nextWalkKey_++;
  Walk& walk = walks_[key];
  walk.flags = flags;
  walk.targets = std::move(targets);
  for (const SyncTarget& target : walk.targets) walk.toStart.push_back({target, false});
  Member member;
  member.syncId = syncId;
  walk.members.push_back(std::move(member));
  walkOf_.emplace(syncId, key);
  if (sharing == Sharing::Shared) {
    walk.shared = true;
    walk.shareKey = std::move(shareKey);
    sharedWalks_.emplace(walk.shareKey, key);
  }
  makeReady(key, walk);
  ZOLT_TRACE(dbg, 4, COMPONENT, "sync {} of {} targets queued as walk {}", syncId, walk.targets.size(), key);
}

void SyncScheduler::makeReady(WalkKey key, Walk& walk) {
  walk.waiting = false;
  if (walk.ready) return;
  walk.ready = true;
  walk.readySeq = nextReadySeq_++;
  ready_.emplace(walk.service, walk.readySeq, key);
}

bool SyncScheduler::push(SyncId syncId, const ArenaRespMsgPtr& msg) {
  if (!syncId) return router_.push(syncId, msg);  // a change
  const auto it = walks_.find(syncId.value());
  if (it == walks_.end()) return false;
  Walk& walk = it->second;
  ++walk.lapMessages;
  const gnmi::Notification* n = notificationOf(msg);
  bool room = true;
  bool delivered = false;
  // By index: the receiver may start a sync that joins this walk, which
  // grows `members`; a sync that joins now takes the next message first.
  for (size_t i = 0, count = walk.members.size(); i < count; ++i) {
    Member& member = walk.members[i];
    if (member.done || member.cancelled || member.state != Member::State::Receiving) continue;
    if (member.draining && !walk.again) continue;
    if (member.wraps && n && !walk.again) {
      if (member.joinLap < walk.lap) {
        const bool reached = std::any_of(member.marks.begin(), member.marks.end(), [&](const Mark& m) {
          return m.prefix == n->prefix() && m.first == firstPath(*n);
        });
        if (reached) {
          // It has this message and what follows from its first lap. What
          // this lap publishes again (re-created entities) may lie before
          // it: it takes that too, to the end of the lap.
          if (againPending(walk)) {
            member.draining = true;
          } else {
            member.done = true;
          }
          continue;
        }
      } else if (member.marks.size() < MARKS &&
                 std::none_of(member.marks.begin(), member.marks.end(),
                              [&](const Mark& m) { return m.prefix == n->prefix(); })) {
        member.marks.push_back({n->prefix(), firstPath(*n)});
      }
    }
    const SyncId target = member.syncId;
    const bool accepted = router_.push(target, msg);
    delivered = true;
    Member& after = walk.members[i];
    if (after.cancelled || accepted) continue;
    // The walk pauses after this message: it waits for this sync to have
    // room again, or at most `hold` (see refreshAudience).
    after.state = Member::State::Full;
    after.fullSince = Vek::System::currentTime();
    room = false;
  }
  return room && delivered;
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

bool SyncScheduler::hasWork() const { return !ready_.empty() || !ended_.empty(); }

size_t SyncScheduler::pausedWalks() const {
  return static_cast<size_t>(
      std::count_if(walks_.begin(), walks_.end(), [](const auto& w) { return !w.second.paused.empty(); }));
}

bool SyncScheduler::run(Vek::Seconds budget) {
  if (inRun_) ZOLT_FMASSERT(dbg, COMPONENT, "run called from inside run");
  inRun_ = true;
  const Vek::Seconds deadline = Vek::System::currentTime() + budget;
  wakeHeld();
  for (bool first = true; !ready_.empty(); first = false) {
    if (!first && Vek::System::currentTime() >= deadline) break;
    const WalkKey key = std::get<2>(*ready_.begin());
    ready_.erase(ready_.begin());
    walks_.at(key).ready = false;
    turn(key);
    reportDone();
  }
  reportDone();
  inRun_ = false;
  return hasWork();
}

void SyncScheduler::turn(WalkKey key) {
  Walk& walk = walks_.at(key);
  if (!settleMembers(walk)) return dropWalk(key);
  if (refreshAudience(walk) == Audience::Wait) {
    walk.waiting = true;
    return;
  }
  const Vek::Seconds begin = Vek::System::currentTime();
  const Vek::Seconds end = begin + slice_;
  running_ = key;
  bool over = false;
  while (hasAudience(walk)) {
    if (!walk.walk && walk.toStart.empty()) {
      if (!endOfLap(key, walk)) {
        over = true;
        break;
      }
      continue;  // a new lap: its audience may be away
    }
    const WalkResult result = step(key, walk, end - Vek::System::currentTime());
    if (!settleMembers(walk)) {
      over = true;
      break;
    }
    if (result != WalkResult::Done || Vek::System::currentTime() >= end) break;
  }
  running_ = 0;
  if (over) return dropWalk(key);
  walk.service += std::max(static_cast<double>(Vek::System::currentTime() - begin), MIN_SERVICE);
  makeReady(key, walk);
}

SyncScheduler::Audience SyncScheduler::refreshAudience(Walk& walk) {
  const Vek::Seconds now = Vek::System::currentTime();
  bool any = false;
  Vek::Seconds heldSince = 0;
  bool held = false;
  for (Member& member : walk.members) {
    if (member.done || member.cancelled) continue;
    if (!receiver_.hasRoom(member.syncId)) {
      if (member.state == Member::State::Receiving) {
        member.state = Member::State::Full;
        member.fullSince = now;
      }
      if (member.state == Member::State::Full && now - member.fullSince < hold_) {
        heldSince = held ? std::min(heldSince, member.fullSince) : member.fullSince;
        held = true;
      }
      continue;
    }
    if (member.state == Member::State::Away) {
      // It missed what went out while it was away: it takes the rest of
      // this lap and the next one up to where it joins now.
      member.wraps = walk.lapMessages > 0;
      member.joinLap = walk.lap;
      member.marks.clear();
      member.draining = false;
      ++joins_;
    }
    member.state = Member::State::Receiving;
    any = true;
  }
  walk.holdUntil = 0;
  if (!any) return Audience::Wait;
  if (held) {
    // Some sync is full: the walk waits for it to take more, but no longer
    // than `hold` since it filled up.
    walk.holdUntil = heldSince + hold_;
    return Audience::Wait;
  }
  for (Member& member : walk.members) {
    if (member.state == Member::State::Full) member.state = Member::State::Away;  // the walk goes on without it
  }
  return Audience::Go;
}

bool SyncScheduler::againPending(const Walk& walk) {
  return walk.again || !walk.vacant.empty() ||
         std::any_of(walk.toStart.begin(), walk.toStart.end(), [](const Pending& p) { return p.again; });
}

bool SyncScheduler::hasAudience(const Walk& walk) {
  return std::any_of(walk.members.begin(), walk.members.end(), [](const Member& m) {
    return !m.done && !m.cancelled && m.state == Member::State::Receiving;
  });
}

WalkResult SyncScheduler::step(WalkKey key, Walk& walk, Vek::Seconds remaining) {
  WalkResult result;
  if (walk.walk) {
    result = resume(walk, remaining);
  } else {
    SyncTarget target = std::move(walk.toStart.front().target);
    walk.again = walk.toStart.front().again;
    walk.toStart.pop_front();
    const Vek::Ptr<Vek::Entity> entity = liveTarget(target);
    if (!entity) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "walk {}: nothing lives at {} now", key, target.path);
      walk.vacant.push_back(std::move(target.path));
      return WalkResult::Done;
    }
    walk.walk = WalkId(nextWalkId_++);
    const ScopedQuantum quantum(remaining);
    result = FullVekTypeWalker::syncObject(entity.ptr(), std::move(target.path), *this,
                                           {SyncId(key), walk.walk}, walk.flags);
  }
  // A walk may pause at its last push with nothing left to resume; the
  // registry then has no queue for it (only its start time).
  if (result != WalkResult::Done && staticWalkMap.contains(walk.walk)) {
    takeOut(walk);
  } else {
    staticWalkStartMap.erase(walk.walk);
    walk.walk = WalkId();
  }
  return result;
}

WalkResult SyncScheduler::resume(Walk& walk, Vek::Seconds remaining) {
  ++resumes_;
  std::vector<Queued> paused = std::move(walk.paused);
  walk.paused.clear();
  // The paused walkers are one chain, from the deepest entity up to the
  // target; the registry queues an owner that paused again ahead of its
  // child. Resuming the deepest first publishes in the order of a walk that
  // never paused, wherever it paused, so every lap publishes in the same
  // order.
  std::stable_sort(paused.begin(), paused.end(), [](const Queued& a, const Queued& b) {
    return a.walker->prefixPath().elem_size() > b.walker->prefixPath().elem_size();
  });
  WalkList& list = staticWalkMap[walk.walk];
  for (Queued& queued : paused) {
    if (stillLive(walk, queued)) FullVekTypeWalker::addToWalkQ(std::move(queued.walker));
  }
  if (list.empty()) {
    staticWalkMap.erase(walk.walk);
    return WalkResult::Done;
  }
  const ScopedQuantum quantum(remaining);
  return FullVekTypeWalker::resumeSync(walk.walk);
}

void SyncScheduler::takeOut(Walk& walk) {
  const auto it = staticWalkMap.find(walk.walk);
  if (it == staticWalkMap.end()) return;
  for (std::unique_ptr<FullVekTypeWalker>& walker : it->second) {
    const gnmi::Path& path = walker->prefixPath();
    const auto paths = staticPathWalkIdMap.find(path);
    if (paths != staticPathWalkIdMap.end()) {
      paths->second.erase(walk.walk);
      if (paths->second.empty()) staticPathWalkIdMap.erase(paths);
    }
    const uint64_t serial = serialAt(path);
    walk.paused.push_back({std::move(walker), serial});
  }
  staticWalkMap.erase(it);
  staticWalkStartMap.erase(walk.walk);
}

bool SyncScheduler::stillLive(Walk& walk, const Queued& queued) {
  const gnmi::Path& path = queued.walker->prefixPath();
  const Vek::Entity* entity = publishedEntity(path);
  if ((entity ? entity->serial() : 0) == queued.serial) return true;
  ++droppedWalkers_;
  if (!WalkerSupport::isEntityType(queued.walker->objType())) return false;  // its entity's walker decides
  if (entity) {
    // Removed and created again at the same path while the walk was paused:
    // the new entity is published whole, next in this walk.
    ++resyncs_;
    ZOLT_TRACE(dbg, 4, COMPONENT, "walk {}: {} was re-created, synced anew", walk.walk, path);
    walk.toStart.push_front({{Vek::Ptr<Vek::Entity>(const_cast<Vek::Entity*>(entity)), path}, true});
  } else {
    ZOLT_TRACE(dbg, 4, COMPONENT, "walk {}: {} has left, its queued walker is dropped", walk.walk, path);
    walk.vacant.push_back(path);
  }
  return false;
}

Vek::Ptr<Vek::Entity> SyncScheduler::liveTarget(const SyncTarget& target) const {
  if (target.entity && !target.entity->hasLeft()) return target.entity;
  if (const Vek::Entity* entity = publishedEntity(target.path)) {
    return Vek::Ptr<Vek::Entity>(const_cast<Vek::Entity*>(entity));
  }
  if (!resolver_) return nullptr;
  Vek::Ptr<Vek::Entity> found = resolver_(target.path);
  return found && !found->hasLeft() ? found : nullptr;
}

bool SyncScheduler::endOfLap(WalkKey key, Walk& walk) {
  if (!walk.vacant.empty()) {
    // What lives again where this lap found nothing, or lost its entity, is
    // synced before the lap ends: once per path and lap.
    std::vector<gnmi::Path> vacant = std::move(walk.vacant);
    walk.vacant.clear();
    for (gnmi::Path& path : vacant) {
      SyncTarget target{nullptr, std::move(path)};
      if (Vek::Ptr<Vek::Entity> entity = liveTarget(target)) {
        ++resyncs_;
        target.entity = std::move(entity);
        walk.toStart.push_back({std::move(target), true});
      }
    }
    if (!walk.toStart.empty()) return true;
  }
  for (Member& member : walk.members) {
    if (member.cancelled || member.state == Member::State::Away) continue;
    if (!member.wraps || member.joinLap < walk.lap || member.draining) {
      member.done = true;
    } else if (member.marks.empty()) {
      member.wraps = false;  // it joined after the last message: it takes the whole next lap
    }
  }
  if (!settleMembers(walk)) return false;
  ++walk.lap;
  ++extraLaps_;
  walk.lapMessages = 0;
  for (const SyncTarget& target : walk.targets) walk.toStart.push_back({target, false});
  ZOLT_TRACE(dbg, 4, COMPONENT, "walk {} starts lap {} for {} syncs", key, walk.lap, walk.members.size());
  return true;
}

bool SyncScheduler::settleMembers(Walk& walk) {
  std::erase_if(walk.members, [this](const Member& member) {
    if (member.cancelled) return true;
    if (!member.done) return false;
    walkOf_.erase(member.syncId);
    ended_.push_back(member.syncId);
    return true;
  });
  return !walk.members.empty();
}

void SyncScheduler::dropWalk(WalkKey key) {
  const auto it = walks_.find(key);
  if (it == walks_.end()) return;
  Walk& walk = it->second;
  if (walk.ready) ready_.erase({walk.service, walk.readySeq, key});
  if (walk.shared) {
    const auto shared = sharedWalks_.find(walk.shareKey);
    if (shared != sharedWalks_.end() && shared->second == key) sharedWalks_.erase(shared);
  }
  for (const Member& member : walk.members) {
    if (!member.cancelled) walkOf_.erase(member.syncId);
  }
  ZOLT_TRACE(dbg, 4, COMPONENT, "walk {} dropped", key);
  walks_.erase(it);
}

bool SyncScheduler::cancel(SyncId syncId) {
  const auto it = walkOf_.find(syncId);
  if (it == walkOf_.end()) return false;
  const WalkKey key = it->second;
  walkOf_.erase(it);
  Walk& walk = walks_.at(key);
  for (Member& member : walk.members) {
    if (member.syncId == syncId) member.cancelled = true;
  }
  ZOLT_TRACE(dbg, 4, COMPONENT, "sync {} cancelled", syncId);
  // The walk of the turn in progress is settled when its step returns.
  if (key != running_ && !settleMembers(walk)) dropWalk(key);
  return true;
}

void SyncScheduler::wakeHeld() {
  const Vek::Seconds now = Vek::System::currentTime();
  for (auto& [key, walk] : walks_) {
    if (walk.waiting && walk.holdUntil > 0 && walk.holdUntil <= now) makeReady(key, walk);
  }
}

std::optional<Vek::Seconds> SyncScheduler::nextWake() const {
  std::optional<Vek::Seconds> next;
  for (const auto& [key, walk] : walks_) {
    if (walk.waiting && walk.holdUntil > 0 && (!next || walk.holdUntil < *next)) next = walk.holdUntil;
  }
  return next;
}

void SyncScheduler::roomFreed() {
  for (auto& [key, walk] : walks_) {
    if (walk.waiting) makeReady(key, walk);
  }
}

void SyncScheduler::flush() {
  if (inRun_) ZOLT_FMASSERT(dbg, COMPONENT, "flush called from inside run");
  walks_.clear();
  walkOf_.clear();
  sharedWalks_.clear();
  ready_.clear();
  ended_.clear();
}

void SyncScheduler::reportDone() {
  // A receiver told of one end may end others (cancel settles a walk).
  while (!ended_.empty()) {
    std::vector<SyncId> batch;
    batch.swap(ended_);
    for (const SyncId syncId : batch) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "sync {} done", syncId);
      receiver_.syncDone(syncId);
    }
  }
}

}  // namespace Ostrel
