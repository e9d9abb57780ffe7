#!/usr/bin/env bash
# The conventions the repository ships, enforced: every C++ file as
# clang-format would write it, and clang-tidy's bug-finding checks (the
# project's .clang-tidy) clean over the library and the tools.
# Usage: scripts/lint.sh BUILD_DIR   (a configured clang build: its
# compile_commands.json gives clang-tidy the flags of each file)
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:?usage: scripts/lint.sh BUILD_DIR}

mapfile -t all < <(git ls-files -co --exclude-standard -- '*.cpp' '*.h')
echo "lint: clang-format on ${#all[@]} files"
clang-format --dry-run --Werror "${all[@]}"

mapfile -t sources < <(git ls-files -co --exclude-standard -- 'Tunnel/*.cpp' 'tools/*.cpp')
echo "lint: clang-tidy on ${#sources[@]} files"
# Warnings of the naming check are advice; only the checks listed in
# WarningsAsErrors fail the run.
run-clang-tidy -quiet -p "$build" -j "$(nproc)" "${sources[@]/#/$PWD/}" \
  >"$build/clang-tidy.log" 2>&1 || {
  grep -E 'error:' "$build/clang-tidy.log" | sort -u | head -50
  echo "lint: clang-tidy found errors (full log: $build/clang-tidy.log)"
  exit 1
}
echo "lint: clean"
