// Private helpers shared by the Set side's files: element resolution
// (ElemResolution.cpp), value conversion (ValueConversion.cpp) and the
// staging tree (AttrTree.cpp).
#pragma once

#include <cstdint>
#include <string>

#include <grpcpp/support/status.h>

#include <gnmi/gnmi.pb.h>

#include <Vek/Vek.h>

#include "AttrTree.h"

namespace Ostrel::VekGnmiSet::AttrTree {

// The status codes of the tree's errors.
inline constexpr int32_t NOT_FOUND = grpc::StatusCode::NOT_FOUND;
inline constexpr int32_t INVALID_ARGUMENT = grpc::StatusCode::INVALID_ARGUMENT;

// An error with `code` at the one element `elem`.
inline Error errorAt(int32_t code, const gnmi::PathElem& elem, std::string message) {
  Error error;
  error.code = code;
  error.path.push_back(elem);
  error.message = std::move(message);
  return error;
}

// A value type with attributes of its own: staged as a composite whose
// attributes are set one by one. Builtins, enumerations and attribute-less
// values are plain leaves.
inline bool isComposite(const Vek::VekType& type) { return type->isValue() && type->attrCount() > 0; }

}  // namespace Ostrel::VekGnmiSet::AttrTree
