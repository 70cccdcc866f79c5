#!/usr/bin/env bash
# Makes a release of the commit that is checked out, in build/release/:
#
#   players/                              the folder that players get: the 32-bit program, a sample settings
#                                         file, a text for players in Japanese and English, licences
#   velmora-publish-VERSION-windows.zip   the publisher's tool for Windows, its manual, samples, licences
#   velmora-update_VERSION_amd64.deb      the patcher for Linux terminals
#   velmora-update-desktop_VERSION_amd64.deb  the patcher for Linux desktops
#   velmora-publish_VERSION_amd64.deb     the publisher's tool for Linux
#   velmora-update-VERSION.spdx.json      what is linked into all of them
#   SHA256SUMS
#
# The same commit built with the same Debian packages produces the same bytes anywhere. To check that,
# everything is made twice, in two folders.
set -euo pipefail
cd "$(dirname "$0")/.."
root=$PWD
release=$root/build/release

fail() { echo "release.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build desktop windows package

# What is released is the commit; the working tree may have changes.
commit=$(git rev-parse --verify HEAD)
SOURCE_DATE_EPOCH=$(git log -1 --format=%ct "$commit")
export SOURCE_DATE_EPOCH
export LC_ALL=C.UTF-8 TZ=UTC
umask 022
# What a compiler cache remembers of the first build would be no second one.
export CCACHE_DISABLE=1
[[ -z $(git status --porcelain --untracked-files=no) ]] ||
  echo "release.sh: uncommitted changes are left out" >&2

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# in_log COMMAND...: prints what the command prints only if it fails.
in_log() { "$@" >"$work/log" 2>&1 || { cat "$work/log" >&2; fail "fails: $*"; }; }

# --- Programs and packages.

# for_windows PRESET TARGET
for_windows() {
  in_log cmake --preset "$1" -DVELMORA_TESTS=OFF -DVELMORA_PACKAGE=ON
  in_log cmake --build --preset "$1" --target "$2"
}

with_line_ends() { sed 's/$/\r/'; }

# notices FOLDER NAME:PACKAGE...: the licences of the libraries in a program, from Debian's packages.
notices() {
  mkdir -p "$1"
  local notice
  for notice in "${@:2}"; do
    with_line_ends <"/usr/share/doc/${notice#*:}/copyright" >"$1/${notice%%:*}.txt"
  done
}

players_folder() {
  mkdir -p "$1"
  cp build/win32/VelmoraUpdate.exe "$1/"
  with_line_ends <packaging/players/VelmoraUpdate.dat >"$1/VelmoraUpdate.dat"
  sed "s/@VERSION@/$version/" packaging/players/README.txt | with_line_ends >"$1/README.txt"
  notices "$1/notices" zlib:libz-mingw-w64-dev mingw-w64:mingw-w64-i686-dev gcc:gcc-mingw-w64-i686-posix
  (cd "$1" && sha256sum README.txt VelmoraUpdate.dat VelmoraUpdate.exe notices/* >SHA256SUMS)
}

# The manual is HTML there: Windows shows no manual pages.
publishers_zip() {
  local name=velmora-publish-$version-windows
  local folder=$PWD/build/$name page
  mkdir -p "$folder"/{manual,documents/examples,samples}
  cp build/win64/velmora-publish.exe "$folder/"
  sed "s/@VERSION@/$version/" packaging/publishers/README.txt | with_line_ends >"$folder/README.txt"
  for page in build/package/docs/*.[1-9]; do
    mandoc -Thtml -O 'man=%N.%S.html' "$page" >"$folder/manual/$(basename "$page").html"
  done
  for page in publishing pipeline limits performance; do
    with_line_ends <"docs/$page.md" >"$folder/documents/$page.md"
  done
  cp docs/performance-growth.svg "$folder/documents/"
  cp -r docs/examples/* "$folder/documents/examples/"
  for page in packaging/publishers/samples/{*,.[a-z]*}; do
    with_line_ends <"$page" >"$folder/samples/$(basename "$page")"
  done
  notices "$folder/notices" zlib:libz-mingw-w64-dev mingw-w64:mingw-w64-x86-64-dev \
    gcc:gcc-mingw-w64-x86-64-posix libdeflate:libdeflate-dev cli11:libcli11-dev json:nlohmann-json3-dev
  find "$folder" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +
  (cd build && find "$name" -type f | sort | zip -X -q -@ "$1")
}

# release_in FOLDER: builds the commit in this folder and makes the release in its build/release.
release_in() {
  mkdir -p "$1/build"
  git archive "$commit" | tar -x -C "$1"
  # Made of another source, which needs the network.
  cp -r build/libdeflate "$1/build/"
  cd "$1"
  for_windows win32 VelmoraUpdate
  for_windows win64 velmora-publish
  in_log scripts/packages.sh
  local place=$PWD/build/release
  mkdir -p "$place"
  players_folder "$place/players"
  publishers_zip "$place/velmora-publish-$version-windows.zip"
  cp build/packages/*.deb "$place/"
  scripts/sbom.py velmora-update "$version" "$commit" \
    "VelmoraUpdate:$place/players/VelmoraUpdate.exe:build/win32" \
    "velmora-publish:$place/velmora-publish-$version-windows.zip:build/win64" \
    "VelmoraUpdate:$(echo "$place"/velmora-update_*.deb):build/package" \
    "VelmoraUpdate:$(echo "$place"/velmora-update-desktop_*.deb):build/package-desktop" \
    "velmora-publish:$(echo "$place"/velmora-publish_*.deb):build/package" \
    >"$place/velmora-update-$version.spdx.json"
  (cd "$place" && find . -type f ! -path ./SHA256SUMS -printf '%P\n' | sort | xargs sha256sum >SHA256SUMS)
  find "$place" -exec touch -d "@$SOURCE_DATE_EPOCH" {} +
}

version=$(git show "$commit:CMakeLists.txt" | sed -nE 's/^project\(.* VERSION ([0-9.]+) .*/\1/p')
[[ -n $version ]] || fail "no version in CMakeLists.txt"
scripts/libdeflate_windows.sh
for folder in first second/in/another/place; do
  echo "== Making the release of ${commit:0:12} in a folder $folder"
  (release_in "$work/$folder")
done
diff -r "$work/first/build/release" "$work/second/in/another/place/build/release" ||
  fail "two releases of the same commit differ"

rm -rf "$release"
cp -a "$work/first/build/release" "$release"
echo "== build/release"
cat "$release/SHA256SUMS"
