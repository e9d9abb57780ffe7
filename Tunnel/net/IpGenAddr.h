#pragma once
// Vorn::IpGenAddr: an IPv4 or IPv6 address held in one fixed 20-byte record,
// so that next hops and endpoints of either family fit in flat table entries
// and shared-memory slots.

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"

namespace Vorn {

using Zent::valueToStrep;

// IPv4 is 0 so that a zeroed record is the default address.
enum class IpFamily : uint8_t { ipv4 = 0, ipv6 = 1 };

// Record layout (20 bytes, host byte order does not matter: the address bytes
// are in network order): family (1 byte), 3 zero bytes, 16 address bytes. An
// IPv4 address uses the first 4 address bytes; the other 12 stay zero.
// The default value is the IPv4 address 0.0.0.0.
class alignas(4) IpGenAddr {
 public:
  static constexpr uint32_t kRecordSize = 20;

  IpGenAddr() = default;
  // IPv4, from the address as a host-order number (0x0a000001 is 10.0.0.1).
  explicit IpGenAddr(uint32_t v4) { v4AddrIs(v4); }
  // IPv6, from its 16 bytes in network order.
  explicit IpGenAddr(std::array<uint8_t, 16> const& v6) : family_(IpFamily::ipv6) {
    std::memcpy(bytes_, v6.data(), 16);
  }
  // Either family's text; throws Zent::ParseError.
  explicit IpGenAddr(std::string_view text);
  IpGenAddr(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  IpFamily family() const { return family_; }
  bool isV4() const { return family_ == IpFamily::ipv4; }
  bool isV6() const { return family_ == IpFamily::ipv6; }
  // 32 or 128.
  uint8_t maxLen() const { return isV6() ? 128 : 32; }
  // Host-order IPv4 address; 0 for an IPv6 address.
  uint32_t v4Addr() const {
    if (!isV4()) return 0;
    return uint32_t{bytes_[0]} << 24 | uint32_t{bytes_[1]} << 16 | uint32_t{bytes_[2]} << 8 |
           bytes_[3];
  }
  // The address bytes in network order: 4 for IPv4, 16 for IPv6.
  uint8_t const* bytes() const { return bytes_; }
  uint32_t byteLen() const { return isV6() ? 16 : 4; }

  // The address with every bit from `len` on cleared; len must be <= maxLen().
  IpGenAddr masked(uint8_t len) const;

  // A well-formed record has a known family and, for IPv4, zero tail bytes.
  // Readers of records written by other processes check this.
  bool wellFormed() const;

  friend bool operator==(IpGenAddr const&, IpGenAddr const&) = default;
  // IPv4 before IPv6, then by numeric value.
  friend auto operator<=>(IpGenAddr const&, IpGenAddr const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }

  // Dotted quad, or the RFC 5952 text of an IPv6 address.
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, IpGenAddr const& a) {
    return os << a.stringValue();
  }
  // False only for the default, IPv4 0.0.0.0 (the IPv6 "::" is true).
  explicit operator bool() const { return *this != IpGenAddr(); }

 private:
  void v4AddrIs(uint32_t v4) {
    bytes_[0] = static_cast<uint8_t>(v4 >> 24);
    bytes_[1] = static_cast<uint8_t>(v4 >> 16);
    bytes_[2] = static_cast<uint8_t>(v4 >> 8);
    bytes_[3] = static_cast<uint8_t>(v4);
  }
  void parse(std::string_view text);

  IpFamily family_ = IpFamily::ipv4;
  uint8_t reserved_[3] = {};
  uint8_t bytes_[16] = {};
};

static_assert(sizeof(IpGenAddr) == IpGenAddr::kRecordSize);
static_assert(std::is_trivially_copyable_v<IpGenAddr>);
static_assert(std::is_standard_layout_v<IpGenAddr>);

}  // namespace Vorn
