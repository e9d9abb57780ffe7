#include "Tunnel/TunnelTable/EvpnVxlanTunnelTable.h"

#include <fmt/format.h>

#include "Tunnel/TunnelTable/IntfTunnels.h"

namespace Tunnel::TunnelTable {

TunnelId EvpnVxlanTunnelTableBase::newTunnelId() {
  fmassert(lastAllocatedId() < maxId() && "Reached maximum number of IDs.");
  lastAllocatedIdIs(lastAllocatedId() + 1);
  return TunnelId(evpnVxlanTunnel, lastAllocatedId());
}

std::string EvpnVxlanTunnelTableBase::tunKernelIntfName(TunnelId const& id) {
  return fmt::format("t0x{:x}", id.tunnelIndex());
}

TunnelId EvpnVxlanTunnelTableBase::tunKernelIntfTunnelId(std::string_view name) {
  if (name.size() < 4 || name.size() > 14 || name.substr(0, 3) != "t0x") return TunnelId();
  uint64_t index = 0;
  for (char c : name.substr(3)) {
    int digit = c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    if (digit < 0) return TunnelId();
    index = index * 16 + static_cast<uint64_t>(digit);
  }
  if (index > TunnelId::kIndexMask) return TunnelId();
  return TunnelId(evpnVxlanTunnel, index);
}

bool EvpnVxlanTunnelTableBase::isValidEvpnIntf(Vorn::IntfId const& intf) {
  TunnelId id = tunnelIdOfIntf(intf);
  return id.value() != 0 && id.tunnelType() == evpnVxlanTunnel;
}

}  // namespace Tunnel::TunnelTable
