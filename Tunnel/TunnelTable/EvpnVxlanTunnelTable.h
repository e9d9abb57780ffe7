#pragma once
// What the EVPN VXLAN tunnel table has beyond the shared operations:
// fixed-size entries, identifiers it allocates itself, and the kernel
// interface names of its tunnels ("t0x<index>"). The class itself is
// declared with the other tables (Tables.h).

#include <string>
#include <string_view>

#include "Tunnel/TunnelTable/EvpnVxlanTunnelEntry.h"
#include "Tunnel/TunnelTable/TunnelTableOf.h"
#include "Tunnel/net/IntfId.h"

namespace Tunnel::TunnelTable {

class EvpnVxlanTunnelTableBase
    : public TunnelTableOf<EvpnVxlanTunnelEntry, TunnelTableBase,
                           ZentTamsel::FixedMarshaller<EvpnVxlanTunnelEntry>> {
 public:
  static constexpr Zent::AttributeId kLastAllocatedIdId = 388;
  static constexpr uint32_t maxId() { return 4294967295u; }

  using TunnelTableOf::TunnelTableOf;

  uint32_t lastAllocatedId() const { return lastAllocatedId_; }
  void lastAllocatedIdIs(uint32_t v) { attributeIs(lastAllocatedId_, v, kLastAllocatedIdId); }
  // The next identifier: index 1 first, never reused. Asserts when every
  // index has been issued.
  TunnelId newTunnelId();

  // "t0x" and the masked index in lower-case hexadecimal (index 26: "t0x1a").
  static std::string tunKernelIntfName(TunnelId const& id);
  // The inverse. A name that is not "t0x" followed by 1 to 11 lower-case hex
  // digits (an index of at most 43 bits) gives identifier 0, which names no
  // EVPN tunnel.
  static TunnelId tunKernelIntfTunnelId(std::string_view name);
  // Whether `intf` stands for an EVPN VXLAN tunnel.
  static bool isValidEvpnIntf(Vorn::IntfId const& intf);

 private:
  uint32_t lastAllocatedId_ = 0;
};

template <>
struct TableBaseFor<EvpnVxlanTunnelEntry> {
  using type = EvpnVxlanTunnelTableBase;
};

}  // namespace Tunnel::TunnelTable
