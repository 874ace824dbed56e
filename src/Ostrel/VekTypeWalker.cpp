// The full type walker: publishes an entity tree as notifications, pausing
// and resuming at the attribute or collection member where it stopped.
#include "Ostrel/VekTypeWalker.h"

#include <Vek/Format.h>

#include "Ostrel/GifNotifiee.h"
#include "Ostrel/PtrResolution.h"
#include "Ostrel/TimeStamps.h"
#include "Ostrel/VekGnmiUtils.h"
#include "internal/PlainAssert.h"
#include "internal/WalkPlan.h"
#include "internal/WalkerSupport.h"

namespace Ostrel {

using namespace WalkerSupport;

namespace {
Zolt::Debuggable& dbg = WalkerSupport::debug();
}  // namespace

BaseRouter::~BaseRouter() = default;

Vek::Seconds FullVekTypeWalker::SYNCQUANTUM = 0.1;

FullVekTypeWalker::FullVekTypeWalker(gnmi::Path prefixPath, ArenaRespMsgPtr updateMsg,
                                     Vek::Ptr<Vek::GenericIf const> gif, gnmi::Path leafPath,
                                     Vek::VekType objType, BaseRouter& router, SyncWalkId ids,
                                     WalkerFlags flags, VekKey& keyName, Timestamp timestamp)
    : prefixPath_(std::move(prefixPath)),
      leafPath_(std::move(leafPath)),
      router_(router),
      syncId_(ids.first),
      walkId_(ids.second),
      flags_(flags),
      keyName_(&keyName) {
  aimAt(std::move(gif), objType, std::move(updateMsg), keyName, timestamp);
}

FullVekTypeWalker::FullVekTypeWalker(FullVekTypeWalker&& other) noexcept
    : prefixPath_(std::move(other.prefixPath_)),
      updateMsg_(std::move(other.updateMsg_)),
      leafPath_(std::move(other.leafPath_)),
      objType_(other.objType_),
      gif_(std::move(other.gif_)),
      router_(other.router_),
      syncId_(other.syncId_),
      walkId_(other.walkId_),
      flags_(other.flags_),
      keyName_(other.keyName_),
      timeStamp_(other.timeStamp_),
      savedAttr_(other.savedAttr_),
      savedMember_(std::move(other.savedMember_)),
      resuming_(other.resuming_),
      inCollection_(other.inCollection_),
      ownMsg_(std::move(other.ownMsg_)),
      ownedWalker_(std::move(other.ownedWalker_)),
      valueWalker_(std::move(other.valueWalker_)) {}

void FullVekTypeWalker::aimAt(Vek::Ptr<Vek::GenericIf const> gif, Vek::VekType type,
                              ArenaRespMsgPtr updateMsg, VekKey& keyName, Timestamp timestamp) {
  updateMsg_ = std::move(updateMsg);
  objType_ = type;
  gif_ = std::move(gif);
  keyName_ = &keyName;
  timeStamp_ = timestamp;
  savedAttr_ = Vek::VekTypeBase::AttributeQIterator();
  savedMember_ = Vek::CollectionIterator();
  resuming_ = false;
  inCollection_ = false;
  ownMsg_.reset();
  notifiee_ = nullptr;
}

void FullVekTypeWalker::letGo() {
  gif_ = nullptr;
  updateMsg_.reset();
}

std::unique_ptr<FullVekTypeWalker> FullVekTypeWalker::spare() const {
  return std::make_unique<FullVekTypeWalker>(gnmi::Path(), nullptr, nullptr, gnmi::Path(), Vek::VekType(),
                                             router_, SyncWalkId{syncId_, walkId_}, flags_, noKey(), 0);
}

FullVekTypeWalker::~FullVekTypeWalker() = default;

std::string FullVekTypeWalker::debugString() const {
  return fmt::format("FullVekTypeWalker( prefix:{} leaf:{} syncId:{} walkId:{} flags:{})",
                     prefixPath_, leafPath_, syncId_, walkId_, flags_);
}

WalkResult FullVekTypeWalker::syncObject(const Vek::PtrInterface* obj, gnmi::Path prefix,
                                         BaseRouter& router, SyncWalkId ids, WalkerFlags flags) {
  staticWalkStartMap[ids.second] = Vek::System::currentTime();
  WalkResult result = syncObjectInternal(obj, std::move(prefix), router, ids, flags, 0, nullptr);
  // A final push that was refused or ended the slice leaves nothing to
  // resume: the sync is done, every message is with the router.
  if (result != WalkResult::Done && !staticWalkMap.contains(ids.second)) result = WalkResult::Done;
  if (result == WalkResult::Done) staticWalkStartMap.erase(ids.second);
  return result;
}

WalkResult FullVekTypeWalker::syncObjectInternal(const Vek::PtrInterface* obj, gnmi::Path prefix,
                                                 BaseRouter& router, SyncWalkId ids,
                                                 WalkerFlags flags, Timestamp timeStampToUse,
                                                 VekKey* key) {
  FullVekTypeWalker walker(gnmi::Path(), nullptr, nullptr, gnmi::Path(), Vek::VekType(), router, ids, flags,
                           noKey(), 0);
  return syncEntity(obj, prefix, walker, timeStampToUse, key);
}

WalkResult FullVekTypeWalker::syncEntity(const Vek::PtrInterface* obj, gnmi::Path& prefix,
                                         FullVekTypeWalker& walker, Timestamp timeStampToUse, VekKey* key) {
  if (!obj) ZOLT_FMASSERT(dbg, COMPONENT, "cannot sync a nullptr");
  const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(obj);
  const Vek::VekType type = gif->type();
  ZOLT_TRACE(dbg, 5, COMPONENT, "prefixPath:{} syncWalkId:{} flags:{} timeStampToUse:{} type:{}",
             prefix, SyncWalkId(walker.syncId_, walker.walkId_), walker.flags_, timeStampToUse, type);
  if (type->baseType() == Vek::Dir::Entry::entryType()) {
    ZOLT_TRACE(dbg, 5, COMPONENT, "skipping walk of Vek::Dir::Entry");
    return WalkResult::Done;
  }
  // Nothing is published from an entity that has left the model.
  if (const auto* entity = asEntity(gif.ptr()); entity && entity->hasLeft()) return WalkResult::Done;
  GifGnmiNotifiee* notifiee =
      setUpWalkFor(gif, type, obj, prefix, walker.router_, walker.flags_, timeStampToUse);
  ZOLT_TRACE(dbg, 9, COMPONENT, "construct FullVekTypeWalker with prefixPath:{}", prefix);
  walker.prefixPath_ = std::move(prefix);
  walker.aimAt(gif, type, nullptr, noKey(), 0);
  walker.notifiee_ = notifiee;
  const WalkResult result = walker.walk(key);
  // Given back, unless the walker paused and took it to the walk queue.
  prefix = std::move(walker.prefixPath_);
  walker.letGo();
  return result;
}

std::pair<gnmi::Notification*, ArenaRespMsgPtr> FullVekTypeWalker::createResponse(
    ArenaRespMsgPtr& msg, VekKey* key, Timestamp timestamp) const {
  bool fresh = false;
  gnmi::Notification* notification = notificationIn(msg, timestamp, &fresh);
  if (key && fresh && !key->scalars().empty()) key->copyScalars(*notification);
  return {notification, msg};
}

gnmi::Notification* FullVekTypeWalker::notificationIn(ArenaRespMsgPtr& msg, Timestamp timestamp,
                                                      bool* fresh) const {
  if (!msg) {
    ArenaRespMsg::Created created = ArenaRespMsg::createResponse(prefixPath_, timestamp);
    msg = std::move(created.msg);
    if (fresh) *fresh = true;
    return created.notification;
  }
  if (msg->response->has_update()) return msg->response->mutable_update();
  msg->response->Clear();
  gnmi::Notification* notification = msg->response->mutable_update();
  notification->mutable_prefix()->CopyFrom(prefixPath_);
  VekGnmiUtils::populateTimestamp(*notification, timestamp);
  if (fresh) *fresh = true;
  return notification;
}

WalkResult FullVekTypeWalker::routerPush(const ArenaRespMsgPtr& msg) const {
  if (hasAny(flags_, WalkerFlags::SuppressPush)) return WalkResult::Done;
  const bool accepted = router_.push(syncId_, msg);
  if (!syncId_) return accepted ? WalkResult::Done : WalkResult::RouterFull;
  const auto start = staticWalkStartMap.find(walkId_);
  if (start == staticWalkStartMap.end()) {
    plainAssertFail("staticWalkStartMap.count( walkId_ )", __FILE_NAME__, __LINE__, __PRETTY_FUNCTION__);
  }
  if (Vek::System::currentTime() >= start->second + SYNCQUANTUM) {
    ZOLT_TRACE(dbg, 8, COMPONENT, "QuantaExceeded: syncId:{} walkId:{}", syncId_, walkId_);
    return WalkResult::QuantaExceeded;
  }
  return accepted ? WalkResult::Done : WalkResult::RouterFull;
}

WalkResult FullVekTypeWalker::handleInstantiating(const Vek::Ptr<Vek::GenericIf const>& gif,
                                                  gnmi::Path& path, Timestamp timestamp, VekKey* key) {
  const auto* obj = static_cast<const Vek::PtrInterface*>(gif->voidPtr());
  if (!ownedWalker_) ownedWalker_ = spare();
  return syncEntity(obj, path, *ownedWalker_, timestamp, key);
}

WalkResult FullVekTypeWalker::nextWalker(const Vek::Ptr<Vek::GenericIf const>& attrGif,
                                         const ArenaRespMsgPtr& msg, gnmi::Path& leafPath,
                                         Vek::VekType valueType, VekKey& key, Timestamp timestamp,
                                         VekKey* childKey) {
  ZOLT_TRACE(dbg, 5, COMPONENT,
             "{} attrGif:{} updateMsg:{} leafPath:{} objType:{} keyName:{} constructing "
             "FullVekTypeWalker with prefixPath_:{}",
             *this, attrGif, msg, leafPath, valueType, key, prefixPath_);
  if (timestamp == 0) timestamp = timeStamp_;
  // The child (this walker's spare for nested values) borrows this walker's
  // prefix and the leaf path, and gives them back: it walks a value, whose
  // attributes are scalars and nested values only, so it pushes nothing and
  // never pauses (a pause would move it, and the paths with it, into the
  // walk queue).
  if (!valueWalker_) valueWalker_ = spare();
  FullVekTypeWalker& child = *valueWalker_;
  child.prefixPath_ = std::move(prefixPath_);
  child.leafPath_ = std::move(leafPath);
  child.aimAt(attrGif, valueType, msg, key, timestamp);
  const WalkResult result = child.walk(childKey);
  prefixPath_ = std::move(child.prefixPath_);
  leafPath = std::move(child.leafPath_);
  child.letGo();
  return result;
}

void FullVekTypeWalker::pause() {
  // Leaves are handed over before anything that can pause a walk, so none are
  // held here; should any be, they go out now rather than after the pause,
  // when the model may have changed. The router takes the message whatever
  // it answers; the walk is pausing anyway.
  if (!updateMsg_ && ownMsg_) {
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push id:{} message: {}", prefixPath_, syncId_, ownMsg_);
    const ArenaRespMsgPtr msg = std::move(ownMsg_);
    routerPush(msg);
  }
  auto queued = std::make_unique<FullVekTypeWalker>(std::move(*this));
  queued->resuming_ = true;
  queued->notifiee_ = nullptr;
  addToWalkQ(std::move(queued));
}

WalkResult FullVekTypeWalker::walk(VekKey* key) {
  ZOLT_TRACE(dbg, 9, COMPONENT,
             "Start prefixPath_:{} leafPath_:{} objType_:{} updateMsg_:{} keyName_:{} syncId_:{} "
             "walkId_:{} flags_:{}",
             prefixPath_, leafPath_, objType_, updateMsg_, *keyName_, syncId_, walkId_, flags_);
  if (!gif_) {
    ZOLT_FMASSERT(dbg, COMPONENT,
                  "walk with a gif_ == nullptr! prefixPath_:{} leafPath_:{} objType_:{} flags_:{}",
                  prefixPath_, leafPath_, objType_, flags_);
  }
  if (hasAny(flags_, WalkerFlags::SkipWalk)) {
    ZOLT_TRACE(dbg, 4, COMPONENT, "Skipping walk of {} at:{}", objType_, prefixPath_);
    return WalkResult::Done;
  }
  const auto* entity = asEntity(gif_.ptr());
  if (entity && entity->hasLeft()) return WalkResult::Done;
  // Timestamps are kept per entity; the leaves of nested values travel in
  // their entity's message and take its time.
  Vek::Ptr<GifGnmiNotifiee> notifiee = notifiee_;
  if (!notifiee && isEntityType(objType_)) notifiee = VekGnmiUtils::lookupGnmiNotifieeMap(prefixPath_);

  if (!resuming_) {
    savedAttr_ = Vek::VekTypeBase::AttributeQIterator(objType_);
    // A member entity publishes the parts of its key that no attribute of
    // its own carries, beside its attributes.
    if (key && entity && !key->scalars().empty()) {
      gnmi::Notification* notification = notificationIn(ownMsg_, timeStamp_);
      for (const auto& [name, value] : key->scalars()) {
        if (objType_->attr(name)) continue;
        gnmi::Update* update = notification->add_update();
        update->mutable_path()->add_elem()->set_name(name);
        *update->mutable_val() = value;
      }
    }
  }
  resuming_ = false;
  const uint64_t queuedBefore = queuedWalkers;
  WalkResult childResult = WalkResult::Done;
  const WalkPlan::TypePlan& plan = WalkPlan::of(objType_);

  for (; savedAttr_; ++savedAttr_) {
    const WalkPlan::Step& step = plan.steps[savedAttr_.position()];
    if (step.way == WalkPlan::Way::Skip) continue;
    const Vek::VekAttr& attr = step.attr;
    // Leaves held so far go out before an attribute that pushes messages of
    // its own, so that a walk pushes the same sequence whether it pauses or
    // not, and never holds a value across a pause.
    if (!updateMsg_ && ownMsg_ && step.flushesFirst) {
      ZOLT_TRACE(dbg, 5, COMPONENT, "{} push id:{} message: {}", prefixPath_, syncId_, ownMsg_);
      const ArenaRespMsgPtr held = std::move(ownMsg_);
      const WalkResult result = routerPush(held);
      if (result != WalkResult::Done && !hasAny(flags_, WalkerFlags::IgnorePushResult)) {
        ZOLT_TRACE(dbg, 4, COMPONENT, "Pause walk of prefixPath_:{} leafPath_:{} type:{} at:{}",
                   prefixPath_, leafPath_, objType_, attr);
        pause();  // resumes at this attribute
        return result;
      }
    }
    WalkResult result = WalkResult::Done;
    if (step.way == WalkPlan::Way::JsonText) {
      const ScopedElem elem(leafPath_, attr->name());
      ArenaRespMsgPtr& msg = updateMsg_ ? updateMsg_ : ownMsg_;
      extractGnmiJsonStrepAttr(notificationIn(msg, timeStamp_), gif_, attr, leafPath_, plainKey());
    } else if (step.way == WalkPlan::Way::Collection) {
      result = walkCollection(attr, notifiee.ptr());
      if (result != WalkResult::Done && !hasAny(flags_, WalkerFlags::IgnorePushResult)) {
        // Paused inside the collection: resume at the same attribute, after
        // the member just done.
        pause();
        return result;
      }
    } else {
      result = walkSingle(step, notifiee.ptr());
    }
    if (result != WalkResult::Done) {
      if (!hasAny(flags_, WalkerFlags::IgnorePushResult)) {
        ++savedAttr_;
        // Paused after its last attribute with nothing held, the walker has
        // nothing left to resume: like a final push, the result is returned
        // without queueing it.
        if (!savedAttr_ && !ownMsg_) return result;
        ZOLT_TRACE(dbg, 4, COMPONENT, "Pause walk of prefixPath_:{} leafPath_:{} type:{} at:{}",
                   prefixPath_, leafPath_, objType_, attr);
        pause();
        return result;
      }
      childResult = result;
    }
  }

  WalkResult result = WalkResult::Done;
  if (!updateMsg_ && ownMsg_) {
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push id:{} message: {}", prefixPath_, syncId_, ownMsg_);
    const ArenaRespMsgPtr msg = std::move(ownMsg_);
    result = routerPush(msg);
  }
  if (queuedWalkers != queuedBefore && childResult != WalkResult::Done && walkId_) {
    ZOLT_TRACE(dbg, 4, COMPONENT, "Pause walk of type:{} Children are paused", objType_);
    resuming_ = true;
    pause();
    return childResult;
  }
  // The final push counts like every other: a refusal or a spent slice is
  // returned, so that the parent pauses after this entity (this walker has
  // nothing left to resume).
  return hasAny(flags_, WalkerFlags::IgnorePushResult) ? WalkResult::Done : result;
}

// What the walk of one collection keeps from member to member: the key,
// refilled for each member, and the members' path, on which each member's
// key is set in place. For owned entities that path is their prefix, lent to
// each member's walk; for other members it is their leaf path below this
// walker's prefix.
struct FullVekTypeWalker::MemberWalk {
  MemberWalk(const FullVekTypeWalker& walker, const Vek::VekAttr& collection)
      : owner(walker), attr(collection), valueName(collection->name() + VekKey::VALUE_SUFFIX) {}

  // The members' path keyed by `key`, which holds the current member's key:
  // made at the first member (and made again should a paused member's walk
  // have taken it along), then keyed anew for each member.
  gnmi::Path& keyedPath() {
    if (keyedElem < 0 || path.elem_size() <= keyedElem) {
      path = attr->isInstantiating() ? joinPath(owner.prefixPath_, owner.leafPath_) : owner.leafPath_;
      VekKey::collectionElem(path, attr);
      keyedElem = path.elem_size() - 1;
    }
    while (path.elem_size() > keyedElem + 1) path.mutable_elem()->RemoveLast();
    key.keyInto(*path.mutable_elem(keyedElem));
    return path;
  }

  const FullVekTypeWalker& owner;
  const Vek::VekAttr attr;
  // The leaf of a scalar member below its keyed element ("<attr>Value").
  const std::string valueName;
  VekKey key;
  gnmi::Path path;
  int keyedElem = -1;
};

WalkResult FullVekTypeWalker::walkCollection(const Vek::VekAttr& attr, const GifGnmiNotifiee* notifiee) {
  if (attr->isStack()) ZOLT_FMASSERT(dbg, COMPONENT, "stack collection type is not supported");
  Vek::CollectionIterator it;
  if (inCollection_) {
    // The member saved at the pause is done: continue after it.
    it = std::move(savedMember_);
    ++it;
    inCollection_ = false;
  } else {
    it = attr.genericIfIteratorConst(gif_);
  }
  MemberWalk members(*this, attr);
  for (; it; ++it) {
    const Vek::Ptr<Vek::GenericIf const> keyGif = it.key();
    const Vek::Ptr<Vek::GenericIf const> member = it.ptr();
    if (!keyGif || !member) continue;
    const WalkResult result = walkMember(members, keyGif, member, notifiee);
    if (result != WalkResult::Done && !hasAny(flags_, WalkerFlags::IgnorePushResult)) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "Pause walk type:{} at collection:{} after syncing keyGif:{}",
                 objType_, attr, keyGif->strRep());
      savedMember_ = std::move(it);
      inCollection_ = true;
      return result;
    }
  }
  return WalkResult::Done;
}

WalkResult FullVekTypeWalker::walkMember(MemberWalk& members,
                                         const Vek::Ptr<Vek::GenericIf const>& keyGif,
                                         const Vek::Ptr<Vek::GenericIf const>& member,
                                         const GifGnmiNotifiee* notifiee) {
  const Vek::VekAttr& attr = members.attr;
  Timestamp timestamp = timeStamp_;
  if (notifiee) timestamp = TimeStampUtils::lookupCollectionKeyTs(notifiee, attr, keyGif).value_or(0);
  if (isDirectoryCollection(attr)) {
    gnmi::Path path = joinPath(prefixPath_, leafPath_);
    path.add_elem()->set_name(keyGif->strRep());
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} instantiating attr, call syncObject for the value", prefixPath_);
    return handleInstantiating(member, path, timestamp, nullptr);
  }
  if (keyGif->isEntity() && getPtrPathStr(keyGif, router_) == NULL_POINTER_TEXT) {
    // A member keyed by an entity that has no path (yet): published under
    // no name rather than a wrong one. A sync that publishes pointers
    // silently meets this when the key entity comes later in its walk; the
    // sync that asked for it names the member once the key is published.
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} skipping member of {} keyed by an unpublished entity", prefixPath_, attr);
    return WalkResult::Done;
  }
  VekKey& key = members.key;
  key.clear();
  ZOLT_TRACE(dbg, 9, COMPONENT, "{} extract the key", prefixPath_);
  extractKeyInfo(keyGif, attr, key, router_);
  ZOLT_TRACE(dbg, 9, COMPONENT, "{} call nextWalker for the value, then stringify vekKey:{}",
             prefixPath_, key);
  // The member's keyed path; the key's scalar parts are published below it.
  gnmi::Path& path = members.keyedPath();
  if (attr->isInstantiating()) {
    // The path is the member's prefix; its key's scalar parts are published
    // by the member's own walk.
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} instantiating attr, call syncObject for the value", prefixPath_);
    return handleInstantiating(member, path, timestamp, &key);
  }
  const Vek::VekType memberType = member->type();
  if (attr->isPointer()) {
    ArenaRespMsgPtr msg;
    {
      const ScopedElem value(path, members.valueName);
      msg = objPtrToPath(member, prefixPath_, path, timestamp, router_);
    }
    key.copyScalars(*msg->response->mutable_update(), path, memberType);
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push ptr collection message: {}", prefixPath_, msg);
    return routerPush(msg);
  }
  ArenaRespMsgPtr msg;
  gnmi::Notification* notification = notificationIn(msg, timestamp);
  key.copyScalars(*notification, path, memberType);
  WalkResult result = WalkResult::Done;
  if (isScalarType(memberType)) {
    const ScopedElem value(path, members.valueName);
    extractScalar(notification, member, memberType, path, plainKey());
  } else {
    ZOLT_TRACE(dbg, 9, COMPONENT, "{} non-instantiating attr, call nextWalker for the value",
               prefixPath_);
    result = nextWalker(member, msg, path, memberType, key, timestamp, nullptr);
  }
  ZOLT_TRACE(dbg, 5, COMPONENT, "{} push id:{} message: {}", prefixPath_, syncId_, msg);
  const WalkResult pushed = routerPush(msg);
  return result != WalkResult::Done ? result : pushed;
}

WalkResult FullVekTypeWalker::walkSingle(const WalkPlan::Step& step, const GifGnmiNotifiee* notifiee) {
  const Vek::VekAttr& attr = step.attr;
  ZOLT_TRACE(dbg, 9, COMPONENT, "{} leaf attr, call nextWalker for the attr. attr:{} memberType:{}",
             prefixPath_, attr, attr->type());
  const auto timestampOf = [&]() {
    const Timestamp t = notifiee ? TimeStampUtils::lookupAttrTs(notifiee, attr).value_or(0) : 0;
    return t != 0 ? t : timeStamp_;
  };
  // Scalars and nested values of a walker travel together in its message,
  // pushed when the walk ends; the time is read only when the message is
  // made.
  ArenaRespMsgPtr& held = updateMsg_ ? updateMsg_ : ownMsg_;
  if (step.way == WalkPlan::Way::StoredScalar) {
    // Read in place, and written at the leaf path plus its name.
    extractStoredScalar(notificationIn(held, held ? 0 : timestampOf()), *gif_, attr, leafPath_);
    return WalkResult::Done;
  }
  // An optional attribute without a value (an unset scalar, an empty leaf
  // list) is not published at all.
  if (attr->isOptional() && !attr.genericIfExist(gif_)) return WalkResult::Done;
  const ScopedElem elem(leafPath_, attr->name());
  if (step.way == WalkPlan::Way::Array) {
    // An array travels as one leaf list in a message of its own, stamped with
    // the time it last changed.
    ArenaRespMsgPtr msg;
    extractScalarArray(notificationIn(msg, timestampOf()), gif_, attr, attr->type(), leafPath_);
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push id:{} message: {}", prefixPath_, syncId_, msg);
    return routerPush(msg);
  }
  // A value stored in the object is read through a view of it: a nested
  // value is walked at once, while the object cannot change.
  Vek::Ptr<Vek::GenericIf const> value;
  if (step.storedValue) {
    value = attr->type().genericIf(gif_->rawAttr(attr, Vek::BuiltinCode::None), false);
  } else {
    value = attr.genericIfGet(gif_);
  }
  if (step.way == WalkPlan::Way::OwnedChild) {
    if (!value) return WalkResult::Done;  // an unset child is not published
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} singleton instantiating attr, call syncObject", prefixPath_);
    gnmi::Path path = joinPath(prefixPath_, leafPath_);
    return handleInstantiating(value, path, timestampOf(), nullptr);
  }
  if (step.way == WalkPlan::Way::Pointer) {
    const ArenaRespMsgPtr msg = objPtrToPath(value, prefixPath_, leafPath_, timestampOf(), router_);
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push ptr collection message: {}", prefixPath_, msg);
    return routerPush(msg);
  }
  if (!value) return WalkResult::Done;
  gnmi::Notification* notification = notificationIn(held, held ? 0 : timestampOf());
  if (isScalarType(value->type())) {
    extractScalar(notification, value, value->type(), leafPath_, plainKey());
    return WalkResult::Done;
  }
  return nextWalker(value, held, leafPath_, value->type(), *keyName_, timeStamp_, nullptr);
}

}  // namespace Ostrel
