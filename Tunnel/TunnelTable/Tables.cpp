#include "Tunnel/TunnelTable/Tables.h"

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {
namespace {

template <typename Table>
void registerTable(const char* name, Zent::Ptr<Table> (*factory)(Zent::String const&),
                   const char* entryTypeName) {
  Zent::typeIs(std::make_unique<TunnelTableTypeImpl<Table>>(
      name, factory, Zent::type(entryTypeName), Zent::type("Tunnel::TunnelTable::TunnelId")));
}

}  // namespace

void registerTableTypes() {
  static bool done = [] {
    registerTypes();
    registerTable<EvpnVxlanTunnelTable>(EvpnVxlanTunnelTable::kTypeName,
                                        evpnVxlanTunnelTableFactory,
                                        "Tunnel::TunnelTable::EvpnVxlanTunnelEntry");
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelTable
