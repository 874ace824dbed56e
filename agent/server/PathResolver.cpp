#include "PathResolver.h"

#include <unordered_set>

#include <fmt/format.h>

#include "BoundedText.h"
#include "GnmiPathText.h"

namespace VekGnmi::Server {

namespace {

Vek::Ptr<Vek::Entity> entityOf(const Vek::Ptr<Vek::GenericIf const>& gif) {
  if (!gif || !gif->isEntity()) return nullptr;
  return Vek::Ptr<Vek::Entity>(static_cast<Vek::Entity*>(const_cast<Vek::GenericIf*>(gif.ptr())));
}

bool isWildcardKey(const gnmi::PathElem& e) {
  if (e.key_size() == 0) return true;
  for (const auto& [k, v] : e.key()) {
    if (v != "*") return false;
  }
  return true;
}

gnmi::Path childPath(const gnmi::Path& parent, const gnmi::PathElem& elem) {
  gnmi::Path p = parent;
  *p.add_elem() = elem;
  return p;
}

class Resolver {
 public:
  Resolver(ModelSchema& schema, const gnmi::Path& path, Resolution& out)
      : schema_(schema), path_(path), out_(out) {}

  grpc::Status run() {
    gnmi::Path rootPath;
    grpc::Status status = visitDir(schema_.root(), rootPath, 0);
    if (!status.ok()) return status;
    // A covered entity is synced, which registers its notifiee: no need to
    // watch it as well.
    std::vector<PublishedEntity> watch;
    for (PublishedEntity& w : out_.watch) {
      if (covered_.count(w.entity.ptr()) == 0) watch.push_back(std::move(w));
    }
    out_.watch = std::move(watch);
    return grpc::Status::OK;
  }

 private:
  void cover(const Vek::Ptr<Vek::Entity>& entity, const gnmi::Path& at) {
    if (covered_.insert(entity.ptr()).second) out_.cover.push_back({entity, at});
  }
  void watch(const Vek::Ptr<Vek::Entity>& entity, const gnmi::Path& at) {
    if (watched_.insert(entity.ptr()).second) out_.watch.push_back({entity, at});
  }

  // Every entity under a directory.
  void coverDir(const Vek::Ptr<Vek::Entity>& dir, const gnmi::Path& at) {
    for (Vek::CollectionIterator it = Vek::Dir::entityPtrAttr().genericIfIteratorConst(dir); it; ++it) {
      Vek::Ptr<Vek::Entity> child = entityOf(it.ptr());
      if (!child) continue;
      gnmi::PathElem elem;
      elem.set_name(child->name().stdString());
      if (child->type() == Vek::Dir::dirType()) {
        coverDir(child, childPath(at, elem));
      } else if (child->type() != Vek::Dir::Entry::entryType()) {
        cover(child, childPath(at, elem));
      }
    }
  }

  grpc::Status visitChild(const Vek::Ptr<Vek::Entity>& child, const gnmi::Path& at, int i) {
    if (child->type() == Vek::Dir::dirType()) return visitDir(child, at, i);
    if (child->type() == Vek::Dir::Entry::entryType()) return grpc::Status::OK;  // links are not published
    return visitEntity(child, at, i);
  }

  grpc::Status visitDir(const Vek::Ptr<Vek::Entity>& dir, const gnmi::Path& at, int i) {
    if (i == path_.elem_size() || path_.elem(i).name() == "...") {
      coverDir(dir, at);
      return grpc::Status::OK;
    }
    const gnmi::PathElem& e = path_.elem(i);
    if (e.key_size() != 0) {
      return {grpc::StatusCode::INVALID_ARGUMENT, fmt::format("'{}' under {} is a directory entry and takes no keys",
                                                              boundedText(e.name()), boundedText(pathString(at)))};
    }
    if (e.name() == "*") {
      for (Vek::CollectionIterator it = Vek::Dir::entityPtrAttr().genericIfIteratorConst(dir); it; ++it) {
        Vek::Ptr<Vek::Entity> child = entityOf(it.ptr());
        if (!child) continue;
        gnmi::PathElem elem;
        elem.set_name(child->name().stdString());
        grpc::Status status = visitChild(child, childPath(at, elem), i + 1);
        if (!status.ok()) return status;
      }
      return grpc::Status::OK;
    }
    Vek::Ptr<Vek::Entity> child = static_cast<Vek::Dir*>(dir.ptr())->child(e.name());
    if (!child || child->type() == Vek::Dir::Entry::entryType()) {
      return {grpc::StatusCode::NOT_FOUND,
              fmt::format("no element '{}' under {}", boundedText(e.name()), boundedText(pathString(at)))};
    }
    gnmi::PathElem elem;
    elem.set_name(e.name());
    return visitChild(child, childPath(at, elem), i + 1);
  }

  grpc::Status visitEntity(const Vek::Ptr<Vek::Entity>& entity, const gnmi::Path& at, int i) {
    if (i == path_.elem_size()) {
      cover(entity, at);
      return grpc::Status::OK;
    }
    const gnmi::PathElem& e = path_.elem(i);
    if (e.name() == "*" || e.name() == "...") {
      cover(entity, at);
      return grpc::Status::OK;
    }
    const Vek::VekAttr attr = entity->type()->attr(e.name());
    if (attr && attr->isInstantiating()) {
      if (attr->isCollection()) {
        watch(entity, at);
        if (e.key_size() != 0) {
          grpc::Status status = checkKeyNames(schema_, attr, e, at);
          if (!status.ok()) return status;
        }
        if (isWildcardKey(e)) {
          for (Vek::CollectionIterator it = attr.genericIfIteratorConst(entity); it; ++it) {
            Vek::Ptr<Vek::Entity> member = entityOf(it.ptr());
            if (!member) continue;
            const std::optional<gnmi::PathElem> elem = memberElement(attr, it.key());
            if (!elem) continue;  // not published: keyed by an unpublished entity
            grpc::Status status = visitEntity(member, childPath(at, *elem), i + 1);
            if (!status.ok()) return status;
          }
          return grpc::Status::OK;
        }
        Vek::Ptr<Vek::GenericIf> key;
        grpc::Status status = memberKey(schema_, attr, e, at, key);
        if (!status.ok()) return status;
        Vek::Ptr<Vek::Entity> member = entity->entity(attr, key);
        if (!member) {
          out_.absent = true;
          return validateBelow(attr->type(), i + 1);
        }
        const std::optional<gnmi::PathElem> elem = memberElement(attr, key);
        if (!elem) {
          out_.absent = true;
          return validateBelow(attr->type(), i + 1);
        }
        return visitEntity(member, childPath(at, *elem), i + 1);
      }
      if (e.key_size() != 0) {
        return {grpc::StatusCode::INVALID_ARGUMENT, fmt::format("'{}' under {} is a single child and takes no keys",
                                                                boundedText(e.name()), boundedText(pathString(at)))};
      }
      watch(entity, at);
      Vek::Ptr<Vek::Entity> child = entity->entity(attr);
      gnmi::PathElem elem;
      elem.set_name(e.name());
      if (!child) {
        out_.absent = true;
        return validateBelow(attr->type(), i + 1);
      }
      return visitEntity(child, childPath(at, elem), i + 1);
    }
    // Values of this entity: check the rest against the schema.
    NodeInfo node;
    std::string error;
    if (!schema_.nodeAt(entity->type(), path_, i, node, error)) {
      return {grpc::StatusCode::NOT_FOUND, fmt::format("{} (below {})", error, boundedText(pathString(at)))};
    }
    if (attr && attr->isCollection() && e.key_size() != 0) {
      grpc::Status status = checkKeyNames(schema_, attr, e, at);
      if (!status.ok()) return status;
    }
    if (attr && attr->isCollection() && !isWildcardKey(e)) {
      Vek::Ptr<Vek::GenericIf> key;
      grpc::Status status = memberKey(schema_, attr, e, at, key);
      if (!status.ok()) return status;
      if (!attr.genericIfExist(entity, key)) out_.absent = true;
    }
    cover(entity, at);
    return grpc::Status::OK;
  }

  // The elements below a missing member must still exist in the schema.
  grpc::Status validateBelow(Vek::VekType entityType, int from) {
    NodeInfo node;
    std::string error;
    if (!schema_.nodeAt(entityType, path_, from, node, error)) {
      return {grpc::StatusCode::NOT_FOUND, error};
    }
    return grpc::Status::OK;
  }

  ModelSchema& schema_;
  const gnmi::Path& path_;
  Resolution& out_;
  std::unordered_set<const Vek::Entity*> covered_;
  std::unordered_set<const Vek::Entity*> watched_;
};

// A path's elements as one sequence: `first` then `second`.
struct Elems {
  const gnmi::Path& first;
  const gnmi::Path* second;
  int size() const { return first.elem_size() + (second ? second->elem_size() : 0); }
  const gnmi::PathElem& operator[](int i) const {
    return i < first.elem_size() ? first.elem(i) : second->elem(i - first.elem_size());
  }
};

enum class Match { Mismatch, Under, Above };

// Matches published elements from `pi` against requested ones from `ri`.
Match matchFrom(const gnmi::Path& requested, const Elems& pub, int pi, int ri) {
  const int r = requested.elem_size();
  const int p = pub.size();
  while (true) {
    if (ri == r) return Match::Under;
    const gnmi::PathElem& req = requested.elem(ri);
    if (req.name() == "...") {
      if (ri + 1 == r) return Match::Under;
      Match best = Match::Mismatch;
      for (int k = pi; k <= p; ++k) {
        const Match m = matchFrom(requested, pub, k, ri + 1);
        if (m == Match::Under) return m;
        if (m == Match::Above) best = m;
      }
      return best;
    }
    if (pi == p) return Match::Above;
    if (!elemMatches(req, pub[pi])) return Match::Mismatch;
    ++pi;
    ++ri;
  }
}

}  // namespace

// g++ 12 sees a null dereference in protobuf's map iterator when this is
// inlined, which cannot happen for a map of one entry.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wnull-dereference"
[[gnu::noinline]] const std::string& singleKeyValue(const gnmi::PathElem& elem) {
  return elem.key().begin()->second;
}
#pragma GCC diagnostic pop

bool hasWildcard(const gnmi::Path& path) {
  for (const gnmi::PathElem& e : path.elem()) {
    if (e.name() == "*" || e.name() == "...") return true;
    for (const auto& [k, v] : e.key()) {
      if (v == "*") return true;
    }
  }
  return false;
}

grpc::Status checkKeyNames(ModelSchema& schema, const Vek::VekAttr& attr, const gnmi::PathElem& elem,
                           const gnmi::Path& at) {
  const std::vector<std::string>& names = schema.memberKeyNames(attr);
  bool all = elem.key_size() == static_cast<int>(names.size());
  for (const std::string& name : names) all = all && elem.key().count(name) == 1;
  if (all && !names.empty()) return grpc::Status::OK;
  std::string keys;
  for (const std::string& name : names) keys += fmt::format("{}[{}]", keys.empty() ? "" : ", ", name);
  std::string given;
  for (const auto& [name, value] : elem.key()) given += fmt::format("[{}={}]", name, value);
  if (names.empty()) {
    return {grpc::StatusCode::INVALID_ARGUMENT,
            fmt::format("'{}' under {} has members keyed by entities, which paths cannot name",
                        boundedText(elem.name()), boundedText(pathString(at)))};
  }
  return {grpc::StatusCode::INVALID_ARGUMENT,
          fmt::format("'{}' under {} is keyed by {}, not {}", boundedText(elem.name()), boundedText(pathString(at)),
                      names.size() == 1 ? fmt::format("[{}]", names.front()) : keys,
                      given.empty() ? "nothing" : boundedText(given))};
}

grpc::Status memberKey(ModelSchema& schema, const Vek::VekAttr& attr, const gnmi::PathElem& elem,
                       const gnmi::Path& at, Vek::Ptr<Vek::GenericIf>& key) {
  grpc::Status status = checkKeyNames(schema, attr, elem, at);
  if (!status.ok()) return status;
  const Vek::VekType keyType = attr->indexType();
  const auto refuse = [&](const std::string& text, const Vek::VekType& type) {
    return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                        fmt::format("'{}' is not a valid key of '{}' under {} (a {})", boundedText(text),
                                    boundedText(elem.name()), boundedText(pathString(at)), type->qualifiedName()));
  };
  if (elem.key_size() == 1) {
    const std::string& text = singleKeyValue(elem);
    key = keyType.genericIf(Vek::String(text), false);
    return key ? grpc::Status::OK : refuse(text, keyType);
  }
  // A composite key: one field per key name.
  key = keyType.genericIfDefault();
  for (const auto& [name, text] : elem.key()) {
    const Vek::VekAttr field = keyType->attr(name);
    const Vek::Ptr<Vek::GenericIf> part = field ? field->type().genericIf(Vek::String(text), false) : nullptr;
    if (!part) return refuse(text, field ? field->type() : keyType);
    field.genericIfSet(key.ptr(), nullptr, part.ptr());
  }
  return grpc::Status::OK;
}

grpc::Status checkOrigin(const gnmi::Path& path, const char* what) {
  if (path.origin().empty() || path.origin() == "openconfig") return grpc::Status::OK;
  return {grpc::StatusCode::INVALID_ARGUMENT,
          fmt::format("{} has origin '{}'; this target serves origin \"\" and \"openconfig\" only", what,
                      boundedText(path.origin()))};
}

gnmi::Path joinRequestPath(const gnmi::Path& prefix, const gnmi::Path& path) {
  gnmi::Path joined = prefix;
  upgradeLegacyElements(joined);
  gnmi::Path rest = path;
  upgradeLegacyElements(rest);
  for (gnmi::PathElem& e : *rest.mutable_elem()) *joined.add_elem() = std::move(e);
  if (!rest.origin().empty()) joined.set_origin(rest.origin());
  if (!rest.target().empty()) joined.set_target(rest.target());
  return joined;
}

grpc::Status resolvePath(ModelSchema& schema, const gnmi::Path& path, Resolution& out) {
  out = Resolution();
  return Resolver(schema, path, out).run();
}

bool elemMatches(const gnmi::PathElem& requested, const gnmi::PathElem& published) {
  if (requested.name() != "*" && requested.name() != published.name()) return false;
  for (const auto& [k, v] : requested.key()) {
    if (v == "*") continue;
    auto it = published.key().find(k);
    if (it != published.key().end()) {
      if (it->second != v) return false;
    } else if (requested.key_size() == 1 && published.key_size() == 1) {
      if (singleKeyValue(published) != v) return false;
    } else {
      return false;
    }
  }
  return true;
}

PathFilter::PathFilter(gnmi::Path requested) : requested_(std::move(requested)) {}

PathFilter::PrefixMatch PathFilter::matchPrefix(const gnmi::Path& prefix) const {
  switch (matchFrom(requested_, Elems{prefix, nullptr}, 0, 0)) {
    case Match::Under: return PrefixMatch::All;
    case Match::Above: return PrefixMatch::Partial;
    case Match::Mismatch: break;
  }
  return PrefixMatch::None;
}

bool PathFilter::matchUpdate(const gnmi::Path& prefix, const gnmi::Path& path) const {
  return matchFrom(requested_, Elems{prefix, &path}, 0, 0) == Match::Under;
}

bool PathFilter::matchDelete(const gnmi::Path& prefix, const gnmi::Path& path) const {
  return matchFrom(requested_, Elems{prefix, &path}, 0, 0) != Match::Mismatch;
}

}  // namespace VekGnmi::Server
