// Reference counting and notifiee registration.
#include "ValueOps.h"
#include "Vek/Entity.h"

namespace Vek {

std::atomic<bool> VFPtrInterface::threadSafePointers_{false};

PtrInterface::~PtrInterface() = default;

void PtrInterface::handleZeroRef() { delete this; }

void PtrInterface::notifieeRegisteredIs(NotifieeConst*, bool) const {
  ZOLT_FMASSERT(detail::debug(), "PtrInterface", "this object reports no changes");
}

PtrInterface::NotifieeConst::~NotifieeConst() {
  detach();
  if (holdsRef_ && notifier_) notifier_->deleteRef();
}

void PtrInterface::NotifieeConst::attach() {
  if (registered_ && notifier_ && !attached_) {
    notifier_->notifieeRegisteredIs(this, true);
    attached_ = true;
  }
}

void PtrInterface::NotifieeConst::detach() {
  if (attached_) {
    attached_ = false;
    notifier_->notifieeRegisteredIs(this, false);
  }
}

void PtrInterface::NotifieeConst::notifierIs(const PtrInterface* notifier) {
  if (notifier == notifier_) return;
  detach();
  const PtrInterface* old = std::exchange(notifier_, notifier);
  const bool heldOld = std::exchange(holdsRef_, false);
  if (notifier_ && !weak_) {
    notifier_->newRef();
    holdsRef_ = true;
  }
  attach();
  // Released last: dropping the old notifier may run its zero-reference
  // handling, which must no longer see this notifiee.
  if (heldOld && old) old->deleteRef();
}

void PtrInterface::NotifieeConst::isRegisteredNotifieeIs(bool registered) {
  registered_ = registered;
  if (registered) {
    attach();
  } else {
    detach();
  }
}

void PtrInterface::NotifieeConst::isWeakReferenceIs(bool weak) {
  weak_ = weak;
  if (weak && holdsRef_) {
    holdsRef_ = false;
    notifier_->deleteRef();
  } else if (!weak && !holdsRef_ && notifier_) {
    notifier_->newRef();
    holdsRef_ = true;
  }
}

std::vector<PtrInterface::NotifieeConst*> PtrInterface::NotifieeConst::notifieeList() const {
  const GenericIf* gif = attached_ ? notifier_->genericIfPtr() : nullptr;
  if (!gif || !gif->isEntity()) return {};
  return static_cast<const Entity*>(gif)->notifiees();
}

void PtrInterface::NotifieeConst::onAttribute(AttributeId, const void*) {}
void PtrInterface::NotifieeConst::onZeroReferences() {}

GenericIf::NotifieeConst::~NotifieeConst() = default;

Ptr<GenericIf const> GenericIf::NotifieeConst::keyPointerToGif(const VekAttr&, const void* keyPointer) {
  // The runtime reports a change with the collection's own stored key, so
  // the handle is that object; it compares and hashes by value anyway.
  return Ptr<GenericIf const>(static_cast<const GenericIf*>(keyPointer));
}

}  // namespace Vek
