#include "Tunnel/TunnelTable/FrrEntries.h"

#include <utility>

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

bool operator==(FrrTunnelTableEntry const& a, FrrTunnelTableEntry const& b) {
  return static_cast<TunnelTableEntry const&>(a) == b && a.via_ == b.via_ &&
         a.backupVia_ == b.backupVia_ && a.isPrimaryViaUsable_ == b.isPrimaryViaUsable_ &&
         a.seqNo_ == b.seqNo_;
}

uint32_t FrrTunnelTableEntry::hashFrr(uint32_t seed) const {
  return hashFields(hashBase(seed), via_, backupVia_, isPrimaryViaUsable_, seqNo_);
}

void FrrTunnelTableEntry::appendFrrText(Zent::ValueText& text) const {
  appendBaseText(text);
  text.field("via", via_)
      .field("backupVia", backupVia_)
      .field("isPrimaryViaUsable", isPrimaryViaUsable_)
      .field("seqNo", seqNo_);
}

std::string FrrTunnelTableEntry::textAs(const char* typeName) const {
  Zent::ValueText text(typeName);
  appendFrrText(text);
  return std::move(text).str();
}

void FrrTunnelTableEntry::dumpFrr(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpf(ctx, indent, "via: {}", via_.dumpLine());
  dumpf(ctx, indent, "backupVia: {}", backupVia_.dumpLine());
  dumpf(ctx, indent, "isPrimaryViaUsable: {}\n", Zent::boolText(isPrimaryViaUsable_));
  dumpf(ctx, indent, "seqNo: {}\n", seqNo_.value());
}

void FrrTunnelTableEntry::serializeFrr(RecordWriter& w) const {
  serializeBase(w);
  w.put(via_);
  w.put(backupVia_);
  w.put(isPrimaryViaUsable_);
  w.put(seqNo_);
}

uint32_t FrrTunnelTableEntry::deserializeLenFrr(RecordReader& r) {
  deserializeLenBase(r);
  r.get<MplsVia>();
  r.get<MplsVia>();
  r.get<bool>();
  r.get<TunnelEntrySequenceNumber>();
  return r.ok() ? kMaxSerializedLen : 0;
}

void FrrTunnelTableEntry::deserializeFrr(RecordReader& r) {
  deserializeBase(r);
  r.get(via_);
  r.get(backupVia_);
  r.get(isPrimaryViaUsable_);
  r.get(seqNo_);
}

void FrrTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeFrr(w);
}

void FrrTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeFrr(r);
  r.expectOk(kTypeName);
}

uint32_t FrrTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  return deserializeLenFrr(r);
}

}  // namespace Tunnel::TunnelTable
