// Values worked out once per key and kept for the life of the process, for
// descriptors that never change (types, attributes).
#pragma once

#include <unordered_map>

namespace Ostrel::Memo {

// The value of `key` in `cache`, made with `make(key)` on first use.
// References stay valid as the cache grows. Single-threaded, like every walk.
template <typename Key, typename Value, typename Make>
const Value& of(std::unordered_map<Key, Value>& cache, const Key& key, Make&& make) {
  const auto it = cache.find(key);
  if (it != cache.end()) return it->second;
  return cache.emplace(key, make(key)).first->second;
}

}  // namespace Ostrel::Memo
