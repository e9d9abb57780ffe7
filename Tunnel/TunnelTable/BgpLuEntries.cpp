#include "Tunnel/TunnelTable/BgpLuEntries.h"

#include <utility>

#include "Tunnel/TunnelTable/Trace.h"

namespace Tunnel::TunnelTable {

namespace {

using Vorn::UnboundedMplsLabelOperation;

void putLabelSlot(RecordWriter& w, UnboundedMplsLabelOperation const& labels) {
  unsigned char slot[kBgpLuLabelSlotLen] = {};
  labels.serialize(slot);
  w.putBytes(slot, kBgpLuLabelSlotLen);
}

// Checks the slot (a valid operation record, zeros after it) and reads the
// operation into `labels` when given.
bool getLabelSlot(RecordReader& r, UnboundedMplsLabelOperation* labels) {
  unsigned char const* slot = r.bytes(kBgpLuLabelSlotLen);
  if (!slot) return false;
  uint32_t const len = UnboundedMplsLabelOperation::recordLen(slot, kBgpLuLabelSlotLen);
  if (len == 0) return r.fail();
  for (uint32_t i = len; i < kBgpLuLabelSlotLen; ++i) {
    if (slot[i] != 0) return r.fail();
  }
  if (labels) labels->deserialize(slot, kBgpLuLabelSlotLen);
  return true;
}

// Raw bytes skip the enumeration's range: only known metric types read back.
void getMetricType(RecordReader& r, Vorn::MetricType& out) {
  uint32_t v = 0;
  if (!r.get(v)) return;
  if (v > static_cast<uint32_t>(Vorn::MetricType::external)) {
    r.fail();
    return;
  }
  out = static_cast<Vorn::MetricType>(v);
}

}  // namespace

BgpLuPushTunnelTableEntry::BgpLuPushTunnelTableEntry(Zent::String::IteratorConst&,
                                                     Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(BgpLuPushTunnelTableEntry);
}

void BgpLuPushTunnelTableEntry::tunnelIdViaIs(TunnelId id) {
  if (via_.full()) {
    fmtrace(0,
            "BgpLuPushTunnelTableEntry already has the maximum number of vias ({}), so cannot add "
            "tunnelId {}",
            via_.count(), id);
    return;
  }
  via_.push(Via(Vorn::IpGenAddr(0u), Vorn::IntfId::fromTunnelIdValue(id.value())));
}

std::string BgpLuPushTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendBaseText(text);
  text.field("via", Zent::arrayText(via_)).field("labels", labels_);
  return std::move(text).str();
}

BgpLuPushTunnelTableEntry::operator bool() const {
  static BgpLuPushTunnelTableEntry const kDefault;
  return *this != kDefault;
}

void BgpLuPushTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpf(ctx, indent, "labels: {}\n", labels_.stringValue());
  dumpVias(ctx, indent, via_);
}

void BgpLuPushTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeBase(w);
  w.putList(via_);
  putLabelSlot(w, labels_);
}

void BgpLuPushTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeBase(r);
  r.getList(via_);
  getLabelSlot(r, &labels_);
  r.expectOk(kTypeName);
}

uint32_t BgpLuPushTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  if (deserializeLenBase(r) == 0) return 0;
  r.checkList<ViaArray>();
  getLabelSlot(r, nullptr);
  return r.ok() ? r.offset() : 0;
}

BgpLuTunnelTableEntry::BgpLuTunnelTableEntry(Zent::String::IteratorConst&,
                                             Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(BgpLuTunnelTableEntry);
}

bool operator==(BgpLuTunnelTableEntry const& a, BgpLuTunnelTableEntry const& b) {
  return static_cast<TunnelTableEntry const&>(a) == static_cast<TunnelTableEntry const&>(b) &&
         a.via_ == b.via_ && a.labels_ == b.labels_ && a.contribution_ == b.contribution_ &&
         a.bgpMetric_ == b.bgpMetric_ && a.bgpMetricType_ == b.bgpMetricType_ &&
         a.bgpMetric2_ == b.bgpMetric2_ && a.bgpPref_ == b.bgpPref_ && a.bgpPref2_ == b.bgpPref2_ &&
         a.bgpLinkBw_ == b.bgpLinkBw_;
}

uint32_t BgpLuTunnelTableEntry::hash(uint32_t seed) const {
  return hashFields(hashBase(seed), via_, labels_, contribution_, bgpMetric_,
                    static_cast<uint32_t>(bgpMetricType_), bgpMetric2_, bgpPref_, bgpPref2_,
                    bgpLinkBw_);
}

std::string BgpLuTunnelTableEntry::stringValue() const {
  Zent::ValueText text(kTypeName);
  appendBaseText(text);
  text.field("via", Zent::arrayText(via_))
      .field("labels", labels_)
      .field("contribution", contribution_)
      .field("bgpMetric", bgpMetric_)
      .field("bgpMetricType", bgpMetricType_)
      .field("bgpMetric2", bgpMetric2_)
      .field("bgpPref", bgpPref_)
      .field("bgpPref2", bgpPref2_)
      .field("bgpLinkBw", bgpLinkBw_);
  return std::move(text).str();
}

BgpLuTunnelTableEntry::operator bool() const {
  static BgpLuTunnelTableEntry const kDefault;
  return *this != kDefault;
}

void BgpLuTunnelTableEntry::dumpState(DumpContext* ctx, int indent) const {
  dumpBase(ctx, indent);
  dumpf(ctx, indent, "labels: {}\n", labels_.stringValue());
  dumpf(ctx, indent, "contribution: {}\n", contribution_.stringValue());
  dumpf(ctx, indent, "bgpMetric: {}\n", bgpMetric_);
  dumpf(ctx, indent, "bgpMetricType: {}\n", bgpMetricType_);
  dumpf(ctx, indent, "bgpPref: {}\n", bgpPref_);
  dumpVias(ctx, indent, via_);
}

void BgpLuTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  serializeBase(w);
  w.putList(via_);
  putLabelSlot(w, labels_);
  w.put(contribution_);
  w.put(bgpMetric_);
  w.put(bgpMetricType_);
  w.put(bgpMetric2_);
  w.put(bgpPref_);
  w.put(bgpPref2_);
  w.put(bgpLinkBw_);
}

void BgpLuTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  deserializeBase(r);
  r.getList(via_);
  getLabelSlot(r, &labels_);
  r.get(contribution_);
  r.get(bgpMetric_);
  getMetricType(r, bgpMetricType_);
  r.get(bgpMetric2_);
  r.get(bgpPref_);
  r.get(bgpPref2_);
  r.get(bgpLinkBw_);
  r.expectOk(kTypeName);
}

uint32_t BgpLuTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  if (deserializeLenBase(r) == 0) return 0;
  r.checkList<ViaArray>();
  getLabelSlot(r, nullptr);
  r.get<ContributionToTunnelRIB>();
  r.get<uint32_t>();
  Vorn::MetricType type{};
  getMetricType(r, type);
  r.skip(4 * 4);  // bgpMetric2, bgpPref, bgpPref2, bgpLinkBw: any value
  return r.ok() ? r.offset() : 0;
}

}  // namespace Tunnel::TunnelTable
