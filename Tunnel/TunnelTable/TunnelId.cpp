#include "Tunnel/TunnelTable/TunnelId.h"

#include "Tunnel/TunnelTableKeepdbTypes/NumberText.h"
#include "Tunnel/framework/Range.h"

namespace Tunnel::TunnelTable {

namespace {

struct TunnelCliNames {
  const char* display;
  const char* keyword;
};

// No default: a new enumerator without a display name fails the build.
TunnelCliNames tunnelCliNames(TunnelType type) {
  switch (type) {
    case bgpLuPushTunnel:
      return {"BGP LU Push", "bgp-lu-push"};
    case bgpLuTunnel:
      return {"BGP LU", "bgp-lu"};
    case ldpTunnel:
      return {"LDP", "ldp"};
    case staticTunnel:
      return {"Static", "static"};
    case evpnVxlanTunnel:
      return {"EVPN VXLAN", "evpn-vxlan"};
    case isisSrTunnel:
      return {"IS-IS SR", "isis-sr"};
    case srTeSegmentListTunnel:
      return {"SR-TE Segment List", "sr-te-segment-list"};
    case staticInterfaceTunnel:
      return {"Static Interface", "static-interface"};
    case nexthopGroupTunnel:
      return {"Nexthop Group", "nexthop-group"};
    case tiLfaTunnel:
      return {"TI-LFA", "ti-lfa"};
    case ospfSrTunnel:
      return {"OSPF SR", "ospf-sr"};
    case srTePolicyTunnel:
      return {"SR-TE Policy", "sr-te-policy"};
    case rsvpLerTunnel:
      return {"RSVP LER", "rsvp-ler"};
    case rsvpFrrTunnel:
      return {"RSVP FRR", "rsvp-frr"};
    case zorbSdkSbfdSessionTunnel:
      return {"SBFD Session", "sbfd-session"};
    case rsvpLerSubTunnel:
      return {"RSVP LER Sub", "rsvp-ler-sub"};
    case isisFlexAlgoTunnel:
      return {"IS-IS Flex Algo", "isis-flex-algo"};
    case mldpTunnel:
      return {"MLDP", "mldp"};
    case staticMcastTunnel:
      return {"Static Multicast", "static-mcast"};
    case unknownTunnel:
    case reservedTunnel4:
    case reservedTunnel10:
    case reservedTunnel15:
    case reservedTunnel19:
    case reservedTunnel31:
      break;
  }
  return {"Unknown", "unknown"};
}

}  // namespace

TunnelId::TunnelId(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
  Zent::String::IteratorConst pos = it;
  value_ = checked(parseNumberText<uint64_t>(pos, end, "Tunnel::TunnelTable::TunnelId"));
  it = pos;
}

void TunnelId::throwValueRange() {
  Zent::throwRangeException(
      Zent::rangeMessage("Tunnel::TunnelTable::TunnelId", "minValue", "maxValue"));
}

std::string TunnelId::tunnelTypeToCliStrep(TunnelType type, bool keyword) {
  TunnelCliNames names = tunnelCliNames(type);
  return keyword ? names.keyword : names.display;
}

}  // namespace Tunnel::TunnelTable
