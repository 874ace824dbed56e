#include "ValueEncoding.h"

#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include <fmt/format.h>

#include "BoundedText.h"
#include "JsonText.h"

namespace VekGnmi::Server {

namespace {

using Code = Vek::BuiltinCode;
__extension__ typedef __int128 Int128;

std::string jsonString(const std::string& text) { return jsonDump(nlohmann::json(text)); }

template <typename F>
std::string floatText(F value) {
  if (std::isnan(value)) return "\"NaN\"";
  if (std::isinf(value)) return value > 0 ? "\"Infinity\"" : "\"-Infinity\"";
  return fmt::format("{}", value);  // shortest text that reads back the same
}

// A char as a one-character JSON string; bytes above 0x7f are the Latin-1
// characters of those code points.
std::string charText(uint64_t byte) {
  std::string utf8;
  const auto c = static_cast<unsigned char>(byte);
  if (c < 0x80) {
    utf8.push_back(static_cast<char>(c));
  } else {
    utf8.push_back(static_cast<char>(0xc0 | (c >> 6)));
    utf8.push_back(static_cast<char>(0x80 | (c & 0x3f)));
  }
  return jsonString(utf8);
}

// A double as the library sends it: 8 big-endian IEEE bytes.
bool doubleOfBytes(const gnmi::TypedValue& v, double& out) {
  if (!v.has_bytes_val() || v.bytes_val().size() != 8) return false;
  uint64_t bits = 0;
  for (const char c : v.bytes_val()) bits = (bits << 8) | static_cast<unsigned char>(c);
  out = std::bit_cast<double>(bits);
  return true;
}

// Integer builtins (bool and char apart, which travel as their own kinds).
template <typename T>
constexpr bool isIntegerBuiltin = std::is_integral_v<T> && !std::is_same_v<T, bool> && !std::is_same_v<T, char>;

bool isInteger(Code code) {
  return code != Code::None &&
         Vek::visitBuiltin(code, []<typename T>(std::type_identity<T>) { return isIntegerBuiltin<T>; });
}
bool isSigned(Code code) {
  return isInteger(code) &&
         Vek::visitBuiltin(code, []<typename T>(std::type_identity<T>) { return std::is_signed_v<T>; });
}

// Range of an integer builtin, as [min, max] in 128-bit arithmetic.
void integerRange(Code code, Int128& min, Int128& max) {
  Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
    if constexpr (isIntegerBuiltin<T>) {
      min = std::numeric_limits<T>::min();
      max = std::numeric_limits<T>::max();
    }
  });
}

// The JSON text of a builtin value, or "" when the typed value does not hold
// what the library sends for this builtin (see ValueEncoding.h).
std::string builtinJson(Code code, const gnmi::TypedValue& v, bool ietf) {
  return Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) -> std::string {
    if constexpr (isIntegerBuiltin<T>) {
      // 64-bit integers are strings in JSON_IETF (RFC 7951 section 6.1).
      const bool quoted = ietf && sizeof(T) == 8;
      if constexpr (std::is_signed_v<T>) {
        if (!v.has_int_val()) return {};
        return quoted ? fmt::format("\"{}\"", v.int_val()) : fmt::format("{}", v.int_val());
      } else {
        if (!v.has_uint_val()) return {};
        return quoted ? fmt::format("\"{}\"", v.uint_val()) : fmt::format("{}", v.uint_val());
      }
    } else if constexpr (std::is_same_v<T, bool>) {
      if (!v.has_bool_val()) return {};
      return v.bool_val() ? "true" : "false";
    } else if constexpr (std::is_same_v<T, char>) {
      if (!v.has_uint_val()) return {};
      return charText(v.uint_val());
    } else if constexpr (std::is_same_v<T, float>) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
      if (!v.has_float_val()) return {};
      return floatText(v.float_val());
#pragma GCC diagnostic pop
    } else if constexpr (std::is_same_v<T, double>) {
      double d = 0;
      if (!doubleOfBytes(v, d)) return {};
      return floatText(d);
    } else if constexpr (std::is_same_v<T, Vek::String>) {
      if (!v.has_string_val()) return {};
      return jsonString(v.string_val());
    } else if constexpr (std::is_same_v<T, Vek::Bytes>) {
      if (!v.has_bytes_val()) return {};
      return jsonString(base64Encode(v.bytes_val()));
    } else {
      static_assert(std::is_same_v<T, Vek::Seconds>);
      if (!v.has_int_val()) return {};
      return secondsText(v.int_val());
    }
  });
}

// The JSON text of a value of `type` (builtin, enumeration or text form),
// or "" when the typed value is not what the library sends for it.
std::string scalarJson(Vek::VekType type, const gnmi::TypedValue& v, bool ietf) {
  if (!type) return {};
  if (type->hasGnmiStrRep() || type->isEnum()) {
    return v.has_string_val() ? jsonString(v.string_val()) : std::string();
  }
  if (type->isBuiltin()) return builtinJson(type->builtinCode(), v, ietf);
  return {};
}

std::string fallbackJson(const gnmi::TypedValue& v) { return jsonDump(typedValueJson(v)); }

}  // namespace

std::string secondsText(int64_t nanoseconds) {
  const bool negative = nanoseconds < 0;
  const uint64_t magnitude = negative ? 0 - static_cast<uint64_t>(nanoseconds) : static_cast<uint64_t>(nanoseconds);
  std::string text = fmt::format("{}{}", negative ? "-" : "", magnitude / 1000000000u);
  uint64_t fraction = magnitude % 1000000000u;
  if (fraction != 0) {
    std::string digits = fmt::format("{:09}", fraction);
    while (digits.back() == '0') digits.pop_back();
    text += "." + digits;
  }
  return text;
}

grpc::Status checkEncoding(int encoding) {
  switch (encoding) {
    case gnmi::JSON:
    case gnmi::JSON_IETF:
    case gnmi::PROTO:
      return grpc::Status::OK;
    default:
      break;
  }
  const std::string name = gnmi::Encoding_IsValid(encoding)
                               ? gnmi::Encoding_Name(static_cast<gnmi::Encoding>(encoding))
                               : std::to_string(encoding);
  return {grpc::StatusCode::UNIMPLEMENTED,
          fmt::format("encoding {} is not supported; use JSON, JSON_IETF or PROTO", name)};
}

std::string leafJson(const LeafInfo* leaf, const gnmi::TypedValue& value, bool ietf) {
  if (leaf == nullptr) return fallbackJson(value);
  std::string text;
  switch (leaf->kind) {
    case LeafKind::Value:
    case LeafKind::Key:
      text = scalarJson(leaf->type, value, ietf);
      break;
    case LeafKind::Pointer:
      if (value.has_string_val()) text = jsonString(value.string_val());
      break;
    case LeafKind::JsonText: {
      const std::string* raw = value.has_string_val()      ? &value.string_val()
                               : value.has_json_val()      ? &value.json_val()
                               : value.has_json_ietf_val() ? &value.json_ietf_val()
                                                           : nullptr;
      if (raw) text = jsonParse(*raw) ? *raw : jsonString(*raw);
      break;
    }
    case LeafKind::Array: {
      if (!value.has_leaflist_val()) break;
      text = "[";
      for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
        std::string one = scalarJson(leaf->type, element, ietf);
        if (one.empty()) one = fallbackJson(element);
        if (text.size() > 1) text.push_back(',');
        text += one;
      }
      text.push_back(']');
      break;
    }
  }
  return text.empty() ? fallbackJson(value) : text;
}

namespace {

// The builtin code of a floating-point leaf's values; None for other leaves.
Code floatingCode(const LeafInfo* leaf) {
  if (leaf == nullptr || leaf->kind == LeafKind::Pointer || leaf->kind == LeafKind::JsonText || !leaf->type) {
    return Code::None;
  }
  const Code code = leaf->type->builtinCode();
  return code == Code::Double || code == Code::Float ? code : Code::None;
}

gnmi::TypedValue protoScalar(Code code, const gnmi::TypedValue& v) {
  gnmi::TypedValue out;
  double d = 0;
  if (code == Code::Double && doubleOfBytes(v, d)) {
    out.set_double_val(d);
    return out;
  }
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  if (code == Code::Float && v.has_float_val()) {
    out.set_double_val(static_cast<double>(v.float_val()));
    return out;
  }
#pragma GCC diagnostic pop
  return v;
}

}  // namespace

bool protoMayConvert(const gnmi::TypedValue& value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  if (value.has_bytes_val() || value.has_float_val()) return true;
#pragma GCC diagnostic pop
  if (!value.has_leaflist_val()) return false;
  for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
    if (protoMayConvert(element)) return true;
  }
  return false;
}

bool protoConverts(const LeafInfo* leaf) { return floatingCode(leaf) != Code::None; }

void encodeValue(const LeafInfo* leaf, const gnmi::TypedValue& value, gnmi::Encoding encoding,
                 gnmi::TypedValue& out) {
  switch (encoding) {
    case gnmi::JSON: out.set_json_val(leafJson(leaf, value, false)); return;
    case gnmi::JSON_IETF: out.set_json_ietf_val(leafJson(leaf, value, true)); return;
    default: break;
  }
  const Code code = floatingCode(leaf);
  if (code == Code::None) {
    out = value;
  } else if (value.has_leaflist_val()) {
    out.Clear();
    for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
      *out.mutable_leaflist_val()->add_element() = protoScalar(code, element);
    }
  } else {
    out = protoScalar(code, value);
  }
}

namespace {

// An integer from a JSON scalar: a number, or a string holding one.
bool jsonInteger(const nlohmann::json& json, Int128& out) {
  if (json.is_number_unsigned()) {
    out = json.get<uint64_t>();
    return true;
  }
  if (json.is_number_integer()) {
    out = json.get<int64_t>();
    return true;
  }
  if (json.is_number_float()) {
    const double d = json.get<double>();
    if (std::trunc(d) != d || std::fabs(d) > 1.8e19) return false;
    out = static_cast<Int128>(d);
    return true;
  }
  if (json.is_string()) {
    const std::string s = json.get<std::string>();
    std::optional<nlohmann::json> inner = jsonParse(s);
    return inner && inner->is_number_integer() && jsonInteger(*inner, out);
  }
  return false;
}

bool integerFor(Code code, Int128 v, gnmi::TypedValue& out, std::string& error) {
  Int128 min = 0;
  Int128 max = 0;
  integerRange(code, min, max);
  if (v < min || v > max) {
    error = fmt::format("{} is out of range {}..{}", v, min, max);
    return false;
  }
  if (isSigned(code)) {
    out.set_int_val(static_cast<int64_t>(v));
  } else {
    out.set_uint_val(static_cast<uint64_t>(v));
  }
  return true;
}

std::string typeName(Vek::VekType type) { return type ? type->qualifiedName() : "unknown type"; }

bool jsonToTyped(const LeafInfo& leaf, const nlohmann::json& json, gnmi::TypedValue& out,
                 std::string& error) {
  if (leaf.kind == LeafKind::JsonText) {
    out.set_string_val(jsonDump(json));
    return true;
  }
  if (json.is_object() || json.is_array() || json.is_null()) {
    error = fmt::format("a {} leaf takes a JSON scalar; set each leaf of an object on its own",
                        typeName(leaf.type));
    return false;
  }
  const Vek::VekType type = leaf.type;
  if (!type->isBuiltin()) {
    // Enumerations and types with their own text form take their text.
    if (!json.is_string()) {
      error = fmt::format("a {} leaf takes a string", typeName(type));
      return false;
    }
    out.set_string_val(json.get<std::string>());
    return true;
  }
  const Code code = type->builtinCode();
  if (isInteger(code)) {
    Int128 v = 0;
    if (!jsonInteger(json, v)) {
      error = fmt::format("{} is not an integer", boundedText(jsonDump(json)));
      return false;
    }
    return integerFor(code, v, out, error);
  }
  switch (code) {
    case Code::Bool:
      if (!json.is_boolean()) {
        error = fmt::format("{} is not true or false", boundedText(jsonDump(json)));
        return false;
      }
      out.set_bool_val(json.get<bool>());
      return true;
    case Code::String:
      if (!json.is_string()) {
        error = fmt::format("{} is not a string", boundedText(jsonDump(json)));
        return false;
      }
      out.set_string_val(json.get<std::string>());
      return true;
    case Code::Char: {
      const std::string s = json.is_string() ? json.get<std::string>() : std::string();
      if (s.size() != 1) {
        error = fmt::format("{} is not a one-character string", boundedText(jsonDump(json)));
        return false;
      }
      out.set_uint_val(static_cast<unsigned char>(s[0]));
      return true;
    }
    case Code::Float:
    case Code::Double:
    case Code::Seconds: {
      if (!json.is_number()) {
        error = fmt::format("{} is not a number", boundedText(jsonDump(json)));
        return false;
      }
      const double d = json.get<double>();
      if (code == Code::Seconds) {
        out.set_int_val(static_cast<int64_t>(d * 1e9));
      } else {
        out.set_double_val(d);
      }
      return true;
    }
    case Code::Bytes: {
      std::optional<std::string> bytes =
          json.is_string() ? base64Decode(json.get<std::string>()) : std::nullopt;
      if (!bytes) {
        error = fmt::format("{} is not a base64 string", boundedText(jsonDump(json)));
        return false;
      }
      out.set_bytes_val(std::move(*bytes));
      return true;
    }
    default:
      break;
  }
  error = fmt::format("a {} leaf cannot be set", typeName(type));
  return false;
}

}  // namespace

bool parseClientJson(std::string_view text, nlohmann::json& out, std::string& error) {
  int depth = 0;
  bool inString = false;
  bool escaped = false;
  for (const char c : text) {
    if (inString) {
      if (escaped) {
        escaped = false;
      } else if (c == '\\') {
        escaped = true;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '[' || c == '{') {
      if (++depth > MAX_JSON_DEPTH) {
        error = fmt::format("the JSON value nests arrays and objects deeper than {} levels", MAX_JSON_DEPTH);
        return false;
      }
    } else if (c == ']' || c == '}') {
      --depth;
    }
  }
  out = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (out.is_discarded()) {
    error = fmt::format("'{}' is not JSON", boundedText(text));
    return false;
  }
  return true;
}

namespace {

// Pointers and leaf lists are not set through the library's Set.
bool settable(const LeafInfo& leaf, std::string& error) {
  if (leaf.kind != LeafKind::Pointer && leaf.kind != LeafKind::Array) return true;
  error = fmt::format("{} leaves cannot be set", leaf.kind == LeafKind::Pointer ? "pointer" : "leaf-list");
  return false;
}

}  // namespace

bool setValueForJson(const LeafInfo& leaf, const nlohmann::json& value, gnmi::TypedValue& out, std::string& error) {
  out.Clear();
  return settable(leaf, error) && jsonToTyped(leaf, value, out, error);
}

bool setValueForLeaf(const LeafInfo& leaf, const gnmi::TypedValue& value, gnmi::TypedValue& out,
                     std::string& error) {
  out.Clear();
  if (value.has_json_val() || value.has_json_ietf_val()) {
    nlohmann::json json;
    if (!parseClientJson(value.has_json_val() ? value.json_val() : value.json_ietf_val(), json, error)) return false;
    return setValueForJson(leaf, json, out, error);
  }
  if (!settable(leaf, error)) return false;
  const Code code = leaf.type && leaf.type->isBuiltin() ? leaf.type->builtinCode() : Code::None;
  if ((value.has_int_val() || value.has_uint_val()) && isInteger(code)) {
    const Int128 v = value.has_int_val() ? Int128{value.int_val()} : Int128{value.uint_val()};
    return integerFor(code, v, out, error);
  }
  if (value.has_ascii_val()) {
    out.set_string_val(value.ascii_val());
    return true;
  }
  if (value.value_case() == gnmi::TypedValue::VALUE_NOT_SET) {
    error = "the update has no value";
    return false;
  }
  out = value;  // typed values the library checks against the leaf itself
  return true;
}

}  // namespace VekGnmi::Server
