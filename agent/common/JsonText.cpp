#include "JsonText.h"

#include <array>
#include <cmath>

namespace VekGnmi {

namespace {
constexpr char BASE64_ALPHABET[] =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
}  // namespace

std::string base64Encode(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const uint32_t n = (static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 16) |
                       (static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8) |
                       static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 2]));
    out.push_back(BASE64_ALPHABET[(n >> 18) & 63]);
    out.push_back(BASE64_ALPHABET[(n >> 12) & 63]);
    out.push_back(BASE64_ALPHABET[(n >> 6) & 63]);
    out.push_back(BASE64_ALPHABET[n & 63]);
  }
  const size_t rest = bytes.size() - i;
  if (rest > 0) {
    uint32_t n = static_cast<uint32_t>(static_cast<unsigned char>(bytes[i])) << 16;
    if (rest == 2) n |= static_cast<uint32_t>(static_cast<unsigned char>(bytes[i + 1])) << 8;
    out.push_back(BASE64_ALPHABET[(n >> 18) & 63]);
    out.push_back(BASE64_ALPHABET[(n >> 12) & 63]);
    out.push_back(rest == 2 ? BASE64_ALPHABET[(n >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

std::optional<std::string> base64Decode(std::string_view text) {
  static const std::array<int8_t, 256> table = [] {
    std::array<int8_t, 256> t{};
    t.fill(-1);
    for (int i = 0; i < 64; ++i) t[static_cast<unsigned char>(BASE64_ALPHABET[i])] = static_cast<int8_t>(i);
    return t;
  }();
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  if (text.size() % 4 == 1) return std::nullopt;
  std::string out;
  out.reserve(text.size() * 3 / 4);
  uint32_t acc = 0;
  int bits = 0;
  for (const char c : text) {
    const int8_t v = table[static_cast<unsigned char>(c)];
    if (v < 0) return std::nullopt;
    acc = (acc << 6) | static_cast<uint32_t>(v);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out.push_back(static_cast<char>((acc >> bits) & 0xff));
    }
  }
  return out;
}

std::string jsonDump(const nlohmann::json& value) {
  return value.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<nlohmann::json> jsonParse(std::string_view text) {
  nlohmann::json parsed = nlohmann::json::parse(text, nullptr, /*allow_exceptions=*/false);
  if (parsed.is_discarded()) return std::nullopt;
  return parsed;
}

nlohmann::json floatJson(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value > 0 ? "Infinity" : "-Infinity";
  return value;
}

// Deprecated value kinds (float_val, decimal_val) are still rendered: old
// targets send them.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
nlohmann::json typedValueJson(const gnmi::TypedValue& value) {
  switch (value.value_case()) {
    case gnmi::TypedValue::kStringVal: return value.string_val();
    case gnmi::TypedValue::kIntVal: return value.int_val();
    case gnmi::TypedValue::kUintVal: return value.uint_val();
    case gnmi::TypedValue::kBoolVal: return value.bool_val();
    case gnmi::TypedValue::kBytesVal: return base64Encode(value.bytes_val());
    case gnmi::TypedValue::kFloatVal: return floatJson(value.float_val());
    case gnmi::TypedValue::kDoubleVal: return floatJson(value.double_val());
    case gnmi::TypedValue::kDecimalVal: {
      const double scaled = static_cast<double>(value.decimal_val().digits()) /
                            std::pow(10.0, value.decimal_val().precision());
      return floatJson(scaled);
    }
    case gnmi::TypedValue::kLeaflistVal: {
      nlohmann::json array = nlohmann::json::array();
      for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
        array.push_back(typedValueJson(element));
      }
      return array;
    }
    case gnmi::TypedValue::kAnyVal:
      return {{"@type", value.any_val().type_url()},
              {"value", base64Encode(value.any_val().value())}};
    case gnmi::TypedValue::kJsonVal:
    case gnmi::TypedValue::kJsonIetfVal: {
      const std::string& text = value.has_json_val() ? value.json_val() : value.json_ietf_val();
      std::optional<nlohmann::json> parsed = jsonParse(text);
      return parsed ? std::move(*parsed) : nlohmann::json(text);
    }
    case gnmi::TypedValue::kAsciiVal: return value.ascii_val();
    case gnmi::TypedValue::kProtoBytes: return base64Encode(value.proto_bytes());
    case gnmi::TypedValue::VALUE_NOT_SET: break;
  }
  return nullptr;
}
#pragma GCC diagnostic pop

}  // namespace VekGnmi
