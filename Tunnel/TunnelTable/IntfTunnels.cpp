#include "Tunnel/TunnelTable/IntfTunnels.h"

namespace Tunnel::TunnelTable {

TunnelId tunnelIdOfIntf(Vorn::IntfId const& intf) {
  if (intf.isDynamicTunnel()) return TunnelId(intf.tunnelIdValue());
  if (intf.isTunnel()) {
    return TunnelId(staticInterfaceTunnel, intf.port() & 0xffff);
  }
  return TunnelId();
}

}  // namespace Tunnel::TunnelTable
