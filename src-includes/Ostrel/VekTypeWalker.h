// Type walking: serialising entity trees of the Vek runtime into gNMI
// notifications, in resumable time slices, and streaming single changes.
//
// A sync publishes one entity and everything it owns:
//
//   Ostrel::WalkResult r = Ostrel::FullVekTypeWalker::syncObject(
//       device, Ostrel::strToPath("/devices/dev1"), router, {SyncId{7}, WalkId{7}},
//       VekGnmiUtils::requestTypeToFlags(RequestType{1}) | WalkerFlags::NotifieeOption);
//   while (r != WalkResult::Done) {            // paused: resume later
//     std::vector<Ostrel::SyncWalkId> done;
//     r = Ostrel::FullVekTypeWalker::resumeAllSyncsAndNotifs(done);
//   }
//
// What a sync publishes, for an entity at prefix P (every message's
// notification has a prefix and updates at paths relative to it):
//   - its scalar attributes (builtins, enumerations by name, values with a
//     text form of their own), JSON-text attributes and the leaves of nested
//     values (`counters/inPkts`), together in messages for P: the leaves
//     met since the last push go out before each attribute that pushes
//     messages of its own (pointers, arrays, collections, owned entities) and
//     when the walk ends, so a walk pushes the same sequence whether it
//     pauses or not and holds no value across a pause; leaves whose time of
//     change is not known carry timestamp 0 (the agent stamps them when it
//     sends them);
//   - each pointer as `<attr>_ptr` holding the target's path text, in a
//     message of its own;
//   - each array of scalars as one leaf list, in a message of its own stamped
//     with the time the array last changed;
//   - each member of a collection in a message of its own stamped with the time
//     the member was first seen or last changed, at the member's keyed path:
//     `vlanNames[vlanNames=10]/vlanNamesValue` for a scalar member,
//     `addresses[addressesKey=10.0.0.1]/prefixLength` for a value member, with
//     the key's scalar parts as leaves beside it;
//   - each owned entity (singleton child or collection member) as a walk of
//     its own at its own prefix, `P/chassis` or `P/interfaces[name=eth0]`;
//     directory entries are never published, unset children are skipped.
// Each published entity gets a `GifGnmiNotifiee` (GifNotifiee.h) that streams
// its later changes to the router of its first sync, with sync id 0.
//
// Pausing. After every push the walker compares the clock with the start of
// the sync's current slice (`SYNCQUANTUM`, 0.1 s); a slice that is spent, or a
// router that refuses more, pauses the sync: the walkers that have work left
// are queued under the walk id (`staticWalkMap`) and `syncObject` returns a
// non-zero result. `resumeAllSyncsAndNotifs` resumes queued walks one after
// another, each in a fresh slice, first in first out. A sync with sync id 0 is
// never cut by the clock.
//
// Single-threaded: all of this runs on one thread (the agent's event loop),
// together with the model's changes; nothing here takes a lock. The walk maps
// are process-wide and live until the library is unloaded.
#pragma once

#include <cstddef>
#include <list>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include <Vek/Vek.h>
#include <Zolt/Zolt.h>
#include <gnmi/gnmi.pb.h>

#include "Ostrel/ArenaRespMsg.h"
#include "Ostrel/BaseRouter.h"
#include "Ostrel/Export.h"
#include "Ostrel/Path.h"
#include "Ostrel/Types.h"
#include "Ostrel/VekKey.h"

namespace Ostrel {

class FullVekTypeWalker;
class GifGnmiNotifiee;
namespace WalkPlan {
struct Step;
}

// The (sync id, walk id) pair the agent passes in and gets back; prints as
// "sync:walk".
using SyncWalkId = std::pair<SyncId, WalkId>;
// The paused walkers of one walk, in the order they resume.
using WalkList = std::list<std::unique_ptr<FullVekTypeWalker>>;

// The walk registry (not locked; one thread at a time):
// the queue of paused walkers of each pending walk;
OSTREL_EXPORT extern std::unordered_map<WalkId, WalkList> staticWalkMap;
// when the current slice of each running or pending walk began (runtime clock);
OSTREL_EXPORT extern std::unordered_map<WalkId, Vek::Seconds> staticWalkStartMap;
// for each prefix at which a queued walker resumes, the walks queued there.
OSTREL_EXPORT extern std::unordered_map<gnmi::Path, std::unordered_set<WalkId>> staticPathWalkIdMap;

// Walks one object (an entity, or a nested value of one) and publishes it.
// Built on the stack by `syncObject` and by its parent walker; moved to the
// heap only when it pauses, and then owned by the walk queue.
class OSTREL_EXPORT FullVekTypeWalker {
 public:
  // The time slice of one sync, in seconds (0.1). A walk whose slice began at
  // least this long ago pauses at its next push.
  static Vek::Seconds SYNCQUANTUM;

  // A walker of `gif` (of type `objType`) published under `prefixPath` at
  // `leafPath` below it (empty for an entity itself). `updateMsg` is the
  // message of the parent walker to write into (shared; the parent pushes
  // it), or empty for a walker that makes and pushes messages of its own.
  // `keyName` is the key of the collection member being walked (it must
  // outlive the walker's first `walk`); `timestamp` is given to new
  // notifications (0: the caller's).
  // `prefixPath` is taken by value: pass an rvalue to hand it over.
  FullVekTypeWalker(gnmi::Path prefixPath, ArenaRespMsgPtr updateMsg,
                    Vek::Ptr<Vek::GenericIf const> gif, gnmi::Path leafPath, Vek::VekType objType,
                    BaseRouter& router, SyncWalkId ids, WalkerFlags flags, VekKey& keyName,
                    Timestamp timestamp);
  FullVekTypeWalker(FullVekTypeWalker&& other) noexcept;
  FullVekTypeWalker(const FullVekTypeWalker&) = delete;
  FullVekTypeWalker& operator=(const FullVekTypeWalker&) = delete;
  FullVekTypeWalker& operator=(FullVekTypeWalker&&) = delete;
  virtual ~FullVekTypeWalker();

  // ---- Syncing

  // Starts the sync of the entity `obj` at `prefix`: records the start of
  // walk ids.second's slice, walks, and forgets the start again when the walk
  // finished. Returns Done, or the non-zero result of a pause (the rest is
  // queued; see `resumeAllSyncsAndNotifs`). Fatal for a null `obj`.
  static WalkResult syncObject(const Vek::PtrInterface* obj, gnmi::Path prefix, BaseRouter& router,
                               SyncWalkId ids, WalkerFlags flags);
  // Builds and runs the top walker of `obj` within a running sync (no slice
  // bookkeeping). `timeStampToUse` seeds the entity's timestamps (0: now);
  // `key`, when given, is the collection key under which `obj` is a member:
  // its scalar parts are published with the entity. A directory entry is
  // never published.
  static WalkResult syncObjectInternal(const Vek::PtrInterface* obj, gnmi::Path prefix,
                                       BaseRouter& router, SyncWalkId ids, WalkerFlags flags,
                                       Timestamp timeStampToUse, VekKey* key);
  // Makes sure the entity has a notifiee registered at `prefix` (one made for
  // an entity that has since left the model is replaced) and seeds the
  // timestamps of its collection members and arrays that have none yet with
  // `timeStampToUse` (0: now). Fatal when the notifiee has no timestamp table.
  static void setUpWalk(const Vek::Ptr<Vek::GenericIf const>& gif, Vek::VekType type,
                        const Vek::PtrInterface* obj, const gnmi::Path& prefix, BaseRouter& router,
                        WalkerFlags flags, Timestamp timeStampToUse);

  // Walks (or resumes walking) this walker's object, as far as the slice and
  // the router allow. On a pause the remaining work is queued (this walker
  // moves itself into the queue) and the non-zero result returned.
  WalkResult walk(VekKey* key = nullptr);

  // Syncs an owned entity as a walk of its own at `path`, within this sync.
  // `path` is lent to the entity's walker and given back when it returns,
  // unless that walker paused and took it to the walk queue (`path` is then
  // left empty): the walk of a collection keys one path for every member.
  virtual WalkResult handleInstantiating(const Vek::Ptr<Vek::GenericIf const>& gif, gnmi::Path& path,
                                         Timestamp timestamp, VekKey* key);
  // Hands `msg` to the router and applies the time slice: Done, RouterFull
  // (refused) or QuantaExceeded (the slice is spent, tested after the push).
  // With pushes suppressed (flag 1) returns Done at once.
  virtual WalkResult routerPush(const ArenaRespMsgPtr& msg) const;
  // Walks a nested value with a child walker that writes into `msg`.
  virtual WalkResult nextWalker(const Vek::Ptr<Vek::GenericIf const>& attrGif,
                                const ArenaRespMsgPtr& msg, gnmi::Path& leafPath,
                                Vek::VekType valueType, VekKey& key, Timestamp timestamp,
                                VekKey* childKey);

  // The notification the next update goes into: of a new message for the
  // prefix stamped `timestamp` when `msg` is empty (kept in `msg`), else of
  // `msg` (made an update if it is not one). A new notification gets the
  // scalar parts of `key`.
  std::pair<gnmi::Notification*, ArenaRespMsgPtr> createResponse(ArenaRespMsgPtr& msg, VekKey* key,
                                                                 Timestamp timestamp) const;

  // "FullVekTypeWalker( prefix:<p> leaf:<l> syncId:<s> walkId:<w> flags:<bits>)".
  std::string debugString() const;

  // ---- Value extraction
  //
  // Each writes one value into a new update of `notification` at `path`, or,
  // when `key` is collecting, records it in the key instead (name: the key
  // text of `path`; text: the value's string form). With a `target` the
  // typed value is written there instead of into a new update.

  // Dispatches on the type: own text form -> string_val, builtin, enumeration,
  // other values.
  static void extractScalar(gnmi::Notification* notification,
                            const Vek::Ptr<Vek::GenericIf const>& gif, const Vek::VekType& type,
                            const gnmi::Path& path, VekKey& key, gnmi::TypedValue* target = nullptr);
  // Builtins by code: integers widened to uint_val/int_val, bool, char as its
  // byte in uint_val, float, double as its 8 big-endian bytes in bytes_val,
  // strings (with "__" escaped as "\__" for a key that asks for it), bytes,
  // seconds as int_val nanoseconds. Fatal for other codes.
  static void extractBuiltin(gnmi::Notification* notification,
                             const Vek::Ptr<Vek::GenericIf const>& gif, const Vek::VekType& type,
                             const gnmi::Path& path, VekKey& key, gnmi::TypedValue* target = nullptr);
  // The enumerator's name as string_val; a value no enumerator has is written
  // as its number. Fatal for an underlying type other than the six integers.
  static void extractEnum(gnmi::Notification* notification, const Vek::Ptr<Vek::GenericIf const>& gif,
                          const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                          gnmi::TypedValue* target = nullptr);
  // Each builtin and enumeration attribute of a value, at `path` + its name.
  static void extractValAttr(gnmi::Notification* notification,
                             const Vek::Ptr<Vek::GenericIf const>& gif, const Vek::VekType& type,
                             const gnmi::Path& path, VekKey& key, gnmi::TypedValue* target = nullptr);
  // The members of the array or collection `attr` of `gif`, as one leaf list.
  static void extractScalarArray(gnmi::Notification* notification,
                                 const Vek::Ptr<Vek::GenericIf const>& gif, const Vek::VekAttr& attr,
                                 const Vek::VekType& type, const gnmi::Path& path);
  // The attribute's gNMI JSON text as json_val.
  static void extractGnmiJsonStrepAttr(gnmi::Notification* notification,
                                       const Vek::Ptr<Vek::GenericIf const>& gif,
                                       const Vek::VekAttr& attr, const gnmi::Path& path, VekKey& key);
  // Fills `key` from the member key `keyGif` of the collection `attr`: its
  // kind, generated key element and key map. A key that is an entity is
  // named by its published path (resolved through `router`); a wrapper key by
  // the value it wraps.
  static void extractKeyInfo(const Vek::Ptr<Vek::GenericIf const>& keyGif, const Vek::VekAttr& attr,
                             VekKey& key, BaseRouter& router);
  // Whether values of `type` are published as one leaf: builtins,
  // enumerations and types with a text form of their own.
  static bool isScalarType(const Vek::VekType& type);

  // ---- The walk registry

  // Queues a paused walker under its walk id. Fatal for walk id 0.
  static void addToWalkQ(std::unique_ptr<FullVekTypeWalker> walker);
  // Takes the front walker of `list`; an entity walker gets its entity back
  // from the notifiee registered at its prefix.
  static std::unique_ptr<FullVekTypeWalker> popWalkQ(WalkList& list);
  // Runs one pending walk for one slice: Done when its queue emptied (the
  // walk is forgotten), else the result of the walker that paused.
  static WalkResult resumeSync(const WalkId& walkId);
  // Resumes pending walks one after another until one pauses (its result is
  // returned) or none is left (Done). Appends the pair of each walk that
  // completed to `idsComplete`, which must be empty on entry.
  static WalkResult resumeAllSyncsAndNotifs(std::vector<SyncWalkId>& idsComplete);
  // Drops a pending walk; false when there is none. Its paths stay in
  // `staticPathWalkIdMap`.
  static bool cancelPendingSync(WalkId walkId);
  // Drops, in every walk, the first walker queued at exactly `path` and every
  // walker queued behind it, without comparing their paths; their paths leave
  // `staticPathWalkIdMap`. What is behind is taken to lie under the deleted
  // path. That is not always so: a walker paused inside a collection member
  // is queued ahead of its owner's walker, so deleting that member also drops
  // the rest of its owner's sync (a sync that completes then lacks those
  // members; nothing published is ever wrong or stale).
  static void delFromWalkQ(const gnmi::Path& path);
  // Forgets every walk (not `staticPathWalkIdMap`).
  static void flushWalkMap();
  static size_t walkMapSize();
  static size_t walkMapStartSize();
  static std::unordered_map<WalkId, WalkList>& walkMap();
  static std::unordered_map<gnmi::Path, std::unordered_set<WalkId>>& pathWalkIdMap();
  // "walkId:<w> walkList:[ \n<walker> ...]\n" per walk.
  static std::string dumpWalkMap();
  // "path:<p> requestSet:[ <w>  ...]\n" per path.
  static std::string dumpPathWalkIdMap();

  const gnmi::Path& prefixPath() const { return prefixPath_; }
  const gnmi::Path& leafPath() const { return leafPath_; }
  Vek::VekType objType() const { return objType_; }
  const Vek::Ptr<Vek::GenericIf const>& gif() const { return gif_; }
  SyncId syncId() const { return syncId_; }
  WalkId walkId() const { return walkId_; }
  WalkerFlags flags() const { return flags_; }

 private:
  // What the walk of one collection reuses from member to member.
  struct MemberWalk;

  // `syncObjectInternal` with `prefix` lent, as to `handleInstantiating`,
  // walked by `walker`: a new walker or an owner's spare, aimed at the
  // entity here, whose router, ids and flags are the sync's.
  static WalkResult syncEntity(const Vek::PtrInterface* obj, gnmi::Path& prefix, FullVekTypeWalker& walker,
                               Timestamp timeStampToUse, VekKey* key);
  // Points this walker at `gif` (of `type`) to walk it from its first
  // attribute, as a new walker would; its paths, router, ids and flags stay.
  void aimAt(Vek::Ptr<Vek::GenericIf const> gif, Vek::VekType type, ArenaRespMsgPtr updateMsg,
             VekKey& keyName, Timestamp timestamp);
  // Drops what the walk just done held: its object and its message.
  void letGo();
  // A walker aimed at nothing, with this walker's router, ids and flags.
  std::unique_ptr<FullVekTypeWalker> spare() const;
  // One collection attribute, from the saved member on.
  WalkResult walkCollection(const Vek::VekAttr& attr, const GifGnmiNotifiee* notifiee);
  // One member of the collection of `members`.
  WalkResult walkMember(MemberWalk& members, const Vek::Ptr<Vek::GenericIf const>& keyGif,
                        const Vek::Ptr<Vek::GenericIf const>& member, const GifGnmiNotifiee* notifiee);
  // One attribute that is not a collection, as its plan step says.
  WalkResult walkSingle(const WalkPlan::Step& step, const GifGnmiNotifiee* notifiee);
  // The notification of `createResponse`, without a new handle on the
  // message; `fresh` (when given) is set when the notification is new.
  gnmi::Notification* notificationIn(ArenaRespMsgPtr& msg, Timestamp timestamp,
                                     bool* fresh = nullptr) const;
  // Moves this walker's state to the heap and queues it.
  void pause();
  // `setUpWalk`, returning the notifiee it found or made.
  static GifGnmiNotifiee* setUpWalkFor(const Vek::Ptr<Vek::GenericIf const>& gif, Vek::VekType type,
                                       const Vek::PtrInterface* obj, const gnmi::Path& prefix,
                                       BaseRouter& router, WalkerFlags flags, Timestamp timeStampToUse);

  gnmi::Path prefixPath_;
  ArenaRespMsgPtr updateMsg_;
  gnmi::Path leafPath_;
  Vek::VekType objType_;
  Vek::Ptr<Vek::GenericIf const> gif_;
  BaseRouter& router_;
  SyncId syncId_;
  WalkId walkId_;
  WalkerFlags flags_;
  VekKey* keyName_;
  Timestamp timeStamp_;
  // Resume state: the attribute to continue with, and inside a collection
  // the member last done; the message this walker fills and has not pushed.
  Vek::VekTypeBase::AttributeQIterator savedAttr_;
  Vek::CollectionIterator savedMember_;
  bool resuming_ = false;
  bool inCollection_ = false;
  ArenaRespMsgPtr ownMsg_;
  // The notifiee of an entity walker's prefix, when the sync that built the
  // walker found it; looked up again after a pause (it may have changed).
  GifGnmiNotifiee* notifiee_ = nullptr;
  // Spare walkers, aimed anew at each walk, so that a sync of a million
  // members does not build and tear down two million walkers: the walker of
  // this walker's owned entities (their leaf path goes with it) and the
  // child walker of its nested values. Made when first needed.
  std::unique_ptr<FullVekTypeWalker> ownedWalker_;
  std::unique_ptr<FullVekTypeWalker> valueWalker_;
};

// Publishes one change of one attribute of a published entity, at once:
// the new value of a singleton or collection member as an update, or the
// delete of a member that no longer exists, stamped with the time of the
// change, pushed with sync id 0. Built and run by the entity's notifiee.
class OSTREL_EXPORT VekTypeNotifWalker {
 public:
  // `attrId` may be negated (it is looked up by its absolute value); `key`
  // is the runtime's raw key of the changed member, null for a singleton.
  VekTypeNotifWalker(Zolt::Debuggable& debug, Vek::Ptr<Vek::GenericIf const> gif,
                     gnmi::Path prefixPath, GifGnmiNotifiee* notifiee, const void* key,
                     gnmi::Path leafPath, Vek::VekType type, Vek::AttributeId attrId,
                     BaseRouter& router, WalkerFlags flags);
  // The walker of a change that `notifiee` heard: at the notifiee's prefix,
  // which it reads in place (the notifiee must outlive the walker), with an
  // empty leaf path.
  VekTypeNotifWalker(Zolt::Debuggable& debug, Vek::Ptr<Vek::GenericIf const> gif,
                     GifGnmiNotifiee& notifiee, const void* key, Vek::VekType type,
                     Vek::AttributeId attrId, BaseRouter& router, WalkerFlags flags);
  VekTypeNotifWalker(const VekTypeNotifWalker&) = delete;
  VekTypeNotifWalker& operator=(const VekTypeNotifWalker&) = delete;

  void walk();
  // Pushes `msg` with sync id 0, unless pushes are suppressed (flag 1).
  void routerPush(const ArenaRespMsgPtr& msg) const;

 private:
  // Publishes the value of a singleton attribute or of one member at `path`.
  void publishValue(const Vek::VekAttr& attr, const Vek::Ptr<Vek::GenericIf const>& value,
                    const gnmi::Path& path, VekKey& key, Timestamp now);
  void publishMember(const Vek::VekAttr& attr, Timestamp now);
  // Publishes the delete of `path` (below the prefix), after dropping the
  // sync work queued under it.
  void publishDelete(const gnmi::Path& path, Timestamp now);

  Zolt::Debuggable& debug_;
  Vek::Ptr<Vek::GenericIf const> gif_;
  // The prefix given to the first constructor; the prefix read is
  // `prefixPath_`, which is this or the notifiee's.
  gnmi::Path ownPrefix_;
  const gnmi::Path& prefixPath_;
  GifGnmiNotifiee* notifiee_;
  const void* key_;
  gnmi::Path leafPath_;
  Vek::VekType type_;
  Vek::AttributeId attrId_;
  BaseRouter& router_;
  WalkerFlags flags_;
};

}  // namespace Ostrel

// A walker prints as its `debugString`.
template <>
struct fmt::formatter<Ostrel::FullVekTypeWalker> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Ostrel::FullVekTypeWalker& walker, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(walker.debugString(), ctx);
  }
};
