#include "Tunnel/TunnelTable/L3IntfEntries.h"

#include <utility>

namespace Tunnel::TunnelTable {

L3IntfTunnelTableEntry::L3IntfTunnelTableEntry(Zent::String::IteratorConst&,
                                               Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(L3IntfTunnelTableEntry);
}

void L3IntfTunnelTableEntry::appendL3IntfText(Zent::ValueText& text) const {
  appendBaseText(text);
  text.field("via", Zent::arrayText(via_));
}

std::string L3IntfTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendL3IntfText(text);
  return std::move(text).str();
}

L3IntfTunnelTableEntry::operator bool() const {
  static L3IntfTunnelTableEntry const kDefault;
  return *this != kDefault;
}

void L3IntfTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpVias(ctx, indent, via_);
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
