// VekGnmiSet::Set: applies one gnmi::SetRequest to entities of the Vek runtime,
// all or nothing.
//
// The request's prefix names one entity; every replace and update path below
// it names a value: a scalar attribute, a member of a collection of values, or
// a field (at any depth) of a value type such as a counters record. Entities
// below the prefix are refused, so a client request that changes leaves of
// several entities is applied as several Sets, one per entity.
//
//   Ostrel::VekGnmiSet::Set set(root, std::move(request));
//   auto [response, status] = set.execute();
//
// `execute` stages every replace and update into a private tree, converts and
// checks every value, builds the new value records (Replace from the type's
// defaults, Update from the current value), and writes into the entity only
// when all of that succeeded. The response lists one result per requested
// operation (deletes, then replaces, then updates) whatever the outcome.
//
// Statuses (paths are printed relative to the prefix, without a leading '/'):
//   NOT_FOUND          "Error in finding path <path>: <why>": the prefix or a
//                      path element does not resolve, a path ends on or runs
//                      past a leaf, names an entity below the prefix, a
//                      missing collection member or a read-only attribute,
//                      or the runtime refuses a write;
//   INVALID_ARGUMENT   "Error in argument to path <path>: <why>": a value of
//                      the wrong gNMI kind for its attribute, or of a kind the
//                      Set does not convert (float, double, decimal, bytes,
//                      JSON, leaf lists, ...).
// Deletes are listed in the response but not applied (a request of deletes
// only returns OK and changes nothing); Set never creates collection members
// or entities. Integers too wide for their attribute are truncated to its
// width (300 into a signed char stores 44).
//
// Several Sets, all or nothing: call `prepare` on each, and `commit` on each
// only when every `prepare` returned OK. A prepared Set has written nothing.
//
// A write that the runtime refuses during the commit itself (an attribute's
// check) stops the commit at that attribute: attributes written before it
// stay written. Nothing is thrown to the caller; runtime exceptions become
// statuses.
//
// One Set serves one request on one thread.
#pragma once

#include <memory>
#include <utility>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include <Vek/Vek.h>

#include "Ostrel/Export.h"
#include "Ostrel/Result.h"

namespace Ostrel::VekGnmiSet {

namespace AttrTree {
class EntityNode;
}  // namespace AttrTree

class OSTREL_EXPORT Set {
 public:
  // A Set of `request` against `root`, the object the request's prefix is
  // resolved from (typically the root directory). Nothing is resolved yet.
  Set(Vek::Ptr<Vek::GenericIf> root, gnmi::SetRequest request);
  ~Set();
  Set(const Set&) = delete;
  Set& operator=(const Set&) = delete;

  // Prepares and, when that succeeded, commits; then discards the staging
  // tree. Returns the response and the status. Call once, instead of
  // `prepare` and `commit`.
  std::pair<gnmi::SetResponse, grpc::Status> execute();

  // Resolves the prefix, stages and prepares every replace, then every update;
  // writes nothing. Call once, first.
  grpc::Status prepare();

  // Writes the prepared values into the prefix entity and discards the
  // staging tree. Call once, only after `prepare` returned OK.
  grpc::Status commit();

 private:
  friend struct SetInternals;

  // How far the Set has got; guards the order of the calls above.
  enum class Stage { Fresh, Prepared, Finished };

  // All steps: `prepareSteps`, then `commitStep`.
  grpc::Status executeImpl();
  // Fills the response, resolves the prefix, stages and prepares the
  // replaces, prunes the tree, stages and prepares the updates.
  grpc::Status prepareSteps();
  // Writes the prepared tree into the prefix entity.
  grpc::Status commitStep();

  // Resolves the prefix to an entity and makes the tree's root for it; reads
  // the prefix from the response (see `populateResponse`).
  Result<bool, grpc::Status> setPrefixEntity();
  // Stage and prepare the replaces, resp. the updates, in request order;
  // their paths are read from the response (see `populateResponse`).
  Result<bool, grpc::Status> processReplace();
  Result<bool, grpc::Status> processUpdate();
  // Deleting is not supported: fatal "Delete op is not implemented". Never
  // called by the steps above.
  Result<bool, grpc::Status> processDelete();
  // Gives the response the request's prefix and one result per operation
  // (deletes, replaces, updates, each in request order) with the
  // operation's path, moving the prefix and the paths out of the request.
  void populateResponse();

  Vek::Ptr<Vek::GenericIf> root_;
  gnmi::SetRequest request_;
  gnmi::SetResponse response_;
  std::unique_ptr<AttrTree::EntityNode> prefixEntity_;
  Stage stage_ = Stage::Fresh;
};

}  // namespace Ostrel::VekGnmiSet
