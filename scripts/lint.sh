#!/usr/bin/env bash
# Checks the format of all sources, and runs clang-tidy and cppcheck on the program's own. --quick leaves
# out clang's analyzer and the checks that take most time for what they find.
set -euo pipefail
cd "$(dirname "$0")/.."

checks=()
slow='-clang-analyzer-*,-bugprone-reserved-identifier,-bugprone-stringview-nullptr,-bugprone-suspicious-*'
slow+=',-bugprone-undelegated-constructor,-bugprone-assert-side-effect,-bugprone-multiple-statement-macro'
slow+=',-bugprone-infinite-loop,-readability-redundant-declaration'
[[ ${1:-} != --quick ]] || checks=("--checks=$slow")

mapfile -t sources < <(find src tests bench fuzz -name '*.cpp' -o -name '*.h')
clang-format --dry-run -Werror "${sources[@]}"
echo "Format: ${#sources[@]} files."

# clang's only execution character set is UTF-8, so it needs a configuration of its own.
cmake --preset tidy >/dev/null
# It writes the number of suppressed warnings to stderr, which matters only when it fails.
commands=build/tidy/src/publish/CMakeFiles/velmora-publish.dir/Unity/unity_0_cxx.cxx
{
  printf '%s\0' $commands  # the longest first
  find src -name '*.cpp' -not -path 'src/platform/win32/*' -not -name '*_win32.cpp' \
    -not -path 'src/publish/commands/*' -not -path src/programs/publish.cpp -print0
} | xargs -0 -P "$(nproc)" -n 4 clang-tidy --quiet "${checks[@]}" -p build/tidy \
    --extra-arg=-Wno-unknown-warning-option 2>build/tidy/messages ||
  { cat build/tidy/messages >&2; exit 1; }
echo "clang-tidy: clean."

cppcheck --quiet --error-exitcode=1 --std=c++20 --language=c++ --inline-suppr -I src -j "$(nproc)" \
  --enable=warning,performance,portability --suppress=missingIncludeSystem -i src/platform/win32 -i src/programs/patcher_win32.cpp src
echo "cppcheck: clean."
