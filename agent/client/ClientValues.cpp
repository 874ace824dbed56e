#include "ClientValues.h"

#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>

#include <fmt/format.h>

#include "GnmiPathText.h"
#include "JsonText.h"

namespace VekGnmi::Client {

namespace {

std::string lowered(std::string_view text) {
  std::string out(text);
  for (char& c : out) {
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (c == '-') c = '_';
  }
  return out;
}

template <typename T>
bool parseInteger(std::string_view text, T& out) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), out);
  return ec == std::errc() && end == text.data() + text.size() && !text.empty();
}

bool parseDouble(std::string_view text, double& out) {
  if (text.empty()) return false;
  const std::string copy(text);
  char* end = nullptr;
  out = std::strtod(copy.c_str(), &end);
  return end == copy.c_str() + copy.size();
}

// An untyped value read as JSON, for the PROTO encoding: the scalar inside.
bool jsonToScalar(const nlohmann::json& json, gnmi::TypedValue& out, std::string& error) {
  switch (json.type()) {
    case nlohmann::json::value_t::string: out.set_string_val(json.get<std::string>()); return true;
    case nlohmann::json::value_t::boolean: out.set_bool_val(json.get<bool>()); return true;
    case nlohmann::json::value_t::number_unsigned: out.set_uint_val(json.get<uint64_t>()); return true;
    case nlohmann::json::value_t::number_integer: {
      const int64_t v = json.get<int64_t>();
      if (v >= 0) {
        out.set_uint_val(static_cast<uint64_t>(v));
      } else {
        out.set_int_val(v);
      }
      return true;
    }
    case nlohmann::json::value_t::number_float: out.set_double_val(json.get<double>()); return true;
    default:
      error = "--encoding proto sends scalars only; give objects, arrays and null as json:TEXT";
      return false;
  }
}

}  // namespace

std::optional<gnmi::Encoding> parseEncoding(std::string_view name) {
  const std::string n = lowered(name);
  if (n == "json") return gnmi::JSON;
  if (n == "bytes") return gnmi::BYTES;
  if (n == "proto") return gnmi::PROTO;
  if (n == "ascii") return gnmi::ASCII;
  if (n == "json_ietf") return gnmi::JSON_IETF;
  return std::nullopt;
}

std::string encodingName(gnmi::Encoding encoding) {
  switch (encoding) {
    case gnmi::JSON: return "json";
    case gnmi::BYTES: return "bytes";
    case gnmi::PROTO: return "proto";
    case gnmi::ASCII: return "ascii";
    case gnmi::JSON_IETF: return "json_ietf";
    default: return fmt::format("{}", static_cast<int>(encoding));
  }
}

std::optional<std::chrono::nanoseconds> parseDuration(std::string_view text) {
  size_t unitStart = 0;
  while (unitStart < text.size() &&
         (std::isdigit(static_cast<unsigned char>(text[unitStart])) || text[unitStart] == '.')) {
    ++unitStart;
  }
  double number = 0;
  if (!parseDouble(text.substr(0, unitStart), number) || !std::isfinite(number)) {
    return std::nullopt;
  }
  const std::string_view unit = text.substr(unitStart);
  double scale = 0;
  if (unit.empty() || unit == "s") scale = 1e9;
  else if (unit == "ns") scale = 1;
  else if (unit == "us") scale = 1e3;
  else if (unit == "ms") scale = 1e6;
  else if (unit == "m") scale = 60e9;
  else if (unit == "h") scale = 3600e9;
  else return std::nullopt;
  const double ns = number * scale;
  if (ns > static_cast<double>(std::numeric_limits<int64_t>::max())) return std::nullopt;
  return std::chrono::nanoseconds(static_cast<int64_t>(ns));
}

bool parseValue(std::string_view text, gnmi::Encoding encoding, gnmi::TypedValue& out,
                std::string& error) {
  out.Clear();
  const size_t colon = text.find(':');
  if (colon != std::string_view::npos) {
    const std::string type = lowered(text.substr(0, colon));
    const std::string_view body = text.substr(colon + 1);
    if (type == "string") {
      out.set_string_val(std::string(body));
      return true;
    }
    if (type == "ascii") {
      out.set_ascii_val(std::string(body));
      return true;
    }
    if (type == "int") {
      int64_t v = 0;
      if (!parseInteger(body, v)) {
        error = fmt::format("'{}' is not a 64-bit signed integer", body);
        return false;
      }
      out.set_int_val(v);
      return true;
    }
    if (type == "uint") {
      uint64_t v = 0;
      if (!parseInteger(body, v)) {
        error = fmt::format("'{}' is not a 64-bit unsigned integer", body);
        return false;
      }
      out.set_uint_val(v);
      return true;
    }
    if (type == "bool") {
      const std::string b = lowered(body);
      if (b != "true" && b != "false") {
        error = fmt::format("'{}' is not true or false", body);
        return false;
      }
      out.set_bool_val(b == "true");
      return true;
    }
    if (type == "double" || type == "float") {
      double v = 0;
      if (!parseDouble(body, v)) {
        error = fmt::format("'{}' is not a number", body);
        return false;
      }
      if (type == "double") {
        out.set_double_val(v);
      } else {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
        out.set_float_val(static_cast<float>(v));
#pragma GCC diagnostic pop
      }
      return true;
    }
    if (type == "bytes") {
      std::optional<std::string> bytes = base64Decode(body);
      if (!bytes) {
        error = fmt::format("'{}' is not base64", body);
        return false;
      }
      out.set_bytes_val(std::move(*bytes));
      return true;
    }
    if (type == "json" || type == "json_ietf") {
      if (!jsonParse(body)) {
        error = fmt::format("'{}' is not JSON", body);
        return false;
      }
      if (type == "json") {
        out.set_json_val(std::string(body));
      } else {
        out.set_json_ietf_val(std::string(body));
      }
      return true;
    }
    // Any other text before ':' is part of an untyped value ("10:30").
  }
  std::optional<nlohmann::json> json = jsonParse(text);
  if (!json) json = nlohmann::json(std::string(text));
  switch (encoding) {
    case gnmi::JSON: out.set_json_val(jsonDump(*json)); return true;
    case gnmi::JSON_IETF: out.set_json_ietf_val(jsonDump(*json)); return true;
    case gnmi::PROTO: return jsonToScalar(*json, out, error);
    default:
      error = fmt::format("untyped values need --encoding json, json_ietf or proto, not {}",
                          encodingName(encoding));
      return false;
  }
}

bool parseUpdateArgument(std::string_view argument, gnmi::Encoding encoding, gnmi::Update& out,
                         std::string& error) {
  const size_t split = findOutsidePath(argument, '=');
  if (split == std::string_view::npos) {
    error = fmt::format("'{}' is not PATH=VALUE", argument);
    return false;
  }
  out.Clear();
  std::string pathError;
  if (!parsePathString(argument.substr(0, split), *out.mutable_path(), pathError)) {
    error = fmt::format("bad path '{}': {}", argument.substr(0, split), pathError);
    return false;
  }
  std::string valueError;
  if (!parseValue(argument.substr(split + 1), encoding, *out.mutable_val(), valueError)) {
    error = fmt::format("bad value for {}: {}", pathString(out.path()), valueError);
    return false;
  }
  return true;
}

}  // namespace VekGnmi::Client
