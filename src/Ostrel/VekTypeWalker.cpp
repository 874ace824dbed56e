// Type walking: value extraction, the full type walker, the walk registry and
// the change walker.
#include "Ostrel/VekTypeWalker.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

#include <boost/beast/core/detail/base64.hpp>
#include <google/protobuf/arena.h>

#include <Vek/Format.h>

#include "Ostrel/GifNotifiee.h"
#include "Ostrel/PtrResolution.h"
#include "Ostrel/TimeStamps.h"
#include "Ostrel/VekGnmiUtils.h"
#include "internal/PlainAssert.h"

namespace Ostrel {

BaseRouter::~BaseRouter() = default;

std::unordered_map<WalkId, WalkList> staticWalkMap;
std::unordered_map<WalkId, Vek::Seconds> staticWalkStartMap;
std::unordered_map<gnmi::Path, std::unordered_set<WalkId>> staticPathWalkIdMap;

Vek::Seconds FullVekTypeWalker::SYNCQUANTUM = 0.1;

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelWalker");
constexpr const char* COMPONENT = "FullVekTypeWalker";
constexpr const char* NOTIF_COMPONENT = "VekTypeNotifWalker";

// The key of walkers that walk no collection member (top walkers): read,
// never written.
VekKey& noKey() {
  static VekKey key;
  return key;
}

// The path text of a pointer that cannot be resolved (see PtrResolution.h).
constexpr const char* NULL_POINTER_TEXT = "nullptr";

// A key that collects nothing: extractors given it emit updates.
VekKey& plainKey() {
  static VekKey key = [] {
    VekKey k;
    k.escapesTextIs(false);
    return k;
  }();
  return key;
}

Timestamp nowUtc() {
  return static_cast<Timestamp>(Vek::System::currentTimeUtc().value() * 1000000000.0);
}

bool isEntityType(const Vek::VekType& type) { return type->kindCode() == 0; }

const Vek::Entity* asEntity(const Vek::GenericIf* gif) {
  return gif && gif->isEntity() ? static_cast<const Vek::Entity*>(gif) : nullptr;
}

// Directories publish their children by name, as they are addressed
// (/devices/dev1), not as keyed members of their `entityPtr` collection.
bool isDirectoryCollection(const Vek::VekAttr& attr) { return attr == Vek::Dir::entityPtrAttr(); }

// The one-element path naming the key of the collection `attr` when no key
// element is generated: the members' declared key attribute if they have it,
// else the collection. Made once per attribute (the same for every member);
// single-threaded, like every walk.
const gnmi::Path& keyPartName(const Vek::VekAttr& attr) {
  static std::unordered_map<const Vek::VekAttrBase*, gnmi::Path> names;
  auto [it, inserted] = names.try_emplace(attr.base());
  if (inserted) {
    const std::string& keyAttr = attr->keyAttrName();
    const bool declared = !keyAttr.empty() && attr->type() && attr->type()->attr(keyAttr);
    it->second.add_elem()->set_name(declared ? keyAttr : attr->name());
  }
  return it->second;
}

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

// "__" escaped as "\__" when the text holds it at all.
std::string escapedText(const std::string& text) {
  if (text.find("__") == std::string::npos) return text;
  std::string out;
  out.reserve(text.size() + 4);
  for (size_t i = 0; i < text.size();) {
    if (text.compare(i, 2, "__") == 0) {
      out += "\\__";
      i += 2;
    } else {
      out += text[i++];
    }
  }
  return out;
}

std::string base64(const void* bytes, size_t size) {
  namespace b64 = boost::beast::detail::base64;
  std::string out(b64::encoded_size(size), '\0');
  out.resize(b64::encode(out.data(), bytes, size));
  return out;
}

// The bytes of `value` in big-endian order.
template <typename T>
std::string bigEndianBytes(T value) {
  unsigned char bytes[sizeof(T)];
  std::memcpy(bytes, &value, sizeof(T));
  if constexpr (std::endian::native == std::endian::little) std::reverse(bytes, bytes + sizeof(T));
  return std::string(reinterpret_cast<const char*>(bytes), sizeof(T));
}

// Emits `value` through `set` into an update at `path` (or `target`), or
// records it in a collecting key under the path's key text with `text`.
template <typename Setter>
void emit(gnmi::Notification* notification, const gnmi::Path& path, VekKey& key,
          gnmi::TypedValue* target, const std::string& text, Setter&& set) {
  if (key.collecting()) {
    gnmi::TypedValue value;
    set(value);
    key.mapInsert(pathToKeyStr(path), text, std::move(value));
    return;
  }
  if (!target) {
    gnmi::Update* update = notification->add_update();
    update->mutable_path()->CopyFrom(path);
    target = update->mutable_val();
  }
  set(*target);
}

// Seconds as the nearest whole number of nanoseconds (a product like
// 1.001 * 1e9 lands just below the whole number it means); saturated at the
// ends of the 64-bit range, which cover about 292 years either way; NaN as 0.
int64_t nanoseconds(Vek::Seconds seconds) {
  const double ns = seconds.value() * 1e9;
  if (std::isnan(ns)) return 0;
  if (ns >= 9223372036854775807.0) return std::numeric_limits<int64_t>::max();
  if (ns <= -9223372036854775808.0) return std::numeric_limits<int64_t>::min();
  return std::llround(ns);
}

// The value of `gif` as its representation T, which its type promises.
template <typename T>
const T& representation(const Vek::GenericIf& gif) {
  const T* value = gif.attrValPtr<T>();
  if (!value) {
    ZOLT_FMASSERT(dbg, COMPONENT, "{} does not hold the representation of its type {}", gif.strRep(),
                  gif.type());
  }
  return *value;
}

}  // namespace

// ---------------------------------------------------------------------------
// Value extraction

bool FullVekTypeWalker::isScalarType(const Vek::VekType& type) {
  return type->isBuiltin() || type->isEnum() || type->hasGnmiStrRep();
}

void FullVekTypeWalker::extractScalar(gnmi::Notification* notification,
                                      const Vek::Ptr<Vek::GenericIf const>& gif,
                                      const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                      gnmi::TypedValue* target) {
  if (type->hasGnmiStrRep()) {
    const std::string text = gif->gnmiStrRep();
    emit(notification, path, key, target, text, [&](gnmi::TypedValue& v) { v.set_string_val(text); });
  } else if (type->isBuiltin()) {
    extractBuiltin(notification, gif, type, path, key, target);
  } else if (type->isEnum()) {
    extractEnum(notification, gif, type, path, key, target);
  } else {
    extractValAttr(notification, gif, type, path, key, target);
  }
}

namespace {

// Emits one builtin value `v`; `text` gives its key text when `key` collects.
template <typename T, typename Text>
void emitBuiltin(gnmi::Notification* notification, const T& v, const gnmi::Path& path, VekKey& key,
                 gnmi::TypedValue* target, Text&& text) {
  if constexpr (std::is_same_v<T, bool>) {
    emit(notification, path, key, target, text(), [&](gnmi::TypedValue& t) { t.set_bool_val(v); });
  } else if constexpr (std::is_same_v<T, char>) {
    // A character goes out as its byte value, deliberately not as text.
    emit(notification, path, key, target, text(), [&](gnmi::TypedValue& t) {
      t.set_uint_val(static_cast<unsigned char>(v));
    });
  } else if constexpr (std::is_integral_v<T> && std::is_unsigned_v<T>) {
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_uint_val(static_cast<uint64_t>(v)); });
  } else if constexpr (std::is_integral_v<T>) {
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_int_val(static_cast<int64_t>(v)); });
  } else if constexpr (std::is_same_v<T, float>) {
    const std::string keyText = key.collecting() ? base64(bigEndianBytes(v).data(), 4) : std::string();
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    emit(notification, path, key, target, keyText, [&](gnmi::TypedValue& t) { t.set_float_val(v); });
#pragma GCC diagnostic pop
  } else if constexpr (std::is_same_v<T, double>) {
    // A double goes out as its 8 IEEE bytes, deliberately not as a number.
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_bytes_val(bigEndianBytes(v)); });
  } else if constexpr (std::is_same_v<T, Vek::String>) {
    const bool escape = key.collecting() && key.escapesText();
    const std::string value = escape ? escapedText(v.stdString()) : std::string();
    const std::string& chosen = escape ? value : v.stdString();
    emit(notification, path, key, target, chosen, [&](gnmi::TypedValue& t) { t.set_string_val(chosen); });
  } else if constexpr (std::is_same_v<T, Vek::Bytes>) {
    emit(notification, path, key, target, text(), [&](gnmi::TypedValue& t) {
      t.set_bytes_val(reinterpret_cast<const char*>(v.bytesPtr()), v.size());
    });
  } else if constexpr (std::is_same_v<T, Vek::Seconds>) {
    emit(notification, path, key, target, text(),
         [&](gnmi::TypedValue& t) { t.set_int_val(nanoseconds(v)); });
  }
}

// The representation code of the enumeration `type`'s underlying type.
Vek::BuiltinCode enumCode(const Vek::VekType& type) {
  const Vek::VekType underlying = type->underlyingType();
  const Vek::BuiltinCode code = underlying && underlying->isBuiltin() ? underlying->builtinCode()
                                                                      : Vek::BuiltinCode::None;
  if (code < Vek::BuiltinCode::UnsignedChar || code > Vek::BuiltinCode::Int) {
    ZOLT_FMASSERT(dbg, COMPONENT, "Unknown underlying enum type:{}", type);
  }
  return code;
}

// The published text of an enumeration value: its enumerator's name, or its
// number when no enumerator has it. `valueOf<T>()` reads the value.
template <typename ValueOf>
std::string enumText(const Vek::VekType& type, Vek::BuiltinCode code, ValueOf&& valueOf) {
  return Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
    if constexpr (std::is_integral_v<T> && !std::is_same_v<T, bool>) {
      const T value = valueOf(std::type_identity<T>());
      const Vek::VekAttr enumerator = type->attr(value);
      return enumerator ? enumerator->name() : std::to_string(value);
    } else {
      return std::string();
    }
  });
}

}  // namespace

void FullVekTypeWalker::extractBuiltin(gnmi::Notification* notification,
                                       const Vek::Ptr<Vek::GenericIf const>& gif,
                                       const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                       gnmi::TypedValue* target) {
  const Vek::BuiltinCode code = type->builtinCode();
  if (code == Vek::BuiltinCode::None) {
    ZOLT_FMASSERT(dbg, COMPONENT, "Unknown builtin type: {}", type);
  }
  // The text of a key part is the value's string form; only collecting keys
  // need it, so plain updates never build it.
  const auto text = [&]() { return key.collecting() ? gif->strRep() : std::string(); };
  Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
    emitBuiltin(notification, representation<T>(*gif), path, key, target, text);
  });
}

void FullVekTypeWalker::extractEnum(gnmi::Notification* notification,
                                    const Vek::Ptr<Vek::GenericIf const>& gif,
                                    const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                    gnmi::TypedValue* target) {
  const std::string name = enumText(type, enumCode(type), [&]<typename T>(std::type_identity<T>) {
    return representation<T>(*gif);
  });
  emit(notification, path, key, target, name, [&](gnmi::TypedValue& t) { t.set_string_val(name); });
}

namespace {

// Whether `attr` is a builtin or enumeration stored in its owner, which a
// walk reads in place (`extractStoredScalar`) instead of through a value
// handle: most leaves of a model are such attributes.
bool isStoredScalar(const Vek::VekAttr& attr) {
  const Vek::VekType& type = attr->type();
  return attr->storage() == Vek::AttrStorage::Value && !attr->isArray() && !type->hasGnmiStrRep() &&
         (type->isBuiltin() || type->isEnum());
}

// Emits the stored scalar `attr` of `owner` as an update at `path`, as
// extractScalar would emit the value that reading it yields.
void extractStoredScalar(gnmi::Notification* notification, const Vek::GenericIf& owner,
                         const Vek::VekAttr& attr, const gnmi::Path& path) {
  const Vek::VekType& type = attr->type();
  const void* raw = owner.rawAttr(attr, Vek::BuiltinCode::None);
  VekKey& key = plainKey();
  if (type->isBuiltin()) {
    const Vek::BuiltinCode code = type->builtinCode();
    if (code == Vek::BuiltinCode::None) {
      ZOLT_FMASSERT(dbg, COMPONENT, "Unknown builtin type: {}", type);
    }
    Vek::visitBuiltin(code, [&]<typename T>(std::type_identity<T>) {
      emitBuiltin(notification, *static_cast<const T*>(raw), path, key, nullptr, [] { return std::string(); });
    });
    return;
  }
  const std::string name = enumText(type, enumCode(type), [&]<typename T>(std::type_identity<T>) {
    return *static_cast<const T*>(raw);
  });
  emit(notification, path, key, nullptr, name, [&](gnmi::TypedValue& t) { t.set_string_val(name); });
}

}  // namespace

void FullVekTypeWalker::extractValAttr(gnmi::Notification* notification,
                                       const Vek::Ptr<Vek::GenericIf const>& gif,
                                       const Vek::VekType& type, const gnmi::Path& path, VekKey& key,
                                       gnmi::TypedValue*) {
  gnmi::Path leaf = path;
  for (Vek::VekTypeBase::AttributeQIterator it(type); it; ++it) {
    const Vek::VekAttr attr = *it;
    const Vek::Ptr<Vek::GenericIf const> value = attr.genericIfGet(gif);
    if (!value) continue;
    const ScopedElem elem(leaf, attr->name());
    extractScalar(notification, value, attr->type(), leaf, key, nullptr);
  }
}

void FullVekTypeWalker::extractScalarArray(gnmi::Notification* notification,
                                           const Vek::Ptr<Vek::GenericIf const>& gif,
                                           const Vek::VekAttr& attr, const Vek::VekType& type,
                                           const gnmi::Path& path) {
  if (!isScalarType(type)) {
    ZOLT_FMASSERT(dbg, COMPONENT, "Only builtins, enums, and split inheritance types are supported");
  }
  gnmi::Update* update = notification->add_update();
  update->mutable_path()->CopyFrom(path);
  // Made on the arena of the update, like everything in the notification.
  gnmi::ScalarArray* array = update->mutable_val()->mutable_leaflist_val();
  const auto* entity = asEntity(gif.ptr());
  if (entity) array->mutable_element()->Reserve(static_cast<int>(entity->memberCount(attr)));
  for (Vek::CollectionIterator it = attr.genericIfIteratorConst(gif); it; ++it) {
    extractScalar(nullptr, it.ptr(), type, path, plainKey(), array->add_element());
  }
}

void FullVekTypeWalker::extractGnmiJsonStrepAttr(gnmi::Notification* notification,
                                                 const Vek::Ptr<Vek::GenericIf const>& gif,
                                                 const Vek::VekAttr& attr, const gnmi::Path& path,
                                                 VekKey& key) {
  const std::string text = attr.genericIfGnmiJsonStrep(gif);
  emit(notification, path, key, nullptr, text, [&](gnmi::TypedValue& t) { t.set_json_val(text); });
}

void FullVekTypeWalker::extractKeyInfo(const Vek::Ptr<Vek::GenericIf const>& keyGif,
                                       const Vek::VekAttr& attr, VekKey& key, BaseRouter& router) {
  const Vek::VekType keyType = keyGif->type();
  key.collectingIs(true);
  if (keyType->isEntity()) {
    key.updateTypeAndGenKeyForPtr(attr, keyType, getPtrPathStr(keyGif, router));
  } else {
    const gnmi::Path generated = key.updateTypeAndGenKey(attr, keyType);
    // A wrapper key is named by the value it wraps.
    Vek::Ptr<Vek::GenericIf const> value = keyGif;
    Vek::VekType valueType = keyType;
    if (keyType->isWrapper() && keyType->valAttr()) {
      value = keyType->valAttr().genericIfGet(keyGif);
      valueType = keyType->valAttr()->type();
    }
    if (isScalarType(valueType)) {
      // Named by the generated element, else by the members' key attribute,
      // else by the collection.
      if (generated.elem_size() > 0) {
        extractScalar(nullptr, value, valueType, generated, key);
      } else {
        extractScalar(nullptr, value, valueType, keyPartName(attr), key);
      }
    } else {
      // A composite key: one part per attribute, named after it.
      extractValAttr(nullptr, value, valueType, gnmi::Path(), key);
    }
  }
  key.collectingIs(false);
}

// ---------------------------------------------------------------------------
// The full type walker

FullVekTypeWalker::FullVekTypeWalker(gnmi::Path prefixPath, ArenaRespMsgPtr updateMsg,
                                     Vek::Ptr<Vek::GenericIf const> gif, gnmi::Path leafPath,
                                     Vek::VekType objType, BaseRouter& router, SyncWalkId ids,
                                     WalkerFlags flags, VekKey& keyName, Timestamp timestamp)
    : prefixPath_(std::move(prefixPath)),
      updateMsg_(std::move(updateMsg)),
      leafPath_(std::move(leafPath)),
      objType_(objType),
      gif_(std::move(gif)),
      router_(router),
      syncId_(ids.first),
      walkId_(ids.second),
      flags_(flags),
      keyName_(keyName),
      timeStamp_(timestamp) {}

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
      ownMsg_(std::move(other.ownMsg_)) {}

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
  if (!obj) ZOLT_FMASSERT(dbg, COMPONENT, "cannot sync a nullptr");
  const Vek::Ptr<Vek::GenericIf const> gif = Vek::VekType::genericIf(obj);
  const Vek::VekType type = gif->type();
  ZOLT_TRACE(dbg, 5, COMPONENT, "prefixPath:{} syncWalkId:{} flags:{} timeStampToUse:{} type:{}",
             prefix, ids, flags, timeStampToUse, type);
  if (type->baseType() == Vek::Dir::Entry::entryType()) {
    ZOLT_TRACE(dbg, 5, COMPONENT, "skipping walk of Vek::Dir::Entry");
    return WalkResult::Done;
  }
  // Nothing is published from an entity that has left the model.
  if (const auto* entity = asEntity(gif.ptr()); entity && entity->hasLeft()) return WalkResult::Done;
  GifGnmiNotifiee* notifiee = setUpWalkFor(gif, type, obj, prefix, router, flags, timeStampToUse);
  ZOLT_TRACE(dbg, 9, COMPONENT, "construct FullVekTypeWalker with prefixPath:{}", prefix);
  FullVekTypeWalker walker(std::move(prefix), nullptr, gif, gnmi::Path(), type, router, ids, flags, noKey(), 0);
  walker.notifiee_ = notifiee;
  return walker.walk(key);
}

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
  if (!objTsMap().contains(notifiee)) ZOLT_FMASSERT(dbg, COMPONENT, "timestamp not found for {}", prefix);
  if (timeStampToUse == 0) timeStampToUse = nowUtc();
  for (Vek::VekTypeBase::AttributeQIterator attrIt(type); attrIt; ++attrIt) {
    const Vek::VekAttr attr = *attrIt;
    if (attr->isArray()) {
      TimeStampUtils::seedTs(notifiee, TSKey(attr->id(), nullptr), timeStampToUse);
    } else if (attr->isCollection()) {
      for (Vek::CollectionIterator member = attr.genericIfIteratorConst(gif); member; ++member) {
        TimeStampUtils::seedTs(notifiee, TSKey(attr->id(), member.key()), timeStampToUse);
      }
    }
  }
  return notifiee;
}

std::pair<gnmi::Notification*, ArenaRespMsgPtr> FullVekTypeWalker::createResponse(
    ArenaRespMsgPtr& msg, VekKey* key, Timestamp timestamp) const {
  gnmi::Notification* notification;
  bool fresh = false;
  if (!msg) {
    ArenaRespMsg::Created created = ArenaRespMsg::createResponse(prefixPath_, timestamp);
    msg = std::move(created.msg);
    notification = created.notification;
    fresh = true;
  } else if (!msg->response->has_update()) {
    msg->response->Clear();
    notification = msg->response->mutable_update();
    notification->mutable_prefix()->CopyFrom(prefixPath_);
    VekGnmiUtils::populateTimestamp(*notification, timestamp);
    fresh = true;
  } else {
    notification = msg->response->mutable_update();
  }
  if (key && fresh && !key->scalars().empty()) key->copyScalars(*notification);
  return {notification, msg};
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
                                                  gnmi::Path path, Timestamp timestamp, VekKey* key) {
  const auto* obj = static_cast<const Vek::PtrInterface*>(gif->voidPtr());
  return syncObjectInternal(obj, std::move(path), router_, {syncId_, walkId_}, flags_, timestamp, key);
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
  // The child borrows this walker's prefix and the leaf path, and gives them
  // back: it walks a value, whose attributes are scalars and nested values
  // only, so it pushes nothing and never pauses (a pause would move it, and
  // the paths with it, into the walk queue).
  FullVekTypeWalker child(std::move(prefixPath_), msg, attrGif, std::move(leafPath), valueType, router_,
                          {syncId_, walkId_}, flags_, key, timestamp);
  const WalkResult result = child.walk(childKey);
  prefixPath_ = std::move(child.prefixPath_);
  leafPath = std::move(child.leafPath_);
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

namespace {
// Walkers queued so far, to tell whether children of a walk paused.
uint64_t queuedWalkers = 0;
}  // namespace

WalkResult FullVekTypeWalker::walk(VekKey* key) {
  ZOLT_TRACE(dbg, 9, COMPONENT,
             "Start prefixPath_:{} leafPath_:{} objType_:{} updateMsg_:{} keyName_:{} syncId_:{} "
             "walkId_:{} flags_:{}",
             prefixPath_, leafPath_, objType_, updateMsg_, keyName_, syncId_, walkId_, flags_);
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
      auto [notification, msg] = createResponse(ownMsg_, nullptr, timeStamp_);
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

  for (; savedAttr_; ++savedAttr_) {
    const Vek::VekAttr attr = *savedAttr_;
    if (attr->type()->baseType() == Vek::collectionControlType()) continue;
    // Leaves held so far go out before an attribute that pushes messages of
    // its own, so that a walk pushes the same sequence whether it pauses or
    // not, and never holds a value across a pause.
    if (!updateMsg_ && ownMsg_ &&
        (attr->isCollection() || attr->isArray() || attr->isPointer() || attr->isInstantiating())) {
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
    if (attr->hasGnmiJsonStrep()) {
      const ScopedElem elem(leafPath_, attr->name());
      ArenaRespMsgPtr& msg = updateMsg_ ? updateMsg_ : ownMsg_;
      auto [notification, held] = createResponse(msg, nullptr, timeStamp_);
      extractGnmiJsonStrepAttr(notification, gif_, attr, leafPath_, plainKey());
    } else if (attr->isCollection()) {
      result = walkCollection(attr, notifiee.ptr());
      if (result != WalkResult::Done && !hasAny(flags_, WalkerFlags::IgnorePushResult)) {
        // Paused inside the collection: resume at the same attribute, after
        // the member just done.
        pause();
        return result;
      }
    } else {
      result = walkSingle(attr, notifiee.ptr());
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
  for (; it; ++it) {
    const Vek::Ptr<Vek::GenericIf const> keyGif = it.key();
    const Vek::Ptr<Vek::GenericIf const> member = it.ptr();
    if (!keyGif || !member) continue;
    const WalkResult result = walkMember(attr, keyGif, member, notifiee);
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

WalkResult FullVekTypeWalker::walkMember(const Vek::VekAttr& attr,
                                         const Vek::Ptr<Vek::GenericIf const>& keyGif,
                                         const Vek::Ptr<Vek::GenericIf const>& member,
                                         const GifGnmiNotifiee* notifiee) {
  Timestamp timestamp = timeStamp_;
  if (notifiee) {
    timestamp = VekGnmiUtils::getTimestamp(attr->name().c_str(), const_cast<GifGnmiNotifiee*>(notifiee),
                                           &keyGif);
  }
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
  VekKey key;
  ZOLT_TRACE(dbg, 9, COMPONENT, "{} extract the key", prefixPath_);
  extractKeyInfo(keyGif, attr, key, router_);
  ZOLT_TRACE(dbg, 9, COMPONENT, "{} call nextWalker for the value, then stringify vekKey:{}",
             prefixPath_, key);
  if (attr->isInstantiating()) {
    // The member's prefix is made once, whole; its key's scalar parts are
    // published by the member's own walk, below that prefix.
    gnmi::Path memberPrefix = joinPath(prefixPath_, leafPath_);
    key.updateAndStorePrefix(memberPrefix, false, attr);
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} instantiating attr, call syncObject for the value", prefixPath_);
    return handleInstantiating(member, std::move(memberPrefix), timestamp, &key);
  }
  const Vek::VekType memberType = member->type();
  const bool scalarMember = attr->isPointer() || isScalarType(memberType);
  gnmi::Path path = leafPath_;
  key.updateAndStorePrefix(path, scalarMember, attr);

  ArenaRespMsgPtr msg;
  if (attr->isPointer()) {
    msg = objPtrToPath(member, prefixPath_, path, timestamp, router_);
    key.copyScalars(*msg->response->mutable_update(), memberType);
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push ptr collection message: {}", prefixPath_, msg);
    return routerPush(msg);
  }
  auto [notification, held] = createResponse(msg, nullptr, timestamp);
  key.copyScalars(*notification, memberType);
  WalkResult result = WalkResult::Done;
  if (scalarMember) {
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

WalkResult FullVekTypeWalker::walkSingle(const Vek::VekAttr& attr, const GifGnmiNotifiee* notifiee) {
  const ScopedElem elem(leafPath_, attr->name());
  ZOLT_TRACE(dbg, 9, COMPONENT, "{} leaf attr, call nextWalker for the attr. attr:{} memberType:{}",
             prefixPath_, attr, attr->type());
  const auto timestampOf = [&]() {
    const Timestamp t =
        notifiee ? VekGnmiUtils::getTimestamp(attr->name().c_str(),
                                              const_cast<GifGnmiNotifiee*>(notifiee), nullptr)
                 : 0;
    return t != 0 ? t : timeStamp_;
  };
  if (attr->isArray()) {
    // An array travels as one leaf list in a message of its own, stamped with
    // the time it last changed.
    ArenaRespMsgPtr msg;
    auto [notification, held] = createResponse(msg, nullptr, timestampOf());
    extractScalarArray(notification, gif_, attr, attr->type(), leafPath_);
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push id:{} message: {}", prefixPath_, syncId_, msg);
    return routerPush(msg);
  }
  // Scalars and nested values of a walker travel together in its message,
  // pushed when the walk ends; the time is read only when the message is
  // made. Stored builtins and enumerations are read in place.
  if (isStoredScalar(attr)) {
    ArenaRespMsgPtr& msg = updateMsg_ ? updateMsg_ : ownMsg_;
    auto [notification, held] = createResponse(msg, nullptr, msg ? 0 : timestampOf());
    extractStoredScalar(notification, *gif_, attr, leafPath_);
    return WalkResult::Done;
  }
  const Vek::Ptr<Vek::GenericIf const> value = attr.genericIfGet(gif_);
  if (attr->isInstantiating()) {
    if (!value) return WalkResult::Done;  // an unset child is not published
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} singleton instantiating attr, call syncObject", prefixPath_);
    return handleInstantiating(value, joinPath(prefixPath_, leafPath_), timestampOf(), nullptr);
  }
  if (attr->isPointer()) {
    const ArenaRespMsgPtr msg = objPtrToPath(value, prefixPath_, leafPath_, timestampOf(), router_);
    ZOLT_TRACE(dbg, 5, COMPONENT, "{} push ptr collection message: {}", prefixPath_, msg);
    return routerPush(msg);
  }
  if (!value) return WalkResult::Done;
  ArenaRespMsgPtr& msg = updateMsg_ ? updateMsg_ : ownMsg_;
  auto [notification, held] = createResponse(msg, nullptr, msg ? 0 : timestampOf());
  if (isScalarType(value->type())) {
    extractScalar(notification, value, value->type(), leafPath_, plainKey());
    return WalkResult::Done;
  }
  return nextWalker(value, msg, leafPath_, value->type(), keyName_, timeStamp_, nullptr);
}

// ---------------------------------------------------------------------------
// The walk registry

void FullVekTypeWalker::addToWalkQ(std::unique_ptr<FullVekTypeWalker> walker) {
  const WalkId walkId = walker->walkId_;
  if (!walkId) ZOLT_FMASSERT(dbg, COMPONENT, "walkId 0 cannot be added to walkQ");
  WalkList& list = staticWalkMap[walkId];
  staticPathWalkIdMap[walker->prefixPath_].insert(walkId);
  ZOLT_TRACE(dbg, 4, COMPONENT, "Adding walkId:{} for path:{}", walkId, walker->prefixPath_);
  // A queued entity walker holds no reference on its entity: it is found
  // again through its notifiee when the walk resumes.
  if (isEntityType(walker->objType_)) walker->gif_ = nullptr;
  list.push_back(std::move(walker));
  ++queuedWalkers;
  ZOLT_TRACE(dbg, 4, COMPONENT, "type:{} walkQ size:{} walkId:{}", list.front()->objType_->name(),
             list.size(), walkId);
}

std::unique_ptr<FullVekTypeWalker> FullVekTypeWalker::popWalkQ(WalkList& list) {
  std::unique_ptr<FullVekTypeWalker> walker = std::move(list.front());
  list.pop_front();
  const auto pathIt = staticPathWalkIdMap.find(walker->prefixPath_);
  if (pathIt == staticPathWalkIdMap.end()) {
    ZOLT_FMASSERT(dbg, COMPONENT, "path {} is not found in the staticPathWalkIdMap", walker->prefixPath_);
  }
  if (isEntityType(walker->objType_)) {
    const auto notifieeIt = gNmiNotifieeMap.find(walker->prefixPath_);
    if (notifieeIt == gNmiNotifieeMap.end() || !notifieeIt->second) {
      ZOLT_FMASSERT(dbg, COMPONENT, "Failed to find a gNmiNotif for prefix:{}", walker->prefixPath_);
    }
    if (walker->gif_) ZOLT_FMASSERT(dbg, COMPONENT, "Expected walker->gif_ to be null!");
    walker->gif_ = Vek::VekType::genericIf(notifieeIt->second->entity());
  }
  if (pathIt->second.erase(walker->walkId_) != 0) {
    ZOLT_TRACE(dbg, 4, COMPONENT, "Removing walkId:{} for path:{}", walker->walkId_, walker->prefixPath_);
  }
  if (pathIt->second.empty()) {
    ZOLT_TRACE(dbg, 4, COMPONENT, "Removed path:{}", walker->prefixPath_);
    staticPathWalkIdMap.erase(pathIt);
  }
  return walker;
}

WalkResult FullVekTypeWalker::resumeSync(const WalkId& walkId) {
  if (!staticWalkMap.contains(walkId)) {
    ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} was not found in the walk map", walkId);
  }
  ZOLT_TRACE(dbg, 4, COMPONENT, "Resume walk of walkId:{}", walkId);
  staticWalkStartMap[walkId] = Vek::System::currentTime();
  while (!staticWalkMap[walkId].empty()) {
    std::unique_ptr<FullVekTypeWalker> walker = popWalkQ(staticWalkMap[walkId]);
    const std::string typeName = walker->objType_->name();
    ZOLT_TRACE(dbg, 4, COMPONENT, "Resume walk of {}", typeName);
    WalkList aside;
    aside.swap(staticWalkMap[walkId]);
    const WalkResult result = walker->walk(nullptr);
    // First in, first out across pauses: the walkers that waited go before
    // those the walk just queued.
    WalkList& list = staticWalkMap[walkId];
    list.splice(list.begin(), aside);
    if (result != WalkResult::Done && !list.empty()) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "Couldn't finish walk of {}", typeName);
      return result;
    }
    // Done, or a final push that paused with nothing left to resume.
    ZOLT_TRACE(dbg, 4, COMPONENT, "Finished walk of {}", typeName);
  }
  staticWalkMap.erase(walkId);
  staticWalkStartMap.erase(walkId);
  return WalkResult::Done;
}

WalkResult FullVekTypeWalker::resumeAllSyncsAndNotifs(std::vector<SyncWalkId>& idsComplete) {
  ZOLT_TRACE(dbg, 4, COMPONENT, "Resuming all pending syncs");
  if (!idsComplete.empty()) ZOLT_FMASSERT(dbg, COMPONENT, "idsComplete must be empty");
  for (;;) {
    if (staticWalkMap.empty()) return WalkResult::Done;
    const auto& [walkId, list] = *staticWalkMap.begin();
    if (list.empty()) ZOLT_FMASSERT(dbg, COMPONENT, "WalkList is empty for walkId:{}", walkId);
    const SyncWalkId ids{list.front()->syncId_, walkId};
    const WalkResult result = resumeSync(ids.second);
    if (result != WalkResult::Done) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "resumeSync for syncWalkId:{} did not complete", ids);
      return result;
    }
    ZOLT_TRACE(dbg, 1, COMPONENT, "resumeSync for syncWalkId:{} completed", ids);
    idsComplete.push_back(ids);
  }
}

bool FullVekTypeWalker::cancelPendingSync(WalkId walkId) {
  const auto it = staticWalkMap.find(walkId);
  if (it == staticWalkMap.end()) {
    if (staticWalkStartMap.contains(walkId)) {
      ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} is in staticWalkStartMap but not staticWalkMap", walkId);
    }
    return false;
  }
  // Destroyed after the maps no longer list them.
  WalkList gone = std::move(it->second);
  staticWalkMap.erase(it);
  if (staticWalkStartMap.erase(walkId) == 0) {
    ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} is in staticWalkMap but not staticWalkStartMap", walkId);
  }
  return true;
}

void FullVekTypeWalker::delFromWalkQ(const gnmi::Path& path) {
  const auto pathIt = staticPathWalkIdMap.find(path);
  if (pathIt == staticPathWalkIdMap.end()) return;
  ZOLT_TRACE(dbg, 4, COMPONENT, "Found path:{} in the walkQ", pathToStr(path));
  std::vector<gnmi::Path> pathsToErase;
  WalkList gone;
  const std::unordered_set<WalkId> walkIds = pathIt->second;
  for (const WalkId walkId : walkIds) {
    const auto walkIt = staticWalkMap.find(walkId);
    if (walkIt == staticWalkMap.end()) ZOLT_FMASSERT(dbg, COMPONENT, "walkId:{} not found", walkId);
    WalkList& list = walkIt->second;
    auto first = std::find_if(list.begin(), list.end(),
                              [&](const auto& walker) { return walker->prefixPath_ == path; });
    if (first == list.end()) continue;
    ZOLT_TRACE(dbg, 4, COMPONENT, "Delete path:{} for walkId:{}", path, walkId);
    // Everything queued behind the deleted path's walker goes with it.
    for (auto it = first; it != list.end(); ++it) {
      ZOLT_TRACE(dbg, 4, COMPONENT, "Deleting child path:{} for walkId:{}", (*it)->prefixPath_, walkId);
      pathsToErase.push_back((*it)->prefixPath_);
    }
    gone.splice(gone.end(), list, first, list.end());
  }
  for (const gnmi::Path& p : pathsToErase) staticPathWalkIdMap.erase(p);
}

void FullVekTypeWalker::flushWalkMap() {
  std::unordered_map<WalkId, WalkList> gone;
  gone.swap(staticWalkMap);
  staticWalkStartMap.clear();
}

size_t FullVekTypeWalker::walkMapSize() { return staticWalkMap.size(); }
size_t FullVekTypeWalker::walkMapStartSize() { return staticWalkStartMap.size(); }
std::unordered_map<WalkId, WalkList>& FullVekTypeWalker::walkMap() { return staticWalkMap; }
std::unordered_map<gnmi::Path, std::unordered_set<WalkId>>& FullVekTypeWalker::pathWalkIdMap() {
  return staticPathWalkIdMap;
}

std::string FullVekTypeWalker::dumpWalkMap() {
  std::string out;
  for (const auto& [walkId, list] : staticWalkMap) {
    fmt::format_to(std::back_inserter(out), "walkId:{} walkList:[ ", walkId);
    for (const auto& walker : list) fmt::format_to(std::back_inserter(out), "\n{} ", *walker);
    out += "]\n";
  }
  return out;
}

std::string FullVekTypeWalker::dumpPathWalkIdMap() {
  std::string out;
  for (const auto& [path, walkIds] : staticPathWalkIdMap) {
    fmt::format_to(std::back_inserter(out), "path:{} requestSet:[", pathToStr(path));
    for (const WalkId walkId : walkIds) fmt::format_to(std::back_inserter(out), " {} ", walkId);
    out += "]\n";
  }
  return out;
}

// ---------------------------------------------------------------------------
// The change walker

VekTypeNotifWalker::VekTypeNotifWalker(Zolt::Debuggable& debug, Vek::Ptr<Vek::GenericIf const> gif,
                                       gnmi::Path prefixPath, GifGnmiNotifiee* notifiee,
                                       const void* key, gnmi::Path leafPath, Vek::VekType type,
                                       Vek::AttributeId attrId, BaseRouter& router,
                                       WalkerFlags flags)
    : debug_(debug),
      gif_(std::move(gif)),
      prefixPath_(std::move(prefixPath)),
      notifiee_(notifiee),
      key_(key),
      leafPath_(std::move(leafPath)),
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
  gnmi::Path leaf = leafPath_;
  if (attr->hasGnmiJsonStrep()) {
    leaf.add_elem()->set_name(attr->name());
    auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
    FullVekTypeWalker::extractGnmiJsonStrepAttr(notification, gif_, attr, leaf, plainKey());
    routerPush(msg);
    return;
  }
  if (attr->isStack()) {
    ZOLT_TRACE(debug_, 1, NOTIF_COMPONENT, "stack collection type is not supported.");
    return;
  }
  if (attr->isArray()) {
    // An element changed: the whole leaf list is published again, and the
    // array's time is the time of this change.
    TimeStampUtils::recordTs(notifiee_, TSKey(attr->id(), nullptr), now);
    leaf.add_elem()->set_name(attr->name());
    auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
    FullVekTypeWalker::extractScalarArray(notification, gif_, attr, attr->type(), leaf);
    routerPush(msg);
    return;
  }
  if (!attr->isCollection()) {
    leaf.add_elem()->set_name(attr->name());
    VekKey noMemberKey;
    publishValue(attr, attr.genericIfGet(gif_), leaf, noMemberKey, now);
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
      auto [msg, notification] = ArenaRespMsg::createResponse(prefixPath_, now);
      VekGnmiUtils::pushDelete(*notification, path);
      const gnmi::Path joined = joinPath(prefixPath_, path);
      ZOLT_TRACE(debug_, 4, NOTIF_COMPONENT, "Deleting path:{}", joined);
      FullVekTypeWalker::delFromWalkQ(joined);
      routerPush(msg);
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
