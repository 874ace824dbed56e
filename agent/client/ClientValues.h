// How vekgnmi turns its command-line arguments into gNMI messages: encoding
// names, durations and the values of `set --update/--replace PATH=VALUE`.
//
// A VALUE is either typed, "TYPE:TEXT", with TYPE one of
//   string, ascii, int, uint, bool, double, float, bytes (TEXT in base64),
//   json, json_ietf (TEXT is JSON sent as it is in json_val / json_ietf_val),
// or untyped: TEXT is read as JSON, and when it is not JSON as a string
// ("eth0 uplink" is the string "eth0 uplink"). An untyped value goes out as
// json_val with --encoding json (the default), as json_ietf_val with
// --encoding json_ietf, and with --encoding proto as the typed scalar it holds
// (string_val, bool_val, int_val for negative and uint_val for other integers,
// double_val for other numbers); objects, arrays and null need JSON then.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi::Client {

// "json", "bytes", "proto", "ascii", "json_ietf" (any case, '-' or '_').
std::optional<gnmi::Encoding> parseEncoding(std::string_view name);
std::string encodingName(gnmi::Encoding encoding);

// A duration: a number followed by a unit, ns, us, ms, s, m or h ("500ms",
// "1.5s"), or a bare number of seconds. Negative or malformed: nullopt.
std::optional<std::chrono::nanoseconds> parseDuration(std::string_view text);

// Parses VALUE (rules above) for `encoding` into `out`.
bool parseValue(std::string_view text, gnmi::Encoding encoding, gnmi::TypedValue& out,
                std::string& error);

// Splits "PATH=VALUE" at the first '=' that is neither escaped nor inside a
// key's brackets, parses PATH in the gNMI path-strings convention and VALUE
// as above, into `out`.
bool parseUpdateArgument(std::string_view argument, gnmi::Encoding encoding, gnmi::Update& out,
                         std::string& error);

}  // namespace VekGnmi::Client
