// gNMI path text form, formatting, prefix algebra, hashing and equality.
//
// Three text forms are parsed:
//   - full gNMI path text with keys and backslash escapes (`strToPath`):
//       "/interfaces/interface[name=eth0]/state" -> 3 elements, one keyed;
//   - a plain slash-separated name list without keys or escapes
//     (`pathToGnmiPath`): "/a//b/" -> elements a and b;
//   - the runtime's text of an entity reference (`extractGifPath`):
//       "entity('a.b.c')" -> "a/b/c".
//
// Malformed text is a programming error of the caller: every parse failure is
// fatal (a `Zolt::fmassert` that does not return), never a returned error.
//
// Printing writes nothing escaped, so `strToPath(pathToStr(p))` == p only for
// paths whose names and keys hold no '/', '[', ']', '=' or '\'.
//
// Hashing and equality look only at the element names and keys: `origin` and
// `target` take no part. `std::hash<gnmi::Path>` / `std::hash<gnmi::PathElem>`
// and `operator==` make both message types usable as unordered-map keys.
//
// All functions are pure, keep no state and take no locks.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <fmt/format.h>

#include <gnmi/gnmi.pb.h>

#include "Ostrel/Export.h"

namespace Ostrel {

// ---------------------------------------------------------------------------
// Parsing

// Parses full gNMI path text. A leading '/' is optional; a trailing '/' adds no
// element; an empty segment gives a nameless element ("a//b" has 3 elements).
// Element and key names keep backslashes as written; key values are
// unescaped ("a[k=x\]y]" gives the value "x]y") and may hold balanced brackets
// and '/'. A repeated key keeps its first value. `origin`/`target` stay unset.
// Fatal on a trailing backslash, a '[' without '=' or a key without ']'.
OSTREL_EXPORT gnmi::Path strToPath(const std::string& text);

// Parses a plain slash-separated list of names: no keys, no escapes, empty
// segments skipped. "[", "]", "=" and '\' are ordinary name characters.
OSTREL_EXPORT gnmi::Path pathToGnmiPath(const std::string& text);

// Turns the runtime's text of an entity reference, entity('a.b.c'), into the
// slash form "a/b/c" (no leading slash). The whole text must match; when it
// does not, prints "gifPtrStrep: <text> does not match regex" to stdout and
// aborts the process with a failed assertion. This failure deliberately does
// not go through the tracing facility's fatal handler.
OSTREL_EXPORT std::string extractGifPath(const std::string& gifPtrStrep);

// ---------------------------------------------------------------------------
// Formatting

// Prints the elements from index `start` on, each preceded by '/' (except the
// first when `leadingSep` is false): {a[x=1][y=2], b} prints "/a[x=1][y=2]/b".
// Keys print as "[k=v]"; several keys are sorted by their formatted text.
// Returns "" when `start` >= the element count, also with `leadingSep`: the
// empty path prints as "", not "/".
OSTREL_EXPORT std::string pathToStr(const gnmi::Path& path, int start = 0,
                                    bool leadingSep = true);

// The flat key text naming a leaf: elements joined by "__" without a leading
// separator, e.g. "a[x=1][y=2]__b".
OSTREL_EXPORT std::string pathToKeyStr(const gnmi::Path& path);

// One element alone, e.g. "a[k=v]".
OSTREL_EXPORT std::string pathElemToStr(const gnmi::PathElem& elem);

// ---------------------------------------------------------------------------
// Prefix algebra

// True when every element name of `prefix` equals the name at the same index
// of `path`. Keys are deliberately ignored: /a[k=1] is a prefix of /a[k=2]/b.
// The empty path is a prefix of every path.
OSTREL_EXPORT bool isPrefix(const gnmi::Path& prefix, const gnmi::Path& path);

// `first` followed by the elements of `second` (protobuf merge semantics: a
// non-empty origin/target of `second` replaces that of `first`).
OSTREL_EXPORT gnmi::Path joinPath(const gnmi::Path& first, const gnmi::Path& second);

// The elements of `path` after `prefix`, names only (keys, origin and target
// are dropped). Fatal "<prefix> is not a prefix of <path>" when `isPrefix`
// does not hold.
OSTREL_EXPORT gnmi::Path removePrefix(const gnmi::Path& prefix, const gnmi::Path& path);

// ---------------------------------------------------------------------------
// Hashing and equality

// One 32-bit block step of MurmurHash3 (x86, 32-bit).
constexpr uint32_t murmurMix(uint32_t h, uint32_t k) {
  k *= 0xcc9e2d51u;
  k = (k << 15) | (k >> 17);
  k *= 0x1b873593u;
  h ^= k;
  h = (h << 13) | (h >> 19);
  return h * 5u + 0xe6546b64u;
}

// Element hash: the name's string hash, mixed with the order-independent sum
// of the key entries' hashes. A keyless element hashes as its name.
OSTREL_EXPORT uint32_t hashPathElem(const gnmi::PathElem& elem);

// Path hash: the element hashes mixed in order from 0; the empty path is 0.
OSTREL_EXPORT uint32_t hashPath(const gnmi::Path& path);

}  // namespace Ostrel

namespace gnmi {

// Same element count and, index by index, byte-equal names and equal key maps.
// Origin and target take no part, consistent with the hash.
OSTREL_EXPORT bool operator==(const Path& lhs, const Path& rhs);
OSTREL_EXPORT bool operator==(const PathElem& lhs, const PathElem& rhs);

}  // namespace gnmi

template <>
struct std::hash<gnmi::PathElem> {
  size_t operator()(const gnmi::PathElem& elem) const { return Ostrel::hashPathElem(elem); }
};

template <>
struct std::hash<gnmi::Path> {
  size_t operator()(const gnmi::Path& path) const { return Ostrel::hashPath(path); }
};

// "{}" of a gnmi::Path prints `pathToStr(path, 0, true)`; of a gnmi::PathElem,
// `pathElemToStr(elem)`.
template <>
struct fmt::formatter<gnmi::Path> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const gnmi::Path& path, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Ostrel::pathToStr(path, 0, true), ctx);
  }
};

template <>
struct fmt::formatter<gnmi::PathElem> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const gnmi::PathElem& elem, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Ostrel::pathElemToStr(elem), ctx);
  }
};
