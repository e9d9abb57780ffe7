#include "Tunnel/BgpLuTunnelRedistConfigSm/BgpLuTunnelRedistConfigSm.h"

namespace Tunnel::TunnelRedist {

template class TunnelRedistConfigSm<BgpLuTunnelRedistTraits>;

Zent::Ptr<BgpLuTunnelRedistConfigSm> bgpLuTunnelRedistConfigSmFactory(
    Zent::Ptr<TunnelRedistConfig> const& config,
    Zent::Ptr<TunnelTable::BgpLuTunnelTable const> const& table) {
  return newTunnelRedistConfigSm<BgpLuTunnelRedistConfigSm>(config, table);
}

}  // namespace Tunnel::TunnelRedist
