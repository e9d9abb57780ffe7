#include "Tunnel/TunnelTable/StaticEntries.h"

#include <utility>

namespace Tunnel::TunnelTable {

StaticTunnelTableEntry::StaticTunnelTableEntry(Zent::String::IteratorConst&,
                                               Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(StaticTunnelTableEntry);
}

std::string StaticTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendBaseText(text);
  text.field("via", Zent::arrayText(via_)).field("backupVia", Zent::arrayText(backupVia_));
  return std::move(text).str();
}

StaticTunnelTableEntry::operator bool() const {
  // Built once: at 130 KB the entry is too large to build on the stack per call.
  static StaticTunnelTableEntry const kDefault;
  return *this != kDefault;
}

void StaticTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpVias(ctx, indent, via_);
  dumpVias(ctx, indent, backupVia_, "Backup Vias");
}

void StaticTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeBase(w);
  w.putList(via_);
  w.putList(backupVia_);
}

void StaticTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeBase(r);
  r.getList(via_);
  r.getList(backupVia_);
  r.expectOk(kTypeName);
}

uint32_t StaticTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  if (deserializeLenBase(r) == 0) return 0;
  r.checkList<MplsViaArray>();
  r.checkList<MplsViaArray>();
  return r.ok() ? r.offset() : 0;
}

SrTeSegmentListTunnelTableEntry::SrTeSegmentListTunnelTableEntry(
    Zent::String::IteratorConst&, Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(SrTeSegmentListTunnelTableEntry);
}

std::string SrTeSegmentListTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendBaseText(text);
  text.field("via", Zent::arrayText(via_));
  return std::move(text).str();
}

SrTeSegmentListTunnelTableEntry::operator bool() const {
  static SrTeSegmentListTunnelTableEntry const kDefault;
  return *this != kDefault;
}

void SrTeSegmentListTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpTunnelIdLine(ctx, indent);
  dumpNextHopTunnelIdLine(ctx, indent);
  dumpTepLine(ctx, indent);
  dumpVias(ctx, indent, via_);
}

void SrTeSegmentListTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeBase(w);
  w.putList(via_);
}

void SrTeSegmentListTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeBase(r);
  r.getList(via_);
  r.expectOk(kTypeName);
}

uint32_t SrTeSegmentListTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  if (deserializeLenBase(r) == 0) return 0;
  r.checkList<MplsViaArray>();
  return r.ok() ? r.offset() : 0;
}

}  // namespace Tunnel::TunnelTable
