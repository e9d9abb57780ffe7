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
  try {
    a.set(601, src.data());
    FAIL() << "set(601) accepted";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(), "PodArray::set expected size <= 600, instead got 601");
  }
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

}  // namespace
}  // namespace FrameworkTest
