// Result<T, E>: the outcome of an operation that either produces a value of
// type T or fails with an error of type E; it holds exactly one of the two.
// The Set side returns its failures this way instead of throwing.
//
//   Result<int, std::string> parsePort(std::string_view text) {
//     if (text.empty()) return Failure{std::string("empty port")};
//     return 8080;
//   }
//
//   Result<int, std::string> port = parsePort(text);
//   if (!port) return Failure{port.error()};
//   use(port.value());
//
// A value converts to a successful Result implicitly; an error is wrapped in
// `Failure` so that T and E may be the same type. Reading the side that a
// Result does not hold is a fatal assertion (it does not return).
#pragma once

#include <type_traits>
#include <utility>
#include <variant>

#include "Ostrel/Export.h"

namespace Ostrel {

// The error side of a Result under construction: `return Failure{error};`.
template <typename E>
struct Failure {
  E error;
};
template <typename E>
Failure(E) -> Failure<E>;

namespace detail {
// Reports a read of the side a Result does not hold: fatal, never returns.
[[noreturn]] OSTREL_EXPORT void resultSideMissing(bool valueWanted);
}  // namespace detail

template <typename T, typename E>
class [[nodiscard]] Result {
 public:
  // A success holding `value`.
  Result(const T& value) : state_(std::in_place_index<0>, value) {}  // NOLINT: implicit by design
  Result(T&& value) : state_(std::in_place_index<0>, std::move(value)) {}  // NOLINT
  // A failure holding `failure.error` (anything E can be made from).
  template <typename F>
    requires std::is_constructible_v<E, F&&>
  Result(Failure<F> failure)  // NOLINT: implicit by design
      : state_(std::in_place_index<1>, std::move(failure.error)) {}

  // Whether the Result holds a value.
  bool ok() const { return state_.index() == 0; }
  explicit operator bool() const { return ok(); }

  // The value; fatal when the Result holds an error.
  T& value() & { return std::get<0>(checked(true)); }
  const T& value() const& { return std::get<0>(checked(true)); }
  T&& value() && { return std::get<0>(std::move(checked(true))); }

  // The error; fatal when the Result holds a value.
  E& error() & { return std::get<1>(checked(false)); }
  const E& error() const& { return std::get<1>(checked(false)); }
  E&& error() && { return std::get<1>(std::move(checked(false))); }

 private:
  std::variant<T, E>& checked(bool valueWanted) {
    if (ok() != valueWanted) detail::resultSideMissing(valueWanted);
    return state_;
  }
  const std::variant<T, E>& checked(bool valueWanted) const {
    if (ok() != valueWanted) detail::resultSideMissing(valueWanted);
    return state_;
  }

  std::variant<T, E> state_;
};

}  // namespace Ostrel
