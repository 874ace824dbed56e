// Vek basics: the builtin value classes (`Vek::String`, `Vek::Bytes`,
// `Vek::Seconds`), attribute ids, builtin type codes and descriptor flags.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <type_traits>

#include "Zolt/Export.h"

namespace Vek {

// Identifies an attribute within its type. Ids start at 1 in declaration
// order; the runtime reports every change with the positive id, and
// notifiees may pass a negated id on. A type of its own, so that an integer
// never silently selects an attribute by id: `VekTypeBase::attr(1)` looks up
// the enumerator of value 1, `attr(AttributeId{1})` the first attribute.
class AttributeId {
 public:
  constexpr AttributeId() = default;
  constexpr explicit AttributeId(int32_t value) : value_(value) {}

  constexpr int32_t value() const { return value_; }
  // The id without a sign: the attribute a negated id refers to.
  constexpr AttributeId abs() const { return AttributeId(value_ < 0 ? -value_ : value_); }

  friend constexpr bool operator==(AttributeId, AttributeId) = default;
  friend constexpr auto operator<=>(AttributeId, AttributeId) = default;

 private:
  int32_t value_ = 0;
};

// A text value. Holds its bytes in a std::string.
class String {
 public:
  String() = default;
  String(std::string text) : text_(std::move(text)) {}  // NOLINT: implicit by design
  String(const char* text) : text_(text ? text : "") {}  // NOLINT
  String(std::string_view text) : text_(text) {}         // NOLINT

  // Replaces the text with the zero-terminated `text` (null gives "").
  String& operator=(const char* text) {
    text_ = text ? text : "";
    return *this;
  }

  const std::string& stdString() const { return text_; }
  const char* charPtr() const { return text_.c_str(); }
  size_t size() const { return text_.size(); }
  bool empty() const { return text_.empty(); }

  friend bool operator==(const String&, const String&) = default;
  friend auto operator<=>(const String& a, const String& b) { return a.text_ <=> b.text_; }

 private:
  std::string text_;
};

// An opaque byte string.
class Bytes {
 public:
  Bytes() = default;
  explicit Bytes(std::string_view bytes) : bytes_(bytes) {}
  Bytes(const void* data, size_t size) : bytes_(static_cast<const char*>(data), size) {}

  const uint8_t* bytesPtr() const { return reinterpret_cast<const uint8_t*>(bytes_.data()); }
  size_t size() const { return bytes_.size(); }
  std::string_view view() const { return bytes_; }

  friend bool operator==(const Bytes&, const Bytes&) = default;
  friend auto operator<=>(const Bytes& a, const Bytes& b) { return a.bytes_ <=> b.bytes_; }

 private:
  std::string bytes_;
};

// A number of seconds. A distinct type (builtin code 22) that converts to and
// from `double`, so arithmetic and comparisons read naturally.
class Seconds {
 public:
  constexpr Seconds(double seconds = 0.0) : value_(seconds) {}  // NOLINT
  constexpr operator double() const { return value_; }           // NOLINT
  constexpr double value() const { return value_; }

 private:
  double value_;
};

// Codes of the builtin types. The numbers are stable: they are part of the
// runtime's interface.
enum class BuiltinCode : uint8_t {
  None = 0,
  UnsignedChar = 1,
  SignedChar = 2,
  UnsignedShort = 3,
  Short = 4,
  UnsignedInt = 5,
  Int = 6,
  UnsignedLongLong = 7,
  LongLong = 8,
  Bool = 9,
  Char = 10,
  Float = 12,
  Double = 13,
  String = 14,
  Bytes = 15,
  Seconds = 22,
};

// The builtin code of a C++ type, or None for types that are not builtins.
template <typename T>
constexpr BuiltinCode builtinCodeOf() {
  if constexpr (std::is_same_v<T, unsigned char>) return BuiltinCode::UnsignedChar;
  else if constexpr (std::is_same_v<T, signed char>) return BuiltinCode::SignedChar;
  else if constexpr (std::is_same_v<T, unsigned short>) return BuiltinCode::UnsignedShort;
  else if constexpr (std::is_same_v<T, short>) return BuiltinCode::Short;
  else if constexpr (std::is_same_v<T, unsigned int>) return BuiltinCode::UnsignedInt;
  else if constexpr (std::is_same_v<T, int>) return BuiltinCode::Int;
  else if constexpr (std::is_same_v<T, unsigned long long>) return BuiltinCode::UnsignedLongLong;
  else if constexpr (std::is_same_v<T, long long>) return BuiltinCode::LongLong;
  else if constexpr (std::is_same_v<T, bool>) return BuiltinCode::Bool;
  else if constexpr (std::is_same_v<T, char>) return BuiltinCode::Char;
  else if constexpr (std::is_same_v<T, float>) return BuiltinCode::Float;
  else if constexpr (std::is_same_v<T, double>) return BuiltinCode::Double;
  else if constexpr (std::is_same_v<T, Vek::String>) return BuiltinCode::String;
  else if constexpr (std::is_same_v<T, Vek::Bytes>) return BuiltinCode::Bytes;
  else if constexpr (std::is_same_v<T, Vek::Seconds>) return BuiltinCode::Seconds;
  else return BuiltinCode::None;
}

// Calls `fn(std::type_identity<T>{})` with the C++ type T of a builtin code
// and returns what it returns: the one table from builtin codes to C++ types,
// for every code that turns values into something else and back. A code
// without a type (None, or a number no builtin has) is a fatal error of the
// runtime.
[[noreturn]] VEK_EXPORT void unknownBuiltinCode(BuiltinCode code);
template <typename Fn>
decltype(auto) visitBuiltin(BuiltinCode code, Fn&& fn) {
  switch (code) {
    case BuiltinCode::UnsignedChar: return fn(std::type_identity<unsigned char>{});
    case BuiltinCode::SignedChar: return fn(std::type_identity<signed char>{});
    case BuiltinCode::UnsignedShort: return fn(std::type_identity<unsigned short>{});
    case BuiltinCode::Short: return fn(std::type_identity<short>{});
    case BuiltinCode::UnsignedInt: return fn(std::type_identity<unsigned int>{});
    case BuiltinCode::Int: return fn(std::type_identity<int>{});
    case BuiltinCode::UnsignedLongLong: return fn(std::type_identity<unsigned long long>{});
    case BuiltinCode::LongLong: return fn(std::type_identity<long long>{});
    case BuiltinCode::Bool: return fn(std::type_identity<bool>{});
    case BuiltinCode::Char: return fn(std::type_identity<char>{});
    case BuiltinCode::Float: return fn(std::type_identity<float>{});
    case BuiltinCode::Double: return fn(std::type_identity<double>{});
    case BuiltinCode::String: return fn(std::type_identity<String>{});
    case BuiltinCode::Bytes: return fn(std::type_identity<Bytes>{});
    case BuiltinCode::Seconds: return fn(std::type_identity<Seconds>{});
    case BuiltinCode::None: break;
  }
  unknownBuiltinCode(code);
}

// The kind code of a type descriptor. Entities are 0; a collection key whose
// type is neither an entity nor a builtin is a composite key.
enum class TypeKind : uint8_t {
  Entity = 0,
  Builtin = 1,
  Value = 2,
  Enumeration = 3,
  CollectionControl = 4,
};

// Flags of a type descriptor.
namespace TypeFlag {
// The value type wraps one other value, held in its value attribute
// (`VekTypeBase::valAttr`); a wrapped key and its bare value are the same key.
inline constexpr uint32_t WRAPPER = 0x1000;
// On an entity type (given to `Module::entityType`): the entity's name is not
// one of its data attributes. Attribute 1 still holds the name (`Entity::name`,
// `fullName`), but it is called "@name", which no data attribute of a model
// loaded from a schema is called, and it reads as no value (`genericIfGet`
// null, `genericIfExist` false), so walkers publish no name leaf and the type
// may have a data attribute called "name" of its own.
inline constexpr uint32_t NAME_NOT_DATA = 0x2000;
}  // namespace TypeFlag

// Flags of an attribute descriptor.
namespace AttrFlag {
// On the index attribute of a collection: the key is published under this
// attribute's name.
inline constexpr uint32_t KEY_NAME = 0x1;
inline constexpr uint32_t COLLECTION = 0x2;
inline constexpr uint32_t STACK = 0x4;
inline constexpr uint32_t INSTANTIATING = 0x8;
inline constexpr uint32_t POINTER = 0x10;
inline constexpr uint32_t JSON_STREP = 0x20;
inline constexpr uint32_t ARRAY = 0x40;
// The members of the collection carry their own key attribute: a member is
// inserted without a separate key.
inline constexpr uint32_t INTERNALLY_KEYED = 0x80;
inline constexpr uint32_t READ_ONLY = 0x100;
inline constexpr uint32_t ENUMERATOR = 0x200;
// An attribute that may hold no value. A scalar of an entity type flagged so
// starts unset and is held as a value handle (`AttrStorage::Ref`): unset, it
// reads as no value (`genericIfGet` null, `genericIfExist` false, typed reads
// throw); `genericIfSet` with a null value unsets it and reports the change
// like any write. An array flagged so holds no value while it has no element
// (`genericIfExist` false); its storage is unchanged. Walkers publish nothing
// for an optional attribute without a value, and stream the unsetting of one
// as a delete of its path. Value types hold no optional attributes.
inline constexpr uint32_t OPTIONAL = 0x400;
}  // namespace AttrFlag

}  // namespace Vek

template <>
struct std::hash<Vek::AttributeId> {
  size_t operator()(Vek::AttributeId id) const noexcept {
    return std::hash<int32_t>{}(id.value());
  }
};
