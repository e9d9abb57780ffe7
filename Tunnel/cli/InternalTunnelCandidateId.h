#pragma once
// InternalTunnelCandidateId: names one candidate of a tunnel endpoint in the
// command-line view of the RIB (the tunnels of one type with one entry
// preference and metric). Its order is the candidates' ranking, best first.

#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/TunnelTableKeepdbTypes/TunnelEntryPref.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"

namespace Tunnel::TunnelTable {

// Record layout (12 bytes): tunnelType (4), entryPref (1), zero (3),
// entryMetric (4). Trivially copyable: it is a node key record in the store.
class InternalTunnelCandidateId {
 public:
  InternalTunnelCandidateId() = default;
  InternalTunnelCandidateId(TunnelType tunnelType, TunnelEntryPref entryPref, uint32_t entryMetric)
      : tunnelType_(tunnelType), entryPref_(entryPref), entryMetric_(entryMetric) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  InternalTunnelCandidateId(Zent::String::IteratorConst& it,
                            Zent::String::IteratorConst const& end);

  TunnelType tunnelType() const { return tunnelType_; }
  TunnelEntryPref entryPref() const { return entryPref_; }
  uint32_t entryMetric() const { return entryMetric_; }

  friend bool operator==(InternalTunnelCandidateId const& a, InternalTunnelCandidateId const& b) {
    return a.tunnelType_ == b.tunnelType_ && a.entryPref_ == b.entryPref_ &&
           a.entryMetric_ == b.entryMetric_;
  }
  // The ranking: lower entry preference, then lower default preference of
  // the type, then lower metric, then lower type number. A total order that
  // agrees with ==, so it keys ordered maps. An unknown type number aborts.
  friend bool operator<(InternalTunnelCandidateId const& a, InternalTunnelCandidateId const& b);

  uint32_t hash(uint32_t seed = 0) const;
  // "Value('Tunnel::TunnelTable::InternalTunnelCandidateId', ** {'tunnelType':
  // isisSrTunnel, 'entryPref': 65, 'entryMetric': 10})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, InternalTunnelCandidateId const& id) {
    return os << id.stringValue();
  }
  explicit operator bool() const { return *this != InternalTunnelCandidateId(); }

 private:
  TunnelType tunnelType_ = unknownTunnel;
  TunnelEntryPref entryPref_;
  uint8_t reserved_[3] = {};
  uint32_t entryMetric_ = 0;
};

static_assert(sizeof(InternalTunnelCandidateId) == 12);
static_assert(std::is_trivially_copyable_v<InternalTunnelCandidateId>);

}  // namespace Tunnel::TunnelTable
