#include <algorithm>
#include <string>

#include <gtest/gtest.h>

#include "Tunnel/framework/Counters.h"

namespace {

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
