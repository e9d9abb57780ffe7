#include "Tunnel/TunnelTable/IgpEntries.h"

#include <utility>

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

bool operator==(IgpTunnelTableEntryBase const& a, IgpTunnelTableEntryBase const& b) {
  return static_cast<TunnelTableEntry const&>(a) == b && a.igpMetric_ == b.igpMetric_ &&
         a.igpMetric2_ == b.igpMetric2_ && a.igpPref_ == b.igpPref_ && a.igpPref2_ == b.igpPref2_ &&
         a.via_ == b.via_;
}

uint32_t IgpTunnelTableEntryBase::hash(uint32_t seed) const {
  return hashFields(hashBase(seed), igpMetric_, igpMetric2_, igpPref_, igpPref2_, via_);
}

std::string IgpTunnelTableEntryBase::textAs(const char* typeName) const {
  Zent::ValueText text(typeName);
  appendBaseText(text);
  text.field("igpMetric", igpMetric_)
      .field("igpMetric2", igpMetric2_)
      .field("igpPref", igpPref_)
      .field("igpPref2", igpPref2_)
      .field("via", Zent::arrayText(via_));
  return std::move(text).str();
}

void IgpTunnelTableEntryBase::dumpState(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpf(ctx, indent, "igpMetric: {}\n", igpMetric_);
  dumpf(ctx, indent, "igpMetric2: {}\n", igpMetric2_);
  dumpf(ctx, indent, "igpPref: {}\n", igpPref_.value());
  dumpf(ctx, indent, "igpPref2: {}\n", igpPref2_);
  dumpVias(ctx, indent, via_);
}

void IgpTunnelTableEntryBase::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeBase(w);
  w.put(igpMetric_);
  w.put(igpMetric2_);
  w.put(igpPref_);
  w.put(igpPref2_);
  w.putList(via_);
}

void IgpTunnelTableEntryBase::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeBase(r);
  r.get(igpMetric_);
  r.get(igpMetric2_);
  r.get(igpPref_);
  r.get(igpPref2_);
  r.getList(via_);
  r.expectOk(kTypeName);
}

uint32_t IgpTunnelTableEntryBase::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  deserializeLenBase(r);
  r.skip(16);  // the IGP metrics and preferences: any value
  r.checkList<MplsViaArray>();
  return r.ok() ? r.offset() : 0;
}

}  // namespace Tunnel::TunnelTable
