#include "LibraryBridge.h"

#include <Ostrel/VekGnmiUtils.h>

namespace VekGnmi::Server {

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

class UnlinkedLibraryBridge final : public LibraryBridge {
 public:
  bool syncAvailable() const override { return false; }
  bool setAvailable() const override { return false; }
  Ostrel::WalkResult syncObject(const Vek::Ptr<Vek::Entity>&, const gnmi::Path&, SyncWalkId,
                                SyncKind) override {
    return Ostrel::WalkResult::Done;
  }
  Ostrel::WalkResult resumeAll(std::vector<SyncWalkId>&) override { return Ostrel::WalkResult::Done; }
  bool cancelPendingSync(Ostrel::WalkId) override { return false; }
  void flushWalkMap() override {}
  size_t walkMapSize() const override { return 0; }
  std::unique_ptr<SetTransaction> makeSet(Vek::Ptr<Vek::GenericIf>, gnmi::SetRequest) override {
    return nullptr;
  }
};

}  // namespace

std::unique_ptr<LibraryBridge> makeUnlinkedLibraryBridge() {
  return std::make_unique<UnlinkedLibraryBridge>();
}

}  // namespace VekGnmi::Server
