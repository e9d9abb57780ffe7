#include "tools/tunnelctl/DemoTunnels.h"

#include <array>

#include "Tunnel/BgpLuTunnelRedistConfigSm/BgpLuTunnelRedistConfigSm.h"
#include "Tunnel/IsisSrTunnelRedistConfigSm/IsisSrTunnelRedistConfigSm.h"
#include "Tunnel/LdpTunnelRedistConfigSm/LdpTunnelRedistConfigSm.h"
#include "Tunnel/net/IntfId.h"
#include "Tunnel/net/MplsLabelOperation.h"

namespace TunnelCtl::Demo {

using namespace Tunnel::TunnelTable;

namespace {

constexpr uint32_t kV4Prefixes = 250;

Vorn::IpGenAddr neighbourAddr(uint32_t n) {
  return Vorn::IpGenAddr((10u << 24) | (1u << 16) | (n << 8) | 2);
}
Vorn::IntfId neighbourIntf(uint32_t n) { return Vorn::IntfId::ethernet(n + 1); }
uint32_t neighbourOf(TunnelState const& s, uint32_t via) {
  return (s.firstNeighbour + via) % kNeighbours;
}

// The entry metric, coarser than the protocol's metric, so that tunnels of
// one protocol to one endpoint tie often and form ECMP sets in the RIB.
template <typename Entry>
void fillEndpoint(Entry& e, TunnelState const& s) {
  e.endpointIs(TepIndex(0), demoPrefix(s.prefix));
  e.entryMetricIs(s.metric / 250);
  e.tunnelBwIs(TunnelBandwidth(10000 * s.vias));  // the RIB carries it
}

// IGP tunnels carry one MPLS via per neighbour, with `label(n)` pushed.
template <typename Entry, typename Label>
void fillIgp(Entry& e, TunnelState const& s, Label&& label) {
  fillEndpoint(e, s);
  e.igpMetricIs(s.metric);
  for (uint32_t v = 0; v < s.vias; ++v) {
    uint32_t n = neighbourOf(s, v);
    e.viaIs(ViaIndex(v), MplsVia(neighbourAddr(n), neighbourIntf(n),
                                 Vorn::MplsLabelOperation::push(
                                     {Vorn::MplsLabel(static_cast<uint32_t>(label(n)))})));
  }
}

}  // namespace

Vorn::IpGenPrefix demoPrefix(uint32_t p) {
  if (p < kV4Prefixes) {
    return Vorn::IpGenPrefix(
        Vorn::IpGenAddr((10u << 24) | (255u << 16) | ((p / 200) << 8) | (p % 200 + 1)), 32);
  }
  std::array<uint8_t, 16> v6{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  v6[15] = static_cast<uint8_t>(p - kV4Prefixes + 1);
  return Vorn::IpGenPrefix(Vorn::IpGenAddr(v6), 128);
}

TunnelType tunnelTypeOf(RedistProtocol p) {
  switch (p) {
    case RedistProtocol::ldp:
      return ldpTunnel;
    case RedistProtocol::isisSr:
      return isisSrTunnel;
    case RedistProtocol::bgpLu:
      return bgpLuTunnel;
  }
  return unknownTunnel;
}

bool redistributesMetric(RedistProtocol p) {
  using namespace Tunnel::TunnelRedist;
  switch (p) {
    case RedistProtocol::ldp:
      return LdpTunnelRedistConfigSm::kCarriesIgpMetric;
    case RedistProtocol::isisSr:
      return IsisSrTunnelRedistConfigSm::kCarriesIgpMetric;
    case RedistProtocol::bgpLu:
      return BgpLuTunnelRedistConfigSm::kCarriesIgpMetric;
  }
  return false;
}

LdpTunnelTableEntry ldpEntry(uint64_t index, TunnelState const& s) {
  LdpTunnelTableEntry e(TunnelId(ldpTunnel, index));
  // Each neighbour hands out its own label for the endpoint.
  fillIgp(e, s,
          [&](uint32_t n) { return 100000 + (s.prefix * kNeighbours + n) * 16 + index % 16; });
  return e;
}

SrTunnelTableEntry isisSrEntry(uint64_t index, TunnelState const& s) {
  SrTunnelTableEntry e(TunnelId(isisSrTunnel, index));
  // The endpoint's node SID, the same through every neighbour.
  fillIgp(e, s, [&](uint32_t) { return 16000 + s.prefix; });
  return e;
}

BgpLuTunnelTableEntry bgpLuEntry(uint64_t index, TunnelState const& s) {
  BgpLuTunnelTableEntry e(TunnelId(bgpLuTunnel, index));
  fillEndpoint(e, s);
  e.bgpMetricIs(s.metric);
  for (uint32_t v = 0; v < s.vias; ++v) {
    uint32_t n = neighbourOf(s, v);
    e.viaIs(ViaIndex(v), Via(neighbourAddr(n), neighbourIntf(n)));
  }
  e.labelsIs(Vorn::MplsLabelOperation::push(
      {Vorn::MplsLabel(static_cast<uint32_t>(300000 + index % 500000))}));
  return e;
}

}  // namespace TunnelCtl::Demo
