#include "Tunnel/TunnelTable/RsvpLerEntry.h"

namespace Tunnel::TunnelTable {

RsvpLerTunnelTableEntry::RsvpLerTunnelTableEntry(TunnelId tunnelId)
    : FrrTunnelTableEntry(tunnelId) {
  entryPrefIs(kDefaultEntryPref);
  viasOrderedIs(true);
}

RsvpLerTunnelTableEntry::RsvpLerTunnelTableEntry(Zent::String::IteratorConst&,
                                                 Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(RsvpLerTunnelTableEntry);
}

}  // namespace Tunnel::TunnelTable
