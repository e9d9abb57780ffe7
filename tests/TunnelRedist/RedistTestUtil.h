#pragma once
// Test helpers for the redistribution machines: entries of each input table
// built from small numbers, and the configuration a table's contents imply.

#include <map>
#include <string>

#include "Tunnel/BgpLuTunnelRedistConfigSm/BgpLuTunnelRedistConfigSm.h"
#include "Tunnel/IsisSrTunnelRedistConfigSm/IsisSrTunnelRedistConfigSm.h"
#include "Tunnel/LdpTunnelRedistConfigSm/LdpTunnelRedistConfigSm.h"
#include "Tunnel/TunnelMount/TunnelMount.h"
#include "tests/shmem/ShmTestUtil.h"

namespace RedistTest {

using namespace Tunnel::TunnelTable;
using namespace Tunnel::TunnelRedist;

// prefix -> (tunnel id -> metric)
using ConfigView = std::map<std::string, std::map<uint64_t, uint32_t>>;

inline Vorn::IpGenPrefix tepPrefix(uint32_t n) {
  return Vorn::IpGenPrefix(Vorn::IpGenAddr((10u << 24) | n), 32);
}

inline ConfigView configOf(TunnelRedistConfig const& c) {
  ConfigView v;
  for (auto it = c.entries().begin(); it != c.entries().end(); ++it) {
    auto& members = v[it.key().stringValue()];
    for (auto m = (*it)->memberTunnelInfos().begin(); m != (*it)->memberTunnelInfos().end(); ++m) {
      members[m.key().value()] = m->igpMetric();
    }
  }
  return v;
}

template <typename Table, bool kMetric>
ConfigView expectedOf(Table const& t) {
  ConfigView v;
  for (TunnelId const& id : t.entryKeys(nullptr, SIZE_MAX)) {
    auto e = t.entry(id);
    uint32_t metric = 0;
    if constexpr (kMetric) metric = e.igpMetric();
    v[e.tep().stringValue()][id.value()] = metric;
  }
  return v;
}

template <typename Entry>
Entry withTep(Entry e, uint32_t tep) {
  e.endpointIs(TepIndex(0), tepPrefix(tep));
  return e;
}

struct LdpCase {
  using Table = LdpTunnelTable;
  static TunnelId id(uint64_t i) { return TunnelId(TunnelId::convertToTunnelValue(ldpTunnel, i)); }
  static LdpTunnelTableEntry entry(uint64_t i, uint32_t tep, uint32_t metric) {
    auto e = withTep(LdpTunnelTableEntry(id(i)), tep);
    e.igpMetricIs(metric);
    return e;
  }
  static Zent::Ptr<Table> tableFactory(const char* n) { return ldpTunnelTableFactory(n); }
  static auto smFactory(Zent::Ptr<TunnelRedistConfig> c, Zent::Ptr<Table> t) {
    return ldpTunnelRedistConfigSmFactory(c, t);
  }
  static ConfigView expected(Table const& t) { return expectedOf<Table, true>(t); }
};

struct IsisSrCase {
  using Table = IsisSrTunnelTable;
  static TunnelId id(uint64_t i) {
    return TunnelId(TunnelId::convertToTunnelValue(isisSrTunnel, i));
  }
  static SrTunnelTableEntry entry(uint64_t i, uint32_t tep, uint32_t metric) {
    auto e = withTep(SrTunnelTableEntry(id(i)), tep);
    e.igpMetricIs(metric);
    return e;
  }
  static Zent::Ptr<Table> tableFactory(const char* n) { return isisSrTunnelTableFactory(n); }
  static auto smFactory(Zent::Ptr<TunnelRedistConfig> c, Zent::Ptr<Table> t) {
    return isisSrTunnelRedistConfigSmFactory(c, t);
  }
  static ConfigView expected(Table const& t) { return expectedOf<Table, true>(t); }
};

struct BgpLuCase {
  using Table = BgpLuTunnelTable;
  static TunnelId id(uint64_t i) {
    return TunnelId(TunnelId::convertToTunnelValue(bgpLuTunnel, i));
  }
  static BgpLuTunnelTableEntry entry(uint64_t i, uint32_t tep, uint32_t metric) {
    auto e = withTep(BgpLuTunnelTableEntry(id(i)), tep);
    e.bgpMetricIs(metric);
    return e;
  }
  static Zent::Ptr<Table> tableFactory(const char* n) { return bgpLuTunnelTableFactory(n); }
  static auto smFactory(Zent::Ptr<TunnelRedistConfig> c, Zent::Ptr<Table> t) {
    return bgpLuTunnelRedistConfigSmFactory(c, t);
  }
  static ConfigView expected(Table const& t) { return expectedOf<Table, false>(t); }
};

}  // namespace RedistTest
