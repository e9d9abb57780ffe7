// The vias beyond the value contract and the golden entry records: the texts
// of the vias no entry holds, the TunnelVia packing of interface ids, the
// class mask, and rejection of damaged via records.

#include <cstring>

#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/TunnelTable/TunnelVia.h"
#include "Tunnel/TunnelTable/Via.h"
#include "tests/common/ValueContract.h"

namespace Tunnel::TunnelTable {
namespace {

using Vorn::IntfId;
using Vorn::IpGenAddr;
using Vorn::MplsLabelOperation;

IpGenAddr const kNextHop("10.0.0.1");
IntfId const kEth = IntfId::ethernet(3);
MplsLabelOperation const kPush = MplsLabelOperation::push({100, 200});

using valuecontract::damaged;

TEST(ViaTest, CanonicalTextNamesEveryFieldInOrder) {
  EXPECT_EQ(TunnelVia(IpGenAddr("2001:db8::1"), IntfId::tunnel(7), EncapId(EncapType::greEncap, 9))
                .stringValue(),
            "Value('Tunnel::TunnelTable::TunnelVia', ** {'nextHop': 2001:db8::1, 'intfId': "
            "Tunnel7, 'encapId': Value('Tunnel::TunnelTable::EncapId', ** {'encapType': "
            "greEncap, 'encapValue': 9})})");
  EXPECT_EQ(MplsCosVia(MplsVia(), 5).stringValue(),
            "Value('Tunnel::TunnelTable::MplsCosVia', ** {'via': "
            "Value('Tunnel::TunnelTable::MplsVia', ** {'nextHop': 0.0.0.0, 'intfId': None, "
            "'labels': forward}), 'cosMask': 5})");
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
