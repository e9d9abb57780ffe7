#pragma once
// TunnelFibEntry: one tunnel installed for forwarding, with its primary and
// backup vias. A flat value of fixed size, so that it moves into and out of a
// shared-memory slot without allocation; copies touch only the vias in use.

#include <cstdint>
#include <ostream>
#include <string>

#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/TunnelVia.h"
#include "Tunnel/framework/PodArray.h"
#include "Tunnel/framework/String.h"

namespace Tunnel::TunnelFib {

using TunnelTable::TunnelId;
using TunnelTable::TunnelVia;

// What the producer tells the forwarding side about the entry's vias.
class TunnelFlags {
 public:
  static constexpr uint8_t kBurnPrimaryVias = 1;
  static constexpr uint8_t kViasOrdered = 2;
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::TunnelFlags";

  constexpr TunnelFlags() = default;
  // A byte with a bit above viasOrdered set throws Zent::RangeException.
  explicit TunnelFlags(uint8_t raw);
  TunnelFlags(bool burnPrimaryVias, bool viasOrdered)
      : value_(static_cast<uint8_t>((burnPrimaryVias ? kBurnPrimaryVias : 0) |
                                    (viasOrdered ? kViasOrdered : 0))) {}

  uint8_t value() const { return value_; }
  bool burnPrimaryVias() const { return (value_ & kBurnPrimaryVias) != 0; }
  void burnPrimaryViasIs(bool on) { bitIs(kBurnPrimaryVias, on); }
  bool viasOrdered() const { return (value_ & kViasOrdered) != 0; }
  void viasOrderedIs(bool on) { bitIs(kViasOrdered, on); }
  // A byte read from another process's record.
  bool wellFormed() const { return value_ < 4; }

  friend constexpr bool operator==(TunnelFlags, TunnelFlags) = default;
  uint32_t hash(uint32_t seed = 0) const { return Zent::hashBytes(&value_, 1, seed); }
  // "Value('Tunnel::TunnelFib::TunnelFlags', ** {'burnPrimaryVias': ..., 'viasOrdered': ...})"
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelFlags f) { return os << f.stringValue(); }
  explicit operator bool() const { return value_ != 0; }

 private:
  void bitIs(uint8_t bit, bool on) {
    value_ = static_cast<uint8_t>(on ? value_ | bit : value_ & ~bit);
  }
  uint8_t value_ = 0;
};

struct TunnelViaIndexTraits {
  using Rep = uint16_t;
  static constexpr Rep min = 0, max = 599, defaultValue = 0;
  static constexpr const char* typeName = "Tunnel::TunnelFib::TunnelViaIndex";
};
// An index into the via arrays of a FIB entry.
using TunnelViaIndex = TunnelTable::BoundedIndex<TunnelViaIndexTraits>;
using TunnelViaArray = Zent::PodArray<TunnelVia, TunnelViaIndex, 600, 0>;

// Record (24 + 40(n + m) bytes, byte-packed, native order):
//   0 tunnelId u64, 8 arePrimaryViasUsable u8 (0 or 1), 9 flags u8 (< 4),
//  10 resetFailoverState u8, 11 zero, 12 seqNo u16, 14 two zero bytes,
//  16 tunnelVia count u32 and n TunnelVia records, then the backupTunnelVia
//  count u32 and m records.
class TunnelFibEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelFib::TunnelFibEntry";
  static constexpr uint32_t kFixedLen = 16;
  static constexpr uint32_t kMaxSerializedLen =
      kFixedLen + 2 * (4 + TunnelViaArray::capacity * TunnelVia::kRecordSize);

  TunnelFibEntry() = default;
  explicit TunnelFibEntry(TunnelId tunnelId) : tunnelId_(tunnelId) {}
  // Entries hold arrays, whose text is not read back: asserts.
  TunnelFibEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);
  // Only the vias in use are copied.
  TunnelFibEntry(TunnelFibEntry const&) = default;
  TunnelFibEntry& operator=(TunnelFibEntry const&) = default;

  TunnelId tunnelId() const { return tunnelId_; }
  TunnelId key() const { return tunnelId_; }
  bool arePrimaryViasUsable() const { return arePrimaryViasUsable_; }
  void arePrimaryViasUsableIs(bool v) { arePrimaryViasUsable_ = v; }
  TunnelFlags flags() const { return flags_; }
  void flagsIs(TunnelFlags f) { flags_ = f; }
  uint8_t resetFailoverState() const { return resetFailoverState_; }
  void resetFailoverStateIs(uint8_t v) { resetFailoverState_ = v; }
  TunnelEntrySequenceNumber seqNo() const { return seqNo_; }
  void seqNoIs(TunnelEntrySequenceNumber v) { seqNo_ = v; }

  // Primary vias. Setting at or past the count makes the count index + 1,
  // with default vias in any gap; an index of 600 or more throws the
  // TunnelViaIndex range exception.
  TunnelViaArray const& tunnelVia() const { return tunnelVia_; }
  TunnelVia tunnelVia(TunnelViaIndex i) const { return tunnelVia_.member(i); }
  uint32_t tunnelViaCount() const { return tunnelVia_.count(); }
  void tunnelViaIs(TunnelViaIndex i, TunnelVia const& v) { tunnelVia_.memberIs(i, v); }
  void tunnelViaDel(TunnelViaIndex i) { tunnelVia_._memberDel(i); }
  void tunnelViaDelAll() { tunnelVia_.clear(); }
  // Backup vias, used when the primary ones are not usable.
  TunnelViaArray const& backupTunnelVia() const { return backupTunnelVia_; }
  TunnelVia backupTunnelVia(TunnelViaIndex i) const { return backupTunnelVia_.member(i); }
  uint32_t backupTunnelViaCount() const { return backupTunnelVia_.count(); }
  void backupTunnelViaIs(TunnelViaIndex i, TunnelVia const& v) { backupTunnelVia_.memberIs(i, v); }
  void backupTunnelViaDel(TunnelViaIndex i) { backupTunnelVia_._memberDel(i); }
  void backupTunnelViaDelAll() { backupTunnelVia_.clear(); }

  friend bool operator==(TunnelFibEntry const& a, TunnelFibEntry const& b);
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelFibEntry const& e) {
    return os << e.stringValue();
  }
  // The table's debug text: the id, the usable flag and both via lists.
  std::string tamselString() const;
  explicit operator bool() const { return *this != TunnelFibEntry(); }

  uint32_t serializeLen() const {
    return kFixedLen + 8 + TunnelVia::kRecordSize * (tunnelVia_.count() + backupTunnelVia_.count());
  }
  void serialize(void* buf) const;
  // Reads a record; an invalid one throws TunnelTable::RecordError.
  void deserialize(void const* buf, unsigned len);
  // 0 for an invalid record, else kMaxSerializedLen: the table sizes every
  // FIB slot for the largest entry.
  uint32_t deserializeLen(void const* buf, unsigned len) const;

 private:
  TunnelId tunnelId_;
  bool arePrimaryViasUsable_ = true;
  TunnelFlags flags_;
  uint8_t resetFailoverState_ = 0;
  TunnelEntrySequenceNumber seqNo_;
  TunnelViaArray tunnelVia_;
  TunnelViaArray backupTunnelVia_;
};

}  // namespace Tunnel::TunnelFib
