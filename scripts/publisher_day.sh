#!/usr/bin/env bash
# Goes through the publisher's day of docs/publishing.md: runs every command of that part of the page as it
# stands and in its order, with nginx in the place of the three servers, and lets players' patchers follow. A
# block "sh" has to succeed; each command of a block "sh refused" has to be refused with the words in the comment
# below it. Fails if a command behaves otherwise than the page says, if a player ends up with other files than
# are published, or if the page and this script don't have the same steps. With --windows, the Windows tool
# runs the commands, under Wine; but Wine has no links to folders, so the native one switches.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
page=$root/docs/publishing.md
game=neverball-data
source scripts/debian_game.sh
source scripts/own_network.sh
source scripts/web_server.sh

fail() { echo "publisher_day.sh: $*" >&2; exit 1; }

windows=false
[[ ${1:-} != --windows ]] || windows=true
day=$root/build/publisher-day
! $windows || day+=-windows

scripts/install_packages.sh build demo
! $windows || scripts/install_packages.sh windows
unpack_game "$game" "$day/unpacked" || fail "no game data"
enter_own_network "$@"
# The patcher looks for enable.cdn on port 80.
python3 -c 'import socket; socket.socket().bind(("127.0.0.1", 80))' 2>/dev/null ||
  { echo "publisher_day.sh: not run, since port 80 can't be used here"; exit 0; }

scripts/build.sh native VelmoraUpdate velmora-publish
export PATH=$root/build/native:$PATH
if $windows; then
  scripts/build.sh win64 velmora-publish
  # A service of Wine's serves one network.
  export VELMORA_WINEPREFIX=$day/prefix
  mkdir -p "$day/bin"
  cat >"$day/bin/velmora-publish" <<SCRIPT
#!/bin/sh
[ "\$1" != switch ] || exec "$root/build/native/velmora-publish" "\$@"
exec "$root/scripts/wine.sh" --console "$root/build/win64/velmora-publish.exe" "\$@"
SCRIPT
  chmod +x "$day/bin/velmora-publish"
  PATH=$day/bin:$PATH
  [[ $(velmora-publish --version) == "$(build/native/velmora-publish --version)" ]] || fail "Wine doesn't start"
fi

# --- The publisher's folder, with a real game in its tree, and three servers.

rm -rf "$day/work"
mkdir -p "$day"/work/{releases,mirror/releases,players,installer,trees,away}
cd "$day/work"
cp -rL "$day/unpacked/$game/usr/share/games/neverball" tree
# In place of the game's program.
printf '#!/bin/sh\n' | tee tree/Game.exe >tree/GameOption.exe
cp "$root/build/native/VelmoraUpdate.exe" tree/

end_all() {
  stop_web_server
  ! $windows || WINEPREFIX=$VELMORA_WINEPREFIX wineserver -k || true
}
trap end_all EXIT
start_web_servers "$day/nginx" \
  "$(web_server 127.0.0.1:80 "$PWD/current")" \
  "$(web_server 127.0.0.2:80 "$PWD/mirror/current")" \
  "$(web_server 127.0.0.3:80 /nowhere \
    "location ~ ^/game-([0-9]+)/(.*)\$ { gzip off; alias $PWD/releases/\$1/\$2; }")" || fail "no web server"

# --- The page.

# The servers of the page by their addresses here.
as_here() {
  sed 's/download\.example\.com/127.0.0.1/g; s/mirror\.example\.com/127.0.0.2/g; s/cdn\.example\.com/127.0.0.3/g'
}

# blocks HEADING KIND: the fenced blocks of this kind under the heading.
blocks() {
  awk -v heading="### $1" -v fence="\`\`\`$2" '
    /^#/ && !inside { here = ($0 == heading) }
    inside && /^```$/ { inside = 0; next }
    inside && wanted { print }
    !inside && /^```/ { inside = 1; wanted = here && $0 == fence }
  ' "$page" | as_here
}

headings() { awk '/^## /{ here = ($0 == "## A publisher'\''s day") } here && /^### / { print substr($0, 5) }' "$page"; }

# run_page HEADING: runs the commands under this heading.
run_page() {
  blocks "$1" ini >"$day/ini"
  [[ ! -s $day/ini ]] || sed 's/$/\r/' "$day/ini" >tree/VelmoraUpdate.dat
  blocks "$1" sh >"$day/commands"
  bash -euo pipefail "$day/commands" >"$day/output" 2>&1 ||
    { cat "$day/commands" "$day/output" >&2; fail "$1: a command fails"; }
  grep -v '^ ' "$day/output" | sed 's/^/   /' || true
  local line
  while IFS= read -r line; do
    case $line in
      "") ;;
      "# "*) grep -qF -- "${line#\# }" "$day/output" || { cat "$day/output" >&2; fail "$1: no word of: ${line#\# }"; } ;;
      *)
        ! bash -euo pipefail -c "$line" >"$day/output" 2>&1 || fail "$1: isn't refused: $line"
        echo "   refused: $line"
        ;;
    esac
  done < <(blocks "$1" 'sh refused')
}

# --- Players.

# install NAME: a player who starts with the patcher and its settings alone.
install() {
  mkdir "players/$1"
  cp installer/VelmoraUpdate.{exe,dat} "players/$1/"
}

# start NAME: starts the patcher and waits until it has nothing more to do.
start() {
  : >"$day/nginx/access.log"
  rm -f "players/$1/session.log"
  (cd "players/$1" && printf 'wait\nwait\nclose\n' | ./VelmoraUpdate.exe >"$day/player.out" 2>"$day/player.err") ||
    fail "$1: the patcher ends with an error"
  # The last process of a restarted chain ends a moment after the first.
  for _ in $(seq 200); do
    grep -aqs 'Deleted temporary files' "players/$1/session.log" && break
    sleep 0.05
  done
  grep -aqF 'GetMissingFile() : Update Completed.' "players/$1/session.log" || fail "$1: the update doesn't complete"
  requests=$(grep -c 'GET /game[-/0-9]*/' "$day/nginx/access.log" || true)
  installed=$(grep -ac 'Update Success' "players/$1/session.log" || true)
}

# has NAME TREE: the player has the tree's files and no others.
has() {
  diff -rq --exclude='VelmoraUpdate.cvc' --exclude=session.log "$2" "players/$1" >"$day/differ" ||
    { head "$day/differ" >&2; fail "$1 has other files than $2"; }
}

# every_player TREE: all start, and then have this tree; a second start changes nothing.
every_player() {
  local name
  for name in players/*/; do
    name=$(basename "$name")
    start "$name"
    has "$name" "$1"
    start "$name"
    [[ $installed -eq 0 ]] || fail "$name: the second start installs $installed files"
    has "$name" "$1"
  done
}

# --- The steps: what happens before the commands of each, and what must be true after them.

before() {
  case $1 in
    "An update")
      cp -r tree trees/1
      cp -r players/anna away/berta  # doesn't start the patcher for this update,
      cp -r players/anna away/carla  # and closes it in the middle
      echo "release 2" | tee -a tree/sets.txt >tree/new-in-2.txt
      rm tree/set-tones.txt
      ;;
    "A mistake that players found")
      # What patchers leave that end between two files: the new file, and the cache of the old list.
      cp players/anna/sets.txt away/carla/
      mv away/berta away/carla players/
      ;;
    "The mended game")
      echo "release 4" >>tree/sets.txt
      ;;
    "A file that becomes a folder")
      mkdir tree/shots
      mv tree/new-in-2.txt tree/shots/readme.txt
      mv tree/shots tree/new-in-2.txt
      rm -r tree/shot-tones
      echo "now a file" >tree/shot-tones
      ;;
    "A new patcher")
      printf 'edition 2' >>tree/VelmoraUpdate.exe
      ;;
    "Clearing up")
      mkdir tree/data-old
      echo "no longer needed" >tree/data-old/file
      ;;
    "What is refused")
      mkdir empty
      cp -r tree half
      rm -r half/map-*
      cp -r tree page
      echo '<!DOCTYPE html><title>Sign in</title>' >page/VelmoraUpdate.exe
      cp -r tree typo
      sed -i 's/ServerAddress/ServerAdress/' typo/VelmoraUpdate.dat
      ;;
  esac
}

after() {
  case $1 in
    "Before the first publication")
      return
      ;;
    "The first publication")
      install anna
      ;;
    "An update")
      install dora
      ;;
    "A mistake that players found")
      every_player trees/1
      return
      ;;
    "The mended game" | "A file that becomes a folder" | "A new patcher") ;;
    "A mirror")
      mirrored
      ;;
    "A content delivery network")
      every_player tree
      start anna
      grep -q 'GET /game-7/hashlist.dat' "$day/nginx/access.log" || fail "players don't use the network"
      return
      ;;
    "Clearing up")
      [[ -e site/sets.txt.compressed || -e site/sets.txt ]] || fail "prune has removed what is needed"
      [[ ! -e site/data-old ]] || fail "prune has left what isn't needed"
      ;;
    "What is refused")
      [[ ! -e releases/9 ]] || fail "something is published"
      ;;
    *)
      fail "nothing checks the step \"$1\" of the page"
      ;;
  esac
  every_player tree
}

# Players' settings name two servers, and each start chooses one.
mirrored() {
  every_player tree
  local used
  for _ in $(seq 20); do
    start anna
    used+=$(awk '/hashlist.dat/ { print $2; exit }' "$day/nginx/access.log")
  done
  [[ $used == *127.0.0.1* && $used == *127.0.0.2* ]] || fail "not every server is used"
}

ran=0
while IFS= read -r heading; do
  echo "== $heading"
  before "$heading"
  run_page "$heading"
  after "$heading"
  ran=$((ran + 1))
done < <(headings)
[[ $ran -eq 11 ]] || fail "the page has $ran steps"
echo "== All steps of the page work; $(ls -d players/* | wc -l) players have exactly what is published."
