#!/usr/bin/env bash
# Checks that no source includes a floor above its own, and that nothing above the platform knows its
# system. Prints what breaks the rule; exits non-zero if anything does.
set -euo pipefail
cd "$(dirname "$0")/../src"

broken=0
complain() { echo "$1"; broken=1; }

# Floors from the lowest up, each with the floors it may include.
declare -A may=(
  [base]="base"
  [platform]="base platform"
  [settings]="base platform settings"
  [engine]="base platform settings engine"
  [ui]="base platform settings engine ui"
  [process]="base platform settings engine ui process"
  [publish]="base platform settings engine publish"
)

for floor in "${!may[@]}"; do
  [[ -d $floor ]] || continue
  while IFS=: read -r file _ line; do
    target=$(sed -E 's/.*"([a-z_]+)\/.*/\1/' <<<"$line")
    # The program's start belongs to the platform's folder and calls the entry, and nothing else.
    [[ $file == platform/*/main.cpp && $line == *'"process/entry.h"'* ]] && continue
    [[ " ${may[$floor]} " == *" $target "* ]] || complain "src/$file includes upward: $line"
  done < <(grep -rnE '#include "[a-z_]+/' "$floor")
done

systems='platform/(posix|win32)/|<(windows|wininet|shlwapi|unistd|fcntl|dirent|pthread|termios)\.h>|<sys/|<curl/|<openssl/'
while IFS= read -r line; do
  complain "src/$line knows its system"
done < <(grep -rnE "#include [\"<].*($systems)|#include ($systems)" base settings engine ui process publish platform/*.h |
  grep -vE '^publish/(file_digest.cpp:.*<openssl/|progress_line.cpp:.*<unistd|shown_text.cpp:.*"platform/posix/terminal_text.h"|staging.cpp:.*"platform/posix/disk_sync.h")' || true)
while IFS= read -r line; do
  complain "src/$line asks for its system"
done < <(grep -rnE '^#\s*if.*(_WIN32|__linux__|__unix__)' base settings engine ui process publish platform/*.h || true)

[[ $broken -eq 0 ]] && echo "Floors: nothing includes upward."
exit $broken
