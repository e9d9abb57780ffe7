#pragma once
// Short texts for what FIB vias name, shared by `fib` and `resolve`: an
// encapsulation by its id and by what it holds, and an interface that may
// stand for another tunnel.

#include <string>

#include "Tunnel/TunnelFib/TunnelFib.h"
#include "Tunnel/net/IntfId.h"

namespace TunnelCtl {

// "label-stack 3", or "none" for the empty id.
std::string encapIdText(Tunnel::TunnelFib::EncapId id);

// What the FIB holds under `id`: "push 16001", "10.0.0.1 -> 10.0.0.2 key 7",
// "absent" when the FIB has no such encapsulation, "" for the empty id.
std::string encapValueText(Tunnel::TunnelFib::TunnelFib const& fib, Tunnel::TunnelFib::EncapId id);

// "label-stack 3 (push 16001)", "none", "gre 101 (absent)".
std::string encapText(Tunnel::TunnelFib::TunnelFib const& fib, Tunnel::TunnelFib::EncapId id);

// The interface's name; for a dynamic tunnel interface with the tunnel it
// stands for: "DynamicTunnel0x7000000000001 (isisSrTunnel:1)".
std::string intfText(Vorn::IntfId const& intf);

}  // namespace TunnelCtl
