#include "Authorization.h"

#include <fmt/format.h>

#include "BoundedText.h"
#include "GnmiPathText.h"
#include "PathResolver.h"

namespace VekGnmi::Server {

namespace {

bool servedOrigin(const gnmi::Path& path) { return path.origin().empty() || path.origin() == "openconfig"; }

bool elemWithin(const gnmi::PathElem& requested, const gnmi::PathElem& allowed) {
  if (requested.name() == "...") return false;
  if (allowed.name() != "*" && allowed.name() != requested.name()) return false;
  for (const auto& [key, value] : allowed.key()) {
    if (value == "*") continue;
    auto it = requested.key().find(key);
    if (it == requested.key().end() || it->second != value) return false;
  }
  return true;
}

std::string who(const Grant& grant) {
  return grant.user.empty() ? std::string("this client") : fmt::format("user '{}'", boundedText(grant.user));
}

grpc::Status outside(const Grant& grant, const gnmi::Path& path) {
  return {grpc::StatusCode::PERMISSION_DENIED,
          fmt::format("{} is outside the paths {} may reach", boundedText(pathString(path)), who(grant))};
}

// OK when `prefix` joined with `path` is allowed.
grpc::Status checkPath(const Grant& grant, const gnmi::Path& prefix, const gnmi::Path& path) {
  if (grant.prefixes.empty()) return grpc::Status::OK;
  const gnmi::Path joined = joinRequestPath(prefix, path);
  return pathAllowed(grant, joined) ? grpc::Status::OK : outside(grant, joined);
}

}  // namespace

const char* roleName(Role role) { return role == Role::Read ? "read" : "write"; }

bool pathWithinPrefix(const gnmi::Path& path, const gnmi::Path& prefix) {
  if (!servedOrigin(path)) return false;
  if (path.elem_size() < prefix.elem_size()) return false;
  for (int i = 0; i < prefix.elem_size(); ++i) {
    if (!elemWithin(path.elem(i), prefix.elem(i))) return false;
  }
  return true;
}

bool pathAllowed(const Grant& grant, const gnmi::Path& path) {
  if (grant.prefixes.empty()) return true;
  for (const gnmi::Path& prefix : grant.prefixes) {
    if (pathWithinPrefix(path, prefix)) return true;
  }
  return false;
}

grpc::Status authorizeCapabilities(const Grant&) { return grpc::Status::OK; }

grpc::Status authorizeGet(const Grant& grant, const gnmi::GetRequest& request) {
  if (request.path_size() == 0) return checkPath(grant, request.prefix(), gnmi::Path());
  for (const gnmi::Path& path : request.path()) {
    grpc::Status status = checkPath(grant, request.prefix(), path);
    if (!status.ok()) return status;
  }
  return grpc::Status::OK;
}

grpc::Status authorizeSet(const Grant& grant, const gnmi::SetRequest& request) {
  if (grant.role != Role::Write) {
    return {grpc::StatusCode::PERMISSION_DENIED,
            fmt::format("{} may not Set (role {})", who(grant), roleName(grant.role))};
  }
  for (const gnmi::Path& path : request.delete_()) {
    grpc::Status status = checkPath(grant, request.prefix(), path);
    if (!status.ok()) return status;
  }
  for (const auto* updates : {&request.replace(), &request.update(), &request.union_replace()}) {
    for (const gnmi::Update& update : *updates) {
      grpc::Status status = checkPath(grant, request.prefix(), update.path());
      if (!status.ok()) return status;
    }
  }
  return grpc::Status::OK;
}

grpc::Status authorizeSubscribe(const Grant& grant, const gnmi::SubscribeRequest& request) {
  if (!request.has_subscribe()) return grpc::Status::OK;
  const gnmi::SubscriptionList& list = request.subscribe();
  for (const gnmi::Subscription& subscription : list.subscription()) {
    grpc::Status status = checkPath(grant, list.prefix(), subscription.path());
    if (!status.ok()) return status;
  }
  return grpc::Status::OK;
}

size_t pathCount(const gnmi::GetRequest& request) { return static_cast<size_t>(request.path_size()); }

size_t pathCount(const gnmi::SetRequest& request) {
  return static_cast<size_t>(request.delete__size() + request.replace_size() + request.update_size() +
                             request.union_replace_size());
}

size_t pathCount(const gnmi::SubscribeRequest& request) {
  return request.has_subscribe() ? static_cast<size_t>(request.subscribe().subscription_size()) : 0;
}

grpc::Status checkPathLimit(size_t count, size_t limit) {
  if (limit == 0 || count <= limit) return grpc::Status::OK;
  return {grpc::StatusCode::RESOURCE_EXHAUSTED,
          fmt::format("the request has {} paths; this target takes at most {} (--max-paths)", count, limit)};
}

}  // namespace VekGnmi::Server
