#!/usr/bin/env bash
# Runs the patcher against a server that misbehaves in a thousand generated ways, natively, under both
# sanitizers and as a Windows program under Wine. The tests run a fifth of them, a tenth under Wine.
# VELMORA_CASE=n runs one of the thousand alone.
#
#   scripts/hostile.sh [PRESET...]       native asan tsan win64, if none is named
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/test_filter.sh

presets=("$@")
[[ $# -gt 0 ]] || presets=(native asan tsan win64)
export VELMORA_CASES=1000 UBSAN_OPTIONS=halt_on_error=1 TSAN_OPTIONS=halt_on_error=1
for preset in "${presets[@]}"; do
  echo "== $preset"
  scripts/build.sh "$preset" hostile_test
  program=(build/"$preset"/hostile_test)
  [[ $preset != win* ]] || program=(scripts/wine.sh "${program[0]}.exe")
  filter=$(test_filter '*HostileServer*' "${program[@]}")
  "${program[@]}" "$filter" | grep -aE '^[0-9]+ cases|FAILED|PASSED'
done
