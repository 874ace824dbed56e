#include "LibraryBridge.h"

#include <unordered_set>

#include <Ostrel/BaseRouter.h>
#include <Ostrel/GifNotifiee.h>
#include <Ostrel/VekGnmiSetter.h>
#include <Ostrel/VekGnmiUtils.h>
#include <Ostrel/VekTypeWalker.h>
#include <Zolt/Zolt.h>

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentLibrary");
}  // namespace

MessageRouter::~MessageRouter() = default;
SetTransaction::~SetTransaction() = default;
LibraryBridge::~LibraryBridge() = default;

uint32_t walkerFlagBits(SyncKind kind) {
  // Watching publishes nothing: the walk is skipped once the entity's
  // notifiee is in place. Every kind makes a delete of a member that was
  // never published a no-op instead of a fatal error.
  const Ostrel::RequestType type{static_cast<uint32_t>(kind)};
  Ostrel::WalkerFlags flags =
      Ostrel::VekGnmiUtils::requestTypeToFlags(type) | Ostrel::WalkerFlags::NotifieeOption;
  if (kind == SyncKind::Watch) flags |= Ostrel::WalkerFlags::SkipWalk;
  return Ostrel::toBits(flags);
}

namespace {

// The library's router interface over the agent's.
class RouterAdapter final : public Ostrel::BaseRouter {
 public:
  explicit RouterAdapter(MessageRouter& router) : router_(router) {}
  bool push(Ostrel::SyncId syncId, const Ostrel::ArenaRespMsgPtr& msg) override {
    return router_.push(syncId, msg);
  }

 private:
  MessageRouter& router_;
};

class LibrarySet final : public SetTransaction {
 public:
  LibrarySet(Vek::Ptr<Vek::GenericIf> root, gnmi::SetRequest request)
      : set_(std::move(root), std::move(request)) {}
  grpc::Status prepare() override { return set_.prepare(); }
  grpc::Status commit() override { return set_.commit(); }

 private:
  Ostrel::VekGnmiSet::Set set_;
};

class LinkedLibraryBridge final : public LibraryBridge {
 public:
  explicit LinkedLibraryBridge(MessageRouter& router) : router_(router) {}

  Ostrel::WalkResult syncObject(const Vek::Ptr<Vek::Entity>& entity, const gnmi::Path& prefix,
                                SyncWalkId ids, SyncKind kind) override {
    // A watch only puts the entity's notifiee in place; once it is there the
    // library would still seed the timestamps of every member of the
    // entity's collections, which for a device of many interfaces costs more
    // than a subscription to one of them.
    if (kind == SyncKind::Watch && notifieeInPlace(entity.ptr(), prefix)) return Ostrel::WalkResult::Done;
    const Ostrel::WalkResult result = Ostrel::FullVekTypeWalker::syncObject(
        entity.ptr(), prefix, router_, ids, Ostrel::WalkerFlags{walkerFlagBits(kind)});
    if (result != Ostrel::WalkResult::Done) paused(ids.second);
    return result;
  }

  Ostrel::WalkResult resumeWalk(Ostrel::WalkId walkId, std::vector<PublishedEntity>& lost) override {
    auto& walks = Ostrel::FullVekTypeWalker::walkMap();
    const auto it = walks.find(walkId);
    if (it == walks.end()) {
      queued_.erase(walkId);
      return Ostrel::WalkResult::Done;
    }
    findLost(walkId, it->second, lost);
    // Popping a walker needs its path registered with its walk id; a delete
    // that dropped another walk's walkers at the same path erased it.
    for (const auto& walker : it->second) {
      Ostrel::staticPathWalkIdMap[walker->prefixPath()].insert(walkId);
    }
    const Ostrel::WalkResult result = Ostrel::FullVekTypeWalker::resumeSync(walkId);
    if (result == Ostrel::WalkResult::Done) {
      queued_.erase(walkId);
    } else {
      paused(walkId);
    }
    return result;
  }

  bool cancelPendingSync(Ostrel::WalkId walkId) override {
    const bool cancelled = Ostrel::FullVekTypeWalker::cancelPendingSync(walkId);
    queued_.erase(walkId);
    // The library leaves the walk's id at its paths; a delete under one of
    // them would look for the walk and fail.
    auto& paths = Ostrel::staticPathWalkIdMap;
    for (auto it = paths.begin(); it != paths.end();) {
      it->second.erase(walkId);
      it = it->second.empty() ? paths.erase(it) : std::next(it);
    }
    ZOLT_TRACE(dbg, 4, "Bridge", "walk {} cancelled: {}", walkId, cancelled);
    return cancelled;
  }

  void flushWalkMap() override {
    Ostrel::FullVekTypeWalker::flushWalkMap();
    // No walk is left, so no path may name one.
    Ostrel::staticPathWalkIdMap.clear();
    queued_.clear();
  }

  static bool notifieeInPlace(const Vek::PtrInterface* entity, const gnmi::Path& prefix) {
    const auto path = Ostrel::notifieePathMap.find(entity);
    if (path == Ostrel::notifieePathMap.end() || path->second != prefix) return false;
    const auto notifiee = Ostrel::gNmiNotifieeMap.find(prefix);
    return notifiee != Ostrel::gNmiNotifieeMap.end() && notifiee->second && notifiee->second->entity() == entity;
  }

  // A walk has paused: its queue is ordered owners first, and what it holds
  // is remembered, to find later what a delete took from it.
  void paused(Ostrel::WalkId walkId) {
    auto& walks = Ostrel::FullVekTypeWalker::walkMap();
    const auto it = walks.find(walkId);
    if (it == walks.end()) {
      queued_.erase(walkId);
      return;
    }
    Ostrel::WalkList& list = it->second;
    list.sort([](const auto& a, const auto& b) { return a->prefixPath().elem_size() < b->prefixPath().elem_size(); });
    std::vector<Queued>& queued = queued_[walkId];
    queued.clear();
    for (const auto& walker : list) queued.push_back({walker.get(), walker->prefixPath()});
  }

  // The walkers queued at the last pause that are gone now, at paths whose
  // entity is still published: a delete of another path took them.
  void findLost(Ostrel::WalkId walkId, const Ostrel::WalkList& list, std::vector<PublishedEntity>& lost) {
    const auto it = queued_.find(walkId);
    if (it == queued_.end() || it->second.size() == list.size()) return;  // nothing was dropped
    std::unordered_set<const Ostrel::FullVekTypeWalker*> present;
    for (const auto& walker : list) present.insert(walker.get());
    for (const Queued& q : it->second) {
      if (present.count(q.walker) != 0) continue;
      Vek::Ptr<Vek::Entity> entity = publishedEntity(q.path);
      if (!entity) continue;  // deleted itself
      ZOLT_TRACE(dbg, 2, "Bridge", "walk {} lost its queued work at {}: synced again", walkId,
                 Ostrel::pathToStr(q.path));
      lost.push_back({std::move(entity), q.path});
    }
    it->second.clear();
  }

  // The entity published at `path`, if it is still in the model.
  static Vek::Ptr<Vek::Entity> publishedEntity(const gnmi::Path& path) {
    const auto it = Ostrel::gNmiNotifieeMap.find(path);
    if (it == Ostrel::gNmiNotifieeMap.end() || !it->second || !it->second->entity()) return nullptr;
    const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(it->second->entity());
    if (!gif || !gif->isEntity()) return nullptr;
    auto* entity = static_cast<Vek::Entity*>(const_cast<Vek::GenericIf*>(gif.ptr()));
    if (entity->hasLeft() || entity->isOrphan()) return nullptr;
    return Vek::Ptr<Vek::Entity>(entity);
  }

  size_t walkMapSize() const override { return Ostrel::FullVekTypeWalker::walkMapSize(); }
  size_t pathWalkMapSize() const override { return Ostrel::staticPathWalkIdMap.size(); }

  std::unique_ptr<SetTransaction> makeSet(Vek::Ptr<Vek::GenericIf> root, gnmi::SetRequest request) override {
    return std::make_unique<LibrarySet>(std::move(root), std::move(request));
  }

 private:
  RouterAdapter router_;
  struct Queued {
    const Ostrel::FullVekTypeWalker* walker;  // compared only, never followed
    gnmi::Path path;
  };
  // What each pending walk had queued when it last paused.
  std::unordered_map<Ostrel::WalkId, std::vector<Queued>> queued_;
};

}  // namespace

std::unique_ptr<LibraryBridge> makeLibraryBridge(MessageRouter& router) {
  return std::make_unique<LinkedLibraryBridge>(router);
}

}  // namespace VekGnmi::Server
