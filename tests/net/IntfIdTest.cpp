// Interface identifiers: each form's text round trips, tunnel ports stop at
// 65535, and a dynamic tunnel interface gives back the exact 64-bit value.

#include <cstring>

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IntfId.h"

namespace Vorn::test {
namespace {

struct Form {
  IntfId id;
  std::string text;
};

TEST(IntfIdTest, EveryFormRoundTripsThroughItsText) {
  std::vector<Form> forms = {
      {IntfId(), "None"},
      {IntfId::ethernet(0), "Ethernet0"},
      {IntfId::ethernet(3), "Ethernet3"},
      {IntfId::ethernet(UINT32_MAX), "Ethernet4294967295"},
      {IntfId::tunnel(0), "Tunnel0"},
      {IntfId::tunnel(65535), "Tunnel65535"},
      {IntfId::fromTunnelIdValue(0), "DynamicTunnel0x0"},
      {IntfId::fromTunnelIdValue(0x6000000001aull), "DynamicTunnel0x6000000001a"},
      {IntfId::fromTunnelIdValue((1ull << 49) - 1), "DynamicTunnel0x1ffffffffffff"},
      {IntfId::fromTunnelIdValue(UINT64_MAX), "DynamicTunnel0xffffffffffffffff"},
  };
  for (Form const& f : forms) {
    EXPECT_EQ(f.id.stringValue(), f.text);
    EXPECT_EQ(IntfId(f.text), f.id) << f.text;
  }
}

TEST(IntfIdTest, DynamicTunnelKeepsAllSixtyFourBits) {
  // Values above the largest tunnel id must survive, so that the tunnel layer
  // can range-check them instead of seeing a truncated id.
  for (uint64_t v :
       std::initializer_list<uint64_t>{0, 1, 1ull << 49, 0x8000000000000001ull, UINT64_MAX}) {
    IntfId i = IntfId::fromTunnelIdValue(v);
    EXPECT_TRUE(i.isDynamicTunnel());
    EXPECT_EQ(i.tunnelIdValue(), v);
    EXPECT_EQ(i.port(), 0u);
  }
  EXPECT_NE(IntfId::fromTunnelIdValue(1), IntfId::fromTunnelIdValue(1ull << 32 | 1));
}

TEST(IntfIdTest, KindsWithTheSameNumberDiffer) {
  EXPECT_NE(IntfId::ethernet(7), IntfId::tunnel(7));
  EXPECT_NE(IntfId::tunnel(7), IntfId::fromTunnelIdValue(7));
  EXPECT_NE(IntfId::ethernet(0), IntfId());
  EXPECT_LT(IntfId(), IntfId::ethernet(0));
  EXPECT_LT(IntfId::ethernet(UINT32_MAX), IntfId::tunnel(0));
  EXPECT_LT(IntfId::fromTunnelIdValue(UINT32_MAX), IntfId::fromTunnelIdValue(1ull << 32));
}

TEST(IntfIdTest, TunnelPortAbove65535IsRejected) {
  try {
    IntfId::tunnel(65536);
    ADD_FAILURE() << "port 65536 accepted";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(), "Vorn::IntfId::tunnelPort < 0 or > 65535 not allowed, got 65536");
  }
  EXPECT_THROW(IntfId("Tunnel65536"), Zent::ParseError);
}

TEST(IntfIdTest, MalformedNamesAreRejected) {
  for (std::string_view bad :
       {"", "none", "Ethernet", "Ethernet-1", "Ethernet+1", "Ethernet4294967296", "Ethernet1/2",
        "Tunnel", "Tunnel 1", "DynamicTunnel", "DynamicTunnel0x",
        "DynamicTunnel0x10000000000000000", "DynamicTunnel0xg", "DynamicTunnel12", "Loopback0"}) {
    EXPECT_THROW(IntfId{bad}, Zent::ParseError) << bad;
  }
  try {
    IntfId("Tunnel99999");
  } catch (Zent::ParseError const& e) {
    EXPECT_STREQ(e.what(),
                 "Vorn::IntfId: 'Tunnel99999' is not a tunnel interface (Tunnel<port "
                 "0..65535>)");
  }
}

TEST(IntfIdTest, RecordsWithUnknownKindOrSpareBitsAreNotWellFormed) {
  auto corrupt = [](IntfId id, size_t byte, unsigned char value) {
    unsigned char rec[IntfId::kRecordSize];
    std::memcpy(rec, &id, sizeof(rec));
    rec[byte] = value;
    IntfId out;
    std::memcpy(&out, rec, sizeof(rec));
    return out;
  };
  EXPECT_TRUE(IntfId::tunnel(9).wellFormed());
  EXPECT_FALSE(corrupt(IntfId::tunnel(9), 0, 9).wellFormed());   // kind
  EXPECT_FALSE(corrupt(IntfId::tunnel(9), 4, 1).wellFormed());   // spare word
  EXPECT_FALSE(corrupt(IntfId::tunnel(9), 10, 1).wellFormed());  // port above 65535
  EXPECT_FALSE(corrupt(IntfId(), 8, 1).wellFormed());            // null with a number
}

using IntfIdDeathTest = ::testing::Test;

TEST(IntfIdDeathTest, TunnelIdValueOfAnotherKindIsAProgrammingError) {
  EXPECT_DEATH(IntfId::ethernet(1).tunnelIdValue(),
               "IntfId.cpp:[0-9]+: tunnelIdValue: assertion failed: isDynamicTunnel\\(\\): "
               "Ethernet1 does not stand for a tunnel");
}

}  // namespace
}  // namespace Vorn::test
