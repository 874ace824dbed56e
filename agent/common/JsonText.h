// JSON helpers shared by the agent and its client: base64, safe printing of
// JSON documents, and the JSON rendering of a gnmi::TypedValue as a client
// shows it to people.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi {

// Standard base64 alphabet with padding (RFC 4648 section 4).
std::string base64Encode(std::string_view bytes);
// Decodes standard base64 (RFC 4648 section 4 alphabet; padding optional,
// but when present exactly the '=' that complete the last group of four; no
// whitespace); nullopt when the text is not base64.
std::optional<std::string> base64Decode(std::string_view text);

// Compact JSON text of `value`. Strings that are not valid UTF-8 have their
// bad bytes replaced by U+FFFD instead of throwing, so printing never fails.
std::string jsonDump(const nlohmann::json& value);

// Parses JSON text; nullopt when it is not one complete JSON document.
std::optional<nlohmann::json> jsonParse(std::string_view text);

// A typed value as a client prints it: numbers as numbers, booleans,
// strings, bytes (bytes_val, proto_bytes) as base64 strings, json_val and
// json_ietf_val as the JSON they hold (their raw text as a string when it is
// not JSON), leaf lists as arrays, decimals as numbers, any_val as
// {"@type": url, "value": base64}. Non-finite floating-point values print as
// the strings "NaN", "Infinity" and "-Infinity" (JSON has no such numbers).
// An unset value is null.
nlohmann::json typedValueJson(const gnmi::TypedValue& value);

// JSON of a floating-point number, with the non-finite rule above.
nlohmann::json floatJson(double value);

}  // namespace VekGnmi
