#!/usr/bin/env bash
# Runs a Windows program under Wine as on a Japanese Windows: with code page 932, an X display, and a prefix
# of the project's own. Usage: wine.sh [--console] PROGRAM ARGUMENTS...
#
# Wine takes code page and language from the locale; VELMORA_WINE_LOCALE sets another one. If DISPLAY is
# set, that display is used; otherwise a virtual one with a window manager, which ends with the program. A
# program for the console needs none.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)

export WINEPREFIX=${VELMORA_WINEPREFIX:-$root/build/wine/prefix}
export WINEDEBUG=${WINEDEBUG:--all}
# Without these overrides Wine would offer to install an HTML engine and .NET.
export WINEDLLOVERRIDES=mscoree,mshtml=
export LC_ALL=${VELMORA_WINE_LOCALE:-ja_JP.UTF-8}

if [[ ${1:-} == --console ]]; then
  shift
  unset DISPLAY
elif [[ -z ${DISPLAY:-} ]]; then
  exec xvfb-run -a -s '-screen 0 1280x1024x24' "$0" --managed "$@"
fi
if [[ ${1:-} == --managed ]]; then
  shift
  openbox >/dev/null 2>&1 &
  manager=$!
  trap 'kill "$manager" 2>/dev/null || true' EXIT
fi
if [[ ! -e $WINEPREFIX/system.reg ]]; then
  mkdir -p "$WINEPREFIX"
  wine wineboot --init >/dev/null 2>&1
  wineserver -w
fi
wine "$@"
