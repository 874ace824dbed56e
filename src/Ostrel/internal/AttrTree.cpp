#include "AttrTree.h"

#include <algorithm>
#include <exception>
#include <iterator>
#include <type_traits>

#include <fmt/format.h>

#include <Zolt/Zolt.h>

#include "Ostrel/Path.h"

namespace Ostrel::VekGnmiSet::AttrTree {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelVekGnmiSet");

// Trace and assertion components.
constexpr const char* RESOLVER = "AttrTree";
constexpr const char* VALUE_NODE = "ValueNode";
constexpr const char* LEAF_NODE = "LeafNode";
constexpr const char* COMPOSITE_NODE = "CompositeNode";
constexpr const char* ENTITY_NODE = "EntityNode";

constexpr int32_t NOT_FOUND = grpc::StatusCode::NOT_FOUND;
constexpr int32_t INVALID_ARGUMENT = grpc::StatusCode::INVALID_ARGUMENT;

Error errorAt(int32_t code, const gnmi::PathElem& elem, std::string message) {
  Error error;
  error.code = code;
  error.path.push_back(elem);
  error.message = std::move(message);
  return error;
}

// A value type with attributes of its own: staged as a composite whose
// attributes are set one by one. Builtins, enumerations and attribute-less
// values are plain leaves.
bool isComposite(const Vek::VekType& type) { return type->isValue() && type->attrCount() > 0; }

// The name by which conversion messages call a gNMI kind the converter
// takes; null for every other kind.
const char* acceptedKindName(gnmi::TypedValue::ValueCase kind) {
  switch (kind) {
    case gnmi::TypedValue::kStringVal: return "string";
    case gnmi::TypedValue::kIntVal: return "int";
    case gnmi::TypedValue::kUintVal: return "unsigned int";
    case gnmi::TypedValue::kBoolVal: return "bool";
    default: return nullptr;
  }
}

// The integer representations an int or uint value converts into. `char`
// takes neither: it is a character, whatever its signedness.
template <typename T>
constexpr bool IS_SIGNED_INTEGER =
    std::is_integral_v<T> && std::is_signed_v<T> && !std::is_same_v<T, char>;
template <typename T>
constexpr bool IS_UNSIGNED_INTEGER = std::is_integral_v<T> && std::is_unsigned_v<T> &&
                                     !std::is_same_v<T, bool> && !std::is_same_v<T, char>;

}  // namespace

// ---------------------------------------------------------------------------
// Resolution and conversion

Result<DataElem, std::string> getDataElem(const Vek::Ptr<Vek::GenericIf>& parent,
                                          const gnmi::PathElem& elem) {
  ZOLT_TRACE(dbg, 8, RESOLVER, "Accessing path element {} with {} keys", elem.name(),
             elem.key_size());
  const Vek::VekType type = parent ? parent->type() : Vek::VekType();
  if (!type) return Failure{fmt::format("VekType is missing for parent object of {}", elem)};
  if (type->baseType() == Vek::Dir::dirType()) {
    ZOLT_TRACE(dbg, 9, RESOLVER, "Accessing entity named {} under Vek::Dir", elem.name());
    return getElemInDir(parent, elem);
  }
  ZOLT_TRACE(dbg, 9, RESOLVER, "Accessing attribute {} in type {}", elem.name(), type->name());
  const Vek::VekAttr attr = type->attr(elem.name());
  if (!attr) {
    return Failure{fmt::format("Attribute {} not found on Type {}", elem.name(), type->name())};
  }
  // Key parsing and the read raise the runtime's exceptions; their text is
  // the message.
  try {
    Vek::Ptr<Vek::GenericIf> keyObj;
    // An array's members are keyed by their index, as a collection's by key.
    if (attr->isCollection() || attr->isArray()) {
      if (attr->isInternallyKeyed()) {
        return Failure{std::string("Path with internally-keyed collection is not supported")};
      }
      if (elem.key_size() != 1) {
        return Failure{std::string("Path with composite key collection not supported")};
      }
      const auto& [keyName, keyText] = *elem.key().begin();
      ZOLT_TRACE(dbg, 9, RESOLVER, "Creating Gif key object for gnmi key [{} = {}]", keyName,
                 keyText);
      keyObj = attr->indexType().genericIf(Vek::String(keyText), true);
      if (!keyObj) ZOLT_FMASSERT(dbg, RESOLVER, "Expecting valid key object for {}", elem);
    } else if (elem.key_size() != 0) {
      return Failure{fmt::format("Path element {} cannot have a key: {} is not a collection",
                                 elem, attr->name())};
    }
    Vek::Ptr<Vek::GenericIf const> current = attr.genericIfGet(parent, keyObj);
    if (!current) return Failure{fmt::format("Path element {} is not set", elem)};
    if (isComposite(attr->type())) {
      ZOLT_TRACE(dbg, 9, RESOLVER, "Making a non-const copy of the Value type object");
      // The runtime reads a scalar attribute as a new copy of its value,
      // which is then private already; a collection member is the stored
      // object itself and is copied.
      if (attr->storage() == Vek::AttrStorage::Value) {
        return DataElem{Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(current.ptr())),
                        std::move(keyObj), attr};
      }
      return DataElem{current->type().genericIf(current->voidPtr(), true), std::move(keyObj),
                      attr};
    }
    // An entity is its own handle and is written only through the runtime's
    // checked setters at commit; a plain value is only read (a leaf replaces
    // it by the converted new value). Neither is modified through this
    // handle, so giving up const is safe.
    return DataElem{Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(current.ptr())),
                    std::move(keyObj), attr};
  } catch (const std::exception& e) {
    return Failure{std::string(e.what())};
  }
}

Result<DataElem, std::string> getElemInDir(const Vek::Ptr<Vek::GenericIf>& dirObj,
                                           const gnmi::PathElem& elem) {
  if (!dirObj || !(dirObj->type()->baseType() == Vek::Dir::dirType())) {
    ZOLT_FMASSERT(dbg, RESOLVER, "Expecting dirObj to be of type Vek::Dir");
  }
  // Looked up once: every directory type answers with the attribute of
  // `Vek::Dir` (aliases answer as their base type).
  static const Vek::VekAttr entityPtr = dirObj->type()->attr("entityPtr");
  if (!entityPtr) ZOLT_FMASSERT(dbg, RESOLVER, "entityPtr attribute not found inside Vek::Dir");
  if (elem.key_size() != 0) {
    return Failure{fmt::format("Path element {} under Vek::Dir cannot have a key", elem)};
  }
  Vek::Ptr<Vek::GenericIf> key = entityPtr->indexType().genericIf(Vek::String(elem.name()), false);
  if (!key) ZOLT_FMASSERT(dbg, RESOLVER, "Expecting valid key object to access entityPtr");
  Vek::Ptr<Vek::GenericIf const> child = entityPtr.genericIfGet(dirObj, key);
  if (!child) return Failure{fmt::format("Path element {} is not set", elem)};
  // The child entity is its own handle; see getDataElem.
  return DataElem{Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(child.ptr())),
                  std::move(key), entityPtr};
}

Result<Vek::Ptr<Vek::GenericIf>, std::string> gnmiToVekValue(const gnmi::TypedValue& value,
                                                             const Vek::VekType& type) {
  using Converted = Result<Vek::Ptr<Vek::GenericIf>, std::string>;
  const gnmi::TypedValue::ValueCase kind = value.value_case();
  const char* kindName = acceptedKindName(kind);
  if (!kindName) return Failure{fmt::format("{} is not supported", value.DebugString())};
  const auto mismatch = [&] {
    return Failure{fmt::format("Expected {}; found {}", type->name(), kindName)};
  };
  // Aliases of builtins answer their base's code; enumerations and values
  // have none and take no gNMI scalar.
  const Vek::BuiltinCode code = type->builtinCode();
  if (code == Vek::BuiltinCode::None) return mismatch();
  // A new value of `type` itself (an alias stays an alias) holding `v`.
  const auto make = [&](const auto& v) -> Converted {
    return type.genericIf(static_cast<const void*>(&v), true);
  };
  return Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) -> Converted {
    if constexpr (std::is_same_v<T, Vek::String>) {
      if (kind == gnmi::TypedValue::kStringVal) return make(Vek::String(value.string_val()));
    } else if constexpr (std::is_same_v<T, bool>) {
      if (kind == gnmi::TypedValue::kBoolVal) return make(value.bool_val());
    } else if constexpr (IS_SIGNED_INTEGER<T>) {
      // Keeps the low bits: no range check, by design.
      if (kind == gnmi::TypedValue::kIntVal) return make(static_cast<T>(value.int_val()));
    } else if constexpr (IS_UNSIGNED_INTEGER<T>) {
      if (kind == gnmi::TypedValue::kUintVal) return make(static_cast<T>(value.uint_val()));
    }
    return mismatch();
  });
}

// ---------------------------------------------------------------------------
// ValueNode

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
// CompositeNode::AttrQueue

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
  const Slot& slot = slotFor(elem, hashPathElem(elem));
  return slot.position == 0 ? nullptr : nodes_[slot.position - 1].get();
}

std::pair<bool, ValueNode*> CompositeNode::AttrQueue::insert(std::unique_ptr<ValueNode> node) {
  const uint32_t hash = hashPathElem(node->elem());
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
  ValueNode* child = attrs_.get(elem);
  if (!child) {
    Result<DataElem, std::string> resolved = getDataElem(data_.value, elem);
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
          attrs_.insert(std::make_unique<CompositeNode>(elem, std::move(data)));
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
      if (!attrs_.insert(std::move(leaf)).first) {
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
  for (const auto& child : attrs_.nodes()) {
    Result<bool, Error> written = child->set(object);
    if (!written) return written;
  }
  data_.value = std::move(object);
  return true;
}

Result<bool, Error> CompositeNode::applyUpdates() {
  ZOLT_TRACE(dbg, 7, COMPOSITE_NODE, "PathElem: {}, perform Update", elem_);
  for (const auto& child : attrs_.nodes()) {
    Result<bool, Error> written = child->set(data_.value);
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
  for (const auto& child : attrs_.nodes()) {
    Result<bool, Error> written = child->set(data_.value);
    if (!written) return written;
  }
  return true;
}

}  // namespace Ostrel::VekGnmiSet::AttrTree
