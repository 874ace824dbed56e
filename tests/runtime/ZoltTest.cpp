// The tracing facility: handles, level masks, the sink, fatal assertions and
// the lock.
#include <algorithm>
#include <exception>
#include <string>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include <Zolt/Zolt.h>

#include "FatalCatcher.h"

namespace {

// Counts how often it is formatted, to show that disabled traces format nothing.
struct Counted {
  int* formats;
};

}  // namespace

template <>
struct fmt::formatter<Counted> : fmt::formatter<int> {
  template <typename Ctx>
  auto format(const Counted& c, Ctx& ctx) const {
    ++*c.formats;
    return fmt::formatter<int>::format(*c.formats, ctx);
  }
};

namespace {

// Captures every record into a vector for the life of the object.
class CapturedTraces {
 public:
  struct Line {
    std::string handle;
    unsigned level;
    std::string file;
    std::string function;
    unsigned line;
    std::string component;
    std::string message;
    bool fatal;
  };

  CapturedTraces() {
    previous_ = Zolt::traceSinkIs([this](const Zolt::TraceRecord& r) {
      lines_.push_back({r.handle->name(), r.level, std::string(r.file), std::string(r.function),
                        r.line, std::string(r.component), std::string(r.message), r.fatal});
    });
  }
  ~CapturedTraces() { Zolt::traceSinkIs(std::move(previous_)); }

  const std::vector<Line>& lines() const { return lines_; }

 private:
  Zolt::TraceSink previous_;
  std::vector<Line> lines_;
};

TEST(ZoltHandle, SameNameGivesSameHandle) {
  Zolt::Debuggable& first = Zolt::Platform::getDebugHandler("ZoltTestSame");
  Zolt::Debuggable& second = Zolt::Platform::getDebugHandler(std::string("ZoltTestSame"));
  EXPECT_EQ(&first, &second);
  EXPECT_EQ(first.name(), "ZoltTestSame");
}

TEST(ZoltHandle, DifferentNamesGiveDifferentHandles) {
  EXPECT_NE(&Zolt::Platform::getDebugHandler("ZoltTestA"),
            &Zolt::Platform::getDebugHandler("ZoltTestB"));
}

TEST(ZoltHandle, NewHandleHasEveryLevelOff) {
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestFresh");
  EXPECT_EQ(h.levelMask(), 0u);
  for (unsigned level = 0; level < 32; ++level) EXPECT_FALSE(h.enabled(level));
}

TEST(ZoltHandle, LevelIsEnabledByItsBit) {
  Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestBits");
  h.levelMaskIs(0b1010);
  EXPECT_FALSE(h.enabled(0));
  EXPECT_TRUE(h.enabled(1));
  EXPECT_FALSE(h.enabled(2));
  EXPECT_TRUE(h.enabled(3));
  h.levelMaskIs(0xffffffffu);
  EXPECT_TRUE(h.enabled(31));
  EXPECT_FALSE(h.enabled(32));
  h.levelMaskIs(0);
}

TEST(ZoltTrace, DisabledTraceFormatsNothing) {
  Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestDisabled");
  h.levelMaskIs(1u << 2);
  CapturedTraces traces;
  int formats = 0;
  ZOLT_TRACE(h, 3, "Comp", "value {}", Counted{&formats});
  EXPECT_EQ(formats, 0);
  EXPECT_TRUE(traces.lines().empty());
  ZOLT_TRACE(h, 2, "Comp", "value {}", Counted{&formats});
  EXPECT_EQ(formats, 1);
  ASSERT_EQ(traces.lines().size(), 1u);
  EXPECT_EQ(traces.lines()[0].message, "value 1");
}

TEST(ZoltTrace, RecordCarriesEveryField) {
  Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestFields");
  h.levelMaskIs(1u << 5);
  CapturedTraces traces;
  const unsigned line = __LINE__ + 1;
  ZOLT_TRACE(h, 5, "Walker", "{} of {}", 3, "four");
  ASSERT_EQ(traces.lines().size(), 1u);
  const CapturedTraces::Line& l = traces.lines()[0];
  EXPECT_EQ(l.handle, "ZoltTestFields");
  EXPECT_EQ(l.level, 5u);
  EXPECT_EQ(l.file, "ZoltTest.cpp");
  EXPECT_EQ(l.function, "TestBody");
  EXPECT_EQ(l.line, line);
  EXPECT_EQ(l.component, "Walker");
  EXPECT_EQ(l.message, "3 of four");
  EXPECT_FALSE(l.fatal);
}

TEST(ZoltTrace, TraceLineLayout) {
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("OstrelLayout");
  const Zolt::TraceRecord record{
      std::chrono::system_clock::time_point(std::chrono::microseconds(1'500'000)),
      &h, 3, "Path.cpp", "parseElem", 120, "Path", "hello", false};
  EXPECT_EQ(Zolt::formatTraceLine(record),
            "1970-01-01T00:00:01.500000Z OstrelLayout 3 Path.cpp:120 parseElem Path: hello");
}

TEST(ZoltTrace, FatalLineShowsFatalForLevel) {
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("OstrelLayout");
  const Zolt::TraceRecord record{
      std::chrono::system_clock::time_point(std::chrono::seconds(86400 * 365)), &h, 0, "f.cpp",
      "fn", 7, "C", "boom", true};
  EXPECT_EQ(Zolt::formatTraceLine(record), "1971-01-01T00:00:00.000000Z OstrelLayout FATAL f.cpp:7 fn C: boom");
}

TEST(ZoltTrace, DefaultSinkWritesOneLineToStderr) {
  Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestStderr");
  h.levelMaskIs(1);
  testing::internal::CaptureStderr();
  ZOLT_TRACE(h, 0, "Comp", "to stderr {}", 42);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find(" ZoltTestStderr 0 ZoltTest.cpp:"), std::string::npos) << err;
  EXPECT_NE(err.find(" TestBody Comp: to stderr 42\n"), std::string::npos) << err;
  EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1);
}

TEST(ZoltTrace, SinkReplacementReturnsPrevious) {
  int calls = 0;
  Zolt::TraceSink mine = [&calls](const Zolt::TraceRecord&) { ++calls; };
  Zolt::TraceSink before = Zolt::traceSinkIs(mine);
  Zolt::TraceSink returned = Zolt::traceSinkIs(std::move(before));
  ASSERT_TRUE(returned);
  returned(Zolt::TraceRecord{});
  EXPECT_EQ(calls, 1);
}

TEST(ZoltTraceLevels, SetsNamedHandles) {
  Zolt::Debuggable& a = Zolt::Platform::getDebugHandler("LevelsA");
  Zolt::Debuggable& b = Zolt::Platform::getDebugHandler("LevelsB");
  EXPECT_EQ(Zolt::Platform::applyTraceLevels("LevelsA=3,LevelsB=0x10"), 2u);
  EXPECT_EQ(a.levelMask(), 3u);
  EXPECT_EQ(b.levelMask(), 0x10u);
}

TEST(ZoltTraceLevels, AppliesToHandlesCreatedLater) {
  EXPECT_EQ(Zolt::Platform::applyTraceLevels("LevelsLater=0xff"), 1u);
  EXPECT_EQ(Zolt::Platform::getDebugHandler("LevelsLater").levelMask(), 0xffu);
}

TEST(ZoltTraceLevels, LaterEntriesOverrideEarlierOnes) {
  Zolt::Platform::applyTraceLevels("LevelsOverride=1;LevelsOverride=6");
  EXPECT_EQ(Zolt::Platform::getDebugHandler("LevelsOverride").levelMask(), 6u);
}

TEST(ZoltTraceLevels, MalformedEntriesAreSkipped) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(Zolt::Platform::applyTraceLevels("noequals, =5 LevelsBad=0xzz LevelsBad=99999999999 LevelsGood=2"),
            1u);
  const std::string err = testing::internal::GetCapturedStderr();
  EXPECT_NE(err.find("ignoring malformed trace level entry \"noequals\""), std::string::npos);
  EXPECT_NE(err.find("ignoring malformed trace level entry \"LevelsBad=0xzz\""), std::string::npos);
  EXPECT_EQ(Zolt::Platform::getDebugHandler("LevelsGood").levelMask(), 2u);
  EXPECT_EQ(Zolt::Platform::getDebugHandler("LevelsBad").levelMask(), 0u);
}

TEST(ZoltTraceLevels, WildcardSetsEveryHandle) {
  Zolt::Debuggable& existing = Zolt::Platform::getDebugHandler("LevelsWildExisting");
  Zolt::Platform::applyTraceLevels("*=0x4");
  EXPECT_EQ(existing.levelMask(), 0x4u);
  EXPECT_EQ(Zolt::Platform::getDebugHandler("LevelsWildNew").levelMask(), 0x4u);
  Zolt::Platform::applyTraceLevels("*=0");
  EXPECT_EQ(existing.levelMask(), 0u);
}

TEST(ZoltFatal, FatalErrorIsNotAStdException) {
  static_assert(!std::is_base_of_v<std::exception, Zolt::FatalError>);
  OstrelTest::ScopedThrowingFatalHandler handler;
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestFatal");
  bool caughtAsStd = false;
  bool caughtAsFatal = false;
  try {
    try {
      ZOLT_FMASSERT(h, "Comp", "bad {}", 1);
    } catch (const std::exception&) {
      caughtAsStd = true;
    }
  } catch (const Zolt::FatalError&) {
    caughtAsFatal = true;
  }
  EXPECT_FALSE(caughtAsStd);
  EXPECT_TRUE(caughtAsFatal);
}

TEST(ZoltFatal, HandlerReceivesFormattedMessageAndLocation) {
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestFatal");
  const unsigned line = __LINE__ + 1;
  const Zolt::FatalError e = OstrelTest::catchFatal([&] { ZOLT_FMASSERT(h, "Set", "x={} y={}", 1, "two"); });
  EXPECT_EQ(e.message, "x=1 y=two");
  EXPECT_EQ(e.handle, "ZoltTestFatal");
  EXPECT_EQ(e.component, "Set");
  EXPECT_EQ(e.file, "ZoltTest.cpp");
  EXPECT_EQ(e.line, line);
}

TEST(ZoltFatal, MessageIsEmittedBeforeTheHandlerRunsWhateverTheMask) {
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestFatalMask");
  ASSERT_EQ(h.levelMask(), 0u);
  Zolt::FatalHandler previous = Zolt::fatalHandlerIs(&Zolt::throwingFatalHandler);
  CapturedTraces traces;
  try {
    ZOLT_FMASSERT(h, "Comp", "emitted {}", "first");
  } catch (const Zolt::FatalError&) {
  }
  Zolt::fatalHandlerIs(previous);
  ASSERT_EQ(traces.lines().size(), 1u);
  EXPECT_TRUE(traces.lines()[0].fatal);
  EXPECT_EQ(traces.lines()[0].message, "emitted first");
}

TEST(ZoltFatal, InstallingReturnsPreviousHandler) {
  Zolt::FatalHandler previous = Zolt::fatalHandlerIs(&Zolt::throwingFatalHandler);
  EXPECT_EQ(Zolt::fatalHandlerIs(previous), &Zolt::throwingFatalHandler);
}

TEST(ZoltFatalDeathTest, DefaultHandlerAbortsAfterEmitting) {
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestAbort");
  EXPECT_DEATH(ZOLT_FMASSERT(h, "Comp", "going down {}", 7),
               "ZoltTestAbort FATAL ZoltTest\\.cpp:[0-9]+ TestBody Comp: going down 7");
}

void returningHandler(const Zolt::FatalError&) {}

TEST(ZoltFatalDeathTest, HandlerThatReturnsStillEndsTheProcess) {
  const Zolt::Debuggable& h = Zolt::Platform::getDebugHandler("ZoltTestReturn");
  EXPECT_DEATH(
      {
        Zolt::fatalHandlerIs(&returningHandler);
        ZOLT_FMASSERT(h, "Comp", "handler returned");
      },
      "handler returned");
}

constinit Zolt::Locking::Lock staticLock;

TEST(ZoltLock, StaticLockIsConstantInitialisedAndUsable) {
  staticLock.lock();
  EXPECT_FALSE(staticLock.try_lock());
  staticLock.unlock();
  EXPECT_TRUE(staticLock.try_lock());
  staticLock.unlock();
}

TEST(ZoltLock, WorksWithStandardGuards) {
  Zolt::Locking::Lock lock;
  {
    std::lock_guard<Zolt::Locking::Lock> guard(lock);
    EXPECT_FALSE(lock.try_lock());
  }
  EXPECT_TRUE(lock.try_lock());
  lock.unlock();
}

}  // namespace
