#pragma once
// The redistribution configuration: per endpoint prefix, the tunnels that end
// there and their IGP metrics, so that a routing protocol can redistribute
// tunnel endpoints as routes. Written by the protocol redistribution state
// machines; an in-process entity tree.

#include <cstdint>
#include <ostream>
#include <string>
#include <string_view>

#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/framework/Entity.h"
#include "Tunnel/framework/FlatHashMap.h"
#include "Tunnel/framework/HashMap2018.h"
#include "Tunnel/framework/String.h"
#include "Tunnel/net/IpGenPrefix.h"
#include "Tunnel/shmem/Keepdb/Keepdb.h"

namespace Tunnel::TunnelRedist {

using Tunnel::TunnelTable::TunnelId;

class TunnelInfo {
 public:
  TunnelInfo() = default;
  TunnelInfo(TunnelId tunnelId, uint32_t igpMetric) : tunnelId_(tunnelId), igpMetric_(igpMetric) {}
  TunnelInfo(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  TunnelId tunnelId() const { return tunnelId_; }
  uint32_t igpMetric() const { return igpMetric_; }
  void igpMetricIs(uint32_t m) { igpMetric_ = m; }

  bool operator==(TunnelInfo const&) const = default;
  explicit operator bool() const { return !(*this == TunnelInfo()); }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelInfo const& v) {
    return os << v.stringValue();
  }

 private:
  TunnelId tunnelId_;
  uint32_t igpMetric_ = 0;
};

class TunnelIdToEndPoint {
 public:
  TunnelIdToEndPoint() = default;
  TunnelIdToEndPoint(TunnelId tunnelId, Vorn::IpGenPrefix tep) : tunnelId_(tunnelId), tep_(tep) {}
  TunnelIdToEndPoint(Zent::String::IteratorConst& it, Zent::String::IteratorConst const& end);

  TunnelId tunnelId() const { return tunnelId_; }
  Vorn::IpGenPrefix const& tep() const { return tep_; }

  bool operator==(TunnelIdToEndPoint const&) const = default;
  // A default value stands for an absent record.
  explicit operator bool() const { return !(*this == TunnelIdToEndPoint()); }
  uint32_t hash(uint32_t seed = 0) const;
  std::string stringValue() const;
  friend std::ostream& operator<<(std::ostream& os, TunnelIdToEndPoint const& v) {
    return os << v.stringValue();
  }

 private:
  TunnelId tunnelId_;
  Vorn::IpGenPrefix tep_;
};

class TunnelRedistEntry : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kMemberTunnelInfoId = 2;
  // Flat: every update of a redistribution machine removes a member from one
  // entry and adds it to another.
  using MemberMap = Zent::FlatHashMap<TunnelId, TunnelInfo>;

  explicit TunnelRedistEntry(Vorn::IpGenPrefix const& prefix);

  Vorn::IpGenPrefix const& prefix() const { return prefix_; }
  TunnelInfo memberTunnelInfo(TunnelId const& id) const { return member_.lookup(id); }
  MemberMap const& memberTunnelInfos() const { return member_; }
  size_t memberTunnelInfoCount() const { return member_.size(); }

  // Adds the member, or replaces its metric; nothing (and no notification)
  // when the stored member is equal.
  void memberTunnelInfoIs(TunnelInfo const& info) {
    memberIs(member_, kMemberTunnelInfoId, info.tunnelId(), info);
  }
  TunnelInfo memberTunnelInfoDel(TunnelId const& id) {
    TunnelInfo old;
    memberDel(member_, kMemberTunnelInfoId, id, &old);
    return old;
  }
  void memberTunnelInfoDelAll() { memberDelAll(member_, kMemberTunnelInfoId); }

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void memberTunnelInfoNotify(TunnelId const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  Vorn::IpGenPrefix prefix_;
  MemberMap member_;
};

class TunnelRedistConfig : public Zent::Entity {
 public:
  static constexpr Zent::AttributeId kEntryId = 2;
  using EntryMap = Zent::HashMap2018<Vorn::IpGenPrefix, Zent::Ptr<TunnelRedistEntry>>;

  explicit TunnelRedistConfig(Zent::String const& name) : Entity(name) {}

  Zent::Ptr<TunnelRedistEntry> entry(Vorn::IpGenPrefix const& prefix) const {
    return entry_.lookup(prefix);
  }
  EntryMap const& entries() const { return entry_; }
  size_t entryCount() const { return entry_.size(); }

  // The entry of `prefix`, created (and notified) when there is none.
  Zent::Ptr<TunnelRedistEntry> entryIs(Vorn::IpGenPrefix const& prefix);
  Zent::Ptr<TunnelRedistEntry> entryDel(Vorn::IpGenPrefix const& prefix);
  // One removal, and one notification, per entry.
  void entryDelAll();

  class NotifieeConst : public Zent::PtrInterface::NotifieeConst {
   public:
    virtual void entryNotify(Vorn::IpGenPrefix const&) {}
    void onAttribute(Zent::AttributeId id, Zent::KeyRef const& key) override;
  };

 private:
  EntryMap entry_;
};

Zent::Ptr<TunnelRedistConfig> tunnelRedistConfigFactory(Zent::String const& name);
inline Zent::Ptr<TunnelRedistConfig> TunnelRedistConfigIs(Zent::String const& name) {
  return tunnelRedistConfigFactory(name);
}

// How the state database keeps a configuration: one record per entry, its
// members ascending by tunnel id (12 bytes each, at most 600 per entry).
Keepdb::Schema const& tunnelRedistConfigSchema();
// Where the configuration named `name` is published: "tunnel/redist/<name>".
std::string tunnelRedistConfigPath(std::string_view name);

void registerTypes();

}  // namespace Tunnel::TunnelRedist
