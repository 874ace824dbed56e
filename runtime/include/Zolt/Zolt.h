// Zolt: the tracing facility.
//
// Traces are grouped under named handles (`Zolt::Debuggable`). Each handle
// carries a 32-bit level mask; a trace at level n is emitted only when bit
// (1 << n) of its handle's mask is set, and a disabled trace formats nothing:
// the check is one relaxed load and a shift, inlined at the call site.
//
// Typical use, one handle per source file obtained at load time:
//
//   static Zolt::Debuggable& dbg = Zolt::Platform::getDebugHandler("OstrelPath");
//   ZOLT_TRACE(dbg, 3, "Path", "parsed {} elements", n);
//   ZOLT_FMASSERT(dbg, "Path", "path \"{}\" contains a trailing backslash", text);
//
// Masks are set from code (`Debuggable::levelMaskIs`) or, when the process
// loads, from the environment variable ZOLT_TRACE (see `applyTraceLevels`).
// Emitted traces go to a replaceable sink; the default sink writes one line per
// trace to stderr:
//
//   2026-11-21T13:40:01.123456Z OstrelPath 3 Path.cpp:120 parseElem Path: text
//
// `fmassert` formats and emits its message unconditionally, then calls the
// fatal handler and never returns. The default handler aborts; tests install a
// handler that throws `Zolt::FatalError` so each fatal path can be asserted by
// its exact message.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "Zolt/Export.h"

namespace Zolt {

// A named trace handle with a level mask. Handles are created only by
// `Platform::getDebugHandler` and live until the process exits, so references
// to them stay valid during static destruction.
class ZOLT_EXPORT Debuggable {
 public:
  explicit Debuggable(std::string name, uint32_t levelMask = 0);
  Debuggable(const Debuggable&) = delete;
  Debuggable& operator=(const Debuggable&) = delete;

  const std::string& name() const { return name_; }

  uint32_t levelMask() const { return levelMask_.load(std::memory_order_relaxed); }
  void levelMaskIs(uint32_t mask) { levelMask_.store(mask, std::memory_order_relaxed); }

  // True when traces at `level` (0..31) are emitted; false for levels >= 32.
  bool enabled(unsigned level) const {
    return level < 32 && ((levelMask() >> level) & 1u) != 0;
  }

 private:
  std::string name_;
  std::atomic<uint32_t> levelMask_;
};

namespace Platform {

// Returns the one handle registered under `name`, creating it on first use.
// A handle created after ZOLT_TRACE was read takes the mask the variable gives
// for its name (or for "*"), else 0. Thread-safe; the reference never dangles.
ZOLT_EXPORT Debuggable& getDebugHandler(std::string_view name);

// Applies a list of trace levels: entries separated by ',', ';' or blanks,
// each NAME=MASK with MASK in decimal or 0x-prefixed hex. The name "*" applies
// to every handle, existing and future; later entries override earlier ones.
// Sets the masks of existing handles and remembers the entries for handles
// created later. Returns the number of entries applied; malformed entries are
// skipped with a warning on stderr. The environment variable ZOLT_TRACE is
// applied this way when the runtime loads.
ZOLT_EXPORT unsigned applyTraceLevels(std::string_view levels);

}  // namespace Platform

// One emitted trace, as handed to the sink. The views are valid only during
// the sink call.
struct TraceRecord {
  std::chrono::system_clock::time_point time;
  const Debuggable* handle;
  unsigned level;
  std::string_view file;
  std::string_view function;
  unsigned line;
  std::string_view component;
  std::string_view message;
  bool fatal;  // emitted by fmassert, whatever the mask
};

using TraceSink = std::function<void(const TraceRecord&)>;

// Replaces the sink and returns the previous one. An empty function restores
// the default stderr sink. The sink is called under a lock, one record at a
// time, from whichever thread traces.
ZOLT_EXPORT TraceSink traceSinkIs(TraceSink sink);

// Formats a record the way the default sink prints it (without newline).
ZOLT_EXPORT std::string formatTraceLine(const TraceRecord& record);

// What a fatal assertion reports to the fatal handler. Deliberately not derived
// from std::exception: a test handler throws it, and no
// `catch (const std::exception&)` on the way up may swallow it.
struct FatalError {
  std::string handle;
  std::string file;
  std::string function;
  unsigned line = 0;
  std::string component;
  std::string message;
};

// Called by fmassert after the message is emitted. A handler must not return
// (throw, abort or exit); if it does return the process aborts anyway.
using FatalHandler = void (*)(const FatalError&);

// Installs `handler` (nullptr restores the default, which aborts) and returns
// the previous handler.
ZOLT_EXPORT FatalHandler fatalHandlerIs(FatalHandler handler);

// A ready-made handler for tests: throws the FatalError it is given.
[[noreturn]] ZOLT_EXPORT void throwingFatalHandler(const FatalError& error);

namespace detail {
ZOLT_EXPORT void emit(const Debuggable& handle, unsigned level, const char* file,
                      const char* function, unsigned line, const char* component,
                      std::string_view message);
[[noreturn]] ZOLT_EXPORT void fatal(const Debuggable& handle, const char* file,
                                    const char* function, unsigned line,
                                    const char* component, std::string message);
}  // namespace detail

namespace detail {
// The formatting half of `trace`, kept out of line so that a disabled trace
// compiles to the mask test alone.
template <typename... Args>
[[gnu::noinline, gnu::cold]] void traceEnabled(const Debuggable& handle, unsigned level,
                                               const char* file, const char* function,
                                               unsigned line, const char* component,
                                               fmt::format_string<Args...> format,
                                               Args&&... args) {
  fmt::memory_buffer buf;
  fmt::format_to(std::back_inserter(buf), format, std::forward<Args>(args)...);
  emit(handle, level, file, function, line, component, std::string_view(buf.data(), buf.size()));
}
}  // namespace detail

// Emits a trace when `level` is enabled on `handle`; otherwise returns without
// formatting anything (the arguments themselves are still evaluated).
template <typename... Args>
[[gnu::always_inline]] inline void trace(const Debuggable& handle, unsigned level,
                                         const char* file, const char* function, unsigned line,
                                         const char* component,
                                         fmt::format_string<Args...> format, Args&&... args) {
  if (handle.enabled(level)) [[unlikely]] {
    detail::traceEnabled<Args...>(handle, level, file, function, line, component, format,
                                  std::forward<Args>(args)...);
  }
}

// Formats the message, emits it whatever the mask, calls the fatal handler and
// never returns.
template <typename... Args>
[[noreturn]] inline void fmassert(const Debuggable& handle, const char* file,
                                  const char* function, unsigned line,
                                  const char* component,
                                  fmt::format_string<Args...> format, Args&&... args) {
  detail::fatal(handle, file, function, line, component,
                fmt::format(format, std::forward<Args>(args)...));
}

namespace Locking {

// A mutual-exclusion lock that is constant-initialised: a Lock with static
// storage duration is usable before any constructor runs, so it can guard
// state touched during static initialisation and destruction. Satisfies
// Lockable, so std::lock_guard / std::unique_lock work with it.
class Lock {
 public:
  constexpr Lock() noexcept = default;
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;

  void lock() { mutex_.lock(); }
  void unlock() { mutex_.unlock(); }
  bool try_lock() { return mutex_.try_lock(); }

 private:
  std::mutex mutex_;
};

}  // namespace Locking

}  // namespace Zolt

// Call-site helpers that fill in the source file, function and line.
#define ZOLT_TRACE(handle, level, component, ...)                                  \
  ::Zolt::trace((handle), (level), __FILE_NAME__, __func__, __LINE__, (component), \
                __VA_ARGS__)
#define ZOLT_FMASSERT(handle, component, ...)                                   \
  ::Zolt::fmassert((handle), __FILE_NAME__, __func__, __LINE__, (component), \
                   __VA_ARGS__)
