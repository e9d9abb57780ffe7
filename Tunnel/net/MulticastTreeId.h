#pragma once
// Routing::Multicast::MulticastTreeId: the name of a multicast distribution
// tree. Multicast tunnel entries live in shared-memory records, so the name
// is held inline with a fixed capacity rather than as a shared string.

#include <compare>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/String.h"

namespace Routing::Multicast {

// Text: the name quoted as the framework quotes strings ('tree-1'), so that
// names with blanks or commas survive inside other values' texts.
//
// Fixed record (64 bytes): name length (1 byte), then 63 bytes of name, zero
// past the length. Variable record (serialize): the length byte, then the name.
// The default value is the empty name.
class MulticastTreeId {
 public:
  static constexpr uint32_t kMaxNameLen = 63;
  static constexpr uint32_t kRecordSize = 1 + kMaxNameLen;

  MulticastTreeId() = default;
  // A name longer than 63 bytes throws Zent::RangeException.
  explicit MulticastTreeId(std::string_view name);
  // Throws Zent::ParseError when the text is not a quoted name.
  MulticastTreeId(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  std::string_view name() const { return {name_, len_}; }
  bool empty() const { return len_ == 0; }

  // Checks a fixed record written elsewhere: length within capacity, zero past it.
  bool wellFormed() const;

  friend bool operator==(MulticastTreeId const& a, MulticastTreeId const& b) {
    return a.name() == b.name();
  }
  friend std::strong_ordering operator<=>(MulticastTreeId const& a, MulticastTreeId const& b) {
    return a.name() <=> b.name();
  }
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(name_, len_, seed); }

  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, MulticastTreeId const& t) {
    return os << t.stringValue();
  }
  // False only for the empty name.
  explicit operator bool() const { return len_ != 0; }

  uint32_t serializeLen() const { return 1 + len_; }
  void serialize(void* buffer) const;
  // The record's length, or 0 when `length` bytes hold no valid record.
  static uint32_t recordLen(void const* buffer, unsigned length);
  uint32_t deserializeLen(void const* buffer, unsigned length) const {
    return recordLen(buffer, length);
  }
  // An invalid record throws Zent::RangeException and leaves the value unchanged.
  void deserialize(void const* buffer, unsigned length);

 private:
  void nameIs(std::string_view name);

  uint8_t len_ = 0;
  char name_[kMaxNameLen] = {};
};

static_assert(sizeof(MulticastTreeId) == MulticastTreeId::kRecordSize);
static_assert(std::is_trivially_copyable_v<MulticastTreeId>);
static_assert(std::is_standard_layout_v<MulticastTreeId>);

}  // namespace Routing::Multicast
