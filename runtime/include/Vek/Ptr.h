// Reference counting: `Vek::PtrInterface` (base of every counted runtime
// object), the smart pointer `Vek::Ptr<T>`, and the notifiee base
// `PtrInterface::NotifieeConst` through which objects report their changes.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>
#include <vector>

#include "Vek/Basics.h"

namespace Vek {

class GenericIf;

// Process-wide switch of the reference counting discipline.
class VEK_EXPORT VFPtrInterface {
 public:
  // When true, reference counts change with atomic read-modify-write
  // operations, so `Ptr`s to one object may be copied and dropped on several
  // threads at once. When false (the default) counts change with plain loads
  // and stores: cheaper, and correct when every object is used by one thread
  // at a time. Set it before objects are shared between threads.
  static std::atomic<bool> threadSafePointers_;
};

// Base of every reference-counted runtime object. A new object has count 0;
// `Ptr` raises and lowers it. When the count drops to zero the object's
// `handleZeroRef` runs, which by default deletes it.
class VEK_EXPORT PtrInterface {
 public:
  class NotifieeConst;

  PtrInterface() = default;
  PtrInterface(const PtrInterface&) : PtrInterface() {}
  PtrInterface& operator=(const PtrInterface&) { return *this; }
  virtual ~PtrInterface();

  // Raises the count by one.
  void newRef() const {
    if (VFPtrInterface::threadSafePointers_.load(std::memory_order_relaxed)) {
      refs_.fetch_add(1, std::memory_order_relaxed);
    } else {
      refs_.store(refs_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    }
  }

  // Lowers the count by one; at zero calls `handleZeroRef`.
  void deleteRef() const {
    uint32_t left;
    if (VFPtrInterface::threadSafePointers_.load(std::memory_order_relaxed)) {
      left = refs_.fetch_sub(1, std::memory_order_acq_rel) - 1;
    } else {
      left = refs_.load(std::memory_order_relaxed) - 1;
      refs_.store(left, std::memory_order_relaxed);
    }
    if (left == 0) {
      const_cast<PtrInterface*>(this)->handleZeroRef();
    }
  }

  // The current count.
  uint32_t references() const { return refs_.load(std::memory_order_acquire); }

  // The reflective handle of this object, or null when it has none. Entities
  // and values are their own handles.
  virtual const GenericIf* genericIfPtr() const { return nullptr; }

  // Runs when the count drops to zero. The default deletes the object.
  virtual void handleZeroRef();

  // Adds (`registered` true) or removes `notifiee` from the observers of this
  // object. Objects that report no changes refuse with a fatal assertion.
  virtual void notifieeRegisteredIs(NotifieeConst* notifiee, bool registered) const;

 private:
  mutable std::atomic<uint32_t> refs_{0};
};

// An owning pointer that keeps one reference on its object.
template <typename T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}  // NOLINT
  Ptr(T* p) : p_(p) { acquire(); }  // NOLINT: raw pointers convert, as with intrusive counts
  Ptr(const Ptr& other) : p_(other.p_) { acquire(); }
  Ptr(Ptr&& other) noexcept : p_(std::exchange(other.p_, nullptr)) {}
  template <typename U>
  Ptr(const Ptr<U>& other) : p_(other.ptr()) {  // NOLINT
    acquire();
  }
  template <typename U>
  Ptr(Ptr<U>&& other) noexcept : p_(other.release()) {}  // NOLINT
  ~Ptr() { releaseRef(); }

  Ptr& operator=(const Ptr& other) {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(Ptr&& other) noexcept {
    Ptr(std::move(other)).swap(*this);
    return *this;
  }
  template <typename U>
  Ptr& operator=(const Ptr<U>& other) {
    Ptr(other).swap(*this);
    return *this;
  }
  Ptr& operator=(T* p) {
    Ptr(p).swap(*this);
    return *this;
  }

  T* ptr() const { return p_; }
  T* operator->() const { return p_; }
  T& operator*() const { return *p_; }
  operator T*() const { return p_; }  // NOLINT
  explicit operator bool() const { return p_ != nullptr; }

  // Gives up the reference without lowering the count; returns the object.
  T* release() { return std::exchange(p_, nullptr); }
  void swap(Ptr& other) noexcept { std::swap(p_, other.p_); }

 private:
  void acquire() const {
    if (p_) static_cast<const PtrInterface*>(p_)->newRef();
  }
  void releaseRef() {
    if (p_) static_cast<const PtrInterface*>(std::exchange(p_, nullptr))->deleteRef();
  }
  T* p_ = nullptr;
};

// Base of an observer of one object (its notifier). A notifiee is itself a
// counted object. Once registered (`isRegisteredNotifieeIs(true)`) it receives
// `onAttribute` after each change of its notifier, and `onZeroReferences` when
// the notifier's last reference goes. Unless it is a weak reference
// (`isWeakReferenceIs(true)`) it keeps one reference on its notifier.
class VEK_EXPORT PtrInterface::NotifieeConst : public PtrInterface {
 public:
  NotifieeConst() = default;
  NotifieeConst(const NotifieeConst&) = delete;
  NotifieeConst& operator=(const NotifieeConst&) = delete;
  ~NotifieeConst() override;

  const PtrInterface* notifier() const { return notifier_; }
  // Observes `notifier` instead of the current one (null observes nothing),
  // moving the registration and the reference along.
  void notifierIs(const PtrInterface* notifier);

  bool isRegisteredNotifiee() const { return registered_; }
  // Starts (true) or stops (false) the delivery of notifications.
  void isRegisteredNotifieeIs(bool registered);

  bool isWeakReference() const { return weak_; }
  // A weak notifiee holds no reference on its notifier. Turning weakness on
  // may drop the notifier's last reference.
  void isWeakReferenceIs(bool weak);

  // The notifiees registered on the same notifier (empty when unregistered).
  virtual std::vector<NotifieeConst*> notifieeList() const;
  bool hasNotificationActive() const { return active_; }
  // Pauses (false) or resumes (true) delivery without unregistering.
  virtual void hasNotificationActiveIs(bool active) { active_ = active; }
  bool zeroReferences() const { return wantsZeroRefs_; }
  // Whether `onZeroReferences` is delivered (true by default).
  virtual void zeroReferencesIs(bool wanted) { wantsZeroRefs_ = wanted; }
  // Names the notifiee framework, for diagnostics.
  virtual const char* fwkType() const { return "Vek::NotifieeConst"; }

  // Called after the attribute `attrId` of the notifier changed. `key` is the
  // raw key of the inserted, changed or erased collection member (see
  // `GenericIf::NotifieeConst::keyPointerToGif`), null for other attributes.
  virtual void onAttribute(AttributeId attrId, const void* key);
  // Called when the notifier's last reference has gone, before it is deleted.
  virtual void onZeroReferences();

 private:
  friend class Entity;
  void attach();
  void detach();

  const PtrInterface* notifier_ = nullptr;
  bool registered_ = false;
  bool weak_ = false;
  bool holdsRef_ = false;
  bool attached_ = false;
  bool active_ = true;
  bool wantsZeroRefs_ = true;
};

}  // namespace Vek
