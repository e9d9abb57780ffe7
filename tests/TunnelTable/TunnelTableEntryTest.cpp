// The base entry's own rules: which damaged base records are refused and how
// deserialize reports one, tep(), and the dump's indent with and without a
// dump context.

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

TEST(BaseRecordTest, DamagedBaseRecordsAreRefusedAndDeserializeNamesTheOffset) {
  TunnelTableEntry e(TunnelId(rsvpLerTunnel, 7), 45);
  e.endpointIs(0, IpGenPrefix("10.0.0.0/8"));
  e.endpointIs(1, IpGenPrefix("2001:db8::/32"));
  e.nameIs("tun");
  Bytes record(e.serializeLen());
  e.serialize(record.data());
  ASSERT_EQ(e.deserializeLen(record.data(), 552), 552u);
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
    Bytes bad = record;
    bad[d.offset] = d.value;
    EXPECT_EQ(e.deserializeLen(bad.data(), 552), 0u) << d.what;
  }
  Bytes bad = record;
  bad[25] = 7;
  try {
    TunnelTableEntry().deserialize(bad.data(), 552);
    ADD_FAILURE() << "a viasOrdered byte of 7 was read";
  } catch (RecordError const& ex) {
    EXPECT_STREQ(ex.what(),
                 "Tunnel::TunnelTable::TunnelTableEntry: invalid record of 552 bytes at offset 25");
  }
}

TEST(TunnelTableEntryTest, TepIsTheFirstEndpointOrTheDefaultPrefix) {
  TunnelTableEntry e(TunnelId(ldpTunnel, 1));
  EXPECT_EQ(e.tep(), IpGenPrefix());
  e.endpointIs(1, IpGenPrefix("10.1.0.0/16"));
  EXPECT_EQ(e.tep(), IpGenPrefix());  // the gap before index 1 is a default prefix
  e.endpointIs(0, IpGenPrefix("10.0.0.1/32"));
  EXPECT_EQ(e.tep(), IpGenPrefix("10.0.0.1/32"));
  e.endpointDel(0);
  EXPECT_EQ(e.tep(), IpGenPrefix("10.1.0.0/16"));
}

TEST(EntryDumpTest, LinesStartWithTheIndentAsPrintfPadsABlankOrNoneWithoutAContext) {
  std::ostringstream defaultOut;
  DumpContext::defaultOutputIs(&defaultOut);
  TunnelTableEntry e(TunnelId(isisFlexAlgoTunnel, (uint64_t{0xff} << 35) | 12));
  e.endpointIs(0, IpGenPrefix("10.0.0.1/32"));
  auto dump = [&](int indent) {
    std::ostringstream os;
    DumpContext ctx(os);
    e.dumpState(&ctx, indent);
    return os.str();
  };
  // The flex-algo identifier shows its 35-bit index only.
  EXPECT_EQ(dump(3), "   TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n   tep: 10.0.0.1/32\n");
  // "%*c" prints at least the blank itself.
  EXPECT_EQ(dump(0), " TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n tep: 10.0.0.1/32\n");
  EXPECT_EQ(dump(-2), "  TunnelId: (Type: IS-IS Flex Algo, Index: 12)\n  tep: 10.0.0.1/32\n");
  EXPECT_EQ(defaultOut.str(), "");
  e.dumpState(nullptr, 8);
  EXPECT_EQ(defaultOut.str(), "TunnelId: (Type: IS-IS Flex Algo, Index: 12)\ntep: 10.0.0.1/32\n");
  DumpContext::defaultOutputIs(nullptr);
}

}  // namespace
}  // namespace Tunnel::TunnelTable
