#include "Tunnel/TunnelTable/StaticEntries.h"

namespace Tunnel::TunnelTable {

StaticTunnelTableEntry::StaticTunnelTableEntry(Zent::String::IteratorConst&,
                                               Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(StaticTunnelTableEntry);
}

StaticTunnelTableEntry::operator bool() const {
  // Built once: at 130 KB the entry is too large to build on the stack per call.
  static StaticTunnelTableEntry const kDefault;
  return *this != kDefault;
}

SrTeSegmentListTunnelTableEntry::SrTeSegmentListTunnelTableEntry(
    Zent::String::IteratorConst&, Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(SrTeSegmentListTunnelTableEntry);
}

SrTeSegmentListTunnelTableEntry::operator bool() const {
  static SrTeSegmentListTunnelTableEntry const kDefault;
  return *this != kDefault;
}

void SrTeSegmentListTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpTunnelIdLine(ctx, indent);
  dumpNextHopTunnelIdLine(ctx, indent);
  dumpTepLine(ctx, indent);
  FieldWalk::dumpFields(*this, ctx, indent);
}

}  // namespace Tunnel::TunnelTable
