// What the leaves of published paths are: the runtime type behind each
// update the library pushes, found from the notification's prefix and the
// update's path, never guessed from the kind of the typed value (a double
// travels as bytes, a char as an unsigned integer, Seconds as nanoseconds,
// enumerations and types with their own text form as strings).
//
// How the library publishes an entity of type T at prefix P (the shapes
// this lookup understands):
//   P/<attr>                      a builtin, enumeration or text-form value,
//                                 an array (leaf list), a JSON-text attribute,
//                                 and the entity's "name"
//   P/<attr>/<field>...           the fields of a value type
//   P/<attr>_ptr                  a pointer, as the target's path text
//   P/<attr>[k=v]/<attr>Value     a member of a collection of scalars
//   P/<attr>[k=v]/<attr>Value_ptr a member of a collection of pointers
//   P/<attr>[k=v]/<field>...      a member of a collection of values
//   P/<attr>[k=v]/<keyname>       the key of a member, as a leaf (key names:
//                                 the collection's key attribute, <attr>Key,
//                                 <attr>, or a key name of the element)
//   P/<attr>[k=v]  and  P/<attr>  owned entities: prefixes of their own
// Prefixes are resolved through directories by name (Vek::Dir children) and
// then by type. Key values never change a type, so lookups are cached by
// element names alone.
//
// A model built from YANG (YangModel.h) publishes the same shapes: its
// containers and lists are owned entities, its leaves scalars and arrays
// (leaf-lists) of entities whose name is no leaf (TypeFlag::NAME_NOT_DATA).
// Each leaf found there carries its `YangLeaf` as well (schema node, YANG
// type, config or state), so that one lookup per leaf serves the encodings,
// Get's data types and Set's conversion and checks alike.
//
// Used on the event-loop thread only (directories are read live).
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi::Yang {
struct YangLeaf;
class YangModel;
}  // namespace VekGnmi::Yang

namespace VekGnmi::Server {

enum class LeafKind {
  Value,     // a builtin, enumeration or text-form value of `type`
  Pointer,   // a pointer to an entity of `type`, sent as a path string
  Array,     // a leaf list of elements of `type`
  JsonText,  // an attribute that holds its own JSON text
  Key,       // the key of a collection member, of `type` (the key type)
};

struct LeafInfo {
  LeafKind kind = LeafKind::Value;
  Vek::VekType type;
  const Vek::VekAttrBase* attr = nullptr;  // the attribute that holds the leaf
  bool state = false;                      // read-only to clients
  const Yang::YangLeaf* yang = nullptr;    // a YANG model's leaf: its schema node and type
};

// What a path names below an entity, for request validation: an entity (an
// owned child or member), a collection (all its members), a member of a
// collection of values, a value with fields, or a leaf.
enum class NodeKind { Entity, Collection, Member, Composite, Leaf };

struct NodeInfo {
  NodeKind kind = NodeKind::Entity;
  Vek::VekType type;                        // entity, member, value or leaf type
  const Vek::VekAttrBase* attr = nullptr;   // the last attribute on the way
  LeafInfo leaf;                            // for NodeKind::Leaf
};

class ModelSchema {
 public:
  // `isState` tells which attributes are read-only to clients; `yang`, the
  // model the types were built from, if any (it must outlive the schema).
  using StatePredicate = std::function<bool(const Vek::VekAttrBase&)>;

  ModelSchema(Vek::Ptr<Vek::Dir> root, StatePredicate isState, const Yang::YangModel* yang = nullptr);

  // The type of the entity published at `prefix`, or null when the prefix
  // names no entity (directories are not published and have no type here).
  Vek::VekType entityTypeAt(const gnmi::Path& prefix);

  // The leaf at elements [from, end) of `path` below an entity of
  // `entityType`; null when they name no leaf.
  const LeafInfo* leafAt(Vek::VekType entityType, const gnmi::Path& path, int from = 0);

  // The leaf of an update: `path` below the entity published at `prefix`.
  const LeafInfo* leafOf(const gnmi::Path& prefix, const gnmi::Path& path);

  // What elements [from, end) of `path` name below an entity of
  // `entityType`. An element named "*" stands for any attribute and makes the
  // result a Composite of the entity type; "..." likewise. Returns false with
  // `error` naming the first element that does not exist.
  bool nodeAt(Vek::VekType entityType, const gnmi::Path& path, int from, NodeInfo& out,
              std::string& error) const;

  // The key names under which the members of the collection `attr` are
  // published (the names `memberElement` gives them, in published order):
  // one name for a key of one value, one per field of a composite key (a
  // YANG list with several keys). Empty for a collection keyed by entities.
  const std::vector<std::string>& memberKeyNames(const Vek::VekAttr& attr);

  // Whether `attr` is state, by the predicate given.
  bool isState(const Vek::VekAttrBase& attr) const { return isState_(attr); }

  const Vek::Ptr<Vek::Dir>& root() const { return root_; }
  const Yang::YangModel* yang() const { return yang_; }

 private:
  Vek::Ptr<Vek::Dir> root_;
  StatePredicate isState_;
  const Yang::YangModel* yang_;
  std::unordered_map<std::string, Vek::VekType> prefixTypes_;
  std::unordered_map<std::string, LeafInfo> leaves_;
  std::unordered_map<const Vek::VekAttrBase*, std::vector<std::string>> keyNames_;
};

// The path element under which a member of the instantiating collection
// `attr` with key `key` is published, named by the library's own key
// extraction (FullVekTypeWalker::extractKeyInfo), so that it is exactly the
// walker's: the members' declared key attribute, a generated "<attr>Key",
// the collection's name, or one key per field of a composite key, with the
// key texts the walker writes ("__" in strings as "\__"). The agent
// publishes members at these paths itself (syncing a member directly), so
// they must be the walker's: one entity, one notifiee, one prefix. Empty
// for a member keyed by an entity that is not published (the walker does
// not publish such a member either).
std::optional<gnmi::PathElem> memberElement(const Vek::VekAttr& attr,
                                            const Vek::Ptr<Vek::GenericIf const>& key);

// The cache key of a path's element names from `from` on: names, and which
// elements carry keys.
std::string namesKey(const gnmi::Path& path, int from = 0);

}  // namespace VekGnmi::Server
