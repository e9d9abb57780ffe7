#pragma once
// Bounded indexes of the fixed-capacity arrays inside entries. Each is a
// range-checked integer (construction, assignment and arithmetic throw
// Zent::RangeException naming the type and its bounds) with the value-type
// operations, rendered as its number alone.

#include <compare>
#include <concepts>
#include <cstdint>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>

#include "Tunnel/TunnelTableKeepdbTypes/NumberText.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/String.h"

namespace Tunnel::TunnelTable {

// Traits as for Zent::RangedInt. Other modules declare their own index types
// (a different name and bounds) on this template.
template <typename Traits>
class BoundedIndex : public Zent::RangedInt<Traits> {
  using Base = Zent::RangedInt<Traits>;

 public:
  using Rep = typename Base::Rep;
  using Base::Base;

  constexpr BoundedIndex() = default;
  // Arithmetic of the base yields a Base; take it back.
  BoundedIndex(Base b) : Base(b) {}  // NOLINT(google-explicit-constructor)
  // Parses the number; bad text throws Zent::ParseError, a number out of
  // range Zent::RangeException. `it` moves to `end` only on success.
  BoundedIndex(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end)
      : Base(parsed(it, end)) {}

  uint32_t hash(uint32_t seed = 0) const {
    Rep v = this->value();
    return Zent::hashBytes(&v, sizeof v, seed);
  }
  std::string stringValue() const { return std::to_string(this->value()); }
  explicit operator bool() const { return this->value() != Traits::defaultValue; }

  // Mixed with plain integers. Zent::RangedInt's own operators are ambiguous
  // against the built-in ones reached through its conversion to Rep; an exact
  // match on both operands settles it. Arithmetic stays range-checked.
  template <std::integral I>
  friend BoundedIndex operator+(BoundedIndex a, I d) {
    return d < 0 ? Base(a) - magnitude(d) : Base(a) + magnitude(d);
  }
  template <std::integral I>
  friend BoundedIndex operator-(BoundedIndex a, I d) {
    return d < 0 ? Base(a) + magnitude(d) : Base(a) - magnitude(d);
  }
  template <std::integral I>
  friend bool operator==(BoundedIndex a, I b) {
    return std::cmp_equal(a.value(), b);
  }
  template <std::integral I>
  friend std::strong_ordering operator<=>(BoundedIndex a, I b) {
    if (std::cmp_less(a.value(), b)) return std::strong_ordering::less;
    return std::cmp_equal(a.value(), b) ? std::strong_ordering::equal
                                        : std::strong_ordering::greater;
  }

  friend std::ostream& operator<<(std::ostream& os, BoundedIndex i) {
    return os << i.stringValue();
  }

 private:
  // |d| without overflow, also for the most negative value.
  template <std::integral I>
  static uint64_t magnitude(I d) {
    auto const u = static_cast<uint64_t>(d);
    return d < 0 ? uint64_t{0} - u : u;
  }
  static uint64_t parsed(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end) {
    Zent::String::IteratorConst pos = it;
    uint64_t v = parseNumberText<uint64_t>(pos, end, Traits::typeName);
    Base checked(v);
    it = pos;
    return checked.value();
  }
};

struct ViaIndexTraits {
  using Rep = uint16_t;
  static constexpr Rep min = 0, max = 599, defaultValue = 0;
  static constexpr const char* typeName = "Tunnel::TunnelTable::ViaIndex";
};
struct TunnelIdCollIndexTraits {
  using Rep = uint16_t;
  static constexpr Rep min = 0, max = 599, defaultValue = 0;
  static constexpr const char* typeName = "Tunnel::TunnelTable::TunnelIdCollIndex";
};
struct TepIndexTraits {
  using Rep = uint8_t;
  static constexpr Rep min = 0, max = 15, defaultValue = 0;
  static constexpr const char* typeName = "Tunnel::TunnelTable::TepIndex";
};
struct NameIndexTraits {
  using Rep = uint8_t;
  static constexpr Rep min = 0, max = 127, defaultValue = 0;
  static constexpr const char* typeName = "Tunnel::TunnelTable::NameIndex";
};

// The vias of an entry (capacity 600).
using ViaIndex = BoundedIndex<ViaIndexTraits>;
// Tunnel identifiers and bandwidths of a RIB entry (capacity 600).
using TunnelIdCollIndex = BoundedIndex<TunnelIdCollIndexTraits>;
// Endpoint prefixes of an entry (capacity 16).
using TepIndex = BoundedIndex<TepIndexTraits>;
// Bytes of an entry's name (capacity 128).
using NameIndex = BoundedIndex<NameIndexTraits>;

}  // namespace Tunnel::TunnelTable
