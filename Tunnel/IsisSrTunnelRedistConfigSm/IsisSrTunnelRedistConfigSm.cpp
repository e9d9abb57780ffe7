#include "Tunnel/IsisSrTunnelRedistConfigSm/IsisSrTunnelRedistConfigSm.h"

namespace Tunnel::TunnelRedist {

template class TunnelRedistConfigSm<IsisSrTunnelRedistTraits>;

Zent::Ptr<IsisSrTunnelRedistConfigSm> isisSrTunnelRedistConfigSmFactory(
    Zent::Ptr<TunnelRedistConfig> const& config,
    Zent::Ptr<TunnelTable::IsisSrTunnelTable const> const& table) {
  return newTunnelRedistConfigSm<IsisSrTunnelRedistConfigSm>(config, table);
}

}  // namespace Tunnel::TunnelRedist
