#pragma once
// The demo's tunnel FIB: IS-IS SR tunnels over Ethernet, SR-TE policies over
// them and BGP-LU tunnels over both, each level with a label stack of its
// own; tunnels over a tunnel missing from the FIB, a cycle of two static
// tunnels, and GRE, IPsec-GRE and IPsec-VTI interface tunnels.

#include "Tunnel/TunnelFib/TunnelFib.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/DemoShared.h"

namespace TunnelCtl::Demo {

// Resolves over three levels to two vias.
Tunnel::TunnelTable::TunnelId fibExample();
// Rides on a tunnel the FIB does not have.
Tunnel::TunnelTable::TunnelId fibBlackHole();

void writeDemoFib(Tunnel::TunnelFib::TunnelFib& fib);

// Writes the demo's FIB under the demo's root and keeps it, as its writer,
// until the demo shuts down.
int runFibProducer(SharedRegion const& region, DemoOptions const& o);

}  // namespace TunnelCtl::Demo
