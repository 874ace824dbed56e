// Keyed collections and their mutation-tolerant iterator.
#include "Vek/Collection.h"

#include "ValueOps.h"
#include "Vek/Entity.h"

namespace Vek {

namespace {
AllocTrackTypeInfo collectionTrack("Vek::Collection");

uint64_t serialOf(const GenericIf* entity) { return static_cast<const Entity*>(entity)->serial(); }
}  // namespace

bool CollectionKeyLess::operator()(const GenericIf* a, const GenericIf* b) const {
  return detail::compare(*a->type(), a->voidPtr(), b->voidPtr()) < 0;
}
bool CollectionKeyLess::operator()(const GenericIf* a, EntityKeyPosition b) const {
  return serialOf(a) < b.serial;
}
bool CollectionKeyLess::operator()(EntityKeyPosition a, const GenericIf* b) const {
  return a.serial < serialOf(b);
}

Collection::Collection(Entity& owner, const VekAttrBase& attr)
    : owner_(&owner),
      attr_(&attr),
      entityKeyed_(attr.indexType() && attr.indexType()->isEntity()),
      pointerMembers_(attr.isPointer()) {
  collectionTrack.trackAllocation(sizeof(Collection));
}

Collection::~Collection() {
  clear();
  collectionTrack.trackDeallocation(sizeof(Collection));
}

void Collection::hold(const GenericIf* object, bool plainReference) {
  if (plainReference) {
    Entity::referenceAdded(const_cast<GenericIf*>(object), *owner_, *attr_);
  } else {
    object->newRef();
  }
}

void Collection::drop(const GenericIf* object, bool plainReference) {
  if (plainReference) {
    if (owner_) Entity::referenceRemoved(const_cast<GenericIf*>(object), *owner_, *attr_);
  } else {
    object->deleteRef();
  }
}

GenericIf* Collection::find(const GenericIf* key) const {
  auto it = members_.find(key);
  return it == members_.end() ? nullptr : it->second;
}

const GenericIf* Collection::storedKey(const GenericIf* key) const {
  auto it = members_.find(key);
  return it == members_.end() ? nullptr : it->first;
}

std::pair<const GenericIf*, Ptr<GenericIf>> Collection::put(const GenericIf* key, GenericIf* member) {
  ++version_;
  auto it = members_.find(key);
  if (it != members_.end()) {
    Ptr<GenericIf> previous(it->second);
    hold(member, pointerMembers_);
    it->second = member;
    drop(previous, pointerMembers_);
    return {it->first, std::move(previous)};
  }
  // Value keys are stored as private immutable copies, so a caller's later
  // change of its key object cannot disturb the order. Entities are their
  // own keys.
  const GenericIf* stored = key;
  if (!entityKeyed_) {
    stored = detail::valueNew(*key->type(), key->voidPtr()).release();
  } else {
    hold(stored, entityKeyed_);
  }
  hold(member, pointerMembers_);
  members_.emplace(stored, member);
  return {stored, nullptr};
}

std::pair<Ptr<GenericIf const>, Ptr<GenericIf>> Collection::erase(const GenericIf* key) {
  auto it = members_.find(key);
  if (it == members_.end()) return {nullptr, nullptr};
  ++version_;
  std::pair<Ptr<GenericIf const>, Ptr<GenericIf>> result{it->first, it->second};
  const GenericIf* stored = it->first;
  GenericIf* member = it->second;
  members_.erase(it);
  drop(member, pointerMembers_);
  drop(stored, entityKeyed_);
  return result;
}

void Collection::clear() {
  ++version_;
  Map gone;
  gone.swap(members_);
  for (auto& [key, member] : gone) {
    drop(member, pointerMembers_);
    drop(key, entityKeyed_);
  }
}

void Collection::ownerGone() {
  clear();
  owner_ = nullptr;
}

// ---------------------------------------------------------------- iterator

CollectionIterator::CollectionIterator(Ptr<Collection const> collection)
    : collection_(std::move(collection)) {
  if (collection_) {
    version_ = collection_->version();
    settle(collection_->members().begin());
  }
}

void CollectionIterator::settle(Collection::Map::const_iterator position) {
  position_ = position;
  version_ = collection_->version();
  if (position_ == collection_->members().end()) {
    atEnd_ = true;
    onMember_ = false;
    lastKey_ = nullptr;
    return;
  }
  atEnd_ = false;
  onMember_ = true;
  if (collection_->entityKeyed()) {
    lastSerial_ = serialOf(position_->first);
  } else {
    lastKey_ = position_->first;
  }
}

bool CollectionIterator::relocate() const {
  if (atEnd_) return false;
  if (collection_->version() == version_) return onMember_;
  version_ = collection_->version();
  const auto& members = collection_->members();
  position_ = collection_->entityKeyed() ? members.find(EntityKeyPosition{lastSerial_})
                                         : members.find(lastKey_.ptr());
  onMember_ = position_ != members.end();
  return onMember_;
}

Collection::Map::const_iterator CollectionIterator::after() const {
  const auto& members = collection_->members();
  return collection_->entityKeyed() ? members.upper_bound(EntityKeyPosition{lastSerial_})
                                    : members.upper_bound(lastKey_.ptr());
}

CollectionIterator& CollectionIterator::operator++() {
  if (atEnd_) return *this;
  if (collection_->version() == version_ && onMember_) {
    settle(std::next(position_));
  } else {
    // The collection changed since the last step: the saved position may be
    // gone, so continue after the remembered key.
    settle(after());
  }
  return *this;
}

Ptr<GenericIf const> CollectionIterator::key() const {
  return relocate() ? Ptr<GenericIf const>(position_->first) : nullptr;
}

Ptr<GenericIf const> CollectionIterator::ptr() const {
  return relocate() ? Ptr<GenericIf const>(position_->second) : nullptr;
}

}  // namespace Vek
