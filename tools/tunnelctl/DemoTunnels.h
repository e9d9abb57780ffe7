#pragma once
// The demo's tunnels: what a producer remembers of each (endpoint, metric,
// vias) and the protocol entries built from it, with endpoints from a few
// hundred loopback prefixes, one to four vias over eight neighbours, and the
// labels each protocol would use (LDP per-neighbour labels, SR node SIDs,
// BGP-LU a label of its own).

#include <cstdint>

#include "Tunnel/TunnelTable/Tables.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "tools/tunnelctl/RedistFollower.h"

namespace TunnelCtl::Demo {

inline constexpr uint32_t kPrefixes = 300;  // 250 IPv4 and 50 IPv6 loopbacks
inline constexpr uint32_t kNeighbours = 8;

struct TunnelState {
  bool live = false;
  uint16_t prefix = 0;  // below kPrefixes
  uint8_t vias = 1;     // 1 to 4
  uint8_t firstNeighbour = 0;
  uint32_t metric = 0;
};

Vorn::IpGenPrefix demoPrefix(uint32_t p);

Tunnel::TunnelTable::TunnelType tunnelTypeOf(RedistProtocol p);
// Whether the protocol's machine takes the entry's metric, as the machine
// says (BGP-LU's does not: its members carry 0).
bool redistributesMetric(RedistProtocol p);

Tunnel::TunnelTable::LdpTunnelTableEntry ldpEntry(uint64_t index, TunnelState const& s);
Tunnel::TunnelTable::SrTunnelTableEntry isisSrEntry(uint64_t index, TunnelState const& s);
Tunnel::TunnelTable::BgpLuTunnelTableEntry bgpLuEntry(uint64_t index, TunnelState const& s);

}  // namespace TunnelCtl::Demo
