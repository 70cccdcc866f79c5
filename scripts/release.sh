#!/usr/bin/env bash
# Makes the folder that players get, build/release/: the 32-bit program, a sample settings file, a text
# for players in English and Japanese, and the checksums. The same commit gives the same bytes, wherever
# it is built; the program is built twice, in two folders, and both must agree.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
release=$root/build/release

fail() { echo "release.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build windows

# What is released is the commit, not what happens to lie in the working tree.
commit=$(git rev-parse --verify HEAD)
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct "$commit")
export SOURCE_DATE_EPOCH
export LC_ALL=C.UTF-8 TZ=UTC
[[ -z $(git status --porcelain --untracked-files=no) ]] ||
  echo "release.sh: changes that aren't committed are left out" >&2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# program FOLDER: builds the commit in a folder of that name. No path, no name of a machine and no time
# of the build gets into the program.
program() {
  local folder=$work/$1
  mkdir -p "$folder"
  git archive "$commit" | tar -x -C "$folder"
  (cd "$folder" &&
    cmake --preset win32 -DVELMORA_TESTS=OFF \
      -DCMAKE_CXX_FLAGS="-ffunction-sections -fdata-sections -ffile-prefix-map=$folder=." \
      -DCMAKE_EXE_LINKER_FLAGS="-static -s -Wl,--gc-sections -Wl,--no-insert-timestamp" &&
    cmake --build --preset win32 --target VelmoraUpdate) >"$work/log" 2>&1 ||
    { cat "$work/log" >&2; fail "the program doesn't build"; }
}

echo "== Building ${commit:0:12}, twice"
program first
program second/in/another/place
built=$work/first/build/win32/VelmoraUpdate.exe
cmp "$built" "$work/second/in/another/place/build/win32/VelmoraUpdate.exe" ||
  fail "two builds of the same commit differ"

# --- The folder.

rm -rf "$release"
mkdir -p "$release"
cp "$built" "$release/"

# for_windows FILE: takes UTF-8 and writes what Windows reads in Japan: code page 932, CR LF.
for_windows() { sed 's/$/\r/' | iconv -f UTF-8 -t CP932 >"$1"; }

for_windows "$release/VelmoraUpdate.dat" <<'SETTINGS'
[Setting]
ServerAddress=www.example.com
Data=/game
Information=http://www.example.com/info.html
SETTINGS

version=$(sed -nE 's/^project\(.* VERSION ([0-9.]+) .*/\1/p' "$work/first/CMakeLists.txt")
[[ -n $version ]] || fail "CMakeLists.txt doesn't say the version"
for_windows "$release/README.txt" <<TEXT
VELMORA アップデート  $version

● 使い方
1. VelmoraUpdate.exe と VelmoraUpdate.dat をゲームのフォルダに置きます。
2. VelmoraUpdate.exe を起動すると、必要なファイルが自動的にダウンロードされます。
3. 「アップデート完了」と表示されたら「ゲーム開始」を押してください。

● 困ったときは
・ファイルが壊れたと思われる場合は「再チェック」を押してください。全てのファイルを確認します。
・VelmoraUpdate.dat はサーバーの設定です。ゲームの運営者が配布するものをお使いください。
・問題を報告するときは、同じフォルダの session.log を添えてください。
・インストールは不要です。アンインストールはフォルダを削除するだけです。

----------------------------------------------------------------------

VELMORA Update  $version

How to use
1. Put VelmoraUpdate.exe and VelmoraUpdate.dat into the game's folder.
2. Start VelmoraUpdate.exe. It downloads what is missing or out of date.
3. When the update is complete, press the large button on the right to
   start the game.

If something is wrong
- If files seem to be damaged, press the upper button beside it: all files
  are checked again.
- VelmoraUpdate.dat names the server. Use the one that your game's
  operator gives you.
- When you report a problem, add the file session.log of that folder.
- Nothing is installed. To remove the program, delete its files.
TEXT

(cd "$release" && sha256sum README.txt VelmoraUpdate.dat VelmoraUpdate.exe >SHA256SUMS)
find "$release" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
echo "== build/release, the same bytes for every build of this commit"
cat "$release/SHA256SUMS"
