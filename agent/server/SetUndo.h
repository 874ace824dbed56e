// Undo of a Set applied across entities.
//
// The library's Set checks what it can when it prepares, but the runtime's
// attribute checks (an MTU's range, a description's length, a state
// attribute refusing clients) run only when a commit writes: a value
// refused there stops that entity's commit, and the entities committed
// before it stay written. To keep a request all or nothing, the agent
// records, before the first commit, the value that each operation's
// attribute (or collection member) holds; when a commit fails it writes
// back, newest first, every recorded value that differs from what the model
// then holds. Subscribers see those writes as changes: the values a failed
// request set, then the old values again.
//
// Event-loop thread only.
#pragma once

#include <string>
#include <vector>

#include <Vek/Vek.h>

#include "Requests.h"

namespace VekGnmi::Server {

class SetUndo {
 public:
  explicit SetUndo(ModelSchema& schema) : schema_(schema) {}

  // Records the current values of everything `set`'s operations write.
  void record(const EntitySet& set);
  // Writes back the recorded values that changed; returns how many it wrote
  // back. A write the runtime refuses is left out (and traced).
  size_t restore();

 private:
  struct Saved {
    Vek::Ptr<Vek::Entity> entity;
    Vek::VekAttr attr;
    Vek::Ptr<Vek::GenericIf> key;    // the member's key, for a collection
    Vek::Ptr<Vek::GenericIf> value;  // a copy of the value before the Set
  };
  void recordOne(const Vek::Ptr<Vek::Entity>& entity, const gnmi::PathElem& elem);

  ModelSchema& schema_;
  std::vector<Saved> saved_;
};

}  // namespace VekGnmi::Server
