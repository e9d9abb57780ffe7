#pragma once
// The administrative preference of a tunnel table entry. Lower wins; 255 is
// what a tunnel type without a protocol default gets (getDefaultPrefForType).

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"

namespace Tunnel::TunnelTable {

class TunnelEntryPref {
 public:
  static constexpr uint8_t kNoPreference = 255;

  // Default 0 like every framework value; "no preference" is the explicit 255.
  constexpr TunnelEntryPref() = default;
  // Implicit: every u8 is a valid preference, and entries set it from numbers.
  constexpr TunnelEntryPref(uint8_t value)
      : value_(value) {}  // NOLINT(google-explicit-constructor)
  TunnelEntryPref(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  constexpr uint8_t value() const { return value_; }
  void valueIs(uint8_t value) { value_ = value; }

  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&value_, sizeof value_, seed); }
  std::string stringValue() const { return std::to_string(value_); }
  explicit constexpr operator bool() const { return value_ != 0; }

  friend constexpr bool operator==(TunnelEntryPref, TunnelEntryPref) = default;
  friend constexpr auto operator<=>(TunnelEntryPref, TunnelEntryPref) = default;
  friend std::ostream& operator<<(std::ostream& os, TunnelEntryPref p) {
    return os << p.stringValue();
  }

 private:
  uint8_t value_ = 0;
};

}  // namespace Tunnel::TunnelTable
