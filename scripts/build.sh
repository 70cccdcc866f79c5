#!/usr/bin/env bash
# Configures and builds a preset, whole or the targets named. Prints nothing unless that fails, and then
# the log.
#
#   scripts/build.sh PRESET [TARGET...]
set -euo pipefail
cd "$(dirname "$0")/.."

[[ $# -gt 0 ]] || { echo "usage: scripts/build.sh PRESET [TARGET...]" >&2; exit 2; }
preset=$1
shift
[[ $# -eq 0 ]] || set -- --target "$@"
mkdir -p "build/$preset"
# Clones in different folders share what ccache has.
if [[ -z ${CMAKE_CXX_COMPILER_LAUNCHER:-} ]] && command -v ccache >/dev/null; then
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache CCACHE_BASEDIR=$PWD CCACHE_NOHASHDIR=1
  export CCACHE_SLOPPINESS=pch_defines,time_macros
fi
log=build/$preset/build.log
exec {lock}>"build/$preset.lock"
flock "$lock"  # scripts at work at the same time may ask for the same
{ cmake --preset "$preset" && cmake --build --preset "$preset" "$@"; } >"$log" 2>&1 ||
  { cat "$log" >&2; echo "build.sh: $preset doesn't build" >&2; exit 1; }
