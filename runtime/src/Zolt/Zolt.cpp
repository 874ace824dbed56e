#include "Zolt/Zolt.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <memory>
#include <vector>

namespace Zolt {

Debuggable::Debuggable(std::string name, uint32_t levelMask)
    : name_(std::move(name)), levelMask_(levelMask) {}

namespace {

// Handles and remembered level entries. Allocated once and never freed, so
// handles stay valid for code that traces during static destruction.
struct Registry {
  std::mutex mutex;
  std::map<std::string, std::unique_ptr<Debuggable>, std::less<>> handles;
  // Entries of the applied trace-level lists, in order; the last entry that
  // names a handle (or "*") decides its mask.
  std::vector<std::pair<std::string, uint32_t>> entries;

  uint32_t maskFor(std::string_view name) const {
    uint32_t mask = 0;
    for (const auto& [entryName, entryMask] : entries) {
      if (entryName == name || entryName == "*") mask = entryMask;
    }
    return mask;
  }
};

Registry& registry() {
  static Registry* const reg = [] {
    auto* r = new Registry;
    return r;
  }();
  return *reg;
}

bool parseMask(std::string_view text, uint32_t& mask) {
  if (text.empty()) return false;
  int base = 10;
  if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    base = 16;
    text.remove_prefix(2);
  }
  uint64_t value = 0;
  for (char c : text) {
    int digit;
    if (c >= '0' && c <= '9') {
      digit = c - '0';
    } else if (base == 16 && c >= 'a' && c <= 'f') {
      digit = c - 'a' + 10;
    } else if (base == 16 && c >= 'A' && c <= 'F') {
      digit = c - 'A' + 10;
    } else {
      return false;
    }
    if (digit >= base) return false;
    value = value * static_cast<uint64_t>(base) + static_cast<uint64_t>(digit);
    if (value > 0xffffffffu) return false;
  }
  mask = static_cast<uint32_t>(value);
  return true;
}

// The sink and the fatal handler. The sink is guarded by its own lock so that
// records from several threads never interleave.
struct Output {
  std::mutex mutex;
  TraceSink sink;
};

Output& output() {
  static Output* const out = new Output;
  return *out;
}

std::atomic<FatalHandler> fatalHandler{nullptr};

void defaultSink(const TraceRecord& record) {
  std::string line = formatTraceLine(record);
  line.push_back('\n');
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

// Hands `record` to the installed sink, or to the default one, under the
// sink's lock.
void deliver(const TraceRecord& record) {
  Output& out = output();
  std::lock_guard<std::mutex> guard(out.mutex);
  if (out.sink) {
    out.sink(record);
  } else {
    defaultSink(record);
  }
}

[[noreturn]] void defaultFatalHandler(const FatalError&) { std::abort(); }

// Reads ZOLT_TRACE when the runtime library loads.
[[maybe_unused]] const bool envApplied = [] {
  if (const char* levels = std::getenv("ZOLT_TRACE")) {
    Platform::applyTraceLevels(levels);
  }
  return true;
}();

}  // namespace

namespace Platform {

Debuggable& getDebugHandler(std::string_view name) {
  Registry& reg = registry();
  std::lock_guard<std::mutex> guard(reg.mutex);
  auto it = reg.handles.find(name);
  if (it == reg.handles.end()) {
    it = reg.handles
             .emplace(std::string(name),
                      std::make_unique<Debuggable>(std::string(name), reg.maskFor(name)))
             .first;
  }
  return *it->second;
}

unsigned applyTraceLevels(std::string_view levels) {
  Registry& reg = registry();
  std::lock_guard<std::mutex> guard(reg.mutex);
  unsigned applied = 0;
  size_t pos = 0;
  while (pos < levels.size()) {
    size_t end = levels.find_first_of(",; \t\n", pos);
    if (end == std::string_view::npos) end = levels.size();
    std::string_view entry = levels.substr(pos, end - pos);
    pos = end + 1;
    if (entry.empty()) continue;
    size_t eq = entry.find('=');
    uint32_t mask = 0;
    if (eq == std::string_view::npos || eq == 0 || !parseMask(entry.substr(eq + 1), mask)) {
      std::string warning = fmt::format("Zolt: ignoring malformed trace level entry \"{}\"\n", entry);
      std::fwrite(warning.data(), 1, warning.size(), stderr);
      continue;
    }
    std::string_view name = entry.substr(0, eq);
    reg.entries.emplace_back(std::string(name), mask);
    if (name == "*") {
      for (auto& [handleName, handle] : reg.handles) handle->levelMaskIs(mask);
    } else if (auto it = reg.handles.find(name); it != reg.handles.end()) {
      it->second->levelMaskIs(mask);
    }
    ++applied;
  }
  return applied;
}

}  // namespace Platform

TraceSink traceSinkIs(TraceSink sink) {
  Output& out = output();
  std::lock_guard<std::mutex> guard(out.mutex);
  TraceSink previous = std::move(out.sink);
  out.sink = std::move(sink);
  return previous;
}

std::string formatTraceLine(const TraceRecord& record) {
  using namespace std::chrono;
  const auto sinceEpoch = record.time.time_since_epoch();
  const auto secs = duration_cast<seconds>(sinceEpoch);
  const auto micros = duration_cast<microseconds>(sinceEpoch - secs).count();
  std::time_t t = static_cast<std::time_t>(secs.count());
  std::tm tm{};
  gmtime_r(&t, &tm);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%dT%H:%M:%S", &tm);
  // Fatal records show FATAL where ordinary ones show their level.
  const std::string level = record.fatal ? std::string("FATAL") : std::to_string(record.level);
  const std::string_view handle =
      record.handle != nullptr ? std::string_view(record.handle->name()) : std::string_view("?");
  return fmt::format("{}.{:06}Z {} {} {}:{} {} {}: {}", stamp, micros, handle, level,
                     record.file, record.line, record.function, record.component,
                     record.message);
}

FatalHandler fatalHandlerIs(FatalHandler handler) {
  return fatalHandler.exchange(handler);
}

void throwingFatalHandler(const FatalError& error) { throw error; }

namespace detail {

void emit(const Debuggable& handle, unsigned level, const char* file, const char* function,
          unsigned line, const char* component, std::string_view message) {
  deliver(TraceRecord{std::chrono::system_clock::now(), &handle, level, file, function, line,
                      component, message, false});
}

void fatal(const Debuggable& handle, const char* file, const char* function, unsigned line,
           const char* component, std::string message) {
  deliver(TraceRecord{std::chrono::system_clock::now(), &handle, 0, file, function, line,
                      component, message, true});
  FatalHandler handler = fatalHandler.load();
  FatalError error{handle.name(), file, function, line, component, std::move(message)};
  if (handler != nullptr) {
    handler(error);
  } else {
    defaultFatalHandler(error);
  }
  // A handler that returns breaks the contract of fmassert; stop here.
  std::abort();
}

}  // namespace detail

}  // namespace Zolt
