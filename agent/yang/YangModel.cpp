#include "YangModel.h"

#include <atomic>
#include <charconv>
#include <cstdlib>
#include <map>

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "JsonText.h"
#include "YangValue.h"

namespace VekGnmi::Yang {

namespace {

constexpr uint16_t DATA_NODES = LYS_CONTAINER | LYS_LIST | LYS_LEAF | LYS_LEAFLIST | LYS_ANYDATA | LYS_ANYXML;

// The schema data path of `node` ("/ietf-interfaces:interfaces/interface").
std::string dataPath(const lysc_node* node) {
  char* path = lysc_path(node, LYSC_PATH_DATA, nullptr, 0);
  std::string out = path ? path : node->name;
  std::free(path);
  return out;
}

// The data children of `parent` (the top-level data nodes of `module` when
// null), through choices and cases, in schema order.
std::vector<const lysc_node*> dataChildren(const lysc_node* parent, const lys_module* module) {
  std::vector<const lysc_node*> out;
  const lysc_module* compiled = parent ? nullptr : module->compiled;
  for (const lysc_node* n = lys_getnext(nullptr, parent, compiled, 0); n; n = lys_getnext(n, parent, compiled, 0)) {
    if (n->nodetype & DATA_NODES) out.push_back(n);
  }
  return out;
}

// Element names of sibling data nodes below a parent of `parentModule`
// (null: the top level): the YANG name, or "module:name" where siblings of
// several modules share a name and the node's module is not the parent's.
std::vector<std::string> elementNames(const std::vector<const lysc_node*>& nodes, const lys_module* parentModule) {
  std::map<std::string_view, int> uses;
  for (const lysc_node* n : nodes) ++uses[n->name];
  std::vector<std::string> out;
  for (const lysc_node* n : nodes) {
    const bool qualify = uses[n->name] > 1 && n->module != parentModule;
    out.push_back(qualify ? fmt::format("{}:{}", n->module->name, n->name) : std::string(n->name));
  }
  return out;
}

const lysc_type* leafType(const lysc_node* node) {
  return node->nodetype == LYS_LEAF ? reinterpret_cast<const lysc_node_leaf*>(node)->type
                                    : reinterpret_cast<const lysc_node_leaflist*>(node)->type;
}

// The canonical text of a decimal64 of `digits` fraction digits held as
// `scaled` (the value times 10^digits): "1.5", "-0.25", "3.0".
std::string decimalText(long long scaled, int digits) {
  const bool negative = scaled < 0;
  const unsigned long long magnitude =
      negative ? 0ULL - static_cast<unsigned long long>(scaled) : static_cast<unsigned long long>(scaled);
  unsigned long long unit = 1;
  for (int i = 0; i < digits; ++i) unit *= 10;
  std::string fraction = fmt::format("{:0{}}", magnitude % unit, digits);
  while (fraction.size() > 1 && fraction.back() == '0') fraction.pop_back();
  return fmt::format("{}{}.{}", negative ? "-" : "", magnitude / unit, fraction);
}

// Decimal text ("-1.25", "3", "3.") with at most `digits` fraction digits as
// the value times 10^digits; false when it is not one or does not fit.
bool parseDecimal(std::string_view text, int digits, long long& scaled) {
  const bool negative = !text.empty() && text.front() == '-';
  if (negative) text.remove_prefix(1);
  const size_t dot = text.find('.');
  const std::string_view whole = text.substr(0, dot);
  const std::string_view fraction = dot == std::string_view::npos ? std::string_view() : text.substr(dot + 1);
  if (whole.empty() || fraction.size() > static_cast<size_t>(digits)) return false;
  std::string digitsText(whole);
  digitsText.append(fraction);
  digitsText.append(static_cast<size_t>(digits) - fraction.size(), '0');
  unsigned long long magnitude = 0;
  const auto [end, ec] = std::from_chars(digitsText.data(), digitsText.data() + digitsText.size(), magnitude);
  if (ec != std::errc() || end != digitsText.data() + digitsText.size()) return false;
  const unsigned long long limit = negative ? 9223372036854775808ULL : 9223372036854775807ULL;
  if (magnitude > limit) return false;
  scaled = negative ? static_cast<long long>(0ULL - magnitude) : static_cast<long long>(magnitude);
  return true;
}

std::string freeModuleName() {
  static std::atomic<unsigned> next{1};
  for (;;) {
    std::string name = fmt::format("yang-{}", next++);
    if (!Vek::Module::module(name)) return name;
  }
}

}  // namespace

const char* YangLeaf::module() const { return node->module->name; }
const char* YangNode::module() const { return node->module->name; }

// Builds the types depth first: a node's children before the node, so each
// entity type is finished (done) only once the types it holds are.
class YangModel::Builder {
 public:
  Builder(YangModel& model, Vek::Module& vek) : model_(model), vek_(vek) {}

  bool buildTopLevel() {
    YangNode& root = model_.root_;
    std::vector<const lysc_node*> top;
    for (const lys_module* module : model_.schema_->implemented()) {
      for (const lysc_node* n : dataChildren(nullptr, module)) top.push_back(n);
    }
    const std::vector<std::string> names = elementNames(top, nullptr);
    for (size_t i = 0; i < top.size(); ++i) {
      const lysc_node* n = top[i];
      root.qualifiedChildren.emplace(fmt::format("{}:{}", n->module->name, n->name), n);
      root.children.emplace(names[i], n);
      if (n->nodetype & (LYS_ANYDATA | LYS_ANYXML)) continue;
      if (n->nodetype != LYS_CONTAINER) {
        error_ = fmt::format("top-level {} {} of module {} is not supported: only containers are published at the top",
                             lys_nodetype2str(n->nodetype), n->name, n->module->name);
        return false;
      }
      YangNode* node = buildEntity(n, names[i]);
      if (!node) return false;
      model_.topLevel_.push_back(node);
    }
    return true;
  }

  const std::string& error() const { return error_; }

 private:
  // The entity type of the container or list `schema`, published as `element`.
  YangNode* buildEntity(const lysc_node* schema, const std::string& element) {
    YangNode& node = model_.nodes_.emplace_back();
    node.node = schema;
    node.element = element;
    node.list = schema->nodetype == LYS_LIST;
    node.presence = (schema->flags & LYS_PRESENCE) != 0;
    node.keyless = node.list && (schema->flags & LYS_KEYLESS) != 0;
    node.state = (schema->flags & LYS_CONFIG_R) != 0;

    const std::vector<const lysc_node*> kids = dataChildren(schema, nullptr);
    const std::vector<std::string> names = elementNames(kids, schema->module);
    Vek::TypeDef def = vek_.entityType(dataPath(schema), Vek::TypeFlag::NAME_NOT_DATA);
    if (node.keyless) def.attr(optionalAttr(POSITION_KEY, Vek::builtinType<unsigned>()));
    std::vector<YangLeaf*> leaves;
    std::vector<YangNode*> children;
    for (size_t i = 0; i < kids.size(); ++i) {
      const lysc_node* kid = kids[i];
      node.children.emplace(names[i], kid);
      node.qualifiedChildren.emplace(fmt::format("{}:{}", kid->module->name, kid->name), kid);
      if (kid->nodetype & (LYS_LEAF | LYS_LEAFLIST)) {
        YangLeaf* leaf = buildLeaf(kid, names[i]);
        if (!leaf) return nullptr;
        if (leaf->leafList) {
          def.array(names[i], leaf->valueType).attrFlagsIs(Vek::AttrFlag::ARRAY | Vek::AttrFlag::OPTIONAL);
        } else if (leaf->key) {
          def.attr(optionalAttr(names[i], leaf->valueType));
          node.keys.push_back(leaf);
        } else {
          def.attr(optionalAttr(names[i], leaf->valueType));
        }
        leaves.push_back(leaf);
      } else if (kid->nodetype & (LYS_CONTAINER | LYS_LIST)) {
        YangNode* child = buildEntity(kid, names[i]);
        if (!child) return nullptr;
        if (!child->list) {
          def.child(names[i], child->type);
        } else {
          def.collection(names[i], child->keyType, child->type, Vek::AttrFlag::INSTANTIATING);
          if (child->keys.size() == 1) def.keyAttr(child->keys.front()->element);
          if (child->keyless) def.keyAttr(POSITION_KEY);
        }
        children.push_back(child);
      }
      // anydata and anyxml: not mapped (the loader refuses data holding them).
    }
    if (node.list) node.keyType = keyTypeOf(node, schema);
    node.type = def.done();
    for (YangLeaf* leaf : leaves) {
      leaf->attr = node.type->attr(leaf->element);
      model_.leafByAttr_.emplace(leaf->attr.base(), leaf);
    }
    for (YangNode* child : children) {
      child->attr = node.type->attr(child->element);
      model_.nodeByAttr_.emplace(child->attr.base(), child);
    }
    model_.nodeBySchema_.emplace(schema, &node);
    model_.nodeByType_.emplace(node.type.base(), &node);
    return &node;
  }

  YangLeaf* buildLeaf(const lysc_node* schema, const std::string& element) {
    YangLeaf& leaf = model_.leaves_.emplace_back();
    leaf.node = schema;
    leaf.element = element;
    leaf.type = YangValue::followLeafrefs(leafType(schema));
    leaf.base = leaf.type ? leaf.type->basetype : LY_TYPE_UNKNOWN;
    leaf.key = lysc_is_key(schema);
    leaf.leafList = schema->nodetype == LYS_LEAFLIST;
    leaf.state = (schema->flags & LYS_CONFIG_R) != 0;
    leaf.valueType = valueTypeOf(leaf);
    if (!leaf.valueType) {
      error_ = fmt::format("{} has a type that cannot be published", dataPath(schema));
      return nullptr;
    }
    model_.leafBySchema_.emplace(schema, &leaf);
    return &leaf;
  }

  static Vek::AttrDef optionalAttr(std::string name, Vek::VekType type) {
    Vek::AttrDef def;
    def.name = std::move(name);
    def.type = type;
    def.flags = Vek::AttrFlag::OPTIONAL;
    return def;
  }

  // The key type of a list: the key leaf's type, a value type of the keys in
  // key order, or the position of a keyless list.
  Vek::VekType keyTypeOf(const YangNode& node, const lysc_node* schema) {
    if (node.keyless) return Vek::builtinType<unsigned>();
    if (node.keys.size() == 1) return node.keys.front()->valueType;
    Vek::TypeDef key = vek_.valueType(dataPath(schema) + "#key");
    for (const YangLeaf* leaf : node.keys) key.scalar(leaf->element, leaf->valueType);
    return key.done();
  }

  Vek::VekType valueTypeOf(const YangLeaf& leaf) {
    using Vek::builtinType;
    switch (leaf.base) {
      case LY_TYPE_INT8: return builtinType<signed char>();
      case LY_TYPE_INT16: return builtinType<short>();
      case LY_TYPE_INT32: return builtinType<int>();
      case LY_TYPE_INT64: return builtinType<long long>();
      case LY_TYPE_UINT8: return builtinType<unsigned char>();
      case LY_TYPE_UINT16: return builtinType<unsigned short>();
      case LY_TYPE_UINT32: return builtinType<unsigned>();
      case LY_TYPE_UINT64: return builtinType<unsigned long long>();
      case LY_TYPE_BOOL: return builtinType<bool>();
      case LY_TYPE_STRING:
      case LY_TYPE_IDENT:
      case LY_TYPE_UNION:
      case LY_TYPE_BITS:
      case LY_TYPE_INST: return builtinType<Vek::String>();
      case LY_TYPE_ENUM: return enumerationType(leaf);
      case LY_TYPE_DEC64:
        return decimalType(reinterpret_cast<const lysc_type_dec*>(leaf.type)->fraction_digits);
      case LY_TYPE_BINARY: return binaryType();
      case LY_TYPE_EMPTY: return emptyType();
      default: return {};
    }
  }

  // One enumeration per compiled enumeration type (leaves of one typedef
  // share it), named after the first leaf that has it.
  Vek::VekType enumerationType(const YangLeaf& leaf) {
    auto [it, inserted] = enumerations_.try_emplace(leaf.type);
    if (!inserted) return it->second;
    const auto* type = reinterpret_cast<const lysc_type_enum*>(leaf.type);
    Vek::TypeDef def = vek_.enumType(dataPath(leaf.node) + "#enumeration", Vek::builtinType<int>());
    for (LY_ARRAY_COUNT_TYPE i = 0; i < LY_ARRAY_COUNT(type->enums); ++i) {
      def.enumerator(type->enums[i].name, type->enums[i].value);
    }
    it->second = def.done();
    return it->second;
  }

  Vek::VekType decimalType(int digits) {
    auto [it, inserted] = decimals_.try_emplace(digits);
    if (!inserted) return it->second;
    it->second =
        vek_.valueType(fmt::format("decimal64({})", digits))
            .scalar("value", Vek::builtinType<long long>())
            .gnmiText([digits](const Vek::GenericIf& v) { return decimalText(v.value<long long>("value"), digits); },
                      [digits](std::string_view text, Vek::GenericIf& v) {
                        long long scaled = 0;
                        if (!parseDecimal(text, digits, scaled)) return false;
                        v.valueIs<long long>("value", scaled);
                        return true;
                      })
            .done();
    return it->second;
  }

  Vek::VekType binaryType() {
    if (!binary_) {
      binary_ = vek_.valueType("binary")
                    .scalar("bytes", Vek::builtinType<Vek::Bytes>())
                    .gnmiText([](const Vek::GenericIf& v) { return base64Encode(v.value<Vek::Bytes>("bytes").view()); },
                              [](std::string_view text, Vek::GenericIf& v) {
                                std::optional<std::string> bytes = base64Decode(text);
                                if (!bytes) return false;
                                v.valueIs<Vek::Bytes>("bytes", Vek::Bytes(*bytes));
                                return true;
                              })
                    .done();
    }
    return binary_;
  }

  Vek::VekType emptyType() {
    if (!empty_) {
      empty_ = vek_.valueType("empty")
                   .gnmiText([](const Vek::GenericIf&) { return std::string(); },
                             [](std::string_view text, Vek::GenericIf&) { return text.empty(); })
                   .done();
    }
    return empty_;
  }

  YangModel& model_;
  Vek::Module& vek_;
  std::string error_;
  std::unordered_map<const lysc_type*, Vek::VekType> enumerations_;
  std::map<int, Vek::VekType> decimals_;
  Vek::VekType binary_;
  Vek::VekType empty_;
};

Ostrel::Result<std::shared_ptr<YangModel>, std::string> YangModel::build(std::shared_ptr<YangSchema> schema,
                                                                         std::string vekModule) {
  if (vekModule.empty()) vekModule = freeModuleName();
  if (Vek::Module::module(vekModule)) {
    return Ostrel::Failure{fmt::format("runtime module {} exists already", vekModule)};
  }
  std::shared_ptr<YangModel> model(new YangModel());
  model->schema_ = std::move(schema);
  model->vekModule_ = &Vek::Module::moduleNew(vekModule);
  Builder builder(*model, *model->vekModule_);
  if (!builder.buildTopLevel()) return Ostrel::Failure{builder.error()};
  return model;
}

const lysc_node* YangModel::child(const lysc_node* parent, std::string_view element) const {
  const YangNode* owner = parent ? node(parent) : &root_;
  if (!owner) return nullptr;
  const std::string key(element);
  if (const auto it = owner->children.find(key); it != owner->children.end()) return it->second;
  if (const auto it = owner->qualifiedChildren.find(key); it != owner->qualifiedChildren.end()) return it->second;
  return nullptr;
}

namespace {
template <typename Map, typename Key>
auto lookup(const Map& map, const Key& key) -> decltype(map.begin()->second) {
  const auto it = map.find(key);
  return it == map.end() ? nullptr : it->second;
}
}  // namespace

const YangLeaf* YangModel::leaf(const Vek::VekAttrBase* attr) const { return lookup(leafByAttr_, attr); }
const YangLeaf* YangModel::leaf(const lysc_node* schema) const { return lookup(leafBySchema_, schema); }
const YangNode* YangModel::node(const Vek::VekAttrBase* attr) const { return lookup(nodeByAttr_, attr); }
const YangNode* YangModel::node(const lysc_node* schema) const { return lookup(nodeBySchema_, schema); }
const YangNode* YangModel::nodeOfType(const Vek::VekType& entityType) const {
  return lookup(nodeByType_, entityType.base());
}

bool YangModel::isState(const Vek::VekAttrBase& attr) const {
  if (const YangLeaf* l = leaf(&attr)) return l->state;
  if (const YangNode* n = node(&attr)) return n->state;
  return false;
}

std::string YangModel::jsonName(const lysc_node* schema, const lys_module* parentModule) {
  if (schema->module == parentModule) return schema->name;
  return fmt::format("{}:{}", schema->module->name, schema->name);
}

}  // namespace VekGnmi::Yang
