#include "Tunnel/TunnelTable/L3IntfEntries.h"

namespace Tunnel::TunnelTable {

L3IntfTunnelTableEntry::L3IntfTunnelTableEntry(Zent::String::IteratorConst&,
                                               Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(L3IntfTunnelTableEntry);
}

L3IntfTunnelTableEntry::operator bool() const {
  static L3IntfTunnelTableEntry const kDefault;
  return *this != kDefault;
}

GreIntfTunnelTableEntry::GreIntfTunnelTableEntry(Zent::String::IteratorConst&,
                                                 Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(GreIntfTunnelTableEntry);
}

IpsecGreIntfTunnelTableEntry::IpsecGreIntfTunnelTableEntry(Zent::String::IteratorConst&,
                                                           Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(IpsecGreIntfTunnelTableEntry);
}

IpsecVtiIntfTunnelTableEntry::IpsecVtiIntfTunnelTableEntry(Zent::String::IteratorConst&,
                                                           Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(IpsecVtiIntfTunnelTableEntry);
}

}  // namespace Tunnel::TunnelTable
