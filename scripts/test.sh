#!/usr/bin/env bash
# The whole test suite: installs what is missing, builds under AddressSanitizer
# and UndefinedBehaviorSanitizer and runs every test through ctest, runs the
# ThreadSanitizer-labelled tests under ThreadSanitizer, checks that the
# optimised build (tools, benchmarks) and the clang build compile warning-free,
# and holds the tree to clang-format and clang-tidy (scripts/lint.sh).
set -euo pipefail
cd "$(dirname "$0")/.."
# Clones in other directories share the compiler cache.
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=1

bash scripts/setup.sh
jobs=$(nproc)

step() { printf '\n== %s (at %d s)\n' "$*" "$SECONDS"; }

step "AddressSanitizer + UndefinedBehaviorSanitizer"
cmake --preset asan >/dev/null
cmake --build --preset asan -j "$jobs"
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  ctest --preset asan

step "ThreadSanitizer (tests labelled tsan)"
cmake --preset tsan >/dev/null
cmake --build --preset tsan -j "$jobs" --target tsan_tests
TSAN_OPTIONS=halt_on_error=1 ctest --preset tsan

step "Optimised build (tools and benchmarks) with g++; everything with clang (warnings)"
cmake --preset release >/dev/null
cmake --build --preset release -j "$jobs"
cmake --preset clang-check >/dev/null
cmake --build --preset clang-check -j "$jobs"

step "clang-format and clang-tidy"
bash scripts/lint.sh build/clang-check
echo "test.sh: all green in $SECONDS s"
