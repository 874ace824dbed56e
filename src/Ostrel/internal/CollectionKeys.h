// How the keys of the members of one collection attribute are named, worked
// out once per attribute: a walk names the key of every member the same way,
// and attributes never change once their type is sealed. Private to the
// library: `OSTREL_EXPORT` only lets the library's own tests reach it.
#pragma once

#include <string>

#include <gnmi/gnmi.pb.h>

#include <Vek/Vek.h>

#include "Ostrel/Export.h"

namespace Ostrel::CollectionKeys {

struct Naming {
  // The members carry their key in an attribute they declare (the
  // collection's key attribute name names an attribute of the member type).
  bool declared = false;
  // The element under which such a declared key is published, when the
  // index attribute asks for it (its lowest flag bit); empty otherwise.
  std::string indexName;
  // "<collection>Key": the generated key element of a key that is not one
  // simple scalar.
  std::string generatedName;
  // The one-element path naming a scalar key when no key element is
  // generated: the members' declared key attribute, else the collection.
  gnmi::Path partName;
};

// The naming of the keys of the collection `attr`, made on first use and
// kept for the life of the process. Single-threaded, like every walk.
OSTREL_EXPORT const Naming& of(const Vek::VekAttr& attr);

}  // namespace Ostrel::CollectionKeys
