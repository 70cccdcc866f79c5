#!/usr/bin/env bash
# Measures the native programs beside other programs that do the same work, in the same run, and writes
# the tables of docs/performance.md. Data and results go below build/bench (some 12 GiB).
#
#   bench.sh               all of it, in five rounds: an hour or so
#   bench.sh patcher ...   works of the patcher: check, many, install, one, crowd, growth
#   bench.sh publish ...   works of velmora-publish: build, build-one, verify
#   bench.sh inner         the inner parts alone, with Google Benchmark
#
# Named works are printed; only a run of all works of a kind goes into the document.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/own_network.sh

arguments=("$@")
kind=${1:-all}
shift || true
case $kind in
  all | patcher | publish | inner) ;;
  *) sed -n '2,/^$/s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac

scripts/install_packages.sh build demo bench
enter_own_network "${arguments[@]}"
echo "== Building"
scripts/build.sh native VelmoraUpdate velmora-publish inner_bench

document=(--document)
[[ $# -eq 0 ]] || document=()
if [[ $kind == all || $kind == patcher ]]; then
  python3 bench/whole_process.py "${document[@]}" "$@"
fi
if [[ $kind == all || $kind == publish ]]; then
  python3 bench/publisher.py "${document[@]}" "$@"
fi
if [[ $kind == all || $kind == inner ]]; then
  build/native/inner_bench
fi
