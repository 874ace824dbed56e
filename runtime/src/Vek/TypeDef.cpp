// The type builder: attributes, their modifiers and the type's properties,
// checked as they are declared, then the layout by `done()`.
#include "ValueOps.h"
#include "Vek/TypeDef.h"

namespace Vek {

using detail::debug;

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

}  // namespace Vek
