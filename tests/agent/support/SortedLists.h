// RFC 7951 documents compared regardless of the order of list entries.
#pragma once

#include <algorithm>
#include <vector>

#include <nlohmann/json.hpp>

namespace YangTest {

// `json` with the entries of every list (arrays of objects) sorted, so that
// data order and key order compare equal; leaf-lists keep their order.
inline nlohmann::json sortedLists(const nlohmann::json& json) {
  if (json.is_object()) {
    nlohmann::json out = nlohmann::json::object();
    for (const auto& [name, value] : json.items()) out[name] = sortedLists(value);
    return out;
  }
  if (!json.is_array() || json.empty() || !json.front().is_object()) return json;
  std::vector<nlohmann::json> entries;
  for (const auto& entry : json) entries.push_back(sortedLists(entry));
  std::sort(entries.begin(), entries.end(), [](const auto& a, const auto& b) { return a.dump() < b.dump(); });
  return entries;
}

}  // namespace YangTest
