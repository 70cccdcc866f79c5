#!/usr/bin/env bash
# Installs the Debian packages of the groups named, those that are missing: build, demo, check.
set -euo pipefail

build=(g++ cmake ninja-build pkg-config libcurl4-openssl-dev libssl-dev zlib1g-dev libcli11-dev
       libgtest-dev)
demo=(nginx-light python3 procps)
check=(clang-format clang-tidy cppcheck valgrind python3)

wanted=()
for group in "$@"; do
  case "$group" in
    build) wanted+=("${build[@]}") ;;
    demo) wanted+=("${demo[@]}") ;;
    check) wanted+=("${check[@]}") ;;
    *) echo "install_packages.sh: no group '$group'" >&2; exit 2 ;;
  esac
done

missing=()
for package in "${wanted[@]}"; do
  status=$(dpkg-query -W -f '${Status}' "$package" 2>/dev/null || true)
  [[ $status == *"ok installed" ]] || missing+=("$package")
done
[[ ${#missing[@]} -eq 0 ]] && exit 0

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  command -v sudo >/dev/null || { echo "Needs root or sudo to install: ${missing[*]}" >&2; exit 1; }
  as_root=(sudo)
fi
echo "Installing: ${missing[*]}"
"${as_root[@]}" apt-get update -qq
# A server that comes with a package isn't started: the scripts start their own.
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive RUNLEVEL=1 \
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
