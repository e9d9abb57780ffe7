#pragma once
// Tunnel identifiers as people type and read them on a command line: a number
// (decimal or 0x hexadecimal) or <type>:<index> (for example ldpTunnel:7).
// Shared by the command-line tools so that they all accept the same forms.

#include <string>
#include <string_view>

#include "Tunnel/TunnelTable/TunnelId.h"

namespace TunnelTool {

// Throws Zent::ParseError for an unknown type, a malformed number or an index
// that does not fit in 43 bits, and Zent::RangeException for a number above
// TunnelId::maxValue.
Tunnel::TunnelTable::TunnelId parseTunnelIdText(std::string_view text);

// "<type>:<index>", the form parseTunnelIdText reads back.
std::string tunnelIdLabel(Tunnel::TunnelTable::TunnelId id);

}  // namespace TunnelTool
