// The identifiers and indexes: the tunnel id's range rule on its upper word,
// its index widths and text, the tunnel type's names, the encapsulation id's
// order and text, and what the entry indexes add to the range-checked integer.

#include <cstdint>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/framework/Range.h"
#include "tests/net/ErrorText.h"

namespace Tunnel::TunnelTable {
namespace {

using Vorn::test::errorOf;

constexpr const char* kRangeMessage =
    "Tunnel::TunnelTable::TunnelId::value < Tunnel::TunnelTable::TunnelId::minValue or > "
    "Tunnel::TunnelTable::TunnelId::maxValue not allowed";

TEST(TunnelIdTest, RangeRuleLooksOnlyAtTheUpperWordAndARefusedValueChangesNothing) {
  // Upper word at its limit with any lower word is fine; one more is not.
  EXPECT_NO_THROW(TunnelId(0x0001ffff00000000));
  EXPECT_NO_THROW(TunnelId(0x0001ffffffffffff));
  for (uint64_t bad : {0x0002000000000000ull, 0x8000000000000000ull, ~0ull}) {
    EXPECT_EQ(errorOf<Zent::RangeException>([bad] { TunnelId{bad}; }), kRangeMessage);
  }
  TunnelId id(ldpTunnel, 7);
  EXPECT_EQ(errorOf<Zent::RangeException>([&id] { id.valueIs(0x2000000000000); }), kRangeMessage);
  EXPECT_EQ(id, TunnelId(ldpTunnel, 7));
}

TEST(TunnelIdTest, FlexAlgoIndexIs35BitsAndBit43IsNeverPartOfAnIndex) {
  TunnelId flex(isisFlexAlgoTunnel, (0xffull << 35) | 0x123);
  EXPECT_EQ(flex.tunnelType(), isisFlexAlgoTunnel);
  EXPECT_EQ(flex.tunnelIndex(), 0x123u);
  TunnelId id(ldpTunnel, (1ull << 43) | 9);
  EXPECT_EQ(id.tunnelType(), ldpTunnel);
  EXPECT_EQ(id.tunnelIndex(), 9u);
}

TEST(TunnelIdTest, ParseAcceptsDecimalAndHexAndRejectsJunkLeavingTheIteratorInPlace) {
  TunnelId const expected(staticTunnel, 5);
  EXPECT_EQ(Zent::strepToValue<TunnelId>("0x500000000005"), expected);
  EXPECT_EQ(Zent::strepToValue<TunnelId>(expected.stringValue()), expected);
  for (const char* bad : {"", "-1", "12a", "0x", "Value('x')"}) {
    EXPECT_THROW(Zent::strepToValue<TunnelId>(bad), Zent::ParseError) << bad;
  }
  Zent::String text("0x2000000000000");
  Zent::String::IteratorConst it = text.begin();
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { TunnelId(it, text.end()); }), kRangeMessage);
  EXPECT_EQ(it, text.begin());
}

// Per enumerated type: the largest index round trips, the name reads back
// (and is what a stream shows), and a published type has its own display
// name and lower-case keyword.
TEST(TunnelTypeTest, EveryEnumeratedTypeRoundTripsItsIndexAndItsNames) {
  std::set<std::string> names, display, keywords;
  size_t published = 0;
  for (uint32_t v = 0; v < 32; ++v) {
    if (v > 23 && v != 31) continue;  // the enumerated types: 0 to 23 and 31
    auto const t = static_cast<TunnelType>(v);
    uint64_t const maxIndex =
        t == isisFlexAlgoTunnel ? TunnelId::kFlexAlgoIndexMask : TunnelId::kIndexMask;
    for (uint64_t index : {uint64_t{0}, uint64_t{1}, maxIndex}) {
      TunnelId id(t, index);
      EXPECT_EQ(id.tunnelType(), t) << stringValue(t);
      EXPECT_EQ(id.tunnelIndex(), index) << stringValue(t);
    }
    TunnelType parsed = static_cast<TunnelType>(24);
    ASSERT_TRUE(sequenceToValue(stringValue(t), parsed)) << stringValue(t);
    EXPECT_EQ(parsed, t);
    std::ostringstream os;
    os << t;
    EXPECT_EQ(os.str(), stringValue(t));
    EXPECT_EQ(valueToStrep(t), os.str());
    names.insert(std::string(stringValue(t)));
    std::string const name = TunnelId::tunnelTypeToCliStrep(t, false);
    if (name == "Unknown") continue;
    ++published;
    display.insert(name);
    std::string const keyword = TunnelId::tunnelTypeToCliStrep(t, true);
    EXPECT_EQ(keyword.find_first_of(" ABCDEFGHIJKLMNOPQRSTUVWXYZ"), std::string::npos) << keyword;
    keywords.insert(keyword);
  }
  EXPECT_EQ(names.size(), 25u);
  EXPECT_EQ(published, 19u);
  EXPECT_EQ(display.size(), published);
  EXPECT_EQ(keywords.size(), published);
  EXPECT_EQ(TunnelId::tunnelTypeToCliStrep(static_cast<TunnelType>(27), false), "Unknown");
}

TEST(TunnelTypeTest, UnknownNamesDoNotParseAndLeaveTheTarget) {
  for (std::string_view bad : {"", "ldp", "LdpTunnel", "ldpTunnel ", "invalidTunnelType", "3"}) {
    TunnelType t = mldpTunnel;
    EXPECT_FALSE(sequenceToValue(bad, t)) << bad;
    EXPECT_EQ(t, mldpTunnel);
  }
  EXPECT_EQ(stringValue(static_cast<TunnelType>(26)), "invalidTunnelType");
}

TEST(TunnelTypeDeathTest, DefaultPrefOfUnassignedTypeAborts) {
  char const* const pattern =
      "TunnelType\\.cpp:[0-9]+: getDefaultPrefForType: assertion failed: "
      "false && \"Unknown tunnel type\"";
  for (uint32_t v : {24u, 30u, 32u, 0xffffffffu}) {
    EXPECT_DEATH(getDefaultPrefForType(static_cast<TunnelType>(v)), pattern) << "type " << v;
  }
}

TEST(EncapIdTest, OrdersByTypeFirstThenByValue) {
  std::vector<EncapId> const sorted = {
      {},
      {EncapType::labelStackEncap, 3},
      {EncapType::labelStackEncap, 900},
      {EncapType::greEncap, 1},
      {EncapType::greEncap, 2},
      {EncapType::vxlanEncap, 0},
  };
  std::set<EncapId> const ids(sorted.rbegin(), sorted.rend());
  EXPECT_EQ(std::vector<EncapId>(ids.begin(), ids.end()), sorted);
}

// The type names themselves read back through the identifier's value contract.
TEST(EncapIdTest, ParseRejectsOtherTexts) {
  for (const char* bad : {
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': gre, 'encapValue': 1})",
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': greEncap})",
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': greEncap, 'encapValue': -1})",
           "Value('Tunnel::TunnelTable::EncapId', ** {'encapType': greEncap, 'encapValue': 1, "
           "'extra': 2})",
           "Value('Tunnel::TunnelTable::TunnelId', ** {'encapType': greEncap, 'encapValue': 1})",
       }) {
    EXPECT_THROW(Zent::strepToValue<EncapId>(bad), Zent::ParseError) << bad;
  }
  EXPECT_EQ(stringValue(static_cast<EncapType>(6)), "invalidEncapType");
}

// The integer's own bounds and ++/--/+=/-= are the framework's tests; the
// indexes add arithmetic and comparison with plain integers of either sign.
TEST(BoundedIndexTest, MixedArithmeticAndParsingAreChecked) {
  ViaIndex const five = ViaIndex(2) + 3;
  EXPECT_TRUE(five == 5 && 5 == five && five < 6 && five > 4u);
  EXPECT_EQ(five - 5, 0);
  EXPECT_EQ(five + (-5), 0);
  EXPECT_EQ(five - (-594), ViaIndex::max);
  EXPECT_EQ(errorOf<Zent::RangeException>([&five] { return five + (-6); }), ViaIndex::message());
  EXPECT_EQ(errorOf<Zent::RangeException>([&five] { return five - int64_t{INT64_MIN}; }),
            ViaIndex::message());
  EXPECT_EQ(errorOf<Zent::RangeException>([&five] { return five + 595u; }), ViaIndex::message());
  // An out-of-range number leaves the parse iterator in place.
  Zent::String text(std::to_string(ViaIndex::max + 1));
  Zent::String::IteratorConst it = text.begin();
  EXPECT_EQ(errorOf<Zent::RangeException>([&] { ViaIndex(it, text.end()); }), ViaIndex::message());
  EXPECT_EQ(it, text.begin());
}

}  // namespace
}  // namespace Tunnel::TunnelTable
