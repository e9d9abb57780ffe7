#pragma once
// TunnelTableIdentifier names each mountable protocol tunnel table (1 to 21).
// Its numbering is independent of TunnelType on purpose: BGP-LU is type 2
// but table 1, BGP-LU push type 1 but table 2.

#include <cstdint>
#include <string_view>

namespace Tunnel::TunnelTable {

enum class TunnelTableIdentifier : uint8_t {
  invalidTunnelTable = 0,
  bgpLuTunnelTable = 1,
  bgpLuPushTunnelTable = 2,
  ldpTunnelTable = 3,
  rsvpFrrTunnelTable = 4,
  rsvpLerSubTunnelTable = 5,
  rsvpLerTunnelTable = 6,
  isisSrTunnelTable = 7,
  ospfSrTunnelTable = 8,
  staticTunnelTable = 9,
  nexthopGroupTunnelTable = 10,
  srTeSegmentListTunnelTable = 11,
  greIntfTunnelTable = 12,
  ipsecVtiIntfTunnelTable = 13,
  ipsecGreIntfTunnelTable = 14,
  evpnVxlanTunnelTable = 15,
  tiLfaTunnelTable = 16,
  srTePolicyTunnelTable = 17,
  zorbSdkSbfdSessionTunnelTable = 18,
  isisFlexAlgoTunnelTable = 19,
  mldpTunnelTable = 20,
  staticMcastTunnelTable = 21,
};
constexpr uint8_t kMaxTunnelTableIdentifier = 21;

std::string_view stringValue(TunnelTableIdentifier id);
bool sequenceToValue(std::string_view text, TunnelTableIdentifier& id);

}  // namespace Tunnel::TunnelTable
