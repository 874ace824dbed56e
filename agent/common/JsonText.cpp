#include "JsonText.h"

#include <cmath>

#include <absl/strings/escaping.h>

namespace VekGnmi {

namespace {

bool isBase64Letter(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '+' || c == '/';
}

// Whether `text` is standard base64 as RFC 4648 section 4 writes it, padding
// optional: letters of the alphabet only (no whitespace, no line breaks),
// then either no padding or exactly the '=' that complete the last group of
// four. absl::Base64Unescape alone is more lenient (it skips whitespace and
// takes odd padding).
bool isStrictBase64(std::string_view text) {
  size_t letters = text.size();
  while (letters > 0 && text[letters - 1] == '=') --letters;
  const size_t padding = text.size() - letters;
  if (letters % 4 == 1) return false;
  if (padding != 0 && (padding > 2 || text.size() % 4 != 0)) return false;
  for (size_t i = 0; i < letters; ++i) {
    if (!isBase64Letter(text[i])) return false;
  }
  return true;
}

// Debian's abseil has its own string_view, not std::string_view.
absl::string_view abslView(std::string_view text) { return {text.data(), text.size()}; }

}  // namespace

std::string base64Encode(std::string_view bytes) { return absl::Base64Escape(abslView(bytes)); }

std::optional<std::string> base64Decode(std::string_view text) {
  if (!isStrictBase64(text)) return std::nullopt;
  std::string out;
  if (!absl::Base64Unescape(abslView(text), &out)) return std::nullopt;
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
