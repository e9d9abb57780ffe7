#!/usr/bin/env bash
# The main job: installs what is missing, builds tunnelctl optimised and runs
# its demo (LDP, IS-IS SR and BGP-LU producers, a redistribution consumer, a
# tunnel FIB producer and a RIB calculator, each its own process). The tables,
# the FIB and the RIBs are kept under /dev/shm/libtunnel so that the commands
# the summary prints can look at them; the next run starts afresh.
# Arguments go to the demo (for example --tunnels 50000 --seconds 10).
set -euo pipefail
cd "$(dirname "$0")/.."
# Clones in other directories share the compiler cache.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1
bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tunnelctl
exec ./build/release/tools/tunnelctl/tunnelctl demo --keep "$@"
