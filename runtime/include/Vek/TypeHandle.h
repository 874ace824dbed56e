// Handles on type and attribute descriptors: `VekType` and `VekAttr`, the
// small copyable values that code holds to name a type or an attribute, and
// through which it makes, reads, writes and compares objects generically. A
// handle is a plain pointer to a descriptor (see Vek/TypeDescriptor.h) and
// stays valid for the life of the process.
//
//   Vek::VekAttr mtu = entity->type()->attr("mtu");
//   Vek::Ptr<Vek::GenericIf const> value = mtu.genericIfGet(entity);
//   Vek::Ptr<Vek::GenericIf> parsed = Vek::builtinType<unsigned>().genericIf("9000", true);
//
// Also here: the handles of the runtime's own types (the builtins, the entity
// base type and the collection-control type), which the builtin module of
// Vek/Module.h makes.
#pragma once

#include <cstdint>
#include <string>

#include <boost/container/small_vector.hpp>

#include "Vek/Basics.h"
#include "Vek/Ptr.h"

namespace Vek {

class GenericIf;
class CollectionIterator;
class VekAttrBase;
class VekTypeBase;

// Constructor arguments of a value type, in constructor-parameter order.
using GenericIfArgs = boost::container::small_vector<Ptr<GenericIf const>, 8>;

// Comparison operations of `VekType::genericIfBooleanOp`.
enum class AttrOp : uint8_t { Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual };

// A handle on an attribute descriptor (null or an attribute of some type).
class VEK_EXPORT VekAttr {
 public:
  VekAttr() = default;
  VekAttr(const VekAttrBase* base) : base_(base) {}  // NOLINT
  const VekAttrBase* operator->() const { return base_; }
  const VekAttrBase& operator*() const { return *base_; }
  const VekAttrBase* base() const { return base_; }
  explicit operator bool() const { return base_ != nullptr; }
  friend bool operator==(VekAttr a, VekAttr b) { return a.base_ == b.base_; }

  // The value of this attribute of `gif`; for a collection the member at
  // `key`. Null when there is none (an unset pointer or child, a missing
  // member). A scalar is returned as a copy of its current value.
  Ptr<GenericIf const> genericIfGet(const GenericIf* gif, const GenericIf* key = nullptr) const;
  // Whether `genericIfGet` would return a value.
  bool genericIfExist(const GenericIf* gif, const GenericIf* key = nullptr) const;
  // Stores `value` (copied for scalars; the entity itself for pointers) into
  // this attribute of `gif`, at `key` for a collection (inserting or
  // replacing the member). A null value clears a pointer; a pointer to an
  // entity that has left the model (`Entity::isOrphan`) is refused. Throws a
  // `Vek::Exception` when the attribute's check, its read-only flag or the
  // value's type refuses the write; `gif` is then unchanged.
  void genericIfSet(GenericIf* gif, const GenericIf* key, const GenericIf* value) const;
  // Removes the member at `key` of a collection; returns whether there was
  // one. Owned entities removed this way become orphans.
  bool genericIfErase(GenericIf* gif, const GenericIf* key) const;
  // An iterator over the members of a collection or array of `gif`, in
  // ascending key order (see `CollectionIterator` for mutation).
  CollectionIterator genericIfIteratorConst(const GenericIf* gif) const;
  // The value of this attribute of `gif` as JSON text: an attribute flagged
  // as JSON text (`hasGnmiJsonStrep`) holds its JSON text already and is
  // returned as is; any other value is rendered (strings quoted and escaped,
  // objects for values and collections, arrays for arrays, path text for
  // entities).
  std::string genericIfGnmiJsonStrep(const GenericIf* gif) const;

 private:
  const VekAttrBase* base_ = nullptr;
};

// A handle on a type descriptor. Two handles are equal when they name the
// same type (same module and index).
class VEK_EXPORT VekType {
 public:
  VekType() = default;
  VekType(const VekTypeBase* base) : base_(base) {}  // NOLINT
  const VekTypeBase* operator->() const { return base_; }
  const VekTypeBase& operator*() const { return *base_; }
  const VekTypeBase* base() const { return base_; }
  explicit operator bool() const { return base_ != nullptr; }
  friend bool operator==(VekType a, VekType b) { return a.base_ == b.base_; }

  // The handle of a runtime object (an entity is its own handle); null for
  // null or for objects without one.
  static Ptr<GenericIf const> genericIf(const PtrInterface* obj);
  // A mutable handle of `obj`. With `checkType`, an object of another type
  // throws `TypeMismatchException`.
  Ptr<GenericIf> genericIf(PtrInterface* obj, bool checkType) const;
  // A new value of this type parsed from `text` (the type's own text form
  // when it has one). Text that does not parse throws `ParseException` when
  // `throwOnError`, else gives null.
  Ptr<GenericIf> genericIf(const String& text, bool throwOnError) const;
  Ptr<GenericIf> genericIf(const char* text, bool throwOnError) const;
  // A handle of the value of this type at `raw`: a new independent copy when
  // `copy`, else a view that the caller keeps alive longer than the handle.
  // For entity types `raw` is the entity (as `PtrInterface*`).
  Ptr<GenericIf> genericIf(const void* raw, bool copy) const;
  // A new value built from constructor arguments: `args[i]` initialises the
  // i-th constructor parameter, every other attribute takes its default.
  // Arguments of the wrong type throw `TypeMismatchException`.
  Ptr<GenericIf> genericIf(const GenericIfArgs& args) const;
  // A new default value of this type.
  Ptr<GenericIf> genericIfDefault() const;

  // Compares two values of the same type; values of different types are
  // only NotEqual.
  static bool genericIfBooleanOp(const GenericIf* a, AttrOp op, const GenericIf* b);

 private:
  const VekTypeBase* base_ = nullptr;
};

// The builtin type of a code (null for unknown codes), and by C++ type.
VEK_EXPORT VekType builtinType(BuiltinCode code);
template <typename T>
VekType builtinType() {
  static_assert(builtinCodeOf<T>() != BuiltinCode::None, "not a builtin type");
  return builtinType(builtinCodeOf<T>());
}
// `Vek::Entity`: the member or target type that admits every entity type.
VEK_EXPORT VekType entityBaseType();
// The collection-control type: attributes of it belong to the runtime's
// bookkeeping of a collection and are not data.
VEK_EXPORT VekType collectionControlType();

}  // namespace Vek
