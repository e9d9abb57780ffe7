#pragma once
// Small values that tunnel table entries are made of: the tunnel's bandwidth,
// the FIB's sequence number, whether a BGP-LU tunnel goes into the tunnel RIB,
// and an optional u32 (the RSVP LER color). Each is its own fixed record.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"

namespace Tunnel {

// Sequence number of a FIB entry's content, 16 bits wide, rendered as its
// number. The FIB's writer decides when it advances; this type only carries it.
class TunnelEntrySequenceNumber {
 public:
  constexpr TunnelEntrySequenceNumber() = default;
  // Implicit: every u16 is a valid sequence number.
  constexpr TunnelEntrySequenceNumber(uint16_t value)  // NOLINT(google-explicit-constructor)
      : value_(value) {}
  TunnelEntrySequenceNumber(Zent::String::IteratorConst& it,
                            Zent::String::IteratorConst const& end);

  constexpr uint16_t value() const { return value_; }
  void valueIs(uint16_t value) { value_ = value; }
  constexpr bool wellFormed() const { return true; }

  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&value_, sizeof value_, seed); }
  std::string stringValue() const { return std::to_string(value_); }
  explicit constexpr operator bool() const { return value_ != 0; }

  friend constexpr bool operator==(TunnelEntrySequenceNumber, TunnelEntrySequenceNumber) = default;
  friend constexpr auto operator<=>(TunnelEntrySequenceNumber, TunnelEntrySequenceNumber) = default;
  friend std::ostream& operator<<(std::ostream& os, TunnelEntrySequenceNumber n) {
    return os << n.stringValue();
  }

 private:
  uint16_t value_ = 0;
};

static_assert(sizeof(TunnelEntrySequenceNumber) == 2);
static_assert(std::is_trivially_copyable_v<TunnelEntrySequenceNumber>);

}  // namespace Tunnel

namespace Tunnel::TunnelTable {

using Zent::valueToStrep;

// Bandwidth of a tunnel in the unit its producer uses; the RIB only compares
// and adds bandwidths of one producer. Rendered as its number. Record: 4 bytes.
class TunnelBandwidth {
 public:
  constexpr TunnelBandwidth() = default;
  // Implicit: every u32 is a valid bandwidth.
  constexpr TunnelBandwidth(uint32_t value)
      : value_(value) {}  // NOLINT(google-explicit-constructor)
  TunnelBandwidth(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  constexpr uint32_t value() const { return value_; }
  void valueIs(uint32_t value) { value_ = value; }
  constexpr bool wellFormed() const { return true; }

  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&value_, sizeof value_, seed); }
  std::string stringValue() const { return std::to_string(value_); }
  explicit constexpr operator bool() const { return value_ != 0; }

  friend constexpr bool operator==(TunnelBandwidth, TunnelBandwidth) = default;
  friend constexpr auto operator<=>(TunnelBandwidth, TunnelBandwidth) = default;
  friend std::ostream& operator<<(std::ostream& os, TunnelBandwidth b) {
    return os << b.stringValue();
  }

 private:
  uint32_t value_ = 0;
};

static_assert(sizeof(TunnelBandwidth) == 4);
static_assert(std::is_trivially_copyable_v<TunnelBandwidth>);
static_assert(std::is_standard_layout_v<TunnelBandwidth>);

// Whether a BGP-LU tunnel is offered to the tunnel RIB, as its producer
// decided. Rendered as the enumerator's name. Record: the code as 4 bytes.
class ContributionToTunnelRIB {
 public:
  enum Code : uint32_t {
    // The producer states nothing; the RIB's writer applies its own default.
    none = 0,
    // A candidate for the tunnel RIB.
    contributes = 1,
    // Kept in the protocol table but out of the RIB.
    doesNotContribute = 2,
  };
  static constexpr Code kLastCode = doesNotContribute;

  constexpr ContributionToTunnelRIB() = default;
  // Implicit: call sites write the enumerator, ContributionToTunnelRIB::contributes.
  constexpr ContributionToTunnelRIB(Code code)
      : code_(code) {}  // NOLINT(google-explicit-constructor)
  // Parses an enumerator's name; throws Zent::ParseError on any other text.
  ContributionToTunnelRIB(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  constexpr Code code() const { return code_; }
  void codeIs(Code code) { code_ = code; }
  // A record read from another process holds a known code.
  constexpr bool wellFormed() const { return static_cast<uint32_t>(code_) <= kLastCode; }

  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&code_, sizeof code_, seed); }
  // The enumerator's name; "invalidContribution" for a code with none.
  std::string stringValue() const;
  explicit constexpr operator bool() const { return code_ != none; }

  friend constexpr bool operator==(ContributionToTunnelRIB, ContributionToTunnelRIB) = default;
  friend std::ostream& operator<<(std::ostream& os, ContributionToTunnelRIB c) {
    return os << c.stringValue();
  }

 private:
  Code code_ = none;
};

static_assert(sizeof(ContributionToTunnelRIB) == 4);
static_assert(std::is_trivially_copyable_v<ContributionToTunnelRIB>);
static_assert(std::is_standard_layout_v<ContributionToTunnelRIB>);

// The state of a TristateU32. Zero is unset so that a zeroed record is the
// default value.
enum class TristateState : uint8_t {
  unset = 0,    // nothing said yet
  set = 1,      // the value holds
  cleared = 2,  // explicitly no value, which a consumer must not take for "not known yet"
};
std::string_view stringValue(TristateState state);
bool sequenceToValue(std::string_view text, TristateState& state);
std::ostream& operator<<(std::ostream& os, TristateState state);

// An unsigned 32-bit value with a state saying whether it is set. Both start
// at zero. Record layout (8 bytes): value (4 bytes), state (1 byte), 3 zero
// bytes. The value is kept as given in every state; equality compares both.
class TristateU32 {
 public:
  TristateU32() = default;
  TristateU32(uint32_t value, TristateState state) : value_(value), state_(state) {}
  // Parses the canonical text; throws Zent::ParseError on any other text.
  TristateU32(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  uint32_t value() const { return value_; }
  TristateState state() const { return state_; }
  bool isSet() const { return state_ == TristateState::set; }
  // Sets the value and marks it set.
  void valueIs(uint32_t value) {
    value_ = value;
    state_ = TristateState::set;
  }
  // Marks the value explicitly absent; the value becomes 0.
  void valueDel() {
    value_ = 0;
    state_ = TristateState::cleared;
  }

  bool wellFormed() const;

  friend bool operator==(TristateU32 const&, TristateU32 const&) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(this, sizeof(*this), seed); }

  // "Value('Tunnel::TunnelTable::TristateU32', ** {'value': 7, 'state': set})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TristateU32 const& t) {
    return os << t.stringValue();
  }
  explicit operator bool() const { return *this != TristateU32(); }

 private:
  uint32_t value_ = 0;
  TristateState state_ = TristateState::unset;
  uint8_t reserved_[3] = {};
};

static_assert(sizeof(TristateU32) == 8);
static_assert(std::is_trivially_copyable_v<TristateU32>);
static_assert(std::is_standard_layout_v<TristateU32>);

}  // namespace Tunnel::TunnelTable
