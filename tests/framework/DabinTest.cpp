#include <string>

#include <gtest/gtest.h>

#include "Tunnel/framework/Dabin.h"

namespace FrameworkTest {

DABIN_FACILITY("FrameworkTest::Dabin");

namespace {

// Counts how often it is formatted: a disabled trace must not format it.
struct Probe {
  int* formatted;
};

}  // namespace
}  // namespace FrameworkTest

template <>
struct fmt::formatter<FrameworkTest::Probe> : fmt::formatter<std::string_view> {
  auto format(FrameworkTest::Probe const& p, format_context& ctx) const {
    ++*p.formatted;
    return fmt::formatter<std::string_view>::format("probe", ctx);
  }
};

namespace FrameworkTest {
namespace {

void traceAtLevels(Probe probe, int* evaluated) {
  auto arg = [evaluated] { return ++*evaluated; };
  fmtrace(2, "two {} {}", probe, arg());
  fmtrace(3, "three {} {}", probe, arg());
}

void requirePositive(int v) { fmassert(v > 0, "got {}", v); }
void requirePositiveQuietly(int v) { fmassert(v > 0); }

class DabinTest : public ::testing::Test {
 protected:
  void SetUp() override { Dabin::sinkIs(&capture_); }
  void TearDown() override {
    Dabin::sinkIs(nullptr);
    dabinFacility_.levelsUpTo(-1);
  }
  Dabin::CaptureSink capture_;
};

TEST_F(DabinTest, OnlyEnabledLevelsEvaluateFormatAndReachTheSink) {
  int formatted = 0;
  int evaluated = 0;
  traceAtLevels(Probe{&formatted}, &evaluated);
  EXPECT_TRUE(capture_.lines().empty());
  EXPECT_EQ(formatted + evaluated, 0);
  dabinFacility_.levelIs(3, true);
  traceAtLevels(Probe{&formatted}, &evaluated);
  ASSERT_EQ(capture_.lines().size(), 1u);
  auto const& line = capture_.lines()[0];
  EXPECT_EQ(line.facility, "FrameworkTest::Dabin");
  EXPECT_EQ(line.level, 3);
  EXPECT_EQ(line.function, "traceAtLevels");
  EXPECT_EQ(line.message, "three probe 1");
  EXPECT_EQ(formatted, 1);
  EXPECT_EQ(evaluated, 1);  // the level-2 trace did not evaluate its arguments
  Dabin::Record r{&dabinFacility_, 8, "Tunnel/X.cpp", "handleX", 12, "changed"};
  EXPECT_EQ(Dabin::formatRecord(r), "FrameworkTest::Dabin 8 Tunnel/X.cpp:12 handleX: changed\n");
}

TEST_F(DabinTest, LevelsSwitchByFacilityName) {
  EXPECT_TRUE(Dabin::levelIs("FrameworkTest::Dabin", 2, true));
  EXPECT_FALSE(Dabin::levelIs("FrameworkTest::NoSuchFacility", 2, true));
  EXPECT_TRUE(dabinFacility_.enabled(2));
  EXPECT_FALSE(dabinFacility_.enabled(3));
  EXPECT_FALSE(::dabinFacility_.enabled(2));  // other facilities are untouched

  dabinFacility_.levelsUpTo(4);
  EXPECT_EQ(dabinFacility_.mask(), 0x1fu);
  EXPECT_TRUE(Dabin::levelIs("FrameworkTest::Dabin", 0, false));
  EXPECT_EQ(dabinFacility_.mask(), 0x1eu);
  EXPECT_THROW(dabinFacility_.levelIs(10, true), std::out_of_range);
}

TEST(DabinDeathTest, AssertionNamesFileFunctionConditionAndMessage) {
  EXPECT_DEATH(requirePositive(-3),
               "DabinTest\\.cpp:[0-9]+: requirePositive: assertion failed: v > 0: got -3");
  EXPECT_DEATH(requirePositiveQuietly(0),
               "DabinTest\\.cpp:[0-9]+: requirePositiveQuietly: assertion failed: v > 0\n");
  requirePositive(1);
}

}  // namespace
}  // namespace FrameworkTest
