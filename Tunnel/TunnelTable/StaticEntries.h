#pragma once
// Entries whose MPLS vias are given whole by their producer rather than
// computed by an IGP: configured static tunnels (primary and backup vias) and
// SR-TE segment lists.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"

namespace Tunnel::TunnelTable {

// Record: the base record, the via list at 552 (u32 count, 108-byte MplsVia
// records), then the backup via list. 552 + 8 + 108 (n + m), at most 130160.
class StaticTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::StaticTunnelTableEntry";
  static constexpr uint8_t kDefaultEntryPref = 15;
  static constexpr uint32_t kMaxSerializedLen =
      kBaseRecordLen + 2 * (4 + MplsVia::kRecordSize * MplsViaArray::capacity);

  StaticTunnelTableEntry() : StaticTunnelTableEntry(TunnelId()) {}
  explicit StaticTunnelTableEntry(TunnelId tunnelId)
      : TunnelTableEntry(tunnelId, kDefaultEntryPref) {}
  StaticTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  MplsViaArray const& via() const { return via_; }
  // The default via past the end.
  MplsVia via(ViaIndex i) const { return via_.member(i); }
  // Setting past the end fills the gap with default vias.
  void viaIs(ViaIndex i, MplsVia const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDel(MplsViaArray::IteratorConst const& it) { via_._memberDel(it.key()); }
  void viaDelAll() { via_.clear(); }

  // Used when the primary vias fail; same rules as `via`.
  MplsViaArray const& backupVia() const { return backupVia_; }
  MplsVia backupVia(ViaIndex i) const { return backupVia_.member(i); }
  void backupViaIs(ViaIndex i, MplsVia const& v) { backupVia_.memberIs(i, v); }
  void backupViaDel(ViaIndex i) { backupVia_._memberDel(i); }
  void backupViaDel(MplsViaArray::IteratorConst const& it) { backupVia_._memberDel(it.key()); }
  void backupViaDelAll() { backupVia_.clear(); }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = StaticTunnelTableEntry;
    return std::tuple{field("via", &E::via_, DumpAs::list),
                      field("backupVia", &E::backupVia_, DumpAs::list, "Backup Vias")};
  }

  TUNNEL_ENTRY_VALUE_OPS(StaticTunnelTableEntry)
  explicit operator bool() const;

  TUNNEL_ENTRY_RECORD_OPS(StaticTunnelTableEntry)

 private:
  MplsViaArray via_;
  MplsViaArray backupVia_;
};

// Record: the base record, then the via list at 552. 552 + 4 + 108n, at most
// 65356.
class SrTeSegmentListTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::SrTeSegmentListTunnelTableEntry";
  static constexpr uint32_t kMaxSerializedLen =
      kBaseRecordLen + 4 + MplsVia::kRecordSize * MplsViaArray::capacity;

  SrTeSegmentListTunnelTableEntry() : SrTeSegmentListTunnelTableEntry(TunnelId()) {}
  explicit SrTeSegmentListTunnelTableEntry(TunnelId tunnelId) : TunnelTableEntry(tunnelId) {}
  SrTeSegmentListTunnelTableEntry(Zent::String::IteratorConst& it,
                                  Zent::String::IteratorConst const& end);

  MplsViaArray const& via() const { return via_; }
  // The default via past the end.
  MplsVia via(ViaIndex i) const { return via_.member(i); }
  // Setting past the end fills the gap with default vias.
  void viaIs(ViaIndex i, MplsVia const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDel(MplsViaArray::IteratorConst const& it) { via_._memberDel(it.key()); }
  void viaDelAll() { via_.clear(); }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = SrTeSegmentListTunnelTableEntry;
    return std::tuple{field("via", &E::via_, DumpAs::list)};
  }

  friend bool operator==(SrTeSegmentListTunnelTableEntry const& a,
                         SrTeSegmentListTunnelTableEntry const& b) {
    return FieldWalk::equal(a, b);
  }
  uint32_t hash(uint32_t seed = 0) const { return FieldWalk::hash(*this, seed); }
  TUNNEL_ENTRY_TEXT_OPS(SrTeSegmentListTunnelTableEntry)
  explicit operator bool() const;

  // TunnelId, nextHopTunnelId, tep, "Vias #<n> " and one MPLS via line each.
  void dumpState(DumpContext* ctx, int indent) const;

  TUNNEL_ENTRY_RECORD_OPS(SrTeSegmentListTunnelTableEntry)

 private:
  MplsViaArray via_;
};

}  // namespace Tunnel::TunnelTable
