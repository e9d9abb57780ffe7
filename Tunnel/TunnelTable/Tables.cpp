#include "Tunnel/TunnelTable/Tables.h"

#include "Tunnel/TunnelTable/Types.h"
#include "Tunnel/framework/TypeRegistry.h"

namespace Tunnel::TunnelTable {

TUNNEL_TABLES(TUNNEL_TABLE_DEFINE)

void registerTableTypes() {
  static bool done = [] {
    registerTypes();
    TUNNEL_TABLES(TUNNEL_TABLE_REGISTER)
    return true;
  }();
  (void)done;
}

}  // namespace Tunnel::TunnelTable
