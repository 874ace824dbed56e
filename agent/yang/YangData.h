// YANG instance data: RFC 7951 JSON parsed and validated by libyang
// (`YangDataTree`), and built into runtime entities of a `YangModel` under a
// root `Vek::Dir` (`buildRoot`), which the agent publishes from:
//
//   auto loaded = YangData::loadFile(*model, "device.json");
//   if (!loaded) fail(loaded.error());   // libyang's message and the path at fault
//   Vek::Ptr<Vek::Dir> root = loaded.value().root;
//   // root->child("interfaces") is /interfaces, published at that path
//
// What is built is exactly the instance data: leaves and leaf-lists the data
// sets, list entries, presence containers the data has. Implicit nodes that
// libyang adds while validating (schema defaults) are left out. Every
// non-presence container exists whenever its parent does (`populate`), and
// publishes nothing until something below it is set. Leaf-list values keep
// their order; list entries are kept (and published) in key order, keyless
// lists in data order.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include <Vek/Vek.h>

#include <Ostrel/Result.h>

#include "YangModel.h"

struct lyd_node;

namespace VekGnmi::Yang {

// A validated libyang data tree (all its top-level siblings).
class YangDataTree {
 public:
  // Parses RFC 7951 JSON (a file, or text) against the model's schema and
  // validates it as operational data (config and state, only the modules
  // that have data): unknown members, values out of their types, missing
  // mandatory nodes, broken leafrefs, ... are refused with libyang's message
  // and the location at fault.
  static Ostrel::Result<YangDataTree, std::string> parseFile(const YangModel& model, const std::string& path);
  static Ostrel::Result<YangDataTree, std::string> parseJson(const YangModel& model, std::string_view json);

  YangDataTree(YangDataTree&& other) noexcept;
  YangDataTree& operator=(YangDataTree&& other) noexcept;
  ~YangDataTree();

  // The first top-level node (null for no data).
  const lyd_node* first() const { return tree_; }
  // libyang's own RFC 7951 print of the data (explicit nodes only, as
  // libyang prints by default), as JSON.
  nlohmann::json json() const;

 private:
  explicit YangDataTree(lyd_node* tree) : tree_(tree) {}
  lyd_node* tree_ = nullptr;
};

namespace YangData {

// A root directory holding every top-level non-presence container of the
// model (each populated), and no data.
Vek::Ptr<Vek::Dir> emptyRoot(const YangModel& model);

// Makes the non-presence containers of `entity` (an entity of the model
// that has just been made), and theirs, where missing.
void populate(const YangModel& model, Vek::Entity& entity);

// The runtime tree of validated data. Errors: data the model does not map
// (anydata, anyxml), a value its runtime type refuses.
Ostrel::Result<Vek::Ptr<Vek::Dir>, std::string> buildRoot(const YangModel& model, const YangDataTree& data);

struct Loaded {
  YangDataTree tree;
  Vek::Ptr<Vek::Dir> root;
};

// parseFile, then buildRoot; errors are prefixed with the file's name.
Ostrel::Result<Loaded, std::string> loadFile(const YangModel& model, const std::string& path);

}  // namespace YangData

}  // namespace VekGnmi::Yang
