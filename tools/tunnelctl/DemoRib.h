#pragma once
// The demo's RIB calculator: follows the three producers' tables as key
// shadows and publishes the tunnel RIB, the colored tunnel RIB and their
// command-line view; once the producers are done it checks what it kept
// against a calculation made afresh from the tables.

#include "Tunnel/TunnelTable/TunnelRib.h"
#include "Tunnel/cli/TunnelPelagStatus.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/DemoShared.h"

namespace TunnelCtl::Demo {

// Where the calculator publishes, under the state root.
inline constexpr const char* kRibPaths[] = {Tunnel::TunnelTable::TunnelRib::kMountPath,
                                            Tunnel::TunnelTable::ColoredTunnelRib::kMountPath,
                                            Tunnel::TunnelTable::TunnelPelagStatus::kMountPath};

// Runs until the demo shuts down, so that its RIBs have a live writer while
// the demo reports.
int runRibCalculator(SharedRegion const& region, DemoOptions const& o);

}  // namespace TunnelCtl::Demo
