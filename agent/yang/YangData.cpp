#include "YangData.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "YangValue.h"

namespace VekGnmi::Yang {

namespace {

constexpr uint32_t PARSE_OPTIONS = LYD_PARSE_STRICT;
constexpr uint32_t VALIDATE_OPTIONS = LYD_VALIDATE_PRESENT;

std::string dataPathOf(const lyd_node* node) {
  char* path = lyd_path(node, LYD_PATH_STD, nullptr, 0);
  std::string out = path ? path : "?";
  std::free(path);
  return out;
}

// Builds the children of the data node `data` into `entity` (of `node`).
class TreeBuilder {
 public:
  explicit TreeBuilder(const YangModel& model) : model_(model) {}

  bool fill(Vek::Entity& entity, const lyd_node* data) {
    for (const lyd_node* child = lyd_child(data); child; child = child->next) {
      if (!add(entity, child)) return false;
    }
    return true;
  }

  bool addTop(Vek::Dir& root, const lyd_node* data) {
    const YangNode* node = model_.node(data->schema);
    if (!node || node->attr) return refuse(data, "is not a top-level container of the model");
    Vek::Ptr<Vek::Entity> entity = root.child(node->element);
    if (!entity) {
      entity = root.childNew(node->type, node->element);
      YangData::populate(model_, *entity);
    }
    return fill(*entity, data);
  }

  const std::string& error() const { return error_; }

 private:
  bool add(Vek::Entity& entity, const lyd_node* data) {
    const lysc_node* schema = data->schema;
    if (!schema) return refuse(data, "has no schema");
    if (schema->nodetype & (LYS_LEAF | LYS_LEAFLIST)) {
      // Implicit defaults are not instance data; keys are set with the entry.
      if (data->flags & LYD_DEFAULT) return true;
      const YangLeaf* leaf = model_.leaf(schema);
      if (!leaf) return refuse(data, "is not a leaf of the model");
      if (leaf->key) return true;
      auto value = YangValue::runtimeValue(*leaf, lyd_get_value(data));
      if (!value) return refuse(data, value.error());
      const Vek::GenericIf* key = nullptr;
      Vek::Ptr<Vek::GenericIf> position;
      if (leaf->leafList) {
        position = Vek::genericIfOf(static_cast<unsigned>(entity.memberCount(leaf->attr)));
        key = position.ptr();
      }
      leaf->attr.genericIfSet(&entity, key, value.value());
      return true;
    }
    if (schema->nodetype & (LYS_CONTAINER | LYS_LIST)) {
      const YangNode* node = model_.node(schema);
      if (!node || !node->attr) return refuse(data, "is not a container or list of the model");
      Vek::Ptr<Vek::Entity> child;
      if (node->list) {
        Vek::Ptr<Vek::GenericIf> key = entryKey(entity, *node, data);
        if (!key) return false;
        child = entity.entityNew(node->attr, key);
        if (!setKeys(*child, *node, data)) return false;
        YangData::populate(model_, *child);
      } else {
        child = entity.entity(node->attr);
        if (!child) {
          child = entity.entityNew(node->attr);
          YangData::populate(model_, *child);
        }
      }
      return fill(*child, data);
    }
    return refuse(data, fmt::format("is {}, which is not published", lys_nodetype2str(schema->nodetype)));
  }

  // The value of the key leaf `leaf` of the list entry `data`.
  Vek::Ptr<Vek::GenericIf> keyValue(const YangLeaf& leaf, const lyd_node* data) {
    for (const lyd_node* child = lyd_child(data); child; child = child->next) {
      if (child->schema != leaf.node) continue;
      auto value = YangValue::runtimeValue(leaf, lyd_get_value(child));
      if (!value) {
        refuse(child, value.error());
        return nullptr;
      }
      return value.value();
    }
    refuse(data, fmt::format("has no key {}", leaf.element));
    return nullptr;
  }

  Vek::Ptr<Vek::GenericIf> entryKey(const Vek::Entity& owner, const YangNode& node, const lyd_node* data) {
    if (node.keyless) return Vek::genericIfOf(static_cast<unsigned>(owner.memberCount(node.attr)));
    if (node.keys.size() == 1) return keyValue(*node.keys.front(), data);
    Vek::GenericIfArgs parts;
    for (const YangLeaf* leaf : node.keys) {
      Vek::Ptr<Vek::GenericIf> part = keyValue(*leaf, data);
      if (!part) return nullptr;
      parts.push_back(part);
    }
    return node.keyType.genericIf(parts);
  }

  bool setKeys(Vek::Entity& entry, const YangNode& node, const lyd_node* data) {
    for (const YangLeaf* leaf : node.keys) {
      Vek::Ptr<Vek::GenericIf> value = keyValue(*leaf, data);
      if (!value) return false;
      leaf->attr.genericIfSet(&entry, nullptr, value);
    }
    return true;
  }

  bool refuse(const lyd_node* data, const std::string& why) {
    error_ = fmt::format("{} {}", dataPathOf(data), why);
    return false;
  }

  const YangModel& model_;
  std::string error_;
};

}  // namespace

Ostrel::Result<YangDataTree, std::string> YangDataTree::parseFile(const YangModel& model, const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  if (!in || in.bad()) return Ostrel::Failure{fmt::format("cannot read the file: {}", std::strerror(errno))};
  return parseJson(model, text.str());
}

Ostrel::Result<YangDataTree, std::string> YangDataTree::parseJson(const YangModel& model, std::string_view json) {
  // libyang 2.1 takes a document cut short for a complete one: the syntax is
  // checked first.
  if (!nlohmann::json::accept(json)) {
    try {
      const nlohmann::json parsed = nlohmann::json::parse(json);  // throws, with the place at fault
    } catch (const nlohmann::json::parse_error& e) {
      return Ostrel::Failure{fmt::format("the data is not JSON: {}", e.what())};
    }
  }
  LibyangErrors errors;
  const std::string text(json);  // libyang reads up to a terminating zero
  lyd_node* tree = nullptr;
  if (lyd_parse_data_mem(model.schema().context(), text.c_str(), LYD_JSON, PARSE_OPTIONS, VALIDATE_OPTIONS, &tree) !=
      LY_SUCCESS) {
    lyd_free_all(tree);
    return Ostrel::Failure{errors.text("the data is not valid")};
  }
  return YangDataTree(tree);
}

YangDataTree::YangDataTree(YangDataTree&& other) noexcept : tree_(std::exchange(other.tree_, nullptr)) {}

YangDataTree& YangDataTree::operator=(YangDataTree&& other) noexcept {
  if (this != &other) {
    lyd_free_all(tree_);
    tree_ = std::exchange(other.tree_, nullptr);
  }
  return *this;
}

YangDataTree::~YangDataTree() { lyd_free_all(tree_); }

nlohmann::json YangDataTree::json() const {
  if (!tree_) return nlohmann::json::object();
  char* text = nullptr;
  lyd_print_mem(&text, tree_, LYD_JSON, LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK);
  nlohmann::json out = nlohmann::json::parse(text ? text : "{}", nullptr, false);
  std::free(text);
  return out;
}

namespace YangData {

void populate(const YangModel& model, Vek::Entity& entity) {
  const Vek::VekType type = entity.type();
  for (size_t i = 0; i < type->attrCount(); ++i) {
    const Vek::VekAttr attr = type->attrAt(i);
    const YangNode* node = model.node(attr.base());
    if (!node || node->list || node->presence || entity.entity(attr)) continue;
    Vek::Ptr<Vek::Entity> child = entity.entityNew(attr);
    populate(model, *child);
  }
}

Vek::Ptr<Vek::Dir> emptyRoot(const YangModel& model) {
  Vek::Ptr<Vek::Dir> root = Vek::Dir::rootNew("");
  for (const YangNode* node : model.topLevel()) {
    if (node->presence) continue;
    Vek::Ptr<Vek::Entity> entity = root->childNew(node->type, node->element);
    populate(model, *entity);
  }
  return root;
}

Ostrel::Result<Vek::Ptr<Vek::Dir>, std::string> buildRoot(const YangModel& model, const YangDataTree& data) {
  Vek::Ptr<Vek::Dir> root = emptyRoot(model);
  TreeBuilder builder(model);
  try {
    for (const lyd_node* top = data.first(); top; top = top->next) {
      if (!builder.addTop(*root, top)) return Ostrel::Failure{builder.error()};
    }
  } catch (const Vek::Exception& e) {
    // A runtime refusal: the model's types hold every value libyang accepts,
    // so this is a bug of the mapping, reported rather than thrown.
    return Ostrel::Failure{fmt::format("the runtime refused the data: {}", e.what())};
  }
  return root;
}

Ostrel::Result<Loaded, std::string> loadFile(const YangModel& model, const std::string& path) {
  auto tree = YangDataTree::parseFile(model, path);
  if (!tree) return Ostrel::Failure{fmt::format("{}: {}", path, tree.error())};
  auto root = buildRoot(model, tree.value());
  if (!root) return Ostrel::Failure{fmt::format("{}: {}", path, root.error())};
  return Loaded{std::move(tree).value(), std::move(root).value()};
}

}  // namespace YangData

}  // namespace VekGnmi::Yang
