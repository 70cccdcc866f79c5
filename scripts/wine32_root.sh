#!/usr/bin/env bash
# Runs a 32-bit Windows program under Wine. The 32-bit Wine can't be installed beside the 64-bit one, so it
# gets a small i386 Debian of its own in build/wine32-root, which is made once. That system shares the
# network and this folder. If it can't be made, the script prints one line and exits with status 77.
#
#   wine32_root.sh PROGRAM ARGUMENTS...
#   wine32_root.sh --prepare              only makes the system
set -euo pipefail
cd "$(dirname "$0")/.."
here=$PWD
root=$here/build/wine32-root
packages=wine,wine32,xvfb,xauth,openbox,locales,fonts-noto-cjk
readonly cannot=77

give_up() { echo "wine32_root.sh: no 32-bit Wine: $*"; exit $cannot; }

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || give_up "neither root nor sudo"
  as_root=(sudo)
fi

make_root() {
  [[ -x /usr/sbin/debootstrap ]] || give_up "debootstrap is missing"
  local mirror
  mirror=$(cat /etc/apt/sources.list /etc/apt/sources.list.d/*.sources 2>/dev/null |
    sed -nE 's/^(URIs:|deb( \[[^]]*\])?) *(http[^ ]*\/debian)\/?( .*)?$/\3/p' | head -1) || true
  echo "Making an i386 Debian for the 32-bit Wine (once, about two minutes)"
  "${as_root[@]}" rm -rf "$root"
  mkdir -p "$(dirname "$root")"
  "${as_root[@]}" /usr/sbin/debootstrap --arch=i386 --variant=minbase --include="$packages" bookworm "$root" \
    "${mirror:-http://deb.debian.org/debian}" >"$here/build/wine32-root.log" 2>&1 ||
    { tail -3 "$here/build/wine32-root.log"; give_up "the i386 Debian couldn't be made"; }
  "${as_root[@]}" chroot "$root" localedef -i ja_JP -f UTF-8 ja_JP.UTF-8
  "${as_root[@]}" touch "$root/complete"
}

[[ -e $root/complete ]] || make_root
[[ ${1:-} != --prepare ]] || exit 0

# The mounts belong to a namespace of their own and end with it, however this script ends.
"${as_root[@]}" unshare --mount bash -euc '
  root=$1 here=$2
  shift 2
  mkdir -p "$root$here"
  mount --bind "$here" "$root$here"
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  exec chroot "$root" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin TMPDIR=/tmp WINEARCH=win32 \
    VELMORA_WINEPREFIX=/root/prefix "$here/scripts/wine.sh" "$here/$1" "${@:2}"
' wine32 "$root" "$here" "$@"
