#include "LibraryBridge.h"

#include <algorithm>

#include <Ostrel/BaseRouter.h>
#include <Ostrel/SyncScheduler.h>
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
SyncEvents::~SyncEvents() = default;
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

// The scheduler's questions, answered by the agent's SyncEvents.
class ReceiverAdapter final : public Ostrel::SyncReceiver {
 public:
  explicit ReceiverAdapter(SyncEvents& events) : events_(events) {}
  bool hasRoom(Ostrel::SyncId syncId) const override { return events_.hasRoom(syncId); }
  void syncDone(Ostrel::SyncId syncId) override { events_.syncDone(syncId); }

 private:
  SyncEvents& events_;
};

class LinkedLibraryBridge final : public LibraryBridge {
 public:
  LinkedLibraryBridge(MessageRouter& router, SyncEvents& events)
      : router_(router), receiver_(events), scheduler_(router_, receiver_) {}

  void startSync(Ostrel::SyncId syncId, std::vector<PublishedEntity> targets, SyncKind kind,
                 bool shared) override {
    // Syncs of the same entities and kind share one walk: a hundred
    // subscribers of the same paths cost one walk of the model.
    scheduler_.start(syncId, toTargets(std::move(targets)), Ostrel::WalkerFlags{walkerFlagBits(kind)},
                     shared ? Ostrel::SyncScheduler::Sharing::Shared : Ostrel::SyncScheduler::Sharing::Private);
  }

  void watch(const std::vector<PublishedEntity>& targets) override {
    std::vector<PublishedEntity> copy(targets);
    scheduler_.watch(toTargets(std::move(copy)), Ostrel::WalkerFlags{walkerFlagBits(SyncKind::Watch)});
  }

  bool runSyncs(std::chrono::nanoseconds budget) override {
    return scheduler_.run(Vek::Seconds(std::chrono::duration<double>(budget).count()));
  }

  std::optional<std::chrono::nanoseconds> wakeIn() const override {
    const std::optional<Vek::Seconds> at = scheduler_.nextWake();
    if (!at) return std::nullopt;
    const double seconds = std::max(0.0, static_cast<double>(*at - Vek::System::currentTime()));
    return std::chrono::nanoseconds(static_cast<int64_t>(seconds * 1e9));
  }

  bool cancelSync(Ostrel::SyncId syncId) override {
    const bool cancelled = scheduler_.cancel(syncId);
    ZOLT_TRACE(dbg, 4, "Bridge", "sync {} cancelled: {}", syncId, cancelled);
    return cancelled;
  }
  void roomFreed() override { scheduler_.roomFreed(); }
  void resolverIs(Resolver resolver) override { scheduler_.resolverIs(std::move(resolver)); }
  void flush() override { scheduler_.flush(); }

  size_t activeSyncs() const override { return scheduler_.syncCount(); }
  size_t pausedWalks() const override { return scheduler_.pausedWalks(); }
  uint64_t resumes() const override { return scheduler_.resumes(); }
  uint64_t resyncs() const override { return scheduler_.resyncs(); }

  std::unique_ptr<SetTransaction> makeSet(Vek::Ptr<Vek::GenericIf> root, gnmi::SetRequest request) override {
    return std::make_unique<LibrarySet>(std::move(root), std::move(request));
  }

 private:
  static std::vector<Ostrel::SyncTarget> toTargets(std::vector<PublishedEntity> entities) {
    std::vector<Ostrel::SyncTarget> targets;
    targets.reserve(entities.size());
    for (PublishedEntity& e : entities) targets.push_back({std::move(e.entity), std::move(e.path)});
    return targets;
  }

  RouterAdapter router_;
  ReceiverAdapter receiver_;
  Ostrel::SyncScheduler scheduler_;
};

}  // namespace

std::unique_ptr<LibraryBridge> makeLibraryBridge(MessageRouter& router, SyncEvents& events) {
  return std::make_unique<LinkedLibraryBridge>(router, events);
}

}  // namespace VekGnmi::Server
