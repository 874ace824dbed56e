// The undo of a Set applied across entities (SetApply.h).
//
// A Set changes the model in steps: the agent's structural changes (list
// members and containers made, removed or emptied, leaves unset or reset)
// and then the leaf writes (the library's Sets, all prepared before any
// commits, or the agent's own writes). Checks that only the runtime makes
// (the demo device's MTU range and description length, its state
// attributes refusing clients) run when a write happens, so a request can
// be refused after part of it has been applied. To keep a request all or
// nothing, every change is recorded here before it is made:
//   - a value: what an attribute (or a member of a collection of values, or
//     a pointer) holds, or that it holds nothing;
//   - a leaf list: all its elements;
//   - an entity made: where (owner, attribute, key);
//   - an entity removed: where, and a snapshot of it with everything it
//     owns (values, leaf lists, members, owned entities, pointers it holds).
// `restore` undoes them newest first: values written back, made entities
// removed, removed ones made again and filled from their snapshots (as the
// device writes: ModelSource::writeAsDevice, so that state comes back too).
// Subscribers see those writes as changes: what the refused request did,
// then the model as it was. Pointers from outside a removed entity to it
// (a demo neighbour's interface) are cleared by the runtime when it goes
// and are not restored.
//
// Event-loop thread only.
#pragma once

#include <memory>
#include <vector>

#include <Vek/Vek.h>

#include <gnmi/gnmi.pb.h>

#include "ModelSource.h"

namespace VekGnmi::Server {

// Makes the array (leaf list) `attr` of `entity` hold exactly `elements`:
// every element removed, last first, then each new one at its index. Throws
// the runtime's refusal.
void writeArray(Vek::Entity& entity, const Vek::VekAttr& attr, const std::vector<Vek::Ptr<Vek::GenericIf>>& elements);

class SetUndo {
 public:
  SetUndo(ModelSchema& schema, const ModelSource& source);
  ~SetUndo();
  SetUndo(const SetUndo&) = delete;
  SetUndo& operator=(const SetUndo&) = delete;

  // Records what the library's Set `request` (prefix: `entity`, paths
  // below it) writes: the first attribute (or member) of each path.
  void record(const Vek::Ptr<Vek::Entity>& entity, const gnmi::SetRequest& request);
  // Records what `attr` of `entity` holds (the member at `key` of a
  // collection).
  void recordValue(const Vek::Ptr<Vek::Entity>& entity, const Vek::VekAttr& attr, const Vek::Ptr<Vek::GenericIf>& key);
  // Records every element of the array (leaf list) `attr` of `entity`.
  void recordArray(const Vek::Ptr<Vek::Entity>& entity, const Vek::VekAttr& attr);
  // Records that an entity has been made at `attr` (and `key`) of `owner`.
  void recordCreated(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr, const Vek::Ptr<Vek::GenericIf>& key);
  // Records the entity at `attr` (and `key`) of `owner`, and all it owns,
  // before it is removed.
  void recordRemoved(const Vek::Ptr<Vek::Entity>& owner, const Vek::VekAttr& attr, const Vek::Ptr<Vek::GenericIf>& key);

  // Undoes everything recorded, newest first; returns how many records it
  // undid. A write the runtime refuses is left out (and traced).
  size_t restore();

 private:
  struct Snapshot;
  struct Record;

  ModelSchema& schema_;
  const ModelSource& source_;
  std::vector<Record> records_;
};

}  // namespace VekGnmi::Server
