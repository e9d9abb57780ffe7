#pragma once
// The base of the three interface-tunnel tables (GRE, IPsec GRE, IPsec VTI):
// their tunnels are named after the tunnel interface's port.

#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/net/IntfId.h"

namespace Tunnel::TunnelTable {

class L3IntfTunnelTableBase : public TunnelTableBase {
 public:
  using TunnelTableBase::TunnelTableBase;

  // The identifier of the tunnel behind tunnel interface `intf`: its port's
  // low 16 bits as the index of a staticInterfaceTunnel.
  static TunnelId newTunnelId(Vorn::IntfId const& intf);
  // The tunnel interface of an interface tunnel. Asserts that the type is
  // staticInterfaceTunnel and the index fits a port.
  static Vorn::IntfId tunnelIntfId(TunnelId const& tunnelId);
};

}  // namespace Tunnel::TunnelTable
