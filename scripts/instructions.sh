#!/usr/bin/env bash
# Counts the instructions for each record in each step of a start with nothing to do, with valgrind:
# figures that no other load changes. Compares them with bench/instructions.txt and warns of an increase
# of 5 %; --update rewrites that file. Fails if a step can't be counted, never because of a figure.
set -euo pipefail
cd "$(dirname "$0")/.."
committed=$PWD/bench/instructions.txt
place=$PWD/build/instructions
steps=(ParseReferenceList RememberVerified SaveVerifyCache LoadVerifyCache IsVerifiedUnchanged)

scripts/build.sh native record_costs
program=$PWD/build/native/record_costs
rm -rf "$place"
mkdir -p "$place"
cd "$place"

# A lambda within the function, whose name ends in "const", must not end the counting.
count() {
  rm -f VelmoraUpdate.cvc
  valgrind --tool=callgrind --callgrind-out-file="$place/$1.out" --toggle-collect="velmora::$1(*)" \
    "$program" >records 2>"$1.log" || { cat "$1.log" >&2; return 1; }
  local instructions
  instructions=$(sed -n 's/^summary: //p' "$1.out")
  [[ $instructions -gt 0 ]] || { echo "instructions.sh: no function $1 ran" >&2; return 1; }
  echo "$1 $((instructions / $(<records)))"
}

for step in "${steps[@]}"; do
  count "$step"
done >counted

warned=false
while read -r step instructions; do
  before=$(sed -n "s/^$step //p" "$committed" 2>/dev/null || true)
  echo "$step: $instructions instructions a record, committed: ${before:-none}"
  if [[ -n $before && $instructions -gt $((before * 105 / 100)) ]]; then
    echo "warning: $step costs more than 5 % more than before"
    warned=true
  fi
done <counted
[[ ${1:-} != --update ]] || cp counted "$committed"
$warned && echo "If that is intended: scripts/instructions.sh --update"
exit 0
