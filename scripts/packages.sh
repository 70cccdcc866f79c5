#!/usr/bin/env bash
# Makes the Debian packages in build/packages/, and fails if lintian finds anything above pedantic. The same
# commit gives the same bytes.
set -euo pipefail
cd "$(dirname "$0")/.."
packages=build/packages

fail() { echo "packages.sh: $*" >&2; exit 1; }

scripts/install_packages.sh build desktop package
# The time of all files: that of the commit, unless the caller says another.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)}
export SOURCE_DATE_EPOCH LC_ALL=C.UTF-8 TZ=UTC
umask 022

rm -rf "$packages"
for preset in package package-desktop; do
  scripts/build.sh "$preset"
  cpack --config "build/$preset/CPackConfig.cmake" -B "$packages" >"build/$preset/cpack.log" 2>&1 ||
    { cat "build/$preset/cpack.log" >&2; fail "cpack fails"; }
  rm -rf "$packages/_CPack_Packages"
done

as_root=()
[[ $(id -u) -ne 0 ]] || as_root=(--allow-root)
found=$(lintian "${as_root[@]}" --display-info --fail-on none "$packages"/*.deb) || fail "lintian fails: $found"
[[ -z $found ]] || fail "lintian finds:"$'\n'"$found"
(cd "$packages" && sha256sum ./*.deb)
