#include "Tunnel/TunnelTable/FrrEntries.h"

namespace Tunnel::TunnelTable {

FrrTunnelTableEntry::FrrTunnelTableEntry(Zent::String::IteratorConst&,
                                         Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(FrrTunnelTableEntry);
}

RsvpFrrTunnelTableEntry::RsvpFrrTunnelTableEntry(Zent::String::IteratorConst&,
                                                 Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(RsvpFrrTunnelTableEntry);
}

RsvpLerSubTunnelTableEntry::RsvpLerSubTunnelTableEntry(Zent::String::IteratorConst&,
                                                       Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(RsvpLerSubTunnelTableEntry);
}

TiLfaTunnelTableEntry::TiLfaTunnelTableEntry(Zent::String::IteratorConst&,
                                             Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(TiLfaTunnelTableEntry);
}

}  // namespace Tunnel::TunnelTable
