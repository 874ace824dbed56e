// Helpers shared by every producer of notifications: stamping a notification
// with its time, appending updates and deletes, finding the time at which an
// attribute last changed, turning the agent's request kind into walker flags,
// and joining strings. They keep no state and take no locks.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include <Vek/Vek.h>
#include <gnmi/gnmi.pb.h>

#include "Ostrel/Export.h"
#include "Ostrel/Types.h"

namespace Ostrel {
class GifGnmiNotifiee;
}

namespace Ostrel::VekGnmiUtils {

// Sets the notification's timestamp to `timestamp`, nothing else.
OSTREL_EXPORT void populateTimestamp(gnmi::Notification& notification, Timestamp timestamp);

// Without a target: appends an update to `notification`, copies `path` into
// it and stores `value` into the update's value through `setter`, e.g.
//
//   pushUpdate(path, notification, uint64_t{7}, &gnmi::TypedValue::set_uint_val);
//   pushUpdate(path, notification, name,
//              &gnmi::TypedValue::set_string_val<const std::string&>);
//
// With a target: only calls the setter on `target`; notification and path are
// not touched (notification may then be null). This fills a value that the
// caller has already placed, such as an element of a leaf list.
template <typename Value, typename Arg>
void pushUpdate(const gnmi::Path& path, gnmi::Notification* notification, Value&& value,
                void (gnmi::TypedValue::*setter)(Arg), gnmi::TypedValue* target = nullptr) {
  if (target == nullptr) {
    gnmi::Update* update = notification->add_update();
    update->mutable_path()->CopyFrom(path);
    target = update->mutable_val();
  }
  (target->*setter)(std::forward<Value>(value));
}

// Appends a copy of `path` to the notification's delete list.
OSTREL_EXPORT void pushDelete(gnmi::Notification& notification, const gnmi::Path& path);

// The time at which the attribute `attrName` of the notifiee's entity (with
// `key`: its collection member at *key) last changed, or 0 when none is
// recorded; a caller publishes such a value with timestamp 0. A null notifiee
// is a failed assertion of `gifNotifiee`, which ends the process.
OSTREL_EXPORT Timestamp getTimestamp(const char* attrName, GifGnmiNotifiee* gifNotifiee,
                                     const Vek::Ptr<Vek::GenericIf const>* key);

// Walker flags for a request kind: 0 gives 2, 1 gives 4, 2 gives 6 (both
// bits). Any other value is fatal ("Unrecognized request type:<n>").
OSTREL_EXPORT WalkerFlags requestTypeToFlags(RequestType requestType);

// The parts joined by `separator`: "" for no parts, the part itself for one,
// no separator before the first or after the last; empty parts are kept
// ({"", ""} joined with "," is ",").
OSTREL_EXPORT std::string stringVecJoin(std::vector<std::string> parts,
                                        const std::string& separator);

}  // namespace Ostrel::VekGnmiUtils
