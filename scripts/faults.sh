#!/usr/bin/env bash
# Lets every operation of a whole start fail, one after the other, with each of the errors it may have:
# the chain of processes has to end by itself, tell the player, and heal with one undisturbed start. The
# tests try one error for each operation, and a fifth of the operations on the log. Takes five minutes.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/test_filter.sh

scripts/build.sh native fault_test
filter=$(test_filter 'Faults/*' build/native/fault_test)
VELMORA_ALL_FAULTS=1 build/native/fault_test --gtest_brief=1 "$filter"
