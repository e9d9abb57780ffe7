#pragma once
// TunnelTableEntry: the base of every protocol tunnel table entry (key,
// preference, metric, bandwidth, endpoints, name), with the pieces its derived
// entries build their canonical text, dump and shared-memory record from.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <type_traits>

#include "Tunnel/TunnelTable/DumpContext.h"
#include "Tunnel/TunnelTable/EntryFields.h"
#include "Tunnel/TunnelTable/Indexes.h"
#include "Tunnel/TunnelTable/MplsVia.h"
#include "Tunnel/TunnelTable/Prefs.h"
#include "Tunnel/TunnelTable/RecordIo.h"
#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTable/Via.h"
#include "Tunnel/framework/Dabin.h"
#include "Tunnel/framework/Hash.h"
#include "Tunnel/framework/PodArray.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/framework/Text.h"
#include "Tunnel/net/IpGenPrefix.h"

// The text constructor of an entry type. Entries hold arrays, whose text form
// is not read back, so building one from text is a programming error.
#define TUNNEL_ENTRY_NO_STRING_CONSTRUCTOR(Type)                                               \
  ::Dabin::assertFailed("\"No String constructor for " #Type " - has collection\" == nullptr", \
                        __FILE__, __func__, __LINE__)

namespace Tunnel::TunnelTable {

using Zent::valueToStrep;

using EndpointArray = Zent::PodArray<Vorn::IpGenPrefix, TepIndex, 16, 0>;
using NameArray = Zent::PodArray<uint8_t, NameIndex, 128, 0>;
using ViaArray = Zent::PodArray<Via, ViaIndex, 600, 0>;
using MplsViaArray = Zent::PodArray<MplsVia, ViaIndex, 600, 0>;

// Entries are plain values with no virtual functions: tables hold one concrete
// entry type each. A derived entry hides the base's text, hash, equality, dump
// and record operations with its own, which FieldWalk (FieldList.h) builds
// from its field list and the protected pieces below.
//
// Base record (552 bytes, byte-packed, native order):
//   0 tunnelId u64, 8 nexthopTunnelId u64, 16 entryPref u8, 17 entryMetric u32,
//   21 tunnelBw u32, 25 viasOrdered u8 (0 or 1), 26 endpoint count u8 (<= 16),
//   27 16 IpGenPrefix records of 24 bytes (unused ones zero), 411 name count
//   u8 (<= 128), 412 128 name bytes (unused ones zero), 540 12 zero bytes.
class TunnelTableEntry {
  // Builds every derived entry's operations on the protected pieces below.
  friend class FieldWalk;

 public:
  static constexpr uint32_t kBaseRecordLen = 552;
  static constexpr uint32_t kMaxSerializedLen = kBaseRecordLen;
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::TunnelTableEntry";

  // entryPref 255: the base alone has no protocol default.
  TunnelTableEntry() : TunnelTableEntry(TunnelId()) {}
  explicit TunnelTableEntry(TunnelId tunnelId,
                            TunnelEntryPref entryPref = TunnelEntryPref::kNoPreference)
      : tunnelId_(tunnelId), entryPref_(entryPref) {}
  TunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  // The table's key.
  TunnelId key() const { return tunnelId_; }
  TunnelId tunnelId() const { return tunnelId_; }
  void tunnelIdIs(TunnelId v) { tunnelId_ = v; }
  TunnelId nexthopTunnelId() const { return nexthopTunnelId_; }
  void nexthopTunnelIdIs(TunnelId v) { nexthopTunnelId_ = v; }
  TunnelEntryPref entryPref() const { return entryPref_; }
  void entryPrefIs(TunnelEntryPref v) { entryPref_ = v; }
  uint32_t entryMetric() const { return entryMetric_; }
  void entryMetricIs(uint32_t v) { entryMetric_ = v; }
  TunnelBandwidth tunnelBw() const { return tunnelBw_; }
  void tunnelBwIs(TunnelBandwidth v) { tunnelBw_ = v; }
  bool viasOrdered() const { return viasOrdered_; }
  void viasOrderedIs(bool v) { viasOrdered_ = v; }

  EndpointArray const& endpoint() const { return endpoint_; }
  // The default prefix past the end.
  Vorn::IpGenPrefix endpoint(TepIndex i) const { return endpoint_.member(i); }
  // Setting past the end fills the gap with default prefixes.
  void endpointIs(TepIndex i, Vorn::IpGenPrefix const& v) { endpoint_.memberIs(i, v); }
  // Later endpoints move down one place.
  void endpointDel(TepIndex i) { endpoint_._memberDel(i); }
  void endpointDel(EndpointArray::IteratorConst const& it) { endpoint_._memberDel(it.key()); }
  void endpointDelAll() { endpoint_.clear(); }
  // The endpoint prefix that identifies the tunnel: endpoint 0, or the default
  // prefix 0.0.0.0/0 when the entry has no endpoint.
  Vorn::IpGenPrefix tep() const { return endpoint_.member(0); }

  // The name as the protocol gives it, byte by byte.
  NameArray const& name() const { return name_; }
  uint8_t name(NameIndex i) const { return name_.member(i); }
  void nameIs(NameIndex i, uint8_t v) { name_.memberIs(i, v); }
  void nameDel(NameIndex i) { name_._memberDel(i); }
  void nameDel(NameArray::IteratorConst const& it) { name_._memberDel(it.key()); }
  void nameDelAll() { name_.clear(); }
  // The whole name at once. More than 128 bytes throws the NameIndex range
  // exception and leaves the name unchanged.
  void nameIs(std::string_view text);
  std::string nameText() const {
    return std::string(reinterpret_cast<char const*>(name_.data()), name_.count());
  }

  friend bool operator==(TunnelTableEntry const& a, TunnelTableEntry const& b);
  uint32_t hash(uint32_t seed = 0) const { return hashBase(seed); }
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelTableEntry const& e) {
    return os << e.stringValue();
  }
  explicit operator bool() const { return *this != TunnelTableEntry(); }

  // The TunnelId and tep lines.
  void dumpState(DumpContext* ctx, int indent) const { dumpBase(ctx, indent); }

  void serialize(void* buf) const;
  uint32_t serializeLen() const { return kBaseRecordLen; }
  // Assumes deserializeLen accepted the buffer: a short buffer or a bad scalar
  // throws RecordError and a count over an array's capacity the range
  // exception (the entry may then be partly overwritten, never past an array's
  // end), but array elements and fill bytes are copied or skipped unchecked.
  void deserialize(void const* buf, unsigned len);
  // The record's length, or 0 when [buf, buf + len) holds no valid record.
  // Reads nothing outside that range.
  uint32_t deserializeLen(void const* buf, unsigned len) const;

 protected:
  // Appends the base fields, in order, to a text the derived type opened with
  // its own name.
  void appendBaseText(Zent::ValueText& text) const;
  uint32_t hashBase(uint32_t seed) const;

  // Dump lines shared by the family. dumpBase writes the TunnelId and tep lines.
  void dumpBase(DumpContext* ctx, int indent) const;
  void dumpTunnelIdLine(DumpContext* ctx, int indent) const;
  void dumpNextHopTunnelIdLine(DumpContext* ctx, int indent) const;
  void dumpTepLine(DumpContext* ctx, int indent) const;
  // "Vias #<count> " (or another title), then each via's dump line.
  template <typename Array>
  static void dumpVias(DumpContext* ctx, int indent, Array const& vias,
                       std::string_view title = "Vias") {
    dumpf(ctx, indent, "{} #{} \n", title, vias.count());
    for (auto const& v : vias) dumpLine(ctx, indent, v.dumpLine());
  }

  // The 552-byte base record. deserializeLenBase validates it and returns 552,
  // or 0 (with `r` failed) when it is invalid. deserializeBase<true> reads
  // and validates it in one pass: `r` fails where deserializeLenBase would.
  void serializeBase(RecordWriter& w) const;
  static uint32_t deserializeLenBase(RecordReader& r);
  template <bool kChecked = false>
  void deserializeBase(RecordReader& r);

  // Hashes fields in order: arithmetic ones by their bytes, others by hash().
  template <typename... Fields>
  static uint32_t hashFields(uint32_t seed, Fields const&... fields) {
    ((seed = hashField(seed, fields)), ...);
    return seed;
  }

 private:
  template <typename F>
  static uint32_t hashField(uint32_t seed, F const& f) {
    if constexpr (std::is_arithmetic_v<F>) {
      return Zent::hashBytes(&f, sizeof f, seed);
    } else {
      return f.hash(seed);
    }
  }

  TunnelId tunnelId_;
  TunnelId nexthopTunnelId_;
  TunnelEntryPref entryPref_;
  uint32_t entryMetric_ = 0;
  TunnelBandwidth tunnelBw_;
  bool viasOrdered_ = false;
  EndpointArray endpoint_;
  NameArray name_;
};

}  // namespace Tunnel::TunnelTable
