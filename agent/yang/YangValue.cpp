#include "YangValue.h"

#include <charconv>

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "JsonText.h"

namespace VekGnmi::Yang::YangValue {

namespace {

const ly_ctx* contextOf(const YangLeaf& leaf) { return leaf.node->module->ctx; }

template <typename T>
nlohmann::json number(std::string_view text) {
  T value{};
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size()) return std::string(text);
  return value;
}

}  // namespace

Ostrel::Result<Vek::Ptr<Vek::GenericIf>, std::string> runtimeValue(const YangLeaf& leaf, std::string_view canonical) {
  Vek::Ptr<Vek::GenericIf> value = leaf.valueType.genericIf(Vek::String(canonical), false);
  if (!value) {
    return Ostrel::Failure{
        fmt::format("\"{}\" is no value of {} ({})", canonical, leaf.node->name, leaf.valueType->qualifiedName())};
  }
  return value;
}

std::string canonicalText(const YangLeaf&, const Vek::GenericIf& value) { return value.gnmiStrRep(); }

std::string publishedText(const YangLeaf&, const gnmi::TypedValue& value) {
  switch (value.value_case()) {
    case gnmi::TypedValue::kIntVal: return std::to_string(value.int_val());
    case gnmi::TypedValue::kUintVal: return std::to_string(value.uint_val());
    case gnmi::TypedValue::kBoolVal: return value.bool_val() ? "true" : "false";
    case gnmi::TypedValue::kStringVal: return value.string_val();
    case gnmi::TypedValue::kBytesVal: return base64Encode(value.bytes_val());
    case gnmi::TypedValue::kJsonIetfVal: return value.json_ietf_val();
    case gnmi::TypedValue::kJsonVal: return value.json_val();
    default: return value.ShortDebugString();
  }
}

Ostrel::Result<std::string, std::string> canonicalize(const YangLeaf& leaf, std::string_view text) {
  LibyangErrors errors;
  const char* canonical = nullptr;
  const LY_ERR result =
      lyd_value_validate(contextOf(leaf), leaf.node, text.data(), text.size(), nullptr, nullptr, &canonical);
  if (result != LY_SUCCESS && result != LY_EINCOMPLETE) {
    return Ostrel::Failure{errors.text(fmt::format("\"{}\" is no value of {}", text, leaf.node->name))};
  }
  std::string out = canonical ? canonical : std::string(text);
  if (canonical) lydict_remove(const_cast<ly_ctx*>(contextOf(leaf)), canonical);
  return out;
}

const lysc_type* followLeafrefs(const lysc_type* type) {
  while (type && type->basetype == LY_TYPE_LEAFREF) {
    type = reinterpret_cast<const lysc_type_leafref*>(type)->realtype;
  }
  return type;
}

const lysc_type* realType(const YangLeaf& leaf, std::string_view canonical) {
  if (leaf.base != LY_TYPE_UNION) return leaf.type;
  LibyangErrors errors;  // a text of no member is answered as the union itself
  const lysc_type* real = nullptr;
  const LY_ERR result =
      lyd_value_validate(contextOf(leaf), leaf.node, canonical.data(), canonical.size(), nullptr, &real, nullptr);
  if ((result != LY_SUCCESS && result != LY_EINCOMPLETE) || !real) return leaf.type;
  return followLeafrefs(real);
}

nlohmann::json json(const YangLeaf& leaf, std::string_view canonical) {
  const lysc_type* type = realType(leaf, canonical);
  switch (type ? type->basetype : LY_TYPE_UNKNOWN) {
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32: return number<int64_t>(canonical);
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32: return number<uint64_t>(canonical);
    case LY_TYPE_BOOL: return canonical == "true";
    case LY_TYPE_EMPTY: return nlohmann::json::array({nullptr});
    default: return std::string(canonical);
  }
}

}  // namespace VekGnmi::Yang::YangValue
