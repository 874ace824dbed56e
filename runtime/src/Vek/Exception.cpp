// The runtime's exceptions and the throwers of enumeration misuse.
#include <fmt/format.h>

#include "Vek/Exception.h"
#include "Vek/TypeDescriptor.h"

namespace Vek {

Exception::~Exception() = default;
ValueRejectedException::~ValueRejectedException() = default;
TypeMismatchException::~TypeMismatchException() = default;
ParseException::~ParseException() = default;
EnumException::~EnumException() = default;

void throwNotEnumTypeException(const VekTypeBase& type) {
  throw EnumException(fmt::format("{} is not an enumeration", type.qualifiedName()));
}
void throwNotEnumConstantException(const VekTypeBase& type, const std::string& name) {
  throw EnumException(fmt::format("{} has no enumerator {}", type.qualifiedName(), name));
}
void throwEnumAttrWrongTypeException(const VekTypeBase& type, const std::string& attrName) {
  throw EnumException(fmt::format("{} of {} is not an enumerator", attrName, type.qualifiedName()));
}
void throwEnumValueWrongUnderlyingTypeException(const VekTypeBase& type, const char* givenType) {
  throw EnumException(fmt::format("{} is over {}, not {}", type.qualifiedName(),
                                  type.underlyingType() ? type.underlyingType()->name() : "nothing",
                                  givenType));
}

}  // namespace Vek
