// A test double of the library's sync core for the agent's tests: it
// publishes, for each entity the agent syncs, the leaves a test scripted for
// that entity's path, following the documented contract of syncObject /
// resumeSync / cancelPendingSync: messages go to the router with the sync
// id; a push answered false pauses the walk (RouterFull) and resumeWalk
// continues it; `quantum` pushes per slice pause it with QuantaExceeded. It
// knows nothing of the runtime's types: tests use it where they need the
// agent's routing, queues and statuses driven message by message
// (a change pushed at a chosen moment, a Set that fails on its second
// entity), not to stand in for the library's serialisation, which the
// end-to-end suites test against the library itself.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <Ostrel/ArenaRespMsg.h>

#include "GnmiPathText.h"
#include "LibraryBridge.h"
#include "TestPaths.h"

namespace VekGnmiTest {

using VekGnmi::Server::MessageRouter;
using VekGnmi::Server::SyncKind;
using VekGnmi::Server::SyncWalkId;

struct ScriptedLeaf {
  gnmi::Path path;
  gnmi::TypedValue value;
};

class ScriptedLibrary : public VekGnmi::Server::LibraryBridge {
 public:
  // The router is set once the agent's dispatcher exists.
  void routerIs(MessageRouter* router) { router_ = router; }

  // What a sync of the entity at `path` publishes, `perMessage` leaves a
  // message.
  void script(const std::string& path, std::vector<ScriptedLeaf> leaves, size_t perMessage = 1) {
    scripts_[path] = {std::move(leaves), perMessage};
  }
  // Pushes allowed per slice before a walk pauses with QuantaExceeded (0: no
  // limit).
  size_t quantum = 0;

  Ostrel::WalkResult syncObject(const Vek::Ptr<Vek::Entity>&, const gnmi::Path& prefix, SyncWalkId ids,
                                SyncKind kind) override {
    synced.push_back({VekGnmi::pathString(prefix), kind});
    if (kind == SyncKind::Watch) return Ostrel::WalkResult::Done;
    Walk walk;
    walk.ids = ids;
    auto it = scripts_.find(VekGnmi::pathString(prefix));
    if (it != scripts_.end()) {
      const auto& [leaves, perMessage] = it->second;
      for (size_t i = 0; i < leaves.size(); i += perMessage) {
        auto [msg, notification] = Ostrel::ArenaRespMsg::createResponse(prefix, 0);
        for (size_t j = i; j < leaves.size() && j < i + perMessage; ++j) {
          gnmi::Update* u = notification->add_update();
          *u->mutable_path() = leaves[j].path;
          *u->mutable_val() = leaves[j].value;
        }
        walk.messages.push_back(msg);
      }
    }
    const Ostrel::WalkResult result = run(walk);
    if (result != Ostrel::WalkResult::Done) pending_.push_back(std::move(walk));
    return result;
  }

  Ostrel::WalkResult resumeWalk(Ostrel::WalkId walkId, std::vector<VekGnmi::Server::PublishedEntity>&) override {
    ++resumeCalls;
    for (auto it = pending_.begin(); it != pending_.end(); ++it) {
      if (it->ids.second != walkId) continue;
      const Ostrel::WalkResult result = run(*it);
      if (result == Ostrel::WalkResult::Done) pending_.erase(it);
      return result;
    }
    return Ostrel::WalkResult::Done;
  }

  bool cancelPendingSync(Ostrel::WalkId walkId) override {
    for (auto it = pending_.begin(); it != pending_.end(); ++it) {
      if (it->ids.second == walkId) {
        pending_.erase(it);
        ++cancelled;
        return true;
      }
    }
    return false;
  }
  void flushWalkMap() override { pending_.clear(); }
  size_t walkMapSize() const override { return pending_.size(); }
  size_t pathWalkMapSize() const override { return pending_.size(); }

  std::function<std::unique_ptr<VekGnmi::Server::SetTransaction>(gnmi::SetRequest)> setFactory;
  std::unique_ptr<VekGnmi::Server::SetTransaction> makeSet(Vek::Ptr<Vek::GenericIf>,
                                                          gnmi::SetRequest request) override {
    return setFactory(std::move(request));
  }

  // A change as the library's notifiees push it: sync id 0.
  bool pushChange(const gnmi::Path& prefix, std::vector<ScriptedLeaf> leaves,
                  std::vector<gnmi::Path> deletes = {}, int64_t timestamp = 0) {
    auto [msg, notification] = Ostrel::ArenaRespMsg::createResponse(prefix, timestamp);
    for (ScriptedLeaf& leaf : leaves) {
      gnmi::Update* u = notification->add_update();
      *u->mutable_path() = std::move(leaf.path);
      *u->mutable_val() = std::move(leaf.value);
    }
    for (gnmi::Path& d : deletes) *notification->add_delete_() = std::move(d);
    return router_->push(Ostrel::SyncId(0), msg);
  }

  struct Synced {
    std::string path;
    SyncKind kind;
  };
  std::vector<Synced> synced;
  size_t resumeCalls = 0;
  size_t cancelled = 0;

 private:
  struct Walk {
    SyncWalkId ids;
    std::deque<Ostrel::ArenaRespMsgPtr> messages;
  };

  Ostrel::WalkResult run(Walk& walk) {
    size_t pushed = 0;
    while (!walk.messages.empty()) {
      Ostrel::ArenaRespMsgPtr msg = std::move(walk.messages.front());
      walk.messages.pop_front();
      const bool more = router_->push(walk.ids.first, msg);
      ++pushed;
      if (!more) return Ostrel::WalkResult::RouterFull;
      if (quantum != 0 && pushed >= quantum && !walk.messages.empty()) {
        return Ostrel::WalkResult::QuantaExceeded;
      }
    }
    return Ostrel::WalkResult::Done;
  }

  MessageRouter* router_ = nullptr;
  std::map<std::string, std::pair<std::vector<ScriptedLeaf>, size_t>> scripts_;
  std::deque<Walk> pending_;
};

inline gnmi::Path pathOf(const std::string& text) { return P(text); }

inline ScriptedLeaf uintLeaf(const std::string& path, uint64_t v) {
  ScriptedLeaf leaf{pathOf(path), {}};
  leaf.value.set_uint_val(v);
  return leaf;
}

inline ScriptedLeaf stringLeaf(const std::string& path, const std::string& v) {
  ScriptedLeaf leaf{pathOf(path), {}};
  leaf.value.set_string_val(v);
  return leaf;
}

}  // namespace VekGnmiTest
