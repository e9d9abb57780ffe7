#pragma once
// Entries of the interface tunnel tables (GRE, IPsec over GRE, IPsec VTI):
// the vias out of the tunnel interface, and the encapsulation information the
// forwarding side builds the outer header from.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>
#include <tuple>

#include "Tunnel/TunnelTable/FieldList.h"
#include "Tunnel/TunnelTable/TunnelInfo.h"
#include "Tunnel/TunnelTable/TunnelTableEntry.h"

namespace Tunnel::TunnelTable {

// Record: the 552-byte base record, then the via list (u32 count, 36-byte Via
// records). Derived entries put their tunnel information between the two.
class L3IntfTunnelTableEntry : public TunnelTableEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::L3IntfTunnelTableEntry";
  static constexpr uint32_t kMaxSerializedLen =
      kBaseRecordLen + 4 + Via::kRecordSize * ViaArray::capacity;  // 22156

  L3IntfTunnelTableEntry() : L3IntfTunnelTableEntry(TunnelId()) {}
  explicit L3IntfTunnelTableEntry(TunnelId tunnelId,
                                  TunnelEntryPref entryPref = TunnelEntryPref::kNoPreference)
      : TunnelTableEntry(tunnelId, entryPref) {}
  L3IntfTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  ViaArray const& via() const { return via_; }
  // The default via past the end.
  Via via(ViaIndex i) const { return via_.member(i); }
  // Setting past the end fills the gap with default vias.
  void viaIs(ViaIndex i, Via const& v) { via_.memberIs(i, v); }
  // Later vias move down one place.
  void viaDel(ViaIndex i) { via_._memberDel(i); }
  void viaDel(ViaArray::IteratorConst const& it) { via_._memberDel(it.key()); }
  void viaDelAll() { via_.clear(); }

  using FieldParent = TunnelTableEntry;
  static constexpr auto fields() {
    return std::tuple{field("via", &L3IntfTunnelTableEntry::via_, DumpAs::list)};
  }

  TUNNEL_ENTRY_VALUE_OPS(L3IntfTunnelTableEntry)
  explicit operator bool() const;

  void serialize(void* buf) const { writeRecord(buf); }
  uint32_t serializeLen() const { return recordLen(); }
  void deserialize(void const* buf, unsigned len) { readRecord(buf, len, kTypeName); }
  uint32_t deserializeLen(void const* buf, unsigned len) const { return checkRecord(buf, len); }

 protected:
  // The record of every interface tunnel entry: base record, the fixed
  // records of `info` (a derived entry's tunnel information), via list. The
  // information follows the vias in the text, so the record is by hand.
  template <typename... Info>
  uint32_t recordLen() const {
    return kBaseRecordLen + (0 + ... + uint32_t{sizeof(Info)}) + 4 +
           Via::kRecordSize * via_.count();
  }
  template <typename... Info>
  void writeRecord(void* buf, Info const&... info) const {
    RecordWriter w(buf, recordLen<Info...>());
    serializeBase(w);
    (w.put(info), ...);
    w.putList(via_);
  }
  template <typename... Info>
  static uint32_t checkRecord(void const* buf, unsigned len) {
    RecordReader r(buf, len);
    if (deserializeLenBase(r) == 0) return 0;
    (r.get<Info>(), ...);
    r.checkList<ViaArray>();
    return r.ok() ? r.offset() : 0;
  }
  template <typename... Info>
  void readRecord(void const* buf, unsigned len, std::string_view typeName, Info&... info) {
    RecordReader r(buf, len);
    deserializeBase(r);
    (r.get(info), ...);
    r.getList(via_);
    r.expectOk(typeName);
  }

 private:
  ViaArray via_;
};

// An interface tunnel entry with its kind's tunnel information, which follows
// the vias in the text and precedes them in the record. `Derived` is the
// entry type, which names itself (kTypeName).
template <typename Info, typename Derived>
class L3IntfTunnelTableEntryWithInfo : public L3IntfTunnelTableEntry {
 public:
  static constexpr uint32_t kMaxSerializedLen =
      L3IntfTunnelTableEntry::kMaxSerializedLen + Info::kRecordSize;

  L3IntfTunnelTableEntryWithInfo() : L3IntfTunnelTableEntryWithInfo(TunnelId()) {}
  // Interface tunnels have no protocol preference: 255.
  explicit L3IntfTunnelTableEntryWithInfo(TunnelId tunnelId) : L3IntfTunnelTableEntry(tunnelId) {}

  Info const& tunnelInfo() const { return tunnelInfo_; }
  void tunnelInfoIs(Info const& v) { tunnelInfo_ = v; }

  using FieldParent = L3IntfTunnelTableEntry;
  static constexpr auto fields() {
    return std::tuple{field("tunnelInfo", &L3IntfTunnelTableEntryWithInfo::tunnelInfo_)};
  }

  TUNNEL_ENTRY_VALUE_OPS(Derived)
  explicit operator bool() const {
    static Derived const kDefault;
    return static_cast<Derived const&>(*this) != kDefault;
  }

  void serialize(void* buf) const { writeRecord(buf, tunnelInfo_); }
  uint32_t serializeLen() const { return recordLen<Info>(); }
  void deserialize(void const* buf, unsigned len) {
    readRecord(buf, len, Derived::kTypeName, tunnelInfo_);
  }
  uint32_t deserializeLen(void const* buf, unsigned len) const {
    return checkRecord<Info>(buf, len);
  }

 private:
  Info tunnelInfo_;
};

// Record: base, 64-byte GreTunnelInfo at 552, via list count at 616.
class GreIntfTunnelTableEntry
    : public L3IntfTunnelTableEntryWithInfo<Tunnel::GreTunnelInfo, GreIntfTunnelTableEntry> {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::GreIntfTunnelTableEntry";
  using L3IntfTunnelTableEntryWithInfo::L3IntfTunnelTableEntryWithInfo;
  GreIntfTunnelTableEntry(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);
};

// Record: base, 68-byte IpsecGreTunnelInfo at 552, via list count at 620.
class IpsecGreIntfTunnelTableEntry
    : public L3IntfTunnelTableEntryWithInfo<Tunnel::IpsecGreTunnelInfo,
                                            IpsecGreIntfTunnelTableEntry> {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::IpsecGreIntfTunnelTableEntry";
  using L3IntfTunnelTableEntryWithInfo::L3IntfTunnelTableEntryWithInfo;
  IpsecGreIntfTunnelTableEntry(Zent::String::IteratorConst& it,
                               Zent::String::IteratorConst const& end);
};

// Record: base, 48-byte IpsecVtiTunnelInfo at 552, via list count at 600.
class IpsecVtiIntfTunnelTableEntry
    : public L3IntfTunnelTableEntryWithInfo<Tunnel::IpsecVtiTunnelInfo,
                                            IpsecVtiIntfTunnelTableEntry> {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::IpsecVtiIntfTunnelTableEntry";
  using L3IntfTunnelTableEntryWithInfo::L3IntfTunnelTableEntryWithInfo;
  IpsecVtiIntfTunnelTableEntry(Zent::String::IteratorConst& it,
                               Zent::String::IteratorConst const& end);
};

}  // namespace Tunnel::TunnelTable
