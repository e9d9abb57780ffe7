#pragma once
// The kinds of tunnel, as packed into bits 44-48 of a TunnelId, with their
// text form and the entry preference each kind gets by default.

#include <cstdint>
#include <ostream>
#include <string_view>

#include "Tunnel/TunnelTableKeepdbTypes/TunnelEntryPref.h"

namespace Tunnel::TunnelTable {

// Unscoped on purpose: the enumerator names carry their own "Tunnel" suffix,
// and both ldpTunnel and TunnelType::ldpTunnel spell the same value. The
// values are shared with other components and never renumbered. No
// enumerator exists for 24-30.
enum TunnelType : uint32_t {
  unknownTunnel = 0,  // no tunnel: the type of the default TunnelId
  bgpLuPushTunnel = 1,
  bgpLuTunnel = 2,
  ldpTunnel = 3,
  reservedTunnel4 = 4,
  staticTunnel = 5,
  evpnVxlanTunnel = 6,
  isisSrTunnel = 7,
  srTeSegmentListTunnel = 8,
  staticInterfaceTunnel = 9,
  reservedTunnel10 = 10,
  nexthopGroupTunnel = 11,
  tiLfaTunnel = 12,
  ospfSrTunnel = 13,
  srTePolicyTunnel = 14,
  reservedTunnel15 = 15,
  rsvpLerTunnel = 16,
  rsvpFrrTunnel = 17,
  zorbSdkSbfdSessionTunnel = 18,
  reservedTunnel19 = 19,
  rsvpLerSubTunnel = 20,
  isisFlexAlgoTunnel = 21,
  mldpTunnel = 22,
  staticMcastTunnel = 23,
  reservedTunnel31 = 31,
};

// The enumerator's name; "invalidTunnelType" for a number with no enumerator.
std::string_view stringValue(TunnelType type);
// Parses an enumerator's name; false (and `type` unchanged) for any other text.
bool sequenceToValue(std::string_view text, TunnelType& type);
std::ostream& operator<<(std::ostream& os, TunnelType type);

// The entry preference a tunnel of this type gets when its producer sets
// none. Types 24-30 and above 31 are programming errors and abort.
TunnelEntryPref getDefaultPrefForType(TunnelType type);

}  // namespace Tunnel::TunnelTable
