#!/usr/bin/env bash
# Checks that no source includes a layer above its own, that the folders of the publisher's tool don't
# include each other, and that nothing above the platform knows its system. Prints what breaks a rule, and
# then fails.
set -euo pipefail
cd "$(dirname "$0")/../src"

broken=0
complain() { echo "$1"; broken=1; }

# Layers and folders, each with what it may include besides itself.
declare -A may=(
  [base]=""
  [platform]="base"
  [settings]="base platform"
  [engine]="base platform settings"
  [ui]="base platform settings engine"
  [process]="base platform settings engine ui"
  [publish/common]="base platform settings engine"
  [publish/build]="base platform settings engine publish/common publish/lint"
  [publish/lint]="base platform settings engine publish/common"
  [publish/diff]="base platform settings engine publish/common"
  [publish/verify]="base platform settings engine publish/common"
  [publish/commands]="base platform settings engine publish/common publish/build publish/lint publish/diff publish/verify"
  [programs]="base platform process publish/commands"
)

for floor in "${!may[@]}"; do
  [[ -d $floor ]] || complain "src/$floor is missing"
  while IFS=: read -r file _ line; do
    target=$(sed -E 's/.*"((publish\/)?[a-z_0-9]+)\/.*/\1/' <<<"$line")
    [[ " $floor ${may[$floor]} " == *" $target "* ]] || complain "src/$file includes upward: $line"
  done < <(grep -rnE '#include "[a-z_0-9]+/' "$floor")
done

# Only the platform's sources and the main functions know their system.
portable=(base settings engine ui process publish platform/*.h)
systems='platform/(posix|win32)/|<(windows|wininet|shlwapi|unistd|fcntl|dirent|pthread|termios)\.h>|<sys/|<curl/|<openssl/|<gtk/|<webkit/|<glib'
while IFS= read -r line; do
  complain "src/$line knows its system"
done < <(grep -rnE "#include [\"<].*($systems)|#include ($systems)" "${portable[@]}" || true)
while IFS= read -r line; do
  complain "src/$line asks for its system"
done < <(grep -rnE '^#\s*if.*(_WIN32|__linux__|__unix__)' "${portable[@]}" || true)

[[ $broken -eq 0 ]] && echo "Layers: nothing includes upward."
exit $broken
