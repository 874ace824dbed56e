// The runtime clock and its test replacement.
#include <gtest/gtest.h>

#include <Vek/Vek.h>

namespace {

using namespace Vek;

TEST(VekClock, SystemClockIsMonotonicAndNearEpochTime) {
  const double a = System::currentTime();
  const double b = System::currentTime();
  EXPECT_LE(a, b);
  const double utc = System::currentTimeUtc();
  EXPECT_GT(utc, 1.7e9);  // after 2023-11
  EXPECT_LT(utc, 4.1e9);  // before 2100
}

TEST(VekClock, TestClockReplacesBothReadings) {
  TestClock clock(10.0, 1800000000.25);
  ScopedClock scope(clock);
  EXPECT_EQ(System::currentTime(), 10.0);
  EXPECT_EQ(System::currentTimeUtc(), 1800000000.25);
  clock.advance(0.5);
  EXPECT_EQ(System::currentTime(), 10.5);
  EXPECT_EQ(System::currentTimeUtc(), 1800000000.75);
  clock.currentTimeIs(12.0);
  EXPECT_EQ(System::currentTimeUtc(), 1800000002.25);
  clock.currentTimeUtcIs(5.0);
  EXPECT_EQ(System::currentTimeUtc(), 5.0);
  EXPECT_EQ(System::currentTime(), 12.0);
}

TEST(VekClock, ScopeRestoresThePreviousClock) {
  TestClock outer(1.0, 2.0);
  {
    ScopedClock a(outer);
    {
      TestClock inner(3.0, 4.0);
      ScopedClock b(inner);
      EXPECT_EQ(System::currentTime(), 3.0);
    }
    EXPECT_EQ(System::currentTime(), 1.0);
  }
  EXPECT_GT(System::currentTimeUtc(), 1.7e9);
}

TEST(VekClock, SecondsConvertToAndFromDouble) {
  Seconds s = 1.5;
  const double sum = s + 0.25;
  EXPECT_EQ(sum, 1.75);
  EXPECT_TRUE(Seconds(2.0) >= s + 0.5);
  EXPECT_EQ(s.value(), 1.5);
}

}  // namespace
