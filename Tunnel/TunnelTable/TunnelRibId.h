#pragma once
// TunnelRibId: names one tunnel RIB (and its command-line view) among those
// an agent publishes. A RIB has no id until its owner gives it one.

#include <cstdint>

namespace Tunnel::TunnelTable {

using TunnelRibId = uint32_t;
inline constexpr TunnelRibId kNoTunnelRibId = 0xFFFFFFFF;

}  // namespace Tunnel::TunnelTable
