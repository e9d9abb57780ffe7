#!/usr/bin/env bash
# The main job: installs what is missing, builds the optimised configuration and
# runs the demonstration program.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/setup.sh
cmake --preset release >/dev/null
cmake --build --preset release -j "$(nproc)" --target tunnelid
./build/release/tools/tunnelid/tunnelid "$@"
