// Resolving request paths against the live model, and filtering what the
// library publishes down to what a request asked for.
//
// A request path (prefix + path, origin "" or "openconfig") may stop at a
// directory, an entity, a collection, a member or a leaf; "*" as an element
// name matches any element and "*" as a key value any member; "..." matches
// any number of elements. Resolution finds the smallest entities that
// cover the path (syncing them publishes everything asked for, and their
// owned entities as walks of their own), and for streams the owners whose
// collections or children the path goes through (their notifiees report
// members created and removed later). A `PathFilter` then passes only the
// updates and deletes under the requested path.
//
// Runs on the event-loop thread (it reads the model).
#pragma once

#include <string>
#include <vector>

#include <grpcpp/support/status.h>

#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

#include "ModelSchema.h"

namespace VekGnmi::Server {

// An entity and the path at which it is published.
struct PublishedEntity {
  Vek::Ptr<Vek::Entity> entity;
  gnmi::Path path;
};

struct Resolution {
  // The smallest existing entities that cover the path, each once, in model
  // order.
  std::vector<PublishedEntity> cover;
  // Entities whose membership changes (members or children created and
  // removed) can change what lies at the path.
  std::vector<PublishedEntity> watch;
  // The path names schema elements that exist, but some member or child on
  // the way does not exist now.
  bool absent = false;
};

// The value of the only key of `elem`, which must have exactly one.
const std::string& singleKeyValue(const gnmi::PathElem& elem);

// Whether any element of `path` is "*" or "...", or any key value "*".
bool hasWildcard(const gnmi::Path& path);

// Checks the key names of element `elem` of the collection `attr`, met below
// `at`: INVALID_ARGUMENT, naming the collection's keys, unless it names
// exactly the keys the collection's members are published with (its key
// names in `schema`), each once.
grpc::Status checkKeyNames(ModelSchema& schema, const Vek::VekAttr& attr, const gnmi::PathElem& elem,
                           const gnmi::Path& at);

// The key object that element `elem` names for the collection `attr`, met
// below `at`: INVALID_ARGUMENT unless its keys pass `checkKeyNames` and each
// value is a value of its key (of the collection's key type, or of the field
// of a composite key).
grpc::Status memberKey(ModelSchema& schema, const Vek::VekAttr& attr, const gnmi::PathElem& elem,
                       const gnmi::Path& at, Vek::Ptr<Vek::GenericIf>& key);

// Checks the origin of a request path: "" and "openconfig" are ours.
grpc::Status checkOrigin(const gnmi::Path& path, const char* what);

// `prefix` followed by `path`: elements of both; origin and target from the
// prefix unless the path sets them.
gnmi::Path joinRequestPath(const gnmi::Path& prefix, const gnmi::Path& path);

// Resolves `path` (already joined with its prefix) against the model.
// INVALID_ARGUMENT for malformed paths (a key on a directory or a
// singleton, a key value that is no value of the key type, several keys on
// one member), NOT_FOUND for elements the schema does not have. A member
// that does not exist now is not an error: `absent` is set.
grpc::Status resolvePath(ModelSchema& schema, const gnmi::Path& path, Resolution& out);

// Which published updates fall under a requested path.
class PathFilter {
 public:
  PathFilter() = default;
  explicit PathFilter(gnmi::Path requested);

  // How a notification's prefix relates to the requested path.
  enum class PrefixMatch {
    None,     // nothing published at this prefix is under the path
    All,      // everything is (the path stops at or above the prefix)
    Partial,  // the path goes below the prefix: test each update
  };
  PrefixMatch matchPrefix(const gnmi::Path& prefix) const;

  // For PrefixMatch::Partial: whether the update at `path` below `prefix`
  // is under the requested path.
  bool matchUpdate(const gnmi::Path& prefix, const gnmi::Path& path) const;

  // Whether a delete of `path` below `prefix` concerns the requested path:
  // it is under it, or it removes something that holds it.
  bool matchDelete(const gnmi::Path& prefix, const gnmi::Path& path) const;

  const gnmi::Path& requested() const { return requested_; }

 private:
  gnmi::Path requested_;
};

// Whether a published element matches a requested one: same name (or "*"),
// and every requested key present with the same value (or "*"). A single
// requested key also matches a single published key of another name with
// the same value, since key names follow the publisher's conventions.
bool elemMatches(const gnmi::PathElem& requested, const gnmi::PathElem& published);

}  // namespace VekGnmi::Server
