// Internal: the building blocks of the path text functions of Ostrel/Path.h.
// `strToPath` reads each element with `parseElem`, which reads key names with
// `parseUntil` and key values with `parseValForKey`; `pathToStr` and
// `pathToKeyStr` print with `pathToStrImpl` and their own separators. They are
// exported only so that the library's tests can pin each step down.
#pragma once

#include <string>

#include <gnmi/gnmi.pb.h>

#include "Ostrel/Export.h"

namespace Ostrel {

// Each parser reads `text` from `cursor` and leaves `cursor` on the character
// at which it stopped (the delimiter); the caller steps over it.
//
// Backslash rule: with `unescape` true a backslash makes the next character
// literal (never a delimiter); with `unescape` false the backslash is copied
// and the next character is examined normally, so it protects nothing.

// Reads one element into `elem` (name and keys). `buffer` is scratch space,
// left empty on return. Stops on '/' or at the end of `text`.
OSTREL_EXPORT void parseElem(const std::string& text, std::string& buffer, unsigned& cursor,
                             gnmi::PathElem* elem, bool unescape);

// Appends to `out` up to the first unescaped `delimiter`; fatal if the text
// ends first.
OSTREL_EXPORT void parseUntil(const std::string& text, std::string& out, unsigned& cursor,
                              char delimiter, bool unescape);

// Appends a key value to `out` up to its closing ']', keeping balanced
// bracket pairs inside the value; fatal if the text ends first.
OSTREL_EXPORT void parseValForKey(const std::string& text, std::string& out, unsigned& cursor,
                                  bool unescape);

// Prints the elements from index `start` on, each preceded by `sep` (except the
// first when `leadingSep` is false). Keys print as "[k=v]"; several keys are
// sorted by their formatted text. Returns "" when `start` >= the element count,
// also with `leadingSep`: the empty path prints as "", not "/".
OSTREL_EXPORT std::string pathToStrImpl(const gnmi::Path& path, int start, bool leadingSep,
                                        const char* sep);

}  // namespace Ostrel
