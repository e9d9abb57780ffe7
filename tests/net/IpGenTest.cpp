// Addresses, prefixes and interface ids: family is part of the value, host
// bits never survive construction, each interface form's text round trips,
// tunnel ports stop at 65535, a dynamic tunnel interface gives back the exact
// 64-bit value, and bad texts fail with messages that say why.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "tests/net/ErrorText.h"
#include "tests/net/RandomValues.h"

namespace Vorn::test {
namespace {

template <typename T>
std::string parseError(std::string_view text) {
  return errorOf<Zent::ParseError>([text] { (void)T(text); });
}

TEST(IpGenAddrTest, TextIsDottedQuadOrCompressedIpv6AndFamilyOrdersFirst) {
  EXPECT_EQ(IpGenAddr(0x01020304u).stringValue(), "1.2.3.4");
  // RFC 5952: lower case, no leading zeros, the longest zero run as "::".
  EXPECT_EQ(IpGenAddr("2001:0DB8:0000:0000:0001:0000:0000:0001").stringValue(),
            "2001:db8::1:0:0:1");
  EXPECT_EQ(IpGenAddr("::ffff:10.0.0.1").stringValue(), "::ffff:10.0.0.1");
  EXPECT_LT(IpGenAddr(0xffffffffu), IpGenAddr("::"));
  EXPECT_LT(IpGenAddr("2001:db8::9"), IpGenAddr("2001:db8::10"));
  // The IPv6 unspecified address is a value, not the default.
  EXPECT_NE(IpGenAddr("::"), IpGenAddr());
  EXPECT_TRUE(static_cast<bool>(IpGenAddr("::")));
}

TEST(IpGenAddrTest, BadTextIsRejectedNamingTheText) {
  for (std::string_view bad : {"", "1.2.3", "1.2.3.4.5", "256.0.0.1", "1.2.3.4 ", "01.2.3.4",
                               "2001:db8:::1", "2001:db8::g", "1.2.3.4/32", "::1::2"}) {
    EXPECT_EQ(parseError<IpGenAddr>(bad),
              fmt::format("Vorn::IpGenAddr: '{}' is not an IPv4 or IPv6 address", bad));
  }
  // A text longer than any address must not overrun the conversion buffer.
  EXPECT_NE(parseError<IpGenAddr>(std::string(200, '1')), "no exception");
}

TEST(IpGenPrefixTest, HostBitsAreClearedAtEveryLength) {
  EXPECT_EQ(IpGenPrefix("10.255.255.255/9").stringValue(), "10.128.0.0/9");
  EXPECT_EQ(IpGenPrefix("2001:db8:ffff::1/33").stringValue(), "2001:db8:8000::/33");
  EXPECT_EQ(IpGenPrefix("1.2.3.4/0"), IpGenPrefix());
  EXPECT_NE(IpGenPrefix("0.0.0.0/0"), IpGenPrefix("::/0"));  // the family is part of the value
  EXPECT_NE(IpGenPrefix("0.0.0.0/0").hash(), IpGenPrefix("::/0").hash());
  EXPECT_FALSE(IpGenPrefix("::/0").contains(IpGenAddr("1.2.3.4")));
  RandomValues r(3);
  for (int i = 0; i < 200; ++i) {
    IpGenAddr a = r.addr();
    for (uint32_t len = 0; len <= a.maxLen(); ++len) {
      IpGenPrefix p(a, len);
      ASSERT_TRUE(p.wellFormed()) << p;
      ASSERT_TRUE(p.contains(a)) << p << " " << a;
      // The last network bit is kept: clearing too much would lose it.
      if (len > 0) {
        uint32_t bit = len - 1;
        bool set = (a.bytes()[bit / 8] >> (7 - bit % 8)) & 1;
        bool kept = (p.address().bytes()[bit / 8] >> (7 - bit % 8)) & 1;
        ASSERT_EQ(set, kept) << p << " from " << a;
      }
    }
  }
}

TEST(IpGenPrefixTest, BadTextAndLengthsBeyondTheFamilyAreRejectedSayingWhy) {
  std::vector<std::pair<std::string_view, std::string_view>> const cases = {
      {"10.0.0.0/33", "length 33 in '10.0.0.0/33' is out of range 0..32"},
      {"2001:db8::/129", "length 129 in '2001:db8::/129' is out of range 0..128"},
      {"10.0.0.0", "'10.0.0.0' has no '/<length>'"},
      {"10.0.0/8", "'10.0.0/8': Vorn::IpGenAddr: '10.0.0' is not an IPv4 or IPv6 address"}};
  for (auto [text, why] : cases) {
    EXPECT_EQ(parseError<IpGenPrefix>(text), "Vorn::IpGenPrefix: " + std::string(why));
  }
  for (std::string_view bad : {"10.0.0.0/", "10.0.0.0/+8", "10.0.0.0/-1", "10.0.0.0/8x",
                               "10.0.0.0/0008", "10.0.0.0/8/8"}) {
    EXPECT_NE(parseError<IpGenPrefix>(bad), "no exception") << bad;
  }
  EXPECT_EQ(errorOf<Zent::RangeException>([] { IpGenPrefix(IpGenAddr("10.0.0.0"), 33); }),
            "Vorn::IpGenPrefix::len < 0 or > 32 not allowed for an IPv4 prefix, got 33");
  EXPECT_THROW(IpGenPrefix(IpGenAddr("::"), 129), Zent::RangeException);
}

TEST(IpGenPrefixTest, RecordsWithHostBitsOrBadLengthsAreNotWellFormed) {
  // Byte 5 is a host bit of 10.0.0.0/8 (second address byte), byte 20 the length.
  for (auto [byte, value] : {std::pair{5, 1}, std::pair{20, 33}}) {
    IpGenPrefix p("10.0.0.0/8");
    reinterpret_cast<unsigned char*>(&p)[byte] = static_cast<unsigned char>(value);
    EXPECT_FALSE(p.wellFormed()) << byte;
  }
}

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
