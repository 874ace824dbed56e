// Applies a planned Set (SetPlan.h) to the model, all or nothing.
//
// First the structural steps, in order, each change recorded in SetUndo
// before it is made:
//   Ensure   list members and containers on the path that do not exist are
//            made (keys from the path; ModelSource::entityCreated completes
//            them: a YANG entry gets its key leaves and its non-presence
//            containers); so is a missing member of a collection of values
//            (with the member type's defaults);
//   Delete   a list member or removable container goes with everything it
//            owns; a container that exists with its parent (a YANG
//            non-presence container, a directory's child) and a directory
//            are emptied instead; a whole list loses every member; a leaf
//            is unset (a leaf the model always holds, the demo's, goes
//            back to its default; a field of a value, to the field's);
//            nothing is an error when it does not exist;
//   Clear    the entity's configuration goes (ModelSource::clearable: config
//            leaves, leaf-lists, lists, removable containers, emptied
//            non-presence containers), its keys and state stay;
//   Prune    the list's members not kept go.
// Then the leaf writes, in order. For a model whose leaves the library
// writes (the demo device), they are grouped into one library Set per
// entity (Ostrel::VekGnmiSet::Set, whose behaviour is its own: it never
// makes or removes members, which is why the steps above are the agent's),
// all prepared before any commits. For a model whose leaves the agent
// writes (YANG: the library's Set converts builtin kinds only and cannot
// set a leaf that is unset), each leaf is written through the runtime.
//
// A refusal anywhere undoes everything recorded (SetUndo), so the request
// changes nothing in the end. Statuses: a library Set that does not prepare
// answers as the library does; a write the runtime refuses (the demo's MTU
// range, at a commit or at a write of the agent's) is INVALID_ARGUMENT with
// the device's reason (the library gives such a refusal NOT_FOUND, "Error
// in finding path ...", which the agent does not pass on); a member the
// device refuses to make or remove, likewise.
//
// Event-loop thread only.
#pragma once

#include <grpcpp/support/status.h>

#include <Vek/Vek.h>

#include "LibraryBridge.h"
#include "ModelSource.h"
#include "SetPlan.h"

namespace VekGnmi::Server {

// Applies `plan` to `source`'s model, writing leaves through `bridge` (the
// library's Set) when the source does not write them itself.
grpc::Status applySet(const SetPlan& plan, ModelSource& source, LibraryBridge& bridge);

}  // namespace VekGnmi::Server
