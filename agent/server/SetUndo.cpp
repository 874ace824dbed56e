#include "SetUndo.h"

#include <Zolt/Zolt.h>

#include "PathResolver.h"

namespace VekGnmi::Server {

namespace {
Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentSet");

// A copy of a value that later writes do not change.
Vek::Ptr<Vek::GenericIf> copyOf(const Vek::Ptr<Vek::GenericIf const>& value) {
  if (!value) return nullptr;
  return value->type().genericIf(value->voidPtr(), /*copy=*/true);
}

bool sameValue(const Vek::Ptr<Vek::GenericIf const>& a, const Vek::Ptr<Vek::GenericIf const>& b) {
  if (!a || !b) return !a && !b;
  return a->type() == b->type() && a->strRep() == b->strRep();
}
}  // namespace

void SetUndo::record(const EntitySet& set) {
  for (const gnmi::Update& u : set.request.replace()) {
    if (u.path().elem_size() > 0) recordOne(set.entity, u.path().elem(0));
  }
  for (const gnmi::Update& u : set.request.update()) {
    if (u.path().elem_size() > 0) recordOne(set.entity, u.path().elem(0));
  }
}

void SetUndo::recordOne(const Vek::Ptr<Vek::Entity>& entity, const gnmi::PathElem& elem) {
  if (!entity) return;
  const Vek::VekAttr attr = entity->type()->attr(elem.name());
  // Set writes values only: scalars, values and members of collections of
  // values (the plan has checked the paths).
  if (!attr || attr->isInstantiating() || attr->isPointer()) return;
  Vek::Ptr<Vek::GenericIf> key;
  if (attr->isCollection()) {
    if (elem.key_size() != 1 || !memberKey(schema_, attr, elem, gnmi::Path(), key).ok()) return;
  }
  for (const Saved& s : saved_) {
    if (s.entity == entity && s.attr == attr && sameValue(s.key, key)) return;  // the oldest value counts
  }
  saved_.push_back({entity, attr, key, copyOf(attr.genericIfGet(entity.ptr(), key.ptr()))});
}

size_t SetUndo::restore() {
  size_t restored = 0;
  for (auto it = saved_.rbegin(); it != saved_.rend(); ++it) {
    const Vek::Ptr<Vek::GenericIf const> now = it->attr.genericIfGet(it->entity.ptr(), it->key.ptr());
    if (sameValue(now, it->value) || !it->value) continue;
    try {
      it->attr.genericIfSet(it->entity.ptr(), it->key.ptr(), it->value.ptr());
      ++restored;
    } catch (const Vek::Exception& e) {
      ZOLT_TRACE(dbg, 1, "SetUndo", "could not restore {}: {}", it->attr->name(), e.what());
    }
  }
  return restored;
}

}  // namespace VekGnmi::Server
