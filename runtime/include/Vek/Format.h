// fmt formatters for runtime handles, so traces can print them with "{}":
// a type by its qualified name, an attribute by its name, a generic handle by
// its `strRep` ("null" for null handles).
#pragma once

#include <fmt/format.h>

#include "Vek/GenericIf.h"

template <>
struct fmt::formatter<Vek::VekType> : fmt::formatter<std::string_view> {
  template <typename Ctx>
  auto format(const Vek::VekType& type, Ctx& ctx) const {
    return fmt::formatter<std::string_view>::format(type ? type->qualifiedName() : "null", ctx);
  }
};

template <>
struct fmt::formatter<Vek::VekAttr> : fmt::formatter<std::string_view> {
  template <typename Ctx>
  auto format(const Vek::VekAttr& attr, Ctx& ctx) const {
    return fmt::formatter<std::string_view>::format(attr ? attr->name() : "null", ctx);
  }
};

// An attribute id prints as its number.
template <>
struct fmt::formatter<Vek::AttributeId> : fmt::formatter<int32_t> {
  template <typename Ctx>
  auto format(Vek::AttributeId id, Ctx& ctx) const {
    return fmt::formatter<int32_t>::format(id.value(), ctx);
  }
};

template <>
struct fmt::formatter<Vek::String> : fmt::formatter<std::string_view> {
  template <typename Ctx>
  auto format(const Vek::String& text, Ctx& ctx) const {
    return fmt::formatter<std::string_view>::format(text.stdString(), ctx);
  }
};

template <typename T>
  requires std::is_base_of_v<Vek::GenericIf, std::remove_const_t<T>>
struct fmt::formatter<Vek::Ptr<T>> : fmt::formatter<std::string_view> {
  template <typename Ctx>
  auto format(const Vek::Ptr<T>& gif, Ctx& ctx) const {
    return fmt::formatter<std::string_view>::format(gif ? gif->strRep() : "null", ctx);
  }
};
