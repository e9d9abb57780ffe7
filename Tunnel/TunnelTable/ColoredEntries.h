#pragma once
// Entries of tunnels steered by color: ColoredTunnelTableEntry (color, IGP
// preference and metric), the SR-TE policy entry that is it under its own
// name, and the IS-IS flexible-algorithm entry that adds MPLS vias.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"

namespace Tunnel::TunnelTable {

// entryPref 255.
//
// Record: the base record, then color u32, igpPref u32, igpMetric u32 at 552,
// 556 and 560: 564 bytes.
class ColoredTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr uint32_t kColoredFieldsLen = 12;
  static constexpr uint32_t kMaxSerializedLen = kBaseRecordLen + kColoredFieldsLen;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::ColoredTunnelTableEntry";

  ColoredTunnelTableEntry() : ColoredTunnelTableEntry(TunnelId()) {}
  explicit ColoredTunnelTableEntry(TunnelId tunnelId,
                                   TunnelEntryPref entryPref = TunnelEntryPref::kNoPreference)
      : TunnelTableEntry(tunnelId, entryPref) {}
  ColoredTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  uint32_t color() const { return color_; }
  void colorIs(uint32_t v) { color_ = v; }
  TunnelIgpPref igpPref() const { return igpPref_; }
  void igpPrefIs(TunnelIgpPref v) { igpPref_ = v; }
  uint32_t igpMetric() const { return igpMetric_; }
  void igpMetricIs(uint32_t v) { igpMetric_ = v; }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = ColoredTunnelTableEntry;
    return std::tuple{field("color", &E::color_), field("igpPref", &E::igpPref_),
                      field("igpMetric", &E::igpMetric_)};
  }

  TUNNEL_ENTRY_VALUE_OPS(ColoredTunnelTableEntry)
  explicit operator bool() const { return *this != ColoredTunnelTableEntry(); }

  TUNNEL_ENTRY_RECORD_OPS(ColoredTunnelTableEntry)

 private:
  uint32_t color_ = 0;
  TunnelIgpPref igpPref_;
  uint32_t igpMetric_ = 0;
};

// SR-TE policies: entryPref 255.
class SrTePolicyTunnelTableEntry : public ColoredTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::SrTePolicyTunnelTableEntry";

  SrTePolicyTunnelTableEntry() = default;
  explicit SrTePolicyTunnelTableEntry(TunnelId tunnelId) : ColoredTunnelTableEntry(tunnelId) {}
  SrTePolicyTunnelTableEntry(Zent::String::IteratorConst& it,
                             Zent::String::IteratorConst const& end);

  TUNNEL_ENTRY_TEXT_OPS(SrTePolicyTunnelTableEntry)
  explicit operator bool() const { return *this != SrTePolicyTunnelTableEntry(); }
};

// IS-IS flexible-algorithm tunnels: entryPref 65.
//
// Record: the base record, color u32, igpPref u32, igpMetric u32, isColored
// u8, 3 zero bytes, then the via list (u32 count and 108-byte MplsVia
// records), zero-filled to 65372 bytes: every record takes the table's full
// bound, so serializeLen() and deserializeLen() always report 65372.
class FlexAlgoTunnelTableEntry : public ColoredTunnelTableEntry {
 public:
  static constexpr uint32_t kMaxSerializedLen =
      kBaseRecordLen + kColoredFieldsLen + 4 + 4 + 108 * MplsViaArray::capacity;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::FlexAlgoTunnelTableEntry";
  static constexpr uint8_t kDefaultEntryPref = 65;

  FlexAlgoTunnelTableEntry() : FlexAlgoTunnelTableEntry(TunnelId()) {}
  explicit FlexAlgoTunnelTableEntry(TunnelId tunnelId)
      : ColoredTunnelTableEntry(tunnelId, kDefaultEntryPref) {}
  FlexAlgoTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  bool isColored() const { return isColored_; }
  void isColoredIs(bool v) { isColored_ = v; }

  MplsViaArray const& via() const { return via_; }
  // A default via past the end.
  MplsVia via(ViaIndex i) const { return via_.member(i); }
  // Setting past the end fills the gap with default vias.
  void viaIs(ViaIndex i, MplsVia const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDel(MplsViaArray::IteratorConst const& it) { via_._memberDel(it.key()); }
  void viaDelAll() { via_.clear(); }

  using FieldParent = ColoredTunnelTableEntry;
  static constexpr auto fields() {
    using E = FlexAlgoTunnelTableEntry;
    return std::tuple{field("isColored", &E::isColored_), field("via", &E::via_, DumpAs::list)};
  }

  TUNNEL_ENTRY_VALUE_OPS(FlexAlgoTunnelTableEntry)
  explicit operator bool() const { return *this != FlexAlgoTunnelTableEntry(); }

  void serialize(void* buf) const;
  // Deliberately the bound, whatever the via count.
  uint32_t serializeLen() const { return kMaxSerializedLen; }
  void deserialize(void const* buf, unsigned len);
  uint32_t deserializeLen(void const* buf, unsigned len) const;

 private:
  bool isColored_ = false;
  MplsViaArray via_;
};

}  // namespace Tunnel::TunnelTable
