#!/usr/bin/env bash
# Runs the engine under valgrind: no error, no lost block, and no growth over many runs in one process.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/test_filter.sh
program=build/native/engine_test

check() {
  local filter
  filter=$(test_filter "$1" "$program")
  valgrind --quiet --error-exitcode=1 --leak-check=full --show-leak-kinds=definite,indirect \
    --errors-for-leak-kinds=definite,indirect --log-file=build/valgrind.log \
    "$program" --gtest_brief=1 "$filter" >build/valgrind.out ||
    { cat build/valgrind.out build/valgrind.log; exit 1; }
}

scripts/build.sh native engine_test
check 'UpdateRun.*'
check 'Removal.*:*Verification*:ReferenceList.*:CommandLine.Options*'

# The blocks still held at the end must not depend on the number of runs.
installation=$(test_filter 'UpdateRun.FirstInstallation*' "$program")
held() {
  valgrind --log-file=build/valgrind.log "$program" --gtest_brief=1 "$installation" \
    --gtest_repeat="$1" >/dev/null
  sed -n 's/.*in use at exit: \([0-9,]*\) bytes.*/\1/p' build/valgrind.log
}
few=$(held 10)
many=$(held 30)
echo "valgrind: no error; held at the end after 10 runs: $few bytes, after 30 runs: $many bytes."
[[ $few == "$many" ]]
