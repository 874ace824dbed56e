// The model an agent serves, behind one interface chosen at start: the demo
// device declared in C++ (DemoSource, the default) or a set of YANG modules
// with their instance data (YangSource, vekgnmid --yang-dir/--module).
//
// Everything that differs between models lives behind it; the agent's
// request handlers, the router and the library calls do not know which model
// they serve:
//   - building the runtime tree (`build`, on the event loop) and the schema
//     of its published leaves (`schema`: one lookup per leaf gives its
//     runtime type, whether it is state, and for YANG its schema node; see
//     ModelSchema.h);
//   - what Capabilities lists (`models`);
//   - request paths in the model's own names (`normalizePath`: YANG accepts
//     module-qualified names and key values in any form libyang reads);
//   - how published values go out in each encoding (`encode`);
//   - how a client's value for a leaf is converted and checked for Set
//     (`setValue`), who writes it (the library's Set, or the agent itself:
//     `agentWritesLeaves`), how a JSON subtree names its members
//     (`memberElement`), how entities made or cleared by a Set are completed
//     (`entityCreated`, `keepsChild`, `clearable`);
//   - the change simulator (`changeSimulator`).
//
// A source is made before the agent starts (errors are reported at start),
// built once on the event loop, read on the loop only (but for `models` and
// `description`, which any thread may call), and torn down by the agent that
// built it.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <grpcpp/support/status.h>

#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

#include <nlohmann/json.hpp>

#include "ChangeSimulator.h"
#include "ModelSchema.h"

namespace VekGnmi::Server {

struct DemoModel;

// A client's value for one leaf (or leaf-list) in a Set: a JSON value (from
// json_val or json_ietf_val, or a member of a JSON subtree) or a typed value
// (PROTO). Exactly one is set.
struct ClientValue {
  const nlohmann::json* json = nullptr;
  const gnmi::TypedValue* typed = nullptr;
};

// A client's value converted for its leaf: for a model whose leaves the
// library's Set writes, the typed value that Set takes; for one whose leaves
// the agent writes itself, the runtime values (one, or a leaf-list's
// elements in order).
struct SetValue {
  gnmi::TypedValue typed;
  std::vector<Vek::Ptr<Vek::GenericIf>> values;
};

class ModelSource {
 public:
  virtual ~ModelSource();

  // One line for the start banner ("a demo device of 16 interfaces").
  virtual std::string description() const = 0;
  // The models Capabilities lists.
  virtual std::vector<gnmi::ModelData> models() const = 0;

  // Builds the runtime tree and its schema; on the event loop, once.
  void build();
  // Drops the tree (the agent calls it when it ends, before its router and
  // library bridge go: the entities' notifiees use them until then).
  void teardown();
  const Vek::Ptr<Vek::Dir>& root() const { return root_; }
  ModelSchema& schema() const { return *schema_; }

  // Rewrites a request path (prefix and path joined) into the names the
  // model publishes. INVALID_ARGUMENT for a key value that is no value of
  // its key; paths the model does not have are left for the resolver, which
  // names them. The demo model publishes the names clients use.
  virtual grpc::Status normalizePath(gnmi::Path&) const { return grpc::Status::OK; }

  // `value`, published by the library for `leaf` (null: a leaf the schema
  // does not know), in `encoding` (JSON, JSON_IETF or PROTO) into `out`.
  virtual void encode(const LeafInfo* leaf, const gnmi::TypedValue& value, gnmi::Encoding encoding,
                      gnmi::TypedValue& out) const = 0;
  // Whether the PROTO encoding of `value`, published at `prefix` + `path`,
  // differs from `value` (then a shared sync message is copied before it
  // goes out). The schema is looked up only for kinds of values that PROTO
  // may send otherwise.
  bool protoChanges(const gnmi::Path& prefix, const gnmi::Path& path, const gnmi::TypedValue& value) const {
    return protoMayChange(value) && protoChanges(schema().leafOf(prefix, path), value);
  }

  // Set. Whether the agent writes leaves itself (runtime values from
  // `setValue`, with the runtime's checks) rather than through the library's
  // Set (the typed values `setValue` makes, converted and checked by the
  // library). Structural changes (members made and removed, subtrees
  // cleared) are the agent's in any case; see SetApply.h.
  virtual bool agentWritesLeaves() const = 0;
  // Converts and checks `value` for `leaf`. INVALID_ARGUMENT, naming the
  // restriction the value breaks, when it is no value of the leaf.
  virtual grpc::Status setValue(const LeafInfo& leaf, const ClientValue& value, SetValue& out) const = 0;
  // The element name of the member `name` of a JSON object that stands for
  // an entity of `entityType` (YANG: "module:name" or "name"); empty when
  // the entity has no such member.
  virtual std::string memberElement(Vek::VekType entityType, const std::string& name) const = 0;
  // Completes an entity the agent has just made through the instantiating
  // attribute `attr` (with `key` for a list member): YANG sets its key leaves
  // and makes its non-presence containers.
  virtual void entityCreated(Vek::Entity&, const Vek::VekAttr&, const Vek::GenericIf*) const {}
  // Whether deleting the owned child of `attr` empties it instead of
  // removing it (YANG non-presence containers exist with their parent).
  virtual bool keepsChild(const Vek::VekAttrBase&) const { return false; }
  // Whether a Set that clears an entity (a delete or a replace of it)
  // removes what `attr` holds: its configuration, not its state or keys.
  virtual bool clearable(const Vek::VekAttrBase& attr) const = 0;
  // While the returned object lives, this thread writes as the device
  // itself (state attributes accept its writes): how an undo restores state
  // that a refused Set removed with its entity.
  virtual std::shared_ptr<void> writeAsDevice() const { return nullptr; }

  // The change simulator of `rate` changes a second; null when the model has
  // nothing to change.
  virtual std::unique_ptr<ChangeSimulator> changeSimulator(double rate, uint64_t seed) = 0;

  // The demo model, for tests and benchmarks; null for other sources.
  virtual DemoModel* demoModel() { return nullptr; }

 protected:
  struct Built {
    Vek::Ptr<Vek::Dir> root;
    std::unique_ptr<ModelSchema> schema;
  };
  virtual Built buildModel() = 0;
  // Whether PROTO may send a value of this kind otherwise, for some leaf.
  virtual bool protoMayChange(const gnmi::TypedValue& value) const = 0;
  // Whether PROTO sends `value` of `leaf` otherwise.
  virtual bool protoChanges(const LeafInfo* leaf, const gnmi::TypedValue& value) const = 0;
  // Drops what the source holds of the tree besides root and schema.
  virtual void dropModel() {}

 private:
  Vek::Ptr<Vek::Dir> root_;
  std::unique_ptr<ModelSchema> schema_;
};

// The demo device of `interfaces` interfaces (DemoModel.h).
std::shared_ptr<ModelSource> makeDemoSource(size_t interfaces);

}  // namespace VekGnmi::Server
