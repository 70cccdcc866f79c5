#!/usr/bin/env bash
# Tries the Debian packages in a fresh Debian: installs them with what they depend on, publishes and updates a
# game there with nginx and users who aren't root, by what the manual says, and purges them. Fails if anything
# doesn't work, or if a file is left behind. Needs root and Debian's archive, so the tests don't run it; the
# first run makes the fresh system in build/package-root, in a minute or two.
#
#   scripts/package_test.sh [FOLDER]    the packages in FOLDER, such as build/release; default: makes them
set -euo pipefail
folder=$(realpath "${1:-$(dirname "$0")/../build/packages}")
cd "$(dirname "$0")/.."
here=$PWD
fresh=$here/build/package-root
root=$here/build/package-try

fail() { echo "package_test.sh: $*" >&2; exit 1; }
[[ $(id -u) -eq 0 ]] || fail "needs root, to make a Debian and change into it"

[[ $# -gt 0 ]] || scripts/packages.sh
scripts/install_packages.sh package
if [[ ! -e $fresh/complete ]]; then
  echo "== Making a fresh Debian"
  rm -rf "$fresh"
  mirror=$(cat /etc/apt/sources.list /etc/apt/sources.list.d/*.sources 2>/dev/null |
    sed -nE 's/^(URIs:|deb( \[[^]]*\])?) *(http[^ ]*\/debian)\/?( .*)?$/\3/p' | head -1) || true
  mkdir -p build
  /usr/sbin/debootstrap --variant=minbase --include=nginx-light,man-db bookworm "$fresh" \
    "${mirror:-http://deb.debian.org/debian}" >build/package-root.log 2>&1 ||
    { tail -5 build/package-root.log >&2; fail "debootstrap fails"; }
  touch "$fresh/complete"
fi
rm -rf "$root"
cp -a "$fresh" "$root"
mkdir "$root/packages"
cp "$folder"/*.deb "$root/packages/"
cp /etc/resolv.conf "$root/etc/"

# inside COMMAND...: runs a command in the fresh system. Its mounts end with it.
inside() {
  unshare --mount --pid --fork bash -euc '
    mount -t proc proc "$1/proc"
    mount --rbind /dev "$1/dev"
    exec chroot "$1" env -i HOME=/root PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 \
      DEBIAN_FRONTEND=noninteractive ${http_proxy:+http_proxy="$http_proxy"} "${@:2}"' inside "$root" "$@"
}
# What apt, dpkg and the system's caches keep for themselves isn't the packages'.
files() {
  (cd "$root" && find . \( -path ./proc -o -path ./dev -o -path ./tmp -o -path ./run -o -path ./packages \
    -o -path './var/cache' -o -path './var/log' -o -path './var/lib/apt' -o -path './var/lib/dpkg' \) -prune \
    -o -printf '%p %y %m %U\n' | grep -vE '^\./(etc/ld\.so\.cache|usr|etc) ' | sort)
}
# apt PART...: prints what it says only if it fails.
apt() { inside apt-get -qq "$@" >build/package-try.log 2>&1 || { cat build/package-try.log >&2; fail "apt-get $*"; }; }

printf '#!/bin/sh\nexit 101\n' >"$root/usr/sbin/policy-rc.d"
chmod 755 "$root/usr/sbin/policy-rc.d"
inside useradd --create-home publisher
inside useradd --create-home player
apt update
packages=$(cd "$root" && printf '/%s ' packages/*.deb)
# Before the others, since purging those leaves files that aren't ours.
echo "== Installing what the packages depend on"
dependencies=$(inside apt-get -s install --no-install-recommends $packages |
  sed -n 's/^Inst \([^ ]*\) .*/\1/p' | grep -v '^velmora-')
apt install --no-install-recommends -y $dependencies
files >build/package-before

echo "== Installing $(ls "$root/packages" | tr '\n' ' ')"
apt install --no-install-recommends -y $packages
inside dpkg --verify velmora-update velmora-update-desktop velmora-publish | grep . && fail "dpkg finds changed files"
[[ -z $(inside dpkg --audit) ]] || fail "dpkg finds packages that aren't installed properly"

# --- A publisher and a player, with nothing but a loopback network.

cat >"$root/home/publisher/day" <<'DAY'
set -euo pipefail
velmora-publish --version
man velmora-publish-build >manual.txt
grep -q -- --remove-from manual.txt
mkdir -p tree/data site
seq 1 100000 >tree/data/level1.map
printf '#!/bin/sh\necho started >started\n' >tree/Game.exe
[[ -e tree/VelmoraUpdate.exe ]] || cp /usr/lib/velmora-update/VelmoraUpdate.exe tree/
printf '[Setting]\nServerAddress=127.0.0.1\nData=/game\n' >tree/VelmoraUpdate.dat
export SITE=/home/publisher/site URL=http://127.0.0.1/game
bash /usr/share/doc/velmora-publish/examples/publish.sh prepare tree
bash /usr/share/doc/velmora-publish/examples/publish.sh release
DAY
cat >"$root/home/player/update" <<'UPDATE'
set -euo pipefail
mkdir -p game
cd game
[[ -e VelmoraUpdate.exe ]] || install -m 755 /usr/lib/velmora-update/VelmoraUpdate.exe .
printf '[Setting]\nServerAddress=127.0.0.1\nData=/game\n' >VelmoraUpdate.dat
rm -f session.log
printf 'wait\nwait\n%s\n' "$1" | ./VelmoraUpdate.exe >../output 2>../messages
for _ in $(seq 100); do [[ -e _VelmoraUpdate.exe ]] || break; sleep 0.05; done
grep -aqF 'GetMissingFile() : Update Completed.' session.log || { cat session.log; exit 1; }
UPDATE
# There is no display here, but all that the program needs to start.
cat >"$root/home/player/desktop" <<'DESKTOP'
set -euo pipefail
cd game
/usr/lib/velmora-update-desktop/VelmoraUpdate.exe 2>../messages
grep -qF 'there is no display' ../messages || { cat ../messages; exit 1; }
DESKTOP
cat >"$root/root/try" <<'TRY'
set -euo pipefail
sed 's|alias [^;]*;|alias /home/publisher/site/current/;|; s|listen 80|listen 127.0.0.1:80|' \
  /usr/share/doc/velmora-publish/examples/nginx-publication.conf >/etc/nginx/conf.d/velmora.conf
rm -f /etc/nginx/sites-enabled/default
chmod 755 /home/publisher
nginx
as() { setpriv --reuid "$1" --regid "$1" --clear-groups --reset-env bash -c "cd; bash ${*:2}"; }
as publisher day
as player update close
as player desktop
diff -r --exclude=VelmoraUpdate.cvc --exclude=session.log /home/publisher/tree /home/player/game
# A new patcher and a new file for players who have the old ones.
printf 'edition 2' >>/home/publisher/tree/VelmoraUpdate.exe
echo new >/home/publisher/tree/data/new.txt
as publisher day | tail -1
as player update start
for _ in $(seq 100); do [[ -e /home/player/game/started ]] && break; sleep 0.05; done
rm /home/player/game/started
diff -r --exclude=VelmoraUpdate.cvc --exclude=session.log /home/publisher/tree /home/player/game
nginx -s stop 2>/dev/null
rm -r /etc/nginx/conf.d/velmora.conf
ln -s /etc/nginx/sites-available/default /etc/nginx/sites-enabled/default
rm -r /var/lib/nginx/*
find /home/publisher /home/player -mindepth 1 -not -name '.bash*' -not -name .profile -delete
rm /root/try
TRY
echo "== Publishing and updating"
export -f inside
export root
unshare --net bash -euc 'ip link set lo up; inside bash /root/try' || fail "it doesn't work in a fresh Debian"

echo "== Purging"
apt purge -y velmora-update velmora-update-desktop velmora-publish
[[ $(inside dpkg-query -W -f '${Package} ${Status}\n' | grep -c velmora) -eq 0 ]] || fail "dpkg still knows them"
files >build/package-after
diff build/package-before build/package-after || fail "purging leaves or takes something"
rm -rf "$root"
echo "== The packages install, publish, update and purge cleanly."
