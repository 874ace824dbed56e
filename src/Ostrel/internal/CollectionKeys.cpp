#include "CollectionKeys.h"

#include <unordered_map>

#include "Memo.h"
#include "Ostrel/VekKey.h"

namespace Ostrel::CollectionKeys {

namespace {

Naming namingOf(const Vek::VekAttr& attr) {
  Naming naming;
  const std::string& keyAttr = attr->keyAttrName();
  naming.declared = !keyAttr.empty() && attr->type() && attr->type()->attr(keyAttr);
  if (naming.declared) {
    const Vek::VekAttr index = attr->indexAttr();
    if (index && (index->flags() & Vek::AttrFlag::KEY_NAME) != 0) naming.indexName = index->name();
  }
  naming.generatedName = attr->name() + VekKey::KEY_SUFFIX;
  naming.partName.add_elem()->set_name(naming.declared ? keyAttr : attr->name());
  return naming;
}

}  // namespace

const Naming& of(const Vek::VekAttr& attr) {
  static std::unordered_map<const Vek::VekAttrBase*, Naming> namings;
  return Memo::of(namings, attr.base(), [](const Vek::VekAttrBase* base) { return namingOf(base); });
}

}  // namespace Ostrel::CollectionKeys
