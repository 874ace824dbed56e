// The children of a composite node of the Set's tree, in insertion order,
// found by element through a small open-addressing index.
#include "AttrTree.h"
#include "Ostrel/Path.h"

namespace Ostrel::VekGnmiSet::AttrTree {

CompositeNode::AttrQueue::AttrQueue() : index_(8) {}
CompositeNode::AttrQueue::~AttrQueue() = default;

CompositeNode::AttrQueue::Slot& CompositeNode::AttrQueue::slotFor(const gnmi::PathElem& elem,
                                                                 uint32_t hash) const {
  const size_t mask = index_.size() - 1;
  for (size_t i = hash & mask;; i = (i + 1) & mask) {
    Slot& slot = index_[i];
    if (slot.position == 0) return slot;
    if (slot.hash == hash && nodes_[slot.position - 1]->elem() == elem) return slot;
  }
}

ValueNode* CompositeNode::AttrQueue::get(const gnmi::PathElem& elem) const {
  return get(elem, hashPathElem(elem));
}

ValueNode* CompositeNode::AttrQueue::get(const gnmi::PathElem& elem, uint32_t hash) const {
  const Slot& slot = slotFor(elem, hash);
  return slot.position == 0 ? nullptr : nodes_[slot.position - 1].get();
}

std::pair<bool, ValueNode*> CompositeNode::AttrQueue::insert(std::unique_ptr<ValueNode> node) {
  const uint32_t hash = hashPathElem(node->elem());
  return insert(std::move(node), hash);
}

std::pair<bool, ValueNode*> CompositeNode::AttrQueue::insert(std::unique_ptr<ValueNode> node,
                                                             uint32_t hash) {
  Slot& slot = slotFor(node->elem(), hash);
  if (slot.position != 0) return {false, nodes_[slot.position - 1].get()};
  nodes_.push_back(std::move(node));
  slot = Slot{hash, static_cast<uint32_t>(nodes_.size())};
  if (2 * nodes_.size() > index_.size()) grow();
  return {true, nodes_.back().get()};
}

void CompositeNode::AttrQueue::grow() {
  Slots old(2 * index_.size());
  old.swap(index_);
  for (const Slot& slot : old) {
    if (slot.position != 0) slotFor(nodes_[slot.position - 1]->elem(), slot.hash) = slot;
  }
}

void CompositeNode::AttrQueue::clear() {
  nodes_.clear();
  index_.assign(8, Slot{});
}

}  // namespace Ostrel::VekGnmiSet::AttrTree
