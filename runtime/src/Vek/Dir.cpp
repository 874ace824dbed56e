// Directories: entities that own children of any type by name, and the
// entries that point from a directory at entities elsewhere. The directory
// and entry types are made by the builtin module (Module.cpp).
#include "Vek/Entity.h"

namespace Vek {

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
