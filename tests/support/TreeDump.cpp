#include "TreeDump.h"

#include <vector>

#include <fmt/format.h>

namespace OstrelTest {

namespace {

void dumpEntity(const Vek::Entity& entity, std::string& out) {
  fmt::format_to(std::back_inserter(out), "{} : {}\n", entity.fullName(),
                 entity.type()->qualifiedName());
  std::vector<Vek::Ptr<Vek::GenericIf const>> owned;
  for (Vek::VekTypeBase::AttributeQIterator it(entity.type()); it; ++it) {
    const Vek::VekAttr attr = *it;
    fmt::format_to(std::back_inserter(out), "  {} = {}\n", attr->name(),
                   attr.genericIfGnmiJsonStrep(&entity));
    if (!attr->isInstantiating()) continue;
    if (attr->isCollection()) {
      for (auto member = attr.genericIfIteratorConst(&entity); member; ++member) {
        owned.push_back(member.ptr());
      }
    } else if (Vek::Ptr<Vek::GenericIf const> child = attr.genericIfGet(&entity)) {
      owned.push_back(child);
    }
  }
  for (const auto& child : owned) {
    if (child) dumpEntity(static_cast<const Vek::Entity&>(*child), out);
  }
}

}  // namespace

std::string dumpTree(const Vek::Entity& root) {
  std::string out;
  dumpEntity(root, out);
  return out;
}

}  // namespace OstrelTest
