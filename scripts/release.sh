#!/usr/bin/env bash
# Makes the folder that players get, build/release/: the 32-bit program, a sample settings file, a text
# for players in Japanese and English, the licences of the libraries in the program, and checksums. The
# same commit built with the same packages produces the same bytes anywhere. To check that, the program is
# built twice, in two folders.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
release=$root/build/release

fail() { echo "release.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build windows

# What is released is the commit; the working tree may have changes.
commit=$(git rev-parse --verify HEAD)
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct "$commit")
export SOURCE_DATE_EPOCH
export LC_ALL=C.UTF-8 TZ=UTC
[[ -z $(git status --porcelain --untracked-files=no) ]] ||
  echo "release.sh: uncommitted changes are left out" >&2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# program FOLDER: builds the commit in a folder of that name, without the build's path, machine or time
# in the program.
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

with_line_ends() { sed 's/$/\r/'; }

with_line_ends >"$release/VelmoraUpdate.dat" <<'SETTINGS'
[Setting]
ServerAddress=www.example.com
Data=/game
Information=http://www.example.com/info.html
SETTINGS

version=$(sed -nE 's/^project\(.* VERSION ([0-9.]+) .*/\1/p' "$work/first/CMakeLists.txt")
[[ -n $version ]] || fail "no version in CMakeLists.txt"
# With a byte order mark, Notepad shows UTF-8 correctly on a Windows in any language.
mark=$'\uFEFF'
with_line_ends >"$release/README.txt" <<TEXT
${mark}VELMORA アップデート  $version

● 使い方
1. VelmoraUpdate.exe と VelmoraUpdate.dat をゲームのフォルダに置きます。
2. VelmoraUpdate.exe を起動すると、必要なファイルが自動的にダウンロードされます。
3. 「アップデート完了」と表示されたら「ゲーム開始」を押してください。

● インストール先
・プレイヤーが書き込めるフォルダに置いてください。C:\\Program Files や C:\\Program Files (x86) の中では、
  書き込みの権限がないと「既に動作中です。」と表示されて終了します。

● 動作環境
・Windows 7 から 11 で動作します。表示は、日本語以外の Windows でも日本語のままです。
・Windows 7 から 10 では、日本語などのファイル名は「Unicode 対応ではないプログラムの言語」が日本語のときに
  正しく扱われます。日本語以外の設定では、別の文字のファイル名になります。
・Wine でも動作します。HTML エンジンがない場合、お知らせの欄は空白のままですが、アップデートはできます。
  日本語のファイル名には ja_JP.UTF-8 のロケールが、日本語の表示には日本語フォントが必要です。

● メッセージの意味
・「既に動作中です。」
  他のフォルダのものも含め、アップデートプログラムが既に起動しています。終了してから起動してください。
  起動していない場合は、フォルダに書き込めないか、ディスクの空きがありません。書き込めるフォルダに移すか、
  フォルダへの書き込みを許可してください。
・「ゲームのフォルダを開けません。」
  フォルダ名に使用できない文字があります。フォルダ名を半角英数字に変更してください。
・「インターネット接続に問題があります。」
  Windows のインターネット機能を使用できません。Windows を再起動してください。
・「サーバに接続できません。」
  VelmoraUpdate.dat が同じフォルダにないか、サーバーの指定がありません。運営者のものを置いてください。
・「サーバー上のファイルが見つかりませんでした。」
  サーバーに接続できないか、ファイルがありません。インターネット接続を確認し、時間を置いて起動してください。
・「ダウンロードサーバとの接続が切れました。」
  もう一度起動すると、続きから始まります。繰り返す場合は、回線と空きメモリを確認してください。
・「ファイルデータが一致しません」「ファイルの展開に失敗しました」
  受信したデータが運営者のものと違います。運営者が更新中の場合は、時間を置いて起動してください。続く場合は、
  プロキシやウイルス対策ソフトが通信を書き換えていないか確認するか、別の回線で試してください。
・「ファイル : …を処理中にエラーが発生しました。」
  ファイルに書き込めません。続けて表示される理由に従い、ディスクの空きを増やす、そのファイルを使用中のゲームや
  ウイルス対策ソフトを終了する、フォルダへの書き込みを許可する、のいずれかを行ってください。
・「アップデートプログラムが更新されました。」
  エラーではありません。OK を押すと、新しいプログラムが起動します。
・「インフォメーションウインドウの初期化に失敗しました」
  お知らせの欄を用意できません。Windows を更新してください。

● 困ったときは
・ファイルが壊れたと思われる場合は「再チェック」を押してください。全てのファイルを確認します。
・VelmoraUpdate.dat はサーバーの設定です。ゲームの運営者が配布するものをお使いください。
・問題を報告するときは、同じフォルダの session.log を添えてください。
・インストールは不要です。アンインストールはフォルダを削除するだけです。
・使用しているライブラリの著作権表示とライセンスは、notices フォルダにあります。

----------------------------------------------------------------------

VELMORA Update  $version

How to use
1. Put VelmoraUpdate.exe and VelmoraUpdate.dat into the game's folder.
2. Start VelmoraUpdate.exe. It downloads all files that are missing or out
   of date.
3. When it shows アップデート完了 (update complete), press the large button
   ゲーム開始 (start the game).

Where to put it
- Into a folder that you can write to. In C:\\Program Files or
  C:\\Program Files (x86), a player without permission to write there is
  told that the program is already running, and it closes.

Systems
- Windows 7 to 11. The program's texts are in Japanese, even on a Windows
  in another language.
- On Windows 7 to 10, file names outside ASCII are correct only if the
  "language for non-Unicode programs" is Japanese. Otherwise such files get
  names with other characters.
- Wine. Without an HTML engine the news area stays blank, but the update
  works. Japanese file names need the locale ja_JP.UTF-8, and Japanese
  texts need a Japanese font.

What the messages mean
- 既に動作中です。 (Already running.)
  Another update program is open, perhaps in another folder: close it
  first. If none is open, this folder can't be written to, or the disk is
  full: move the game to a folder that you can write to, or allow writing
  to this one.
- ゲームのフォルダを開けません。 (The game's folder can't be opened.)
  The folder's name has characters that can't be used. Rename it, using
  only the letters A to Z and digits.
- インターネット接続に問題があります。 (Problem with the Internet connection.)
  Windows' Internet functions aren't available: restart Windows.
- サーバに接続できません。 (Can't connect to the server.)
  VelmoraUpdate.dat isn't in the same folder, or names no server: put the
  operator's file there.
- サーバー上のファイルが見つかりませんでした。 (File not found on the server.)
  The server doesn't answer, or doesn't have the file. Check your Internet
  connection, and start the program again later.
- ダウンロードサーバとの接続が切れました。 (Connection to the download server lost.)
  Start the program again: it continues where it stopped. If this happens
  repeatedly, check your connection and the free memory.
- ファイルデータが一致しません (The file's data doesn't match.)
  ファイルの展開に失敗しました (The file couldn't be expanded.)
  What you received isn't what the operator published. The operator may be
  updating the server: start the program again later. If the message comes
  back, check whether a proxy or an antivirus program changes what you
  download, or try another connection.
- ファイル : …を処理中にエラーが発生しました。 (Error while processing the file …)
  The file can't be written. The reason is shown after the message: free
  some disk space, close the game or the antivirus program that is using
  the file, or allow writing to the folder.
- アップデートプログラムが更新されました。 (The update program was updated.)
  This isn't an error. Press OK, and the new program starts.
- インフォメーションウインドウの初期化に失敗しました (The news area couldn't be set up.)
  Update Windows.

If you have a problem
- If you think that files are damaged, press 再チェック (re-check). All files
  are then checked.
- VelmoraUpdate.dat holds the server's settings. Use the file that your
  game's operator provides.
- When you report a problem, attach session.log from the same folder.
- Nothing is installed. To remove the program, delete its files.
- The notices folder has the copyright notices and licences of the
  libraries that the program uses.
TEXT

# The licences of the libraries that are linked into the program, from Debian's packages.
mkdir "$release/notices"
for notice in zlib:libz-mingw-w64-dev mingw-w64:mingw-w64-i686-dev gcc:gcc-mingw-w64-i686-posix; do
  with_line_ends <"/usr/share/doc/${notice#*:}/copyright" >"$release/notices/${notice%%:*}.txt"
done

(cd "$release" && sha256sum README.txt VelmoraUpdate.dat VelmoraUpdate.exe notices/* >SHA256SUMS)
find "$release" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
echo "== build/release"
cat "$release/SHA256SUMS"
