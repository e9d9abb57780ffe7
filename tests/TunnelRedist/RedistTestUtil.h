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

// One machine with its input table.
template <typename SmT, TunnelType kType, TunnelTableIdentifier kTableId>
struct Case {
  using Sm = SmT;
  using Table = typename Sm::Table;
  static constexpr TunnelTableIdentifier kId = kTableId;

  static TunnelId id(uint64_t i) { return TunnelId(kType, i); }
  // Endpoint 10.0.0.<tep>/32; the metric is the one the protocol carries.
  static typename Sm::Entry entry(uint64_t i, uint32_t tep, uint32_t metric) {
    typename Sm::Entry e(id(i));
    e.endpointIs(TepIndex(0), Vorn::IpGenPrefix(Vorn::IpGenAddr((10u << 24) | tep), 32));
    if constexpr (requires { e.igpMetricIs(metric); }) {
      e.igpMetricIs(metric);
    } else {
      e.bgpMetricIs(metric);
    }
    return e;
  }
  static Zent::Ptr<Table> table(const char* name) { return Zent::newEntity<Table>(name); }
  static Zent::Ptr<Sm> sm(Zent::Ptr<TunnelRedistConfig> c, Zent::Ptr<Table const> t) {
    return newTunnelRedistConfigSm<Sm>(c, t);
  }
  // What the table's contents imply, the metric as the library says.
  static ConfigView expected(Table const& t) {
    ConfigView v;
    for (TunnelId const& k : t.entryKeys(nullptr, SIZE_MAX)) {
      auto e = t.entry(k);
      v[e.tep().stringValue()][k.value()] = Sm::memberMetric(e);
    }
    return v;
  }
};

using LdpCase = Case<LdpTunnelRedistConfigSm, ldpTunnel, TunnelTableIdentifier::ldpTunnelTable>;
using IsisSrCase =
    Case<IsisSrTunnelRedistConfigSm, isisSrTunnel, TunnelTableIdentifier::isisSrTunnelTable>;
using BgpLuCase =
    Case<BgpLuTunnelRedistConfigSm, bgpLuTunnel, TunnelTableIdentifier::bgpLuTunnelTable>;

}  // namespace RedistTest
