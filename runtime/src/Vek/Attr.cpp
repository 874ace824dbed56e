// Generic attribute access: reads, writes, erases, iteration and JSON text of
// any attribute of any entity or value.
#include "ValueOps.h"
#include "Vek/Entity.h"

namespace Vek {

namespace {

[[noreturn]] void refuse(const std::string& message) { throw TypeMismatchException(message); }

// Throws the refusal of `checkOwner`. Out of line and cold, so the checks on
// the read paths compile to a few compares without a stack frame.
[[noreturn, gnu::noinline, gnu::cold]] void refuseOwner(const VekAttr& attr, const GenericIf& gif) {
  if (!attr) refuse(fmt::format("{} has no such attribute", gif.type()->qualifiedName()));
  refuse(fmt::format("{} is an attribute of {}, not of {}", attr->name(),
                     attr->owner()->qualifiedName(), gif.type()->qualifiedName()));
}

// Checks that `attr` belongs to the type of `gif`.
inline void checkOwner(const VekAttr& attr, const GenericIf& gif) {
  if (attr && (attr->owner() == gif.type() ||
               attr->owner()->baseType() == gif.type()->baseType())) [[likely]] {
    return;
  }
  refuseOwner(attr, gif);
}

// Where the attributes of `gif` are stored.
char* storageOf(const GenericIf& gif) {
  if (gif.isEntity()) return static_cast<char*>(static_cast<const Entity&>(gif).block());
  return static_cast<char*>(const_cast<void*>(gif.voidPtr()));
}

Entity& entityOf(GenericIf& gif) { return static_cast<Entity&>(gif); }

// Whether the name of the entity `gif` is not data (TypeFlag::NAME_NOT_DATA).
bool nameNotData(const GenericIf& gif) { return (gif.type()->flags() & TypeFlag::NAME_NOT_DATA) != 0; }

void runCheck(const VekAttrBase& attr, const GenericIf& owner, const GenericIf* key,
              const GenericIf* value) {
  if (!attr.check()) return;
  std::string message = attr.check()(owner, key, value);
  if (!message.empty()) throw ValueRejectedException(message);
}

}  // namespace

const GenericIf* detail::keyFor(const VekAttrBase& attr, const GenericIf* key, Ptr<GenericIf>& holder) {
  if (!key) refuse(fmt::format("{} is a collection: a key is needed", attr.name()));
  const VekTypeBase& index = *attr.indexType();
  if (detail::admits(index, *key)) return key;
  const VekAttr inner = key->type()->valAttr();
  if (key->type()->isWrapper() && inner && inner->type()->baseType() == index.baseType()) {
    holder = detail::valueNew(index, static_cast<const char*>(key->voidPtr()) + inner->offset());
    return holder;
  }
  const VekAttr wrapped = index.valAttr();
  if (index.isWrapper() && wrapped && detail::admits(*wrapped->type(), *key)) {
    holder = detail::valueNew(index, nullptr);
    detail::assign(*wrapped->type(), static_cast<char*>(holder->voidPtr()) + wrapped->offset(),
                   key->voidPtr());
    return holder;
  }
  refuse(fmt::format("{} is keyed by {}, not by {}", attr.name(), index.qualifiedName(),
                     key->type()->qualifiedName()));
}

namespace {

Ptr<GenericIf>& refSlot(const GenericIf& gif, const VekAttrBase& attr) {
  return *reinterpret_cast<Ptr<GenericIf>*>(storageOf(gif) + attr.offset());
}

void checkMember(const VekAttrBase& attr, const GenericIf* value) {
  if (value && !detail::admits(*attr.type(), *value)) {
    refuse(fmt::format("{} holds {}, not {}", attr.name(), attr.type()->qualifiedName(),
                       value->type()->qualifiedName()));
  }
}

// Pointers and entity keys may only name entities in the model.
void checkInModel(const VekAttrBase& attr, const GenericIf* entity) {
  if (entity && entity->isEntity() && static_cast<const Entity*>(entity)->hasLeft()) {
    refuse(fmt::format("{} cannot refer to {}: it has left the model", attr.name(),
                       static_cast<const Entity*>(entity)->fullName()));
  }
}

}  // namespace

// ---------------------------------------------------------------- typed access

namespace {

// `rawAttr` for everything but a scalar of the requested representation:
// the name attribute, and the refusals.
[[gnu::noinline, gnu::cold]] const void* rawAttrOther(const GenericIf& gif, const VekAttr& attr,
                                                     BuiltinCode code) {
  if (attr->storage() == AttrStorage::Name && (code == BuiltinCode::None || code == BuiltinCode::String)) {
    return &static_cast<const Entity&>(gif).name();
  }
  if (attr->isOptional() && attr->storage() == AttrStorage::Ref &&
      (code == BuiltinCode::None || attr->type()->storageCode() == code)) {
    const Ptr<GenericIf>& held = refSlot(gif, *attr);
    if (!held) refuse(fmt::format("{} is unset", attr->name()));
    return held->voidPtr();
  }
  if (attr->storage() != AttrStorage::Value) refuse(fmt::format("{} is not a scalar", attr->name()));
  refuse(fmt::format("{} holds {}, not {}", attr->name(), attr->type()->qualifiedName(),
                     detail::builtinName(code)));
}

}  // namespace

const void* GenericIf::rawAttr(const VekAttr& attr, BuiltinCode code) const {
  checkOwner(attr, *this);
  const VekAttrBase& a = *attr;
  if (a.storage() == AttrStorage::Value &&
      (code == BuiltinCode::None || a.type()->storageCode() == code)) [[likely]] {
    return storageOf(*this) + a.offset();
  }
  return rawAttrOther(*this, attr, code);
}

void GenericIf::rawAttrIs(const VekAttr& attr, BuiltinCode code, const void* raw) {
  checkOwner(attr, *this);
  if (attr->isReadOnly()) refuse(fmt::format("{} is read-only", attr->name()));
  if (attr->isOptional() && attr->storage() == AttrStorage::Ref) {
    if (code != BuiltinCode::None && attr->type()->storageCode() != code) {
      refuse(fmt::format("{} holds {}, not {}", attr->name(), attr->type()->qualifiedName(),
                         detail::builtinName(code)));
    }
    attr.genericIfSet(this, nullptr, detail::valueView(*attr->type(), raw));
    return;
  }
  void* at = const_cast<void*>(rawAttr(attr, code));
  if (attr->check()) runCheck(*attr, *this, nullptr, detail::valueView(*attr->type(), raw));
  if (detail::compare(*attr->type(), at, raw) == 0) return;  // unchanged: nothing to report
  detail::assign(*attr->type(), at, raw);
  attributeChanged(*attr, nullptr);
}

void GenericIf::refuseRepresentation(BuiltinCode code) const {
  refuse(fmt::format("{} is not a {}", type_->qualifiedName(), detail::builtinName(code)));
}

void GenericIf::attributeChanged(const VekAttrBase&, const GenericIf*) {}

// ---------------------------------------------------------------- generic access

Ptr<GenericIf const> VekAttr::genericIfGet(const GenericIf* gif, const GenericIf* key) const {
  if (!gif) return nullptr;
  checkOwner(*this, *gif);
  switch (base_->storage()) {
    case AttrStorage::Name:
      if (nameNotData(*gif)) return nullptr;
      return detail::valueNew(*base_->type(), &static_cast<const Entity*>(gif)->name());
    case AttrStorage::Value:
      return detail::valueNew(*base_->type(), storageOf(*gif) + base_->offset());
    case AttrStorage::Ref:
      return refSlot(*gif, *base_);
    case AttrStorage::Pointer:
      return static_cast<const Entity*>(gif)->pointer(*base_);
    case AttrStorage::Collection: {
      const Collection* c = static_cast<const Entity*>(gif)->collection(*base_, false);
      if (!c || !key) return nullptr;
      Ptr<GenericIf> holder;
      return c->find(detail::keyFor(*base_, key, holder));
    }
    case AttrStorage::None:
      break;
  }
  return nullptr;
}

bool VekAttr::genericIfExist(const GenericIf* gif, const GenericIf* key) const {
  if (!gif) return false;
  checkOwner(*this, *gif);
  switch (base_->storage()) {
    case AttrStorage::Name:
      return !nameNotData(*gif);
    case AttrStorage::Value:
      return true;
    case AttrStorage::Ref:
      return static_cast<bool>(refSlot(*gif, *base_));
    case AttrStorage::Pointer:
      return static_cast<const Entity*>(gif)->pointer(*base_) != nullptr;
    case AttrStorage::Collection: {
      const Collection* c = static_cast<const Entity*>(gif)->collection(*base_, false);
      if (!c) return false;
      if (!key) return c->size() > 0;
      Ptr<GenericIf> holder;
      return c->find(detail::keyFor(*base_, key, holder)) != nullptr;
    }
    case AttrStorage::None:
      break;
  }
  return false;
}

void VekAttr::genericIfSet(GenericIf* gif, const GenericIf* key, const GenericIf* value) const {
  if (!gif) refuse("cannot set an attribute of null");
  checkOwner(*this, *gif);
  const VekAttrBase& a = *base_;
  if (a.isReadOnly()) refuse(fmt::format("{} is read-only", a.name()));
  if (a.isInstantiating()) {
    refuse(fmt::format("{} owns its entities: create them with entityNew", a.name()));
  }
  switch (a.storage()) {
    case AttrStorage::Value:
      if (!value) refuse(fmt::format("{} needs a value", a.name()));
      checkMember(a, value);
      gif->rawAttrIs(*this, BuiltinCode::None, value->voidPtr());
      return;
    case AttrStorage::Pointer: {
      checkMember(a, value);
      checkInModel(a, value);
      runCheck(a, *gif, nullptr, value);
      Entity& holder = entityOf(*gif);
      if (holder.pointer(a) == value) return;
      holder.pointerSlotIs(a, const_cast<GenericIf*>(value));
      gif->attributeChanged(a, nullptr);
      return;
    }
    case AttrStorage::Collection: {
      if (!value) {
        genericIfErase(gif, key);
        return;
      }
      checkMember(a, value);
      if (a.isPointer()) checkInModel(a, value);
      Ptr<GenericIf> holder;
      const GenericIf* k = detail::keyFor(a, key, holder);
      checkInModel(a, k);
      runCheck(a, *gif, k, value);
      Collection* c = entityOf(*gif).collection(a, true);
      if (const GenericIf* current = c->find(k)) {
        if (a.isPointer() ? current == value
                          : detail::compare(*a.type(), current->voidPtr(), value->voidPtr()) == 0) {
          return;  // unchanged
        }
      }
      Ptr<GenericIf> member = a.isPointer() ? Ptr<GenericIf>(const_cast<GenericIf*>(value))
                                            : detail::valueNew(*a.type(), value->voidPtr());
      auto [stored, previous] = c->put(k, member);
      Ptr<GenericIf const> keepKey(stored);
      gif->attributeChanged(a, stored);
      return;
    }
    case AttrStorage::Ref: {  // an optional scalar (owned entities are refused above)
      if (!a.isOptional()) break;
      checkMember(a, value);
      runCheck(a, *gif, nullptr, value);
      Ptr<GenericIf>& slot = refSlot(*gif, a);
      const bool unchanged = value ? slot && detail::compare(*a.type(), slot->voidPtr(), value->voidPtr()) == 0
                                   : !slot;
      if (unchanged) return;
      slot = value ? detail::valueNew(*a.type(), value->voidPtr()) : nullptr;
      gif->attributeChanged(a, nullptr);
      return;
    }
    case AttrStorage::Name:
    case AttrStorage::None:
      break;
  }
  refuse(fmt::format("{} cannot be set", a.name()));
}

bool VekAttr::genericIfErase(GenericIf* gif, const GenericIf* key) const {
  if (!gif) return false;
  checkOwner(*this, *gif);
  const VekAttrBase& a = *base_;
  if (a.storage() != AttrStorage::Collection) refuse(fmt::format("{} is not a collection", a.name()));
  if (a.isReadOnly()) refuse(fmt::format("{} is read-only", a.name()));
  Ptr<GenericIf> holder;
  const GenericIf* k = detail::keyFor(a, key, holder);
  Collection* c = entityOf(*gif).collection(a, false);
  if (!c || !c->find(k)) return false;
  runCheck(a, *gif, k, nullptr);
  return entityOf(*gif).eraseMember(a, k);
}

CollectionIterator VekAttr::genericIfIteratorConst(const GenericIf* gif) const {
  if (!gif) return {};
  checkOwner(*this, *gif);
  if (base_->storage() != AttrStorage::Collection) return {};
  return CollectionIterator(static_cast<const Entity*>(gif)->collection(*base_, false));
}

std::string VekAttr::genericIfGnmiJsonStrep(const GenericIf* gif) const {
  if (!gif) return "null";
  checkOwner(*this, *gif);
  const VekAttrBase& a = *base_;
  std::string out;
  const auto appendMember = [&](const GenericIf* member) {
    if (!member) {
      out += "null";
    } else if (member->isEntity()) {
      detail::appendJsonString(static_cast<const Entity*>(member)->fullName(), out);
    } else {
      detail::appendJson(*member->type(), member->voidPtr(), out);
    }
  };
  switch (a.storage()) {
    case AttrStorage::Name:
      detail::appendJsonString(static_cast<const Entity*>(gif)->name().stdString(), out);
      break;
    case AttrStorage::Value:
      if (a.hasGnmiJsonStrep() && a.type()->storageCode() == BuiltinCode::String &&
          !a.type()->isEnum()) {
        // A text attribute flagged as JSON holds its JSON text already.
        return static_cast<const String*>(gif->rawAttr(*this, BuiltinCode::String))->stdString();
      }
      detail::appendJson(*a.type(), storageOf(*gif) + a.offset(), out);
      break;
    case AttrStorage::Ref:
      appendMember(refSlot(*gif, a));
      break;
    case AttrStorage::Pointer:
      appendMember(static_cast<const Entity*>(gif)->pointer(a));
      break;
    case AttrStorage::Collection: {
      const bool isArray = a.isArray();
      out += isArray ? '[' : '{';
      bool first = true;
      for (auto it = genericIfIteratorConst(gif); it; ++it) {
        if (!first) out += ',';
        first = false;
        if (!isArray) {
          detail::appendJsonString(it.key()->strRep(), out);
          out += ':';
        }
        appendMember(it.ptr());
      }
      out += isArray ? ']' : '}';
      break;
    }
    case AttrStorage::None:
      out += "null";
      break;
  }
  return out;
}

}  // namespace Vek
