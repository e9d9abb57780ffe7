#include "Tunnel/LdpTunnelRedistConfigSm/LdpTunnelRedistConfigSm.h"

namespace Tunnel::TunnelRedist {

template class TunnelRedistConfigSm<LdpTunnelRedistTraits>;

Zent::Ptr<LdpTunnelRedistConfigSm> ldpTunnelRedistConfigSmFactory(
    Zent::Ptr<TunnelRedistConfig> const& config,
    Zent::Ptr<TunnelTable::LdpTunnelTable const> const& table) {
  return newTunnelRedistConfigSm<LdpTunnelRedistConfigSm>(config, table);
}

}  // namespace Tunnel::TunnelRedist
