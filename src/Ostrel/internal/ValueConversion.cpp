// Set value conversion: a gNMI typed value as a runtime value of a required
// type.
#include <type_traits>

#include <fmt/format.h>

#include "AttrTreeSupport.h"

namespace Ostrel::VekGnmiSet::AttrTree {

namespace {

// The name by which conversion messages call a gNMI kind the converter
// takes; null for every other kind.
const char* acceptedKindName(gnmi::TypedValue::ValueCase kind) {
  switch (kind) {
    case gnmi::TypedValue::kStringVal: return "string";
    case gnmi::TypedValue::kIntVal: return "int";
    case gnmi::TypedValue::kUintVal: return "unsigned int";
    case gnmi::TypedValue::kBoolVal: return "bool";
    default: return nullptr;
  }
}

// The integer representations an int or uint value converts into. `char`
// takes neither: it is a character, whatever its signedness.
template <typename T>
constexpr bool IS_SIGNED_INTEGER =
    std::is_integral_v<T> && std::is_signed_v<T> && !std::is_same_v<T, char>;
template <typename T>
constexpr bool IS_UNSIGNED_INTEGER = std::is_integral_v<T> && std::is_unsigned_v<T> &&
                                     !std::is_same_v<T, bool> && !std::is_same_v<T, char>;

}  // namespace

Result<Vek::Ptr<Vek::GenericIf>, std::string> gnmiToVekValue(const gnmi::TypedValue& value,
                                                             const Vek::VekType& type) {
  using Converted = Result<Vek::Ptr<Vek::GenericIf>, std::string>;
  const gnmi::TypedValue::ValueCase kind = value.value_case();
  const char* kindName = acceptedKindName(kind);
  if (!kindName) return Failure{fmt::format("{} is not supported", value.DebugString())};
  const auto mismatch = [&] {
    return Failure{fmt::format("Expected {}; found {}", type->name(), kindName)};
  };
  // Aliases of builtins answer their base's code; enumerations and values
  // have none and take no gNMI scalar.
  const Vek::BuiltinCode code = type->builtinCode();
  if (code == Vek::BuiltinCode::None) return mismatch();
  // A new value of `type` itself (an alias stays an alias) holding `v`.
  const auto make = [&](const auto& v) -> Converted {
    return type.genericIf(static_cast<const void*>(&v), true);
  };
  return Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) -> Converted {
    if constexpr (std::is_same_v<T, Vek::String>) {
      if (kind == gnmi::TypedValue::kStringVal) return make(Vek::String(value.string_val()));
    } else if constexpr (std::is_same_v<T, bool>) {
      if (kind == gnmi::TypedValue::kBoolVal) return make(value.bool_val());
    } else if constexpr (IS_SIGNED_INTEGER<T>) {
      // Keeps the low bits: no range check, by design.
      if (kind == gnmi::TypedValue::kIntVal) return make(static_cast<T>(value.int_val()));
    } else if constexpr (IS_UNSIGNED_INTEGER<T>) {
      if (kind == gnmi::TypedValue::kUintVal) return make(static_cast<T>(value.uint_val()));
    }
    return mismatch();
  });
}

}  // namespace Ostrel::VekGnmiSet::AttrTree
