#include "Requests.h"

#include <fmt/format.h>

#include "GnmiPathText.h"
#include "PathResolver.h"
#include "ValueEncoding.h"

#include <Ostrel/Path.h>

namespace VekGnmi::Server {

namespace {

grpc::Status invalid(std::string message) {
  return {grpc::StatusCode::INVALID_ARGUMENT, std::move(message)};
}

std::string durationText(uint64_t ns) {
  if (ns % 1000000000u == 0) return fmt::format("{}s", ns / 1000000000u);
  if (ns % 1000000u == 0) return fmt::format("{}ms", ns / 1000000u);
  return fmt::format("{}ns", ns);
}

}  // namespace

grpc::Status parseSubscribe(const gnmi::SubscribeRequest& request, const SubscribeLimits& limits,
                            SubscribeParams& out) {
  if (!request.has_subscribe()) {
    return invalid(request.has_poll()
                       ? "the first message of a Subscribe must be a SubscriptionList, not a Poll"
                       : "the first message of a Subscribe must be a SubscriptionList");
  }
  const gnmi::SubscriptionList& list = request.subscribe();
  SubscribeParams params;
  if (!gnmi::SubscriptionList::Mode_IsValid(list.mode())) {
    return invalid(fmt::format("unknown subscription list mode {}", static_cast<int>(list.mode())));
  }
  params.mode = list.mode();
  grpc::Status status = checkEncoding(list.encoding());
  if (!status.ok()) return status;
  params.encoding = list.encoding();
  status = checkOrigin(list.prefix(), "the prefix");
  if (!status.ok()) return status;
  params.target = list.prefix().target();
  params.updatesOnly = list.updates_only();
  if (list.subscription_size() == 0) return invalid("the SubscriptionList has no subscription");
  const auto minimum = static_cast<uint64_t>(limits.minSampleInterval.count());
  for (int i = 0; i < list.subscription_size(); ++i) {
    const gnmi::Subscription& s = list.subscription(i);
    status = checkOrigin(s.path(), fmt::format("subscription {}", i).c_str());
    if (!status.ok()) return status;
    SubscriptionEntry entry;
    entry.path = joinRequestPath(list.prefix(), s.path());
    entry.mode = gnmi::ON_CHANGE;
    if (params.mode == gnmi::SubscriptionList::STREAM) {
      switch (s.mode()) {
        case gnmi::TARGET_DEFINED:
        case gnmi::ON_CHANGE:
          entry.mode = gnmi::ON_CHANGE;
          break;
        case gnmi::SAMPLE:
          entry.mode = gnmi::SAMPLE;
          entry.sampleInterval = s.sample_interval() == 0 ? minimum : s.sample_interval();
          if (entry.sampleInterval < minimum) {
            return invalid(fmt::format(
                "subscription {}: sample_interval {} is below the lowest this target supports ({})", i,
                durationText(s.sample_interval()), durationText(minimum)));
          }
          entry.suppressRedundant = s.suppress_redundant();
          break;
        default:
          return invalid(fmt::format("subscription {}: unknown mode {}", i, static_cast<int>(s.mode())));
      }
      if (s.heartbeat_interval() != 0 && s.heartbeat_interval() < minimum) {
        return invalid(fmt::format(
            "subscription {}: heartbeat_interval {} is below the lowest this target supports ({})", i,
            durationText(s.heartbeat_interval()), durationText(minimum)));
      }
      entry.heartbeatInterval = s.heartbeat_interval();
    }
    params.entries.push_back(std::move(entry));
  }
  out = std::move(params);
  return grpc::Status::OK;
}

grpc::Status parseGet(const gnmi::GetRequest& request, GetParams& out) {
  GetParams params;
  grpc::Status status = checkEncoding(request.encoding());
  if (!status.ok()) return status;
  params.encoding = request.encoding();
  if (!gnmi::GetRequest::DataType_IsValid(request.type())) {
    return invalid(fmt::format("unknown data type {}", static_cast<int>(request.type())));
  }
  params.type = request.type();
  status = checkOrigin(request.prefix(), "the prefix");
  if (!status.ok()) return status;
  params.target = request.prefix().target();
  for (int i = 0; i < request.path_size(); ++i) {
    status = checkOrigin(request.path(i), fmt::format("path {}", i).c_str());
    if (!status.ok()) return status;
    params.paths.push_back(joinRequestPath(request.prefix(), request.path(i)));
  }
  if (params.paths.empty()) params.paths.push_back(joinRequestPath(request.prefix(), gnmi::Path()));
  out = std::move(params);
  return grpc::Status::OK;
}

bool passesDataType(gnmi::GetRequest::DataType type, const LeafInfo* leaf) {
  switch (type) {
    case gnmi::GetRequest::CONFIG: return leaf != nullptr && !leaf->state;
    case gnmi::GetRequest::STATE:
    case gnmi::GetRequest::OPERATIONAL: return leaf != nullptr && leaf->state;
    default: return true;
  }
}

namespace {

struct SplitPath {
  Vek::Ptr<Vek::Entity> entity;
  gnmi::Path entityPath;
  gnmi::Path valuePath;
  LeafInfo leaf;
};

// Splits a full Set path into the entity that holds the leaf and the value
// path below it.
grpc::Status splitSetPath(ModelSchema& schema, const gnmi::Path& full, SplitPath& out) {
  if (hasWildcard(full)) {
    return invalid(fmt::format("{}: a Set path names one leaf; wildcards are not allowed",
                               pathString(full)));
  }
  Vek::Ptr<Vek::Entity> node = schema.root();
  gnmi::Path entityPath;
  int i = 0;
  // Directories, by name.
  for (; i < full.elem_size() && node->type() == Vek::Dir::dirType(); ++i) {
    const gnmi::PathElem& e = full.elem(i);
    if (e.key_size() != 0) {
      return invalid(fmt::format("'{}' under {} is a directory entry and takes no keys", e.name(),
                                 pathString(entityPath)));
    }
    Vek::Ptr<Vek::Entity> child = static_cast<Vek::Dir*>(node.ptr())->child(e.name());
    if (!child || child->type() == Vek::Dir::Entry::entryType()) {
      return {grpc::StatusCode::NOT_FOUND,
              fmt::format("no element '{}' under {}", e.name(), pathString(entityPath))};
    }
    *entityPath.add_elem() = e;
    node = child;
  }
  if (node->type() == Vek::Dir::dirType()) {
    return invalid(fmt::format("{} is a directory; a Set path names a leaf", pathString(full)));
  }
  // Owned entities: singletons by name, members by key.
  for (; i < full.elem_size(); ++i) {
    const gnmi::PathElem& e = full.elem(i);
    const Vek::VekAttr attr = node->type()->attr(e.name());
    if (!attr || !attr->isInstantiating()) break;
    Vek::Ptr<Vek::Entity> next;
    if (attr->isCollection()) {
      Vek::Ptr<Vek::GenericIf> key;
      const grpc::Status status = memberKey(schema, attr, e, entityPath, key);
      if (!status.ok()) return status;
      next = node->entity(attr, key);
    } else {
      if (e.key_size() != 0) {
        return invalid(fmt::format("'{}' under {} is a single child and takes no keys", e.name(),
                                   pathString(entityPath)));
      }
      next = node->entity(attr);
    }
    if (!next) {
      return {grpc::StatusCode::NOT_FOUND,
              fmt::format("{} does not exist under {}", Ostrel::pathElemToStr(e), pathString(entityPath))};
    }
    *entityPath.add_elem() = e;
    node = next;
  }
  NodeInfo info;
  std::string error;
  if (!schema.nodeAt(node->type(), full, i, info, error)) {
    return {grpc::StatusCode::NOT_FOUND, fmt::format("{} (below {})", error, pathString(entityPath))};
  }
  if (info.kind != NodeKind::Leaf) {
    return invalid(fmt::format("{} is not a leaf; a Set path names one leaf", pathString(full)));
  }
  // A member of a collection of values must exist: Set changes members, it
  // does not create them.
  const gnmi::PathElem& first = full.elem(i);
  const Vek::VekAttr attr = node->type()->attr(first.name());
  if (attr && attr->isCollection() && first.key_size() > 0) {
    Vek::Ptr<Vek::GenericIf> key;
    const grpc::Status status = memberKey(schema, attr, first, entityPath, key);
    if (!status.ok()) return status;
    if (!attr.genericIfExist(node, key)) {
      return {grpc::StatusCode::NOT_FOUND, fmt::format("{} does not exist under {}",
                                                       Ostrel::pathElemToStr(first), pathString(entityPath))};
    }
  }
  out.entity = node;
  out.entityPath = std::move(entityPath);
  out.valuePath.Clear();
  for (int j = i; j < full.elem_size(); ++j) *out.valuePath.add_elem() = full.elem(j);
  out.leaf = info.leaf;
  return grpc::Status::OK;
}

}  // namespace

grpc::Status planSet(ModelSchema& schema, const gnmi::SetRequest& request, SetPlan& out) {
  if (request.delete__size() > 0) {
    return {grpc::StatusCode::UNIMPLEMENTED,
            "this target does not apply deletes; nothing was changed"};
  }
  if (request.union_replace_size() > 0) {
    return {grpc::StatusCode::UNIMPLEMENTED,
            "this target does not apply union_replace; nothing was changed"};
  }
  grpc::Status status = checkOrigin(request.prefix(), "the prefix");
  if (!status.ok()) return status;
  SetPlan plan;
  auto add = [&](const gnmi::Update& update, bool replace, int index) -> grpc::Status {
    const char* kind = replace ? "replace" : "update";
    grpc::Status s = checkOrigin(update.path(), fmt::format("{} {}", kind, index).c_str());
    if (!s.ok()) return s;
    const gnmi::Path full = joinRequestPath(request.prefix(), update.path());
    SplitPath split;
    s = splitSetPath(schema, full, split);
    if (!s.ok()) return {s.error_code(), fmt::format("{} {}: {}", kind, index, s.error_message())};
    gnmi::TypedValue value;
    std::string error;
    if (!setValueForLeaf(split.leaf, update.val(), value, error)) {
      return invalid(fmt::format("{} {}: {}: {}", kind, index, pathString(full), error));
    }
    EntitySet* target = nullptr;
    for (EntitySet& e : plan.entities) {
      if (e.entityPath == split.entityPath) target = &e;
    }
    if (target == nullptr) {
      plan.entities.emplace_back();
      target = &plan.entities.back();
      target->entity = split.entity;
      target->entityPath = split.entityPath;
      *target->request.mutable_prefix() = split.entityPath;
    }
    gnmi::Update* op = replace ? target->request.add_replace() : target->request.add_update();
    *op->mutable_path() = std::move(split.valuePath);
    *op->mutable_val() = std::move(value);
    return grpc::Status::OK;
  };
  for (int i = 0; i < request.replace_size(); ++i) {
    status = add(request.replace(i), true, i);
    if (!status.ok()) return status;
  }
  for (int i = 0; i < request.update_size(); ++i) {
    status = add(request.update(i), false, i);
    if (!status.ok()) return status;
  }
  out = std::move(plan);
  return grpc::Status::OK;
}

gnmi::SetResponse setResponse(const gnmi::SetRequest& request, int64_t timestamp) {
  gnmi::SetResponse response;
  if (request.has_prefix()) *response.mutable_prefix() = request.prefix();
  for (const gnmi::Update& u : request.replace()) {
    gnmi::UpdateResult* r = response.add_response();
    *r->mutable_path() = u.path();
    r->set_op(gnmi::UpdateResult::REPLACE);
  }
  for (const gnmi::Update& u : request.update()) {
    gnmi::UpdateResult* r = response.add_response();
    *r->mutable_path() = u.path();
    r->set_op(gnmi::UpdateResult::UPDATE);
  }
  response.set_timestamp(timestamp);
  return response;
}

}  // namespace VekGnmi::Server
