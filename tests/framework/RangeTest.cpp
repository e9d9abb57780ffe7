#include <string>

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"

namespace {

// An index from 0 and an identifier from 1: the bounds are checked at both ends.
struct ZeroBased {
  using Rep = uint16_t;
  static constexpr Rep min = 0;
  static constexpr Rep max = 599;
  static constexpr Rep defaultValue = 0;
  static constexpr const char* typeName = "FrameworkTest::ViaSlot";
};
struct OneBased {
  using Rep = uint8_t;
  static constexpr Rep min = 1;
  static constexpr Rep max = 21;
  static constexpr Rep defaultValue = 1;
  static constexpr const char* typeName = "FrameworkTest::TableNumber";
};

template <typename Traits>
class RangedIntTest : public ::testing::Test {
 protected:
  using Int = Zent::RangedInt<Traits>;

  // Runs `op` on a copy of `v`, expects the range error with the type's
  // message, and that the value did not change.
  template <typename Op>
  static void expectRejected(Int v, Op op) {
    Int const before = v;
    try {
      op(v);
      ADD_FAILURE() << "accepted";
    } catch (Zent::RangeException const& e) {
      std::string const t = Traits::typeName;
      EXPECT_EQ(e.what(), t + "::value < " + t + "::min or > " + t + "::max not allowed");
    }
    EXPECT_EQ(v, before);
  }
};

using Traits = ::testing::Types<ZeroBased, OneBased>;
TYPED_TEST_SUITE(RangedIntTest, Traits);

TYPED_TEST(RangedIntTest, BoundsAreCheckedAtBothEndsAndFailuresKeepTheValue) {
  using Int = typename TestFixture::Int;
  constexpr uint64_t lo = TypeParam::min, hi = TypeParam::max;
  EXPECT_EQ(Int().value(), lo);
  EXPECT_EQ(Int(hi).value(), hi);
  EXPECT_THROW(Int(hi + 1), Zent::RangeException);
  EXPECT_THROW(Int((uint64_t{1} << 32) + lo), Zent::RangeException);  // not truncated first
  if (lo > 0) {
    EXPECT_THROW(Int(lo - 1), Zent::RangeException);
  }
  Int const top(hi), bottom(lo);
  TestFixture::expectRejected(top, [](Int& v) { v.valueIs(hi + 1); });
  TestFixture::expectRejected(top, [](Int& v) { ++v; });
  TestFixture::expectRejected(top, [](Int& v) { v++; });
  TestFixture::expectRejected(bottom, [](Int& v) { v += hi - lo + 1; });
  TestFixture::expectRejected(bottom, [](Int& v) { v += ~uint64_t{0}; });
  TestFixture::expectRejected(bottom, [](Int& v) { --v; });
  TestFixture::expectRejected(top, [](Int& v) { v -= hi + 1; });
  Int v(lo);
  v += 2;
  EXPECT_EQ((++v - uint64_t{3}).value(), lo);
  EXPECT_EQ((v++).value(), lo + 3);
}

}  // namespace
