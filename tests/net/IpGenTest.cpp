// Addresses and prefixes: family is part of the value, host bits never
// survive construction, and bad texts fail with messages that say why.

#include <gtest/gtest.h>

#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "tests/net/RandomValues.h"

namespace Vorn::test {
namespace {

// The message of the ParseError that parsing `text` as T throws.
template <typename T>
std::string parseError(std::string_view text) {
  try {
    T v(text);
    ADD_FAILURE() << "'" << text << "' parsed as " << v;
  } catch (Zent::ParseError const& e) {
    return e.what();
  }
  return {};
}

TEST(IpGenAddrTest, TextIsDottedQuadOrCompressedIpv6) {
  EXPECT_EQ(IpGenAddr(0x01020304u).stringValue(), "1.2.3.4");
  EXPECT_EQ(IpGenAddr().stringValue(), "0.0.0.0");
  // RFC 5952: lower case, no leading zeros, the longest zero run as "::".
  EXPECT_EQ(IpGenAddr("2001:0DB8:0000:0000:0001:0000:0000:0001").stringValue(),
            "2001:db8::1:0:0:1");
  EXPECT_EQ(IpGenAddr("::").stringValue(), "::");
  EXPECT_EQ(IpGenAddr("::ffff:10.0.0.1").stringValue(), "::ffff:10.0.0.1");
}

TEST(IpGenAddrTest, Ipv4SortsBeforeIpv6AndNumerically) {
  EXPECT_LT(IpGenAddr(0xffffffffu), IpGenAddr("::"));
  EXPECT_LT(IpGenAddr("9.0.0.0"), IpGenAddr("10.0.0.0"));
  EXPECT_LT(IpGenAddr("2001:db8::9"), IpGenAddr("2001:db8::10"));
}

TEST(IpGenAddrTest, TheIpv6UnspecifiedAddressIsNotTheDefault) {
  IpGenAddr any6("::");
  EXPECT_NE(any6, IpGenAddr());
  EXPECT_TRUE(static_cast<bool>(any6));
  EXPECT_EQ(IpGenAddr(0u), IpGenAddr());
}

TEST(IpGenAddrTest, BadTextIsRejectedNamingTheText) {
  for (std::string_view bad : {"", "1.2.3", "1.2.3.4.5", "256.0.0.1", "1.2.3.4 ", "01.2.3.4",
                               "2001:db8:::1", "2001:db8::g", "1.2.3.4/32", "::1::2"}) {
    std::string msg = parseError<IpGenAddr>(bad);
    EXPECT_EQ(msg, fmt::format("Vorn::IpGenAddr: '{}' is not an IPv4 or IPv6 address", bad));
  }
  // A text longer than any address must not overrun the conversion buffer.
  EXPECT_FALSE(parseError<IpGenAddr>(std::string(200, '1')).empty());
}

TEST(IpGenPrefixTest, HostBitsAreClearedOnConstructionAndParse) {
  IpGenPrefix p(IpGenAddr("10.1.2.3"), 8);
  EXPECT_EQ(p.address(), IpGenAddr("10.0.0.0"));
  EXPECT_EQ(p.stringValue(), "10.0.0.0/8");
  EXPECT_EQ(IpGenPrefix("10.1.2.3/8"), p);
  EXPECT_EQ(IpGenPrefix("10.255.255.255/9").stringValue(), "10.128.0.0/9");
  EXPECT_EQ(IpGenPrefix("2001:db8:ffff::1/33").stringValue(), "2001:db8:8000::/33");
  EXPECT_EQ(IpGenPrefix("1.2.3.4/0"), IpGenPrefix());
  EXPECT_EQ(IpGenPrefix("2001:db8::1/128").address(), IpGenAddr("2001:db8::1"));
}

TEST(IpGenPrefixTest, HostBitsAreClearedAtEveryLength) {
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

TEST(IpGenPrefixTest, SameBitsInDifferentFamiliesAreDifferentPrefixes) {
  IpGenPrefix v4("0.0.0.0/0");
  IpGenPrefix v6("::/0");
  EXPECT_NE(v4, v6);
  EXPECT_NE(v4.hash(), v6.hash());
  EXPECT_TRUE(static_cast<bool>(v6));
  EXPECT_NE(IpGenPrefix("10.0.0.0/8"), IpGenPrefix("a00::/8"));
  EXPECT_FALSE(IpGenPrefix("::/0").contains(IpGenAddr("1.2.3.4")));
}

TEST(IpGenPrefixTest, LengthBeyondTheFamilyIsRejected) {
  EXPECT_EQ(parseError<IpGenPrefix>("10.0.0.0/33"),
            "Vorn::IpGenPrefix: length 33 in '10.0.0.0/33' is out of range 0..32");
  EXPECT_EQ(parseError<IpGenPrefix>("2001:db8::/129"),
            "Vorn::IpGenPrefix: length 129 in '2001:db8::/129' is out of range 0..128");
  EXPECT_NO_THROW(IpGenPrefix("2001:db8::/128"));
  EXPECT_NO_THROW(IpGenPrefix("1.2.3.4/32"));
  try {
    IpGenPrefix(IpGenAddr("10.0.0.0"), 33);
    ADD_FAILURE() << "length 33 accepted";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(),
                 "Vorn::IpGenPrefix::len < 0 or > 32 not allowed for an IPv4 prefix, got 33");
  }
  EXPECT_THROW(IpGenPrefix(IpGenAddr("::"), 129), Zent::RangeException);
}

TEST(IpGenPrefixTest, MalformedTextIsRejected) {
  EXPECT_EQ(parseError<IpGenPrefix>("10.0.0.0"),
            "Vorn::IpGenPrefix: '10.0.0.0' has no '/<length>'");
  EXPECT_EQ(parseError<IpGenPrefix>("10.0.0/8"),
            "Vorn::IpGenPrefix: '10.0.0/8': Vorn::IpGenAddr: '10.0.0' is not an IPv4 or IPv6 "
            "address");
  for (std::string_view bad : {"10.0.0.0/", "10.0.0.0/+8", "10.0.0.0/-1", "10.0.0.0/8x",
                               "10.0.0.0/0008", "10.0.0.0/8/8"}) {
    EXPECT_FALSE(parseError<IpGenPrefix>(bad).empty()) << bad;
  }
}

TEST(IpGenPrefixTest, RecordsWithHostBitsOrBadLengthsAreNotWellFormed) {
  IpGenPrefix p("10.0.0.0/8");
  unsigned char rec[IpGenPrefix::kRecordSize];
  std::memcpy(rec, &p, sizeof(rec));
  rec[5] = 1;  // a host bit of 10.0.0.0/8 (second address byte)
  IpGenPrefix hostBits;
  std::memcpy(&hostBits, rec, sizeof(rec));
  EXPECT_FALSE(hostBits.wellFormed());
  std::memcpy(rec, &p, sizeof(rec));
  rec[20] = 33;  // the length
  IpGenPrefix badLen;
  std::memcpy(&badLen, rec, sizeof(rec));
  EXPECT_FALSE(badLen.wellFormed());
}

}  // namespace
}  // namespace Vorn::test
