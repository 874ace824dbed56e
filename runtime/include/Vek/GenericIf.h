// `Vek::GenericIf`: the reflective handle of an entity or value; keyed
// collections (`Vek::Collection`) and their mutation-tolerant iterator.
#pragma once

#include <map>
#include <string>

#include "Vek/Type.h"

namespace Vek {

class Collection;

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

// Orders the keys of one collection by value (entities by creation order).
struct VEK_EXPORT CollectionKeyLess {
  using is_transparent = void;
  bool operator()(const GenericIf* a, const GenericIf* b) const;
};

// The members of one collection or array attribute of one object, ordered by
// key. Keys are immutable copies owned by the collection; every change bumps
// `version()`, which lets iterators notice it.
class VEK_EXPORT Collection : public PtrInterface {
 public:
  using Map = std::map<Ptr<GenericIf const>, Ptr<GenericIf>, CollectionKeyLess>;

  explicit Collection(const VekAttrBase& attr);
  ~Collection() override;

  const VekAttrBase& attr() const { return *attr_; }
  const Map& members() const { return members_; }
  size_t size() const { return members_.size(); }
  uint64_t version() const { return version_; }

  // The member at `key`, or null.
  GenericIf* find(const GenericIf* key) const;
  // The stored key equal to `key`, or null.
  const GenericIf* storedKey(const GenericIf* key) const;
  // Inserts or replaces; returns the stored key and the previous member.
  std::pair<const GenericIf*, Ptr<GenericIf>> put(const GenericIf* key, Ptr<GenericIf> member);
  // Removes `key`; returns the stored key and the member (both null when
  // absent) so the caller can report the change before they go.
  std::pair<Ptr<GenericIf const>, Ptr<GenericIf>> erase(const GenericIf* key);
  // Removes every member; returns them.
  Map clear();

 private:
  const VekAttrBase* attr_;
  Map members_;
  uint64_t version_ = 0;
};

// An iterator over a collection in ascending key order that survives
// changes: it holds the last key it returned and, when the collection has
// changed since, continues with the first key above it. It never dangles,
// repeats or skips a member that was present throughout. Copyable and
// movable, so a position can be saved across a pause.
class VEK_EXPORT CollectionIterator {
 public:
  CollectionIterator() = default;
  explicit CollectionIterator(Ptr<Collection const> collection);

  // Whether the iterator is on a member.
  explicit operator bool() const { return static_cast<bool>(key_); }
  // Moves to the next member in key order.
  CollectionIterator& operator++();
  // The current member's key and value (null past the end).
  const Ptr<GenericIf const>& key() const { return key_; }
  Ptr<GenericIf const> ptr() const { return value_; }

 private:
  void load();

  Ptr<Collection const> collection_;
  Collection::Map::const_iterator position_;
  uint64_t version_ = 0;
  Ptr<GenericIf const> key_;
  Ptr<GenericIf const> value_;
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
