#include "Tunnel/TunnelTable/L3IntfTunnelTableBase.h"

#include "Tunnel/framework/Range.h"

namespace Tunnel::TunnelTable {

TunnelId L3IntfTunnelTableBase::newTunnelId(Vorn::IntfId const& intf) {
  return TunnelId(staticInterfaceTunnel, intf.port() & 0xffff);
}

Vorn::IntfId L3IntfTunnelTableBase::tunnelIntfId(TunnelId const& tunnelId) {
  fmassert(tunnelId.tunnelType() == staticInterfaceTunnel);
  fmassert(tunnelId.tunnelIndex() <= Zent::maxU16());
  return Vorn::IntfId::tunnel(static_cast<uint32_t>(tunnelId.tunnelIndex()));
}

}  // namespace Tunnel::TunnelTable
