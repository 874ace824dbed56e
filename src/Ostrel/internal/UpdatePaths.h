// Update paths written straight into the message being built.
//
// Every published leaf needs its path in its update. A general message copy
// (`CopyFrom`) of the walker's scratch path costs more than the path itself:
// it clears, merges every field and every element's key map. These helpers
// write the elements (names, and keys where there are any) one by one into
// the update, on the message's arena. Private to the library: `OSTREL_EXPORT`
// only lets the library's own tests reach it.
#pragma once

#include <string>

#include <gnmi/gnmi.pb.h>

#include "Ostrel/Export.h"

namespace Ostrel::UpdatePaths {

// Appends the elements of `from` (names and keys) to `to`. A path that
// carries an origin, a target or the old string elements is copied whole
// instead (`to` must then be empty), so that nothing of it is lost.
OSTREL_EXPORT void append(const gnmi::Path& from, gnmi::Path* to);

// Appends a new update to `notification` whose path is `path` followed, when
// `leaf` is given, by one element named `leaf`; returns the update's value.
OSTREL_EXPORT gnmi::TypedValue* addUpdate(gnmi::Notification& notification, const gnmi::Path& path,
                                          const std::string* leaf = nullptr);

}  // namespace Ostrel::UpdatePaths
