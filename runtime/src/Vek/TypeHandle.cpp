// Type handles: objects and values made, viewed and compared through a type.
#include "ValueOps.h"
#include "Vek/TypeHandle.h"

namespace Vek {

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

Ptr<GenericIf> VekType::genericIf(const char* text, bool throwOnError) const {
  return genericIf(String(text), throwOnError);
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
