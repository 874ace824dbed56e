// gNMI paths as text, in the path-strings convention that common gNMI clients
// accept on their command lines (gnmic, gnmi_cli):
//
//   /interfaces/interface[name=eth0]/state/counters
//   /routes[prefix=10.0.0.0/24]          '/' inside a key value needs no escape
//   /a\/b/c                              element name "a/b"
//   /foo[name=x\]y]                      key value "x]y"
//   /foo[na\=me=v]                       key name "na=me"
//   /  or the empty text                 the root (no elements)
//
// A backslash makes the next character literal anywhere (names, key names,
// key values), so `\\` is one backslash. Keys print sorted by name.
//
// This differs from the library's own text form (`Ostrel::strToPath`): that
// parser keeps backslashes in names, treats malformed text as a fatal
// programming error and knows no escape for '/' in a name; this one reports
// every malformed text as an error and never aborts, so it is safe on input
// typed by people.
#pragma once

#include <string>
#include <string_view>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi {

// Parses `text` into `out` (elements only; origin and target untouched).
// Returns false and sets `error` to a sentence naming the problem and its
// position when the text is malformed: an empty element ("a//b"), a '['
// without '=' or ']', an empty key name, a repeated key, text after a key
// that is not '[' or '/', or a trailing backslash.
bool parsePathString(std::string_view text, gnmi::Path& out, std::string& error);

// Prints the elements of `path` in the convention above, escaping what needs
// it so that `parsePathString` gives the same elements back. The root prints
// as "/". Origin and target are not printed.
std::string pathString(const gnmi::Path& path);

// `prefix` followed by `path` printed as one path (the elements of both).
std::string joinedPathString(const gnmi::Path& prefix, const gnmi::Path& path);

// The position in `text` of the first `wanted` character at or after `from`
// that lies outside a key's brackets and is not escaped by a backslash
// (path text followed by something else: "PATH=VALUE", a list of paths);
// npos when there is none.
size_t findOutsidePath(std::string_view text, char wanted, size_t from = 0);

// The elements of a path given in the deprecated `element` field (plain
// names), moved into `elem`, so that old clients' paths resolve like new ones.
// Does nothing when `elem` is set already or `element` is empty.
void upgradeLegacyElements(gnmi::Path& path);

}  // namespace VekGnmi
