// Traces, assertions and counters: what a process tells of itself.

#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "Tunnel/framework/Counters.h"
#include "Tunnel/framework/Dabin.h"

namespace FrameworkTest {

DABIN_FACILITY("FrameworkTest::Dabin");

namespace {

void traceAtLevels(int* evaluated) {
  auto arg = [evaluated] { return ++*evaluated; };
  fmtrace(2, "two {}", arg());
  fmtrace(3, "three {}", arg());
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

TEST_F(DabinTest, OnlyEnabledLevelsEvaluateTheirArgumentsAndReachTheSink) {
  int evaluated = 0;
  traceAtLevels(&evaluated);
  EXPECT_TRUE(capture_.lines().empty());
  EXPECT_EQ(evaluated, 0);
  dabinFacility_.levelIs(3, true);
  traceAtLevels(&evaluated);
  ASSERT_EQ(capture_.lines().size(), 1u);
  auto const& line = capture_.lines()[0];
  EXPECT_EQ(line.facility, "FrameworkTest::Dabin");
  EXPECT_EQ(line.level, 3);
  EXPECT_EQ(line.function, "traceAtLevels");
  EXPECT_EQ(line.message, "three 1");
  EXPECT_EQ(evaluated, 1);  // the level-2 trace did not evaluate its arguments
  Dabin::Record r{&dabinFacility_, 8, "Tunnel/X.cpp", "handleX", 12, "changed"};
  EXPECT_EQ(Dabin::formatRecord(r), "FrameworkTest::Dabin 8 Tunnel/X.cpp:12 handleX: changed\n");
}

TEST_F(DabinTest, LevelsSwitchByFacilityName) {
  EXPECT_TRUE(Dabin::levelIs("FrameworkTest::Dabin", 2, true));
  EXPECT_FALSE(Dabin::levelIs("FrameworkTest::NoSuchFacility", 2, true));
  EXPECT_EQ(dabinFacility_.mask(), 0x4u);
  EXPECT_FALSE(::dabinFacility_.enabled(2));  // other facilities are untouched
  EXPECT_THROW(dabinFacility_.levelIs(10, true), std::out_of_range);
}

TEST(DabinDeathTest, AssertionNamesFileFunctionConditionAndMessage) {
  EXPECT_DEATH(requirePositive(-3),
               "DabinTest\\.cpp:[0-9]+: requirePositive: assertion failed: v > 0: got -3");
  EXPECT_DEATH(requirePositiveQuietly(0),
               "DabinTest\\.cpp:[0-9]+: requirePositiveQuietly: assertion failed: v > 0\n");
  requirePositive(1);
}

TEST(CountersTest, CountersKeepTheirAddressAndSetsAreListedWhileTheyLive) {
  Zent::CounterSet const* seen;
  {
    Zent::CounterSet set("table");
    seen = &set;
    Zent::Counter& entryIs = set.counterIs("entryIs");
    for (int i = 0; i < 100; ++i) set.counterIs(std::to_string(i)).inc(3);
    EXPECT_EQ(&set.counterIs("entryIs"), &entryIs);  // references survive later counters
    entryIs.inc();
    EXPECT_EQ(set.value("entryIs"), 1u);
    EXPECT_EQ(set.value("99"), 3u);
    EXPECT_EQ(set.counter("entryNotify"), nullptr);
    auto sets = Zent::counterSets();
    EXPECT_NE(std::find(sets.begin(), sets.end(), seen), sets.end());
  }
  auto sets = Zent::counterSets();
  EXPECT_EQ(std::find(sets.begin(), sets.end(), seen), sets.end());
}

}  // namespace
}  // namespace FrameworkTest
