// The runtime's exceptions. Every refusal of an operation on runtime objects
// (a write rejected by an attribute's check, text that does not parse, a value
// of the wrong type) throws a `Vek::Exception` whose `what()` says why; the
// object involved is left unchanged.
#pragma once

#include <stdexcept>
#include <string>

#include "Zolt/Export.h"

namespace Vek {

class VekTypeBase;

class VEK_EXPORT Exception : public std::runtime_error {
 public:
  explicit Exception(const std::string& message) : std::runtime_error(message) {}
  ~Exception() override;
};

// An attribute's check refused the value.
class VEK_EXPORT ValueRejectedException : public Exception {
 public:
  using Exception::Exception;
  ~ValueRejectedException() override;
};

// A value or key of the wrong type, or an operation the attribute does not
// support.
class VEK_EXPORT TypeMismatchException : public Exception {
 public:
  using Exception::Exception;
  ~TypeMismatchException() override;
};

// Text that is not a valid value of the type.
class VEK_EXPORT ParseException : public Exception {
 public:
  using Exception::Exception;
  ~ParseException() override;
};

// Enumeration misuse.
class VEK_EXPORT EnumException : public Exception {
 public:
  using Exception::Exception;
  ~EnumException() override;
};

// Throw an `EnumException` describing the misuse:
// an enumerator operation on a type that is not an enumeration;
[[noreturn]] VEK_EXPORT void throwNotEnumTypeException(const VekTypeBase& type);
// an enumerator name that the enumeration does not define;
[[noreturn]] VEK_EXPORT void throwNotEnumConstantException(const VekTypeBase& type,
                                                           const std::string& name);
// an enumerator operation on an attribute that is not an enumerator;
[[noreturn]] VEK_EXPORT void throwEnumAttrWrongTypeException(const VekTypeBase& type,
                                                             const std::string& attrName);
// a value of another integer type than the enumeration's underlying type.
[[noreturn]] VEK_EXPORT void throwEnumValueWrongUnderlyingTypeException(
    const VekTypeBase& type, const char* givenType);

}  // namespace Vek
