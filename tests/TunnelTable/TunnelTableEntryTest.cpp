// The base entry's own rules: where each field sits in the 552-byte record
// and which damaged base records are refused, tep(), whole-name setting, and
// the dump lines with and without a dump context.

#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"

namespace Tunnel::TunnelTable {
namespace {

using Bytes = std::vector<unsigned char>;
using Vorn::IpGenPrefix;

TunnelId id(TunnelType type, uint64_t index) {
  return TunnelId(TunnelId::convertToTunnelValue(type, index));
}

template <typename T>
T at(Bytes const& b, size_t offset) {
  T v;
  std::memcpy(&v, &b[offset], sizeof v);
  return v;
}

class BaseRecordTest : public ::testing::Test {
 protected:
  BaseRecordTest() {
    e_.nexthopTunnelIdIs(id(ldpTunnel, 9));
    e_.entryMetricIs(0x01020304);
    e_.tunnelBwIs(0x0a0b0c0d);
    e_.viasOrderedIs(true);
    e_.endpointIs(0, IpGenPrefix("10.0.0.0/8"));
    e_.endpointIs(1, IpGenPrefix("2001:db8::/32"));
    e_.nameIs("tun");
    record_.resize(e_.serializeLen());
    e_.serialize(record_.data());
  }
  uint32_t lenOf(Bytes const& b) const {
    return e_.deserializeLen(b.data(), static_cast<unsigned>(b.size()));
  }

  TunnelTableEntry e_{id(rsvpLerTunnel, 7), 45};
  Bytes record_;
};

TEST_F(BaseRecordTest, FieldsSitAtTheirOffsetsWithUnusedSlotsZero) {
  ASSERT_EQ(record_.size(), 552u);
  EXPECT_EQ(at<uint64_t>(record_, 0), id(rsvpLerTunnel, 7).value());
  EXPECT_EQ(at<uint64_t>(record_, 8), id(ldpTunnel, 9).value());
  EXPECT_EQ(record_[16], 45);
  EXPECT_EQ(at<uint32_t>(record_, 17), 0x01020304u);
  EXPECT_EQ(at<uint32_t>(record_, 21), 0x0a0b0c0du);
  EXPECT_EQ(record_[25], 1);
  EXPECT_EQ(record_[26], 2);
  EXPECT_EQ(at<IpGenPrefix>(record_, 27), IpGenPrefix("10.0.0.0/8"));
  EXPECT_EQ(at<IpGenPrefix>(record_, 51), IpGenPrefix("2001:db8::/32"));
  EXPECT_EQ(Bytes(record_.begin() + 75, record_.begin() + 411), Bytes(336, 0));
  EXPECT_EQ(record_[411], 3);
  EXPECT_EQ(std::string(record_.begin() + 412, record_.begin() + 415), "tun");
  EXPECT_EQ(Bytes(record_.begin() + 415, record_.end()), Bytes(137, 0));
}

TEST_F(BaseRecordTest, DamagedBaseRecordsAreRefused) {
  ASSERT_EQ(lenOf(record_), 552u);
  struct Damage {
    const char* what;
    size_t offset;
    unsigned char value;
  };
  for (Damage d :
       {Damage{"tunnelId above its range", 6, 0x02},
        Damage{"nexthopTunnelId above its range", 15, 0x80},
        Damage{"viasOrdered neither 0 nor 1", 25, 2},
        Damage{"endpoint with host bits", 27 + 4 + 1, 1}, Damage{"unused endpoint slot", 75 + 5, 1},
        Damage{"unused name byte", 415, 'x'}, Damage{"reserved tail", 551, 1}}) {
    Bytes bad = record_;
    bad[d.offset] = d.value;
    EXPECT_EQ(lenOf(bad), 0u) << d.what;
  }
}

TEST_F(BaseRecordTest, DeserializeOfARefusedRecordThrowsNamingTheOffset) {
  Bytes bad = record_;
  bad[25] = 7;
  TunnelTableEntry back;
  try {
    back.deserialize(bad.data(), static_cast<unsigned>(bad.size()));
    ADD_FAILURE() << "a viasOrdered byte of 7 was read";
  } catch (RecordError const& ex) {
    EXPECT_STREQ(ex.what(),
                 "Tunnel::TunnelTable::TunnelTableEntry: invalid record of 552 bytes at offset 25");
  }
}

TEST(TunnelTableEntryTest, TepIsTheFirstEndpointOrTheDefaultPrefix) {
  TunnelTableEntry e(id(ldpTunnel, 1));
  EXPECT_EQ(e.tep(), IpGenPrefix());
  e.endpointIs(1, IpGenPrefix("10.1.0.0/16"));
  EXPECT_EQ(e.tep(), IpGenPrefix());  // the gap before index 1 is a default prefix
  e.endpointIs(0, IpGenPrefix("10.0.0.1/32"));
  EXPECT_EQ(e.tep(), IpGenPrefix("10.0.0.1/32"));
  e.endpointDel(0);
  EXPECT_EQ(e.tep(), IpGenPrefix("10.1.0.0/16"));
}

TEST(TunnelTableEntryTest, WholeNameReplacesTheBytesOrNothingWhenTooLong) {
  TunnelTableEntry e;
  e.nameIs(std::string(128, 'n'));
  EXPECT_EQ(e.name().count(), 128u);
  e.nameIs("short");
  EXPECT_EQ(e.nameText(), "short");
  EXPECT_THROW(e.nameIs(std::string(129, 'n')), Zent::RangeException);
  EXPECT_EQ(e.nameText(), "short");
}

class EntryDumpTest : public ::testing::Test {
 protected:
  EntryDumpTest() {
    e_.endpointIs(0, IpGenPrefix("10.0.0.1/32"));
    DumpContext::defaultOutputIs(&defaultOut_);
  }
  ~EntryDumpTest() override { DumpContext::defaultOutputIs(nullptr); }

  std::string dump(int indent) {
    std::ostringstream os;
    DumpContext ctx(os);
    e_.dumpState(&ctx, indent);
    return os.str();
  }

  TunnelTableEntry e_{id(isisFlexAlgoTunnel, (uint64_t{0xff} << 35) | 12)};
  std::ostringstream defaultOut_;
};

TEST_F(EntryDumpTest, LinesStartWithTheIndentAsPrintfPadsABlank) {
  // The flex-algo identifier shows its 35-bit index only.
  EXPECT_EQ(dump(3),
            "   TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n"
            "   tep: 10.0.0.1/32\n");
  // "%*c" prints at least the blank itself.
  EXPECT_EQ(dump(0), " TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n tep: 10.0.0.1/32\n");
  EXPECT_EQ(dump(-2), "  TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n  tep: 10.0.0.1/32\n");
  EXPECT_EQ(defaultOut_.str(), "");
}

TEST_F(EntryDumpTest, WithoutContextLinesGoUnindentedToTheDefaultOutput) {
  e_.dumpState(nullptr, 8);
  EXPECT_EQ(defaultOut_.str(),
            "TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n"
            "tep: 10.0.0.1/32\n");
}

}  // namespace
}  // namespace Tunnel::TunnelTable
