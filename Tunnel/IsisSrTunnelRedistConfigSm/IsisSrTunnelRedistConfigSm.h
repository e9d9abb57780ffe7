#pragma once
// Keeps a redistribution configuration equal to what the IS-IS segment-routing tunnel table
// implies: each IS-IS SR tunnel is a member of its endpoint's entry, with the
// entry's IGP metric.

#include "Tunnel/TunnelRedist/TunnelRedistConfigSm.h"
#include "Tunnel/TunnelTable/Tables.h"

namespace Tunnel::TunnelRedist {

struct IsisSrTunnelRedistTraits {
  using Table = TunnelTable::IsisSrTunnelTable;
  using Entry = TunnelTable::SrTunnelTableEntry;
  static constexpr const char* kClassName = "Tunnel::TunnelRedist::IsisSrTunnelRedistConfigSm";
  static constexpr const char* kAssertion =
      "isisSrTunnelTable()->entryControl()->mode() != ZentTamsel::reader()";
  static constexpr bool kIgpMetric = true;
  static constexpr bool kNoOpOnSameEndpoint = false;
};

extern template class TunnelRedistConfigSm<IsisSrTunnelRedistTraits>;

class IsisSrTunnelRedistConfigSm : public TunnelRedistConfigSm<IsisSrTunnelRedistTraits> {
 public:
  using TunnelRedistConfigSm::TunnelRedistConfigSm;
  Zent::Ptr<TunnelTable::IsisSrTunnelTable const> const& isisSrTunnelTable() const {
    return table();
  }
};

Zent::Ptr<IsisSrTunnelRedistConfigSm> isisSrTunnelRedistConfigSmFactory(
    Zent::Ptr<TunnelRedistConfig> const& config,
    Zent::Ptr<TunnelTable::IsisSrTunnelTable const> const& table);

}  // namespace Tunnel::TunnelRedist
