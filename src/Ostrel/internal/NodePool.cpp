// The memory of the Set's tree nodes: a bounded per-thread list of freed
// node blocks, since nodes are made and dropped by the thousand per request
// (the heap directly in sanitizer builds).
#include <algorithm>
#include <utility>

#include "AttrTree.h"

namespace Ostrel::VekGnmiSet::AttrTree {

namespace {

// Sanitizer builds take nodes from the heap, so that a node used after its
// release is reported.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define OSTREL_NODE_POOL 0
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define OSTREL_NODE_POOL 0
#endif
#endif
#ifndef OSTREL_NODE_POOL
#define OSTREL_NODE_POOL 1
#endif

#if OSTREL_NODE_POOL
// Two block sizes: leaves, and composites (with the entity node). Each node
// takes a whole block of its class, so any block may join its pool later.
constexpr size_t LEAF_BLOCK = sizeof(LeafNode);
constexpr size_t NODE_BLOCK = std::max(sizeof(CompositeNode), sizeof(EntityNode));
constexpr size_t NODE_POOL_LIMIT = 4096;

// The calling thread's freed blocks of one class, linked through their first
// word. Kept apart from the flag below so that the flag, trivially
// destructible, stays readable while the thread exits.
struct NodePool {
  void* head = nullptr;
  size_t count = 0;
  ~NodePool();
};
constinit thread_local bool nodePoolGone = false;
thread_local NodePool nodePools[2];

NodePool::~NodePool() {
  nodePoolGone = true;
  while (head) ::operator delete(std::exchange(head, *static_cast<void**>(head)));
}

#endif

}  // namespace

void* ValueNode::operator new(size_t size) {
#if OSTREL_NODE_POOL
  if (size <= NODE_BLOCK) {
    const bool leaf = size <= LEAF_BLOCK;
    if (!nodePoolGone) {
      NodePool& pool = nodePools[leaf ? 0 : 1];
      if (void* block = pool.head) {
        pool.head = *static_cast<void**>(block);
        --pool.count;
        return block;
      }
    }
    return ::operator new(leaf ? LEAF_BLOCK : NODE_BLOCK);
  }
#endif
  return ::operator new(size);
}

void ValueNode::operator delete(void* memory, [[maybe_unused]] size_t size) {
#if OSTREL_NODE_POOL
  if (size <= NODE_BLOCK && !nodePoolGone) {
    NodePool& pool = nodePools[size <= LEAF_BLOCK ? 0 : 1];
    if (pool.count < NODE_POOL_LIMIT) {
      *static_cast<void**>(memory) = pool.head;
      pool.head = memory;
      ++pool.count;
      return;
    }
  }
#endif
  ::operator delete(memory);
}

}  // namespace Ostrel::VekGnmiSet::AttrTree
