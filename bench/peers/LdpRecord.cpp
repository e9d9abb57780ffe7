#include "bench/peers/LdpRecord.h"

#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/IpGenAddr.h"
#include "Tunnel/net/IpGenPrefix.h"

namespace PeerBench {

using namespace Tunnel::TunnelTable;

LdpTunnelTableEntry ldpEntry(uint64_t key, uint32_t version) {
  LdpTunnelTableEntry e{TunnelId(key)};
  e.entryMetricIs(version);
  e.igpMetricIs(10);
  e.endpointIs(TepIndex(0), Vorn::IpGenPrefix::host(Vorn::IpGenAddr(0x0a000001u)));
  e.nameIs("ldp");
  e.viaIs(ViaIndex(0), MplsVia(Vorn::IpGenAddr(0x0a640001u), Vorn::IntfId::ethernet(1),
                               Vorn::MplsLabelOperation()));
  return e;
}

uint64_t ldpKey(uint64_t i) { return TunnelId::convertToTunnelValue(ldpTunnel, i + 1); }

}  // namespace PeerBench
