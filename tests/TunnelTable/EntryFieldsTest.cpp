// The small entry fields, the colored endpoint key, the tunnel information
// records and the EVPN VXLAN entry beyond the value contract: ordering of the
// RIB key, the tristate's transitions, range checks and which damaged records
// are refused.

#include <algorithm>
#include <cstring>
#include <set>
#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
#include "Tunnel/framework/Range.h"
#include "tests/common/ValueContract.h"

namespace Tunnel::TunnelTable {
namespace {

using Vorn::IpGenAddr;
using Vorn::IpGenPrefix;

using valuecontract::damaged;

TEST(ColoredTunnelEndpointTest, OrdersByPrefixThenColorWithUncoloredFirst) {
  IpGenPrefix const a("10.0.0.0/8");
  IpGenPrefix const b("10.0.0.0/16");
  IpGenPrefix const v6("::1/128");
  std::vector<ColoredTunnelEndpoint> const sorted = {
      ColoredTunnelEndpoint(a),    ColoredTunnelEndpoint(a, 0),
      ColoredTunnelEndpoint(a, 1), ColoredTunnelEndpoint(a, 0xffffffff),
      ColoredTunnelEndpoint(b, 0), ColoredTunnelEndpoint(v6),
  };
  for (size_t i = 0; i < sorted.size(); ++i) {
    for (size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(sorted[i] < sorted[j], i < j) << sorted[i] << " vs " << sorted[j];
    }
  }
  std::set<ColoredTunnelEndpoint> const asSet(sorted.rbegin(), sorted.rend());
  EXPECT_TRUE(std::equal(asSet.begin(), asSet.end(), sorted.begin(), sorted.end()));
}

TEST(ColoredTunnelEndpointTest, BarePrefixIsUncoloredAndDistinctFromColorZero) {
  IpGenPrefix const p("192.0.2.0/24");
  ColoredTunnelEndpoint const bare(p);
  EXPECT_EQ(bare.color(), 0u);
  EXPECT_FALSE(bare.isColored());
  EXPECT_NE(bare, ColoredTunnelEndpoint(p, 0));
  EXPECT_EQ(bare, ColoredTunnelEndpoint(p, 0, false));
  EXPECT_EQ(ColoredTunnelEndpoint(p, 5).stringValue(),
            "Value('Tunnel::TunnelTable::ColoredTunnelEndpoint', ** {'tep': 192.0.2.0/24, "
            "'color': 5, 'isColored': true})");
}

TEST(EntryFieldsTest, TristateStartsUnsetAndTracksSetAndCleared) {
  TristateU32 t;
  EXPECT_EQ(t.value(), 0u);
  EXPECT_EQ(t.state(), TristateState::unset);
  EXPECT_FALSE(static_cast<bool>(t));
  t.valueIs(0);
  EXPECT_TRUE(t.isSet());
  EXPECT_NE(t, TristateU32());  // a set 0 is not "nothing said"
  EXPECT_EQ(t.stringValue(),
            "Value('Tunnel::TunnelTable::TristateU32', ** {'value': 0, 'state': set})");
  t.valueIs(7);
  t.valueDel();
  EXPECT_EQ(t, TristateU32(0, TristateState::cleared));
}

GreTunnelInfo const kGre(IpGenAddr("192.0.2.1"), IpGenAddr("198.51.100.2"), 42, 1476, 64, 0xb8,
                         true, false);

TEST(TunnelInfoTest, VniAboveTwentyFourBitsIsRefusedAndChangesNothing) {
  VxlanTunnelInfo info(IpGenAddr("10.0.0.2"), IpGenAddr("10.0.0.1"), VxlanTunnelInfo::kMaxVni);
  try {
    info.vniIs(VxlanTunnelInfo::kMaxVni + 1);
    FAIL() << "no exception";
  } catch (Zent::RangeException const& e) {
    EXPECT_STREQ(e.what(),
                 "Tunnel::VxlanTunnelInfo::vni < 0 or > 16777215 not allowed, got 16777216");
  }
  EXPECT_EQ(info.vni(), VxlanTunnelInfo::kMaxVni);
  EXPECT_THROW(VxlanTunnelInfo(IpGenAddr(), IpGenAddr(), 1u << 24), Zent::RangeException);
}

TEST(EntryFieldsTest, DamagedRecordsAreNotWellFormed) {
  ColoredTunnelEndpoint const endpoint(IpGenPrefix("10.1.0.0/16"), 3);
  EXPECT_FALSE(damaged(endpoint, 20, 33).wellFormed());     // prefix length above 32
  EXPECT_FALSE(damaged(endpoint, 28, 2).wellFormed());      // flag neither 0 nor 1
  EXPECT_FALSE(damaged(endpoint, 31, 1).wellFormed());      // zero byte
  EXPECT_FALSE(damaged(TristateU32(), 4, 3).wellFormed());  // state
  EXPECT_FALSE(damaged(TristateU32(), 6, 1).wellFormed());  // zero byte
  EXPECT_FALSE(damaged(ContributionToTunnelRIB(), 0, 3).wellFormed());
  EXPECT_EQ(damaged(ContributionToTunnelRIB(), 0, 3).stringValue(), "invalidContribution");
  EXPECT_FALSE(damaged(kGre, 20, 7).wellFormed());  // destination family
  EXPECT_FALSE(damaged(kGre, 48, 2).wellFormed());  // keyPresent
  EXPECT_FALSE(damaged(kGre, 63, 1).wellFormed());  // padding
  EXPECT_FALSE(damaged(IpsecGreTunnelInfo(kGre, 1), 49, 5).wellFormed());
  EXPECT_FALSE(damaged(IpsecVtiTunnelInfo(), 1, 1).wellFormed());  // address zero byte
  EXPECT_FALSE(damaged(VxlanTunnelInfo(), 43, 1).wellFormed());    // VNI above 24 bits
  EXPECT_FALSE(damaged(VxlanTunnelInfo(), 46, 1).wellFormed());    // padding
}

TEST(EvpnVxlanTunnelEntryTest, IsKeyedByItsTunnelIdAndRejectsAnOutOfRangeId) {
  TunnelId const id(evpnVxlanTunnel, 26);
  EvpnVxlanTunnelEntry const e(id, VxlanTunnelInfo(IpGenAddr("10.0.0.2"), IpGenAddr(), 10010));
  EXPECT_EQ(e.key(), id);
  // 4789 is the VXLAN port unless given.
  EXPECT_EQ(e.stringValue(),
            "Value('Tunnel::TunnelTable::EvpnVxlanTunnelEntry', ** {'tunnelId': 105553116266522, "
            "'tunnelInfo': Value('Tunnel::VxlanTunnelInfo', ** {'remoteVtep': 10.0.0.2, "
            "'localVtep': 0.0.0.0, 'vni': 10010, 'udpPort': 4789})})");
  EXPECT_FALSE(damaged(e, 7, 1).wellFormed());  // identifier above 2^49 - 1
}

}  // namespace
}  // namespace Tunnel::TunnelTable
