#include "YangSource.h"

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "BoundedText.h"
#include "ValueEncoding.h"
#include "YangChurn.h"
#include "YangData.h"
#include "YangModel.h"
#include "YangValue.h"

namespace VekGnmi::Server {

namespace {

using Yang::YangLeaf;
using Yang::YangModel;
using Yang::YangNode;

// Runs of white space (organizations span lines in modules) as one space.
std::string oneLine(const char* text) {
  std::string out;
  for (const char* p = text ? text : ""; *p; ++p) {
    const bool space = *p == ' ' || *p == '\t' || *p == '\n' || *p == '\r';
    if (space && (out.empty() || out.back() == ' ')) continue;
    out.push_back(space ? ' ' : *p);
  }
  if (!out.empty() && out.back() == ' ') out.pop_back();
  return out;
}

// Every module of the context but libyang's own.
std::vector<gnmi::ModelData> modelsOf(const Yang::YangSchema& schema) {
  std::vector<gnmi::ModelData> out;
  uint32_t index = ly_ctx_internal_modules_count(schema.context());
  while (const lys_module* module = ly_ctx_get_module_iter(schema.context(), &index)) {
    gnmi::ModelData& model = out.emplace_back();
    model.set_name(module->name);
    model.set_organization(oneLine(module->org));
    model.set_version(module->revision ? module->revision : "");
  }
  return out;
}

// The key leaf of `node` named `name` (published or module-qualified).
const YangLeaf* keyNamed(const YangNode& node, const std::string& name) {
  for (const YangLeaf* key : node.keys) {
    if (key->element == name || fmt::format("{}:{}", key->module(), key->node->name) == name) return key;
  }
  return nullptr;
}

// Whether PROTO sends a value of `leaf` otherwise than the library does.
bool convertsInProto(const YangLeaf& leaf) {
  switch (leaf.base) {
    case LY_TYPE_DEC64:
    case LY_TYPE_EMPTY:
    case LY_TYPE_BINARY:
    case LY_TYPE_UNION:
      return true;
    default:
      return false;
  }
}

grpc::Status invalid(std::string message) { return {grpc::StatusCode::INVALID_ARGUMENT, std::move(message)}; }

// The text of a client's JSON scalar for `leaf`, as RFC 7951 writes values:
// strings as they are (64-bit integers and decimal64 may come as strings),
// numbers and booleans as their JSON, [null] for empty.
Ostrel::Result<std::string, std::string> jsonText(const YangLeaf& leaf, const nlohmann::json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number() || value.is_boolean()) return value.dump();
  if (value == nlohmann::json::array({nullptr})) return std::string();
  return Ostrel::Failure{fmt::format("{} is no value of leaf {}", boundedText(value.dump()), leaf.node->name)};
}

std::string jsonText(const YangLeaf& leaf, const gnmi::TypedValue& value, bool ietf) {
  const auto one = [&](const gnmi::TypedValue& v) {
    const std::string canonical = Yang::YangValue::publishedText(leaf, v);
    return ietf ? Yang::YangValue::json(leaf, canonical).dump() : Yang::YangValue::plainJsonText(leaf, canonical);
  };
  if (!value.has_leaflist_val()) return one(value);
  std::string out = "[";
  for (const gnmi::TypedValue& element : value.leaflist_val().element()) {
    if (out.size() > 1) out.push_back(',');
    out += one(element);
  }
  out.push_back(']');
  return out;
}

class YangSource final : public ModelSource {
 public:
  YangSource(std::shared_ptr<YangModel> model, Vek::Ptr<Vek::Dir> root, std::string description)
      : model_(std::move(model)),
        prebuilt_(std::move(root)),
        description_(std::move(description)),
        models_(modelsOf(model_->schema())) {}

  std::string description() const override { return description_; }
  std::vector<gnmi::ModelData> models() const override { return models_; }

  grpc::Status normalizePath(gnmi::Path& path) const override {
    const lysc_node* parent = nullptr;
    bool known = true;  // whether `parent` is the schema node above the element
    for (gnmi::PathElem& e : *path.mutable_elem()) {
      if (e.name() == "*" || e.name() == "...") {
        known = false;
        continue;
      }
      if (!known) continue;
      const lysc_node* schema = model_->child(parent, e.name());
      const YangNode* node = schema ? model_->node(schema) : nullptr;
      if (!node) {
        // A leaf (nothing is below it), or a name the resolver refuses.
        if (const YangLeaf* leaf = schema ? model_->leaf(schema) : nullptr) e.set_name(leaf->element);
        known = false;
        continue;
      }
      e.set_name(node->element);
      if (node->list) {
        for (auto& [name, value] : *e.mutable_key()) {
          const YangLeaf* key = keyNamed(*node, name);
          if (!key || value == "*") continue;  // unknown key names are refused by the resolver
          auto canonical = Yang::YangValue::fromClient(*key, value);
          if (!canonical) {
            return {grpc::StatusCode::INVALID_ARGUMENT,
                    fmt::format("'{}' is no value of the key {} of {}: {}", boundedText(value), key->element,
                                node->element, boundedText(canonical.error(), 4 * MAX_ECHO_BYTES))};
          }
          value = std::move(canonical).value();
        }
      }
      parent = schema;
    }
    return grpc::Status::OK;
  }

  void encode(const LeafInfo* leaf, const gnmi::TypedValue& value, gnmi::Encoding encoding,
              gnmi::TypedValue& out) const override {
    if (leaf == nullptr || leaf->yang == nullptr) return encodeValue(leaf, value, encoding, out);
    switch (encoding) {
      case gnmi::JSON_IETF: out.set_json_ietf_val(jsonText(*leaf->yang, value, true)); return;
      case gnmi::JSON: out.set_json_val(jsonText(*leaf->yang, value, false)); return;
      default: out = Yang::YangValue::protoValue(*leaf->yang, value); return;
    }
  }


  bool agentWritesLeaves() const override { return true; }

  grpc::Status setValue(const LeafInfo& leaf, const ClientValue& value, SetValue& out) const override {
    if (leaf.yang == nullptr) return invalid("it is not a leaf of the YANG model");
    const YangLeaf& y = *leaf.yang;
    const auto add = [&](const Ostrel::Result<std::string, std::string>& text) {
      if (!text) return invalid(boundedText(text.error(), 4 * MAX_ECHO_BYTES));
      auto canonical = Yang::YangValue::fromClient(y, text.value());
      if (!canonical) return invalid(boundedText(canonical.error(), 4 * MAX_ECHO_BYTES));
      auto runtime = Yang::YangValue::runtimeValue(y, canonical.value());
      if (!runtime) return invalid(boundedText(runtime.error(), 4 * MAX_ECHO_BYTES));
      out.values.push_back(std::move(runtime).value());
      return grpc::Status::OK;
    };
    if (value.json != nullptr) {
      const nlohmann::json& json = *value.json;
      if (!y.leafList) return add(jsonText(y, json));
      if (!json.is_array()) return invalid(fmt::format("{} is a leaf-list; its value is a JSON array", y.node->name));
      for (const nlohmann::json& element : json) {
        const grpc::Status status = add(jsonText(y, element));
        if (!status.ok()) return status;
      }
      return grpc::Status::OK;
    }
    const gnmi::TypedValue& typed = *value.typed;
    if (typed.has_leaflist_val() != y.leafList) {
      return invalid(y.leafList ? fmt::format("{} is a leaf-list; its value is a leaflist_val", y.node->name)
                                : fmt::format("{} is a leaf; a leaflist_val is no value of it", y.node->name));
    }
    if (!y.leafList) return add(Yang::YangValue::typedText(y, typed));
    for (const gnmi::TypedValue& element : typed.leaflist_val().element()) {
      const grpc::Status status = add(Yang::YangValue::typedText(y, element));
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  std::string memberElement(Vek::VekType type, const std::string& name) const override {
    const YangNode* parent = model_->nodeOfType(type);
    const lysc_node* schema = parent ? model_->child(parent->node, name) : nullptr;
    if (schema == nullptr) return {};
    if (const YangLeaf* leaf = model_->leaf(schema)) return leaf->element;
    if (const YangNode* node = model_->node(schema)) return node->element;
    return {};
  }

  void entityCreated(Vek::Entity& entity, const Vek::VekAttr& attr, const Vek::GenericIf* key) const override {
    const YangNode* node = model_->node(attr.base());
    if (node == nullptr) return;
    if (node->list && !node->keyless && key != nullptr) {
      for (const YangLeaf* keyLeaf : node->keys) {
        if (node->keys.size() == 1) {
          keyLeaf->attr.genericIfSet(&entity, nullptr, key);
        } else {
          const Vek::VekAttr field = node->keyType->attr(keyLeaf->element);
          keyLeaf->attr.genericIfSet(&entity, nullptr, field.genericIfGet(key).ptr());
        }
      }
    }
    Yang::YangData::populate(*model_, entity);
  }

  bool keepsChild(const Vek::VekAttrBase& attr) const override {
    const YangNode* node = model_->node(&attr);
    return node != nullptr && !node->list && !node->presence;
  }

  bool clearable(const Vek::VekAttrBase& attr) const override {
    if (const YangLeaf* leaf = model_->leaf(&attr)) return !leaf->key && !leaf->state;
    if (const YangNode* node = model_->node(&attr)) return !node->state;
    return false;
  }

  std::unique_ptr<ChangeSimulator> changeSimulator(double rate, uint64_t seed) override {
    return std::make_unique<YangChurn>(*model_, root(), rate, seed);
  }

 protected:
  Built buildModel() override {
    const std::shared_ptr<YangModel> model = model_;
    auto schema = std::make_unique<ModelSchema>(
        prebuilt_, [model](const Vek::VekAttrBase& attr) { return model->isState(attr); }, model.get());
    return {std::move(prebuilt_), std::move(schema)};
  }
  void dropModel() override { prebuilt_ = nullptr; }
  bool protoMayChange(const gnmi::TypedValue& value) const override {
    return value.has_string_val() || value.has_leaflist_val() || protoMayConvert(value);
  }
  bool protoChanges(const LeafInfo* leaf, const gnmi::TypedValue&) const override {
    if (leaf != nullptr && leaf->yang != nullptr) return convertsInProto(*leaf->yang);
    return protoConverts(leaf);
  }

 private:
  std::shared_ptr<YangModel> model_;
  Vek::Ptr<Vek::Dir> prebuilt_;  // the tree until `build` hands it over
  std::string description_;
  std::vector<gnmi::ModelData> models_;
};

}  // namespace

Ostrel::Result<std::shared_ptr<ModelSource>, std::string> makeYangSource(const Yang::YangSchema::Options& modules,
                                                                         const std::string& dataFile) {
  auto schema = Yang::YangSchema::load(modules);
  if (!schema) return Ostrel::Failure{schema.error()};
  auto model = YangModel::build(schema.value());
  if (!model) return Ostrel::Failure{model.error()};
  Vek::Ptr<Vek::Dir> root;
  if (dataFile.empty()) {
    root = Yang::YangData::emptyRoot(*model.value());
  } else {
    auto loaded = Yang::YangData::loadFile(*model.value(), dataFile);
    if (!loaded) return Ostrel::Failure{loaded.error()};
    root = loaded.value().root;
  }
  std::string names;
  for (const lys_module* module : schema.value()->named()) {
    names += fmt::format("{}{}@{}", names.empty() ? "" : ", ", module->name, module->revision ? module->revision : "");
  }
  std::string description = fmt::format("YANG modules {}, data {}", names, dataFile.empty() ? "none" : dataFile);
  return std::shared_ptr<ModelSource>(
      std::make_shared<YangSource>(std::move(model).value(), std::move(root), std::move(description)));
}

}  // namespace VekGnmi::Server
