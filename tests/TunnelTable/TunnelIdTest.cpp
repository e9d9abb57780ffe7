#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/framework/Range.h"

namespace Tunnel::TunnelTable {
namespace {

constexpr const char* kRangeMessage =
    "Tunnel::TunnelTable::TunnelId::value < Tunnel::TunnelTable::TunnelId::minValue or > "
    "Tunnel::TunnelTable::TunnelId::maxValue not allowed";

// Every enumerated type: 0 to 23 and 31.
std::vector<TunnelType> enumerated() {
  std::vector<TunnelType> out;
  for (uint32_t v = 0; v < 32; ++v) {
    if (v <= 23 || v == 31) out.push_back(static_cast<TunnelType>(v));
  }
  return out;
}

template <typename F>
void expectRangeError(F&& f) {
  try {
    f();
    ADD_FAILURE() << "no range exception";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(), kRangeMessage);
  }
}

TEST(TunnelIdTest, RangeRuleLooksOnlyAtTheUpperWord) {
  // Upper word at its limit with any lower word is fine; one more is not.
  EXPECT_NO_THROW(TunnelId(0x0001ffff00000000));
  EXPECT_NO_THROW(TunnelId(0x0001ffffffffffff));
  for (uint64_t bad : {0x0002000000000000ull, 0x8000000000000000ull, ~0ull}) {
    expectRangeError([bad] { TunnelId{bad}; });
  }
}

TEST(TunnelIdTest, FailedValueIsKeepsTheOldValue) {
  TunnelId id(TunnelId::convertToTunnelValue(ldpTunnel, 7));
  expectRangeError([&id] { id.valueIs(0x2000000000000); });
  EXPECT_EQ(id.tunnelType(), ldpTunnel);
  EXPECT_EQ(id.tunnelIndex(), 7u);
}

TEST(TunnelIdTest, FlexAlgoIndexIs35BitsAndBit43IsNeverPartOfAnIndex) {
  uint64_t const bits35To42 = 0xffull << 35;
  TunnelId flex(TunnelId::convertToTunnelValue(isisFlexAlgoTunnel, bits35To42 | 0x123));
  EXPECT_EQ(flex.tunnelType(), isisFlexAlgoTunnel);
  EXPECT_EQ(flex.tunnelIndex(), 0x123u);
  TunnelId id(TunnelId::convertToTunnelValue(ldpTunnel, (1ull << 43) | 9));
  EXPECT_EQ(id.tunnelType(), ldpTunnel);
  EXPECT_EQ(id.tunnelIndex(), 9u);
}

TEST(TunnelIdTest, TypeAndLargestIndexRoundTripForEveryEnumeratedType) {
  for (TunnelType t : enumerated()) {
    uint64_t const maxIndex =
        t == isisFlexAlgoTunnel ? TunnelId::kFlexAlgoIndexMask : TunnelId::kIndexMask;
    for (uint64_t index : {uint64_t{0}, uint64_t{1}, maxIndex}) {
      TunnelId id(TunnelId::convertToTunnelValue(t, index));
      EXPECT_EQ(id.tunnelType(), t) << stringValue(t);
      EXPECT_EQ(id.tunnelIndex(), index) << stringValue(t);
    }
  }
}

TEST(TunnelIdTest, ParseAcceptsDecimalAndHexAndRejectsJunk) {
  TunnelId const expected(TunnelId::convertToTunnelValue(staticTunnel, 5));
  EXPECT_EQ(Zent::strepToValue<TunnelId>("0x500000000005"), expected);
  EXPECT_EQ(Zent::strepToValue<TunnelId>(expected.stringValue()), expected);
  for (const char* bad : {"", "-1", "12a", "0x", "Value('x')"}) {
    EXPECT_THROW(Zent::strepToValue<TunnelId>(bad), Zent::ParseError) << bad;
  }
}

TEST(TunnelIdTest, ParseOfOutOfRangeNumberThrowsAndLeavesIteratorInPlace) {
  Zent::String text("0x2000000000000");
  Zent::String::IteratorConst it = text.begin();
  expectRangeError([&] { TunnelId(it, text.end()); });
  EXPECT_EQ(it, text.begin());
}

TEST(TunnelIdTest, PublishedTypesHaveDistinctDisplayNamesAndKeywords) {
  std::set<std::string> display;
  std::set<std::string> keywords;
  size_t published = 0;
  for (TunnelType t : enumerated()) {
    std::string const name = TunnelId::tunnelTypeToCliStrep(t, false);
    if (name == "Unknown") continue;
    ++published;
    display.insert(name);
    std::string const keyword = TunnelId::tunnelTypeToCliStrep(t, true);
    EXPECT_EQ(keyword.find_first_of(" ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string::npos) << keyword;
    keywords.insert(keyword);
  }
  EXPECT_EQ(published, 19u);
  EXPECT_EQ(display.size(), published);
  EXPECT_EQ(keywords.size(), published);
  EXPECT_EQ(TunnelId::tunnelTypeToCliStrep(static_cast<TunnelType>(27), false), "Unknown");
}

}  // namespace
}  // namespace Tunnel::TunnelTable
