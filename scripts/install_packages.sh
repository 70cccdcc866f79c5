#!/usr/bin/env bash
# Installs the Debian packages of the groups named, those that are missing: build, demo, check,
# windows.
set -euo pipefail

build=(g++ cmake ninja-build pkg-config libcurl4-openssl-dev libssl-dev zlib1g-dev libcli11-dev
       libgtest-dev)
demo=(nginx-light python3 procps)
check=(clang-format clang-tidy cppcheck valgrind python3)

windows=(g++-mingw-w64-i686-posix g++-mingw-w64-x86-64-posix libz-mingw-w64-dev googletest
         wine wine64 xvfb xauth openbox x11-utils imagemagick x11-apps xdotool
         fonts-ipafont-gothic locales)

wanted=()
for group in "$@"; do
  case "$group" in
    build) wanted+=("${build[@]}") ;;
    demo) wanted+=("${demo[@]}") ;;
    check) wanted+=("${check[@]}") ;;
    windows) wanted+=("${windows[@]}") ;;
    *) echo "install_packages.sh: no group '$group'" >&2; exit 2 ;;
  esac
done

installed() { [[ $(dpkg-query -W -f '${Status}' "$1" 2>/dev/null) == *"ok installed" ]]; }

missing=()
for package in "${wanted[@]}"; do
  installed "$package" || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "Needs root or sudo to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
had_nginx=false
installed nginx && had_nginx=true

# nginx comes as a service, which would listen to the whole network. While this file stands, installing
# starts no service.
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

# Nor shall it start with the machine.
if ! $had_nginx && installed nginx; then
  "${as_root[@]}" env PATH="$PATH:/usr/sbin:/sbin" update-rc.d nginx disable >/dev/null
fi
