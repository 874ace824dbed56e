// A test double of the library's sync core for the agent's tests: it
// publishes, for each entity the agent syncs, the leaves a test scripted for
// that entity's path, following the documented contract of the bridge's
// syncs: messages go to the router with the sync id; a push answered false
// ends the sync's turn and a sync whose owner has no room waits for
// roomFreed; `quantum` pushes per turn let the next sync go. It
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
  // The router and the agent's sync events are set once the agent's
  // router exists.
  void connect(MessageRouter* router, VekGnmi::Server::SyncEvents* events) {
    router_ = router;
    events_ = events;
  }

  // What a sync of the entity at `path` publishes, `perMessage` leaves a
  // message.
  void script(const std::string& path, std::vector<ScriptedLeaf> leaves, size_t perMessage = 1) {
    scripts_[path] = {std::move(leaves), perMessage};
  }
  // Pushes allowed per turn before a sync yields to the next (0: no limit).
  size_t quantum = 0;

  void startSync(Ostrel::SyncId syncId, std::vector<VekGnmi::Server::PublishedEntity> targets,
                 SyncKind kind, bool /*shared*/) override {
    Sync sync;
    sync.id = syncId;
    for (const auto& target : targets) {
      synced.push_back({VekGnmi::pathString(target.path), kind});
      auto it = scripts_.find(VekGnmi::pathString(target.path));
      if (it == scripts_.end()) continue;
      const auto& [leaves, perMessage] = it->second;
      for (size_t i = 0; i < leaves.size(); i += perMessage) {
        auto [msg, notification] = Ostrel::ArenaRespMsg::createResponse(target.path, 0);
        for (size_t j = i; j < leaves.size() && j < i + perMessage; ++j) {
          gnmi::Update* u = notification->add_update();
          *u->mutable_path() = leaves[j].path;
          *u->mutable_val() = leaves[j].value;
        }
        sync.messages.push_back(msg);
      }
    }
    syncs_.push_back(std::move(sync));
  }

  void watch(const std::vector<VekGnmi::Server::PublishedEntity>& targets) override {
    for (const auto& target : targets) synced.push_back({VekGnmi::pathString(target.path), SyncKind::Watch});
  }

  // Each sync with room takes a turn of `quantum` pushes (a refused push ends
  // it too); a sync with nothing left is reported done.
  bool runSyncs(std::chrono::nanoseconds) override {
    for (size_t turns = syncs_.size(); turns > 0 && !syncs_.empty(); --turns) {
      Sync sync = std::move(syncs_.front());
      syncs_.pop_front();
      if (!sync.messages.empty() && !events_->hasRoom(sync.id)) {
        waiting_.push_back(std::move(sync));
        continue;
      }
      if (sync.started) ++resumeCalls;
      sync.started = true;
      running_ = sync.id;
      cancelRunning_ = false;
      size_t pushed = 0;
      while (!sync.messages.empty() && !cancelRunning_) {
        Ostrel::ArenaRespMsgPtr msg = std::move(sync.messages.front());
        sync.messages.pop_front();
        const bool more = router_->push(sync.id, msg);
        ++pushed;
        if (!more || (quantum != 0 && pushed >= quantum)) break;
      }
      running_ = Ostrel::SyncId();
      if (cancelRunning_) continue;
      if (sync.messages.empty()) {
        events_->syncDone(sync.id);
      } else {
        syncs_.push_back(std::move(sync));
      }
    }
    return !syncs_.empty();
  }

  bool cancelSync(Ostrel::SyncId syncId) override {
    if (syncId == running_) {
      cancelRunning_ = true;
      ++cancelled;
      return true;
    }
    for (auto* list : {&syncs_, &waiting_}) {
      for (auto it = list->begin(); it != list->end(); ++it) {
        if (it->id != syncId) continue;
        list->erase(it);
        ++cancelled;
        return true;
      }
    }
    return false;
  }
  void roomFreed() override {
    for (Sync& sync : waiting_) syncs_.push_back(std::move(sync));
    waiting_.clear();
  }
  void flush() override {
    syncs_.clear();
    waiting_.clear();
  }
  size_t activeSyncs() const override { return syncs_.size() + waiting_.size(); }
  // Syncs that have pushed and have more to push.
  size_t pausedWalks() const override {
    size_t n = 0;
    for (const auto* list : {&syncs_, &waiting_}) {
      for (const Sync& sync : *list) n += sync.started ? 1 : 0;
    }
    return n;
  }
  uint64_t resumes() const override { return resumeCalls; }
  uint64_t resyncs() const override { return 0; }

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
  struct Sync {
    Ostrel::SyncId id;
    std::deque<Ostrel::ArenaRespMsgPtr> messages;
    bool started = false;
  };

  MessageRouter* router_ = nullptr;
  VekGnmi::Server::SyncEvents* events_ = nullptr;
  std::map<std::string, std::pair<std::vector<ScriptedLeaf>, size_t>> scripts_;
  std::deque<Sync> syncs_;
  std::deque<Sync> waiting_;
  Ostrel::SyncId running_;
  bool cancelRunning_ = false;
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
