#!/usr/bin/env bash
# Runs the fuzz targets, all or those named, for SECONDS each, two at a time, and prints what they did as
# a table. What they learn stays in build/fuzz/corpus for the next time. On a finding: prints where its
# input is and exits non-zero.
#
#   scripts/fuzz.sh SECONDS [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."

[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || { echo "usage: scripts/fuzz.sh SECONDS [TARGET...]" >&2; exit 2; }
seconds=$1
shift
targets=("$@")
if [[ ${#targets[@]} -eq 0 ]]; then
  for source in fuzz/*_fuzzer.cpp; do targets+=("$(basename "$source" _fuzzer.cpp)"); done
fi
for target in "${targets[@]}"; do
  [[ -f fuzz/${target}_fuzzer.cpp ]] || { echo "fuzz.sh: no target '$target'" >&2; exit 2; }
done

scripts/install_packages.sh build fuzz
mkdir -p build/fuzz/results
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j2 --target "${targets[@]/%/_fuzzer}" >build/fuzz/build.log ||
  { cat build/fuzz/build.log >&2; exit 1; }

# What targets write goes to memory if it can.
scratch=$(mktemp -d -p /dev/shm velmora-fuzz.XXXXXX 2>/dev/null || mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# run TARGET: a target works in a folder of its own, so all paths are absolute.
run() {
  local corpus=$PWD/build/fuzz/corpus/$1 found=$PWD/build/fuzz/found/$1 known=()
  mkdir -p "$corpus" "$found"
  [[ ! -d fuzz/findings/$1 ]] || known=("$PWD/fuzz/findings/$1")
  TMPDIR=$scratch UBSAN_OPTIONS=print_stacktrace=1 nice -n 10 "build/fuzz/$1_fuzzer" \
    -max_total_time="$seconds" -max_len=4096 -timeout=25 -rss_limit_mb=2048 -print_final_stats=1 \
    -artifact_prefix="$found/" "$corpus" "$PWD/fuzz/seeds/$1" "${known[@]}" \
    >"build/fuzz/results/$1.log" 2>&1
}
export -f run
export seconds scratch

failed=0
printf '%s\n' "${targets[@]}" | xargs -P 2 -I {} bash -c 'run {}' || failed=1

# last TARGET PATTERN: the last match in the target's log.
last() { grep -aoP "$2" "build/fuzz/results/$1.log" | tail -n 1 || true; }

printf '%-16s %12s %8s %10s  %s\n' target executions edges exec/s finding
for target in "${targets[@]}"; do
  printf '%-16s %12s %8s %10s  %s\n' "$target" \
    "$(last "$target" 'stat::number_of_executed_units: *\K[0-9]+')" \
    "$(last "$target" ' cov: \K[0-9]+')" \
    "$(last "$target" 'stat::average_exec_per_sec: *\K[0-9]+')" \
    "$(last "$target" 'Test unit written to \K.*')"
done
exit $failed
