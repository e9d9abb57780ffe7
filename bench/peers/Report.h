#pragma once
// The tables the benchmark prints: every figure of every store at every
// size, each peer's figure with the ratio of libtunnel to it, then the reads
// under churn the same way, then the targets, checked at the largest size.

#include <iosfwd>
#include <string>
#include <vector>

#include "bench/peers/Harness.h"

namespace PeerBench {

// "2025-11-21, 2 cores (<cpu model>), 23.4 GiB memory, Linux 6.1"
std::string machineLine();

void printTable(std::ostream& os, std::vector<Row> const& rows);

// Prints the targets; true when every one was met.
bool printTargets(std::ostream& os, std::vector<Row> const& rows);

}  // namespace PeerBench
