// `Vek::Collection`: the members of one keyed collection or array attribute of
// an entity, and `Vek::CollectionIterator`, the iterator over them that
// survives changes and can be saved across a pause.
#pragma once

#include <cstdint>
#include <map>
#include <utility>

#include "Vek/GenericIf.h"

namespace Vek {

class Entity;

// The position of an entity key: entities order by creation number
// (`Entity::serial`), so a position among entity keys is that number alone.
struct EntityKeyPosition {
  uint64_t serial;
};

// Orders the keys of one collection by value (entities by creation order).
// Transparent, so that a position among entity keys can be looked up without
// a reference on the entity.
struct VEK_EXPORT CollectionKeyLess {
  using is_transparent = void;
  bool operator()(const GenericIf* a, const GenericIf* b) const;
  bool operator()(const GenericIf* a, EntityKeyPosition b) const;
  bool operator()(EntityKeyPosition a, const GenericIf* b) const;
};

// The members of one collection or array attribute of one entity, ordered by
// key. Every change bumps `version()`, which lets iterators notice it.
//
// What the collection owns: keys that are values are private immutable copies
// held by a counted reference; members that are values or owned entities are
// held by a counted reference. Keys that are entities and members that are
// pointers to entities are plain references: they do not keep the entity
// alive. The entity model clears them when their entity leaves it (see
// Entity.h), so they never dangle.
class VEK_EXPORT Collection : public PtrInterface {
 public:
  using Map = std::map<const GenericIf*, GenericIf*, CollectionKeyLess>;

  Collection(Entity& owner, const VekAttrBase& attr);
  // Releases every key and member, as `clear` does.
  ~Collection() override;

  const VekAttrBase& attr() const { return *attr_; }
  // The entity whose attribute this is; null once that entity is gone (an
  // iterator may keep an emptied collection alive).
  Entity* owner() const { return owner_; }
  const Map& members() const { return members_; }
  size_t size() const { return members_.size(); }
  uint64_t version() const { return version_; }
  // Whether keys are entities (compared and positioned by creation order).
  bool entityKeyed() const { return entityKeyed_; }

  // The member at `key`, or null.
  GenericIf* find(const GenericIf* key) const;
  // The stored key equal to `key`, or null.
  const GenericIf* storedKey(const GenericIf* key) const;
  // Inserts `member` at `key` or replaces the member there; returns the stored
  // key and the previous member (held, so the caller can report the change
  // before it goes).
  std::pair<const GenericIf*, Ptr<GenericIf>> put(const GenericIf* key, GenericIf* member);
  // Removes `key`; returns the stored key and the member (both null when
  // absent), held, so the caller can report the change before they go.
  std::pair<Ptr<GenericIf const>, Ptr<GenericIf>> erase(const GenericIf* key);
  // Removes every member and releases what the collection held.
  void clear();
  // The owner is going: empties the collection and forgets the owner.
  void ownerGone();

 private:
  // Takes or drops what the collection holds of one key or member: a plain
  // reference, recorded with the entity it names (entity keys, pointer
  // members), or a counted one.
  void hold(const GenericIf* object, bool plainReference);
  void drop(const GenericIf* object, bool plainReference);

  Entity* owner_;
  const VekAttrBase* attr_;
  bool entityKeyed_;
  bool pointerMembers_;
  Map members_;
  uint64_t version_ = 0;
};

// An iterator over a collection in ascending key order that survives
// changes: it remembers the position of the last key it returned (the key
// itself for value keys, the creation number for entity keys) and, when the
// collection has changed since, continues with the first key above it. It
// never dangles, repeats or skips a member that was present throughout.
//
// It holds a position, not a member: a saved iterator (a paused walk keeps one
// for seconds) keeps neither the current member's value nor an entity key
// alive, so erasing that member ends it at once. Copyable and movable, so a
// position can be saved and resumed.
class VEK_EXPORT CollectionIterator {
 public:
  CollectionIterator() = default;
  explicit CollectionIterator(Ptr<Collection const> collection);

  // Whether the iterator is at a position, not past the end. The member at
  // that position may have been erased since (then `key` and `ptr` are null
  // until the next `++`).
  explicit operator bool() const { return !atEnd_; }
  // Moves to the next member in key order.
  CollectionIterator& operator++();
  // The current member's key and value; null past the end or when the
  // current member was erased after the iterator reached it.
  Ptr<GenericIf const> key() const;
  Ptr<GenericIf const> ptr() const;

 private:
  // Moves to `position` and remembers it; past the end when it is end().
  void settle(Collection::Map::const_iterator position);
  // Points `position_` at the remembered key again after a change of the
  // collection; false when that member is gone.
  bool relocate() const;
  Collection::Map::const_iterator after() const;

  Ptr<Collection const> collection_;
  mutable Collection::Map::const_iterator position_;
  mutable uint64_t version_ = 0;
  mutable bool onMember_ = false;
  bool atEnd_ = true;
  // The remembered position: a value key's stored copy, or an entity key's
  // creation number.
  Ptr<GenericIf const> lastKey_;
  uint64_t lastSerial_ = 0;
};

}  // namespace Vek
