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

  TUNNEL_ENTRY_VALUE_OPS(NexthopGroupTunnelTableEntry)
  explicit operator bool() const { return *this != NexthopGroupTunnelTableEntry(); }

  TUNNEL_ENTRY_RECORD_OPS(NexthopGroupTunnelTableEntry)

 private:
  uint32_t nhgId_ = 0;
  uint32_t igpMetric_ = 0;
  uint32_t igpPref_ = 0;
};

}  // namespace Tunnel::TunnelTable
