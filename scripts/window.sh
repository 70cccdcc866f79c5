#!/usr/bin/env bash
# Shows the desktop patcher with a real game and a sample page from nginx on a loopback port. On a desktop it
# opens the window and leaves it to you. Without one it plays a player who has only a keyboard, on a display
# of its own: a first installation, an update that brings a new patcher, and the start of the game. It takes two
# pictures for docs/ and fails if the trees differ at the end. Usage: scripts/run.sh --window
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
place=$root/build/window
package=neverball-data
source scripts/debian_game.sh
source scripts/own_network.sh
source scripts/web_server.sh

fail() { echo "window.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build demo desktop
unpack_game "$package" "$place/unpacked" || fail "no game data"
has_desktop=false
[[ -z ${DISPLAY:-}${WAYLAND_DISPLAY:-} ]] || has_desktop=true
$has_desktop || enter_own_network "$@"

echo "== Building"
scripts/build.sh native velmora-publish
scripts/build.sh desktop VelmoraUpdate

# --- What is published, and an installation with nothing but the patcher and its settings.

rm -rf "$place"/{tree,server,installed,home,nginx}
mkdir -p "$place"/{server,installed/Screenshot,home}
cp -rL "$place/unpacked/$package/usr/share/games/neverball" "$place/tree"
printf '#!/bin/sh\necho "$DISPLAY$WAYLAND_DISPLAY $*" >game-was-started\n' >"$place/tree/Game.exe"
cp build/desktop/VelmoraUpdate.exe "$place/tree/"
publish() {
  build/native/velmora-publish build "$place/tree" "$place/server" --exe '\Game.exe' --effort 6 \
    --remove-from "$place/server"
}

display=()
end_all() {
  stop_web_server
  [[ ${#display[@]} -eq 0 ]] || kill "${display[@]}" 2>/dev/null || true
}
trap end_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
start_web_server "$place/nginx" "$place/server" 'limit_rate 600k;' \
  "location /news/ { alias $root/docs/examples/news/; index index.html; }" || fail "no web server"
cp build/desktop/VelmoraUpdate.exe "$place/installed/"
printf '[Setting]\r\nServerAddress=127.0.0.1:%s\r\nData=/game\r\nInformation=http://127.0.0.1:%s/news/\r\n' \
  "$port" "$port" >"$place/installed/VelmoraUpdate.dat"
echo "== Published: $(publish | tail -1)"

if $has_desktop; then
  echo "== The window is open. Close it to end."
  (cd "$place/installed" && ./VelmoraUpdate.exe /I player1)
  exit
fi

# --- A display of its own, and a player with a keyboard.

export HOME=$place/home XDG_RUNTIME_DIR=$place/home LIBGL_ALWAYS_SOFTWARE=1 GSK_RENDERER=cairo
chmod 700 "$place/home"
exec {number}<> <(:)
Xvfb -displayfd "$number" -screen 0 1440x960x24 -nolisten tcp -noreset >/dev/null 2>&1 &
display+=($!)
read -r -t 20 screen <&"$number" || fail "no display"
export DISPLAY=:$screen
dbus-daemon --session --nofork --nosyslog --print-address="$number" 2>/dev/null &
display+=($!)
read -r -t 20 DBUS_SESSION_BUS_ADDRESS <&"$number" || fail "no session bus"
export DBUS_SESSION_BUS_ADDRESS
openbox >/dev/null 2>&1 &
display+=($!)

within() {
  local seconds=$1
  shift
  for _ in $(seq $((seconds * 20))); do "$@" && return; sleep 0.05; done
  return 1
}
window() { xdotool search --onlyvisible --name '^VELMORA' 2>/dev/null | tail -1; }
shows_a_window() { [[ -n $(window) ]]; }
box() { xdotool search --onlyvisible --name '^VelmoraUpdate$' 2>/dev/null | tail -1; }
shows_a_box() { [[ -n $(box) ]]; }
completed() { grep -aq 'GetMissingFile() : Update Completed' "$place/installed/session.log" 2>/dev/null; }
files_served() { grep -c '"GET /game/' "$place/nginx/access.log" || true; }
is_downloading() { [[ $(files_served) -ge $1 ]]; }
has_ended() { ! kill -0 "$patcher" 2>/dev/null; }
start() {
  (cd "$place/installed" && exec ./VelmoraUpdate.exe /I player1 2>"$place/errors.txt") &
  patcher=$!
}
picture() {
  import -silent -frame -window "$(window)" "$place/picture.png"
  convert "$place/picture.png" -strip -define png:exclude-chunks=date,time "docs/window-$1.png"
  echo "   docs/window-$1.png: $(identify -format '%w x %h' "docs/window-$1.png")"
}
same_trees() {
  diff -r --exclude='VelmoraUpdate.*' --exclude=session.log --exclude=Screenshot --exclude=game-was-started \
    "$place/tree" "$place/installed" || fail "the trees differ"
}

echo "== A first installation"
start
within 30 shows_a_window || fail "no window"
within 60 is_downloading 30 || fail "no file is downloaded"
sleep 1
! completed || fail "the update was over before its picture was taken"
picture download
within 120 completed || fail "the update doesn't complete"
sleep 1
picture completed
xdotool key alt+F4
within 10 has_ended || fail "it doesn't end"
same_trees

echo "== An update with a new patcher, and the start of the game"
printf 'edition 2' >>"$place/tree/VelmoraUpdate.exe"
echo "news" >"$place/tree/news.txt"
publish >/dev/null
start
within 30 shows_a_box || fail "no message about the new patcher"
xdotool key Return
within 30 completed || fail "the second update doesn't complete"
within 30 shows_a_window || fail "no second window"
sleep 1
xdotool key alt+s
within 10 has_ended || fail "the game isn't started"
within 10 test -s "$place/installed/game-was-started" || fail "the game isn't started"
echo "   the game was started with: $(cat "$place/installed/game-was-started")"
same_trees
cmp "$place/tree/VelmoraUpdate.exe" "$place/installed/VelmoraUpdate.exe"
[[ ! -e $place/installed/_VelmoraUpdate.exe ]] || fail "the copy is left behind"
! grep CRITICAL "$place/errors.txt" >&2 || fail "the toolkit complains"
# The window that the new patcher replaces may be gone before its page is asked for.
[[ $(grep -c '"GET /news/' "$place/nginx/access.log") == [23] ]] || fail "the page wasn't opened once in each window"
echo "== The installation equals the published tree, byte for byte."
