#!/usr/bin/env bash
# Fuzzes the tunnel table entry records (target "entry", the default) or the
# readers of a damaged table file (target "table"): builds the "fuzz" preset
# (clang, libFuzzer, ASan+UBSan), runs the fuzzer for the given number of
# seconds (default 600) on a scratch copy of its corpus, then merges the
# inputs that reach new code back into the committed corpus. Crashing inputs
# land in build/fuzz/artifacts/; replay one with
#   build/asan/tests/fuzz/entry_record_replay <file>
#   build/asan/tests/fuzz/table_image_replay <file>
# Usage: scripts/fuzz.sh [seconds] [entry|table]
set -euo pipefail
cd "$(dirname "$0")/.."
root=$(pwd)

seconds=${1:-600}
case "${2:-entry}" in
entry)
  corpus=tests/fuzz/corpus
  target=entry_record_fuzz
  # The largest record (a static entry with 600 vias in each list) is 130160
  # bytes, plus the selector byte.
  max_len=140000
  ;;
table)
  corpus=tests/fuzz/table-corpus
  target=table_image_fuzz
  max_len=512
  ;;
*)
  echo "usage: $0 [seconds] [entry|table]" >&2
  exit 2
  ;;
esac
fuzzer=build/fuzz/tests/fuzz/$target

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --target $target -j2

work=$(mktemp -d build/fuzz/run.XXXXXX)
trap 'rm -rf "$work"' EXIT
# The table harness keeps its table files in the scratch directory.
export TAMSEL_FUZZ_ROOT="$root/$work"
mkdir -p "$work/corpus" build/fuzz/artifacts
cp "$corpus"/* "$work/corpus/"

# One job, one worker: the machine is shared. With -jobs libFuzzer writes the
# job's output to fuzz-0.log in its working directory.
status=0
(cd "$work" && "$root/$fuzzer" -jobs=1 -workers=1 -max_len=$max_len \
  -max_total_time="$seconds" -timeout=30 -print_final_stats=1 \
  -artifact_prefix="$root/build/fuzz/artifacts/" corpus) || status=$?
cat "$work/fuzz-0.log"

before=$(ls "$corpus" | wc -l)
"$fuzzer" -merge=1 -max_len=$max_len "$corpus" "$work/corpus" 2>"$work/merge.log" || {
  cat "$work/merge.log"
  exit 1
}
after=$(ls "$corpus" | wc -l)
echo "fuzz.sh: corpus $before -> $after files ($(du -sh --apparent-size "$corpus" | cut -f1)); fuzzer status $status"
exit "$status"
