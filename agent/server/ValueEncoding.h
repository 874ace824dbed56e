// Values between the library's typed form and what clients send and expect.
//
// Out: with PROTO the library's typed values go out as they are, but for
// floating-point leaves (double travels as 8 bytes, float as the deprecated
// float_val), which go out as double_val. With JSON
// and JSON_IETF each leaf goes out as json_val / json_ietf_val holding the
// JSON of the leaf's runtime type, found from the model (ModelSchema), not
// from the kind of the typed value, which for several types is a transport
// form:
//   double         bytes_val, 8 big-endian IEEE bytes  -> a JSON number
//   float          float_val                            -> a JSON number
//   char           uint_val, the character's byte       -> a one-character string
//   Vek::Seconds   int_val, nanoseconds                 -> a number of seconds, exact
//   Vek::Bytes     bytes_val                            -> a base64 string
//   enumeration    string_val, the enumerator's name    -> a string
//   own text form  string_val                           -> a string
//   pointer        string_val, the target's path        -> a string
//   JSON text      its JSON                             -> that JSON
//   array          leaflist_val                         -> an array of its elements
//   integers       int_val / uint_val                   -> numbers; with JSON_IETF
//                  64-bit ones are strings (RFC 7951 section 6.1)
// Non-finite floating-point values become the strings "NaN", "Infinity" and
// "-Infinity". A leaf whose type the model does not know is rendered from
// its typed value's kind (bytes as base64).
//
// In (Set): a client's value becomes the typed value the library's Set needs
// for the leaf: json_val / json_ietf_val scalars are converted by the leaf's
// type (64-bit integers may come as strings, as JSON_IETF sends them),
// integers are range-checked for the leaf's width and given the signedness
// of the leaf's type. JSON from clients is parsed with a bound on its
// nesting (MAX_JSON_DEPTH levels of arrays and objects): nothing deeper is
// parsed, printed or walked, so no client value can exhaust the stack.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include "ModelSchema.h"

namespace VekGnmi::Server {

// The deepest nesting of arrays and objects a client's JSON value may have.
inline constexpr int MAX_JSON_DEPTH = 64;

// Parses a client's JSON text; false with `error` when it is not one JSON
// document or nests deeper than MAX_JSON_DEPTH (found before parsing, in
// time linear in the text).
bool parseClientJson(std::string_view text, nlohmann::json& out, std::string& error);

// OK for JSON, JSON_IETF and PROTO; UNIMPLEMENTED for the others.
grpc::Status checkEncoding(int encoding);

// The JSON text of a leaf's value (`leaf` may be null: unknown leaf).
std::string leafJson(const LeafInfo* leaf, const gnmi::TypedValue& value, bool ietf);

// `value` of `leaf` in `encoding` (one that checkEncoding accepts), into
// `out`.
void encodeValue(const LeafInfo* leaf, const gnmi::TypedValue& value, gnmi::Encoding encoding,
                 gnmi::TypedValue& out);

// Whether PROTO may send a value of this kind otherwise than the library
// published it (bytes, float, or a leaf list of them), for some leaf.
bool protoMayConvert(const gnmi::TypedValue& value);
// Whether PROTO sends values of `leaf` otherwise (a floating-point leaf).
bool protoConverts(const LeafInfo* leaf);

// The typed value for the library's Set of `leaf` from a client's `value`.
// Returns false with a message (for INVALID_ARGUMENT) when the value does
// not fit the leaf.
bool setValueForLeaf(const LeafInfo& leaf, const gnmi::TypedValue& value, gnmi::TypedValue& out,
                     std::string& error);
// The same from a JSON value (parsed already, e.g. a member of a subtree).
bool setValueForJson(const LeafInfo& leaf, const nlohmann::json& value, gnmi::TypedValue& out, std::string& error);

// The exact decimal text of a count of nanoseconds as seconds: 1500000000
// gives "1.5", -1 gives "-0.000000001".
std::string secondsText(int64_t nanoseconds);

}  // namespace VekGnmi::Server
