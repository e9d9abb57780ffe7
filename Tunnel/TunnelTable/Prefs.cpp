#include "Tunnel/TunnelTable/Prefs.h"

#include "Tunnel/TunnelTableKeepdbTypes/NumberText.h"

namespace Tunnel::TunnelTable {

TunnelIgpPref::TunnelIgpPref(Zent::String::IteratorConst& it,
                             Zent::String::IteratorConst const& end)
    : value_(parseNumberText<uint32_t>(it, end, "Tunnel::TunnelTable::TunnelIgpPref")) {}

}  // namespace Tunnel::TunnelTable
