// The type builder: `TypeDef` declares the attributes and properties of one
// type and lays it out, from `AttrDef`s (filled by a loader from a schema) or
// from its shorthands (`scalar`, `pointer`, `child`, `collection`, ...).
// Builders come from a module (Vek/Module.h, which shows a model built with
// them); what they build is read through the descriptors of
// Vek/TypeDescriptor.h.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "Vek/TypeDescriptor.h"

namespace Vek {

// Everything that defines one attribute; a loader fills it from a schema.
struct AttrDef {
  std::string name;
  VekType type;                // member, target or element type
  uint32_t flags = 0;          // AttrFlag bits
  VekType indexType;           // key type of a collection
  std::string keyAttrName;     // the members' key attribute, if declared
  std::string defaultText;     // default of a scalar, in the type's text form
  int64_t enumValue = 0;       // value of an enumerator
  AttrCheck check;             // refuses writes; empty accepts all
};

// Builds one type. Obtained from `Module`; the type exists from the start
// (`type()`, for self-references) and is laid out by `done()`. Modifiers
// without an attribute name apply to the last attribute added.
class VEK_EXPORT TypeDef {
 public:
  VekType type() const { return type_; }

  // Adds an attribute. Every property is in `def`.
  TypeDef& attr(AttrDef def);
  // A builtin, enumeration or value attribute, with an optional default.
  TypeDef& scalar(std::string name, VekType type, std::string defaultText = {});
  // A pointer to an entity of `target` (or any entity: `entityBaseType()`).
  TypeDef& pointer(std::string name, VekType target);
  // An instantiating singleton: an owned child entity of `entityType`.
  TypeDef& child(std::string name, VekType entityType);
  // A keyed collection. `memberFlags` selects the member kind: 0 for values,
  // AttrFlag::POINTER for pointers, AttrFlag::INSTANTIATING for owned
  // entities; AttrFlag::STACK may be added.
  TypeDef& collection(std::string name, VekType key, VekType member, uint32_t memberFlags = 0);
  // An array of scalars, indexed from 0 (published as a leaf list).
  TypeDef& array(std::string name, VekType element);
  // An attribute of the collection-control type.
  TypeDef& collectionControl(std::string name);
  // An enumerator of an enumeration.
  TypeDef& enumerator(std::string name, int64_t value);

  // On the last attribute:
  TypeDef& check(AttrCheck check);
  TypeDef& keyAttr(std::string name);
  TypeDef& jsonText();
  TypeDef& readOnly();
  TypeDef& attrFlagsIs(uint32_t flags);  // replaces the flags

  // On the type:
  TypeDef& flagsIs(uint32_t flags);
  // Marks the type a wrapper of its attribute `attrName` (its value attribute).
  TypeDef& wrapperOf(std::string_view attrName);
  TypeDef& valAttr(std::string_view attrName);
  TypeDef& constructorParams(const std::vector<std::string>& names);
  TypeDef& gnmiText(TextFormatter formatter, TextParser parser);

  // Lays the type out and returns it. Later calls on this builder are fatal.
  VekType done();

 private:
  friend class Module;
  explicit TypeDef(VekTypeBase* type) : type_(type) {}
  VekAttrBase& last();
  VekAttr named(std::string_view attrName) const;
  VekTypeBase* type_;
};

}  // namespace Vek
