#pragma once
// The entry of the nexthop-group tunnel table: a tunnel whose forwarding is a
// configured nexthop group, named by its id, with the IGP cost and preference
// its producer ranks it by.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"

namespace Tunnel::TunnelTable {

// Record (564 bytes): the base record, then nhgId at 552, igpMetric at 556,
// igpPref at 560, each u32.
class NexthopGroupTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::NexthopGroupTunnelTableEntry";
  static constexpr uint32_t kMaxSerializedLen = kBaseRecordLen + 12;

  NexthopGroupTunnelTableEntry() : NexthopGroupTunnelTableEntry(TunnelId()) {}
  // entryPref 255: the type's default preference (25) is the RIB's business.
  explicit NexthopGroupTunnelTableEntry(TunnelId tunnelId) : TunnelTableEntry(tunnelId) {}
  NexthopGroupTunnelTableEntry(Zent::String::IteratorConst& it,
                               Zent::String::IteratorConst const& end);

  uint32_t nhgId() const { return nhgId_; }
  void nhgIdIs(uint32_t v) { nhgId_ = v; }
  uint32_t igpMetric() const { return igpMetric_; }
  void igpMetricIs(uint32_t v) { igpMetric_ = v; }
  // A plain u32 here, unlike the TunnelIgpPref of IGP entries: deliberate.
  uint32_t igpPref() const { return igpPref_; }
  void igpPrefIs(uint32_t v) { igpPref_ = v; }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = NexthopGroupTunnelTableEntry;
    return std::tuple{field("nhgId", &E::nhgId_), field("igpMetric", &E::igpMetric_),
                      field("igpPref", &E::igpPref_)};
  }

  friend bool operator==(NexthopGroupTunnelTableEntry const& a,
                         NexthopGroupTunnelTableEntry const& b) {
    return FieldWalk::equal(a, b);
  }
  uint32_t hash(uint32_t seed = 0) const { return FieldWalk::hash(*this, seed); }
  std::string stringValue() const { return FieldWalk::text(*this, kTypeName); }
  friend std::ostream& operator<<(std::ostream& os, NexthopGroupTunnelTableEntry const& e) {
    return os << e.stringValue();
  }
  explicit operator bool() const { return *this != NexthopGroupTunnelTableEntry(); }

  // TunnelId, tep, nhgId, igpMetric, igpPref.
  void dumpState(DumpContext* ctx, int indent) const { FieldWalk::dump(*this, ctx, indent); }

  void serialize(void* buf) const { FieldWalk::serialize(*this, buf); }
  uint32_t serializeLen() const { return kMaxSerializedLen; }
  void deserialize(void const* buf, unsigned len) {
    FieldWalk::deserialize(*this, buf, len, kTypeName);
  }
  uint32_t deserializeLen(void const* buf, unsigned len) const {
    return FieldWalk::deserializeLen<NexthopGroupTunnelTableEntry>(buf, len);
  }

 private:
  uint32_t nhgId_ = 0;
  uint32_t igpMetric_ = 0;
  uint32_t igpPref_ = 0;
};

}  // namespace Tunnel::TunnelTable
