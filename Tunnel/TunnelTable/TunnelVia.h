#pragma once
// TunnelVia: a via of the tunnel FIB. Besides the next hop and interface it
// names, by EncapId, the encapsulation record (label stack, GRE, IPsec, VXLAN)
// that packets get on the way out.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/TunnelTable/EncapId.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/IpGenAddr.h"

namespace Tunnel::TunnelTable {

// Record layout (40 bytes, the FIB's element size): the 20-byte IpGenAddr
// record of the next hop; the 12 significant bytes of the IntfId record (its
// bytes 0-3 and 8-15: kind, zero bytes, number), leaving out the spare word
// that is always zero; the 8-byte EncapId record (type, value). The interface
// is therefore handed out by value, rebuilt from those bytes.
class TunnelVia {
 public:
  static constexpr uint32_t kRecordSize = 40;

  TunnelVia() = default;
  TunnelVia(Vorn::IpGenAddr const& nextHop, Vorn::IntfId const& intfId, EncapId encapId)
      : nextHop_(nextHop), encapId_(encapId) {
    intfIdIs(intfId);
  }
  // Parses the canonical text; throws Zent::ParseError on any other text.
  TunnelVia(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Vorn::IpGenAddr const& nextHop() const { return nextHop_; }
  void nextHopIs(Vorn::IpGenAddr const& nextHop) { nextHop_ = nextHop; }
  Vorn::IntfId intfId() const;
  void intfIdIs(Vorn::IntfId const& intfId);
  EncapId encapId() const { return encapId_; }
  void encapIdIs(EncapId encapId) { encapId_ = encapId; }

  // Valid address and interface, and an encapsulation type that exists.
  bool wellFormed() const;

  friend bool operator==(TunnelVia const&, TunnelVia const&) = default;
  // By next hop, interface, then encapsulation.
  friend std::strong_ordering operator<=>(TunnelVia const& a, TunnelVia const& b);
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }

  // "Value('Tunnel::TunnelTable::TunnelVia', ** {'nextHop': ..., 'intfId': ..., 'encapId': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelVia const& v) {
    return os << v.stringValue();
  }
  explicit operator bool() const { return *this != TunnelVia(); }

 private:
  static constexpr uint32_t kIntfBytes = 12;

  Vorn::IpGenAddr nextHop_;
  uint8_t intfId_[kIntfBytes] = {};
  EncapId encapId_;
};

static_assert(sizeof(Vorn::IntfId) == 16, "TunnelVia packs the IntfId record");
static_assert(sizeof(TunnelVia) == TunnelVia::kRecordSize);
static_assert(std::is_trivially_copyable_v<TunnelVia>);
static_assert(std::is_standard_layout_v<TunnelVia>);

}  // namespace Tunnel::TunnelTable
