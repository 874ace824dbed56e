// `Vek::Entity`: a named, typed object in a tree of owners; `Vek::Dir`, the
// directory entity whose `entityPtr` collection reaches children by name.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Vek/GenericIf.h"

namespace Vek {

// An entity: an object of an entity type, its own reflective handle. Roots
// are made with `rootNew`; other entities are owned by a parent through an
// instantiating attribute (`entityNew`) and are named by their attribute
// (singletons) or by their key's text (collection members). An entity removed
// from its parent (or whose parent went) becomes an orphan: it has left the
// model together with the entities it owns, and every pointer held in that
// subtree is cleared (pointer attributes set to null, members of pointer
// collections and of collections keyed by entities erased), so pointers
// between removed entities, or back up to one of their owners, cannot keep
// them alive. Each clearing is a change like any other. Every change of an
// attribute reaches the registered notifiees synchronously, after the change
// is visible, as `onAttribute(attrId, key)`: `key` is the stored key of the
// inserted, changed or erased member for a collection (kept alive for the
// callback), null otherwise. Notifying neither takes nor keeps a reference on
// a notifiee that no `Ptr` owns, so notifiees may live on the stack or be
// owned by plain pointers.
class VEK_EXPORT Entity : public GenericIf {
 public:
  // A new root entity of the entity type `type`.
  static Ptr<Entity> rootNew(VekType type, String name);

  const String& name() const { return name_; }
  // The names from the root down, joined with '.', the root left out when
  // it is unnamed: "a.b.c".
  std::string fullName() const;
  // The owner, null for roots and orphans.
  Entity* parent() const { return parent_; }
  // Whether the entity was removed from its owner (or its owner went).
  bool isOrphan() const { return orphan_; }
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

  void handleZeroRef() override;
  void notifieeRegisteredIs(PtrInterface::NotifieeConst* notifiee, bool registered) const override;

  // The live-object count of all entities.
  static AllocTrackTypeInfo& allocTrackInfo();

  // Storage of the attribute block (for the runtime's accessors).
  void* block() const { return block_; }
  Collection* collection(const VekAttrBase& attr, bool create) const;

 protected:
  Entity(const VekTypeBase* type, String name);
  ~Entity() override;
  void attributeChanged(const VekAttrBase& attr, const GenericIf* key) override;

 private:
  friend class VekAttr;
  friend class Dir;
  static Entity* make(const VekTypeBase* type, String name);
  void adopt(Entity* child, const VekAttrBase& attr);
  static void disown(GenericIf* member);
  void releasePointers();
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
  bool zeroRefRunning_ = false;
  uint64_t serial_;
  void* block_ = nullptr;
  mutable std::vector<PtrInterface::NotifieeConst*> notifiees_;
  // Bumped by every registration and unregistration.
  mutable uint64_t notifieesVersion_ = 0;
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
