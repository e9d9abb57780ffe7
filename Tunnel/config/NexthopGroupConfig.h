#pragma once
// Nexthop-group tunnel configuration: per endpoint prefix, the nexthop group
// that carries traffic to it. Written by configuration agents into the state
// database, read by the producer of the nexthop-group tunnel table.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Tunnel/config/ConfigPaths.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"

namespace Tunnel::NexthopGroup {

// A nexthop-group tunnel as configured: traffic to `prefix` goes through the
// nexthop group named `nhgName`; the tunnel is advertised with `igpPref` and
// `igpMetric` (the fields of the nexthop-group tunnel table's entries).
class NexthopGroupTunnelConfigEntry {
 public:
  static constexpr const char* kTypeName = "Tunnel::NexthopGroup::NexthopGroupTunnelConfigEntry";
  static constexpr size_t kMaxNameLen = 100;

  NexthopGroupTunnelConfigEntry() = default;
  NexthopGroupTunnelConfigEntry(Vorn::IpGenPrefix const& prefix, Zent::String const& nhgName,
                                uint32_t igpPref, uint32_t igpMetric)
      : prefix_(prefix), nhgName_(nhgName), igpPref_(igpPref), igpMetric_(igpMetric) {}
  // Parses the canonical text.
  NexthopGroupTunnelConfigEntry(Zent::String::IteratorConst& it,
                                Zent::String::IteratorConst const& end);

  Vorn::IpGenPrefix const& prefix() const { return prefix_; }
  Zent::String const& nhgName() const { return nhgName_; }
  void nhgNameIs(Zent::String const& n) { nhgName_ = n; }
  uint32_t igpPref() const { return igpPref_; }
  void igpPrefIs(uint32_t p) { igpPref_ = p; }
  uint32_t igpMetric() const { return igpMetric_; }
  void igpMetricIs(uint32_t m) { igpMetric_ = m; }

  bool operator==(NexthopGroupTunnelConfigEntry const&) const = default;
  explicit operator bool() const { return !(*this == NexthopGroupTunnelConfigEntry()); }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, NexthopGroupTunnelConfigEntry const& e) {
    return os << e.stringValue();
  }

  // 1 to 100 characters of A-Z a-z 0-9 _ . : -
  static bool validName(std::string_view name);

  // Record: the 24-byte prefix record, u32 igpPref, u32 igpMetric, u8 nameLen,
  // the name. keepdbFromRecord refuses anything else and leaves `out` alone.
  void keepdbRecord(std::string& out) const;
  static bool keepdbFromRecord(std::string_view rec, NexthopGroupTunnelConfigEntry& out);
  static constexpr uint32_t kMaxRecord = Vorn::IpGenPrefix::kRecordSize + 4 + 4 + 1 + kMaxNameLen;

 private:
  Vorn::IpGenPrefix prefix_;
  Zent::String nhgName_;
  uint32_t igpPref_ = 0;
  uint32_t igpMetric_ = 0;
};

struct EntryKeyFunktor {
  Vorn::IpGenPrefix operator()(NexthopGroupTunnelConfigEntry const& e) const { return e.prefix(); }
};

class Config : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kEntryId = 258;
  static constexpr const char* kTypeName = "Tunnel::NexthopGroup::Config";
  using EntryMap =
      Zent::HashMap2018<Vorn::IpGenPrefix, NexthopGroupTunnelConfigEntry, EntryKeyFunktor>;

  Config() = default;
  Zent::GenericIf const* fwkType() const override;

  // A default entry when the prefix has none.
  NexthopGroupTunnelConfigEntry entry(Vorn::IpGenPrefix const& prefix) const {
    return entry_.lookup(prefix);
  }
  EntryMap const& entries() const { return entry_; }
  // Stores the entry under its own prefix; no notification when an equal
  // entry is stored. A name that validName refuses throws
  // Zent::RangeException: it could not be kept in the state database.
  void entryIs(NexthopGroupTunnelConfigEntry const& e);
  // The removed entry, or a default one (and no notification).
  NexthopGroupTunnelConfigEntry entryDel(Vorn::IpGenPrefix const& prefix) {
    NexthopGroupTunnelConfigEntry old;
    memberDel(entry_, kEntryId, prefix, &old);
    return old;
  }
  void entryDelAll() { memberDelAll(entry_, kEntryId); }

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void entryNotify(Vorn::IpGenPrefix const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  EntryMap entry_;
};

Zent::Ptr<Config> configFactory();
inline Zent::Ptr<Config> ConfigIs() { return configFactory(); }

// How the state database keeps a Config.
Keepdb::Schema const& configSchema();

// NexthopGroupTunnelConfigEntry and the Config entity type.
void registerTypes();

}  // namespace Tunnel::NexthopGroup
