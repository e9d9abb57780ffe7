#pragma once
// What a protocol tunnel table's entry offers the tunnel RIB, read through
// the table's own entry type.

#include "Tunnel/TunnelRibCalc/RibChoice.h"
#include "Tunnel/TunnelTable/TunnelTableBase.h"
#include "Tunnel/TunnelTable/TunnelTableIdentifier.h"

namespace Tunnel::TunnelRibCalc {

// Reads the entry of `id` from a table and, when it competes for the RIB,
// fills `out`. False when the entry is absent or offers nothing.
using OfferReader = bool (*)(TunnelTable::TunnelTableBase const& table, TunnelId const& id,
                             RibOffer& out);

// The reader for tables of identifier `id`, or null for tables whose
// tunnels do not compete for endpoints: protection tunnels (FRR, LER
// sub-LSPs, TI-LFA) stand behind a primary, segment lists are parts of a
// policy, EVPN VXLAN and SBFD sessions carry no endpoint preference.
OfferReader offerReader(TunnelTable::TunnelTableIdentifier id);

}  // namespace Tunnel::TunnelRibCalc
