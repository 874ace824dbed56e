// VekKey: the key of one collection member, as a walker publishes it.
//
// While a walker extracts a member's key (the key is *collecting*), every
// scalar part of the key is recorded with `mapInsert` instead of being
// emitted. The key then provides:
//   - the key map, which becomes the `key` map of the member's path element:
//       intf[name=eth0];
//   - the key string, the key map in text with names sorted: "[a=1][b=2]";
//   - a generated key element for keys that are not one simple scalar
//     (`updateTypeAndGenKey`): a composite key under the collection
//     `neighbor` is published under the element `neighborKey`;
//   - one update per scalar part (`copyScalars`), under the member's path, so
//     a subscriber sees the key fields as leaves as well:
//       /dev/intf[name=eth0]/name = "eth0".
//
// One VekKey lives for the walk of one collection member.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <google/protobuf/map.h>

#include <gnmi/gnmi.pb.h>

#include <Vek/Vek.h>

#include "Ostrel/Export.h"

namespace Ostrel {

class OSTREL_EXPORT VekKey {
 public:
  // Key kinds (`keyKind()`).
  static constexpr int32_t KIND_UNSET = 0;
  // One scalar: a builtin or a pointer to an entity.
  static constexpr int32_t KIND_SIMPLE = 1;
  // Anything else (enumeration, value type, wrapper): needs a generated key
  // element.
  static constexpr int32_t KIND_GENERATED = 2;

  // Bits of the flags word (`flags()`).
  // The key is being filled: value extractors record into it with
  // `mapInsert` instead of emitting updates.
  static constexpr uint32_t COLLECTING = 0x1;
  // Asks the value extractors that fill this key to escape "__" as "\__" in
  // the text of string parts, so that the "__"-joined name built by
  // `gnmiKeyName` stays unambiguous. The key itself stores texts as given;
  // the flag is the request. Set on a fresh key.
  static constexpr uint32_t ESCAPE_TEXT = 0x100;
  // `updateAndStorePrefix` has run: the stored prefix is valid.
  static constexpr uint32_t PREFIX_STORED = 0x200;

  // The name of the leaf under which a scalar collection member is published:
  // the collection attribute's name with this suffix ("mtuValue").
  static constexpr const char* VALUE_SUFFIX = "Value";
  // The suffix of the generated key element ("neighborKey").
  static constexpr const char* KEY_SUFFIX = "Key";

  using KeyMap = google::protobuf::Map<std::string, std::string>;
  using Scalar = std::pair<std::string, gnmi::TypedValue>;

  // An empty key: kind unset, no entries, flags ESCAPE_TEXT, empty prefix.
  VekKey();
  VekKey(const VekKey& other);
  VekKey& operator=(const VekKey& other);
  VekKey(VekKey&&) noexcept;
  VekKey& operator=(VekKey&&) noexcept;
  ~VekKey();

  int32_t keyKind() const { return keyKind_; }
  const KeyMap& keyMap() const { return keyMap_; }
  // The scalar parts, in insertion order.
  std::span<const Scalar> scalars() const { return {scalars_.data(), scalarCount_}; }
  uint32_t flags() const { return flags_; }
  const gnmi::Path& prefix() const { return prefix_; }

  bool collecting() const { return (flags_ & COLLECTING) != 0; }
  void collectingIs(bool on) { flagIs(COLLECTING, on); }
  bool escapesText() const { return (flags_ & ESCAPE_TEXT) != 0; }
  void escapesTextIs(bool on) { flagIs(ESCAPE_TEXT, on); }

  // Records one scalar part of the key: `name` -> `text` enters the key map
  // unless `name` is there already (the first text wins); (`name`, `value`)
  // is queued for `copyScalars` in any case.
  void mapInsert(const std::string& name, const std::string& text, gnmi::TypedValue value);
  // The same, returning the queued typed value for the caller to fill (it may
  // hold a value of an earlier key: set its value case, as a setter does).
  gnmi::TypedValue& mapInsert(const std::string& name, const std::string& text);

  // The key string: "" for an empty key map, else "[name=text]" per entry in
  // ascending byte order of the names, whatever the insertion order.
  explicit operator std::string() const;
  static std::string toString(const VekKey& key);

  // Writes "{KeyStr<key string>Values[ <name>=<value> ... ]}" and a line end
  // to `out` (std::cerr by default) and flushes it. Values print in
  // protobuf's one-line debug text.
  void dumpKey() const;
  void dumpKey(std::ostream& out) const;

  // Sets the key kind for a collection `attr` keyed by `keyType`, and returns
  // the generated key element, if any:
  //   - kind GENERATED when `keyType` is neither an entity nor a builtin, has
  //     a value attribute, or carries the wrapper flag (0x1000); else SIMPLE;
  //   - when `attr` declares a key attribute that the member type has, the
  //     result is the index attribute's name as one element if the index
  //     attribute's lowest flag bit is set, else empty;
  //   - otherwise a GENERATED key gives one element "<attr name>Key";
  //   - otherwise the result is empty.
  gnmi::Path updateTypeAndGenKey(Vek::VekAttr attr, Vek::VekType keyType);

  // The same for a key that is a pointer to an entity: also records the
  // pointer's path text as the key's value, unless the name is in the key map
  // already. The name is that of the generated key element when there is
  // one, else "<attr name>Key".
  gnmi::Path updateTypeAndGenKeyForPtr(Vek::VekAttr attr, Vek::VekType keyType,
                                       const std::string& ptrPathText);

  // The single-element name under which a keyed value is published: the
  // key-string text of `path` (`pathToKeyStr`) followed by "__name__text" for
  // each key entry in ascending name order, parsed back into a path. With an
  // empty key map this is `path` itself (through its key text): the
  // generated element neighborKey with keys a=1, b=2 gives
  // neighborKey__a__1__b__2.
  gnmi::Path gnmiKeyName(const gnmi::Path& path) const;

  // Folds the key into `path`, the path of the collection `attr`, and stores
  // the result as the prefix of the key's scalar values:
  //   - an element named after `attr` is appended unless `path` ends in a
  //     keyless element of that name, then the key map is merged into that
  //     last element (a path that ends in an element keyed already, as in a
  //     collection nested in a member of a collection of the same name, gets
  //     a new element):
  //       /dev/intf  ->  /dev/intf[name=eth0];
  //   - that keyed path becomes the stored prefix (`prefix()`);
  //   - with `scalarMember` (the member's value is one scalar leaf), `path` is
  //     extended by the leaf "<attr name>Value": /dev/intf[name=eth0]/intfValue.
  //     The stored prefix is then `path` cut at its last '/'.
  // The key map is merged structurally rather than through the text form, so
  // key values holding '/', '[' or ']' survive unchanged.
  // A SIMPLE key must have exactly one entry; any other count is a failed
  // assertion of "keyMap().size() == 1 && \"Expected map size of 1\"",
  // which ends the process.
  void updateAndStorePrefix(gnmi::Path& path, bool scalarMember, Vek::VekAttr attr);

  // The two halves of that fold, for a walker that keeps one path for all the
  // members of a collection and sets each member's key on it in turn:
  //   - the element of `path` that takes the key of a member of the
  //     collection `attr`: the last element when it is a keyless one named
  //     after `attr`, else a new element of that name appended to `path`;
  static gnmi::PathElem* collectionElem(gnmi::Path& path, Vek::VekAttr attr);
  //   - makes `elem`'s key map this key's map. Entries of names `elem` has
  //     already are overwritten in place, so that setting the next member's
  //     key on the same element allocates nothing.
  void keyInto(gnmi::PathElem& elem) const;

  // Appends one update per queued scalar, in insertion order: path = the
  // stored prefix plus one element named after the scalar, value = a copy.
  void copyScalars(gnmi::Notification& notification) const;
  // The same, leaving out the parts that a member of `memberType` publishes
  // itself (it has an attribute of that name), so no leaf goes out twice.
  void copyScalars(gnmi::Notification& notification, Vek::VekType memberType) const;
  // The same under `prefix` instead of the stored prefix.
  void copyScalars(gnmi::Notification& notification, const gnmi::Path& prefix,
                   Vek::VekType memberType) const;

  // Back to the state of a new key (kind unset, no entries, flags
  // ESCAPE_TEXT, empty prefix), keeping the scalar parts' memory for the
  // next member's key.
  void clear();

 private:
  void flagIs(uint32_t bit, bool on) { flags_ = on ? (flags_ | bit) : (flags_ & ~bit); }
  // Sets keyKind_ from the key type and returns the generated element.
  gnmi::Path genKey(Vek::VekAttr attr, Vek::VekType keyType);

  int32_t keyKind_ = KIND_UNSET;
  KeyMap keyMap_;
  // The first scalarCount_ entries are the scalar parts; those after them
  // are kept from before a `clear` for reuse.
  std::vector<Scalar> scalars_;
  size_t scalarCount_ = 0;
  uint32_t flags_ = ESCAPE_TEXT;
  gnmi::Path prefix_;
};

}  // namespace Ostrel

template <>
struct fmt::formatter<Ostrel::VekKey> : fmt::formatter<std::string_view> {
  template <typename FormatContext>
  auto format(const Ostrel::VekKey& key, FormatContext& ctx) const {
    return fmt::formatter<std::string_view>::format(Ostrel::VekKey::toString(key), ctx);
  }
};
