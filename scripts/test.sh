#!/usr/bin/env bash
# Installs what is missing, builds everything, checks includes, format and lints, and runs every test: natively,
# on a desktop, under the sanitizers, and as Windows programs under Wine. With --quick: only the native build and its tests.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/own_network.sh

quick=false
[[ ${1:-} == --quick ]] && quick=true

step() { echo; echo "== $*"; }

fail() { echo "test.sh: $*" >&2; exit 1; }

# run_suite PRESET JOBS [TARGET...]
run_suite() {
  step "Build and test: $1"
  scripts/build.sh "$1" "${@:3}"
  in_own_network ctest --preset "$1" -j "$2" |
    grep -avE '^ *(Start |[0-9]+/[0-9]+ .* Passed )|^$' || fail "$1: tests fail"
}

if $quick; then
  scripts/install_packages.sh build
  run_suite native "$(nproc)"
  exit
fi

scripts/install_packages.sh build demo check desktop windows

# What runs under Wine waits most of the time, so it goes beside everything else, in a process group of its own:
# nothing of it outlives this script. Its output comes at the end.
mkdir -p build
in_background() {
  set -m
  "$1" </dev/null >"build/$1.log" 2>&1 &
  set +m
  background=$!
}
trap '[[ -z ${background:-} ]] || kill -- "-$background" 2>/dev/null || true' EXIT

on_windows() {
  # Mostly downloads.
  scripts/wine32_root.sh --prepare >build/wine32-prepare.log 2>&1 &
  local wine32=$! result=0

  # All programs of one prefix share a desktop: one test at a time. Hostile responses take longer there, so
  # fewer of them are tried.
  VELMORA_CASES=100 run_suite win64 1

  step "The 32-bit program, driven by its windows"
  scripts/build.sh win32 VelmoraUpdate windows_process_test
  # Players download it. Parts of the C++ library that it doesn't need are easily linked in unnoticed.
  [[ $(stat -c %s build/win32/VelmoraUpdate.exe) -le $((512 * 1024)) ]] ||
    fail "VelmoraUpdate.exe has grown beyond 512 KiB; its link map tells which part of which library was taken for what"
  wait "$wine32" || cat build/wine32-prepare.log
  scripts/wine32_root.sh build/win32/windows_process_test.exe --gtest_brief=1 || result=$?
  case $result in
    0) ;;
    77) echo "32-bit Wine is unavailable here: only the 64-bit program was tested." ;;
    *) fail "win32: tests fail" ;;
  esac

  step "Two real games, published by both tools and installed by both patchers"
  scripts/real_trees.sh

  step "A publisher's day, with the Windows tool"
  scripts/publisher_day.sh --windows | grep -v '^ '
}

step "Layers"
scripts/check_floors.sh

in_background on_windows

export UBSAN_OPTIONS=halt_on_error=1:print_stacktrace=1
export TSAN_OPTIONS=halt_on_error=1
run_suite native "$(nproc)"
run_suite desktop "$(nproc)" desktop_test
# Hostile responses find overruns, not races: fewer of them will do for the latter.
VELMORA_CASES=50 run_suite tsan "$(nproc)"
run_suite asan "$(nproc)"

step "Memory check"
scripts/valgrind.sh

step "Format, lints"
scripts/lint.sh --quick

step "A publisher's day, as the documentation tells it"
scripts/publisher_day.sh | grep -v '^ '

step "A publisher's pipeline"
scripts/pipeline.sh | grep -v '^ '

step "Instructions for each record"
scripts/instructions.sh

step "Windows"
windows=0
wait "$background" || windows=$?
background=
cat build/on_windows.log
[[ $windows -eq 0 ]] || fail "Windows"

step "Everything passed; the shortest suite once more, for its closing lines"
ctest --preset native -R RecordSet | tail -3
