#!/usr/bin/env bash
# Lets every operation of a whole start fail, one after the other, with each of the errors it may have:
# the chain has to end by itself, to tell the player, and to heal with one undisturbed start. The tests
# strike one error for each operation, and a fifth of those on the log. Takes five minutes.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset native >/dev/null
cmake --build --preset native --target fault_test | tail -1
VELMORA_ALL_FAULTS=1 build/native/fault_test --gtest_brief=1 --gtest_filter='*Faults*'
