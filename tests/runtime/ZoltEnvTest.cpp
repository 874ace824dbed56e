// Level masks given by ZOLT_TRACE when the process loads. The test runner sets
// ZOLT_TRACE="*=0x1,EnvAlpha=0x5 EnvBeta=12,EnvGamma=0x80000000,bogus".
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include <Zolt/Zolt.h>

namespace {

TEST(ZoltEnv, RunnerSetsTheVariable) {
  const char* levels = std::getenv("ZOLT_TRACE");
  ASSERT_NE(levels, nullptr);
  EXPECT_EQ(std::string(levels), "*=0x1,EnvAlpha=0x5 EnvBeta=12,EnvGamma=0x80000000,bogus");
}

TEST(ZoltEnv, HexMaskFromEnvironment) {
  EXPECT_EQ(Zolt::Platform::getDebugHandler("EnvAlpha").levelMask(), 0x5u);
}

TEST(ZoltEnv, DecimalMaskFromEnvironment) {
  EXPECT_EQ(Zolt::Platform::getDebugHandler("EnvBeta").levelMask(), 12u);
}

TEST(ZoltEnv, HighestLevelBit) {
  const Zolt::Debuggable& gamma = Zolt::Platform::getDebugHandler("EnvGamma");
  EXPECT_EQ(gamma.levelMask(), 0x80000000u);
  EXPECT_TRUE(gamma.enabled(31));
  EXPECT_FALSE(gamma.enabled(0));
}

TEST(ZoltEnv, WildcardAppliesToUnnamedHandles) {
  EXPECT_EQ(Zolt::Platform::getDebugHandler("EnvUnnamed").levelMask(), 0x1u);
}

TEST(ZoltEnv, HandlesCreatedAtLoadTookTheirMasks) {
  // The path code obtains "OstrelPath" during static initialisation, which may
  // run before or after the runtime read the variable; either way it must
  // carry the wildcard mask.
  EXPECT_EQ(Zolt::Platform::getDebugHandler("OstrelPath").levelMask(), 0x1u);
}

}  // namespace
