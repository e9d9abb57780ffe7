#include "Tunnel/TunnelTable/SbfdSessionEntry.h"

#include <utility>

namespace Tunnel::TunnelTable {

namespace {

constexpr uint32_t kSbfdReservedLen = 2;

// The via as the record carries it.
MplsCosVia cosViaOf(Via const& via) {
  return MplsCosVia(MplsVia(via, Vorn::MplsLabelOperation::forward()));
}

// Only what serialize writes reads back: anything else would be lost.
bool isPlainVia(MplsCosVia const& v) {
  return v.via().labels().isForward() && v.cosMask() == MplsCosVia::kAllClasses;
}

// The scalar fields, in record order; one walk for checking and for reading.
struct Scalars {
  TunnelId tunnelId;
  TunnelId nexthopTunnelId;
  TunnelEntryPref entryPref;
  uint32_t entryMetric = 0;
  TunnelBandwidth tunnelBw;
  bool viasOrdered = false;
  MplsCosVia via;

  void read(RecordReader& r) {
    r.get(tunnelId);
    r.get(nexthopTunnelId);
    r.get(entryPref);
    r.get(entryMetric);
    r.get(tunnelBw);
    r.get(viasOrdered);
    r.skipZeros(kSbfdReservedLen);
    if (r.get(via) && !isPlainVia(via)) r.fail();
  }
};

}  // namespace

ZorbSdkSbfdSessionTunnelTableEntry::ZorbSdkSbfdSessionTunnelTableEntry(
    Zent::String::IteratorConst&, Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(ZorbSdkSbfdSessionTunnelTableEntry);
}

void ZorbSdkSbfdSessionTunnelTableEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  w.put(tunnelId());
  w.put(nexthopTunnelId());
  w.put(entryPref());
  w.put(entryMetric());
  w.put(tunnelBw());
  w.put(viasOrdered());
  w.putZeros(kSbfdReservedLen);
  w.put(cosViaOf(via_));
}

void ZorbSdkSbfdSessionTunnelTableEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  Scalars s;
  s.read(r);
  r.expectOk(kTypeName);
  *this = ZorbSdkSbfdSessionTunnelTableEntry(s.tunnelId);
  nexthopTunnelIdIs(s.nexthopTunnelId);
  entryPrefIs(s.entryPref);
  entryMetricIs(s.entryMetric);
  tunnelBwIs(s.tunnelBw);
  viasOrderedIs(s.viasOrdered);
  via_ = s.via.via().via();
}

uint32_t ZorbSdkSbfdSessionTunnelTableEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  Scalars s;
  s.read(r);
  return r.ok() ? r.offset() : 0;
}

}  // namespace Tunnel::TunnelTable
