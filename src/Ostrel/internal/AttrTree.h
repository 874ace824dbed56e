// The staging tree of one Set request, and the resolution and conversion
// functions it is built with. Private to the library: the declarations are
// exported only so that the library's own tests can reach them; this header
// is not installed.
//
// A request path below the prefix is inserted element by element under the
// prefix entity's node:
//
//   prefix /devices/dev1/interfaces[name=eth0]      EntityNode  (eth0)
//   update mtu = 9000                                ├── LeafNode      mtu
//   update counters/inPkts = 5                       ├── CompositeNode counters
//   update counters/outPkts = 6                      │   ├── LeafNode  inPkts
//                                                    │   └── LeafNode  outPkts
//   update stats/pkts/inPkts = 7                     └── CompositeNode stats
//                                                        └── CompositeNode pkts
//                                                            └── LeafNode inPkts
//
// Leaves hold their converted new value from insertion on. `prepare` builds
// every composite's new value bottom-up (Replace: from the type's defaults,
// constructor parameters first; Update: on a private copy of the current
// value). `EntityNode::commit` writes the first level into the entity. No
// entity is touched before the commit.
//
// Sources, one job each: ElemResolution.cpp (`getDataElem`, `getElemInDir`),
// ValueConversion.cpp (`gnmiToVekValue`), AttrTree.cpp (the nodes),
// AttrQueue.cpp (a composite's children), NodePool.cpp (the nodes' memory).
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/container/small_vector.hpp>
#include <google/protobuf/repeated_ptr_field.h>
#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include <Vek/Vek.h>

#include "Ostrel/Export.h"
#include "Ostrel/Result.h"

namespace Ostrel::VekGnmiSet {

// The two staging phases of a request.
enum class SetOp : int32_t { Replace = 1, Update = 2 };

namespace AttrTree {

// What one path element resolves to below its parent object.
struct OSTREL_EXPORT DataElem {
  // The entity or value at the element. For a value type with attributes of
  // its own, a private copy that may be changed without touching the model.
  Vek::Ptr<Vek::GenericIf> value;
  // The key of the collection member named, else null.
  Vek::Ptr<Vek::GenericIf> keyObj;
  // The attribute of the parent's type that holds the element.
  Vek::VekAttr attr;
};

// The failure of a tree operation.
struct OSTREL_EXPORT Error {
  // A gRPC status code: 5 (NOT_FOUND) or 3 (INVALID_ARGUMENT).
  int32_t code = 0;
  // The elements from the first below the prefix down to the one at fault.
  std::deque<gnmi::PathElem> path;
  std::string message;
};

using ElemIterator = google::protobuf::RepeatedPtrField<gnmi::PathElem>::const_iterator;

// What `getDataElem` reads of a plain value (neither an entity nor a value
// with attributes of its own): its current value, or only whether it is there
// (the result's value is then null), for a caller that replaces the value
// anyway and would drop the copy read.
enum class PlainValue : uint8_t { Read, CheckOnly };

// Resolves `elem` below `parent`: a directory's child by name (see
// `getElemInDir`), an attribute, or a member of a collection or array
// attribute addressed by its one key (an array's by its index). Fails with a message when the parent has no type,
// the attribute does not exist, a key is given on an attribute that is not a
// collection, the collection is internally keyed or the element does not
// carry exactly one key, the key text does not parse, or nothing is there
// (members are never created). Changes nothing.
OSTREL_EXPORT Result<DataElem, std::string> getDataElem(const Vek::Ptr<Vek::GenericIf>& parent,
                                                        const gnmi::PathElem& elem,
                                                        PlainValue plain = PlainValue::Read);

// Resolves `elem`, which must carry no key, to the child entity of that name
// of the directory `dirObj` (fatal when `dirObj` is not a `Vek::Dir`).
OSTREL_EXPORT Result<DataElem, std::string> getElemInDir(const Vek::Ptr<Vek::GenericIf>& dirObj,
                                                         const gnmi::PathElem& elem);

// A new value of `type` from `value`: string into a string; int into a signed
// integer of 8 to 64 bits and uint into an unsigned one, keeping the low bits
// of the 64-bit number (no range check); bool into a bool. Every other
// pairing fails with "Expected <type>; found <kind>", every other gNMI kind
// with "<debug text of value> is not supported". Types outside the builtins
// (enumerations, values) never match.
OSTREL_EXPORT Result<Vek::Ptr<Vek::GenericIf>, std::string> gnmiToVekValue(
    const gnmi::TypedValue& value, const Vek::VekType& type);

// A node of the tree: one path element and what it resolved to.
//
// A node refers to its element rather than copying it (copies of protobuf
// messages cost allocations on every node): the element must outlive the
// node. The Set keeps its request's paths for as long as its tree lives.
class OSTREL_EXPORT ValueNode {
 public:
  ValueNode(const gnmi::PathElem& elem, DataElem data);
  virtual ~ValueNode();
  ValueNode(const ValueNode&) = delete;
  ValueNode& operator=(const ValueNode&) = delete;

  // Stages the value of the request path whose remaining elements are
  // [first, last) below this node.
  virtual Result<bool, Error> insertPathSuffix(ElemIterator first, ElemIterator last,
                                               const gnmi::TypedValue& value) = 0;
  // Builds this node's new value from its children (for `op`).
  virtual Result<bool, Error> prepare(SetOp op) = 0;
  // Drops what lies below this node, keeping its own prepared value.
  virtual void pruneSubTree() = 0;

  // Writes this node's value into its attribute of `object` (at its key for a
  // collection member). A refusal of the runtime becomes code 5 with this
  // node's element as path and the refusal's text.
  Result<bool, Error> set(const Vek::Ptr<Vek::GenericIf>& object);

  const gnmi::PathElem& elem() const { return elem_; }
  const DataElem& data() const { return data_; }

  // Nodes are made and dropped by the thousand per request: their memory
  // comes from a bounded per-thread list of freed node blocks (the heap
  // directly in sanitizer builds).
  static void* operator new(size_t size);
  static void operator delete(void* memory, size_t size);

 protected:
  const gnmi::PathElem& elem_;
  DataElem data_;
};

// A scalar: holds its converted new value from insertion on.
class OSTREL_EXPORT LeafNode : public ValueNode {
 public:
  using ValueNode::ValueNode;

  // Converts `value` against the attribute's type and keeps it (a later
  // insertion replaces it). Fails when elements remain below the leaf (5) or
  // the value does not convert (3).
  Result<bool, Error> insertPathSuffix(ElemIterator first, ElemIterator last,
                                       const gnmi::TypedValue& value) override;
  // As `insertPathSuffix`, with `value` converted already.
  Result<bool, Error> insertConverted(ElemIterator first, ElemIterator last,
                                      Vek::Ptr<Vek::GenericIf> converted);
  Result<bool, Error> prepare(SetOp op) override;
  void pruneSubTree() override;
};

// A value with attributes of its own (a record such as Counters), or, as the
// base of `EntityNode`, an entity.
class OSTREL_EXPORT CompositeNode : public ValueNode {
 public:
  // The children in insertion order, found by element (name and keys).
  class OSTREL_EXPORT AttrQueue {
   public:
    // Children held inside the node: as many as an entity updated in a
    // dozen attributes has (more go to the heap).
    static constexpr size_t INLINE_CHILDREN = 8;
    using Nodes = boost::container::small_vector<std::unique_ptr<ValueNode>, INLINE_CHILDREN>;

    AttrQueue();
    ~AttrQueue();
    AttrQueue(const AttrQueue&) = delete;
    AttrQueue& operator=(const AttrQueue&) = delete;

    // The child for `elem`, or null.
    ValueNode* get(const gnmi::PathElem& elem) const;
    // Appends `node` unless a child for its element exists: returns (true,
    // node) when appended, else (false, existing child) and discards `node`.
    std::pair<bool, ValueNode*> insert(std::unique_ptr<ValueNode> node);
    // The same two for a caller that has the element's hash
    // (`hashPathElem`) already, as one that gets and then inserts.
    ValueNode* get(const gnmi::PathElem& elem, uint32_t hash) const;
    std::pair<bool, ValueNode*> insert(std::unique_ptr<ValueNode> node, uint32_t hash);
    // Removes every child.
    void clear();

    const Nodes& nodes() const { return nodes_; }

   private:
    // One slot of the index: the element's hash (as paths hash elements:
    // name and keys) and the child's position plus one; 0 marks a free slot.
    struct Slot {
      uint32_t hash = 0;
      uint32_t position = 0;
    };
    using Slots = boost::container::small_vector<Slot, 2 * INLINE_CHILDREN>;

    // The slot holding `elem` (hashing to `hash`), or the free slot where it
    // belongs. The index must have a free slot.
    Slot& slotFor(const gnmi::PathElem& elem, uint32_t hash) const;
    // Doubles the index and places every child again.
    void grow();

    // In insertion order: the order of prepare, commit and the constructor
    // arguments of a Replace.
    Nodes nodes_;
    // An open-addressing hash map from element to position: a power-of-two
    // number of slots, at most half of them used. Children are few, so both
    // usually stay inside the node.
    mutable Slots index_;
  };

  CompositeNode(const gnmi::PathElem& elem, DataElem data);
  ~CompositeNode() override;

  // Finds or makes the child for the first element (resolving it below this
  // node's value) and passes the rest down. Fails when no element remains (a
  // path may not end on a composite), the element does not resolve, names an
  // entity or a read-only attribute, or the value does not convert. Every
  // error leaving this node starts with this node's element.
  Result<bool, Error> insertPathSuffix(ElemIterator first, ElemIterator last,
                                       const gnmi::TypedValue& value) override;
  // Prepares the children, then builds the new value: Replace makes it from
  // the children that are constructor parameters (each at its parameter's
  // position, gaps at the type's default), then writes every child into it
  // through the runtime's checked setter (so the attributes' checks see the
  // constructor arguments too); Update writes every child into the private
  // copy of the current value. A runtime refusal is code 5 at the child.
  Result<bool, Error> prepare(SetOp op) override;
  // Deletes every child; the prepared value stays.
  void pruneSubTree() override;

  // Whether `attr` is a constructor parameter of this node's value type.
  bool isConstructorParam(const Vek::VekAttr& attr) const;

  const AttrQueue& attrs() const { return attrs_; }

 protected:
  // The composite insertion without this node's element put in front of the
  // error path.
  Result<bool, Error> insertBelow(ElemIterator first, ElemIterator last,
                                  const gnmi::TypedValue& value);
  // The position of `attr` among the constructor parameters, if it is one.
  std::optional<size_t> constructorParamPosition(const Vek::VekAttr& attr) const;
  // Writes every child's value into `object` through the runtime's checked
  // setter, in insertion order. The first refusal stops it and is returned
  // (relative to the child); children written before it stay written.
  Result<bool, Error> writeChildren(const Vek::Ptr<Vek::GenericIf>& object);

  AttrQueue attrs_;

 private:
  // The two ways `prepare` builds the new value once the children are
  // prepared; errors are relative to this node.
  Result<bool, Error> buildReplacement();
  Result<bool, Error> applyUpdates();
};

// The prefix entity: the root of the tree. Its children are written into the
// entity by `commit`; the entity itself is never rebuilt.
class OSTREL_EXPORT EntityNode : public CompositeNode {
 public:
  using CompositeNode::CompositeNode;

  // As for a composite; error paths leave out this node's element (it belongs
  // to the prefix), so they are relative to the prefix.
  Result<bool, Error> insertPathSuffix(ElemIterator first, ElemIterator last,
                                       const gnmi::TypedValue& value) override;
  // Prepares every child; the first failure is returned.
  Result<bool, Error> prepare(SetOp op) override;
  // Prunes every child and keeps them, so what the replace phase prepared at
  // the first level is still committed.
  void pruneSubTree() override;

  // Writes every child into the entity, in insertion order. The first refusal
  // stops the commit; children written before it stay written.
  Result<bool, Error> commit();
};

}  // namespace AttrTree

// The status of a tree error: NOT_FOUND and INVALID_ARGUMENT name the error's
// path ("Error in finding path ...", "Error in argument to path ..."); any
// other code carries the message alone.
OSTREL_EXPORT grpc::Status treeErrorToStatus(const AttrTree::Error& error);
// NOT_FOUND "Error in finding path <path>: <message>".
OSTREL_EXPORT grpc::Status pathNotFoundError(const std::string& path, const std::string& message);
// INVALID_ARGUMENT "Error in argument to path <path>: <message>".
OSTREL_EXPORT grpc::Status invalidArgumentError(const std::string& path,
                                                const std::string& message);

}  // namespace Ostrel::VekGnmiSet
