#include "ModelSchema.h"

#include <algorithm>

#include <fmt/format.h>

#include <Ostrel/GifNotifiee.h>
#include <Ostrel/Path.h>
#include <Ostrel/VekKey.h>
#include <Ostrel/VekTypeWalker.h>

#include "BoundedText.h"
#include "YangModel.h"

namespace VekGnmi::Server {

namespace {

bool isScalarType(Vek::VekType type) {
  return type->isBuiltin() || type->isEnum() || type->hasGnmiStrRep();
}

bool endsWith(const std::string& text, std::string_view suffix) {
  return text.size() >= suffix.size() &&
         text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// Whether `name` names the key of a member of `attr` reached through
// `memberElem`.
bool isKeyName(const std::string& name, const Vek::VekAttrBase& attr,
               const gnmi::PathElem* memberElem) {
  if (name == attr.keyAttrName() || name == attr.name() + "Key" || name == attr.name()) return true;
  return memberElem != nullptr && memberElem->key().count(name) != 0;
}

LeafInfo makeLeaf(LeafKind kind, Vek::VekType type, const Vek::VekAttrBase* attr, bool state) {
  LeafInfo leaf;
  leaf.kind = kind;
  leaf.type = type;
  leaf.attr = attr;
  leaf.state = state;
  return leaf;
}

}  // namespace

std::optional<gnmi::PathElem> memberElement(const Vek::VekAttr& attr,
                                            const Vek::Ptr<Vek::GenericIf const>& key) {
  Ostrel::VekKey vekKey;
  if (key->type()->isEntity()) {
    // Named by the key entity's published path, which only a published
    // entity has.
    const auto* entity = static_cast<const Vek::PtrInterface*>(key->voidPtr());
    const auto it = Ostrel::notifieePathMap.find(entity);
    if (it == Ostrel::notifieePathMap.end()) return std::nullopt;
    vekKey.collectingIs(true);
    vekKey.updateTypeAndGenKeyForPtr(attr, key->type(), Ostrel::pathToStr(it->second));
    vekKey.collectingIs(false);
  } else {
    // The router is consulted for entity keys only.
    struct NoRouter final : Ostrel::BaseRouter {
      bool push(Ostrel::SyncId, const Ostrel::ArenaRespMsgPtr&) override { return true; }
    } noRouter;
    Ostrel::FullVekTypeWalker::extractKeyInfo(key, attr, vekKey, noRouter);
  }
  gnmi::Path path;
  vekKey.updateAndStorePrefix(path, false, attr);
  return path.elem(0);
}

std::string namesKey(const gnmi::Path& path, int from) {
  std::string key;
  for (int i = from; i < path.elem_size(); ++i) {
    key += path.elem(i).name();
    key.push_back(path.elem(i).key_size() > 0 ? '\x1d' : '\x1e');
  }
  return key;
}

ModelSchema::ModelSchema(Vek::Ptr<Vek::Dir> root, StatePredicate isState, const Yang::YangModel* yang)
    : root_(std::move(root)), isState_(std::move(isState)), yang_(yang) {}

bool ModelSchema::nodeAt(Vek::VekType entityType, const gnmi::Path& path, int from, NodeInfo& out,
                         std::string& error) const {
  enum class At { Entity, Composite, Member, Leaf };
  At at = At::Entity;
  Vek::VekType type = entityType;
  const Vek::VekAttrBase* attr = nullptr;         // last attribute passed
  const Vek::VekAttrBase* memberAttr = nullptr;   // collection of the last member passed
  const gnmi::PathElem* memberElem = nullptr;     // element of the last member passed
  bool state = false;
  LeafInfo leaf;

  auto leafIs = [&](LeafKind kind, Vek::VekType leafType, const Vek::VekAttrBase* holder) {
    at = At::Leaf;
    leaf = makeLeaf(kind, leafType, holder, state);
    if (yang_ != nullptr && holder != nullptr) leaf.yang = yang_->leaf(holder);
    type = leafType;
  };

  // Steps into attribute `a` of the current entity or value from element `e`.
  auto enterAttr = [&](const Vek::VekAttrBase& a, const gnmi::PathElem& e, bool last) {
    attr = &a;
    state = state || isState_(a);
    if (a.isCollection()) {
      memberAttr = &a;
      memberElem = &e;
      if (a.isInstantiating()) {
        at = At::Entity;
        type = a.type();
        out.kind = last && e.key_size() == 0 ? NodeKind::Collection : NodeKind::Entity;
      } else {
        at = At::Member;
        type = a.type();
        out.kind = last && e.key_size() == 0 ? NodeKind::Collection : NodeKind::Member;
      }
      return;
    }
    if (a.isArray()) return leafIs(LeafKind::Array, a.type(), &a);
    if (a.hasGnmiJsonStrep()) return leafIs(LeafKind::JsonText, a.type(), &a);
    if (a.isPointer()) return leafIs(LeafKind::Pointer, a.type(), &a);
    if (a.isInstantiating()) {
      at = At::Entity;
      type = a.type();
      memberAttr = nullptr;
      memberElem = nullptr;
      out.kind = NodeKind::Entity;
      return;
    }
    if (isScalarType(a.type())) return leafIs(LeafKind::Value, a.type(), &a);
    at = At::Composite;
    type = a.type();
    out.kind = NodeKind::Composite;
  };

  out = NodeInfo();
  out.kind = NodeKind::Entity;
  for (int i = from; i < path.elem_size(); ++i) {
    const gnmi::PathElem& e = path.elem(i);
    const std::string& name = e.name();
    const bool last = i + 1 == path.elem_size();
    if (at == At::Leaf) {
      error = fmt::format("'{}' is a leaf; there is no '{}' below it", boundedText(path.elem(i - 1).name()),
                          boundedText(name));
      return false;
    }
    if (name == "*" || name == "...") {
      // Any attribute: the node is the entity or value itself, searched.
      out.kind = at == At::Entity ? NodeKind::Entity : NodeKind::Composite;
      out.type = type;
      out.attr = attr;
      return true;
    }
    if (at == At::Member) {
      const Vek::VekAttrBase& coll = *memberAttr;
      if (name == coll.name() + "Value" || name == coll.name() + "Value_ptr") {
        if (coll.isPointer()) {
          leafIs(LeafKind::Pointer, coll.type(), &coll);
        } else if (isScalarType(coll.type())) {
          leafIs(LeafKind::Value, coll.type(), &coll);
        } else {
          error = fmt::format("members of '{}' are {} values, not scalars", coll.name(),
                              coll.type()->qualifiedName());
          return false;
        }
        continue;
      }
      if (!coll.isPointer() && !isScalarType(coll.type())) {
        const Vek::VekAttr field = coll.type()->attr(name);
        if (field && !field->type()->isCollectionControl()) {
          at = At::Composite;
          enterAttr(*field, e, last);
          continue;
        }
      }
      if (isKeyName(name, coll, memberElem)) {
        leafIs(LeafKind::Key, coll.indexType(), &coll);
        continue;
      }
      error = fmt::format("members of '{}' have no element '{}'", coll.name(), boundedText(name));
      return false;
    }
    // An entity or a value with fields.
    const Vek::VekAttr a = type->attr(name);
    if (a && !a->type()->isCollectionControl()) {
      if (at == At::Composite && (a->isCollection() || a->isInstantiating())) {
        error = fmt::format("{} has no element '{}'", type->qualifiedName(), boundedText(name));
        return false;
      }
      enterAttr(*a, e, last);
      continue;
    }
    if (endsWith(name, "_ptr")) {
      const Vek::VekAttr target = type->attr(std::string_view(name).substr(0, name.size() - 4));
      if (target && target->isPointer() && !target->isCollection()) {
        attr = target.base();
        state = state || isState_(*target);
        leafIs(LeafKind::Pointer, target->type(), target.base());
        continue;
      }
    }
    if (at == At::Entity && memberAttr != nullptr && isKeyName(name, *memberAttr, memberElem)) {
      leafIs(LeafKind::Key, memberAttr->indexType(), memberAttr);
      continue;
    }
    error = fmt::format("{} has no element '{}'", type->qualifiedName(), boundedText(name));
    return false;
  }
  if (at == At::Leaf) {
    out.kind = NodeKind::Leaf;
    out.leaf = leaf;
  }
  out.type = type;
  out.attr = attr;
  return true;
}

Vek::VekType ModelSchema::entityTypeAt(const gnmi::Path& prefix) {
  std::string key = namesKey(prefix);
  if (auto it = prefixTypes_.find(key); it != prefixTypes_.end()) return it->second;
  Vek::Ptr<Vek::Entity> node = root_;
  int i = 0;
  for (; i < prefix.elem_size() && node && node->type() == Vek::Dir::dirType(); ++i) {
    node = static_cast<Vek::Dir*>(node.ptr())->child(prefix.elem(i).name());
  }
  if (!node || node->type() == Vek::Dir::dirType() || node->type() == Vek::Dir::Entry::entryType()) {
    return nullptr;
  }
  NodeInfo info;
  std::string error;
  if (!nodeAt(node->type(), prefix, i, info, error) || info.kind != NodeKind::Entity) return nullptr;
  prefixTypes_.emplace(std::move(key), info.type);
  return info.type;
}

const LeafInfo* ModelSchema::leafAt(Vek::VekType entityType, const gnmi::Path& path, int from) {
  std::string key = fmt::format("{}\x1f", static_cast<const void*>(entityType.base()));
  key += namesKey(path, from);
  // A key name given on an element can name a key leaf below it, so those
  // names are part of the cache key.
  if (path.elem_size() > from + 1 && path.elem(path.elem_size() - 2).key_size() > 0) {
    for (const auto& [k, v] : path.elem(path.elem_size() - 2).key()) key += k + '\x1c';
  }
  if (auto it = leaves_.find(key); it != leaves_.end()) return &it->second;
  NodeInfo info;
  std::string error;
  if (!nodeAt(entityType, path, from, info, error) || info.kind != NodeKind::Leaf) return nullptr;
  return &leaves_.emplace(std::move(key), info.leaf).first->second;
}

const std::vector<std::string>& ModelSchema::memberKeyNames(const Vek::VekAttr& attr) {
  auto [it, inserted] = keyNames_.try_emplace(attr.base());
  if (!inserted || attr->indexType()->isEntity()) return it->second;
  // Any value of the key type is published under the same names.
  const Vek::Ptr<Vek::GenericIf> sample = attr->indexType().genericIfDefault();
  if (const std::optional<gnmi::PathElem> elem = sample ? memberElement(attr, sample) : std::nullopt) {
    for (const auto& [name, value] : elem->key()) it->second.push_back(name);
    std::sort(it->second.begin(), it->second.end());
  }
  return it->second;
}

const LeafInfo* ModelSchema::leafOf(const gnmi::Path& prefix, const gnmi::Path& path) {
  const Vek::VekType type = entityTypeAt(prefix);
  if (!type) return nullptr;
  return leafAt(type, path);
}

}  // namespace VekGnmi::Server
