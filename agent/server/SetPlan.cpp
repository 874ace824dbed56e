#include "SetPlan.h"

#include <algorithm>

#include <fmt/format.h>

#include "BoundedText.h"
#include "GnmiPathText.h"
#include "PathResolver.h"
#include "ValueEncoding.h"
#include "YangModel.h"

namespace VekGnmi::Server {

namespace {

grpc::Status invalid(std::string message) { return {grpc::StatusCode::INVALID_ARGUMENT, std::move(message)}; }

bool sameElem(const gnmi::PathElem& a, const gnmi::PathElem& b) {
  if (a.name() != b.name() || a.key_size() != b.key_size()) return false;
  for (const auto& [name, value] : a.key()) {
    const auto it = b.key().find(name);
    if (it == b.key().end() || it->second != value) return false;
  }
  return true;
}

// Whether `path` is `prefix` or lies below it, keys compared.
bool under(const gnmi::Path& prefix, const gnmi::Path& path) {
  if (prefix.elem_size() > path.elem_size()) return false;
  for (int i = 0; i < prefix.elem_size(); ++i) {
    if (!sameElem(prefix.elem(i), path.elem(i))) return false;
  }
  return true;
}

gnmi::Path firstElems(const gnmi::Path& path, int count) {
  gnmi::Path out;
  for (int i = 0; i < count; ++i) *out.add_elem() = path.elem(i);
  return out;
}

gnmi::Path child(const gnmi::Path& path, gnmi::PathElem elem) {
  gnmi::Path out = path;
  *out.add_elem() = std::move(elem);
  return out;
}

// A JSON scalar as the text of a key value.
bool scalarText(const nlohmann::json& value, std::string& out) {
  if (value.is_string()) {
    out = value.get<std::string>();
    return true;
  }
  if (value.is_boolean() || value.is_number()) {
    out = value.dump();
    return true;
  }
  return false;
}

// What a Set path names in the schema.
struct Located {
  SetTarget target = SetTarget::Entity;
  int entityElems = 0;   // elements naming directories and entities
  Vek::VekType type;     // Entity: its type; List: its members'; ValueMember, Composite: the value's
  Vek::VekAttr attr;     // the attribute of the last element (null for directories and their children)
  LeafInfo leaf;         // Leaf
  bool state = false;    // state, or below state
  bool keyLeaf = false;  // Leaf: a key of its list
};

class Planner {
 public:
  explicit Planner(ModelSource& source) : source_(source), schema_(source.schema()) {}

  grpc::Status plan(const gnmi::SetRequest& request, SetPlan& out) {
    if (request.union_replace_size() > 0) {
      return {grpc::StatusCode::UNIMPLEMENTED, "this target does not apply union_replace; nothing was changed"};
    }
    grpc::Status status = checkOrigin(request.prefix(), "the prefix");
    if (!status.ok()) return status;
    for (int i = 0; i < request.delete__size(); ++i) {
      op_ = fmt::format("delete {}", i);
      gnmi::Path path;
      status = fullPath(request.prefix(), request.delete_(i), path);
      if (status.ok()) status = addDelete(path);
      if (!status.ok()) return status;
    }
    for (const bool replace : {true, false}) {
      const auto& updates = replace ? request.replace() : request.update();
      for (int i = 0; i < updates.size(); ++i) {
        op_ = fmt::format("{} {}", replace ? "replace" : "update", i);
        gnmi::Path path;
        status = fullPath(request.prefix(), updates.Get(i).path(), path);
        if (status.ok()) status = addWrite(path, updates.Get(i).val(), replace);
        if (!status.ok()) return status;
      }
    }
    out.steps = std::move(steps_);
    return grpc::Status::OK;
  }

 private:
  // The operation's status: its code, its message after the operation.
  grpc::Status failed(const grpc::Status& status) const {
    return {status.error_code(), fmt::format("{}: {}", op_, status.error_message())};
  }

  grpc::Status fullPath(const gnmi::Path& prefix, const gnmi::Path& path, gnmi::Path& out) const {
    grpc::Status status = checkOrigin(path, op_.c_str());
    if (!status.ok()) return status;
    out = joinRequestPath(prefix, path);
    if (hasWildcard(out)) {
      return failed(invalid(
          fmt::format("{}: a Set path names one node; wildcards are not allowed", boundedText(pathString(out)))));
    }
    status = source_.normalizePath(out);
    return status.ok() ? status : failed(status);
  }

  grpc::Status locate(const gnmi::Path& path, Located& out) {
    out = Located();
    Vek::Ptr<Vek::Entity> node = schema_.root();
    gnmi::Path at;
    const int n = path.elem_size();
    int i = 0;
    for (; i < n && node->type() == Vek::Dir::dirType(); ++i) {
      const gnmi::PathElem& e = path.elem(i);
      if (e.key_size() != 0) {
        return failed(invalid(fmt::format("'{}' under {} is a directory entry and takes no keys", boundedText(e.name()),
                                          boundedText(pathString(at)))));
      }
      Vek::Ptr<Vek::Entity> next = static_cast<Vek::Dir*>(node.ptr())->child(e.name());
      if (!next || next->type() == Vek::Dir::Entry::entryType()) {
        return failed({grpc::StatusCode::NOT_FOUND,
                       fmt::format("no element '{}' under {}", boundedText(e.name()), boundedText(pathString(at)))});
      }
      *at.add_elem() = e;
      node = next;
    }
    out.entityElems = i;
    if (node->type() == Vek::Dir::dirType()) {
      out.target = SetTarget::Directory;
      return grpc::Status::OK;
    }
    Vek::VekType type = node->type();
    out.type = type;
    for (; i < n; ++i) {
      const gnmi::PathElem& e = path.elem(i);
      const Vek::VekAttr attr = type->attr(e.name());
      if (!attr || !attr->isInstantiating()) break;
      out.state = out.state || schema_.isState(*attr);
      out.attr = attr;
      if (attr->isCollection() && e.key_size() == 0) {
        if (i + 1 != n) {
          return failed(invalid(fmt::format("'{}' under {} is a list: name one of its members by its keys",
                                            boundedText(e.name()), boundedText(pathString(at)))));
        }
        out.target = SetTarget::List;
        out.type = attr->type();
        return grpc::Status::OK;
      }
      if (attr->isCollection()) {
        Vek::Ptr<Vek::GenericIf> key;
        const grpc::Status status = memberKey(schema_, attr, e, at, key);
        if (!status.ok()) return failed(status);
      } else if (e.key_size() != 0) {
        return failed(invalid(fmt::format("'{}' under {} is a single child and takes no keys", boundedText(e.name()),
                                          boundedText(pathString(at)))));
      }
      type = attr->type();
      *at.add_elem() = e;
      out.entityElems = i + 1;
      out.type = type;
    }
    if (i == n) return grpc::Status::OK;
    // Values of the entity.
    NodeInfo info;
    std::string error;
    if (!schema_.nodeAt(type, path, i, info, error)) {
      return failed({grpc::StatusCode::NOT_FOUND, fmt::format("{} (below {})", error, boundedText(pathString(at)))});
    }
    const Vek::VekAttr first = type->attr(path.elem(i).name());
    for (int j = i; j < n; ++j) {
      const gnmi::PathElem& e = path.elem(j);
      if (j == i && first && first->isCollection()) {
        if (e.key_size() == 0) continue;
        Vek::Ptr<Vek::GenericIf> key;
        const grpc::Status status = memberKey(schema_, first, e, at, key);
        if (!status.ok()) return failed(status);
      } else if (e.key_size() != 0) {
        return failed(invalid(fmt::format("'{}' is not a list and takes no keys", boundedText(e.name()))));
      }
    }
    out.attr = info.attr;
    out.type = info.type;
    switch (info.kind) {
      case NodeKind::Leaf:
        out.target = SetTarget::Leaf;
        out.leaf = info.leaf;
        out.state = out.state || info.leaf.state;
        out.keyLeaf = info.leaf.kind == LeafKind::Key || (info.leaf.yang != nullptr && info.leaf.yang->key);
        return grpc::Status::OK;
      case NodeKind::Member: out.target = SetTarget::ValueMember; break;
      case NodeKind::Collection: out.target = SetTarget::List; break;
      case NodeKind::Composite: out.target = SetTarget::Composite; break;
      case NodeKind::Entity:
        return failed(invalid(fmt::format("{} names no single node", boundedText(pathString(path)))));
    }
    out.state = out.state || (info.attr != nullptr && schema_.isState(*info.attr));
    return grpc::Status::OK;
  }

  void step(SetStep s) {
    // A later removal overrides what earlier operations wrote below it.
    if (s.kind == SetStep::Kind::Delete || s.kind == SetStep::Kind::Clear || s.kind == SetStep::Kind::Prune) {
      std::erase_if(steps_, [&](const SetStep& earlier) {
        return (earlier.kind == SetStep::Kind::Write || earlier.kind == SetStep::Kind::Ensure) &&
               under(s.path, earlier.path);
      });
    }
    // The same entities ensured twice in a row are ensured once.
    if (s.kind == SetStep::Kind::Ensure && !steps_.empty() && steps_.back().kind == SetStep::Kind::Ensure &&
        steps_.back().path.SerializeAsString() == s.path.SerializeAsString()) {
      return;
    }
    s.op = op_;
    steps_.push_back(std::move(s));
  }

  void structural(SetStep::Kind kind, SetTarget target, const gnmi::Path& path, int entityElems = 0) {
    SetStep s;
    s.kind = kind;
    s.target = target;
    s.path = path;
    s.entityElems = entityElems;
    step(std::move(s));
  }

  // Makes the entities of `path` exist (up to `at.entityElems`), and the
  // member of a collection of values that follows them.
  void ensure(const gnmi::Path& path, const Located& at) {
    int count = at.entityElems;
    if (count < path.elem_size() && path.elem(count).key_size() > 0) ++count;  // a member of values
    structural(SetStep::Kind::Ensure, at.target, firstElems(path, count), at.entityElems);
  }

  grpc::Status addDelete(const gnmi::Path& path) {
    Located at;
    grpc::Status status = locate(path, at);
    if (!status.ok()) return status;
    if (at.state) {
      return failed(invalid(fmt::format("{} is state; clients cannot delete it", boundedText(pathString(path)))));
    }
    if (at.target == SetTarget::Leaf && at.keyLeaf) {
      return failed(invalid(
          fmt::format("{} is a key of its list; delete the list entry instead", boundedText(pathString(path)))));
    }
    structural(SetStep::Kind::Delete, at.target, path, at.entityElems);
    return grpc::Status::OK;
  }

  grpc::Status addWrite(const gnmi::Path& path, const gnmi::TypedValue& value, bool replace) {
    Located at;
    grpc::Status status = locate(path, at);
    if (!status.ok()) return status;
    ClientValue client;
    nlohmann::json json;
    if (value.has_json_val() || value.has_json_ietf_val()) {
      std::string error;
      if (!parseClientJson(value.has_json_val() ? value.json_val() : value.json_ietf_val(), json, error)) {
        return failed(invalid(fmt::format("{}: {}", boundedText(pathString(path)), error)));
      }
      client.json = &json;
    } else if (value.value_case() == gnmi::TypedValue::VALUE_NOT_SET) {
      return failed(invalid(
          fmt::format("{}: the {} has no value", boundedText(pathString(path)), replace ? "replace" : "update")));
    } else {
      client.typed = &value;
    }
    return expand(path, at, client, replace);
  }

  // The steps that set `path` (located `at`) to `value`.
  grpc::Status expand(const gnmi::Path& path, const Located& at, const ClientValue& value, bool replace) {
    if (at.state) {
      return failed(invalid(fmt::format("{} is state; clients cannot set it", boundedText(pathString(path)))));
    }
    if (at.target == SetTarget::Leaf) return leaf(path, at, value, replace);
    if (at.target == SetTarget::Directory) {
      return failed(
          invalid(fmt::format("{} is a directory; a Set value names a node below it", boundedText(pathString(path)))));
    }
    const bool list = at.target == SetTarget::List;
    if (value.json == nullptr || !(list ? value.json->is_array() : value.json->is_object())) {
      return failed(invalid(fmt::format("{} is not a leaf; its value is a JSON {}", boundedText(pathString(path)),
                                        list ? "array of its entries" : "object of its members")));
    }
    if (list) return entries(path, at, *value.json, replace);
    if (replace && at.target == SetTarget::Entity) structural(SetStep::Kind::Clear, at.target, path);
    if (replace && at.target == SetTarget::ValueMember) structural(SetStep::Kind::Delete, at.target, path);
    if (at.target != SetTarget::Composite) ensure(path, at);
    return members(path, at, *value.json, replace);
  }

  grpc::Status leaf(const gnmi::Path& path, const Located& at, const ClientValue& value, bool replace) {
    SetValue converted;
    grpc::Status status = source_.setValue(at.leaf, value, converted);
    if (!status.ok()) {
      return failed(
          {status.error_code(), fmt::format("{}: {}", boundedText(pathString(path)), status.error_message())});
    }
    if (at.keyLeaf) {
      // A key's value is the path's (gNMI: a key is not changed by a Set).
      const gnmi::PathElem& entry = path.elem(at.entityElems - 1);
      const auto key = entry.key().find(path.elem(path.elem_size() - 1).name());
      if (converted.values.size() != 1 || key == entry.key().end() ||
          converted.values.front()->gnmiStrRep() != key->second) {
        return failed(invalid(fmt::format("{} is a key of its list; it can only hold the path's key value",
                                          boundedText(pathString(path)))));
      }
      ensure(path, at);
      return grpc::Status::OK;
    }
    ensure(path, at);
    SetStep s;
    s.kind = SetStep::Kind::Write;
    s.target = SetTarget::Leaf;
    s.path = path;
    s.entityElems = at.entityElems;
    s.leaf = at.leaf;
    s.value = std::move(converted);
    s.replace = replace;
    step(std::move(s));
    return grpc::Status::OK;
  }

  // The members of a JSON object standing for the entity or value at `path`.
  grpc::Status members(const gnmi::Path& path, const Located& at, const nlohmann::json& object, bool replace) {
    const gnmi::PathElem& last = path.elem(path.elem_size() - 1);
    for (const auto& [name, member] : object.items()) {
      const std::string element =
          last.key().count(name) != 0 ? name : source_.memberElement(at.type, name);
      if (last.key().count(element) != 0) {
        // A key of the entry: it must be the path's.
        gnmi::Path check = path;
        std::string text;
        if (!scalarText(member, text)) {
          return failed(
              invalid(fmt::format("the key {} of {} is no scalar", boundedText(name), boundedText(pathString(path)))));
        }
        (*check.mutable_elem(check.elem_size() - 1)->mutable_key())[element] = text;
        const grpc::Status status = source_.normalizePath(check);
        if (!status.ok()) return failed(status);
        if (check.elem(check.elem_size() - 1).key().at(element) != last.key().at(element)) {
          return failed(
              invalid(fmt::format("the value of {} has the key {} = {}, not the path's", boundedText(pathString(path)),
                                  boundedText(name), boundedText(member.dump()))));
        }
        continue;
      }
      if (element.empty()) {
        return failed(invalid(fmt::format("the value of {} has a member '{}', which {} does not have",
                                          boundedText(pathString(path)), boundedText(name), at.type->qualifiedName())));
      }
      const gnmi::Path below = child(path, [&] {
        gnmi::PathElem e;
        e.set_name(element);
        return e;
      }());
      Located belowAt;
      grpc::Status status = locate(below, belowAt);
      if (status.ok()) status = expand(below, belowAt, ClientValue{&member, nullptr}, replace && belowAt.target == SetTarget::Leaf);
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  // The entries of a JSON array standing for the whole list at `path`.
  grpc::Status entries(const gnmi::Path& path, const Located& at, const nlohmann::json& array, bool replace) {
    const std::vector<std::string>& keyNames = schema_.memberKeyNames(at.attr);
    std::vector<gnmi::Path> entryPaths;
    for (const nlohmann::json& entry : array) {
      if (!entry.is_object()) {
        return failed(
            invalid(fmt::format("an entry of the list {} is not a JSON object", boundedText(pathString(path)))));
      }
      gnmi::Path entryPath = path;
      gnmi::PathElem& elem = *entryPath.mutable_elem(entryPath.elem_size() - 1);
      for (const auto& [name, member] : entry.items()) {
        const bool isKey = std::find(keyNames.begin(), keyNames.end(), name) != keyNames.end();
        const std::string element = isKey ? name : source_.memberElement(at.type, name);
        if (std::find(keyNames.begin(), keyNames.end(), element) == keyNames.end()) continue;
        std::string text;
        if (!scalarText(member, text)) {
          return failed(invalid(fmt::format("the key {} of an entry of {} is no scalar", boundedText(name),
                                            boundedText(pathString(path)))));
        }
        (*elem.mutable_key())[element] = text;
      }
      if (elem.key_size() != static_cast<int>(keyNames.size()) || keyNames.empty()) {
        std::string names;
        for (const std::string& k : keyNames) names += fmt::format("{}{}", names.empty() ? "" : ", ", k);
        return failed(
            invalid(fmt::format("an entry of the list {} lacks its keys ({})", boundedText(pathString(path)), names)));
      }
      const grpc::Status status = source_.normalizePath(entryPath);
      if (!status.ok()) return failed(status);
      entryPaths.push_back(std::move(entryPath));
    }
    if (replace) {
      SetStep prune;
      prune.kind = SetStep::Kind::Prune;
      prune.target = SetTarget::List;
      prune.path = path;
      for (const gnmi::Path& p : entryPaths) prune.keep.push_back(p.elem(p.elem_size() - 1));
      step(std::move(prune));
    }
    for (size_t k = 0; k < entryPaths.size(); ++k) {
      Located entryAt;
      grpc::Status status = locate(entryPaths[k], entryAt);
      if (status.ok()) status = expand(entryPaths[k], entryAt, ClientValue{&array[k], nullptr}, replace);
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  ModelSource& source_;
  ModelSchema& schema_;
  std::string op_;
  std::vector<SetStep> steps_;
};

}  // namespace

grpc::Status planSet(ModelSource& source, const gnmi::SetRequest& request, SetPlan& out) {
  return Planner(source).plan(request, out);
}

}  // namespace VekGnmi::Server
