#include "Tunnel/TunnelTable/NexthopGroupEntry.h"

#include <utility>

namespace Tunnel::TunnelTable {

NexthopGroupTunnelTableEntry::NexthopGroupTunnelTableEntry(Zent::String::IteratorConst&,
                                                           Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(NexthopGroupTunnelTableEntry);
}

std::string NexthopGroupTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendBaseText(text);
  text.field("nhgId", nhgId_).field("igpMetric", igpMetric_).field("igpPref", igpPref_);
  return std::move(text).str();
}

void NexthopGroupTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpf(ctx, indent, "nhgId: {}\n", nhgId_);
  dumpf(ctx, indent, "igpMetric: {}\n", igpMetric_);
  dumpf(ctx, indent, "igpPref: {}\n", igpPref_);
}

void NexthopGroupTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeBase(w);
  w.put(nhgId_);
  w.put(igpMetric_);
  w.put(igpPref_);
}

void NexthopGroupTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeBase(r);
  r.get(nhgId_);
  r.get(igpMetric_);
  r.get(igpPref_);
  r.expectOk(kTypeName);
}

uint32_t NexthopGroupTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  if (deserializeLenBase(r) == 0) return 0;
  r.skip(12);
  return r.ok() ? r.offset() : 0;
}

}  // namespace Tunnel::TunnelTable
