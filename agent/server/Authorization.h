// What an authenticated client may do, decided from the request alone,
// before the request reaches the event loop and before any path is looked up
// in the model.
//
// A client acts as a `Grant`: a user name, a role and, optionally, path
// prefixes of the model. The role `Read` allows Capabilities, Get and
// Subscribe; `Write` also allows Set. With prefixes, every path of a request
// (the request's prefix joined with each of its paths by the agent's own
// `joinRequestPath`, legacy `element` names upgraded) must lie under one of them, matched
// element by element:
//
//   - a prefix element named "*" takes any element name but "..."; otherwise
//     the names are equal ("state" does not cover "statefoo");
//   - for each key of the prefix element, the path's element has that key
//     with the same value, or the prefix's value is "*". Where the prefix
//     names one value, a path element that lacks the key or whose value is
//     "*" reaches beyond the prefix (it names every member);
//   - the path has at least as many elements as the prefix: a path above a
//     prefix asks for more than the prefix allows;
//   - keys the prefix element does not name are not constrained.
//
// Paths with an origin other than "" or "openconfig" (the only origins this
// target serves) are under no prefix. A request with a path outside every
// prefix is refused whole with PERMISSION_DENIED: nothing is filtered, so a
// client never mistakes a partial answer for the whole. A grant without
// prefixes covers the whole model.
//
// Every function here is pure: it reads the request and the grant and
// returns OK or the status to answer.
#pragma once

#include <string>
#include <vector>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

namespace VekGnmi::Server {

enum class Role { Read, Write };

// "read" or "write".
const char* roleName(Role role);

struct Grant {
  std::string user;                 // empty: anonymous (authentication off)
  Role role = Role::Write;
  std::vector<gnmi::Path> prefixes;  // empty: the whole model
};

// Whether `path` (already joined and upgraded) lies under `prefix`, by the
// rules above.
bool pathWithinPrefix(const gnmi::Path& path, const gnmi::Path& prefix);

// Whether `path` lies under one of the grant's prefixes (always, without
// prefixes).
bool pathAllowed(const Grant& grant, const gnmi::Path& path);

// Capabilities: allowed to every authenticated client.
grpc::Status authorizeCapabilities(const Grant& grant);

// Get: every path (or the prefix alone when there is none) within the
// grant's prefixes.
grpc::Status authorizeGet(const Grant& grant, const gnmi::GetRequest& request);

// Set: the Write role, and every delete, replace, update and union_replace
// path within the grant's prefixes; one path outside refuses the whole Set.
grpc::Status authorizeSet(const Grant& grant, const gnmi::SetRequest& request);

// One message of a Subscribe stream: a SubscriptionList's subscriptions
// within the grant's prefixes; a Poll is always allowed.
grpc::Status authorizeSubscribe(const Grant& grant, const gnmi::SubscribeRequest& request);

// The number of paths a request carries, for the per-request limit: Get
// paths, Set operations, the subscriptions of a SubscriptionList.
size_t pathCount(const gnmi::GetRequest& request);
size_t pathCount(const gnmi::SetRequest& request);
size_t pathCount(const gnmi::SubscribeRequest& request);

// RESOURCE_EXHAUSTED when `count` exceeds `limit` (0: no limit).
grpc::Status checkPathLimit(size_t count, size_t limit);

}  // namespace VekGnmi::Server
