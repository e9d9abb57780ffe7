#pragma once
// The tunnel identifier an interface stands for: a dynamic tunnel interface
// stands for the tunnel it names, a tunnel interface "Tunnel<port>" for the
// interface tunnel of that port (type staticInterfaceTunnel). Other
// interfaces stand for no tunnel (identifier 0).

#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/net/IntfId.h"

namespace Tunnel::TunnelTable {

// Range-checks a dynamic tunnel interface's value (Zent::RangeException).
TunnelId tunnelIdOfIntf(Vorn::IntfId const& intf);

// The dynamic tunnel interface that stands for `id`.
inline Vorn::IntfId dynamicTunnelIntf(TunnelId const& id) {
  return Vorn::IntfId::fromTunnelIdValue(id.value());
}

}  // namespace Tunnel::TunnelTable
