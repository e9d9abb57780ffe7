#pragma once
// Entries of protected tunnels, which hold exactly one primary via and one
// backup via: FrrTunnelTableEntry and the RSVP FRR, RSVP LER sub-LSP and
// TI-LFA entries that are it under their own names.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"

namespace Tunnel::TunnelTable {

// entryPref 255, viasOrdered false.
//
// Record: the base record, then a 219-byte tail: via (108-byte MplsVia) at
// tail byte 0, backupVia at 108, isPrimaryViaUsable u8 at 216, seqNo u16 at
// 217. The tail is byte-packed on purpose, so seqNo sits unaligned: 771 bytes.
class FrrTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr uint32_t kFrrTailLen = 219;
  static constexpr uint32_t kMaxSerializedLen = kBaseRecordLen + kFrrTailLen;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::FrrTunnelTableEntry";

  FrrTunnelTableEntry() : FrrTunnelTableEntry(TunnelId()) {}
  explicit FrrTunnelTableEntry(TunnelId tunnelId)
      : TunnelTableEntry(tunnelId, TunnelEntryPref::kNoPreference) {}
  FrrTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  MplsVia const& via() const { return via_; }
  void viaIs(MplsVia const& v) { via_ = v; }
  MplsVia const& backupVia() const { return backupVia_; }
  void backupViaIs(MplsVia const& v) { backupVia_ = v; }
  bool isPrimaryViaUsable() const { return isPrimaryViaUsable_; }
  void isPrimaryViaUsableIs(bool v) { isPrimaryViaUsable_ = v; }
  TunnelEntrySequenceNumber seqNo() const { return seqNo_; }
  void seqNoIs(TunnelEntrySequenceNumber v) { seqNo_ = v; }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = FrrTunnelTableEntry;
    return std::tuple{field("via", &E::via_), field("backupVia", &E::backupVia_),
                      field("isPrimaryViaUsable", &E::isPrimaryViaUsable_),
                      field("seqNo", &E::seqNo_)};
  }

  TUNNEL_ENTRY_VALUE_OPS(FrrTunnelTableEntry)
  explicit operator bool() const { return *this != FrrTunnelTableEntry(); }

  TUNNEL_ENTRY_RECORD_OPS(FrrTunnelTableEntry)

 private:
  MplsVia via_;
  MplsVia backupVia_;
  bool isPrimaryViaUsable_ = false;
  TunnelEntrySequenceNumber seqNo_;
};

// RSVP fast-reroute tunnels.
class RsvpFrrTunnelTableEntry : public FrrTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::RsvpFrrTunnelTableEntry";

  RsvpFrrTunnelTableEntry() = default;
  explicit RsvpFrrTunnelTableEntry(TunnelId tunnelId) : FrrTunnelTableEntry(tunnelId) {}
  RsvpFrrTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  TUNNEL_ENTRY_TEXT_OPS(RsvpFrrTunnelTableEntry)
  explicit operator bool() const { return *this != RsvpFrrTunnelTableEntry(); }
};

// Sub-LSPs of RSVP LER tunnels.
class RsvpLerSubTunnelTableEntry : public FrrTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::RsvpLerSubTunnelTableEntry";

  RsvpLerSubTunnelTableEntry() = default;
  explicit RsvpLerSubTunnelTableEntry(TunnelId tunnelId) : FrrTunnelTableEntry(tunnelId) {}
  RsvpLerSubTunnelTableEntry(Zent::String::IteratorConst& it,
                             Zent::String::IteratorConst const& end);

  TUNNEL_ENTRY_TEXT_OPS(RsvpLerSubTunnelTableEntry)
  explicit operator bool() const { return *this != RsvpLerSubTunnelTableEntry(); }
};

// Topology-independent loop-free alternates of segment routing.
class TiLfaTunnelTableEntry : public FrrTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::TiLfaTunnelTableEntry";

  TiLfaTunnelTableEntry() = default;
  explicit TiLfaTunnelTableEntry(TunnelId tunnelId) : FrrTunnelTableEntry(tunnelId) {}
  TiLfaTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  TUNNEL_ENTRY_TEXT_OPS(TiLfaTunnelTableEntry)
  explicit operator bool() const { return *this != TiLfaTunnelTableEntry(); }
};

}  // namespace Tunnel::TunnelTable
