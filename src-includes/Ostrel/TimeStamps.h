// Attribute timestamps: for every published entity, the time at which each
// attribute and each collection member last changed (or was first seen), so
// that updates carry the time of the change rather than the time of sending.
//
// Each `GifGnmiNotifiee` owns one table in `objTsMap()`, from a `TSKey`
// (attribute id, collection key) to a `Timestamp`. The walk set-up seeds it
// with the time an entity is first published, the change walker refreshes an
// entry on every change and erases it on a delete, and the walkers read it
// through `VekGnmiUtils::getTimestamp`.
//
// Single-threaded: every access happens on the thread that runs the library.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>

#include <Vek/Vek.h>

#include "Ostrel/Export.h"
#include "Ostrel/Types.h"

namespace Ostrel {

class GifGnmiNotifiee;

// The key of one timestamp: an attribute and, for a collection member, the
// member's key (null for any other attribute).
//
// A key whose type wraps another value (the wrapper flag, followed through
// aliases) is stored as the wrapped value, so a key given wrapped and the same
// key given bare find one entry. Keys are compared by value (the runtime's
// Equal) and hashed from their value: reading a wrapper's value yields a new
// object each time, so comparing objects would never match. An entity key is
// stored as the entity's creation number (`Vek::Entity::serial`): it compares
// and hashes by identity, as the runtime does, and takes no reference on the
// entity, which a table must not keep alive.
struct OSTREL_EXPORT TSKey {
  TSKey(Vek::AttributeId attrId, Vek::Ptr<Vek::GenericIf const> key);

  Vek::AttributeId attrId;
  Vek::Ptr<Vek::GenericIf const> key;

  bool operator==(const TSKey& other) const;
  // The attribute id's 4 bytes, then (with a key) the key's 32-bit value hash,
  // mixed with `Vek::HashMix`.
  uint32_t hash() const;
};

// One notifiee's table.
using TimestampTable = Vek::HMap<TSKey, int64_t>;

// Every notifiee's table. Built empty on first use (so it exists before any
// notifiee, whatever the order of static initialisation) and destroyed at
// exit.
OSTREL_EXPORT std::unordered_map<const GifGnmiNotifiee*, TimestampTable>& objTsMap();

namespace TimeStampUtils {

// The time recorded for the plain attribute `attrName` of the notifiee's
// entity, if any. Fatal ("unable to find GifGnmiNotifiee in objTsMap") when
// the notifiee has no table. An attribute the entity's type does not have has
// no time.
OSTREL_EXPORT std::optional<Timestamp> lookupAttrTs(const GifGnmiNotifiee* notifiee,
                                                    const char* attrName);

// The time recorded for the member at `key` of the collection `attrName`, if
// any. A notifiee without a table has no times.
OSTREL_EXPORT std::optional<Timestamp> lookupCollectionKeyTs(const GifGnmiNotifiee* notifiee,
                                                             const char* attrName,
                                                             const Vek::Ptr<Vek::GenericIf const>& key);

// The same two lookups for an attribute given by its descriptor, which must
// be an attribute of the notifiee's entity's type: a walker holds the
// attribute already and spares the lookup by name for every member.
OSTREL_EXPORT std::optional<Timestamp> lookupAttrTs(const GifGnmiNotifiee* notifiee,
                                                    const Vek::VekAttr& attr);
OSTREL_EXPORT std::optional<Timestamp> lookupCollectionKeyTs(const GifGnmiNotifiee* notifiee,
                                                             const Vek::VekAttr& attr,
                                                             const Vek::Ptr<Vek::GenericIf const>& key);
// The same, for callers that require a time: a missing one is fatal
// ("unable to retrieve timestamp for attr <name>" / "... for attr <name>, key
// <key text>").
OSTREL_EXPORT Timestamp getAttrTs(const Vek::Ptr<GifGnmiNotifiee>& notifiee, const char* attrName);
OSTREL_EXPORT Timestamp getCollectionKeyTs(const Vek::Ptr<GifGnmiNotifiee>& notifiee,
                                           const char* attrName,
                                           const Vek::Ptr<Vek::GenericIf const>& key);

// Records `time` for `key` in the notifiee's table, replacing an earlier
// time; no-op for a notifiee without a table.
OSTREL_EXPORT void recordTs(const GifGnmiNotifiee* notifiee, const TSKey& key, Timestamp time);
// Records `time` unless the key has a time already (a value keeps the time
// at which it was first seen).
OSTREL_EXPORT void seedTs(const GifGnmiNotifiee* notifiee, const TSKey& key, Timestamp time);
// The same into a table found beforehand (one walk seeds many members).
OSTREL_EXPORT void seedTs(TimestampTable& table, const TSKey& key, Timestamp time);
// Removes the entry of `key`; whether there was one.
OSTREL_EXPORT bool eraseTs(const GifGnmiNotifiee* notifiee, const TSKey& key);

// Every table: per notifiee "GifGnmiNotifiee:<address> path:<prefix>\n", then
// per entry "<attribute name>( <attribute id>, <key text> ) -> <time>\n" (key
// text "null" for plain attributes, "entity#<creation number>" for entity
// keys).
OSTREL_EXPORT std::string dumpTsMap();

}  // namespace TimeStampUtils

}  // namespace Ostrel
