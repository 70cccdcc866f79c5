#!/usr/bin/env bash
# Compares the native programs with other programs that do the same work, and writes the tables of
# docs/performance.md. Data and results go to build/bench (some 12 GiB).
#
#   bench.sh               everything, in five rounds: about an hour
#   bench.sh patcher ...   tasks of the patcher: check, many, install, one, crowd, growth
#   bench.sh publish ...   tasks of velmora-publish: build, build-one, verify
#   bench.sh efforts       what each effort of `build` makes of three real games: half an hour
#   bench.sh desktop       memory and start-up of the desktop program beside the one for terminals
#   bench.sh inner         single parts, with Google Benchmark
#
# Named tasks are only printed. A run of all tasks of a kind is written to the document.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/debian_game.sh
source scripts/own_network.sh

arguments=("$@")
kind=${1:-all}
shift || true
case $kind in
  all | patcher | publish | efforts | desktop | inner) ;;
  *) sed -n '2,/^$/s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac

scripts/install_packages.sh build demo bench
[[ $kind != desktop ]] || scripts/install_packages.sh desktop
if [[ $kind == all || $kind == efforts ]]; then
  for game in neverball-data pingus-data freedoom; do
    unpack_game "$game" build/bench-efforts  # downloads it, which can't be done later
  done
fi
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
if [[ $kind == all || $kind == efforts ]]; then
  python3 bench/efforts.py "${document[@]}" "$@"
fi
if [[ $kind == desktop ]]; then
  scripts/build.sh desktop VelmoraUpdate loop_turns
  GSK_RENDERER=cairo LIBGL_ALWAYS_SOFTWARE=1 xvfb-run -a -s '-screen 0 1440x960x24' \
    dbus-run-session -- python3 bench/desktop.py "${document[@]}"
fi
if [[ $kind == all || $kind == inner ]]; then
  build/native/inner_bench
fi
