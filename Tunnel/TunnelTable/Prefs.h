#pragma once
// The preferences an entry carries: TunnelEntryPref (shared with the tunnel
// type definitions, which hand out per-type defaults) and the IGP preference
// of IGP-derived entries.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "Tunnel/TunnelTableKeepdbTypes/TunnelEntryPref.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"

namespace Tunnel::TunnelTable {

class TunnelIgpPref {
 public:
  static constexpr uint32_t defaultIgpPref = 0;
  static constexpr uint32_t defaultRsvpLerIgpPref = 45;
  // Two names for one number: callers say which meaning they rely on.
  static constexpr uint32_t invalidIgpPref = 0xffffffff;
  static constexpr uint32_t maxIgpPref = 0xffffffff;

  constexpr TunnelIgpPref() = default;
  // Implicit: every u32 is valid, and the named constants are plain numbers.
  constexpr TunnelIgpPref(uint32_t value) : value_(value) {}  // NOLINT(google-explicit-constructor)
  TunnelIgpPref(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  constexpr uint32_t value() const { return value_; }
  void valueIs(uint32_t value) { value_ = value; }

  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&value_, sizeof value_, seed); }
  std::string stringValue() const { return std::to_string(value_); }
  explicit constexpr operator bool() const { return value_ != defaultIgpPref; }

  friend constexpr bool operator==(TunnelIgpPref, TunnelIgpPref) = default;
  friend constexpr auto operator<=>(TunnelIgpPref, TunnelIgpPref) = default;
  friend std::ostream& operator<<(std::ostream& os, TunnelIgpPref p) {
    return os << p.stringValue();
  }

 private:
  uint32_t value_ = defaultIgpPref;
};

}  // namespace Tunnel::TunnelTable
