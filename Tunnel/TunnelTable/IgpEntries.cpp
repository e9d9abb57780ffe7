#include "Tunnel/TunnelTable/IgpEntries.h"

namespace Tunnel::TunnelTable {

IgpTunnelTableEntryBase::IgpTunnelTableEntryBase(Zent::String::IteratorConst&,
                                                 Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(IgpTunnelTableEntryBase);
}

LdpTunnelTableEntry::LdpTunnelTableEntry(Zent::String::IteratorConst&,
                                         Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(LdpTunnelTableEntry);
}

SrTunnelTableEntry::SrTunnelTableEntry(Zent::String::IteratorConst&,
                                       Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(SrTunnelTableEntry);
}

}  // namespace Tunnel::TunnelTable
