// Operations on value representations, driven by type descriptors, and the
// pooled value handle. Private to the runtime.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

#include "Vek/Format.h"
#include "Vek/GenericIf.h"
#include "Vek/HashMix.h"
#include "Zolt/Zolt.h"

namespace Vek::detail {

Zolt::Debuggable& debug();

using Vek::visitBuiltin;

// Whether the representation of builtin code `code` is trivially copyable
// and destructible (every builtin but String and Bytes), so that copying it
// is a memcpy of the type's `valueSize()` and destroying it is nothing. Types
// that alias a builtin or enumerate over one share its code.
constexpr bool isTrivialCode(BuiltinCode code) {
  return code != BuiltinCode::None && code != BuiltinCode::String && code != BuiltinCode::Bytes;
}
static_assert(std::is_trivially_copyable_v<Seconds> && std::is_trivially_destructible_v<Seconds>);

// The C++ name of a builtin code ("unsigned int", "Vek::String").
const char* builtinName(BuiltinCode code);

// Value representations of builtin, enumeration and value types. `dst`
// arguments of construct/copyConstruct are raw memory of the type's size and
// alignment; everything else takes live representations.
void construct(const VekTypeBase& type, void* dst);
// Constructs the scalar attribute `attr` in `dst`: a copy of its default
// value, or its type's default when it declares none.
void constructAttr(const VekAttrBase& attr, void* dst);
void copyConstruct(const VekTypeBase& type, void* dst, const void* src);
void assign(const VekTypeBase& type, void* dst, const void* src);
void destroy(const VekTypeBase& type, void* dst);
// <0, 0, >0. Entities (raw: the entity) compare by creation order.
int compare(const VekTypeBase& type, const void* a, const void* b);
void hash(const VekTypeBase& type, const void* raw, HashMix& mix);
void appendStr(const VekTypeBase& type, const void* raw, std::string& out);
void appendJson(const VekTypeBase& type, const void* raw, std::string& out);
void appendJsonString(std::string_view text, std::string& out);
// Parses `text` into the live representation `dst`; false when it does not
// parse (dst then holds an unspecified valid value).
bool parse(const VekTypeBase& type, std::string_view text, void* dst);

// A new value handle of `type`: a copy of `src`, or the default when null.
Ptr<GenericIf> valueNew(const VekTypeBase& type, const void* src);
// A handle that views `src` without owning it.
Ptr<GenericIf> valueView(const VekTypeBase& type, const void* src);

// Whether a value or entity `gif` may be stored where `type` is expected:
// same type after aliases, or any entity where every entity is admitted.
bool admits(const VekTypeBase& type, const GenericIf& gif);

// The key of the collection `attr` in the collection's key type. A wrapper
// given for its bare index type, or the reverse, is converted, so both find
// the same member; `holder` keeps a converted key alive. Other key types
// throw `TypeMismatchException`.
const GenericIf* keyFor(const VekAttrBase& attr, const GenericIf* key, Ptr<GenericIf>& holder);

// The entity behind an entity representation.
inline const PtrInterface* entityOf(const void* raw) { return static_cast<const PtrInterface*>(raw); }

}  // namespace Vek::detail
