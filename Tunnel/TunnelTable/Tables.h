#pragma once
// Every protocol tunnel table class, declared from its row in TableList.h.
// Each is TunnelTableOf its entry type (or the base TableBaseFor gives it);
// its constructor stamps the table's TunnelType and TunnelTableIdentifier and
// its collection takes records up to the row's bound, which is checked here
// against the entry's largest record. All are registered with the type
// registry under their qualified names, so the mount service can create a
// table from its type name.

#include "Tunnel/TunnelTable/BgpLuEntries.h"
#include "Tunnel/TunnelTable/ColoredEntries.h"
#include "Tunnel/TunnelTable/EvpnVxlanTunnelTable.h"
#include "Tunnel/TunnelTable/FrrEntries.h"
#include "Tunnel/TunnelTable/IgpEntries.h"
#include "Tunnel/TunnelTable/L3IntfEntries.h"
#include "Tunnel/TunnelTable/L3IntfTunnelTableBase.h"
#include "Tunnel/TunnelTable/NexthopGroupEntry.h"
#include "Tunnel/TunnelTable/RsvpLerEntry.h"
#include "Tunnel/TunnelTable/SbfdSessionEntry.h"
#include "Tunnel/TunnelTable/StaticEntries.h"
#include "Tunnel/TunnelTable/TableList.h"
#include "Tunnel/TunnelTable/TunnelTableOf.h"

namespace Tunnel::TunnelTable {

// The interface-tunnel tables name their tunnels after interfaces.
template <>
struct TableBaseFor<GreIntfTunnelTableEntry> {
  using type = TunnelTableOf<GreIntfTunnelTableEntry, L3IntfTunnelTableBase>;
};
template <>
struct TableBaseFor<IpsecVtiIntfTunnelTableEntry> {
  using type = TunnelTableOf<IpsecVtiIntfTunnelTableEntry, L3IntfTunnelTableBase>;
};
template <>
struct TableBaseFor<IpsecGreIntfTunnelTableEntry> {
  using type = TunnelTableOf<IpsecGreIntfTunnelTableEntry, L3IntfTunnelTableBase>;
};

TUNNEL_TABLES(TUNNEL_TABLE_DECLARE)

// Idempotent; also registers the entry and identifier value types.
void registerTableTypes();

}  // namespace Tunnel::TunnelTable
