// What the entry indexes add to the range-checked integer (whose bounds,
// failed assignments and ++/--/+=/-= the framework's tests cover, and whose
// per-type messages the entry and RIB tests check): arithmetic and comparison
// with plain integers of either sign, and parsing that leaves the iterator in
// place when the number is out of range.

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/Indexes.h"

namespace Tunnel::TunnelTable {
namespace {

void expectIndexRangeError(auto&& f) {
  try {
    f();
    ADD_FAILURE() << "no range exception";
  } catch (Zent::RangeException const& e) {
    EXPECT_EQ(e.what(), ViaIndex::message());
  }
}

TEST(BoundedIndexTest, MixedArithmeticWithSignedOrUnsignedIntegersIsChecked) {
  ViaIndex const five = ViaIndex(2) + 3;
  EXPECT_TRUE(five == 5 && 5 == five && five < 6 && five > 4u);
  EXPECT_EQ(five - 5, 0);
  EXPECT_EQ(five + (-5), 0);
  EXPECT_EQ(five - (-594), ViaIndex::max);
  expectIndexRangeError([&five] { return five + (-6); });
  expectIndexRangeError([&five] { return five - int64_t{INT64_MIN}; });
  expectIndexRangeError([&five] { return five + 595u; });
}

TEST(BoundedIndexTest, ParseOfOutOfRangeNumberThrowsAndLeavesIteratorInPlace) {
  Zent::String text(std::to_string(ViaIndex::max + 1));
  Zent::String::IteratorConst it = text.begin();
  expectIndexRangeError([&] { ViaIndex(it, text.end()); });
  EXPECT_EQ(it, text.begin());
}

}  // namespace
}  // namespace Tunnel::TunnelTable
