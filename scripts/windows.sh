#!/usr/bin/env bash
# Shows the Windows program at work: builds it for 32 and 64 bits, and lets the 64-bit one fill an empty
# installation from nginx on a loopback port, under Wine on a display of its own. Takes two pictures of
# the dialog into docs/: one during a download and one at completion. Fails if anything is off.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
place=$root/build/windows
PATH=$PATH:/usr/sbin  # where Debian keeps nginx, and where a user's path doesn't lead

fail() { echo "windows.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build demo windows
if ! locale -a | grep -qix 'ja_JP\.utf-\?8'; then
  as_root=()
  [[ $(id -u) -eq 0 ]] || as_root=(sudo)
  "${as_root[@]}" localedef -i ja_JP -f UTF-8 ja_JP.UTF-8
fi

echo "== Building"
build() {
  cmake --preset "$1" >/dev/null
  cmake --build --preset "$1" --target "${@:2}" | tail -1
}
build native velmora-publish
for preset in win32 win64; do
  build "$preset" VelmoraUpdate
  echo "   $preset: $(stat -c %s "build/$preset/VelmoraUpdate.exe") bytes"
done

# --- The display, its window manager and the web server: all ended on every way out.

started=()
export VELMORA_WINEPREFIX=$place/prefix  # its own, so that no patcher of somebody else's is "running"
in_prefix() { WINEPREFIX=$VELMORA_WINEPREFIX "$@"; }
end_all() {
  in_prefix wineserver -k 2>/dev/null || true
  for ((i = ${#started[@]} - 1; i >= 0; i--)); do
    kill "${started[i]}" 2>/dev/null || true
    wait "${started[i]}" 2>/dev/null || true
  done
}
trap end_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

# within SECONDS COMMAND...: waits until the command succeeds.
within() {
  local last=$((SECONDS + $1))
  until "${@:2}"; do
    [[ $SECONDS -lt $last ]] || return 1
    sleep 0.1
  done
}

rm -rf "$place"/{tree,server,installed,nginx,display}
mkdir -p "$place"/{tree,server,installed,nginx}

Xvfb -displayfd 3 -screen 0 1280x1024x24 -nolisten tcp 3>"$place/display" 2>/dev/null &
started+=($!)
within 20 test -s "$place/display" || fail "no virtual display"
DISPLAY=:$(<"$place/display")
export DISPLAY
openbox >/dev/null 2>&1 &
started+=($!)

port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
cat >"$place/nginx/nginx.conf" <<CONF
daemon off;
pid $place/nginx/pid;
error_log $place/nginx/error.log;
events {}
http {
  access_log $place/nginx/access.log;
  client_body_temp_path $place/nginx;
  proxy_temp_path $place/nginx;
  fastcgi_temp_path $place/nginx;
  uwsgi_temp_path $place/nginx;
  scgi_temp_path $place/nginx;
  types { text/html html; }
  server {
    listen 127.0.0.1:$port;
    location /game/ { alias $place/server/; limit_rate 1m; }
    location = /info.html { alias $place/info.html; }
  }
}
CONF
[[ $(id -u) -eq 0 ]] && sed -i '1i user root;' "$place/nginx/nginx.conf"
nginx -p "$place/nginx" -e "$place/nginx/error.log" -c "$place/nginx/nginx.conf" &
started+=($!)
answers() { (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null; }
within 10 answers || { cat "$place/nginx/error.log" >&2; fail "nginx doesn't answer"; }

# --- What is published, and an installation of the patcher and its settings alone.

mkdir -p "$place"/tree/{data/maps,Screenshot,"read me"}
for name in data/sounds.pak data/textures.pak data/voices.pak; do
  head -c 3000000 /dev/urandom >"$place/tree/$name"
done
seq 1 200000 >"$place/tree/data/maps/field 1.map"
echo "A name with a blank" >"$place/tree/read me/first steps.txt"
echo "A picture" >"$place/tree/Screenshot/0001.txt"
cp build/win64/VelmoraUpdate.exe "$place/tree/"
cat >"$place/info.html" <<'PAGE'
<!DOCTYPE html>
<html lang="ja"><meta charset="utf-8"><title>VELMORA</title><h1>お知らせ</h1></html>
PAGE
echo "== Published: $(build/native/velmora-publish build "$place/tree" "$place/server" \
  --exe '\Game.exe')"

cp build/win64/VelmoraUpdate.exe "$place/installed/"
printf '[Setting]\r\nServerAddress=127.0.0.1:%s\r\nData=/game\r\nInformation=http://127.0.0.1:%s/info.html\r\n' \
  "$port" "$port" >"$place/installed/VelmoraUpdate.dat"

# --- The run.

requests() { grep -c "\"GET $1" "$place/nginx/access.log" || true; }
logged() { grep -aqF "$1" "$place/installed/session.log" 2>/dev/null; }
completed() { logged 'GetMissingFile() : Update Completed.'; }
dialog() { xdotool search --onlyvisible --name '^VELMORA ' 2>/dev/null | head -1; }
is_open() { [[ -n $(dialog) ]]; }
is_closed() { ! is_open; }
# The server notes a request when it is served, so that the next file is on its way by then.
is_downloading() { [[ $(requests '/game/data/[a-z]*\.pak') -ge 1 ]]; }
picture() {
  import -silent -frame -window "$(dialog)" "$place/picture.png"
  convert "$place/picture.png" -strip -define png:exclude-chunks=date,time "docs/dialog-$1.png"
  echo "   docs/dialog-$1.png: $(identify -format '%w x %h' "docs/dialog-$1.png")"
}

if [[ ! -e $VELMORA_WINEPREFIX/system.reg ]]; then
  echo "== Making a Wine prefix"
  (cd "$place" && "$root/scripts/wine.sh" cmd /c ver >/dev/null 2>&1) || fail "Wine doesn't start"
fi

echo "== The whole chain, into an empty folder"
begun=$SECONDS
(cd "$place/installed" && exec "$root/scripts/wine.sh" ./VelmoraUpdate.exe /I player1) \
  >"$place/wine.log" 2>&1 &
started+=($!)
within 60 is_open || { cat "$place/wine.log" >&2; fail "the dialog doesn't appear"; }
echo "   dialog: $(xdotool getwindowname "$(dialog)"), after $((SECONDS - begun)) s"
within 60 is_downloading || fail "no file is downloaded"
sleep 0.5
picture download
! completed || fail "the update was over before its picture was taken"
within 120 completed || fail "the update doesn't complete"
sleep 1  # a dialog draws itself after what it tells the log
picture completed

xdotool windowactivate --sync "$(dialog)" key alt+F4
within 20 is_closed || fail "the dialog doesn't close"
in_prefix timeout 60 wineserver -w || fail "the chain doesn't end"

# --- What came of it.

diff -r --exclude=VelmoraUpdate.dat --exclude=VelmoraUpdate.cvc --exclude=session.log \
  "$place/tree" "$place/installed" || fail "the trees differ"
[[ ! -e $place/installed/_VelmoraUpdate.exe ]] || fail "the copy is left behind"
tail -1 "$place/installed/session.log" | grep -aq 'Deleted temporary files' ||
  fail "the chain's last process didn't say that it deleted the copy"
pages=$(requests '/info\.html ')
[[ $pages -eq 1 ]] || fail "the information page was asked for $pages times"
cmp -s docs/dialog-download.png docs/dialog-completed.png && fail "both pictures are the same"
echo "   $(find "$place/installed" -type f | wc -l) files installed, equal to the tree; the copy is gone;" \
  "$(requests '/') requests, one of them for the information page"
