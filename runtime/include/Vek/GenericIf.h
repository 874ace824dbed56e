// `Vek::GenericIf`: the reflective handle of an entity or value, its
// notifiee base and its raw view. Collections are in Vek/Collection.h.
#pragma once

#include <string>

#include "Vek/TypeDescriptor.h"

namespace Vek {

// A reflective handle on one entity or value object: it knows its type and
// where the object's representation lives. Entities are their own handles;
// values read from attributes are small pooled copies, so taking a handle
// costs no heap allocation in the steady state.
class VEK_EXPORT GenericIf : public PtrInterface {
 public:
  using Iterator = CollectionIterator;
  class NotifieeConst;

  ~GenericIf() override;

  VekType type() const { return type_; }
  bool isEntity() const { return type_->isEntity(); }
  // The raw object: the value's representation, or for an entity the entity
  // itself as `const PtrInterface*`.
  const void* voidPtr() const { return data_; }
  void* voidPtr() { return data_; }
  // The raw object when this handle's type is `type` (or aliases it), else
  // null.
  const void* voidPtrIs(const VekTypeBase& type) const;
  // The value when its representation is T (a builtin, or an enumeration
  // over T), else null.
  template <typename T>
  const T* attrValPtr() const {
    return type_->storageCode() == builtinCodeOf<T>() ? static_cast<const T*>(data_) : nullptr;
  }

  // The value as T; throws `TypeMismatchException` when its representation
  // is not T.
  template <typename T>
  const T& as() const {
    const T* value = attrValPtr<T>();
    if (!value) refuseRepresentation(builtinCodeOf<T>());
    return *value;
  }

  // A hash of the value: equal values (`genericIfBooleanOp` Equal) hash
  // alike; entities hash by identity.
  uint32_t hash() const;
  // The value as text: numbers in decimal, bool as true/false, strings and
  // bytes as they are, enumerators by name, a type with its own text form in
  // that form, other values as Type(attr:value, ...), entities as
  // entity('a.b.c').
  std::string strRep() const;
  // The gNMI text form: the type's own form where it has one, else `strRep`.
  std::string gnmiStrRep() const;

  // Typed reads and writes of scalar attributes. T must be the attribute's
  // representation; anything else throws `TypeMismatchException`. Writes
  // follow the rules of `VekAttr::genericIfSet`.
  template <typename T>
  const T& value(const VekAttr& attr) const {
    return *static_cast<const T*>(rawAttr(attr, builtinCodeOf<T>()));
  }
  template <typename T>
  const T& value(std::string_view attrName) const {
    return value<T>(type_->attr(attrName));
  }
  template <typename T>
  void valueIs(const VekAttr& attr, const T& value) {
    rawAttrIs(attr, builtinCodeOf<T>(), &value);
  }
  template <typename T>
  void valueIs(std::string_view attrName, const T& value) {
    valueIs<T>(type_->attr(attrName), value);
  }
  void valueIs(std::string_view attrName, const char* value) {
    valueIs<String>(type_->attr(attrName), String(value));
  }

  const GenericIf* genericIfPtr() const override { return this; }

  // The representation of the scalar attribute `attr`, checked against
  // `code` (None accepts any representation).
  const void* rawAttr(const VekAttr& attr, BuiltinCode code) const;
  // Writes the scalar attribute `attr` from the representation at `raw`.
  void rawAttrIs(const VekAttr& attr, BuiltinCode code, const void* raw);
  // Throws the `TypeMismatchException` of `as` for a representation `code`.
  [[noreturn]] void refuseRepresentation(BuiltinCode code) const;

 protected:
  GenericIf(const VekTypeBase* type, void* data) : type_(type), data_(data) {}

  // Entities override to report the change to their notifiees.
  virtual void attributeChanged(const VekAttrBase& attr, const GenericIf* key);

 private:
  friend class VekAttr;
  const VekTypeBase* type_;
  void* data_;
};

// Notifiees of generic objects; adds the translation of change keys.
class VEK_EXPORT GenericIf::NotifieeConst : public PtrInterface::NotifieeConst {
 public:
  ~NotifieeConst() override;
  // The key handle behind the raw `keyPointer` of an `onAttribute` call for
  // the collection `attr`: the same key object that the collection's
  // iterators return while the member exists. Null for a null pointer.
  static Ptr<GenericIf const> keyPointerToGif(const VekAttr& attr, const void* keyPointer);
};

// A raw view of a handle, for code that works on representations.
class VEK_EXPORT GenericIfRaw {
 public:
  using Iterator = CollectionIterator;
  static GenericIfRaw fromGif(const GenericIf* gif) { return GenericIfRaw(gif); }
  const GenericIf* gif() const { return gif_; }
  VekType type() const { return gif_ ? gif_->type() : VekType(); }
  const void* voidPtr() const { return gif_ ? gif_->voidPtr() : nullptr; }

 private:
  explicit GenericIfRaw(const GenericIf* gif) : gif_(gif) {}
  const GenericIf* gif_;
};

// A new value handle holding `value`, of its builtin type.
VEK_EXPORT Ptr<GenericIf> genericIfOfRaw(BuiltinCode code, const void* raw);
template <typename T>
Ptr<GenericIf> genericIfOf(const T& value) {
  static_assert(builtinCodeOf<T>() != BuiltinCode::None, "not a builtin type");
  return genericIfOfRaw(builtinCodeOf<T>(), &value);
}
inline Ptr<GenericIf> genericIfOf(const char* text) { return genericIfOf(String(text)); }

}  // namespace Vek
