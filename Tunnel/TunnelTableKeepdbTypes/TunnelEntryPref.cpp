#include "Tunnel/TunnelTableKeepdbTypes/TunnelEntryPref.h"

#include "Tunnel/TunnelTableKeepdbTypes/NumberText.h"

namespace Tunnel::TunnelTable {

TunnelEntryPref::TunnelEntryPref(Zent::String::IteratorConst& it,
                                 Zent::String::IteratorConst const& end)
    : value_(parseNumberText<uint8_t>(it, end, "Tunnel::TunnelTable::TunnelEntryPref")) {}

}  // namespace Tunnel::TunnelTable
