#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"

#include "Tunnel/framework/Dabin.h"

namespace Tunnel::TunnelTable {

// The switches below list every enumerator and have no default, so that a new
// enumerator without a name or a preference fails the build (-Wswitch).

std::string_view stringValue(TunnelType type) {
  switch (type) {
    case unknownTunnel:
      return "unknownTunnel";
    case bgpLuPushTunnel:
      return "bgpLuPushTunnel";
    case bgpLuTunnel:
      return "bgpLuTunnel";
    case ldpTunnel:
      return "ldpTunnel";
    case reservedTunnel4:
      return "reservedTunnel4";
    case staticTunnel:
      return "staticTunnel";
    case evpnVxlanTunnel:
      return "evpnVxlanTunnel";
    case isisSrTunnel:
      return "isisSrTunnel";
    case srTeSegmentListTunnel:
      return "srTeSegmentListTunnel";
    case staticInterfaceTunnel:
      return "staticInterfaceTunnel";
    case reservedTunnel10:
      return "reservedTunnel10";
    case nexthopGroupTunnel:
      return "nexthopGroupTunnel";
    case tiLfaTunnel:
      return "tiLfaTunnel";
    case ospfSrTunnel:
      return "ospfSrTunnel";
    case srTePolicyTunnel:
      return "srTePolicyTunnel";
    case reservedTunnel15:
      return "reservedTunnel15";
    case rsvpLerTunnel:
      return "rsvpLerTunnel";
    case rsvpFrrTunnel:
      return "rsvpFrrTunnel";
    case zorbSdkSbfdSessionTunnel:
      return "zorbSdkSbfdSessionTunnel";
    case reservedTunnel19:
      return "reservedTunnel19";
    case rsvpLerSubTunnel:
      return "rsvpLerSubTunnel";
    case isisFlexAlgoTunnel:
      return "isisFlexAlgoTunnel";
    case mldpTunnel:
      return "mldpTunnel";
    case staticMcastTunnel:
      return "staticMcastTunnel";
    case reservedTunnel31:
      return "reservedTunnel31";
  }
  return "invalidTunnelType";
}

bool sequenceToValue(std::string_view text, TunnelType& type) {
  // Every enumerator lies in 0-31 (five bits of a TunnelId).
  for (uint32_t v = 0; v <= uint32_t{reservedTunnel31}; ++v) {
    auto candidate = static_cast<TunnelType>(v);
    if (stringValue(candidate) == text && text != "invalidTunnelType") {
      type = candidate;
      return true;
    }
  }
  return false;
}

std::ostream& operator<<(std::ostream& os, TunnelType type) { return os << stringValue(type); }

TunnelEntryPref getDefaultPrefForType(TunnelType type) {
  constexpr uint8_t none = TunnelEntryPref::kNoPreference;
  switch (type) {
    case unknownTunnel:
      return none;
    case bgpLuPushTunnel:
      return none;
    case bgpLuTunnel:
      return 85;
    case ldpTunnel:
      return 55;
    case reservedTunnel4:
      return none;
    case staticTunnel:
      return 15;
    case evpnVxlanTunnel:
      return none;
    case isisSrTunnel:
      return 65;
    case srTeSegmentListTunnel:
      return none;
    case staticInterfaceTunnel:
      return none;
    case reservedTunnel10:
      return none;
    case nexthopGroupTunnel:
      return 25;
    case tiLfaTunnel:
      return none;
    case ospfSrTunnel:
      return 60;
    case srTePolicyTunnel:
      return 35;
    case reservedTunnel15:
      return none;
    case rsvpLerTunnel:
      return 45;
    case rsvpFrrTunnel:
      return none;
    case zorbSdkSbfdSessionTunnel:
      return none;
    case reservedTunnel19:
      return none;
    case rsvpLerSubTunnel:
      return none;
    case isisFlexAlgoTunnel:
      return 65;
    case mldpTunnel:
      return none;
    case staticMcastTunnel:
      return 15;
    case reservedTunnel31:
      return none;
  }
  fmassert(false && "Unknown tunnel type", "tunnel type {}", uint32_t{type});
  __builtin_unreachable();
}

}  // namespace Tunnel::TunnelTable
