#!/usr/bin/env bash
# Runs the fuzz targets, all or those named, for SECONDS each, two at a time, and prints a table of what
# they did. Their corpus stays in build/fuzz/corpus for the next time. On a finding: prints where its
# input is and fails.
#
#   scripts/fuzz.sh SECONDS [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."

[[ ${1:-} =~ ^[1-9][0-9]*$ ]] || { echo "usage: scripts/fuzz.sh SECONDS [TARGET...]" >&2; exit 2; }
seconds=$1
shift
targets=("$@")
[[ ${#targets[@]} -gt 0 ]] || mapfile -t targets < <(ls fuzz/seeds)
for target in "${targets[@]}"; do
  [[ -d fuzz/seeds/$target ]] || { echo "fuzz.sh: no target '$target'" >&2; exit 2; }
done

scripts/install_packages.sh build fuzz
scripts/build.sh fuzz fuzzer
mkdir -p build/fuzz/results

# Targets write small files: into memory if possible.
scratch=$(mktemp -d -p /dev/shm velmora-fuzz.XXXXXX 2>/dev/null || mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# run TARGET: a target changes its working directory, so all paths are absolute.
run() {
  local corpus=$PWD/build/fuzz/corpus/$1 found=$PWD/build/fuzz/found/$1 known=()
  mkdir -p "$corpus" "$found"
  [[ ! -d fuzz/findings/$1 ]] || known=("$PWD/fuzz/findings/$1")
  VELMORA_TARGET=$1 TMPDIR=$scratch UBSAN_OPTIONS=print_stacktrace=1 nice -n 10 build/fuzz/fuzzer \
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
