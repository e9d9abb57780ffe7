#include "Tunnel/multicast/MulticastTables.h"

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {

Zent::GenericIf const* MplsMulticastTunnelTable::entryType() const {
  return Zent::type(MplsMulticastTunnelTableEntry::kTypeName);
}

Zent::Ptr<MplsMulticastTunnelTable> mplsMulticastTunnelTableFactory(Zent::String const& name) {
  return Zent::newEntity<MplsMulticastTunnelTable>(name);
}

TUNNEL_TABLES_MULTICAST(TUNNEL_TABLE_DEFINE)

Zent::Ptr<MplsMulticastTunnelTable> mountMplsMulticastTunnelTable(ZentTamsel::Mount const& mount,
                                                                  ZentTamsel::MountType mode,
                                                                  Zent::String const& path) {
  registerMulticastTableTypes();
  return mount.doMountAs<MplsMulticastTunnelTable>(path, ZentTamsel::MountInfo(mode));
}

void registerMulticastTableTypes() {
  static bool done = [] {
    registerTypes();
    registerMulticastValueTypes();
    registerTableType<MplsMulticastTunnelTable>(mplsMulticastTunnelTableFactory,
                                                MplsMulticastTunnelTableEntry::kTypeName);
    TUNNEL_TABLES_MULTICAST(TUNNEL_TABLE_REGISTER)
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelTable
