#pragma once
// Via: where a tunnel's packets leave the device, a next hop and the interface
// towards it. Interface tunnels, BGP-LU entries and SBFD sessions hold arrays
// of them; MPLS vias (MplsVia.h) add a label operation.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/IpGenAddr.h"

namespace Tunnel::TunnelTable {

using Zent::valueToStrep;

// Record layout (36 bytes): the 20-byte IpGenAddr record of the next hop, then
// the 16-byte IntfId record. The type is its own record: via arrays are copied
// into shared memory as raw element records.
class Via {
 public:
  static constexpr uint32_t kRecordSize = 36;

  Via() = default;
  Via(Vorn::IpGenAddr const& nextHop, Vorn::IntfId const& intfId)
      : nextHop_(nextHop), intfId_(intfId) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  Via(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Vorn::IpGenAddr const& nextHop() const { return nextHop_; }
  void nextHopIs(Vorn::IpGenAddr const& nextHop) { nextHop_ = nextHop; }
  Vorn::IntfId const& intfId() const { return intfId_; }
  void intfIdIs(Vorn::IntfId const& intfId) { intfId_ = intfId; }

  // A record read from another process holds a valid address and interface.
  bool wellFormed() const { return nextHop_.wellFormed() && intfId_.wellFormed(); }

  friend bool operator==(Via const&, Via const&) = default;
  // By next hop, then by interface.
  friend std::strong_ordering operator<=>(Via const&, Via const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return intfId_.hash(nextHop_.hash(seed)); }

  // "Value('Tunnel::TunnelTable::Via', ** {'nextHop': 10.0.0.1, 'intfId': Ethernet1})"
  std::string stringValue() const;
  // "nextHop: 10.0.0.1, intfId: Ethernet1\n", the via's line in entry dumps.
  std::string dumpLine() const;
  friend std::ostream& operator<<(std::ostream& os, Via const& v) { return os << v.stringValue(); }
  explicit operator bool() const { return *this != Via(); }

 private:
  Vorn::IpGenAddr nextHop_;
  Vorn::IntfId intfId_;
};

static_assert(sizeof(Via) == Via::kRecordSize);
static_assert(std::is_trivially_copyable_v<Via>);
static_assert(std::is_standard_layout_v<Via>);

}  // namespace Tunnel::TunnelTable
