// Runtime types built from a compiled YANG schema, so that the library
// publishes YANG instance data at its YANG data paths with no code per model.
//
// The mapping, for the implemented modules of a `YangSchema`:
//
//   YANG                          runtime (module "<vekModule>")        published as
//   ----------------------------  ------------------------------------  -----------------------------------
//   top-level container           child of the root `Vek::Dir`, named   /interfaces/...
//                                 by its element name
//   container                     owned child entity (`child`)          .../container/...
//     non-presence                  made with its parent, always there
//     presence                      only while the data has it
//   list with keys                owned collection keyed by the key     .../list[k=v]/...
//                                 value; one key: the key leaf's type,  .../list[k1=v1][k2=v2]/...
//                                 declared key attribute = the key
//                                 leaf; several keys: a value type
//                                 "<list path>#key" with one field per
//                                 key leaf, in key order
//   list without keys (state)     owned collection keyed by the entry's .../list[@index=0]/...
//                                 position from 0, in data order; its
//                                 key attribute "@index" is an optional
//                                 attribute that is never set, so the
//                                 position is a path key, never a leaf
//   choice, case                  transparent: their data nodes are
//                                 attributes of the enclosing entity
//   leaf                          optional scalar (AttrFlag::OPTIONAL)  .../leaf = value; nothing while unset
//   key leaf                      optional scalar, set as soon as the   .../list[k=v]/k = value
//                                 entry is made (so an entry made in a
//                                 live model publishes no empty key
//                                 before its key is set)
//   leaf-list                     optional array (leaf list)            .../leaf-list = [values]
//   anydata, anyxml, rpc, action, not mapped: the loader refuses data
//   notification, top-level leaf  that holds anydata or anyxml; a
//   or list                       top-level leaf or list is refused
//                                 when the model is built
//
// Entity types are named after their schema data path
// ("/ietf-interfaces:interfaces/interface") and have TypeFlag::NAME_NOT_DATA:
// their "name" is free for a YANG leaf and no name leaf is published. Element
// names (attribute names, the root's child names) are the YANG identifiers as
// they stand; two children of one parent with the same name from different
// modules are told apart by prefixing "module:" to each whose module is not
// the parent's (at the top level, to every one of them).
//
// Leaf types (typedef chains are resolved by libyang; a leafref takes its
// target's type):
//
//   YANG                  runtime type                     text form = libyang's canonical   walker publishes
//   int8 .. int64         signed char, short, int, long long   decimal                      int_val
//   uint8 .. uint64       unsigned char .. unsigned long long  decimal                      uint_val
//   boolean               bool                                 true / false                 bool_val
//   string                Vek::String                          as is                        string_val
//   enumeration           enumeration "<leaf path>#enumeration"  the name                   string_val (name)
//                         over int, YANG names and values
//   identityref           Vek::String                          module:identity              string_val
//   decimal64             value type "decimal64(N)" holding the  1.5, -0.25, 3.0            string_val
//                         value times 10^N (long long) exactly
//   union                 Vek::String                          the member's canonical text  string_val
//   empty                 value type "empty"                   "" (JSON: [null])            string_val ""
//   binary                value type "binary" (Vek::Bytes)     base64                       string_val
//   bits                  Vek::String                          set bits by position,        string_val
//                                                              space-separated
//   instance-identifier   Vek::String                          its JSON form                string_val
//
// So decimal64 keeps its exact decimal value (a client wanting PROTO gets a
// double from the encoder, JSON_IETF the text); a union keeps the text of the
// member that matched, and its member type is found again from the text by
// libyang (`realType`): a union value whose text reads as an earlier member
// (the string "17" in a union of uint32 and string) is taken as that member.
//
// An example, ietf-interfaces (2014-05-08) with ietf-ip (2014-06-16), and
// the data
//   {"ietf-interfaces:interfaces": {"interface": [{"name": "eth0", "type":
//    "iana-if-type:ethernetCsmacd", "ietf-ip:ipv4": {"address": [{"ip":
//    "10.0.0.1", "prefix-length": 24}]}}]}}
// is the runtime tree
//   root Vek::Dir
//     interfaces                    entity /ietf-interfaces:interfaces
//       interface[name=eth0]        entity .../interface, in a collection keyed by Vek::String
//         name = "eth0"             the key leaf
//         type = "iana-if-type:ethernetCsmacd"
//         enabled                   unset: the schema default (true) is not published
//         ipv4                      entity .../interface/ietf-ip:ipv4 (a presence
//                                   container of this revision, there since the data has it)
//           address[ip=10.0.0.1]    entity .../ipv4/address
//             ip = "10.0.0.1"
//             prefix-length = 24    unsigned char
//                                   (no ipv6: a presence container the data does not have)
//     interfaces-state              entity (non-presence, empty: publishes nothing)
// and a sync of the root's children publishes exactly
//   /interfaces/interface[name=eth0]/name = "eth0"
//   /interfaces/interface[name=eth0]/type = "iana-if-type:ethernetCsmacd"
//   /interfaces/interface[name=eth0]/ipv4/address[ip=10.0.0.1]/ip = "10.0.0.1"
//   /interfaces/interface[name=eth0]/ipv4/address[ip=10.0.0.1]/prefix-length = 24
//
// What a path element, an update or a Set needs is in one place per node: a
// `YangLeaf` for each leaf and leaf-list attribute (its compiled schema node,
// the resolved type, the runtime type, whether it is a key, a leaf list,
// state) and a `YangNode` for each container and list (schema node, entity
// type, keys, element names of its children, in published and in
// module-qualified form). Config false marks state (`YangLeaf::state`,
// `YangModel::isState`); the runtime is not told: the device writes state
// through the same attributes.
//
// Built once, then read-only: safe to share between threads that only read.
#pragma once

#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include <Vek/Vek.h>

#include <Ostrel/Result.h>

#include "YangSchema.h"

struct lysc_node;
struct lysc_type;
struct lys_module;

namespace VekGnmi::Yang {

// The kind of a leaf's (resolved) type: libyang's LY_DATA_TYPE values.
using YangBaseType = int;

// One leaf or leaf-list attribute.
struct YangLeaf {
  const lysc_node* node = nullptr;  // LYS_LEAF or LYS_LEAFLIST
  const lysc_type* type = nullptr;  // the leaf's type, a leafref followed to its target's
  YangBaseType base = 0;            // type's LY_DATA_TYPE
  Vek::VekType valueType;           // runtime type of a value (of an element, for a leaf list)
  Vek::VekAttr attr;                // the attribute in its entity type
  std::string element;              // published element name
  bool key = false;
  bool leafList = false;
  bool state = false;               // config false
  const char* module() const;       // the leaf's module name
};

// One container or list: an entity type.
struct YangNode {
  const lysc_node* node = nullptr;  // LYS_CONTAINER or LYS_LIST
  Vek::VekType type;                // the entity type
  Vek::VekAttr attr;                // the attribute that holds it in its parent (null at the top)
  std::string element;              // published element name
  bool presence = false;            // a presence container
  bool list = false;
  bool keyless = false;             // a list without keys: keyed by position
  bool state = false;               // config false
  Vek::VekType keyType;             // a list's key type
  std::vector<const YangLeaf*> keys;  // a list's key leaves, in key order
  // Children by published element name and by "module:name".
  std::unordered_map<std::string, const lysc_node*> children;
  std::unordered_map<std::string, const lysc_node*> qualifiedChildren;
  const char* module() const;
};

class YangModel {
 public:
  // The key attribute name of keyless lists.
  static constexpr const char* POSITION_KEY = "@index";

  // Builds the types of every implemented module of `schema` into a new
  // runtime module `vekModule` (a unique "yang-<n>" when empty). Errors: a
  // top-level leaf, leaf-list or list, a runtime module name already taken.
  static Ostrel::Result<std::shared_ptr<YangModel>, std::string> build(std::shared_ptr<YangSchema> schema,
                                                                       std::string vekModule = {});

  const YangSchema& schema() const { return *schema_; }
  const std::shared_ptr<YangSchema>& schemaPtr() const { return schema_; }
  const Vek::Module& vekModule() const { return *vekModule_; }

  // The top-level containers, in module order.
  const std::vector<const YangNode*>& topLevel() const { return topLevel_; }
  // The child of `parent` (null: the top level) named `element` as
  // published or as "module:name"; null when there is none.
  const lysc_node* child(const lysc_node* parent, std::string_view element) const;

  // Lookups; null when the argument is not part of this model.
  const YangLeaf* leaf(const Vek::VekAttrBase* attr) const;
  const YangLeaf* leaf(const lysc_node* node) const;
  const YangNode* node(const Vek::VekAttrBase* attr) const;
  const YangNode* node(const lysc_node* node) const;
  const YangNode* nodeOfType(const Vek::VekType& entityType) const;

  // Whether the leaf or node behind `attr` is config false.
  bool isState(const Vek::VekAttrBase& attr) const;

  // The member name of `node` in RFC 7951 JSON below a parent of module
  // `parentModule` (null at the top): "module:name" when the modules
  // differ, else "name".
  static std::string jsonName(const lysc_node* node, const lys_module* parentModule);

 private:
  class Builder;
  YangModel() = default;

  std::shared_ptr<YangSchema> schema_;
  Vek::Module* vekModule_ = nullptr;
  std::deque<YangLeaf> leaves_;
  std::deque<YangNode> nodes_;
  std::vector<const YangNode*> topLevel_;
  YangNode root_;  // the children of the top level
  std::unordered_map<const Vek::VekAttrBase*, const YangLeaf*> leafByAttr_;
  std::unordered_map<const lysc_node*, const YangLeaf*> leafBySchema_;
  std::unordered_map<const Vek::VekAttrBase*, const YangNode*> nodeByAttr_;
  std::unordered_map<const lysc_node*, const YangNode*> nodeBySchema_;
  std::unordered_map<const Vek::VekTypeBase*, const YangNode*> nodeByType_;
};

}  // namespace VekGnmi::Yang
