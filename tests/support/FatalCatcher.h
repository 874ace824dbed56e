// Test helpers for fatal assertions. While a `ScopedThrowingFatalHandler` is
// alive, `Zolt::fmassert` throws `Zolt::FatalError` instead of aborting, so a
// test can assert the exact message of each fatal path.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include <Zolt/Zolt.h>

namespace OstrelTest {

class ScopedThrowingFatalHandler {
 public:
  ScopedThrowingFatalHandler() : previous_(Zolt::fatalHandlerIs(&Zolt::throwingFatalHandler)) {
    // Fatal messages are emitted before the handler runs; keep them out of
    // the test output.
    previousSink_ = Zolt::traceSinkIs([](const Zolt::TraceRecord&) {});
  }
  ~ScopedThrowingFatalHandler() {
    Zolt::fatalHandlerIs(previous_);
    Zolt::traceSinkIs(std::move(previousSink_));
  }
  ScopedThrowingFatalHandler(const ScopedThrowingFatalHandler&) = delete;
  ScopedThrowingFatalHandler& operator=(const ScopedThrowingFatalHandler&) = delete;

 private:
  Zolt::FatalHandler previous_;
  Zolt::TraceSink previousSink_;
};

// Runs `fn` and returns the FatalError it raised; fails the test (and returns
// an empty error) when `fn` returns normally.
template <typename Fn>
Zolt::FatalError catchFatal(Fn&& fn) {
  ScopedThrowingFatalHandler handler;
  try {
    fn();
  } catch (const Zolt::FatalError& error) {
    return error;
  }
  ADD_FAILURE() << "expected a fatal assertion, but the call returned";
  return {};
}

}  // namespace OstrelTest

// Expects `statement` to raise a fatal assertion whose message is exactly
// `expectedMessage`.
#define EXPECT_FATAL(statement, expectedMessage) \
  EXPECT_EQ(::OstrelTest::catchFatal([&] { statement; }).message, (expectedMessage))
