// Pointer resolution: an attribute that points at another entity is published
// as the path of that entity, in text form.
//
//   /devices/dev1/interfaces[name=eth0]  peer_ptr = "/devices/dev1/interfaces[name=eth1]"
//
// A pointer may be published before its target (a forward reference); the
// nearest published ancestor of the target is then synced first (silently:
// its messages are suppressed), which registers the target under its path.
#pragma once

#include <string>

#include <Vek/Vek.h>
#include <gnmi/gnmi.pb.h>

#include "Ostrel/ArenaRespMsg.h"
#include "Ostrel/BaseRouter.h"
#include "Ostrel/Export.h"
#include "Ostrel/Types.h"

namespace Ostrel {

// The published path text of the entity `ptr` points at: "nullptr" for a null
// pointer or a target none of whose ancestors is published or a directory;
// else the text of the target's registered path, syncing its nearest
// published (or directory) ancestor first when the target is not registered
// or has left the model. Fatal (a failed assertion) when that sync did not
// register the target.
OSTREL_EXPORT std::string getPtrPathStr(const Vek::Ptr<Vek::GenericIf const>& ptr, BaseRouter& router);

// A new message for `prefix` stamped `timestamp`, holding one update: at
// `leaf` with "_ptr" appended to its last element's name, the path text of
// the entity `ptr` points at as `string_val`.
OSTREL_EXPORT ArenaRespMsgPtr objPtrToPath(const Vek::Ptr<Vek::GenericIf const>& ptr,
                                           const gnmi::Path& prefix, const gnmi::Path& leaf,
                                           Timestamp timestamp, BaseRouter& router);

}  // namespace Ostrel
