// Type and attribute descriptors: `VekTypeBase` and `VekAttrBase`, the
// read-only description of every type of a model (its kind, flags, attributes
// in declaration order, text form and layout) and of every attribute (its
// member and key types, flags, default, check and place in its owner).
// Descriptors are made by the type builder (Vek/TypeDef.h) of a module
// (Vek/Module.h), are immutable once the type is finished, and live until the
// process exits; code holds them through the handles of Vek/TypeHandle.h.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Vek/AllocTrack.h"
#include "Vek/Basics.h"
#include "Vek/Exception.h"
#include "Vek/Ptr.h"
#include "Vek/TypeHandle.h"

namespace Vek {

class Module;
class TypeDef;

// Refuses a write with a message (returned non-empty) or accepts it (empty).
// `owner` is the object written to, `key` the collection key (null for other
// attributes), `value` the new value (null for an erase).
using AttrCheck =
    std::function<std::string(const GenericIf& owner, const GenericIf* key, const GenericIf* value)>;
// Renders a value of a type with its own gNMI text form.
using TextFormatter = std::function<std::string(const GenericIf& value)>;
// Parses text into `value` (a default value of the type); false refuses it.
using TextParser = std::function<bool(std::string_view text, GenericIf& value)>;

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

}  // namespace Vek
