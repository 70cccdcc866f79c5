#!/usr/bin/env bash
# Checks the format of all sources, and runs clang-tidy and cppcheck over the program's own. With --quick
# without clang's analyzer, which takes half of the time.
set -euo pipefail
cd "$(dirname "$0")/.."

checks=()
[[ ${1:-} != --quick ]] || checks=(--checks=-clang-analyzer-*)

folders=()
for folder in src tests bench fuzz; do
  [[ -d $folder ]] && folders+=("$folder")
done
mapfile -t sources < <(find "${folders[@]}" -name '*.cpp' -o -name '*.h')
clang-format --dry-run -Werror "${sources[@]}"
echo "Format: ${#sources[@]} files."

# clang has no execution character set but UTF-8, so it gets a configuration of its own.
cmake --preset tidy >/dev/null
# It counts the warnings that it suppresses on its error stream, which matters when it fails alone.
find src -name '*.cpp' -not -path 'src/platform/win32/*' -print0 |
  xargs -0 -P "$(nproc)" -n 4 clang-tidy --quiet "${checks[@]}" -p build/tidy \
    --extra-arg=-Wno-unknown-warning-option 2>build/tidy/messages ||
  { cat build/tidy/messages >&2; exit 1; }
echo "clang-tidy: clean."

cppcheck --quiet --error-exitcode=1 --std=c++20 --language=c++ --inline-suppr -I src -j "$(nproc)" \
  --enable=warning,performance,portability --suppress=missingIncludeSystem -i src/platform/win32 src
echo "cppcheck: clean."
