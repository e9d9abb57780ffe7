#include <gtest/gtest.h>

#include "Tunnel/TunnelTable/IntfTunnels.h"
#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/framework/Range.h"

using namespace Tunnel::TunnelTable;

namespace {

TEST(EvpnVxlanTunnelTableTest, IdentifiersStartAtOneAndAreNeverReused) {
  auto t = evpnVxlanTunnelTableFactory("evpn");
  EXPECT_EQ(t->newTunnelId(), TunnelId(evpnVxlanTunnel, 1));
  EXPECT_EQ(t->newTunnelId().tunnelIndex(), 2u);
  EXPECT_EQ(t->lastAllocatedId(), 2u);
  t->lastAllocatedIdIs(EvpnVxlanTunnelTable::maxId());
  EXPECT_DEATH(t->newTunnelId(),
               "lastAllocatedId\\(\\) < maxId\\(\\) && \"Reached maximum number of IDs.\"");
}

TEST(EvpnVxlanTunnelTableTest, KernelInterfaceNamesRoundTripAndMalformedNamesGiveZero) {
  TunnelId t(evpnVxlanTunnel, 26);
  EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfName(t), "t0x1a");
  EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfTunnelId("t0x1a"), t);
  TunnelId flex(isisFlexAlgoTunnel, (0xffull << 35) | 5);
  EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfName(flex), "t0x5");
  for (auto bad : {"", "t0x", "t0X1a", "t0x1A", "x0x1a", "t0x-1", "t0x1g", "t0x800000000000"}) {
    EXPECT_EQ(EvpnVxlanTunnelTable::tunKernelIntfTunnelId(bad), TunnelId()) << bad;
  }
}

TEST(EvpnVxlanTunnelTableTest, OnlyDynamicInterfacesOfEvpnTunnelsAreValid) {
  TunnelId evpn(evpnVxlanTunnel, 3);
  EXPECT_TRUE(EvpnVxlanTunnelTable::isValidEvpnIntf(dynamicTunnelIntf(evpn)));
  EXPECT_FALSE(EvpnVxlanTunnelTable::isValidEvpnIntf(Vorn::IntfId::tunnel(3)));  // type 9
  EXPECT_FALSE(EvpnVxlanTunnelTable::isValidEvpnIntf(Vorn::IntfId::fromTunnelIdValue(0)));
  EXPECT_THROW(EvpnVxlanTunnelTable::isValidEvpnIntf(Vorn::IntfId::fromTunnelIdValue(1ull << 50)),
               Zent::RangeException);
}

TEST(L3IntfTunnelTableBaseTest, TunnelPortsRoundTripAndBadIdentifiersAbort) {
  TunnelId id = L3IntfTunnelTableBase::newTunnelId(Vorn::IntfId::tunnel(65535));
  EXPECT_EQ(id.tunnelType(), staticInterfaceTunnel);
  EXPECT_EQ(L3IntfTunnelTableBase::tunnelIntfId(id), Vorn::IntfId::tunnel(65535));
  EXPECT_DEATH(L3IntfTunnelTableBase::tunnelIntfId(TunnelId(staticInterfaceTunnel, 65536)),
               "tunnelId.tunnelIndex\\(\\) <= Zent::maxU16\\(\\)");
  EXPECT_DEATH(L3IntfTunnelTableBase::tunnelIntfId(TunnelId(ldpTunnel, 1)),
               "tunnelId.tunnelType\\(\\) == staticInterfaceTunnel");
}

}  // namespace
