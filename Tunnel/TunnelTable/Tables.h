#pragma once
// Every protocol tunnel table class, and their registration with the type
// registry under their qualified names (how the mount service creates a table
// from its type name).

#include "Tunnel/TunnelTable/EvpnVxlanTunnelTable.h"
#include "Tunnel/TunnelTable/L3IntfTunnelTableBase.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"

namespace Tunnel::TunnelTable {

// Idempotent; also registers the entry and identifier value types.
void registerTableTypes();

}  // namespace Tunnel::TunnelTable
