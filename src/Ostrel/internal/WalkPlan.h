// How the full type walker publishes the attributes of a type, decided once
// per type from the attributes' flags and storage, so that a walk of a
// million members does not ask every attribute the same questions a million
// times. Private to the library: `OSTREL_EXPORT` only lets the library's own
// tests reach it.
#pragma once

#include <cstdint>
#include <vector>

#include <Vek/Vek.h>

#include "Ostrel/Export.h"

namespace Ostrel::WalkPlan {

// The way one attribute is published.
enum class Way : uint8_t {
  Skip,          // not data: the runtime's collection bookkeeping, or the
                 // name of an entity whose name is not data
  JsonText,      // the attribute's JSON text, as one value
  Collection,    // member by member, each in a message of its own
  Array,         // one leaf list, in a message of its own
  StoredScalar,  // a builtin or enumeration read in place from its owner
  OwnedChild,    // an owned entity, synced at its own prefix
  Pointer,       // the target's path text, in a message of its own
  Value,         // read as a value: a scalar with a text form of its own,
                 // or a nested value walked by a child walker
};

struct Step {
  Vek::VekAttr attr;
  Way way = Way::Skip;
  // The attribute pushes messages of its own (collections, arrays, pointers,
  // owned entities): the leaves held so far go out before it.
  bool flushesFirst = false;
  // A value stored in its owner (`Way::Value`): read through a view of the
  // stored value rather than a copy.
  bool storedValue = false;
};

struct TypePlan {
  // One step per attribute, in the type's attribute order (the position of
  // an attribute cursor indexes it).
  std::vector<Step> steps;
  // The arrays and collections, whose times the walk set-up seeds.
  std::vector<Vek::VekAttr> timestamped;
};

// The plan of `type`, made on first use and kept for the life of the process
// (type descriptors never change once sealed). Single-threaded, like every
// walk.
OSTREL_EXPORT const TypePlan& of(const Vek::VekType& type);

// Whether `attr` is a builtin or enumeration stored in its owner (or an
// entity's name), which a walk reads in place instead of through a value
// handle: most leaves of a model are such attributes.
OSTREL_EXPORT bool isStoredScalar(const Vek::VekAttr& attr);

}  // namespace Ostrel::WalkPlan
