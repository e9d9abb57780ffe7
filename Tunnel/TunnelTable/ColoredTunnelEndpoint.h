#pragma once
// ColoredTunnelEndpoint: a tunnel endpoint prefix with a color, the key of the
// colored tunnel RIB and of the command-line RIB view. An uncolored endpoint is
// the bare prefix, so one key type serves colored and plain RIBs.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IpGenPrefix.h"

namespace Tunnel::TunnelTable {

using Zent::valueToStrep;

// Record layout (32 bytes): the 24-byte IpGenPrefix record, the color
// (4 bytes), the isColored flag (1 byte, 0 or 1), 3 zero bytes. The flag keeps
// color 0 of a colored tunnel apart from the uncolored endpoint.
class ColoredTunnelEndpoint {
 public:
  static constexpr uint32_t kRecordSize = 32;

  ColoredTunnelEndpoint() = default;
  // The uncolored endpoint: color 0, isColored false.
  explicit ColoredTunnelEndpoint(Vorn::IpGenPrefix const& tep) : tep_(tep) {}
  // A color makes the endpoint colored unless the caller says otherwise.
  ColoredTunnelEndpoint(Vorn::IpGenPrefix const& tep, uint32_t color, bool isColored = true)
      : tep_(tep), color_(color), isColored_(isColored ? 1 : 0) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  ColoredTunnelEndpoint(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  Vorn::IpGenPrefix const& tep() const { return tep_; }
  uint32_t color() const { return color_; }
  bool isColored() const { return isColored_ != 0; }

  // Valid prefix, flag 0 or 1, zero spare bytes.
  bool wellFormed() const;

  friend bool operator==(ColoredTunnelEndpoint const&, ColoredTunnelEndpoint const&) = default;
  // By prefix, then color, then uncolored before colored: the endpoints of one
  // prefix sit next to each other in an ordered RIB.
  friend std::strong_ordering operator<=>(ColoredTunnelEndpoint const& a,
                                          ColoredTunnelEndpoint const& b) {
    if (auto c = a.tep_ <=> b.tep_; c != 0) return c;
    if (auto c = a.color_ <=> b.color_; c != 0) return c;
    return a.isColored_ <=> b.isColored_;
  }
  // The byte hash of the record: every process hashes RIB keys alike.
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }

  // "Value('Tunnel::TunnelTable::ColoredTunnelEndpoint', ** {'tep': 10.0.0.0/8,
  // 'color': 5, 'isColored': true})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, ColoredTunnelEndpoint const& e) {
    return os << e.stringValue();
  }
  explicit operator bool() const { return *this != ColoredTunnelEndpoint(); }

 private:
  Vorn::IpGenPrefix tep_;
  uint32_t color_ = 0;
  // A byte rather than a bool, so that a foreign record can be checked
  // without loading an invalid bool.
  uint8_t isColored_ = 0;
  uint8_t reserved_[3] = {};
};

static_assert(sizeof(ColoredTunnelEndpoint) == ColoredTunnelEndpoint::kRecordSize);
static_assert(std::is_trivially_copyable_v<ColoredTunnelEndpoint>);
static_assert(std::is_standard_layout_v<ColoredTunnelEndpoint>);

}  // namespace Tunnel::TunnelTable
