// tunnelid: decodes and builds tunnel identifiers. With no arguments it lists
// every tunnel type with its display name and default entry preference; with
// arguments it decodes each one, given as a number (decimal or 0x hex) or as
// <type>:<index> (for example ldpTunnel:7).

#include <cstdio>
#include <string>
#include <string_view>

#include <fmt/format.h>

#include "Tunnel/TunnelTable/TunnelId.h"
#include "Tunnel/TunnelTableKeepdbTypes/TunnelType.h"
#include "Tunnel/framework/Range.h"
#include "Tunnel/framework/Text.h"
#include "tools/tunnelctl/TunnelIdText.h"

using namespace Tunnel::TunnelTable;

namespace {

bool hasDefaultPref(uint32_t t) { return t <= 23 || t == 31; }

void listTypes() {
  fmt::print("{:>5}  {:<26} {:<18} {}\n", "type", "enumerator", "display", "default pref");
  for (uint32_t t = 0; t <= 31; ++t) {
    if (!hasDefaultPref(t)) continue;
    auto type = static_cast<TunnelType>(t);
    fmt::print("{:>5}  {:<26} {:<18} {}\n", t, stringValue(type),
               TunnelId::tunnelTypeToCliStrep(type, false), getDefaultPrefForType(type).value());
  }
}

void describe(TunnelId id) {
  TunnelType type = id.tunnelType();
  fmt::print("{} (0x{:x}): type {} {} ({}), index {}", id.value(), id.value(),
             static_cast<uint32_t>(type), stringValue(type), id.typeCliStr(), id.tunnelIndex());
  if (hasDefaultPref(static_cast<uint32_t>(type))) {
    fmt::print(", default preference {}", getDefaultPrefForType(type).value());
  }
  fmt::print("\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::printf(
        "usage: tunnelid [ID|TYPE:INDEX ...]\n"
        "  With no argument, lists the tunnel types; otherwise decodes each id.\n");
    return 0;
  }
  if (argc == 1) {
    listTypes();
    fmt::print("\nexamples:\n");
    for (auto text : {"ldpTunnel:7", "isisFlexAlgoTunnel:0x7ffffffff", "0x1ffffffffffff"}) {
      fmt::print("  {:<34} -> ", text);
      describe(TunnelTool::parseTunnelIdText(text));
    }
    return 0;
  }
  int rc = 0;
  for (int i = 1; i < argc; ++i) {
    try {
      describe(TunnelTool::parseTunnelIdText(argv[i]));
    } catch (std::exception const& e) {
      std::fprintf(stderr, "tunnelid: %s: %s\n", argv[i], e.what());
      rc = 1;
    }
  }
  return rc;
}
