#pragma once
// One function per store: runs the whole workload on it and returns its rows
// (a store measured two ways gives two rows).

#include <vector>

#include "bench/peers/Harness.h"

namespace PeerBench {

std::vector<Row> runLibtunnel(Workload const& w);
// One transaction per write, then batched transactions.
std::vector<Row> runLmdb(Workload const& w);
// Unpipelined, then pipelined by 100.
std::vector<Row> runRedis(Workload const& w);
std::vector<Row> runBoost(Workload const& w);
// Notification latency only: a bare eventfd wake-up between two processes.
std::vector<Row> runWakeFloor(Workload const& w);

}  // namespace PeerBench
