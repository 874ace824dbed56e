// The change walker: publishes one change of one attribute of a published
// entity as an update or a delete, at once.
#include "Ostrel/VekTypeWalker.h"

#include <Vek/Format.h>

#include "Ostrel/GifNotifiee.h"
#include "Ostrel/PtrResolution.h"
#include "Ostrel/TimeStamps.h"
#include "Ostrel/VekGnmiUtils.h"
#include "internal/WalkPlan.h"
#include "internal/WalkerSupport.h"

namespace Ostrel {

using namespace WalkerSupport;

VekTypeNotifWalker::VekTypeNotifWalker(Zolt::Debuggable& debug, Vek::Ptr<Vek::GenericIf const> gif,
                                       gnmi::Path prefixPath, GifGnmiNotifiee* notifiee,
                                       const void* key, gnmi::Path leafPath, Vek::VekType type,
                                       Vek::AttributeId attrId, BaseRouter& router,
                                       WalkerFlags flags)
    : debug_(debug),
      gif_(std::move(gif)),
      ownPrefix_(std::move(prefixPath)),
      prefixPath_(ownPrefix_),
      notifiee_(notifiee),
      key_(key),
      leafPath_(std::move(leafPath)),
      type_(type),
      attrId_(attrId),
      router_(router),
      flags_(flags) {}

VekTypeNotifWalker::VekTypeNotifWalker(Zolt::Debuggable& debug, Vek::Ptr<Vek::GenericIf const> gif,
                                       GifGnmiNotifiee& notifiee, const void* key, Vek::VekType type,
                                       Vek::AttributeId attrId, BaseRouter& router, WalkerFlags flags)
    : debug_(debug),
      gif_(std::move(gif)),
      prefixPath_(notifiee.prefixPath()),
      notifiee_(&notifiee),
      key_(key),
      type_(type),
      attrId_(attrId),
      router_(router),
      flags_(flags) {}

void VekTypeNotifWalker::routerPush(const ArenaRespMsgPtr& msg) const {
  if (hasAny(flags_, WalkerFlags::SuppressPush)) return;
  ZOLT_TRACE(debug_, 5, NOTIF_COMPONENT, "{} push immediate update: {}", prefixPath_, msg);
  router_.push(SyncId(), msg);
}

void VekTypeNotifWalker::walk() {
  const Timestamp now = nowUtc();
  const Vek::VekAttr attr = type_->attr(attrId_.abs());
  if (!attr) return;
  // The path of a singleton attribute: the leaf path plus its name.
  const auto singletonPath = [&] {
    gnmi::Path leaf = leafPath_;
    leaf.add_elem()->set_name(attr->name());
    return leaf;
  };
  if (attr->hasGnmiJsonStrep()) {
    auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
    FullVekTypeWalker::extractGnmiJsonStrepAttr(notification, gif_, attr, singletonPath(), plainKey());
    routerPush(msg);
    return;
  }
  if (attr->isStack()) {
    ZOLT_TRACE(debug_, 1, NOTIF_COMPONENT, "stack collection type is not supported.");
    return;
  }
  if (attr->isOptional() && !attr.genericIfExist(gif_)) {
    // An optional leaf was unset, or an optional leaf list emptied: its path
    // is deleted.
    publishDelete(singletonPath(), now);
    return;
  }
  if (attr->isArray()) {
    // An element changed: the whole leaf list is published again, and the
    // array's time is the time of this change.
    TimeStampUtils::recordTs(notifiee_, TSKey(attr->id(), nullptr), now);
    auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
    FullVekTypeWalker::extractScalarArray(notification, gif_, attr, attr->type(), singletonPath());
    routerPush(msg);
    return;
  }
  if (WalkPlan::isStoredScalar(attr)) {
    // Read in place, and written at the leaf path plus its name.
    auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
    extractStoredScalar(notification, *gif_, attr, leafPath_);
    routerPush(msg);
    return;
  }
  if (!attr->isCollection()) {
    VekKey noMemberKey;
    publishValue(attr, attr.genericIfGet(gif_), singletonPath(), noMemberKey, now);
    return;
  }
  publishMember(attr, now);
}

void VekTypeNotifWalker::publishMember(const Vek::VekAttr& attr, Timestamp now) {
  const Vek::Ptr<Vek::GenericIf const> keyGif =
      Vek::GenericIf::NotifieeConst::keyPointerToGif(attr, key_);
  if (!keyGif) return;
  const bool exists = attr.genericIfExist(gif_, keyGif);
  gnmi::Path path = leafPath_;
  VekKey key;
  if (isDirectoryCollection(attr)) {
    path.add_elem()->set_name(keyGif->strRep());
  } else {
    FullVekTypeWalker::extractKeyInfo(keyGif, attr, key, router_);
    const bool scalarMember = exists && !attr->isInstantiating() &&
                              (attr->isPointer() || FullVekTypeWalker::isScalarType(attr->type()));
    key.updateAndStorePrefix(path, scalarMember, attr);
  }
  const TSKey tsKey(attr->id(), keyGif);
  if (exists) {
    TimeStampUtils::recordTs(notifiee_, tsKey, now);
    publishValue(attr, attr.genericIfGet(gif_, keyGif), path, key, now);
    return;
  }
  if (!TimeStampUtils::eraseTs(notifiee_, tsKey)) {
    if (!hasAny(flags_, WalkerFlags::NotifieeOption)) {
      ZOLT_FMASSERT(debug_, NOTIF_COMPONENT, "Unable to find entry for deletion prefixPath_:{} prefix:{}",
                    prefixPath_, path);
    }
    ZOLT_TRACE(debug_, 1, NOTIF_COMPONENT,
               "Ignoring delete without prior update for prefixPath_:{} prefix:{}", prefixPath_, path);
    return;
  }
  publishDelete(path, now);
}

void VekTypeNotifWalker::publishDelete(const gnmi::Path& path, Timestamp now) {
  auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
  VekGnmiUtils::pushDelete(*notification, path);
  const gnmi::Path joined = joinPath(prefixPath_, path);
  ZOLT_TRACE(debug_, 4, NOTIF_COMPONENT, "Deleting path:{}", joined);
  // Queued sync work under the deleted path goes before the delete does.
  FullVekTypeWalker::delFromWalkQ(joined);
  routerPush(msg);
}

void VekTypeNotifWalker::publishValue(const Vek::VekAttr& attr,
                                      const Vek::Ptr<Vek::GenericIf const>& value,
                                      const gnmi::Path& path, VekKey& key, Timestamp now) {
  if (attr->isInstantiating()) {
    if (!value) {
      // An owned child was cleared: its path is deleted.
      publishDelete(path, now);
      return;
    }
    if (!value->isEntity()) ZOLT_FMASSERT(debug_, NOTIF_COMPONENT, "type can not be a value");
    FullVekTypeWalker::syncObjectInternal(static_cast<const Vek::PtrInterface*>(value->voidPtr()),
                                          joinPath(prefixPath_, path), router_, {SyncId(), WalkId()},
                                          flags_, now, &key);
    return;
  }
  if (attr->isPointer()) {
    const ArenaRespMsgPtr msg = objPtrToPath(value, prefixPath_, path, now, router_);
    if (!msg) {
      ZOLT_TRACE(debug_, 1, NOTIF_COMPONENT, "Failed to resolve a ptr for prefix {} and leaf ", prefixPath_);
      return;
    }
    key.copyScalars(*msg->response->mutable_update(), value ? value->type() : Vek::VekType());
    routerPush(msg);
    return;
  }
  if (!value) return;
  auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
  key.copyScalars(*notification, value->type());
  if (FullVekTypeWalker::isScalarType(value->type())) {
    FullVekTypeWalker::extractScalar(notification, value, value->type(), path, plainKey());
  } else {
    // A nested value, walked to completion into this message.
    FullVekTypeWalker walker(prefixPath_, msg, value, path, value->type(), router_,
                             {SyncId(), WalkId()}, flags_, key, now);
    walker.walk(nullptr);
  }
  routerPush(msg);
}
}  // namespace Ostrel
