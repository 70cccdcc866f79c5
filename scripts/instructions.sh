#!/usr/bin/env bash
# Counts the instructions that one record costs in each step of a start with nothing to do, with valgrind:
# figures that no other load moves. Compares them with bench/instructions.txt and warns of 5 % more;
# --update writes that file anew. Never fails because of a figure.
set -euo pipefail
cd "$(dirname "$0")/.."
committed=$PWD/bench/instructions.txt
place=$PWD/build/instructions
steps=(ParseReferenceList RememberVerified SaveVerifyCache LoadVerifyCache IsVerifiedUnchanged)

cmake --preset native >/dev/null
cmake --build --preset native --target record_costs >/dev/null
program=$PWD/build/native/record_costs
rm -rf "$place"
mkdir -p "$place"
cd "$place"

count() {
  rm -f VelmoraUpdate.cvc
  valgrind --tool=callgrind --callgrind-out-file="$place/$1.out" --toggle-collect="velmora::$1(*" \
    "$program" >records 2>"$1.log" || { cat "$1.log" >&2; return 1; }
  echo $(($(sed -n 's/^summary: //p' "$1.out") / $(<records)))
}

for step in "${steps[@]}"; do
  echo "$step $(count "$step")"
done >counted

warned=false
while read -r step instructions; do
  before=$(sed -n "s/^$step //p" "$committed" 2>/dev/null || true)
  echo "$step: $instructions instructions a record, committed: ${before:-none}"
  if [[ -n $before && $instructions -gt $((before * 105 / 100)) ]]; then
    echo "warning: $step costs over 5 % more than before"
    warned=true
  fi
done <counted
[[ ${1:-} != --update ]] || cp counted "$committed"
$warned && echo "If that is meant: scripts/instructions.sh --update"
exit 0
