#!/usr/bin/env bash
# libtunnel against LMDB, Redis and Boost.Interprocess in one run: installs
# the peers (opt-in, scripts/setup-peers.sh), builds the optimised
# configuration and prints the table. Arguments go to the benchmark
# (--keys 100000,1000000 --samples 10000 --stores libtunnel,lmdb,redis,boost).
# The Redis server it starts listens on 127.0.0.1 only and is stopped by pid
# when the run ends, however it ends.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup-peers.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target peers_bench

bench=./build/release/bench/peers/peers_bench
"$bench" "$@" &
pid=$!
# The benchmark removes its own files; these catch a run killed outright.
cleanup() {
  kill "$pid" 2>/dev/null || true
  wait "$pid" 2>/dev/null || true
  rm -rf "/dev/shm/tunnel-peers-$pid" /dev/shm/tunnel-peers-"$pid".*
}
trap cleanup INT TERM HUP
wait "$pid"
