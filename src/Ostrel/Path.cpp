#include "Ostrel/Path.h"

#include <algorithm>
#include <iostream>
#include <regex>
#include <string_view>
#include <vector>

#include <Zolt/Zolt.h>

#include "internal/PathText.h"
#include "internal/PlainAssert.h"

namespace Ostrel {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelPath");

constexpr const char* COMPONENT = "Path";

// Where a mismatching entity reference is reported. Agents and their test
// harnesses match this plain assertion (it bypasses the tracing facility), so
// the reported location is fixed rather than wherever the statement happens to
// sit in this file.
constexpr unsigned GIF_PATH_ASSERT_LINE = 248;

// The backslash rule shared by the three low-level parsers; `cursor` is on a
// backslash. A backslash as the last character is fatal whatever `unescape`
// says: there is nothing left for it to escape, and with `unescape` false it
// would otherwise be silently kept as the final character of a name.
inline void takeBackslash(const std::string& text, std::string& out, unsigned& cursor,
                          bool unescape, const char* function, unsigned line) {
  if (cursor + 1 >= text.size()) {
    Zolt::fmassert(dbg, __FILE_NAME__, function, line, COMPONENT,
                   "path \"{}\" contains a trailing backslash", text);
  }
  if (unescape) {
    out.push_back(text[cursor + 1]);
    cursor += 2;
  } else {
    out.push_back('\\');
    cursor += 1;
  }
}

// Byte fold of the string hash: every byte enters sign-extended, so bytes of
// 0x80 and above enter as 0xffffff80 and up.
inline uint32_t foldBytes(const std::string& s) {
  uint32_t h = 0;
  for (char c : s) {
    h = murmurMix(h, static_cast<uint32_t>(static_cast<int32_t>(static_cast<signed char>(c))));
  }
  return h;
}

inline uint32_t hashString(const std::string& s) { return murmurMix(0, foldBytes(s)); }

}  // namespace

// ---------------------------------------------------------------------------
// Parsing

void parseUntil(const std::string& text, std::string& out, unsigned& cursor, char delimiter,
                bool unescape) {
  while (cursor < text.size()) {
    const char c = text[cursor];
    if (c == '\\') {
      takeBackslash(text, out, cursor, unescape, __func__, __LINE__);
      continue;
    }
    if (c == delimiter) {
      return;
    }
    out.push_back(c);
    ++cursor;
  }
  ZOLT_FMASSERT(dbg, COMPONENT, "reached end of path \"{}\" without finding '{}'", text,
                delimiter);
}

void parseValForKey(const std::string& text, std::string& out, unsigned& cursor,
                    bool unescape) {
  unsigned depth = 1;
  while (cursor < text.size()) {
    const char c = text[cursor];
    if (c == '\\') {
      takeBackslash(text, out, cursor, unescape, __func__, __LINE__);
      continue;
    }
    if (c == '[') {
      ++depth;
    } else if (c == ']' && --depth == 0) {
      return;
    }
    out.push_back(c);
    ++cursor;
  }
  ZOLT_FMASSERT(dbg, COMPONENT, "reached end of path \"{}\" without finding ']'", text);
}

void parseElem(const std::string& text, std::string& buffer, unsigned& cursor,
               gnmi::PathElem* elem, bool unescape) {
  while (cursor < text.size()) {
    const char c = text[cursor];
    if (c == '\\') {
      takeBackslash(text, buffer, cursor, unescape, __func__, __LINE__);
      continue;
    }
    if (c == '/') {
      break;
    }
    if (c == '[') {
      // The name is taken at the first bracket; an empty buffer (a second
      // bracket, as in a[x=1][y=2]) keeps it.
      if (!buffer.empty()) {
        elem->set_name(buffer);
        buffer.clear();
      }
      ++cursor;
      parseUntil(text, buffer, cursor, '=', unescape);
      // Copied rather than swapped out, so the buffer keeps its capacity for
      // the value and the elements that follow (short keys fit in SSO).
      std::string key(buffer);
      buffer.clear();
      ++cursor;
      // Key values are always unescaped, whatever the element's flag.
      parseValForKey(text, buffer, cursor, true);
      // Insert semantics: the first occurrence of a repeated key wins.
      elem->mutable_key()->insert({key, buffer});
      buffer.clear();
    } else {
      buffer.push_back(c);
    }
    ++cursor;
  }
  // Text after the last bracket (a[x=1]b) replaces a name set at a bracket.
  if (!buffer.empty()) {
    elem->set_name(buffer);
    buffer.clear();
  }
}

gnmi::Path strToPath(const std::string& text) {
  gnmi::Path path;
  if (text.empty()) {
    return path;
  }
  unsigned cursor = text[0] == '/' ? 1 : 0;
  if (cursor >= text.size()) {
    return path;
  }
  std::string buffer;
  do {
    parseElem(text, buffer, cursor, path.add_elem(), false);
    ++cursor;  // over the '/' (or past the end)
  } while (cursor < text.size());
  ZOLT_TRACE(dbg, 9, COMPONENT, "\"{}\" -> {} elements", text, path.elem_size());
  return path;
}

gnmi::Path pathToGnmiPath(const std::string& text) {
  gnmi::Path path;
  size_t pos = 0;
  while (pos < text.size()) {
    const size_t slash = text.find('/', pos);
    if (slash == pos) {
      ++pos;
      continue;
    }
    const size_t end = slash == std::string::npos ? text.size() : slash;
    path.add_elem()->set_name(text.substr(pos, end - pos));
    pos = end;
  }
  return path;
}

std::string extractGifPath(const std::string& gifPtrStrep) {
  // Built once for the life of the process, on first use.
  static const std::regex entityRef("entity\\(\\'(\\S+)\\'\\)", std::regex::ECMAScript);
  std::smatch match;
  if (!std::regex_match(gifPtrStrep, match, entityRef)) {
    std::cout << "gifPtrStrep: " << gifPtrStrep << " does not match regex" << std::endl;
    plainAssertFail("false", __FILE_NAME__, GIF_PATH_ASSERT_LINE, __PRETTY_FUNCTION__);
  }
  return std::regex_replace(match[1].str(), std::regex("\\."), "/");
}

// ---------------------------------------------------------------------------
// Formatting

std::string pathToStrImpl(const gnmi::Path& path, int start, bool leadingSep, const char* sep) {
  const int count = path.elem_size();
  // A negative start prints from the first element.
  start = std::max(start, 0);
  if (start >= count) {
    return {};
  }
  size_t hint = 0;
  for (int i = start; i < count; ++i) {
    hint += path.elem(i).name().size();
  }
  std::string out;
  out.reserve(hint);
  std::vector<std::string> keyTexts;
  for (int i = start; i < count; ++i) {
    const gnmi::PathElem& elem = path.elem(i);
    if (i != start || leadingSep) {
      out.append(sep);
    }
    out.append(elem.name());
    const auto& keys = elem.key();
    if (keys.size() == 1) {
      const auto& [name, value] = *keys.begin();
      fmt::format_to(std::back_inserter(out), "[{}={}]", name, value);
    } else if (keys.size() > 1) {
      // Sorted by the formatted text, not by key name: "[a-b=..." sorts before
      // "[a=..." because '-' < '='. Output must be stable whatever the map's
      // iteration order.
      keyTexts.clear();
      keyTexts.reserve(keys.size());
      for (const auto& [name, value] : keys) {
        keyTexts.push_back(fmt::format("[{}={}]", name, value));
      }
      std::sort(keyTexts.begin(), keyTexts.end());
      for (const std::string& keyText : keyTexts) {
        out.append(keyText);
      }
    }
  }
  return out;
}

std::string pathToStr(const gnmi::Path& path, int start, bool leadingSep) {
  return pathToStrImpl(path, start, leadingSep, "/");
}

std::string pathToKeyStr(const gnmi::Path& path) { return pathToStrImpl(path, 0, false, "__"); }

std::string pathElemToStr(const gnmi::PathElem& elem) {
  gnmi::Path path;
  *path.add_elem() = elem;
  return pathToStr(path, 0, false);
}

// ---------------------------------------------------------------------------
// Prefix algebra

bool isPrefix(const gnmi::Path& prefix, const gnmi::Path& path) {
  const int count = prefix.elem_size();
  if (count > path.elem_size()) {
    return false;
  }
  for (int i = 0; i < count; ++i) {
    if (prefix.elem(i).name() != path.elem(i).name()) {
      return false;
    }
  }
  return true;
}

gnmi::Path joinPath(const gnmi::Path& first, const gnmi::Path& second) {
  gnmi::Path joined(first);
  joined.MergeFrom(second);
  return joined;
}

gnmi::Path removePrefix(const gnmi::Path& prefix, const gnmi::Path& path) {
  if (path.elem_size() < prefix.elem_size() || !isPrefix(prefix, path)) {
    ZOLT_FMASSERT(dbg, COMPONENT, "{} is not a prefix of {}", prefix, path);
  }
  gnmi::Path rest;
  for (int i = prefix.elem_size(); i < path.elem_size(); ++i) {
    rest.add_elem()->set_name(path.elem(i).name());
  }
  return rest;
}

// ---------------------------------------------------------------------------
// Hashing and equality

uint32_t hashPathElem(const gnmi::PathElem& elem) {
  const uint32_t nameHash = hashString(elem.name());
  if (elem.key().empty()) {
    return nameHash;
  }
  // A sum, so that the map's iteration order does not matter.
  uint32_t sum = 0;
  for (const auto& [key, value] : elem.key()) {
    sum += murmurMix(hashString(key), foldBytes(value));
  }
  return murmurMix(nameHash, sum);
}

uint32_t hashPath(const gnmi::Path& path) {
  uint32_t h = 0;
  for (const gnmi::PathElem& elem : path.elem()) {
    h = murmurMix(h, hashPathElem(elem));
  }
  return h;
}

}  // namespace Ostrel

namespace gnmi {

bool operator==(const PathElem& lhs, const PathElem& rhs) {
  if (lhs.name() != rhs.name() || lhs.key().size() != rhs.key().size()) {
    return false;
  }
  for (const auto& [key, value] : lhs.key()) {
    const auto it = rhs.key().find(key);
    if (it == rhs.key().end() || it->second != value) {
      return false;
    }
  }
  return true;
}

bool operator==(const Path& lhs, const Path& rhs) {
  const int count = lhs.elem_size();
  if (count != rhs.elem_size()) {
    return false;
  }
  for (int i = 0; i < count; ++i) {
    if (!(lhs.elem(i) == rhs.elem(i))) {
      return false;
    }
  }
  return true;
}

}  // namespace gnmi
