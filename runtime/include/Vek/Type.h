// Type and attribute descriptors (`VekTypeBase`, `VekAttrBase`), their handles
// (`VekType`, `VekAttr`), modules, and the definition API (`TypeDef`,
// `AttrDef`) with which a model is declared in C++ or built by a loader.
//
// A model in a few lines:
//
//   Vek::Module& m = Vek::Module::moduleNew("Net");
//   Vek::VekType status = m.enumType("Status", Vek::builtinType<int>())
//                             .enumerator("up", 1).enumerator("down", 2).done();
//   Vek::VekType counters = m.valueType("Counters")
//                               .scalar("inPkts", Vek::builtinType<unsigned long long>())
//                               .scalar("outPkts", Vek::builtinType<unsigned long long>())
//                               .done();
//   Vek::TypeDef intf = m.entityType("Interface");
//   intf.scalar("mtu", Vek::builtinType<unsigned>(), "1500")
//       .scalar("status", status).scalar("counters", counters)
//       .pointer("peer", intf.type());
//   intf.done();
//
// Descriptors live until the process exits; handles are plain pointers.
#pragma once

#include <concepts>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <boost/container/small_vector.hpp>

#include "Vek/AllocTrack.h"
#include "Vek/Basics.h"
#include "Vek/Exception.h"
#include "Vek/Ptr.h"

namespace Vek {

class GenericIf;
class CollectionIterator;
class Module;
class TypeDef;
class VekAttrBase;
class VekTypeBase;

// Constructor arguments of a value type, in constructor-parameter order.
using GenericIfArgs = boost::container::small_vector<Ptr<GenericIf const>, 8>;

// Comparison operations of `VekType::genericIfBooleanOp`.
enum class AttrOp : uint8_t { Equal, NotEqual, Less, LessEqual, Greater, GreaterEqual };

// Refuses a write with a message (returned non-empty) or accepts it (empty).
// `owner` is the object written to, `key` the collection key (null for other
// attributes), `value` the new value (null for an erase).
using AttrCheck =
    std::function<std::string(const GenericIf& owner, const GenericIf* key, const GenericIf* value)>;
// Renders a value of a type with its own gNMI text form.
using TextFormatter = std::function<std::string(const GenericIf& value)>;
// Parses text into `value` (a default value of the type); false refuses it.
using TextParser = std::function<bool(std::string_view text, GenericIf& value)>;

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
  Ptr<GenericIf> genericIf(const char* text, bool throwOnError) const {
    return genericIf(String(text), throwOnError);
  }
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

// How an attribute is stored in its owner. Derived from the flags and type:
// a scalar value in place (Value), an owned child entity or the value handle
// of an optional scalar, null while unset (Ref), a pointer to
// an entity that does not own it (Pointer), a collection or array
// (Collection), an entity's name (Name), nothing (None: enumerators and
// collection-control attributes).
enum class AttrStorage : uint8_t { None, Value, Ref, Collection, Name, Pointer };

// An attribute descriptor: a field of a value or entity type, or an
// enumerator of an enumeration.
class VEK_EXPORT VekAttrBase {
 public:
  VekAttrBase();
  ~VekAttrBase();
  VekAttrBase(const VekAttrBase&) = delete;
  VekAttrBase& operator=(const VekAttrBase&) = delete;

  AttributeId id() const { return id_; }
  const std::string& name() const { return name_; }
  VekType owner() const { return owner_; }
  // The member type: the value type, the pointed-to or owned entity type, or
  // the element type of a collection or array.
  VekType type() const { return type_; }
  uint32_t flags() const { return flags_; }
  bool isCollection() const { return (flags_ & AttrFlag::COLLECTION) != 0; }
  bool isStack() const { return (flags_ & AttrFlag::STACK) != 0; }
  bool isInstantiating() const { return (flags_ & AttrFlag::INSTANTIATING) != 0; }
  bool isPointer() const { return (flags_ & AttrFlag::POINTER) != 0; }
  bool isArray() const { return (flags_ & AttrFlag::ARRAY) != 0; }
  bool hasGnmiJsonStrep() const { return (flags_ & AttrFlag::JSON_STREP) != 0; }
  bool isInternallyKeyed() const { return (flags_ & AttrFlag::INTERNALLY_KEYED) != 0; }
  bool isReadOnly() const { return (flags_ & AttrFlag::READ_ONLY) != 0; }
  bool isEnumerator() const { return (flags_ & AttrFlag::ENUMERATOR) != 0; }
  bool isOptional() const { return (flags_ & AttrFlag::OPTIONAL) != 0; }
  // Key type of a collection (unsigned int for arrays); null otherwise.
  VekType indexType() const { return indexType_; }
  // The attribute of the member type that holds the member's key (named by
  // `keyAttrName`), or null.
  VekAttr indexAttr() const;
  // The declared name of the members' key attribute; empty when none.
  const std::string& keyAttrName() const { return keyAttrName_; }
  // The default value of a scalar attribute (null: the type's default).
  const Ptr<GenericIf const>& defaultValue() const { return default_; }
  // The value of an enumerator; throws `EnumException` for any other
  // attribute.
  int64_t enumValue() const {
    if (!isEnumerator()) throwEnumAttrWrongTypeException(*owner_, name_);
    return enumValue_;
  }
  const AttrCheck& check() const { return check_; }

  // Layout: how and where the owner stores this attribute.
  AttrStorage storage() const { return storage_; }
  size_t offset() const { return offset_; }

 private:
  friend class TypeDef;
  friend class VekTypeBase;
  AttributeId id_;
  std::string name_;
  const VekTypeBase* owner_ = nullptr;
  VekType type_;
  VekType indexType_;
  uint32_t flags_ = 0;
  std::string keyAttrName_;
  Ptr<GenericIf const> default_;
  int64_t enumValue_ = 0;
  AttrCheck check_;
  AttrStorage storage_ = AttrStorage::None;
  size_t offset_ = 0;
};

// A type descriptor.
//
// A type made with `Module::aliasType` is its base type under another name:
// it keeps its own name, index and flags, and answers every other property
// (attributes, attribute order and lookups, constructor parameters, value
// attribute, text form, underlying type, layout) as the end of its alias
// chain does.
class VEK_EXPORT VekTypeBase {
 public:
  class AttributeQIterator;

  VekTypeBase(const VekTypeBase&) = delete;
  VekTypeBase& operator=(const VekTypeBase&) = delete;
  ~VekTypeBase();

  const std::string& name() const { return name_; }
  // "Module::Name".
  std::string qualifiedName() const;
  const Module& module() const { return *module_; }
  uint32_t index() const { return index_; }

  TypeKind kind() const { return kind_; }
  uint8_t kindCode() const { return static_cast<uint8_t>(kind_); }
  bool isEntity() const { return kind_ == TypeKind::Entity; }
  bool isBuiltin() const { return kind_ == TypeKind::Builtin; }
  bool isEnum() const { return kind_ == TypeKind::Enumeration; }
  bool isValue() const { return kind_ == TypeKind::Value; }
  bool isCollectionControl() const { return kind_ == TypeKind::CollectionControl; }
  // The builtin code of a builtin type (None for others).
  BuiltinCode builtinCode() const { return kind_ == TypeKind::Builtin ? code_ : BuiltinCode::None; }
  // The builtin code of the stored representation: the code itself for a
  // builtin, the underlying type's for an enumeration, None otherwise.
  BuiltinCode storageCode() const { return code_; }

  uint32_t flags() const { return flags_; }
  // Whether this type, or a type it aliases, carries `TypeFlag::WRAPPER`.
  bool isWrapper() const;
  // The type this one aliases directly, or null.
  VekType aliasOf() const { return aliasOf_; }
  // The end of the alias chain: the type itself when it aliases nothing.
  // Inline and O(1): it is on every generic read's path.
  VekType baseType() const { return base_; }
  // The underlying builtin type of an enumeration; null otherwise.
  VekType underlyingType() const { return base_->underlying_; }
  // The value attribute: the wrapped value of a wrapper, or null.
  VekAttr valAttr() const { return base_->valAttr_; }
  // Whether the type has its own gNMI text form (`GenericIf::gnmiStrRep`).
  bool hasGnmiStrRep() const { return static_cast<bool>(base_->formatter_); }
  const TextFormatter& gnmiFormatter() const { return base_->formatter_; }
  const TextParser& gnmiParser() const { return base_->parser_; }
  // The constructor parameters of a value type, in order.
  const std::vector<VekAttr>& ctorParams() const { return base_->ctorParams_; }

  // Attributes in declaration order (entities start with "name"; the
  // attributes of an enumeration are its enumerators).
  size_t attrCount() const { return base_->attrs_.size(); }
  VekAttr attrAt(size_t position) const {
    return position < attrCount() ? base_->attrs_[position].get() : nullptr;
  }
  // The attribute at `position`, which must be below `attrCount()`.
  const VekAttrBase& attrRefAt(size_t position) const { return *base_->attrs_[position]; }
  // The attribute with id `id` (1 is the first), or null.
  VekAttr attr(AttributeId id) const;
  // The attribute named `name`, or null. Constant time: names are indexed.
  VekAttr attr(std::string_view name) const;
  VekAttr attr(const char* name) const { return attr(std::string_view(name ? name : "")); }
  VekAttr attr(const std::string& name) const { return attr(std::string_view(name)); }
  // The enumerator whose value is `value`, null when there is none. Throws
  // `EnumException` when this is not an enumeration or T is not its
  // underlying type. An integer argument always means an enumerator value,
  // never an attribute id (ids are `AttributeId`s).
  template <std::integral T>
  VekAttr attr(T value) const {
    checkEnumValueType(builtinCodeOf<T>());
    return enumerator(static_cast<int64_t>(value));
  }
  // The enumerator named `name`; throws `EnumException` when this is not an
  // enumeration or it has no such enumerator.
  VekAttr enumerator(std::string_view name) const;
  // The enumerator whose value is `value`, null when there is none; throws
  // `EnumException` when this is not an enumeration.
  VekAttr enumerator(int64_t value) const;

  // Live objects of this type (entities and value handles).
  AllocTrackTypeInfo& allocTrack() const { return allocTrack_; }
  // Whether `done()` has laid the type out; only sealed types make objects.
  bool isSealed() const { return sealed_; }

  // Layout of a value (size and alignment of its representation) and of an
  // entity's attribute block.
  size_t valueSize() const { return size_; }
  size_t valueAlign() const { return align_; }
  size_t blockSize() const { return blockSize_; }
  // The default value of a value type, laid out (null for other kinds).
  const void* defaultValueRaw() const { return defaultBlob_.get(); }

 private:
  friend class Module;
  friend class TypeDef;
  VekTypeBase(Module* module, uint32_t index, std::string name, TypeKind kind);
  void checkEnumValueType(BuiltinCode given) const;
  void layOut();

  Module* module_;
  uint32_t index_;
  std::string name_;
  // The end of the alias chain (this type when it aliases nothing): every
  // property but name, index and flags is read from it.
  const VekTypeBase* base_;
  TypeKind kind_;
  BuiltinCode code_ = BuiltinCode::None;
  uint32_t flags_ = 0;
  VekType aliasOf_;
  VekType underlying_;
  VekAttr valAttr_;
  std::vector<std::unique_ptr<VekAttrBase>> attrs_;
  // Attributes by name; the keys view the attributes' own names.
  std::unordered_map<std::string_view, const VekAttrBase*> attrsByName_;
  std::vector<VekAttr> ctorParams_;
  TextFormatter formatter_;
  TextParser parser_;
  size_t size_ = 0;
  size_t align_ = 1;
  size_t blockSize_ = 0;
  struct FreeBlob {
    const VekTypeBase* type;
    void operator()(std::byte* blob) const;
  };
  std::unique_ptr<std::byte[], FreeBlob> defaultBlob_{nullptr, FreeBlob{nullptr}};
  bool sealed_ = false;
  mutable AllocTrackTypeInfo allocTrack_;
};

// A cursor over the attributes of a type, in declaration order. Copyable, so
// a position can be saved and resumed.
class VEK_EXPORT VekTypeBase::AttributeQIterator {
 public:
  AttributeQIterator() = default;
  explicit AttributeQIterator(const VekTypeBase& type, size_t position = 0)
      : type_(&type), position_(position) {}
  explicit AttributeQIterator(VekType type) : type_(type.base()) {}

  explicit operator bool() const { return type_ && position_ < type_->attrCount(); }
  AttributeQIterator& operator++() {
    ++position_;
    return *this;
  }
  // The current attribute; the cursor must be valid (`operator bool`).
  VekAttr operator*() const { return &type_->attrRefAt(position_); }
  const VekAttrBase* operator->() const { return &type_->attrRefAt(position_); }
  size_t position() const { return position_; }

 private:
  const VekTypeBase* type_ = nullptr;
  size_t position_ = 0;
};

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

// A named group of types. The module of the builtin types is "Vek" (index
// 0); modules are created once and live until the process exits.
class VEK_EXPORT Module {
 public:
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Creates the module `name`; a second module of one name is fatal.
  static Module& moduleNew(std::string name);
  // The module named `name`, or null.
  static Module* module(std::string_view name);
  static Module& builtins();

  const std::string& name() const { return name_; }
  uint32_t index() const { return index_; }

  TypeDef entityType(std::string name);
  // An entity type with the type flags `flags` from the start (before its
  // name attribute is made: see `TypeFlag::NAME_NOT_DATA`).
  TypeDef entityType(std::string name, uint32_t flags);
  TypeDef valueType(std::string name);
  // An enumeration over one of the six integer builtins up to int (codes 1
  // to 6); any other underlying type is fatal.
  TypeDef enumType(std::string name, VekType underlying);
  // A type that aliases `target`, with its own flags.
  VekType aliasType(std::string name, VekType target, uint32_t flags = 0);

  // Types in creation order; by name (null when unknown).
  size_t typeCount() const;
  VekType type(uint32_t index) const;
  VekType type(std::string_view name) const;

 private:
  friend class VekTypeBase;
  Module(std::string name, uint32_t index) : name_(std::move(name)), index_(index) {}
  VekTypeBase* typeNew(std::string name, TypeKind kind);

  std::string name_;
  uint32_t index_;
  std::vector<std::unique_ptr<VekTypeBase>> types_;
};

}  // namespace Vek
