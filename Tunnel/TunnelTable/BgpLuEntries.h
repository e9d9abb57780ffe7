#pragma once
// Entries of the BGP labelled-unicast tables: the push entries, which carry a
// label operation over vias (possibly vias that name other tunnels), and the
// resolving BGP-LU entries, which add the BGP attributes the tunnel RIB ranks.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "Tunnel/net/MetricType.h"
#include "Tunnel/net/UnboundedMplsLabelOperation.h"

namespace Tunnel::TunnelTable {

// The label operation's record in a BGP-LU record: its own record (2 to 70
// bytes), zero-filled to its 73-byte cap. Every record with n vias has one
// length, and the tables' bounds (22229, 22257) are records that occur.
inline constexpr uint32_t kBgpLuLabelSlotLen = Vorn::UnboundedMplsLabelOperation::kMaxRecordSize;

// The label operation's slot, and the metric type, whose raw bytes could
// hold a value outside the enumeration.
template <>
struct FieldRecord<Vorn::UnboundedMplsLabelOperation> {
  static uint32_t len(Vorn::UnboundedMplsLabelOperation const&) { return kBgpLuLabelSlotLen; }
  static void put(RecordWriter& w, Vorn::UnboundedMplsLabelOperation const& labels);
  static void get(RecordReader& r, Vorn::UnboundedMplsLabelOperation& labels);
  static void check(RecordReader& r);
};
template <>
struct FieldRecord<Vorn::MetricType> {
  static uint32_t len(Vorn::MetricType) { return sizeof(Vorn::MetricType); }
  static void put(RecordWriter& w, Vorn::MetricType type) { w.put(type); }
  static void get(RecordReader& r, Vorn::MetricType& type);
  static void check(RecordReader& r) {
    Vorn::MetricType type{};
    get(r, type);
  }
};

// Record: the base record, the via list at 552 (u32 count, 36-byte Via
// records), then the 73-byte label slot. 552 + 4 + 36n + 73, at most 22229.
class BgpLuPushTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::BgpLuPushTunnelTableEntry";
  static constexpr uint32_t kMaxSerializedLen =
      kBaseRecordLen + 4 + Via::kRecordSize * ViaArray::capacity + kBgpLuLabelSlotLen;

  BgpLuPushTunnelTableEntry() : BgpLuPushTunnelTableEntry(TunnelId()) {}
  explicit BgpLuPushTunnelTableEntry(TunnelId tunnelId) : TunnelTableEntry(tunnelId) {}
  BgpLuPushTunnelTableEntry(Zent::String::IteratorConst& it,
                            Zent::String::IteratorConst const& end);

  ViaArray const& via() const { return via_; }
  // The default via past the end.
  Via via(ViaIndex i) const { return via_.member(i); }
  // Setting past the end fills the gap with default vias.
  void viaIs(ViaIndex i, Via const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDel(ViaArray::IteratorConst const& it) { via_._memberDel(it.key()); }
  void viaDelAll() { via_.clear(); }
  // Appends a via that rides on tunnel `id`: next hop 0.0.0.0 and the dynamic
  // tunnel interface standing for `id`. With 600 vias already, appends nothing
  // and traces (a full array is not an error of the caller).
  void tunnelIdViaIs(TunnelId id);

  Vorn::UnboundedMplsLabelOperation const& labels() const { return labels_; }
  void labelsIs(Vorn::UnboundedMplsLabelOperation const& v) { labels_ = v; }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = BgpLuPushTunnelTableEntry;
    return std::tuple{field("via", &E::via_, DumpAs::list), field("labels", &E::labels_)};
  }

  TUNNEL_ENTRY_VALUE_OPS(BgpLuPushTunnelTableEntry)
  explicit operator bool() const;

  TUNNEL_ENTRY_RECORD_OPS(BgpLuPushTunnelTableEntry)

 private:
  ViaArray via_;
  Vorn::UnboundedMplsLabelOperation labels_;
};

// Record: the BGP-LU push layout (base, via list, label slot), then 28 bytes:
// contribution, bgpMetric, bgpMetricType, bgpMetric2, bgpPref, bgpPref2,
// bgpLinkBw, each 4 bytes. At most 22257.
//
// A new entry is a RIB candidate (contribution `contributes`) with an IGP-kind
// metric (`bgpMetricType` internal) and the push of one label not yet known
// (labels "push 0"): BGP-LU routes always carry a label to push.
class BgpLuTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::BgpLuTunnelTableEntry";
  static constexpr uint8_t kDefaultEntryPref = 85;
  static constexpr uint32_t kMaxSerializedLen = BgpLuPushTunnelTableEntry::kMaxSerializedLen + 28;

  static Vorn::UnboundedMplsLabelOperation defaultLabels() {
    return Vorn::MplsLabelOperation::push({0});
  }

  BgpLuTunnelTableEntry() : BgpLuTunnelTableEntry(TunnelId()) {}
  explicit BgpLuTunnelTableEntry(TunnelId tunnelId)
      : TunnelTableEntry(tunnelId, kDefaultEntryPref), labels_(defaultLabels()) {}
  BgpLuTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  ViaArray const& via() const { return via_; }
  // The default via past the end.
  Via via(ViaIndex i) const { return via_.member(i); }
  // Setting past the end fills the gap with default vias.
  void viaIs(ViaIndex i, Via const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDel(ViaArray::IteratorConst const& it) { via_._memberDel(it.key()); }
  void viaDelAll() { via_.clear(); }

  Vorn::UnboundedMplsLabelOperation const& labels() const { return labels_; }
  void labelsIs(Vorn::UnboundedMplsLabelOperation const& v) { labels_ = v; }
  ContributionToTunnelRIB contribution() const { return contribution_; }
  void contributionIs(ContributionToTunnelRIB v) { contribution_ = v; }
  uint32_t bgpMetric() const { return bgpMetric_; }
  void bgpMetricIs(uint32_t v) { bgpMetric_ = v; }
  Vorn::MetricType bgpMetricType() const { return bgpMetricType_; }
  void bgpMetricTypeIs(Vorn::MetricType v) { bgpMetricType_ = v; }
  uint32_t bgpMetric2() const { return bgpMetric2_; }
  void bgpMetric2Is(uint32_t v) { bgpMetric2_ = v; }
  uint32_t bgpPref() const { return bgpPref_; }
  void bgpPrefIs(uint32_t v) { bgpPref_ = v; }
  uint32_t bgpPref2() const { return bgpPref2_; }
  void bgpPref2Is(uint32_t v) { bgpPref2_ = v; }
  TunnelBandwidth bgpLinkBw() const { return bgpLinkBw_; }
  void bgpLinkBwIs(TunnelBandwidth v) { bgpLinkBw_ = v; }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = BgpLuTunnelTableEntry;
    return std::tuple{field("via", &E::via_, DumpAs::list),
                      field("labels", &E::labels_),
                      field("contribution", &E::contribution_),
                      field("bgpMetric", &E::bgpMetric_),
                      field("bgpMetricType", &E::bgpMetricType_),
                      field("bgpMetric2", &E::bgpMetric2_, DumpAs::hidden),
                      field("bgpPref", &E::bgpPref_),
                      field("bgpPref2", &E::bgpPref2_, DumpAs::hidden),
                      field("bgpLinkBw", &E::bgpLinkBw_, DumpAs::hidden)};
  }

  TUNNEL_ENTRY_VALUE_OPS(BgpLuTunnelTableEntry)
  explicit operator bool() const;

  TUNNEL_ENTRY_RECORD_OPS(BgpLuTunnelTableEntry)

 private:
  ViaArray via_;
  Vorn::UnboundedMplsLabelOperation labels_;
  ContributionToTunnelRIB contribution_ = ContributionToTunnelRIB::contributes;
  uint32_t bgpMetric_ = 0;
  Vorn::MetricType bgpMetricType_ = Vorn::kDefaultMetricType;
  uint32_t bgpMetric2_ = 0;
  uint32_t bgpPref_ = 0;
  uint32_t bgpPref2_ = 0;
  TunnelBandwidth bgpLinkBw_;
};

}  // namespace Tunnel::TunnelTable
