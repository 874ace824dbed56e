// Value extraction: scalars, enumerations, nested values, leaf lists and JSON
// text of the Vek runtime as gNMI typed values, and collection keys.
#include "Ostrel/VekTypeWalker.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include <boost/beast/core/detail/base64.hpp>

#include <Vek/Format.h>

#include "Ostrel/PtrResolution.h"
#include "internal/CollectionKeys.h"
#include "internal/UpdatePaths.h"
#include "internal/WalkerSupport.h"

namespace Ostrel {

using namespace WalkerSupport;

namespace {
Zolt::Debuggable& dbg = WalkerSupport::debug();

// "__" escaped as "\__" when the text holds it at all.
std::string escapedText(const std::string& text) {
  if (text.find("__") == std::string::npos) return text;
  std::string out;
  out.reserve(text.size() + 4);
  for (size_t i = 0; i < text.size();) {
    if (text.compare(i, 2, "__") == 0) {
      out += "\\__";
      i += 2;
    } else {
      out += text[i++];
    }
  }
  return out;
}

std::string base64(const void* bytes, size_t size) {
  namespace b64 = boost::beast::detail::base64;
  std::string out(b64::encoded_size(size), '\0');
  out.resize(b64::encode(out.data(), bytes, size));
  return out;
}

// The bytes of `value` in big-endian order.
template <typename T>
std::string bigEndianBytes(T value) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  if constexpr (std::endian::native == std::endian::little) std::reverse(bytes, bytes + sizeof(T));
  return std::string(reinterpret_cast<const char*>(bytes), sizeof(T));
}

// Emits `value` through `set` into an update at `path` (or `target`), or
// records it in a collecting key under the path's key text with `text`.
template <typename Setter>
void emit(gnmi::Notification* notification, const gnmi::Path& path, VekKey& key,
          gnmi::TypedValue* target, const std::string& text, Setter&& set) {
  if (key.collecting()) {
    set(key.mapInsert(pathToKeyStr(path), text));
    return;
  }
  if (!target) target = UpdatePaths::addUpdate(*notification, path);
  set(*target);
}

// Seconds as the nearest whole number of nanoseconds (a product like
// 1.001 * 1e9 lands just below the whole number it means); saturated at the
// ends of the 64-bit range, which cover about 292 years either way; NaN as 0.
int64_t nanoseconds(Vek::Seconds seconds) {
  const double ns = seconds.value() * 1e9;
  if (std::isnan(ns)) return 0;
  if (ns >= 9223372036854775807.0) return std::numeric_limits<int64_t>::max();
  if (ns <= -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
  return std::llround(ns);
}

// The value of `gif` as its representation T, which its type promises.
template <typename T>
const T& representation(const Vek::GenericIf& gif) {
  const T* value = gif.attrValPtr<T>();
  if (!value) {
    ZOLT_FMASSERT(dbg, COMPONENT, "{} does not hold the representation of its type {}", gif.strRep(),
                  gif.type());
  }
  return *value;
}

}  // namespace

// ---------------------------------------------------------------------------
// Value extraction

bool FullVekTypeWalker::isScalarType(const Vek::VekType& type) {
  return type->isBuiltin() || type->isEnum() || type->hasGnmiStrRep();
}

void FullVekTypeWalker::extractScalar(gnmi::Notification* notification,
                                      const Vek::Ptr<Vek::GenericIf const>& gif,
                                      const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                      gnmi::TypedValue* target) {
  if (type->hasGnmiStrRep()) {
    const std::string text = gif->gnmiStrRep();
    emit(notification, path, key, target, text, [&](gnmi::TypedValue& v) { v.set_string_val(text); });
  } else if (type->isBuiltin()) {
    extractBuiltin(notification, gif, type, path, key, target);
  } else if (type->isEnum()) {
    extractEnum(notification, gif, type, path, key, target);
  } else {
    extractValAttr(notification, gif, type, path, key, target);
  }
}

namespace {

// Emits one builtin value `v`; `text` gives its key text when `key` collects.
template <typename T, typename Text>
void emitBuiltin(gnmi::Notification* notification, const T& v, const gnmi::Path& path, VekKey& key,
                 gnmi::TypedValue* target, Text&& text) {
  if constexpr (std::is_same_v<T, bool>) {
    emit(notification, path, key, target, text(), [&](gnmi::TypedValue& t) { t.set_bool_val(v); });
  } else if constexpr (std::is_same_v<T, char>) {
    // A character goes out as its byte value, deliberately not as text.
    emit(notification, path, key, target, text(), [&](gnmi::TypedValue& t) {
      t.set_uint_val(static_cast<unsigned char>(v));
    });
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_uint_val(static_cast<uint64_t>(v)); });
  } else if constexpr (std::is_integral_v<T>) {
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_int_val(static_cast<int64_t>(v)); });
  } else if constexpr (std::is_same_v<T, float>) {
    const std::string keyText = key.collecting() ? base64(bigEndianBytes(v).data(), 4) : std::string();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    emit(notification, path, key, target, keyText, [&](gnmi::TypedValue& t) { t.set_float_val(v); });
#pragma GCC diagnostic pop
  } else if constexpr (std::is_same_v<T, double>) {
    // A double goes out as its 8 IEEE bytes, deliberately not as a number.
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_bytes_val(bigEndianBytes(v)); });
  } else if constexpr (std::is_same_v<T, Vek::String>) {
    const bool escape = key.collecting() && key.escapesText();
    const std::string value = escape ? escapedText(v.stdString()) : std::string();
    const std::string& chosen = escape ? value : v.stdString();
    emit(notification, path, key, target, chosen, [&](gnmi::TypedValue& t) { t.set_string_val(chosen); });
  } else if constexpr (std::is_same_v<T, Vek::Bytes>) {
    emit(notification, path, key, target, text(), [&](gnmi::TypedValue& t) {
      t.set_bytes_val(reinterpret_cast<const char*>(v.bytesPtr()), v.size());
    });
  } else if constexpr (std::is_same_v<T, Vek::Seconds>) {
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_int_val(nanoseconds(v)); });
  }
}

// The representation code of the enumeration `type`'s underlying type.
Vek::BuiltinCode enumCode(const Vek::VekType& type) {
  const Vek::VekType underlying = type->underlyingType();
  const Vek::BuiltinCode code = underlying && underlying->isBuiltin() ? underlying->builtinCode()
                                                                      : Vek::BuiltinCode::None;
  if (code < Vek::BuiltinCode::UnsignedChar || code > Vek::BuiltinCode::Int) {
    ZOLT_FMASSERT(dbg, COMPONENT, "Unknown underlying enum type:{}", type);
  }
  return code;
}

// The published text of an enumeration value: its enumerator's name, or its
// number when no enumerator has it. `valueOf<T>()` reads the value.
template <typename ValueOf>
std::string enumText(const Vek::VekType& type, Vek::BuiltinCode code, ValueOf&& valueOf) {
  return Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
    if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
      const T value = valueOf(std::type_identity<T>());
      const Vek::VekAttr enumerator = type->attr(value);
      return enumerator ? enumerator->name() : std::to_string(value);
    } else {
      return std::string();
    }
  });
}

}  // namespace

void FullVekTypeWalker::extractBuiltin(gnmi::Notification* notification,
                                       const Vek::Ptr<Vek::GenericIf const>& gif,
                                       const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                       gnmi::TypedValue* target) {
  const Vek::BuiltinCode code = type->builtinCode();
  if (code == Vek::BuiltinCode::None) {
    ZOLT_FMASSERT(dbg, COMPONENT, "Unknown builtin type: {}", type);
  }
  // The text of a key part is the value's string form; only collecting keys
  // need it, so plain updates never build it.
  const auto text = [&]() { return key.collecting() ? gif->strRep() : std::string(); };
  Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
    emitBuiltin(notification, representation<T>(*gif), path, key, target, text);
  });
}

void FullVekTypeWalker::extractEnum(gnmi::Notification* notification,
                                    const Vek::Ptr<Vek::GenericIf const>& gif,
                                    const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                    gnmi::TypedValue* target) {
  const std::string name = enumText(type, enumCode(type), [&]<typename T>(std::type_identity<T>) {
    return representation<T>(*gif);
  });
  emit(notification, path, key, target, name, [&](gnmi::TypedValue& t) { t.set_string_val(name); });
}

void WalkerSupport::extractStoredScalar(gnmi::Notification* notification, const Vek::GenericIf& owner,
                                       const Vek::VekAttr& attr, const gnmi::Path& path) {
  const Vek::VekType& type = attr->type();
  const void* raw = owner.rawAttr(attr, Vek::BuiltinCode::None);
  gnmi::TypedValue* target = UpdatePaths::addUpdate(*notification, path, &attr->name());
  if (type->isBuiltin()) {
    const Vek::BuiltinCode code = type->builtinCode();
    if (code == Vek::BuiltinCode::None) {
      ZOLT_FMASSERT(dbg, COMPONENT, "Unknown builtin type: {}", type);
    }
    Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
      emitBuiltin(nullptr, *static_cast<const T*>(raw), path, plainKey(), target, [] { return std::string(); });
    });
    return;
  }
  target->set_string_val(enumText(type, enumCode(type), [&]<typename T>(std::type_identity<T>) {
    return *static_cast<const T*>(raw);
  }));
}

void FullVekTypeWalker::extractValAttr(gnmi::Notification* notification,
                                       const Vek::Ptr<Vek::GenericIf const>& gif,
                                       const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                       gnmi::TypedValue*) {
  gnmi::Path leaf = path;
  for (Vek::VekTypeBase::AttributeQIterator it(type); it; ++it) {
    const Vek::VekAttr attr = *it;
    const Vek::Ptr<Vek::GenericIf const> value = attr.genericIfGet(gif);
    if (!value) continue;
    const ScopedElem elem(leaf, attr->name());
    extractScalar(notification, value, attr->type(), leaf, key, nullptr);
  }
}

void FullVekTypeWalker::extractScalarArray(gnmi::Notification* notification,
                                           const Vek::Ptr<Vek::GenericIf const>& gif,
                                           const Vek::VekAttr& attr, const Vek::VekType& type,
                                           const gnmi::Path& path) {
  if (!isScalarType(type)) {
    ZOLT_FMASSERT(dbg, COMPONENT, "Only builtins, enums, and split inheritance types are supported");
  }
  // Made on the arena of the update, like everything in the notification.
  gnmi::ScalarArray* array = UpdatePaths::addUpdate(*notification, path)->mutable_leaflist_val();
  const auto* entity = asEntity(gif.ptr());
  if (entity) array->mutable_element()->Reserve(static_cast<int>(entity->memberCount(attr)));
  for (Vek::CollectionIterator it = attr.genericIfIteratorConst(gif); it; ++it) {
    extractScalar(nullptr, it.ptr(), type, path, plainKey(), array->add_element());
  }
}

void FullVekTypeWalker::extractGnmiJsonStrepAttr(gnmi::Notification* notification,
                                                 const Vek::Ptr<Vek::GenericIf const>& gif,
                                                 const Vek::VekAttr& attr, const gnmi::Path& path,
                                                 VekKey& key) {
  const std::string text = attr.genericIfGnmiJsonStrep(gif);
  emit(notification, path, key, nullptr, text, [&](gnmi::TypedValue& t) { t.set_json_val(text); });
}

void FullVekTypeWalker::extractKeyInfo(const Vek::Ptr<Vek::GenericIf const>& keyGif,
                                       const Vek::VekAttr& attr, VekKey& key, BaseRouter& router) {
  const Vek::VekType keyType = keyGif->type();
  key.collectingIs(true);
  if (keyType->isEntity()) {
    key.updateTypeAndGenKeyForPtr(attr, keyType, getPtrPathStr(keyGif, router));
  } else {
    const gnmi::Path generated = key.updateTypeAndGenKey(attr, keyType);
    // A wrapper key is named by the value it wraps.
    Vek::Ptr<Vek::GenericIf const> value = keyGif;
    Vek::VekType valueType = keyType;
    if (keyType->isWrapper() && keyType->valAttr()) {
      value = keyType->valAttr().genericIfGet(keyGif);
      valueType = keyType->valAttr()->type();
    }
    if (isScalarType(valueType)) {
      // Named by the generated element, else by the members' key attribute,
      // else by the collection.
      if (generated.elem_size() > 0) {
        extractScalar(nullptr, value, valueType, generated, key);
      } else {
        extractScalar(nullptr, value, valueType, CollectionKeys::of(attr).partName, key);
      }
    } else {
      // A composite key: one part per attribute, named after it.
      extractValAttr(nullptr, value, valueType, gnmi::Path(), key);
    }
  }
  key.collectingIs(false);
}

}  // namespace Ostrel
