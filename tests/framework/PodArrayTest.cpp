// The range-checked integer, and the fixed-capacity array it indexes.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/PodArray.h"
#include "Tunnel/framework/Range.h"
#include "tests/net/ErrorText.h"

namespace FrameworkTest {

// Outside the anonymous namespace: not every trait is used here.
struct HopIndexTraits {
  using Rep = uint16_t;
  static constexpr Rep min = 0;
  static constexpr Rep max = 599;
  static constexpr Rep defaultValue = 0;
  static constexpr const char* typeName = "FrameworkTest::HopIndex";
};

namespace {

struct Hop {
  uint32_t label = 0;
  bool operator==(Hop const&) const = default;
  uint32_t hash(uint32_t seed) const { return Zent::hashBytes(&label, sizeof(label), seed); }
};
using Hops = Zent::PodArray<Hop, Zent::RangedInt<HopIndexTraits>, 600, 0>;

std::vector<uint32_t> labels(Hops const& a) {
  std::vector<uint32_t> out;
  for (auto it = a.begin(); it != a.end(); ++it) {
    EXPECT_EQ(it.key().value(), out.size());
    out.push_back(it->label);
  }
  return out;
}

TEST(PodArrayTest, MemberIsPastTheEndFillsTheGapAndMemberDelShiftsDown) {
  Hops a;
  a.memberIs(0, Hop{10});
  a.memberIs(4, Hop{14});
  a.memberIs(2, Hop{12});  // inside: replaces, length unchanged
  EXPECT_EQ(labels(a), (std::vector<uint32_t>{10, 0, 12, 0, 14}));
  EXPECT_EQ(a.member(7), Hop{});
  EXPECT_THROW(a.memberIs(600, Hop{1}), Zent::RangeException);
  a._memberDel(1);
  a._memberDel(4);  // past the end: nothing
  a._memberDel(3);
  EXPECT_EQ(labels(a), (std::vector<uint32_t>{10, 12, 0}));
  a.memberIs(599, Hop{1});
  EXPECT_TRUE(a.full());
  EXPECT_FALSE(a.push(Hop{2}));
}

TEST(PodArrayTest, SetBeyondCapacityThrowsAndLeavesTheArrayUnchanged) {
  std::vector<Hop> src(601);
  for (uint32_t i = 0; i < src.size(); ++i) src[i].label = i;
  Hops a;
  a.set(3, src.data() + 100);
  EXPECT_EQ(Vorn::test::errorOf<Zent::RangeException>([&] { a.set(601, src.data()); }),
            "PodArray::set expected size <= 600, instead got 601");
  EXPECT_EQ(labels(a), (std::vector<uint32_t>{100, 101, 102}));
}

// Elements past the length may hold stale records; copies, equality and hash
// must not see them.
TEST(PodArrayTest, CopyEqualityAndHashUseOnlyTheUsedElements) {
  Hops a, b;
  for (uint32_t i = 1; i <= 10; ++i) a.push(Hop{i});
  for (int i = 0; i < 8; ++i) a._memberDel(2);  // a = [1, 2], stale records behind
  b.push(Hop{1});
  b.push(Hop{2});
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(3), b.hash(3));
  Hops c(a);
  c.memberIs(1, Hop{99});
  EXPECT_NE(c, a);
  EXPECT_NE(c.hash(3), a.hash(3));
  c = b;
  EXPECT_EQ(c, a);
  c._memberDel(1);
  EXPECT_NE(c, a);
  EXPECT_NE(Hops().hash(), c.hash());
}

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
    std::string const t = Traits::typeName;
    EXPECT_EQ(Vorn::test::errorOf<Zent::RangeException>([&] { op(v); }),
              t + "::value < " + t + "::min or > " + t + "::max not allowed");
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
}  // namespace FrameworkTest
