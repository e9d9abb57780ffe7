#pragma once
// TunnelRibEntry: what the tunnel RIB publishes for one endpoint, the tunnels
// that won (an ECMP set of at most 600, each with its bandwidth) and the
// preference and metric they won with. A flat value of fixed capacity, so it
// moves into and out of a shared-memory slot without allocation.

#include <cstdint>
#include <ostream>
#include <string>

#include "Tunnel/TunnelTable/ColoredTunnelEndpoint.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelEntryPref.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/PodArray.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "Tunnel/net/MetricType.h"

namespace Tunnel::TunnelTable {

using TunnelIdArray = Zent::PodArray<TunnelId, TunnelIdCollIndex, 600, 0>;
using TunnelBwArray = Zent::PodArray<TunnelBandwidth, TunnelIdCollIndex, 600, 0>;

// Record (68 + 8n + 4m bytes, byte-packed, native order): the 60-byte fixed
// part as the fields lie in memory (coloredTep 32, metric, metricType,
// metric2, pref, pref2 at 32..51, entryPref u8 and 3 zero bytes, entryMetric
// at 56), then the tunnelId count u32 and n ids, then the tunnelBw count u32
// and m bandwidths.
class TunnelRibEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::TunnelRibEntry";
  static constexpr uint32_t kFixedLen = 60;
  static constexpr uint32_t kMaxSerializedLen = kFixedLen + 4 +
                                                TunnelIdArray::capacity * sizeof(TunnelId) + 4 +
                                                TunnelBwArray::capacity * sizeof(TunnelBandwidth);

  TunnelRibEntry() = default;
  // The uncolored endpoint of `tep`: color 0, not colored.
  explicit TunnelRibEntry(Vorn::IpGenPrefix const& tep) : coloredTep_(tep) {}
  explicit TunnelRibEntry(ColoredTunnelEndpoint const& cep) : coloredTep_(cep) {}
  // The entry holds arrays, whose text is not read back: asserts.
  TunnelRibEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);
  // Only the elements in use are copied.
  TunnelRibEntry(TunnelRibEntry const&) = default;
  TunnelRibEntry& operator=(TunnelRibEntry const&) = default;

  // The key of the colored RIB; its prefix, tep(), is the key of the plain one.
  ColoredTunnelEndpoint const& coloredTep() const { return coloredTep_; }
  Vorn::IpGenPrefix const& tep() const { return coloredTep_.tep(); }

  uint32_t metric() const { return metric_; }
  void metricIs(uint32_t v) { metric_ = v; }
  Vorn::MetricType metricType() const { return metricType_; }
  void metricTypeIs(Vorn::MetricType v) { metricType_ = v; }
  uint32_t metric2() const { return metric2_; }
  void metric2Is(uint32_t v) { metric2_ = v; }
  uint32_t pref() const { return pref_; }
  void prefIs(uint32_t v) { pref_ = v; }
  uint32_t pref2() const { return pref2_; }
  void pref2Is(uint32_t v) { pref2_ = v; }
  TunnelEntryPref entryPref() const { return entryPref_; }
  void entryPrefIs(TunnelEntryPref v) { entryPref_ = v; }
  uint32_t entryMetric() const { return entryMetric_; }
  void entryMetricIs(uint32_t v) { entryMetric_ = v; }

  // The ECMP set, in the order tunnels were first added, and the bandwidth
  // of the tunnel at the same index. Setting at or past the count makes the
  // count index + 1 (default elements in any gap); deleting closes the gap;
  // an index of 600 or more throws the TunnelIdCollIndex range exception.
  TunnelIdArray const& tunnelId() const { return tunnelId_; }
  TunnelId tunnelId(TunnelIdCollIndex i) const { return tunnelId_.member(i); }
  uint32_t tunnelIdCount() const { return tunnelId_.count(); }
  void tunnelIdIs(TunnelIdCollIndex i, TunnelId const& v) { tunnelId_.memberIs(i, v); }
  void tunnelIdDel(TunnelIdCollIndex i) { tunnelId_._memberDel(i); }
  void tunnelIdDelAll() { tunnelId_.clear(); }
  TunnelBwArray const& tunnelBw() const { return tunnelBw_; }
  TunnelBandwidth tunnelBw(TunnelIdCollIndex i) const { return tunnelBw_.member(i); }
  uint32_t tunnelBwCount() const { return tunnelBw_.count(); }
  void tunnelBwIs(TunnelIdCollIndex i, TunnelBandwidth v) { tunnelBw_.memberIs(i, v); }
  void tunnelBwDel(TunnelIdCollIndex i) { tunnelBw_._memberDel(i); }
  void tunnelBwDelAll() { tunnelBw_.clear(); }

  // Adds `id` to the ECMP set with bandwidth `bw`; a tunnel already in the
  // set only has its bandwidth refreshed. A 601st distinct tunnel throws the
  // TunnelIdCollIndex range exception and changes nothing.
  void addTunnelWithBw(TunnelId const& id, TunnelBandwidth bw);

  // Whether tunnels of types `a` and `b` may share one entry as equal-cost
  // paths: the same type, or IS-IS SR with IS-IS flex-algo (which also share
  // their default entry preference). No other mix.
  static bool tunnelTypesCanFormEcmp(TunnelType a, TunnelType b);

  friend bool operator==(TunnelRibEntry const& a, TunnelRibEntry const& b);
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelRibEntry const& e) {
    return os << e.stringValue();
  }
  explicit operator bool() const { return *this != TunnelRibEntry(); }

  uint32_t serializeLen() const {
    return kFixedLen + 8 + static_cast<uint32_t>(sizeof(TunnelId)) * tunnelId_.count() +
           static_cast<uint32_t>(sizeof(TunnelBandwidth)) * tunnelBw_.count();
  }
  // A count above 600 throws the PodArray range exception.
  void serialize(void* buf) const;
  // Reads a record; an invalid one throws RecordError, a count above 600 the
  // range exception. The entry is unchanged on failure.
  void deserialize(void const* buf, unsigned len);
  // 0 for an invalid record, else kMaxSerializedLen: the RIB sizes every slot
  // for the largest entry.
  uint32_t deserializeLen(void const* buf, unsigned len) const;

 private:
  // The fixed fields lie as the record's fixed part; keep the order.
  ColoredTunnelEndpoint coloredTep_;
  uint32_t metric_ = 0;
  Vorn::MetricType metricType_ = Vorn::kDefaultMetricType;
  uint32_t metric2_ = 0;
  uint32_t pref_ = 0;
  uint32_t pref2_ = 0;
  TunnelEntryPref entryPref_;
  uint32_t entryMetric_ = 0;
  TunnelIdArray tunnelId_;
  TunnelBwArray tunnelBw_;
};

// The RIB tables size their slots by it.
static_assert(TunnelRibEntry::kMaxSerializedLen == 7268);

}  // namespace Tunnel::TunnelTable
