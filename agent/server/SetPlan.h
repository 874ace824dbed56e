// Set requests checked completely and planned before anything changes.
//
// A SetRequest becomes a list of steps in gNMI's order: the deletes, then
// the replaces, then the updates, each in request order. Planning reads the
// schema only (and the directories of the tree, which requests do not
// change): every path is normalized by the model (module names, canonical
// key values), resolved through the schema and its keys checked; every
// value is converted and checked against its leaf (ModelSource::setValue:
// type, range, length, pattern, enumeration, identity base); state and keys
// are refused. So a request with one bad operation anywhere is refused with
// that operation's status and nothing of it is applied, not even for a
// moment.
//
// What each operation becomes:
//   delete P          Delete(P). P may name a leaf (unset; a demo scalar
//                     goes back to its default), a leaf-list, a list member,
//                     a container or a whole list (every member), a
//                     directory (everything under it). A key leaf is
//                     refused: delete its entry instead.
//   update P = leaf   Ensure(P's entities), Write(P): a list member or
//                     container on the way that does not exist is made,
//                     keys from the path.
//   update P = JSON   the subtree merged in: Ensure for each entity of the
//   object or array   value (list entries are objects holding their keys),
//                     Write for each leaf; the members of the value must
//                     exist in the schema (INVALID_ARGUMENT otherwise) and
//                     keys in an entry's object must equal the path's.
//   replace P = ...   the same, after Clear(P) for a container or member
//                     (its configuration goes: config leaves, leaf-lists,
//                     lists, presence containers; not its state or keys) or
//                     Prune(P) for a whole list (the entries the value does
//                     not list go), so that P holds exactly the value.
// A later Delete, Clear or Prune drops the earlier steps below its path
// (a second replace of a subtree overrides the first); SetApply.h applies
// the structural steps first, then the writes, all or nothing.
//
// Statuses (each message starts with the operation, "update 1: ..."):
//   INVALID_ARGUMENT  a malformed path (wildcards, a key the list does not
//                     have, a key value that is no value of its key, keys on
//                     what is no list), a value that is no value of its leaf
//                     (with the restriction it breaks), a JSON value nested
//                     deeper than MAX_JSON_DEPTH, a scalar for a subtree or a
//                     subtree for a leaf, state or key leaves written or
//                     deleted;
//   NOT_FOUND         a path the schema does not have (an update or
//                     replace of a path that is not valid);
//   UNIMPLEMENTED     union_replace.
//
// Event-loop thread only.
#pragma once

#include <string>
#include <vector>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include "ModelSource.h"

namespace VekGnmi::Server {

// What a Set path names.
enum class SetTarget {
  Directory,    // a directory of the tree (or the root)
  Entity,       // a container or list member (an entity, or a directory's child)
  List,         // a whole list: a collection of entities or of values
  ValueMember,  // a member of a collection of values (the demo's addresses[k])
  Composite,    // a value with fields (the demo's counters)
  Leaf,         // a leaf or leaf-list
};

struct SetStep {
  enum class Kind {
    Ensure,  // make the entities of `path` exist, and a member of a collection of values at its end
    Delete,  // remove what `path` names
    Clear,   // remove the configuration under the entity at `path`
    Prune,   // remove the members of the list at `path` but those in `keep`
    Write,   // write the leaf at `path`
  };
  Kind kind = Kind::Write;
  SetTarget target = SetTarget::Leaf;  // what `path` names
  gnmi::Path path;                    // in the model's names, prefix joined
  int entityElems = 0;                // Ensure, Write: the elements of `path` that name directories and entities
  std::vector<gnmi::PathElem> keep;   // Prune: the members kept
  LeafInfo leaf;                      // Write
  SetValue value;                     // Write
  bool replace = false;               // Write: part of a replace
  std::string op;                     // the operation, for messages: "replace 0"
};

struct SetPlan {
  std::vector<SetStep> steps;
};

// Checks and plans `request` against `source`'s schema and tree.
grpc::Status planSet(ModelSource& source, const gnmi::SetRequest& request, SetPlan& out);

}  // namespace VekGnmi::Server
