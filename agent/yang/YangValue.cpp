#include "YangValue.h"

#include <charconv>
#include <optional>

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "BoundedText.h"
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
    return Ostrel::Failure{fmt::format("\"{}\" is no value of {} ({})", VekGnmi::boundedText(canonical),
                                       leaf.node->name, leaf.valueType->qualifiedName())};
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
    return Ostrel::Failure{
        errors.text(fmt::format("\"{}\" is no value of {}", VekGnmi::boundedText(text), leaf.node->name))};
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

namespace {

// The base type the canonical text of `leaf` reads as.
LY_DATA_TYPE baseOf(const YangLeaf& leaf, std::string_view canonical) {
  const lysc_type* type = realType(leaf, canonical);
  return type ? type->basetype : LY_TYPE_UNKNOWN;
}

template <typename T>
bool parseNumber(std::string_view text, T& out) {
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out);
  return ec == std::errc() && end == text.data() + text.size();
}

gnmi::TypedValue protoScalar(const YangLeaf& leaf, const gnmi::TypedValue& published) {
  if (!published.has_string_val()) return published;  // integers and booleans go out as published
  const std::string& text = published.string_val();
  gnmi::TypedValue out;
  switch (baseOf(leaf, text)) {
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_INT64: {
      int64_t v = 0;
      if (!parseNumber(text, v)) return published;
      out.set_int_val(v);
      return out;
    }
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32:
    case LY_TYPE_UINT64: {
      uint64_t v = 0;
      if (!parseNumber(text, v)) return published;
      out.set_uint_val(v);
      return out;
    }
    case LY_TYPE_BOOL:
      out.set_bool_val(text == "true");
      return out;
    case LY_TYPE_DEC64: {
      double v = 0;
      if (!parseNumber(text, v)) return published;
      out.set_double_val(v);
      return out;
    }
    case LY_TYPE_EMPTY:
      out.set_bool_val(true);
      return out;
    case LY_TYPE_BINARY: {
      std::optional<std::string> bytes = base64Decode(text);
      if (!bytes) return published;
      out.set_bytes_val(std::move(*bytes));
      return out;
    }
    default:
      return published;
  }
}

// The identity named `name` derived (at any depth) from `base`, or null;
// `ambiguous` is set when two modules have one.
const lysc_ident* derivedNamed(const lysc_ident* base, std::string_view name, bool& ambiguous) {
  const lysc_ident* found = nullptr;
  LY_ARRAY_COUNT_TYPE i;
  LY_ARRAY_FOR(base->derived, i) {
    const lysc_ident* d = base->derived[i];
    const lysc_ident* match = name == d->name ? d : derivedNamed(d, name, ambiguous);
    if (!match) continue;
    if (found && found != match) ambiguous = true;
    found = match;
  }
  return found;
}

const lysc_ident* identityNamed(const lysc_type* type, std::string_view name, bool& ambiguous) {
  if (!type) return nullptr;
  if (type->basetype == LY_TYPE_UNION) {
    const auto* u = reinterpret_cast<const lysc_type_union*>(type);
    const lysc_ident* found = nullptr;
    LY_ARRAY_COUNT_TYPE i;
    LY_ARRAY_FOR(u->types, i) {
      const lysc_ident* match = identityNamed(followLeafrefs(u->types[i]), name, ambiguous);
      if (match && found && found != match) ambiguous = true;
      if (match) found = match;
    }
    return found;
  }
  if (type->basetype != LY_TYPE_IDENT) return nullptr;
  const auto* ident = reinterpret_cast<const lysc_type_identityref*>(type);
  const lysc_ident* found = nullptr;
  LY_ARRAY_COUNT_TYPE i;
  LY_ARRAY_FOR(ident->bases, i) {
    const lysc_ident* match = derivedNamed(ident->bases[i], name, ambiguous);
    if (match && found && found != match) ambiguous = true;
    if (match) found = match;
  }
  return found;
}

}  // namespace

gnmi::TypedValue protoValue(const YangLeaf& leaf, const gnmi::TypedValue& published) {
  if (!published.has_leaflist_val()) return protoScalar(leaf, published);
  gnmi::TypedValue out;
  for (const gnmi::TypedValue& element : published.leaflist_val().element()) {
    *out.mutable_leaflist_val()->add_element() = protoScalar(leaf, element);
  }
  return out;
}

std::string plainJsonText(const YangLeaf& leaf, std::string_view canonical) {
  switch (baseOf(leaf, canonical)) {
    case LY_TYPE_INT64:
    case LY_TYPE_UINT64:
    case LY_TYPE_DEC64:
      return std::string(canonical);
    default:
      return json(leaf, canonical).dump();
  }
}

std::string qualifiedText(const YangLeaf& leaf, std::string_view text) {
  if (text.empty() || text.find(':') != std::string_view::npos) return std::string(text);
  bool ambiguous = false;
  const lysc_ident* identity = identityNamed(leaf.type, text, ambiguous);
  if (!identity || ambiguous) return std::string(text);
  return fmt::format("{}:{}", identity->module->name, identity->name);
}

Ostrel::Result<std::string, std::string> fromClient(const YangLeaf& leaf, std::string_view text) {
  return canonicalize(leaf, qualifiedText(leaf, text));
}

Ostrel::Result<std::string, std::string> typedText(const YangLeaf& leaf, const gnmi::TypedValue& value) {
  if (leaf.base == LY_TYPE_EMPTY && value.has_bool_val() && value.bool_val()) return std::string();  // as PROTO sends it
  switch (value.value_case()) {
    case gnmi::TypedValue::kStringVal: return value.string_val();
    case gnmi::TypedValue::kAsciiVal: return value.ascii_val();
    case gnmi::TypedValue::kIntVal: return std::to_string(value.int_val());
    case gnmi::TypedValue::kUintVal: return std::to_string(value.uint_val());
    case gnmi::TypedValue::kBoolVal: return std::string(value.bool_val() ? "true" : "false");
    case gnmi::TypedValue::kDoubleVal: return fmt::format("{}", value.double_val());
    case gnmi::TypedValue::kBytesVal: return base64Encode(value.bytes_val());
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    case gnmi::TypedValue::kDecimalVal: {
      const int64_t digits = value.decimal_val().digits();
      const uint32_t precision = value.decimal_val().precision();
      if (precision > 18) return Ostrel::Failure{fmt::format("decimal precision {} is above 18", precision)};
      const uint64_t magnitude = digits < 0 ? 0 - static_cast<uint64_t>(digits) : static_cast<uint64_t>(digits);
      const std::string all = fmt::format("{:0{}}", magnitude, precision + 1);
      const std::string_view whole = std::string_view(all).substr(0, all.size() - precision);
      const std::string_view fraction = std::string_view(all).substr(all.size() - precision);
      return fmt::format("{}{}{}{}", digits < 0 ? "-" : "", whole, fraction.empty() ? "" : ".", fraction);
    }
#pragma GCC diagnostic pop
    default: {
      const auto* field = gnmi::TypedValue::descriptor()->FindFieldByNumber(static_cast<int>(value.value_case()));
      return Ostrel::Failure{fmt::format("a {} is no value of leaf {}", field ? field->name() : std::string("missing value"),
                                         leaf.node->name)};
    }
  }
}

}  // namespace VekGnmi::Yang::YangValue
