#pragma once
// The entry of the SDK-driven SBFD session tunnel table: a session tunnel
// reached through one via. Its table reserves a short slot per session, so
// the entry has its own compact record instead of the 552-byte base record.

#include <cstdint>
#include <ostream>
#include <string>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"

namespace Tunnel::TunnelTable {

// Record (140 bytes), the base record's scalar fields at their base offsets,
// then the via as the multicast form the forwarding SDK reads:
//   0 tunnelId u64, 8 nexthopTunnelId u64, 16 entryPref u8, 17 entryMetric u32,
//   21 tunnelBw u32, 25 viasOrdered u8 (0 or 1), 26 2 zero bytes,
//   28 MplsCosVia record (112 bytes): the via with the forward label operation
//      and every traffic class; a record with other labels or classes is refused.
// `endpoint` and `name` are deliberately not in the record (a session is known
// by its identifier; there is no room in the slot): reading a record leaves
// them empty.
class ZorbSdkSbfdSessionTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr const char* kTypeName =
      "Tunnel::TunnelTable::ZorbSdkSbfdSessionTunnelTableEntry";
  static constexpr uint32_t kViaOffset = 28;
  static constexpr uint32_t kMaxSerializedLen = kViaOffset + MplsCosVia::kRecordSize;  // 140

  ZorbSdkSbfdSessionTunnelTableEntry() : ZorbSdkSbfdSessionTunnelTableEntry(TunnelId()) {}
  explicit ZorbSdkSbfdSessionTunnelTableEntry(TunnelId tunnelId) : TunnelTableEntry(tunnelId) {}
  ZorbSdkSbfdSessionTunnelTableEntry(Zent::String::IteratorConst& it,
                                     Zent::String::IteratorConst const& end);

  Via const& via() const { return via_; }
  void viaIs(Via const& v) { via_ = v; }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    using E = ZorbSdkSbfdSessionTunnelTableEntry;
    return std::tuple{field("via", &E::via_, DumpAs::bare)};
  }

  TUNNEL_ENTRY_VALUE_OPS(ZorbSdkSbfdSessionTunnelTableEntry)
  explicit operator bool() const { return *this != ZorbSdkSbfdSessionTunnelTableEntry(); }

  // Its own compact record, written by hand.
  void serialize(void* buf) const;
  uint32_t serializeLen() const { return kMaxSerializedLen; }
  void deserialize(void const* buf, unsigned len);
  uint32_t deserializeLen(void const* buf, unsigned len) const;

 private:
  Via via_;
};

}  // namespace Tunnel::TunnelTable
