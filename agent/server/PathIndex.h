// PathIndex: which of many requested paths a published path falls under, in
// time that grows with the depth of the path and the number of matches, not
// with the number of requested paths.
//
// A subscription may ask for thousands of paths, and hundreds of
// subscriptions may be open; every change the model makes is matched against
// all of them. The index is a tree of requested elements: at each level,
// elements by name ("*" apart), and below a name the elements with keys by
// the value of their first key that is not "*" (keyless and all-"*"
// elements apart). Matching a published path follows only the branches its
// elements can take; candidates in a bucket are confirmed with the same
// element rule as PathFilter (`elemMatches`), and "..." is tried at every
// depth, so the answers are exactly PathFilter's:
//
//   index.insert(strToPath("/devices/dev1/interfaces[name=*]/counters"), entryA);
//   index.forUnder(published, [](Entry* e) { ... });   // e's path holds `published`
//
// Values are compared with ==; a path may be inserted with several values.
// Not thread-safe; the agent uses it on its event loop.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include <gnmi/gnmi.pb.h>

#include "PathResolver.h"

namespace VekGnmi::Server {

// A published path as one sequence of elements: `first`, then `second` (if
// any), without copying either.
struct PathElems {
  const gnmi::Path& first;
  const gnmi::Path* second = nullptr;
  int size() const { return first.elem_size() + (second ? second->elem_size() : 0); }
  const gnmi::PathElem& operator[](int i) const {
    return i < first.elem_size() ? first.elem(i) : second->elem(i - first.elem_size());
  }
};

namespace PathIndexDetail {

// Whether every key value of `e` is "*" (or it has none): it matches any
// member, and is indexed by name alone.
inline bool anyKeys(const gnmi::PathElem& e) {
  return std::all_of(e.key().begin(), e.key().end(), [](const auto& kv) { return kv.second == "*"; });
}

// The value that files a keyed requested element: that of its first key in
// key-name order whose value is not "*".
inline const std::string& bucketValue(const gnmi::PathElem& e) {
  const std::string* best = nullptr;
  const std::string* bestName = nullptr;
  for (const auto& [k, v] : e.key()) {
    if (v == "*") continue;
    if (!bestName || k < *bestName) {
      bestName = &k;
      best = &v;
    }
  }
  return *best;
}

// Requested elements compare equal when names and key maps are equal.
inline bool sameElem(const gnmi::PathElem& a, const gnmi::PathElem& b) {
  if (a.name() != b.name() || a.key_size() != b.key_size()) return false;
  for (const auto& [k, v] : a.key()) {
    const auto it = b.key().find(k);
    if (it == b.key().end() || it->second != v) return false;
  }
  return true;
}

}  // namespace PathIndexDetail

template <typename T>
class PathIndex {
 public:
  // Files `value` under the requested path `requested` (names, "*", "...",
  // keys with values or "*").
  void insert(const gnmi::Path& requested, T value) {
    Node* node = &root_;
    for (const gnmi::PathElem& e : requested.elem()) node = &node->child(e);
    node->here.push_back(std::move(value));
    ++size_;
  }

  // Removes one filing of `value` under `requested`; false when there was
  // none. Empty branches are pruned.
  bool erase(const gnmi::Path& requested, const T& value) {
    if (!eraseFrom(root_, requested, 0, value)) return false;
    --size_;
    return true;
  }

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }

  // Calls `fn(value)` once for every value whose requested path holds the
  // published path `published` (PathFilter's Under: the requested path is a
  // prefix of it, element by element, with wildcards).
  template <typename Fn>
  void forUnder(const PathElems& published, Fn&& fn) const {
    Visit visit(published, /*above=*/false);
    visit.walk(root_, 0);
    visit.settle();
    visit.each(fn);
  }

  // Calls `fn(value)` once for every value whose requested path holds
  // `published` or lies below it (PathFilter's matchDelete: a delete of
  // `published` concerns them).
  template <typename Fn>
  void forUnderOrAbove(const PathElems& published, Fn&& fn) const {
    Visit visit(published, /*above=*/true);
    visit.walk(root_, 0);
    visit.settle();
    visit.each(fn);
  }

  // Calls `fn(value, whole)` once for every value whose requested path
  // relates to the prefix `prefix`: `whole` when it holds the prefix (all
  // that is published there is under it), false when it lies below the
  // prefix (each update must be tested with forUnder). PathFilter's
  // matchPrefix.
  template <typename Fn>
  void forPrefix(const gnmi::Path& prefix, Fn&& fn) const {
    const PathElems elems{prefix};
    Visit under(elems, /*above=*/false);
    under.walk(root_, 0);
    under.settle();
    Visit both(elems, /*above=*/true);
    both.walk(root_, 0);
    both.settle();
    for (const T* v : both.found) fn(*v, under.has(v));
  }

 private:
  struct Node;
  // The requested elements of one name below a node.
  struct Branch {
    std::unique_ptr<Node> anyKeys;  // keyless, or every key "*"
    // Keyed elements by their bucket value; each with the node below it.
    std::unordered_map<std::string, std::vector<std::pair<gnmi::PathElem, std::unique_ptr<Node>>>> keyed;
    bool empty() const { return !anyKeys && keyed.empty(); }
  };
  struct Node {
    std::vector<T> here;  // requested paths that end at this node
    std::unordered_map<std::string, Branch> byName;
    std::unique_ptr<Branch> anyName;  // "*"
    std::unique_ptr<Node> ellipsis;   // "..."

    bool empty() const { return here.empty() && byName.empty() && !anyName && !ellipsis; }

    Node& child(const gnmi::PathElem& e) {
      if (e.name() == "...") {
        if (!ellipsis) ellipsis = std::make_unique<Node>();
        return *ellipsis;
      }
      Branch* branch;
      if (e.name() == "*") {
        if (!anyName) anyName = std::make_unique<Branch>();
        branch = anyName.get();
      } else {
        branch = &byName[e.name()];
      }
      if (PathIndexDetail::anyKeys(e)) {
        if (!branch->anyKeys) branch->anyKeys = std::make_unique<Node>();
        return *branch->anyKeys;
      }
      auto& bucket = branch->keyed[PathIndexDetail::bucketValue(e)];
      for (auto& [elem, node] : bucket) {
        if (PathIndexDetail::sameElem(elem, e)) return *node;
      }
      bucket.emplace_back(e, std::make_unique<Node>());
      return *bucket.back().second;
    }
  };

  // One match of a published path: what it found (each value once, in no
  // particular order, once `settle` has run).
  struct Visit {
    Visit(const PathElems& p, bool a) : published(p), above(a) {}

    const PathElems& published;
    bool above;  // also values whose path goes on below the published one
    std::vector<const T*> found;

    void add(const T& v) { found.push_back(&v); }
    // "..." and repeated key values can reach a value twice.
    void settle() {
      std::sort(found.begin(), found.end());
      found.erase(std::unique(found.begin(), found.end()), found.end());
    }
    bool has(const T* v) const { return std::binary_search(found.begin(), found.end(), v); }
    void addSubtree(const Node& node) {
      for (const T& v : node.here) add(v);
      for (const auto& [name, branch] : node.byName) addBranch(branch);
      if (node.anyName) addBranch(*node.anyName);
      if (node.ellipsis) addSubtree(*node.ellipsis);
    }
    void addBranch(const Branch& branch) {
      if (branch.anyKeys) addSubtree(*branch.anyKeys);
      for (const auto& [value, bucket] : branch.keyed) {
        for (const auto& entry : bucket) addSubtree(*entry.second);
      }
    }
    void walk(const Node& node, int at) {
      for (const T& v : node.here) add(v);
      if (node.ellipsis) {
        // "..." takes any number of elements, none included.
        for (int k = at; k <= published.size(); ++k) walk(*node.ellipsis, k);
      }
      if (at == published.size()) {
        // The published path ends here; what goes on below it is above it.
        if (above) {
          for (const auto& [name, branch] : node.byName) addBranch(branch);
          if (node.anyName) addBranch(*node.anyName);
        }
        return;
      }
      const gnmi::PathElem& e = published[at];
      if (const auto it = node.byName.find(e.name()); it != node.byName.end()) step(it->second, e, at);
      if (node.anyName) step(*node.anyName, e, at);
    }
    void step(const Branch& branch, const gnmi::PathElem& e, int at) {
      if (branch.anyKeys) walk(*branch.anyKeys, at + 1);
      if (branch.keyed.empty()) return;
      // A requested key is matched by the published key of its name, or by
      // the only published key when both have one: either way, by one of
      // the published key values.
      for (const auto& [k, v] : e.key()) {
        const auto bucket = branch.keyed.find(v);
        if (bucket == branch.keyed.end()) continue;
        for (const auto& [requested, node] : bucket->second) {
          if (elemMatches(requested, e)) walk(*node, at + 1);
        }
      }
    }
    template <typename Fn>
    void each(Fn& fn) const {
      for (const T* v : found) fn(*v);
    }
  };

  static bool eraseFrom(Node& node, const gnmi::Path& requested, int at, const T& value) {
    if (at == requested.elem_size()) {
      const auto it = std::find(node.here.begin(), node.here.end(), value);
      if (it == node.here.end()) return false;
      node.here.erase(it);
      return true;
    }
    const gnmi::PathElem& e = requested.elem(at);
    if (e.name() == "...") {
      if (!node.ellipsis || !eraseFrom(*node.ellipsis, requested, at + 1, value)) return false;
      if (node.ellipsis->empty()) node.ellipsis.reset();
      return true;
    }
    Branch* branch = nullptr;
    if (e.name() == "*") {
      branch = node.anyName.get();
    } else if (const auto it = node.byName.find(e.name()); it != node.byName.end()) {
      branch = &it->second;
    }
    if (!branch || !eraseFromBranch(*branch, requested, at, value)) return false;
    if (branch->empty()) {
      if (e.name() == "*") {
        node.anyName.reset();
      } else {
        node.byName.erase(e.name());
      }
    }
    return true;
  }
  static bool eraseFromBranch(Branch& branch, const gnmi::Path& requested, int at, const T& value) {
    const gnmi::PathElem& e = requested.elem(at);
    if (PathIndexDetail::anyKeys(e)) {
      if (!branch.anyKeys || !eraseFrom(*branch.anyKeys, requested, at + 1, value)) return false;
      if (branch.anyKeys->empty()) branch.anyKeys.reset();
      return true;
    }
    const auto bucket = branch.keyed.find(PathIndexDetail::bucketValue(e));
    if (bucket == branch.keyed.end()) return false;
    for (auto it = bucket->second.begin(); it != bucket->second.end(); ++it) {
      if (!PathIndexDetail::sameElem(it->first, e)) continue;
      if (!eraseFrom(*it->second, requested, at + 1, value)) return false;
      if (it->second->empty()) bucket->second.erase(it);
      if (bucket->second.empty()) branch.keyed.erase(bucket);
      return true;
    }
    return false;
  }

  Node root_;
  size_t size_ = 0;
};

}  // namespace VekGnmi::Server
