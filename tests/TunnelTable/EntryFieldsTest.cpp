// The small entry fields, the colored endpoint key, the vias, the tunnel
// information records and the EVPN VXLAN entry beyond the value contract:
// ordering of the RIB key, the tristate's transitions, the TunnelVia packing
// of interface ids, the class mask, range checks and which damaged records
// are refused.

#include <vector>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"
#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
#include "Tunnel/TunnelTable/TunnelVia.h"
#include "Tunnel/TunnelTable/Via.h"
#include "Tunnel/framework/Range.h"
#include "tests/common/ValueContract.h"
#include "tests/net/ErrorText.h"

namespace Tunnel::TunnelTable {
namespace {

using Vorn::IntfId;
using Vorn::IpGenAddr;
using Vorn::IpGenPrefix;
using Vorn::MplsLabelOperation;

using valuecontract::damaged;

IpGenAddr const kNextHop("10.0.0.1");
IntfId const kEth = IntfId::ethernet(3);
MplsLabelOperation const kPush = MplsLabelOperation::push({100, 200});

// A bare prefix is the uncolored endpoint, distinct from color 0 and first.
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
      EXPECT_EQ(sorted[i] == sorted[j], i == j) << sorted[i] << " vs " << sorted[j];
    }
  }
  EXPECT_EQ(ColoredTunnelEndpoint(a), ColoredTunnelEndpoint(a, 0, false));
}

TEST(EntryFieldsTest, TristateStartsUnsetAndTracksSetAndCleared) {
  TristateU32 t;
  EXPECT_EQ(t.state(), TristateState::unset);
  EXPECT_FALSE(static_cast<bool>(t));
  t.valueIs(0);
  EXPECT_TRUE(t.isSet());
  EXPECT_NE(t, TristateU32());  // a set 0 is not "nothing said"
  t.valueIs(7);
  t.valueDel();
  EXPECT_EQ(t, TristateU32(0, TristateState::cleared));
}

GreTunnelInfo const kGre(IpGenAddr("192.0.2.1"), IpGenAddr("198.51.100.2"), 42, 1476, 64, 0xb8,
                         true, false);

TEST(TunnelInfoTest, VniAboveTwentyFourBitsIsRefusedAndChangesNothing) {
  VxlanTunnelInfo info(IpGenAddr("10.0.0.2"), IpGenAddr("10.0.0.1"), VxlanTunnelInfo::kMaxVni);
  EXPECT_EQ(
      Vorn::test::errorOf<Zent::RangeException>([&] { info.vniIs(VxlanTunnelInfo::kMaxVni + 1); }),
      "Tunnel::VxlanTunnelInfo::vni < 0 or > 16777215 not allowed, got 16777216");
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
  EXPECT_EQ(e.tunnelInfo().udpPort(), 4789);    // the VXLAN port unless given
  EXPECT_FALSE(damaged(e, 7, 1).wellFormed());  // identifier above 2^49 - 1
}

// The 40-byte record drops the interface's spare word; every kind and the full
// 64-bit number of a dynamic tunnel interface must survive that.
TEST(ViaTest, TunnelViaKeepsEveryInterfaceKind) {
  for (IntfId const& intf :
       {IntfId(), IntfId::ethernet(0xffffffff), IntfId::tunnel(IntfId::kMaxTunnelPort),
        IntfId::fromTunnelIdValue(0xfedcba9876543210)}) {
    TunnelVia v(kNextHop, intf, EncapId(EncapType::labelStackEncap, 1));
    EXPECT_EQ(v.intfId(), intf);
    v.intfIdIs(kEth);
    EXPECT_EQ(v.intfId(), kEth);
  }
}

TEST(ViaTest, CosViaCarriesOnlyTheClassesOfItsMask) {
  MplsCosVia const all(MplsVia{});
  MplsCosVia const some(MplsVia{}, 0b1010);
  for (uint32_t tc = 0; tc < 8; ++tc) {
    EXPECT_TRUE(all.carriesClass(tc));
    EXPECT_EQ(some.carriesClass(tc), tc == 1 || tc == 3);
  }
  EXPECT_FALSE(all.carriesClass(8));
}

TEST(ViaTest, DamagedRecordsAreNotWellFormed) {
  Via const via(kNextHop, kEth);
  EXPECT_FALSE(damaged(via, 0, 2).wellFormed());   // address family
  EXPECT_FALSE(damaged(via, 10, 1).wellFormed());  // IPv4 tail byte
  EXPECT_FALSE(damaged(via, 20, 9).wellFormed());  // interface kind
  EXPECT_FALSE(damaged(via, 24, 1).wellFormed());  // interface spare word

  MplsVia const mpls(kNextHop, kEth, kPush);
  EXPECT_FALSE(damaged(mpls, 37, 18).wellFormed());  // label count above 17
  EXPECT_FALSE(damaged(mpls, 60, 1).wellFormed());   // a label past the count

  TunnelVia const tv(kNextHop, kEth, EncapId(EncapType::vxlanEncap, 4));
  EXPECT_FALSE(damaged(tv, 20, 4).wellFormed());  // interface kind
  EXPECT_FALSE(damaged(tv, 21, 1).wellFormed());  // interface zero byte
  EXPECT_FALSE(damaged(tv, 32, 6).wellFormed());  // encapsulation type

  EXPECT_FALSE(damaged(MplsCosVia(mpls), 109, 1).wellFormed());  // zero byte after the mask
}

}  // namespace
}  // namespace Tunnel::TunnelTable
