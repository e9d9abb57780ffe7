#pragma once
// EvpnVxlanTunnelEntry: what the EVPN VXLAN tunnel table stores per tunnel,
// the tunnel's identifier and its VXLAN encapsulation. Unlike the protocol
// entries it has no base entry and no lists, so the table keeps it as one
// fixed-size record, the raw bytes of this type.

#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"

namespace Tunnel::TunnelTable {

// Record layout (56 bytes): the 8-byte TunnelId, then the 48-byte
// VxlanTunnelInfo record.
class EvpnVxlanTunnelEntry {
 public:
  static constexpr uint32_t kRecordSize = 56;

  EvpnVxlanTunnelEntry() = default;
  explicit EvpnVxlanTunnelEntry(TunnelId tunnelId) : tunnelId_(tunnelId) {}
  EvpnVxlanTunnelEntry(TunnelId tunnelId, VxlanTunnelInfo const& tunnelInfo)
      : tunnelId_(tunnelId), tunnelInfo_(tunnelInfo) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  EvpnVxlanTunnelEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  // The table's key.
  TunnelId key() const { return tunnelId_; }
  TunnelId tunnelId() const { return tunnelId_; }
  VxlanTunnelInfo const& tunnelInfo() const { return tunnelInfo_; }
  void tunnelInfoIs(VxlanTunnelInfo const& info) { tunnelInfo_ = info; }

  // An identifier within the TunnelId range and a well-formed VXLAN record.
  bool wellFormed() const {
    return tunnelId_.value() <= TunnelId::maxValue && tunnelInfo_.wellFormed();
  }

  friend bool operator==(EvpnVxlanTunnelEntry const&, EvpnVxlanTunnelEntry const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }
  // "Value('Tunnel::TunnelTable::EvpnVxlanTunnelEntry', ** {'tunnelId': ..., 'tunnelInfo': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, EvpnVxlanTunnelEntry const& e) {
    return os << e.stringValue();
  }
  explicit operator bool() const { return *this != EvpnVxlanTunnelEntry(); }

 private:
  TunnelId tunnelId_;
  VxlanTunnelInfo tunnelInfo_;
};

static_assert(sizeof(EvpnVxlanTunnelEntry) == EvpnVxlanTunnelEntry::kRecordSize);
static_assert(std::is_trivially_copyable_v<EvpnVxlanTunnelEntry>);
static_assert(std::is_standard_layout_v<EvpnVxlanTunnelEntry>);

}  // namespace Tunnel::TunnelTable
