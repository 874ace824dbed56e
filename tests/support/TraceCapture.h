// Collects what is traced under one handle while it lives: the handle's level
// mask is replaced by the given one and the trace sink by one that keeps the
// messages of that handle; both are restored at the end of the scope.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <Zolt/Zolt.h>

namespace OstrelTest {

class TraceCapture {
 public:
  TraceCapture(std::string_view handleName, uint32_t levelMask)
      : handle_(Zolt::Platform::getDebugHandler(handleName)), previousMask_(handle_.levelMask()) {
    handle_.levelMaskIs(levelMask);
    previousSink_ = Zolt::traceSinkIs([this](const Zolt::TraceRecord& record) {
      if (record.handle != &handle_) return;
      messages.emplace_back(record.message);
      lines.push_back(std::to_string(record.level) + " " + std::string(record.component) + " " +
                      std::string(record.message));
    });
  }
  ~TraceCapture() {
    Zolt::traceSinkIs(std::move(previousSink_));
    handle_.levelMaskIs(previousMask_);
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  // The messages in the order they were traced.
  std::vector<std::string> messages;
  // The same, each as "<level> <component> <message>".
  std::vector<std::string> lines;

 private:
  Zolt::Debuggable& handle_;
  uint32_t previousMask_;
  Zolt::TraceSink previousSink_;
};

}  // namespace OstrelTest
