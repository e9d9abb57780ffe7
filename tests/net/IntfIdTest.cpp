// Interface identifiers: each form's text round trips, tunnel ports stop at
// 65535, and a dynamic tunnel interface gives back the exact 64-bit value.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IntfId.h"
#include "tests/net/ErrorText.h"

namespace Vorn::test {
namespace {

// A dynamic tunnel interface keeps all 64 bits, so that the tunnel layer can
// range-check a value instead of seeing a truncated id.
TEST(IntfIdTest, EveryFormHasItsTextAndKindsWithTheSameNumberDiffer) {
  std::string texts;
  for (IntfId const& id :
       {IntfId(), IntfId::ethernet(3), IntfId::ethernet(UINT32_MAX), IntfId::tunnel(0),
        IntfId::tunnel(65535), IntfId::fromTunnelIdValue(0),
        IntfId::fromTunnelIdValue(0x6000000001aull), IntfId::fromTunnelIdValue(UINT64_MAX)}) {
    texts += id.stringValue() + " ";
    EXPECT_EQ(IntfId(id.stringValue()), id) << id;
  }
  EXPECT_EQ(texts,
            "None Ethernet3 Ethernet4294967295 Tunnel0 Tunnel65535 DynamicTunnel0x0 "
            "DynamicTunnel0x6000000001a DynamicTunnel0xffffffffffffffff ");
  EXPECT_EQ(IntfId::fromTunnelIdValue(UINT64_MAX).tunnelIdValue(), UINT64_MAX);
  EXPECT_NE(IntfId::fromTunnelIdValue(1), IntfId::fromTunnelIdValue(1ull << 32 | 1));
  EXPECT_NE(IntfId::ethernet(7), IntfId::tunnel(7));
  EXPECT_NE(IntfId::tunnel(7), IntfId::fromTunnelIdValue(7));
  EXPECT_NE(IntfId::ethernet(0), IntfId());
}

TEST(IntfIdTest, TunnelPortAbove65535AndMalformedNamesAreRejected) {
  EXPECT_EQ(errorOf<Zent::RangeException>([] { IntfId::tunnel(65536); }),
            "Vorn::IntfId::tunnelPort < 0 or > 65535 not allowed, got 65536");

  for (std::string_view bad :
       {"", "none", "Ethernet", "Ethernet-1", "Ethernet+1", "Ethernet4294967296", "Ethernet1/2",
        "Tunnel", "Tunnel 1", "DynamicTunnel", "DynamicTunnel0x",
        "DynamicTunnel0x10000000000000000", "DynamicTunnel0xg", "DynamicTunnel12", "Loopback0",
        "Tunnel65536"}) {
    EXPECT_THROW(IntfId{bad}, Zent::ParseError) << bad;
  }
  EXPECT_EQ(errorOf<Zent::ParseError>([] { IntfId("Tunnel99999"); }),
            "Vorn::IntfId: 'Tunnel99999' is not a tunnel interface (Tunnel<port 0..65535>)");
}

TEST(IntfIdTest, RecordsWithUnknownKindOrSpareBitsAreNotWellFormed) {
  // The kind, the spare word, the port above 65535, and a null id with a number.
  for (auto [id, byte] : {std::pair{IntfId::tunnel(9), 0},
                          {IntfId::tunnel(9), 4},
                          {IntfId::tunnel(9), 10},
                          {IntfId(), 8}}) {
    reinterpret_cast<unsigned char*>(&id)[byte] = 9;
    EXPECT_FALSE(id.wellFormed()) << byte;
  }
}

TEST(IntfIdDeathTest, TunnelIdValueOfAnotherKindIsAProgrammingError) {
  EXPECT_DEATH(IntfId::ethernet(1).tunnelIdValue(),
               "IntfId.cpp:[0-9]+: tunnelIdValue: assertion failed: isDynamicTunnel\\(\\): "
               "Ethernet1 does not stand for a tunnel");
}

}  // namespace
}  // namespace Vorn::test
