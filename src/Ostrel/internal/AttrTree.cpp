// The Set's staging tree: nodes stage the values of a request's paths,
// prepare the new values bottom-up and commit the first level into the
// prefix entity (see AttrTree.h).
#include <exception>
#include <iterator>

#include <fmt/format.h>

#include <Zolt/Zolt.h>

#include "AttrTreeSupport.h"
#include "Ostrel/Path.h"

namespace Ostrel::VekGnmiSet::AttrTree {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelVekGnmiSet");

// Trace and assertion components.
constexpr const char* VALUE_NODE = "ValueNode";
constexpr const char* LEAF_NODE = "LeafNode";
constexpr const char* COMPOSITE_NODE = "CompositeNode";
constexpr const char* ENTITY_NODE = "EntityNode";

}  // namespace

// ---------------------------------------------------------------------------
// ValueNode

ValueNode::ValueNode(const gnmi::PathElem& elem, DataElem data)
    : elem_(elem), data_(std::move(data)) {}

ValueNode::~ValueNode() = default;

Result<bool, Error> ValueNode::set(const Vek::Ptr<Vek::GenericIf>& object) {
  try {
    data_.attr.genericIfSet(object, data_.keyObj, data_.value);
  } catch (const std::exception& e) {
    ZOLT_TRACE(dbg, 7, VALUE_NODE, "PathElem: {}, set refused: {}", elem_, e.what());
    return Failure{errorAt(NOT_FOUND, elem_, e.what())};
  }
  return true;
}

// ---------------------------------------------------------------------------
// LeafNode

namespace {

Failure<Error> belowLeaf(const gnmi::PathElem& leaf, const gnmi::PathElem& next) {
  return Failure{errorAt(NOT_FOUND, leaf,
                         fmt::format("Path mapped to a leaf value cannot have a sub-element {}",
                                     next))};
}

}  // namespace

Result<bool, Error> LeafNode::insertPathSuffix(ElemIterator first, ElemIterator last,
                                               const gnmi::TypedValue& value) {
  ZOLT_TRACE(dbg, 7, LEAF_NODE, "PathElem: {}", elem_);
  if (first != last) return belowLeaf(elem_, *first);
  ZOLT_TRACE(dbg, 7, LEAF_NODE, "PathElem: {}, inserting a new leaf value", elem_);
  Result<Vek::Ptr<Vek::GenericIf>, std::string> converted =
      gnmiToVekValue(value, data_.attr->type());
  if (!converted) return Failure{errorAt(INVALID_ARGUMENT, elem_, std::move(converted).error())};
  data_.value = std::move(converted).value();
  return true;
}

Result<bool, Error> LeafNode::insertConverted(ElemIterator first, ElemIterator last,
                                              Vek::Ptr<Vek::GenericIf> converted) {
  ZOLT_TRACE(dbg, 7, LEAF_NODE, "PathElem: {}", elem_);
  if (first != last) return belowLeaf(elem_, *first);
  ZOLT_TRACE(dbg, 7, LEAF_NODE, "PathElem: {}, inserting a new leaf value", elem_);
  data_.value = std::move(converted);
  return true;
}

Result<bool, Error> LeafNode::prepare(SetOp) {
  ZOLT_TRACE(dbg, 7, LEAF_NODE, "PathElem: {}, already prepared", elem_);
  return true;
}

void LeafNode::pruneSubTree() {}

// ---------------------------------------------------------------------------
// CompositeNode

CompositeNode::CompositeNode(const gnmi::PathElem& elem, DataElem data)
    : ValueNode(elem, std::move(data)) {}

CompositeNode::~CompositeNode() = default;

Result<bool, Error> CompositeNode::insertPathSuffix(ElemIterator first, ElemIterator last,
                                                    const gnmi::TypedValue& value) {
  ZOLT_TRACE(dbg, 7, COMPOSITE_NODE, "PathElem: {}", elem_);
  Result<bool, Error> inserted = insertBelow(first, last, value);
  if (!inserted) inserted.error().path.push_front(elem_);
  return inserted;
}

Result<bool, Error> CompositeNode::insertBelow(ElemIterator first, ElemIterator last,
                                               const gnmi::TypedValue& value) {
  if (first == last) return Failure{Error{NOT_FOUND, {}, "Path must map to a leaf value"}};
  const gnmi::PathElem& elem = *first;
  const uint32_t hash = hashPathElem(elem);
  ValueNode* child = attrs_.get(elem, hash);
  if (!child) {
    // A plain value's current value is not read: a leaf replaces it.
    Result<DataElem, std::string> resolved = getDataElem(data_.value, elem, PlainValue::CheckOnly);
    if (!resolved) return Failure{errorAt(NOT_FOUND, elem, std::move(resolved).error())};
    DataElem& data = resolved.value();
    const Vek::VekType type = data.attr->type();
    if (type->isEntity()) {
      return Failure{errorAt(
          NOT_FOUND, elem,
          fmt::format("Non-prefix path element must refer to value; found entity {}", elem))};
    }
    // A read-only attribute would be refused by the runtime only at the
    // commit, after earlier attributes were written; refusing it here keeps
    // the request all or nothing.
    if (data.attr->isReadOnly()) {
      return Failure{
          errorAt(NOT_FOUND, elem, fmt::format("Attribute {} is read-only", data.attr->name()))};
    }
    if (isComposite(type)) {
      ZOLT_TRACE(dbg, 7, COMPOSITE_NODE, "PathElem: {}, inserting new CompositeNode for sub-element {}",
                 elem_, elem);
      const auto [inserted, node] =
          attrs_.insert(std::make_unique<CompositeNode>(elem, std::move(data)), hash);
      if (!inserted) {
        ZOLT_FMASSERT(dbg, COMPOSITE_NODE,
                      "Expecting successful insertion of new CompositeNode for {}", elem);
      }
      child = node;
    } else {
      // Converted before any node is made, so a wrong value leaves the tree
      // as it was; the new leaf then takes the converted object as it is.
      Result<Vek::Ptr<Vek::GenericIf>, std::string> converted = gnmiToVekValue(value, type);
      if (!converted) {
        return Failure{errorAt(INVALID_ARGUMENT, elem, std::move(converted).error())};
      }
      ZOLT_TRACE(dbg, 7, COMPOSITE_NODE, "PathElem: {}, inserting new LeafNode for sub-element {}",
                 elem_, elem);
      auto leaf = std::make_unique<LeafNode>(elem, std::move(data));
      LeafNode* newLeaf = leaf.get();
      if (!attrs_.insert(std::move(leaf), hash).first) {
        ZOLT_FMASSERT(dbg, COMPOSITE_NODE, "Expecting successful insertion of new LeafNode for {}",
                      elem);
      }
      return newLeaf->insertConverted(std::next(first), last, std::move(converted).value());
    }
  }
  if (!child) {
    ZOLT_FMASSERT(dbg, COMPOSITE_NODE, "Expecting a valid node representing sub-element {}", elem);
  }
  return child->insertPathSuffix(std::next(first), last, value);
}

Result<bool, Error> CompositeNode::prepare(SetOp op) {
  ZOLT_TRACE(dbg, 7, COMPOSITE_NODE, "PathElem: {}, prepare sub-trees", elem_);
  for (const auto& child : attrs_.nodes()) {
    Result<bool, Error> prepared = child->prepare(op);
    if (!prepared) {
      prepared.error().path.push_front(elem_);
      return prepared;
    }
  }
  Result<bool, Error> built = op == SetOp::Replace ? buildReplacement() : applyUpdates();
  if (!built) built.error().path.push_front(elem_);
  return built;
}

Result<bool, Error> CompositeNode::buildReplacement() {
  ZOLT_TRACE(dbg, 7, COMPOSITE_NODE, "PathElem: {}, perform Replace", elem_);
  // Each constructor argument goes to the position of the parameter its
  // attribute is, whatever the request's order; gaps stay null, which the
  // runtime fills with the type's default.
  Vek::GenericIfArgs args;
  for (const auto& child : attrs_.nodes()) {
    if (const std::optional<size_t> position = constructorParamPosition(child->data().attr)) {
      if (args.size() <= *position) args.resize(*position + 1);
      args[*position] = child->data().value;
    }
  }
  Vek::Ptr<Vek::GenericIf> object;
  try {
    object = data_.attr->type().genericIf(args);
  } catch (const std::exception& e) {
    return Failure{Error{NOT_FOUND, {}, e.what()}};
  }
  // Every child is then written through the checked setter: the others to
  // give them their values, the constructor arguments (already in place, so
  // nothing changes) because the runtime's constructor does not run the
  // attributes' checks, and a Replace must refuse what an Update refuses.
  Result<bool, Error> written = writeChildren(object);
  if (!written) return written;
  data_.value = std::move(object);
  return true;
}

Result<bool, Error> CompositeNode::applyUpdates() {
  ZOLT_TRACE(dbg, 7, COMPOSITE_NODE, "PathElem: {}, perform Update", elem_);
  return writeChildren(data_.value);
}

Result<bool, Error> CompositeNode::writeChildren(const Vek::Ptr<Vek::GenericIf>& object) {
  for (const auto& child : attrs_.nodes()) {
    Result<bool, Error> written = child->set(object);
    if (!written) return written;
  }
  return true;
}

void CompositeNode::pruneSubTree() { attrs_.clear(); }

bool CompositeNode::isConstructorParam(const Vek::VekAttr& attr) const {
  return constructorParamPosition(attr).has_value();
}

std::optional<size_t> CompositeNode::constructorParamPosition(const Vek::VekAttr& attr) const {
  const std::vector<Vek::VekAttr>& params = data_.attr->type()->ctorParams();
  for (size_t i = 0; i < params.size(); ++i) {
    if (params[i] == attr) return i;
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------
// EntityNode

Result<bool, Error> EntityNode::insertPathSuffix(ElemIterator first, ElemIterator last,
                                                 const gnmi::TypedValue& value) {
  ZOLT_TRACE(dbg, 7, ENTITY_NODE, "PathElem: {}", elem_);
  // The composite insertion, whose errors would start with this node's
  // element; that element belongs to the prefix, so it is left out.
  return insertBelow(first, last, value);
}

Result<bool, Error> EntityNode::prepare(SetOp op) {
  ZOLT_TRACE(dbg, 7, ENTITY_NODE, "PathElem: {}, prepare sub-attrs", elem_);
  for (const auto& child : attrs_.nodes()) {
    Result<bool, Error> prepared = child->prepare(op);
    if (!prepared) return prepared;
  }
  return true;
}

void EntityNode::pruneSubTree() {
  ZOLT_TRACE(dbg, 7, ENTITY_NODE, "PathElem: {}, prune sub-attrs", elem_);
  for (const auto& child : attrs_.nodes()) child->pruneSubTree();
}

Result<bool, Error> EntityNode::commit() {
  ZOLT_TRACE(dbg, 7, ENTITY_NODE, "PathElem: {}, commit sub-attrs", elem_);
  return writeChildren(data_.value);
}

}  // namespace Ostrel::VekGnmiSet::AttrTree
