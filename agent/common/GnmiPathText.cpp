#include "GnmiPathText.h"

#include <algorithm>
#include <vector>

#include <fmt/format.h>

namespace VekGnmi {

namespace {

// Appends characters of `text` from `pos` to `out` until one of `stops`
// that is not escaped (left unconsumed) or the end; a backslash makes the
// next character literal. False on a trailing backslash.
bool readUntil(std::string_view text, size_t& pos, std::string_view stops, std::string& out,
               std::string& error) {
  while (pos < text.size() && stops.find(text[pos]) == std::string_view::npos) {
    if (text[pos] == '\\') {
      if (pos + 1 == text.size()) {
        error = fmt::format("trailing backslash at position {}", pos);
        return false;
      }
      ++pos;
    }
    out.push_back(text[pos]);
    ++pos;
  }
  return true;
}

// Reads one element from `text` at `pos` into `elem`, stopping on the '/'
// that ends it (left unconsumed) or at the end of the text.
bool parseElem(std::string_view text, size_t& pos, gnmi::PathElem& elem, std::string& error) {
  const size_t start = pos;
  std::string name;
  // The name: up to an unescaped '/' or '['; ']' and '=' need escapes.
  if (!readUntil(text, pos, "/[]=", name, error)) return false;
  if (pos < text.size() && (text[pos] == ']' || text[pos] == '=')) {
    error = fmt::format("unexpected '{}' in element name at position {} (escape it as '\\{}')",
                        text[pos], pos, text[pos]);
    return false;
  }
  if (name.empty()) {
    error = fmt::format("empty element name at position {}", start);
    return false;
  }
  elem.set_name(std::move(name));
  // Keys: "[name=value]" repeated.
  while (pos < text.size() && text[pos] == '[') {
    const size_t keyStart = pos;
    ++pos;
    std::string keyName;
    if (!readUntil(text, pos, "=]", keyName, error)) return false;
    if (pos == text.size() || text[pos] != '=') {
      error = fmt::format("key at position {} has no '='", keyStart);
      return false;
    }
    ++pos;
    if (keyName.empty()) {
      error = fmt::format("key at position {} has an empty name", keyStart);
      return false;
    }
    std::string value;
    if (!readUntil(text, pos, "]", value, error)) return false;
    if (pos == text.size()) {
      error = fmt::format("key at position {} has no closing ']'", keyStart);
      return false;
    }
    ++pos;
    if (elem.key().count(keyName) != 0) {
      error = fmt::format("key '{}' repeated at position {}", keyName, keyStart);
      return false;
    }
    (*elem.mutable_key())[keyName] = std::move(value);
  }
  if (pos < text.size() && text[pos] != '/') {
    error = fmt::format("unexpected '{}' after the keys of '{}' at position {}", text[pos],
                        elem.name(), pos);
    return false;
  }
  return true;
}

void appendEscaped(std::string& out, const std::string& text, std::string_view special) {
  for (const char c : text) {
    if (c == '\\' || special.find(c) != std::string_view::npos) out.push_back('\\');
    out.push_back(c);
  }
}

void appendElems(std::string& out, const gnmi::Path& path) {
  for (const gnmi::PathElem& elem : path.elem()) {
    out.push_back('/');
    appendEscaped(out, elem.name(), "/[]=");
    std::vector<const std::string*> names;
    names.reserve(elem.key_size());
    for (const auto& [name, value] : elem.key()) names.push_back(&name);
    std::sort(names.begin(), names.end(),
              [](const std::string* a, const std::string* b) { return *a < *b; });
    for (const std::string* name : names) {
      out.push_back('[');
      appendEscaped(out, *name, "=]");
      out.push_back('=');
      appendEscaped(out, elem.key().at(*name), "]");
      out.push_back(']');
    }
  }
}

}  // namespace

bool parsePathString(std::string_view text, gnmi::Path& out, std::string& error) {
  gnmi::Path parsed;
  size_t pos = 0;
  if (pos < text.size() && text[pos] == '/') ++pos;
  while (pos < text.size()) {
    if (!parseElem(text, pos, *parsed.add_elem(), error)) return false;
    if (pos < text.size()) {
      ++pos;  // the '/'
      if (pos == text.size()) break;  // a trailing '/' adds nothing
    }
  }
  out.mutable_elem()->Swap(parsed.mutable_elem());
  return true;
}

std::string pathString(const gnmi::Path& path) {
  std::string out;
  appendElems(out, path);
  return out.empty() ? "/" : out;
}

std::string joinedPathString(const gnmi::Path& prefix, const gnmi::Path& path) {
  std::string out;
  appendElems(out, prefix);
  appendElems(out, path);
  return out.empty() ? "/" : out;
}

// The `element` field is deprecated on the wire; reading it is the point here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
void upgradeLegacyElements(gnmi::Path& path) {
  if (path.elem_size() != 0 || path.element_size() == 0) return;
  for (const std::string& name : path.element()) path.add_elem()->set_name(name);
  path.clear_element();
}
#pragma GCC diagnostic pop

size_t findOutsidePath(std::string_view text, char wanted, size_t from) {
  bool inKey = false;
  for (size_t i = from; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '\\') {
      ++i;
    } else if (c == '[') {
      inKey = true;
    } else if (c == ']') {
      inKey = false;
    } else if (!inKey && c == wanted) {
      return i;
    }
  }
  return std::string_view::npos;
}

}  // namespace VekGnmi
