// Values of YANG leaves between their forms: libyang's canonical text, the
// runtime value a `YangModel` holds (see its mapping), the typed value the
// library publishes, and RFC 7951 JSON.
//
//   canonical text  --runtimeValue-->   runtime value   --(walker)-->  gnmi::TypedValue
//        ^   |                              |                                |
//        |   +----------- json ------------>| canonicalText                  | publishedText
//   canonicalize (client text, validated by libyang: range, length, pattern,
//                 enumeration, identity base, fraction digits)
//
// and what gNMI clients read and write: `protoValue` and `plainJsonText`
// give a published value in the PROTO and JSON encodings (JSON_IETF is
// `json`); `clientText` reads a client's PROTO typed value as text, and
// `fromClient` checks and canonicalizes a client's text.
//
// Every function takes the `YangLeaf` of the leaf (its schema node and
// runtime type), so one lookup serves encoding, conversion and validation.
#pragma once

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

#include <Ostrel/Result.h>

#include "YangModel.h"

struct lysc_type;

namespace VekGnmi::Yang::YangValue {

// The runtime value of `leaf` (of one element, for a leaf list) from its
// canonical text; an error when the text is no value of the runtime type
// (canonical text from libyang always is).
Ostrel::Result<Vek::Ptr<Vek::GenericIf>, std::string> runtimeValue(const YangLeaf& leaf, std::string_view canonical);

// The canonical text of a runtime value of `leaf`.
std::string canonicalText(const YangLeaf& leaf, const Vek::GenericIf& value);

// The canonical text of one typed value as the library publishes a value of
// `leaf` (an element of a leaf list: one element of its leaflist_val).
std::string publishedText(const YangLeaf& leaf, const gnmi::TypedValue& value);

// libyang's canonical text of `text` (a value as RFC 7951 JSON writes it,
// without quotes) for `leaf`, checked against every restriction of its type;
// an error with libyang's message when the value is not one of them.
// Leafref and instance-identifier targets are not checked (no data tree).
Ostrel::Result<std::string, std::string> canonicalize(const YangLeaf& leaf, std::string_view text);

// The type a canonical value of `leaf` has: the leaf's type, or for a union
// the member type its text reads as (leafrefs followed to their targets).
const lysc_type* realType(const YangLeaf& leaf, std::string_view canonical);

// `type`, or the type a leafref (a chain of them) refers to.
const lysc_type* followLeafrefs(const lysc_type* type);

// The RFC 7951 JSON of one canonical value of `leaf`: numbers for 8-, 16-
// and 32-bit integers, strings for 64-bit integers and decimal64, true /
// false, [null] for empty, strings for the rest.
nlohmann::json json(const YangLeaf& leaf, std::string_view canonical);

// The PROTO form of a value the library published for `leaf`: integers,
// booleans and strings as published (a union's member read as its type),
// decimal64 as double_val, empty as bool_val true, binary as bytes_val (the
// decoded bytes); a leaf list element by element.
gnmi::TypedValue protoValue(const YangLeaf& leaf, const gnmi::TypedValue& published);

// The text of one canonical value of `leaf` in gNMI's JSON encoding: RFC
// 7951's JSON (`json`), but 64-bit integers and decimal64 as JSON numbers of
// the exact canonical text.
std::string plainJsonText(const YangLeaf& leaf, std::string_view canonical);

// `text` as the YANG JSON value libyang reads for `leaf`: an identity named
// without its module ("ethernetCsmacd") gets the module of the one identity
// of that name derived from the leaf's bases; other texts stay as they are.
std::string qualifiedText(const YangLeaf& leaf, std::string_view text);

// libyang's canonical text of a client's `text` for `leaf`
// (`qualifiedText`, then `canonicalize`).
Ostrel::Result<std::string, std::string> fromClient(const YangLeaf& leaf, std::string_view text);

// The text of a client's typed value (one scalar of a PROTO Set) for
// `leaf`: integers, booleans and strings as they read, a double in its
// shortest exact text, gNMI's Decimal64 as decimal text, bytes as base64
// (for binary), bool_val true as the value of an empty leaf (as PROTO sends
// it). An error for kinds that hold no scalar.
Ostrel::Result<std::string, std::string> typedText(const YangLeaf& leaf, const gnmi::TypedValue& value);

}  // namespace VekGnmi::Yang::YangValue
