// Pointer resolution: pointers are published as the path text of their
// targets, syncing an unpublished target's nearest published ancestor first.
#include "Ostrel/PtrResolution.h"

#include <Vek/Format.h>
#include <Zolt/Zolt.h>

#include "Ostrel/GifNotifiee.h"
#include "Ostrel/Path.h"
#include "Ostrel/VekGnmiUtils.h"
#include "Ostrel/VekTypeWalker.h"
#include "internal/PlainAssert.h"

namespace Ostrel {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelPtrResolution");
constexpr const char* COMPONENT = "PtrResolution";
constexpr const char* NULL_TEXT = "nullptr";

// A forward sync publishes nothing (pushes suppressed, results ignored): it
// only registers the entities below the ancestor under their paths.
constexpr WalkerFlags FORWARD_SYNC_FLAGS =
    WalkerFlags::SuppressPush | WalkerFlags::RequestKindBit1 | WalkerFlags::IgnorePushResult;

std::string pathText(const gnmi::Path& path) { return pathToStr(path, 0, true); }

// Set while a forward sync runs. Its messages are suppressed, so the pointers
// it meets need no resolution, and resolving them would start forward syncs
// of their own: two entities pointing at each other, both unpublished, would
// sync their parent forever.
bool inForwardSync = false;

void forwardSync(const Vek::Entity* ancestor, const gnmi::Path& path, BaseRouter& router) {
  inForwardSync = true;
  FullVekTypeWalker::syncObject(ancestor, path, router, {SyncId(), WalkId()}, FORWARD_SYNC_FLAGS);
  inForwardSync = false;
}

}  // namespace

std::string getPtrPathStr(const Vek::Ptr<Vek::GenericIf const>& ptr, BaseRouter& router) {
  if (!ptr || !ptr->isEntity()) return NULL_TEXT;
  const auto* target = static_cast<const Vek::Entity*>(ptr.ptr());
  const Vek::PtrInterface* key = target;
  if (const auto it = notifieePathMap.find(key); it != notifieePathMap.end() && !target->isOrphan()) {
    return pathText(it->second);
  }
  if (inForwardSync) return NULL_TEXT;
  ZOLT_TRACE(dbg, 1, COMPONENT, "Forward reference for {} is not present", target->fullName());
  // An entity that has left the model, or is leaving it (its owner reports
  // the pointers and keys that name it while it does), is no longer reached
  // from its owner: no sync can publish it, so it has no path to give.
  if (target->hasLeft()) return NULL_TEXT;
  // The ancestor visited before the current one (the target at first); its
  // owner, the current ancestor, keeps it alive.
  const Vek::Entity* below = target;
  for (Vek::Ptr<Vek::Entity> ancestor = target->parent();;
       below = ancestor.ptr(), ancestor = ancestor->parent()) {
    if (!ancestor) return NULL_TEXT;
    const Vek::PtrInterface* ancestorKey = ancestor.ptr();
    if (const auto it = notifieePathMap.find(ancestorKey); it != notifieePathMap.end()) {
      const gnmi::Path path = it->second;
      ZOLT_TRACE(dbg, 1, COMPONENT, "Found a good parent {}", pathText(path));
      forwardSync(ancestor.ptr(), path, router);
      break;
    }
    if (ancestor->type()->baseType() == Vek::Dir::dirType()) {
      const gnmi::Path path = strToPath(ancestor->fullName());
      if (path.elem_size() > 0) {
        forwardSync(ancestor.ptr(), path, router);
      } else {
        // The unnamed root directory has no path to be published at: its
        // notifiee would take its path from its text form, entity(''), which
        // names nothing. Its sync would publish the entity below it at that
        // entity's full name, so that entity is synced there instead.
        forwardSync(below, strToPath(below->fullName()), router);
      }
      break;
    }
  }
  const auto iter = notifieePathMap.find(key);
  OSTREL_PLAIN_ASSERT(iter != notifieePathMap.end());
  return pathText(iter->second);
}

ArenaRespMsgPtr objPtrToPath(const Vek::Ptr<Vek::GenericIf const>& ptr, const gnmi::Path& prefix,
                             const gnmi::Path& leaf, Timestamp timestamp, BaseRouter& router) {
  auto [msg, notification] = ArenaRespMsg::createResponse(prefix, timestamp);
  std::string text = getPtrPathStr(ptr, router);
  gnmi::Update* update = notification->add_update();
  gnmi::Path* path = update->mutable_path();
  *path = leaf;
  if (path->elem_size() > 0) {
    gnmi::PathElem* last = path->mutable_elem(path->elem_size() - 1);
    last->set_name(last->name() + "_ptr");
  }
  update->mutable_val()->set_string_val(std::move(text));
  return std::move(msg);
}

}  // namespace Ostrel
