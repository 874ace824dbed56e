#include "Ostrel/VekGnmiSetter.h"

#include <optional>

#include <fmt/format.h>

#include <Zolt/Zolt.h>

#include "Ostrel/Path.h"
#include "internal/AttrTree.h"
#include "internal/PlainAssert.h"

namespace Ostrel {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelVekGnmiSet");

constexpr const char* SET = "Set";

}  // namespace

void detail::resultSideMissing(bool valueWanted) {
  ZOLT_FMASSERT(dbg, "Result", "{}",
                valueWanted ? "Result holds an error; its value was read"
                            : "Result holds a value; its error was read");
}

namespace VekGnmiSet {

namespace {

// Stages every operation `op` of the request below `node`, in request order,
// then prepares the tree for `op`. The operations' paths are read from the
// response's results (populateResponse moved them there, in request order),
// their values from `updates`. The first failure stops it.
Result<bool, grpc::Status> stageAndPrepare(
    AttrTree::EntityNode& node, const gnmi::SetResponse& response,
    gnmi::UpdateResult::Operation resultOp,
    const google::protobuf::RepeatedPtrField<gnmi::Update>& updates, SetOp op) {
  int next = 0;
  for (const gnmi::UpdateResult& result : response.response()) {
    if (result.op() != resultOp) continue;
    if (next >= updates.size()) ZOLT_FMASSERT(dbg, SET, "Expecting one result per operation");
    // An absent path stages as no element, an absent value as the default.
    const auto& elems = result.path().elem();
    Result<bool, AttrTree::Error> staged =
        node.insertPathSuffix(elems.begin(), elems.end(), updates.Get(next++).val());
    if (!staged) return Failure{treeErrorToStatus(staged.error())};
  }
  if (next != updates.size()) ZOLT_FMASSERT(dbg, SET, "Expecting one result per operation");
  Result<bool, AttrTree::Error> prepared = node.prepare(op);
  if (!prepared) return Failure{treeErrorToStatus(prepared.error())};
  return true;
}

// Appends the result of one operation, taking `path` over: the Set is done
// with the request's paths once they are in the response.
void addResult(gnmi::SetResponse& response, gnmi::UpdateResult::Operation op, gnmi::Path* path) {
  gnmi::UpdateResult* result = response.add_response();
  result->set_op(op);
  result->set_allocated_path(path);
}

}  // namespace

grpc::Status pathNotFoundError(const std::string& path, const std::string& message) {
  return grpc::Status(grpc::StatusCode::NOT_FOUND,
                      fmt::format("Error in finding path {}: {}", path, message));
}

grpc::Status invalidArgumentError(const std::string& path, const std::string& message) {
  return grpc::Status(grpc::StatusCode::INVALID_ARGUMENT,
                      fmt::format("Error in argument to path {}: {}", path, message));
}

grpc::Status treeErrorToStatus(const AttrTree::Error& error) {
  gnmi::Path path;
  for (const gnmi::PathElem& elem : error.path) *path.add_elem() = elem;
  switch (error.code) {
    case grpc::StatusCode::NOT_FOUND:
      return pathNotFoundError(pathToStr(path, 0, false), error.message);
    case grpc::StatusCode::INVALID_ARGUMENT:
      return invalidArgumentError(pathToStr(path, 0, false), error.message);
    default:
      return grpc::Status(static_cast<grpc::StatusCode>(error.code), error.message);
  }
}

// ---------------------------------------------------------------------------
// Set

Set::Set(Vek::Ptr<Vek::GenericIf> root, gnmi::SetRequest request)
    : root_(std::move(root)), request_(std::move(request)) {}

// Out of line: the tree's node types are complete only here.
Set::~Set() = default;

std::pair<gnmi::SetResponse, grpc::Status> Set::execute() {
  if (stage_ != Stage::Fresh) ZOLT_FMASSERT(dbg, SET, "execute called on a Set that has run already");
  grpc::Status status = executeImpl();
  prefixEntity_.reset();
  stage_ = Stage::Finished;
  // The Set is done with its response: hand it over rather than copy it.
  return {std::move(response_), std::move(status)};
}

grpc::Status Set::prepare() {
  if (stage_ != Stage::Fresh) ZOLT_FMASSERT(dbg, SET, "prepare called on a Set that has run already");
  grpc::Status status = prepareSteps();
  if (status.ok()) {
    stage_ = Stage::Prepared;
  } else {
    prefixEntity_.reset();
    stage_ = Stage::Finished;
  }
  return status;
}

grpc::Status Set::commit() {
  if (stage_ != Stage::Prepared) ZOLT_FMASSERT(dbg, SET, "commit called without a successful prepare");
  grpc::Status status = commitStep();
  prefixEntity_.reset();
  stage_ = Stage::Finished;
  return status;
}

grpc::Status Set::executeImpl() {
  grpc::Status status = prepareSteps();
  if (!status.ok()) return status;
  return commitStep();
}

grpc::Status Set::prepareSteps() {
  // First, so that the response lists every operation whatever the outcome.
  populateResponse();
  ZOLT_TRACE(dbg, 4, SET, "Processing prefix path to find prefix entity");
  if (Result<bool, grpc::Status> found = setPrefixEntity(); !found) return found.error();
  ZOLT_TRACE(dbg, 4, SET, "Processing Replace ops");
  if (Result<bool, grpc::Status> replaced = processReplace(); !replaced) return replaced.error();
  if (!prefixEntity_) ZOLT_FMASSERT(dbg, SET, "Expecting prefix entity to be set");
  // Composites rebuilt by the replaces keep their new values but lose their
  // children, so the updates patch those values from a clean slate.
  prefixEntity_->pruneSubTree();
  ZOLT_TRACE(dbg, 4, SET, "Processing Update ops");
  if (Result<bool, grpc::Status> updated = processUpdate(); !updated) return updated.error();
  return grpc::Status::OK;
}

grpc::Status Set::commitStep() {
  if (!prefixEntity_) ZOLT_FMASSERT(dbg, SET, "Expecting prefix entity to be set");
  ZOLT_TRACE(dbg, 4, SET, "All ops are processed successfully, so commit the final values");
  Result<bool, AttrTree::Error> committed = prefixEntity_->commit();
  if (!committed) return treeErrorToStatus(committed.error());
  return grpc::Status::OK;
}

Result<bool, grpc::Status> Set::setPrefixEntity() {
  // The response holds the request's prefix (see populateResponse).
  const gnmi::Path& prefix = response_.prefix();
  if (prefix.elem_size() == 0) {
    return Failure{pathNotFoundError(pathToStr(prefix, 0, false),
                                     "Prefix path must have at least one entity element")};
  }
  ZOLT_TRACE(dbg, 4, SET, "Accessing objects in prefix path {}", prefix);
  Vek::Ptr<Vek::GenericIf> current = root_;
  std::optional<AttrTree::DataElem> resolved;
  for (const gnmi::PathElem& elem : prefix.elem()) {
    Result<AttrTree::DataElem, std::string> found = AttrTree::getDataElem(current, elem);
    if (!found) return Failure{pathNotFoundError(pathToStr(prefix, 0, false), found.error())};
    if (!found.value().value->isEntity()) {
      return Failure{pathNotFoundError(
          pathToStr(prefix, 0, false),
          fmt::format("Prefix path element must refer to an entity; found value {}", elem))};
    }
    current = found.value().value;
    resolved = std::move(found).value();
  }
  ZOLT_TRACE(dbg, 4, SET, "Setting prefixEntity associated to prefix path {}", prefix);
  prefixEntity_ = std::make_unique<AttrTree::EntityNode>(prefix.elem(prefix.elem_size() - 1),
                                                         std::move(*resolved));
  return true;
}

Result<bool, grpc::Status> Set::processReplace() {
  if (!prefixEntity_) ZOLT_FMASSERT(dbg, SET, "Expecting prefix entity to be set");
  return stageAndPrepare(*prefixEntity_, response_, gnmi::UpdateResult::REPLACE,
                         request_.replace(), SetOp::Replace);
}

Result<bool, grpc::Status> Set::processUpdate() {
  OSTREL_PLAIN_ASSERT(prefixEntity_);
  return stageAndPrepare(*prefixEntity_, response_, gnmi::UpdateResult::UPDATE,
                         request_.update(), SetOp::Update);
}

Result<bool, grpc::Status> Set::processDelete() {
  ZOLT_FMASSERT(dbg, SET, "Delete op is not implemented");
}

void Set::populateResponse() {
  // An absent prefix is answered with an empty one.
  if (request_.has_prefix()) {
    response_.set_allocated_prefix(request_.release_prefix());
  } else {
    response_.mutable_prefix();
  }
  response_.mutable_response()->Reserve(request_.delete__size() + request_.replace_size() +
                                        request_.update_size());
  // The prefix and the paths move from the request into the response rather
  // than being copied (a copy costs several allocations a path); the prefix
  // is then resolved and the paths staged from the response.
  for (gnmi::Path& path : *request_.mutable_delete_()) {
    auto* moved = new gnmi::Path;
    moved->Swap(&path);
    addResult(response_, gnmi::UpdateResult::DELETE, moved);
  }
  for (gnmi::Update& update : *request_.mutable_replace()) {
    addResult(response_, gnmi::UpdateResult::REPLACE,
              update.has_path() ? update.release_path() : new gnmi::Path);
  }
  for (gnmi::Update& update : *request_.mutable_update()) {
    addResult(response_, gnmi::UpdateResult::UPDATE,
              update.has_path() ? update.release_path() : new gnmi::Path);
  }
}

}  // namespace VekGnmiSet

}  // namespace Ostrel
