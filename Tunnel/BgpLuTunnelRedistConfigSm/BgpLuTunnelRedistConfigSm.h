#pragma once
// Keeps a redistribution configuration equal to what the BGP labeled-unicast
// tunnel table implies. BGP-LU entries carry no IGP metric: members have
// metric 0, and a tunnel re-notified with the same endpoint changes nothing.

#include "Tunnel/TunnelRedist/TunnelRedistConfigSm.h"
#include "Tunnel/TunnelTable/Tables.h"

namespace Tunnel::TunnelRedist {

struct BgpLuTunnelRedistTraits {
  using Table = TunnelTable::BgpLuTunnelTable;
  using Entry = TunnelTable::BgpLuTunnelTableEntry;
  static constexpr const char* kClassName = "Tunnel::TunnelRedist::BgpLuTunnelRedistConfigSm";
  static constexpr const char* kAssertion =
      "luTunnelTable()->entryControl()->mode() != ZentTamsel::reader()";
  static constexpr bool kIgpMetric = false;
  static constexpr bool kNoOpOnSameEndpoint = true;
};

extern template class TunnelRedistConfigSm<BgpLuTunnelRedistTraits>;

class BgpLuTunnelRedistConfigSm : public TunnelRedistConfigSm<BgpLuTunnelRedistTraits> {
 public:
  using TunnelRedistConfigSm::TunnelRedistConfigSm;
  Zent::Ptr<TunnelTable::BgpLuTunnelTable const> const& luTunnelTable() const { return table(); }
};

Zent::Ptr<BgpLuTunnelRedistConfigSm> bgpLuTunnelRedistConfigSmFactory(
    Zent::Ptr<TunnelRedistConfig> const& config,
    Zent::Ptr<TunnelTable::BgpLuTunnelTable const> const& table);

}  // namespace Tunnel::TunnelRedist
