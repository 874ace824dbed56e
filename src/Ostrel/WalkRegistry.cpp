// The walk registry: the queues of paused walkers of each pending walk, the
// start of each walk's slice, and the paths at which walkers are queued.
#include "Ostrel/VekTypeWalker.h"

#include <algorithm>

#include <Vek/Format.h>

#include "Ostrel/GifNotifiee.h"
#include "internal/WalkerSupport.h"

namespace Ostrel {

using namespace WalkerSupport;

namespace {
Zolt::Debuggable& dbg = WalkerSupport::debug();
}  // namespace

std::unordered_map<WalkId, WalkList> staticWalkMap;
std::unordered_map<WalkId, Vek::Seconds> staticWalkStartMap;
std::unordered_map<gnmi::Path, std::unordered_set<WalkId>> staticPathWalkIdMap;

void FullVekTypeWalker::addToWalkQ(std::unique_ptr<FullVekTypeWalker> walker) {
  const WalkId walkId = walker->walkId_;
  if (!walkId) ZOLT_FMASSERT(dbg, COMPONENT, "walkId 0 cannot be added to walkQ");
  WalkList& list = staticWalkMap[walkId];
  staticPathWalkIdMap[walker->prefixPath_].insert(walkId);
  ZOLT_TRACE(dbg, 4, COMPONENT, "Adding walkId:{} for path:{}", walkId, walker->prefixPath_);
  // A queued entity walker holds no reference on its entity: it is found
  // again through its notifiee when the walk resumes.
  if (isEntityType(walker->objType_)) walker->gif_ = nullptr;
  list.push_back(std::move(walker));
  ++queuedWalkers;
  ZOLT_TRACE(dbg, 4, COMPONENT, "type:{} walkQ size:{} walkId:{}", list.front()->objType_->name(),
             list.size(), walkId);
}

std::unique_ptr<FullVekTypeWalker> FullVekTypeWalker::popWalkQ(WalkList& list) {
  std::unique_ptr<FullVekTypeWalker> walker = std::move(list.front());
  list.pop_front();
  const auto pathIt = staticPathWalkIdMap.find(walker->prefixPath_);
  if (pathIt == staticPathWalkIdMap.end()) {
    ZOLT_FMASSERT(dbg, COMPONENT, "path {} is not found in the staticPathWalkIdMap", walker->prefixPath_);
  }
  if (isEntityType(walker->objType_)) {
    const auto notifieeIt = gNmiNotifieeMap.find(walker->prefixPath_);
    if (notifieeIt == gNmiNotifieeMap.end() || !notifieeIt->second) {
      ZOLT_FMASSERT(dbg, COMPONENT, "Failed to find a gNmiNotif for prefix:{}", walker->prefixPath_);
    }
    if (walker->gif_) ZOLT_FMASSERT(dbg, COMPONENT, "Expected walker->gif_ to be null!");
    walker->gif_ = Vek::VekType::genericIf(notifieeIt->second->entity());
  }
  if (pathIt->second.erase(walker->walkId_) != 0) {
    ZOLT_TRACE(dbg, 4, COMPONENT, "Removing walkId:{} for path:{}", walker->walkId_, walker->prefixPath_);
  }
  if (pathIt->second.empty()) {
    ZOLT_TRACE(dbg, 4, COMPONENT, "Removed path:{}", walker->prefixPath_);
    staticPathWalkIdMap.erase(pathIt);
  }
  return walker;
}

WalkResult FullVekTypeWalker::resumeSync(const WalkId& walkId) {
  if (!staticWalkMap.contains(walkId)) {
    ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} was not found in the walk map", walkId);
  }
  ZOLT_TRACE(dbg, 4, COMPONENT, "Resume walk of walkId:{}", walkId);
  staticWalkStartMap[walkId] = Vek::System::currentTime();
  while (!staticWalkMap[walkId].empty()) {
    std::unique_ptr<FullVekTypeWalker> walker = popWalkQ(staticWalkMap[walkId]);
    const std::string typeName = walker->objType_->name();
    ZOLT_TRACE(dbg, 4, COMPONENT, "Resume walk of {}", typeName);
    WalkList aside;
    aside.swap(staticWalkMap[walkId]);
    const WalkResult result = walker->walk(nullptr);
    // First in, first out across pauses: the walkers that waited go before
    // those the walk just queued.
    WalkList& list = staticWalkMap[walkId];
    list.splice(list.begin(), aside);
    if (result != WalkResult::Done && !list.empty()) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "Couldn't finish walk of {}", typeName);
      return result;
    }
    // Done, or a final push that paused with nothing left to resume.
    ZOLT_TRACE(dbg, 4, COMPONENT, "Finished walk of {}", typeName);
  }
  staticWalkMap.erase(walkId);
  staticWalkStartMap.erase(walkId);
  return WalkResult::Done;
}

WalkResult FullVekTypeWalker::resumeAllSyncsAndNotifs(std::vector<SyncWalkId>& idsComplete) {
  ZOLT_TRACE(dbg, 4, COMPONENT, "Resuming all pending syncs");
  if (!idsComplete.empty()) ZOLT_FMASSERT(dbg, COMPONENT, "idsComplete must be empty");
  for (;;) {
    if (staticWalkMap.empty()) return WalkResult::Done;
    const auto& [walkId, list] = *staticWalkMap.begin();
    if (list.empty()) ZOLT_FMASSERT(dbg, COMPONENT, "WalkList is empty for walkId:{}", walkId);
    const SyncWalkId ids{list.front()->syncId_, walkId};
    const WalkResult result = resumeSync(ids.second);
    if (result != WalkResult::Done) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "resumeSync for syncWalkId:{} did not complete", ids);
      return result;
    }
    ZOLT_TRACE(dbg, 1, COMPONENT, "resumeSync for syncWalkId:{} completed", ids);
    idsComplete.push_back(ids);
  }
}

bool FullVekTypeWalker::cancelPendingSync(WalkId walkId) {
  const auto it = staticWalkMap.find(walkId);
  if (it == staticWalkMap.end()) {
    if (staticWalkStartMap.contains(walkId)) {
      ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} is in staticWalkStartMap but not staticWalkMap", walkId);
    }
    return false;
  }
  // Destroyed after the maps no longer list them.
  WalkList gone = std::move(it->second);
  staticWalkMap.erase(it);
  if (staticWalkStartMap.erase(walkId) == 0) {
    ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} is in staticWalkMap but not staticWalkStartMap", walkId);
  }
  return true;
}

void FullVekTypeWalker::delFromWalkQ(const gnmi::Path& path) {
  const auto pathIt = staticPathWalkIdMap.find(path);
  if (pathIt == staticPathWalkIdMap.end()) return;
  ZOLT_TRACE(dbg, 4, COMPONENT, "Found path:{} in the walkQ", pathToStr(path));
  std::vector<gnmi::Path> pathsToErase;
  WalkList gone;
  const std::unordered_set<WalkId> walkIds = pathIt->second;
  for (const WalkId walkId : walkIds) {
    const auto walkIt = staticWalkMap.find(walkId);
    if (walkIt == staticWalkMap.end()) ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} not found", walkId);
    WalkList& list = walkIt->second;
    auto first = std::find_if(list.begin(), list.end(),
                              [&](const auto& walker) { return walker->prefixPath_ == path; });
    if (first == list.end()) continue;
    ZOLT_TRACE(dbg, 4, COMPONENT, "Delete path:{} for walkId:{}", path, walkId);
    // Everything queued behind the deleted path's walker goes with it.
    for (auto it = first; it != list.end(); ++it) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "Deleting child path:{} for walkId:{}", (*it)->prefixPath_, walkId);
      pathsToErase.push_back((*it)->prefixPath_);
    }
    gone.splice(gone.end(), list, first, list.end());
  }
  for (const gnmi::Path& p : pathsToErase) staticPathWalkIdMap.erase(p);
}

void FullVekTypeWalker::flushWalkMap() {
  std::unordered_map<WalkId, WalkList> gone;
  gone.swap(staticWalkMap);
  staticWalkStartMap.clear();
}

size_t FullVekTypeWalker::walkMapSize() { return staticWalkMap.size(); }
size_t FullVekTypeWalker::walkMapStartSize() { return staticWalkStartMap.size(); }
std::unordered_map<WalkId, WalkList>& FullVekTypeWalker::walkMap() { return staticWalkMap; }
std::unordered_map<gnmi::Path, std::unordered_set<WalkId>>& FullVekTypeWalker::pathWalkIdMap() {
  return staticPathWalkIdMap;
}

std::string FullVekTypeWalker::dumpWalkMap() {
  std::string out;
  for (const auto& [walkId, list] : staticWalkMap) {
    fmt::format_to(std::back_inserter(out), "walkId:{} walkList:[ ", walkId);
    for (const auto& walker : list) fmt::format_to(std::back_inserter(out), "\n{} ", *walker);
    out += "]\n";
  }
  return out;
}

std::string FullVekTypeWalker::dumpPathWalkIdMap() {
  std::string out;
  for (const auto& [path, walkIds] : staticPathWalkIdMap) {
    fmt::format_to(std::back_inserter(out), "path:{} requestSet:[", pathToStr(path));
    for (const WalkId walkId : walkIds) fmt::format_to(std::back_inserter(out), " {} ", walkId);
    out += "]\n";
  }
  return out;
}

}  // namespace Ostrel
