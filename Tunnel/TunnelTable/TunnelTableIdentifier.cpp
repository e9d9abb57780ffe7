#include "Tunnel/TunnelTable/TunnelTableIdentifier.h"

#include "Tunnel/TunnelTable/TableList.h"

namespace Tunnel::TunnelTable {

std::string_view stringValue(TunnelTableIdentifier id) {
  switch (id) {
    case TunnelTableIdentifier::invalidTunnelTable:
      return "invalidTunnelTable";
#define TUNNEL_TABLE_ID_NAME(Class, factory, tunnelType, identifier, ...) \
  case TunnelTableIdentifier::identifier:                                 \
    return #identifier;
      TUNNEL_TABLES_ALL(TUNNEL_TABLE_ID_NAME)
#undef TUNNEL_TABLE_ID_NAME
  }
  return "unknownTunnelTable";
}

bool sequenceToValue(std::string_view text, TunnelTableIdentifier& id) {
  for (uint8_t i = 0; i <= kMaxTunnelTableIdentifier; ++i) {
    auto candidate = static_cast<TunnelTableIdentifier>(i);
    if (stringValue(candidate) == text) {
      id = candidate;
      return true;
    }
  }
  return false;
}

}  // namespace Tunnel::TunnelTable
