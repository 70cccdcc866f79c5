#!/usr/bin/env bash
# Demonstrates the patcher on real data: publishes a real game's files, serves them with nginx on a loopback
# port, and updates an installation: from nothing, with nothing to do, after damage, and when a new patcher
# is published. Fails if the trees differ at the end. With --window, shows the patcher for desktops.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
demo=$root/build/demo
package=neverball-data
source scripts/debian_game.sh
source scripts/own_network.sh
source scripts/web_server.sh

fail() { echo "run.sh: $*" >&2; exit 1; }

[[ ${1:-} != --window ]] || exec scripts/window.sh

scripts/install_packages.sh build demo
unpack_game "$package" "$demo/unpacked" || fail "no game data"
enter_own_network "$@"

echo "== Building"
scripts/build.sh native VelmoraUpdate velmora-publish

# --- A real game's data, unpacked and not installed.

rm -rf "$demo"/{tree,server,earlier.dat,installed,nginx}
mkdir -p "$demo"/{server,installed}
cp -rL "$demo/unpacked/$package/usr/share/games/neverball" "$demo/tree"
# Replaces the game client, and records how it was started.
cat >"$demo/tree/Game.exe" <<'GAME'
#!/bin/sh
echo "Game.exe in $PWD with $# arguments: $*" >"$PWD/game-was-started"
GAME
cp build/native/VelmoraUpdate.exe "$demo/tree/"

# --- The web server, stopped however the script ends.

trap stop_web_server EXIT
start_web_server "$demo/nginx" "$demo/server" || fail "no web server"

# --- What each stage does and shows.

tool=build/native/velmora-publish

# publish OPTIONS...: builds the publication, checks it, and prints what it costs players of the earlier one.
publish() {
  local earlier=()
  if [[ -e $demo/server/hashlist.dat ]]; then
    cp "$demo/server/hashlist.dat" "$demo/earlier.dat"
    earlier=(--remove-from "$demo/earlier.dat")
  fi
  echo "   build:  $($tool build "$demo/tree" "$demo/server" --exe '\Game.exe' "${earlier[@]}" "$@")"
  echo "   lint:   $($tool lint "$demo/server" --tree "$demo/tree" --data /game | tail -1)"
  [[ ! -e $demo/earlier.dat ]] ||
    $tool diff "$demo/earlier.dat" "$demo/server" --rate 50 | sed 's/^/   diff:   /'
  echo "   verify: $($tool verify "http://127.0.0.1:$port/game" | tail -1)"
}

# patch COMMANDS...: runs the patcher in the installation with these commands.
patch() {
  : >"$demo/nginx/access.log"
  local start
  start=$(date +%s.%N)
  (cd "$demo/installed" && printf '%s\n' "$@" |
    ./VelmoraUpdate.exe /I player1 >"$demo/patcher.out" 2>"$demo/patcher.err") ||
    { cat "$demo/patcher.err" >&2; fail "the patcher ended with an error"; }
  seconds=$(python3 -c "import time; print(f'{time.time() - $start:.2f}')")
  requests=$(grep -c 'GET /game/' "$demo/nginx/access.log" || true)
  bytes=$(awk '/GET \/game\// { sum += $10 } END { print sum + 0 }' "$demo/nginx/access.log")
}

logged() { grep -ac "$1" "$demo/installed/session.log" || true; }

report() {
  echo "   $seconds s; $requests requests, $bytes bytes, $(logged 'Update Success') files installed," \
    "$(logged '\[local\] vs') digests computed; last status:" \
    "$(grep -a '^status:' "$demo/patcher.out" | tail -1 | cut -c9-)"
}

expect() { [[ $2 == "$3" ]] || fail "$1: expected $3, got $2"; }

same_trees() {
  diff -r --exclude='VelmoraUpdate.*' --exclude=session.log --exclude=game-was-started \
    "$demo/tree" "$demo/installed"
}

files=$(find "$demo/tree" -type f | wc -l)
echo "== The game: $files files, $(du -sh "$demo/tree" | cut -f1), of Debian's $package"
publish
cp build/native/VelmoraUpdate.exe "$demo/installed/"
printf '[Setting]\r\nServerAddress=127.0.0.1:%s\r\nData=/game\r\nInformation=http://127.0.0.1:%s/info.html\r\n' \
  "$port" "$port" >"$demo/installed/VelmoraUpdate.dat"

echo "== 1. First installation, into an empty folder"
patch wait close
report
expect "requests" "$requests" "$files"  # the list, and all files but the patcher, which is there
same_trees

echo "== 2. A start with nothing to do: existence tests alone"
patch wait close
report
expect "requests" "$requests" 1
expect "digests" "$(logged '\[local\] vs')" 0

echo "== 3. Damage: a file changed, a file deleted, a stray file that the list removes; re-check"
changed=$(cd "$demo/tree" && find . -name '*.png' | sort | head -1)
deleted=$(cd "$demo/tree" && find . -name '*.png' | sort | tail -1)
echo "damage" >>"$demo/installed/$changed"
rm "$demo/installed/$deleted"
echo "stray" >"$demo/installed/stray.tmp"
publish --remove stray.tmp
patch wait recheck wait close
report
expect "installed" "$(logged 'Update Success')" 2
[[ ! -e $demo/installed/stray.tmp ]] || fail "the stray file is still there"
same_trees

echo "== 4. A new patcher is published: it replaces itself, starts anew, and the game is started"
printf 'edition 2' >>"$demo/tree/VelmoraUpdate.exe"
publish
patch wait wait start
report
for _ in $(seq 100); do [[ -e $demo/installed/game-was-started ]] && break; sleep 0.05; done
echo "   told the player: $(head -1 "$demo/patcher.err")"
echo "   $(cat "$demo/installed/game-was-started")"
cmp "$demo/tree/VelmoraUpdate.exe" "$demo/installed/VelmoraUpdate.exe"
[[ ! -e $demo/installed/_VelmoraUpdate.exe ]] || fail "the copy is still there"
grep -aq 'Deleted temporary files' <(tail -1 "$demo/installed/session.log")
same_trees

echo "== The installation equals the published tree, byte for byte."
