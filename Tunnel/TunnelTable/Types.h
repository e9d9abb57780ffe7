#pragma once
// Registration of the tunnel model's identifier, preference and index types
// with the type registry, under their fully qualified names.

namespace Tunnel::TunnelTable {

// Idempotent and cheap after the first call; call it before looking these
// types up by name (static libraries would drop self-registering objects).
void registerTypes();

}  // namespace Tunnel::TunnelTable
