// Attribute timestamps: the per-notifiee tables and their lookups.
#include "Ostrel/TimeStamps.h"

#include <Vek/Format.h>
#include <Zolt/Zolt.h>
#include <fmt/format.h>

#include "Ostrel/GifNotifiee.h"

namespace Ostrel {

namespace {

Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("Ostrel");
constexpr const char* COMPONENT = "TimeStampUtils";

// The key as stored: a wrapper's wrapped value; an entity's creation number;
// else the key itself.
//
// The runtime keeps entity keys as plain references, and so must a table: one
// that held the entity would keep it alive, so that published entities keyed
// by each other (or by their owner) would never end, nor their notifiees. The
// creation number is unique in the process and stands for the entity's
// identity, by which entity keys compare and hash.
Vek::Ptr<Vek::GenericIf const> normalised(Vek::Ptr<Vek::GenericIf const> key) {
  if (!key) return key;
  if (key->isEntity()) {
    const auto serial = static_cast<unsigned long long>(static_cast<const Vek::Entity&>(*key).serial());
    return Vek::genericIfOf(serial);
  }
  const Vek::VekType type = key->type();
  if (type->isWrapper()) {
    if (const Vek::VekAttr inner = type->valAttr()) return inner.genericIfGet(key);
  }
  return key;
}

// The entity of a notifiee that has a table. A notifiee may outlive its
// entity (whoever holds it keeps it after its zero-reference event), and then
// its entity pointer dangles: only a notifiee whose table still exists is
// known to watch a live entity. The runtime forgets the notifier of a
// notifiee whose entity ends, so that is read rather than the pointer kept.
const Vek::GenericIf* entityOf(const GifGnmiNotifiee* notifiee, const TimestampTable* table) {
  const Vek::PtrInterface* notifier = table ? notifiee->notifier() : nullptr;
  return notifier ? notifier->genericIfPtr() : nullptr;
}

// The attribute `attrName` of the entity of a notifiee with `table`, traced as
// every lookup.
Vek::VekAttr attrOf(const GifGnmiNotifiee* notifiee, const TimestampTable* table,
                    const char* attrName) {
  const Vek::GenericIf* entity = entityOf(notifiee, table);
  const Vek::VekType type = entity ? entity->type() : Vek::VekType();
  ZOLT_TRACE(dbg, 5, COMPONENT, "Looking up attr: {} in type: {}", attrName, type);
  return type ? type->attr(attrName) : Vek::VekAttr();
}

// `attr` when the notifiee with `table` watches a live entity (whose type
// holds `attr`), else null; traced as every lookup.
Vek::VekAttr liveAttr(const GifGnmiNotifiee* notifiee, const TimestampTable* table,
                      const Vek::VekAttr& attr) {
  const Vek::GenericIf* entity = entityOf(notifiee, table);
  ZOLT_TRACE(dbg, 5, COMPONENT, "Looking up attr: {} in type: {}",
             attr ? std::string_view(attr->name()) : std::string_view(),
             entity ? entity->type() : Vek::VekType());
  return entity ? attr : Vek::VekAttr();
}

// The time of (`attr`, `key`) in `table`; none for a null attribute.
std::optional<Timestamp> timeIn(const TimestampTable& table, const Vek::VekAttr& attr,
                                const Vek::Ptr<Vek::GenericIf const>& key) {
  if (!attr) return std::nullopt;
  const int64_t* time = table.find(TSKey(attr->id(), key));
  return time ? std::optional<Timestamp>(*time) : std::nullopt;
}

}  // namespace

TSKey::TSKey(Vek::AttributeId id, Vek::Ptr<Vek::GenericIf const> k)
    : attrId(id), key(normalised(std::move(k))) {}

bool TSKey::operator==(const TSKey& other) const {
  if (attrId != other.attrId) return false;
  if (!key || !other.key) return !key && !other.key;
  return Vek::VekType::genericIfBooleanOp(key, Vek::AttrOp::Equal, other.key);
}

uint32_t TSKey::hash() const {
  Vek::HashMix mix;
  mix.mixBytes4(static_cast<uint32_t>(attrId.value()));
  if (key) mix.mixBytes4(key->hash());
  return mix.value();
}

std::unordered_map<const GifGnmiNotifiee*, TimestampTable>& objTsMap() {
  static std::unordered_map<const GifGnmiNotifiee*, TimestampTable> map = [] {
    std::unordered_map<const GifGnmiNotifiee*, TimestampTable> m;
    m.max_load_factor(1.0f);
    return m;
  }();
  return map;
}

namespace {
// Built when the library loads, not on first use: statics are destroyed in
// the reverse order of their construction, so a map built at load outlives
// every model a program makes later, whose entities reach it as they end.
[[maybe_unused]] const bool tablesBuiltAtLoad = (objTsMap(), true);
}  // namespace

namespace TimeStampUtils {

namespace {

TimestampTable* tableOf(const GifGnmiNotifiee* notifiee) {
  auto& map = objTsMap();
  const auto it = map.find(notifiee);
  return it == map.end() ? nullptr : &it->second;
}

}  // namespace

std::optional<Timestamp> lookupAttrTs(const GifGnmiNotifiee* notifiee, const char* attrName) {
  const TimestampTable* table = tableOf(notifiee);
  const Vek::VekAttr attr = attrOf(notifiee, table, attrName);
  if (!table) ZOLT_FMASSERT(dbg, COMPONENT, "unable to find GifGnmiNotifiee in objTsMap");
  return timeIn(*table, attr, nullptr);
}

std::optional<Timestamp> lookupAttrTs(const GifGnmiNotifiee* notifiee, const Vek::VekAttr& attr) {
  const TimestampTable* table = tableOf(notifiee);
  const Vek::VekAttr live = liveAttr(notifiee, table, attr);
  if (!table) ZOLT_FMASSERT(dbg, COMPONENT, "unable to find GifGnmiNotifiee in objTsMap");
  return timeIn(*table, live, nullptr);
}

std::optional<Timestamp> lookupCollectionKeyTs(const GifGnmiNotifiee* notifiee, const char* attrName,
                                               const Vek::Ptr<Vek::GenericIf const>& key) {
  const TimestampTable* table = tableOf(notifiee);
  const Vek::VekAttr attr = attrOf(notifiee, table, attrName);
  return table ? timeIn(*table, attr, key) : std::nullopt;
}

std::optional<Timestamp> lookupCollectionKeyTs(const GifGnmiNotifiee* notifiee, const Vek::VekAttr& attr,
                                               const Vek::Ptr<Vek::GenericIf const>& key) {
  const TimestampTable* table = tableOf(notifiee);
  const Vek::VekAttr live = liveAttr(notifiee, table, attr);
  return table ? timeIn(*table, live, key) : std::nullopt;
}

Timestamp getAttrTs(const Vek::Ptr<GifGnmiNotifiee>& notifiee, const char* attrName) {
  const std::optional<Timestamp> time = lookupAttrTs(notifiee.ptr(), attrName);
  if (!time) ZOLT_FMASSERT(dbg, COMPONENT, "unable to retrieve timestamp for attr {}", attrName);
  return *time;
}

Timestamp getCollectionKeyTs(const Vek::Ptr<GifGnmiNotifiee>& notifiee, const char* attrName,
                             const Vek::Ptr<Vek::GenericIf const>& key) {
  const std::optional<Timestamp> time = lookupCollectionKeyTs(notifiee.ptr(), attrName, key);
  if (!time) {
    ZOLT_FMASSERT(dbg, COMPONENT, "unable to retrieve timestamp for attr {}, key {}", attrName,
                  key ? key->strRep() : std::string("null"));
  }
  return *time;
}

void recordTs(const GifGnmiNotifiee* notifiee, const TSKey& key, Timestamp time) {
  if (TimestampTable* table = tableOf(notifiee)) table->insert(key, time);
}

void seedTs(const GifGnmiNotifiee* notifiee, const TSKey& key, Timestamp time) {
  if (TimestampTable* table = tableOf(notifiee)) seedTs(*table, key, time);
}

void seedTs(TimestampTable& table, const TSKey& key, Timestamp time) {
  if (!table.contains(key)) table.insert(key, time);
}

bool eraseTs(const GifGnmiNotifiee* notifiee, const TSKey& key) {
  TimestampTable* table = tableOf(notifiee);
  return table && table->erase(key);
}

std::string dumpTsMap() {
  std::string out;
  for (const auto& [notifiee, table] : objTsMap()) {
    fmt::format_to(std::back_inserter(out), "GifGnmiNotifiee:{} path:{}\n",
                   static_cast<const void*>(notifiee), notifiee->prefixPath());
    const Vek::GenericIf* entity = entityOf(notifiee, &table);
    table.forEach([&](const TSKey& key, const int64_t& time) {
      const Vek::VekAttr attr = entity ? entity->type()->attr(key.attrId) : Vek::VekAttr();
      const bool entityKey = attr && attr->indexType() && attr->indexType()->isEntity();
      const std::string keyText = !key.key   ? std::string("null")
                                  : entityKey ? "entity#" + key.key->strRep()
                                              : key.key->strRep();
      fmt::format_to(std::back_inserter(out), "{}( {}, {} ) -> {}\n", attr, key.attrId, keyText, time);
    });
  }
  return out;
}

}  // namespace TimeStampUtils

}  // namespace Ostrel
