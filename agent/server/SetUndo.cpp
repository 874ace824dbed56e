#include "SetUndo.h"

#include <Zolt/Zolt.h>

#include "PathResolver.h"

namespace VekGnmi::Server {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentSet");

// A copy of a value that later writes do not change; entities stay
// themselves.
Vek::Ptr<Vek::GenericIf> copyOf(const Vek::Ptr<Vek::GenericIf const>& value) {
  if (!value) return nullptr;
  if (value->isEntity()) return Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(value.ptr()));
  return value->type().genericIf(value->voidPtr(), /*copy=*/true);
}

Vek::Ptr<Vek::Entity> entityOf(const Vek::Ptr<Vek::GenericIf const>& value) {
  if (!value || !value->isEntity()) return nullptr;
  return Vek::Ptr<Vek::Entity>(static_cast<Vek::Entity*>(const_cast<Vek::GenericIf*>(value.ptr())));
}

// Whether an attribute holds data a snapshot keeps: not the entity's name,
// read-only attributes or collection bookkeeping.
bool holdsData(const Vek::VekAttr& attr) {
  return attr->storage() != Vek::AttrStorage::Name && attr->storage() != Vek::AttrStorage::None &&
         !attr->isReadOnly() && !attr->type()->isCollectionControl();
}

// Runs `write`; a refusal of the runtime is traced, not passed on.
template <typename Write>
bool tryWrite(const char* what, const Vek::VekAttr& attr, Write write) {
  try {
    write();
    return true;
  } catch (const Vek::Exception& e) {
    ZOLT_TRACE(dbg, 1, "SetUndo", "could not {} {}: {}", what, attr->name(), e.what());
    return false;
  }
}

}  // namespace

void writeArray(Vek::Entity& entity, const Vek::VekAttr& attr, const std::vector<Vek::Ptr<Vek::GenericIf>>& elements) {
  for (size_t n = entity.memberCount(attr); n > 0; --n) {
    attr.genericIfErase(&entity, Vek::genericIfOf(static_cast<unsigned>(n - 1)).ptr());
  }
  for (size_t i = 0; i < elements.size(); ++i) {
    attr.genericIfSet(&entity, Vek::genericIfOf(static_cast<unsigned>(i)).ptr(), elements[i].ptr());
  }
}

// An entity and everything it owns, as it was.
struct SetUndo::Snapshot {
  struct Value {
    Vek::VekAttr attr;
    Vek::Ptr<Vek::GenericIf> key;  // a member's key; null for a scalar
    Vek::Ptr<Vek::GenericIf> value;
  };
  struct Child {
    Vek::VekAttr attr;
    Vek::Ptr<Vek::GenericIf> key;  // null for a singleton
    std::unique_ptr<Snapshot> snapshot;
  };
  std::vector<Value> values;  // scalars, members of collections of values and of arrays, pointers
  std::vector<Child> children;

  static std::unique_ptr<Snapshot> of(const Vek::Entity& entity) {
    auto s = std::make_unique<Snapshot>();
    const Vek::VekType type = entity.type();
    for (size_t i = 0; i < type->attrCount(); ++i) {
      const Vek::VekAttr attr = type->attrAt(i);
      if (!holdsData(attr)) continue;
      if (attr->isInstantiating() && attr->isCollection()) {
        for (Vek::CollectionIterator it = attr.genericIfIteratorConst(&entity); it; ++it) {
          if (const Vek::Ptr<Vek::Entity> member = entityOf(it.ptr())) {
            s->children.push_back({attr, copyOf(it.key()), of(*member)});
          }
        }
      } else if (attr->isInstantiating()) {
        if (const Vek::Ptr<Vek::Entity> child = entity.entity(attr)) s->children.push_back({attr, nullptr, of(*child)});
      } else if (attr->storage() == Vek::AttrStorage::Collection) {
        for (Vek::CollectionIterator it = attr.genericIfIteratorConst(&entity); it; ++it) {
          s->values.push_back({attr, copyOf(it.key()), copyOf(it.ptr())});
        }
      } else if (const Vek::Ptr<Vek::GenericIf const> value = attr.genericIfGet(&entity)) {
        s->values.push_back({attr, nullptr, copyOf(value)});
      }
    }
    return s;
  }

  // Fills `entity` (just made again, or made by its parent) as it was.
  void restoreInto(Vek::Entity& entity) const {
    for (const Value& v : values) {
      if (v.value && v.value->isEntity() && static_cast<const Vek::Entity*>(v.value.ptr())->isOrphan()) continue;
      tryWrite("restore", v.attr, [&] { v.attr.genericIfSet(&entity, v.key.ptr(), v.value.ptr()); });
    }
    for (const Child& c : children) {
      Vek::Ptr<Vek::Entity> child = c.key ? nullptr : entity.entity(c.attr);  // made with its parent
      if (!child && !tryWrite("make again", c.attr, [&] { child = entity.entityNew(c.attr, c.key.ptr()); })) continue;
      c.snapshot->restoreInto(*child);
    }
  }
};

struct SetUndo::Record {
  enum class Kind { Value, Array, Created, Removed };
  Kind kind;
  Vek::Ptr<Vek::Entity> entity;  // the entity written, or the owner of the one made or removed
  Vek::VekAttr attr;
  Vek::Ptr<Vek::GenericIf> key;
  Vek::Ptr<Vek::GenericIf> value;                  // Value: as it was (null: nothing)
  std::vector<Vek::Ptr<Vek::GenericIf>> elements;  // Array
  std::unique_ptr<Snapshot> snapshot;              // Removed
};

SetUndo::SetUndo(ModelSchema& schema, const ModelSource& source) : schema_(schema), source_(source) {}
SetUndo::~SetUndo() = default;

void SetUndo::record(const Vek::Ptr<Vek::Entity>& entity, const gnmi::SetRequest& request) {
  const auto recordFirst = [&](const gnmi::Update& u) {
    if (!entity || u.path().elem_size() == 0) return;
    const gnmi::PathElem& elem = u.path().elem(0);
    const Vek::VekAttr attr = entity->type()->attr(elem.name());
    // The library's Set writes values only: scalars, values and members of
    // collections of values (the plan has checked the paths).
    if (!attr || attr->isInstantiating() || attr->isPointer()) return;
    Vek::Ptr<Vek::GenericIf> key;
    if (attr->isCollection() && !memberKey(schema_, attr, elem, gnmi::Path(), key).ok()) return;
    recordValue(entity, attr, key);
  };
  for (const gnmi::Update& u : request.replace()) recordFirst(u);
  for (const gnmi::Update& u : request.update()) recordFirst(u);
}

void SetUndo::recordValue(const Vek::Ptr<Vek::Entity>& entity, const Vek::VekAttr& attr,
                          const Vek::Ptr<Vek::GenericIf>& key) {
  records_.push_back({Record::Kind::Value, entity, attr, key, copyOf(attr.genericIfGet(entity.ptr(), key.ptr())), {}, {}});
}

void SetUndo::recordArray(const Vek::Ptr<Vek::Entity>& entity, const Vek::VekAttr& attr) {
  Record r{Record::Kind::Array, entity, attr, nullptr, nullptr, {}, {}};
  for (Vek::CollectionIterator it = attr.genericIfIteratorConst(entity.ptr()); it; ++it) {
    r.elements.push_back(copyOf(it.ptr()));
  }
  records_.push_back(std::move(r));
}

void SetUndo::recordCreated(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr,
                            const Vek::Ptr<Vek::GenericIf>& key) {
  records_.push_back({Record::Kind::Created, owner, attr, key, nullptr, {}, {}});
}

void SetUndo::recordRemoved(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr,
                            const Vek::Ptr<Vek::GenericIf>& key) {
  const Vek::Ptr<Vek::Entity> entity = owner->entity(attr, key.ptr());
  if (!entity) return;
  records_.push_back({Record::Kind::Removed, owner, attr, key, nullptr, {}, Snapshot::of(*entity)});
}

size_t SetUndo::restore() {
  const std::shared_ptr<void> asDevice = source_.writeAsDevice();
  size_t undone = 0;
  for (auto it = records_.rbegin(); it != records_.rend(); ++it) {
    Record& r = *it;
    if (r.entity->isOrphan()) continue;  // gone with something older, which comes back whole
    Vek::Entity* entity = r.entity.ptr();
    bool ok = true;
    switch (r.kind) {
      case Record::Kind::Value:
        if (r.value && r.value->isEntity() && static_cast<const Vek::Entity*>(r.value.ptr())->isOrphan()) continue;
        ok = tryWrite("restore", r.attr, [&] {
          if (r.value) {
            r.attr.genericIfSet(entity, r.key.ptr(), r.value.ptr());
          } else if (r.attr->storage() == Vek::AttrStorage::Collection) {
            r.attr.genericIfErase(entity, r.key.ptr());
          } else {
            r.attr.genericIfSet(entity, nullptr, nullptr);
          }
        });
        break;
      case Record::Kind::Array:
        ok = tryWrite("restore", r.attr, [&] { writeArray(*entity, r.attr, r.elements); });
        break;
      case Record::Kind::Created:
        ok = tryWrite("remove", r.attr, [&] { entity->entityDel(r.attr, r.key.ptr()); });
        break;
      case Record::Kind::Removed: {
        Vek::Ptr<Vek::Entity> again;
        ok = tryWrite("make again", r.attr, [&] { again = entity->entityNew(r.attr, r.key.ptr()); });
        if (ok) r.snapshot->restoreInto(*again);
        break;
      }
    }
    undone += ok ? 1 : 0;
  }
  records_.clear();
  return undone;
}

}  // namespace VekGnmi::Server
