#include "SetApply.h"

#include <fmt/format.h>
#include <Zolt/Zolt.h>

#include "BoundedText.h"
#include "GnmiPathText.h"
#include "PathResolver.h"
#include "SetUndo.h"

namespace VekGnmi::Server {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("AgentSet");

Vek::Ptr<Vek::Entity> entityOf(const Vek::Ptr<Vek::GenericIf const>& value) {
  if (!value || !value->isEntity()) return nullptr;
  return Vek::Ptr<Vek::Entity>(static_cast<Vek::Entity*>(const_cast<Vek::GenericIf*>(value.ptr())));
}

// The keys of a collection's members, copied before members go.
std::vector<Vek::Ptr<Vek::GenericIf>> memberKeys(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr) {
  std::vector<Vek::Ptr<Vek::GenericIf>> keys;
  for (Vek::CollectionIterator it = attr.genericIfIteratorConst(owner.ptr()); it; ++it) {
    const Vek::Ptr<Vek::GenericIf const> key = it.key();
    keys.push_back(key->isEntity() ? Vek::Ptr<Vek::GenericIf>(const_cast<Vek::GenericIf*>(key.ptr()))
                                   : key->type().genericIf(key->voidPtr(), /*copy=*/true));
  }
  return keys;
}

// The value a leaf goes back to when it is deleted: its declared default, or
// its type's.
Vek::Ptr<Vek::GenericIf const> defaultOf(const Vek::VekAttr& attr) {
  if (attr->defaultValue()) return attr->defaultValue();
  return attr->type().genericIfDefault();
}

gnmi::Path firstElems(const gnmi::Path& path, int count) {
  gnmi::Path out;
  for (int i = 0; i < count; ++i) *out.add_elem() = path.elem(i);
  return out;
}

// A refusal of the library's Set at commit: the device refused a value.
grpc::Status refusedAtCommit(const gnmi::Path& entityPath, const grpc::Status& status) {
  static constexpr std::string_view LIBRARY_PREFIX = "Error in finding path ";
  std::string why = status.error_message();
  if (why.starts_with(LIBRARY_PREFIX)) why.erase(0, LIBRARY_PREFIX.size());
  return {grpc::StatusCode::INVALID_ARGUMENT,
          fmt::format("the device refused {}/{}; nothing was changed", boundedText(pathString(entityPath)),
                      boundedText(why, 4 * MAX_ECHO_BYTES))};
}

bool sameKeys(const gnmi::PathElem& a, const gnmi::PathElem& b) {
  if (a.key_size() != b.key_size()) return false;
  for (const auto& [name, value] : a.key()) {
    const auto it = b.key().find(name);
    if (it == b.key().end() || it->second != value) return false;
  }
  return true;
}

// One library Set: an entity and the writes below it.
struct EntitySet {
  Vek::Ptr<Vek::Entity> entity;
  gnmi::SetRequest request;  // prefix: the entity's path; paths below it
};

class Applier {
 public:
  Applier(ModelSource& source, LibraryBridge& bridge)
      : source_(source), schema_(source.schema()), bridge_(bridge), undo_(source.schema(), source) {}

  grpc::Status run(const SetPlan& plan) {
    grpc::Status status = grpc::Status::OK;
    for (const SetStep& s : plan.steps) {
      if (s.kind == SetStep::Kind::Write) continue;
      step_ = &s;
      status = structural(s);
      if (!status.ok()) break;
    }
    if (status.ok()) status = source_.agentWritesLeaves() ? writeLeaves(plan) : librarySets(plan);
    if (!status.ok()) {
      const size_t undone = undo_.restore();
      ZOLT_TRACE(dbg, 2, "Set", "Set refused ({}); {} changes undone", status.error_message(), undone);
      // The library's and the device's refusals may quote the client's value.
      status = grpc::Status(status.error_code(), boundedText(status.error_message(), 4 * MAX_ECHO_BYTES));
    }
    return status;
  }

 private:
  grpc::Status refused(const std::string& what, const Vek::Exception& e) const {
    return {grpc::StatusCode::INVALID_ARGUMENT,
            fmt::format("{}: the device refused to {} {}: {}; nothing was changed", step_->op, what,
                        boundedText(pathString(step_->path)), boundedText(e.what(), 4 * MAX_ECHO_BYTES))};
  }

  // A directory on the way does not exist (directories are not made).
  static grpc::Status missing(const SetStep& s) {
    return {grpc::StatusCode::NOT_FOUND, fmt::format("{}: {} lies below a directory entry that does not exist", s.op,
                                                     boundedText(pathString(s.path)))};
  }

  // Runs `change` (a write of the runtime); a refusal is INVALID_ARGUMENT.
  template <typename Change>
  grpc::Status attempt(const char* what, Change change) {
    try {
      change();
      return grpc::Status::OK;
    } catch (const Vek::Exception& e) {
      return refused(what, e);
    }
  }

  // The entity at elements [0, count) of `path`; null when one on the way
  // does not exist, unless `make`: then missing members and children are
  // made (and recorded).
  grpc::Status entityAt(const gnmi::Path& path, int count, bool make, Vek::Ptr<Vek::Entity>& out) {
    out = nullptr;
    Vek::Ptr<Vek::Entity> node = schema_.root();
    gnmi::Path at;
    for (int i = 0; i < count; ++i) {
      const gnmi::PathElem& e = path.elem(i);
      Vek::Ptr<Vek::Entity> next;
      if (node->type() == Vek::Dir::dirType()) {
        next = static_cast<Vek::Dir*>(node.ptr())->child(e.name());
        if (!next) return grpc::Status::OK;  // directories are not made
      } else {
        const Vek::VekAttr attr = node->type()->attr(e.name());
        Vek::Ptr<Vek::GenericIf> key;
        if (attr->isCollection()) {
          const grpc::Status status = memberKey(schema_, attr, e, at, key);
          if (!status.ok()) return status;
        }
        next = node->entity(attr, key.ptr());
        if (!next && !make) return grpc::Status::OK;
        if (!next) {
          const grpc::Status status = attempt("make", [&] { next = node->entityNew(attr, key.ptr()); });
          if (!status.ok()) return status;
          undo_.recordCreated(node, attr, key);
          const grpc::Status completed = attempt("complete", [&] { source_.entityCreated(*next, attr, key.ptr()); });
          if (!completed.ok()) return completed;
        }
      }
      *at.add_elem() = e;
      node = next;
    }
    out = node;
    return grpc::Status::OK;
  }

  // The attribute and key of element `index` of `path`, below `owner`.
  grpc::Status attrAt(const Vek::Ptr<Vek::Entity>& owner, const gnmi::Path& path, int index, Vek::VekAttr& attr,
                      Vek::Ptr<Vek::GenericIf>& key) {
    const gnmi::PathElem& e = path.elem(index);
    attr = owner->type()->attr(e.name());
    key = nullptr;
    if (!attr || !attr->isCollection() || e.key_size() == 0) return grpc::Status::OK;
    return memberKey(schema_, attr, e, firstElems(path, index), key);
  }

  grpc::Status structural(const SetStep& s) {
    switch (s.kind) {
      case SetStep::Kind::Ensure: return ensure(s);
      case SetStep::Kind::Delete: return remove(s);
      case SetStep::Kind::Clear: {
        Vek::Ptr<Vek::Entity> entity;
        const grpc::Status status = entityAt(s.path, s.path.elem_size(), false, entity);
        return !status.ok() || !entity ? status : clear(entity);
      }
      case SetStep::Kind::Prune: return prune(s);
      case SetStep::Kind::Write: break;
    }
    return grpc::Status::OK;
  }

  grpc::Status ensure(const SetStep& s) {
    Vek::Ptr<Vek::Entity> entity;
    grpc::Status status = entityAt(s.path, s.entityElems, true, entity);
    if (!status.ok() || !entity || s.entityElems == s.path.elem_size()) return status;
    // A member of a collection of values.
    Vek::VekAttr attr;
    Vek::Ptr<Vek::GenericIf> key;
    status = attrAt(entity, s.path, s.entityElems, attr, key);
    if (!status.ok() || !key || attr.genericIfExist(entity.ptr(), key.ptr())) return status;
    undo_.recordValue(entity, attr, key);
    return attempt("make", [&] { attr.genericIfSet(entity.ptr(), key.ptr(), attr->type().genericIfDefault().ptr()); });
  }

  grpc::Status remove(const SetStep& s) {
    const int n = s.path.elem_size();
    Vek::Ptr<Vek::Entity> owner;
    switch (s.target) {
      case SetTarget::Directory: {
        grpc::Status status = entityAt(s.path, n, false, owner);
        return !status.ok() || !owner ? status : clearDirectory(owner);
      }
      case SetTarget::Entity:
      case SetTarget::List: {
        grpc::Status status = entityAt(s.path, n - 1, false, owner);
        if (!status.ok() || !owner) return status;
        if (owner->type() == Vek::Dir::dirType()) {
          // A directory's child is emptied, never removed.
          const Vek::Ptr<Vek::Entity> child = static_cast<Vek::Dir*>(owner.ptr())->child(s.path.elem(n - 1).name());
          return child ? clear(child) : grpc::Status::OK;
        }
        Vek::VekAttr attr;
        Vek::Ptr<Vek::GenericIf> key;
        status = attrAt(owner, s.path, n - 1, attr, key);
        if (!status.ok()) return status;
        if (s.target == SetTarget::List) return removeAll(owner, attr);
        if (!attr->isCollection() && source_.keepsChild(*attr)) {
          const Vek::Ptr<Vek::Entity> child = owner->entity(attr);
          return child ? clear(child) : grpc::Status::OK;
        }
        return removeEntity(owner, attr, key);
      }
      case SetTarget::ValueMember:
      case SetTarget::Composite:
      case SetTarget::Leaf:
        break;
    }
    grpc::Status status = entityAt(s.path, s.entityElems, false, owner);
    if (!status.ok() || !owner) return status;
    Vek::VekAttr attr;
    Vek::Ptr<Vek::GenericIf> key;
    status = attrAt(owner, s.path, s.entityElems, attr, key);
    if (!status.ok()) return status;
    if (s.target == SetTarget::ValueMember) return eraseValue(owner, attr, key);
    if (s.entityElems + 1 == n) return resetLeaf(owner, attr);
    // A field of a value (of a member of a collection of values): back to
    // the field's default, in a copy written back whole.
    const Vek::Ptr<Vek::GenericIf const> current = attr.genericIfGet(owner.ptr(), key.ptr());
    if (!current) return grpc::Status::OK;
    Vek::Ptr<Vek::GenericIf> copy = current->type().genericIf(current->voidPtr(), /*copy=*/true);
    status = attempt("reset", [&] { resetField(*copy, s.path, s.entityElems + 1); });
    if (!status.ok()) return status;
    undo_.recordValue(owner, attr, key);
    return attempt("reset", [&] { attr.genericIfSet(owner.ptr(), key.ptr(), copy.ptr()); });
  }

  // Resets the field named by element `index` of `path` (and deeper) in `value`.
  static void resetField(Vek::GenericIf& value, const gnmi::Path& path, int index) {
    const Vek::VekAttr field = value.type()->attr(path.elem(index).name());
    if (index + 1 == path.elem_size()) {
      field.genericIfSet(&value, nullptr, defaultOf(field).ptr());
      return;
    }
    const Vek::Ptr<Vek::GenericIf const> inner = field.genericIfGet(&value);
    Vek::Ptr<Vek::GenericIf> copy = inner->type().genericIf(inner->voidPtr(), /*copy=*/true);
    resetField(*copy, path, index + 1);
    field.genericIfSet(&value, nullptr, copy.ptr());
  }

  grpc::Status prune(const SetStep& s) {
    const int n = s.path.elem_size();
    Vek::Ptr<Vek::Entity> owner;
    grpc::Status status = entityAt(s.path, n - 1, false, owner);
    if (!status.ok() || !owner) return status;
    const Vek::VekAttr attr = owner->type()->attr(s.path.elem(n - 1).name());
    for (const Vek::Ptr<Vek::GenericIf>& key : memberKeys(owner, attr)) {
      const std::optional<gnmi::PathElem> published = memberElement(attr, key);
      bool kept = false;
      for (const gnmi::PathElem& k : s.keep) kept = kept || (published && sameKeys(*published, k));
      if (kept) continue;
      status = attr->isInstantiating() ? removeEntity(owner, attr, key) : eraseValue(owner, attr, key);
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  grpc::Status removeEntity(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr,
                            const Vek::Ptr<Vek::GenericIf>& key) {
    if (!owner->entity(attr, key.ptr())) return grpc::Status::OK;
    undo_.recordRemoved(owner, attr, key);
    return attempt("remove", [&] { owner->entityDel(attr, key.ptr()); });
  }

  grpc::Status removeAll(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr) {
    for (const Vek::Ptr<Vek::GenericIf>& key : memberKeys(owner, attr)) {
      const grpc::Status status = attr->isInstantiating() ? removeEntity(owner, attr, key) : eraseValue(owner, attr, key);
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  grpc::Status eraseValue(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr,
                          const Vek::Ptr<Vek::GenericIf>& key) {
    if (!attr.genericIfExist(owner.ptr(), key.ptr())) return grpc::Status::OK;
    undo_.recordValue(owner, attr, key);
    return attempt("remove", [&] { attr.genericIfErase(owner.ptr(), key.ptr()); });
  }

  // A leaf of `owner` unset: an optional one holds nothing, a leaf-list no
  // element, another goes back to its default, a pointer points nowhere.
  grpc::Status resetLeaf(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr) {
    if (attr->isArray()) {
      if (owner->memberCount(attr) == 0) return grpc::Status::OK;
      undo_.recordArray(owner, attr);
      return attempt("remove", [&] { writeArray(*owner, attr, {}); });
    }
    if (attr->storage() == Vek::AttrStorage::Collection) return removeAll(owner, attr);
    const Vek::Ptr<Vek::GenericIf const> current = attr.genericIfGet(owner.ptr());
    if (attr->isOptional() || attr->isPointer()) {
      if (!current) return grpc::Status::OK;
      undo_.recordValue(owner, attr, nullptr);
      return attempt("remove", [&] { attr.genericIfSet(owner.ptr(), nullptr, nullptr); });
    }
    const Vek::Ptr<Vek::GenericIf const> initial = defaultOf(attr);
    if (current && current->strRep() == initial->strRep()) return grpc::Status::OK;
    undo_.recordValue(owner, attr, nullptr);
    return attempt("reset", [&] { attr.genericIfSet(owner.ptr(), nullptr, initial.ptr()); });
  }

  // The configuration under `entity` goes (ModelSource::clearable).
  grpc::Status clear(const Vek::Ptr<Vek::Entity>& entity) {
    const Vek::VekType type = entity->type();
    for (size_t i = 0; i < type->attrCount(); ++i) {
      const Vek::VekAttr attr = type->attrAt(i);
      if (attr->storage() == Vek::AttrStorage::Name || attr->storage() == Vek::AttrStorage::None ||
          attr->isReadOnly() || attr->type()->isCollectionControl() || !source_.clearable(*attr)) {
        continue;
      }
      grpc::Status status = grpc::Status::OK;
      if (attr->isInstantiating() && attr->isCollection()) {
        status = removeAll(entity, attr);
      } else if (attr->isInstantiating()) {
        const Vek::Ptr<Vek::Entity> child = entity->entity(attr);
        if (child) status = source_.keepsChild(*attr) ? clear(child) : removeEntity(entity, attr, nullptr);
      } else {
        status = resetLeaf(entity, attr);
      }
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  grpc::Status clearDirectory(const Vek::Ptr<Vek::Entity>& dir) {
    for (Vek::CollectionIterator it = Vek::Dir::entityPtrAttr().genericIfIteratorConst(dir.ptr()); it; ++it) {
      const Vek::Ptr<Vek::Entity> child = entityOf(it.ptr());
      if (!child || child->type() == Vek::Dir::Entry::entryType()) continue;
      const grpc::Status status = child->type() == Vek::Dir::dirType() ? clearDirectory(child) : clear(child);
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  // The agent's own writes, in order.
  grpc::Status writeLeaves(const SetPlan& plan) {
    for (const SetStep& s : plan.steps) {
      if (s.kind != SetStep::Kind::Write) continue;
      step_ = &s;
      Vek::Ptr<Vek::Entity> entity;
      grpc::Status status = entityAt(s.path, s.entityElems, true, entity);
      if (status.ok() && !entity) status = missing(s);
      if (!status.ok()) return status;
      const Vek::VekAttr attr = entity->type()->attr(s.path.elem(s.entityElems).name());
      if (attr->isArray()) {
        undo_.recordArray(entity, attr);
        status = attempt("write", [&] { writeArray(*entity, attr, s.value.values); });
      } else {
        undo_.recordValue(entity, attr, nullptr);
        status = attempt("write", [&] { attr.genericIfSet(entity.ptr(), nullptr, s.value.values.front().ptr()); });
      }
      if (!status.ok()) return status;
    }
    return grpc::Status::OK;
  }

  // The library's Sets: one per entity, all prepared before any commits.
  grpc::Status librarySets(const SetPlan& plan) {
    std::vector<EntitySet> sets;
    for (const SetStep& s : plan.steps) {
      if (s.kind != SetStep::Kind::Write) continue;
      step_ = &s;
      const gnmi::Path entityPath = firstElems(s.path, s.entityElems);
      EntitySet* target = nullptr;
      for (EntitySet& e : sets) {
        if (e.request.prefix().SerializeAsString() == entityPath.SerializeAsString()) target = &e;
      }
      if (target == nullptr) {
        Vek::Ptr<Vek::Entity> entity;
        grpc::Status status = entityAt(s.path, s.entityElems, true, entity);
        if (status.ok() && !entity) status = missing(s);
        if (!status.ok()) return status;
        target = &sets.emplace_back();
        target->entity = entity;
        *target->request.mutable_prefix() = entityPath;
      }
      gnmi::Update* op = s.replace ? target->request.add_replace() : target->request.add_update();
      for (int i = s.entityElems; i < s.path.elem_size(); ++i) *op->mutable_path()->add_elem() = s.path.elem(i);
      *op->mutable_val() = s.value.typed;
    }
    std::vector<std::unique_ptr<SetTransaction>> transactions;
    for (EntitySet& set : sets) {
      undo_.record(set.entity, set.request);
      transactions.push_back(bridge_.makeSet(schema_.root(), set.request));
    }
    for (auto& tx : transactions) {
      const grpc::Status status = tx->prepare();
      if (!status.ok()) return status;
    }
    for (size_t i = 0; i < transactions.size(); ++i) {
      const grpc::Status status = transactions[i]->commit();
      if (!status.ok()) return refusedAtCommit(sets[i].request.prefix(), status);
    }
    return grpc::Status::OK;
  }

  ModelSource& source_;
  ModelSchema& schema_;
  LibraryBridge& bridge_;
  SetUndo undo_;
  const SetStep* step_ = nullptr;
};

}  // namespace

grpc::Status applySet(const SetPlan& plan, ModelSource& source, LibraryBridge& bridge) {
  return Applier(source, bridge).run(plan);
}

}  // namespace VekGnmi::Server
