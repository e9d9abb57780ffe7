#pragma once
// Keeps a redistribution configuration equal to what the LDP tunnel table
// implies: each LDP tunnel is a member of its endpoint's entry, with the
// entry's IGP metric.

#include "Tunnel/TunnelRedist/TunnelRedistConfigSm.h"
#include "Tunnel/TunnelTable/Tables.h"

namespace Tunnel::TunnelRedist {

struct LdpTunnelRedistTraits {
  using Table = TunnelTable::LdpTunnelTable;
  using Entry = TunnelTable::LdpTunnelTableEntry;
  static constexpr const char* kClassName = "Tunnel::TunnelRedist::LdpTunnelRedistConfigSm";
  static constexpr const char* kAssertion =
      "ldpTunnelTable()->entryControl()->mode() != ZentTamsel::reader()";
  static constexpr bool kIgpMetric = true;
  static constexpr bool kNoOpOnSameEndpoint = false;
};

extern template class TunnelRedistConfigSm<LdpTunnelRedistTraits>;

class LdpTunnelRedistConfigSm : public TunnelRedistConfigSm<LdpTunnelRedistTraits> {
 public:
  using TunnelRedistConfigSm::TunnelRedistConfigSm;
  Zent::Ptr<TunnelTable::LdpTunnelTable const> const& ldpTunnelTable() const { return table(); }
};

Zent::Ptr<LdpTunnelRedistConfigSm> ldpTunnelRedistConfigSmFactory(
    Zent::Ptr<TunnelRedistConfig> const& config,
    Zent::Ptr<TunnelTable::LdpTunnelTable const> const& table);

}  // namespace Tunnel::TunnelRedist
