// Keyed collections and their mutation-tolerant iterator.
#include "ValueOps.h"
#include "Vek/Entity.h"

namespace Vek {

namespace {
AllocTrackTypeInfo collectionTrack("Vek::Collection");
}

bool CollectionKeyLess::operator()(const GenericIf* a, const GenericIf* b) const {
  return detail::compare(*a->type(), a->voidPtr(), b->voidPtr()) < 0;
}

Collection::Collection(const VekAttrBase& attr) : attr_(&attr) {
  collectionTrack.trackAllocation(sizeof(Collection));
}

Collection::~Collection() { collectionTrack.trackDeallocation(sizeof(Collection)); }

GenericIf* Collection::find(const GenericIf* key) const {
  auto it = members_.find(key);
  return it == members_.end() ? nullptr : it->second.ptr();
}

const GenericIf* Collection::storedKey(const GenericIf* key) const {
  auto it = members_.find(key);
  return it == members_.end() ? nullptr : it->first.ptr();
}

std::pair<const GenericIf*, Ptr<GenericIf>> Collection::put(const GenericIf* key, Ptr<GenericIf> member) {
  ++version_;
  auto it = members_.find(key);
  if (it != members_.end()) {
    Ptr<GenericIf> previous = std::exchange(it->second, std::move(member));
    return {it->first.ptr(), std::move(previous)};
  }
  // Keys are stored as private immutable copies, so a caller's later change
  // of its key object cannot disturb the order. Entities are their own keys.
  Ptr<GenericIf const> stored =
      key->isEntity() ? Ptr<GenericIf const>(key) : Ptr<GenericIf const>(detail::valueNew(*key->type(), key->voidPtr()));
  auto [pos, inserted] = members_.emplace(std::move(stored), std::move(member));
  (void)inserted;
  return {pos->first.ptr(), nullptr};
}

std::pair<Ptr<GenericIf const>, Ptr<GenericIf>> Collection::erase(const GenericIf* key) {
  auto it = members_.find(key);
  if (it == members_.end()) return {nullptr, nullptr};
  ++version_;
  std::pair<Ptr<GenericIf const>, Ptr<GenericIf>> result{it->first, std::move(it->second)};
  members_.erase(it);
  return result;
}

Collection::Map Collection::clear() {
  ++version_;
  Map gone;
  gone.swap(members_);
  return gone;
}

CollectionIterator::CollectionIterator(Ptr<Collection const> collection)
    : collection_(std::move(collection)) {
  if (collection_) {
    position_ = collection_->members().begin();
    version_ = collection_->version();
    load();
  }
}

void CollectionIterator::load() {
  if (position_ == collection_->members().end()) {
    key_ = nullptr;
    value_ = nullptr;
  } else {
    key_ = position_->first;
    value_ = position_->second;
  }
}

CollectionIterator& CollectionIterator::operator++() {
  if (!collection_ || !key_) return *this;
  if (collection_->version() != version_) {
    // The collection changed since the last step: the saved position may be
    // gone, so continue after the last key returned, which this iterator
    // still holds.
    position_ = collection_->members().upper_bound(key_.ptr());
    version_ = collection_->version();
  } else {
    ++position_;
  }
  load();
  return *this;
}

}  // namespace Vek
