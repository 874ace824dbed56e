// Internal: plain assertions that end the process whatever NDEBUG says.
//
// A few checks report a failed assertion directly instead of going through the
// tracing facility's fatal handler, because agents and their harnesses match
// the C library's message for them. This reports the failure in that format:
//   "prog: file:line: function: Assertion `expr' failed."
// and aborts.
#pragma once

#include <cerrno>
#include <cstdio>
#include <cstdlib>

namespace Ostrel {

[[noreturn]] inline void plainAssertFail(const char* expression, const char* file,
                                         unsigned line, const char* function) {
  std::fprintf(stderr, "%s: %s:%u: %s: Assertion `%s' failed.\n", program_invocation_short_name,
               file, line, function, expression);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Ostrel

// Asserts `expr` in every build mode.
#define OSTREL_PLAIN_ASSERT(expr) \
  ((expr) ? void(0) : ::Ostrel::plainAssertFail(#expr, __FILE_NAME__, __LINE__, __PRETTY_FUNCTION__))
