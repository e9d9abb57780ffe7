#pragma once
// The multicast tunnel tables: the MLDP table (identifier 20), the static
// multicast table (21) and the MPLS multicast table they are merged into. All
// three hold MplsMulticastTunnelTableEntry values keyed by tunnel id in one
// shared-memory collection `entry`, with records of up to 64820 bytes.

#include "Tunnel/TunnelTable/TableList.h"
#include "Tunnel/TunnelTable/TunnelTableOf.h"
#include "Tunnel/multicast/MulticastTunnelTableEntry.h"
#include "Tunnel/shmem/ZentTamsel/Mount.h"

namespace Tunnel::TunnelTable {

// The merged table, and the base of the two input tables. It stamps neither a
// table type nor an identifier: it is mounted by path, not by identifier.
class MplsMulticastTunnelTable : public TunnelTableOf<MplsMulticastTunnelTableEntry> {
 public:
  static constexpr const char* kTypeName = "Tunnel::TunnelTable::MplsMulticastTunnelTable";
  static constexpr const char* kMountPath = "tunnel/table/mplsMulticast";

  explicit MplsMulticastTunnelTable(Zent::String const& name)
      : MplsMulticastTunnelTable(name, kTypeName, MplsMulticastTunnelTableEntry::kTableBound) {}
  // For the input tables: their type name and bound.
  MplsMulticastTunnelTable(Zent::String const& name, const char* typeName, uint32_t bound)
      : TunnelTableOf(name, typeName, bound) {}
  Zent::GenericIf const* entryType() const override;

  using MplsMulticastTunnelTableZeroReferencesNotifiee = ZeroReferencesNotifiee;
};

template <>
struct TableBaseFor<MplsMulticastTunnelTableEntry> {
  using type = MplsMulticastTunnelTable;
};

TUNNEL_TABLES_MULTICAST(TUNNEL_TABLE_DECLARE)

Zent::Ptr<MplsMulticastTunnelTable> mplsMulticastTunnelTableFactory(Zent::String const& name);
inline Zent::Ptr<MldpTunnelTable> MldpTunnelTableIs(Zent::String const& name) {
  return mldpTunnelTableFactory(name);
}

// Mounts the merged table at "<root>/tunnel/table/mplsMulticast": the merge
// agent as writer, everyone else as readers or key shadows. Null when what is
// mounted there is not an MPLS multicast table.
Zent::Ptr<MplsMulticastTunnelTable> mountMplsMulticastTunnelTable(
    ZentTamsel::Mount const& mount, ZentTamsel::MountType mode,
    Zent::String const& path = Zent::String(MplsMulticastTunnelTable::kMountPath));

// Idempotent; also registers the multicast value types.
void registerMulticastTableTypes();

}  // namespace Tunnel::TunnelTable
