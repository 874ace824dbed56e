// Entities, their ownership tree and change reporting; directories.
#include <boost/container/small_vector.hpp>

#include "ValueOps.h"
#include "Vek/Entity.h"

namespace Vek {

namespace {
std::atomic<uint64_t> nextSerial{1};
using NotifieeRound = boost::container::small_vector<PtrInterface::NotifieeConst*, 4>;
}  // namespace

AllocTrackTypeInfo& Entity::allocTrackInfo() {
  static AllocTrackTypeInfo* info = new AllocTrackTypeInfo("Vek::Entity(all)");
  return *info;
}

Entity* Entity::make(const VekTypeBase* type, String name) {
  if (!type || !type->isEntity() || !type->isSealed() || VekType(type) == entityBaseType()) {
    throw TypeMismatchException(
        fmt::format("{} is not a concrete entity type", type ? type->qualifiedName() : "null"));
  }
  if (VekType(type) == Dir::dirType()) return new Dir(type, std::move(name));
  if (VekType(type) == Dir::Entry::entryType()) return new Dir::Entry(type, std::move(name));
  return new Entity(type, std::move(name));
}

Ptr<Entity> Entity::rootNew(VekType type, String name) { return make(type.base(), std::move(name)); }

Entity::Entity(const VekTypeBase* type, String name)
    : GenericIf(type, static_cast<PtrInterface*>(this)),
      name_(std::move(name)),
      serial_(nextSerial.fetch_add(1, std::memory_order_relaxed)) {
  if (type->blockSize() > 0) {
    block_ = ::operator new(type->blockSize(), std::align_val_t(alignof(std::max_align_t)));
  }
  char* block = static_cast<char*>(block_);
  for (size_t i = 0; i < type->attrCount(); ++i) {
    const VekAttrBase& a = *type->attrAt(i);
    char* at = block + a.offset();
    switch (a.storage()) {
      case AttrStorage::Value:
        if (a.defaultValue()) {
          detail::copyConstruct(*a.type(), at, a.defaultValue()->voidPtr());
        } else {
          detail::construct(*a.type(), at);
        }
        break;
      case AttrStorage::Ref:
        new (at) Ptr<GenericIf>();
        break;
      case AttrStorage::Collection:
        new (at) Ptr<Collection>();
        break;
      case AttrStorage::Name:
      case AttrStorage::None:
        break;
    }
  }
  type->allocTrack().trackAllocation(sizeof(Entity) + type->blockSize());
  allocTrackInfo().trackAllocation(sizeof(Entity) + type->blockSize());
}

Entity::~Entity() {
  const VekTypeBase& t = *type();
  char* block = static_cast<char*>(block_);
  for (size_t i = 0; i < t.attrCount(); ++i) {
    const VekAttrBase& a = *t.attrAt(i);
    char* at = block + a.offset();
    switch (a.storage()) {
      case AttrStorage::Value:
        detail::destroy(*a.type(), at);
        break;
      case AttrStorage::Ref: {
        auto* slot = reinterpret_cast<Ptr<GenericIf>*>(at);
        if (a.isInstantiating()) disown(*slot);
        slot->~Ptr();
        break;
      }
      case AttrStorage::Collection: {
        auto* slot = reinterpret_cast<Ptr<Collection>*>(at);
        if (*slot) {
          Collection::Map gone = (*slot)->clear();
          if (a.isInstantiating()) {
            for (auto& [key, member] : gone) disown(member);
          }
        }
        slot->~Ptr();
        break;
      }
      case AttrStorage::Name:
      case AttrStorage::None:
        break;
    }
  }
  ::operator delete(block_, std::align_val_t(alignof(std::max_align_t)));
  // Notifiees still registered outlive this entity: they observe nothing now.
  for (auto* n : notifiees_) {
    n->attached_ = false;
    n->notifier_ = nullptr;
  }
  t.allocTrack().trackDeallocation(sizeof(Entity) + t.blockSize());
  allocTrackInfo().trackDeallocation(sizeof(Entity) + t.blockSize());
}

std::string Entity::fullName() const {
  std::vector<const Entity*> chain;
  for (const Entity* e = this; e; e = e->parent_) chain.push_back(e);
  std::string out;
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    if ((*it)->name_.empty() && it == chain.rbegin() && chain.size() > 1) continue;
    if (!out.empty()) out += '.';
    out += (*it)->name_.stdString();
  }
  return out;
}

Collection* Entity::collection(const VekAttrBase& attr, bool create) const {
  auto& slot = *reinterpret_cast<Ptr<Collection>*>(static_cast<char*>(block_) + attr.offset());
  if (!slot && create) slot = new Collection(attr);
  return slot;
}

void Entity::adopt(Entity* child, const VekAttrBase&) {
  child->parent_ = this;
  child->orphan_ = false;
}

void Entity::disown(GenericIf* member) {
  if (!member || !member->isEntity()) return;
  auto* child = static_cast<Entity*>(member);
  child->parent_ = nullptr;
  child->orphan_ = true;
  child->releasePointers();
}

void Entity::releasePointers() {
  // A removed entity has left the model with everything it owns: the
  // references held through pointers (and pointer keys) anywhere in that
  // subtree go, so that pointers between removed entities, or back up to
  // an owner, cannot keep them alive. Each clearing is reported like any
  // other change. Owned children stay until their owner dies.
  const VekTypeBase& t = *type();
  boost::container::small_vector<Ptr<GenericIf>, 4> children;
  for (size_t i = 0; i < t.attrCount(); ++i) {
    const VekAttrBase& a = *t.attrAt(i);
    char* at = static_cast<char*>(block_) + a.offset();
    if (a.storage() == AttrStorage::Ref) {
      auto& slot = *reinterpret_cast<Ptr<GenericIf>*>(at);
      if (a.isInstantiating()) {
        if (slot) children.push_back(slot);
      } else if (slot) {
        Ptr<GenericIf> previous = std::exchange(slot, nullptr);
        attributeChanged(a, nullptr);
      }
    } else if (a.storage() == AttrStorage::Collection) {
      const Collection* c = collection(a, false);
      if (!c || c->size() == 0) continue;
      if (a.isInstantiating()) {
        for (const auto& [key, member] : c->members()) children.push_back(member);
      } else if (a.isPointer() || a.indexType()->isEntity()) {
        // Erased one by one, each reported with its key, as an ordinary
        // erase does; members a notifiee adds meanwhile stay.
        std::vector<Ptr<GenericIf const>> keys;
        keys.reserve(c->size());
        for (const auto& [key, member] : c->members()) keys.push_back(key);
        for (const auto& key : keys) {
          Collection* current = collection(a, false);
          if (!current) break;
          auto [storedKey, erased] = current->erase(key);
          if (storedKey) attributeChanged(a, storedKey);
        }
      }
    }
  }
  for (const auto& child : children) {
    if (child->isEntity()) static_cast<Entity*>(child.ptr())->releasePointers();
  }
}

Ptr<Entity> Entity::entityNew(const VekAttr& attr, const GenericIf* key, VekType type) {
  if (!attr || !attr->isInstantiating()) {
    throw TypeMismatchException(
        fmt::format("{} does not own entities", attr ? attr->name() : std::string("(no attribute)")));
  }
  if (attr->owner()->baseType() != this->type()->baseType()) {
    throw TypeMismatchException(fmt::format("{} is not an attribute of {}", attr->name(),
                                            this->type()->qualifiedName()));
  }
  if (!type) type = attr->type();
  if (attr->type() != entityBaseType() && type->baseType() != attr->type()->baseType()) {
    throw TypeMismatchException(fmt::format("{} holds {}, not {}", attr->name(),
                                            attr->type()->qualifiedName(), type->qualifiedName()));
  }
  if (attr->isCollection() != (key != nullptr)) {
    throw TypeMismatchException(fmt::format("{} {} a key", attr->name(),
                                            attr->isCollection() ? "needs" : "takes no"));
  }
  Ptr<GenericIf> holder;
  const GenericIf* k = key ? detail::keyFor(*attr, key, holder) : nullptr;
  Ptr<Entity> child = make(type.base(), key ? String(k->strRep()) : String(attr->name()));
  if (attr->check()) {
    std::string message = attr->check()(*this, k, child.ptr());
    if (!message.empty()) throw ValueRejectedException(message);
  }
  adopt(child, *attr);
  if (!attr->isCollection()) {
    auto& slot = *reinterpret_cast<Ptr<GenericIf>*>(static_cast<char*>(block_) + attr->offset());
    Ptr<GenericIf> previous = std::exchange(slot, Ptr<GenericIf>(child.ptr()));
    disown(previous);
    attributeChanged(*attr, nullptr);
    return child;
  }
  auto [stored, previous] = collection(*attr, true)->put(k, Ptr<GenericIf>(child.ptr()));
  disown(previous);
  Ptr<GenericIf const> keepKey(stored);
  attributeChanged(*attr, stored);
  return child;
}

bool Entity::entityDel(const VekAttr& attr, const GenericIf* key) {
  if (!attr || !attr->isInstantiating()) return false;
  if (attr->isCollection()) return attr.genericIfErase(this, key);
  auto& slot = *reinterpret_cast<Ptr<GenericIf>*>(static_cast<char*>(block_) + attr->offset());
  if (!slot) return false;
  if (attr->check()) {
    std::string message = attr->check()(*this, nullptr, nullptr);
    if (!message.empty()) throw ValueRejectedException(message);
  }
  Ptr<GenericIf> previous = std::exchange(slot, nullptr);
  disown(previous);
  attributeChanged(*attr, nullptr);
  return true;
}

Ptr<Entity> Entity::entity(const VekAttr& attr, const GenericIf* key) const {
  Ptr<GenericIf const> g = attr.genericIfGet(this, key);
  if (!g || !g->isEntity()) return nullptr;
  return Ptr<Entity>(static_cast<Entity*>(const_cast<GenericIf*>(g.ptr())));
}

void Entity::pointerIs(const VekAttr& attr, Entity* target, const GenericIf* key) {
  if (attr && attr->isCollection() && !target) {
    attr.genericIfErase(this, key);
    return;
  }
  attr.genericIfSet(this, key, target);
}

size_t Entity::memberCount(const VekAttr& attr) const {
  if (!attr || attr->storage() != AttrStorage::Collection) return 0;
  const Collection* c = collection(*attr, false);
  return c ? c->size() : 0;
}

void Entity::notifieeRegisteredIs(PtrInterface::NotifieeConst* notifiee, bool registered) const {
  auto it = std::find(notifiees_.begin(), notifiees_.end(), notifiee);
  if (registered && it == notifiees_.end()) {
    notifiees_.push_back(notifiee);
    ++notifieesVersion_;
  }
  if (!registered && it != notifiees_.end()) {
    notifiees_.erase(it);
    ++notifieesVersion_;
  }
}

bool Entity::stillNotified(const PtrInterface::NotifieeConst* notifiee, uint64_t roundVersion) const {
  // Unchanged registrations: every notifiee of the round is still there.
  // Otherwise one may have gone, even been deleted, so only the address is
  // looked at until it is found registered.
  if (notifieesVersion_ != roundVersion &&
      std::find(notifiees_.begin(), notifiees_.end(), notifiee) == notifiees_.end()) {
    return false;
  }
  return notifiee->notifier_ == this && notifiee->attached_;
}

template <typename Fn>
void Entity::notifyRound(Fn&& call) {
  // Notifiees may register, unregister or drop one another from inside the
  // callback, so the round works on a copy of the list and calls only those
  // still registered. The round takes no reference on a notifiee that no
  // `Ptr` owns (count zero): that would delete it when dropped. One that is
  // owned is held during its own callback, which may drop it.
  const NotifieeRound round(notifiees_.begin(), notifiees_.end());
  const uint64_t version = notifieesVersion_;
  for (PtrInterface::NotifieeConst* n : round) {
    if (!stillNotified(n, version)) continue;
    if (n->references() == 0) {
      call(*n);
    } else {
      const Ptr<PtrInterface::NotifieeConst> hold(n);
      call(*n);
    }
  }
}

void Entity::attributeChanged(const VekAttrBase& attr, const GenericIf* key) {
  if (notifiees_.empty()) return;
  notifyRound([&](PtrInterface::NotifieeConst& n) {
    if (n.active_) n.onAttribute(attr.id(), key);
  });
}

void Entity::handleZeroRef() {
  if (zeroRefRunning_) return;  // a handle taken and dropped by a notifiee
  if (!notifiees_.empty()) {
    zeroRefRunning_ = true;
    notifyRound([](PtrInterface::NotifieeConst& n) {
      if (n.wantsZeroRefs_) n.onZeroReferences();
    });
    zeroRefRunning_ = false;
    if (references() != 0) return;  // a notifiee kept the entity
  }
  delete this;
}

// ---------------------------------------------------------------- directories

VekAttr Dir::entityPtrAttr() { return dirType()->attr("entityPtr"); }

Ptr<Dir> Dir::rootNew(String name) { return static_cast<Dir*>(make(dirType().base(), std::move(name))); }

Ptr<Dir> Dir::dirNew(String name) {
  return static_cast<Dir*>(childNew(dirType(), std::move(name)).ptr());
}

Ptr<Entity> Dir::childNew(VekType type, String name) {
  return entityNew(entityPtrAttr(), genericIfOf(name), type);
}

Ptr<Entity> Dir::child(const String& name) const { return entity(entityPtrAttr(), genericIfOf(name)); }

Ptr<Dir::Entry> Dir::entryNew(String name, Entity* target) {
  Ptr<Entity> e = childNew(Entry::entryType(), std::move(name));
  e->pointerIs("entity", target);
  return static_cast<Entry*>(e.ptr());
}

bool Dir::childDel(const String& name) { return entityDel(entityPtrAttr(), genericIfOf(name)); }

Ptr<Entity> Dir::Entry::target() const { return entity("entity"); }

}  // namespace Vek
