#!/usr/bin/env bash
# Installs what is missing, builds everything and runs every test: natively and under the sanitizers,
# then format, lints and the order of the floors. With --quick: the native build and its tests alone.
set -euo pipefail
cd "$(dirname "$0")/.."

quick=false
[[ ${1:-} == --quick ]] && quick=true

step() { echo; echo "== $*"; }

fail() { echo "test.sh: $*" >&2; exit 1; }

run_suite() {
  step "Build and test: $1"
  cmake --preset "$1" >/dev/null || fail "$1: can't be configured"
  local log=build/$1/build.log
  cmake --build --preset "$1" >"$log" || { cat "$log" >&2; fail "$1: doesn't build"; }
  ctest --preset "$1" -j "$(nproc)" |
    grep -vE '^ *(Start |[0-9]+/[0-9]+ .* Passed )|^$' || fail "$1: tests fail"
}

if $quick; then
  scripts/install_packages.sh build
  run_suite native
  exit
fi

scripts/install_packages.sh build check

step "Floors, format, lints"
scripts/check_floors.sh
scripts/lint.sh

export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export TSAN_OPTIONS=halt_on_error=1
run_suite tsan
run_suite asan
run_suite native

step "Memory check"
scripts/valgrind.sh

step "Everything passed; the last suite once more in one line"
ctest --preset native -R RecordSet | tail -3
