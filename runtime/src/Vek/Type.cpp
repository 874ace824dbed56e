// Type descriptors, modules, the builtin module and the definition API.
#include <mutex>

#include "ValueOps.h"
#include "Vek/Entity.h"

namespace Vek {

using detail::debug;

namespace {

struct Registry {
  Zolt::Locking::Lock lock;
  std::vector<std::unique_ptr<Module>> modules;
};
// Never destroyed: descriptors must stay valid while static objects that
// hold runtime values are destroyed at exit.
Registry& registry() {
  static Registry* r = new Registry;
  return *r;
}

// Filled while the builtin module is created, read through the accessors.
const VekTypeBase* builtinTable[23] = {};
const VekTypeBase* entityBase = nullptr;
const VekTypeBase* controlType = nullptr;
const VekTypeBase* dirTypeBase = nullptr;
const VekTypeBase* entryTypeBase = nullptr;

constexpr BuiltinCode BUILTIN_CODES[] = {
    BuiltinCode::UnsignedChar, BuiltinCode::SignedChar, BuiltinCode::UnsignedShort,
    BuiltinCode::Short,        BuiltinCode::UnsignedInt, BuiltinCode::Int,
    BuiltinCode::UnsignedLongLong, BuiltinCode::LongLong, BuiltinCode::Bool,
    BuiltinCode::Char,         BuiltinCode::Float,       BuiltinCode::Double,
    BuiltinCode::String,       BuiltinCode::Bytes,       BuiltinCode::Seconds};

}  // namespace

// ---------------------------------------------------------------- modules

Module& Module::builtins() {
  static Module* module = [] {
    auto& reg = registry();
    std::lock_guard guard(reg.lock);
    reg.modules.push_back(std::unique_ptr<Module>(new Module("Vek", 0)));
    Module* m = reg.modules.back().get();
    for (const BuiltinCode code : BUILTIN_CODES) {
      VekTypeBase* t = m->typeNew(detail::builtinName(code), TypeKind::Builtin);
      t->code_ = code;
      detail::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
        t->size_ = sizeof(T);
        t->align_ = alignof(T);
      });
      t->sealed_ = true;
      builtinTable[static_cast<size_t>(code)] = t;
    }
    entityBase = m->entityType("Vek::Entity").done().base();
    VekTypeBase* control = m->typeNew("Vek::CollectionControl", TypeKind::CollectionControl);
    control->sealed_ = true;
    controlType = control;
    TypeDef dir = m->entityType("Vek::Dir");
    dir.collection("entityPtr", builtinTable[static_cast<size_t>(BuiltinCode::String)], entityBase,
                   AttrFlag::INSTANTIATING);
    dirTypeBase = dir.done().base();
    entryTypeBase = m->entityType("Vek::Dir::Entry").pointer("entity", entityBase).done().base();
    return m;
  }();
  return *module;
}

Module& Module::moduleNew(std::string name) {
  builtins();
  auto& reg = registry();
  std::lock_guard guard(reg.lock);
  for (const auto& m : reg.modules) {
    if (m->name() == name) ZOLT_FMASSERT(debug(), "Module", "module {} exists already", name);
  }
  const auto index = static_cast<uint32_t>(reg.modules.size());
  reg.modules.push_back(std::unique_ptr<Module>(new Module(std::move(name), index)));
  return *reg.modules.back();
}

Module* Module::module(std::string_view name) {
  builtins();
  auto& reg = registry();
  std::lock_guard guard(reg.lock);
  for (const auto& m : reg.modules) {
    if (m->name() == name) return m.get();
  }
  return nullptr;
}

VekTypeBase* Module::typeNew(std::string name, TypeKind kind) {
  for (const auto& t : types_) {
    if (t->name() == name) ZOLT_FMASSERT(debug(), "Module", "type {} exists already in {}", name, name_);
  }
  const auto index = static_cast<uint32_t>(types_.size());
  types_.push_back(std::unique_ptr<VekTypeBase>(new VekTypeBase(this, index, std::move(name), kind)));
  return types_.back().get();
}

size_t Module::typeCount() const { return types_.size(); }
VekType Module::type(uint32_t index) const {
  return index < types_.size() ? types_[index].get() : nullptr;
}
VekType Module::type(std::string_view name) const {
  for (const auto& t : types_) {
    if (t->name() == name) return t.get();
  }
  return nullptr;
}

TypeDef Module::entityType(std::string name) { return entityType(std::move(name), 0); }

TypeDef Module::entityType(std::string name, uint32_t flags) {
  VekTypeBase* t = typeNew(std::move(name), TypeKind::Entity);
  t->flags_ = flags;
  TypeDef def(t);
  AttrDef nameAttr;
  nameAttr.name = (flags & TypeFlag::NAME_NOT_DATA) ? "@name" : "name";
  nameAttr.type = builtinTable[static_cast<size_t>(BuiltinCode::String)];
  nameAttr.flags = AttrFlag::READ_ONLY;
  def.attr(std::move(nameAttr));
  return def;
}

TypeDef Module::valueType(std::string name) { return TypeDef(typeNew(std::move(name), TypeKind::Value)); }

TypeDef Module::enumType(std::string name, VekType underlying) {
  const BuiltinCode code = underlying ? underlying->builtinCode() : BuiltinCode::None;
  if (code < BuiltinCode::UnsignedChar || code > BuiltinCode::Int) {
    ZOLT_FMASSERT(debug(), "Module", "enumeration {} cannot be over {}", name, underlying);
  }
  VekTypeBase* t = typeNew(std::move(name), TypeKind::Enumeration);
  t->underlying_ = underlying;
  t->code_ = code;
  return TypeDef(t);
}

VekType Module::aliasType(std::string name, VekType target, uint32_t flags) {
  if (!target || !target->isSealed()) {
    ZOLT_FMASSERT(debug(), "Module", "alias {} needs a finished target type", name);
  }
  VekTypeBase* t = typeNew(std::move(name), target->kind());
  t->aliasOf_ = target;
  // Everything but the name and the flags is the base type's.
  t->base_ = target->base_;
  t->flags_ = flags;
  t->code_ = target->storageCode();
  t->size_ = target->valueSize();
  t->align_ = target->valueAlign();
  t->sealed_ = true;
  return t;
}

// ---------------------------------------------------------------- builtins

VekType builtinType(BuiltinCode code) {
  Module::builtins();
  const auto index = static_cast<size_t>(code);
  return index < std::size(builtinTable) ? builtinTable[index] : nullptr;
}
VekType entityBaseType() {
  Module::builtins();
  return entityBase;
}
VekType collectionControlType() {
  Module::builtins();
  return controlType;
}
VekType Dir::dirType() {
  Module::builtins();
  return dirTypeBase;
}
VekType Dir::Entry::entryType() {
  Module::builtins();
  return entryTypeBase;
}

// ---------------------------------------------------------------- descriptors

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
    offset = (offset + alignment - 1) / alignment * alignment;
    a->offset_ = offset;
    offset += size;
    align = std::max(align, alignment);
  }
  offset = (offset + align - 1) / align * align;
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

// ---------------------------------------------------------------- TypeDef

VekAttrBase& TypeDef::last() {
  if (type_->attrs_.empty()) ZOLT_FMASSERT(debug(), "TypeDef", "{} has no attribute yet", type_->name());
  return *type_->attrs_.back();
}

VekAttr TypeDef::named(std::string_view attrName) const {
  const VekAttr a = type_->attr(attrName);
  if (!a) ZOLT_FMASSERT(debug(), "TypeDef", "{} has no attribute {}", type_->name(), attrName);
  return a;
}

TypeDef& TypeDef::attr(AttrDef def) {
  if (type_->sealed_) ZOLT_FMASSERT(debug(), "TypeDef", "{} is finished", type_->name());
  if (type_->attr(def.name)) {
    ZOLT_FMASSERT(debug(), "TypeDef", "{} has an attribute {} already", type_->name(), def.name);
  }
  if (!def.type && !type_->isEnum()) {
    ZOLT_FMASSERT(debug(), "TypeDef", "{}.{} has no type", type_->name(), def.name);
  }
  auto a = std::make_unique<VekAttrBase>();
  a->id_ = AttributeId(static_cast<int32_t>(type_->attrs_.size() + 1));
  a->name_ = std::move(def.name);
  a->owner_ = type_;
  a->type_ = def.type;
  a->indexType_ = def.indexType;
  a->flags_ = def.flags;
  a->keyAttrName_ = std::move(def.keyAttrName);
  a->enumValue_ = def.enumValue;
  a->check_ = std::move(def.check);
  if (!def.defaultText.empty()) {
    Ptr<GenericIf> value = def.type.genericIf(String(def.defaultText), false);
    if (!value) {
      ZOLT_FMASSERT(debug(), "TypeDef", "{}.{}: default \"{}\" is not a {}", type_->name(),
                    a->name_, def.defaultText, def.type);
    }
    a->default_ = value;
  }
  type_->attrsByName_.emplace(a->name_, a.get());
  type_->attrs_.push_back(std::move(a));
  return *this;
}

namespace {
AttrDef attrDef(std::string name, VekType type, uint32_t flags, VekType indexType = {}) {
  AttrDef def;
  def.name = std::move(name);
  def.type = type;
  def.flags = flags;
  def.indexType = indexType;
  return def;
}
}  // namespace

TypeDef& TypeDef::scalar(std::string name, VekType type, std::string defaultText) {
  AttrDef def = attrDef(std::move(name), type, 0);
  def.defaultText = std::move(defaultText);
  return attr(std::move(def));
}

TypeDef& TypeDef::pointer(std::string name, VekType target) {
  return attr(attrDef(std::move(name), target, AttrFlag::POINTER));
}

TypeDef& TypeDef::child(std::string name, VekType entityType) {
  return attr(attrDef(std::move(name), entityType, AttrFlag::INSTANTIATING));
}

TypeDef& TypeDef::collection(std::string name, VekType key, VekType member, uint32_t memberFlags) {
  return attr(attrDef(std::move(name), member, AttrFlag::COLLECTION | memberFlags, key));
}

TypeDef& TypeDef::array(std::string name, VekType element) {
  return attr(attrDef(std::move(name), element, AttrFlag::ARRAY, builtinType<unsigned int>()));
}

TypeDef& TypeDef::collectionControl(std::string name) {
  return attr(attrDef(std::move(name), collectionControlType(), 0));
}

TypeDef& TypeDef::enumerator(std::string name, int64_t value) {
  if (!type_->isEnum()) throwNotEnumTypeException(*type_);
  AttrDef def = attrDef(std::move(name), type_, AttrFlag::ENUMERATOR);
  def.enumValue = value;
  return attr(std::move(def));
}

TypeDef& TypeDef::check(AttrCheck check) {
  last().check_ = std::move(check);
  return *this;
}
TypeDef& TypeDef::keyAttr(std::string name) {
  last().keyAttrName_ = std::move(name);
  return *this;
}
TypeDef& TypeDef::jsonText() {
  last().flags_ |= AttrFlag::JSON_STREP;
  return *this;
}
TypeDef& TypeDef::readOnly() {
  last().flags_ |= AttrFlag::READ_ONLY;
  return *this;
}
TypeDef& TypeDef::attrFlagsIs(uint32_t flags) {
  last().flags_ = flags;
  return *this;
}
TypeDef& TypeDef::flagsIs(uint32_t flags) {
  type_->flags_ = flags;
  return *this;
}
TypeDef& TypeDef::wrapperOf(std::string_view attrName) {
  type_->flags_ |= TypeFlag::WRAPPER;
  type_->valAttr_ = named(attrName);
  return *this;
}
TypeDef& TypeDef::valAttr(std::string_view attrName) {
  type_->valAttr_ = named(attrName);
  return *this;
}
TypeDef& TypeDef::constructorParams(const std::vector<std::string>& names) {
  type_->ctorParams_.clear();
  for (const auto& n : names) type_->ctorParams_.push_back(named(n));
  return *this;
}
TypeDef& TypeDef::gnmiText(TextFormatter formatter, TextParser parser) {
  type_->formatter_ = std::move(formatter);
  type_->parser_ = std::move(parser);
  return *this;
}

VekType TypeDef::done() {
  if (type_->sealed_) ZOLT_FMASSERT(debug(), "TypeDef", "{} is finished already", type_->name());
  type_->layOut();
  return type_;
}

// ---------------------------------------------------------------- VekType

Ptr<GenericIf const> VekType::genericIf(const PtrInterface* obj) {
  return obj ? Ptr<GenericIf const>(obj->genericIfPtr()) : nullptr;
}

bool detail::admits(const VekTypeBase& type, const GenericIf& gif) {
  return gif.type()->baseType() == type.baseType() ||
         (gif.isEntity() && VekType(&type) == entityBaseType());
}

Ptr<GenericIf> VekType::genericIf(PtrInterface* obj, bool checkType) const {
  const GenericIf* gif = obj ? obj->genericIfPtr() : nullptr;
  if (!gif) return nullptr;
  if (checkType && !detail::admits(*base_, *gif)) {
    throw TypeMismatchException(
        fmt::format("{} is not a {}", gif->type()->qualifiedName(), base_->qualifiedName()));
  }
  return Ptr<GenericIf>(const_cast<GenericIf*>(gif));
}

Ptr<GenericIf> VekType::genericIf(const String& text, bool throwOnError) const {
  if (!base_->isEntity() && !base_->isCollectionControl()) {
    Ptr<GenericIf> value = detail::valueNew(*base_, nullptr);
    if (detail::parse(*base_, text.stdString(), value->voidPtr())) return value;
  }
  if (throwOnError) {
    throw ParseException(fmt::format("\"{}\" is not a valid {}", text.stdString(), base_->qualifiedName()));
  }
  return nullptr;
}

Ptr<GenericIf> VekType::genericIf(const void* raw, bool copy) const {
  if (base_->isEntity()) {
    return genericIf(static_cast<PtrInterface*>(const_cast<void*>(raw)), false);
  }
  return copy ? detail::valueNew(*base_, raw) : detail::valueView(*base_, raw);
}

Ptr<GenericIf> VekType::genericIf(const GenericIfArgs& args) const {
  const auto& params = base_->ctorParams();
  if (args.size() > params.size()) {
    throw TypeMismatchException(fmt::format("{} takes {} constructor arguments, not {}",
                                            base_->qualifiedName(), params.size(), args.size()));
  }
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] && !detail::admits(*params[i]->type(), *args[i])) {
      throw TypeMismatchException(fmt::format("argument {} of {} must be a {}, not {}",
                                              params[i]->name(), base_->qualifiedName(),
                                              params[i]->type()->qualifiedName(),
                                              args[i]->type()->qualifiedName()));
    }
  }
  Ptr<GenericIf> value = detail::valueNew(*base_, nullptr);
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i]) {
      detail::assign(*params[i]->type(), static_cast<char*>(value->voidPtr()) + params[i]->offset(),
                     args[i]->voidPtr());
    }
  }
  return value;
}

Ptr<GenericIf> VekType::genericIfDefault() const { return detail::valueNew(*base_, nullptr); }

bool VekType::genericIfBooleanOp(const GenericIf* a, AttrOp op, const GenericIf* b) {
  int c;
  if (!a || !b) {
    c = (a == b) ? 0 : 1;
    if (op != AttrOp::Equal && op != AttrOp::NotEqual) return false;
  } else if (a->type()->baseType() != b->type()->baseType()) {
    return op == AttrOp::NotEqual;
  } else {
    c = a == b ? 0 : detail::compare(*a->type(), a->voidPtr(), b->voidPtr());
  }
  switch (op) {
    case AttrOp::Equal: return c == 0;
    case AttrOp::NotEqual: return c != 0;
    case AttrOp::Less: return c < 0;
    case AttrOp::LessEqual: return c <= 0;
    case AttrOp::Greater: return c > 0;
    case AttrOp::GreaterEqual: return c >= 0;
  }
  return false;
}

}  // namespace Vek
