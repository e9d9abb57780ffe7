#include "Tunnel/TunnelTable/RsvpLerEntry.h"

#include <utility>

namespace Tunnel::TunnelTable {

RsvpLerTunnelTableEntry::RsvpLerTunnelTableEntry(TunnelId tunnelId)
    : FrrTunnelTableEntry(tunnelId) {
  entryPrefIs(kDefaultEntryPref);
  viasOrderedIs(true);
}

RsvpLerTunnelTableEntry::RsvpLerTunnelTableEntry(Zent::String::IteratorConst&,
                                                 Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(RsvpLerTunnelTableEntry);
}

bool operator==(RsvpLerTunnelTableEntry const& a, RsvpLerTunnelTableEntry const& b) {
  return static_cast<FrrTunnelTableEntry const&>(a) == b && a.metric_ == b.metric_ &&
         a.igpPref_ == b.igpPref_ &&
         a.isTunnelIgpShortcutEligible_ == b.isTunnelIgpShortcutEligible_ &&
         a.isTunnelLdpTunnelingEligible_ == b.isTunnelLdpTunnelingEligible_ &&
         a.color_ == b.color_ && a.splitVia_ == b.splitVia_;
}

uint32_t RsvpLerTunnelTableEntry::hash(uint32_t seed) const {
  return hashFields(hashFrr(seed), metric_, igpPref_, isTunnelIgpShortcutEligible_,
                    isTunnelLdpTunnelingEligible_, color_, splitVia_);
}

std::string RsvpLerTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendFrrText(text);
  text.field("metric", metric_)
      .field("igpPref", igpPref_)
      .field("isTunnelIgpShortcutEligible", isTunnelIgpShortcutEligible_)
      .field("isTunnelLdpTunnelingEligible", isTunnelLdpTunnelingEligible_)
      .field("color", color_)
      .field("splitVia", Zent::arrayText(splitVia_));
  return std::move(text).str();
}

void RsvpLerTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpFrr(ctx, indent);
  dumpf(ctx, indent, "metric: {}\n", metric_);
  dumpf(ctx, indent, "igpPref: {}\n", igpPref_.value());
  dumpf(ctx, indent, "isTunnelIgpShortcutEligible: {}\n",
        Zent::boolText(isTunnelIgpShortcutEligible_));
  dumpf(ctx, indent, "isTunnelLdpTunnelingEligible: {}\n",
        Zent::boolText(isTunnelLdpTunnelingEligible_));
  if (color_.isSet()) {
    dumpf(ctx, indent, "color: {}\n", color_.value());
  } else {
    // Qualified: the member stringValue() would hide the free function.
    dumpf(ctx, indent, "color: {}\n", TunnelTable::stringValue(color_.state()));
  }
  dumpVias(ctx, indent, splitVia_, "Split vias");
}

void RsvpLerTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeFrr(w);
  w.put(metric_);
  w.put(igpPref_);
  w.put(isTunnelIgpShortcutEligible_);
  w.put(isTunnelLdpTunnelingEligible_);
  w.put(color_);
  w.putList(splitVia_);
}

void RsvpLerTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeFrr(r);
  r.get(metric_);
  r.get(igpPref_);
  r.get(isTunnelIgpShortcutEligible_);
  r.get(isTunnelLdpTunnelingEligible_);
  r.get(color_);
  r.getList(splitVia_);
  r.expectOk(kTypeName);
}

uint32_t RsvpLerTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  deserializeLenFrr(r);
  r.skip(8);  // metric and igpPref: any value
  r.get<bool>();
  r.get<bool>();
  r.get<TristateU32>();
  r.checkList<MplsViaArray>();
  return r.ok() ? r.offset() : 0;
}

}  // namespace Tunnel::TunnelTable
