// Private helpers shared by the walker's files: value extraction
// (ValueExtraction.cpp), the full type walker (VekTypeWalker.cpp), the walk
// set-up (WalkSetUp.cpp), the walk registry (WalkRegistry.cpp) and the change
// walker (VekTypeNotifWalker.cpp). What they share beyond this: the plan of
// each type's attributes (WalkPlan.h), the naming of collection keys
// (CollectionKeys.h) and update paths written into messages (UpdatePaths.h).
#pragma once

#include <cstdint>
#include <string>

#include <Vek/Vek.h>
#include <Zolt/Zolt.h>
#include <gnmi/gnmi.pb.h>

#include "Ostrel/Export.h"
#include "Ostrel/Types.h"
#include "Ostrel/VekKey.h"

namespace Ostrel::WalkerSupport {

// The trace handle of every walker file ("OstrelWalker") and the components
// they trace under.
Zolt::Debuggable& debug();
inline constexpr const char* COMPONENT = "FullVekTypeWalker";
inline constexpr const char* NOTIF_COMPONENT = "VekTypeNotifWalker";

// The path text of a pointer that cannot be resolved (see PtrResolution.h).
inline constexpr const char* NULL_POINTER_TEXT = "nullptr";

// The key of walkers that walk no collection member (top walkers): read,
// never written.
VekKey& noKey();
// A key that collects nothing: extractors given it emit updates.
VekKey& plainKey();

// The runtime's UTC time in nanoseconds.
Timestamp nowUtc();

// Whether `type` is an entity type (kind code 0 of its descriptor).
inline bool isEntityType(const Vek::VekType& type) { return type->kindCode() == 0; }

// `gif` as an entity, or null when it is none.
inline const Vek::Entity* asEntity(const Vek::GenericIf* gif) {
  return gif && gif->isEntity() ? static_cast<const Vek::Entity*>(gif) : nullptr;
}

// Directories publish their children by name, as they are addressed
// (/devices/dev1), not as keyed members of their `entityPtr` collection.
inline bool isDirectoryCollection(const Vek::VekAttr& attr) { return attr == Vek::Dir::entityPtrAttr(); }

// Walkers queued so far (by the registry's addToWalkQ): a walk tells from it
// whether any of its children paused.
extern uint64_t queuedWalkers;

// Emits the stored scalar `attr` of `owner` (see `WalkPlan::isStoredScalar`)
// as an update at `path` plus the attribute's name, as extractScalar would
// emit the value that reading it yields at that path.
// Exported only for the library's own tests.
OSTREL_EXPORT void extractStoredScalar(gnmi::Notification* notification, const Vek::GenericIf& owner,
                                       const Vek::VekAttr& attr, const gnmi::Path& path);

// Appends an element named `name` to `path` for the life of the scope.
class ScopedElem {
 public:
  ScopedElem(gnmi::Path& path, const std::string& name) : path_(path) {
    path_.add_elem()->set_name(name);
  }
  ~ScopedElem() { path_.mutable_elem()->RemoveLast(); }
  ScopedElem(const ScopedElem&) = delete;
  ScopedElem& operator=(const ScopedElem&) = delete;

 private:
  gnmi::Path& path_;
};

}  // namespace Ostrel::WalkerSupport
