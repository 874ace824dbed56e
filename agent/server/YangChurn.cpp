#include "YangChurn.h"

#include <charconv>
#include <string>

#include <fmt/format.h>
#include <libyang/libyang.h>

#include "YangValue.h"

namespace VekGnmi::Server {

namespace {

// How many changes go by before the tree is scanned again for entities a Set
// made.
constexpr uint64_t RESCAN_EVERY = 4096;

__extension__ typedef __int128 Int128;

// An integer type without a range of its own: a counter or a gauge
// (yang:counter64, yang:gauge32, ...), not an index or a length.
bool isCounter(const Yang::YangLeaf& leaf) {
  switch (leaf.base) {
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_INT64:
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32:
    case LY_TYPE_UINT64:
      return reinterpret_cast<const lysc_type_num*>(leaf.type)->range == nullptr;
    default:
      return false;
  }
}

// The top of an integer type.
Int128 typeMax(Yang::YangBaseType base) {
  switch (base) {
    case LY_TYPE_INT8: return INT8_MAX;
    case LY_TYPE_INT16: return INT16_MAX;
    case LY_TYPE_INT32: return INT32_MAX;
    case LY_TYPE_INT64: return INT64_MAX;
    case LY_TYPE_UINT8: return UINT8_MAX;
    case LY_TYPE_UINT16: return UINT16_MAX;
    case LY_TYPE_UINT32: return UINT32_MAX;
    default: return UINT64_MAX;
  }
}

bool parseInteger(const std::string& text, Int128& out) {
  const char* end = text.data() + text.size();
  if (!text.empty() && text.front() == '-') {
    long long v = 0;
    const auto r = std::from_chars(text.data(), end, v);
    out = v;
    return r.ec == std::errc() && r.ptr == end;
  }
  unsigned long long v = 0;
  const auto r = std::from_chars(text.data(), end, v);
  out = v;
  return r.ec == std::errc() && r.ptr == end;
}

}  // namespace

YangChurn::YangChurn(const Yang::YangModel& model, Vek::Ptr<Vek::Dir> root, double rate, uint64_t seed,
                     double maxLag)
    : ChangeSimulator(rate, maxLag), model_(model), root_(std::move(root)), random_(seed) {
  scan();
}

void YangChurn::scan() {
  counters_.clear();
  statuses_.clear();
  sinceScan_ = 0;
  for (Vek::CollectionIterator it = Vek::Dir::entityPtrAttr().genericIfIteratorConst(root_); it; ++it) {
    const Vek::Ptr<Vek::GenericIf const> child = it.ptr();
    if (child && model_.nodeOfType(child->type())) {
      scanEntity(Vek::Ptr<Vek::Entity>(static_cast<Vek::Entity*>(const_cast<Vek::GenericIf*>(child.ptr()))));
    }
  }
}

void YangChurn::scanEntity(const Vek::Ptr<Vek::Entity>& entity) {
  const Vek::VekType type = entity->type();
  for (size_t i = 0; i < type->attrCount(); ++i) {
    const Vek::VekAttr attr = type->attrAt(i);
    if (const Yang::YangLeaf* leaf = model_.leaf(attr.base())) {
      if (!leaf->state || leaf->key || leaf->leafList || !attr.genericIfExist(entity.ptr())) continue;
      if (isCounter(*leaf)) counters_.push_back({entity, leaf});
      if (leaf->base == LY_TYPE_ENUM) statuses_.push_back({entity, leaf});
    } else if (const Yang::YangNode* node = model_.node(attr.base())) {
      if (node->list) {
        for (Vek::CollectionIterator it = attr.genericIfIteratorConst(entity.ptr()); it; ++it) {
          scanEntity(Vek::Ptr<Vek::Entity>(static_cast<Vek::Entity*>(const_cast<Vek::GenericIf*>(it.ptr().ptr()))));
        }
      } else if (Vek::Ptr<Vek::Entity> child = entity->entity(attr)) {
        scanEntity(child);
      }
    }
  }
}

void YangChurn::change() {
  if (++sinceScan_ >= RESCAN_EVERY) scan();
  const bool flap = !statuses_.empty() && (counters_.empty() || random_() % 20 == 0);
  const std::vector<Instance>& pool = flap ? statuses_ : counters_;
  if (pool.empty()) return;
  const Instance pick = pool[random_() % pool.size()];
  if (!(flap ? flapStatus(pick) : advanceCounter(pick))) scan();
}

bool YangChurn::advanceCounter(const Instance& instance) {
  if (instance.entity->hasLeft()) return false;
  const Yang::YangLeaf& leaf = *instance.leaf;
  const Vek::Ptr<Vek::GenericIf const> current = leaf.attr.genericIfGet(instance.entity.ptr());
  Int128 value = 0;
  if (!current || !parseInteger(Yang::YangValue::canonicalText(leaf, *current), value)) return true;
  value += 1 + static_cast<Int128>(random_() % 1000);
  if (value > typeMax(leaf.base)) value = 0;
  const bool negative = value < 0;
  const auto magnitude = static_cast<unsigned long long>(negative ? -value : value);
  auto canonical = Yang::YangValue::canonicalize(leaf, fmt::format("{}{}", negative ? "-" : "", magnitude));
  if (!canonical) return true;  // outside the leaf's range: skipped
  auto next = Yang::YangValue::runtimeValue(leaf, canonical.value());
  if (!next) return true;
  leaf.attr.genericIfSet(instance.entity.ptr(), nullptr, next.value().ptr());
  ++counterChanges_;
  return true;
}

bool YangChurn::flapStatus(const Instance& instance) {
  if (instance.entity->hasLeft()) return false;
  const Yang::YangLeaf& leaf = *instance.leaf;
  const Vek::Ptr<Vek::GenericIf const> current = leaf.attr.genericIfGet(instance.entity.ptr());
  const Vek::VekType enumeration = leaf.valueType;
  if (!current || enumeration->attrCount() < 2) return true;
  const std::string& first = enumeration->attrRefAt(0).name();
  const std::string& next =
      Yang::YangValue::canonicalText(leaf, *current) == first ? enumeration->attrRefAt(1).name() : first;
  auto value = Yang::YangValue::runtimeValue(leaf, next);
  if (!value) return true;
  leaf.attr.genericIfSet(instance.entity.ptr(), nullptr, value.value().ptr());
  ++statusFlaps_;
  return true;
}

}  // namespace VekGnmi::Server
