#include "Tunnel/TunnelTable/TunnelTableIdentifier.h"

#include <array>

namespace Tunnel::TunnelTable {
namespace {
constexpr std::array<std::string_view, 22> kNames = {
    "invalidTunnelTable",
    "bgpLuTunnelTable",
    "bgpLuPushTunnelTable",
    "ldpTunnelTable",
    "rsvpFrrTunnelTable",
    "rsvpLerSubTunnelTable",
    "rsvpLerTunnelTable",
    "isisSrTunnelTable",
    "ospfSrTunnelTable",
    "staticTunnelTable",
    "nexthopGroupTunnelTable",
    "srTeSegmentListTunnelTable",
    "greIntfTunnelTable",
    "ipsecVtiIntfTunnelTable",
    "ipsecGreIntfTunnelTable",
    "evpnVxlanTunnelTable",
    "tiLfaTunnelTable",
    "srTePolicyTunnelTable",
    "zorbSdkSbfdSessionTunnelTable",
    "isisFlexAlgoTunnelTable",
    "mldpTunnelTable",
    "staticMcastTunnelTable",
};
}  // namespace

std::string_view stringValue(TunnelTableIdentifier id) {
  auto i = static_cast<size_t>(id);
  return i < kNames.size() ? kNames[i] : "unknownTunnelTable";
}

bool sequenceToValue(std::string_view text, TunnelTableIdentifier& id) {
  for (size_t i = 0; i < kNames.size(); ++i) {
    if (kNames[i] == text) {
      id = static_cast<TunnelTableIdentifier>(i);
      return true;
    }
  }
  return false;
}

}  // namespace Tunnel::TunnelTable
