#pragma once
// Vorn::IpGenPrefix: an IPv4 or IPv6 prefix (address and length) in one fixed
// 24-byte record. Tunnel endpoints and the redistribution and RIB keys are
// prefixes, so they live inside flat entries and shared-memory slots.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/net/IpGenAddr.h"

namespace Vorn {

// Record layout (24 bytes): the 20-byte IpGenAddr record, the length (1 byte),
// 3 zero bytes. The address never has bits set past the length, so equal
// prefixes have equal records. The family is part of the value: 0.0.0.0/0 and
// ::/0 are different prefixes. The default value is 0.0.0.0/0.
class alignas(4) IpGenPrefix {
 public:
  static constexpr uint32_t kRecordSize = 24;

  IpGenPrefix() = default;
  // Clears the host bits of `addr`. A length past the family's width throws
  // Zent::RangeException, e.g. "Vorn::IpGenPrefix::len < 0 or > 32 not allowed
  // for an IPv4 prefix, got 33".
  IpGenPrefix(IpGenAddr const& addr, uint32_t len);
  // The /32 or /128 prefix of one address.
  static IpGenPrefix host(IpGenAddr const& addr) { return IpGenPrefix(addr, addr.maxLen()); }
  // "10.0.0.0/8" or "2001:db8::/32"; host bits in the text are cleared.
  // Throws Zent::ParseError.
  explicit IpGenPrefix(std::string_view text);
  IpGenPrefix(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  IpGenAddr const& address() const { return addr_; }
  uint8_t len() const { return len_; }
  IpFamily family() const { return addr_.family(); }
  bool isV4() const { return addr_.isV4(); }
  bool isV6() const { return addr_.isV6(); }
  bool isHost() const { return len_ == addr_.maxLen(); }
  // True when `a` is of the same family and inside the prefix.
  bool contains(IpGenAddr const& a) const {
    return a.family() == family() && a.masked(len_) == addr_;
  }

  // Checks a record written elsewhere: well-formed address, length within the
  // family's width, no host bits.
  bool wellFormed() const;

  friend bool operator==(IpGenPrefix const&, IpGenPrefix const&) = default;
  // By address (IPv4 first), then by length.
  friend auto operator<=>(IpGenPrefix const&, IpGenPrefix const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }

  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, IpGenPrefix const& p) {
    return os << p.stringValue();
  }
  // False only for the default, 0.0.0.0/0.
  explicit operator bool() const { return *this != IpGenPrefix(); }

 private:
  void parse(std::string_view text);

  IpGenAddr addr_;
  uint8_t len_ = 0;
  uint8_t reserved_[3] = {};
};

static_assert(sizeof(IpGenPrefix) == IpGenPrefix::kRecordSize);
static_assert(std::is_trivially_copyable_v<IpGenPrefix>);
static_assert(std::is_standard_layout_v<IpGenPrefix>);

}  // namespace Vorn
