#include "Tunnel/TunnelTable/BgpLuEntries.h"

#include "Tunnel/TunnelTable/Trace.h"

namespace Tunnel::TunnelTable {

using Vorn::UnboundedMplsLabelOperation;

void FieldRecord<UnboundedMplsLabelOperation>::put(RecordWriter& w,
                                                   UnboundedMplsLabelOperation const& labels) {
  unsigned char slot[kBgpLuLabelSlotLen] = {};
  labels.serialize(slot);
  w.putBytes(slot, kBgpLuLabelSlotLen);
}

namespace {

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

}  // namespace

void FieldRecord<UnboundedMplsLabelOperation>::get(RecordReader& r,
                                                   UnboundedMplsLabelOperation& labels) {
  getLabelSlot(r, &labels);
}

void FieldRecord<UnboundedMplsLabelOperation>::check(RecordReader& r) { getLabelSlot(r, nullptr); }

void FieldRecord<Vorn::MetricType>::get(RecordReader& r, Vorn::MetricType& type) {
  uint32_t v = 0;
  if (!r.get(v)) return;
  if (v > static_cast<uint32_t>(Vorn::MetricType::external)) {
    r.fail();
    return;
  }
  type = static_cast<Vorn::MetricType>(v);
}

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

BgpLuPushTunnelTableEntry::operator bool() const {
  static BgpLuPushTunnelTableEntry const kDefault;
  return *this != kDefault;
}

BgpLuTunnelTableEntry::BgpLuTunnelTableEntry(Zent::String::IteratorConst&,
                                             Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(BgpLuTunnelTableEntry);
}

BgpLuTunnelTableEntry::operator bool() const {
  static BgpLuTunnelTableEntry const kDefault;
  return *this != kDefault;
}

}  // namespace Tunnel::TunnelTable
