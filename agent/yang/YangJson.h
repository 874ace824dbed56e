// RFC 7951 JSON of YANG instance data held by the runtime: printed from the
// runtime tree of a `YangModel`, or assembled from the updates the library
// publishes for it. Both follow RFC 7951 as libyang prints it: top-level
// members and members whose module differs from their parent's are named
// "module:name"; lists are arrays of entry objects that hold their keys;
// leaf-lists arrays; values by `YangValue::json`. Nothing is printed for an
// unset leaf, an empty leaf-list or list, or a non-presence container with
// nothing in it; a presence container that exists prints as {} when empty.
//
// Compared with libyang's own print of the same data (`YangDataTree::json`)
// as nlohmann::json values, the only difference allowed is the order of list
// entries: libyang keeps data order, the runtime key order.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

#include "YangModel.h"

namespace VekGnmi::Yang {

namespace YangJson {

// The data under the root directory `root` (its top-level containers).
nlohmann::json treeJson(const YangModel& model, const Vek::Dir& root);

// The content of `entity`, an entity of the model, as a JSON object whose
// members are named as below a parent of the entity's module.
nlohmann::json entityJson(const YangModel& model, const Vek::Entity& entity);

}  // namespace YangJson

// Assembles the leaves of published updates (notification prefix + update
// path, as the library names them), or of the JSON_IETF updates a gNMI client
// receives, into one RFC 7951 document.
class PublishedJson {
 public:
  explicit PublishedJson(const YangModel& model);
  ~PublishedJson();

  // Adds one leaf or leaf-list update. False with `error` when the path names
  // no leaf of the model or lacks a key of a list on its way.
  bool add(const gnmi::Path& prefix, const gnmi::Update& update, std::string& error);
  // Adds every update of `notification`; false at the first that fails.
  bool add(const gnmi::Notification& notification, std::string& error);
  // Adds the leaf at `path` (all its elements) holding `value`, its RFC
  // 7951 JSON (a json_ietf_val as a client reads it).
  bool add(const gnmi::Path& path, const nlohmann::json& value, std::string& error);

  nlohmann::json json() const;

 private:
  struct Node;
  // Finds or makes the object holding the leaf at `elems`; null with `error`.
  Node* leafParent(const std::vector<const gnmi::PathElem*>& elems, const YangLeaf*& leaf, std::string& name,
                   std::string& error);
  const YangModel& model_;
  std::unique_ptr<Node> root_;
};

}  // namespace VekGnmi::Yang
