#include "Tunnel/TunnelTable/TunnelRibEntry.h"

#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

TunnelRibEntry::TunnelRibEntry(Zent::String::IteratorConst&, Zent::String::IteratorConst const&) {
  TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(TunnelRibEntry);
}

void TunnelRibEntry::addTunnelWithBw(TunnelId const& id, TunnelBandwidth bw) {
  uint32_t i = 0;
  for (; i < tunnelId_.count(); ++i) {
    if (tunnelId_[TunnelIdCollIndex(i)] == id) {
      tunnelBw_.memberIs(TunnelIdCollIndex(i), bw);
      return;
    }
  }
  // The index is checked before anything changes: a full set stays as it was.
  TunnelIdCollIndex const at(i);
  tunnelId_.memberIs(at, id);
  tunnelBw_.memberIs(at, bw);
  // The message names the whole signature, spelt alike by every compiler:
  // crash reports are searched for it.
  static constexpr const char* kSignature =
      "void Tunnel::TunnelTable::TunnelRibEntry::addTunnelWithBw(const "
      "Tunnel::TunnelTable::TunnelId&, Tunnel::TunnelTable::TunnelBandwidth)";
  if (tunnelId_.count() > TunnelIdArray::capacity) {
    Dabin::assertFailed("tunnelId_.validateSize()", __FILE__, kSignature, __LINE__);
  }
  if (tunnelBw_.count() > TunnelBwArray::capacity) {
    Dabin::assertFailed("tunnelBw_.validateSize()", __FILE__, kSignature, __LINE__);
  }
}

bool TunnelRibEntry::tunnelTypesCanFormEcmp(TunnelType a, TunnelType b) {
  if (a == b) return true;
  return (a == isisSrTunnel && b == isisFlexAlgoTunnel) ||
         (a == isisFlexAlgoTunnel && b == isisSrTunnel);
}

bool operator==(TunnelRibEntry const& a, TunnelRibEntry const& b) {
  return a.coloredTep_ == b.coloredTep_ && a.metric_ == b.metric_ &&
         a.metricType_ == b.metricType_ && a.metric2_ == b.metric2_ && a.pref_ == b.pref_ &&
         a.pref2_ == b.pref2_ && a.entryPref_ == b.entryPref_ && a.entryMetric_ == b.entryMetric_ &&
         a.tunnelId_ == b.tunnelId_ && a.tunnelBw_ == b.tunnelBw_;
}

uint32_t TunnelRibEntry::hash(uint32_t seed) const {
  uint32_t const scalars[6] = {
      metric_, static_cast<uint32_t>(metricType_), metric2_, pref_, pref2_, entryMetric_};
  seed = Zent::hashBytes(scalars, sizeof scalars, coloredTep_.hash(seed));
  return tunnelBw_.hash(tunnelId_.hash(entryPref_.hash(seed)));
}

std::string TunnelRibEntry::stringValue() const {
  return Zent::ValueText(kTypeName)
      .field("coloredTep", coloredTep_)
      .field("metric", metric_)
      .field("metricType", metricType_)
      .field("metric2", metric2_)
      .field("pref", pref_)
      .field("pref2", pref2_)
      .field("entryPref", entryPref_)
      .field("entryMetric", entryMetric_)
      .field("tunnelId", Zent::arrayText(tunnelId_))
      .field("tunnelBw", Zent::arrayText(tunnelBw_))
      .str();
}

void TunnelRibEntry::serialize(void* buf) const {
  RecordWriter w(buf, serializeLen());
  w.put(coloredTep_);
  w.put(metric_);
  w.put(metricType_);
  w.put(metric2_);
  w.put(pref_);
  w.put(pref2_);
  w.put(entryPref_);
  w.putZeros(3);
  w.put(entryMetric_);
  w.putList(tunnelId_);
  w.putList(tunnelBw_);
}

namespace {
// The fixed part; false when it is not a RIB entry's.
bool readFixed(RecordReader& r, TunnelRibEntry& e) {
  e = TunnelRibEntry(r.get<ColoredTunnelEndpoint>());
  e.metricIs(r.get<uint32_t>());
  e.metricTypeIs(r.get<Vorn::MetricType>());
  e.metric2Is(r.get<uint32_t>());
  e.prefIs(r.get<uint32_t>());
  e.pref2Is(r.get<uint32_t>());
  e.entryPrefIs(r.get<TunnelEntryPref>());
  r.skipZeros(3);
  e.entryMetricIs(r.get<uint32_t>());
  return r.ok();
}
}  // namespace

void TunnelRibEntry::deserialize(void const* buf, unsigned len) {
  RecordReader r(buf, len);
  // Built aside: a bad record leaves this entry as it was.
  TunnelRibEntry e;
  readFixed(r, e);
  r.getList(e.tunnelId_);
  r.getList(e.tunnelBw_);
  r.expectOk(kTypeName);
  *this = e;
}

uint32_t TunnelRibEntry::deserializeLen(void const* buf, unsigned len) const {
  RecordReader r(buf, len);
  TunnelRibEntry fixed;
  readFixed(r, fixed);
  r.checkList<TunnelIdArray>();
  r.checkList<TunnelBwArray>();
  return r.ok() ? kMaxSerializedLen : 0;
}

}  // namespace Tunnel::TunnelTable
