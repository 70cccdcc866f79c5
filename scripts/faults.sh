#!/usr/bin/env bash
# Lets every operation of a whole start fail, one after the other, with each of the errors it may have:
# the chain of processes has to end by itself, tell the player, and heal with one undisturbed start. The
# tests try one error for each operation, and a fifth of the operations on the log. Takes five minutes.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset native >/dev/null
cmake --build --preset native --target fault_test | tail -1
VELMORA_ALL_FAULTS=1 build/native/fault_test --gtest_brief=1 --gtest_filter='Faults/*'
