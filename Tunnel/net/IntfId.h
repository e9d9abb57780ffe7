#pragma once
// Vorn::IntfId: the identifier of an interface a via leaves through: an
// Ethernet port, a tunnel interface, or a dynamic tunnel interface that stands
// for another tunnel (by its raw 64-bit tunnel identifier value).

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"

namespace Vorn {

enum class IntfKind : uint8_t { null = 0, ethernet = 1, tunnel = 2, dynamicTunnel = 3 };

// Texts, one per kind:
//   null           "None"
//   ethernet       "Ethernet<n>"            n decimal, 0..4294967295
//   tunnel         "Tunnel<port>"           port decimal, 0..65535
//   dynamicTunnel  "DynamicTunnel0x<hex>"   the tunnel identifier value, lower case
//
// Record layout (16 bytes): kind (1 byte), 3 zero bytes, a zero 32-bit word,
// then the number (port or tunnel identifier value) as two 32-bit words, low
// word first. The 16 bytes make a via (20-byte address + interface) exactly the
// 36-byte record the tables are sized for, at 4-byte alignment; the spare word
// stays zero. The default value is the null interface.
class alignas(4) IntfId {
 public:
  static constexpr uint32_t kRecordSize = 16;
  static constexpr uint32_t kMaxTunnelPort = 65535;

  IntfId() = default;
  static IntfId ethernet(uint32_t port) { return IntfId(IntfKind::ethernet, port); }
  // A port above 65535 throws Zent::RangeException.
  static IntfId tunnel(uint32_t port);
  // The dynamic tunnel interface that stands for a tunnel identifier. Any
  // 64-bit value is kept as given; checking it is the tunnel layer's business.
  static IntfId fromTunnelIdValue(uint64_t value) { return IntfId(IntfKind::dynamicTunnel, value); }
  // One of the texts above; throws Zent::ParseError.
  explicit IntfId(std::string_view text);
  IntfId(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  IntfKind kind() const { return kind_; }
  bool isNull() const { return kind_ == IntfKind::null; }
  bool isEthernet() const { return kind_ == IntfKind::ethernet; }
  bool isTunnel() const { return kind_ == IntfKind::tunnel; }
  bool isDynamicTunnel() const { return kind_ == IntfKind::dynamicTunnel; }
  // Port number of an Ethernet or tunnel interface; 0 for the other kinds.
  uint32_t port() const { return isEthernet() || isTunnel() ? numberLo_ : 0; }
  // The tunnel identifier value of a dynamic tunnel interface. Asking another
  // kind is a programming error.
  uint64_t tunnelIdValue() const;

  // Checks a record written elsewhere: known kind, zero spare bytes, a number
  // that fits the kind.
  bool wellFormed() const;

  friend bool operator==(IntfId const&, IntfId const&) = default;
  // By kind (null, Ethernet, tunnel, dynamic tunnel), then by number.
  friend std::strong_ordering operator<=>(IntfId const& a, IntfId const& b) {
    if (auto c = a.kind_ <=> b.kind_; c != 0) return c;
    return a.number() <=> b.number();
  }
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }

  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, IntfId const& i) {
    return os << i.stringValue();
  }
  // False only for the null interface.
  explicit operator bool() const { return !isNull(); }

 private:
  IntfId(IntfKind kind, uint64_t number)
      : kind_(kind),
        numberLo_(static_cast<uint32_t>(number)),
        numberHi_(static_cast<uint32_t>(number >> 32)) {}
  uint64_t number() const { return uint64_t{numberHi_} << 32 | numberLo_; }
  void parse(std::string_view text);

  IntfKind kind_ = IntfKind::null;
  uint8_t reserved_[3] = {};
  uint32_t spare_ = 0;
  uint32_t numberLo_ = 0;
  uint32_t numberHi_ = 0;
};

static_assert(sizeof(IntfId) == IntfId::kRecordSize);
static_assert(std::is_trivially_copyable_v<IntfId>);
static_assert(std::is_standard_layout_v<IntfId>);

}  // namespace Vorn
