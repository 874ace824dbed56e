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

}  // namespace VekGnmi::Yang::YangValue
