#include "YangJson.h"

#include <unordered_map>

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "YangValue.h"

namespace VekGnmi::Yang {

namespace YangJson {

nlohmann::json treeJson(const YangModel& model, const Vek::Dir& root) {
  nlohmann::json out = nlohmann::json::object();
  for (Vek::CollectionIterator it = Vek::Dir::entityPtrAttr().genericIfIteratorConst(&root); it; ++it) {
    const Vek::Ptr<Vek::GenericIf const> member = it.ptr();
    const YangNode* node = member ? model.nodeOfType(member->type()) : nullptr;
    if (!node) continue;
    nlohmann::json content = entityJson(model, static_cast<const Vek::Entity&>(*member));
    if (node->presence || !content.empty()) out[YangModel::jsonName(node->node, nullptr)] = std::move(content);
  }
  return out;
}

nlohmann::json entityJson(const YangModel& model, const Vek::Entity& entity) {
  nlohmann::json out = nlohmann::json::object();
  const YangNode* self = model.nodeOfType(entity.type());
  if (!self) return out;
  const lys_module* module = self->node->module;
  const Vek::VekType type = entity.type();
  for (size_t i = 0; i < type->attrCount(); ++i) {
    const Vek::VekAttr attr = type->attrAt(i);
    if (const YangLeaf* leaf = model.leaf(attr.base())) {
      const std::string name = YangModel::jsonName(leaf->node, module);
      if (leaf->leafList) {
        nlohmann::json values = nlohmann::json::array();
        for (Vek::CollectionIterator it = attr.genericIfIteratorConst(&entity); it; ++it) {
          values.push_back(YangValue::json(*leaf, YangValue::canonicalText(*leaf, *it.ptr())));
        }
        if (!values.empty()) out[name] = std::move(values);
      } else if (const Vek::Ptr<Vek::GenericIf const> value = attr.genericIfGet(&entity)) {
        out[name] = YangValue::json(*leaf, YangValue::canonicalText(*leaf, *value));
      }
    } else if (const YangNode* node = model.node(attr.base())) {
      const std::string name = YangModel::jsonName(node->node, module);
      if (node->list) {
        nlohmann::json entries = nlohmann::json::array();
        for (Vek::CollectionIterator it = attr.genericIfIteratorConst(&entity); it; ++it) {
          entries.push_back(entityJson(model, static_cast<const Vek::Entity&>(*it.ptr())));
        }
        if (!entries.empty()) out[name] = std::move(entries);
      } else if (const Vek::Ptr<Vek::Entity> child = entity.entity(attr)) {
        nlohmann::json content = entityJson(model, *child);
        if (node->presence || !content.empty()) out[name] = std::move(content);
      }
    }
  }
  return out;
}

}  // namespace YangJson

// One object of the document being assembled: its leaves, containers and
// lists (entries in the order first seen, found again by their key text).
struct PublishedJson::Node {
  struct List {
    std::vector<std::unique_ptr<Node>> entries;
    std::unordered_map<std::string, Node*> byKey;
  };
  nlohmann::json leaves = nlohmann::json::object();
  std::map<std::string, std::unique_ptr<Node>> containers;
  std::map<std::string, List> lists;

  Node& container(const std::string& name) {
    std::unique_ptr<Node>& child = containers[name];
    if (!child) child = std::make_unique<Node>();
    return *child;
  }

  nlohmann::json json() const {
    nlohmann::json out = leaves;
    for (const auto& [name, child] : containers) out[name] = child->json();
    for (const auto& [name, list] : lists) {
      nlohmann::json array = nlohmann::json::array();
      for (const auto& entry : list.entries) array.push_back(entry->json());
      out[name] = std::move(array);
    }
    return out;
  }
};

namespace {

// A key text as the library writes it ("__" in strings as "\__") back to
// the value.
std::string unescapedKey(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 3, "\\__") == 0) {
      out += "__";
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

PublishedJson::PublishedJson(const YangModel& model) : model_(model), root_(std::make_unique<Node>()) {}
PublishedJson::~PublishedJson() = default;

bool PublishedJson::add(const gnmi::Notification& notification, std::string& error) {
  for (const gnmi::Update& update : notification.update()) {
    if (!add(notification.prefix(), update, error)) return false;
  }
  return true;
}

bool PublishedJson::add(const gnmi::Path& prefix, const gnmi::Update& update, std::string& error) {
  std::vector<const gnmi::PathElem*> elems;
  for (const auto& e : prefix.elem()) elems.push_back(&e);
  for (const auto& e : update.path().elem()) elems.push_back(&e);
  const YangLeaf* leaf = nullptr;
  std::string name;
  Node* at = leafParent(elems, leaf, name, error);
  if (!at) return false;
  if (update.val().has_leaflist_val()) {
    nlohmann::json values = nlohmann::json::array();
    for (const gnmi::TypedValue& v : update.val().leaflist_val().element()) {
      values.push_back(YangValue::json(*leaf, YangValue::publishedText(*leaf, v)));
    }
    at->leaves[name] = std::move(values);
  } else {
    at->leaves[name] = YangValue::json(*leaf, YangValue::publishedText(*leaf, update.val()));
  }
  return true;
}

bool PublishedJson::add(const gnmi::Path& path, const nlohmann::json& value, std::string& error) {
  std::vector<const gnmi::PathElem*> elems;
  for (const auto& e : path.elem()) elems.push_back(&e);
  const YangLeaf* leaf = nullptr;
  std::string name;
  Node* at = leafParent(elems, leaf, name, error);
  if (!at) return false;
  at->leaves[name] = value;
  return true;
}

PublishedJson::Node* PublishedJson::leafParent(const std::vector<const gnmi::PathElem*>& elems, const YangLeaf*& leaf,
                                               std::string& leafName, std::string& error) {
  Node* at = root_.get();
  const lysc_node* parent = nullptr;
  std::string walked;
  for (size_t i = 0; i < elems.size(); ++i) {
    const gnmi::PathElem& elem = *elems[i];
    walked += "/" + elem.name();
    const lysc_node* schema = model_.child(parent, elem.name());
    if (!schema) {
      error = fmt::format("{} is not in the model", walked);
      return nullptr;
    }
    const std::string name = YangModel::jsonName(schema, parent ? parent->module : nullptr);
    if ((leaf = model_.leaf(schema))) {
      if (i + 1 != elems.size()) {
        error = fmt::format("{} is a leaf inside the path", walked);
        return nullptr;
      }
      leafName = name;
      return at;
    }
    const YangNode* node = model_.node(schema);
    if (!node) {
      error = fmt::format("{} is not published", walked);
      return nullptr;
    }
    if (!node->list) {
      at = &at->container(name);
      parent = schema;
      continue;
    }
    // A list entry: found by its key text, made with its keys as leaves.
    std::string keyText;
    const auto keyOf = [&](const std::string& keyName, std::string& value) {
      const auto it = elem.key().find(keyName);
      if (it == elem.key().end()) {
        error = fmt::format("{} has no key {}", walked, keyName);
        return false;
      }
      value = it->second;
      keyText += fmt::format("[{}={}]", keyName, value);
      return true;
    };
    std::vector<std::pair<const YangLeaf*, std::string>> keys;
    if (node->keyless) {
      std::string position;
      if (!keyOf(YangModel::POSITION_KEY, position)) return nullptr;
    }
    for (const YangLeaf* key : node->keys) {
      std::string value;
      if (!keyOf(key->element, value)) return nullptr;
      keys.emplace_back(key, unescapedKey(value));
    }
    Node::List& list = at->lists[name];
    Node*& entry = list.byKey[keyText];
    if (!entry) {
      entry = list.entries.emplace_back(std::make_unique<Node>()).get();
      for (const auto& [key, value] : keys) {
        entry->leaves[YangModel::jsonName(key->node, schema->module)] = YangValue::json(*key, value);
      }
    }
    at = entry;
    parent = schema;
  }
  error = fmt::format("{} names no leaf", walked);
  return nullptr;
}

nlohmann::json PublishedJson::json() const { return root_->json(); }

}  // namespace VekGnmi::Yang
