// The runtime's keyed hash map: a type-erased core (`HashMap2018Generic`)
// driven by a table of key and value operations, and its typed face `HMap`.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <new>
#include <utility>

#include "Vek/HashMix.h"
#include "Zolt/Export.h"

namespace Vek {

// Operations on the keys and values of one map instantiation.
struct HashMapOps {
  size_t keySize;
  size_t keyAlign;
  size_t valueSize;
  size_t valueAlign;
  uint32_t (*hash)(const void* key);
  bool (*equal)(const void* a, const void* b);
  void (*copyKey)(void* dst, const void* src);      // copy-constructs into raw memory
  void (*copyValue)(void* dst, const void* src);    // copy-constructs into raw memory
  void (*assignValue)(void* dst, const void* src);  // assigns to a live value
  void (*destroyKey)(void* key);
  void (*destroyValue)(void* value);
};

// A chained hash map over opaque keys and values. Each entry is one node
// holding its hash, key and value; buckets double when the entry count passes
// `maxLoadFactor` times the bucket count. Iteration visits buckets in order,
// each bucket from its most recently inserted entry. Not synchronised.
//
// Nodes are carved from chunks the map allocates (growing geometrically, or
// one chunk of the reserved size), and erased nodes are kept on a free list
// for the next insertions, so filling a map costs a few allocations rather
// than one per entry. The chunks go back to the heap when the map is
// destroyed.
class VEK_EXPORT HashMap2018Generic {
 public:
  struct Node {
    Node* next;
    uint32_t hash;
  };

  explicit HashMap2018Generic(const HashMapOps& ops, float maxLoadFactor = 1.0f);
  ~HashMap2018Generic();
  HashMap2018Generic(const HashMap2018Generic&) = delete;
  HashMap2018Generic& operator=(const HashMap2018Generic&) = delete;
  HashMap2018Generic(HashMap2018Generic&& other) noexcept;

  // The value stored under `key`, or null.
  void* find(const void* key) const;
  // Stores `value` under `key`, replacing the value of an existing entry.
  // Returns the stored value. When copying the key or the value throws, the
  // exception passes on and the map keeps its entries and frees what it
  // built.
  void* insert(const void* key, const void* value);
  // Removes the entry of `key`; returns whether there was one.
  bool erase(const void* key);
  // Removes every entry.
  void clear();
  // Makes room for `count` entries: no rehash happens until the map holds
  // more. Never shrinks.
  void reserve(size_t count);
  size_t size() const { return size_; }
  size_t bucketCount() const { return bucketCount_; }

  // Iteration: `first` then `next` until null.
  Node* first() const;
  Node* next(const Node* node) const;
  const void* keyOf(const Node* node) const;
  void* valueOf(const Node* node) const;

 private:
  Node* findNode(const void* key, uint32_t hash) const;
  void grow();
  void rehash(size_t bucketCount);
  // Raw memory for one node, and its return; `addChunk` makes room for
  // `nodes` more.
  void* allocateNode();
  void releaseNode(void* node);
  void addChunk(size_t nodes);
  void freeNode(Node* node);

  const HashMapOps* ops_;
  float maxLoadFactor_;
  size_t keyOffset_;
  size_t valueOffset_;
  size_t nodeSize_;
  size_t nodeAlign_;
  Node** buckets_ = nullptr;
  size_t bucketCount_ = 0;
  size_t size_ = 0;
  // Chunks, linked through their first word; the part of the newest not yet
  // carved; freed nodes, linked through their first word.
  void* chunks_ = nullptr;
  char* carve_ = nullptr;
  char* carveEnd_ = nullptr;
  void* free_ = nullptr;
  size_t nextChunkNodes_ = 8;
};

// How `HMap` hashes a key: the key's own `hash()` when it has one, else
// std::hash; either is folded to 32 bits.
template <typename K>
uint32_t hmapKeyHash(const K& key) {
  if constexpr (requires { key.hash(); }) {
    return static_cast<uint32_t>(key.hash());
  } else {
    const uint64_t h = std::hash<K>{}(key);
    return static_cast<uint32_t>(h ^ (h >> 32));
  }
}

// A typed hash map from K (equality-comparable, hashed by `hmapKeyHash`) to V.
template <typename K, typename V>
class HMap {
 public:
  explicit HMap(float maxLoadFactor = 1.0f) : map_(ops(), maxLoadFactor) {}

  V* find(const K& key) { return static_cast<V*>(map_.find(&key)); }
  const V* find(const K& key) const { return static_cast<const V*>(map_.find(&key)); }
  bool contains(const K& key) const { return map_.find(&key) != nullptr; }
  // Stores `value` under `key`, replacing an existing value.
  V& insert(const K& key, const V& value) { return *static_cast<V*>(map_.insert(&key, &value)); }
  bool erase(const K& key) { return map_.erase(&key); }
  void clear() { map_.clear(); }
  void reserve(size_t count) { map_.reserve(count); }
  size_t bucketCount() const { return map_.bucketCount(); }
  size_t size() const { return map_.size(); }
  bool empty() const { return map_.size() == 0; }

  // Calls `fn(key, value)` for every entry, in the map's iteration order.
  template <typename Fn>
  void forEach(Fn&& fn) const {
    for (auto* n = map_.first(); n; n = map_.next(n)) {
      fn(*static_cast<const K*>(map_.keyOf(n)), *static_cast<V*>(map_.valueOf(n)));
    }
  }

 private:
  static const HashMapOps& ops() {
    static const HashMapOps table{
        sizeof(K), alignof(K), sizeof(V), alignof(V),
        [](const void* k) { return hmapKeyHash(*static_cast<const K*>(k)); },
        [](const void* a, const void* b) {
          return *static_cast<const K*>(a) == *static_cast<const K*>(b);
        },
        [](void* d, const void* s) { new (d) K(*static_cast<const K*>(s)); },
        [](void* d, const void* s) { new (d) V(*static_cast<const V*>(s)); },
        [](void* d, const void* s) { *static_cast<V*>(d) = *static_cast<const V*>(s); },
        [](void* k) { static_cast<K*>(k)->~K(); },
        [](void* v) { static_cast<V*>(v)->~V(); }};
    return table;
  }

  HashMap2018Generic map_;
};

}  // namespace Vek
