#pragma once
// Entries of tunnels an IGP computes: the shared IgpTunnelTableEntryBase
// (metrics, preferences and up to 600 MPLS vias) and the LDP and segment
// routing entries built on it.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"

namespace Tunnel::TunnelTable {

// Record: the base record, igpMetric u32, igpMetric2 u32, igpPref u32,
// igpPref2 u32 (at 552 to 567), then the via list (u32 count and 108-byte
// MplsVia records): 572 + 108n bytes, at most 65372.
class IgpTunnelTableEntryBase : public TunnelTableEntry {
 public:
  static constexpr uint32_t kMaxSerializedLen = kBaseRecordLen + 20 + 108 * MplsViaArray::capacity;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::IgpTunnelTableEntryBase";

  IgpTunnelTableEntryBase() : IgpTunnelTableEntryBase(TunnelId()) {}
  // entryPref 255 unless given.
  explicit IgpTunnelTableEntryBase(TunnelId tunnelId,
                                   TunnelEntryPref entryPref = TunnelEntryPref::kNoPreference)
      : TunnelTableEntry(tunnelId, entryPref) {}
  IgpTunnelTableEntryBase(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  uint32_t igpMetric() const { return igpMetric_; }
  void igpMetricIs(uint32_t v) { igpMetric_ = v; }
  uint32_t igpMetric2() const { return igpMetric2_; }
  void igpMetric2Is(uint32_t v) { igpMetric2_ = v; }
  TunnelIgpPref igpPref() const { return igpPref_; }
  void igpPrefIs(TunnelIgpPref v) { igpPref_ = v; }
  uint32_t igpPref2() const { return igpPref2_; }
  void igpPref2Is(uint32_t v) { igpPref2_ = v; }

  MplsViaArray const& via() const { return via_; }
  // A default via past the end.
  MplsVia via(ViaIndex i) const { return via_.member(i); }
  // Setting past the end fills the gap with default vias.
  void viaIs(ViaIndex i, MplsVia const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDel(MplsViaArray::IteratorConst const& it) { via_._memberDel(it.key()); }
  void viaDelAll() { via_.clear(); }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = IgpTunnelTableEntryBase;
    return std::tuple{field("igpMetric", &E::igpMetric_), field("igpMetric2", &E::igpMetric2_),
                      field("igpPref", &E::igpPref_), field("igpPref2", &E::igpPref2_),
                      field("via", &E::via_, DumpAs::list)};
  }

  TUNNEL_ENTRY_VALUE_OPS(IgpTunnelTableEntryBase)
  explicit operator bool() const { return *this != IgpTunnelTableEntryBase(); }

  TUNNEL_ENTRY_RECORD_OPS(IgpTunnelTableEntryBase)

 private:
  uint32_t igpMetric_ = 0;
  uint32_t igpMetric2_ = 0;
  TunnelIgpPref igpPref_;
  uint32_t igpPref2_ = 0;
  MplsViaArray via_;
};

// LDP tunnels: entryPref 55.
class LdpTunnelTableEntry : public IgpTunnelTableEntryBase {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::LdpTunnelTableEntry";
  static constexpr uint8_t kDefaultEntryPref = 55;

  LdpTunnelTableEntry() : LdpTunnelTableEntry(TunnelId()) {}
  explicit LdpTunnelTableEntry(TunnelId tunnelId)
      : IgpTunnelTableEntryBase(tunnelId, kDefaultEntryPref) {}
  LdpTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  TUNNEL_ENTRY_TEXT_OPS(LdpTunnelTableEntry)
  explicit operator bool() const { return *this != LdpTunnelTableEntry(); }
};

// IS-IS and OSPF segment routing tunnels share this entry: its default
// entryPref is its identifier's type default (65 for IS-IS SR, 60 for OSPF SR).
class SrTunnelTableEntry : public IgpTunnelTableEntryBase {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::SrTunnelTableEntry";

  SrTunnelTableEntry() : SrTunnelTableEntry(TunnelId()) {}
  explicit SrTunnelTableEntry(TunnelId tunnelId)
      : IgpTunnelTableEntryBase(tunnelId, getDefaultPrefForType(tunnelId.tunnelType())) {}
  SrTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  // Sets entryPref to the default of the identifier's type; writers call it
  // after setting the identifier. (The name is spelled so.)
  void intializeSrTunnelEntry() { entryPrefIs(getDefaultPrefForType(tunnelId().tunnelType())); }

  TUNNEL_ENTRY_TEXT_OPS(SrTunnelTableEntry)
  explicit operator bool() const { return *this != SrTunnelTableEntry(); }
};

}  // namespace Tunnel::TunnelTable
