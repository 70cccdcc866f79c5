#!/usr/bin/env bash
# Builds libdeflate for Windows from Debian's source package, in the version of the installed libdeflate-dev, so
# that the tool makes the same bytes on both systems. Debian has no package of it for the cross compiler.
#
#   scripts/libdeflate_windows.sh
#
# Makes build/libdeflate/{i686,x86_64}-w64-mingw32/{include,lib}. Does nothing if they are there in this version.
# Exit status 1, with the reason, if that can't be done here.
set -euo pipefail
cd "$(dirname "$0")/.."
place=$PWD/build/libdeflate
targets=(i686-w64-mingw32 x86_64-w64-mingw32)

fail() { echo "libdeflate_windows.sh: $*" >&2; exit 1; }

version=$(dpkg-query -W -f '${source:Version}' libdeflate-dev 2>/dev/null) && [[ -n $version ]] ||
  fail "libdeflate-dev isn't installed: scripts/install_packages.sh build"
mkdir -p build
exec {lock}>build/libdeflate.lock
flock "$lock"  # the builds for both targets may ask for it at once
[[ $(cat "$place/version" 2>/dev/null) != "$version" ]] || exit 0
for target in "${targets[@]}"; do
  command -v "$target-gcc" >/dev/null || fail "no cross compiler for $target: scripts/install_packages.sh windows"
done

rm -rf "$place"
mkdir -p "$place"/apt/{sources,lists/partial}

# The machine's own archives, for source packages, without a change to its settings. apt checks the signatures.
shopt -s nullglob
for list in /etc/apt/sources.list.d/*.sources; do
  sed 's/^Types:.*/Types: deb-src/' "$list" >"$place/apt/sources/$(basename "$list")"
done
for list in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [[ ! -e $list ]] || sed -n 's/^deb /deb-src /p' "$list" >"$place/apt/sources/$(basename "$list" .list).list"
done
apt=(apt-get -qq -o "Dir::Etc::sourcelist=/dev/null" -o "Dir::Etc::sourceparts=$place/apt/sources"
     -o "Dir::State::lists=$place/apt/lists" -o APT::Sandbox::User=root)
log=$place/log
{ "${apt[@]}" update && cd "$place" && "${apt[@]}" source "libdeflate=$version"; } >"$log" 2>&1 ||
  { cat "$log" >&2; fail "can't get the source package libdeflate $version"; }
source=$(find "$place" -maxdepth 1 -type d -name 'libdeflate-*')

built=$(sed -nE 's/^#define LIBDEFLATE_VERSION_STRING\s+"(.*)"/\1/p' "$source/libdeflate.h")
[[ ${version%-*} == "$built" ]] || fail "the source package $version holds version $built"
for target in "${targets[@]}"; do
  {
    make -C "$source" clean
    # The file names of a Windows build end in .lib; the compiler wants the others.
    make -C "$source" CC="$target-gcc" AR="$target-ar" CFLAGS=-O2 libdeflatestatic.lib
    install -D -m 644 "$source/libdeflatestatic.lib" "$place/$target/lib/libdeflate.a"
    install -D -m 644 "$source/libdeflate.h" "$place/$target/include/libdeflate.h"
  } >>"$log" 2>&1 || { cat "$log" >&2; fail "libdeflate doesn't build for $target"; }
done
rm -rf "$place/apt"
echo "$version" >"$place/version"
