#!/usr/bin/env bash
# Kills the patcher before every change that a whole start makes to the disk, and half-way through every
# write: one undisturbed start has to bring the installation into line.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/test_filter.sh

scripts/build.sh native fault_test
filter=$(test_filter 'Kills/*' build/native/fault_test)
VELMORA_ALL_FAULTS=1 build/native/fault_test --gtest_brief=1 "$filter"
