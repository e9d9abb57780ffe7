#pragma once
// The entries of the multicast (point-to-multipoint) MPLS tunnel tables: the
// MLDP table, the static multicast table and the merged MPLS multicast table
// all hold MplsMulticastTunnelTableEntry values keyed by tunnel id. The MLDP
// and static types only name where a value came from; MldpTunnelRibEntry is
// the base fields alone.

#include <compare>
#include <cstdint>
#include <ostream>
#include <string>

#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/PodArray.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/net/MulticastTreeId.h"

namespace Tunnel::TunnelTable {

// Record: tunnelId (8 bytes), tunnelType (u32), the length of the variable
// part (u32, the fourth 32-bit word), then the variable part: the tree's name.
// The fourth word is the name's only length, so an unnamed tree takes no byte
// and 600 vias fill the tables' bound exactly.
class MulticastTunnelTableEntry {
 public:
  static constexpr uint32_t kFixedRecordLen = 16;
  static constexpr uint32_t kMaxRecordLen =
      kFixedRecordLen + Routing::Multicast::MulticastTreeId::kMaxNameLen;

  MulticastTunnelTableEntry() = default;
  MulticastTunnelTableEntry(TunnelId tunnelId, TunnelType tunnelType,
                            Routing::Multicast::MulticastTreeId const& mcastTreeId)
      : tunnelId_(tunnelId), tunnelType_(tunnelType), mcastTreeId_(mcastTreeId) {}

  TunnelId tunnelId() const { return tunnelId_; }
  void tunnelIdIs(TunnelId id) { tunnelId_ = id; }
  TunnelType tunnelType() const { return tunnelType_; }
  void tunnelTypeIs(TunnelType t) { tunnelType_ = t; }
  Routing::Multicast::MulticastTreeId const& mcastTreeId() const { return mcastTreeId_; }
  void mcastTreeIdIs(Routing::Multicast::MulticastTreeId const& t) { mcastTreeId_ = t; }

  friend bool operator==(MulticastTunnelTableEntry const&,
                         MulticastTunnelTableEntry const&) = default;
  // By tunnelId, tunnelType, then mcastTreeId.
  friend std::strong_ordering operator<=>(MulticastTunnelTableEntry const& a,
                                          MulticastTunnelTableEntry const& b);
  uint32_t hash(uint32_t seed = 0) const;

  uint32_t serializeLen() const {
    return kFixedRecordLen + static_cast<uint32_t>(mcastTreeId_.name().size());
  }
  void serialize(void* buffer) const;
  // The base record's length, or 0 when `length` bytes hold no valid one.
  static uint32_t baseRecordLen(void const* buffer, unsigned length);
  uint32_t deserializeLen(void const* buffer, unsigned length) const {
    return baseRecordLen(buffer, length);
  }
  // A record deserializeLen refuses throws RecordError and changes nothing.
  void deserialize(void const* buffer, unsigned length);

 protected:
  // The three base fields, as "tunnelId", "tunnelType" and "mcastTreeId".
  void appendBaseText(Zent::ValueText& text) const;
  // Reads the base fields of a parsed text form.
  void parseBaseText(Zent::ValueTextReader const& r, const char* typeName);

 private:
  TunnelId tunnelId_;
  TunnelType tunnelType_ = unknownTunnel;
  Routing::Multicast::MulticastTreeId mcastTreeId_;
};

using MplsViaArray = Zent::PodArray<MplsVia, ViaIndex, 600, 0>;

// Record: the base record, then the vias (u32 count, 108-byte MplsVia
// records): base + 4 + 108n. The tables take records of up to 64820 bytes,
// room for 600 vias with an unnamed tree; a larger record is refused whole.
class MplsMulticastTunnelTableEntry : public MulticastTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::MplsMulticastTunnelTableEntry";
  static constexpr uint32_t kTableBound = 64820;
  static constexpr uint32_t kMaxSerializedLen =
      kMaxRecordLen + 4 + MplsVia::kRecordSize * MplsViaArray::capacity;

  MplsMulticastTunnelTableEntry() = default;
  MplsMulticastTunnelTableEntry(TunnelId tunnelId,
                                Routing::Multicast::MulticastTreeId const& mcastTreeId)
      : MulticastTunnelTableEntry(tunnelId, unknownTunnel, mcastTreeId) {}
  MplsMulticastTunnelTableEntry(Zent::String::IteratorConst& it,
                                Zent::String::IteratorConst const& end);

  MplsViaArray const& via() const { return via_; }
  // The default via past the end.
  MplsVia via(ViaIndex i) const { return via_.member(i); }
  // Setting at or past the end makes the length i + 1.
  void viaIs(ViaIndex i, MplsVia const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDelAll() { via_.clear(); }

  friend bool operator==(MplsMulticastTunnelTableEntry const& a,
                         MplsMulticastTunnelTableEntry const& b) {
    return static_cast<MulticastTunnelTableEntry const&>(a) ==
               static_cast<MulticastTunnelTableEntry const&>(b) &&
           a.via_ == b.via_;
  }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const { return textAs(kTypeName); }
  friend std::ostream& operator<<(std::ostream& os, MplsMulticastTunnelTableEntry const& e) {
    return os << e.stringValue();
  }
  // True when any field differs from its default.
  explicit operator bool() const;

  uint32_t serializeLen() const {
    return MulticastTunnelTableEntry::serializeLen() + 4 + MplsVia::kRecordSize * via_.count();
  }
  void serialize(void* buffer) const;
  static uint32_t recordLen(void const* buffer, unsigned length);
  uint32_t deserializeLen(void const* buffer, unsigned length) const {
    return recordLen(buffer, length);
  }
  // A record deserializeLen refuses throws RecordError (a count above 600 the
  // range error) and changes nothing.
  void deserialize(void const* buffer, unsigned length);

 protected:
  MplsMulticastTunnelTableEntry(TunnelId tunnelId, TunnelType tunnelType)
      : MulticastTunnelTableEntry(tunnelId, tunnelType, {}) {}
  std::string textAs(const char* typeName) const;
  // Fails the assertion of a type with a collection, which has no text constructor.
  [[noreturn]] static void noStringConstructor(const char* assertion, const char* function);

 private:
  MplsViaArray via_;
};

// An entry as MLDP publishes it. It is empty (false) when it holds nothing
// but its tunnel id and the type mldpTunnel, the type it is built with.
class MldpTunnelTableEntry : public MplsMulticastTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::MldpTunnelTableEntry";

  MldpTunnelTableEntry() : MplsMulticastTunnelTableEntry(TunnelId(), mldpTunnel) {}
  explicit MldpTunnelTableEntry(TunnelId tunnelId, TunnelType tunnelType = mldpTunnel)
      : MplsMulticastTunnelTableEntry(tunnelId, tunnelType) {}
  MldpTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  std::string stringValue() const { return textAs(kTypeName); }
  friend std::ostream& operator<<(std::ostream& os, MldpTunnelTableEntry const& e) {
    return os << e.stringValue();
  }
  explicit operator bool() const;
};

// An entry as the static multicast configuration publishes it; it replaces
// the MLDP entry of the same tunnel id whole.
class StaticMcastTunnelTableEntry : public MplsMulticastTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::StaticMcastTunnelTableEntry";

  StaticMcastTunnelTableEntry() : MplsMulticastTunnelTableEntry(TunnelId(), staticMcastTunnel) {}
  explicit StaticMcastTunnelTableEntry(TunnelId tunnelId, TunnelType tunnelType = staticMcastTunnel)
      : MplsMulticastTunnelTableEntry(tunnelId, tunnelType) {}
  StaticMcastTunnelTableEntry(Zent::String::IteratorConst& it,
                              Zent::String::IteratorConst const& end);

  std::string stringValue() const { return textAs(kTypeName); }
  friend std::ostream& operator<<(std::ostream& os, StaticMcastTunnelTableEntry const& e) {
    return os << e.stringValue();
  }
  // Empty like an MLDP entry: nothing but its tunnel id and its own type.
  explicit operator bool() const;
};

// The base fields of a multicast tunnel, without vias. Parses from its text.
class MldpTunnelRibEntry : public MulticastTunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::MldpTunnelRibEntry";

  MldpTunnelRibEntry() : MulticastTunnelTableEntry(TunnelId(), mldpTunnel, {}) {}
  MldpTunnelRibEntry(TunnelId tunnelId, TunnelType tunnelType,
                     Routing::Multicast::MulticastTreeId const& mcastTreeId)
      : MulticastTunnelTableEntry(tunnelId, tunnelType, mcastTreeId) {}
  // Throws Zent::ParseError on any text but the canonical form.
  MldpTunnelRibEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, MldpTunnelRibEntry const& e) {
    return os << e.stringValue();
  }
  // False when it holds nothing but its tunnel id and the type mldpTunnel.
  explicit operator bool() const;
};

// Registers the multicast value types (idempotent).
void registerMulticastValueTypes();

}  // namespace Tunnel::TunnelTable
