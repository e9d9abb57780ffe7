#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/Indexes.h"

namespace Tunnel::TunnelTable {
namespace {

template <typename Index>
class BoundedIndexTest : public ::testing::Test {
 protected:
  // The capacities of the arrays these index (the records pin them) bound them.
  static constexpr uint64_t kMax = Index::max;

  template <typename F>
  static void expectRangeError(F&& f) {
    try {
      f();
      ADD_FAILURE() << "no range exception";
    } catch (Zent::RangeException const& e) {
      std::string const name = Index::typeName();
      EXPECT_EQ(e.what(), name + "::value < " + name + "::min or > " + name + "::max not allowed");
    }
  }
};

using IndexTypes = ::testing::Types<ViaIndex, TunnelIdCollIndex, TepIndex, NameIndex>;
TYPED_TEST_SUITE(BoundedIndexTest, IndexTypes);

TYPED_TEST(BoundedIndexTest, AcceptsZeroToMaxAndRejectsAboveWithItsMessage) {
  EXPECT_EQ(TypeParam(0).value(), 0u);
  EXPECT_EQ(TypeParam(this->kMax).value(), this->kMax);
  this->expectRangeError([] { TypeParam(TestFixture::kMax + 1); });
  // Wider than the representation: must not wrap into range.
  this->expectRangeError([] { TypeParam(uint64_t{1} << 32); });
}

TYPED_TEST(BoundedIndexTest, FailedAssignmentKeepsTheOldValue) {
  TypeParam i(3);
  this->expectRangeError([&i] { i.valueIs(TestFixture::kMax + 1); });
  EXPECT_EQ(i.value(), 3u);
}

TYPED_TEST(BoundedIndexTest, ArithmeticIsCheckedAtBothEnds) {
  TypeParam top(this->kMax);
  this->expectRangeError([&top] { ++top; });
  EXPECT_EQ(top.value(), this->kMax);
  this->expectRangeError([&top] { top += 1; });

  TypeParam bottom;
  this->expectRangeError([&bottom] { --bottom; });
  this->expectRangeError([&bottom] { bottom -= 1; });
  EXPECT_EQ(bottom.value(), 0u);

  // Mixed with plain integers, signed or not, both ways round.
  TypeParam const five = TypeParam(2) + 3;
  EXPECT_TRUE(five == 5 && 5 == five && five < 6 && five > 4u);
  EXPECT_EQ(five - 5, 0);
  EXPECT_EQ(five + (-5), 0);
  this->expectRangeError([&five] { return five + (-6); });
  this->expectRangeError([&five] { return five - int64_t{INT64_MIN}; });
}

TYPED_TEST(BoundedIndexTest, ParseOfOutOfRangeNumberThrowsAndLeavesIteratorInPlace) {
  Zent::String text(std::to_string(this->kMax + 1));
  Zent::String::IteratorConst it = text.begin();
  this->expectRangeError([&] { TypeParam(it, text.end()); });
  EXPECT_EQ(it, text.begin());
}

}  // namespace
}  // namespace Tunnel::TunnelTable
