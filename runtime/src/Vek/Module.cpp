// Modules and the builtin module: the registry of modules, type creation and
// aliases, and the runtime's own types (builtins, the entity base type, the
// collection-control type, directories and their entries).
#include <mutex>

#include "ValueOps.h"
#include "Vek/Entity.h"
#include "Vek/Module.h"

namespace Vek {

using detail::debug;

namespace {

struct Registry {
  Zolt::Locking::Lock lock;
  std::vector<std::unique_ptr<Module>> modules;

  // The module named `name`, or null; under `lock`.
  Module* find(std::string_view name) const {
    for (const auto& m : modules) {
      if (m->name() == name) return m.get();
    }
    return nullptr;
  }
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
  if (reg.find(name)) ZOLT_FMASSERT(debug(), "Module", "module {} exists already", name);
  const auto index = static_cast<uint32_t>(reg.modules.size());
  reg.modules.push_back(std::unique_ptr<Module>(new Module(std::move(name), index)));
  return *reg.modules.back();
}

Module* Module::module(std::string_view name) {
  builtins();
  auto& reg = registry();
  std::lock_guard guard(reg.lock);
  return reg.find(name);
}

VekTypeBase* Module::typeNew(std::string name, TypeKind kind) {
  if (type(name)) ZOLT_FMASSERT(debug(), "Module", "type {} exists already in {}", name, name_);
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

}  // namespace Vek
