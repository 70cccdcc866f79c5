#!/usr/bin/env bash
# Kills the patcher in front of every change that a whole start makes to the disk, half-way through every
# write, and at random moments, 500 of them or as many as the argument says: one undisturbed start has to
# bring the installation into line. VELMORA_KILL_SEED chooses other moments.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset native >/dev/null
cmake --build --preset native --target fault_test | tail -1
VELMORA_ALL_FAULTS=1 VELMORA_KILLS=${1:-500} build/native/fault_test --gtest_brief=1 \
  --gtest_filter='Kills.*'
