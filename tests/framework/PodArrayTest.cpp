#include <cstring>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/PodArray.h"

namespace FrameworkTest {

// Outside the anonymous namespace: not every trait is used here.
struct HopIndexTraits {
  using Rep = uint16_t;
  static constexpr Rep min = 0;
  static constexpr Rep max = 599;
  static constexpr Rep defaultValue = 0;
  static constexpr const char* typeName = "FrameworkTest::HopIndex";
};
using HopIndex = Zent::RangedInt<HopIndexTraits>;

namespace {

struct Hop {
  uint32_t label = 0;
  uint16_t weight = 0;
  bool operator==(Hop const&) const = default;
  uint32_t hash(uint32_t seed) const {
    return Zent::hashBytes(&weight, sizeof(weight), Zent::hashBytes(&label, sizeof(label), seed));
  }
};

using Hops = Zent::PodArray<Hop, HopIndex, 600, 0>;

std::vector<Hop> elements(Hops const& a) {
  std::vector<Hop> out;
  uint32_t expectKey = 0;
  for (auto it = a.begin(); it != a.end(); ++it) {
    EXPECT_EQ(it.key().value(), expectKey++);
    out.push_back(*it);
  }
  return out;
}

Hop hop(uint32_t label) { return Hop{label, static_cast<uint16_t>(label % 7)}; }

TEST(PodArrayTest, MemberIsPastTheEndFillsTheGapAndMemberDelShiftsDown) {
  Hops a;
  a.memberIs(0, hop(10));
  a.memberIs(4, hop(14));
  a.memberIs(2, hop(12));  // inside: replaces, length unchanged
  EXPECT_EQ(elements(a), (std::vector<Hop>{hop(10), Hop{}, hop(12), Hop{}, hop(14)}));
  EXPECT_EQ(a.member(7), Hop{});
  EXPECT_THROW(a.memberIs(600, hop(1)), Zent::RangeException);
  a._memberDel(1);
  a._memberDel(4);  // past the end: nothing
  a._memberDel(3);
  EXPECT_EQ(elements(a), (std::vector<Hop>{hop(10), hop(12), Hop{}}));
  a.memberIs(599, hop(1));
  EXPECT_TRUE(a.full());
  EXPECT_FALSE(a.push(hop(2)));
}

TEST(PodArrayTest, SetBeyondCapacityThrowsAndLeavesTheArrayUnchanged) {
  std::vector<Hop> src(601);
  for (uint32_t i = 0; i < src.size(); ++i) src[i] = hop(i);
  Hops a;
  a.set(3, src.data() + 100);
  try {
    a.set(601, src.data());
    FAIL() << "set(601) accepted";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(), "PodArray::set expected size <= 600, instead got 601");
  }
  EXPECT_EQ(elements(a), (std::vector<Hop>{hop(100), hop(101), hop(102)}));

  a.set(600, src.data());
  EXPECT_EQ(a.count(), 600u);
  EXPECT_EQ(a[599], hop(599));
  a.set(0, nullptr);
  EXPECT_TRUE(a.empty());
}

// Elements past the length may hold stale records; copies, equality and hash
// must not see them.
TEST(PodArrayTest, CopyEqualityAndHashUseOnlyTheUsedElements) {
  Hops a;
  for (uint32_t i = 0; i < 10; ++i) a.push(hop(i + 1));
  for (int i = 0; i < 8; ++i) a._memberDel(2);  // a = [1, 2], stale records behind
  Hops b;
  b.push(hop(1));
  b.push(hop(2));
  EXPECT_EQ(a, b);
  EXPECT_EQ(a.hash(3), b.hash(3));

  Hops c(a);
  c.memberIs(1, hop(99));
  EXPECT_NE(c, a);
  EXPECT_NE(c.hash(3), a.hash(3));
  c = b;
  EXPECT_EQ(c, a);
  Hops shorter;
  shorter.push(hop(1));
  EXPECT_NE(shorter, a);
  EXPECT_NE(Hops().hash(), shorter.hash());
}

}  // namespace
}  // namespace FrameworkTest
