#include "Tunnel/TunnelTable/NexthopGroupEntry.h"

namespace Tunnel::TunnelTable {

NexthopGroupTunnelTableEntry::NexthopGroupTunnelTableEntry(Zent::String::IteratorConst&,
                                                           Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(NexthopGroupTunnelTableEntry);
}

}  // namespace Tunnel::TunnelTable
