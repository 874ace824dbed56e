#include "Ostrel/VekKey.h"

#include <algorithm>
#include <iostream>
#include <vector>

#include <fmt/format.h>

#include "Ostrel/Path.h"
#include "internal/CollectionKeys.h"
#include "internal/PlainAssert.h"
#include "internal/UpdatePaths.h"

namespace Ostrel {

namespace {

// Key-map entries in ascending byte order of their names; the protobuf map
// iterates in no defined order.
std::vector<const VekKey::KeyMap::value_type*> sortedEntries(const VekKey::KeyMap& map) {
  std::vector<const VekKey::KeyMap::value_type*> entries;
  entries.reserve(map.size());
  for (const auto& entry : map) entries.push_back(&entry);
  std::sort(entries.begin(), entries.end(),
            [](const auto* a, const auto* b) { return a->first < b->first; });
  return entries;
}

}  // namespace

VekKey::VekKey() = default;
VekKey::VekKey(const VekKey& other) = default;
VekKey& VekKey::operator=(const VekKey& other) = default;
VekKey::VekKey(VekKey&&) noexcept = default;
VekKey& VekKey::operator=(VekKey&&) noexcept = default;
// Members go in reverse order: prefix, flags, queue, map.
VekKey::~VekKey() = default;

void VekKey::mapInsert(const std::string& name, const std::string& text, gnmi::TypedValue value) {
  mapInsert(name, text) = std::move(value);
}

gnmi::TypedValue& VekKey::mapInsert(const std::string& name, const std::string& text) {
  keyMap_.insert({name, text});
  if (scalarCount_ == scalars_.size()) scalars_.emplace_back();
  Scalar& scalar = scalars_[scalarCount_++];
  scalar.first = name;
  return scalar.second;
}

VekKey::operator std::string() const {
  std::string out;
  for (const auto* entry : sortedEntries(keyMap_)) {
    fmt::format_to(std::back_inserter(out), "[{}={}]", entry->first, entry->second);
  }
  return out;
}

std::string VekKey::toString(const VekKey& key) { return static_cast<std::string>(key); }

void VekKey::dumpKey() const { dumpKey(std::cerr); }

void VekKey::dumpKey(std::ostream& out) const {
  out << "{KeyStr" << static_cast<std::string>(*this) << "Values[ ";
  for (const auto& [name, value] : scalars()) {
    out << name << "=" << value.ShortDebugString() << " ";
  }
  out << "]}" << std::endl;
}

gnmi::Path VekKey::genKey(Vek::VekAttr attr, Vek::VekType keyType) {
  const uint8_t kindCode = keyType->kindCode();
  if ((kindCode != 0 && kindCode != 1) || keyType->valAttr() ||
      (keyType->flags() & Vek::TypeFlag::WRAPPER) != 0) {
    keyKind_ = KIND_GENERATED;
  } else {
    keyKind_ = KIND_SIMPLE;
  }

  gnmi::Path generated;
  const CollectionKeys::Naming& naming = CollectionKeys::of(attr);
  if (naming.declared) {
    // The member carries its key in a declared attribute; the key is
    // published under that attribute's name only when the index attribute
    // asks for it.
    if (!naming.indexName.empty()) generated.add_elem()->set_name(naming.indexName);
    return generated;
  }
  if (keyKind_ == KIND_GENERATED) {
    generated.add_elem()->set_name(naming.generatedName);
  }
  return generated;
}

gnmi::Path VekKey::updateTypeAndGenKey(Vek::VekAttr attr, Vek::VekType keyType) {
  return genKey(attr, keyType);
}

gnmi::Path VekKey::updateTypeAndGenKeyForPtr(Vek::VekAttr attr, Vek::VekType keyType,
                                             const std::string& ptrPathText) {
  gnmi::Path generated = genKey(attr, keyType);
  const std::string name = generated.elem_size() > 0
                               ? generated.elem(generated.elem_size() - 1).name()
                               : attr->name() + KEY_SUFFIX;
  keyMap_.insert({name, ptrPathText});
  return generated;
}

gnmi::Path VekKey::gnmiKeyName(const gnmi::Path& path) const {
  std::string text = pathToKeyStr(path);
  if (keyMap_.empty()) {
    return strToPath(text);
  }
  if (!text.empty()) {
    text.append("__");
  }
  bool first = true;
  for (const auto* entry : sortedEntries(keyMap_)) {
    if (!first) text.append("__");
    first = false;
    fmt::format_to(std::back_inserter(text), "{}__{}", entry->first, entry->second);
  }
  return strToPath(text);
}

void VekKey::updateAndStorePrefix(gnmi::Path& path, bool scalarMember, Vek::VekAttr attr) {
  keyInto(*collectionElem(path, attr));
  prefix_ = path;
  if (scalarMember) {
    path.add_elem()->set_name(attr->name() + VALUE_SUFFIX);
  }
  flags_ |= PREFIX_STORED;
}

gnmi::PathElem* VekKey::collectionElem(gnmi::Path& path, Vek::VekAttr attr) {
  const std::string& attrName = attr->name();
  const int count = path.elem_size();
  if (count == 0 || path.elem(count - 1).name() != attrName ||
      !path.elem(count - 1).key().empty()) {
    path.add_elem()->set_name(attrName);
  }
  return path.mutable_elem(path.elem_size() - 1);
}

void VekKey::keyInto(gnmi::PathElem& elem) const {
  if (keyKind_ == KIND_SIMPLE) {
    OSTREL_PLAIN_ASSERT(keyMap().size() == 1 && "Expected map size of 1");
  }
  KeyMap& keys = *elem.mutable_key();
  // The element of a simple key keyed for the previous member: only the text
  // changes.
  if (keys.size() == 1 && keyMap_.size() == 1 && keys.begin()->first == keyMap_.begin()->first) {
    keys.begin()->second = keyMap_.begin()->second;
    return;
  }
  bool sameNames = keys.size() == keyMap_.size();
  for (auto it = keys.begin(); sameNames && it != keys.end(); ++it) sameNames = keyMap_.count(it->first) != 0;
  if (!sameNames) keys.clear();
  for (const auto& [name, text] : keyMap_) keys[name] = text;
}

void VekKey::copyScalars(gnmi::Notification& notification) const {
  copyScalars(notification, prefix_, Vek::VekType());
}

void VekKey::copyScalars(gnmi::Notification& notification, Vek::VekType memberType) const {
  copyScalars(notification, prefix_, memberType);
}

void VekKey::copyScalars(gnmi::Notification& notification, const gnmi::Path& prefix,
                         Vek::VekType memberType) const {
  for (const auto& [name, value] : scalars()) {
    if (memberType && memberType->attr(name)) continue;
    *UpdatePaths::addUpdate(notification, prefix, &name) = value;
  }
}

void VekKey::clear() {
  keyKind_ = KIND_UNSET;
  keyMap_.clear();
  scalarCount_ = 0;
  if ((flags_ & PREFIX_STORED) != 0) prefix_.Clear();
  flags_ = ESCAPE_TEXT;
}

}  // namespace Ostrel
