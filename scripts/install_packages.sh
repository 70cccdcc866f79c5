#!/usr/bin/env bash
# Installs the missing Debian packages of the groups named: build, demo, bench, check, desktop, fuzz, package,
# windows.
set -euo pipefail

build=(g++ cmake ninja-build pkg-config libcurl4-openssl-dev libssl-dev zlib1g-dev libncurses-dev
       libcli11-dev libdeflate-dev libgtest-dev libvterm-dev nlohmann-json3-dev python3 scdoc)
demo=(nginx-light python3 procps iproute2 util-linux)
bench=(libbenchmark-dev curl openssl rsync pigz zopfli python3 time strace valgrind)
check=(clang-format clang-tidy cppcheck valgrind python3 man-db mandoc zsh fish)
fuzz=(clang libclang-rt-14-dev)
desktop=(libgtk-4-dev libwebkitgtk-6.0-dev libatspi2.0-dev at-spi2-core adwaita-icon-theme dbus xvfb xauth openbox
         x11-utils imagemagick xdotool fonts-noto-cjk)
package=(dpkg-dev lintian zip mandoc debootstrap)

windows=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix libz-mingw-w64-dev googletest dpkg-dev
         wine wine64 xvfb xauth openbox x11-utils imagemagick x11-apps xdotool
         fonts-noto-cjk locales debootstrap)

wanted=()
for group in "$@"; do
  case "$group" in
    build) wanted+=("${build[@]}") ;;
    demo) wanted+=("${demo[@]}") ;;
    bench) wanted+=("${bench[@]}") ;;
    check) wanted+=("${check[@]}") ;;
    desktop) wanted+=("${desktop[@]}") ;;
    fuzz) wanted+=("${fuzz[@]}") ;;
    package) wanted+=("${package[@]}") ;;
    windows) wanted+=("${windows[@]}") ;;
    *) echo "install_packages.sh: no group '$group'" >&2; exit 2 ;;
  esac
done

installed() { [[ $(dpkg-query -W -f '${Status}' "$1" 2>/dev/null) == *"ok installed" ]]; }

as_root=()
[[ $(id -u) -eq 0 ]] || as_root=(sudo)

# Wine takes its code page from the locale: this project's Windows programs need a Japanese one.
make_locale() {
  [[ " $* " == *" windows "* ]] || return 0
  locale -a | grep -qix 'ja_JP\.utf-\?8' || "${as_root[@]}" localedef -i ja_JP -f UTF-8 ja_JP.UTF-8
}

missing=()
for package in "${wanted[@]}"; do
  installed "$package" || missing+=("$package")
done
if [[ ${#missing[@]} -eq 0 ]]; then
  make_locale "$@"
  exit 0
fi

if [[ ${#as_root[@]} -ne 0 ]] && ! command -v sudo >/dev/null; then
  echo "Needs root or sudo to install: ${missing[*]}" >&2
  exit 1
fi
echo "Installing: ${missing[*]}"
had_nginx=false
installed nginx && had_nginx=true

# Debian starts nginx as a service that listens to the whole network. While this file exists, installing a
# package starts no service.
policy=/usr/sbin/policy-rc.d
if [[ ! -e $policy ]]; then
  trap '"${as_root[@]}" rm -f "$policy"' EXIT
  printf '#!/bin/sh\nexit 101\n' | "${as_root[@]}" tee "$policy" >/dev/null
  "${as_root[@]}" chmod 755 "$policy"
fi

apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -qq -o DPkg::Lock::Timeout=300)
log=$(mktemp)
if ! { "${apt[@]}" update && "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; } \
  >"$log" 2>&1; then
  cat "$log" >&2
  rm -f "$log"
  echo "install_packages.sh: can't install: ${missing[*]}" >&2
  exit 1
fi
rm -f "$log"

# Nor should it start with the machine.
if ! $had_nginx && installed nginx; then
  "${as_root[@]}" env PATH="$PATH:/usr/sbin:/sbin" update-rc.d nginx disable >/dev/null
fi

make_locale "$@"
