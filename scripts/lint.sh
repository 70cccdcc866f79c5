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

# clang's only execution character set is UTF-8, so it needs a configuration of its own. What that compiles
# together is checked together: most of the time goes into reading the same headers.
cmake --preset tidy >/dev/null
cmake --preset tidy-desktop >/dev/null

# tidy PRESET FILE...: it writes the number of suppressed warnings to stderr, which matters only when it fails.
tidy() {
  local preset=$1
  shift
  printf '%s\0' "$@" | xargs -0 -P "$(nproc)" -n 4 clang-tidy --quiet "${checks[@]}" -p "build/$preset" \
    --extra-arg=-Wno-unknown-warning-option 2>"build/$preset/messages" ||
    { cat "build/$preset/messages" >&2; exit 1; }
}
mapfile -t joined < <(find build/tidy/src/publish -name 'unity_*.cxx' | sort -r)  # the longest first
mapfile -t single < <(find src -name '*.cpp' -not -path 'src/platform/win32/*' -not -path '*/desktop/*' \
  -not -name '*_win32.cpp' -not -path 'src/publish/*' -not -path src/programs/publish.cpp)
tidy tidy "${joined[@]}" src/publish/common/progress_line.cpp "${single[@]}"
tidy tidy-desktop src/platform/posix/desktop/*.cpp
echo "clang-tidy: clean."

cppcheck --quiet --error-exitcode=1 --std=c++20 --language=c++ --inline-suppr -I src -j "$(nproc)" \
  --enable=warning,performance,portability --suppress=missingIncludeSystem -i src/platform/win32 -i src/programs/patcher_win32.cpp src
echo "cppcheck: clean."
