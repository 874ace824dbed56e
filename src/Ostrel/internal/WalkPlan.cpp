#include "WalkPlan.h"

#include <unordered_map>

#include "Memo.h"

namespace Ostrel::WalkPlan {

namespace {

Step stepOf(const Vek::VekType& owner, const Vek::VekAttr& attr) {
  Step step;
  step.attr = attr;
  if (attr->type()->baseType() == Vek::collectionControlType()) return step;
  // The name of an entity whose name is not data ("@name") is never
  // published, though it is stored like a scalar.
  if (attr->storage() == Vek::AttrStorage::Name && (owner->flags() & Vek::TypeFlag::NAME_NOT_DATA)) return step;
  step.flushesFirst = attr->isCollection() || attr->isArray() || attr->isPointer() || attr->isInstantiating();
  if (attr->hasGnmiJsonStrep()) {
    step.way = Way::JsonText;
  } else if (attr->isCollection()) {
    step.way = Way::Collection;
  } else if (attr->isArray()) {
    step.way = Way::Array;
  } else if (isStoredScalar(attr)) {
    step.way = Way::StoredScalar;
  } else if (attr->isInstantiating()) {
    step.way = Way::OwnedChild;
  } else if (attr->isPointer()) {
    step.way = Way::Pointer;
  } else {
    step.way = Way::Value;
    step.storedValue = attr->storage() == Vek::AttrStorage::Value;
  }
  return step;
}

TypePlan planOf(const Vek::VekType& type) {
  TypePlan plan;
  plan.steps.reserve(type->attrCount());
  for (Vek::VekTypeBase::AttributeQIterator it(type); it; ++it) {
    const Vek::VekAttr attr = *it;
    plan.steps.push_back(stepOf(type, attr));
    if (attr->isArray() || attr->isCollection()) plan.timestamped.push_back(attr);
  }
  return plan;
}

}  // namespace

const TypePlan& of(const Vek::VekType& type) {
  static std::unordered_map<const Vek::VekTypeBase*, TypePlan> plans;
  return Memo::of(plans, type.base(), [](const Vek::VekTypeBase* base) { return planOf(base); });
}

bool isStoredScalar(const Vek::VekAttr& attr) {
  const Vek::VekType& type = attr->type();
  const Vek::AttrStorage storage = attr->storage();
  return (storage == Vek::AttrStorage::Value || storage == Vek::AttrStorage::Name) && !attr->isArray() &&
         !type->hasGnmiStrRep() && (type->isBuiltin() || type->isEnum());
}

}  // namespace Ostrel::WalkPlan
