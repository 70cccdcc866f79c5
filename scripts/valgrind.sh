#!/usr/bin/env bash
# Runs the engine under valgrind: no error, no lost block, and no growth over ten runs in one process.
set -euo pipefail
cd "$(dirname "$0")/.."

check() {
  valgrind --quiet --error-exitcode=1 --leak-check=full --show-leak-kinds=definite,indirect \
    --errors-for-leak-kinds=definite,indirect --log-file=build/valgrind.log \
    build/native/engine_test --gtest_brief=1 --gtest_filter="$1" >build/valgrind.out ||
    { cat build/valgrind.out build/valgrind.log; exit 1; }
}

check 'UpdateRun.*-*LargeList*'
check 'Removal.*:Verification*:ReferenceList.*:CommandLine.Options*'

# The blocks still held at the end must not depend on the number of runs.
held() {
  valgrind --log-file=build/valgrind.log build/native/engine_test --gtest_brief=1 \
    --gtest_filter=UpdateRun.TenRunsInOneProcess --gtest_repeat="$1" >/dev/null
  sed -n 's/.*in use at exit: \([0-9,]*\) bytes.*/\1/p' build/valgrind.log
}
one=$(held 1)
three=$(held 3)
echo "valgrind: no error; held at the end after 10 runs: $one bytes, after 30 runs: $three bytes."
[[ $one == "$three" ]]
