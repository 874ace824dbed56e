// Set path element resolution: what one element of a request path names
// below a runtime object (an attribute, a collection member, a directory's
// child), and its current value.
#include <exception>

#include <fmt/format.h>

#include <Zolt/Zolt.h>

#include "AttrTreeSupport.h"
#include "Ostrel/Path.h"

namespace Ostrel::VekGnmiSet::AttrTree {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelVekGnmiSet");
constexpr const char* RESOLVER = "AttrTree";

}  // namespace

Result<DataElem, std::string> getDataElem(const Vek::Ptr<Vek::GenericIf>& parent,
                                          const gnmi::PathElem& elem, PlainValue plain) {
  ZOLT_TRACE(dbg, 8, RESOLVER, "Accessing path element {} with {} keys", elem.name(),
             elem.key_size());
  const Vek::VekType type = parent ? parent->type() : Vek::VekType();
  if (!type) return Failure{fmt::format("VekType is missing for parent object of {}", elem)};
  if (type->baseType() == Vek::Dir::dirType()) {
    ZOLT_TRACE(dbg, 9, RESOLVER, "Accessing entity named {} under Vek::Dir", elem.name());
    return getElemInDir(parent, elem);
  }
  ZOLT_TRACE(dbg, 9, RESOLVER, "Accessing attribute {} in type {}", elem.name(), type->name());
  const Vek::VekAttr attr = type->attr(elem.name());
  if (!attr) {
    return Failure{fmt::format("Attribute {} not found on Type {}", elem.name(), type->name())};
  }
  // Key parsing and the read raise the runtime's exceptions; their text is
  // the message.
  try {
    Vek::Ptr<Vek::GenericIf> keyObj;
    // An array's members are keyed by their index, as a collection's by key.
    if (attr->isCollection() || attr->isArray()) {
      if (attr->isInternallyKeyed()) {
        return Failure{std::string("Path with internally-keyed collection is not supported")};
      }
      if (elem.key_size() != 1) {
        return Failure{std::string("Path with composite key collection not supported")};
      }
      const auto& [keyName, keyText] = *elem.key().begin();
      ZOLT_TRACE(dbg, 9, RESOLVER, "Creating Gif key object for gnmi key [{} = {}]", keyName,
                 keyText);
      keyObj = attr->indexType().genericIf(Vek::String(keyText), true);
      if (!keyObj) ZOLT_FMASSERT(dbg, RESOLVER, "Expecting valid key object for {}", elem);
    } else if (elem.key_size() != 0) {
      return Failure{fmt::format("Path element {} cannot have a key: {} is not a collection",
                                 elem, attr->name())};
    }
    const bool plainValue = !isComposite(attr->type()) && !attr->type()->isEntity();
    if (plain == PlainValue::CheckOnly && plainValue) {
      if (!attr.genericIfExist(parent, keyObj)) return Failure{fmt::format("Path element {} is not set", elem)};
      return DataElem{nullptr, std::move(keyObj), attr};
    }
    Vek::Ptr<Vek::GenericIf const> current = attr.genericIfGet(parent, keyObj);
    if (!current) return Failure{fmt::format("Path element {} is not set", elem)};
    if (isComposite(attr->type())) {
      ZOLT_TRACE(dbg, 9, RESOLVER, "Making a non-const copy of the Value type object");
      // The runtime reads a scalar attribute as a new copy of its value,
      // which is then private already; a collection member is the stored
      // object itself and is copied.
      if (attr->storage() == Vek::AttrStorage::Value) {
        return DataElem{Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(current.ptr())),
                        std::move(keyObj), attr};
      }
      return DataElem{current->type().genericIf(current->voidPtr(), true), std::move(keyObj),
                      attr};
    }
    // An entity is its own handle and is written only through the runtime's
    // checked setters at commit; a plain value is only read (a leaf replaces
    // it by the converted new value). Neither is modified through this
    // handle, so giving up const is safe.
    return DataElem{Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(current.ptr())),
                    std::move(keyObj), attr};
  } catch (const std::exception& e) {
    return Failure{std::string(e.what())};
  }
}

Result<DataElem, std::string> getElemInDir(const Vek::Ptr<Vek::GenericIf>& dirObj,
                                           const gnmi::PathElem& elem) {
  if (!dirObj || !(dirObj->type()->baseType() == Vek::Dir::dirType())) {
    ZOLT_FMASSERT(dbg, RESOLVER, "Expecting dirObj to be of type Vek::Dir");
  }
  // Looked up once: every directory type answers with the attribute of
  // `Vek::Dir` (aliases answer as their base type).
  static const Vek::VekAttr entityPtr = dirObj->type()->attr("entityPtr");
  if (!entityPtr) ZOLT_FMASSERT(dbg, RESOLVER, "entityPtr attribute not found inside Vek::Dir");
  if (elem.key_size() != 0) {
    return Failure{fmt::format("Path element {} under Vek::Dir cannot have a key", elem)};
  }
  Vek::Ptr<Vek::GenericIf> key = entityPtr->indexType().genericIf(Vek::String(elem.name()), false);
  if (!key) ZOLT_FMASSERT(dbg, RESOLVER, "Expecting valid key object to access entityPtr");
  Vek::Ptr<Vek::GenericIf const> child = entityPtr.genericIfGet(dirObj, key);
  if (!child) return Failure{fmt::format("Path element {} is not set", elem)};
  // The child entity is its own handle; see getDataElem.
  return DataElem{Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(child.ptr())),
                  std::move(key), entityPtr};
}

}  // namespace Ostrel::VekGnmiSet::AttrTree
