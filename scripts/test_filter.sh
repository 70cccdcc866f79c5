# Sourced by scripts that run some tests of a program.

# test_filter PATTERNS PROGRAM...: prints the option that selects the tests of these patterns, which
# colons separate. Fails if one of them matches no test, which GoogleTest takes for a success.
test_filter() {
  local patterns pattern
  IFS=: read -ra patterns <<<"$1"
  for pattern in "${patterns[@]}"; do
    "${@:2}" --gtest_list_tests --gtest_filter="$pattern" | grep '^  ' >/dev/null ||
      { echo "no test of ${*: -1} matches $pattern" >&2; return 1; }
  done
  echo "--gtest_filter=$1"
}
