// The type-erased core of the runtime's hash map: nodes carved from chunks,
// chained buckets, lookup, insertion, erasure and iteration.
#include <algorithm>
#include <new>
#include <utility>

#include "Align.h"
#include "Vek/HashMap.h"

namespace Vek {

HashMap2018Generic::HashMap2018Generic(const HashMapOps& ops, float maxLoadFactor)
    : ops_(&ops), maxLoadFactor_(maxLoadFactor > 0.0f ? maxLoadFactor : 1.0f) {
  nodeAlign_ = std::max({alignof(Node), ops.keyAlign, ops.valueAlign});
  keyOffset_ = detail::alignUp(sizeof(Node), ops.keyAlign);
  valueOffset_ = detail::alignUp(keyOffset_ + ops.keySize, ops.valueAlign);
  nodeSize_ = detail::alignUp(valueOffset_ + ops.valueSize, nodeAlign_);
}

HashMap2018Generic::HashMap2018Generic(HashMap2018Generic&& other) noexcept
    : ops_(other.ops_),
      maxLoadFactor_(other.maxLoadFactor_),
      keyOffset_(other.keyOffset_),
      valueOffset_(other.valueOffset_),
      nodeSize_(other.nodeSize_),
      nodeAlign_(other.nodeAlign_),
      buckets_(std::exchange(other.buckets_, nullptr)),
      bucketCount_(std::exchange(other.bucketCount_, 0)),
      size_(std::exchange(other.size_, 0)),
      chunks_(std::exchange(other.chunks_, nullptr)),
      carve_(std::exchange(other.carve_, nullptr)),
      carveEnd_(std::exchange(other.carveEnd_, nullptr)),
      free_(std::exchange(other.free_, nullptr)),
      nextChunkNodes_(other.nextChunkNodes_) {}

HashMap2018Generic::~HashMap2018Generic() {
  clear();
  delete[] buckets_;
  for (void* chunk = chunks_; chunk;) {
    void* next = *static_cast<void**>(chunk);
    ::operator delete(chunk, std::align_val_t(nodeAlign_));
    chunk = next;
  }
}

namespace {
// Chunks grow to this many nodes: small enough for the allocator to serve
// them from memory it keeps (large blocks are mapped afresh each time and
// page-faulted in).
constexpr size_t MAX_CHUNK_NODES = 1024;
}  // namespace

void HashMap2018Generic::addChunk(size_t nodes) {
  // The link to the previous chunk sits in a header as aligned as a node.
  const size_t header = detail::alignUp(sizeof(void*), nodeAlign_);
  auto* chunk = static_cast<char*>(::operator new(header + nodes * nodeSize_, std::align_val_t(nodeAlign_)));
  *reinterpret_cast<void**>(chunk) = chunks_;
  chunks_ = chunk;
  // What is left of the previous chunk goes to the free list.
  while (carve_ && carve_ + nodeSize_ <= carveEnd_) {
    releaseNode(carve_);
    carve_ += nodeSize_;
  }
  carve_ = chunk + header;
  carveEnd_ = carve_ + nodes * nodeSize_;
}

void* HashMap2018Generic::allocateNode() {
  if (free_) {
    void* node = free_;
    free_ = *static_cast<void**>(node);
    return node;
  }
  if (static_cast<size_t>(carveEnd_ - carve_) < nodeSize_) {
    addChunk(nextChunkNodes_);
    nextChunkNodes_ = std::min<size_t>(nextChunkNodes_ * 2, MAX_CHUNK_NODES);
  }
  void* node = carve_;
  carve_ += nodeSize_;
  return node;
}

void HashMap2018Generic::releaseNode(void* node) {
  *static_cast<void**>(node) = free_;
  free_ = node;
}

const void* HashMap2018Generic::keyOf(const Node* node) const {
  return reinterpret_cast<const char*>(node) + keyOffset_;
}
void* HashMap2018Generic::valueOf(const Node* node) const {
  return const_cast<char*>(reinterpret_cast<const char*>(node)) + valueOffset_;
}

HashMap2018Generic::Node* HashMap2018Generic::findNode(const void* key, uint32_t hash) const {
  if (bucketCount_ == 0) return nullptr;
  for (Node* n = buckets_[hash & (bucketCount_ - 1)]; n; n = n->next) {
    if (n->hash == hash && ops_->equal(keyOf(n), key)) return n;
  }
  return nullptr;
}

void* HashMap2018Generic::find(const void* key) const {
  Node* n = findNode(key, ops_->hash(key));
  return n ? valueOf(n) : nullptr;
}

void HashMap2018Generic::grow() { rehash(bucketCount_ ? bucketCount_ * 2 : 8); }

void HashMap2018Generic::reserve(size_t count) {
  size_t buckets = bucketCount_ ? bucketCount_ : 8;
  while (static_cast<float>(count) > maxLoadFactor_ * static_cast<float>(buckets)) buckets *= 2;
  if (buckets > bucketCount_) rehash(buckets);
  // Room for the nodes too, in one chunk, unless free nodes and the chunk in
  // hand cover it already.
  if (count > size_) {
    size_t spare = carve_ ? static_cast<size_t>(carveEnd_ - carve_) / nodeSize_ : 0;
    for (void* n = free_; n && spare < count - size_; n = *static_cast<void**>(n)) ++spare;
    if (spare < count - size_) addChunk(count - size_ - spare);
  }
}

void HashMap2018Generic::rehash(size_t count) {
  auto** buckets = new Node*[count]();
  for (size_t b = 0; b < bucketCount_; ++b) {
    for (Node* n = buckets_[b]; n;) {
      Node* next = n->next;
      Node*& head = buckets[n->hash & (count - 1)];
      n->next = head;
      head = n;
      n = next;
    }
  }
  delete[] buckets_;
  buckets_ = buckets;
  bucketCount_ = count;
}

void* HashMap2018Generic::insert(const void* key, const void* value) {
  const uint32_t hash = ops_->hash(key);
  if (Node* n = findNode(key, hash)) {
    ops_->assignValue(valueOf(n), value);
    return valueOf(n);
  }
  if (static_cast<float>(size_ + 1) > maxLoadFactor_ * static_cast<float>(bucketCount_)) grow();
  // A copy that throws leaves the map as it was: the node and whatever part
  // of it was already built go again before the exception passes on.
  void* raw = allocateNode();
  auto* n = new (raw) Node{nullptr, hash};
  try {
    ops_->copyKey(const_cast<void*>(keyOf(n)), key);
  } catch (...) {
    releaseNode(raw);
    throw;
  }
  try {
    ops_->copyValue(valueOf(n), value);
  } catch (...) {
    ops_->destroyKey(const_cast<void*>(keyOf(n)));
    releaseNode(raw);
    throw;
  }
  Node*& head = buckets_[hash & (bucketCount_ - 1)];
  n->next = head;
  head = n;
  ++size_;
  return valueOf(n);
}

void HashMap2018Generic::freeNode(Node* node) {
  ops_->destroyValue(valueOf(node));
  ops_->destroyKey(const_cast<void*>(keyOf(node)));
  releaseNode(node);
}

bool HashMap2018Generic::erase(const void* key) {
  if (bucketCount_ == 0) return false;
  const uint32_t hash = ops_->hash(key);
  for (Node** link = &buckets_[hash & (bucketCount_ - 1)]; *link; link = &(*link)->next) {
    Node* n = *link;
    if (n->hash == hash && ops_->equal(keyOf(n), key)) {
      *link = n->next;
      --size_;
      freeNode(n);
      return true;
    }
  }
  return false;
}

void HashMap2018Generic::clear() {
  for (size_t b = 0; b < bucketCount_; ++b) {
    for (Node* n = std::exchange(buckets_[b], nullptr); n;) {
      Node* next = n->next;
      freeNode(n);
      n = next;
    }
  }
  size_ = 0;
}

HashMap2018Generic::Node* HashMap2018Generic::first() const {
  for (size_t b = 0; b < bucketCount_; ++b) {
    if (buckets_[b]) return buckets_[b];
  }
  return nullptr;
}

HashMap2018Generic::Node* HashMap2018Generic::next(const Node* node) const {
  if (node->next) return node->next;
  for (size_t b = (node->hash & (bucketCount_ - 1)) + 1; b < bucketCount_; ++b) {
    if (buckets_[b]) return buckets_[b];
  }
  return nullptr;
}

}  // namespace Vek
