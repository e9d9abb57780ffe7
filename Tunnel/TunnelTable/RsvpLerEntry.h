#pragma once
// RsvpLerTunnelTableEntry: an RSVP head-end tunnel. It is the only entry whose
// vias are ordered by default, and it adds to the FRR via pair its metric,
// IGP preference, eligibilities, color and up to 600 split vias.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/FrrEntries.h"

namespace Tunnel::TunnelTable {

// entryPref 45, igpPref TunnelIgpPref::defaultRsvpLerIgpPref (45), viasOrdered
// true.
//
// Record: the 771-byte FRR record, then metric u32, igpPref u32,
// isTunnelIgpShortcutEligible u8, isTunnelLdpTunnelingEligible u8, color (the
// 8-byte TristateU32 record), then the split via list (u32 count and 108-byte
// MplsVia records): 793 + 108n bytes, at most 65593.
class RsvpLerTunnelTableEntry : public FrrTunnelTableEntry {
 public:
  static constexpr uint32_t kLerFieldsLen = 18;
  static constexpr uint32_t kMaxSerializedLen =
      FrrTunnelTableEntry::kMaxSerializedLen + kLerFieldsLen + 4 + 108 * MplsViaArray::capacity;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::RsvpLerTunnelTableEntry";
  static constexpr uint8_t kDefaultEntryPref = 45;

  RsvpLerTunnelTableEntry() : RsvpLerTunnelTableEntry(TunnelId()) {}
  explicit RsvpLerTunnelTableEntry(TunnelId tunnelId);
  RsvpLerTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  uint32_t metric() const { return metric_; }
  void metricIs(uint32_t v) { metric_ = v; }
  TunnelIgpPref igpPref() const { return igpPref_; }
  void igpPrefIs(TunnelIgpPref v) { igpPref_ = v; }
  bool isTunnelIgpShortcutEligible() const { return isTunnelIgpShortcutEligible_; }
  void isTunnelIgpShortcutEligibleIs(bool v) { isTunnelIgpShortcutEligible_ = v; }
  bool isTunnelLdpTunnelingEligible() const { return isTunnelLdpTunnelingEligible_; }
  void isTunnelLdpTunnelingEligibleIs(bool v) { isTunnelLdpTunnelingEligible_ = v; }
  TristateU32 const& color() const { return color_; }
  void colorIs(TristateU32 const& v) { color_ = v; }

  MplsViaArray const& splitVia() const { return splitVia_; }
  // A default via past the end.
  MplsVia splitVia(ViaIndex i) const { return splitVia_.member(i); }
  // Setting past the end fills the gap with default vias.
  void splitViaIs(ViaIndex i, MplsVia const& v) { splitVia_.memberIs(i, v); }
  // Later vias move down one place.
  void splitViaDel(ViaIndex i) { splitVia_._memberDel(i); }
  void splitViaDel(MplsViaArray::IteratorConst const& it) { splitVia_._memberDel(it.key()); }
  void splitViaDelAll() { splitVia_.clear(); }

  using FieldParent = FrrTunnelTableEntry;
  static constexpr auto fields() {
    using E = RsvpLerTunnelTableEntry;
    return std::tuple{field("metric", &E::metric_),
                      field("igpPref", &E::igpPref_),
                      field("isTunnelIgpShortcutEligible", &E::isTunnelIgpShortcutEligible_),
                      field("isTunnelLdpTunnelingEligible", &E::isTunnelLdpTunnelingEligible_),
                      field("color", &E::color_),
                      field("splitVia", &E::splitVia_, DumpAs::list, "Split vias")};
  }

  TUNNEL_ENTRY_VALUE_OPS(RsvpLerTunnelTableEntry)
  explicit operator bool() const { return *this != RsvpLerTunnelTableEntry(); }

  TUNNEL_ENTRY_RECORD_OPS(RsvpLerTunnelTableEntry)

 private:
  uint32_t metric_ = 0;
  TunnelIgpPref igpPref_{TunnelIgpPref::defaultRsvpLerIgpPref};
  bool isTunnelIgpShortcutEligible_ = false;
  bool isTunnelLdpTunnelingEligible_ = false;
  TristateU32 color_;
  MplsViaArray splitVia_;
};

}  // namespace Tunnel::TunnelTable
