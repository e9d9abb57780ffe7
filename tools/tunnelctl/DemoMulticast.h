#pragma once
// The demo's multicast processes: an MLDP producer and a static multicast
// producer, each writing its table by identifier and churning it, and the
// merge agent that keeps the MPLS multicast table equal to their merge and,
// once both producers are done, checks it against the tables.

#include "Tunnel/multicast/MulticastMergeAgent.h"
#include "Tunnel/multicast/MulticastTables.h"
#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/DemoShared.h"

namespace TunnelCtl::Demo {

// What the multicast processes publish under the state root.
inline constexpr const char* kMulticastPaths[] = {
    "tunnel/table/mldpTunnel", "tunnel/table/staticMcast",
    Tunnel::TunnelTable::MplsMulticastTunnelTable::kMountPath,
    Tunnel::TunnelTable::MulticastMergeAgent::kStatusPath};

// A tenth of the unicast tunnels (at least one): the entries are large.
uint32_t multicastTunnels(DemoOptions const& o);

// `slot` is kMldpProducer or kStaticMcastProducer.
int runMulticastProducer(SharedRegion const& region, int slot, DemoOptions const& o);
// Runs until the demo shuts down, so that its tables have a live writer
// while the demo reports.
int runMergeAgent(SharedRegion const& region, DemoOptions const& o);

}  // namespace TunnelCtl::Demo
