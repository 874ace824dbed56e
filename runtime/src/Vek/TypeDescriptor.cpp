// Type and attribute descriptors: lookups of attributes and enumerators, and
// the layout of a finished type.
#include "Align.h"
#include "ValueOps.h"
#include "Vek/Collection.h"
#include "Vek/Module.h"
#include "Vek/TypeDescriptor.h"

namespace Vek {

using detail::debug;

VekTypeBase::VekTypeBase(Module* module, uint32_t index, std::string name, TypeKind kind)
    : module_(module),
      index_(index),
      name_(std::move(name)),
      base_(this),
      kind_(kind),
      allocTrack_(module->index() == 0 ? name_ : module->name() + "::" + name_) {}

VekTypeBase::~VekTypeBase() = default;

void VekTypeBase::FreeBlob::operator()(std::byte* blob) const {
  if (!blob) return;
  detail::destroy(*type, blob);
  ::operator delete(blob, std::align_val_t(type->valueAlign()));
}

std::string VekTypeBase::qualifiedName() const { return allocTrack_.name(); }

bool VekTypeBase::isWrapper() const {
  for (VekType t = this; t; t = t->aliasOf()) {
    if (t->flags() & TypeFlag::WRAPPER) return true;
  }
  return false;
}

VekAttr VekTypeBase::attr(AttributeId id) const {
  const VekTypeBase& t = *base_;
  if (id.value() < 1 || static_cast<size_t>(id.value()) > t.attrs_.size()) return nullptr;
  return t.attrs_[static_cast<size_t>(id.value()) - 1].get();
}

VekAttr VekTypeBase::attr(std::string_view name) const {
  const auto& index = base_->attrsByName_;
  const auto it = index.find(name);
  return it == index.end() ? nullptr : it->second;
}

VekAttr VekTypeBase::enumerator(int64_t value) const {
  if (!isEnum()) throwNotEnumTypeException(*this);
  for (const auto& a : baseType()->attrs_) {
    if (a->enumValue_ == value) return a.get();
  }
  return nullptr;
}

VekAttr VekTypeBase::enumerator(std::string_view name) const {
  if (!isEnum()) throwNotEnumTypeException(*this);
  const VekAttr a = attr(name);
  if (!a) throwNotEnumConstantException(*this, std::string(name));
  return a;
}

void VekTypeBase::checkEnumValueType(BuiltinCode given) const {
  if (!isEnum()) throwNotEnumTypeException(*this);
  if (given != code_) throwEnumValueWrongUnderlyingTypeException(*this, detail::builtinName(given));
}

VekAttrBase::VekAttrBase() = default;
VekAttrBase::~VekAttrBase() = default;

VekAttr VekAttrBase::indexAttr() const {
  if (keyAttrName_.empty() || !type_) return nullptr;
  return type_->attr(keyAttrName_);
}

void VekTypeBase::layOut() {
  size_t offset = 0;
  size_t align = 1;
  for (auto& a : attrs_) {
    size_t size = 0;
    size_t alignment = 1;
    if (isEnum()) {
      a->storage_ = AttrStorage::None;
    } else if (isEntity() && a->id() == AttributeId(1)) {
      a->storage_ = AttrStorage::Name;
    } else if (a->type()->isCollectionControl()) {
      a->storage_ = AttrStorage::None;
    } else if (a->flags() & (AttrFlag::COLLECTION | AttrFlag::ARRAY)) {
      a->storage_ = AttrStorage::Collection;
      size = sizeof(Ptr<Collection>);
      alignment = alignof(Ptr<Collection>);
    } else if (a->flags() & (AttrFlag::POINTER | AttrFlag::INSTANTIATING)) {
      if (!a->type()->isEntity()) {
        ZOLT_FMASSERT(debug(), "TypeDef", "{}.{}: pointers and children must be entities",
                      qualifiedName(), a->name());
      }
      // An owned child is held by a counted reference; a pointer by a plain
      // one (see Entity.h: pointers do not keep their targets alive).
      a->storage_ = (a->flags() & AttrFlag::INSTANTIATING) ? AttrStorage::Ref : AttrStorage::Pointer;
      size = sizeof(Ptr<GenericIf>);
      alignment = alignof(Ptr<GenericIf>);
      static_assert(sizeof(Ptr<GenericIf>) == sizeof(GenericIf*));
    } else {
      if (a->type()->isEntity() || !a->type()->isSealed()) {
        ZOLT_FMASSERT(debug(), "TypeDef", "{}.{}: a scalar needs a finished non-entity type",
                      qualifiedName(), a->name());
      }
      if (a->flags() & AttrFlag::OPTIONAL) {
        // Held as a value handle, null while unset.
        if (!isEntity() || a->default_) {
          ZOLT_FMASSERT(debug(), "TypeDef", "{}.{}: an optional scalar belongs to an entity and starts unset",
                        qualifiedName(), a->name());
        }
        a->storage_ = AttrStorage::Ref;
        size = sizeof(Ptr<GenericIf>);
        alignment = alignof(Ptr<GenericIf>);
      } else {
        a->storage_ = AttrStorage::Value;
        size = a->type()->valueSize();
        alignment = a->type()->valueAlign();
      }
    }
    if (isValue() && a->storage_ != AttrStorage::Value) {
      ZOLT_FMASSERT(debug(), "TypeDef", "{}.{}: value types hold only scalars", qualifiedName(),
                    a->name());
    }
    offset = detail::alignUp(offset, alignment);
    a->offset_ = offset;
    offset += size;
    align = std::max(align, alignment);
  }
  offset = detail::alignUp(offset, align);
  if (isEntity()) {
    blockSize_ = offset;
  } else if (isValue()) {
    size_ = offset;
    align_ = align;
    if (ctorParams_.empty()) {
      for (auto& a : attrs_) ctorParams_.push_back(a.get());
    }
  } else if (isEnum()) {
    size_ = underlying_->valueSize();
    align_ = underlying_->valueAlign();
  }
  sealed_ = true;
  if (isValue()) {
    auto* blob = static_cast<std::byte*>(::operator new(size_ ? size_ : 1, std::align_val_t(align_)));
    detail::construct(*this, blob);
    defaultBlob_ = std::unique_ptr<std::byte[], FreeBlob>(blob, FreeBlob{this});
  }
}

}  // namespace Vek
