#pragma once
// TunnelId names every tunnel: the TunnelType in bits 44-48 and a per-type
// index below. It is the key of every tunnel table, of the RIB and the FIB,
// so it stays a plain 8-byte value with inline accessors.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>

#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel::TunnelTable {

using Zent::valueToStrep;

class TunnelId {
 public:
  static constexpr uint64_t minValue = 0;
  static constexpr uint64_t maxValue = 0x1ffffffffffff;  // 2^49 - 1
  static constexpr unsigned kTypeShift = 44;
  static constexpr uint64_t kIndexMask = 0x7ffffffffff;        // bits 0-42
  static constexpr uint64_t kFlexAlgoIndexMask = 0x7ffffffff;  // bits 0-34

  constexpr TunnelId() = default;
  // Throws Zent::RangeException above maxValue.
  explicit TunnelId(uint64_t value) : value_(checked(value)) {}
  // The identifier of tunnel `index` of `type`.
  TunnelId(TunnelType type, uint64_t index) : TunnelId(convertToTunnelValue(type, index)) {}
  // A type alone is not a value: it would convert to a number.
  explicit TunnelId(TunnelType) = delete;
  // Parses the canonical text: the number, decimal or 0x hexadecimal.
  TunnelId(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  constexpr uint64_t value() const { return value_; }
  // Throws Zent::RangeException above maxValue and keeps the old value.
  void valueIs(uint64_t value) { value_ = checked(value); }

  // No mask after the shift: the range check already bounds it to five bits.
  constexpr TunnelType tunnelType() const { return static_cast<TunnelType>(value_ >> kTypeShift); }
  // Deliberately narrower for isisFlexAlgoTunnel: bits 35-42 of its identifier
  // belong to the identifier but are not shown as its index.
  constexpr uint64_t tunnelIndex() const {
    return value_ & (tunnelType() == isisFlexAlgoTunnel ? kFlexAlgoIndexMask : kIndexMask);
  }

  // The caller passes an index that fits its type; the result still goes
  // through the range check when it becomes a TunnelId.
  static constexpr uint64_t convertToTunnelValue(TunnelType type, uint64_t index) {
    return (uint64_t{type} << kTypeShift) | index;
  }
  // Display name of a tunnel type. `keyword` false gives the name used in show
  // output and dumps ("IS-IS SR"); true gives the lower-case, hyphenated
  // command-line keyword ("isis-sr"). Types without a publisher show "Unknown".
  static std::string tunnelTypeToCliStrep(TunnelType type, bool keyword);
  std::string typeCliStr() const { return tunnelTypeToCliStrep(tunnelType(), false); }

  // Every process hashes keys of shared-memory tables, so this must stay the
  // byte hash of the 8 bytes of value.
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashU64(value_, seed); }
  std::string stringValue() const { return std::to_string(value_); }
  explicit constexpr operator bool() const { return value_ != 0; }

  friend constexpr bool operator==(TunnelId, TunnelId) = default;
  friend constexpr auto operator<=>(TunnelId, TunnelId) = default;
  friend std::ostream& operator<<(std::ostream& os, TunnelId id) { return os << id.stringValue(); }

 private:
  static uint64_t checked(uint64_t value) {
    // The rule is stated on the upper word: anything above 0x1ffff there is out.
    if ((value >> 32) > (maxValue >> 32)) [[unlikely]]
      throwValueRange();
    return value;
  }
  [[noreturn]] static void throwValueRange();

  uint64_t value_ = 0;
};

static_assert(sizeof(TunnelId) == 8);
static_assert(std::is_trivially_copyable_v<TunnelId>);
static_assert(std::is_standard_layout_v<TunnelId>);

}  // namespace Tunnel::TunnelTable
