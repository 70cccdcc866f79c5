#!/usr/bin/env bash
# Checks the format of all sources, and runs clang-tidy and cppcheck over the program's own.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t sources < <(git ls-files --cached --others --exclude-standard \
  'src/*.cpp' 'src/*.h' 'tests/*.cpp' 'tests/*.h')
clang-format --dry-run -Werror "${sources[@]}"
echo "Format: ${#sources[@]} files."

# clang has no execution character set but UTF-8, so it gets a configuration of its own.
cmake --preset tidy >/dev/null
git ls-files --cached --others --exclude-standard 'src/*.cpp' ':!src/platform/win32' |
  xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p build/tidy --extra-arg=-Wno-unknown-warning-option 2>/dev/null
echo "clang-tidy: clean."

cppcheck --quiet --error-exitcode=1 --std=c++20 --language=c++ --inline-suppr -I src -j "$(nproc)" \
  --enable=warning,performance,portability --suppress=missingIncludeSystem -i src/platform/win32 src
echo "cppcheck: clean."
