#pragma once
// The demo's processes: three producers, each publishing and churning one
// protocol's tunnel table, and a consumer that follows the three tables with
// the redistribution machines. Each runs in a child of `tunnelctl demo` and
// returns its exit status; the orchestration and the report are in Demo.cpp.

#include <string>

#include "tools/tunnelctl/Commands.h"
#include "tools/tunnelctl/DemoShared.h"
#include "tools/tunnelctl/RedistFollower.h"

namespace TunnelCtl::Demo {

int runProducer(SharedRegion const& region, RedistProtocol protocol, DemoOptions const& o);
int runConsumer(SharedRegion const& region, DemoOptions const& o);

// The status of process `slot`: a producer's index, kConsumer, kRibCalc or a
// multicast process (kMldpProducer, kStaticMcastProducer, kMergeAgent).
ProcStatus const& statusOf(SharedRegion const& region, int slot);
// "consumer", "producer ldp", "merge agent", ...
std::string processName(int slot);
// The progress line of process `slot`.
// `rate` is the writes (or notifications) per second since the last line.
std::string progressLine(SharedRegion const& region, int slot, double rate);
// The closing report. `bin` is how to call tunnelctl from here and
// `rootOption` what the commands it suggests need to find the tables.
void printSummary(SharedRegion const& region, DemoOptions const& o, std::string const& bin,
                  std::string const& rootOption);
// 12345678 -> "12,345,678".
std::string grouped(uint64_t n);

}  // namespace TunnelCtl::Demo
