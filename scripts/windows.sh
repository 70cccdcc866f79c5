#!/usr/bin/env bash
# Demonstrates the Windows program: builds it for 32 and 64 bits and, under Wine on a display of its own,
# has the 64-bit one fill an empty installation from nginx on a loopback port. Takes two pictures of the
# dialog for docs/: one during a download and one at completion. Fails if anything goes wrong.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
place=$root/build/windows
source scripts/web_server.sh
source scripts/windows_program.sh

fail() { echo "windows.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build demo windows
echo "== Building"
scripts/build.sh native velmora-publish
for preset in win32 win64; do
  scripts/build.sh "$preset" VelmoraUpdate
  echo "   $preset: $(stat -c %s "build/$preset/VelmoraUpdate.exe") bytes"
done

end_all() {
  end_windows
  stop_web_server
}
trap end_all EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

rm -rf "$place"/{tree,server,installed,nginx}
mkdir -p "$place"/{tree,server,installed}
start_windows "$place" || fail "Wine doesn't start"
start_web_server "$place/nginx" "$place/server" 'limit_rate 1m;' \
  "location = /info.html { alias $place/info.html; }" || fail "no web server"

# --- What is published, and an installation with nothing but the patcher and its settings.

mkdir -p "$place"/tree/{data/maps,Screenshot,"read me"}
for name in data/sounds.pak data/textures.pak data/voices.pak; do
  head -c 3000000 /dev/urandom >"$place/tree/$name"
done
seq 1 200000 >"$place/tree/data/maps/field 1.map"
echo "A name with a space" >"$place/tree/read me/first steps.txt"
echo "A picture" >"$place/tree/Screenshot/0001.txt"
cp build/win64/VelmoraUpdate.exe "$place/tree/"
cat >"$place/info.html" <<'PAGE'
<!DOCTYPE html>
<html lang="ja"><meta charset="utf-8"><title>VELMORA</title><h1>お知らせ</h1></html>
PAGE
echo "== Published: $(build/native/velmora-publish build "$place/tree" "$place/server" \
  --exe '\Game.exe' --accept 731)"  # there is no game to start

cp build/win64/VelmoraUpdate.exe "$place/installed/"
printf '[Setting]\r\nServerAddress=127.0.0.1:%s\r\nData=/game\r\nInformation=http://127.0.0.1:%s/info.html\r\n' \
  "$port" "$port" >"$place/installed/VelmoraUpdate.dat"

# --- The run.

requests() { grep -c "\"GET $1" "$place/nginx/access.log" || true; }
# nginx logs a request when it has been served; the next file is being downloaded by then.
is_downloading() { [[ $(requests '/game/data/[a-z]*\.pak') -ge 1 ]]; }
picture() {
  import -silent -frame -window "$(dialog)" "$place/picture.png"
  convert "$place/picture.png" -strip -define png:exclude-chunks=date,time "docs/dialog-$1.png"
  echo "   docs/dialog-$1.png: $(identify -format '%w x %h' "docs/dialog-$1.png")"
}

echo "== The whole chain, into an empty folder"
begun=$SECONDS
start_windows_patcher "$place/installed" /I player1 || fail "it doesn't start"
echo "   dialog: $(xdotool getwindowname "$(dialog)"), after $((SECONDS - begun)) s"
within 60 is_downloading || fail "no file is downloaded"
sleep 0.5
picture download
! windows_completed || fail "the update was over before its picture was taken"
within 120 windows_completed || fail "the update doesn't complete"
sleep 1  # the dialog is drawn a moment after the log entry
picture completed

close_windows_patcher || fail "it doesn't end"

# --- The result.

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
