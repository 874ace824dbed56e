// `Vek::Entity`: a named, typed object in a tree of owners; `Vek::Dir`, the
// directory entity whose `entityPtr` collection reaches children by name.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Vek/Collection.h"
#include "Vek/GenericIf.h"

namespace Vek {

// An entity: an object of an entity type, its own reflective handle. Roots
// are made with `rootNew`; other entities are owned by a parent through an
// instantiating attribute (`entityNew`) and are named by their attribute
// (singletons) or by their key's text (collection members).
//
// Ownership and lifetime. Only owners keep entities alive: a parent holds a
// counted reference on each entity it owns, and callers hold `Ptr`s. Pointers
// do not own their targets: a pointer attribute, a member of a pointer
// collection and an entity used as a collection key are plain references,
// which each target records (its referrers). So cycles of pointers, pointers
// back up to an owner, or a directory entry pointing at a root keep nothing
// alive.
//
// Leaving the model. An entity erased from its owner, replaced by a new one,
// or cleared as an owned child leaves the model together with everything it
// owns, in this order:
//   1. they fall silent (`hasLeft`): the pointers and entity keys held inside
//      the leaving subtree are released without being reported, and nothing
//      more is reported from inside it;
//   2. every pointer to a leaving entity from the rest of the model is
//      cleared, and every member keyed by one is erased; each is reported, as
//      an ordinary change, to the notifiees of the entity that held it, while
//      the leaving entities still have their owners and names;
//   3. they become orphans (`isOrphan`); the top one loses its parent;
//   4. the owner drops its reference, so the removed entity ends as soon as
//      no caller holds it (its notifiees' `onZeroReferences` runs then);
//   5. only then is the owner's own change reported, so a notifiee of the
//      owner that publishes a replacement finds the old entity gone.
// An orphan reports no further changes to its notifiees, and pointers to it
// are refused. A root leaves the model the same way when its last reference
// goes, just before its notifiees hear `onZeroReferences`.
//
// Every change of an attribute of an entity in the model reaches the
// registered notifiees synchronously, after the change is visible, as
// `onAttribute(attrId, key)`: `key` is the stored key of the inserted,
// changed or erased member for a collection (kept alive for the callback),
// null otherwise. Notifying neither takes nor keeps a reference on a notifiee
// that no `Ptr` owns, so notifiees may live on the stack or be owned by plain
// pointers.
class VEK_EXPORT Entity : public GenericIf {
 public:
  // A new root entity of the entity type `type`.
  static Ptr<Entity> rootNew(VekType type, String name);

  const String& name() const { return name_; }
  // The path text of the entity: its name and its owners' names from the root
  // down, each after a '/', an unnamed root contributing nothing:
  // "/devices/dev1" for the entity dev1 in the directory devices of an unnamed
  // root directory, "" for that root. For an entity reached through
  // directories this is the text that `Ostrel::strToPath` parses into its
  // path. A backslash is put before each '/', '[', ']' and '\' of a name, the
  // characters special to that text.
  std::string fullName() const;
  // The names from the root down joined with '.', an unnamed root left out:
  // "devices.dev1", the form of the text `entity('devices.dev1')` (`strRep`).
  std::string dottedName() const;
  // The owner; null for roots and for the entity at the top of a removed
  // subtree (the entities it owns keep it as their parent).
  Entity* parent() const { return parent_; }
  // Whether the entity has left the model: removed from its owner, or owned
  // by an entity that was.
  bool isOrphan() const { return orphan_; }
  // Whether the entity has begun to leave the model (it is an orphan, or is
  // becoming one): it reports no changes and may not be pointed at.
  bool hasLeft() const { return left_; }
  // A process-wide creation number; orders entities used as keys.
  uint64_t serial() const { return serial_; }

  // Creates an owned entity through the instantiating attribute `attr`: the
  // singleton child (no key) or the member at `key`, replacing (and
  // orphaning) a previous one. `type` chooses the entity type when the
  // attribute admits any entity (`entityBaseType()`); it defaults to the
  // attribute's type. Throws `Vek::Exception` when the attribute refuses.
  Ptr<Entity> entityNew(const VekAttr& attr, const GenericIf* key = nullptr, VekType type = {});
  Ptr<Entity> entityNew(std::string_view attrName, const GenericIf* key = nullptr,
                        VekType type = {}) {
    return entityNew(this->type()->attr(attrName), key, type);
  }
  // Removes the child or member; it becomes an orphan. Returns whether
  // there was one.
  bool entityDel(const VekAttr& attr, const GenericIf* key = nullptr);
  // The child, member or pointer target at (`attr`, `key`), or null.
  Ptr<Entity> entity(const VekAttr& attr, const GenericIf* key = nullptr) const;
  Ptr<Entity> entity(std::string_view attrName, const GenericIf* key = nullptr) const {
    return entity(type()->attr(attrName), key);
  }
  // Points the pointer attribute (or the pointer member at `key`) at
  // `target`; null clears it.
  void pointerIs(const VekAttr& attr, Entity* target, const GenericIf* key = nullptr);
  void pointerIs(std::string_view attrName, Entity* target, const GenericIf* key = nullptr) {
    pointerIs(type()->attr(attrName), target, key);
  }
  // The number of members of a collection or array attribute.
  size_t memberCount(const VekAttr& attr) const;
  size_t memberCount(std::string_view attrName) const { return memberCount(type()->attr(attrName)); }

  // The registered notifiees, in registration order.
  const std::vector<PtrInterface::NotifieeConst*>& notifiees() const { return notifiees_; }
  // The number of plain references to this entity: pointers (attributes and
  // pointer-collection members) and collection keys that name it.
  size_t referenceCount() const;

  void handleZeroRef() override;
  void notifieeRegisteredIs(PtrInterface::NotifieeConst* notifiee, bool registered) const override;

  // The live-object count of all entities.
  static AllocTrackTypeInfo& allocTrackInfo();

  // Storage of the attribute block (for the runtime's accessors).
  void* block() const { return block_; }
  Collection* collection(const VekAttrBase& attr, bool create) const;
  // The slot of a pointer attribute (storage `AttrStorage::Pointer`).
  GenericIf* pointer(const VekAttrBase& attr) const {
    return *reinterpret_cast<GenericIf* const*>(static_cast<const char*>(block_) + attr.offset());
  }

 protected:
  Entity(const VekTypeBase* type, String name);
  ~Entity() override;
  void attributeChanged(const VekAttrBase& attr, const GenericIf* key) override;

 private:
  friend class VekAttr;
  friend class Dir;
  friend class Collection;
  struct Referrers;
  static Entity* make(const VekTypeBase* type, String name);
  void adopt(Entity* child);
  // `member` (when it is an entity) and everything it owns leave the model.
  static void leave(GenericIf* member);
  // Releases the pointers and entity keys this entity holds.
  void releaseReferences();
  // Clears every pointer and entity key naming this entity.
  void clearReferrers();
  // Clears the pointers and erases the members keyed by `target` in `attr`.
  void dropReferencesTo(const VekAttrBase& attr, Entity* target);
  // Points the pointer attribute `attr` at `target`, keeping referrers right.
  void pointerSlotIs(const VekAttrBase& attr, GenericIf* target);
  // Erases the member at `key` of the collection `attr` and reports it;
  // an owned member leaves the model first.
  bool eraseMember(const VekAttrBase& attr, const GenericIf* key);
  // Records that `holder`'s attribute `attr` gained or lost one plain
  // reference to the entity `target`.
  static void referenceAdded(GenericIf* target, Entity& holder, const VekAttrBase& attr);
  static void referenceRemoved(GenericIf* target, Entity& holder, const VekAttrBase& attr);
  // Whether `notifiee`, listed when a notification round started (at
  // registration version `roundVersion`), is still registered here.
  bool stillNotified(const PtrInterface::NotifieeConst* notifiee, uint64_t roundVersion) const;
  // Calls `call(notifiee)` for each registered notifiee, tolerating changes
  // of the registrations made by the callbacks.
  template <typename Fn>
  void notifyRound(Fn&& call);

  String name_;
  Entity* parent_ = nullptr;
  bool orphan_ = false;
  // Set when the entity starts to leave the model (before it is an orphan):
  // from then on it reports nothing and may not be pointed at.
  bool left_ = false;
  bool zeroRefRunning_ = false;
  uint64_t serial_;
  void* block_ = nullptr;
  mutable std::vector<PtrInterface::NotifieeConst*> notifiees_;
  // Bumped by every registration and unregistration.
  mutable uint64_t notifieesVersion_ = 0;
  // Who holds plain references to this entity; made on first use.
  std::unique_ptr<Referrers> referrers_;
};

// A directory: an entity whose `entityPtr` collection (keyed by name) owns
// child entities of any type, so a tree of names reaches every entity.
class VEK_EXPORT Dir : public Entity {
 public:
  class Entry;

  // The directory type "Vek::Dir" and its `entityPtr` attribute.
  static VekType dirType();
  static VekAttr entityPtrAttr();

  // A new root directory.
  static Ptr<Dir> rootNew(String name);
  // A new subdirectory `name`, replacing any child of that name.
  Ptr<Dir> dirNew(String name);
  // A new child entity of `type` named `name`, replacing any child of that
  // name.
  Ptr<Entity> childNew(VekType type, String name);
  // The child named `name`, or null.
  Ptr<Entity> child(const String& name) const;
  // A directory entry `name` that points at `target`.
  Ptr<Entry> entryNew(String name, Entity* target);
  // Removes the child `name` (it becomes an orphan); whether there was one.
  bool childDel(const String& name);

 private:
  friend class Entity;
  using Entity::Entity;
};

// A named link inside a directory; it points at another entity and is never
// published itself.
class VEK_EXPORT Dir::Entry : public Entity {
 public:
  static VekType entryType();
  Ptr<Entity> target() const;

 private:
  friend class Entity;
  using Entity::Entity;
};

}  // namespace Vek
