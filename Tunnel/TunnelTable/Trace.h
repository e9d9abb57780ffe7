#pragma once
// The trace facility of the tunnel table model: every fmtrace in namespace
// Tunnel::TunnelTable goes to it.

#include "Tunnel/framework/Dabin.h"

namespace Tunnel::TunnelTable {
DABIN_FACILITY("Tunnel::TunnelTable");
}  // namespace Tunnel::TunnelTable
