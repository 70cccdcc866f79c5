#!/usr/bin/env bash
# Kills the patcher before every change that a whole start makes to the disk, and half-way through every
# write: one undisturbed start has to bring the installation into line.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset native >/dev/null
cmake --build --preset native --target fault_test | tail -1
VELMORA_ALL_FAULTS=1 build/native/fault_test --gtest_brief=1 --gtest_filter='Kills/*'
