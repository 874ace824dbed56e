// Entities, their ownership tree, plain references between them and change
// reporting. Directories are in Dir.cpp.
#include <unordered_map>

#include <boost/container/small_vector.hpp>

#include "ValueOps.h"
#include "Vek/Entity.h"

namespace Vek {

namespace {
std::atomic<uint64_t> nextSerial{1};
using NotifieeRound = boost::container::small_vector<PtrInterface::NotifieeConst*, 4>;

// The entities of a subtree, its top first.
using Subtree = boost::container::small_vector<Entity*, 8>;
}  // namespace

// The plain references to one entity: for each (holder, attribute), how many
// slots of that attribute name it (a pointer, pointer-collection members, a
// key).
struct Entity::Referrers {
  struct Site {
    Entity* holder;
    const VekAttrBase* attr;
    bool operator==(const Site&) const = default;
  };
  struct SiteHash {
    size_t operator()(const Site& s) const noexcept {
      return std::hash<const void*>{}(s.holder) * 31 + std::hash<const void*>{}(s.attr);
    }
  };
  std::unordered_map<Site, uint32_t, SiteHash> counts;
};

AllocTrackTypeInfo& Entity::allocTrackInfo() {
  static AllocTrackTypeInfo* info = new AllocTrackTypeInfo("Vek::Entity(all)");
  return *info;
}

Entity* Entity::make(const VekTypeBase* type, String name) {
  if (!type || !type->isEntity() || !type->isSealed() || VekType(type) == entityBaseType()) {
    throw TypeMismatchException(
        fmt::format("{} is not a concrete entity type", type ? type->qualifiedName() : "null"));
  }
  if (type->baseType() == Dir::dirType()) return new Dir(type, std::move(name));
  if (type->baseType() == Dir::Entry::entryType()) return new Dir::Entry(type, std::move(name));
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
    const VekAttrBase& a = type->attrRefAt(i);
    char* at = block + a.offset();
    switch (a.storage()) {
      case AttrStorage::Value:
        detail::constructAttr(a, at);
        break;
      case AttrStorage::Ref:
        new (at) Ptr<GenericIf>();
        break;
      case AttrStorage::Pointer:
        new (at) GenericIf*(nullptr);
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
  // Handles taken on this entity from here on must not end it again.
  zeroRefRunning_ = true;
  // Pointers and keys held here go first, while the owned entities they may
  // name are still alive; then the owned entities and the values.
  releaseReferences();
  clearReferrers();
  const VekTypeBase& t = *type();
  char* block = static_cast<char*>(block_);
  for (size_t i = 0; i < t.attrCount(); ++i) {
    const VekAttrBase& a = t.attrRefAt(i);
    char* at = block + a.offset();
    switch (a.storage()) {
      case AttrStorage::Value:
        detail::destroy(*a.type(), at);
        break;
      case AttrStorage::Ref:
        reinterpret_cast<Ptr<GenericIf>*>(at)->~Ptr();
        break;
      case AttrStorage::Pointer:
        break;
      case AttrStorage::Collection: {
        auto* slot = reinterpret_cast<Ptr<Collection>*>(at);
        if (*slot) (*slot)->ownerGone();
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

namespace {

// Appends `name` to `out`, a backslash before each character special to the
// path text.
void appendEscapedName(const std::string& name, std::string& out) {
  for (const char c : name) {
    if (c == '/' || c == '[' || c == ']' || c == '\\') out += '\\';
    out += c;
  }
}

template <typename Fn>
void forEachFromRoot(const Entity* entity, Fn&& fn) {
  boost::container::small_vector<const Entity*, 8> chain;
  for (const Entity* e = entity; e; e = e->parent()) chain.push_back(e);
  for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
    // An unnamed root contributes nothing.
    if (it == chain.rbegin() && (*it)->name().empty() && chain.size() > 1) continue;
    fn(**it);
  }
}

}  // namespace

std::string Entity::fullName() const {
  std::string out;
  if (!parent_ && name_.empty()) return out;
  forEachFromRoot(this, [&](const Entity& e) {
    out += '/';
    appendEscapedName(e.name().stdString(), out);
  });
  return out;
}

std::string Entity::dottedName() const {
  std::string out;
  forEachFromRoot(this, [&](const Entity& e) {
    if (!out.empty()) out += '.';
    out += e.name().stdString();
  });
  return out;
}

Collection* Entity::collection(const VekAttrBase& attr, bool create) const {
  auto& slot = *reinterpret_cast<Ptr<Collection>*>(static_cast<char*>(block_) + attr.offset());
  if (!slot && create) slot = new Collection(*const_cast<Entity*>(this), attr);
  return slot;
}

size_t Entity::referenceCount() const {
  size_t n = 0;
  if (referrers_) {
    for (const auto& [site, count] : referrers_->counts) n += count;
  }
  return n;
}

void Entity::referenceAdded(GenericIf* target, Entity& holder, const VekAttrBase& attr) {
  if (!target || !target->isEntity()) return;
  auto* e = static_cast<Entity*>(target);
  if (!e->referrers_) e->referrers_ = std::make_unique<Referrers>();
  ++e->referrers_->counts[Referrers::Site{&holder, &attr}];
}

void Entity::referenceRemoved(GenericIf* target, Entity& holder, const VekAttrBase& attr) {
  if (!target || !target->isEntity()) return;
  auto* e = static_cast<Entity*>(target);
  if (!e->referrers_) return;
  auto& counts = e->referrers_->counts;
  const auto it = counts.find(Referrers::Site{&holder, &attr});
  if (it != counts.end() && --it->second == 0) counts.erase(it);
}

void Entity::pointerSlotIs(const VekAttrBase& attr, GenericIf* target) {
  auto& slot = *reinterpret_cast<GenericIf**>(static_cast<char*>(block_) + attr.offset());
  GenericIf* previous = std::exchange(slot, target);
  referenceAdded(target, *this, attr);
  referenceRemoved(previous, *this, attr);
}

void Entity::adopt(Entity* child) { child->parent_ = this; }

namespace {

// Appends `top` and every entity it owns, depth first, owners before what
// they own.
void collectSubtree(Entity* top, Subtree& out) {
  out.push_back(top);
  const VekTypeBase& t = *top->type();
  for (size_t i = 0; i < t.attrCount(); ++i) {
    const VekAttrBase& a = t.attrRefAt(i);
    if (!a.isInstantiating()) continue;
    if (a.storage() == AttrStorage::Ref) {
      const auto& slot = *reinterpret_cast<const Ptr<GenericIf>*>(static_cast<const char*>(top->block()) +
                                                                  a.offset());
      if (slot && slot->isEntity()) collectSubtree(static_cast<Entity*>(slot.ptr()), out);
    } else if (a.storage() == AttrStorage::Collection) {
      if (const Collection* c = top->collection(a, false)) {
        for (const auto& [key, member] : c->members()) {
          if (member->isEntity()) collectSubtree(static_cast<Entity*>(member), out);
        }
      }
    }
  }
}

}  // namespace

void Entity::leave(GenericIf* member) {
  if (!member || !member->isEntity()) return;
  auto* top = static_cast<Entity*>(member);
  Subtree subtree;
  collectSubtree(top, subtree);
  // Held while leaving: clearing references reports to notifiees, which may
  // take and drop handles.
  boost::container::small_vector<Ptr<Entity>, 8> held(subtree.begin(), subtree.end());
  // Leaving entities report nothing, so the clean-up inside the subtree is
  // silent.
  for (Entity* e : subtree) e->left_ = true;
  for (Entity* e : subtree) e->releaseReferences();
  // Holders outside are told while the leaving entities still have their
  // owners and names, so a key that names one still reads as it did.
  for (Entity* e : subtree) e->clearReferrers();
  for (Entity* e : subtree) e->orphan_ = true;
  top->parent_ = nullptr;
}

void Entity::releaseReferences() {
  const VekTypeBase& t = *type();
  for (size_t i = 0; i < t.attrCount(); ++i) {
    const VekAttrBase& a = t.attrRefAt(i);
    if (a.storage() == AttrStorage::Pointer) {
      if (pointer(a)) {
        pointerSlotIs(a, nullptr);
        attributeChanged(a, nullptr);
      }
    } else if (a.storage() == AttrStorage::Collection) {
      // Members that are pointers, or keyed by entities: erased one by one,
      // each reported with its key as an ordinary erase is (an orphan's
      // notifiees hear nothing).
      Collection* c = collection(a, false);
      if (!c || c->size() == 0 || !(c->entityKeyed() || a.isPointer())) continue;
      boost::container::small_vector<Ptr<GenericIf const>, 8> keys;
      for (const auto& [key, member] : c->members()) keys.emplace_back(key);
      for (const auto& key : keys) eraseMember(a, key);
    }
  }
}

void Entity::clearReferrers() {
  // A notifiee told of a clearing may not point at this entity again (an
  // orphan is refused as a target), so this ends.
  while (referrers_ && !referrers_->counts.empty()) {
    boost::container::small_vector<Referrers::Site, 8> sites;
    for (const auto& [site, count] : referrers_->counts) sites.push_back(site);
    for (const Referrers::Site& site : sites) {
      const Ptr<Entity> holder(site.holder);
      holder->dropReferencesTo(*site.attr, this);
    }
  }
}

void Entity::dropReferencesTo(const VekAttrBase& attr, Entity* target) {
  if (attr.storage() == AttrStorage::Pointer) {
    if (pointer(attr) == target) {
      pointerSlotIs(attr, nullptr);
      attributeChanged(attr, nullptr);
    }
    return;
  }
  Collection* c = collection(attr, false);
  if (!c) return;
  boost::container::small_vector<Ptr<GenericIf const>, 4> keys;
  if (c->entityKeyed() && c->find(target)) keys.emplace_back(target);
  if (attr.isPointer()) {
    for (const auto& [key, member] : c->members()) {
      if (member == target && key != target) keys.emplace_back(key);
    }
  }
  for (const auto& key : keys) eraseMember(attr, key);
}

bool Entity::eraseMember(const VekAttrBase& attr, const GenericIf* key) {
  Collection* c = collection(attr, false);
  if (!c) return false;
  auto [storedKey, member] = c->erase(key);
  if (!storedKey) return false;
  if (attr.isInstantiating()) leave(member);
  // The member goes before the change is reported; the key stays alive for
  // the report.
  member = nullptr;
  attributeChanged(attr, storedKey);
  return true;
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
  if (k && k->isEntity() && static_cast<const Entity*>(k)->left_) {
    throw TypeMismatchException(fmt::format("{} cannot be keyed by an entity that left the model",
                                            attr->name()));
  }
  Ptr<Entity> child = make(type.base(), key ? String(k->strRep()) : String(attr->name()));
  if (attr->check()) {
    std::string message = attr->check()(*this, k, child.ptr());
    if (!message.empty()) throw ValueRejectedException(message);
  }
  adopt(child);
  if (!attr->isCollection()) {
    auto& slot = *reinterpret_cast<Ptr<GenericIf>*>(static_cast<char*>(block_) + attr->offset());
    Ptr<GenericIf> previous = std::exchange(slot, Ptr<GenericIf>(child.ptr()));
    // The replaced child leaves and ends before the owner reports the change.
    leave(previous);
    previous = nullptr;
    attributeChanged(*attr, nullptr);
    return child;
  }
  auto [stored, previous] = collection(*attr, true)->put(k, child.ptr());
  leave(previous);
  previous = nullptr;
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
  leave(previous);
  previous = nullptr;
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
  // Nothing is reported from an entity that has left the model.
  if (notifiees_.empty() || left_) return;
  notifyRound([&](PtrInterface::NotifieeConst& n) {
    if (n.active_) n.onAttribute(attr.id(), key);
  });
}

void Entity::handleZeroRef() {
  if (zeroRefRunning_) return;  // a handle taken and dropped meanwhile
  zeroRefRunning_ = true;
  // A root (or any entity still in the model) leaves it before it ends, so
  // no pointer elsewhere is left naming it.
  if (!left_) leave(this);
  if (!notifiees_.empty()) {
    notifyRound([](PtrInterface::NotifieeConst& n) {
      if (n.wantsZeroRefs_) n.onZeroReferences();
    });
  }
  zeroRefRunning_ = false;
  if (references() != 0) return;  // a notifiee kept the entity
  delete this;
}

}  // namespace Vek
