#include <algorithm>

#include <gtest/gtest.h>

#include "Tunnel/framework/Counters.h"

namespace {

bool registered(Zent::CounterSet const* set) {
  auto sets = Zent::counterSets();
  return std::find(sets.begin(), sets.end(), set) != sets.end();
}

TEST(CountersTest, NamedCountersAreFoundByNameAndKeepTheirAddress) {
  Zent::CounterSet set("table");
  Zent::Counter& entryIs = set.counterIs("entryIs");
  entryIs.inc();
  set.counterIs("entryDel").inc(3);
  for (int i = 0; i < 100; ++i) set.counterIs("c" + std::to_string(i));
  EXPECT_EQ(&set.counterIs("entryIs"), &entryIs);  // references survive later counters
  entryIs.inc();
  EXPECT_EQ(set.value("entryIs"), 2u);
  EXPECT_EQ(set.value("entryDel"), 3u);
  EXPECT_EQ(set.value("entryNotify"), 0u);
  EXPECT_EQ(set.counter("entryNotify"), nullptr);
  EXPECT_EQ(set.counters().size(), 102u);
}

TEST(CountersTest, SetsAreRegisteredForTheirLifetime) {
  Zent::CounterSet const* seen;
  {
    Zent::CounterSet set("transient");
    seen = &set;
    EXPECT_TRUE(registered(seen));
  }
  EXPECT_FALSE(registered(seen));
}

}  // namespace
