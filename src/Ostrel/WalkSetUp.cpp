// The walk set-up: before an entity is walked, it gets its change notifiee
// (registered under its path) and the times of its collection members and
// arrays are seeded.
#include "Ostrel/VekTypeWalker.h"

#include <Vek/Format.h>

#include "Ostrel/GifNotifiee.h"
#include "Ostrel/TimeStamps.h"
#include "internal/WalkPlan.h"
#include "internal/WalkerSupport.h"

namespace Ostrel {

using namespace WalkerSupport;

namespace {
Zolt::Debuggable& dbg = WalkerSupport::debug();
}  // namespace

void FullVekTypeWalker::setUpWalk(const Vek::Ptr<Vek::GenericIf const>& gif, Vek::VekType type,
                                  const Vek::PtrInterface* obj, const gnmi::Path& prefix,
                                  BaseRouter& router, WalkerFlags flags, Timestamp timeStampToUse) {
  setUpWalkFor(gif, type, obj, prefix, router, flags, timeStampToUse);
}

GifGnmiNotifiee* FullVekTypeWalker::setUpWalkFor(const Vek::Ptr<Vek::GenericIf const>& gif,
                                                 Vek::VekType type, const Vek::PtrInterface* obj,
                                                 const gnmi::Path& prefix, BaseRouter& router,
                                                 WalkerFlags flags, Timestamp timeStampToUse) {
  auto it = gNmiNotifieeMap.find(prefix);
  if (it != gNmiNotifieeMap.end() && it->second && it->second->entity() != obj) {
    // The path is held by the notifiee of an entity that left the model but
    // is still held by someone: the path belongs to this entity now. The old
    // notifiee is retired without hearing more.
    Vek::Ptr<GifGnmiNotifiee> stale = it->second;
    stale->isRegisteredNotifieeIs(false);
    const auto pathIt = notifieePathMap.find(stale->entity());
    if (pathIt != notifieePathMap.end() && pathIt->second == prefix) notifieePathMap.erase(pathIt);
    objTsMap().erase(stale.ptr());
    gNmiNotifieeMap.erase(it);
    it = gNmiNotifieeMap.end();
  }
  if (it == gNmiNotifieeMap.end()) {
    // Registered by its constructor; the registry owns it.
    new GifGnmiNotifiee(obj, prefix, router, false, hasAny(flags, WalkerFlags::NotifieeOption));
    it = gNmiNotifieeMap.find(prefix);
  }
  GifGnmiNotifiee* notifiee = it->second.ptr();
  const auto tableIt = objTsMap().find(notifiee);
  if (tableIt == objTsMap().end()) ZOLT_FMASSERT(dbg, COMPONENT, "timestamp not found for {}", prefix);
  TimestampTable& table = tableIt->second;
  if (timeStampToUse == 0) timeStampToUse = nowUtc();
  for (const Vek::VekAttr& attr : WalkPlan::of(type).timestamped) {
    if (attr->isArray()) {
      TimeStampUtils::seedTs(table, TSKey(attr->id(), nullptr), timeStampToUse);
    } else if (attr->isCollection()) {
      for (Vek::CollectionIterator member = attr.genericIfIteratorConst(gif); member; ++member) {
        TimeStampUtils::seedTs(table, TSKey(attr->id(), member.key()), timeStampToUse);
      }
    }
  }
  return notifiee;
}

}  // namespace Ostrel
