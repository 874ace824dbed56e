// Modules: named groups of types, through which a model is declared. A module
// hands out a type builder (Vek/TypeDef.h) for each new entity, value or
// enumeration type, and makes aliases. The builtin module "Vek" holds the
// builtin types and the runtime's own types (see Vek/TypeHandle.h).
//
// A model in a few lines:
//
//   Vek::Module& m = Vek::Module::moduleNew("Net");
//   Vek::VekType status = m.enumType("Status", Vek::builtinType<int>())
//                             .enumerator("up", 1).enumerator("down", 2).done();
//   Vek::VekType counters = m.valueType("Counters")
//                               .scalar("inPkts", Vek::builtinType<unsigned long long>())
//                               .scalar("outPkts", Vek::builtinType<unsigned long long>())
//                               .done();
//   Vek::TypeDef intf = m.entityType("Interface");
//   intf.scalar("mtu", Vek::builtinType<unsigned>(), "1500")
//       .scalar("status", status).scalar("counters", counters)
//       .pointer("peer", intf.type());
//   intf.done();
//
// Modules and their types live until the process exits.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Vek/TypeDef.h"

namespace Vek {

// A named group of types. The module of the builtin types is "Vek" (index
// 0); modules are created once and live until the process exits.
class VEK_EXPORT Module {
 public:
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Creates the module `name`; a second module of one name is fatal.
  static Module& moduleNew(std::string name);
  // The module named `name`, or null.
  static Module* module(std::string_view name);
  static Module& builtins();

  const std::string& name() const { return name_; }
  uint32_t index() const { return index_; }

  TypeDef entityType(std::string name);
  // An entity type with the type flags `flags` from the start (before its
  // name attribute is made: see `TypeFlag::NAME_NOT_DATA`).
  TypeDef entityType(std::string name, uint32_t flags);
  TypeDef valueType(std::string name);
  // An enumeration over one of the six integer builtins up to int (codes 1
  // to 6); any other underlying type is fatal.
  TypeDef enumType(std::string name, VekType underlying);
  // A type that aliases `target`, with its own flags.
  VekType aliasType(std::string name, VekType target, uint32_t flags = 0);

  // Types in creation order; by name (null when unknown).
  size_t typeCount() const;
  VekType type(uint32_t index) const;
  VekType type(std::string_view name) const;

 private:
  friend class VekTypeBase;
  Module(std::string name, uint32_t index) : name_(std::move(name)), index_(index) {}
  VekTypeBase* typeNew(std::string name, TypeKind kind);

  std::string name_;
  uint32_t index_;
  std::vector<std::unique_ptr<VekTypeBase>> types_;
};

}  // namespace Vek
