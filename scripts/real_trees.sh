#!/usr/bin/env bash
# Publishes two real games' files, the second with difficult names added, and installs them into empty folders
# with both patchers: the native one, and the Windows program under Wine. Fails unless the publications pass
# all checks and all installations equal their trees, byte for byte, and unless the Windows tool publishes the
# same and says the same about it.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
place=$root/build/real-trees
source scripts/debian_game.sh
source scripts/own_network.sh
source scripts/web_server.sh
source scripts/windows_program.sh
tool=build/native/velmora-publish

fail() { echo "real_trees.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build demo windows
for game in neverball pingus; do
  unpack_game "$game-data" "$place/unpacked" || fail "no game data"
done
enter_own_network "$@"

scripts/build.sh native velmora-publish VelmoraUpdate
scripts/build.sh win64 VelmoraUpdate velmora-publish

trap 'end_windows; stop_web_server' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
start_windows "$place" || fail "no Windows"

# Names in code page 932: kanji that end in 5C, katakana, a space, what a request escapes, a deep path.
odd_names() {
  python3 - "$1" <<'PYTHON'
import os, sys
root = os.fsencode(sys.argv[1])
names = ["表.dat", "ソ連/能力 予定.txt", "ﾊﾝｶｸ/カタカナ.bin", "data & more/[a] {b}.txt", "plus+and~tilde;=@!$'().txt",
         "deep/" + "directory/" * 10 + "file.bin", "UPPER/lower/MiXeD.TxT", "empty.bin", ".hidden/.file"]
for i, name in enumerate(names):
    path = os.path.join(root, name.encode("cp932"))
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as file:
        file.write(b"" if name == "empty.bin" else name.encode() * (i + 1) * 1000)
PYTHON
}

# same_tree TREE OTHER bytes|utf-8: compares two trees. Wine stores names as UTF-8; "utf-8" converts those of
# OTHER back. The patcher's own files don't count.
same_tree() {
  python3 - "$1" "$2" "$3" <<'PYTHON'
import hashlib, os, sys
def tree(root, encoding):
    found = {}
    for folder, _, names in os.walk(os.fsencode(root)):
        for name in names:
            path = os.path.join(folder, name)
            relative = os.path.relpath(path, os.fsencode(root))
            if encoding == "utf-8":
                relative = relative.decode("utf-8").encode("cp932")
            if relative.startswith(b"VelmoraUpdate.") or relative == b"session.log":
                continue
            with open(path, "rb") as file:
                found[relative] = hashlib.sha256(file.read()).hexdigest()
    return found
wanted, got = tree(sys.argv[1], "bytes"), tree(sys.argv[2], sys.argv[3])
if wanted != got:
    names = sorted(name for name in wanted.keys() | got.keys() if wanted.get(name) != got.get(name))
    sys.exit("trees differ: " + ", ".join(repr(name) for name in names[:10]))
print(len(wanted), "files")
PYTHON
}

since() { awk -v begun="$1" -v now="$EPOCHREALTIME" 'BEGIN { printf "%.1f s", now - begun }'; }

settings() {
  printf '[Setting]\r\nServerAddress=127.0.0.1:%s\r\nData=/game\r\nInformation=about:blank\r\n' "$port"
}

# publish_and_install NAME TREE
publish_and_install() {
  local name=$1 tree=$2 here=$place/$1
  rm -rf "$here"
  mkdir -p "$here"/{native,windows}
  echo "== $name: $(find "$tree" -type f | wc -l) files, $(du -sh "$tree" | cut -f1)"
  echo "   built: $($tool build "$tree" "$here/server" | tail -1)"
  local status=0
  $tool lint "$here/server" --tree "$tree" --data /game >"$here/lint" || status=$?
  [[ $status -eq 0 || $status -eq 3 ]] || { cat "$here/lint" >&2; fail "the linter finds errors"; }
  echo "   lint: $(tail -1 "$here/lint")"
  start_web_server "$here/nginx" "$here/server" || fail "no web server"
  $tool verify "http://127.0.0.1:$port/game" >"$here/verify" || { cat "$here/verify" >&2; fail "verify"; }
  echo "   verify: $(tail -1 "$here/verify")"

  settings >"$here/native/VelmoraUpdate.dat"
  cp build/native/VelmoraUpdate.exe "$here/native/"
  local begun=$EPOCHREALTIME
  (cd "$here/native" && printf 'wait\nclose\n' | ./VelmoraUpdate.exe >"$here/native.out" 2>&1) ||
    fail "the native patcher ends with an error"
  local took equal
  took=$(since "$begun")
  equal=$(same_tree "$tree" "$here/native" bytes) || fail "the native patcher's tree differs"
  echo "   native patcher: $took; equal, $equal"

  settings >"$here/windows/VelmoraUpdate.dat"
  cp build/win64/VelmoraUpdate.exe "$here/windows/"
  begun=$EPOCHREALTIME
  start_windows_patcher "$here/windows" || fail "the Windows program doesn't start"
  within 180 windows_completed || fail "the Windows program doesn't complete"
  close_windows_patcher || fail "the Windows program doesn't end"
  took=$(since "$begun")
  equal=$(same_tree "$tree" "$here/windows" utf-8) || fail "the Windows program's tree differs"
  echo "   Windows program: $took; equal, $equal"
  stop_web_server
}

# renamed FOLDER FROM TO: gives names another encoding. On Windows they are Unicode, and so they are UTF-8 for
# Wine. Those with the byte 5C in code page 932, which Windows can't publish, are removed.
renamed() {
  python3 - "$@" <<'PYTHON'
import os, shutil, sys
root, before, after = sys.argv[1:]
for folder, folders, files in os.walk(os.fsencode(root), topdown=False):
    for name in folders + files:
        path = os.path.join(folder, name)
        text = name.decode(before)
        if b"\\" not in text.encode("cp932"):
            os.rename(path, os.path.join(folder, text.encode(after)))
        elif os.path.isdir(path):
            shutil.rmtree(path)
        else:
            os.remove(path)
PYTHON
}

# publishes_and_tells FOLDER NAMES TOOL...: builds FOLDER/out, and prints what the tool says about it.
publishes_and_tells() {
  local folder=$1 names=$2 status=0
  shift 2
  mkdir "$folder"
  cd "$folder"
  "$@" build ../tree out --names "$names" --exe '\Game.exe' --accept 731 >/dev/null || fail "$1: not built"
  "$@" lint out --tree ../tree --names "$names" --data /game --accept 731 --json || status=$?
  [[ $status -eq 0 || $status -eq 3 ]] || fail "$1: the linter finds errors"
  "$@" diff out ../tree --names "$names" --json
}

# publish_by_both TREE
publish_by_both() {
  local here=$place/both begun=$EPOCHREALTIME
  rm -rf "$here"
  mkdir -p "$here"
  cp -r "$1" "$here/tree"
  renamed "$here/tree" cp932 utf-8
  (publishes_and_tells "$here/native" utf-8 "$root/$tool") >"$here/native.txt"
  (publishes_and_tells "$here/windows" utf-8 "$root/scripts/wine.sh" --console \
    "$root/build/win64/velmora-publish.exe") >"$here/windows.txt"
  renamed "$here/windows/out" utf-8 cp932
  diff -r "$here/native" "$here/windows" || fail "the tools publish different files"
  diff "$here/native.txt" "$here/windows.txt" || fail "the tools tell different things"
  echo "   $(find "$here/native" -type f | wc -l) files, the same by both tools; $(since "$begun")"
}

rm -rf "$place/unpacked/neverball"
cp -rL "$place/unpacked/neverball-data/usr/share/games/neverball" "$place/unpacked/neverball"
publish_and_install neverball "$place/unpacked/neverball"

rm -rf "$place/unpacked/pingus"
cp -rL "$place/unpacked/pingus-data/usr/share/games/pingus" "$place/unpacked/pingus"
odd_names "$place/unpacked/pingus"
publish_and_install pingus "$place/unpacked/pingus"
publish_by_both "$place/unpacked/pingus"
